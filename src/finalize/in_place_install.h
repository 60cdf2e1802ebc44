#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>

// Moves a staged payload file by file over an existing installation, parking every replaced file
// in a hidden backup directory, and undoes exactly what was done. Nothing is copied: staging,
// installation and backup share one volume, so every step is a rename that either happened or
// did not.
namespace InPlaceInstall {

struct OverlayMove
{
    QString relativePath;
    bool backedUp = false;
    bool installed = false;
};

struct OverlayState
{
    QList<OverlayMove> moves;
    QStringList createdDirectories;
    bool createdInstallRoot = false;
    bool createdBackupRoot = false;
};

// True only when every staged file is now in place. On false the state describes exactly what
// is on the disk, so rollbackStagedFiles can undo it.
bool installStagedFilesInPlace(const QString &stagingDir, const QString &installDir, const QString &backupDir,
                               OverlayState *state, const std::atomic<bool> *cancelRequested);

// True when everything recorded was undone. The backup directory is kept whenever anything
// failed: it may hold the only copy of an old file.
bool rollbackStagedFiles(const QString &stagingDir, const QString &installDir, const QString &backupDir,
                         const OverlayState &state);

// Removes a tree with the link-refusing removal and logs every link it met and did not follow.
bool removeDirectoryTree(const QString &path);

// Removes "<name>.backup-<digits>" siblings left by earlier installations, and this installer's
// own ".backup-transaction-<id>" and ".installing-<pid>-<n>" siblings that no recovery record
// names; never the current backup.
void cleanupHistoricalBackupDirectories(const QString &installDir, const QString &currentBackupDir);

bool setDirectoryHidden(const QString &directory, bool hidden);

// The backup directory must be a plain directory (not a link or junction) and hidden.
bool prepareBackupDirectory(const QString &backupDir);

} // namespace InPlaceInstall
