#pragma once

#include <QtGlobal>

class QFile;

// Reserves the space of a file that is about to be written front to back, so the file system
// allocates it in one run instead of extent by extent as the writes arrive. A hint only: the
// file's size does not change, and where the volume cannot reserve, the writes still work.
namespace FilePreallocation {

void reserve(QFile &file, qint64 size);

} // namespace FilePreallocation
