#pragma once

#include <QFileInfo>

// What an entry is in itself. On Windows QFileInfo follows ".lnk" shell shortcuts as if they
// were links, so a payload file named "Help.lnk" would look missing, or like the directory it
// points at; these tests take such a file for the plain file it is. Real links are refused
// separately (FileLinks).
namespace PlainEntries {

inline bool isFile(const QFileInfo &info)
{
    return info.isShortcut() || (info.isFile() && !info.isSymbolicLink());
}

inline bool isDirectory(const QFileInfo &info)
{
    return !info.isShortcut() && info.isDir();
}

} // namespace PlainEntries
