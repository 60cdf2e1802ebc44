#include "system/product_processes.h"

#include <cctype>
#include <thread>

#include <dirent.h>

// The host build runs no product processes and has no mandatory file locks: nothing is running,
// nothing is locked.
namespace ProductProcesses {

namespace Platform {

std::vector<NativePath> subdirectories(const NativePath &root)
{
    std::vector<NativePath> names;
    DIR *directory = opendir(root.c_str());
    if (!directory)
        return names;
    while (const dirent *entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (entry->d_type == DT_DIR && name != "." && name != "..")
            names.push_back(name);
    }
    closedir(directory);
    return names;
}

std::vector<NativePath> runningImagesUnder(const NativePath &)
{
    return {};
}

bool isProcessRunningAtPath(const NativePath &)
{
    return false;
}

bool forceStopAttempt(const NativePath &, int, std::chrono::steady_clock::time_point, const Notify &)
{
    return true;
}

LockState lockState(const NativePath &)
{
    return LockState::Free;
}

void sleepFor(std::chrono::milliseconds duration)
{
    std::this_thread::sleep_for(duration);
}

NativePath lowered(NativePath text)
{
    for (char &c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace Platform

} // namespace ProductProcesses
