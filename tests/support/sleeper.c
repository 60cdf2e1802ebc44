/* A stand-in for a running product executable: copied under a product file name, started, and
 * then found, stopped or left alone by the tests. Runs for at most ten minutes. */
#include <windows.h>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int show)
{
    (void)instance; (void)previous; (void)commandLine; (void)show;
    Sleep(600000);
    return 0;
}
