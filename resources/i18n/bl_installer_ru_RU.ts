<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>ArchiveExtractor</name>
    <message>
        <location filename="../../src/extract/archive_extractor.cpp" line="+134"/>
        <source>Unable to open the downloaded ZIP package.</source>
        <translation>Не удалось открыть загруженный ZIP-пакет.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The downloaded ZIP package is invalid.</source>
        <translation>Загруженный ZIP-пакет повреждён.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The ZIP package contains an unsafe path.</source>
        <translation>ZIP-пакет содержит небезопасный путь.</translation>
    </message>
    <message>
        <location line="+2"/>
        <location line="+23"/>
        <source>There is not enough disk space to install.</source>
        <translation>Недостаточно места на диске для установки.</translation>
    </message>
    <message>
        <location line="-21"/>
        <source>Unable to create the installation directory.</source>
        <translation>Не удалось создать папку установки.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to write an installation file.</source>
        <translation>Не удалось записать файл установки.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to extract the downloaded ZIP package.</source>
        <translation>Не удалось распаковать загруженный ZIP-пакет.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>The bundled Brisa-Linker payload is missing.</source>
        <translation>Встроенный пакет Brisa-Linker отсутствует.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled Brisa-Linker payload is invalid.</source>
        <translation>Встроенный пакет Brisa-Linker повреждён.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled payload contains a directory link.</source>
        <translation>Встроенный пакет содержит ссылку на папку.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Unable to create the bundled payload directory.</source>
        <translation>Не удалось создать папку для встроенного пакета.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to copy the bundled Brisa-Linker payload.</source>
        <translation>Не удалось скопировать встроенный пакет Brisa-Linker.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to prepare the bundled Brisa-Linker payload.</source>
        <translation>Не удалось подготовить встроенный пакет Brisa-Linker.</translation>
    </message>
</context>
<context>
    <name>DownloadFailureDialog</name>
    <message>
        <location filename="../../src/ui/download_failure_dialog.cpp" line="+13"/>
        <location line="+5"/>
        <source>Download failed</source>
        <translation>Ошибка загрузки</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>Не удалось загрузить необходимые файлы. Повторите попытку или скачайте полный пакет.</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Download full package</source>
        <translation>Скачать полный пакет</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The full package link is unavailable.</source>
        <translation>Ссылка на полный пакет недоступна.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Need help? Contact</source>
        <translation>Нужна помощь? Напишите нам:</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Retry</source>
        <translation>Повторить</translation>
    </message>
</context>
<context>
    <name>DownloadManager</name>
    <message>
        <location filename="../../src/download/download_manager.cpp" line="+279"/>
        <source>Unable to download the version manifest: %1</source>
        <translation>Не удалось загрузить описание версии: %1</translation>
    </message>
    <message>
        <location line="+9"/>
        <location line="+286"/>
        <location line="+19"/>
        <source>No download progress was made for 20 seconds.</source>
        <translation>Загрузка не продвигалась 20 секунд.</translation>
    </message>
    <message>
        <location line="-345"/>
        <source>The version manifest is invalid: %1</source>
        <translation>Описание версии недействительно: %1</translation>
    </message>
    <message>
        <location line="-9"/>
        <source>The version manifest does not carry a valid signature of the publisher.</source>
        <translation>Описание версии не содержит действительной подписи издателя.</translation>
    </message>
    <message>
        <location line="+65"/>
        <source>Unable to create the download directory.</source>
        <translation>Не удалось создать папку для загрузки.</translation>
    </message>
    <message>
        <location line="+109"/>
        <source>Unable to write a download chunk.</source>
        <translation>Не удалось записать часть загрузки.</translation>
    </message>
    <message>
        <location line="+63"/>
        <source>The download server does not support ranged requests.</source>
        <translation>Сервер загрузки не поддерживает запросы диапазонов.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>A download chunk failed: %1</source>
        <translation>Не удалось загрузить часть пакета: %1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>A download chunk has an unexpected size.</source>
        <translation>Часть загрузки имеет неожиданный размер.</translation>
    </message>
    <message>
        <location filename="../../src/download/package_assembly.cpp" line="+21"/>
        <source>The combined package failed verification.</source>
        <translation>Собранный пакет не прошёл проверку.</translation>
    </message>
    <message>
        <location line="-4"/>
        <source>Unable to create the combined package.</source>
        <translation>Не удалось создать собранный пакет.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to read a downloaded chunk.</source>
        <translation>Не удалось прочитать загруженную часть.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to combine the downloaded chunks.</source>
        <translation>Не удалось объединить загруженные части.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the combined package.</source>
        <translation>Не удалось записать собранный пакет.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to finalize the downloaded package.</source>
        <translation>Не удалось завершить подготовку загруженного пакета.</translation>
    </message>
