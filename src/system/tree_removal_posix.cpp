#include "system/tree_removal.h"

#include <cerrno>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TreeRemoval {

namespace {

// Entries are reached through the directory descriptor that was opened and checked, never by
// their path again, so a directory swapped for a link after the check is not entered.
bool removeAt(int parent, const std::string &name, const std::string &path, Report *report)
{
    struct stat listed {};
    if (::fstatat(parent, name.c_str(), &listed, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT)
            return true;
        report->failures.push_back(path);
        return false;
    }
    if (S_ISLNK(listed.st_mode)) {
        report->links.push_back(path);
        if (::unlinkat(parent, name.c_str(), 0) == 0)
            return true;
        report->failures.push_back(path);
        return false;
    }
    if (!S_ISDIR(listed.st_mode)) {
        if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT)
            return true;
        report->failures.push_back(path);
        return false;
    }
    const int directory = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat opened {};
    if (directory < 0 || ::fstat(directory, &opened) != 0 || opened.st_dev != listed.st_dev || opened.st_ino != listed.st_ino) {
        if (directory >= 0)
            ::close(directory);
        report->failures.push_back(path);
        return false;
    }
    DIR *list = ::fdopendir(::dup(directory));
    bool removed = list != nullptr;
    while (list) {
        const dirent *entry = ::readdir(list);
        if (!entry)
            break;
        const std::string child = entry->d_name;
        if (child == "." || child == "..")
            continue;
        removed = removeAt(directory, child, path + '/' + child, report) && removed;
    }
    if (list)
        ::closedir(list);
    ::close(directory);
    if (removed && ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0)
        return true;
    report->failures.push_back(path);
    return false;
}

} // namespace

bool removeTree(const NativePath &path, Report *report)
{
    Report ignored;
    if (!report)
        report = &ignored;
    std::string top = path;
    while (top.size() > 1 && top.back() == '/')
        top.pop_back();
    const std::string::size_type slash = top.rfind('/');
    const std::string name = slash == std::string::npos ? top : top.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        report->failures.push_back(path);
        return false;
    }
    const std::string parentPath = slash == std::string::npos ? "." : (slash == 0 ? "/" : top.substr(0, slash));
    const int parent = ::open(parentPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parent < 0) {
        if (errno == ENOENT)
            return true;
        report->failures.push_back(path);
        return false;
    }
    const bool removed = removeAt(parent, name, top, report);
    ::close(parent);
    return removed;
}

} // namespace TreeRemoval
