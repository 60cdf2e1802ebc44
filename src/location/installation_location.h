#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>

// Where the product is or may be installed. Pure policy over paths, files and registry values;
// no state. Paths are compared and stored normalized ("/" separators, cleaned) and handed to the
// registry with native separators.
namespace InstallationLocation {

QString normalized(const QString &path);
bool same(const QString &a, const QString &b);
// The normalized parent: "C:/x" -> "C:/" (a bare "C:" would mean the drive's current
// directory), "//server/share/x" -> "//server/share"; a drive root is its own parent; empty for
// a path without a separator.
QString parentOf(const QString &path);
// The directory named by "WINDIR", normalized, or empty.
QString windowsDirectory();
// The Windows directory itself or anything below it.
bool insideWindowsDirectory(const QString &path);
bool isAbsoluteNonRootDirectory(const QString &path);
bool isApplicationDirectory(const QString &path);
bool existingApplicationDirectory(const QString &path);
bool hasNoDirectoryLinks(const QString &path);
QString applicationTarget(const QString &chosenDirectory);
QStringList registrationKeys();
QString registeredLocation(const QStringList &keys, QSettings::Format format);
bool rememberSuccessfulLocation(const QString &location, const QString &key, QSettings::Format format);
bool mayRetireMachineEntry(const QString &machineEntryLocation, const QString &otherLocation, const QString &root);
QString legacySourceLocation(const QString &updaterExecutable);
bool automaticUpdateDirectory(const QString &path);

} // namespace InstallationLocation
