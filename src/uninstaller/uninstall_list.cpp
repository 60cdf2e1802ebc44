#include "uninstall_list.h"
#include "system/tree_removal.h"

#include <windows.h>

#include <cwctype>

namespace {

const char magic[] = "BRISALINKER_UNINSTALL_V1";
const DWORD largestList = 16 * 1024 * 1024;

bool isReparsePoint(const std::wstring &path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

std::wstring lastComponent(const std::wstring &path)
{
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

std::wstring nativeJoin(const std::wstring &directory, const std::wstring &relative)
{
    std::wstring result = directory + L"\\" + relative;
    for (wchar_t &c : result) {
        if (c == L'/')
            c = L'\\';
    }
    return result;
}

// Every directory between the installation and the entry must be a real directory: a link there
// could point the deletion at anything on the machine.
bool parentsAreReal(const std::wstring &installDirectory, const std::wstring &relative)
{
    size_t slash = relative.find(L'/');
    while (slash != std::wstring::npos) {
        if (isReparsePoint(nativeJoin(installDirectory, relative.substr(0, slash))))
            return false;
        slash = relative.find(L'/', slash + 1);
    }
    return true;
}

bool utf8ToWide(const std::string &bytes, std::wstring *text)
{
    if (bytes.empty()) {
        text->clear();
        return true;
    }
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), int(bytes.size()), nullptr, 0);
    if (length <= 0)
        return false;
    text->assign(size_t(length), L'\0');
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), int(bytes.size()), text->data(), length) == length;
}

bool readWhole(const std::wstring &path, std::string *bytes)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    BY_HANDLE_FILE_INFORMATION information {};
    bool ok = GetFileInformationByHandle(file, &information)
        && !(information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY))
        && information.nFileSizeHigh == 0 && information.nFileSizeLow <= largestList;
    if (ok) {
        bytes->assign(information.nFileSizeLow, '\0');
        DWORD read = 0;
        ok = ReadFile(file, bytes->data(), information.nFileSizeLow, &read, nullptr) && read == information.nFileSizeLow;
    }
    CloseHandle(file);
    return ok;
}

} // namespace

bool safeRelativePath(const std::wstring &path)
{
    if (path.empty() || path.front() == L'/' || path.find(L':') != std::wstring::npos || path.find(L'\\') != std::wstring::npos)
        return false;
    size_t start = 0;
    while (true) {
        const size_t slash = path.find(L'/', start);
        const std::wstring part = path.substr(start, slash == std::wstring::npos ? std::wstring::npos : slash - start);
        if (part.empty() || part == L"." || part == L"..")
            return false;
        for (wchar_t c : part) {
            if (c < 0x20)
                return false;
        }
        if (slash == std::wstring::npos)
            return true;
        start = slash + 1;
    }
}

bool readUninstallList(const std::wstring &installDirectory, UninstallList *list)
{
    if (installDirectory.size() < 4 || _wcsicmp(lastComponent(installDirectory).c_str(), L"BrisaLinker") != 0)
        return false;
    // The installation directory itself and every ancestor must be real directories.
    std::wstring path = installDirectory;
    while (path.size() > 3) {
        if (isReparsePoint(path))
            return false;
        const size_t slash = path.find_last_of(L"\\/");
        if (slash == std::wstring::npos)
            break;
        path.resize(slash);
    }
    std::string bytes;
    if (!readWhole(installDirectory + L"\\uninstall.dat", &bytes))
        return false;
    size_t start = 0;
    bool first = true;
    while (start < bytes.size()) {
        size_t end = bytes.find('\n', start);
        if (end == std::string::npos)
            end = bytes.size();
        std::string line = bytes.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (first) {
            if (line != magic)
                return false;
            first = false;
            continue;
        }
        if (line.empty())
            continue;
        std::wstring path;
        const bool known = line.size() > 2 && (line[0] == 'F' || line[0] == 'D') && line[1] == '\t';
        if (!known || !utf8ToWide(line.substr(2), &path) || !safeRelativePath(path)) {
            ++list->refusedLines;
            continue;
        }
        (line[0] == 'F' ? list->files : list->directories).push_back(path);
    }
    return !first;
}

RemovalResult removeListedEntries(const std::wstring &installDirectory, const UninstallList &list,
                                  const std::wstring &deferred)
{
    RemovalResult result;
    result.failures = list.refusedLines;
    for (const std::wstring &relative : list.files) {
        if (!deferred.empty() && _wcsicmp(relative.c_str(), deferred.c_str()) == 0)
            continue;
        const std::wstring path = nativeJoin(installDirectory, relative);
        if (!parentsAreReal(installDirectory, relative)) {
            ++result.failures;
            continue;
        }
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            continue; // already gone
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
            ++result.failures; // listed as a file, but a directory stands there now: not ours
            continue;
        }
        // The installer's own removal: checked again on the opened entry, a link removed as
        // itself and never followed, a read-only file removed too.
        if (!TreeRemoval::removeTree(path))
            ++result.failures;
    }
    for (const std::wstring &relative : list.directories) {
        if (!parentsAreReal(installDirectory, relative)) {
            ++result.failures;
            continue;
        }
        // Only empty directories go: whatever the user put inside keeps its directory.
        RemoveDirectoryW(nativeJoin(installDirectory, relative).c_str());
    }
    RemoveDirectoryW(installDirectory.c_str());
    return result;
}

bool removeDeferred(const std::wstring &installDirectory, const std::wstring &deferred)
{
    const std::wstring path = nativeJoin(installDirectory, deferred);
    bool removed = false;
    // The process that ran from this file may take a moment to let go of it.
    for (int attempt = 0; attempt < 50 && !removed; ++attempt) {
        removed = DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND;
        if (!removed)
            Sleep(100);
    }
    RemoveDirectoryW(installDirectory.c_str());
    return removed;
}
