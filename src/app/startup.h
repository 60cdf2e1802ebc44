#pragma once

#include "app/installer_launch.h"

#include <QLocale>
#include <QString>
#include <QStringList>

class QApplication;

// The installer's start-up sequence: look, self-check, translation, options, update-mode
// decision, elevation, desktop user, directories, then the window and the event loop.
namespace Startup {

// Runs start-up and the event loop; the result is the process exit code.
int run(QApplication &application);

// The installer's own palette, installed before any widget exists.
void applyLook(QApplication &application);

// "bl_installer_ru_RU" and the like for the system language.
QString translationName(const QLocale &locale);

// "--bootstrapper-smoke": checks the compiled-in resources and the arguments without any UI.
int resourceSelfCheck(const QStringList &arguments);

// -1 to go on, or the exit code: returns the elevated copy's code when it had to re-launch.
int ensureInstallerElevation(const InstallerLaunch::Options &options, const QStringList &arguments);

} // namespace Startup
