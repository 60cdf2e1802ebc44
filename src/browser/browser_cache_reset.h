#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

// After an update of the product's browser extension the companion browser would keep running
// the old extension workers from its caches. Once per product version those caches are renamed
// aside for the desktop user under a journal; a busy browser or any doubt gives "skipped" rather
// than a half-done reset, and nothing here ever fails an installation.
namespace BrowserCacheReset {

struct Result
{
    QString version;
    bool success = false;
    bool skipped = false; // nothing was changed, on purpose
    QString detail;
    // Backup directories that no journal needs any more and that may be removed.
    QStringList backups;
};

// The browser is not using the user data directory.
using IdleTest = std::function<bool(const QString &userDataDirectory)>;
// Renames a directory; never replaces anything at the destination.
using RenameOperation = std::function<bool(const QString &from, const QString &to)>;

// An ancestor directory held open so that it cannot be renamed, removed or replaced by a link
// while the reset runs; closed by its deleter.
using DirectoryLock = std::unique_ptr<void, void (*)(void *)>;
using DirectoryLocks = std::vector<DirectoryLock>;

// The entry point: checks the installed extension, impersonates the desktop user, resets the
// caches of their companion browser and removes the backups on a detached thread.
Result forDesktopUser(const QString &installationRoot, const QString &version);

Result reset(const QString &userDataDirectory, const QString &version, const IdleTest &idle,
             const RenameOperation &rename);

// The profile names of "Local State" that are safe and have preferences on disk.
QStringList profiles(const QString &userDataDirectory);

// False when a companion browser runs on this directory, or when a candidate's command line
// cannot be read (its identity is unknown).
bool browserIdle(const QString &userDataDirectory);

// The installation holds a complete companion browser extension.
bool pluginReady(const QString &installationRoot, const QString &version);

bool renameDirectory(const QString &from, const QString &to);

// Removes one of our backup directories (recognised by its name) without following links; files
// that cannot be deleted stay for a later run.
bool removeBackupTree(const QString &path);

// Opens the path and every ancestor up to the volume root, refusing links. On failure the
// locks taken so far stay in the list.
bool lockAncestors(const QString &path, DirectoryLocks *locks);

bool safeName(const QString &name);
bool safePath(const QString &path);

} // namespace BrowserCacheReset
