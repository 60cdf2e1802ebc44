#pragma once

#include <QString>
#include <QStringList>

// Finding and stopping the product's running processes before its files are replaced: the
// installer's face of ProductProcesses (src/system/product_processes.h), which the uninstaller
// shares. This side logs what happened and words the outcome for the user.
namespace InstallationProcesses {

// Cleaned, backslashes, lower case: how process images and expected paths are compared.
QString normalizedWindowsPath(const QString &path);

// The product's executables under one root, in the order they are stopped and reported.
QStringList productExecutablePaths(const QString &root, bool includeRunning);

// The executables of both roots, each once (by normalized path), in order of first appearance.
QStringList installationExecutablePaths(const QString &installDirectory, const QString &otherRoot, bool includeRunning);

// Required paths must be stopped for the install to go on; the others (an old version
// directory's core) are obsolete components: the new version lives in another directory.
bool isRequired(const QString &path, const QString &installDirectory, const QString &otherRoot);

// Whether a live process runs the file at this exact path.
bool isProcessRunningAtPath(const QString &path);

// Image paths of running processes (other than this one) whose image lies under root.
QStringList runningImagesUnder(const QString &root);

// The executable paths of both roots that are running now, in list order.
QStringList runningInstallProcesses(const QString &installDirectory, const QString &otherRoot);

// Stops the running executables (three attempts each) and waits for installed executables to be
// unlocked, all within one 10-second deadline. Never stops the installer itself (its own file, or
// the file named by `installerSource`). On failure `error` gets the message for the user.
bool prepareExistingInstallation(const QString &installDirectory, QString *error, const QString &otherRoot,
                                 const QString &installerSource, const QString &ownExecutable);

} // namespace InstallationProcesses
