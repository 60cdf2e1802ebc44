#include "ui/installation_flow.h"

#include "app/installer_logger.h"
#include "download/download_manager.h"
#include "extract/archive_extractor.h"
#include "finalize/in_place_install.h"
#include "finalize/installer_finalizer.h"
#include "journal/legacy_migration.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "system/file_links.h"
#include "ui/download_failure_dialog.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QRandomGenerator64>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>

namespace {

const QLatin1String StagingMarker(".installing-");
const QLatin1String TransactionJournal(".install-transaction.json");
const QLatin1String ProductExecutable("brisalinker.exe");

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

// The version a payload on disk declares for itself ("release/version" of its version file).
QString payloadVersion(const QString &payload)
{
    const QSettings file(payload + QStringLiteral("/cfgdata/version.ini"), QSettings::IniFormat);
    return file.value(QStringLiteral("release/version")).toString().trimmed();
}

} // namespace

InstallationFlow::InstallationFlow(MainWindow *window, const InstallerLaunch::Options &options,
                                   const Settings &settings)
    : QObject(window)
    , m_window(window)
    , m_options(options)
    , m_settings(settings)
    , m_updateMode(options.update && !options.installDirectory.isEmpty())
{
    if (m_settings.uninstallKeys.isEmpty())
        m_settings.uninstallKeys = InstallationLocation::registrationKeys();
    chooseDefaultDestination();
    InstallerLogger::write(QStringLiteral("Default installation directory: %1; source=%2; installer_source=%3")
                               .arg(native(m_destination), m_defaultSource,
                                    native(m_options.legacySourceDirectory)));
    InstallerLogger::write(QStringLiteral("Installation mode: %1; fixed_directory=%2")
                               .arg(m_updateMode ? QStringLiteral("update") : QStringLiteral("interactive"),
                                    flag(m_updateMode)));
    if (m_updateMode)
        m_window->lockInstallOptions(true);
    InstallerLogger::write(QStringLiteral("Installer UI started."));

    m_download = new DownloadManager(this);
    m_download->setSslConfiguration(m_settings.sslConfiguration);
    m_extractor = new ArchiveExtractor(this);
    m_finalizer = new InstallerFinalizer(this);
    // The download fills the disk it is measured on: the available space is shown as it shrinks.
    m_ticker = new QTimer(this);
    m_ticker->setInterval(500);
    connect(m_ticker, &QTimer::timeout, m_window, &MainWindow::updateAvailableSpace);

    connect(m_download, &DownloadManager::progressChanged, this, &InstallationFlow::downloadProgress);
    connect(m_download, &DownloadManager::transferSpeedChanged, this, &InstallationFlow::transferSpeed);
    connect(m_download, &DownloadManager::requiredSpaceKnown, m_window, &MainWindow::setRequiredSpace);
    connect(m_download, &DownloadManager::manifestVersionKnown, m_window, &MainWindow::setVersionText);
    connect(m_download, &DownloadManager::completed, this, &InstallationFlow::downloadCompleted);
    connect(m_download, &DownloadManager::failed, this, &InstallationFlow::handleDownloadFailure);
    connect(m_extractor, &ArchiveExtractor::progressChanged, this, &InstallationFlow::extractionProgress);
    connect(m_extractor, &ArchiveExtractor::completed, this,
            [this](const QString &stagingDir, const QStringList &files, const QStringList &directories) {
                // A result that arrives after the window was closed belongs to an abandoned attempt.
                if (m_phase == Phase::Extracting && !m_windowClosed)
                    beginFinalization(stagingDir, files, directories);
            });
    connect(m_extractor, &ArchiveExtractor::failed, this, &InstallationFlow::extractionFailed);
    connect(m_finalizer, &InstallerFinalizer::stageChanged, m_window, &MainWindow::setStatusText);
    connect(m_finalizer, &InstallerFinalizer::progressChanged, this, &InstallationFlow::finalizationProgress);
    connect(m_finalizer, &InstallerFinalizer::completed, this, &InstallationFlow::finalizationCompleted);
    connect(m_finalizer, &InstallerFinalizer::migrationNotice, this, [this](const QString &notice) { m_migrationNotices.append(notice); });
    connect(m_finalizer, &InstallerFinalizer::failed, this, &InstallationFlow::handleInstallationFailure);
    connect(m_window, &MainWindow::installRequested, this, [this] {
        if (!m_busy && m_phase != Phase::Done)
            beginInstall();
        else if (m_phase == Phase::Done)
            m_window->close();
    });
    m_window->setCloseGuard([this] { return handleCloseRequest(); });

    if (m_options.automaticUpdate) {
        InstallerLogger::write(
            QStringLiteral("Validated update entry: automatically starting the fixed-directory installation."));
        // From the event loop, so the window is on screen before the work starts.
        QTimer::singleShot(0, this, &InstallationFlow::beginInstall);
    }
}

