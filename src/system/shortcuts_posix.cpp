#include "system/shortcuts.h"
#include "system/shortcuts_platform.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>

// The host has no shell links and no known folders: nothing resolves, nothing is created, and
// files are handled as plain files so the portable logic around them stays testable.
namespace Shortcuts {

bool createShortcut(Folder, const QString &, const QString &, const QString &, const QString &)
{
    return false;
}

QString shortcutFilePath(Folder, const QString &)
{
    return {};
}

bool captureShortcutFile(const QString &path, ShortcutSnapshot *snapshot)
{
    *snapshot = ShortcutSnapshot { path, false, {} };
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return true;
    if (info.isSymLink() || !info.isFile() || info.size() > 4194304)
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray content = file.readAll();
    if (content.size() != info.size())
        return false;
    snapshot->existed = true;
    snapshot->content = content;
    return true;
}

QString shortcutTarget(const QString &)
{
    return {};
}

bool removeShortcutFile(const QString &path)
{
    return QFile::remove(path) || !QFileInfo(path).exists();
}

} // namespace Shortcuts

namespace ShortcutsPlatform {

unsigned long moveOver(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0 ? 0 : errno;
}

} // namespace ShortcutsPlatform
