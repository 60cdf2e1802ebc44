#include "ui/flow_platform.h"

#include "location/installation_location.h"
#include "system/desktop_user_launch.h"


#include <windows.h>

namespace FlowPlatform {

namespace {

bool linkMayOpen(const QUrl &address)
{
    return address.isValid() && (address.scheme() == QLatin1String("https") || address.scheme() == QLatin1String("mailto"));
}

} // namespace

struct InstallOperationLock::State
{
    HANDLE mutex = nullptr;
    bool owned = false;
};

InstallOperationLock::InstallOperationLock()
    : m_state(std::make_unique<State>())
{
}

InstallOperationLock::~InstallOperationLock()
{
    release();
}

bool InstallOperationLock::acquire()
{
    if (m_state->owned)
        return true;
    // Created or opened without initial ownership, then taken with a zero wait: whoever created
    // it, exactly one process gets it, and an abandoned one (its holder crashed) is ours to take.
    HANDLE mutex = CreateMutexW(nullptr, FALSE, L"Global\\ORLANDA_FIELDWORKS_INC_BrisaLinker_InstallOperation");
    if (!mutex)
        return false;
    const DWORD wait = WaitForSingleObject(mutex, 0);
    if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED) {
        CloseHandle(mutex);
        return false;
    }
    m_state->mutex = mutex;
    m_state->owned = true;
    return true;
}

void InstallOperationLock::release()
{
    if (!m_state->mutex)
        return;
    if (m_state->owned)
        ReleaseMutex(m_state->mutex);
    CloseHandle(m_state->mutex);
    m_state->mutex = nullptr;
    m_state->owned = false;
}

bool InstallOperationLock::held() const
{
    return m_state->owned;
}

LaunchOutcome launchAsDesktopUser(const QString &executable, const QString &workingDirectory)
{
    LaunchOutcome outcome;
    outcome.started = DesktopUser::launchWithDesktopToken(static_cast<HANDLE>(DesktopUser::token()), executable,
                                                          workingDirectory, &outcome.processId,
                                                          &outcome.windowsError, &outcome.diagnostics);
    return outcome;
}

LaunchOutcome openAsDesktopUser(const QUrl &address)
{
    LaunchOutcome outcome;
    const QString windows = InstallationLocation::windowsDirectory();
    if (!linkMayOpen(address) || windows.isEmpty()) {
        outcome.windowsError = ERROR_INVALID_PARAMETER;
        return outcome;
    }
    // Explorer hands an address to the user's default program, the way a click in the shell does.
    outcome.started = DesktopUser::launchWithDesktopToken(
        static_cast<HANDLE>(DesktopUser::token()), windows + QStringLiteral("/explorer.exe"), windows,
        &outcome.processId, &outcome.windowsError, &outcome.diagnostics, DesktopUser::systemLaunchApi(),
        { address.toString(QUrl::FullyEncoded) });
    return outcome;
}

} // namespace FlowPlatform
