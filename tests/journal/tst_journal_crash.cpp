// Kills a real installing process at every change it makes to the disk, then starts recovery
// as the next installer run would, and proves file by file that the user has exactly the old
// installation or exactly the new one. Crashes during a rollback and during a recovery that was
// itself interrupted are covered the same way.
#include "tst_journal.h"

#include "crash_child_run.h"
#include "journal/overlay_transaction.h"
#include "support/tree_fixture.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

ChildRun runChild(const QStringList &arguments, const QString &stepsPath)
{
    ChildRun run;
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QElapsedTimer clock;
    clock.start();
    child.start(QStringLiteral(BRISA_CRASH_CHILD), arguments);
    run.finished = child.waitForFinished(60000);
    run.elapsedMs = clock.elapsed();
    if (child.error() != QProcess::UnknownError && child.error() != QProcess::Crashed)
        run.error = child.errorString();
    // A killed process: a signal on the host, the forced exit code under Windows.
    run.died = child.exitStatus() == QProcess::CrashExit || child.exitCode() == 137;
    run.exitCode = child.exitCode();
    const QByteArray steps = TreeFixture::read(stepsPath);
    for (const QByteArray &line : steps.split('\n')) {
        if (!line.isEmpty())
            run.steps.append(QString::fromLatin1(line.trimmed())); // "\r\n" under Windows
    }
    return run;
}

QString described(const ChildRun &run)
{
    return QStringLiteral("finished=%1 exitCode=%2 steps=%3 last=%4 elapsed=%5ms error=%6")
        .arg(run.finished ? QStringLiteral("yes") : QStringLiteral("no"))
        .arg(run.exitCode)
        .arg(run.steps.size())
        .arg(run.steps.isEmpty() ? QStringLiteral("none") : run.steps.constLast())
        .arg(run.elapsedMs)
        .arg(run.error.isEmpty() ? QStringLiteral("none") : run.error);
}

namespace {

enum class Scenario { Install, FirstInstall, CancelledInstall, InterruptedRecovery };

class CrashRun
{
public:
    explicit CrashRun(bool existing) : m_existing(existing)
    {
        m_ready = m_fixture.setUp(existing ? TreeFixture::installation() : TreeFixture::Files(), TreeFixture::payload());
    }

    bool ready() const { return m_ready && m_scratch.isValid(); }
    const TreeFixture &fixture() const { return m_fixture; }

    ChildRun install(int dieAt, int cancelAfter)
    {
        return runChild({ QStringLiteral("install"), m_fixture.root(), m_fixture.stage(), stepsPath(),
                          QString::number(dieAt), QString::number(cancelAfter) }, stepsPath());
    }
    ChildRun recover(int dieAt)
    {
        return runChild({ QStringLiteral("recover"), m_fixture.root(), stepsPath(), QString::number(dieAt) }, stepsPath());
    }

    // Empty when the disk is consistent; otherwise what is wrong.
    QString verdict(bool expectNew) const
    {
        const TreeFixture::Files old = m_existing ? TreeFixture::installation() : TreeFixture::Files();
        const TreeFixture::Files fresh = TreeFixture::overlaid(old, TreeFixture::payload());
        if (QFileInfo::exists(OverlayTransaction::path(m_fixture.root())))
            return QStringLiteral("the record was not retired");
        if (TreeFixture::snapshot(m_fixture.root()) != TreeFixture::expected(expectNew ? fresh : old))
            return expectNew ? QStringLiteral("the installation is not exactly the new one")
                             : QStringLiteral("the installation is not exactly the old one");
        const auto backup = TreeFixture::snapshot(m_fixture.backup());
        if (expectNew) {
            // The replaced files stay in the backup after a commit; none may be lost.
            TreeFixture::Files replaced;
            for (auto it = old.cbegin(); it != old.cend(); ++it) {
                if (TreeFixture::payload().contains(it.key()))
                    replaced.insert(it.key(), it.value());
            }
            return backup == TreeFixture::expected(replaced) ? QString() : QStringLiteral("the backup lost an old file");
        }
        if (TreeFixture::snapshot(m_fixture.stage()) != TreeFixture::expected(TreeFixture::payload()))
            return QStringLiteral("the staged payload lost a file");
        for (auto it = backup.cbegin(); it != backup.cend(); ++it) {
            if (it.value() != QLatin1String("dir"))
                return QStringLiteral("an old file was left in the backup: ") + it.key();
        }
        return {};
    }

private:
    QString stepsPath() const { return m_scratch.path() + QStringLiteral("/steps.txt"); }

