#pragma once

#include <string>
#include <vector>

// "uninstall.dat": the magic line, then "F<TAB>path" lines, then "D<TAB>path" lines (deepest
// first), paths relative to the installation directory with "/" separators.
struct UninstallList
{
    std::vector<std::wstring> files;
    std::vector<std::wstring> directories;
    int refusedLines = 0; // lines that were not safe or not understood; never acted on
};

struct RemovalResult
{
    int failures = 0;
};

// A path is acted on only when it is relative, has no empty, "." or ".." part and no colon.
bool safeRelativePath(const std::wstring &path);

// Reads the list of an installation directory (whose last component must be "BrisaLinker").
// False when the directory or the file is not what an installation of ours looks like.
bool readUninstallList(const std::wstring &installDirectory, UninstallList *list);

// Deletes the listed files (but the one named `deferred`, relative, which may still be running),
// then the listed directories that are empty, then the installation directory itself when it is
// empty. Never follows a link out of the installation.
RemovalResult removeListedEntries(const std::wstring &installDirectory, const UninstallList &list,
                                  const std::wstring &deferred = std::wstring());

// Deletes the deferred file once it is free, and the installation directory if it is then empty.
bool removeDeferred(const std::wstring &installDirectory, const std::wstring &deferred);
