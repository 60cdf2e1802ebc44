// Kills a real finalization at every change it makes to the disk or the registry, starts the
// recovery the next run begins with, and proves that files, shortcuts, the uninstall entry and
// the URL scheme are exactly as before the installation or exactly as after it. Crashes during
// the rollback after a cancel and during an interrupted recovery are covered the same way.
#include "tst_finalize.h"

#include "support/crash_child_run.h"
#include "support/test_registrations.h"
#include "support/tree_fixture.h"
#include "system/file_links.h"

#include <QDir>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

namespace {

enum class Scenario { Update, FirstInstall, CancelledUpdate, InterruptedRecovery };

// The user's view of the product: every file and directory, and the registrations.
using State = QMap<QString, QString>;

// One installation attempt and its recovery, always in the same directory, so that paths
// written into files and registrations compare between runs.
class CrashRun
{
public:
    CrashRun(const QString &base, bool existing)
        : m_base(base)
    {
        TestRegistrations::forget();
        m_ready = (!QFileInfo::exists(base) || FileLinks::removeTree(base)) && write(root(), existing ? TreeFixture::installationWithoutLauncher() : TreeFixture::Files())
            && write(stage(), TreeFixture::payload())
            && (!existing || TestRegistrations::plantOlderInstaller(root()));
        m_before = state();
    }
    ~CrashRun() { TestRegistrations::forget(); }

    bool ready() const { return m_ready; }
    const State &before() const { return m_before; }

    QString stage() const { return m_base + QStringLiteral("/BrisaLinker.installing-7-1"); }
    ChildRun install(int dieAt, int cancelAt)
    {
        return run({ QStringLiteral("install"), root(), stage(), steps(), QString::number(dieAt), QString::number(cancelAt) });
    }
    ChildRun recover(int dieAt) { return run({ QStringLiteral("recover"), root(), steps(), QString::number(dieAt) }); }

    State state() const
    {
        State result = TreeFixture::snapshot(root());
        // The rights step just before the commit makes the product's lock file, and a rollback
        // leaves it, as a recovery does.
        result.remove(QStringLiteral(".brisalinker.lock"));
        const QMap<QString, QByteArray> registrations = TestRegistrations::snapshot();
        for (auto it = registrations.cbegin(); it != registrations.cend(); ++it)
            result.insert(it.key(), QString::fromLatin1(it.value().toHex()));
        return result;
    }

private:
    static bool write(const QString &directory, const TreeFixture::Files &files)
    {
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            if (!TreeFixture::write(directory + QLatin1Char('/') + it.key(), it.value()))
                return false;
        }
        return true;
    }
    QString root() const { return m_base + QStringLiteral("/BrisaLinker"); }
    QString steps() const { return QFileInfo(m_base).path() + QStringLiteral("/steps.txt"); }
    ChildRun run(const QStringList &arguments)
    {
        // Without the system's programs the optional actions after the commit are quick warnings.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("WINDIR"), QDir::toNativeSeparators(m_base));
        // The uninstall list orders its directories by hash; every run the same way.
        environment.insert(QStringLiteral("QT_HASH_SEED"), QStringLiteral("0"));
        return runCrashChild(QStringLiteral(BRISA_FINALIZATION_CRASH_CHILD), arguments, steps(), environment);
    }

    QString m_base;
    bool m_ready = false;
    State m_before;
};

// What must hold after the commit whichever run wrote it: a shortcut's bytes carry its target's
// times and the scheme's marker is unique to a run, so those compare by target and by presence.
// The old uninstall shortcut is retired after the commit, or by the next installation.
State comparable(State state)
{
    for (auto it = state.begin(); it != state.end();) {
        if (it.key().startsWith(QLatin1String("lnk:")) || it.key().contains(QLatin1String("Uninstall Brisa-Linker.lnk")))
            it = state.erase(it);
        else
            ++it;
    }
    if (state.contains(QStringLiteral("brisalinker|BrisaLinkerInstallerRegistration")))
        state.insert(QStringLiteral("brisalinker|BrisaLinkerInstallerRegistration"), QStringLiteral("marker"));
    return state;
}

