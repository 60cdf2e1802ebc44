#include "download/package_assembly.h"

#include <QCoreApplication>

#include <cstdint>

namespace {

constexpr qint64 copyBlock = 1048576;

} // namespace

QString PackageAssembly::message(Failure failure)
{
    switch (failure) {
    case Failure::None: break;
    case Failure::Create: return QCoreApplication::translate("DownloadManager", "Unable to create the combined package.");
    case Failure::ReadChunk: return QCoreApplication::translate("DownloadManager", "Unable to read a downloaded chunk.");
    case Failure::Combine: return QCoreApplication::translate("DownloadManager", "Unable to combine the downloaded chunks.");
    case Failure::Write: return QCoreApplication::translate("DownloadManager", "Unable to write the combined package.");
    case Failure::Verification: return QCoreApplication::translate("DownloadManager", "The combined package failed verification.");
    case Failure::Finalize: return QCoreApplication::translate("DownloadManager", "Unable to finalize the downloaded package.");
    }
    return QString();
}

bool PackageAssembly::fail(Failure failure, QString *error)
{
    m_failure = failure;
    if (error)
        *error = message(failure);
    return false;
}

PackageAssembly::PackageAssembly(const QString &targetPath)
    : m_target(targetPath)
    , m_file(targetPath + QStringLiteral(".assembling"))
{
}

PackageAssembly::~PackageAssembly() = default;

bool PackageAssembly::begin(QString *error)
{
    if (!openTarget())
        return fail(Failure::Create, error);
    m_blockStorage.resize(copyBlock + unbufferedAlignment);
    const auto start = reinterpret_cast<std::uintptr_t>(m_blockStorage.data());
    m_block = m_blockStorage.data() + (unbufferedAlignment - start % unbufferedAlignment) % unbufferedAlignment;
    return true;
}

bool PackageAssembly::append(const QString &chunkPath, qint64 length, QString *error)
{
    QFile chunk(chunkPath);
    if (!chunk.open(QIODevice::ReadOnly))
        return fail(Failure::ReadChunk, error);
    char *block = m_block;
    qint64 copied = 0;
    for (;;) {
        if (m_abandoned)
            return fail(Failure::Combine, error);
        const qint64 read = chunk.read(block, copyBlock);
        if (read < 0 || (read == 0 && chunk.error() != QFileDevice::NoError))
            return fail(Failure::Combine, error);
        if (read == 0)
            break;
        // Hashed before it is written, while it is still in the processor's cache.
        m_hash.addData(QByteArrayView(block, read));
        if (!write(block, read))
            return fail(Failure::Write, error);
        copied += read;
    }
    // A chunk that changed size since it was downloaded would shift every later byte.
    if (copied != length)
        return fail(Failure::Combine, error);
    return true;
}

bool PackageAssembly::write(const char *data, qint64 size)
{
    if (m_unbuffered && size % unbufferedAlignment != 0)
        endUnbuffered();
    return m_file.write(data, size) == size;
}

bool PackageAssembly::finish(const QByteArray &expectedSha256, QString *error)
{
    if (!m_file.flush()) {
        m_file.close();
        return fail(Failure::Write, error);
    }
    m_file.close();
    if (m_hash.hexResult().compare(expectedSha256, Qt::CaseInsensitive) != 0)
        return fail(Failure::Verification, error);
    if (!QFile::rename(m_target + QStringLiteral(".assembling"), m_target))
        return fail(Failure::Finalize, error);
    return true;
}
