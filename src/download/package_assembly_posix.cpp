#include "download/package_assembly.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

bool PackageAssembly::openTarget()
{
    // Opening by descriptor leaves the file without a name: finish() renames by path.
    const QByteArray path = QFile::encodeName(m_file.fileName());
    int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_DIRECT, 0644);
    m_unbuffered = fd >= 0;
    // Some file systems refuse O_DIRECT; the package is then written through the cache.
    if (fd < 0)
        fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    if (!m_file.open(fd, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    return true;
}

void PackageAssembly::endUnbuffered()
{
    const int fd = m_file.handle();
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        ::fcntl(fd, F_SETFL, flags & ~O_DIRECT);
    m_unbuffered = false;
}
