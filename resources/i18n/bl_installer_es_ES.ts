<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es_ES">
<context>
    <name>ArchiveExtractor</name>
    <message>
        <location filename="../../src/extract/archive_extractor.cpp" line="+134"/>
        <source>Unable to open the downloaded ZIP package.</source>
        <translation>No se pudo abrir el paquete ZIP descargado.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The downloaded ZIP package is invalid.</source>
        <translation>El paquete ZIP descargado no es válido.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The ZIP package contains an unsafe path.</source>
        <translation>El paquete ZIP contiene una ruta no segura.</translation>
    </message>
    <message>
        <location line="+2"/>
        <location line="+23"/>
        <source>There is not enough disk space to install.</source>
        <translation>No hay suficiente espacio en disco para instalar.</translation>
    </message>
    <message>
        <location line="-21"/>
        <source>Unable to create the installation directory.</source>
        <translation>No se pudo crear la carpeta de instalación.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to write an installation file.</source>
        <translation>No se pudo escribir un archivo de instalación.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to extract the downloaded ZIP package.</source>
        <translation>No se pudo extraer el paquete ZIP descargado.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>The bundled Brisa-Linker payload is missing.</source>
        <translation>Falta el paquete integrado de Brisa-Linker.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled Brisa-Linker payload is invalid.</source>
        <translation>El paquete integrado de Brisa-Linker no es válido.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled payload contains a directory link.</source>
        <translation>El paquete integrado contiene un vínculo de carpeta.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Unable to create the bundled payload directory.</source>
        <translation>No se pudo crear la carpeta del paquete integrado.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to copy the bundled Brisa-Linker payload.</source>
        <translation>No se pudo copiar el paquete integrado de Brisa-Linker.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to prepare the bundled Brisa-Linker payload.</source>
        <translation>No se pudo preparar el paquete integrado de Brisa-Linker.</translation>
    </message>
</context>
<context>
    <name>DownloadFailureDialog</name>
    <message>
        <location filename="../../src/ui/download_failure_dialog.cpp" line="+13"/>
        <location line="+5"/>
        <source>Download failed</source>
        <translation>Error de descarga</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>No se pudieron descargar los archivos necesarios. Vuelva a intentarlo o descargue el paquete completo.</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Download full package</source>
        <translation>Descargar el paquete completo</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The full package link is unavailable.</source>
        <translation>El enlace al paquete completo no está disponible.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Need help? Contact</source>
        <translation>¿Necesita ayuda? Escriba a</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Retry</source>
        <translation>Reintentar</translation>
    </message>
</context>
<context>
    <name>DownloadManager</name>
    <message>
        <location filename="../../src/download/download_manager.cpp" line="+279"/>
        <source>Unable to download the version manifest: %1</source>
        <translation>No se pudo descargar el manifiesto de la versión: %1</translation>
    </message>
    <message>
        <location line="+9"/>
        <location line="+286"/>
        <location line="+19"/>
        <source>No download progress was made for 20 seconds.</source>
        <translation>La descarga no ha avanzado en 20 segundos.</translation>
    </message>
    <message>
        <location line="-345"/>
        <source>The version manifest is invalid: %1</source>
        <translation>El manifiesto de la versión no es válido: %1</translation>
    </message>
    <message>
        <location line="-9"/>
        <source>The version manifest does not carry a valid signature of the publisher.</source>
        <translation>El manifiesto de la versión no lleva una firma válida del editor.</translation>
    </message>
    <message>
        <location line="+65"/>
        <source>Unable to create the download directory.</source>
        <translation>No se pudo crear la carpeta de descarga.</translation>
    </message>
    <message>
        <location line="+109"/>
        <source>Unable to write a download chunk.</source>
        <translation>No se pudo escribir un fragmento de la descarga.</translation>
    </message>
    <message>
        <location line="+63"/>
        <source>The download server does not support ranged requests.</source>
        <translation>El servidor de descarga no admite solicitudes por rangos.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>A download chunk failed: %1</source>
        <translation>Falló un fragmento de la descarga: %1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>A download chunk has an unexpected size.</source>
        <translation>Un fragmento de la descarga tiene un tamaño inesperado.</translation>
    </message>
    <message>
        <location filename="../../src/download/package_assembly.cpp" line="+21"/>
        <source>The combined package failed verification.</source>
        <translation>El paquete combinado no superó la verificación.</translation>
    </message>
    <message>
        <location line="-4"/>
        <source>Unable to create the combined package.</source>
        <translation>No se pudo crear el paquete combinado.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to read a downloaded chunk.</source>
        <translation>No se pudo leer un fragmento descargado.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to combine the downloaded chunks.</source>
        <translation>No se pudieron combinar los fragmentos descargados.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the combined package.</source>
        <translation>No se pudo escribir el paquete combinado.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to finalize the downloaded package.</source>
        <translation>No se pudo completar el paquete descargado.</translation>
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
        <translation>Ubicación de instalación no válida</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Choose a valid installation location.</source>
        <translation>Elija una ubicación de instalación válida.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>La ubicación de instalación no puede contener vínculos de carpeta.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker no se puede instalar en esta ubicación del sistema.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>No se puede identificar el ejecutable de la aplicación existente. No se eliminó ningún archivo anterior.
