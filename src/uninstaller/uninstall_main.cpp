// The product's uninstaller: removes exactly what the installer listed in "uninstall.dat" beside
// it, the maintenance service, and the registrations that still point at this installation, and
// nothing else. Files the user added, and directories that still hold them, stay.
//
//   uninstall.exe [/S]        ask (unless /S), then re-run from a temporary copy, as an
//                             administrator when the installation needs one, and remove
//   uninstall.exe --in-place  remove without the temporary copy (tests, repair)
//
// Running product processes are closed first, with the installer's question and deadline. A
// silent run asks nothing: whoever passes /S has decided, and a question no one can answer would
// make every silent removal fail while the product sits in the tray; a process that does not
// close in time still stops it before anything is removed.
//
// It is a plain Win32 program without the GUI toolkit, so it stays small enough to be embedded in
// the installer. Exit codes: 0 removed, 1 cancelled or refused, 2 something could not be removed.

#include "uninstall_elevation.h"
#include "uninstall_list.h"
#include "uninstall_registrations.h"
#include "uninstall_service.h"
#include "uninstall_text.h"
#include "system/product_processes.h"

#include <windows.h>
#include <sddl.h>
#include <shellapi.h>

#include <string>
#include <vector>

namespace {

struct Options
{
    bool silent = false;
    bool inPlace = false;
    std::wstring from; // set in the temporary copy: the installation it works on
    DWORD waitPid = 0; // the process that started the copy, and waits for its result
    unsigned long long copyHandle = 0; // that process's delete-on-close handle of the copy
};

std::wstring ownPath()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), DWORD(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

std::wstring directoryOf(const std::wstring &path)
{
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}

// The objects the starting process and its copy meet at: two events the copy sets with its result,
// and a mutex the starting process holds while it runs (abandoned once it has ended, which the
// copy may not be allowed to see through the process itself when it runs as an administrator of
// another account).
std::wstring syncName(DWORD parent, const wchar_t *what)
{
    return L"Local\\BrisaLinkerUninstall-" + std::to_wstring(parent) + what;
}
const wchar_t *const removedEvent = L"-removed";
const wchar_t *const incompleteEvent = L"-incomplete";
const wchar_t *const aliveMutex = L"-alive";

// Only this user, administrators and the system may touch them.
struct SyncSecurity
{
    SECURITY_ATTRIBUTES attributes { sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE };
    SyncSecurity()
    {
        const std::wstring sddl = L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;" + processUserSid() + L")";
        ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &attributes.lpSecurityDescriptor, nullptr);
    }
    ~SyncSecurity() { LocalFree(attributes.lpSecurityDescriptor); }
    SECURITY_ATTRIBUTES *get() { return attributes.lpSecurityDescriptor ? &attributes : nullptr; }
};

std::wstring quoted(const std::wstring &argument)
{
    std::wstring result = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        result.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        result += c;
        backslashes = 0;
    }
    result.append(backslashes * 2, L'\\');
    return result + L"\"";
}

