#pragma once

#include <QString>
#include <QStringList>

// Writes "uninstall.dat", the list the uninstaller works from: exactly what the installer put
// down, every path relative to the installation and safe, so a damaged or tampered list can never
// point the uninstaller outside the installation.
namespace UninstallData {

// Writes "uninstall.dat" into the staging directory (atomically). The installer's own files
// "uninstall.exe", "uninstall.dat" and "obs-path-conf.json" are always listed.
bool writeUninstallData(const QString &stagingDirectory, const QStringList &files, const QStringList &directories);

// The entries of the installation's current "uninstall.dat" that still exist as listed (a file as
// a file, a directory as a directory, no link on the way), so that the next list also covers
// what earlier versions put down. A missing list carries nothing and succeeds; a damaged or
// hostile one (wrong magic, a malformed line, an unsafe path) carries nothing, and the reason is
// logged and returned.
bool installedEntries(const QString &installDirectory, QStringList *files, QStringList *directories,
                      QString *error = nullptr);

} // namespace UninstallData
