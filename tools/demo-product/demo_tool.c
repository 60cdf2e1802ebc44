/* The demo product's helper programs (updater, core): they only say what they are, so a release
   has the layout of the real product without its function. Started with --version they print
   nothing and exit 0, so scripts can call them. */
#include <windows.h>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int show)
{
    (void)instance;
    (void)previous;
    (void)show;
    if (commandLine && commandLine[0])
        return 0;
    MessageBoxW(NULL, DEMO_TOOL_TEXT L"\n\nPart of the Brisa-Linker demo product, version " DEMO_VERSION_TEXT L".",
                L"Brisa-Linker (demo product)", MB_OK | MB_ICONINFORMATION);
    return 0;
}
