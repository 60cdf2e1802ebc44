#pragma once

// Windows-only: access checks as a signed-in user who is not an administrator.

#include "system/handles_win.h"

#include <QByteArray>
#include <QString>

#include <windows.h>

namespace UserToken {

// Under Wine the process is an administrator; with that group for denial only the token is what
// a signed-in user of a real machine holds.
UniqueHandle restricted();

// The file's security descriptor with the parts asked for; empty when it cannot be read.
QByteArray fileSecurity(const QString &path, SECURITY_INFORMATION parts);

// Whether AccessCheck grants token every right of access on the file or directory.
bool mayAccess(HANDLE token, const QString &path, DWORD access);

} // namespace UserToken
