#include "app/log_append.h"
#include "system/handles_win.h"

#include <QDir>

namespace LogAppend {

namespace {

// Windows makes FILE_APPEND_DATA writes atomic appends; Wine does not, so installers sharing the
// day's file also take this session-wide mutex around each line.
HANDLE appendMutex()
{
    static const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, L"Local\\ORLANDA_FIELDWORKS_INC_BrisaLinker_InstallerLog"));
    return mutex.get();
}

bool appendUnlocked(const QString &path, const QByteArray &line)
{
    // FILE_APPEND_DATA without write access makes every WriteFile land at the current end of
    // file. The log folder is writable by the user, so a link planted as the day's file is opened
    // as itself and refused, never followed.
    const UniqueHandle file(CreateFileW(wideChars(QDir::toNativeSeparators(path)), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE || !file)
        return false;
    BY_HANDLE_FILE_INFORMATION opened {};
    if (!GetFileInformationByHandle(file.get(), &opened)
        || (opened.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)))
        return false;
    DWORD written = 0;
    return WriteFile(file.get(), line.constData(), DWORD(line.size()), &written, nullptr)
        && written == DWORD(line.size());
}

} // namespace

bool appendLine(const QString &path, const QByteArray &line)
{
    const HANDLE mutex = appendMutex();
    const DWORD wait = mutex ? WaitForSingleObject(mutex, 5000) : WAIT_FAILED;
    const bool owned = wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
    const bool appended = appendUnlocked(path, line);
    if (owned)
        ReleaseMutex(mutex);
    return appended;
}

QByteArray lineEnd()
{
    return QByteArrayLiteral("\r\n");
}

} // namespace LogAppend
