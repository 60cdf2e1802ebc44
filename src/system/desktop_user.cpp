#include "system/desktop_user.h"

namespace DesktopUser {

QString registryPath(const QString &subkey)
{
    const QString user = sid();
    if (user.isEmpty())
        return {};
    return QStringLiteral("HKEY_USERS\\") + user + QLatin1Char('\\') + subkey;
}

QString uninstallKey()
{
    return registryPath(QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker"));
}

} // namespace DesktopUser
