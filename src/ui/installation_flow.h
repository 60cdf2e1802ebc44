#pragma once

#include "app/installer_launch.h"
#include "ui/flow_platform.h"

#include <QObject>
#include <QPointer>
#include <QSettings>
#include <QSslConfiguration>
#include <QString>
#include <QStringList>
#include <QUrl>

class ArchiveExtractor;
class DownloadManager;
class InstallerFinalizer;
class MainWindow;
class QTimer;

// Drives one installation through its phases on the GUI thread: destination checks, download,
// extraction into a hidden staging directory, finalization and the launch of the product. The
// three workers report back through queued signals; the window only presents.
class InstallationFlow : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        QUrl manifestUrl;
        QSslConfiguration sslConfiguration = QSslConfiguration::defaultConfiguration();
        // Holds the download cache (".downloads" below it).
        QString temporaryRoot;
        // The per-user application root; the default destination is "<root>/BrisaLinker".
        QString applicationRoot;
        // A payload already on disk, used instead of a download when it exists.
        QString bundledPayload;
        // The registry in production; an INI file in tests that must not touch the real one.
        QSettings::Format registryFormat = QSettings::NativeFormat;
        QString installerKey = QStringLiteral(
            "HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer");
        QStringList uninstallKeys;
        // Tests shorten the time after which a busy window may be closed.
        int closePermissionDelayMs = 50000;
    };

    enum class Phase { Initial, Downloading, Extracting, Finalizing, Done };

    InstallationFlow(MainWindow *window, const InstallerLaunch::Options &options, const Settings &settings);
    ~InstallationFlow() override;

    // The pure rules of the overall progress figure: each phase's share of 0..99.
    static int downloadShare(qint64 received, qint64 total);
    static int extractionShare(qint64 done, qint64 total);
    static int finalizationShare(int percent);
    // The speed label: "%1 MB/s" from 1024 KB/s on, otherwise "%1 KB/s".
    static QString transferSpeedText(qint64 bytesPerSecond);

    void beginInstall();
    // Whether the window may close now; asks, cancels and arranges the quit as needed.
    bool handleCloseRequest();

    Phase phase() const { return m_phase; }
    int overallProgress() const { return m_overall; }
    QString destination() const { return m_destination; }
    QString stagingDirectory() const { return m_stagingDir; }
    QString defaultDestinationSource() const { return m_defaultSource; }
    bool closePermitted() const { return m_closePermitted; }
    bool holdsInstallLock() const { return m_installLock.held(); }
    DownloadManager *downloadManager() const { return m_download; }
    ArchiveExtractor *extractor() const { return m_extractor; }
    InstallerFinalizer *finalizer() const { return m_finalizer; }

signals:
    // The application should end now (startup connects this to the application's quit).
    void quitRequested();
    // Every cleanup of a staging directory reports here when it is over.
    void stagingCleanupFinished(const QString &path, bool removed);

private:
    void chooseDefaultDestination();
    bool validateDestination(QString *target);
    bool confirmRegistrationChange(const QString &target);

    void downloadProgress(qint64 received, qint64 total);
    void transferSpeed(qint64 bytesPerSecond);
    void downloadCompleted(const QString &zipPath, const QUrl &fullPackageUrl, const QString &version);
    void startPayload();
    bool prepareStagingDirectory();
    void extractionProgress(qint64 done, qint64 total);
    void extractionFailed(const QString &message);
    void beginFinalization(const QString &stagingDir, const QStringList &files, const QStringList &directories);
    void preparationFinished(bool ok, const QString &message);
    void finalizationProgress(int percent);
    void finalizationCompleted();
    void showMigrationNotices();
    void launchInstalledApplication();
    void handleInstallationFailure(const QString &message);
    void handleDownloadFailure(const QString &message, const QUrl &fullPackageUrl);
    void openLinkAsDesktopUser(const QUrl &address, QWidget *parent);

    void raiseOverall(int value);
    void enterInstallationPhase(Phase phase);
    void setClosePermitted(bool permitted);
    void returnToInitialPage();
    void finishAttempt();
    void cleanupStagingAsync(const QString &path, bool thenQuit);
    void quitAfterStagingCleanup();

    MainWindow *m_window = nullptr;
    InstallerLaunch::Options m_options;
    Settings m_settings;
    bool m_updateMode = false;
    QString m_defaultSource;

    DownloadManager *m_download = nullptr;
    ArchiveExtractor *m_extractor = nullptr;
    InstallerFinalizer *m_finalizer = nullptr;
    QTimer *m_ticker = nullptr;

    Phase m_phase = Phase::Initial;
    quint64 m_attempt = 0;
    QString m_destination;
    QString m_stagingDir;
    QString m_archivePath;
    QUrl m_fullPackageUrl;
    QString m_version;
    QStringList m_files;
    QStringList m_directories;
    QStringList m_migrationNotices; // what the migration of an earlier installation tells the user
    int m_overall = 0;
    bool m_resetProgress = false;
    bool m_busy = false;
    bool m_windowClosed = false;
    bool m_completed = false;
    bool m_closeConfirmed = false;
    bool m_closePermitted = true;
    FlowPlatform::InstallOperationLock m_installLock;
};
