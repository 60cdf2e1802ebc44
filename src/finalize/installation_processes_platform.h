#pragma once

#include <QDeadlineTimer>
#include <QString>
#include <QStringList>

// The operating-system half of InstallationProcesses.
namespace InstallationProcessesPlatform {

// Image paths of running processes (other than this one) whose image lies under root.
QStringList runningImagesUnder(const QString &root);

bool isProcessRunningAtPath(const QString &path);

// One force-stop attempt for every live process running this exact file. False when the
// process list could not be read while the file was running.
bool forceStopAttempt(const QString &path, int attempt, const QDeadlineTimer &deadline);

enum class LockState { Free, Locked, OtherError };
// Whether the file is free to be replaced: absent, or openable for delete with all sharing.
LockState lockState(const QString &path);

} // namespace InstallationProcessesPlatform
