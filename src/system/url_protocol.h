#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The "brisalinker" URL scheme in the desktop user's classes hive. Wide strings and raw registry
// handles, so the registration code stays independent of the GUI toolkit. Error results are
// Windows system error codes, 0 meaning success.
namespace UrlProtocol {

// Owner of one open registry key (an HKEY, kept opaque so portable code needs no windows.h).
class Key
{
public:
    Key() = default;
    ~Key();
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;

    void *handle() const { return m_handle; }
    void reset(void *handle = nullptr);

private:
    void *m_handle = nullptr;
};

struct Value
{
    std::wstring name;
    bool existed = false;
    std::uint32_t type = 0;
    std::vector<unsigned char> data;
};

// Opens "HKEY_USERS\<sid>_Classes" for reading and writing.
long openUserClasses(Key &out, const std::wstring &sid);

// Reads one value of an open key. A missing value is not an error: found is set false.
long readValue(void *key, const std::wstring &name, Value &out, bool &found);

// The text of a string-typed value, without its terminating null.
bool stringValue(const Value &value, std::wstring &text);

// Backslashes throughout; the "\\?\" and "\\?\UNC\" prefixes turned into plain forms.
std::wstring normalizedPath(const std::wstring &path);

// "\"<executable>\" \"%1\"".
std::wstring launchCommand(const std::wstring &executable);

} // namespace UrlProtocol
