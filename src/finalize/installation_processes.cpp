#include "finalize/installation_processes.h"
#include "app/installer_logger.h"
#include "system/product_processes.h"

#include <QCoreApplication>
#include <QDir>

namespace InstallationProcesses {

namespace {

using ProductProcesses::NativePath;
using ProductProcesses::Note;

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerFinalizer", text);
}

NativePath native(const QString &path)
{
#ifdef Q_OS_WIN
    return path.toStdWString();
#else
    return path.toStdString();
#endif
}

// Backslashes are separators here on every platform: these are Windows paths.
QString fromNative(const NativePath &path)
{
#ifdef Q_OS_WIN
    const QString text = QString::fromStdWString(path);
#else
    const QString text = QString::fromStdString(path);
#endif
    return QDir::cleanPath(QString(text).replace(QLatin1Char('\\'), QLatin1Char('/')));
}

QStringList fromNative(const std::vector<NativePath> &paths)
{
    QStringList list;
    for (const NativePath &path : paths)
        list << fromNative(path);
    return list;
}

void log(const Note &note)
{
    const QString path = fromNative(note.path);
    switch (note.kind) {
    case Note::RefusingSelf:
        InstallerLogger::write(QStringLiteral("Refusing to stop the running installer itself: %1").arg(path));
        break;
    case Note::EnumerationFailed:
        InstallerLogger::write(QStringLiteral("Unable to enumerate processes: attempt=%1 error=%2").arg(note.attempt).arg(note.error));
        break;
    case Note::ForceStopping:
        InstallerLogger::write(QStringLiteral("Force stopping installed process: attempt=%1 pid=%2 path=%3").arg(note.attempt).arg(note.pid).arg(path));
        break;
    case Note::ForceStopFailed:
        InstallerLogger::write(QStringLiteral("Unable to force stop process: attempt=%1 pid=%2 error=%3")
                                   .arg(note.attempt).arg(note.pid).arg(note.error));
        break;
    case Note::Remained:
        InstallerLogger::write(QStringLiteral("Installed process remained after three force-stop attempts: %1").arg(path));
        break;
    case Note::ObsoleteNotStopped:
        InstallerLogger::write(QStringLiteral("Obsolete component could not be stopped; the new version uses another directory: %1").arg(path));
        break;
    case Note::StillLocked:
        InstallerLogger::write(QStringLiteral("Installation file is still locked; retry=%1 path=%2").arg(note.attempt).arg(path));
        break;
    }
}

} // namespace

QString normalizedWindowsPath(const QString &path)
{
    const NativePath normalized = ProductProcesses::normalizedWindowsPath(native(path));
#ifdef Q_OS_WIN
    return QString::fromStdWString(normalized);
#else
    return QString::fromStdString(normalized);
#endif
}

QStringList productExecutablePaths(const QString &root, bool includeRunning)
{
    return fromNative(ProductProcesses::productExecutablePaths(native(root), includeRunning));
}

QStringList installationExecutablePaths(const QString &installDirectory, const QString &otherRoot, bool includeRunning)
{
    return fromNative(ProductProcesses::installationExecutablePaths(native(installDirectory), native(otherRoot), includeRunning));
}

bool isRequired(const QString &path, const QString &installDirectory, const QString &otherRoot)
{
    return ProductProcesses::isRequired(native(path), native(installDirectory), native(otherRoot));
}

bool isProcessRunningAtPath(const QString &path)
{
    return ProductProcesses::Platform::isProcessRunningAtPath(native(path));
}

QStringList runningImagesUnder(const QString &root)
{
    return fromNative(ProductProcesses::Platform::runningImagesUnder(native(root)));
}

QStringList runningInstallProcesses(const QString &installDirectory, const QString &otherRoot)
{
    return fromNative(ProductProcesses::runningInstallProcesses(native(installDirectory), native(otherRoot)));
}

bool prepareExistingInstallation(const QString &installDirectory, QString *error, const QString &otherRoot,
                                 const QString &installerSource, const QString &ownExecutable)
{
    const ProductProcesses::Outcome outcome = ProductProcesses::prepareExistingInstallation(
        native(installDirectory), native(otherRoot), { native(installerSource), native(ownExecutable) }, log);
    if (error && outcome == ProductProcesses::Outcome::NotClosed)
        *error = tr("Unable to close the existing Brisa-Linker processes.");
    if (error && outcome == ProductProcesses::Outcome::StillLocked)
        *error = tr("A Brisa-Linker process is still using installation files. Close it and retry.");
    return outcome == ProductProcesses::Outcome::Ready;
}

} // namespace InstallationProcesses