</context>
<context>
    <name>InstallationFlow</name>
    <message>
        <location filename="../../src/ui/installation_flow.cpp" line="+143"/>
        <source>%1 MB/s</source>
        <translation>%1 МБ/с</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 KB/s</source>
        <translation>%1 КБ/с</translation>
    </message>
    <message>
        <location line="+33"/>
        <source>Invalid installation location</source>
        <translation>Недопустимое место установки</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Choose a valid installation location.</source>
        <translation>Выберите допустимое место установки.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>Путь установки не может содержать ссылки на папки.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker нельзя установить в эту системную папку.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>Не удалось опознать исполняемый файл установленного приложения. Старые файлы не удалены.
%1</translation>
    </message>
    <message>
        <location line="+19"/>
        <source>Brisa-Linker is already installed</source>
        <translation>Brisa-Linker уже установлен</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is already installed in:
%1

Install it in the new location instead? The files in the old location are kept.</source>
        <translation>Brisa-Linker уже установлен в папке:
%1

Установить его в новое место? Файлы в прежней папке сохранятся.</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Install here</source>
        <translation>Установить сюда</translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+176"/>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <location line="-148"/>
        <source>Installation in progress</source>
        <translation>Идёт установка</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Другой установщик сейчас устанавливает Brisa-Linker. Можно оставить это окно открытым и повторить попытку, когда он закончит.</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Preparing...</source>
        <translation>Подготовка...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Preparing download...</source>
        <translation>Подготовка к загрузке...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Downloading...</source>
        <translation>Загрузка...</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Downloading... %1%</source>
        <translation>Загрузка... %1%</translation>
    </message>
    <message>
        <location line="+41"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>Не удалось подготовить временную папку установки.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Extracting...</source>
        <translation>Распаковка...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Installing...</source>
        <translation>Установка...</translation>
    </message>
    <message>
        <location line="+46"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker запущен</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>Эти приложения используют файлы установки:
%1

Они будут немедленно принудительно закрыты; несохранённые данные могут быть потеряны. Продолжить установку?</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Force-close applications</source>
        <translation>Принудительно закрыть</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Closing running applications...</source>
        <translation>Закрытие запущенных приложений...</translation>
    </message>
    <message>
        <location line="+18"/>
        <location line="+104"/>
        <source>Installation failed</source>
        <translation>Ошибка установки</translation>
    </message>
    <message>
        <location line="-93"/>
        <source>Creating shortcuts...</source>
        <translation>Создание ярлыков...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Installation complete</source>
        <translation>Установка завершена</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Done</source>
        <translation>Готово</translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Earlier installation migrated</source>
        <translation>Прежняя установка перенесена</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Не удалось запустить Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker установлен, но запустить его не удалось. Откройте его с помощью ярлыка на рабочем столе.</translation>
    </message>
    <message>
        <location line="+98"/>
        <source>Install</source>
        <translation>Установить</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Exit installation?</source>
        <translation>Выйти из установки?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>Вы действительно хотите прервать установку?</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Installation is finishing</source>
        <translation>Установка завершается</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>Настройка системы уже началась, поэтому этот шаг нельзя безопасно отменить. Окно закроется, а установка завершится в фоновом режиме.</translation>
    </message>
    <message>
        <location line="-71"/>
        <source>Unable to open the link</source>
        <translation>Не удалось открыть ссылку</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The link could not be opened. Its address was copied to the clipboard:
%1</source>
        <translation>Не удалось открыть ссылку. Её адрес скопирован в буфер обмена:
%1</translation>
    </message>
</context>
<context>
    <name>InstallerFinalizer</name>
    <message>
        <location filename="translation_texts.cpp" line="+25"/>
        <source>Unable to close the existing Brisa-Linker processes.</source>
        <translation>Не удалось закрыть запущенные процессы Brisa-Linker.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>A Brisa-Linker process is still using installation files. Close it and retry.</source>
        <translation>Процесс Brisa-Linker всё ещё использует файлы установки. Закройте его и повторите попытку.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation directory is unsafe.</source>
        <translation>Папка установки небезопасна.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to recover the previous migration.