// Where a run's changes first left those of the run that named the crash points.
QString divergence(const QStringList &expected, const QStringList &actual)
{
    qsizetype at = 0;
    while (at < expected.size() && at < actual.size() && expected.at(at) == actual.at(at))
        ++at;
    return QStringLiteral("after %1 equal steps, \"%2\" where \"%3\" was expected")
        .arg(at).arg(actual.value(at, QStringLiteral("the end")), expected.value(at, QStringLiteral("the end")));
}

int lastIndexOf(const QStringList &steps, const QString &step)
{
    return steps.lastIndexOf(step) + 1;
}

// Empty when the state is exactly the old or, for a crash after the commit, the new one.
QString verdict(const CrashRun &run, const State &after, bool committed)
{
    const State now = run.state();
    if (now.contains(QStringLiteral(".install-transaction.json")))
        return QStringLiteral("the record was not retired");
    if (!committed) {
        // What was undone goes back to the stage, from where a retry could take it.
        const auto staged = TreeFixture::snapshot(run.stage());
        const auto payload = TreeFixture::expected(TreeFixture::payload());
        for (auto it = payload.cbegin(); it != payload.cend(); ++it) {
            if (staged.value(it.key()) != it.value())
                return QStringLiteral("the staged payload lost ") + it.key();
        }
    }
    if (committed ? comparable(now) == comparable(after) : now == run.before())
        return {};
    const State expected = committed ? comparable(after) : run.before();
    const State actual = committed ? comparable(now) : now;
    QStringList differences;
    for (const QString &key : QSet<QString>(expected.keyBegin(), expected.keyEnd()) | QSet<QString>(actual.keyBegin(), actual.keyEnd())) {
        if (expected.value(key, QStringLiteral("absent")) != actual.value(key, QStringLiteral("absent")))
            differences << key + QLatin1Char('=') + actual.value(key, QStringLiteral("absent")).left(40);
    }
    differences.sort();
    return (committed ? QStringLiteral("not exactly the new installation: ") : QStringLiteral("not exactly the old installation: "))
        + differences.join(QStringLiteral(", "));
}

} // namespace

void FinalizeTest::crashAtEveryChangeEndsOldOrNew_data()
{
    QTest::addColumn<int>("scenario");
    QTest::newRow("a crash at any change of an update over an older installer's registrations") << int(Scenario::Update);
    QTest::newRow("a crash at any change of a first installation on a machine without any") << int(Scenario::FirstInstall);
    QTest::newRow("a crash at any change of the rollback after a cancel") << int(Scenario::CancelledUpdate);
    QTest::newRow("a crash at any change of a recovery that is itself recovering a crash") << int(Scenario::InterruptedRecovery);
}

