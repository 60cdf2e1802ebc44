#pragma once

#include <QString>
#include <QStringList>

// The three directories the installer works in: the application root (the desktop user's
// per-user product directory, also the default installation), the installer's temporary root
// (download cache and work files) and the log root inside it.
namespace AppPaths {

// "<desktop user's LocalAppData>/BrisaLinker", or empty when unknown.
QString applicationRoot();

// The first usable "<candidate>/BrisaLinkerInstaller"; computed once per process. Empty when no
// candidate is usable.
QString installerTempRoot();

// "<temporary root>/log", or empty.
QString installerLogRoot();

// Whether the directory is safe (no link or junction on the way to the root) and writable,
// creating it if needed. Proven by writing, reading back and renaming a probe file.
bool usableDirectory(const QString &path);

// The temporary-root rule over explicit candidate bases, in order of preference.
QString firstUsableTempRoot(const QStringList &bases);

// The candidate bases of this platform, in order of preference (empty ones left out).
QStringList tempRootCandidates();

} // namespace AppPaths
