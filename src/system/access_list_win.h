#pragma once

// Windows-only: the access-list steps of granting the desktop user rights on the product
// directory, kept apart so that they can be checked on lists made in memory.

#include "system/handles_win.h"

#include <windows.h>

namespace AccessList {

// The list with one explicit entry merged in that grants access to sid, inherited by subfolders
// and files for a directory, not inherited for a file. 0 or the Windows error.
DWORD mergeGrant(PACL list, PSID sid, DWORD access, bool directory, UniqueLocal<ACL> *merged);

// Whether every access-denied entry of from (plain, object, callback and callback-object) is in
// list unchanged.
bool keepsDenials(PACL from, PACL list);

// Whether list holds an allowed entry for sid with at least access and, for a directory, the
// inheritance to subfolders and files.
bool holdsGrant(PACL list, PSID sid, DWORD access, bool directory);

} // namespace AccessList
