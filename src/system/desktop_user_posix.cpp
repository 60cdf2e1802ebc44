#include "system/desktop_user.h"

// Host builds have no Windows desktop session and no token. The SID can be named through
// BRISA_HOST_DESKTOP_SID so that the portable logic that records an owner (journals) runs in
// host tests; unset, everything that depends on it reports "unknown" as Windows would without a
// shell.
namespace DesktopUser {

Handle token()
{
    return nullptr;
}

QString sid()
{
    return qEnvironmentVariable("BRISA_HOST_DESKTOP_SID");
}

QString processSid()
{
    return sid();
}

} // namespace DesktopUser
