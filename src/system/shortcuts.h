#pragma once

#include <QByteArray>
#include <QString>

// Shell shortcuts in the desktop user's own known folders. The installer runs elevated, possibly
// as another account, so every folder is resolved with the desktop user's token. A shortcut that
// may change is captured whole first, so a failed installation can write back its exact bytes.
namespace Shortcuts {

// The known folders a shortcut of ours lives in (kept opaque so portable code needs no Win32 ids).
enum class Folder { Desktop, Programs };

struct ShortcutSnapshot
{
    QString path;
    bool existed = false;
    QByteArray content;
};

// A shell link to target, saved as fileName in the user's folder (created when missing). COM is
// initialised as a single-threaded apartment for the call; a thread already in another apartment
// keeps it.
bool createShortcut(Folder folder, const QString &target, const QString &workingDirectory, const QString &iconPath,
                    const QString &fileName);

// fileName joined to the user's folder (created when missing), or empty when the folder cannot be
// resolved.
QString shortcutFilePath(Folder folder, const QString &fileName);

// The shortcut's bytes, or that there was none. A directory, a link or a file over 4 MiB is
// refused: none of those is a shortcut we could have written.
bool captureShortcutFile(const QString &path, ShortcutSnapshot *snapshot);

// The path a shortcut file opens, as written into it, or empty when it cannot be read.
QString shortcutTarget(const QString &path);

// Deletes the file; a file or folder that is not there counts as removed.
bool removeShortcutFile(const QString &path);

// Writes content to a new ".brisalinker-shortcut-XXXXXX" file beside path and moves it over path,
// so a reader sees the old or the new shortcut, never a part. error names the failed stage with
// the path and the system's error.
bool replaceShortcutFile(const QString &path, const QByteArray &content, QString *error = nullptr);

// Removes the ".brisalinker-shortcut-XXXXXX" files a replacement cut off before its move left in
// directory; false when one stays.
bool removeStagedShortcuts(const QString &directory);

// Puts a captured shortcut back: its former bytes, or no file when there was none. A shortcut that
// already holds its former bytes is not rewritten.
bool restoreShortcutFile(const ShortcutSnapshot &snapshot, QString *error = nullptr);

} // namespace Shortcuts
