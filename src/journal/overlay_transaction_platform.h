#pragma once

#include <QFileDevice>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The operating-system half of OverlayTransaction: never-overwriting moves, flushing a file to
// the disk, and the per-user registry values and shortcut files that the record snapshots.
namespace OverlayTransactionPlatform {

// Renames a file or directory; fails when `to` exists or lies on another volume. Never copies.
bool moveEntry(const QString &from, const QString &to);

// Gives a file the hidden attribute (records are not the user's files); the host has none.
bool hideFile(const QString &path);

// Pushes the file's written data through the operating system's cache to the disk.
bool flushToDisk(QFileDevice *file);

// Every value of the desktop user's uninstall entry, each as opaque bytes that keep its registry
// type, and the text of its "InstallLocation". False when the key cannot be read.
bool readUninstallValues(QVariantMap *values, QString *installLocation = nullptr);
// Clears the entry's values and writes these instead, each with its former type; no values
// delete the key. False on any failed write or flush.
bool writeUninstallValues(const QVariantMap &values);

QStringList shortcutPaths();
bool shortcutOwned(const QString &shortcut, const QString &root);

struct RegistryValue
{
    bool present = false;
    quint32 type = 0;
    QByteArray data;
    bool keyPresent = true; // whether the value's key existed at all
};

enum class RegistryResult { Done, RootUnavailable, ValueFailed };

// The values named by (subkey, value name) pairs under the desktop user's classes root; a
// missing key or value is reported as not present.
RegistryResult readProtocolValues(const QList<QPair<QString, QString>> &names, QList<RegistryValue> *values);
// Puts each value back: absent ones deleted, present ones written with their type and bytes; a
// key that did not exist is deleted with the empty keys between it and the nearest one that did.
RegistryResult writeProtocolValues(const QList<QPair<QString, QString>> &names, const QList<RegistryValue> &values);
// The launch command that the user's "brisalinker" scheme currently opens.
RegistryResult currentProtocolCommand(QString *command, bool *present);
// The command this installation's launcher registers for the scheme.
QString protocolCommandFor(const QString &executable);

} // namespace OverlayTransactionPlatform
