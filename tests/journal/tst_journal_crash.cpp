// Kills a real installing or migrating process at every change it makes to the disk, then starts
// recovery as the next installer run would, and proves file by file that the user has exactly the
// old installation or exactly the new one. Crashes during a rollback and during a recovery that was
// itself interrupted are covered the same way.
#include "tst_journal.h"

#include "crash_subject.h"
#include "journal/overlay_transaction.h"
#include "support/tree_fixture.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

ChildRun runChild(const QStringList &arguments, const QString &stepsPath)
{
    return runCrashChild(QStringLiteral(BRISA_CRASH_CHILD), arguments, stepsPath);
}

namespace {

enum Subject { Install, FirstInstall, Migration };
enum Scenario { Crash, CancelThenCrash, RecoveryCrash };

// What a child run did, for a failure message: whether it ended, how, and how far it got.
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

class InstallationSubject : public CrashSubject
{
public:
    explicit InstallationSubject(bool existing)
        : m_existing(existing)
    {
        m_ready = m_fixture.setUp(existing ? TreeFixture::installation() : TreeFixture::Files(), TreeFixture::payload());
    }

    bool ready() const override { return m_ready && m_scratch.isValid(); }
    ChildRun change(int dieAt, int cancelAfter) override
    {
        return runChild({ QStringLiteral("install"), m_fixture.root(), m_fixture.stage(), stepsPath(),
                          QString::number(dieAt), QString::number(cancelAfter) }, stepsPath());
    }
    ChildRun recover(int dieAt) override
    {
        return runChild({ QStringLiteral("recover"), m_fixture.root(), stepsPath(), QString::number(dieAt) }, stepsPath());
    }
    // The commit is the last record save.
    int commitStep(const QStringList &steps) const override { return int(steps.lastIndexOf(QStringLiteral("save record"))) + 1; }
    int cancelStep(const QStringList &) const override { return 6; }

