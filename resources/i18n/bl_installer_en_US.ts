<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>ArchiveExtractor</name>
    <message>
        <location filename="../../src/extract/archive_extractor.cpp" line="+134"/>
        <source>Unable to open the downloaded ZIP package.</source>
        <translation>Unable to open the downloaded ZIP package.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The downloaded ZIP package is invalid.</source>
        <translation>The downloaded ZIP package is invalid.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The ZIP package contains an unsafe path.</source>
        <translation>The ZIP package contains an unsafe path.</translation>
    </message>
    <message>
        <location line="+2"/>
        <location line="+23"/>
        <source>There is not enough disk space to install.</source>
        <translation>There is not enough disk space to install.</translation>
    </message>
    <message>
        <location line="-21"/>
        <source>Unable to create the installation directory.</source>
        <translation>Unable to create the installation directory.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to write an installation file.</source>
        <translation>Unable to write an installation file.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to extract the downloaded ZIP package.</source>
        <translation>Unable to extract the downloaded ZIP package.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>The bundled Brisa-Linker payload is missing.</source>
        <translation>The bundled Brisa-Linker payload is missing.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled Brisa-Linker payload is invalid.</source>
        <translation>The bundled Brisa-Linker payload is invalid.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled payload contains a directory link.</source>
        <translation>The bundled payload contains a directory link.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Unable to create the bundled payload directory.</source>
        <translation>Unable to create the bundled payload directory.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to copy the bundled Brisa-Linker payload.</source>
        <translation>Unable to copy the bundled Brisa-Linker payload.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to prepare the bundled Brisa-Linker payload.</source>
        <translation>Unable to prepare the bundled Brisa-Linker payload.</translation>
    </message>
</context>
<context>
    <name>DownloadFailureDialog</name>
    <message>
        <location filename="../../src/ui/download_failure_dialog.cpp" line="+13"/>
        <location line="+5"/>
        <source>Download failed</source>
        <translation>Download failed</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>We couldn&apos;t download the required files. Retry or download the full package.</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Download full package</source>
        <translation>Download full package</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The full package link is unavailable.</source>
        <translation>The full package link is unavailable.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Need help? Contact</source>
        <translation>Need help? Contact</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Retry</source>
        <translation>Retry</translation>
    </message>
</context>
<context>
    <name>DownloadManager</name>
    <message>
        <location filename="../../src/download/download_manager.cpp" line="+279"/>
        <source>Unable to download the version manifest: %1</source>
        <translation>Unable to download the version manifest: %1</translation>
    </message>
    <message>
        <location line="+9"/>
        <location line="+286"/>
        <location line="+19"/>
        <source>No download progress was made for 20 seconds.</source>
        <translation>No download progress was made for 20 seconds.</translation>
    </message>
    <message>
        <location line="-345"/>
        <source>The version manifest is invalid: %1</source>
        <translation>The version manifest is invalid: %1</translation>
    </message>
    <message>
        <location line="-9"/>
        <source>The version manifest does not carry a valid signature of the publisher.</source>
        <translation>The version manifest does not carry a valid signature of the publisher.</translation>
    </message>
    <message>
        <location line="+65"/>
        <source>Unable to create the download directory.</source>
        <translation>Unable to create the download directory.</translation>
    </message>
    <message>
        <location line="+109"/>
        <source>Unable to write a download chunk.</source>
        <translation>Unable to write a download chunk.</translation>
    </message>
    <message>
        <location line="+63"/>
        <source>The download server does not support ranged requests.</source>
        <translation>The download server does not support ranged requests.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>A download chunk failed: %1</source>
        <translation>A download chunk failed: %1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>A download chunk has an unexpected size.</source>
        <translation>A download chunk has an unexpected size.</translation>
    </message>
    <message>
        <location filename="../../src/download/package_assembly.cpp" line="+21"/>
        <source>The combined package failed verification.</source>
        <translation>The combined package failed verification.</translation>
    </message>
    <message>
        <location line="-4"/>
        <source>Unable to create the combined package.</source>
        <translation>Unable to create the combined package.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to read a downloaded chunk.</source>
        <translation>Unable to read a downloaded chunk.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to combine the downloaded chunks.</source>
        <translation>Unable to combine the downloaded chunks.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the combined package.</source>
        <translation>Unable to write the combined package.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to finalize the downloaded package.</source>
        <translation>Unable to finalize the downloaded package.</translation>
    </message>
</context>
<context>
    <name>InstallationFlow</name>
    <message>
        <location filename="../../src/ui/installation_flow.cpp" line="+143"/>
        <source>%1 MB/s</source>
        <translation>%1 MB/s</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 KB/s</source>
        <translation>%1 KB/s</translation>
    </message>
    <message>
        <location line="+33"/>
        <source>Invalid installation location</source>
        <translation>Invalid installation location</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Choose a valid installation location.</source>
        <translation>Choose a valid installation location.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>The installation location cannot contain directory links.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker cannot be installed in this system location.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>The existing application executable cannot be identified. No old files were removed.