InstallationFlow::~InstallationFlow() = default;

int InstallationFlow::downloadShare(qint64 received, qint64 total)
{
    if (total < 1)
        return 1;
    const qint64 percent = std::clamp<qint64>(received * 100 / total, 0, 100);
    return int(percent * 64 / 100 + 1);
}

int InstallationFlow::extractionShare(qint64 done, qint64 total)
{
    const qint64 percent = total > 0 ? std::clamp<qint64>(done * 100 / total, 0, 100) : 0;
    return int(percent / 5 + 65);
}

int InstallationFlow::finalizationShare(int percent)
{
    return qBound(0, percent, 100) * 14 / 100 + 85;
}

QString InstallationFlow::transferSpeedText(qint64 bytesPerSecond)
{
    const double kilobytes = double(qMax<qint64>(0, bytesPerSecond)) / 1024.0;
    if (kilobytes >= 1024.0)
        return tr("%1 MB/s").arg(QLocale::system().toString(kilobytes / 1024.0, 'f', 1));
    return tr("%1 KB/s").arg(QLocale::system().toString(qRound64(kilobytes)));
}

void InstallationFlow::chooseDefaultDestination()
{
    const auto accept = [this](const QString &candidate, const QString &source) {
        const QString target = InstallationLocation::applicationTarget(candidate);
        if (target.isEmpty())
            return false;
        m_destination = target;
        m_defaultSource = source;
        return true;
    };
    const QString legacySource = m_options.legacySourceDirectory;
    const QSettings installerKey(m_settings.installerKey, m_settings.registryFormat);
    const QString lastInstall =
        InstallationLocation::normalized(installerKey.value(QStringLiteral("InstallLocation")).toString());
    const bool found =
        (m_updateMode && accept(m_options.installDirectory, QStringLiteral("installer_update_source")))
        || (!legacySource.isEmpty() && accept(legacySource, QStringLiteral("legacy_installer_source")))
        || (InstallationLocation::existingApplicationDirectory(lastInstall)
            && accept(lastInstall, QStringLiteral("last_successful_install")))
        || accept(InstallationLocation::registeredLocation(m_settings.uninstallKeys, m_settings.registryFormat),
                  QStringLiteral("uninstall_registration"));
    if (!found) {
        m_destination = InstallationLocation::normalized(m_settings.applicationRoot + QStringLiteral("/BrisaLinker"));
        m_defaultSource = QStringLiteral("default");
    }
    m_window->setDestination(m_destination);
}

bool InstallationFlow::validateDestination(QString *target)
{
    const QString title = tr("Invalid installation location");
    const QString chosen = InstallationLocation::applicationTarget(m_updateMode ? m_destination : m_window->destination());
    QString refusal;
    if (chosen.isEmpty() || !InstallationLocation::isApplicationDirectory(chosen)) {
        refusal = tr("Choose a valid installation location.");
    } else if (!InstallationLocation::hasNoDirectoryLinks(chosen)) {
        refusal = tr("The installation location cannot contain directory links.");
    } else if (InstallationLocation::insideWindowsDirectory(chosen)) {
        refusal = tr("Brisa-Linker cannot be installed in this system location.");
    } else if (FileLinks::exists(chosen + QLatin1Char('/') + ProductExecutable)) {
        const InstallationIdentity::Result identity = InstallationIdentity::installation(chosen);
        if (identity.kind == InstallationIdentity::Invalid) {
            refusal = tr("The existing application executable cannot be identified. No old files were removed.\n%1")
                          .arg(identity.message);
        }
    }
    if (!refusal.isEmpty()) {
        InstallerLogger::write(QStringLiteral("Installation location refused: %1; reason=%2").arg(native(chosen), refusal));
        MainWindow::showInstallerWarning(m_window, title, refusal);
        return false;
    }
    *target = chosen;
    return true;
}

