#include "app/startup.h"
#include "app/startup_platform.h"

#include <QWidget>

// The host build has no elevation and no desktop token; it runs as the user who started it.
namespace StartupPlatform {

bool acquireDesktopToken()
{
    return true;
}

void showNormal(QWidget *window)
{
    window->showNormal();
}

} // namespace StartupPlatform

namespace Startup {

int ensureInstallerElevation(const InstallerLaunch::Options &, const QStringList &)
{
    return -1;
}

} // namespace Startup
