#pragma once

#include <QString>
#include <QStringList>

#include <initializer_list>

// Symbolic links and junctions are how an unprivileged user redirects an elevated installer's
// writes, so every path the installer writes through is checked with these first. On Windows a
// link is recognised by its reparse-point attribute and tag, never by the look of the path.
namespace FileLinks {

// True when the entry itself (not its target) is a symbolic link or a junction. A missing entry
// is not a link.
bool isLink(const QString &path);

// True when the entry exists in any form, a dangling link included.
bool exists(const QString &path);

// True when the path or any of its ancestors up to the volume root is a link. The path is
// cleaned first; components that do not exist yet are allowed.
bool pathHasLink(const QString &path);

// pathHasLink() for several paths at once, as one move or one undo step needs them: a directory
// the paths share (the installation's parent, the volume's top folders) is looked at once.
bool anyPathHasLink(std::initializer_list<QString> paths);

// Removes a directory tree through the one link-refusing removal (TreeRemoval): a link or
// junction inside it, or the path itself if it is one, is removed as an entry and never entered,
// so an elevated installer deleting a directory the user can write to is never redirected into
// other files. Refused when an ancestor of the path is a link. The links met are appended to
// linksNotFollowed, for the caller's log. True when nothing is left.
bool removeTree(const QString &path, QStringList *linksNotFollowed = nullptr);

} // namespace FileLinks
