/* A stand-in for a system program (regsvr32, netsh): appends one line to the file named by
 * BRISA_RECORD_FILE, the program's own path and then each argument as Windows parsed it, all
 * separated by '|'. A file "<program path>.hang" beside it makes it hang for ten minutes, a file
 * "<program path>.fail" makes it exit with 3. */
#include <windows.h>
#include <shellapi.h>

static void appendUtf8(HANDLE file, const wchar_t *text)
{
    char buffer[4096];
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, sizeof(buffer), NULL, NULL);
    DWORD written = 0;
    if (size > 1)
        WriteFile(file, buffer, (DWORD)(size - 1), &written, NULL);
}

static BOOL markerExists(const wchar_t *program, const wchar_t *suffix)
{
    wchar_t path[MAX_PATH + 16];
    lstrcpynW(path, program, MAX_PATH);
    lstrcatW(path, suffix);
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int show)
{
    wchar_t program[MAX_PATH];
    wchar_t record[MAX_PATH];
    int count = 0;
    (void)instance; (void)previous; (void)commandLine; (void)show;
    GetModuleFileNameW(NULL, program, MAX_PATH);
    if (GetEnvironmentVariableW(L"BRISA_RECORD_FILE", record, MAX_PATH)) {
        LPWSTR *arguments = CommandLineToArgvW(GetCommandLineW(), &count);
        HANDLE file = CreateFileW(record, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, NULL);
        if (file != INVALID_HANDLE_VALUE) {
            int i;
            appendUtf8(file, program);
            for (i = 1; arguments && i < count; ++i) {
                appendUtf8(file, L"|");
                appendUtf8(file, arguments[i]);
            }
            appendUtf8(file, L"\n");
            CloseHandle(file);
        }
        LocalFree(arguments);
    }
    if (markerExists(program, L".hang"))
        Sleep(600000);
    return markerExists(program, L".fail") ? 3 : 0;
}
