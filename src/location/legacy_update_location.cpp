#include "location/legacy_update_location.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>

namespace LegacyUpdateLocation {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerStartup", text);
}

// The directory a registration records, from "InstallDir", "InstallLocation" or the directory of
// the program named by "UninstallString".
QString recordedDirectory(const Registration &registration)
{
    const QSettings settings(registration.path, registration.format);
    for (const char *name : { "InstallDir", "InstallLocation" }) {
        const QString value = settings.value(QString::fromLatin1(name)).toString().trimmed();
        if (!value.isEmpty())
            return InstallationLocation::normalized(value);
    }
    const QString program = uninstallProgram(settings.value(QStringLiteral("UninstallString")).toString());
    return program.isEmpty() ? QString() : InstallationLocation::parentOf(program);
}

// Whether an update may install from this installation into its target, however the installation
// was found: the pair passes validSourceTarget, and a target that exists already is a real
// directory of the installation's own, never a link the update would write through.
bool targetVerified(const QString &installation)
{
    const QString target = InstallationLocation::applicationTarget(installation);
    if (target.isEmpty() || !validSourceTarget(installation, target) || !InstallationLocation::hasNoDirectoryLinks(target))
        return false;
    if (!FileLinks::exists(target))
        return true;
    if (FileLinks::isLink(target) || !QFileInfo(target).isDir())
        return false;
    return InstallationLocation::same(target, installation)
        || InstallationLocation::same(InstallationLocation::parentOf(target), installation);
}

bool candidateCounts(const QString &candidate)
{
    const QString launcher = candidate + QStringLiteral("/brisalinker.exe");
    if (!QFileInfo::exists(launcher) || FileLinks::isLink(launcher))
        return false;
    return targetVerified(candidate)
        && InstallationIdentity::installation(candidate).kind == InstallationIdentity::ValidExecutable;
}

} // namespace

