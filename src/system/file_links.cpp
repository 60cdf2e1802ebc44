#include "system/file_links.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

namespace FileLinks {

bool pathHasLink(const QString &path)
{
    return anyPathHasLink({ path });
}

bool anyPathHasLink(std::initializer_list<QString> paths)
{
    // Compared exactly: a directory spelled in another case is merely looked at twice.
    QStringList linkFree;
    for (const QString &path : paths) {
        QString current = QDir::cleanPath(QDir::fromNativeSeparators(path.trimmed()));
        while (!current.isEmpty()) {
            if (linkFree.contains(current))
                break;
            if (isLink(current))
                return true;
            linkFree.append(current);
            const QString parent = QFileInfo(current).path();
            if (parent.isEmpty() || parent.compare(current, Qt::CaseInsensitive) == 0 || parent == QLatin1String("."))
                break;
            current = parent;
        }
    }
    return false;
}

bool removeTree(const QString &path)
{
    if (isLink(path)) {
        // The entry itself, never what it points at.
        return QFile::remove(path) || QDir().rmdir(path);
    }
    const QFileInfo info(path);
    if (!info.exists())
        return true;
    if (!info.isDir()) {
        QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::WriteOwner);
        return QFile::remove(path);
    }
    bool removed = true;
    const QFileInfoList entries = QDir(path).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries)
        removed = removeTree(entry.filePath()) && removed;
    return QDir().rmdir(path) && removed;
}

} // namespace FileLinks
