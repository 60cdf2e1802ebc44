#pragma once

#include <string>

#include <windows.h>

// Whether the uninstaller must ask for an administrator before it starts its work. The product is
// normally the signed-in user's own; an administrator is needed only for what the user may not
// change: the maintenance service and its protected folder, a machine-wide key that names the
// installation, or an installation directory the user may not modify.

// Whether the token acts as an administrator now (the group enabled, not for denial only).
bool actsAsAdministrator(HANDLE token);

// Whether the token may change the installation directory itself (delete it, add to it).
bool mayModifyDirectory(HANDLE token, const std::wstring &directory);

// token: whose rights count; the process's own when null.
bool needsElevation(const std::wstring &installDirectory, HANDLE token = nullptr);
