#include "app/app_paths.h"
#include "system/file_links.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace AppPaths {

namespace {

const QByteArray probeContent = QByteArrayLiteral("BrisaLinker temporary directory probe");

bool writeReadRename(const QString &probe, const QString &renamed)
{
    QFile file(probe);
    if (!file.open(QIODevice::ReadWrite | QIODevice::NewOnly))
        return false;
    if (file.write(probeContent) != probeContent.size() || !file.flush() || !file.seek(0))
        return false;
    if (file.readAll() != probeContent)
        return false;
    file.close();
    if (!QFile::rename(probe, renamed))
        return false;
    return QFile::remove(renamed);
}

} // namespace

bool usableDirectory(const QString &path)
{
    if (path.isEmpty() || QDir::isRelativePath(path))
        return false;
    const QString clean = QDir::cleanPath(QDir::fromNativeSeparators(path));
    if (FileLinks::pathHasLink(clean))
        return false;
    if (!QDir().mkpath(clean))
        return false;
    const QDir directory(clean);
    const QString probe = directory.filePath(QStringLiteral(".probe-") + QUuid::createUuid().toString(QUuid::Id128));
    const QString renamed = probe + QStringLiteral(".renamed");
    const bool usable = writeReadRename(probe, renamed);
    QFile::remove(probe);
    QFile::remove(renamed);
    return usable;
}

QString firstUsableTempRoot(const QStringList &bases)
{
    for (const QString &base : bases) {
        if (base.isEmpty())
            continue;
        const QString root = QDir::cleanPath(QDir::fromNativeSeparators(base) + QStringLiteral("/BrisaLinkerInstaller"));
        if (usableDirectory(root) && usableDirectory(root + QStringLiteral("/log")))
            return root;
    }
    return {};
}

QString installerTempRoot()
{
    static const QString root = firstUsableTempRoot(tempRootCandidates());
    return root;
}

QString installerLogRoot()
{
    const QString root = installerTempRoot();
    return root.isEmpty() ? QString() : root + QStringLiteral("/log");
}

} // namespace AppPaths
