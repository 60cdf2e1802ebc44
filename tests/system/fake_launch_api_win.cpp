#include "fake_launch_api_win.h"

#include <sddl.h>

#include <cstring>

namespace {

FakeLaunchWorld *world = nullptr;

BOOL reply(const void *data, DWORD size, LPVOID buffer, DWORD capacity, PDWORD returned, DWORD claimed = 0)
{
    *returned = claimed ? claimed : size;
    if (capacity < size) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, data, size);
    return TRUE;
}

BOOL WINAPI getTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS type, LPVOID buffer, DWORD capacity, PDWORD returned)
{
    if (!world->handles.contains(handle) || type == world->tokens.at(world->handles.value(handle)).failing) {
        SetLastError(world->handles.contains(handle) ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE);
        return FALSE;
    }
    const FakeToken &token = world->tokens.at(world->handles.value(handle));
    const DWORD cut = type == token.shortRead ? 1 : 0;
    if (type == TokenUser) {
        PSID sid = nullptr;
        ConvertStringSidToSidW(reinterpret_cast<const wchar_t *>(token.sid.utf16()), &sid);
        QByteArray data(sizeof(TOKEN_USER), '\0');
        data.append(static_cast<const char *>(sid), GetLengthSid(sid));
        LocalFree(sid);
        if (!reply(data.constData(), DWORD(data.size()), buffer, capacity, returned, token.userInfoSize))
            return FALSE;
        // The SID is copied to the caller's buffer, so the pointer must point into it.
        static_cast<TOKEN_USER *>(buffer)->User.Sid = static_cast<char *>(buffer) + sizeof(TOKEN_USER);
        return TRUE;
    }
    const TOKEN_ELEVATION elevation { token.elevated ? 1u : 0u };
    const DWORD elevationType = DWORD(token.type);
    switch (type) {
    case TokenSessionId:
        return reply(&token.session, sizeof(DWORD) - cut, buffer, capacity, returned);
    case TokenElevation:
        return reply(&elevation, sizeof(elevation) - cut, buffer, capacity, returned);
    case TokenElevationType:
        return reply(&elevationType, sizeof(elevationType) - cut, buffer, capacity, returned);
    case TokenLinkedToken: {
        const TOKEN_LINKED_TOKEN link { token.hasLinked ? world->handleFor(1) : nullptr };
        return reply(&link, sizeof(link) - cut, buffer, capacity, returned);
    }
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
}

BOOL WINAPI duplicateTokenEx(HANDLE existing, DWORD, LPSECURITY_ATTRIBUTES, SECURITY_IMPERSONATION_LEVEL level,
                             TOKEN_TYPE type, PHANDLE duplicate)
{
    if (world->failDuplicate || level != SecurityImpersonation || type != TokenPrimary) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *duplicate = world->handleFor(world->handles.value(existing));
    return TRUE;
}

BOOL WINAPI createEnvironmentBlock(LPVOID *environment, HANDLE, BOOL inherit)
{
    if (world->failEnvironment || inherit) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    *environment = &++world->environmentsCreated;
    return TRUE;
}

BOOL WINAPI destroyEnvironmentBlock(LPVOID)
{
    ++world->environmentsDestroyed;
    return TRUE;
}

BOOL WINAPI createProcessWithTokenW(HANDLE token, DWORD logonFlags, LPCWSTR application, LPWSTR commandLine,
                                    DWORD creationFlags, LPVOID, LPCWSTR directory, LPSTARTUPINFOW startup,
                                    LPPROCESS_INFORMATION information)
{
    world->startedWith = world->handles.value(token, -1);
    world->applicationName = QString::fromWCharArray(application);
    world->commandLine = QString::fromWCharArray(commandLine);
    world->workingDirectory = QString::fromWCharArray(directory);
    world->desktop = startup && startup->lpDesktop ? QString::fromWCharArray(startup->lpDesktop) : QString();
    world->logonFlags = logonFlags;
    world->creationFlags = creationFlags;
    if (world->createProcessError) {
        SetLastError(world->createProcessError);
        return FALSE;
    }
    *information = { CreateEventW(nullptr, FALSE, FALSE, nullptr), CreateEventW(nullptr, FALSE, FALSE, nullptr), 4242, 4243 };
    return TRUE;
}

} // namespace

HANDLE FakeLaunchWorld::handleFor(int token)
{
    const HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    handles.insert(handle, token);
    return handle;
}

FakeLaunchWorld::~FakeLaunchWorld()
{
    // Handles the launch did not close are ours to close; only those still valid, as a closed
    // value may have been reused.
    for (auto it = handles.cbegin(); it != handles.cend(); ++it) {
        DWORD flags = 0;
        if (GetHandleInformation(it.key(), &flags))
            CloseHandle(it.key());
    }
}

const DesktopUser::LaunchApi &fakeLaunchApi(FakeLaunchWorld *newWorld)
{
    world = newWorld;
    static const DesktopUser::LaunchApi api { getTokenInformation, duplicateTokenEx, createEnvironmentBlock,
                                              destroyEnvironmentBlock, createProcessWithTokenW };
    return api;
}
