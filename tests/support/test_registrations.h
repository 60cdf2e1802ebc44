#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

// The desktop user's registrations of the product as the user and Windows see them, for tests
// that must prove them unchanged or exactly put back. The host has none: all of it is empty there.
namespace TestRegistrations {

// Each shortcut's bytes ("lnk:<folder>/<name>") and target ("target:..."), every value of the
// uninstall entry and of the "brisalinker" scheme's keys with its type ("<key>|<name>" ->
// "<type>:<hex>"), and one "<key>|(key)" row for each key, values or not.
QMap<QString, QByteArray> snapshot();

// What an older installer of the installation at root left: an entry with values of several
// types and two it no longer wants (naming entryLocation when given), the desktop and uninstall
// shortcuts, the URL scheme and a machine-wide entry.
bool plantOlderInstaller(const QString &root, const QString &entryLocation = QString());

// Removes all of the above.
void forget();

} // namespace TestRegistrations
