#include "extract/file_preallocation.h"

#include <QFile>

#ifdef Q_OS_LINUX
#include <fcntl.h>
#endif

void FilePreallocation::reserve(QFile &file, qint64 size)
{
#ifdef Q_OS_LINUX
    // fallocate(2), not posix_fallocate: where the file system cannot reserve, glibc's fallback
    // would write the whole size in zeros first.
    if (size > 0 && file.handle() >= 0)
        (void)::fallocate(file.handle(), FALLOC_FL_KEEP_SIZE, 0, off_t(size));
#else
    Q_UNUSED(file);
    Q_UNUSED(size);
#endif
}
