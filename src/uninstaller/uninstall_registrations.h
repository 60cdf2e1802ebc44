#pragma once

#include <string>

// The SID of the user this process runs as ("S-1-5-21-..."), or empty.
std::wstring processUserSid();

// Removes the user's uninstall entry, the shortcuts and the "brisalinker" URL scheme, each only
// when it still points at this installation: another installation's registrations are left alone.
void removeRegistrations(const std::wstring &installDirectory);

// Whether a machine-wide key still names this installation: the installer's remembered location
// or an older installer's machine-wide uninstall entry. Removing them needs an administrator.
bool machineRegistrationNames(const std::wstring &installDirectory);

// Removes those of the machine-wide keys that name this installation; false when one stays.
bool removeMachineRegistrations(const std::wstring &installDirectory);
