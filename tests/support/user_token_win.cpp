#include "support/user_token_win.h"

namespace UserToken {

UniqueHandle restricted()
{
    HANDLE own = nullptr;
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(administrators);
    HANDLE result = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ASSIGN_PRIMARY | TOKEN_IMPERSONATE, &own)
        && CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size)) {
        SID_AND_ATTRIBUTES denyOnly { administrators, 0 };
        CreateRestrictedToken(own, 0, 1, &denyOnly, 0, nullptr, 0, nullptr, &result);
    }
    CloseHandle(own);
    return UniqueHandle(result);
}

QByteArray fileSecurity(const QString &path, SECURITY_INFORMATION parts)
{
    DWORD size = 0;
    GetFileSecurityW(wideChars(path), parts, nullptr, 0, &size);
    QByteArray descriptor(int(size), '\0');
    return size && GetFileSecurityW(wideChars(path), parts, descriptor.data(), size, &size) ? descriptor : QByteArray();
}

bool mayAccess(HANDLE token, const QString &path, DWORD access)
{
    QByteArray descriptor = fileSecurity(path, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION);
    HANDLE impersonation = nullptr;
    if (descriptor.isEmpty() || !DuplicateToken(token, SecurityImpersonation, &impersonation))
        return false;
    const UniqueHandle owned(impersonation);
    GENERIC_MAPPING mapping { FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS };
    PRIVILEGE_SET privileges {};
    DWORD privilegesSize = sizeof(privileges);
    DWORD granted = 0;
    BOOL allowed = FALSE;
    return AccessCheck(descriptor.data(), impersonation, access, &mapping, &privileges, &privilegesSize, &granted, &allowed) && allowed;
}

} // namespace UserToken
