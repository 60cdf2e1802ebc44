#include "uninstall_registrations.h"

#include <windows.h>
#include <knownfolders.h>
#include <sddl.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

namespace {

const wchar_t uninstallKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker";
const wchar_t installerKey[] = L"Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer";
const wchar_t schemeKey[] = L"brisalinker";
const wchar_t commandKey[] = L"brisalinker\\shell\\open\\command";

// The user's own classes hive ("HKEY_USERS\<SID>_Classes"), where the installer registers the
// scheme. HKEY_CURRENT_USER\Software\Classes is a merged view that also shows the machine's
// classes, so a deletion there could reach a scheme that is not the user's.
HKEY userClasses()
{
    const std::wstring sid = processUserSid();
    HKEY classes = nullptr;
    if (sid.empty() || RegOpenKeyExW(HKEY_USERS, (sid + L"_Classes").c_str(), 0, KEY_READ | KEY_WRITE, &classes) != ERROR_SUCCESS)
        return nullptr;
    return classes;
}

std::wstring canonical(std::wstring path)
{
    for (wchar_t &c : path) {
        if (c == L'/')
            c = L'\\';
    }
    while (path.size() > 3 && path.back() == L'\\')
        path.pop_back();
    CharLowerBuffW(path.data(), DWORD(path.size()));
    return path;
}

std::wstring readString(HKEY root, const wchar_t *subkey, const wchar_t *name)
{
    DWORD size = 0;
    if (RegGetValueW(root, subkey, name, RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS || size == 0)
        return {};
    std::wstring value(size / sizeof(wchar_t), L'\0');
    if (RegGetValueW(root, subkey, name, RRF_RT_REG_SZ, nullptr, value.data(), &size) != ERROR_SUCCESS)
        return {};
    value.resize(wcsnlen(value.c_str(), value.size()));
    return value;
}

bool deleteTree(HKEY root, const wchar_t *subkey)
{
    RegDeleteTreeW(root, subkey);
    const LSTATUS status = RegDeleteKeyW(root, subkey);
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

const wchar_t *const machineKeys[] = { installerKey, uninstallKey };

std::wstring shortcutTarget(const std::wstring &shortcut)
{
    IShellLinkW *link = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&link))))
        return {};
    std::wstring target;
    IPersistFile *file = nullptr;
    if (SUCCEEDED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&file)))) {
        if (SUCCEEDED(file->Load(shortcut.c_str(), STGM_READ))) {
            wchar_t path[MAX_PATH * 4] = {};
            if (SUCCEEDED(link->GetPath(path, int(std::size(path)), nullptr, SLGP_RAWPATH)))
                target = path;
        }
        file->Release();
    }
    link->Release();
    return target;
}

std::wstring knownFolder(REFKNOWNFOLDERID id)
{
    wchar_t *path = nullptr;
    std::wstring folder;
    if (SUCCEEDED(SHGetKnownFolderPath(id, KF_FLAG_DONT_VERIFY, nullptr, &path)) && path)
        folder = path;
    CoTaskMemFree(path);
    return folder;
}

void removeShortcutIfOurs(REFKNOWNFOLDERID folder, const wchar_t *name, const std::wstring &ourTarget)
{
    const std::wstring directory = knownFolder(folder);
    if (directory.empty())
        return;
    const std::wstring shortcut = directory + L"\\" + name;
    const DWORD attributes = GetFileAttributesW(shortcut.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)))
        return;
    if (canonical(shortcutTarget(shortcut)) == canonical(ourTarget))
        DeleteFileW(shortcut.c_str());
}

} // namespace

std::wstring processUserSid()
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return {};
    BYTE buffer[512];
    DWORD size = 0;
    wchar_t *sid = nullptr;
    const bool named = GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &size)
        && ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER *>(buffer)->User.Sid, &sid);
    CloseHandle(token);
    const std::wstring text = named ? sid : L"";
    LocalFree(sid);
    return text;
}

void removeRegistrations(const std::wstring &installDirectory)
{
    const std::wstring directory = canonical(installDirectory);
    const std::wstring launcher = installDirectory + L"\\brisalinker.exe";

    if (canonical(readString(HKEY_CURRENT_USER, uninstallKey, L"InstallLocation")) == directory)
        deleteTree(HKEY_CURRENT_USER, uninstallKey);

    const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    removeShortcutIfOurs(FOLDERID_Desktop, L"Brisa-Linker.lnk", launcher);
    removeShortcutIfOurs(FOLDERID_Programs, L"Brisa-Linker.lnk", launcher);
    removeShortcutIfOurs(FOLDERID_Programs, L"Uninstall Brisa-Linker.lnk", installDirectory + L"\\uninstall.exe");
    if (SUCCEEDED(com))
        CoUninitialize();

    // The scheme is ours when its command starts our launcher.
    const HKEY classes = userClasses();
    if (!classes)
        return;
    std::wstring command = readString(classes, commandKey, nullptr);
    CharLowerBuffW(command.data(), DWORD(command.size()));
    if (command.rfind(L"\"" + canonical(launcher) + L"\"", 0) == 0) {
        deleteTree(classes, schemeKey);
        SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    }
    RegCloseKey(classes);
}

bool machineRegistrationNames(const std::wstring &installDirectory)
{
    for (const wchar_t *key : machineKeys) {
        if (canonical(readString(HKEY_LOCAL_MACHINE, key, L"InstallLocation")) == canonical(installDirectory))
            return true;
    }
    return false;
}

bool removeMachineRegistrations(const std::wstring &installDirectory)
{
    bool removed = true;
    for (const wchar_t *key : machineKeys) {
        if (canonical(readString(HKEY_LOCAL_MACHINE, key, L"InstallLocation")) == canonical(installDirectory))
            removed = deleteTree(HKEY_LOCAL_MACHINE, key) && removed;
    }
    return removed;
}
