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

// Relative, no empty, "." or ".." part, no leading "/" and no ":" anywhere.
bool safeUninstallRelativePath(const QString &path);

} // namespace UninstallData
