#include "finalize/finalization_run.h"
#include "finalize/installer_finalizer.h"
#include "finalize/install_actions.h"
#include "finalize/installation_processes.h"
#include "finalize/maintenance_service.h"
#include "app/installer_logger.h"
#include "browser/browser_cache_reset.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/installation_permissions.h"
#include "uninstaller/uninstall_data.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSettings>
#include <QThread>
#include <QUuid>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerFinalizer", text);
}

const QString installerKey = QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer");

// The host build has no shell and no registry to register the product with.
#ifdef Q_OS_WIN
constexpr bool registersWithWindows = true;
#else
constexpr bool registersWithWindows = false;
#endif

const QString applicationShortcut = QStringLiteral("Brisa-Linker.lnk");
const QString oldUninstallShortcut = QStringLiteral("Uninstall Brisa-Linker.lnk");

bool isVersionDirectoryWithCore(const QFileInfo &entry)
{
    static const QRegularExpression version(QStringLiteral("^[0-9]+(?:\\.[0-9]+)+$"));
    return entry.isDir() && version.match(entry.fileName()).hasMatch()
        && QFileInfo(entry.filePath() + QStringLiteral("/bl-core.exe")).isFile();
}

// Only the version whose extension update needs it; the outcome is logged and never fails the
// installation.
void resetBrowserWorkerCaches(const QString &installDir, const QString &version)
{
    if (version != QLatin1String("1.4.20"))
        return;
    try {
        const BrowserCacheReset::Result result = BrowserCacheReset::forDesktopUser(installDir, version);
        InstallerLogger::write(QStringLiteral("Browser worker cache reset: version=%1 success=%2 skipped=%3 %4")
                                   .arg(result.version, result.success ? QStringLiteral("true") : QStringLiteral("false"),
                                        result.skipped ? QStringLiteral("true") : QStringLiteral("false"), result.detail));
    } catch (...) {
        InstallerLogger::write(QStringLiteral("Browser worker cache reset skipped after an internal error; installation continues."));
    }
}

// The earlier layout's installation this run moves into the installation directory: the
// directory the installer was given for it, or the installation directory's parent, when its
// application target is the installation directory and its executable is of the earlier kind.
QString legacySourceOf(const QString &installDir, const QString &otherRoot)
{
    const QString candidate = otherRoot.isEmpty() ? InstallationLocation::parentOf(InstallationLocation::normalized(installDir))
                                                  : InstallationLocation::normalized(otherRoot);
    if (candidate.isEmpty() || !InstallationLocation::same(InstallationLocation::applicationTarget(candidate), installDir)
        || InstallationIdentity::installation(candidate).kind != InstallationIdentity::ValidExecutable)
        return {};
    return candidate;
}

} // namespace

FinalizationRun::FinalizationRun(InstallerFinalizer *finalizer, Inputs inputs)
    : m_finalizer(finalizer)
    , m_in(std::move(inputs))
{
}

void FinalizationRun::execute()
{
    // Up to the commit point every step may fail, and every failure is rolled back. From the
    // recovery of an earlier run on, a cancel is honoured after every step.
    using Step = bool (FinalizationRun::*)();
    static constexpr Step beforeCommit[] = {
        &FinalizationRun::recoverInterruptedRun,
        &FinalizationRun::identifyExistingInstallation, &FinalizationRun::validatePackage,
        &FinalizationRun::removeUnwantedStagedFiles, &FinalizationRun::addEmbeddedUninstaller,
        &FinalizationRun::writeStreamerPathConfiguration, &FinalizationRun::writeUninstallList,
        &FinalizationRun::beginRecoveryRecord, &FinalizationRun::replaceFilesInPlace,
        &FinalizationRun::captureRegistrations, &FinalizationRun::checkInstalledLauncher,
        &FinalizationRun::createShortcuts, &FinalizationRun::registerApplication,
        &FinalizationRun::finishInstallation,
    };
    bool committed = checkTargetIsSafe();
    for (const Step step : beforeCommit) {
        if (!committed)
            break;
        committed = (this->*step)() && notCancelled();
    }
    committed = committed && passPointOfNoReturn();
    if (!committed) {
        rollback();
        emit m_finalizer->failed(m_failure);
        return;
    }
    runOptionalSteps();
    InstallerLogger::write(QStringLiteral("Installation finalized; showing Done: %1").arg(m_in.installDir));
    progress(100);
    emit m_finalizer->completed();
}

