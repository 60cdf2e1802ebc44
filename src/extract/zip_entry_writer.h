#pragma once

#include "extract/archive_extractor.h"

#include <zip.h>
#include <zlib.h>

#include <atomic>
#include <memory>

class QByteArray;
class QFile;

// Writes the content of one archive entry at a time into its staging file. libzip stays the
// archive reader (central directory, local headers, the entry's compressed bytes); the bytes
// are read in large blocks, inflated here straight into a large output block and checked
// against the entry's CRC-32. The buffers and the inflate state are reused for every entry.
class ZipEntryWriter
{
public:
    ZipEntryWriter(const std::atomic<bool> &cancelFlag, std::atomic<qint64> &processedBytes,
                   const ArchiveExtractor::ProgressCallback &progress, qint64 total);
    ~ZipEntryWriter();
    ZipEntryWriter(const ZipEntryWriter &) = delete;
    ZipEntryWriter &operator=(const ZipEntryWriter &) = delete;

    // `output` is open and empty. False when the entry cannot be read or inflated, when it
    // does not hold exactly its declared size and CRC-32, when a write fails or when cancel is
    // set; the partial file is then the caller's to remove.
    bool write(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat, QFile &output);
    // The same checks, with the content decoded into `content` instead of a file.
    bool read(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat, QByteArray *content);

    // Output goes out in writes of this size: inflate and the CRC work on a block that is still
    // in the processor's cache, and Linux's page cache took 2 to 5 times the system time per
    // byte for 128 KiB and 1 MiB writes (larger folios to allocate and fill).
    static constexpr qint64 writeBlockBytes = 64 * 1024;

private:
    bool decode(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat);
    bool copyStored(zip_file_t *raw, quint32 *crc);
    bool inflateDeflated(zip_file_t *raw, const zip_stat_t &stat, quint32 *crc);
    bool decodeThroughLibzip(zip_t *archive, zip_uint64_t index);
    bool deliver(const char *data, qint64 length);

    const std::atomic<bool> &m_cancelFlag;
    std::atomic<qint64> &m_processedBytes;
    const ArchiveExtractor::ProgressCallback &m_progress;
    const qint64 m_total;
    qint64 m_lastReported = 0;

    std::unique_ptr<char[]> m_input;
    std::unique_ptr<char[]> m_output;
    z_stream m_stream {};
    bool m_inflateReady = false;

    // The entry being written, to a file or to memory.
    QFile *m_file = nullptr;
    QByteArray *m_content = nullptr;
    qint64 m_declaredSize = 0;
    qint64 m_offset = 0;
};
