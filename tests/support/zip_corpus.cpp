#include "support/zip_corpus.h"

#include <QtEndian>

#include <zip.h>

#include <array>

namespace {

template <typename T>
void put(QByteArray &out, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(T));
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
    zip_set_file_compression(archive, zip_uint64_t(zip_file_add(archive, "x", data, 0)), ZIP_CM_DEFLATE, 9);
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
    Entry entry = stored(name.endsWith('/') ? name : name + '/');
    entry.externalAttributes = 0x10;
    return entry;
}

Entry deflated(const QByteArray &name, const QByteArray &content)
{
    Entry entry = stored(name, deflateWithLibzip(content));
    entry.method = 8;
    entry.plain = content;
    entry.declaredSize = content.size();
    return entry;
}

QByteArray build(const QList<Entry> &entries)
{
    QByteArray out;
    QByteArray central;
    for (const Entry &entry : entries) {
        const quint64 size = entry.declaredSize < 0 ? quint64(entry.data.size()) : quint64(entry.declaredSize);
        const quint64 compressed = quint64(entry.data.size());
        const quint32 crc = entry.crcOverride >= 0 ? quint32(entry.crcOverride)
                                                   : crc32(entry.method == 0 || entry.plain.isEmpty() ? entry.data : entry.plain);
        QByteArray extra;
        if (entry.zip64) {
            put<quint16>(extra, 0x0001);
            put<quint16>(extra, 16);
            put<quint64>(extra, size);
            put<quint64>(extra, compressed);
        }
        // The fields both headers share, from "version needed" to the extra field's length.
        const auto common = [&](QByteArray &header) {
            for (const quint16 field : { quint16(entry.zip64 ? 45 : 20), entry.flags, entry.method, quint16(0), quint16(0x21) })
                put(header, field);
            put(header, crc);
            put(header, entry.zip64 ? 0xFFFFFFFFu : quint32(compressed));
            put(header, entry.zip64 ? 0xFFFFFFFFu : quint32(size));
            put(header, quint16(entry.name.size()));
            put(header, quint16(extra.size()));
        };
        put<quint32>(central, 0x02014b50);
        put(central, quint16(entry.madeByHost << 8 | 45));
        common(central);
        for (const quint16 field : { 0, 0, 0 }) // comment length, disk, internal attributes
            put(central, field);
        put(central, entry.externalAttributes);
        put(central, quint32(out.size()));
        central.append(entry.name + extra);

        put<quint32>(out, 0x04034b50);
        common(out);
        out.append(entry.name + extra + entry.data);
    }
    const quint64 centralOffset = quint64(out.size());
    out.append(central);
    const quint64 count = quint64(entries.size());
    const bool zip64End = count > 0xFFFF;
    if (zip64End) {
        const quint64 recordOffset = quint64(out.size());
        put<quint32>(out, 0x06064b50);
        put<quint64>(out, 44);
        for (const quint16 version : { 45, 45 })
            put(out, version);
        put<quint64>(out, 0); // this disk and the directory's disk
        for (const quint64 field : { count, count, quint64(central.size()), centralOffset })
            put(out, field);
        put<quint32>(out, 0x07064b50);
        put<quint32>(out, 0);
        put<quint64>(out, recordOffset);
        put<quint32>(out, 1);
    }
    put<quint32>(out, 0x06054b50);
    put<quint32>(out, 0);
    for (int twice = 0; twice < 2; ++twice)
        put(out, zip64End ? quint16(0xFFFF) : quint16(count));
    put(out, quint32(central.size()));
    put(out, quint32(centralOffset));
    put<quint16>(out, 0);
    return out;
}

} // namespace ZipCorpus
