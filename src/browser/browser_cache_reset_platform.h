#pragma once

#include "browser/browser_cache_reset.h"

#include <QString>
#include <QStringList>

// What the cache reset needs of the operating system. Windows has the real thing; the host
// build has stand-ins, so that the journal logic runs against real directories in host tests.
namespace BrowserCacheResetPlatform {

// The desktop user's profile directory, asked with their token; empty when unknown.
QString desktopProfileDirectory();

// The calling thread acts as the desktop user for the lifetime of this object.
class Impersonation
{
public:
    Impersonation();
    ~Impersonation();
    Impersonation(const Impersonation &) = delete;
    Impersonation &operator=(const Impersonation &) = delete;
    bool active() const { return m_active; }

private:
    bool m_active = false;
};

// Opens one existing directory without following a link and holds it so that it cannot be
// renamed or removed; a null lock when it is a link or cannot be opened.
BrowserCacheReset::DirectoryLock lockDirectory(const QString &path);

// Portable: whether a browser started with these arguments uses this user data directory.
bool namesDirectory(const QStringList &arguments, const QString &directory);

} // namespace BrowserCacheResetPlatform
