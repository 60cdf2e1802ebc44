#include "system/sha256.h"

#include <QFile>

#include <algorithm>

namespace {

// Large enough to keep per-call overhead out of the way, small enough for many threads at once.
constexpr qint64 fileBlock = 262144;

} // namespace

QByteArray Sha256::hexResult()
{
    return result().toHex();
}

QString Sha256::fileDigest(const QString &path, const std::function<void()> &afterBlock)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    Sha256 hash;
    QByteArray block(std::min(fileBlock, std::max<qint64>(file.size(), 1)), Qt::Uninitialized);
    for (;;) {
        const qint64 read = file.read(block.data(), block.size());
        if (read < 0)
            return {};
        if (read == 0)
            break;
        hash.addData(QByteArrayView(block.constData(), read));
        if (afterBlock)
            afterBlock();
    }
    if (file.error() != QFileDevice::NoError)
        return {};
    return QString::fromLatin1(hash.hexResult());
}
