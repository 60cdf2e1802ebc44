#include "system/file_links.h"

#include <QDir>
#include <QFileInfo>

namespace FileLinks {

bool pathHasLink(const QString &path)
{
    QString current = QDir::cleanPath(QDir::fromNativeSeparators(path.trimmed()));
    if (current.isEmpty())
        return false;
    while (true) {
        if (isLink(current))
            return true;
        const QString parent = QFileInfo(current).path();
        if (parent.isEmpty() || parent.compare(current, Qt::CaseInsensitive) == 0 || parent == QLatin1String("."))
            return false;
        current = parent;
    }
}

} // namespace FileLinks
