#include "app/startup.h"
#include "app/app_paths.h"
#include "app/installer_logger.h"
#include "app/startup_platform.h"
#include "download/download_endpoint.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"
#include "system/desktop_user.h"
#include "ui/installation_flow.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QLocale>
#include <QMessageBox>
#include <QPalette>
#include <QTranslator>

namespace Startup {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerStartup", text);
}

QString boxTitle()
{
    return QStringLiteral("Brisa-Linker Installer");
}

void critical(const QString &text)
{
    QMessageBox::critical(nullptr, boxTitle(), text, QMessageBox::Ok);
}

void installStyleSheet(QApplication &application)
{
    QFile styles(QStringLiteral(":/styles/app.qss"));
    if (styles.open(QIODevice::ReadOnly | QIODevice::Text))
        application.setStyleSheet(QString::fromUtf8(styles.readAll()));
}

void installTranslation(QApplication &application)
{
    auto *translator = new QTranslator(&application);
    if (translator->load(QStringLiteral(":/i18n/%1.qm").arg(translationName(QLocale::system()))))
        QCoreApplication::installTranslator(translator);
    else
        delete translator;
}

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

} // namespace

void applyLook(QApplication &application)
{
    // Qt 6.4 has no colour-scheme setter on the style hints; the explicit light palette below is
    // what keeps the installer light in a dark Windows theme.
    QPalette palette;
    const auto set = [&palette](QPalette::ColorRole role, const QColor &color) {
        palette.setColor(QPalette::All, role, color);
    };
    set(QPalette::Window, QColor(0xff, 0xff, 0xff));
    set(QPalette::WindowText, QColor(0x18, 0x18, 0x1b));
    set(QPalette::Base, QColor(0xff, 0xff, 0xff));
    set(QPalette::AlternateBase, QColor(0xf4, 0xf4, 0xf5));
    set(QPalette::Text, QColor(0x18, 0x18, 0x1b));
    set(QPalette::Button, QColor(0xf4, 0xf4, 0xf5));
    set(QPalette::ButtonText, QColor(0x18, 0x18, 0x1b));
    set(QPalette::ToolTipBase, QColor(0xff, 0xff, 0xff));
    set(QPalette::ToolTipText, QColor(0x18, 0x18, 0x1b));
    set(QPalette::Highlight, QColor(0x25, 0x63, 0xeb));
    set(QPalette::HighlightedText, Qt::white);
    set(QPalette::Link, QColor(0x25, 0x63, 0xeb));
    set(QPalette::LinkVisited, QColor(0x7c, 0x3a, 0xed));
    set(QPalette::PlaceholderText, QColor(0x71, 0x71, 0x7a));
    set(QPalette::Light, Qt::white);
    set(QPalette::Midlight, QColor(0xf4, 0xf4, 0xf5));
    set(QPalette::Mid, QColor(0xd4, 0xd4, 0xd8));
    set(QPalette::Dark, QColor(0x71, 0x71, 0x7a));
    set(QPalette::Shadow, QColor(0x3f, 0x3f, 0x46));
    set(QPalette::BrightText, Qt::white);
    const QColor disabledText(0x71, 0x71, 0x7a);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, disabledText);
    palette.setColor(QPalette::Disabled, QPalette::Text, disabledText);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, disabledText);
    QApplication::setPalette(palette);

    QCoreApplication::setApplicationName(QStringLiteral("Brisa-Linker Installer"));
    QCoreApplication::setOrganizationName(QStringLiteral("ORLANDA FIELDWORKS INC"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("brisalinker.com"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/brisa-linker-installer-icon.png")));
    Q_UNUSED(application);
}

QString translationName(const QLocale &locale)
{
    switch (locale.language()) {
    case QLocale::Russian:
        return QStringLiteral("bl_installer_ru_RU");
    case QLocale::Spanish:
        return QStringLiteral("bl_installer_es_ES");
    case QLocale::Japanese:
        return QStringLiteral("bl_installer_ja_JP");
    default:
        return QStringLiteral("bl_installer_en_US");
    }
}

int resourceSelfCheck(const QStringList &arguments)
{
    QFile icon(QStringLiteral(":/images/brisa-linker-installer-icon.png"));
    if (!icon.open(QIODevice::ReadOnly))
        return 2;
    for (int slide = 1; slide <= 3; ++slide) {
        if (QImage(QStringLiteral(":/images/installer-banner-%1.jpg").arg(slide)).isNull())
            return 2;
    }
    if (QImage(QStringLiteral(":/images/launch-checked.svg")).isNull())
        return 2;
    return InstallerLaunch::parse(arguments).errorText.isEmpty() ? 0 : 3;
}

int run(QApplication &application)
{
    applyLook(application);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.contains(QStringLiteral("--bootstrapper-smoke")))
        return resourceSelfCheck(arguments);
    installStyleSheet(application);
    installTranslation(application);

    const QList<LegacyUpdateLocation::Registration> registrations = LegacyUpdateLocation::registrations();
    const QString applicationRoot = AppPaths::applicationRoot();

    InstallerLaunch::Options options = InstallerLaunch::parse(arguments);
    if (!options.errorText.isEmpty()) {
        InstallerLogger::write(QStringLiteral("Invalid installation arguments: %1").arg(options.errorText));
        critical(options.errorText);
        return 2;
    }

    QString notice;
    QString source;
    if (options.manualFallback) {
        notice = tr("Automatic update was not started. Use Custom to choose the installation location and click Install.");
    } else if (options.update) {
        options.automaticUpdate = true;
        source = QStringLiteral("explicit_update");
    } else if (options.silent) {
        const QString caller = LegacyUpdateLocation::fromCaller(options.legacyCallerExe);
        if (!caller.isEmpty()) {
            options.installDirectory = InstallationLocation::applicationTarget(caller);
            options.legacySourceDirectory = InstallationLocation::normalized(caller);
            options.update = options.automaticUpdate = true;
            source = QStringLiteral("legacy_updater_caller");
        } else {
            source = QStringLiteral("installation_records");
            const LegacyUpdateLocation::Result found =
                LegacyUpdateLocation::discover(options.legacyCallerExe, applicationRoot, registrations);
            if (!found.target.isEmpty()) {
                options.installDirectory = InstallationLocation::normalized(found.target);
                options.legacySourceDirectory = InstallationLocation::normalized(found.source);
                options.update = options.automaticUpdate = true;
            } else {
                options.manualFallback = true;
                notice = found.message;
            }
        }
    } else {
        // A user's own start offers to move an installation of the earlier layout, when exactly one
        // is found; anything less certain leaves the usual default.
        const QString earlier = LegacyUpdateLocation::discover(QString(), applicationRoot, registrations).source;
        if (!earlier.isEmpty() && InstallationIdentity::installation(earlier).kind == InstallationIdentity::ValidExecutable)
            options.legacySourceDirectory = InstallationLocation::normalized(earlier);
    }

    if (!notice.isEmpty())
        InstallerLogger::write(notice);
    if (!options.silent && (options.update || options.manualFallback)) {
        InstallerLogger::write(QStringLiteral("Installer update request: target=%1; automatic=%2; manual_fallback=%3")
                                   .arg(options.installDirectory, flag(options.automaticUpdate),
                                        flag(options.manualFallback)));
    }
    if (options.silent) {
        InstallerLogger::write(QStringLiteral("Legacy update source: %1; caller=%2; target=%3; automatic=%4")
                                   .arg(source, options.legacyCallerExe, options.installDirectory,
                                        flag(options.automaticUpdate)));
    }

    const int elevation = ensureInstallerElevation(options, arguments);
    if (elevation != -1)
        return elevation;

    if (!StartupPlatform::acquireDesktopToken()) {
        critical(tr("Unable to identify the signed-in desktop user. Open the installer from your Windows desktop."));
        return 1;
    }

    const QString tempRoot = AppPaths::installerTempRoot();
    const QString logRoot = AppPaths::installerLogRoot();
    if (applicationRoot.isEmpty() || tempRoot.isEmpty() || logRoot.isEmpty() || !AppPaths::usableDirectory(logRoot)) {
        critical(tr("No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions."));
        return 1;
    }
    InstallerLogger::write(QStringLiteral("Desktop user=%1 default_root=%2 cache=%3 log=%4")
                               .arg(DesktopUser::sid(), applicationRoot, tempRoot, logRoot));

    InstallationFlow::Settings settings;
    settings.manifestUrl = DownloadEndpoint::manifestUrl();
    settings.sslConfiguration = DownloadEndpoint::sslConfiguration();
    settings.temporaryRoot = tempRoot;
    settings.applicationRoot = applicationRoot;
#ifdef BRISA_DEV_ENDPOINT
    // Only test and demo builds take a payload from disk: in a release build nobody can slip
    // files into an elevated installation by placing them where the installer looks.
    settings.bundledPayload = qEnvironmentVariable("BRISA_DEV_BUNDLED_PAYLOAD");
#endif

    MainWindow window(options);
    // The flow decides when the application ends: a closed window may still be finishing or
    // cleaning up in the background.
    application.setQuitOnLastWindowClosed(false);
    auto *flow = new InstallationFlow(&window, options, settings);
    QObject::connect(flow, &InstallationFlow::quitRequested, &application, &QCoreApplication::quit,
                     Qt::QueuedConnection);
    window.show();
    StartupPlatform::showNormal(&window);
    if (!notice.isEmpty()) {
        QMessageBox::information(&window, tr("Choose installation location"), notice, QMessageBox::Ok);
    }
    return application.exec();
}

} // namespace Startup
