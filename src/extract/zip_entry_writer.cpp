#include "extract/zip_entry_writer.h"

#include "extract/crc32.h"
#include "extract/file_preallocation.h"

#include <QByteArray>
#include <QFile>

#include <cstring>

namespace {

// Compressed bytes are read a MiB at a time.
constexpr qint64 readBlockBytes = 1 << 20;
constexpr qint64 progressStep = 262144;

struct EntryCloser
{
    void operator()(zip_file_t *entry) const { zip_fclose(entry); }
};
using EntryFile = std::unique_ptr<zip_file_t, EntryCloser>;

} // namespace

ZipEntryWriter::ZipEntryWriter(const std::atomic<bool> &cancelFlag, std::atomic<qint64> &processedBytes,
                               const ArchiveExtractor::ProgressCallback &progress, qint64 total)
    : m_cancelFlag(cancelFlag),
      m_processedBytes(processedBytes),
      m_progress(progress),
      m_total(total),
      m_input(new char[readBlockBytes]),
      m_output(new char[writeBlockBytes])
{
}

ZipEntryWriter::~ZipEntryWriter()
{
    if (m_inflateReady)
        inflateEnd(&m_stream);
}

bool ZipEntryWriter::write(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat, QFile &output)
{
    m_file = &output;
    m_content = nullptr;
    // A file that fits in one write gains nothing from a reservation but its system call.
    if (qint64(stat.size) > writeBlockBytes)
        FilePreallocation::reserve(output, qint64(stat.size));
    return decode(archive, index, stat);
}

bool ZipEntryWriter::read(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat, QByteArray *content)
{
    m_file = nullptr;
    m_content = content;
    content->resize(qsizetype(stat.size));
    return decode(archive, index, stat);
}

bool ZipEntryWriter::decode(zip_t *archive, zip_uint64_t index, const zip_stat_t &stat)
{
    m_declaredSize = qint64(stat.size);
    m_offset = 0;

    // No password is ever given: an encrypted entry cannot be ours.
    if ((stat.valid & ZIP_STAT_ENCRYPTION_METHOD) && stat.encryption_method != ZIP_EM_NONE)
        return false;

    const bool described = (stat.valid & ZIP_STAT_COMP_METHOD) && (stat.valid & ZIP_STAT_CRC) && (stat.valid & ZIP_STAT_COMP_SIZE);
    if (!described || (stat.comp_method != ZIP_CM_STORE && stat.comp_method != ZIP_CM_DEFLATE))
        return decodeThroughLibzip(archive, index) && m_offset == m_declaredSize;

    // The entry's bytes as stored: libzip checks the local header and bounds the reads to the
    // compressed size; decoding and the CRC are ours.
    const EntryFile raw(zip_fopen_index(archive, index, ZIP_FL_COMPRESSED));
    if (!raw)
        return false;
    quint32 crc = 0;
    const bool decoded = stat.comp_method == ZIP_CM_STORE ? copyStored(raw.get(), &crc)
                                                          : inflateDeflated(raw.get(), stat, &crc);
    return decoded && m_offset == m_declaredSize && crc == stat.crc;
}

bool ZipEntryWriter::copyStored(zip_file_t *raw, quint32 *crc)
{
    for (;;) {
        const zip_int64_t got = zip_fread(raw, m_output.get(), zip_uint64_t(writeBlockBytes));
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        *crc = Crc32::update(*crc, m_output.get(), got);
        if (!deliver(m_output.get(), got))
            return false;
    }
}

bool ZipEntryWriter::inflateDeflated(zip_file_t *raw, const zip_stat_t &stat, quint32 *crc)
{
    // Some writers store an empty deflated entry as no bytes at all.
    if (stat.comp_size == 0)
        return stat.size == 0;
    const int ready = m_inflateReady ? inflateReset(&m_stream) : inflateInit2(&m_stream, -MAX_WBITS);
    if (ready != Z_OK)
        return false;
    m_inflateReady = true;
    m_stream.avail_in = 0;
    const auto output = reinterpret_cast<Bytef *>(m_output.get());
    m_stream.next_out = output;
    m_stream.avail_out = uInt(writeBlockBytes);
    for (;;) {
        if (m_stream.avail_in == 0) {
            const zip_int64_t got = zip_fread(raw, m_input.get(), zip_uint64_t(readBlockBytes));
            if (got <= 0)
                return false; // a read error, or the compressed data ended inside the stream
            m_stream.next_in = reinterpret_cast<Bytef *>(m_input.get());
            m_stream.avail_in = uInt(got);
        }
        const int status = inflate(&m_stream, Z_NO_FLUSH);
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR)
            return false;
        // Whole output blocks only, so each write is large; the last block is short.
        if (m_stream.avail_out == 0 || status == Z_STREAM_END) {
            const qint64 produced = writeBlockBytes - qint64(m_stream.avail_out);
            *crc = Crc32::update(*crc, m_output.get(), produced);
            if (produced > 0 && !deliver(m_output.get(), produced))
                return false;
            m_stream.next_out = output;
            m_stream.avail_out = uInt(writeBlockBytes);
        }
        if (status == Z_STREAM_END)
            return true;
    }
}

bool ZipEntryWriter::decodeThroughLibzip(zip_t *archive, zip_uint64_t index)
{
    // Methods other than stored and deflated: libzip decodes and checks the CRC itself.
    const EntryFile entry(zip_fopen_index(archive, index, 0));
    if (!entry)
        return false;
    for (;;) {
        const zip_int64_t got = zip_fread(entry.get(), m_output.get(), zip_uint64_t(writeBlockBytes));
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        if (!deliver(m_output.get(), got))
            return false;
    }
}

// The write path of every block: positioned, short writes fail, at most the declared size is
// accepted (a lying header cannot write past what the space check allowed for), and cancel is
// honoured at every block.
bool ZipEntryWriter::deliver(const char *data, qint64 length)
{
    if (m_cancelFlag.load() || length > m_declaredSize - m_offset)
        return false;
    if (m_content)
        std::memcpy(m_content->data() + m_offset, data, size_t(length));
    else if ((m_file->pos() != m_offset && !m_file->seek(m_offset)) || m_file->write(data, length) != length)
        return false;
    m_offset += length;
    const qint64 processed = m_processedBytes.fetch_add(length) + length;
    if (m_progress && (processed - m_lastReported >= progressStep || processed == m_total)) {
        m_lastReported = processed;
        m_progress(processed, m_total);
    }
    return true;
}
