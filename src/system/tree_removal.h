#pragma once

#include <string>
#include <vector>

// The one way the installer and the uninstaller remove a directory tree. Both run elevated in
// folders an unprivileged user can write to, so a link or junction planted anywhere in the tree
// must never lead the removal outside it. Each directory is opened without following links and
// held open, without delete sharing, while its entries go; every entry is checked again on the
// handle that was opened before anything is done to it, and the deletion acts on that handle. A
// link is removed as an entry of its own and never entered.
//
// Plain C++ without Qt, so that the small uninstaller links the same code.
namespace TreeRemoval {

#ifdef _WIN32
using NativePath = std::wstring;
#else
using NativePath = std::string;
#endif

struct Report
{
    std::vector<NativePath> links;    // links met in the tree: removed as entries, never entered
    std::vector<NativePath> failures; // entries that could not be removed (or links left in place)
};

// Removes path and everything below it. A missing path counts as removed; a path that is itself
// a link loses only the link. Returns true when nothing is left. The caller makes sure that the
// path's ancestors are free of links; while the tree's top directory is held open they cannot be
// renamed.
bool removeTree(const NativePath &path, Report *report = nullptr);

} // namespace TreeRemoval
