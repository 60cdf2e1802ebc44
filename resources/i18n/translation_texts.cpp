// Texts that lupdate cannot attribute to their context by itself, listed so that translators
// see them under the context the program looks them up in. Never compiled; tools/update-
// translations reads it together with src/.
//
// Start-up translates through a local helper that lupdate files under the namespace's name;
// at run time the texts are looked up in "InstallerStartup". The finalizer and the flow
// controller use the texts below word for word.
#include <QtGlobal>

static const char *const startupTexts[] = {
    QT_TRANSLATE_NOOP("InstallerStartup", "Automatic update was not started. Use Custom to choose the installation location and click Install."),
    QT_TRANSLATE_NOOP("InstallerStartup", "Unable to identify the signed-in desktop user. Open the installer from your Windows desktop."),
    QT_TRANSLATE_NOOP("InstallerStartup", "No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions."),
    QT_TRANSLATE_NOOP("InstallerStartup", "Choose installation location"),
    QT_TRANSLATE_NOOP("InstallerStartup", "Administrator permission is required to install the system maintenance service. Please run the installer as administrator."),
    QT_TRANSLATE_NOOP("InstallerStartup", "Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog."),
    QT_TRANSLATE_NOOP("InstallerStartup", "Windows could not start the installer with administrator permission. Windows error %1: %2"),
    QT_TRANSLATE_NOOP("InstallerStartup", "Click Retry to request administrator permission again, or Cancel to close the installer."),
    QT_TRANSLATE_NOOP("InstallerStartup", "More than one Brisa-Linker installation was found. Select the installation location manually.\n%1"),
    QT_TRANSLATE_NOOP("InstallerStartup", "Some recorded installations could not be verified. Select the installation location manually.\n%1"),
    QT_TRANSLATE_NOOP("InstallerStartup", "The previous Brisa-Linker installation was not found. Select the installation location manually."),
};

static const char *const finalizerTexts[] = {
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to close the existing Brisa-Linker processes."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "A Brisa-Linker process is still using installation files. Close it and retry."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "The installation directory is unsafe."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to recover the previous migration.\n%1"),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Installation cancelled."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to install the uninstaller."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to write the OBS path configuration."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to create the uninstall data file."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to prepare installation recovery.\n%1"),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to prepare the legacy migration.\n%1"),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to prepare the installation backup."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to back up the existing installation."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "The existing application executable cannot be identified. No old files were removed.\n%1"),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Updating existing files..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to replace installation files."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to register the application URL protocol. Windows error: %1."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "The application executable is missing after extraction."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Creating shortcuts..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to create the desktop shortcut."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to create the Start Menu shortcuts."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Registering application..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to register the uninstaller."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Finishing installation..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Unable to commit the legacy migration.\n%1"),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Installing system maintenance service..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Configuring system..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Installing 32-bit virtual camera..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Installing 64-bit virtual camera..."),
    QT_TRANSLATE_NOOP("InstallerFinalizer", "Configuring application..."),
};

static const char *const flowTexts[] = {
    QT_TRANSLATE_NOOP("MainWindow", "Invalid installation location"),
    QT_TRANSLATE_NOOP("MainWindow", "The installation location cannot contain directory links."),
    QT_TRANSLATE_NOOP("MainWindow", "Brisa-Linker cannot be installed in this system location."),
    QT_TRANSLATE_NOOP("MainWindow", "Choose a valid installation location."),
    QT_TRANSLATE_NOOP("MainWindow", "The existing application executable cannot be identified. No old files were removed.\n%1"),
    QT_TRANSLATE_NOOP("MainWindow", "Installation in progress"),
    QT_TRANSLATE_NOOP("MainWindow", "Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes."),
    QT_TRANSLATE_NOOP("MainWindow", "Preparing..."),
    QT_TRANSLATE_NOOP("MainWindow", "Unable to prepare the temporary installation directory."),
    QT_TRANSLATE_NOOP("MainWindow", "Extracting..."),
    QT_TRANSLATE_NOOP("MainWindow", "Installing..."),
    QT_TRANSLATE_NOOP("MainWindow", "Brisa-Linker is running"),
    QT_TRANSLATE_NOOP("MainWindow", "These applications are using the installation files:\n%1\n\nThey will be force-closed immediately; unsaved work may be lost. Continue installing?"),
    QT_TRANSLATE_NOOP("MainWindow", "Force-close applications"),
    QT_TRANSLATE_NOOP("MainWindow", "Cancel"),
    QT_TRANSLATE_NOOP("MainWindow", "Closing running applications..."),
    QT_TRANSLATE_NOOP("MainWindow", "Installation failed"),
    QT_TRANSLATE_NOOP("MainWindow", "Creating shortcuts..."),
    QT_TRANSLATE_NOOP("MainWindow", "Downloading..."),
    QT_TRANSLATE_NOOP("MainWindow", "Downloading... %1%"),
    QT_TRANSLATE_NOOP("MainWindow", "Installation complete"),
    QT_TRANSLATE_NOOP("MainWindow", "Unable to start Brisa-Linker"),
    QT_TRANSLATE_NOOP("MainWindow", "Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut."),
    QT_TRANSLATE_NOOP("MainWindow", "Download failed"),
    QT_TRANSLATE_NOOP("MainWindow", "We couldn't download the required files. Retry or download the full package."),
    QT_TRANSLATE_NOOP("MainWindow", "Download full package"),
    QT_TRANSLATE_NOOP("MainWindow", "The full package link is unavailable."),
    QT_TRANSLATE_NOOP("MainWindow", "Need help? Contact"),
    QT_TRANSLATE_NOOP("MainWindow", "Retry"),
    QT_TRANSLATE_NOOP("MainWindow", "Exit installation?"),
    QT_TRANSLATE_NOOP("MainWindow", "Are you sure you want to exit the installation?"),
    QT_TRANSLATE_NOOP("MainWindow", "Yes"),
    QT_TRANSLATE_NOOP("MainWindow", "Installation is finishing"),
    QT_TRANSLATE_NOOP("MainWindow", "System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background."),
};

// The migration of an earlier installation tells the user where the old data went.
static const char *const legacyMigrationTexts[] = {
    QT_TRANSLATE_NOOP("LegacyMigration", "Previous OBS/Pellacore files were preserved at:\n%1"),
    QT_TRANSLATE_NOOP("LegacyMigration", "Some old files could not be removed and will be retried on the next installation:\n%1"),
};
