#include "journal/overlay_transaction_platform.h"

#include "system/change_steps.h"
#include "system/com_win.h"
#include "system/desktop_user.h"
#include "system/handles_win.h"
#include "system/shortcuts.h"
#include "system/url_protocol.h"
#include "system/user_registry.h"

#include <QDir>

#include <algorithm>
#include <cstring>

#include <io.h>
#include <windows.h>
#include <knownfolders.h>
#include <shlobj.h>

namespace OverlayTransactionPlatform {

namespace {

QString knownFolder(REFKNOWNFOLDERID folder)
{
    wchar_t *raw = nullptr;
    const HRESULT result = SHGetKnownFolderPath(folder, KF_FLAG_DONT_VERIFY, static_cast<HANDLE>(DesktopUser::token()), &raw);
    const UniqueCoTaskString owned(raw);
    if (FAILED(result) || !raw)
        return {};
    return QDir::fromNativeSeparators(QString::fromWCharArray(raw));
}

QString identity(const QString &path)
{
    return QDir::toNativeSeparators(QDir::cleanPath(QDir::fromNativeSeparators(path))).toLower();
}

std::wstring wide(const QString &text)
{
    return text.toStdWString();
}

QString uninstallSubkey()
{
    return QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
}

std::wstring uninstallEntry()
{
    const QString sid = DesktopUser::sid();
    return sid.isEmpty() ? std::wstring() : wide(sid + QLatin1Char('\\') + uninstallSubkey());
}

// A value as the record keeps it: its registry type (four bytes, little-endian), then its bytes,
// so an expandable string or a binary value comes back as exactly that.
QVariant typed(DWORD type, const QByteArray &data)
{
    QByteArray bytes(reinterpret_cast<const char *>(&type), sizeof(type));
    return bytes + data;
}

void untyped(const QVariant &value, DWORD *type, QByteArray *data)
{
    if (value.typeId() == QMetaType::QByteArray && value.toByteArray().size() >= qsizetype(sizeof(DWORD))) {
        const QByteArray bytes = value.toByteArray();
        std::memcpy(type, bytes.constData(), sizeof(DWORD));
        *data = bytes.mid(sizeof(DWORD));
    } else if (value.typeId() == QMetaType::Int) {
        // Records written before types were kept hold numbers and texts.
        const DWORD number = DWORD(value.toInt());
        *type = REG_DWORD;
        *data = QByteArray(reinterpret_cast<const char *>(&number), sizeof(number));
    } else {
        const QString text = value.toString();
        *type = REG_SZ;
        *data = QByteArray(reinterpret_cast<const char *>(text.utf16()), (text.size() + 1) * qsizetype(sizeof(wchar_t)));
    }
}

// "a\b\c" -> "a\b"; empty for a key directly under the classes root.
QString parentKey(const QString &subkey)
{
    const qsizetype slash = subkey.lastIndexOf(QLatin1Char('\\'));
    return slash < 0 ? QString() : subkey.left(slash);
}

enum class KeyContent { Missing, Empty, Filled };

// Filled also when the key cannot be read: only what is known to be empty may go.
KeyContent keyContent(HKEY root, const QString &subkey)
{
    HKEY raw = nullptr;
    const LSTATUS opened = RegOpenKeyExW(root, wideChars(subkey), 0, KEY_QUERY_VALUE, &raw);
    if (opened == ERROR_FILE_NOT_FOUND)
        return KeyContent::Missing;
    if (opened != ERROR_SUCCESS)
        return KeyContent::Filled;
    const UniqueRegistryKey key(raw);
    DWORD subkeys = 0;
    DWORD values = 0;
    const bool empty = RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                                        nullptr, nullptr, nullptr) == ERROR_SUCCESS
        && subkeys == 0 && values == 0;
    return empty ? KeyContent::Empty : KeyContent::Filled;
}

} // namespace

bool moveEntry(const QString &from, const QString &to)
{
    // No MOVEFILE_REPLACE_EXISTING and no MOVEFILE_COPY_ALLOWED: a rename on one volume that
    // fails rather than overwrite anything.
    return MoveFileExW(wideChars(QDir::toNativeSeparators(from)), wideChars(QDir::toNativeSeparators(to)),
                       MOVEFILE_WRITE_THROUGH) != 0;
}