bool InstallationFlow::confirmRegistrationChange(const QString &target)
{
    const QString previous = InstallationLocation::registeredLocation(m_settings.uninstallKeys, m_settings.registryFormat);
    if (previous.isEmpty() || InstallationLocation::same(previous, target))
        return true;
    const bool accepted = MainWindow::confirmInstallerAction(
        m_window, tr("Brisa-Linker is already installed"),
        tr("Brisa-Linker is already installed in:\n%1\n\nInstall it in the new location instead? The files in the "
           "old location are kept.")
            .arg(native(previous)),
        tr("Install here"), tr("Cancel"));
    if (!accepted) {
        InstallerLogger::write(QStringLiteral("User canceled installation at a different location; previous=%1 destination=%2")
                                   .arg(native(previous), native(target)));
        return false;
    }
    InstallerLogger::write(QStringLiteral("User approved replacing installation registration; previous=%1 destination=%2; "
                                          "old files retained")
                               .arg(native(previous), native(target)));
    return true;
}

void InstallationFlow::beginInstall()
{
    if (m_busy)
        return;
    QString target;
    if (!validateDestination(&target))
        return;
    if (!confirmRegistrationChange(target))
        return;
    m_destination = target;
    m_window->setDestination(target);
    InstallerLogger::write(QStringLiteral("Install clicked; destination=%1").arg(native(target)));

    if (!m_installLock.acquire()) {
        InstallerLogger::write(QStringLiteral("Another installation operation is running."));
        MainWindow::showInstallerWarning(
            m_window, tr("Installation in progress"),
            tr("Another installer is currently installing Brisa-Linker. You can keep this window open and try again "
               "when it finishes."));
        return;
    }

    ++m_attempt;
    m_finalizer->resetCancellation();
    m_busy = true;
    m_windowClosed = false;
    m_stagingDir.clear();
    m_archivePath.clear();
    m_fullPackageUrl.clear();
    m_window->setWorking(true);
    m_window->setInstallButtonText(tr("Preparing..."));
    m_window->setPhase(MainWindow::Phase::Busy);
    m_window->setStatusText(tr("Preparing download..."));
    m_window->setSpeedText(transferSpeedText(0));
    m_window->setDownloadProgress(0);
    m_window->lockInstallOptions(true);
    m_resetProgress = true;
    m_overall = 0;
    m_window->setOverallProgress(0);
    enterInstallationPhase(Phase::Downloading);

    if (!m_settings.bundledPayload.isEmpty() && QFileInfo(m_settings.bundledPayload).isDir()) {
        InstallerLogger::write(QStringLiteral("Using the bundled payload: %1").arg(native(m_settings.bundledPayload)));
        m_version = payloadVersion(m_settings.bundledPayload);
        startPayload();
        return;
    }
    m_ticker->start();
    m_download->start(m_settings.manifestUrl, m_settings.temporaryRoot + QStringLiteral("/.downloads"));
}

void InstallationFlow::downloadProgress(qint64 received, qint64 total)
{
    if (m_phase != Phase::Downloading)
        return;
    if (m_resetProgress) {
        m_resetProgress = false;
        m_overall = 0;
    }
    if (total < 1) {
        m_window->setDownloadProgress(0, 0);
        m_window->setStatusText(tr("Downloading..."));
        return;
    }
    const int percent = int(std::clamp<qint64>(received * 100 / total, 0, 100));
    m_window->setDownloadProgress(percent);
    m_window->setStatusText(tr("Downloading... %1%").arg(percent));
    raiseOverall(downloadShare(received, total));
}

