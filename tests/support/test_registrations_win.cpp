#include "support/test_registrations.h"

#include "support/registry_dump_win.h"

#include "system/desktop_user.h"
#include "system/shortcuts.h"

#include <QDir>
#include <QFile>

#include <windows.h>

namespace TestRegistrations {

namespace {

const QString entryKey = QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
const QString schemeKey = QStringLiteral("_Classes\\brisalinker");
const wchar_t machineEntry[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker";

std::wstring userKey(const QString &subkey)
{
    return (DesktopUser::sid() + subkey).toStdWString();
}

QList<QPair<Shortcuts::Folder, QString>> shortcuts()
{
    return { { Shortcuts::Folder::Desktop, QStringLiteral("Brisa-Linker.lnk") },
             { Shortcuts::Folder::Programs, QStringLiteral("Brisa-Linker.lnk") },
             { Shortcuts::Folder::Programs, QStringLiteral("Uninstall Brisa-Linker.lnk") } };
}

// The key's values and, depth first, its subkeys', under the name given.
void readTree(const std::wstring &path, const QString &name, QMap<QString, QByteArray> *state)
{
    const qsizetype prefix = QStringLiteral("key ").size() + qsizetype(path.size());
    QString key;
    for (const QString &line : TestRegistry::dump(HKEY_USERS, path)) {
        if (line.startsWith(QLatin1String("key "))) {
            key = name + line.mid(prefix);
            state->insert(key + QStringLiteral("|(key)"), {});
            continue;
        }
        // "  <name> <type> <hex>", where the name may hold blanks.
        const QString value = line.mid(2);
        state->insert(key + QLatin1Char('|') + value.section(QLatin1Char(' '), 0, -3),
                      value.section(QLatin1Char(' '), -2, -2).toLatin1() + ':' + value.section(QLatin1Char(' '), -1).toLatin1());
    }
}

bool setText(const std::wstring &key, const wchar_t *name, DWORD type, const QString &text)
{
    return RegSetKeyValueW(HKEY_USERS, key.c_str(), name, type, text.utf16(), DWORD((text.size() + 1) * 2)) == ERROR_SUCCESS;
}

} // namespace

QMap<QString, QByteArray> snapshot()
{
    QMap<QString, QByteArray> state;
    readTree(userKey(entryKey), QStringLiteral("Uninstall\\BrisaLinker"), &state);
    readTree(userKey(schemeKey), QStringLiteral("brisalinker"), &state);
    for (const auto &[folder, name] : shortcuts()) {
        const QString path = Shortcuts::shortcutFilePath(folder, name);
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            state.insert(QStringLiteral("lnk:") + path, file.readAll());
            state.insert(QStringLiteral("target:") + path, Shortcuts::shortcutTarget(path).toUtf8());
        }
    }
    // A shortcut being put back is written beside it first; none may be left over.
    for (const auto folder : { Shortcuts::Folder::Desktop, Shortcuts::Folder::Programs }) {
        const QDir directory(QFileInfo(Shortcuts::shortcutFilePath(folder, QStringLiteral("x"))).path());
        for (const QString &name : directory.entryList({ QStringLiteral(".brisalinker-shortcut-*") }, QDir::Files | QDir::Hidden))
            state.insert(QStringLiteral("leftover:") + name, {});
    }
    return state;
}

bool plantOlderInstaller(const QString &root, const QString &entryLocation)
{
    const QString native = QDir::toNativeSeparators(root);
    const QString location = entryLocation.isEmpty() ? native : entryLocation;
    const std::wstring entry = userKey(entryKey);
    const DWORD one = 1;
    const char blob[] = "\x01\x02\xff";
    const std::wstring command = userKey(schemeKey + QStringLiteral("\\shell\\open\\command"));
    HKEY machine = nullptr;
    const bool planted = setText(entry, L"DisplayName", REG_SZ, QStringLiteral("Brisa-Linker 1.4"))
        && setText(entry, L"InstallLocation", REG_SZ, location)
        && setText(entry, L"QuietUninstallString", REG_SZ, QStringLiteral("\"C:\\old\\unins000.exe\" /SILENT"))
        && RegSetKeyValueW(HKEY_USERS, entry.c_str(), L"WindowsInstaller", REG_DWORD, &one, sizeof(one)) == ERROR_SUCCESS
        && setText(entry, L"DisplayIcon", REG_EXPAND_SZ, QStringLiteral("%ProgramFiles%\\old.ico"))
        && RegSetKeyValueW(HKEY_USERS, entry.c_str(), L"Inno Setup: Blob", REG_BINARY, blob, 3) == ERROR_SUCCESS
        && setText(userKey(schemeKey), L"", REG_SZ, QStringLiteral("URL:Brisa-Linker"))
        && setText(userKey(schemeKey), L"URL Protocol", REG_SZ, QString())
        && setText(command, L"", REG_SZ, QStringLiteral("\"%1\\brisalinker.exe\" \"%2\"").arg(native, QStringLiteral("%1")))
        && RegCreateKeyExW(HKEY_LOCAL_MACHINE, machineEntry, 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &machine, nullptr) == ERROR_SUCCESS;
    if (machine) {
        RegSetValueExW(machine, L"InstallLocation", 0, REG_SZ, reinterpret_cast<const BYTE *>(native.utf16()), DWORD((native.size() + 1) * 2));
        RegCloseKey(machine);
    }
    const QString launcher = root + QStringLiteral("/brisalinker.exe");
    return planted && Shortcuts::createShortcut(Shortcuts::Folder::Desktop, launcher, root, launcher, QStringLiteral("Brisa-Linker.lnk"))
        && Shortcuts::createShortcut(Shortcuts::Folder::Programs, root + QStringLiteral("/uninstall.exe"), root, launcher,
                                     QStringLiteral("Uninstall Brisa-Linker.lnk"));
}

void forget()
{
    for (const QString &key : { entryKey, schemeKey }) {
        RegDeleteTreeW(HKEY_USERS, userKey(key).c_str());
        RegDeleteKeyW(HKEY_USERS, userKey(key).c_str());
    }
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, machineEntry);
    RegDeleteKeyExW(HKEY_LOCAL_MACHINE, machineEntry, KEY_WOW64_64KEY, 0);
    for (const auto &[folder, name] : shortcuts()) {
        Shortcuts::removeShortcutFile(Shortcuts::shortcutFilePath(folder, name));
        Shortcuts::removeStagedShortcuts(QFileInfo(Shortcuts::shortcutFilePath(folder, name)).path());
    }
}

} // namespace TestRegistrations