    bool m_existing;
    TreeFixture m_fixture;
    QTemporaryDir m_scratch;
    bool m_ready = false;
};

int lastIndexOf(const QStringList &steps, const QString &step)
{
    return steps.lastIndexOf(step) + 1;
}

} // namespace

void JournalTest::crashAtEveryStepEndsOldOrNew_data()
{
    QTest::addColumn<int>("scenario");
    QTest::newRow("a crash at any step of an install over an existing installation") << int(Scenario::Install);
    QTest::newRow("a crash at any step of a first install into a new directory") << int(Scenario::FirstInstall);
    QTest::newRow("a crash at any step of the rollback after a cancel") << int(Scenario::CancelledInstall);
    QTest::newRow("a crash at any step of a recovery that is itself recovering a crash") << int(Scenario::InterruptedRecovery);
}

void JournalTest::crashAtEveryStepEndsOldOrNew()
{
    QFETCH(int, scenario);
    const bool existing = Scenario(scenario) != Scenario::FirstInstall;
    const bool cancelling = Scenario(scenario) == Scenario::CancelledInstall;

    // An undisturbed run names every disk change; the commit is the last record save.
    CrashRun dry(existing);
    QVERIFY(dry.ready());
    const int cancelAfter = cancelling ? 6 : 0;
    const ChildRun full = dry.install(0, cancelAfter);
    QVERIFY2(full.finished && full.exitCode == (cancelling ? 3 : 0), qPrintable(QStringLiteral("undisturbed run: %1").arg(described(full))));
    QCOMPARE(dry.verdict(!cancelling), QString());
    const int commitStep = cancelling ? full.steps.size() + 1 : lastIndexOf(full.steps, QStringLiteral("save record"));
    QVERIFY(full.steps.size() > 10);

    if (Scenario(scenario) != Scenario::InterruptedRecovery) {
        for (int point = cancelAfter + 1; point <= full.steps.size(); ++point) {
            CrashRun run(existing);
            QVERIFY(run.ready());
            const ChildRun crashed = run.install(point, cancelAfter);
            QVERIFY2(crashed.died, qPrintable(QStringLiteral("no crash at step %1 (%2): %3").arg(point).arg(full.steps.at(point - 1), described(crashed))));
            const ChildRun recovered = run.recover(0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0,
                     qPrintable(QStringLiteral("recovery failed after step %1: %2").arg(point).arg(described(recovered))));
            const QString wrong = run.verdict(point >= commitStep);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("crash after step %1 (%2): %3").arg(point).arg(full.steps.at(point - 1), wrong)));
            ++m_crashPoints;
        }
        return;
    }

    // Crash half way through the moves and just before the commit, then crash the recovery
    // at each of its own steps, and recover again.
    for (const int interruptedAt : { commitStep / 2, commitStep - 1 }) {
        CrashRun probe(existing);
        QVERIFY(probe.ready());
        const ChildRun interrupted = probe.install(interruptedAt, 0);
        QVERIFY2(interrupted.died, qPrintable(QStringLiteral("no crash at step %1: %2").arg(interruptedAt).arg(described(interrupted))));
        const ChildRun recovery = probe.recover(0);
        QVERIFY2(recovery.finished && recovery.exitCode == 0, qPrintable(QStringLiteral("recovery: %1").arg(described(recovery))));
        QCOMPARE(probe.verdict(false), QString());
        QVERIFY(!recovery.steps.isEmpty());
        for (int point = 1; point <= recovery.steps.size(); ++point) {
            CrashRun run(existing);
            QVERIFY(run.ready());
            const ChildRun interrupted = run.install(interruptedAt, 0);
            QVERIFY2(interrupted.died, qPrintable(QStringLiteral("no crash at step %1: %2").arg(interruptedAt).arg(described(interrupted))));
            const ChildRun crashedRecovery = run.recover(point);
            QVERIFY2(crashedRecovery.died, qPrintable(QStringLiteral("no crash at recovery step %1: %2").arg(point).arg(described(crashedRecovery))));
            const ChildRun recovered = run.recover(0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0,
                     qPrintable(QStringLiteral("second recovery failed after step %1: %2").arg(point).arg(described(recovered))));
            const QString wrong = run.verdict(false);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("install crash at %1, recovery crash after step %2 (%3): %4")
                                                     .arg(interruptedAt).arg(point).arg(recovery.steps.at(point - 1), wrong)));
            ++m_crashPoints;
        }
    }
}

void JournalTest::cleanupTestCase()
{
    qInfo("crash points covered: %d", m_crashPoints);
}
