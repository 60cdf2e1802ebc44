#pragma once

#include <QList>
#include <QObject>

class QProcess;

class FinalizeTest : public QObject
{
    Q_OBJECT

private slots:
    void installAndRollBack_data();
    void installAndRollBack();
    void failuresLeaveAnUndoableState_data();
    void failuresLeaveAnUndoableState();
    void filesGoInCaseInsensitiveOrder();
    void aNewFileThatCannotGoBackKeepsTheBackup();
    void historicalBackups_data();
    void historicalBackups();
    void removalsNeverFollowALink_data();
    void removalsNeverFollowALink();
    void finalizes_data();
    void finalizes();
    void optionalStepFailuresStillComplete_data();
    void optionalStepFailuresStillComplete();
    void cancelAndCommitExcludeEachOther();
    void anUpdateListsEarlierFilesAndDropsVersionsNothingUses();
    void workerThreadsEndCleanly_data();
    void workerThreadsEndCleanly();
    void classification_data();
    void classification();
    void versionDirectoriesAreSearched();
    void eachPathCountsOnce();
    void nothingRunningReturnsAtOnce();
    void crashAtEveryChangeEndsOldOrNew_data();
    void crashAtEveryChangeEndsOldOrNew();
    void cleanupTestCase();
#ifdef Q_OS_WIN
    void registrationsReplaceAnOlderInstallersOrComeBack_data();
    void registrationsReplaceAnOlderInstallersOrComeBack();
    void stopsOnlyTheProductsOwnProcesses();
    void neverStopsTheInstallerItself();
    void aLockedExecutableFailsWithinTheDeadline();
    void systemActions_data();
    void systemActions();
    void systemActionsUseTheRealWindowsDirectoryByDefault();
    void maintenanceServiceSetup_data();
    void maintenanceServiceSetup();
    void cleanup();

#endif

private:
    int m_crashPoints = 0;
#ifdef Q_OS_WIN
    QProcess *startAs(const QString &path);
    QList<QProcess *> m_started;
#endif
};
