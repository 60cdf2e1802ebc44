#pragma once

#include <QString>
#include <QtGlobal>

// The person signed in at the desktop: the owner of the process that owns the shell window.
// The installer runs elevated, possibly as another administrator, so per-user data, registry
// entries and the product launch all go through this identity, never the process's own.
namespace DesktopUser {

using Handle = void *; // a Windows HANDLE; kept opaque so portable code needs no windows.h

// The desktop token, obtained once per process and kept until exit. Callers must not close it.
// Null when there is no desktop user (and always on non-Windows builds).
Handle token();

// The desktop user's SID in string form ("S-1-5-21-..."), or empty.
QString sid();

// The SID of the user this process runs as, or empty.
QString processSid();

// "HKEY_USERS\<SID>\<subkey>", or empty when the SID is unknown.
QString registryPath(const QString &subkey);

// The user's uninstall registration key; empty when the SID is unknown, so that nothing is ever
// written to a key of the wrong user.
QString uninstallKey();

struct LaunchDiagnostics
{
    QString stage;
    QString mode;
    QString user;
    bool desktopElevated = false;
    bool launchElevated = false;
};

} // namespace DesktopUser
