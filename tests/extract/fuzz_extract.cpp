// Entry names and whole archives from libFuzzer: the name check must never accept an escape,
// and extraction of any bytes must stay inside its staging directory and never crash.
#include "extract/archive_extractor.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdlib>

namespace {

void checkName(const QByteArray &raw)
{
    const QString path = ArchiveExtractor::safeEntryPath(raw);
    if (path.isEmpty() || path == QLatin1String("."))
        return;
    const bool escapes = path == QLatin1String("..") || path.startsWith(QLatin1String("../"))
        || path.contains(QLatin1String("/../")) || path.endsWith(QLatin1String("/..")) || path.startsWith(QLatin1Char('/'))
        || path.contains(QLatin1Char(':')) || path.contains(QLatin1Char('\\')) || path.contains(QLatin1String("//"))
        || path.contains(QChar(0));
    if (escapes)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    checkName(bytes.left(600));

    static QTemporaryDir root;
    const QString zipPath = root.filePath(QStringLiteral("input.zip"));
    const QString staging = root.filePath(QStringLiteral("box/staging"));
    {
        QFile file(zipPath);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return 0;
    }
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    // A fuzzed archive may declare any size; keep the run small by cancelling past 8 MiB.
    const auto result = ArchiveExtractor::extractZip(zipPath, staging, cancel, processed, [&cancel](qint64 done, qint64) {
        if (done > (8 << 20))
            cancel.store(true);
    });
    (void)result;
    // Nothing may appear beside staging inside the box.
    const QStringList beside = QDir(root.filePath(QStringLiteral("box"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    if (beside != QStringList { QStringLiteral("staging") } && !beside.isEmpty())
        std::abort();
    QDirIterator it(staging, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (it.nextFileInfo().isSymLink())
            std::abort();
    }
    QDir(staging).removeRecursively();
    return 0;
}
