#pragma once

#include <QByteArray>
#include <QList>

// Builds ZIP archives byte by byte, so a test can say exactly what lies an archive tells: names
// libzip would refuse to write, sizes and CRCs that disagree with the data, duplicate names,
// Unix link entries, ZIP64 records and truncation.
namespace ZipCorpus {

struct Entry
{
    QByteArray name;
    QByteArray data;             // as stored in the archive (already deflated when method is 8)
    quint16 method = 0;          // 0 stored, 8 deflated
    qint64 declaredSize = -1;    // uncompressed size written to the headers; -1: data.size()
    qint64 crcOverride = -1;     // -1: CRC-32 of `plain` (or of data when plain is empty)
    QByteArray plain;            // the uncompressed content, for the CRC of a deflated entry
    quint16 flags = 0;           // bit 0 marks the entry encrypted
    quint32 externalAttributes = 0;
    quint8 madeByHost = 0;       // 3: Unix, whose attributes can declare a symbolic link
    bool zip64 = false;          // sizes in a ZIP64 extra field
};

QByteArray build(const QList<Entry> &entries);

Entry stored(const QByteArray &name, const QByteArray &content = {});
Entry directory(const QByteArray &name);
// An entry deflated by libzip, so the test does not need zlib of its own.
Entry deflated(const QByteArray &name, const QByteArray &content);

quint32 crc32(const QByteArray &data);

} // namespace ZipCorpus