bool FinalizationRun::checkTargetIsSafe()
{
    if (!InstallationLocation::isApplicationDirectory(m_in.installDir))
        return fail(tr("The installation directory is unsafe."));
    return true;
}

bool FinalizationRun::recoverInterruptedRun()
{
    // A record that cannot be recovered stays, and the new transaction refuses to begin over it.
    QString detail;
    if (!OverlayTransaction::recover(m_in.installDir, &detail))
        InstallerLogger::write(QStringLiteral("Interrupted installation could not be recovered: %1").arg(detail));
    // An interrupted migration holds the user's data in its archive: nothing may go on over it.
    if (!LegacyMigration::recover(m_in.installDir, &detail))
        return fail(tr("Unable to recover the previous migration.\n%1").arg(detail));
    return true;
}

bool FinalizationRun::identifyExistingInstallation()
{
    const bool present = QFileInfo::exists(m_in.installDir + QStringLiteral("/brisalinker.exe"));
    const InstallationIdentity::Result identity = InstallationIdentity::installation(m_in.installDir);
    // An executable of the earlier kind in the directory itself is migrated too, and refused by
    // the migration: the earlier layout cannot be moved into itself.
    if (identity.kind == InstallationIdentity::ValidExecutable)
        m_legacySource = m_in.installDir;
    else if (!present)
        m_legacySource = legacySourceOf(m_in.installDir, m_in.otherRoot);
    QString kind = QStringLiteral("new_install");
    if (identity.kind == InstallationIdentity::Launcher)
        kind = QStringLiteral("launcher");
    else if (!m_legacySource.isEmpty())
        kind = QStringLiteral("legacy_core");
    InstallerLogger::write(QStringLiteral("Existing executable identity: %1").arg(kind));
    const QString versionFile = m_in.installDir + QStringLiteral("/cfgdata/version.ini");
    if (QFileInfo(versionFile).isFile() && !FileLinks::pathHasLink(versionFile))
        m_replacedVersion = QSettings(versionFile, QSettings::IniFormat).value(QStringLiteral("release/version")).toString();
    if (present && identity.kind == InstallationIdentity::Invalid)
        return fail(tr("The existing application executable cannot be identified. No old files were removed.\n%1").arg(identity.message));
    return true;
}

bool FinalizationRun::validatePackage()
{
    const QDir staging(m_in.stagingDir);
    bool versionDirectory = false;
    for (const QFileInfo &entry : staging.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (isVersionDirectoryWithCore(entry))
            m_packageVersions.append(entry.fileName());
    }
    versionDirectory = !m_packageVersions.isEmpty();
    const bool complete = QFileInfo(staging.filePath(QStringLiteral("brisalinker.exe"))).isFile()
        && QFileInfo(staging.filePath(QStringLiteral("updater.exe"))).isFile()
        && QFileInfo(staging.filePath(QStringLiteral("cfgdata/version.ini"))).isFile() && versionDirectory;
    if (complete)
        return true;
    InstallerLogger::write(QStringLiteral("Package validation failed: expected Launcher, updater, cfgdata/version.ini and a numeric version directory containing bl-core.exe."));
    return fail(tr("The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced."));
}

bool FinalizationRun::removeUnwantedStagedFiles()
{
    for (const char *name : { "helper.exe", "port.bat", "install.log" })
        QFile::remove(QDir(m_in.stagingDir).filePath(QString::fromLatin1(name)));
    return true;
}

