#include "system/installation_permissions.h"
#include "system/desktop_user_launch.h"
#include "system/handles_win.h"

namespace InstallationPermissions {

Handle desktopToken()
{
    const HWND shell = GetShellWindow();
    DWORD processId = 0;
    if (!shell || !GetWindowThreadProcessId(shell, &processId) || processId == 0)
        return nullptr;
    // With SeDebugPrivilege enabled by the caller this reaches processes that a plain limited
    // query cannot.
    UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, processId));
    if (!process)
        process.reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process)
        return nullptr;
    HANDLE token = nullptr;
    if (!OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, &token))
        return nullptr;
    return token;
}

QString tokenSid(Handle token)
{
    return DesktopUser::tokenSid(static_cast<HANDLE>(token));
}

} // namespace InstallationPermissions
