#include "browser/browser_cache_reset.h"
#include "browser/browser_cache_reset_platform.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/handles_win.h"

#include <QDir>

#include <windows.h>
#include <winternl.h>
#include <knownfolders.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>

#include <vector>

namespace {

void closeLock(void *handle)
{
    HandleCloser()(static_cast<HANDLE>(handle));
}

struct CoTaskFreer
{
    void operator()(wchar_t *memory) const { CoTaskMemFree(memory); }
};

using NtQueryInformationProcessFunction = NTSTATUS(NTAPI *)(HANDLE, PROCESSINFOCLASS, PVOID, ULONG, PULONG);

// Not linked: ntdll's export is undocumented, so it is looked up where it is needed.
NtQueryInformationProcessFunction queryInformationProcess()
{
    static const auto function = reinterpret_cast<NtQueryInformationProcessFunction>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess")));
    return function;
}

template<typename T>
bool readRemote(HANDLE process, const void *address, T *value)
{
    SIZE_T read = 0;
    return address && ReadProcessMemory(process, address, value, sizeof(T), &read) && read == sizeof(T);
}

// The command line a process was started with, read from its own process parameters rather
// than from anything it could have been told to report.
bool readCommandLine(HANDLE process, QString *commandLine)
{
    const NtQueryInformationProcessFunction query = queryInformationProcess();
    PROCESS_BASIC_INFORMATION basic {};
    ULONG returned = 0;
    if (!query || query(process, ProcessBasicInformation, &basic, sizeof(basic), &returned) < 0)
        return false;
    PEB peb {};
    RTL_USER_PROCESS_PARAMETERS parameters {};
    if (!readRemote(process, basic.PebBaseAddress, &peb) || !readRemote(process, peb.ProcessParameters, &parameters))
        return false;
    const UNICODE_STRING &line = parameters.CommandLine;
    if (!line.Buffer || line.Length == 0 || line.Length % 2 != 0)
        return false;
    std::vector<wchar_t> text(line.Length / 2);
    SIZE_T read = 0;
    if (!ReadProcessMemory(process, line.Buffer, text.data(), line.Length, &read) || read != line.Length)
        return false;
    *commandLine = QString::fromWCharArray(text.data(), int(text.size()));
    return true;
}

QStringList splitCommandLine(const QString &commandLine)
{
    int count = 0;
    const UniqueLocal<wchar_t *> arguments(CommandLineToArgvW(wideChars(commandLine), &count));
    QStringList result;
    for (int index = 0; arguments && index < count; ++index)
        result.append(QString::fromWCharArray(arguments.get()[index]));
    return result;
}

bool browserImage(const QString &name)
{
    for (const char *image : { "pellacore.exe", "bl-core.exe", "brisalinker.exe", "chrome.exe", "chromium.exe" }) {
        if (name.compare(QLatin1String(image), Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

namespace BrowserCacheResetPlatform {

QString desktopProfileDirectory()
{
    const HANDLE token = static_cast<HANDLE>(DesktopUser::token());
    wchar_t *raw = nullptr;
    const HRESULT result = token ? SHGetKnownFolderPath(FOLDERID_Profile, KF_FLAG_DONT_VERIFY, token, &raw) : E_FAIL;
    const std::unique_ptr<wchar_t, CoTaskFreer> owned(raw);
    if (FAILED(result) || !raw)
        return {};
    return QDir::fromNativeSeparators(QString::fromWCharArray(raw));
}

Impersonation::Impersonation()
    : m_active(DesktopUser::token() && ImpersonateLoggedOnUser(static_cast<HANDLE>(DesktopUser::token())))
{
}

Impersonation::~Impersonation()
{
    if (m_active)
        RevertToSelf();
}

BrowserCacheReset::DirectoryLock lockDirectory(const QString &path)
{
    // Listing access with no delete sharing: while this handle is open nobody can rename or
    // remove the directory and put a link in its place. The reparse point itself is opened,
    // never its target.
    const HANDLE handle = CreateFileW(wideChars(QDir::toNativeSeparators(path)), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    BrowserCacheReset::DirectoryLock lock(handle == INVALID_HANDLE_VALUE ? nullptr : handle, closeLock);
    BY_HANDLE_FILE_INFORMATION information {};
    if (!lock || !GetFileInformationByHandle(handle, &information)
        || !(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        || (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || FileLinks::isLink(path)) {
        return { nullptr, closeLock };
    }
    return lock;
}

} // namespace BrowserCacheResetPlatform

namespace BrowserCacheReset {

bool browserIdle(const QString &userDataDirectory)
{
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot || snapshot.get() == INVALID_HANDLE_VALUE)
        return false;
    PROCESSENTRY32W entry {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == GetCurrentProcessId() || !browserImage(QString::fromWCharArray(entry.szExeFile)))
            continue;
        const UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, entry.th32ProcessID));
        // A process that ended since the snapshot uses nothing any more.
        if (!process && GetLastError() == ERROR_INVALID_PARAMETER)
            continue;
        QString commandLine;
        if (!process || !readCommandLine(process.get(), &commandLine))
            return false;
        if (BrowserCacheResetPlatform::namesDirectory(splitCommandLine(commandLine), userDataDirectory))
            return false;
    }
    return true;
}

bool renameDirectory(const QString &from, const QString &to)
{
    // A rename within one directory that fails rather than replace or copy anything.
    return MoveFileExW(wideChars(QDir::toNativeSeparators(from)), wideChars(QDir::toNativeSeparators(to)),
                       MOVEFILE_WRITE_THROUGH) != 0;
}

} // namespace BrowserCacheReset
