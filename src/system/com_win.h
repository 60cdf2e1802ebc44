#pragma once

// COM for one call on the calling thread, and owners for the interface pointers and the strings
// the shell allocates, so that "released on every path" holds by construction.

#include <memory>

#include <windows.h>
#include <objbase.h>

// Initialises COM as a single-threaded apartment for the scope's lifetime; a thread that already
// has COM in another apartment model keeps it (and is not uninitialised here).
class ComScope
{
public:
    ComScope() : m_result(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) { }
    ~ComScope()
    {
        if (SUCCEEDED(m_result))
            CoUninitialize();
    }
    ComScope(const ComScope &) = delete;
    ComScope &operator=(const ComScope &) = delete;
    bool usable() const { return SUCCEEDED(m_result) || m_result == RPC_E_CHANGED_MODE; }

private:
    HRESULT m_result;
};

template<typename T>
struct ComReleaser
{
    void operator()(T *object) const
    {
        if (object)
            object->Release();
    }
};
template<typename T>
using ComPointer = std::unique_ptr<T, ComReleaser<T>>;

struct CoTaskFreer
{
    void operator()(void *memory) const { CoTaskMemFree(memory); }
};
using UniqueCoTaskString = std::unique_ptr<wchar_t, CoTaskFreer>;
