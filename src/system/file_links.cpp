#include "system/file_links.h"
#include "system/tree_removal.h"

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

bool removeTree(const QString &path, QStringList *linksNotFollowed)
{
    const QString top = QDir::cleanPath(QFileInfo(QDir::fromNativeSeparators(path.trimmed())).absoluteFilePath());
    if (path.trimmed().isEmpty() || pathHasLink(QFileInfo(top).path()))
        return false;
    TreeRemoval::Report report;
#ifdef Q_OS_WIN
    const bool removed = TreeRemoval::removeTree(QDir::toNativeSeparators(top).toStdWString(), &report);
    for (const std::wstring &link : report.links) {
        if (linksNotFollowed)
            linksNotFollowed->append(QDir::fromNativeSeparators(QString::fromStdWString(link)));
    }
#else
    const bool removed = TreeRemoval::removeTree(QFile::encodeName(top).toStdString(), &report);
    for (const std::string &link : report.links) {
        if (linksNotFollowed)
            linksNotFollowed->append(QFile::decodeName(QByteArray::fromStdString(link)));
    }
#endif
    return removed;
}

} // namespace FileLinks