    QString verdict(bool expectNew) const override
    {
        const TreeFixture::Files old = m_existing ? TreeFixture::installation() : TreeFixture::Files();
        if (QFileInfo::exists(OverlayTransaction::path(m_fixture.root())))
            return QStringLiteral("the record was not retired");
        if (TreeFixture::snapshot(m_fixture.root()) != TreeFixture::expected(expectNew ? TreeFixture::overlaid(old, TreeFixture::payload()) : old))
            return expectNew ? QStringLiteral("the installation is not exactly the new one")
                             : QStringLiteral("the installation is not exactly the old one");
        const auto backup = TreeFixture::snapshot(m_fixture.backup());
        if (expectNew) {
            // The replaced files stay in the backup after a commit; none may be lost.
            TreeFixture::Files replaced = old;
            replaced.removeIf([](const auto &file) { return !TreeFixture::payload().contains(file.key()); });
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

} // namespace

std::unique_ptr<CrashSubject> installationSubject(bool existing)
{
    return std::make_unique<InstallationSubject>(existing);
}

void JournalTest::crashAtEveryStepEndsOldOrNew_data()
{
    QTest::addColumn<int>("subject");
    QTest::addColumn<int>("scenario");
    QTest::newRow("a crash at any step of an install over an existing installation") << int(Install) << int(Crash);
    QTest::newRow("a crash at any step of a first install into a new directory") << int(FirstInstall) << int(Crash);
    QTest::newRow("a crash at any step of the rollback after a cancel") << int(Install) << int(CancelThenCrash);
    QTest::newRow("a crash at any step of a recovery that is itself recovering a crash") << int(Install) << int(RecoveryCrash);
    QTest::newRow("a crash at any change of a migration, its commit and its clean-up") << int(Migration) << int(Crash);
    QTest::newRow("a crash at any change of a migration's rollback after a cancel") << int(Migration) << int(CancelThenCrash);
    QTest::newRow("a crash at any change of a recovery that is recovering a crashed migration") << int(Migration) << int(RecoveryCrash);
}

void JournalTest::crashAtEveryStepEndsOldOrNew()
{
    QFETCH(int, subject);
    QFETCH(int, scenario);
    const auto fresh = [subject] { return subject == Migration ? migrationSubject() : installationSubject(subject == Install); };

    // An undisturbed run names every change and where the commit is.
    const auto dry = fresh();
    QVERIFY(dry->ready());
    const ChildRun undisturbed = dry->change(0, 0);
    QVERIFY2(undisturbed.finished && undisturbed.exitCode == 0, qPrintable(QStringLiteral("undisturbed run: ") + described(undisturbed)));
    QCOMPARE(dry->verdict(true), QString());
    QStringList steps = undisturbed.steps;
    int commitStep = dry->commitStep(steps);
    QVERIFY(steps.size() > 10 && commitStep > 1);
    int cancelAfter = 0;
    if (scenario == CancelThenCrash) {
        cancelAfter = dry->cancelStep(steps);
        const auto cancelled = fresh();
        QVERIFY(cancelled->ready());
        const ChildRun full = cancelled->change(0, cancelAfter);
        QVERIFY2(full.finished && full.exitCode == 3, qPrintable(QStringLiteral("cancelled run: ") + described(full)));
        QCOMPARE(cancelled->verdict(false), QString());
        steps = full.steps;
        commitStep = int(steps.size()) + 1;
    }

    if (scenario != RecoveryCrash) {
        for (int point = cancelAfter + 1; point <= steps.size(); ++point) {
            const auto run = fresh();
            QVERIFY(run->ready());
            const ChildRun crashed = run->change(point, cancelAfter);
            QVERIFY2(crashed.died, qPrintable(QStringLiteral("no crash at step %1 (%2): %3").arg(point).arg(steps.at(point - 1), described(crashed))));
            const ChildRun recovered = run->recover(0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0,
                     qPrintable(QStringLiteral("recovery failed after step %1: %2").arg(point).arg(described(recovered))));
            const QString wrong = run->verdict(point >= commitStep);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("crash after step %1 (%2): %3").arg(point).arg(steps.at(point - 1), wrong)));
            ++m_crashPoints;
        }
        return;
    }

    // Crash just before the commit, where the recovery has the most to undo, and for an install
    // also half way through the moves; then crash that recovery at each of its own steps (none at
    // point 0, which learns them), and recover again.
    const QList<int> interruptions = subject == Migration ? QList<int> { commitStep - 1 } : QList<int> { commitStep / 2, commitStep - 1 };
    for (const int interruptedAt : interruptions) {
        QStringList recoverySteps;
        for (int point = 0; point <= recoverySteps.size(); ++point) {
            const auto run = fresh();
            QVERIFY(run->ready());
            const ChildRun interrupted = run->change(interruptedAt, 0);
            QVERIFY2(interrupted.died, qPrintable(QStringLiteral("no crash at step %1: %2").arg(interruptedAt).arg(described(interrupted))));
            if (point > 0) {
                const ChildRun crashedRecovery = run->recover(point);
                QVERIFY2(crashedRecovery.died, qPrintable(QStringLiteral("no crash at recovery step %1: %2").arg(point).arg(described(crashedRecovery))));
            }
            const ChildRun recovered = run->recover(0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0,
                     qPrintable(QStringLiteral("recovery after recovery step %1: %2").arg(point).arg(described(recovered))));
            if (point == 0)
                recoverySteps = recovered.steps;
            QVERIFY(!recoverySteps.isEmpty());
            const QString wrong = run->verdict(false);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("crash at %1, recovery crash after step %2 (%3): %4")
                                                     .arg(interruptedAt).arg(point).arg(recoverySteps.value(point - 1), wrong)));
            m_crashPoints += point > 0;
        }
    }
}

void JournalTest::cleanupTestCase()
{
    qInfo("crash points covered: %d", m_crashPoints);
}