bool FinalizationRun::addEmbeddedUninstaller()
{
    const QString target = QDir(m_in.stagingDir).filePath(QStringLiteral("uninstall.exe"));
    InstallerLogger::write(QStringLiteral("Preparing embedded uninstaller: %1").arg(target));
    QFile source(QStringLiteral(":/helpers/uninstall.exe"));
    QFile output(target);
    bool copied = QDir().mkpath(QFileInfo(target).path()) && source.open(QIODevice::ReadOnly)
        && output.open(QIODevice::WriteOnly | QIODevice::Truncate);
    while (copied && !source.atEnd()) {
        const QByteArray block = source.read(1048576);
        copied = !block.isEmpty() && output.write(block) == block.size();
    }
    copied = copied && output.flush();
    if (copied)
        return true;
    InstallerLogger::write(QStringLiteral("Unable to prepare uninstaller."));
    return fail(tr("Unable to install the uninstaller."));
}

bool FinalizationRun::writeStreamerPathConfiguration()
{
    const QString root = InstallationLocation::normalized(m_in.installDir);
    const QJsonObject content { { QStringLiteral("path"), root + QStringLiteral("/OBS-Studio/bin/64bit/Brisa-Linker Streamer64.exe") } };
    QSaveFile file(QDir(m_in.stagingDir).filePath(QStringLiteral("obs-path-conf.json")));
    const QByteArray bytes = QJsonDocument(content).toJson(QJsonDocument::Compact);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size() && file.commit())
        return true;
    return fail(tr("Unable to write the OBS path configuration."));
}

bool FinalizationRun::writeUninstallList()
{
    // Each list names only its own package: what earlier versions put down and is still there is
    // carried forward, so the uninstaller removes every installation's files, not the last one's.
    QStringList earlierFiles;
    QStringList earlierDirectories;
    UninstallData::installedEntries(m_in.installDir, &earlierFiles, &earlierDirectories);
    if (UninstallData::writeUninstallData(m_in.stagingDir, m_in.files + earlierFiles, m_in.directories + earlierDirectories))
        return true;
    InstallerLogger::write(QStringLiteral("Unable to prepare uninstall data."));
    return fail(tr("Unable to create the uninstall data file."));
}

bool FinalizationRun::beginRecoveryRecord()
{
    QString detail;
    if (!m_legacySource.isEmpty()) {
        m_backupDir = InstallationLocation::normalized(m_in.installDir) + QStringLiteral(".backup-legacy-")
            + QUuid::createUuid().toString(QUuid::Id128).toLower();
        if (FileLinks::exists(m_backupDir)) {
            InstallerLogger::write(QStringLiteral("Installation backup path already exists; refusing to overwrite: %1").arg(m_backupDir));
            return fail(tr("Unable to prepare the installation backup."));
        }
        if (!LegacyMigration::begin(m_in.installDir, m_in.stagingDir, m_backupDir, &m_migration, &detail, m_legacySource))
            return fail(tr("Unable to prepare the legacy migration.\n%1").arg(detail));
        return true;
    }
    if (!OverlayTransaction::begin(m_in.installDir, m_in.stagingDir, &m_transaction, &detail))
        return fail(tr("Unable to prepare installation recovery.\n%1").arg(detail));
    m_backupDir = m_transaction.record.value(QStringLiteral("backup")).toString();
    if (QFileInfo::exists(m_backupDir) || QFileInfo(m_backupDir).isSymLink()) {
        InstallerLogger::write(QStringLiteral("Installation backup path already exists; refusing to overwrite: %1").arg(m_backupDir));
        return fail(tr("Unable to prepare the installation backup."));
    }
    return true;
}