void FinalizeTest::crashAtEveryChangeEndsOldOrNew()
{
    QFETCH(int, scenario);
    const bool existing = Scenario(scenario) != Scenario::FirstInstall;
    QTemporaryDir temp;
    const QString base = temp.filePath(QStringLiteral("run"));

    // An undisturbed run names every change; the commit is the record's last save, and the
    // retirements of the old registrations follow it.
    State after;
    QStringList steps;
    {
        CrashRun dry(base, existing);
        QVERIFY(dry.ready());
        const ChildRun full = dry.install(0, 0);
        QCOMPARE(full.exitCode, 0);
        after = dry.state();
        steps = full.steps;
    }
    const int commit = lastIndexOf(steps, QStringLiteral("save record"));
    const int retired = std::max({ commit + 1, lastIndexOf(steps, QStringLiteral("retire machine entry")), lastIndexOf(steps, QStringLiteral("remove shortcut")) });
    int cancelAt = 0;
    int first = 1;
    int last = retired;
    if (Scenario(scenario) == Scenario::CancelledUpdate) {
        // Once every registration is written; without any (the host), as the shortcuts begin.
        qsizetype at = steps.indexOf(QStringLiteral("write uninstall value"));
        if (at < 0)
            at = steps.indexOf(QStringLiteral("save record"), steps.indexOf(QStringLiteral("save record")) + 1);
        cancelAt = int(at) + 1;
        CrashRun cancelled(base, existing);
        QVERIFY(cancelled.ready());
        const ChildRun rolledBack = cancelled.install(0, cancelAt);
        QCOMPARE(rolledBack.exitCode, 3);
        QCOMPARE(verdict(cancelled, after, false), QString());
        first = cancelAt + 1;
        last = rolledBack.steps.size();
        steps = rolledBack.steps;
    }
    QVERIFY(last > first + 10);

    // A run may take a shorter path than the one that named the points: a restore skips what is
    // already back, and a shortcut written again can come out byte for byte as before (its bytes
    // carry times of two seconds' resolution). Such a run ends by itself and is judged as well.
    const qsizetype saves = steps.count(QStringLiteral("save record"));
    if (Scenario(scenario) != Scenario::InterruptedRecovery) {
        for (int point = first; point <= last; ++point) {
            CrashRun run(base, existing);
            QVERIFY(run.ready());
            const ChildRun crashed = run.install(point, cancelAt);
            QVERIFY2(crashed.died || (crashed.steps.size() < point && crashed.exitCode == (cancelAt ? 3 : 0)),
                     qPrintable(QStringLiteral("no crash at step %1: exit %2 %3").arg(point).arg(crashed.exitCode).arg(divergence(steps, crashed.steps))));
            QCOMPARE(run.recover(0).exitCode, 0);
            const bool committed = cancelAt == 0 && crashed.steps.count(QStringLiteral("save record")) == saves;
            const QString wrong = verdict(run, after, committed);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("crash after step %1 (%2): %3").arg(point).arg(crashed.steps.value(point - 1), wrong)));
            m_crashPoints += crashed.died;
        }
        return;
    }

    // Crash half way through the moves and just before the commit, with every registration
    // written, then crash the recovery at each of its own changes and recover again.
    for (const int interruptedAt : { int(steps.indexOf(QStringLiteral("save record"))) + 5, commit - 1 }) {
        CrashRun probe(base, existing);
        QVERIFY(probe.ready());
        QVERIFY(probe.install(interruptedAt, 0).died);
        const ChildRun recovery = probe.recover(0);
        QCOMPARE(recovery.exitCode, 0);
        QCOMPARE(verdict(probe, after, false), QString());
        for (int point = 1;; ++point) {
            QVERIFY2(point <= 2 * recovery.steps.size(), "the recovery does not end");
            CrashRun run(base, existing);
            QVERIFY(run.ready());
            QVERIFY(run.install(interruptedAt, 0).died);
            const ChildRun crashedRecovery = run.recover(point);
            const bool ended = !crashedRecovery.died;
            QVERIFY2(!ended || (crashedRecovery.steps.size() < point && crashedRecovery.exitCode == 0),
                     qPrintable(QStringLiteral("no crash at recovery step %1 of install crash %2: exit %3 %4")
                                    .arg(point).arg(interruptedAt).arg(crashedRecovery.exitCode).arg(divergence(recovery.steps, crashedRecovery.steps))));
            QVERIFY(ended || run.recover(0).exitCode == 0);
            const QString wrong = verdict(run, after, false);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("install crash at %1, recovery crash after step %2 (%3): %4")
                                                     .arg(interruptedAt).arg(point).arg(crashedRecovery.steps.value(point - 1), wrong)));
            if (ended)
                break;
            ++m_crashPoints;
        }
    }
}

void FinalizeTest::cleanupTestCase()
{
    qInfo("crash points covered: %d", m_crashPoints);
}
