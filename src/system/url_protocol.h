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

// Tells the shell that file and scheme associations changed, so it drops what it cached.
void notifyAssociationsChanged();

// The scheme's keys and values as one small transaction: capture records everything apply will
// touch, apply writes the registration with a marker unique to this run, rollback restores the
// captured state only while the marker is still ours, commit forgets the captured state.
class Registration
{
public:
    struct Change
    {
        std::wstring subkey; // relative to the user's classes root
        bool existed = false;
        std::vector<Value> values; // their former state
    };

    // classesRoot is borrowed and must outlive the registration.
    explicit Registration(void *classesRoot) : m_root(classesRoot) { }

    long capture();
    long apply(const std::wstring &executable);
    long rollback();
    void commit();

    const std::wstring &marker() const { return m_marker; }

private:
    void *m_root;
    std::vector<Change> m_changes;
    std::wstring m_marker;
    bool m_captured = false;
    bool m_applied = false;
};

} // namespace UrlProtocol