bool FinalizationRun::replaceFilesInPlace()
{
    stage(tr("Updating existing files..."));
    m_installDirWasHidden = false;
#ifdef Q_OS_WIN
    m_installDirWasHidden = QFileInfo(m_in.installDir).isHidden();
#endif
    const std::atomic<bool> *cancel = &m_finalizer->m_cancelRequested;
    if (!InPlaceInstall::installStagedFilesInPlace(m_in.stagingDir, m_in.installDir, m_backupDir, &m_overlay, cancel)) {
        if (!InPlaceInstall::rollbackStagedFiles(m_in.stagingDir, m_in.installDir, m_backupDir, m_overlay))
            InstallerLogger::write(QStringLiteral("CRITICAL: file-by-file installation rollback was incomplete."));
        return fail(m_finalizer->cancelled() ? tr("Installation cancelled.") : tr("Unable to replace installation files."));
    }
    InPlaceInstall::setDirectoryHidden(m_in.installDir, false);
    progress(10);
    return true;
}

bool FinalizationRun::checkInstalledLauncher()
{
    if (QFileInfo(m_in.installDir + QStringLiteral("/brisalinker.exe")).isFile())
        return true;
    return fail(tr("The application executable is missing after extraction."));
}

bool FinalizationRun::captureRegistrations()
{
    if (!registersWithWindows)
        return true;
    // Everything the registration steps may change is read first, so a failure puts it back.
    const QStringList paths {
        Shortcuts::shortcutFilePath(Shortcuts::Folder::Desktop, applicationShortcut),
        Shortcuts::shortcutFilePath(Shortcuts::Folder::Programs, applicationShortcut),
        Shortcuts::shortcutFilePath(Shortcuts::Folder::Programs, oldUninstallShortcut),
    };
    for (const QString &path : paths) {
        Shortcuts::ShortcutSnapshot snapshot;
        if (path.isEmpty() || !Shortcuts::captureShortcutFile(path, &snapshot)) {
            InstallerLogger::write(QStringLiteral("Unable to preserve shortcut: %1").arg(path));
            return fail(tr("Unable to create the desktop shortcut."));
        }
        m_shortcuts.append(snapshot);
    }
    QString detail;
    if (!m_uninstallEntry.capture(&detail)) {
        InstallerLogger::write(detail);
        InstallerLogger::write(QStringLiteral("Unable to register uninstaller."));
        return fail(tr("Unable to register the uninstaller."));
    }
    long status = UrlProtocol::openUserClasses(m_userClasses, DesktopUser::sid().toStdWString());
    if (status == 0) {
        m_urlProtocol = std::make_unique<UrlProtocol::Registration>(m_userClasses.handle());
        status = m_urlProtocol->capture();
    }
    if (status != 0) {
        InstallerLogger::write(QStringLiteral("Unable to prepare URL protocol registration: Windows=%1").arg(status));
        return fail(tr("Unable to register the application URL protocol. Windows error: %1.").arg(status));
    }
    return true;
}

bool FinalizationRun::createShortcuts()
{
    progress(25);
    stage(tr("Creating shortcuts..."));
    QString detail;
    if (!OverlayTransaction::metadataStarted(&m_transaction, &detail))
        return fail(tr("Unable to prepare installation recovery.\n%1").arg(detail));
    if (!registersWithWindows)
        return true;
    const QString launcher = m_in.installDir + QStringLiteral("/brisalinker.exe");
    m_shortcutsTouched = true;
    InstallerLogger::write(QStringLiteral("Creating desktop shortcut."));
    if (!Shortcuts::createShortcut(Shortcuts::Folder::Desktop, launcher, m_in.installDir, launcher, applicationShortcut)) {
        InstallerLogger::write(QStringLiteral("Unable to create desktop shortcut."));
        return fail(tr("Unable to create the desktop shortcut."));
    }
    InstallerLogger::write(QStringLiteral("Creating Start Menu application shortcut."));
    if (!Shortcuts::createShortcut(Shortcuts::Folder::Programs, launcher, m_in.installDir, launcher, applicationShortcut)) {
        InstallerLogger::write(QStringLiteral("Unable to create Start Menu application shortcut."));
        return fail(tr("Unable to create the Start Menu shortcuts."));
    }
    return true;
}