void InstallationFlow::transferSpeed(qint64 bytesPerSecond)
{
    if (m_phase == Phase::Downloading)
        m_window->setSpeedText(transferSpeedText(bytesPerSecond));
}

void InstallationFlow::downloadCompleted(const QString &zipPath, const QUrl &fullPackageUrl, const QString &version)
{
    m_ticker->stop();
    m_archivePath = zipPath;
    m_fullPackageUrl = fullPackageUrl;
    m_version = version;
    startPayload();
}

bool InstallationFlow::prepareStagingDirectory()
{
    // A fresh, unpredictable name beside the destination: the same volume, so the final moves
    // are renames, and a name nobody could have prepared (a link planted there) in advance.
    const QString path = QStringLiteral("%1%2%3-%4")
                             .arg(m_destination, StagingMarker)
                             .arg(QCoreApplication::applicationPid())
                             .arg(QRandomGenerator64::global()->generate());
    if (FileLinks::exists(path))
        return false;
    m_stagingDir = path;
    if (!QDir().mkpath(path)) {
        m_stagingDir.clear();
        return false;
    }
    const QFileInfo info(path);
    return info.isDir() && !FileLinks::isLink(path) && InPlaceInstall::setDirectoryHidden(path, true);
}

void InstallationFlow::startPayload()
{
    if (!prepareStagingDirectory()) {
        handleInstallationFailure(tr("Unable to prepare the temporary installation directory."));
        return;
    }
    m_window->setDownloadProgress(65);
    raiseOverall(65);
    m_window->setStatusText(tr("Extracting..."));
    m_window->setSpeedText(QString());
    m_window->setInstallButtonText(tr("Installing..."));
    m_window->setPhase(MainWindow::Phase::Busy);
    enterInstallationPhase(Phase::Extracting);
    if (m_archivePath.isEmpty())
        m_extractor->copyDirectory(m_settings.bundledPayload, m_stagingDir);
    else
        m_extractor->extract(m_archivePath, m_stagingDir);
}

void InstallationFlow::extractionProgress(qint64 done, qint64 total)
{
    if (m_phase != Phase::Extracting)
        return;
    const int overall = extractionShare(done, total);
    raiseOverall(overall);
    m_window->setDownloadProgress(m_overall);
}

void InstallationFlow::extractionFailed(const QString &message)
{
    if (m_phase != Phase::Extracting || m_windowClosed)
        return;
    InstallerLogger::write(QStringLiteral("Background extraction failed: %1").arg(message));
    handleInstallationFailure(message);
}

void InstallationFlow::beginFinalization(const QString &stagingDir, const QStringList &files,
                                         const QStringList &directories)
{
    m_stagingDir = stagingDir;
    m_files = files;
    m_directories = directories;
    enterInstallationPhase(Phase::Finalizing);

    const QStringList running = m_finalizer->runningInstallProcesses(m_destination, m_options.legacySourceDirectory);
    if (!running.isEmpty()) {
        if (m_windowClosed) {
            InstallerLogger::write(
                QStringLiteral("Background installation stopped: running applications require user confirmation."));
            quitAfterStagingCleanup();
            return;
        }
        QStringList shown;
        for (const QString &path : running)
            shown << native(path);
        const bool proceed = MainWindow::confirmInstallerAction(
            m_window, tr("Brisa-Linker is running"),
            tr("These applications are using the installation files:\n%1\n\nThey will be force-closed immediately; "
               "unsaved work may be lost. Continue installing?")
                .arg(shown.join(QLatin1Char('\n'))),
            tr("Force-close applications"), tr("Cancel"));
        if (!proceed) {
            InstallerLogger::write(QStringLiteral("User declined to close running installation processes."));
            cleanupStagingAsync(m_stagingDir, false);
            returnToInitialPage();
            return;
        }
    }
    m_window->setStatusText(tr("Closing running applications..."));
    connect(m_finalizer, &InstallerFinalizer::existingInstallationPrepared, this,
            &InstallationFlow::preparationFinished, Qt::SingleShotConnection);
    m_finalizer->prepareExistingInstallationAsync(m_destination, m_options.legacySourceDirectory);
}

