#include "system/file_links.h"

#include <QDir>

#include <windows.h>

namespace FileLinks {

namespace {

bool findData(const QString &path, WIN32_FIND_DATAW *data)
{
    QString native = QDir::toNativeSeparators(path);
    while (native.size() > 3 && native.endsWith(QLatin1Char('\\')))
        native.chop(1);
    // FindFirstFileW describes the entry itself, link or not, without following it; a drive
    // root has no entry of its own and is never a link.
    if (native.size() <= 3 && native.size() >= 2 && native.at(1) == QLatin1Char(':'))
        return false;
    const HANDLE find = FindFirstFileW(reinterpret_cast<const wchar_t *>(native.utf16()), data);
    if (find == INVALID_HANDLE_VALUE)
        return false;
    FindClose(find);
    return true;
}

} // namespace

bool isLink(const QString &path)
{
    if (path.isEmpty() || path.contains(QLatin1Char('*')) || path.contains(QLatin1Char('?')))
        return false;
    WIN32_FIND_DATAW data {};
    if (!findData(path, &data))
        return false;
    if (!(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return false;
    // Name surrogates are symbolic links, junctions and their kin; other reparse points (cloud
    // placeholders, deduplicated files) are ordinary files. Wine reports a Unix symlink with
    // tag 0, which no real reparse point has, so it counts as a link too.
    const DWORD tag = data.dwReserved0;
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

bool exists(const QString &path)
{
    if (path.isEmpty())
        return false;
    const DWORD attributes = GetFileAttributesW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()));
    if (attributes != INVALID_FILE_ATTRIBUTES)
        return true;
    WIN32_FIND_DATAW data {};
    return findData(path, &data);
}

} // namespace FileLinks
