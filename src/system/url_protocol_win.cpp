#include "system/url_protocol.h"

#include <windows.h>

namespace UrlProtocol {

Key::~Key()
{
    reset();
}

void Key::reset(void *handle)
{
    if (m_handle)
        RegCloseKey(static_cast<HKEY>(m_handle));
    m_handle = handle;
}

long openUserClasses(Key &out, const std::wstring &sid)
{
    if (sid.empty())
        return ERROR_INVALID_PARAMETER;
    const std::wstring subkey = sid + L"_Classes";
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExW(HKEY_USERS, subkey.c_str(), 0, KEY_READ | KEY_WRITE, &key);
    if (status != ERROR_SUCCESS)
        return status;
    out.reset(key);
    return ERROR_SUCCESS;
}

long readValue(void *key, const std::wstring &name, Value &out, bool &found)
{
    found = false;
    DWORD type = 0;
    DWORD size = 0;
    const HKEY hkey = static_cast<HKEY>(key);
    LSTATUS status = RegQueryValueExW(hkey, name.c_str(), nullptr, &type, nullptr, &size);
    // The value may grow between the two calls; ask again with the new size.
    for (int attempt = 0; attempt < 4; ++attempt) {
        if (status == ERROR_FILE_NOT_FOUND)
            return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA)
            return status;
        std::vector<unsigned char> data(size);
        DWORD read = size;
        status = RegQueryValueExW(hkey, name.c_str(), nullptr, &type, data.empty() ? nullptr : data.data(), &read);
        if (status == ERROR_SUCCESS) {
            data.resize(read);
            out.name = name;
            out.existed = true;
            out.type = type;
            out.data = std::move(data);
            found = true;
            return ERROR_SUCCESS;
        }
        size = read;
    }
    return status;
}

} // namespace UrlProtocol
