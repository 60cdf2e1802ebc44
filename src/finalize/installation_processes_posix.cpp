#include "finalize/installation_processes_platform.h"

#include <QFileInfo>

// The host build runs no product processes and has no mandatory file locks: nothing is running,
// nothing is locked.
namespace InstallationProcessesPlatform {

QStringList runningImagesUnder(const QString &)
{
    return {};
}

bool isProcessRunningAtPath(const QString &)
{
    return false;
}

bool forceStopAttempt(const QString &, int, const QDeadlineTimer &)
{
    return true;
}

LockState lockState(const QString &)
{
    return LockState::Free;
}

} // namespace InstallationProcessesPlatform
