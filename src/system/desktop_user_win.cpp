#include "system/desktop_user_launch.h"
#include "system/handles_win.h"
#include "system/installation_permissions.h"
#include "system/windows_command_line.h"

#include <QDir>

#include <sddl.h>
#include <userenv.h>

#include <vector>

namespace DesktopUser {

namespace {

UniqueHandle shellProcessToken()
{
    const HWND shell = GetShellWindow();
    DWORD processId = 0;
    if (!shell || !GetWindowThreadProcessId(shell, &processId) || processId == 0)
        return {};
    UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process)
        return {};
    HANDLE token = nullptr;
    if (!OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, &token))
        return {};
    return UniqueHandle(token);
}

// Without a shell we may still reach the desktop user's process with SeDebugPrivilege; the
// privilege is held only for that one call and restored exactly as it was.
UniqueHandle tokenWithDebugPrivilege()
{
    HANDLE own = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &own))
        return {};
    const UniqueHandle ownToken(own);
    TOKEN_PRIVILEGES wanted {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!LookupPrivilegeValueW(nullptr, L"SeDebugPrivilege", &wanted.Privileges[0].Luid))
        return {};
    TOKEN_PRIVILEGES previous {};
    DWORD previousSize = sizeof(previous);
    SetLastError(ERROR_SUCCESS);
    if (!AdjustTokenPrivileges(own, FALSE, &wanted, sizeof(previous), &previous, &previousSize)
        || GetLastError() != ERROR_SUCCESS) {
        return {};
    }
    UniqueHandle token(static_cast<HANDLE>(InstallationPermissions::desktopToken()));
    AdjustTokenPrivileges(own, FALSE, &previous, 0, nullptr, nullptr);
    return token;
}

struct ProcessToken
{
    UniqueHandle handle;
    ProcessToken()
    {
        handle = shellProcessToken();
        if (!handle)
            handle = tokenWithDebugPrivilege();
    }
};

ProcessToken &processToken()
{
    static ProcessToken instance; // thread-safe initialisation; released at process exit
    return instance;
}

bool readFixed(const LaunchApi &api, HANDLE token, TOKEN_INFORMATION_CLASS type, void *buffer, DWORD size,
               quint32 *windowsError)
{
    DWORD returned = 0;
    if (!api.getTokenInformation(token, type, buffer, size, &returned)) {
        *windowsError = GetLastError();
        return false;
    }
    if (returned < size) {
        *windowsError = ERROR_INVALID_DATA;
        return false;
    }
    return true;
}

bool readElevation(const LaunchApi &api, HANDLE token, bool *elevated, TOKEN_ELEVATION_TYPE *type,
                   quint32 *windowsError)
{
    TOKEN_ELEVATION elevation {};
    if (!readFixed(api, token, TokenElevation, &elevation, sizeof(elevation), windowsError))
        return false;
    *elevated = elevation.TokenIsElevated != 0;
    if (!type)
        return true;
    DWORD value = 0;
    if (!readFixed(api, token, TokenElevationType, &value, sizeof(value), windowsError))
        return false;
    *type = static_cast<TOKEN_ELEVATION_TYPE>(value);
    return true;
}

} // namespace

const LaunchApi &systemLaunchApi()
{
    static const LaunchApi api { GetTokenInformation, DuplicateTokenEx, CreateEnvironmentBlock,
                                 DestroyEnvironmentBlock, CreateProcessWithTokenW };
    return api;
}

Handle token()
{
    return processToken().handle.get();
}

QString tokenSid(HANDLE token)
{
    LaunchDetail::Identity identity;
    if (!token || !LaunchDetail::identity(systemLaunchApi(), token, &identity))
        return {};
    return identity.sid;
}

QString sid()
{
    static const QString value = tokenSid(token());
    return value;
}

QString processSid()
{
    HANDLE own = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &own))
        return {};
    const UniqueHandle ownToken(own);
    return tokenSid(own);
}

namespace LaunchDetail {

bool identity(const LaunchApi &api, HANDLE token, Identity *result)
{
    DWORD size = 0;
    api.getTokenInformation(token, TokenUser, nullptr, 0, &size);
    if (size == 0 || size > 65536)
        return false;
    std::vector<unsigned char> buffer(size);
    if (!api.getTokenInformation(token, TokenUser, buffer.data(), size, &size))
        return false;
    const auto *user = reinterpret_cast<const TOKEN_USER *>(buffer.data());
    if (!user->User.Sid || !IsValidSid(user->User.Sid))
        return false;
    wchar_t *text = nullptr;
    if (!ConvertSidToStringSidW(user->User.Sid, &text))
        return false;
    const UniqueLocal<wchar_t> owned(text);
    DWORD session = 0;
    DWORD returned = 0;
    if (!api.getTokenInformation(token, TokenSessionId, &session, sizeof(session), &returned) || returned < 4)
        return false;
    result->sid = QString::fromWCharArray(text);
    result->sessionId = session;
    return true;
}

} // namespace LaunchDetail

