#pragma once

#include "system/user_registry.h"

#include <QList>
#include <QString>

// The desktop user's entry in the list of installed programs (the user's own "Uninstall\BrisaLinker"
// key under "Software\Microsoft\Windows\CurrentVersion"). Every former value is read with its
// type before anything changes, so a failed installation puts back exactly what an earlier
// installer had written, or removes the key when there was none.
class UninstallRegistration
{
public:
    using Value = UserRegistry::Value;

    // Reads the entry as it is now; false when the key cannot be opened or read (no desktop user,
    // access denied), in which case nothing may be written.
    bool capture(QString *error = nullptr);
    // Writes the entry for this installation and flushes it; "QuietUninstallString" and
    // "WindowsInstaller" of an earlier installer are deleted.
    bool write(const QString &version, const QString &installDir, QString *error = nullptr);
    // Puts the captured entry back. Nothing to do when write() was never called.
    bool restore(QString *error = nullptr);

    // "HKEY_USERS\<SID>\...\Uninstall\BrisaLinker", as logged.
    static QString keyPath();

    // The values of the entry now, in the registry's order; false when it cannot be read. A
    // missing key reads as no values.
    static bool read(QList<Value> *values, bool *keyExists = nullptr);

    // Deletes the machine-wide entry of an earlier installer when it names the installation being
    // replaced (root or otherRoot). Returns 0 or the system's error code; a missing entry is 0.
    static long retireMachineEntry(const QString &root, const QString &otherRoot);

private:
    QList<Value> m_values;
    bool m_captured = false;
    bool m_keyExisted = false;
    bool m_written = false;
};
