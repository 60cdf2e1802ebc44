#include "location/installation_location.h"
#include "location/installation_identity.h"
#include "system/desktop_user.h"
#include "system/file_links.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace InstallationLocation {

namespace {

const QString applicationName = QStringLiteral("BrisaLinker");
const QByteArray uninstallMagic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1");

QString lastComponent(const QString &normalizedPath)
{
    return normalizedPath.section(QLatin1Char('/'), -1);
}

bool isDriveRoot(const QString &path)
{
    return path.size() == 3 && path.at(0).isLetter() && path.at(1) == QLatin1Char(':') && path.at(2) == QLatin1Char('/');
}

// "//server/share" and everything shorter under "//" is a share root.
bool isShareRoot(const QString &path)
{
    if (!path.startsWith(QLatin1String("//")))
        return false;
    return path.mid(2).split(QLatin1Char('/'), Qt::SkipEmptyParts).size() <= 2;
}

bool regularFileWithoutLink(const QString &path)
{
    return !FileLinks::isLink(path) && QFileInfo(path).isFile();
}

QString nativePath(const QString &normalizedPath)
{
    return QDir::toNativeSeparators(normalizedPath);
}

} // namespace

QString normalized(const QString &path)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty())
        return {};
    QString slashed = QString(trimmed).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const bool share = slashed.startsWith(QLatin1String("//"));
    QString clean = QDir::cleanPath(slashed);
    // cleanPath keeps a leading "//" for shares on Windows only; keep it everywhere, these are
    // Windows paths.
    if (share && !clean.startsWith(QLatin1String("//")))
        clean.prepend(QLatin1Char('/'));
    // Likewise a drive root keeps its slash: "C:" alone means the drive's current directory.
    if (clean.size() == 2 && clean.at(1) == QLatin1Char(':') && slashed.startsWith(clean + QLatin1Char('/')))
        clean.append(QLatin1Char('/'));
    return clean;
}

bool same(const QString &a, const QString &b)
{
    const QString left = normalized(a);
    const QString right = normalized(b);
    return !left.isEmpty() && !right.isEmpty() && left.compare(right, Qt::CaseInsensitive) == 0;
}

QString parentOf(const QString &path)
{
    const QString clean = normalized(path);
    const qsizetype slash = clean.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return {};
    if (slash == 2 && clean.at(1) == QLatin1Char(':'))
        return clean.left(3);
    if (slash == 0)
        return QStringLiteral("/");
    return clean.left(slash);
}

QString windowsDirectory()
{
    return normalized(qEnvironmentVariable("WINDIR"));
}

bool insideWindowsDirectory(const QString &path)
{
    const QString windows = windowsDirectory();
    const QString clean = normalized(path);
    return !windows.isEmpty() && !clean.isEmpty()
        && (clean.compare(windows, Qt::CaseInsensitive) == 0 || clean.startsWith(windows + QLatin1Char('/'), Qt::CaseInsensitive));
}

bool isAbsoluteNonRootDirectory(const QString &path)
{
    const QString clean = normalized(path);
    if (clean.isEmpty())
        return false;
    const bool drivePath = clean.size() > 2 && clean.at(0).isLetter() && clean.at(1) == QLatin1Char(':') && clean.at(2) == QLatin1Char('/');
    const bool sharePath = clean.startsWith(QLatin1String("//"));
#ifndef Q_OS_WIN
    // Host builds run the portable journal and install logic on their own file system, where
    // "/dir/BrisaLinker" plays the part of a drive path.
    if (!sharePath && clean.startsWith(QLatin1Char('/')))
        return clean.size() > 1;
#endif
    if (!drivePath && !sharePath)
        return false;
    return !isDriveRoot(clean) && !isShareRoot(clean);
}

bool isApplicationDirectory(const QString &path)
{
    return isAbsoluteNonRootDirectory(path) && lastComponent(normalized(path)).compare(applicationName, Qt::CaseInsensitive) == 0;
}

bool hasNoDirectoryLinks(const QString &path)
{
    if (!isAbsoluteNonRootDirectory(path))
        return false;
    QString current = normalized(path);
    while (!current.isEmpty()) {
        if (FileLinks::isLink(current))
            return false;
        const QFileInfo info(current);
        if (info.exists() && !info.isDir())
            return false;
        // A share root is where the walk ends: "//server" is no directory to ask about.
        if (isShareRoot(current))
            break;
        const QString parent = parentOf(current);
        if (parent.isEmpty() || parent.compare(current, Qt::CaseInsensitive) == 0)
            break;
        current = parent;
    }
    return true;
}

