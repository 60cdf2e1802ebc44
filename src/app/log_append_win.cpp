#include "app/log_append.h"
#include "system/handles_win.h"

#include <QDir>

namespace LogAppend {

bool appendLine(const QString &path, const QByteArray &line)
{
    // FILE_APPEND_DATA without write access makes every WriteFile land at the current end of
    // file, atomically with respect to other appenders.
    const UniqueHandle file(CreateFileW(wideChars(QDir::toNativeSeparators(path)), FILE_APPEND_DATA | SYNCHRONIZE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE || !file)
        return false;
    DWORD written = 0;
    return WriteFile(file.get(), line.constData(), DWORD(line.size()), &written, nullptr)
        && written == DWORD(line.size());
}

QByteArray lineEnd()
{
    return QByteArrayLiteral("\r\n");
}

} // namespace LogAppend
