#pragma once

// Windows-only: launching the installed product as the desktop user. The operating-system calls
// go through LaunchApi so that every decision of the launch can be tested against substitutes.

#include "system/desktop_user.h"

#include <QStringList>

#include <windows.h>

namespace DesktopUser {

struct LaunchApi
{
    BOOL(WINAPI *getTokenInformation)(HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD);
    BOOL(WINAPI *duplicateTokenEx)(HANDLE, DWORD, LPSECURITY_ATTRIBUTES, SECURITY_IMPERSONATION_LEVEL, TOKEN_TYPE, PHANDLE);
    BOOL(WINAPI *createEnvironmentBlock)(LPVOID *, HANDLE, BOOL);
    BOOL(WINAPI *destroyEnvironmentBlock)(LPVOID);
    BOOL(WINAPI *createProcessWithTokenW)(HANDLE, DWORD, LPCWSTR, LPWSTR, DWORD, LPVOID, LPCWSTR,
                                          LPSTARTUPINFOW, LPPROCESS_INFORMATION);
};

// The real Windows functions.
const LaunchApi &systemLaunchApi();

namespace LaunchDetail {

struct Identity
{
    QString sid;
    quint32 sessionId = 0;
};

bool identity(const LaunchApi &api, HANDLE token, Identity *result);

} // namespace LaunchDetail

// The arguments follow the program on its command line, each quoted by the Windows rules.
bool launchWithDesktopToken(HANDLE token, const QString &executable, const QString &workingDirectory,
                            quint64 *processId, quint32 *windowsError, LaunchDiagnostics *diagnostics,
                            const LaunchApi &api = systemLaunchApi(), const QStringList &arguments = {});

// The SID string of a token's user, or empty.
QString tokenSid(HANDLE token);

} // namespace DesktopUser
