#pragma once

#include "finalize/in_place_install.h"
#include "finalize/uninstall_registration.h"
#include "journal/legacy_migration.h"
#include "journal/overlay_transaction.h"
#include "system/shortcuts.h"
#include "system/url_protocol.h"

#include <QString>
#include <QStringList>

#include <memory>

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
    bool captureRegistrations();
    bool checkInstalledLauncher();
    bool createShortcuts();
    bool registerApplication();
    bool finishInstallation();
    bool passPointOfNoReturn();
    void runOptionalSteps();
    void setupMaintenance();
    void runSystemActions();
    void commitUrlProtocol();
    void rememberLocation();
    void removeOldUninstallShortcut();
    void finishLegacyMigration();
    void retireMachineUninstallEntry();
    void removeOldVersionDirectories();
    void removeStagingDirectory();

    bool notCancelled();
    bool fail(const QString &message);
    void rollback();
    bool restoreShortcuts();
    bool restoreUninstallEntry();
    bool restoreUrlProtocol();
    void stage(const QString &text);
    void progress(int percent);

    InstallerFinalizer *m_finalizer;
    Inputs m_in;
    QString m_failure;
    QString m_backupDir;
    bool m_installDirWasHidden = false;
    OverlayTransaction::State m_transaction;
    QString m_legacySource; // the earlier layout's directory when this run migrates it
    LegacyMigration::State m_migration;
    InPlaceInstall::OverlayState m_overlay;
    QStringList m_packageVersions; // the package's version directories
    QString m_replacedVersion;     // the installed version this run replaces, when readable
    QList<Shortcuts::ShortcutSnapshot> m_shortcuts;
    bool m_shortcutsTouched = false;
    UninstallRegistration m_uninstallEntry;
    UrlProtocol::Key m_userClasses;
    std::unique_ptr<UrlProtocol::Registration> m_urlProtocol;
};
