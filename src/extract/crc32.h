#pragma once

#include <QtGlobal>

// The ZIP CRC-32 of a stream of blocks. Where the processor multiplies carry-less (PCLMULQDQ,
// every x86-64 processor since about 2010) it folds 64 bytes per step, several times faster
// than zlib's table-driven crc32; elsewhere it is zlib's.
namespace Crc32 {

// `crc` is the value so far (0 for an empty stream); returns the value including `data`.
quint32 update(quint32 crc, const char *data, qint64 length);

} // namespace Crc32