void InstallationFlow::preparationFinished(bool ok, const QString &message)
{
    if (m_windowClosed) {
        if (ok)
            InstallerLogger::write(QStringLiteral("Installation cancelled after process preparation."));
        else
            InstallerLogger::write(QStringLiteral("Background installation stopped during process preparation: %1").arg(message));
        quitAfterStagingCleanup();
        return;
    }
    if (!ok) {
        InstallerLogger::write(QStringLiteral("Process preparation failed after retries: %1").arg(message));
        const auto answer = MainWindow::showInstallerWarning(m_window, tr("Installation failed"), message,
                                                             QMessageBox::Retry | QMessageBox::Cancel,
                                                             QMessageBox::Retry);
        if (answer == QMessageBox::Retry) {
            beginFinalization(m_stagingDir, m_files, m_directories);
            return;
        }
        cleanupStagingAsync(m_stagingDir, false);
        returnToInitialPage();
        return;
    }
    m_window->setStatusText(tr("Creating shortcuts..."));
    m_finalizer->finalize(m_stagingDir, m_destination, m_version, m_files, m_directories,
                          m_options.legacySourceDirectory);
}

void InstallationFlow::finalizationProgress(int percent)
{
    if (m_phase != Phase::Finalizing)
        return;
    raiseOverall(finalizationShare(percent));
    m_window->setDownloadProgress(m_overall);
}

void InstallationFlow::finalizationCompleted()
{
    if (m_completed)
        return;
    m_completed = true;
    if (m_windowClosed) {
        InstallerLogger::write(QStringLiteral("Installation finished after the window was closed."));
        m_installLock.release();
        emit quitRequested();
        return;
    }
    m_busy = false;
    m_phase = Phase::Done;
    m_overall = 100;
    m_window->setDownloadProgress(100);
    m_window->setOverallProgress(100);
    m_window->setStatusText(tr("Installation complete"));
    m_window->setSpeedText(QString());
    m_window->setInstallButtonText(tr("Done"));
    m_window->setPhase(MainWindow::Phase::Done);
    m_installLock.release();
    m_closeConfirmed = true;
    setClosePermitted(true);
    if (m_window->launchAfterInstall())
        launchInstalledApplication();
    showMigrationNotices();
}

