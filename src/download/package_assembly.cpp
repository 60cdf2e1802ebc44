#include "download/package_assembly.h"

#include <QCoreApplication>

namespace {

constexpr qint64 copyBlock = 1048576;

bool fail(QString *error, const char *message)
{
    if (error)
        *error = QCoreApplication::translate("DownloadManager", message);
    return false;
}

} // namespace

PackageAssembly::PackageAssembly(const QString &targetPath)
    : m_target(targetPath)
    , m_file(targetPath + QStringLiteral(".assembling"))
{
}

PackageAssembly::~PackageAssembly() = default;

bool PackageAssembly::begin(QString *error)
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to create the combined package."));
    return true;
}

bool PackageAssembly::append(const QString &chunkPath, qint64 length, QString *error)
{
    QFile chunk(chunkPath);
    if (!chunk.open(QIODevice::ReadOnly))
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to read a downloaded chunk."));
    QByteArray block(copyBlock, Qt::Uninitialized);
    qint64 copied = 0;
    for (;;) {
        const qint64 read = chunk.read(block.data(), block.size());
        if (read < 0 || (read == 0 && chunk.error() != QFileDevice::NoError))
            return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to combine the downloaded chunks."));
        if (read == 0)
            break;
        if (m_file.write(block.constData(), read) != read)
            return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to write the combined package."));
        m_hash.addData(QByteArrayView(block.constData(), read));
        copied += read;
    }
    // A chunk that changed size since it was downloaded would shift every later byte.
    if (copied != length)
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to combine the downloaded chunks."));
    return true;
}

bool PackageAssembly::finish(const QByteArray &expectedSha256, QString *error)
{
    if (!m_file.flush()) {
        m_file.close();
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to write the combined package."));
    }
    m_file.close();
    if (m_hash.result().toHex().compare(expectedSha256, Qt::CaseInsensitive) != 0)
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "The combined package failed verification."));
    if (!m_file.rename(m_target))
        return fail(error, QT_TRANSLATE_NOOP("DownloadManager", "Unable to finalize the downloaded package."));
    return true;
}
