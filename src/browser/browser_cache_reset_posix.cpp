#include "browser/browser_cache_reset.h"
#include "browser/browser_cache_reset_platform.h"

#include <QFile>

#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

// Host builds have no desktop user and no companion browser; directories are still locked and
// renamed for real, so that the journal logic is tested against a real file system.
namespace {

void closeLock(void *descriptor)
{
    ::close(int(reinterpret_cast<std::intptr_t>(descriptor)) - 1);
}

} // namespace

namespace BrowserCacheResetPlatform {

QString desktopProfileDirectory()
{
    return {};
}

Impersonation::Impersonation()
    : m_active(true)
{
}

Impersonation::~Impersonation() = default;

BrowserCacheReset::DirectoryLock lockDirectory(const QString &path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return { nullptr, closeLock };
    // Offset by one so that descriptor 0 is not a null lock.
    return { reinterpret_cast<void *>(std::intptr_t(descriptor) + 1), closeLock };
}

} // namespace BrowserCacheResetPlatform

namespace BrowserCacheReset {

bool browserIdle(const QString &userDataDirectory)
{
    Q_UNUSED(userDataDirectory);
    return true;
}

bool renameDirectory(const QString &from, const QString &to)
{
    return ::renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD, QFile::encodeName(to).constData(),
                       RENAME_NOREPLACE) == 0;
}

} // namespace BrowserCacheReset
