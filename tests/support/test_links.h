#pragma once

#include <QString>

// Links made at test time, where the tests need one inside a tree they build. On the host a
// symlink. On Windows a directory symbolic link when the system allows it; under Wine, whose
// Windows side cannot make links, a Unix symlink made by running ln through the Z: drive, which
// Windows code then sees as a directory reparse point. False when no link could be made.
namespace TestLinks {

bool makeDirectoryLink(const QString &target, const QString &link);

} // namespace TestLinks
