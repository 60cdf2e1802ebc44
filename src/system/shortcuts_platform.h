#pragma once

#include <QString>

// The operating-system half of Shortcuts' replacement: one rename over an existing file.
namespace ShortcutsPlatform {

// Renames from over to, replacing a file there. Returns 0 or the system's error code.
unsigned long moveOver(const QString &from, const QString &to);

} // namespace ShortcutsPlatform