bool hideFile(const QString &path)
{
    const std::wstring native = QDir::toNativeSeparators(path).toStdWString();
    const DWORD attributes = GetFileAttributesW(native.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return false;
    return (attributes & FILE_ATTRIBUTE_HIDDEN) || SetFileAttributesW(native.c_str(), attributes | FILE_ATTRIBUTE_HIDDEN);
}

bool flushToDisk(QFileDevice *file)
{
    const int descriptor = file->handle();
    if (descriptor < 0)
        return false;
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    return handle != INVALID_HANDLE_VALUE && FlushFileBuffers(handle) != 0;
}

bool readUninstallValues(QVariantMap *values, QString *installLocation)
{
    QList<UserRegistry::Value> entry;
    if (UserRegistry::readValues(uninstallSubkey(), &entry) != ERROR_SUCCESS)
        return false;
    QVariantMap result;
    for (const UserRegistry::Value &value : std::as_const(entry))
        result.insert(value.name, typed(value.type, value.data));
    *values = result;
    if (installLocation)
        *installLocation = UserRegistry::text(entry, QStringLiteral("InstallLocation"));
    return true;
}

bool writeUninstallValues(const QVariantMap &values)
{
    const std::wstring path = uninstallEntry();
    if (path.empty())
        return false;
    if (values.isEmpty()) {
        // The entry did not exist: the key goes too, unless something else lives under it.
        const LSTATUS deleted = RegDeleteKeyExW(HKEY_USERS, path.c_str(), 0, 0);
        if (deleted == ERROR_SUCCESS)
            ChangeSteps::passed("delete uninstall key");
        if (deleted == ERROR_SUCCESS || deleted == ERROR_FILE_NOT_FOUND)
            return true;
    }
    QList<UserRegistry::Value> entry;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        UserRegistry::Value value { it.key(), 0, {} };
        DWORD type = REG_SZ;
        untyped(it.value(), &type, &value.data);
        value.type = type;
        entry.append(value);
    }
    return UserRegistry::replaceValues(uninstallSubkey(), entry) == ERROR_SUCCESS;
}

QStringList shortcutPaths()
{
    QStringList paths;
    const QString desktop = knownFolder(FOLDERID_Desktop);
    const QString programs = knownFolder(FOLDERID_Programs);
    if (!desktop.isEmpty())
        paths.append(desktop + QStringLiteral("/Brisa-Linker.lnk"));
    if (!programs.isEmpty()) {
        paths.append(programs + QStringLiteral("/Brisa-Linker.lnk"));
        paths.append(programs + QStringLiteral("/Uninstall Brisa-Linker.lnk"));
    }
    QStringList unique;
    for (const QString &path : std::as_const(paths)) {
        if (!unique.contains(path, Qt::CaseInsensitive))
            unique.append(path);
    }
    return unique;
}

bool shortcutOwned(const QString &shortcut, const QString &root)
{
    const QString target = Shortcuts::shortcutTarget(shortcut);
    if (target.isEmpty())
        return false;
    const QString targetIdentity = identity(target);
    return targetIdentity == identity(root + QStringLiteral("/brisalinker.exe"))
        || targetIdentity == identity(root + QStringLiteral("/uninstall.exe"));
}

RegistryResult readProtocolValues(const QList<QPair<QString, QString>> &names, QList<RegistryValue> *values)
{
    UrlProtocol::Key classes;
    if (UrlProtocol::openUserClasses(classes, wide(DesktopUser::sid())) != ERROR_SUCCESS)
        return RegistryResult::RootUnavailable;
    QList<RegistryValue> result;
    for (const auto &[subkey, name] : names) {
        RegistryValue value;
        HKEY raw = nullptr;
        const LSTATUS opened = RegOpenKeyExW(static_cast<HKEY>(classes.handle()), wideChars(subkey), 0, KEY_QUERY_VALUE, &raw);
        if (opened == ERROR_FILE_NOT_FOUND) {
            value.keyPresent = false;
            result.append(value);
            continue;
        }
        if (opened != ERROR_SUCCESS)
            return RegistryResult::ValueFailed;
        const UniqueRegistryKey key(raw);
        UrlProtocol::Value read;
        bool found = false;
        if (UrlProtocol::readValue(key.get(), wide(name), read, found) != ERROR_SUCCESS)
            return RegistryResult::ValueFailed;
        if (found) {
            value.present = true;
            value.type = read.type;
            value.data = QByteArray(reinterpret_cast<const char *>(read.data.data()), static_cast<qsizetype>(read.data.size()));
        }
        result.append(value);
    }
    *values = result;
    return RegistryResult::Done;
}

