#pragma once

// Owners for Win32 handles, so that "closed on every path" holds by construction.

#include <QString>

#include <memory>
#include <type_traits>

#include <windows.h>

#include "system/unique_handle_win.h"

struct LocalFreer
{
    void operator()(void *memory) const { LocalFree(memory); }
};
template<typename T>
using UniqueLocal = std::unique_ptr<T, LocalFreer>;

struct RegistryKeyCloser
{
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using UniqueRegistryKey = std::unique_ptr<std::remove_pointer_t<HKEY>, RegistryKeyCloser>;

inline const wchar_t *wideChars(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}