bool existingApplicationDirectory(const QString &path)
{
    if (!isApplicationDirectory(path) || !hasNoDirectoryLinks(path))
        return false;
    const QDir directory(normalized(path));
    for (const char *marker : { "brisalinker.exe", "updater.exe", "uninstall.exe", "uninstall.dat" }) {
        if (!regularFileWithoutLink(directory.filePath(QString::fromLatin1(marker))))
            return false;
    }
    QFile data(directory.filePath(QStringLiteral("uninstall.dat")));
    if (!data.open(QIODevice::ReadOnly))
        return false;
    return data.readLine(4096).trimmed() == uninstallMagic;
}

QString applicationTarget(const QString &chosenDirectory)
{
    const QString clean = normalized(chosenDirectory);
    if (!isAbsoluteNonRootDirectory(clean))
        return {};
    if (isApplicationDirectory(clean))
        return clean;
    return clean + QLatin1Char('/') + applicationName;
}

QStringList registrationKeys()
{
    QStringList keys;
    const QString user = DesktopUser::uninstallKey();
    if (!user.isEmpty())
        keys << user;
    keys << QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
    return keys;
}

QString registeredLocation(const QStringList &keys, QSettings::Format format)
{
    for (const QString &key : keys) {
        const QSettings settings(key, format);
        const QString location = normalized(settings.value(QStringLiteral("InstallLocation")).toString());
        if (!location.isEmpty() && QFileInfo::exists(location))
            return nativePath(location);
    }
    return {};
}

bool rememberSuccessfulLocation(const QString &location, const QString &key, QSettings::Format format)
{
    if (!existingApplicationDirectory(location))
        return false;
    QSettings settings(key, format);
    settings.setValue(QStringLiteral("InstallLocation"), nativePath(normalized(location)));
    settings.setValue(QStringLiteral("InstalledAtUtc"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    settings.sync();
    return settings.status() == QSettings::NoError;
}

bool mayRetireMachineEntry(const QString &machineEntryLocation, const QString &otherLocation, const QString &root)
{
    const QString entry = normalized(machineEntryLocation);
    if (entry.compare(normalized(otherLocation), Qt::CaseInsensitive) == 0)
        return true;
    return same(machineEntryLocation, root);
}

QString legacySourceLocation(const QString &updaterExecutable)
{
    const QString path = normalized(updaterExecutable);
    if (!isAbsoluteNonRootDirectory(path) || !regularFileWithoutLink(path)
        || lastComponent(path).compare(QLatin1String("bl-wails-updater.exe"), Qt::CaseInsensitive) != 0) {
        return {};
    }
    // The legacy updater lives in (a subdirectory of) the installation it updates: climb through
    // real directories until one holds a valid product executable. In a directory of our own
    // name the updater, not the launcher, speaks for the installation the old updater serves.
    QString candidate = parentOf(path);
    for (int depth = 0; depth < 4 && isAbsoluteNonRootDirectory(candidate); ++depth) {
        if (!hasNoDirectoryLinks(candidate) || !QFileInfo(candidate).isDir())
            return {};
        const QString program = isApplicationDirectory(candidate) ? QStringLiteral("/updater.exe") : QStringLiteral("/brisalinker.exe");
        const int kind = InstallationIdentity::executable(candidate + program).kind;
        if (kind == InstallationIdentity::ValidExecutable || kind == InstallationIdentity::Launcher)
            return nativePath(candidate);
        candidate = parentOf(candidate);
    }
    return {};
}

bool automaticUpdateDirectory(const QString &path)
{
    const QString clean = normalized(path);
    if (!isAbsoluteNonRootDirectory(clean))
        return false;
    if (insideWindowsDirectory(clean) || same(clean, QDir::homePath()))
        return false;
    if (existingApplicationDirectory(clean))
        return false;
    if (InstallationIdentity::installation(clean).kind != InstallationIdentity::Launcher)
        return false;
    const QString versionFile = clean + QStringLiteral("/cfgdata/version.ini");
    if (!regularFileWithoutLink(versionFile) || !hasNoDirectoryLinks(clean + QStringLiteral("/cfgdata")))
        return false;
    QFile file(versionFile);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    file.close();
    const QSettings ini(versionFile, QSettings::IniFormat);
    if (ini.status() != QSettings::NoError)
        return false;
    const QString version = ini.value(QStringLiteral("release/version")).toString();
    static const QRegularExpression pattern(QStringLiteral("^[0-9]+(?:\\.[0-9]+)+$"));
    if (!pattern.match(version).hasMatch())
        return false;
    const QString core = clean + QLatin1Char('/') + version + QStringLiteral("/bl-core.exe");
    return regularFileWithoutLink(core) && hasNoDirectoryLinks(clean + QLatin1Char('/') + version);
}

} // namespace InstallationLocation
