/* Stands in for Explorer under Wine: owns the shell window (SetShellWindow), as Explorer does on a
 * Windows desktop, so that the installer finds the signed-in desktop user the way it does on
 * Windows. Wine 8 runs no shell of its own. Writes "ready" to the file named by its argument once
 * the window is registered, then runs until the Wine server stops. */
#include <windows.h>
#include <stdio.h>

/* Not declared by the MinGW headers; exported by user32. */
BOOL WINAPI SetShellWindow(HWND window);

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int show)
{
    (void)instance; (void)previous; (void)show;
    HWND window = CreateWindowExW(0, L"STATIC", L"Brisa test desktop shell", WS_POPUP, 0, 0, 1, 1,
                                  NULL, NULL, NULL, NULL);
    if (!window || !SetShellWindow(window))
        return 1;
    if (commandLine && *commandLine) {
        FILE *ready = _wfopen(commandLine, L"w");
        if (ready) {
            fputs("ready\n", ready);
            fclose(ready);
        }
    }
    MSG message;
    while (GetMessageW(&message, NULL, 0, 0) > 0)
        DispatchMessageW(&message);
    return 0;
}
