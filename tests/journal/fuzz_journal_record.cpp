// libFuzzer target: arbitrary bytes as ".install-transaction.json", through the loader, every
// validation rule and the metadata snapshot decoding that a rollback would run.
//   fuzz_journal_record <new corpus dir> tests/journal/journal_seeds
// The seeds are valid records for the fixed root below (preparing, committed, empty plan, with
// uninstall, shortcut and URL scheme snapshots); without them few inputs get past the parser.
#include "journal/overlay_transaction.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

// A fixed place, so that a corpus of valid records stays valid between runs.
const QString fuzzRoot = QStringLiteral("/tmp/brisa-fuzz-journal/BrisaLinker");

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("BRISA_HOST_DESKTOP_SID", "S-1-5-21-1000-2000-3000-1001", 1);
    // The installer log would otherwise collect one line per refused input.
    setenv("TMPDIR", "/tmp/brisa-fuzz-journal/tmp", 1);
    QDir().mkpath(fuzzRoot);
    QDir().mkpath(QStringLiteral("/tmp/brisa-fuzz-journal/tmp"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QFile record(OverlayTransaction::path(fuzzRoot));
    if (!record.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    record.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    record.close();
    OverlayTransaction::State state;
    QString error;
    if (OverlayTransaction::load(fuzzRoot, &state, &error)) {
        // Only the decoding is exercised: on the host, restoring touches no registry or file.
        QJsonObject forced = state.record;
        forced.insert(QStringLiteral("metadataStarted"), true);
        OverlayTransaction::restoreMetadata(forced, &error);
    }
    return 0;
}