bool FinalizationRun::registerApplication()
{
    progress(75);
    stage(tr("Registering application..."));
    if (!registersWithWindows)
        return true;
    InstallerLogger::write(QStringLiteral("Registering Windows uninstaller."));
    InstallerLogger::write(QStringLiteral("Uninstaller registry key: %1").arg(UninstallRegistration::keyPath()));
    QString detail;
    if (!m_uninstallEntry.write(m_in.version, m_in.installDir, &detail)) {
        InstallerLogger::write(QStringLiteral("Unable to register uninstaller."));
        return fail(tr("Unable to register the uninstaller."));
    }
    const std::wstring launcher = QDir::toNativeSeparators(m_in.installDir + QStringLiteral("/brisalinker.exe")).toStdWString();
    const long status = m_urlProtocol->apply(launcher);
    if (status != 0) {
        InstallerLogger::write(QStringLiteral("Unable to register brisalinker URL protocol: Windows=%1").arg(status));
        return fail(tr("Unable to register the application URL protocol. Windows error: %1.").arg(status));
    }
    const QString command = QString::fromStdWString(UrlProtocol::launchCommand(UrlProtocol::normalizedPath(launcher)));
    InstallerLogger::write(QStringLiteral("Registered brisalinker URL protocol for desktop user %1: %2").arg(DesktopUser::sid(), command));
    return true;
}

bool FinalizationRun::finishInstallation()
{
    progress(85);
    stage(tr("Finishing installation..."));
    InstallerLogger::write(QStringLiteral("Uninstall data prepared: %1").arg(m_in.installDir + QStringLiteral("/uninstall.dat")));
    return true;
}

bool FinalizationRun::passPointOfNoReturn()
{
    progress(95);
    if (!m_finalizer->beginCommitPhase())
        return fail(tr("Installation cancelled."));
    // The product runs as the desktop user and must be able to update its own files; a failure
    // leaves the former rights and never fails the installation.
    InstallationPermissions::configureBestEffort(m_in.installDir, DesktopUser::token(), InstallerLogger::write);
    QString detail;
    if (m_migration.active) {
        if (!LegacyMigration::commit(&m_migration, &detail))
            return fail(tr("Unable to commit the legacy migration.\n%1").arg(detail));
        // Committed: the files the package replaced are no longer needed by any recovery.
        if (FileLinks::exists(m_backupDir) && !InPlaceInstall::removeDirectoryTree(m_backupDir))
            InstallerLogger::write(QStringLiteral("Unable to remove the installation backup: %1").arg(m_backupDir));
        return true;
    }
    if (!OverlayTransaction::commit(&m_transaction, &detail)) {
        // The record still says "preparing", so the next start would undo this installation: it
        // is undone now and reported, never shown as done.
        InstallerLogger::write(QStringLiteral("CRITICAL: unable to commit the installation recovery record: %1").arg(detail));
        return fail(tr("Unable to prepare installation recovery.\n%1").arg(detail));
    }
    // From here on nothing is rolled back.
    if (!OverlayTransaction::recover(m_in.installDir, &detail)) {
        InstallerLogger::write(QStringLiteral("Unable to retire the committed recovery record: %1").arg(detail));
    } else if (QFileInfo::exists(m_backupDir) && !InPlaceInstall::removeDirectoryTree(m_backupDir)) {
        // With the record retired the old files are no longer needed for any recovery.
        InstallerLogger::write(QStringLiteral("Unable to remove the installation backup: %1").arg(m_backupDir));
    }
    return true;
}

void FinalizationRun::runOptionalSteps()
{
    setupMaintenance();
    runSystemActions();
    commitUrlProtocol();
    rememberLocation();
    removeOldUninstallShortcut();
    finishLegacyMigration();
    retireMachineUninstallEntry();
    removeStagingDirectory();
    removeOldVersionDirectories();
    InPlaceInstall::cleanupHistoricalBackupDirectories(m_in.installDir, m_backupDir);
    resetBrowserWorkerCaches(m_in.installDir, m_in.version);
}

