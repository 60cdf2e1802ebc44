#include "app/app_paths.h"
#include "system/desktop_user.h"

#include <QDir>
#include <QStandardPaths>

#include <windows.h>
#include <knownfolders.h>
#include <shlobj.h>

namespace AppPaths {

namespace {

// LocalAppData of the user the token belongs to (null token: this process's user). The folder
// need not exist yet.
QString localAppData(HANDLE token)
{
    wchar_t *path = nullptr;
    const HRESULT result = SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_DONT_VERIFY, token, &path);
    QString folder;
    if (SUCCEEDED(result) && path)
        folder = QDir::cleanPath(QDir::fromNativeSeparators(QString::fromWCharArray(path)));
    CoTaskMemFree(path);
    return folder;
}

} // namespace

QString applicationRoot()
{
    const HANDLE token = static_cast<HANDLE>(DesktopUser::token());
    if (!token)
        return {};
    const QString folder = localAppData(token);
    return folder.isEmpty() ? QString() : folder + QStringLiteral("/BrisaLinker");
}

QStringList tempRootCandidates()
{
    const HANDLE token = static_cast<HANDLE>(DesktopUser::token());
    const QString desktopData = token ? localAppData(token) : QString();
    const QString ownData = localAppData(nullptr);
    QStringList bases;
    // An elevated installer running as another administrator keeps its files where the desktop
    // user can see and clean them.
    if (!desktopData.isEmpty() && DesktopUser::processSid() != DesktopUser::sid())
        bases << desktopData + QStringLiteral("/Temp");
    bases << QStandardPaths::writableLocation(QStandardPaths::TempLocation);
    if (!desktopData.isEmpty())
        bases << desktopData + QStringLiteral("/BrisaLinkerInstallerCache");
    if (!ownData.isEmpty())
        bases << ownData + QStringLiteral("/BrisaLinkerInstallerCache");
    const QString windows = qEnvironmentVariable("WINDIR");
    if (!windows.isEmpty())
        bases << QDir::cleanPath(QDir::fromNativeSeparators(windows)) + QStringLiteral("/Temp");
    bases.removeAll(QString());
    return bases;
}

} // namespace AppPaths
