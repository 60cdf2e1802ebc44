#include "system/product_processes.h"

#include <algorithm>
#include <set>

namespace ProductProcesses {

namespace {

#ifdef _WIN32
#define NATIVE(text) L##text
#else
#define NATIVE(text) text
#endif

using Clock = std::chrono::steady_clock;
using Char = NativePath::value_type;

bool isSeparator(Char c)
{
    return c == Char('/') || c == Char('\\');
}

// "." and ".." resolved, separators collapsed to "/" (a leading "//" of a network path kept).
NativePath cleaned(const NativePath &path)
{
    NativePath prefix;
    size_t start = 0;
    if (path.size() >= 2 && isSeparator(path[0]) && isSeparator(path[1]))
        prefix = NATIVE("//");
    else if (!path.empty() && isSeparator(path[0]))
        prefix = NATIVE("/");
    std::vector<NativePath> parts;
    while (start <= path.size()) {
        size_t end = start;
        while (end < path.size() && !isSeparator(path[end]))
            ++end;
        const NativePath part = path.substr(start, end - start);
        if (part == NATIVE("..") && !parts.empty() && parts.back() != NATIVE(".."))
            parts.pop_back();
        else if (!part.empty() && part != NATIVE(".") && !(part == NATIVE("..") && !prefix.empty()))
            parts.push_back(part);
        start = end + 1;
    }
    NativePath result = prefix;
    for (size_t i = 0; i < parts.size(); ++i)
        result += (i ? NATIVE("/") : NATIVE("")) + parts[i];
    return result;
}

NativePath joined(const NativePath &root, const NativePath &relative)
{
    return cleaned(root + NATIVE("/") + relative);
}

bool startsWith(const NativePath &text, const NativePath &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The path relative to root with "/" separators, or empty when it is not under root.
NativePath relativeTo(const NativePath &path, const NativePath &root)
{
    if (root.find_first_not_of(NATIVE(" \t")) == NativePath::npos)
        return {};
    const NativePath base = cleaned(root) + NATIVE("/");
    const NativePath clean = cleaned(path);
    if (!startsWith(Platform::lowered(clean), Platform::lowered(base)))
        return {};
    return clean.substr(base.size());
}

bool isVersionName(const NativePath &name)
{
    bool digit = false;
    int dots = 0;
    for (Char c : name) {
        if (c >= Char('0') && c <= Char('9')) {
            digit = true;
        } else if (c == Char('.') && digit) {
            digit = false;
            ++dots;
        } else {
            return false;
        }
    }
    return digit && dots > 0;
}

bool stopWithRetries(const NativePath &path, Clock::time_point until, const Notify &notify)
{
    // Nothing to stop means nothing to wait for.
    if (!Platform::isProcessRunningAtPath(path))
        return true;
    std::chrono::milliseconds delay(250);
    for (int attempt = 1; attempt <= 3; ++attempt) {
        Platform::forceStopAttempt(path, attempt, until, notify);
        if (!Platform::isProcessRunningAtPath(path))
            return true;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
        if (attempt < 3 && left.count() > 0) {
            Platform::sleepFor(std::min(left, delay));
            delay += std::chrono::milliseconds(250);
        }
    }
    if (Platform::isProcessRunningAtPath(path)) {
        if (notify)
            notify({ Note::Remained, path });
        return false;
    }
    return true;
}

bool waitUntilUnlocked(const NativePath &path, Clock::time_point until, const Notify &notify)
{
    for (int probe = 1; probe <= 4; ++probe) {
        if (Platform::lockState(path) != Platform::LockState::Locked || Clock::now() >= until)
            break;
        if (notify)
            notify({ Note::StillLocked, path, probe });
        Platform::sleepFor(std::chrono::milliseconds(200));
    }
    return Platform::lockState(path) != Platform::LockState::Locked;
}

} // namespace

NativePath normalizedWindowsPath(const NativePath &path)
{
    NativePath result = cleaned(path);
    std::replace(result.begin(), result.end(), Char('/'), Char('\\'));
    return Platform::lowered(result);
}

std::vector<NativePath> productExecutablePaths(const NativePath &root, bool includeRunning)
{
    const NativePath components[] = { NATIVE("Pellacore/Pellacore.exe"), NATIVE("OBS-Studio/bin/64bit/Brisa-Linker Streamer64.exe") };
    std::vector<NativePath> paths { joined(root, NATIVE("brisalinker.exe")), joined(root, NATIVE("updater.exe")) };
    for (const NativePath &component : components)
        paths.push_back(joined(root, component));
    for (const NativePath &name : Platform::subdirectories(root)) {
        if (!isVersionName(name))
            continue;
        paths.push_back(joined(root, name + NATIVE("/bl-core.exe")));
        for (const NativePath &component : components)
            paths.push_back(joined(root, name + NATIVE("/") + component));
    }
    if (includeRunning) {
        // The maintenance service's program is stopped through the service control manager by
        // whoever replaces or removes it; terminated, its recovery actions would start it again.
        const NativePath services = Platform::lowered(cleaned(root)) + NATIVE("/winservices/");
        for (const NativePath &image : Platform::runningImagesUnder(root)) {
            if (!startsWith(Platform::lowered(cleaned(image)), services))
                paths.push_back(cleaned(image));
        }
    }
    return paths;
}

std::vector<NativePath> installationExecutablePaths(const NativePath &installDirectory, const NativePath &otherRoot,
                                                    bool includeRunning)
{
    std::vector<NativePath> candidates = productExecutablePaths(installDirectory, includeRunning);
    if (otherRoot.find_first_not_of(NATIVE(" \t")) != NativePath::npos) {
        for (NativePath &path : productExecutablePaths(otherRoot, includeRunning))
            candidates.push_back(std::move(path));
    }
    std::vector<NativePath> unique;
    std::set<NativePath> seen;
    for (const NativePath &path : candidates) {
        if (seen.insert(normalizedWindowsPath(path)).second)
            unique.push_back(path);
    }
    return unique;
}

bool isRequired(const NativePath &path, const NativePath &installDirectory, const NativePath &otherRoot)
{
    const NativePath relative = relativeTo(path, installDirectory);
    if (relative == NATIVE("brisalinker.exe") || relative == NATIVE("updater.exe"))
        return true;
    for (const NativePath &underRoot : { relative, relativeTo(path, otherRoot) }) {
        const NativePath lower = Platform::lowered(underRoot);
        if (startsWith(lower, NATIVE("obs-studio/")) || startsWith(lower, NATIVE("pellacore/")))
            return true;
    }
    return false;
}

std::vector<NativePath> runningInstallProcesses(const NativePath &installDirectory, const NativePath &otherRoot)
{
    std::vector<NativePath> running;
    for (const NativePath &path : installationExecutablePaths(installDirectory, otherRoot, true)) {
        if (Platform::isProcessRunningAtPath(path))
            running.push_back(path);
    }
    return running;
}

Outcome prepareExistingInstallation(const NativePath &installDirectory, const NativePath &otherRoot,
                                    const std::vector<NativePath> &spared, const Notify &notify)
{
    std::vector<NativePath> paths = installationExecutablePaths(installDirectory, otherRoot, true);
    // Obsolete components first: they may fail without stopping the work.
    std::stable_sort(paths.begin(), paths.end(), [&](const NativePath &a, const NativePath &b) {
        return !isRequired(a, installDirectory, otherRoot) && isRequired(b, installDirectory, otherRoot);
    });
    const Clock::time_point until = Clock::now() + deadline;
    std::set<NativePath> sparedPaths;
    for (const NativePath &path : spared) {
        if (!path.empty())
            sparedPaths.insert(normalizedWindowsPath(path));
    }

    for (const NativePath &path : paths) {
        bool stoppable = true;
        if (sparedPaths.count(normalizedWindowsPath(path))) {
            if (notify)
                notify({ Note::RefusingSelf, path });
            stoppable = false;
        } else {
            stoppable = stopWithRetries(path, until, notify);
        }
        if (stoppable)
            continue;
        if (isRequired(path, installDirectory, otherRoot))
            return Outcome::NotClosed;
        if (notify)
            notify({ Note::ObsoleteNotStopped, path });
    }

    for (const NativePath &path : paths) {
        if (isRequired(path, installDirectory, otherRoot) && !waitUntilUnlocked(path, until, notify))
            return Outcome::StillLocked;
    }
    return Outcome::Ready;
}

} // namespace ProductProcesses
