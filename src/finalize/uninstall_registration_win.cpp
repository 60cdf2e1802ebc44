#include "finalize/uninstall_registration.h"

#include "location/installation_location.h"
#include "system/change_steps.h"
#include "system/desktop_user.h"
#include "system/handles_win.h"

#include <QDate>
#include <QDir>

namespace {

const wchar_t entryPath[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker";

QString entrySubkey()
{
    return QString::fromWCharArray(entryPath);
}

bool report(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

// Relative to HKEY_USERS; empty when there is no desktop user, so nothing is ever written to a
// key of the wrong user.
std::wstring userEntry()
{
    const QString sid = DesktopUser::sid();
    return sid.isEmpty() ? std::wstring() : sid.toStdWString() + L"\\" + entryPath;
}

// Every value written or deleted is a change a crash may follow.
LSTATUS changed(LSTATUS status)
{
    if (status == ERROR_SUCCESS)
        ChangeSteps::passed("write uninstall value");
    return status;
}

LSTATUS setValue(HKEY key, const wchar_t *name, DWORD type, const void *data, DWORD size)
{
    return changed(RegSetValueExW(key, name, 0, type, static_cast<const BYTE *>(data), size));
}

LSTATUS setString(HKEY key, const wchar_t *name, const QString &text)
{
    return setValue(key, name, REG_SZ, text.utf16(), DWORD((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS setNumber(HKEY key, const wchar_t *name, DWORD number)
{
    return setValue(key, name, REG_DWORD, &number, sizeof(number));
}

} // namespace

QString UninstallRegistration::keyPath()
{
    return DesktopUser::uninstallKey();
}

bool UninstallRegistration::read(QList<Value> *values, bool *keyExists)
{
    return UserRegistry::readValues(entrySubkey(), values, keyExists) == ERROR_SUCCESS;
}

bool UninstallRegistration::capture(QString *error)
{
    QList<Value> values;
    bool existed = false;
    if (!read(&values, &existed))
        return report(error, QStringLiteral("Unable to read the uninstall registration: %1").arg(keyPath()));
    m_values = values;
    m_keyExisted = existed;
    m_captured = true;
    m_written = false;
    return true;
}

bool UninstallRegistration::write(const QString &version, const QString &installDir, QString *error)
{
    const std::wstring path = userEntry();
    if (!m_captured || path.empty())
        return report(error, QStringLiteral("The uninstall registration was not captured."));
    HKEY raw = nullptr;
    DWORD disposition = 0;
    LSTATUS status = RegCreateKeyExW(HKEY_USERS, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &raw, &disposition);
    if (status != ERROR_SUCCESS)
        return report(error, QStringLiteral("Windows=%1").arg(status));
    const UniqueRegistryKey key(raw);
    m_written = true;
    if (disposition == REG_CREATED_NEW_KEY)
        ChangeSteps::passed("create uninstall key");
    const QString root = QDir::toNativeSeparators(InstallationLocation::normalized(installDir));
    const auto text = [&](const wchar_t *name, const QString &value) {
        if (status == ERROR_SUCCESS)
            status = setString(key.get(), name, value);
    };
    const auto removed = [&](const wchar_t *name) {
        if (status == ERROR_SUCCESS) {
            status = RegDeleteValueW(key.get(), name);
            status = status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : changed(status);
        }
    };
    text(L"DisplayName", QStringLiteral("Brisa-Linker"));
    text(L"DisplayVersion", version);
    text(L"Publisher", QStringLiteral("ORLANDA FIELDWORKS INC"));
    text(L"InstallLocation", root);
    text(L"DisplayIcon", root + QStringLiteral("\\brisalinker.exe"));
    text(L"UninstallString", QLatin1Char('"') + root + QStringLiteral("\\uninstall.exe\""));
    removed(L"QuietUninstallString");
    if (status == ERROR_SUCCESS)
        status = setNumber(key.get(), L"NoModify", 1);
    if (status == ERROR_SUCCESS)
        status = setNumber(key.get(), L"NoRepair", 1);
    removed(L"WindowsInstaller");
    text(L"InstallDate", QDate::currentDate().toString(QStringLiteral("yyyyMMdd")));
    if (status == ERROR_SUCCESS)
        status = RegFlushKey(key.get());
    return status == ERROR_SUCCESS || report(error, QStringLiteral("Windows=%1").arg(status));
}

bool UninstallRegistration::restore(QString *error)
{
    if (!m_written)
        return true;
    const long status = m_keyExisted ? UserRegistry::replaceValues(entrySubkey(), m_values) : UserRegistry::removeKey(entrySubkey());
    if (status != ERROR_SUCCESS)
        return report(error, QStringLiteral("Windows=%1").arg(status));
    m_written = false;
    return true;
}

long UninstallRegistration::retireMachineEntry(const QString &root, const QString &otherRoot)
{
    HKEY raw = nullptr;
    const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, entryPath, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &raw);
    if (opened == ERROR_FILE_NOT_FOUND)
        return ERROR_SUCCESS;
    if (opened != ERROR_SUCCESS)
        return opened;
    const UniqueRegistryKey key(raw);
    wchar_t location[32768] = {};
    DWORD size = sizeof(location) - sizeof(wchar_t);
    DWORD type = 0;
    const LSTATUS read = RegQueryValueExW(key.get(), L"InstallLocation", nullptr, &type, reinterpret_cast<BYTE *>(location), &size);
    if (read != ERROR_SUCCESS && read != ERROR_FILE_NOT_FOUND)
        return read;
    const QString entry = read == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ) ? QString::fromWCharArray(location) : QString();
    if (!InstallationLocation::mayRetireMachineEntry(entry, otherRoot, root))
        return ERROR_SUCCESS;
    HKEY software = nullptr;
    const LSTATUS parent = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall", 0,
                                         KEY_ALL_ACCESS | KEY_WOW64_64KEY, &software);
    if (parent != ERROR_SUCCESS)
        return parent;
    const UniqueRegistryKey uninstall(software);
    const LSTATUS deleted = RegDeleteTreeW(uninstall.get(), L"BrisaLinker");
    if (deleted != ERROR_SUCCESS && deleted != ERROR_FILE_NOT_FOUND)
        return deleted;
    const LSTATUS removed = RegDeleteKeyExW(uninstall.get(), L"BrisaLinker", KEY_WOW64_64KEY, 0);
    if (removed == ERROR_SUCCESS)
        ChangeSteps::passed("retire machine entry");
    return removed == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : removed;
}
