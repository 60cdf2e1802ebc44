#include "app/log_append.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace LogAppend {

bool appendLine(const QString &path, const QByteArray &line)
{
    // The log folder is writable by the user; a link planted as the day's file is refused.
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const ssize_t written = ::write(fd, line.constData(), size_t(line.size()));
    ::close(fd);
    return written == line.size();
}

QByteArray lineEnd()
{
    return QByteArrayLiteral("\n");
}

} // namespace LogAppend