%1</translation>
    </message>
    <message>
        <location line="+19"/>
        <source>Brisa-Linker is already installed</source>
        <translation>Brisa-Linker ya está instalado</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is already installed in:
%1

Install it in the new location instead? The files in the old location are kept.</source>
        <translation>Brisa-Linker ya está instalado en:
%1

¿Desea instalarlo en la nueva ubicación? Los archivos de la ubicación anterior se conservan.</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Install here</source>
        <translation>Instalar aquí</translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+176"/>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <location line="-148"/>
        <source>Installation in progress</source>
        <translation>Instalación en curso</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Otro instalador está instalando Brisa-Linker en este momento. Puede dejar esta ventana abierta y volver a intentarlo cuando termine.</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Preparing...</source>
        <translation>Preparando...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Preparing download...</source>
        <translation>Preparando la descarga...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Downloading...</source>
        <translation>Descargando...</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Downloading... %1%</source>
        <translation>Descargando... %1%</translation>
    </message>
    <message>
        <location line="+41"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>No se pudo preparar la carpeta temporal de instalación.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Extracting...</source>
        <translation>Extrayendo...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Installing...</source>
        <translation>Instalando...</translation>
    </message>
    <message>
        <location line="+46"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker se está ejecutando</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>Estas aplicaciones están usando los archivos de instalación:
%1

Se cerrarán de inmediato de forma forzada; el trabajo no guardado podría perderse. ¿Desea continuar con la instalación?</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Force-close applications</source>
        <translation>Forzar el cierre</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Closing running applications...</source>
        <translation>Cerrando las aplicaciones en ejecución...</translation>
    </message>
    <message>
        <location line="+18"/>
        <location line="+104"/>
        <source>Installation failed</source>
        <translation>Error de instalación</translation>
    </message>
    <message>
        <location line="-93"/>
        <source>Creating shortcuts...</source>
        <translation>Creando accesos directos...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Installation complete</source>
        <translation>Instalación completada</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Done</source>
        <translation>Listo</translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Earlier installation migrated</source>
        <translation>Instalación anterior migrada</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>No se pudo iniciar Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker se instaló, pero no se pudo iniciar. Puede abrirlo desde el acceso directo del escritorio.</translation>
    </message>
    <message>
        <location line="+98"/>
        <source>Install</source>
        <translation>Instalar</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Exit installation?</source>
        <translation>¿Salir de la instalación?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>¿Seguro que desea salir de la instalación?</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Installation is finishing</source>
        <translation>La instalación está terminando</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>La configuración del sistema ya ha comenzado, por lo que este paso no se puede revertir con seguridad. La ventana se cerrará mientras la instalación termina en segundo plano.</translation>
    </message>
    <message>
        <location line="-71"/>
        <source>Unable to open the link</source>
        <translation>No se puede abrir el enlace</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The link could not be opened. Its address was copied to the clipboard:
%1</source>
        <translation>No se pudo abrir el enlace. Su dirección se copió al portapapeles:
%1</translation>
    </message>
</context>
<context>
    <name>InstallerFinalizer</name>
    <message>
        <location filename="translation_texts.cpp" line="+25"/>
        <source>Unable to close the existing Brisa-Linker processes.</source>
        <translation>No se pudieron cerrar los procesos de Brisa-Linker en ejecución.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>A Brisa-Linker process is still using installation files. Close it and retry.</source>
        <translation>Un proceso de Brisa-Linker sigue usando los archivos de instalación. Ciérrelo y vuelva a intentarlo.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation directory is unsafe.</source>
        <translation>La carpeta de instalación no es segura.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to recover the previous migration.
%1</source>
        <translation>No se pudo recuperar la migración anterior.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation cancelled.</source>
        <translation>Instalación cancelada.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.</source>
        <translation>El paquete de instalación está incompleto o no es compatible. Descargue un instalador actual y vuelva a intentarlo. No se ha reemplazado ningún archivo instalado.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to install the uninstaller.</source>
        <translation>No se pudo instalar el desinstalador.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the OBS path configuration.</source>
        <translation>No se pudo escribir la configuración de la ruta de OBS.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the uninstall data file.</source>
        <translation>No se pudo crear el archivo de datos de desinstalación.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare installation recovery.