// Starts the copy, through the "runas" verb when an administrator is needed (the copy then cannot
// inherit anything, which is why it takes its handles from us itself). Null when it did not start.
HANDLE startCopy(const std::wstring &copy, const std::wstring &arguments, const std::wstring &directory, bool elevate)
{
    if (elevate) {
        SHELLEXECUTEINFOW info {};
        info.cbSize = sizeof(info);
        info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
        info.lpVerb = L"runas";
        info.lpFile = copy.c_str();
        info.lpParameters = arguments.c_str();
        info.lpDirectory = directory.c_str();
        info.nShow = SW_SHOWNORMAL;
        return ShellExecuteExW(&info) ? info.hProcess : nullptr;
    }
    std::wstring commandLine = quoted(copy) + L" " + arguments;
    STARTUPINFOW startup {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process {};
    if (!CreateProcessW(copy.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, directory.c_str(), &startup, &process))
        return nullptr;
    CloseHandle(process.hThread);
    return process.hProcess;
}

// A running program cannot delete itself: a copy in the temporary folder does the work, and this
// process waits for its result, then removes the user's own registrations with the user's own
// token (an administrator's copy may run as another account). The copy removes this file after
// we have ended. The copy itself is opened here for deletion on close: Windows deletes it once
// the last handle is gone, which is the copy's own duplicate, closed when it ends. No reboot.
int relaunchFromTemporaryCopy(const std::wstring &installDirectory, bool silent)
{
    wchar_t temp[MAX_PATH + 1] = {};
    if (!GetTempPathW(MAX_PATH, temp))
        return 1;
    const std::wstring copy = std::wstring(temp) + L"BrisaLinkerUninstall-" + std::to_wstring(GetCurrentProcessId()) + L".exe";
    if (!CopyFileW(ownPath().c_str(), copy.c_str(), FALSE))
        return 1;
    const HANDLE copyFile = CreateFileW(copy.c_str(), DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (copyFile == INVALID_HANDLE_VALUE) {
        DeleteFileW(copy.c_str());
        return 1;
    }
    std::wstring arguments = L"--from " + quoted(installDirectory) + L" --wait-pid " + std::to_wstring(GetCurrentProcessId())
        + L" --copy-handle " + std::to_wstring(reinterpret_cast<unsigned long long>(copyFile));
    if (silent)
        arguments += L" /S";
    SyncSecurity security;
    const DWORD self = GetCurrentProcessId();
    const HANDLE finished[2] = { CreateEventW(security.get(), TRUE, FALSE, syncName(self, removedEvent).c_str()),
                                 CreateEventW(security.get(), TRUE, FALSE, syncName(self, incompleteEvent).c_str()) };
    const HANDLE alive = CreateMutexW(security.get(), TRUE, syncName(self, aliveMutex).c_str());
    const HANDLE process = startCopy(copy, arguments, temp, needsElevation(installDirectory));
    int code = 1;
    if (process) {
        const HANDLE waits[3] = { finished[0], finished[1], process };
        const DWORD which = WaitForMultipleObjects(3, waits, FALSE, INFINITE);
        DWORD exitCode = 1;
        if (which == WAIT_OBJECT_0 || which == WAIT_OBJECT_0 + 1)
            code = which == WAIT_OBJECT_0 ? 0 : 2;
        else
            code = GetExitCodeProcess(process, &exitCode) ? int(exitCode) : 1;
        // The copy got as far as removing files: the registrations go too.
        if (code == 0 || code == 2)
            removeRegistrations(installDirectory);
        CloseHandle(process);
    }
    CloseHandle(finished[0]);
    CloseHandle(finished[1]);
    CloseHandle(copyFile);
    CloseHandle(alive); // ends the copy's wait
    return code;
}

// Waits (at most 30 s) until the starting process has ended: its mutex is then abandoned. Its
// file may stay in use a moment longer; removeDeferred retries.
void waitForParent(DWORD parent)
{
    const HANDLE alive = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, syncName(parent, aliveMutex).c_str());
    if (!alive)
        return;
    const DWORD waited = WaitForSingleObject(alive, 30000);
    if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED)
        ReleaseMutex(alive);
    CloseHandle(alive);
}

// Holds this copy's file open for deletion until this process ends (the handle is never closed).
void takeOverOwnDeletion(DWORD parent, unsigned long long handle)
{
    const HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, parent);
    HANDLE own = nullptr;
    const bool taken = process && DuplicateHandle(process, reinterpret_cast<HANDLE>(handle), GetCurrentProcess(), &own, 0, FALSE,
                                                  DUPLICATE_SAME_ACCESS);
    if (process)
        CloseHandle(process);
    if (!taken)
        MoveFileExW(ownPath().c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT); // the last resort; needs an administrator
}

// Asks before running product processes are force-closed (not when silent); the maintenance
// service is not among them. False when the user declined.
bool mayCloseRunningProduct(const std::wstring &installDirectory, const std::vector<std::wstring> &spared, bool silent)
{
    std::wstring shown;
    for (const std::wstring &path : ProductProcesses::runningInstallProcesses(installDirectory, {})) {
        bool skip = false;
        for (const std::wstring &program : spared)
            skip = skip || ProductProcesses::normalizedWindowsPath(path) == ProductProcesses::normalizedWindowsPath(program);
        if (!skip)
            shown += (shown.empty() ? L"" : L"\n") + path;
    }
    if (silent || shown.empty())
        return true;
    for (wchar_t &c : shown) {
        if (c == L'/')
            c = L'\\';
    }
    const Text &text = uninstallerText();
    const std::wstring question = text.runningBefore + shown + text.runningAfter;
    return MessageBoxW(nullptr, question.c_str(), text.running, MB_OKCANCEL | MB_ICONWARNING | MB_DEFBUTTON2) == IDOK;
}

