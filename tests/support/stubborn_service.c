/* A service that answers a stop request with "stop pending" and then never stops: what a hung
   service looks like to whoever replaces it. The test that started it ends its process. */
#include <windows.h>

static SERVICE_STATUS_HANDLE handle;
static SERVICE_STATUS status = { SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0 };

static DWORD WINAPI control(DWORD code, DWORD type, void *data, void *context)
{
    (void)type; (void)data; (void)context;
    if (code == SERVICE_CONTROL_STOP) {
        status.dwCurrentState = SERVICE_STOP_PENDING;
        status.dwWaitHint = 600000;
        SetServiceStatus(handle, &status);
    }
    return NO_ERROR;
}

static void WINAPI serviceMain(DWORD argc, wchar_t **argv)
{
    (void)argc; (void)argv;
    handle = RegisterServiceCtrlHandlerExW(L"", control, NULL);
    SetServiceStatus(handle, &status);
    Sleep(INFINITE);
}

int wmain(void)
{
    SERVICE_TABLE_ENTRYW table[] = { { (wchar_t *)L"", serviceMain }, { NULL, NULL } };
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
