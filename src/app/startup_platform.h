#pragma once

class QWidget;

// The few start-up steps that differ between Windows and the host build.
namespace StartupPlatform {

// Obtains the desktop user's token for the whole process; false when there is none.
bool acquireDesktopToken();

// Asks the window system to show the window normally even when the process was started hidden.
void showNormal(QWidget *window);

} // namespace StartupPlatform
