#pragma once

#include <string>

// Removes the user's uninstall entry, the shortcuts and the "brisalinker" URL scheme, each only
// when it still points at this installation: another installation's registrations are left alone.
void removeRegistrations(const std::wstring &installDirectory);
