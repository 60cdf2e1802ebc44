#pragma once

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

// Files written and read back by tests; every writer makes the parent directories first.
namespace TestFiles {

inline bool write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && file.open(QIODevice::WriteOnly)
        && file.write(content) == content.size();
}

inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file below root, relative and sorted, links not followed; with sizes, "path=size".
inline QStringList below(const QString &root, bool withSizes = false)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files << QDir(root).relativeFilePath(path) + (withSizes ? QLatin1Char('=') + QString::number(it.fileInfo().size()) : QString());
    }
    files.sort();
    return files;
}

} // namespace TestFiles
