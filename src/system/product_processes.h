#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

// Finding and stopping the product's running processes before its files are replaced or
// removed. Processes are recognised by their full image path, never by name alone: a program of
// the same name elsewhere on the machine is never touched.
//
// Plain C++ without Qt, so that the installer (through InstallationProcesses, which logs and
// words the outcome) and the small uninstaller stop the product the same way.
namespace ProductProcesses {

#ifdef _WIN32
using NativePath = std::wstring;
#else
using NativePath = std::string;
#endif

// What happened on the way, for the caller's log. Which fields are set depends on the kind.
struct Note
{
    enum Kind {
        RefusingSelf,       // path: the caller's own program is never stopped
        EnumerationFailed,  // attempt, error: the process list could not be read while path ran
        ForceStopping,      // attempt, pid, path
        ForceStopFailed,    // attempt, pid, error
        Remained,           // path: still running after three attempts
        ObsoleteNotStopped, // path: an old version's component keeps running; not needed
        StillLocked,        // attempt (the retry), path
    };
    Kind kind;
    NativePath path;
    int attempt = 0;
    unsigned long pid = 0;
    unsigned long error = 0;
};
using Notify = std::function<void(const Note &)>;

enum class Outcome { Ready, NotClosed, StillLocked };

// How long stopping and waiting for unlocked files may take in all.
inline constexpr std::chrono::milliseconds deadline { 10000 };

// Cleaned ("." and ".." resolved, separators collapsed), backslashes, lower case: how process
// images and expected paths are compared. Both "/" and "\" separate: these are Windows paths.
NativePath normalizedWindowsPath(const NativePath &path);

// The product's executables under one root ("/"-joined to root, cleaned), in the order they are
// stopped and reported; with includeRunning also every running image under root but the
// maintenance service's (under "WinServices"), which only its service control manager stops.
std::vector<NativePath> productExecutablePaths(const NativePath &root, bool includeRunning);

// The executables of both roots, each once (by normalized path), in order of first appearance.
std::vector<NativePath> installationExecutablePaths(const NativePath &installDirectory, const NativePath &otherRoot,
                                                    bool includeRunning);

// Required paths must be stopped for the work to go on; the others (an old version directory's
// core) are obsolete components: the new version lives in another directory.
bool isRequired(const NativePath &path, const NativePath &installDirectory, const NativePath &otherRoot);

// The executable paths of both roots that are running now, in list order.
std::vector<NativePath> runningInstallProcesses(const NativePath &installDirectory, const NativePath &otherRoot);

// Stops the running executables (three attempts each) and waits for the required ones to be
// unlocked, all within one deadline. Never stops a program named in `spared` (the caller itself,
// its source). Changes nothing on disk.
Outcome prepareExistingInstallation(const NativePath &installDirectory, const NativePath &otherRoot,
                                    const std::vector<NativePath> &spared, const Notify &notify = {});

// The operating-system half.
namespace Platform {

std::vector<NativePath> subdirectories(const NativePath &root);

// Image paths of running processes (other than this one) whose image lies under root.
std::vector<NativePath> runningImagesUnder(const NativePath &root);

// Whether a live process runs the file at this exact path.
bool isProcessRunningAtPath(const NativePath &path);

// One force-stop attempt for every live process running this exact file, each waited for at most
// 800 ms and never past `until`. False when the process list could not be read.
bool forceStopAttempt(const NativePath &path, int attempt, std::chrono::steady_clock::time_point until,
                      const Notify &notify);

enum class LockState { Free, Locked, OtherError };
// Whether the file is free to be replaced: absent, or openable for delete with all sharing.
LockState lockState(const NativePath &path);

void sleepFor(std::chrono::milliseconds duration);

NativePath lowered(NativePath text);

} // namespace Platform

} // namespace ProductProcesses