%1</source>
        <translation>No se pudo preparar la recuperación de la instalación.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the legacy migration.
%1</source>
        <translation>No se pudo preparar la migración de la instalación anterior.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the installation backup.</source>
        <translation>No se pudo preparar la copia de seguridad de la instalación.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to back up the existing installation.</source>
        <translation>No se pudo hacer una copia de seguridad de la instalación existente.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>No se puede identificar el ejecutable de la aplicación existente. No se ha eliminado ningún archivo antiguo.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Updating existing files...</source>
        <translation>Actualizando los archivos existentes...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to replace installation files.</source>
        <translation>No se pudieron reemplazar los archivos de instalación.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the application URL protocol. Windows error: %1.</source>
        <translation>No se pudo registrar el protocolo URL de la aplicación. Error de Windows: %1.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The application executable is missing after extraction.</source>
        <translation>Falta el ejecutable de la aplicación después de la extracción.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Creando accesos directos...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the desktop shortcut.</source>
        <translation>No se pudo crear el acceso directo del escritorio.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the Start Menu shortcuts.</source>
        <translation>No se pudieron crear los accesos directos del menú Inicio.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Registering application...</source>
        <translation>Registrando la aplicación...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the uninstaller.</source>
        <translation>No se pudo registrar el desinstalador.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finishing installation...</source>
        <translation>Finalizando la instalación...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to commit the legacy migration.
%1</source>
        <translation>No se pudo confirmar la migración de la instalación anterior.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing system maintenance service...</source>
        <translation>Instalando el servicio de mantenimiento del sistema...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring system...</source>
        <translation>Configurando el sistema...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 32-bit virtual camera...</source>
        <translation>Instalando la cámara virtual de 32 bits...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 64-bit virtual camera...</source>
        <translation>Instalando la cámara virtual de 64 bits...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring application...</source>
        <translation>Configurando la aplicación...</translation>
    </message>
</context>
<context>
    <name>InstallerStartup</name>
    <message>
        <location line="-43"/>
        <source>Automatic update was not started. Use Custom to choose the installation location and click Install.</source>
        <translation>La actualización automática no se inició. Use Personalizar para elegir la ubicación de instalación y haga clic en Instalar.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to identify the signed-in desktop user. Open the installer from your Windows desktop.</source>
        <translation>No se pudo identificar al usuario que ha iniciado sesión en el escritorio. Abra el instalador desde su escritorio de Windows.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions.</source>
        <translation>No hay ninguna carpeta de caché o registro del instalador con permiso de escritura. Compruebe los permisos de TEMP y LocalAppData.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose installation location</source>
        <translation>Elija la ubicación de instalación</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator permission is required to install the system maintenance service. Please run the installer as administrator.</source>
        <translation>Se necesita permiso de administrador para instalar el servicio de mantenimiento del sistema. Ejecute el instalador como administrador.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog.</source>
        <translation>La autorización de administrador se canceló o no se completó (error de Windows 1223). Haga clic en Reintentar y elija Sí en el cuadro de permisos de Windows.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Windows could not start the installer with administrator permission. Windows error %1: %2</source>
        <translation>Windows no pudo iniciar el instalador con permiso de administrador. Error de Windows %1: %2</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Click Retry to request administrator permission again, or Cancel to close the installer.</source>
        <translation>Haga clic en Reintentar para volver a solicitar el permiso de administrador o en Cancelar para cerrar el instalador.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>More than one Brisa-Linker installation was found. Select the installation location manually.
%1</source>
        <translation>Se encontró más de una instalación de Brisa-Linker. Seleccione la ubicación de instalación manualmente.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Some recorded installations could not be verified. Select the installation location manually.
%1</source>
        <translation>No se pudieron verificar algunas instalaciones registradas. Seleccione la ubicación de instalación manualmente.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The previous Brisa-Linker installation was not found. Select the installation location manually.</source>
        <translation>No se encontró la instalación anterior de Brisa-Linker. Seleccione la ubicación de instalación manualmente.</translation>
    </message>
</context>
<context>
    <name>LegacyMigration</name>
    <message>
        <location filename="../../src/journal/legacy_migration_cleanup.cpp" line="+148"/>
        <location filename="translation_texts.cpp" line="+75"/>
        <source>Previous OBS/Pellacore files were preserved at:
%1</source>
        <translation>Los archivos anteriores de OBS/Pellacore se conservaron en:
