#include "system/url_protocol.h"

#include "system/change_steps.h"
#include "system/handles_win.h"

#include <windows.h>
#include <shlobj.h>

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

namespace UrlProtocol {

namespace {

constexpr long invalidState = ERROR_INVALID_STATE; // 5023
constexpr long invalidParameter = ERROR_INVALID_PARAMETER; // 87
constexpr long busy = ERROR_BUSY; // 170

const wchar_t markerName[] = L"BrisaLinkerInstallerRegistration";

struct Write
{
    const wchar_t *name;
    std::wstring text;
    bool remove = false;
};

// What apply writes into each key, in the order the keys are captured and created.
std::vector<std::vector<Write>> writesFor(const std::wstring &executable, const std::wstring &marker)
{
    return {
        { { L"", L"BrisaLinker URL Protocol" }, { L"URL Protocol", L"" }, { markerName, marker } },
        { { L"", L"\"" + executable + L"\",0" } },
        { { L"", L"open" } },
        {},
        { { L"", launchCommand(executable) }, { L"DelegateExecute", L"", true } },
    };
}

const std::vector<std::wstring> &subkeys()
{
    static const std::vector<std::wstring> keys { L"brisalinker", L"brisalinker\\DefaultIcon", L"brisalinker\\shell",
                                                  L"brisalinker\\shell\\open", L"brisalinker\\shell\\open\\command" };
    return keys;
}

std::wstring newMarker()
{
    static LONG sequence = 0;
    return std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64()) + L"-"
        + std::to_wstring(InterlockedIncrement(&sequence));
}

LSTATUS setString(HKEY key, const wchar_t *name, const std::wstring &text)
{
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(text.c_str()),
                          DWORD((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS deleteValue(HKEY key, const std::wstring &name)
{
    const LSTATUS status = RegDeleteValueW(key, name.c_str());
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

bool hasNoContent(HKEY key)
{
    DWORD subkeys = 0;
    DWORD values = 0;
    return RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                            nullptr) == ERROR_SUCCESS
        && subkeys == 0 && values == 0;
}

} // namespace

void notifyAssociationsChanged()
{
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}

long Registration::capture()
{
    if (m_captured)
        return invalidState;
    const std::wstring marker = newMarker();
    const auto writes = writesFor(L"", marker);
    std::vector<Change> changes;
    for (size_t i = 0; i < subkeys().size(); ++i) {
        Change change;
        change.subkey = subkeys()[i];
        HKEY raw = nullptr;
        const LSTATUS opened = RegOpenKeyExW(static_cast<HKEY>(m_root), change.subkey.c_str(), 0, KEY_QUERY_VALUE, &raw);
        if (opened != ERROR_SUCCESS && opened != ERROR_FILE_NOT_FOUND)
            return opened;
        const UniqueRegistryKey key(opened == ERROR_SUCCESS ? raw : nullptr);
        change.existed = opened == ERROR_SUCCESS;
        for (const Write &write : writes[i]) {
            Value value;
            value.name = write.name;
            bool found = false;
            if (change.existed) {
                const long read = readValue(key.get(), value.name, value, found);
                if (read != ERROR_SUCCESS)
                    return read;
            }
            value.existed = found;
            change.values.push_back(std::move(value));
        }
        changes.push_back(std::move(change));
    }
    m_changes = std::move(changes);
    m_marker = marker;
    m_captured = true;
    return ERROR_SUCCESS;
}

long Registration::apply(const std::wstring &executable)
{
    const std::wstring path = normalizedPath(executable);
    const size_t slash = path.find_last_of(L'\\');
    const std::wstring fileName = slash == std::wstring::npos ? path : path.substr(slash + 1);
    if (path.empty() || !m_captured || m_applied || CompareStringOrdinal(fileName.c_str(), -1, L"brisalinker.exe", -1, TRUE) != CSTR_EQUAL)
        return invalidParameter;
    const auto writes = writesFor(path, m_marker);
    for (size_t i = 0; i < m_changes.size(); ++i) {
        HKEY raw = nullptr;
        DWORD disposition = 0;
        const LSTATUS created = RegCreateKeyExW(static_cast<HKEY>(m_root), m_changes[i].subkey.c_str(), 0, nullptr, 0,
                                                KEY_SET_VALUE, nullptr, &raw, &disposition);
        if (created != ERROR_SUCCESS)
            return created;
        if (disposition == REG_CREATED_NEW_KEY)
            ChangeSteps::passed("create URL key");
        // From the first key created on, rollback has something to undo.
        m_applied = true;
        const UniqueRegistryKey key(raw);
        for (const Write &write : writes[i]) {
            const LSTATUS status = write.remove ? deleteValue(key.get(), write.name) : setString(key.get(), write.name, write.text);
            if (status != ERROR_SUCCESS)
                return status;
            ChangeSteps::passed("write URL value");
        }
    }
    return ERROR_SUCCESS;
}

long Registration::rollback()
{
    if (!m_applied)
        return ERROR_SUCCESS;
    const HKEY root = static_cast<HKEY>(m_root);
    // Whether every captured value reads as it was: then only keys this run created may remain.
    bool asCaptured = true;
    for (const Change &change : m_changes) {
        HKEY raw = nullptr;
        const bool open = RegOpenKeyExW(root, change.subkey.c_str(), 0, KEY_QUERY_VALUE, &raw) == ERROR_SUCCESS;
        const UniqueRegistryKey key(open ? raw : nullptr);
        for (const Value &saved : change.values) {
            Value now;
            bool found = false;
            if (open && readValue(key.get(), saved.name, now, found) != ERROR_SUCCESS)
                return busy;
            asCaptured = asCaptured && found == saved.existed && (!found || (now.type == saved.type && now.data == saved.data));
        }
    }
    if (!asCaptured) {
        // Another installation that registered the scheme since wins: its marker replaced ours.
        HKEY raw = nullptr;
        if (RegOpenKeyExW(root, subkeys().front().c_str(), 0, KEY_QUERY_VALUE, &raw) != ERROR_SUCCESS)
            return busy;
        const UniqueRegistryKey key(raw);
        Value marker;
        bool found = false;
        std::wstring text;
        if (readValue(key.get(), markerName, marker, found) != ERROR_SUCCESS || !found || !stringValue(marker, text) || text != m_marker)
            return busy;
    }
    long first = ERROR_SUCCESS;
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change) {
        LSTATUS status = ERROR_SUCCESS;
        if (!change->existed) {
            HKEY raw = nullptr;
            const LSTATUS opened = RegOpenKeyExW(root, change->subkey.c_str(), 0, KEY_QUERY_VALUE, &raw);
            const UniqueRegistryKey key(opened == ERROR_SUCCESS ? raw : nullptr);
            // Already restored by somebody else's hand: a value there now is not ours to drop.
            if (opened == ERROR_SUCCESS && (!asCaptured || hasNoContent(key.get()))) {
                status = RegDeleteKeyW(root, change->subkey.c_str());
                ChangeSteps::passed("delete URL key");
            }
            else if (opened != ERROR_FILE_NOT_FOUND)
                status = opened;
        } else {
            HKEY raw = nullptr;
            status = RegOpenKeyExW(root, change->subkey.c_str(), 0, KEY_SET_VALUE, &raw);
            const UniqueRegistryKey key(status == ERROR_SUCCESS ? raw : nullptr);
            for (const Value &saved : change->values) {
                if (status != ERROR_SUCCESS)
                    break;
                status = saved.existed ? RegSetValueExW(key.get(), saved.name.c_str(), 0, saved.type, saved.data.data(), DWORD(saved.data.size()))
                                       : deleteValue(key.get(), saved.name);
                ChangeSteps::passed("restore URL value");
            }
        }
        if (status == ERROR_FILE_NOT_FOUND)
            status = ERROR_SUCCESS;
        if (first == ERROR_SUCCESS)
            first = status;
    }
    if (first == ERROR_SUCCESS)
        m_applied = false;
    return first;
}

void Registration::commit()
{
    m_changes.clear();
    m_captured = false;
    m_applied = false;
}

} // namespace UrlProtocol
