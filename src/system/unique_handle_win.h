#pragma once

// An owner for a Win32 handle, so that "closed on every path" holds by construction. Free of Qt,
// so that the uninstaller's plain C++ can use it too.

#include <memory>
#include <type_traits>

#include <windows.h>

struct HandleCloser
{
    void operator()(HANDLE handle) const
    {
        if (handle && handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);
    }
};
using UniqueHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

// For the search handles of FindFirstFile*, which are closed differently.
struct FindCloser
{
    void operator()(HANDLE find) const
    {
        if (find != INVALID_HANDLE_VALUE)
            FindClose(find);
    }
};
using UniqueFind = std::unique_ptr<std::remove_pointer_t<HANDLE>, FindCloser>;
