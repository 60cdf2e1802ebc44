#include "download/download_cache.h"
#include "download/version_manifest.h"

#include "app/installer_logger.h"
#include "system/file_links.h"
#include "system/sha256.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace DownloadCache {

namespace {

QByteArray readMarker(const QString &path, bool *ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly);
    return *ok ? file.readAll().trimmed().toLower() : QByteArray();
}

bool writeMarker(const QString &path, const QByteArray &sha256)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(sha256) == sha256.size();
}

} // namespace

bool usableName(const QString &name)
{
    if (name.isEmpty())
        return false;
    for (const QChar c : name) {
        const bool ascii = c.unicode() < 0x80;
        if (ascii && !(c.isLetterOrNumber() || c == QLatin1Char('-') || c == QLatin1Char('.') || c == QLatin1Char('_')))
            return false;
        if (!ascii && !c.isLetterOrNumber())
            return false;
    }
    // "." and ".." would name the root or its parent.
    return name != QLatin1String(".") && name != QLatin1String("..");
}

QString directoryFor(const QString &root, const VersionManifest &manifest)
{
    const QString name = usableName(manifest.version) ? QStringLiteral("version-") + manifest.version
                                                      : QStringLiteral("default");
    return QDir(root).filePath(name);
}

QString chunkFileName(int index)
{
    return QStringLiteral("chunk-%1.bin").arg(index, 4, 10, QLatin1Char('0'));
}

void claimForPackage(const QString &directory, const QByteArray &sha256)
{
    const QDir dir(directory);
    bool readable = false;
    const QByteArray marker = readMarker(dir.filePath(QStringLiteral("package.sha256")), &readable);
    if (readable && marker == sha256)
        return;
    const QStringList chunks = dir.entryList({QStringLiteral("chunk-*.bin")}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : chunks)
        QFile::remove(dir.filePath(name));
    writeMarker(dir.filePath(QStringLiteral("package.sha256")), sha256);
}

int migrateLegacy(const QString &legacyDir, const QString &targetDir, const QByteArray &sha256)
{
    const QFileInfo legacy(legacyDir);
    if (!legacy.isDir() || FileLinks::isLink(legacyDir) || FileLinks::isLink(targetDir))
        return 0;
    bool readable = false;
    if (readMarker(QDir(legacyDir).filePath(QStringLiteral("package.sha256")), &readable) != sha256 || !readable)
        return 0;
    const QString targetMarker = QDir(targetDir).filePath(QStringLiteral("package.sha256"));
    if (QFileInfo::exists(targetMarker) || FileLinks::isLink(targetMarker)) {
        if (readMarker(targetMarker, &readable) != sha256 || !readable)
            return 0;
    } else if (!QFile::copy(QDir(legacyDir).filePath(QStringLiteral("package.sha256")), targetMarker)) {
        InstallerLogger::write(QStringLiteral("Unable to initialize migrated download cache: %1").arg(targetDir));
        return 0;
    }
    static const QRegularExpression chunkName(QStringLiteral("^chunk-[0-9]{4}\\.bin$"));
    int moved = 0;
    const QStringList names = QDir(legacyDir).entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        if (!chunkName.match(name).hasMatch())
            continue;
        const QString source = QDir(legacyDir).filePath(name);
        const QString target = QDir(targetDir).filePath(name);
        if (FileLinks::isLink(source) || !QFileInfo(source).isFile())
            continue;
        if (FileLinks::isLink(target) || QFileInfo::exists(target))
            continue;
        if (QFile::rename(source, target))
            ++moved;
    }
    InstallerLogger::write(QStringLiteral("Migrated %1 cached download files from legacy directory %2").arg(moved).arg(legacyDir));
    return moved;
}

bool verifyFile(const QString &path, const QByteArray &expectedSha256)
{
    // A package can be large: the window keeps turning while it is read.
    const QString digest = Sha256::fileDigest(path, [] { QCoreApplication::processEvents(QEventLoop::AllEvents, 5); });
    return !digest.isEmpty() && digest.compare(QLatin1String(expectedSha256), Qt::CaseInsensitive) == 0;
}

} // namespace DownloadCache
