#include "ui/flow_platform.h"

#include <QDir>
#include <QLockFile>
#include <QProcess>

// The host build has no global mutexes or desktop tokens; a lock file and a plain child process
// keep the flow's decisions testable.
namespace FlowPlatform {

struct InstallOperationLock::State
{
    std::unique_ptr<QLockFile> file;
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
    if (m_state->file)
        return true;
    auto file = std::make_unique<QLockFile>(QDir::tempPath()
                                            + QStringLiteral("/ORLANDA_FIELDWORKS_INC_BrisaLinker_InstallOperation.lock"));
    file->setStaleLockTime(0);
    if (!file->tryLock(0))
        return false;
    m_state->file = std::move(file);
    return true;
}

void InstallOperationLock::release()
{
    m_state->file.reset();
}

bool InstallOperationLock::held() const
{
    return m_state->file != nullptr;
}

LaunchOutcome launchAsDesktopUser(const QString &executable, const QString &workingDirectory)
{
    LaunchOutcome outcome;
    qint64 pid = 0;
    outcome.started = QProcess::startDetached(executable, {}, workingDirectory, &pid);
    outcome.processId = quint64(pid);
    outcome.diagnostics.stage = outcome.started ? QStringLiteral("launched") : QStringLiteral("create_process");
    outcome.diagnostics.mode = QStringLiteral("host");
    return outcome;
}

LaunchOutcome openAsDesktopUser(const QUrl &address)
{
    // No desktop user to start a browser for: the caller falls back to the clipboard.
    Q_UNUSED(address);
    LaunchOutcome outcome;
    outcome.diagnostics.stage = QStringLiteral("desktop_token");
    outcome.diagnostics.mode = QStringLiteral("host");
    return outcome;
}

} // namespace FlowPlatform