%1</source>
        <translation>Не удалось восстановить предыдущий перенос.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation cancelled.</source>
        <translation>Установка отменена.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.</source>
        <translation>Пакет установки неполон или несовместим. Скачайте актуальный установщик и повторите попытку. Установленные файлы не были заменены.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to install the uninstaller.</source>
        <translation>Не удалось установить программу удаления.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the OBS path configuration.</source>
        <translation>Не удалось записать настройку пути OBS.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the uninstall data file.</source>
        <translation>Не удалось создать файл данных для удаления.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare installation recovery.
%1</source>
        <translation>Не удалось подготовить восстановление установки.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the legacy migration.
%1</source>
        <translation>Не удалось подготовить перенос старой установки.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the installation backup.</source>
        <translation>Не удалось подготовить резервную копию установки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to back up the existing installation.</source>
        <translation>Не удалось создать резервную копию существующей установки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>Не удаётся определить исполняемый файл установленного приложения. Старые файлы не удалены.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Updating existing files...</source>
        <translation>Обновление существующих файлов...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to replace installation files.</source>
        <translation>Не удалось заменить файлы установки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the application URL protocol. Windows error: %1.</source>
        <translation>Не удалось зарегистрировать URL-протокол приложения. Ошибка Windows: %1.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The application executable is missing after extraction.</source>
        <translation>После распаковки отсутствует исполняемый файл приложения.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Создание ярлыков...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the desktop shortcut.</source>
        <translation>Не удалось создать ярлык на рабочем столе.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the Start Menu shortcuts.</source>
        <translation>Не удалось создать ярлыки в меню «Пуск».</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Registering application...</source>
        <translation>Регистрация приложения...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the uninstaller.</source>
        <translation>Не удалось зарегистрировать программу удаления.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finishing installation...</source>
        <translation>Завершение установки...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to commit the legacy migration.
%1</source>
        <translation>Не удалось завершить перенос старой установки.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing system maintenance service...</source>
        <translation>Установка системной службы обслуживания...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring system...</source>
        <translation>Настройка системы...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 32-bit virtual camera...</source>
        <translation>Установка 32-разрядной виртуальной камеры...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 64-bit virtual camera...</source>
        <translation>Установка 64-разрядной виртуальной камеры...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring application...</source>
        <translation>Настройка приложения...</translation>
    </message>
</context>
<context>
    <name>InstallerStartup</name>
    <message>
        <location line="-43"/>
        <source>Automatic update was not started. Use Custom to choose the installation location and click Install.</source>
        <translation>Автоматическое обновление не запущено. Нажмите «Настроить», выберите папку установки и нажмите «Установить».</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to identify the signed-in desktop user. Open the installer from your Windows desktop.</source>
        <translation>Не удалось определить пользователя, вошедшего в систему. Запустите установщик с рабочего стола Windows.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions.</source>
        <translation>Нет доступной для записи папки кэша и журнала установщика. Проверьте права доступа к TEMP и LocalAppData.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose installation location</source>
        <translation>Выберите папку установки</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator permission is required to install the system maintenance service. Please run the installer as administrator.</source>
        <translation>Для установки системной службы обслуживания нужны права администратора. Запустите установщик от имени администратора.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog.</source>
        <translation>Запрос прав администратора отменён или не завершён (ошибка Windows 1223). Нажмите «Повторить» и выберите «Да» в окне разрешений Windows.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Windows could not start the installer with administrator permission. Windows error %1: %2</source>
        <translation>Windows не удалось запустить установщик с правами администратора. Ошибка Windows %1: %2</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Click Retry to request administrator permission again, or Cancel to close the installer.</source>
        <translation>Нажмите «Повторить», чтобы снова запросить права администратора, или «Отмена», чтобы закрыть установщик.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>More than one Brisa-Linker installation was found. Select the installation location manually.
%1</source>
        <translation>Найдено несколько установок Brisa-Linker. Выберите папку установки вручную.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Some recorded installations could not be verified. Select the installation location manually.
%1</source>
        <translation>Некоторые зарегистрированные установки не удалось проверить. Выберите папку установки вручную.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The previous Brisa-Linker installation was not found. Select the installation location manually.</source>
        <translation>Предыдущая установка Brisa-Linker не найдена. Выберите папку установки вручную.</translation>
    </message>
</context>
<context>
    <name>LegacyMigration</name>
    <message>
        <location filename="../../src/journal/legacy_migration_cleanup.cpp" line="+148"/>
        <location filename="translation_texts.cpp" line="+75"/>
        <source>Previous OBS/Pellacore files were preserved at:
%1</source>
        <translation>Прежние файлы OBS/Pellacore сохранены в папке:
%1</translation>
    </message>
    <message>
        <location line="+14"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Some old files could not be removed and will be retried on the next installation:
