#include "system/access_list_win.h"

#include <aclapi.h>

#include <cstring>

namespace AccessList {

namespace {

bool isDenial(const ACE_HEADER *ace)
{
    switch (ace->AceType) {
    case ACCESS_DENIED_ACE_TYPE:
    case ACCESS_DENIED_OBJECT_ACE_TYPE:
    case ACCESS_DENIED_CALLBACK_ACE_TYPE:
    case ACCESS_DENIED_CALLBACK_OBJECT_ACE_TYPE:
        return true;
    default:
        return false;
    }
}

const ACE_HEADER *entry(PACL list, DWORD index)
{
    void *ace = nullptr;
    return GetAce(list, index, &ace) ? static_cast<const ACE_HEADER *>(ace) : nullptr;
}

bool contains(PACL list, const ACE_HEADER *wanted)
{
    for (DWORD i = 0; i < list->AceCount; ++i) {
        const ACE_HEADER *ace = entry(list, i);
        if (ace && ace->AceSize == wanted->AceSize && std::memcmp(ace, wanted, wanted->AceSize) == 0)
            return true;
    }
    return false;
}

} // namespace

DWORD mergeGrant(PACL list, PSID sid, DWORD access, bool directory, UniqueLocal<ACL> *merged)
{
    EXPLICIT_ACCESS_W grant {};
    grant.grfAccessPermissions = access;
    grant.grfAccessMode = GRANT_ACCESS;
    grant.grfInheritance = directory ? SUB_CONTAINERS_AND_OBJECTS_INHERIT : NO_INHERITANCE;
    grant.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    grant.Trustee.TrusteeType = TRUSTEE_IS_USER;
    grant.Trustee.ptstrName = static_cast<LPWSTR>(sid);
    PACL result = nullptr;
    const DWORD error = SetEntriesInAclW(1, &grant, list, &result);
    if (error == ERROR_SUCCESS)
        merged->reset(result);
    return error;
}

bool keepsDenials(PACL from, PACL list)
{
    for (DWORD i = 0; i < from->AceCount; ++i) {
        const ACE_HEADER *ace = entry(from, i);
        if (!ace || (isDenial(ace) && !contains(list, ace)))
            return false;
    }
    return true;
}

bool holdsGrant(PACL list, PSID sid, DWORD access, bool directory)
{
    const BYTE inheritance = directory ? OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE : 0;
    for (DWORD i = 0; i < list->AceCount; ++i) {
        const ACE_HEADER *ace = entry(list, i);
        if (!ace || ace->AceType != ACCESS_ALLOWED_ACE_TYPE || (ace->AceFlags & INHERIT_ONLY_ACE)
            || (ace->AceFlags & inheritance) != inheritance) {
            continue;
        }
        const auto *allowed = reinterpret_cast<const ACCESS_ALLOWED_ACE *>(ace);
        if ((allowed->Mask & access) == access && EqualSid(const_cast<DWORD *>(&allowed->SidStart), sid))
            return true;
    }
    return false;
}

} // namespace AccessList