%1</translation>
    </message>
    <message>
        <location line="+19"/>
        <source>Brisa-Linker is already installed</source>
        <translation>Brisa-Linker is already installed</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is already installed in:
%1

Install it in the new location instead? The files in the old location are kept.</source>
        <translation>Brisa-Linker is already installed in:
%1

Install it in the new location instead? The files in the old location are kept.</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Install here</source>
        <translation>Install here</translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+176"/>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <location line="-148"/>
        <source>Installation in progress</source>
        <translation>Installation in progress</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Preparing...</source>
        <translation>Preparing...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Preparing download...</source>
        <translation>Preparing download...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Downloading...</source>
        <translation>Downloading...</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Downloading... %1%</source>
        <translation>Downloading... %1%</translation>
    </message>
    <message>
        <location line="+41"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>Unable to prepare the temporary installation directory.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Extracting...</source>
        <translation>Extracting...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Installing...</source>
        <translation>Installing...</translation>
    </message>
    <message>
        <location line="+46"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker is running</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Force-close applications</source>
        <translation>Force-close applications</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Closing running applications...</source>
        <translation>Closing running applications...</translation>
    </message>
    <message>
        <location line="+18"/>
        <location line="+104"/>
        <source>Installation failed</source>
        <translation>Installation failed</translation>
    </message>
    <message>
        <location line="-93"/>
        <source>Creating shortcuts...</source>
        <translation>Creating shortcuts...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Installation complete</source>
        <translation>Installation complete</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Done</source>
        <translation>Done</translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Earlier installation migrated</source>
        <translation>Earlier installation migrated</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Unable to start Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</translation>
    </message>
    <message>
        <location line="+98"/>
        <source>Install</source>
        <translation>Install</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Exit installation?</source>
        <translation>Exit installation?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>Are you sure you want to exit the installation?</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Installation is finishing</source>
        <translation>Installation is finishing</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</translation>
    </message>
    <message>
        <location line="-71"/>
        <source>Unable to open the link</source>
        <translation>Unable to open the link</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The link could not be opened. Its address was copied to the clipboard:
%1</source>
        <translation>The link could not be opened. Its address was copied to the clipboard:
%1</translation>
    </message>
</context>
<context>
    <name>InstallerFinalizer</name>
    <message>
        <location filename="translation_texts.cpp" line="+25"/>
        <source>Unable to close the existing Brisa-Linker processes.</source>
        <translation>Unable to close the existing Brisa-Linker processes.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>A Brisa-Linker process is still using installation files. Close it and retry.</source>
        <translation>A Brisa-Linker process is still using installation files. Close it and retry.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation directory is unsafe.</source>
        <translation>The installation directory is unsafe.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to recover the previous migration.
%1</source>
        <translation>Unable to recover the previous migration.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation cancelled.</source>
        <translation>Installation cancelled.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.</source>
        <translation>The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to install the uninstaller.</source>
        <translation>Unable to install the uninstaller.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the OBS path configuration.</source>
        <translation>Unable to write the OBS path configuration.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the uninstall data file.</source>
        <translation>Unable to create the uninstall data file.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare installation recovery.
%1</source>
        <translation>Unable to prepare installation recovery.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the legacy migration.
%1</source>
        <translation>Unable to prepare the legacy migration.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the installation backup.</source>
        <translation>Unable to prepare the installation backup.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to back up the existing installation.</source>
        <translation>Unable to back up the existing installation.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>The existing application executable cannot be identified. No old files were removed.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Updating existing files...</source>
        <translation>Updating existing files...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to replace installation files.</source>
        <translation>Unable to replace installation files.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the application URL protocol. Windows error: %1.</source>
        <translation>Unable to register the application URL protocol. Windows error: %1.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The application executable is missing after extraction.</source>
        <translation>The application executable is missing after extraction.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Creating shortcuts...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the desktop shortcut.</source>
        <translation>Unable to create the desktop shortcut.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the Start Menu shortcuts.</source>
        <translation>Unable to create the Start Menu shortcuts.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Registering application...</source>
        <translation>Registering application...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the uninstaller.</source>
        <translation>Unable to register the uninstaller.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finishing installation...</source>
        <translation>Finishing installation...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to commit the legacy migration.
%1</source>
        <translation>Unable to commit the legacy migration.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing system maintenance service...</source>
        <translation>Installing system maintenance service...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring system...</source>
        <translation>Configuring system...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 32-bit virtual camera...</source>
        <translation>Installing 32-bit virtual camera...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 64-bit virtual camera...</source>
        <translation>Installing 64-bit virtual camera...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring application...</source>
        <translation>Configuring application...</translation>
    </message>