bool launchWithDesktopToken(HANDLE token, const QString &executable, const QString &workingDirectory,
                            quint64 *processId, quint32 *windowsError, LaunchDiagnostics *diagnostics,
                            const LaunchApi &api, const QStringList &arguments)
{
    LaunchDiagnostics local;
    LaunchDiagnostics &d = diagnostics ? *diagnostics : local;
    quint64 pidSink = 0;
    quint32 errorSink = 0;
    quint64 &pid = processId ? *processId : pidSink;
    quint32 &error = windowsError ? *windowsError : errorSink;

    pid = 0;
    error = ERROR_NO_SUCH_LOGON_SESSION;
    d.stage = QStringLiteral("executable_lookup");
    d.mode = QStringLiteral("unresolved");

    d.stage = QStringLiteral("desktop_token");
    if (!token)
        return false;

    d.stage = QStringLiteral("desktop_elevation");
    bool elevated = false;
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    if (!readElevation(api, token, &elevated, &type, &error))
        return false;
    d.desktopElevated = elevated;
    d.launchElevated = elevated;

    d.stage = QStringLiteral("desktop_identity");
    LaunchDetail::Identity desktop;
    if (!LaunchDetail::identity(api, token, &desktop))
        return false;
    d.user = desktop.sid;

    HANDLE chosen = token;
    UniqueHandle linked;
    if (type == TokenElevationTypeFull) {
        d.stage = QStringLiteral("linked_token");
        TOKEN_LINKED_TOKEN link {};
        if (!readFixed(api, token, TokenLinkedToken, &link, sizeof(link), &error))
            return false;
        if (!link.LinkedToken) {
            error = ERROR_INVALID_HANDLE;
            return false;
        }
        linked.reset(link.LinkedToken);

        d.stage = QStringLiteral("linked_identity");
        bool linkedElevated = false;
        if (!readElevation(api, linked.get(), &linkedElevated, nullptr, &error))
            return false;
        LaunchDetail::Identity standard;
        if (!LaunchDetail::identity(api, linked.get(), &standard))
            return false;

        d.stage = QStringLiteral("validate_linked_token");
        if (linkedElevated || standard.sid != desktop.sid || standard.sessionId != desktop.sessionId) {
            error = ERROR_INVALID_DATA;
            return false;
        }
        d.mode = QStringLiteral("linked_standard");
        d.launchElevated = false;
        chosen = linked.get();
    } else if (type == TokenElevationTypeDefault && elevated) {
        d.mode = QStringLiteral("desktop_elevated_no_link");
    } else if ((type == TokenElevationTypeDefault || type == TokenElevationTypeLimited) && !elevated) {
        d.mode = QStringLiteral("desktop_standard");
    } else {
        d.stage = QStringLiteral("validate_desktop_token");
        error = ERROR_INVALID_DATA;
        return false;
    }

    d.stage = QStringLiteral("duplicate_token");
    HANDLE primaryHandle = nullptr;
    if (!api.duplicateTokenEx(chosen, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &primaryHandle)) {
        error = GetLastError();
        return false;
    }
    const UniqueHandle primary(primaryHandle);

    d.stage = QStringLiteral("create_environment");
    void *environment = nullptr;
    if (!api.createEnvironmentBlock(&environment, primary.get(), FALSE)) {
        error = GetLastError();
        return false;
    }

    const QString nativeExecutable = QDir::toNativeSeparators(executable);
    const QString nativeDirectory = QDir::toNativeSeparators(workingDirectory);
    std::wstring commandLine = WindowsCommandLine::join(QStringList { nativeExecutable } + arguments).toStdWString();
    std::wstring desktopName = L"winsta0\\default";
    STARTUPINFOW startup {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = desktopName.data();
    PROCESS_INFORMATION info {};

    d.stage = QStringLiteral("create_process");
    const BOOL started = api.createProcessWithTokenW(
        primary.get(), LOGON_WITH_PROFILE, wideChars(nativeExecutable), commandLine.data(),
        CREATE_UNICODE_ENVIRONMENT, environment, wideChars(nativeDirectory), &startup, &info);
    const DWORD startError = started ? ERROR_SUCCESS : GetLastError();
    api.destroyEnvironmentBlock(environment);
    if (!started) {
        error = startError;
        return false;
    }
    pid = info.dwProcessId;
    if (info.hThread)
        CloseHandle(info.hThread);
    if (info.hProcess)
        CloseHandle(info.hProcess);
    error = ERROR_SUCCESS;
    d.stage = QStringLiteral("complete");
    return true;
}

} // namespace DesktopUser
