// Lays down an installation exactly as the earlier installer left it, for the demo:
//   make_earlier_installation <source root> <old-layout executable>
// The earlier installer's registrations go to the current user's hive, which is the desktop
// user's where this runs (the demo's Wine prefix).
#include "support/fake_installation.h"

#include <QCoreApplication>
#include <QStringList>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 3)
        return 2;
    return FakeInstallation::makeEarlierInstallation(arguments.at(1), arguments.at(2), QStringLiteral("HKEY_CURRENT_USER")) ? 0 : 1;
}
