#include "finalize/installation_processes.h"
#include "finalize/installation_processes_platform.h"
#include "app/installer_logger.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QThread>

#include <algorithm>

namespace InstallationProcesses {

namespace {

using Platform = InstallationProcessesPlatform::LockState;

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerFinalizer", text);
}

// Backslashes are separators here on every platform: these are Windows paths.
QString slashed(const QString &path)
{
    return QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
}

QString joined(const QString &root, const QString &relative)
{
    return QDir::cleanPath(slashed(root) + QLatin1Char('/') + relative);
}

// The path relative to root with "/" separators, or empty when it is not under root.
QString relativeTo(const QString &path, const QString &root)
{
    if (root.trimmed().isEmpty())
        return {};
    const QString base = QDir::cleanPath(slashed(root)) + QLatin1Char('/');
    const QString clean = QDir::cleanPath(slashed(path));
    if (!clean.startsWith(base, Qt::CaseInsensitive))
        return {};
    return clean.mid(base.size());
}

bool stopWithRetries(const QString &path, const QDeadlineTimer &deadline)
{
    // Nothing to stop means nothing to wait for.
    if (!InstallationProcessesPlatform::isProcessRunningAtPath(path))
        return true;
    int delay = 250;
    for (int attempt = 1; attempt <= 3; ++attempt) {
        InstallationProcessesPlatform::forceStopAttempt(path, attempt, deadline);
        if (!InstallationProcessesPlatform::isProcessRunningAtPath(path))
            return true;
        if (attempt < 3 && !deadline.hasExpired()) {
            QThread::msleep(quint64(std::min<qint64>(deadline.remainingTime(), delay)));
            delay += 250;
        }
    }
    if (InstallationProcessesPlatform::isProcessRunningAtPath(path)) {
        InstallerLogger::write(QStringLiteral("Installed process remained after three force-stop attempts: %1").arg(path));
        return false;
    }
    return true;
}

bool waitUntilUnlocked(const QString &path, const QDeadlineTimer &deadline)
{
    for (int probe = 1; probe <= 4; ++probe) {
        const Platform state = InstallationProcessesPlatform::lockState(path);
        if (state != Platform::Locked || deadline.hasExpired())
            break;
        InstallerLogger::write(QStringLiteral("Installation file is still locked; retry=%1 path=%2").arg(probe).arg(path));
        QThread::msleep(200);
    }
    return InstallationProcessesPlatform::lockState(path) != Platform::Locked;
}

} // namespace

QString normalizedWindowsPath(const QString &path)
{
    return QDir::cleanPath(slashed(path)).replace(QLatin1Char('/'), QLatin1Char('\\')).toLower();
}

QStringList productExecutablePaths(const QString &root, bool includeRunning)
{
    static const QStringList components { QStringLiteral("Pellacore/Pellacore.exe"),
                                          QStringLiteral("OBS-Studio/bin/64bit/Brisa-Linker Streamer64.exe") };
    QStringList paths { joined(root, QStringLiteral("brisalinker.exe")), joined(root, QStringLiteral("updater.exe")) };
    for (const QString &component : components)
        paths << joined(root, component);
    static const QRegularExpression version(QStringLiteral("^[0-9]+(?:\\.[0-9]+)+$"));
    const QStringList directories = QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Unsorted);
    for (const QString &name : directories) {
        if (!version.match(name).hasMatch())
            continue;
        paths << joined(root, name + QStringLiteral("/bl-core.exe"));
        for (const QString &component : components)
            paths << joined(root, name + QLatin1Char('/') + component);
    }
    if (includeRunning)
        paths << InstallationProcessesPlatform::runningImagesUnder(root);
    return paths;
}

QStringList installationExecutablePaths(const QString &installDirectory, const QString &otherRoot, bool includeRunning)
{
    QStringList candidates = productExecutablePaths(installDirectory, includeRunning);
    if (!otherRoot.trimmed().isEmpty())
        candidates << productExecutablePaths(otherRoot, includeRunning);
    QStringList unique;
    QSet<QString> seen;
    for (const QString &path : std::as_const(candidates)) {
        const QString key = normalizedWindowsPath(path);
        if (!seen.contains(key)) {
            seen.insert(key);
            unique << path;
        }
    }
    return unique;
}

bool isRequired(const QString &path, const QString &installDirectory, const QString &otherRoot)
{
    const QString relative = relativeTo(path, installDirectory);
    if (relative == QLatin1String("brisalinker.exe") || relative == QLatin1String("updater.exe"))
        return true;
    for (const QString &underRoot : { relative, relativeTo(path, otherRoot) }) {
        if (underRoot.startsWith(QLatin1String("OBS-Studio/"), Qt::CaseInsensitive)
            || underRoot.startsWith(QLatin1String("Pellacore/"), Qt::CaseInsensitive)) {
            return true;
        }
    }
    return false;
}

bool isProcessRunningAtPath(const QString &path)
{
    return InstallationProcessesPlatform::isProcessRunningAtPath(path);
}

QStringList runningInstallProcesses(const QString &installDirectory, const QString &otherRoot)
{
    QStringList running;
    for (const QString &path : installationExecutablePaths(installDirectory, otherRoot, true)) {
        if (isProcessRunningAtPath(path))
            running << path;
    }
    return running;
}

bool prepareExistingInstallation(const QString &installDirectory, QString *error, const QString &otherRoot,
                                 const QString &installerSource, const QString &ownExecutable)
{
    QStringList paths = installationExecutablePaths(installDirectory, otherRoot, true);
    // Obsolete components first: they may fail without stopping the installation.
    std::stable_sort(paths.begin(), paths.end(), [&](const QString &a, const QString &b) {
        return !isRequired(a, installDirectory, otherRoot) && isRequired(b, installDirectory, otherRoot);
    });
    const QDeadlineTimer deadline(10000);
    const QString source = installerSource.isEmpty() ? QString() : normalizedWindowsPath(installerSource);
    const QString self = normalizedWindowsPath(ownExecutable);

    for (const QString &path : std::as_const(paths)) {
        const QString normalized = normalizedWindowsPath(path);
        bool stoppable = true;
        if ((!source.isEmpty() && normalized == source) || normalized == self) {
            InstallerLogger::write(QStringLiteral("Refusing to stop the running installer itself: %1").arg(path));
            stoppable = false;
        } else {
            stoppable = stopWithRetries(path, deadline);
        }
        if (stoppable)
            continue;
        if (isRequired(path, installDirectory, otherRoot)) {
            if (error)
                *error = tr("Unable to close the existing Brisa-Linker processes.");
            return false;
        }
        InstallerLogger::write(QStringLiteral("Obsolete component could not be stopped; the new version uses another directory: %1").arg(path));
    }

    for (const QString &path : std::as_const(paths)) {
        if (!isRequired(path, installDirectory, otherRoot))
            continue;
        if (!waitUntilUnlocked(path, deadline)) {
            if (error)
                *error = tr("A Brisa-Linker process is still using installation files. Close it and retry.");
            return false;
        }
    }
    return true;
}

} // namespace InstallationProcesses
