<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es_ES">
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
    <name>MainWindow</name>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+127"/>
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
        <location line="+159"/>
        <source>Install to %1</source>
        <translation>Instalar en %1</translation>
    </message>
    <message>
        <location line="-154"/>
        <source>Browse folders</source>
        <translation>Examinar carpetas</translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+206"/>
        <source>Required: --</source>
        <translation>Necesario: --</translation>
    </message>
    <message>
        <location line="-204"/>
        <location line="+282"/>
        <source>Available: --</source>
        <translation>Disponible: --</translation>
    </message>
    <message>
        <location line="-242"/>
        <source>Preparing download...</source>
        <translation>Preparando la descarga...</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+116"/>
        <source>Install</source>
        <translation>Instalar</translation>
    </message>
    <message>
        <location line="-91"/>
        <source>%1 MB</source>
        <translation>%1 MB</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 GB</source>
        <translation>%1 GB</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>%1 MB/s</source>
        <translation>%1 MB/s</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 KB/s</source>
        <translation>%1 KB/s</translation>
    </message>
    <message>
        <location line="+70"/>
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
        <location filename="translation_texts.cpp" line="+37"/>
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
        <location filename="../../src/ui/main_window.cpp" line="-451"/>
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
