#include "zip_corpus.h"

#include <QtEndian>

#include <zip.h>

#include <array>
#include <cstring>

namespace {

void put16(QByteArray &out, quint16 value)
{
    char bytes[2];
    qToLittleEndian(value, bytes);
    out.append(bytes, 2);
}
void put32(QByteArray &out, quint32 value)
{
    char bytes[4];
    qToLittleEndian(value, bytes);
    out.append(bytes, 4);
}
void put64(QByteArray &out, quint64 value)
{
    char bytes[8];
    qToLittleEndian(value, bytes);
    out.append(bytes, 8);
}

// Compresses through libzip into memory and cuts the deflate stream out of the local entry.
QByteArray deflateWithLibzip(const QByteArray &content)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t *memory = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_source_keep(memory);
    zip_t *archive = zip_open_from_source(memory, ZIP_TRUNCATE, &error);
    zip_source_t *data = zip_source_buffer(archive, content.constData(), zip_uint64_t(content.size()), 0);
    const zip_int64_t index = zip_file_add(archive, "x", data, 0);
    zip_set_file_compression(archive, zip_uint64_t(index), ZIP_CM_DEFLATE, 9);
    zip_close(archive);
    QByteArray whole;
    zip_source_open(memory);
    char block[65536];
    for (zip_int64_t got; (got = zip_source_read(memory, block, sizeof block)) > 0;)
        whole.append(block, qsizetype(got));
    zip_source_close(memory);
    zip_source_free(memory);
    zip_error_fini(&error);
    const quint32 compressed = qFromLittleEndian<quint32>(whole.constData() + 18);
    const quint16 nameLength = qFromLittleEndian<quint16>(whole.constData() + 26);
    const quint16 extraLength = qFromLittleEndian<quint16>(whole.constData() + 28);
    return whole.mid(30 + nameLength + extraLength, compressed);
}

} // namespace

namespace ZipCorpus {

quint32 crc32(const QByteArray &data)
{
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t {};
        for (quint32 i = 0; i < 256; ++i) {
            quint32 c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : data)
        crc = table[(crc ^ quint8(byte)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

Entry stored(const QByteArray &name, const QByteArray &content)
{
    Entry entry;
    entry.name = name;
    entry.data = content;
    return entry;
}

Entry directory(const QByteArray &name)
{
    Entry entry;
    entry.name = name.endsWith('/') ? name : name + '/';
    entry.externalAttributes = 0x10;
    return entry;
}

Entry deflated(const QByteArray &name, const QByteArray &content)
{
    Entry entry;
    entry.name = name;
    entry.method = 8;
    entry.plain = content;
    entry.declaredSize = content.size();
    entry.data = deflateWithLibzip(content);
    return entry;
}

QByteArray build(const QList<Entry> &entries)
{
    QByteArray out;
    QByteArray central;
    for (const Entry &entry : entries) {
        const quint64 offset = quint64(out.size());
        const quint64 size = entry.declaredSize < 0 ? quint64(entry.data.size()) : quint64(entry.declaredSize);
        const quint64 compressed = quint64(entry.data.size());
        const quint32 crc = entry.crcOverride >= 0
            ? quint32(entry.crcOverride)
            : crc32(entry.method == 0 || entry.plain.isEmpty() ? entry.data : entry.plain);
        const quint16 needed = entry.zip64 ? 45 : 20;
        QByteArray localExtra;
        QByteArray centralExtra;
        if (entry.zip64) {
            put16(localExtra, 0x0001);
            put16(localExtra, 16);
            put64(localExtra, size);
            put64(localExtra, compressed);
            centralExtra = localExtra;
        }

        put32(out, 0x04034b50);
        put16(out, needed);
        put16(out, entry.flags);
        put16(out, entry.method);
        put16(out, 0);
        put16(out, 0x21);
        put32(out, crc);
        put32(out, entry.zip64 ? 0xFFFFFFFFu : quint32(compressed));
        put32(out, entry.zip64 ? 0xFFFFFFFFu : quint32(size));
        put16(out, quint16(entry.name.size()));
        put16(out, quint16(localExtra.size()));
        out.append(entry.name);
        out.append(localExtra);
        out.append(entry.data);

        put32(central, 0x02014b50);
        put16(central, quint16(entry.madeByHost << 8 | 45));
        put16(central, needed);
        put16(central, entry.flags);
        put16(central, entry.method);
        put16(central, 0);
        put16(central, 0x21);
        put32(central, crc);
        put32(central, entry.zip64 ? 0xFFFFFFFFu : quint32(compressed));
        put32(central, entry.zip64 ? 0xFFFFFFFFu : quint32(size));
        put16(central, quint16(entry.name.size()));
        put16(central, quint16(centralExtra.size()));
        put16(central, 0);
        put16(central, 0);
        put16(central, 0);
        put32(central, entry.externalAttributes);
        put32(central, quint32(offset));
        central.append(entry.name);
        central.append(centralExtra);
    }
    const quint64 centralOffset = quint64(out.size());
    out.append(central);
    const quint64 count = quint64(entries.size());
    const bool zip64End = count > 0xFFFF;
    if (zip64End) {
        const quint64 recordOffset = quint64(out.size());
        put32(out, 0x06064b50);
        put64(out, 44);
        put16(out, 45);
        put16(out, 45);
        put32(out, 0);
        put32(out, 0);
        put64(out, count);
        put64(out, count);
        put64(out, quint64(central.size()));
        put64(out, centralOffset);
        put32(out, 0x07064b50);
        put32(out, 0);
        put64(out, recordOffset);
        put32(out, 1);
    }
    put32(out, 0x06054b50);
    put16(out, 0);
    put16(out, 0);
    put16(out, zip64End ? 0xFFFF : quint16(count));
    put16(out, zip64End ? 0xFFFF : quint16(count));
    put32(out, quint32(central.size()));
    put32(out, quint32(centralOffset));
    put16(out, 0);
    return out;
}

} // namespace ZipCorpus