void FinalizationRun::commitUrlProtocol()
{
    if (!m_urlProtocol)
        return;
    m_urlProtocol->commit();
    UrlProtocol::notifyAssociationsChanged();
}

void FinalizationRun::rememberLocation()
{
    if (InstallationLocation::rememberSuccessfulLocation(m_in.installDir, installerKey, QSettings::NativeFormat))
        InstallerLogger::write(QStringLiteral("Saved last successful installation directory: %1").arg(m_in.installDir));
    else
        InstallerLogger::write(QStringLiteral("Unable to save last successful installation directory: %1").arg(m_in.installDir));
}

void FinalizationRun::removeOldUninstallShortcut()
{
    if (!registersWithWindows)
        return;
    const QString path = Shortcuts::shortcutFilePath(Shortcuts::Folder::Programs, oldUninstallShortcut);
    if (path.isEmpty() || !Shortcuts::removeShortcutFile(path))
        InstallerLogger::write(QStringLiteral("Unable to remove old Start Menu uninstall shortcut: %1").arg(path));
}

void FinalizationRun::finishLegacyMigration()
{
    // Also the clean-up an earlier migration left pending: it is retried by every installation.
    const LegacyMigration::Cleanup cleanup = LegacyMigration::finish(m_in.installDir);
    for (const QString &notice : cleanup.notices)
        emit m_finalizer->migrationNotice(notice);
}

void FinalizationRun::retireMachineUninstallEntry()
{
    // The earlier installer registered for every user; the user's own entry now replaces it.
    const long status = UninstallRegistration::retireMachineEntry(m_in.installDir, m_in.otherRoot);
    if (status != 0)
        InstallerLogger::write(QStringLiteral("Unable to migrate old machine-wide uninstall entry: %1").arg(status));
}

void FinalizationRun::setupMaintenance()
{
    stage(tr("Installing system maintenance service..."));
    MaintenanceSetupState state;
    QString detail;
    if (setupMaintenanceService(m_in.installDir, m_in.installDir + QStringLiteral("/WinServices/bl-maintenance.exe"), &state, &detail))
        return;
    InstallerLogger::write(QStringLiteral("Optional maintenance setup failed; installation will continue without managed firewall rules: %1").arg(detail));
    if (!rollbackMaintenanceService(state, &detail))
        InstallerLogger::write(QStringLiteral("Optional maintenance restoration failed: %1").arg(detail));
}

void FinalizationRun::runSystemActions()
{
    stage(tr("Configuring system..."));
    InstallerLogger::write(QStringLiteral("Running virtual camera and firewall actions as administrator."));
    int warnings = 0;
    runInstallActions(m_in.installDir, m_in.otherRoot, &warnings, [this](const QString &text) { stage(text); });
    if (warnings > 0)
        InstallerLogger::write(QStringLiteral("Optional system actions completed with %1 warning(s); continuing installation.").arg(warnings));
    else
        InstallerLogger::write(QStringLiteral("Elevated install actions completed."));
}

void FinalizationRun::removeOldVersionDirectories()
{
    // Updates must not pile up gigabytes of versions nothing runs any more.
    static const QRegularExpression versionName(QStringLiteral("^[0-9]+(?:\\.[0-9]+)+$"));
    // The replaced version stays: its processes may still be ending. Without a readable one no
    // old directory is removed at all.
    if (m_replacedVersion.isEmpty())
        return;
    const QStringList kept = m_packageVersions + QStringList { m_replacedVersion };
    for (const QFileInfo &entry : QDir(m_in.installDir).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (!versionName.match(entry.fileName()).hasMatch() || kept.contains(entry.fileName(), Qt::CaseInsensitive))
            continue;
        const QString path = entry.filePath();
        if (!InstallationProcesses::runningImagesUnder(path).isEmpty())
            InstallerLogger::write(QStringLiteral("Old version directory is in use and stays: %1").arg(path));
        else if (InPlaceInstall::removeDirectoryTree(path))
            InstallerLogger::write(QStringLiteral("Removed old version directory: %1").arg(path));
        else
            InstallerLogger::write(QStringLiteral("Unable to remove old version directory: %1").arg(path));
    }
}

