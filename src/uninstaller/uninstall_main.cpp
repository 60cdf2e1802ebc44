// The product's uninstaller: removes exactly what the installer listed in "uninstall.dat" beside
// it, and the registrations that still point at this installation, and nothing else. Files the
// user added, and directories that still hold them, stay.
//
//   uninstall.exe [/S]        ask (unless /S), then re-run from a temporary copy and remove
//   uninstall.exe --in-place  remove without the temporary copy (tests, repair)
//
// It is a plain Win32 program without the GUI toolkit, so it stays small enough to be embedded in
// the installer. Exit codes: 0 removed, 1 cancelled or refused, 2 something could not be removed.

#include "uninstall_list.h"
#include "uninstall_registrations.h"
#include "uninstall_text.h"

#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

namespace {

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

std::wstring resultEventName(DWORD parent, bool success)
{
    return L"Local\\BrisaLinkerUninstall-" + std::to_wstring(parent) + (success ? L"-removed" : L"-incomplete");
}

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

// A running exe cannot delete itself: a copy in the temporary directory does the work and waits
// for this process to end first.
int relaunchFromTemporaryCopy(const std::wstring &installDirectory, bool silent)
{
    wchar_t temp[MAX_PATH + 1] = {};
    if (!GetTempPathW(MAX_PATH, temp))
        return 1;
    const std::wstring copy = std::wstring(temp) + L"BrisaLinkerUninstall-" + std::to_wstring(GetCurrentProcessId()) + L".exe";
    if (!CopyFileW(ownPath().c_str(), copy.c_str(), FALSE))
        return 1;
    std::wstring commandLine = quoted(copy) + L" --from " + quoted(installDirectory) + L" --wait-pid "
        + std::to_wstring(GetCurrentProcessId());
    if (silent)
        commandLine += L" /S";
    STARTUPINFOW startup {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process {};
    // A silent caller waits for the real result: the copy signals it once everything but this
    // running file is removed, then removes this file after we have ended.
    const HANDLE finished[2] = { CreateEventW(nullptr, TRUE, FALSE, resultEventName(GetCurrentProcessId(), true).c_str()),
                                 CreateEventW(nullptr, TRUE, FALSE, resultEventName(GetCurrentProcessId(), false).c_str()) };
    if (!CreateProcessW(copy.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, temp, &startup, &process))
        return 1;
    CloseHandle(process.hThread);
    int code = 0;
    if (silent) {
        const HANDLE waits[3] = { finished[0], finished[1], process.hProcess };
        const DWORD which = WaitForMultipleObjects(3, waits, FALSE, INFINITE);
        DWORD exitCode = 1;
        if (which == WAIT_OBJECT_0)
            code = 0;
        else if (which == WAIT_OBJECT_0 + 1)
            code = 2;
        else
            code = GetExitCodeProcess(process.hProcess, &exitCode) ? int(exitCode) : 1;
    }
    CloseHandle(process.hProcess);
    CloseHandle(finished[0]);
    CloseHandle(finished[1]);
    return code;
}

void waitForProcess(DWORD processId)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, processId);
    if (!process)
        return;
    WaitForSingleObject(process, 30000);
    CloseHandle(process);
}

} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    int count = 0;
    wchar_t **arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    bool silent = false;
    bool inPlace = false;
    std::wstring from;
    DWORD waitPid = 0;
    for (int i = 1; arguments && i < count; ++i) {
        const std::wstring argument = arguments[i];
        if (_wcsicmp(argument.c_str(), L"/S") == 0)
            silent = true;
        else if (argument == L"--in-place")
            inPlace = true;
        else if (argument == L"--from" && i + 1 < count)
            from = arguments[++i];
        else if (argument == L"--wait-pid" && i + 1 < count)
            waitPid = DWORD(wcstoul(arguments[++i], nullptr, 10));
    }
    LocalFree(arguments);

    const Text &text = uninstallerText();
    const std::wstring installDirectory = from.empty() ? directoryOf(ownPath()) : from;
    if (from.empty() && !inPlace) {
        if (!silent && MessageBoxW(nullptr, text.confirm, text.title, MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2) != IDYES)
            return 1;
        return relaunchFromTemporaryCopy(installDirectory, silent);
    }
    // Interactively the starting process has already ended; a silent one waits for our signal
    // and holds its file (uninstall.exe) until then, so that file is removed last.
    const bool parentWaits = waitPid && silent;
    if (waitPid && !silent)
        waitForProcess(waitPid);

    UninstallList list;
    if (!readUninstallList(installDirectory, &list)) {
        if (!silent)
            MessageBoxW(nullptr, text.notInstallation, text.title, MB_OK | MB_ICONERROR);
        return 1;
    }
    const std::wstring self = L"uninstall.exe";
    bool selfListed = false;
    for (const std::wstring &file : list.files)
        selfListed = selfListed || _wcsicmp(file.c_str(), self.c_str()) == 0;
    RemovalResult removed = removeListedEntries(installDirectory, list, parentWaits ? self : std::wstring());
    removeRegistrations(installDirectory);
    if (parentWaits) {
        const HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, resultEventName(waitPid, removed.failures == 0).c_str());
        if (event) {
            SetEvent(event);
            CloseHandle(event);
        }
        waitForProcess(waitPid);
        if (selfListed && !removeDeferred(installDirectory, self))
            ++removed.failures;
    }
    if (!from.empty())
        MoveFileExW(ownPath().c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT); // best effort: needs admin

    if (!silent) {
        MessageBoxW(nullptr, removed.failures == 0 ? text.done : text.incomplete, text.title,
                    MB_OK | (removed.failures == 0 ? MB_ICONINFORMATION : MB_ICONWARNING));
    }
    return removed.failures == 0 ? 0 : 2;
}
