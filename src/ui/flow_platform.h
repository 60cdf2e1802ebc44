#pragma once

#include "system/desktop_user.h"

#include <QString>
#include <QUrl>

#include <memory>

// The few steps of the installation flow that differ between Windows and the host build.
namespace FlowPlatform {

// The machine-wide guard that keeps two installers from changing the same installation at once.
// On Windows a named mutex in the global namespace, so that installers in other sessions and
// of other users see it too.
class InstallOperationLock
{
public:
    InstallOperationLock();
    ~InstallOperationLock();
    InstallOperationLock(const InstallOperationLock &) = delete;
    InstallOperationLock &operator=(const InstallOperationLock &) = delete;

    // True when this process now holds the lock (also when it already did).
    bool acquire();
    void release();
    bool held() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

struct LaunchOutcome
{
    bool started = false;
    quint64 processId = 0;
    quint32 windowsError = 0;
    DesktopUser::LaunchDiagnostics diagnostics;
};

// Starts the installed product as the signed-in desktop user, never with the installer's own
// (possibly elevated) rights.
LaunchOutcome launchAsDesktopUser(const QString &executable, const QString &workingDirectory);

// Opens an "https" or "mailto" address with the desktop user's default program, started as that
// user: a browser started from the elevated installer would run as the administrator.
LaunchOutcome openAsDesktopUser(const QUrl &address);

} // namespace FlowPlatform