void FinalizationRun::removeStagingDirectory()
{
    for (int attempt = 1; attempt <= 3; ++attempt) {
        if (!QFileInfo::exists(m_in.stagingDir) || InPlaceInstall::removeDirectoryTree(m_in.stagingDir))
            return;
        InstallerLogger::write(QStringLiteral("Unable to remove temporary installation directory: attempt=%1 path=%2").arg(attempt).arg(m_in.stagingDir));
        if (attempt < 3)
            QThread::msleep(400);
    }
    InstallerLogger::write(QStringLiteral("Installation completed, but temporary files remain: %1").arg(m_in.stagingDir));
}

bool FinalizationRun::notCancelled()
{
    return !m_finalizer->cancelled() || fail(tr("Installation cancelled."));
}

bool FinalizationRun::fail(const QString &message)
{
    m_failure = message;
    return false;
}

void FinalizationRun::rollback()
{
    bool complete = true;
    if (m_installDirWasHidden && QFileInfo::exists(m_in.installDir) && !InPlaceInstall::setDirectoryHidden(m_in.installDir, true)) {
        InstallerLogger::write(QStringLiteral("CRITICAL: unable to restore previous directory visibility: %1").arg(m_in.installDir));
        complete = false;
    }
    if (m_transaction.active || m_migration.active) {
        QString detail;
        const bool restored = m_migration.active ? LegacyMigration::rollback(&m_migration, &detail)
                                                 : OverlayTransaction::rollback(&m_transaction, &detail);
        if (restored) {
            InstallerLogger::write(QStringLiteral("Installation restored from durable transaction."));
        } else {
            InstallerLogger::write(QStringLiteral("CRITICAL: recovery incomplete; journal and backups were retained."));
            complete = false;
        }
    }
    // Each put back even when another could not be: the journal has restored them already when
    // it could, and restoring the same state again changes nothing.
    complete = restoreShortcuts() && complete;
    complete = restoreUninstallEntry() && complete;
    complete = restoreUrlProtocol() && complete;
    InstallerLogger::write(complete ? QStringLiteral("Installation rolled back after finalization failure.")
                                    : QStringLiteral("CRITICAL: installation rollback was incomplete; old backup was preserved where possible."));
}

bool FinalizationRun::restoreShortcuts()
{
    if (!m_shortcutsTouched)
        return true;
    bool restored = true;
    for (const Shortcuts::ShortcutSnapshot &snapshot : std::as_const(m_shortcuts)) {
        QString detail;
        if (Shortcuts::restoreShortcutFile(snapshot, &detail))
            continue;
        InstallerLogger::write(detail);
        InstallerLogger::write(QStringLiteral("CRITICAL: unable to restore shortcut: %1").arg(snapshot.path));
        restored = false;
    }
    return restored;
}

bool FinalizationRun::restoreUninstallEntry()
{
    if (m_uninstallEntry.restore())
        return true;
    InstallerLogger::write(QStringLiteral("CRITICAL: unable to restore uninstall registry state."));
    return false;
}

bool FinalizationRun::restoreUrlProtocol()
{
    const long status = m_urlProtocol ? m_urlProtocol->rollback() : 0;
    if (status == 0)
        return true;
    InstallerLogger::write(QStringLiteral("CRITICAL: unable to restore URL protocol registration: Windows=%1").arg(status));
    return false;
}

void FinalizationRun::stage(const QString &text)
{
    emit m_finalizer->stageChanged(text);
}

void FinalizationRun::progress(int percent)
{
    emit m_finalizer->progressChanged(percent);
}
