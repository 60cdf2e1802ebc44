#pragma once

#include "finalize/in_place_install.h"
#include "journal/overlay_transaction.h"

#include <QString>
#include <QStringList>

class InstallerFinalizer;

// One finalization, run on the finalizer's worker thread: a list of steps, each a function that
// either succeeds or names the message the user sees. Until the commit every failure is undone.
class FinalizationRun
{
public:
    struct Inputs
    {
        QString stagingDir;
        QString installDir;
        QString version;
        QStringList files;
        QStringList directories;
        QString otherRoot;
    };

    FinalizationRun(InstallerFinalizer *finalizer, Inputs inputs);
    void execute();

private:
    bool checkTargetIsSafe();
    bool recoverInterruptedRun();
    bool identifyExistingInstallation();
    bool validatePackage();
    bool removeUnwantedStagedFiles();
    bool addEmbeddedUninstaller();
    bool writeStreamerPathConfiguration();
    bool writeUninstallList();
    bool beginRecoveryRecord();
    bool replaceFilesInPlace();
    bool checkInstalledLauncher();
    bool markMetadataStarted();
    bool passPointOfNoReturn();
    void runOptionalSteps();
    void runSystemActions();
    void removeStagingDirectory();

    bool notCancelled();
    bool fail(const QString &message);
    void rollback();
    void stage(const QString &text);
    void progress(int percent);

    InstallerFinalizer *m_finalizer;
    Inputs m_in;
    QString m_failure;
    QString m_backupDir;
    bool m_installDirWasHidden = false;
    OverlayTransaction::State m_transaction;
    InPlaceInstall::OverlayState m_overlay;
};