</context>
<context>
    <name>InstallerStartup</name>
    <message>
        <location line="-43"/>
        <source>Automatic update was not started. Use Custom to choose the installation location and click Install.</source>
        <translation>Automatic update was not started. Use Custom to choose the installation location and click Install.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to identify the signed-in desktop user. Open the installer from your Windows desktop.</source>
        <translation>Unable to identify the signed-in desktop user. Open the installer from your Windows desktop.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions.</source>
        <translation>No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose installation location</source>
        <translation>Choose installation location</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator permission is required to install the system maintenance service. Please run the installer as administrator.</source>
        <translation>Administrator permission is required to install the system maintenance service. Please run the installer as administrator.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog.</source>
        <translation>Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Windows could not start the installer with administrator permission. Windows error %1: %2</source>
        <translation>Windows could not start the installer with administrator permission. Windows error %1: %2</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Click Retry to request administrator permission again, or Cancel to close the installer.</source>
        <translation>Click Retry to request administrator permission again, or Cancel to close the installer.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>More than one Brisa-Linker installation was found. Select the installation location manually.
%1</source>
        <translation>More than one Brisa-Linker installation was found. Select the installation location manually.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Some recorded installations could not be verified. Select the installation location manually.
%1</source>
        <translation>Some recorded installations could not be verified. Select the installation location manually.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The previous Brisa-Linker installation was not found. Select the installation location manually.</source>
        <translation>The previous Brisa-Linker installation was not found. Select the installation location manually.</translation>
    </message>
</context>
<context>
    <name>LegacyMigration</name>
    <message>
        <location filename="../../src/journal/legacy_migration_cleanup.cpp" line="+148"/>
        <location filename="translation_texts.cpp" line="+75"/>
        <source>Previous OBS/Pellacore files were preserved at:
%1</source>
        <translation>Previous OBS/Pellacore files were preserved at:
%1</translation>
    </message>
    <message>
        <location line="+14"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Some old files could not be removed and will be retried on the next installation:
%1</source>
        <translation>Some old files could not be removed and will be retried on the next installation:
%1</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+123"/>
        <source>Minimize</source>
        <translation>Minimize</translation>
    </message>
    <message>
        <location line="-61"/>
        <location line="+65"/>
        <source>Close</source>
        <translation>Close</translation>
    </message>
    <message>
        <location line="-70"/>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>No</source>
        <translation>No</translation>
    </message>
    <message>
        <location line="+87"/>
        <source>Launch Brisa-Linker when installation is complete</source>
        <translation>Launch Brisa-Linker when installation is complete</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Custom</source>
        <translation>Custom</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>Install location</source>
        <translation>Install location</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Edit the installation location or choose a folder</source>
        <translation>Edit the installation location or choose a folder</translation>
    </message>
    <message>
        <location line="+3"/>
        <location line="+164"/>
        <source>Install to %1</source>
        <translation>Install to %1</translation>
    </message>
    <message>
        <location line="-159"/>
        <source>Browse folders</source>
        <translation>Browse folders</translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+211"/>
        <source>Required: --</source>
        <translation>Required: --</translation>
    </message>
    <message>
        <location line="-209"/>
        <location line="+287"/>
        <source>Available: --</source>
        <translation>Available: --</translation>
    </message>
    <message>
        <location line="-247"/>
        <source>Preparing download...</source>
        <translation>Preparing download...</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+121"/>
        <source>Install</source>
        <translation>Install</translation>
    </message>
    <message>
        <location line="-96"/>
        <source>%1 MB</source>
        <translation>%1 MB</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 GB</source>
        <translation>%1 GB</translation>
    </message>
    <message>
        <location line="+84"/>
        <source>Hide installation location</source>
        <translation>Hide installation location</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Show installation location</source>
        <translation>Show installation location</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Done</source>
        <translation>Done</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Required: %1</source>
        <translation>Required: %1</translation>
    </message>
    <message>
        <location line="+59"/>
        <source>Choose installation location</source>
        <translation>Choose installation location</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Available: %1</source>
        <translation>Available: %1</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="-39"/>
        <source>Invalid installation location</source>
        <translation>Invalid installation location</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>The installation location cannot contain directory links.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker cannot be installed in this system location.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose a valid installation location.</source>
        <translation>Choose a valid installation location.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>The existing application executable cannot be identified. No old files were removed.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation in progress</source>
        <translation>Installation in progress</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Preparing...</source>
        <translation>Preparing...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>Unable to prepare the temporary installation directory.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Extracting...</source>
        <translation>Extracting...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing...</source>
        <translation>Installing...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker is running</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Force-close applications</source>
        <translation>Force-close applications</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="-456"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Closing running applications...</source>
        <translation>Closing running applications...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation failed</source>
        <translation>Installation failed</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Creating shortcuts...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading...</source>
        <translation>Downloading...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading... %1%</source>
        <translation>Downloading... %1%</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation complete</source>
        <translation>Installation complete</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Unable to start Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download failed</source>
        <translation>Download failed</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>We couldn&apos;t download the required files. Retry or download the full package.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download full package</source>
        <translation>Download full package</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The full package link is unavailable.</source>
        <translation>The full package link is unavailable.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Need help? Contact</source>
        <translation>Need help? Contact</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Retry</source>
        <translation>Retry</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Exit installation?</source>
        <translation>Exit installation?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>Are you sure you want to exit the installation?</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Yes</source>
        <translation>Yes</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Installation is finishing</source>
        <translation>Installation is finishing</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</translation>
    </message>
</context>
</TS>