// Closes the product's processes within the installer's deadline; asks whether to retry when
// one stays (not when silent). False when it stayed.
bool closeRunningProduct(const std::wstring &installDirectory, const std::vector<std::wstring> &spared, bool silent)
{
    const Text &text = uninstallerText();
    for (;;) {
        const ProductProcesses::Outcome outcome = ProductProcesses::prepareExistingInstallation(installDirectory, {}, spared);
        if (outcome == ProductProcesses::Outcome::Ready)
            return true;
        const wchar_t *message = outcome == ProductProcesses::Outcome::NotClosed ? text.notClosed : text.stillLocked;
        if (silent || MessageBoxW(nullptr, message, text.title, MB_RETRYCANCEL | MB_ICONWARNING) != IDRETRY)
            return false;
    }
}

Options parse()
{
    Options options;
    int count = 0;
    wchar_t **arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; arguments && i < count; ++i) {
        const std::wstring argument = arguments[i];
        if (_wcsicmp(argument.c_str(), L"/S") == 0)
            options.silent = true;
        else if (argument == L"--in-place")
            options.inPlace = true;
        else if (argument == L"--from" && i + 1 < count)
            options.from = arguments[++i];
        else if (argument == L"--wait-pid" && i + 1 < count)
            options.waitPid = DWORD(wcstoul(arguments[++i], nullptr, 10));
        else if (argument == L"--copy-handle" && i + 1 < count)
            options.copyHandle = wcstoull(arguments[++i], nullptr, 10);
    }
    LocalFree(arguments);
    return options;
}

} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    const Options options = parse();
    const bool silent = options.silent;
    const Text &text = uninstallerText();
    const std::wstring installDirectory = options.from.empty() ? directoryOf(ownPath()) : options.from;
    if (options.from.empty() && !options.inPlace) {
        if (!silent && MessageBoxW(nullptr, text.confirm, text.title, MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2) != IDYES)
            return 1;
        return relaunchFromTemporaryCopy(installDirectory, silent);
    }
    // The starting process waits for our signal and holds its file (uninstall.exe) until then, so
    // that file is removed last.
    const bool parentWaits = options.waitPid != 0;
    if (parentWaits && options.copyHandle)
        takeOverOwnDeletion(options.waitPid, options.copyHandle);

    UninstallList list;
    if (!readUninstallList(installDirectory, &list)) {
        if (!silent)
            MessageBoxW(nullptr, text.notInstallation, text.title, MB_OK | MB_ICONERROR);
        return 1;
    }
    const std::wstring self = L"uninstall.exe";
    const std::vector<std::wstring> spared { ownPath(), installDirectory + L"\\" + self };
    if (!mayCloseRunningProduct(installDirectory, spared, silent))
        return 1;
    RemovalResult removed;
    // The service first, through its control manager: terminated like the other processes, its
    // recovery actions would start it again.
    if (!removeMaintenanceService(installDirectory))
        ++removed.failures;
    if (!closeRunningProduct(installDirectory, spared, silent))
        return 1;
    bool selfListed = false;
    for (const std::wstring &file : list.files)
        selfListed = selfListed || _wcsicmp(file.c_str(), self.c_str()) == 0;
    removed.failures += removeListedEntries(installDirectory, list, parentWaits ? self : std::wstring()).failures;
    if (!removeMachineRegistrations(installDirectory))
        ++removed.failures;
    if (!parentWaits)
        removeRegistrations(installDirectory);
    if (parentWaits) {
        const HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE,
                                        syncName(options.waitPid, removed.failures == 0 ? removedEvent : incompleteEvent).c_str());
        if (event) {
            SetEvent(event);
            CloseHandle(event);
        }
        waitForParent(options.waitPid);
        if (selfListed && !removeDeferred(installDirectory, self))
            ++removed.failures;
    }

    if (!silent) {
        MessageBoxW(nullptr, removed.failures == 0 ? text.done : text.incomplete, text.title,
                    MB_OK | (removed.failures == 0 ? MB_ICONINFORMATION : MB_ICONWARNING));
    }
    return removed.failures == 0 ? 0 : 2;
}
