#pragma once

#include <QObject>

class SystemTest : public QObject
{
    Q_OBJECT

private slots:
    void quoting_data();
    void quoting();
    void links_data();
    void links();
    void removalNeverFollowsALink_data();
    void removalNeverFollowsALink();
    void desktopUserRegistryPaths();
    void sha256_data();
    void sha256();
#ifdef Q_OS_WIN
    void launchChoosesTheToken_data();
    void launchChoosesTheToken();
    void launchAsTheRealDesktopUser();
    void permissionsGrantModifyOnEveryObject();
    void mergingKeepsDenials_data();
    void mergingKeepsDenials();
    void refusedPermissionTreesRollBack_data();
    void refusedPermissionTreesRollBack();
    void shortcutReadsBackThroughTheShell();
    void captureRefusesWhatNoShortcutOfOursIs_data();
    void captureRefusesWhatNoShortcutOfOursIs();
    void urlSchemeRegistration_data();
    void urlSchemeRegistration();
#endif
};
