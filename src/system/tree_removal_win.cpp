#include "system/tree_removal.h"

#include "system/unique_handle_win.h"

#include <memory>
#include <type_traits>
#include <vector>

#include <windows.h>

namespace TreeRemoval {

namespace {

enum class Kind { Link, Directory, File, Unknown };

// Name surrogates are symbolic links, junctions and their kin; other reparse points (cloud
// placeholders, deduplicated files) are ordinary entries. Wine shows a Unix symlink with tag 0,
// which no real reparse point has, so that counts as a link too.
bool isLink(DWORD attributes, DWORD tag)
{
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) && (tag == 0 || IsReparseTagNameSurrogate(tag));
}

// Paths deeper than MAX_PATH still work through the extended-length form.
std::wstring longForm(const std::wstring &path)
{
    if (path.size() < MAX_PATH - 12 || path.rfind(L"\\\\", 0) == 0)
        return path;
    return L"\\\\?\\" + path;
}

// The entry's own find data, never its target's.
bool findEntry(const std::wstring &path, WIN32_FIND_DATAW *data)
{
    const UniqueFind find(FindFirstFileW(longForm(path).c_str(), data));
    return find.get() != INVALID_HANDLE_VALUE;
}

UniqueHandle openEntry(const std::wstring &path)
{
    // A link is opened itself, never its target. Without delete sharing nobody renames the entry
    // or swaps it for a link while it is open, and on NTFS a directory with an open entry below
    // it cannot be renamed either, so the path to everything under it stays what was checked.
    return UniqueHandle(CreateFileW(longForm(path).c_str(),
                                    DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | FILE_LIST_DIRECTORY | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// What was opened, asked of the handle: the check that counts is on the object that will be
// deleted, not on a path that may have changed since it was listed.
Kind kindOf(HANDLE handle, bool listedAsLink)
{
    FILE_ATTRIBUTE_TAG_INFO tagInfo {};
    DWORD attributes = 0;
    DWORD tag = 0;
    if (GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &tagInfo, sizeof tagInfo)) {
        attributes = tagInfo.FileAttributes;
        tag = tagInfo.ReparseTag;
    } else {
        BY_HANDLE_FILE_INFORMATION info {};
        if (!GetFileInformationByHandle(handle, &info))
            return Kind::Unknown;
        attributes = info.dwFileAttributes;
    }
    if (isLink(attributes, tag))
        return Kind::Link;
    // Listed as a link, but the handle is on something else: Wine opens the target of a Unix
    // symlink even when asked for the link itself, and deleting on that handle would delete the
    // target. Such an entry is neither entered nor deleted.
    if (listedAsLink)
        return Kind::Unknown;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? Kind::Directory : Kind::File;
}

struct Listed
{
    std::wstring name;
    bool link = false;
};

// The entries are listed on the directory handle that is held, never by path again. All of
// them are read before any goes, so deleting does not disturb the listing.
bool listEntries(HANDLE directory, std::vector<Listed> *entries)
{
    alignas(8) static thread_local char buffer[64 * 1024];
    for (;;) {
        if (!GetFileInformationByHandleEx(directory, FileIdBothDirectoryInfo, buffer, sizeof buffer))
            return GetLastError() == ERROR_NO_MORE_FILES;
        for (const char *at = buffer;;) {
            const auto *info = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO *>(at);
            const std::wstring name(info->FileName, info->FileNameLength / sizeof(wchar_t));
            // For a reparse point the listing carries its tag where extended attributes would be.
            if (name != L"." && name != L"..")
                entries->push_back({ name, isLink(info->FileAttributes, info->EaSize) });
            if (!info->NextEntryOffset)
                break;
            at += info->NextEntryOffset;
        }
    }
}

bool deleteOnHandle(HANDLE handle)
{
    // POSIX semantics take the name away at once, even while a scanner still holds the file, so
    // the directory above can go too; read-only entries go without a separate attribute change.
    // The headers declare these only for newer targets than ours; older systems refuse the call.
    const auto dispositionInfoEx = FILE_INFO_BY_HANDLE_CLASS(21);
    const DWORD ignoreReadOnly = 0x10;
    FILE_DISPOSITION_INFO_EX posix { FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS | ignoreReadOnly };
    if (SetFileInformationByHandle(handle, dispositionInfoEx, &posix, sizeof posix))
        return true;
    // Older systems and Wine: the classic delete-on-close, after clearing a read-only bit.
    FILE_BASIC_INFO basic {};
    if (GetFileInformationByHandleEx(handle, FileBasicInfo, &basic, sizeof basic)
        && (basic.FileAttributes & FILE_ATTRIBUTE_READONLY)) {
        basic.FileAttributes &= ~DWORD(FILE_ATTRIBUTE_READONLY);
        SetFileInformationByHandle(handle, FileBasicInfo, &basic, sizeof basic);
    }
    FILE_DISPOSITION_INFO classic { TRUE };
    return SetFileInformationByHandle(handle, FileDispositionInfo, &classic, sizeof classic);
}

bool removeEntry(const std::wstring &path, bool listedAsLink, Report *report)
{
    const UniqueHandle entry(openEntry(path));
    if (entry.get() == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
            return true;
        report->failures.push_back(path);
        return false;
    }
    const Kind kind = kindOf(entry.get(), listedAsLink);
    if (kind == Kind::Link || listedAsLink)
        report->links.push_back(path);
    if (kind == Kind::Unknown) {
        report->failures.push_back(path);
        return false;
    }
    bool removed = true;
    if (kind == Kind::Directory) {
        std::vector<Listed> entries;
        if (!listEntries(entry.get(), &entries)) {
            report->failures.push_back(path);
            return false;
        }
        for (const Listed &listed : entries)
            removed = removeEntry(path + L'\\' + listed.name, listed.link, report) && removed;
    }
    if (!removed || !deleteOnHandle(entry.get())) {
        report->failures.push_back(path);
        return false;
    }
    return true;
}

} // namespace

bool removeTree(const NativePath &path, Report *report)
{
    Report ignored;
    if (!report)
        report = &ignored;
    std::wstring top = path;
    while (top.size() > 3 && (top.back() == L'\\' || top.back() == L'/'))
        top.pop_back();
    // A drive root has no entry of its own and is never removed.
    if (top.empty() || (top.size() <= 3 && top.size() >= 2 && top[1] == L':')) {
        report->failures.push_back(path);
        return false;
    }
    WIN32_FIND_DATAW data {};
    if (!findEntry(top, &data))
        return GetFileAttributesW(longForm(top).c_str()) == INVALID_FILE_ATTRIBUTES;
    return removeEntry(top, isLink(data.dwFileAttributes, data.dwReserved0), report);
}

} // namespace TreeRemoval
