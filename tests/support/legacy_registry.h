#pragma once

#include "location/legacy_update_location.h"
#include "system/desktop_user.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

// The registry keys where installations are recorded, written as each program writes them. On
// Windows these are the real keys discovery reads; on the host, INI files stand in for them.
struct LegacyRegistry
{
    QList<LegacyUpdateLocation::Registration> entries;
    QList<LegacyUpdateLocation::Registration> discovered; // what discovery is given
    QTemporaryDir hostFiles;

    LegacyRegistry()
    {
#ifdef Q_OS_WIN
        const QString sid = DesktopUser::sid();
        const QString user = QStringLiteral("HKEY_USERS\\") + sid;
        const QString uninstall = QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\");
        const QString machine = QStringLiteral("HKEY_LOCAL_MACHINE");
        const QString installer = QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer");
        const auto at = [](const QString &path, QSettings::Format format) { return LegacyUpdateLocation::Registration { path, format }; };
        // Written as each program writes them: the earlier 32-bit installer in the 32-bit view.
        entries = { at(machine + QStringLiteral("\\Software\\BrisaLinker"), QSettings::Registry32Format),
                    at(machine + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry32Format),
                    at(machine + uninstall + QStringLiteral("BrisaLinker"), QSettings::Registry64Format),
                    at(installer, QSettings::Registry64Format),
                    at(user + QStringLiteral("\\Software\\BrisaLinker"), QSettings::Registry64Format),
                    at(user + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry64Format),
                    at(user + uninstall + QStringLiteral("BrisaLinker"), QSettings::Registry64Format),
                    at(installer, QSettings::Registry64Format),
                    // The earlier installer in 64-bit install mode.
                    at(machine + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry64Format) };
        if (sid.isEmpty())
            entries.clear();
        discovered = LegacyUpdateLocation::registrations();
#else
        for (int i = 0; i < 9; ++i)
            entries << LegacyUpdateLocation::Registration { hostFiles.filePath(QStringLiteral("key%1.ini").arg(i)), QSettings::IniFormat };
        discovered = entries;
#endif
        clear();
    }
    ~LegacyRegistry() { clear(); }
    void clear()
    {
        for (const auto &slot : std::as_const(entries)) {
            QSettings settings(slot.path, slot.format);
            settings.remove(QString());
            settings.sync();
        }
    }
    void set(int slot, const QString &name, const QString &value)
    {
        QSettings settings(entries.at(slot).path, entries.at(slot).format);
        settings.setValue(name, value);
        settings.sync();
        QCOMPARE(settings.status(), QSettings::NoError);
    }
};
