#include "system/user_registry.h"

#include "system/change_steps.h"
#include "system/desktop_user.h"
#include "system/handles_win.h"

namespace UserRegistry {

namespace {

// Every value or key written or deleted is a change a crash may follow.
LSTATUS changed(LSTATUS status, const char *step)
{
    if (status == ERROR_SUCCESS)
        ChangeSteps::passed(step);
    return status;
}

// Relative to HKEY_USERS; empty without a desktop user, so no other user's key is ever touched.
QString userPath(const QString &subkey)
{
    const QString sid = DesktopUser::sid();
    return sid.isEmpty() ? QString() : sid + QLatin1Char('\\') + subkey;
}

LSTATUS readAll(HKEY key, QList<Value> *values)
{
    DWORD count = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
    LSTATUS status = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, &longestName,
                                      &longestData, nullptr, nullptr);
    if (status != ERROR_SUCCESS)
        return status;
    QList<Value> result;
    for (DWORD index = 0; index < count; ++index) {
        std::wstring name(longestName + 1, L'\0');
        QByteArray data(qsizetype(longestData), Qt::Uninitialized);
        DWORD nameSize = DWORD(name.size());
        DWORD dataSize = DWORD(data.size());
        DWORD type = 0;
        status = RegEnumValueW(key, index, name.data(), &nameSize, nullptr, &type, reinterpret_cast<BYTE *>(data.data()), &dataSize);
        if (status != ERROR_SUCCESS)
            return status; // changed while read: the caller fails rather than capture half
        data.resize(qsizetype(dataSize));
        result.append({ QString::fromWCharArray(name.c_str(), int(nameSize)), type, data });
    }
    *values = result;
    return ERROR_SUCCESS;
}

} // namespace

long readValues(const QString &subkey, QList<Value> *values, bool *keyExists)
{
    const QString path = userPath(subkey);
    if (path.isEmpty())
        return ERROR_NO_SUCH_USER;
    HKEY raw = nullptr;
    const LSTATUS opened = RegOpenKeyExW(HKEY_USERS, wideChars(path), 0, KEY_QUERY_VALUE, &raw);
    if (keyExists)
        *keyExists = opened == ERROR_SUCCESS;
    if (opened == ERROR_FILE_NOT_FOUND) {
        values->clear();
        return ERROR_SUCCESS;
    }
    if (opened != ERROR_SUCCESS)
        return opened;
    const UniqueRegistryKey key(raw);
    return readAll(key.get(), values);
}

long replaceValues(const QString &subkey, const QList<Value> &values)
{
    const QString path = userPath(subkey);
    if (path.isEmpty())
        return ERROR_NO_SUCH_USER;
    HKEY raw = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_USERS, wideChars(path), 0, nullptr, 0, KEY_SET_VALUE | KEY_QUERY_VALUE, nullptr, &raw, nullptr);
    if (status != ERROR_SUCCESS)
        return status;
    const UniqueRegistryKey key(raw);
    // Cleared first, then written in the given order, so the key reads as it did. A key that
    // already reads so is left alone: a second restore after a first one must not open a window
    // in which a crash would leave the entry half written.
    QList<Value> current;
    status = readAll(key.get(), &current);
    if (status == ERROR_SUCCESS && current == values)
        return ERROR_SUCCESS;
    for (const Value &value : std::as_const(current)) {
        if (status == ERROR_SUCCESS)
            status = changed(RegDeleteValueW(key.get(), wideChars(value.name)), "delete registry value");
    }
    for (const Value &value : values) {
        if (status == ERROR_SUCCESS)
            status = changed(RegSetValueExW(key.get(), wideChars(value.name), 0, value.type,
                                            reinterpret_cast<const BYTE *>(value.data.constData()), DWORD(value.data.size())),
                             "write registry value");
    }
    if (status == ERROR_SUCCESS)
        status = RegFlushKey(key.get());
    return status;
}

long removeKey(const QString &subkey)
{
    const QString path = userPath(subkey);
    if (path.isEmpty())
        return ERROR_NO_SUCH_USER;
    LSTATUS status = RegDeleteTreeW(HKEY_USERS, wideChars(path));
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND)
        status = changed(RegDeleteKeyExW(HKEY_USERS, wideChars(path), 0, 0), "delete registry key");
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

QString text(const QList<Value> &values, const QString &name)
{
    for (const Value &value : values) {
        if (value.name.compare(name, Qt::CaseInsensitive) != 0 || (value.type != REG_SZ && value.type != REG_EXPAND_SZ))
            continue;
        QString result = QString::fromUtf16(reinterpret_cast<const char16_t *>(value.data.constData()), value.data.size() / 2);
        const qsizetype end = result.indexOf(QChar(0));
        return end < 0 ? result : result.left(end);
    }
    return {};
}

} // namespace UserRegistry
