#include "system/product_processes.h"

#include "system/unique_handle_win.h"

#include <windows.h>
#include <tlhelp32.h>

#include <algorithm>
#include <memory>
#include <type_traits>

namespace ProductProcesses {

namespace Platform {

namespace {

std::wstring imagePath(HANDLE process)
{
    std::wstring buffer(32768, L'\0');
    DWORD size = DWORD(buffer.size());
    if (!QueryFullProcessImageNameW(process, 0, buffer.data(), &size))
        return {};
    buffer.resize(size);
    return buffer;
}

bool alive(HANDLE process)
{
    return WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

std::wstring fileName(const std::wstring &path)
{
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

// Calls visit(pid) for every other process whose executable name is the path's file name (or
// every other process when the name is empty); false when the process list cannot be read.
template<typename Visit>
bool forEachNamed(const std::wstring &name, Visit visit)
{
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot || snapshot.get() == INVALID_HANDLE_VALUE)
        return false;
    PROCESSENTRY32W entry {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID != GetCurrentProcessId() && (name.empty() || _wcsicmp(entry.szExeFile, name.c_str()) == 0))
            visit(entry.th32ProcessID);
    }
    return true;
}

} // namespace

std::vector<NativePath> subdirectories(const NativePath &root)
{
    std::vector<NativePath> names;
    WIN32_FIND_DATAW found {};
    const HANDLE search = FindFirstFileW((root + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do {
        const std::wstring name = found.cFileName;
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && name != L"." && name != L"..")
            names.push_back(name);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

std::vector<NativePath> runningImagesUnder(const NativePath &root)
{
    std::vector<NativePath> images;
    if (root.find_first_not_of(L" \t") == std::wstring::npos)
        return images;
    const std::wstring prefix = normalizedWindowsPath(root) + L"\\";
    forEachNamed({}, [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
        if (!process)
            return;
        const std::wstring image = imagePath(process.get());
        if (!image.empty() && normalizedWindowsPath(image).rfind(prefix, 0) == 0)
            images.push_back(image);
    });
    return images;
}

bool isProcessRunningAtPath(const NativePath &path)
{
    const std::wstring wanted = normalizedWindowsPath(path);
    bool running = false;
    forEachNamed(fileName(path), [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, pid));
        if (process && normalizedWindowsPath(imagePath(process.get())) == wanted && alive(process.get()))
            running = true;
    });
    return running;
}

bool forceStopAttempt(const NativePath &path, int attempt, std::chrono::steady_clock::time_point until,
                      const Notify &notify)
{
    const std::wstring wanted = normalizedWindowsPath(path);
    const bool listed = forEachNamed(fileName(path), [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, pid));
        if (!process || normalizedWindowsPath(imagePath(process.get())) != wanted || !alive(process.get()))
            return;
        if (notify)
            notify({ Note::ForceStopping, path, attempt, pid });
        if (!TerminateProcess(process.get(), 1)) {
            if (notify)
                notify({ Note::ForceStopFailed, path, attempt, pid, GetLastError() });
            return;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        WaitForSingleObject(process.get(), DWORD(std::clamp<long long>(left.count(), 0, 800)));
    });
    if (!listed) {
        const DWORD error = GetLastError();
        if (isProcessRunningAtPath(path) && notify)
            notify({ Note::EnumerationFailed, path, attempt, 0, error });
    }
    return listed;
}

LockState lockState(const NativePath &path)
{
    const UniqueHandle file(CreateFileW(path.c_str(), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (file && file.get() != INVALID_HANDLE_VALUE)
        return LockState::Free;
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return LockState::Free;
    if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION)
        return LockState::Locked;
    return LockState::OtherError;
}

void sleepFor(std::chrono::milliseconds duration)
{
    Sleep(DWORD(std::max<long long>(duration.count(), 0)));
}

NativePath lowered(NativePath text)
{
    if (!text.empty())
        CharLowerBuffW(text.data(), DWORD(text.size()));
    return text;
}

} // namespace Platform

} // namespace ProductProcesses