%1</source>
        <translation>Некоторые старые файлы не удалось удалить; это будет повторено при следующей установке:
%1</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+123"/>
        <source>Minimize</source>
        <translation>Свернуть</translation>
    </message>
    <message>
        <location line="-61"/>
        <location line="+65"/>
        <source>Close</source>
        <translation>Закрыть</translation>
    </message>
    <message>
        <location line="-70"/>
        <source>OK</source>
        <translation>ОК</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>No</source>
        <translation>Нет</translation>
    </message>
    <message>
        <location line="+87"/>
        <source>Launch Brisa-Linker when installation is complete</source>
        <translation>Запустить Brisa-Linker после установки</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Custom</source>
        <translation>Настроить</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>Install location</source>
        <translation>Папка установки</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Edit the installation location or choose a folder</source>
        <translation>Измените путь установки или выберите папку</translation>
    </message>
    <message>
        <location line="+3"/>
        <location line="+164"/>
        <source>Install to %1</source>
        <translation>Установить в %1</translation>
    </message>
    <message>
        <location line="-159"/>
        <source>Browse folders</source>
        <translation>Обзор папок</translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+211"/>
        <source>Required: --</source>
        <translation>Требуется: --</translation>
    </message>
    <message>
        <location line="-209"/>
        <location line="+287"/>
        <source>Available: --</source>
        <translation>Доступно: --</translation>
    </message>
    <message>
        <location line="-247"/>
        <source>Preparing download...</source>
        <translation>Подготовка загрузки...</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+121"/>
        <source>Install</source>
        <translation>Установить</translation>
    </message>
    <message>
        <location line="-96"/>
        <source>%1 MB</source>
        <translation>%1 МБ</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 GB</source>
        <translation>%1 ГБ</translation>
    </message>
    <message>
        <location line="+84"/>
        <source>Hide installation location</source>
        <translation>Скрыть папку установки</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Show installation location</source>
        <translation>Показать папку установки</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Done</source>
        <translation>Готово</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Required: %1</source>
        <translation>Требуется: %1</translation>
    </message>
    <message>
        <location line="+59"/>
        <source>Choose installation location</source>
        <translation>Выберите папку установки</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Available: %1</source>
        <translation>Доступно: %1</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="-39"/>
        <source>Invalid installation location</source>
        <translation>Недопустимая папка установки</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>Путь установки не может содержать ссылки на папки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker нельзя установить в эту системную папку.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose a valid installation location.</source>
        <translation>Выберите допустимую папку установки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>Не удаётся определить исполняемый файл установленного приложения. Старые файлы не удалены.
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation in progress</source>
        <translation>Идёт установка</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>Другой установщик сейчас устанавливает Brisa-Linker. Можно оставить это окно открытым и повторить попытку, когда он закончит.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Preparing...</source>
        <translation>Подготовка...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>Не удалось подготовить временную папку установки.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Extracting...</source>
        <translation>Распаковка...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing...</source>
        <translation>Установка...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker запущен</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>Эти приложения используют файлы установки:
%1

Они будут немедленно принудительно закрыты; несохранённые данные могут быть потеряны. Продолжить установку?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Force-close applications</source>
        <translation>Закрыть приложения</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="-456"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Closing running applications...</source>
        <translation>Закрытие запущенных приложений...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation failed</source>
        <translation>Сбой установки</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>Создание ярлыков...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading...</source>
        <translation>Загрузка...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading... %1%</source>
        <translation>Загрузка... %1%</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation complete</source>
        <translation>Установка завершена</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Не удалось запустить Brisa-Linker</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker установлен, но запустить его не удалось. Его можно открыть с помощью ярлыка на рабочем столе.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download failed</source>
        <translation>Сбой загрузки</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>Не удалось загрузить необходимые файлы. Повторите попытку или скачайте полный пакет.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download full package</source>
        <translation>Скачать полный пакет</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The full package link is unavailable.</source>
        <translation>Ссылка на полный пакет недоступна.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Need help? Contact</source>
        <translation>Нужна помощь? Напишите нам:</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Retry</source>
        <translation>Повторить</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Exit installation?</source>
        <translation>Выйти из установки?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>Вы действительно хотите прервать установку?</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Yes</source>
        <translation>Да</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Installation is finishing</source>
        <translation>Установка завершается</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>Настройка системы уже началась, поэтому этот шаг нельзя безопасно отменить. Окно закроется, а установка завершится в фоновом режиме.</translation>
    </message>
</context>
</TS>