RegistryResult writeProtocolValues(const QList<QPair<QString, QString>> &names, const QList<RegistryValue> &values)
{
    UrlProtocol::Key classes;
    if (UrlProtocol::openUserClasses(classes, wide(DesktopUser::sid())) != ERROR_SUCCESS)
        return RegistryResult::RootUnavailable;
    bool allDone = true;
    for (qsizetype i = 0; i < names.size() && i < values.size(); ++i) {
        const auto &[subkey, name] = names.at(i);
        const RegistryValue &value = values.at(i);
        HKEY raw = nullptr;
        if (!value.present) {
            const LSTATUS opened = RegOpenKeyExW(static_cast<HKEY>(classes.handle()), wideChars(subkey), 0, KEY_SET_VALUE, &raw);
            if (opened == ERROR_FILE_NOT_FOUND)
                continue;
            const UniqueRegistryKey key(raw);
            const LSTATUS deleted = opened == ERROR_SUCCESS ? RegDeleteValueW(key.get(), wideChars(name)) : opened;
            if (deleted == ERROR_SUCCESS)
                ChangeSteps::passed("restore URL value");
            allDone = allDone && (deleted == ERROR_SUCCESS || deleted == ERROR_FILE_NOT_FOUND);
            continue;
        }
        const LSTATUS created = RegCreateKeyExW(static_cast<HKEY>(classes.handle()), wideChars(subkey), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &raw, nullptr);
        const UniqueRegistryKey key(created == ERROR_SUCCESS ? raw : nullptr);
        const LSTATUS written = created == ERROR_SUCCESS
            ? RegSetValueExW(key.get(), wideChars(name), 0, value.type, reinterpret_cast<const BYTE *>(value.data.constData()), static_cast<DWORD>(value.data.size()))
            : created;
        if (written == ERROR_SUCCESS)
            ChangeSteps::passed("restore URL value");
        allDone = allDone && written == ERROR_SUCCESS;
    }
    // A scheme that did not exist goes completely, its "shell\open" between the recorded keys
    // included; a key that existed, or holds anything now, stays.
    QStringList existed;
    QStringList absent;
    for (qsizetype i = 0; i < names.size() && i < values.size(); ++i)
        (values.at(i).keyPresent ? existed : absent).append(names.at(i).first);
    std::sort(absent.begin(), absent.end(), [](const QString &a, const QString &b) { return a.size() > b.size(); });
    const HKEY root = static_cast<HKEY>(classes.handle());
    for (QString subkey : std::as_const(absent)) {
        for (; !subkey.isEmpty() && !existed.contains(subkey, Qt::CaseInsensitive); subkey = parentKey(subkey)) {
            // A key the run was cut off before making still leaves its parents to check.
            const KeyContent content = keyContent(root, subkey);
            if (content == KeyContent::Missing)
                continue;
            if (content == KeyContent::Filled)
                break;
            if (RegDeleteKeyW(root, wideChars(subkey)) != ERROR_SUCCESS) {
                allDone = false;
                break;
            }
            ChangeSteps::passed("delete URL key");
        }
    }
    return allDone ? RegistryResult::Done : RegistryResult::ValueFailed;
}

RegistryResult currentProtocolCommand(QString *command, bool *present)
{
    UrlProtocol::Key classes;
    if (UrlProtocol::openUserClasses(classes, wide(DesktopUser::sid())) != ERROR_SUCCESS)
        return RegistryResult::RootUnavailable;
    HKEY raw = nullptr;
    const LSTATUS opened = RegOpenKeyExW(static_cast<HKEY>(classes.handle()), L"brisalinker\\shell\\open\\command", 0, KEY_QUERY_VALUE, &raw);
    if (opened == ERROR_FILE_NOT_FOUND) {
        command->clear();
        *present = false;
        return RegistryResult::Done;
    }
    if (opened != ERROR_SUCCESS)
        return RegistryResult::ValueFailed;
    const UniqueRegistryKey key(raw);
    UrlProtocol::Value value;
    bool found = false;
    std::wstring text;
    if (UrlProtocol::readValue(key.get(), std::wstring(), value, found) != ERROR_SUCCESS)
        return RegistryResult::ValueFailed;
    *present = found;
    // A non-string command is somebody else's registration as much as a different text is.
    *command = found && UrlProtocol::stringValue(value, text) ? QString::fromStdWString(text) : QStringLiteral("<non-string>");
    if (!found)
        command->clear();
    return RegistryResult::Done;
}

QString protocolCommandFor(const QString &executable)
{
    return QString::fromStdWString(UrlProtocol::launchCommand(UrlProtocol::normalizedPath(executable.toStdWString())));
}

} // namespace OverlayTransactionPlatform
