/* The demo product's launcher: one small window that says what it is. It stands in for the real
   product so the installer can be shown end to end against a local release. */
#include <windows.h>

static const wchar_t *const Title = L"Brisa-Linker (demo product)";

static LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_PAINT: {
        PAINTSTRUCT paint;
        HDC dc = BeginPaint(window, &paint);
        RECT area;
        GetClientRect(window, &area);
        HBRUSH ground = CreateSolidBrush(RGB(0x18, 0x0e, 0x24));
        FillRect(dc, &area, ground);
        DeleteObject(ground);
        SetBkMode(dc, TRANSPARENT);
        HFONT big = CreateFontW(-26, 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                                CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH, L"Segoe UI");
        HFONT small = CreateFontW(-15, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                                  CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH, L"Segoe UI");
        RECT line = area;
        line.top = 44;
        HGDIOBJ old = SelectObject(dc, big);
        SetTextColor(dc, RGB(0xf5, 0xf5, 0xf5));
        DrawTextW(dc, L"Brisa-Linker", -1, &line, DT_CENTER | DT_SINGLELINE);
        SelectObject(dc, small);
        SetTextColor(dc, RGB(0xa5, 0xf3, 0xfc));
        line.top = 92;
        DrawTextW(dc, L"This is the demo product, version " DEMO_VERSION_TEXT L".", -1, &line, DT_CENTER | DT_SINGLELINE);
        line.top = 118;
        SetTextColor(dc, RGB(0xc4, 0xb5, 0xfd));
        DrawTextW(dc, L"It was installed by the Brisa-Linker installer from a local release.", -1, &line,
                  DT_CENTER | DT_SINGLELINE);
        SelectObject(dc, old);
        DeleteObject(big);
        DeleteObject(small);
        EndPaint(window, &paint);
        return 0;
    }
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandLine, int show)
{
    (void)previous;
    (void)commandLine;
    WNDCLASSW windowClass = {0};
    windowClass.lpfnWndProc = windowProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursorW(NULL, (LPCWSTR)IDC_ARROW);
    windowClass.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(1));
    windowClass.lpszClassName = L"BrisaLinkerDemoProduct";
    if (!RegisterClassW(&windowClass))
        return 1;
    RECT size = {0, 0, 520, 190};
    AdjustWindowRect(&size, WS_OVERLAPPEDWINDOW, FALSE);
    HWND window = CreateWindowW(windowClass.lpszClassName, Title, WS_OVERLAPPEDWINDOW & ~WS_THICKFRAME & ~WS_MAXIMIZEBOX,
                                CW_USEDEFAULT, CW_USEDEFAULT, size.right - size.left, size.bottom - size.top, NULL,
                                NULL, instance, NULL);
    if (!window)
        return 1;
    ShowWindow(window, show);
    UpdateWindow(window);
    MSG message;
    while (GetMessageW(&message, NULL, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return (int)message.wParam;
}
