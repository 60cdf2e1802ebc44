#include "system/installation_permissions.h"

// Access lists and desktop tokens exist only on Windows. Portable builds still run the
// finalization, which then takes the path of a refused transaction (there is never a token).
namespace InstallationPermissions {

namespace {

constexpr quint32 notSupported = 50; // ERROR_NOT_SUPPORTED

} // namespace

Transaction::~Transaction() = default;

bool Transaction::apply(const QString &root, Handle token, QString *error)
{
    if (validateRoot(root, token))
        fail(QStringLiteral("identify_user"), root, notSupported);
    if (error)
        *error = failure();
    return false;
}

bool Transaction::collect(const QString &path, bool)
{
    return fail(QStringLiteral("open"), path, notSupported);
}

bool Transaction::rollback()
{
    return true; // nothing was changed
}

Handle desktopToken()
{
    return nullptr;
}

QString tokenSid(Handle)
{
    return {};
}

} // namespace InstallationPermissions