QString uninstallProgram(const QString &uninstallString)
{
    static const QRegularExpression command(QStringLiteral("^\\s*(?:\"([^\"]+)\"|(.+?\\.exe))(?:\\s|$)"),
                                            QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = command.match(uninstallString);
    if (!match.hasMatch())
        return {};
    return InstallationLocation::normalized(match.captured(1).isEmpty() ? match.captured(2) : match.captured(1));
}

QList<Registration> registrations()
{
    const QString uninstall = QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\");
    QList<Registration> list;
#ifdef Q_OS_WIN
    // The earlier installer was a 32-bit program, whose machine entries normally land in the
    // 32-bit view; built for 64-bit install mode it wrote the 64-bit view. Both are read; the
    // same directory found twice counts once. Our own entries are written by this 64-bit program
    // in the 64-bit view. Per-user "Software" is one view for both, so the 64-bit view serves.
    const QList<QSettings::Format> legacyViews { QSettings::Registry32Format, QSettings::Registry64Format };
    const QSettings::Format ownView = QSettings::Registry64Format;
#else
    const QList<QSettings::Format> legacyViews { QSettings::NativeFormat };
    const QSettings::Format ownView = QSettings::NativeFormat;
#endif
    const auto group = [&](const QString &root, const QList<QSettings::Format> &views) {
        for (const QSettings::Format view : views)
            list << Registration { root + QStringLiteral("\\Software\\BrisaLinker"), view };
        for (const QSettings::Format view : views)
            list << Registration { root + uninstall + QStringLiteral("Brisa-Linker_is1"), view };
        list << Registration { root + uninstall + QStringLiteral("BrisaLinker"), ownView };
    };
    group(QStringLiteral("HKEY_LOCAL_MACHINE"), legacyViews);
    list << Registration { QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer"), ownView };
    const QString sid = DesktopUser::sid();
    if (!sid.isEmpty())
        group(QStringLiteral("HKEY_USERS\\") + sid, { ownView });
    return list;
}

QString fromCaller(const QString &callerExecutable)
{
    // The caller must be the "updater.exe" of an installation of ours.
    const QString caller = InstallationLocation::normalized(callerExecutable);
    if (caller.isEmpty() || QFileInfo(caller).fileName().compare(QLatin1String("updater.exe"), Qt::CaseInsensitive) != 0
        || FileLinks::isLink(caller) || !QFileInfo(caller).isFile()) {
        return {};
    }
    const QString directory = InstallationLocation::parentOf(caller);
    if (!InstallationLocation::isAbsoluteNonRootDirectory(directory) || !InstallationLocation::hasNoDirectoryLinks(directory))
        return {};
    // The same checks as for an installation found in the records: an elevated start takes this
    // answer as it is, without the re-launch that would verify it again.
    if (!targetVerified(directory))
        return {};
    switch (InstallationIdentity::installation(directory).kind) {
    case InstallationIdentity::ValidExecutable:
        return directory; // the earlier layout moves into a directory of our name inside it
    case InstallationIdentity::Launcher:
        // Ours is updated where it is; in a directory of another name it would silently become
        // a new installation in a subdirectory.
        return InstallationLocation::isApplicationDirectory(directory) ? directory : QString();
    default:
        return {};
    }
}

bool validSourceTarget(const QString &source, const QString &target)
{
    if (!InstallationLocation::isAbsoluteNonRootDirectory(source) || !InstallationLocation::isAbsoluteNonRootDirectory(target)
        || InstallationLocation::insideWindowsDirectory(source) || InstallationLocation::insideWindowsDirectory(target)) {
        return false;
    }
    // A target already being migrated from another source must not be taken over.
    // A record that cannot be read blocks the directory, as it blocks every other step.
    const QString path = InstallationLocation::normalized(target) + QStringLiteral("/.legacy-migration.json");
    if (!FileLinks::exists(path))
        return true;
    QFile record(path);
    if (FileLinks::isLink(path) || !QFileInfo(path).isFile() || record.size() > 33554432 || !record.open(QIODevice::ReadOnly))
        return false;
    QJsonParseError parse;
    const QJsonDocument document = QJsonDocument::fromJson(record.readAll(), &parse);
    if (parse.error != QJsonParseError::NoError || !document.isObject())
        return false;
    return InstallationLocation::same(document.object().value(QStringLiteral("sourceRoot")).toString(), source);
}

Result discover(const QString &callerExecutable, const QString &chosenDirectory, const QList<Registration> &registrations)
{
    Q_UNUSED(chosenDirectory);
    Result result;
    // An installation updating itself runs the installer from its own ".downloads" directory.
    const QString self = QCoreApplication::applicationFilePath();
    const QString selfDirectory = InstallationLocation::parentOf(InstallationLocation::normalized(self));
    if (!FileLinks::isLink(self) && QFileInfo(self).isFile()
        && QFileInfo(selfDirectory).fileName().compare(QLatin1String(".downloads"), Qt::CaseInsensitive) == 0) {
        const QString installation = InstallationLocation::parentOf(selfDirectory);
        if (InstallationLocation::existingApplicationDirectory(installation)) {
            result.source = installation;
            result.target = InstallationLocation::applicationTarget(installation);
            return result;
        }
    }

    QStringList recorded;
    const QString fromUpdater = InstallationLocation::normalized(InstallationLocation::legacySourceLocation(callerExecutable));
    if (!fromUpdater.isEmpty())
        recorded << fromUpdater;
    for (const Registration &registration : registrations) {
        const QString directory = recordedDirectory(registration);
        if (!directory.isEmpty())
            recorded << directory;
    }

    QStringList candidates;
    QStringList unverified;
    const auto listed = [](const QStringList &list, const QString &path) {
        return std::any_of(list.cbegin(), list.cend(), [&](const QString &item) { return InstallationLocation::same(item, path); });
    };
    for (const QString &directory : std::as_const(recorded)) {
        if (candidateCounts(directory)) {
            if (!listed(candidates, directory))
                candidates << directory;
        } else if (!listed(unverified, directory)) {
            unverified << directory;
        }
    }
    if (candidates.size() == 1) {
        result.source = candidates.first();
        result.target = InstallationLocation::applicationTarget(result.source);
    } else if (candidates.size() > 1) {
        result.message = tr("More than one Brisa-Linker installation was found. Select the installation location manually.\n%1")
                             .arg(QDir::toNativeSeparators(candidates.join(QLatin1Char('\n'))));
    } else if (!unverified.isEmpty()) {
        result.message = tr("Some recorded installations could not be verified. Select the installation location manually.\n%1")
                             .arg(QDir::toNativeSeparators(unverified.join(QLatin1Char('\n'))));
    } else {
        result.message = tr("The previous Brisa-Linker installation was not found. Select the installation location manually.");
    }
    return result;
}

} // namespace LegacyUpdateLocation
