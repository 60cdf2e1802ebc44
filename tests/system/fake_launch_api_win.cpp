#include "fake_launch_api_win.h"

#include <sddl.h>

#include <cstring>
#include <vector>

namespace {

FakeLaunchWorld *world = nullptr;

BOOL reply(const void *data, DWORD size, LPVOID buffer, DWORD capacity, PDWORD returned, bool shortRead)
{
    const DWORD given = shortRead ? size - 1 : size;
    *returned = given;
    if (capacity < given) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, data, given);
    return TRUE;
}

BOOL WINAPI getTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS type, LPVOID buffer, DWORD capacity, PDWORD returned)
{
    if (!world->handles.contains(handle)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    const FakeToken &token = world->tokens.at(world->handles.value(handle));
    if (type == token.failing) {
        SetLastError(token.failingError);
        return FALSE;
    }
    const bool shortRead = type == token.shortRead;
    switch (type) {
    case TokenUser: {
        PSID sid = nullptr;
        ConvertStringSidToSidW(reinterpret_cast<const wchar_t *>(token.sid.utf16()), &sid);
        const DWORD sidLength = GetLengthSid(sid);
        std::vector<unsigned char> data(sizeof(TOKEN_USER) + sidLength);
        auto *user = reinterpret_cast<TOKEN_USER *>(data.data());
        std::memcpy(data.data() + sizeof(TOKEN_USER), sid, sidLength);
        LocalFree(sid);
        const DWORD needed = token.userInfoSize ? token.userInfoSize : DWORD(data.size());
        *returned = needed;
        if (capacity < DWORD(data.size())) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        // The SID is copied to the caller's buffer, so the pointer must point into it.
        std::memcpy(buffer, data.data(), data.size());
        reinterpret_cast<TOKEN_USER *>(buffer)->User.Sid = static_cast<unsigned char *>(buffer) + sizeof(TOKEN_USER);
        reinterpret_cast<TOKEN_USER *>(buffer)->User.Attributes = 0;
        Q_UNUSED(user);
        return TRUE;
    }
    case TokenSessionId:
        return reply(&token.session, sizeof(DWORD), buffer, capacity, returned, shortRead);
    case TokenElevation: {
        TOKEN_ELEVATION elevation { token.elevated ? 1u : 0u };
        return reply(&elevation, sizeof(elevation), buffer, capacity, returned, shortRead);
    }
    case TokenElevationType: {
        const DWORD value = DWORD(token.type);
        return reply(&value, sizeof(value), buffer, capacity, returned, shortRead);
    }
    case TokenLinkedToken: {
        TOKEN_LINKED_TOKEN link { token.hasLinked ? world->handleFor(token.linked) : nullptr };
        return reply(&link, sizeof(link), buffer, capacity, returned, shortRead);
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
    ++world->environmentsCreated;
    *environment = &world->environmentsCreated;
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
    information->dwProcessId = 4242;
    information->dwThreadId = 4243;
    information->hProcess = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    information->hThread = CreateEventW(nullptr, FALSE, FALSE, nullptr);
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
    // Handles the launch did not close are ours to close; closing twice is harmless for events
    // only when the value was not reused, so close only those still valid.
    for (auto it = handles.cbegin(); it != handles.cend(); ++it) {
        DWORD flags = 0;
        if (GetHandleInformation(it.key(), &flags))
            CloseHandle(it.key());
    }
}

void setFakeLaunchWorld(FakeLaunchWorld *newWorld)
{
    world = newWorld;
}

const DesktopUser::LaunchApi &fakeLaunchApi()
{
    static const DesktopUser::LaunchApi api { getTokenInformation, duplicateTokenEx, createEnvironmentBlock,
                                              destroyEnvironmentBlock, createProcessWithTokenW };
    return api;
}
