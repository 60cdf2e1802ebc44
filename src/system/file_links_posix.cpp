#include "system/file_links.h"

#include <QFile>

#include <sys/stat.h>

namespace FileLinks {

bool isLink(const QString &path)
{
    struct stat st {};
    const QByteArray native = QFile::encodeName(path);
    return ::lstat(native.constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

bool exists(const QString &path)
{
    struct stat st {};
    const QByteArray native = QFile::encodeName(path);
    return ::lstat(native.constData(), &st) == 0;
}

} // namespace FileLinks