void InstallationFlow::showMigrationNotices()
{
    if (m_migrationNotices.isEmpty())
        return;
    InstallerLogger::write(QStringLiteral("Showing legacy migration notices: %1").arg(m_migrationNotices.size()));
    // Beside the Done page rather than in its way: the installation has succeeded either way.
    auto *box = new QMessageBox(QMessageBox::Information, tr("Earlier installation migrated"),
                                m_migrationNotices.join(QStringLiteral("\n\n")), QMessageBox::Ok, m_window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    m_migrationNotices.clear();
}

void InstallationFlow::launchInstalledApplication()
{
    const QString executable = m_destination + QLatin1Char('/') + ProductExecutable;
    FlowPlatform::LaunchOutcome outcome;
    QString result;
    if (!QFileInfo(executable).isFile()) {
        outcome.diagnostics.stage = QStringLiteral("executable_lookup");
        result = QStringLiteral("unresolved");
    } else {
        outcome = FlowPlatform::launchAsDesktopUser(native(executable), native(m_destination));
        result = outcome.started ? QStringLiteral("success") : QStringLiteral("failed");
    }
    const DesktopUser::LaunchDiagnostics &d = outcome.diagnostics;
    InstallerLogger::write(QStringLiteral("Desktop-user launch: result=%1 stage=%2 mode=%3 desktop_elevated=%4 "
                                          "launch_elevated=%5 user=%6")
                               .arg(result, d.stage, d.mode, flag(d.desktopElevated), flag(d.launchElevated), d.user));
    if (outcome.started) {
        InstallerLogger::write(QStringLiteral("Application launched after installation: %1 (pid %2)")
                                   .arg(native(executable))
                                   .arg(outcome.processId));
        return;
    }
    InstallerLogger::write(QStringLiteral("Desktop-user launch failed: Windows=%1 user=%2").arg(outcome.windowsError).arg(d.user));
    InstallerLogger::write(QStringLiteral("Unable to launch application after installation: %1").arg(native(executable)));
    MainWindow::showInstallerWarning(
        m_window, tr("Unable to start Brisa-Linker"),
        tr("Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut."));
}

void InstallationFlow::handleInstallationFailure(const QString &message)
{
    m_ticker->stop();
    if (m_windowClosed) {
        InstallerLogger::write(QStringLiteral("Installation stopped after rollback: %1").arg(message));
        quitAfterStagingCleanup();
        return;
    }
    InstallerLogger::write(QStringLiteral("Installation failed: %1").arg(message));
    const QString staging = m_stagingDir;
    const auto answer = MainWindow::showInstallerWarning(m_window, tr("Installation failed"), message,
                                                         QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry);
    if (staging.contains(StagingMarker))
        cleanupStagingAsync(staging, false);
    // A retry starts from the first page, so a retry that is refused (the lock is taken, the
    // location no longer passes) leaves a window the user can act on.
    returnToInitialPage();
    if (answer == QMessageBox::Retry)
        QTimer::singleShot(0, this, &InstallationFlow::beginInstall);
}

void InstallationFlow::handleDownloadFailure(const QString &message, const QUrl &fullPackageUrl)
{
    m_ticker->stop();
    InstallerLogger::write(QStringLiteral("Installation flow failed: %1").arg(message));
    if (m_windowClosed) {
        finishAttempt();
        emit quitRequested();
        return;
    }
    DownloadFailureDialog dialog(fullPackageUrl, m_window);
    connect(&dialog, &DownloadFailureDialog::linkRequested, this,
            [this, &dialog](const QUrl &address) { openLinkAsDesktopUser(address, &dialog); });
    const bool retry = dialog.exec() == QDialog::Accepted;
    returnToInitialPage();
    if (retry)
        QTimer::singleShot(0, this, &InstallationFlow::beginInstall);
}

void InstallationFlow::openLinkAsDesktopUser(const QUrl &address, QWidget *parent)
{
    const FlowPlatform::LaunchOutcome outcome = FlowPlatform::openAsDesktopUser(address);
    InstallerLogger::write(QStringLiteral("Desktop-user link: result=%1 stage=%2 Windows=%3 address=%4")
                               .arg(outcome.started ? QStringLiteral("success") : QStringLiteral("failed"),
                                    outcome.diagnostics.stage)
                               .arg(outcome.windowsError)
                               .arg(address.toString(QUrl::FullyEncoded)));
    if (outcome.started)
        return;
    // Nothing is ever opened with the installer's own rights; the user can paste the address.
    const QString text = address.scheme() == QLatin1String("mailto") ? address.path() : address.toString(QUrl::FullyEncoded);
    QGuiApplication::clipboard()->setText(text);
    MainWindow::showInstallerWarning(parent, tr("Unable to open the link"),
                                     tr("The link could not be opened. Its address was copied to the clipboard:\n%1").arg(text));
}

void InstallationFlow::raiseOverall(int value)
{
    m_overall = qMax(m_overall, qBound(0, value, 99));
    m_window->setOverallProgress(m_overall);
}

void InstallationFlow::enterInstallationPhase(Phase phase)
{
    m_phase = phase;
    setClosePermitted(false);
    const quint64 attempt = m_attempt;
    // A busy installer ignores the close button for a while on purpose: an early close would
    // throw away work that is about to finish.
    QTimer::singleShot(m_settings.closePermissionDelayMs, this, [this, attempt] {
        if (attempt == m_attempt && m_busy)
            setClosePermitted(true);
    });
}

void InstallationFlow::setClosePermitted(bool permitted)
{
    m_closePermitted = permitted;
    m_window->setCloseEnabled(permitted || !m_busy);
}

void InstallationFlow::finishAttempt()
{
    m_busy = false;
    m_completed = false;
    m_installLock.release();
    ++m_attempt;
}

void InstallationFlow::returnToInitialPage()
{
    finishAttempt();
    m_phase = Phase::Initial;
    m_stagingDir.clear();
    m_window->setWorking(false);
    m_window->setInstallButtonText(tr("Install"));
    m_window->setPhase(MainWindow::Phase::Install);
    m_window->lockInstallOptions(m_updateMode);
    setClosePermitted(true);
}

bool InstallationFlow::handleCloseRequest()
{
    if (m_busy && !m_closePermitted)
        return false;
    if (!m_closeConfirmed) {
        const auto answer = MainWindow::showInstallerWarning(m_window, tr("Exit installation?"),
                                                             tr("Are you sure you want to exit the installation?"),
                                                             QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer != QMessageBox::Yes)
            return false;
    }
    if (!m_busy) {
        emit quitRequested();
        return true;
    }
    m_windowClosed = true;
    switch (m_phase) {
    case Phase::Finalizing:
        if (m_finalizer->requestCancel()) {
            InstallerLogger::write(QStringLiteral("User requested background installation rollback."));
        } else {
            MainWindow::showInstallerWarning(m_window, tr("Installation is finishing"),
                                             tr("System configuration has started, so this step cannot be safely "
                                                "rolled back. The window will close while installation finishes in "
                                                "the background."));
            InstallerLogger::write(
                QStringLiteral("User closed installer after commit began; finalization continues in background."));
        }
        return true;
    case Phase::Extracting:
        m_extractor->cancel();
        m_extractor->waitForWorkers();
        InstallerLogger::write(QStringLiteral("Installation cancelled during extraction."));
        quitAfterStagingCleanup();
        return true;
    case Phase::Downloading:
        InstallerLogger::write(QStringLiteral("Download cancelled by user; saved chunks are preserved."));
        m_download->cancel();
        m_ticker->stop();
        finishAttempt();
        emit quitRequested();
        return true;
    case Phase::Initial:
    case Phase::Done:
        break;
    }
    emit quitRequested();
    return true;
}

void InstallationFlow::cleanupStagingAsync(const QString &path, bool thenQuit)
{
    if (path.isEmpty()) {
        emit stagingCleanupFinished(path, true);
        if (thenQuit)
            emit quitRequested();
        return;
    }
    const QString journal = m_destination + QLatin1Char('/') + TransactionJournal;
    const QString destination = m_destination;
    QPointer<InstallationFlow> self(this);
    QThreadPool::globalInstance()->start([self, path, journal, destination, thenQuit] {
        bool removed = false;
        if (!QFileInfo(path).fileName().contains(StagingMarker)) {
            InstallerLogger::write(QStringLiteral("Refusing to clean unexpected staging path: %1").arg(native(path)));
        } else if (QFileInfo::exists(journal) || LegacyMigration::needsRecovery(destination)) {
            // An unfinished transaction may still need these files to put the old version back.
            InstallerLogger::write(QStringLiteral("Keeping staging files for legacy migration recovery: %1").arg(native(path)));
            if (thenQuit)
                InstallerLogger::write(QStringLiteral("Keeping migration recovery files after exit."));
        } else {
            // A cancelled extractor may still be finishing its current block; give it a moment
            // to let go of the file it was writing.
            for (int attempt = 0; attempt < 50 && !removed; ++attempt) {
                removed = InPlaceInstall::removeDirectoryTree(path);
                if (!removed)
                    QThread::msleep(100);
            }
            if (!removed) {
                InstallerLogger::write((thenQuit ? QStringLiteral("Unable to remove cancelled staging directory: %1")
                                                 : QStringLiteral("Unable to remove temporary installation directory: %1"))
                                           .arg(native(path)));
            }
        }
        QMetaObject::invokeMethod(qApp, [self, path, removed, thenQuit] {
            if (!self)
                return;
            emit self->stagingCleanupFinished(path, removed);
            if (thenQuit)
                emit self->quitRequested();
        });
    });
}

void InstallationFlow::quitAfterStagingCleanup()
{
    const QString staging = m_stagingDir;
    finishAttempt();
    cleanupStagingAsync(staging, true);
}
