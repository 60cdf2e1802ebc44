#include "extract/file_preallocation.h"

#include <QFile>

#include <io.h>
#include <windows.h>

void FilePreallocation::reserve(QFile &file, qint64 size)
{
    if (size <= 0 || file.handle() < 0)
        return;
    // QFile hands out a C runtime descriptor over its own handle; the handle stays QFile's.
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(file.handle()));
    if (handle == INVALID_HANDLE_VALUE)
        return;
    // Allocation, not end of file: NTFS reserves the clusters without zero-filling them, and
    // releases what was not written when the last handle closes.
    FILE_ALLOCATION_INFO allocation {};
    allocation.AllocationSize.QuadPart = size;
    (void)SetFileInformationByHandle(handle, FileAllocationInfo, &allocation, sizeof allocation);
}
