#pragma once

#include <QString>

// Grants the desktop user modify rights on the product directory. Only the token helpers used
// at start-up live here so far.
namespace InstallationPermissions {

using Handle = void *; // a Windows HANDLE

// The token of the process that owns the shell's desktop window, or null. The caller owns it.
Handle desktopToken();

// The user SID of a token in string form, or empty.
QString tokenSid(Handle token);

} // namespace InstallationPermissions
