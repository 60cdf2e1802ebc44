#include "uninstall_elevation.h"
#include "uninstall_registrations.h"
#include "uninstall_service.h"

#include <vector>

namespace {

// Access checks need an impersonation token; a copy is made of whichever kind was given.
HANDLE identificationToken(HANDLE token)
{
    HANDLE own = nullptr;
    if (!token) {
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE, &own))
            return nullptr;
        token = own;
    }
    HANDLE copy = nullptr;
    if (!DuplicateToken(token, SecurityIdentification, &copy))
        copy = nullptr;
    if (own)
        CloseHandle(own);
    return copy;
}

} // namespace

bool actsAsAdministrator(HANDLE token)
{
    const HANDLE identification = identificationToken(token);
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(sid);
    BOOL member = FALSE;
    const bool checked = identification && CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size)
        && CheckTokenMembership(identification, sid, &member);
    if (identification)
        CloseHandle(identification);
    return checked && member;
}

bool mayModifyDirectory(HANDLE token, const std::wstring &directory)
{
    const SECURITY_INFORMATION parts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    GetFileSecurityW(directory.c_str(), parts, nullptr, 0, &size);
    std::vector<BYTE> descriptor(size);
    const HANDLE identification = identificationToken(token);
    GENERIC_MAPPING mapping { FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS };
    PRIVILEGE_SET privileges {};
    DWORD privilegesSize = sizeof(privileges);
    DWORD granted = 0;
    BOOL allowed = FALSE;
    const bool checked = identification && size && GetFileSecurityW(directory.c_str(), parts, descriptor.data(), size, &size)
        && AccessCheck(descriptor.data(), identification, DELETE | FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY, &mapping,
                       &privileges, &privilegesSize, &granted, &allowed);
    if (identification)
        CloseHandle(identification);
    // What cannot be checked is left to the removal, which reports what it could not do.
    return !checked || allowed;
}

bool needsElevation(const std::wstring &installDirectory, HANDLE token)
{
    if (actsAsAdministrator(token))
        return false;
    return maintenanceServiceBelongsTo(installDirectory)
        || GetFileAttributesW((installDirectory + L"\\WinServices").c_str()) != INVALID_FILE_ATTRIBUTES
        || machineRegistrationNames(installDirectory) || !mayModifyDirectory(token, installDirectory);
}