%1</translation>
    </message>
    <message>
        <location line="+14"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Some old files could not be removed and will be retried on the next installation:
%1</source>
        <translation>No se pudieron eliminar algunos archivos antiguos; se volverá a intentar en la próxima instalación:
%1</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+123"/>
        <source>Minimize</source>
        <translation>Minimizar</translation>
    </message>
    <message>
        <location line="-61"/>
        <location line="+65"/>
        <source>Close</source>
        <translation>Cerrar</translation>
    </message>
    <message>
        <location line="-70"/>
        <source>OK</source>
        <translation>Aceptar</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>No</source>
        <translation>No</translation>
    </message>
    <message>
        <location line="+87"/>
        <source>Launch Brisa-Linker when installation is complete</source>
        <translation>Iniciar Brisa-Linker al terminar la instalación</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Custom</source>
        <translation>Personalizar</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>Install location</source>
        <translation>Ubicación de instalación</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Edit the installation location or choose a folder</source>
        <translation>Edite la ubicación de instalación o elija una carpeta</translation>
    </message>
    <message>
        <location line="+3"/>
        <location line="+164"/>
        <source>Install to %1</source>
        <translation>Instalar en %1</translation>
    </message>
    <message>
        <location line="-159"/>
        <source>Browse folders</source>
        <translation>Examinar carpetas</translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+211"/>
        <source>Required: --</source>
        <translation>Necesario: --</translation>
    </message>
    <message>
        <location line="-209"/>
        <location line="+287"/>
        <source>Available: --</source>
        <translation>Disponible: --</translation>
    </message>
    <message>
        <location line="-247"/>
        <source>Preparing download...</source>
        <translation>Preparando la descarga...</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+121"/>
        <source>Install</source>
        <translation>Instalar</translation>
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
        <translation>Ocultar la ubicación de instalación</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Show installation location</source>
        <translation>Mostrar la ubicación de instalación</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Done</source>
        <translation>Listo</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Required: %1</source>
        <translation>Necesario: %1</translation>
    </message>
    <message>
        <location line="+59"/>
        <source>Choose installation location</source>
        <translation>Elija la ubicación de instalación</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Available: %1</source>
        <translation>Disponible: %1</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="-39"/>
        <source>Invalid installation location</source>
        <translation>Ubicación de instalación no válida</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>La ubicación de instalación no puede contener vínculos de carpeta.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker no se puede instalar en esta ubicación del sistema.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose a valid installation location.</source>
        <translation>Elija una ubicación de instalación válida.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>No se puede identificar el ejecutable de la aplicación existente. No se ha eliminado ningún archivo antiguo.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation in progress</source>
        <translation>Instalación en curso</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Otro instalador está instalando Brisa-Linker en este momento. Puede dejar esta ventana abierta y volver a intentarlo cuando termine.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Preparing...</source>
        <translation>Preparando...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>No se pudo preparar la carpeta temporal de instalación.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Extracting...</source>
        <translation>Extrayendo...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing...</source>
        <translation>Instalando...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker se está ejecutando</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>Estas aplicaciones están usando los archivos de instalación:
%1

Se cerrarán de inmediato de forma forzada; es posible que se pierda el trabajo no guardado. ¿Desea continuar con la instalación?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Force-close applications</source>
        <translation>Forzar el cierre</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="-456"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Closing running applications...</source>
        <translation>Cerrando las aplicaciones en ejecución...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation failed</source>
        <translation>Error de instalación</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Creando accesos directos...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading...</source>
        <translation>Descargando...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading... %1%</source>
        <translation>Descargando... %1%</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation complete</source>
        <translation>Instalación completada</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>No se pudo iniciar Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker se instaló, pero no se pudo iniciar. Puede abrirlo desde el acceso directo del escritorio.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download failed</source>
        <translation>Error de descarga</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>No pudimos descargar los archivos necesarios. Vuelva a intentarlo o descargue el paquete completo.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download full package</source>
        <translation>Descargar el paquete completo</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The full package link is unavailable.</source>
        <translation>El enlace al paquete completo no está disponible.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Need help? Contact</source>
        <translation>¿Necesita ayuda? Escriba a</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Retry</source>
        <translation>Reintentar</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Exit installation?</source>
        <translation>¿Salir de la instalación?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>¿Seguro que desea salir de la instalación?</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Yes</source>
        <translation>Sí</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Installation is finishing</source>
        <translation>La instalación está terminando</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>La configuración del sistema ya ha comenzado, por lo que este paso no se puede revertir de forma segura. La ventana se cerrará mientras la instalación termina en segundo plano.</translation>
    </message>
</context>
</TS>
