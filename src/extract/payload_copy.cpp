// The bundled-payload side of ArchiveExtractor: a tree already on disk is validated, and copied
// into staging when asked, without ever following or copying a link.
#include "extract/archive_extractor.h"

#include "system/file_links.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStorageInfo>

#include <algorithm>

namespace {

struct PayloadEntry
{
    QString relativePath;
    bool isDirectory = false;
};

struct Walk
{
    int status = ArchiveExtractor::PayloadSuccess;
    QList<PayloadEntry> entries;
    qint64 totalBytes = 0;
};

// Lists the whole tree, hidden and system entries included, before anything is copied: a link
// anywhere refuses the payload up front. Directories are read one by one rather than through a
// recursive iterator, so a link is seen as an entry and never descended into.
Walk walkPayload(const QString &root, const std::atomic<bool> &cancelFlag)
{
    Walk walk;
    QList<QString> pending { QString() };
    const QDir base(root);
    while (!pending.isEmpty()) {
        const QString relativeDirectory = pending.takeFirst();
        const QString directory = relativeDirectory.isEmpty() ? root : base.filePath(relativeDirectory);
        if (!QFileInfo(directory).isReadable()) {
            walk.status = ArchiveExtractor::PayloadUnexpected;
            return walk;
        }
        QDirIterator it(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        QList<QString> names;
        while (it.hasNext()) {
            it.next();
            names.append(it.fileName());
        }
        std::sort(names.begin(), names.end());
        for (const QString &name : std::as_const(names)) {
            if (cancelFlag.load()) {
                walk.status = ArchiveExtractor::PayloadCancelled;
                return walk;
            }
            const QString relative = relativeDirectory.isEmpty() ? name : relativeDirectory + QLatin1Char('/') + name;
            const QString path = base.filePath(relative);
            if (FileLinks::isLink(path)) {
                walk.status = ArchiveExtractor::PayloadHasLink;
                return walk;
            }
            const QFileInfo info(path);
            if (info.isDir()) {
                walk.entries.append({ relative, true });
                pending.append(relative);
            } else if (info.isFile()) {
                walk.entries.append({ relative, false });
                walk.totalBytes += info.size();
            } else {
                walk.status = ArchiveExtractor::PayloadUnexpected; // a device, a socket, a pipe
                return walk;
            }
        }
    }
    return walk;
}

bool hasProductExecutable(const QString &directory)
{
    return QFileInfo(QDir(directory).filePath(ArchiveExtractor::productExecutableName())).isFile();
}

ArchiveExtractor::Result failure(int status)
{
    ArchiveExtractor::Result result;
    result.status = status;
    return result;
}

} // namespace

ArchiveExtractor::Result ArchiveExtractor::copyPayload(const QString &source, const QString &target,
                                                       const std::atomic<bool> &cancelFlag)
{
    if (!QFileInfo(source).isDir())
        return failure(PayloadMissing);
    if (FileLinks::isLink(source))
        return failure(PayloadHasLink);
    if (!QDir().mkpath(target))
        return failure(PayloadCannotCreateDirectory);
    const Walk walk = walkPayload(source, cancelFlag);
    if (walk.status != PayloadSuccess)
        return failure(walk.status);
    const QStorageInfo volume(target);
    if (volume.isValid() && volume.isReady() && volume.bytesAvailable() < walk.totalBytes)
        return failure(PayloadNoSpace);

    Result result;
    const QDir from(source);
    const QDir to(target);
    for (const PayloadEntry &entry : walk.entries) {
        if (cancelFlag.load())
            return failure(PayloadCancelled);
        if (entry.isDirectory) {
            if (!to.mkpath(entry.relativePath))
                return failure(PayloadCannotCopy);
            result.directories.append(entry.relativePath);
            continue;
        }
        const qsizetype slash = entry.relativePath.lastIndexOf(QLatin1Char('/'));
        if (slash > 0 && !to.mkpath(entry.relativePath.left(slash)))
            return failure(PayloadCannotCopy);
        const QString destination = to.filePath(entry.relativePath);
        // Staging is fresh; anything already there is from an earlier attempt and is replaced.
        if (QFileInfo::exists(destination) && !QFile::remove(destination))
            return failure(PayloadCannotCopy);
        if (!QFile::copy(from.filePath(entry.relativePath), destination))
            return failure(PayloadCannotCopy);
        result.files.append(entry.relativePath);
    }
    if (!hasProductExecutable(target))
        return failure(PayloadInvalid);
    result.directories = deepestFirst(result.directories);
    return result;
}

ArchiveExtractor::Result ArchiveExtractor::scanPayload(const QString &directory, const std::atomic<bool> &cancelFlag)
{
    if (!QFileInfo(directory).isDir())
        return failure(PayloadMissing);
    if (FileLinks::isLink(directory))
        return failure(PayloadHasLink);
    const Walk walk = walkPayload(directory, cancelFlag);
    if (walk.status != PayloadSuccess)
        return failure(walk.status);
    if (!hasProductExecutable(directory))
        return failure(PayloadInvalid);
    Result result;
    for (const PayloadEntry &entry : walk.entries)
        (entry.isDirectory ? result.directories : result.files).append(entry.relativePath);
    result.directories = deepestFirst(result.directories);
    return result;
}
