#pragma once

#include <QObject>

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
#ifdef Q_OS_WIN
    void systemActions_data();
    void systemActions();
    void systemActionsUseTheRealWindowsDirectoryByDefault();
    void maintenanceServiceSetup_data();
    void maintenanceServiceSetup();
#endif
};
