#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Keys of the desktop user's own hive ("HKEY_USERS\<SID>\<subkey>"), read and written value by
// value with their registry types, so that whatever an installer captured can be put back exactly.
// Results are 0 or a Windows error code. Without a desktop user nothing is read or written.
namespace UserRegistry {

struct Value
{
    QString name;
    quint32 type = 0;
    QByteArray data;

    bool operator==(const Value &other) const = default;
};

// Every value of the key, in the registry's order. A missing key reads as no values (0), with
// keyExists false.
long readValues(const QString &subkey, QList<Value> *values, bool *keyExists = nullptr);
// Creates the key when missing, deletes every value it holds and writes these instead, then
// flushes it; a key that already holds exactly these, in this order, is not touched.
long replaceValues(const QString &subkey, const QList<Value> &values);
// Deletes the key with all its subkeys; a missing key is 0.
long removeKey(const QString &subkey);

// The text of a string value (REG_SZ or REG_EXPAND_SZ), or empty.
QString text(const QList<Value> &values, const QString &name);

} // namespace UserRegistry
