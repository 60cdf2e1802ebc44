#include "system/shortcuts.h"
#include "system/shortcuts_platform.h"
#include "system/change_steps.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

namespace Shortcuts {

namespace {

const QString stagedPrefix = QStringLiteral(".brisalinker-shortcut-");

QString randomSuffix()
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString suffix;
    for (int i = 0; i < 6; ++i)
        suffix.append(QLatin1Char(alphabet[QRandomGenerator::global()->bounded(int(sizeof(alphabet) - 1))]));
    return suffix;
}

bool report(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

} // namespace

// Not QSaveFile: it treats a ".lnk" file as a link and would write through it into the
// shortcut's target. Not QTemporaryFile either: under Windows it holds its handle until
// destroyed, so it could not be moved. A new file beside the shortcut keeps the move on one volume.
bool replaceShortcutFile(const QString &path, const QByteArray &content, QString *error)
{
    QString stagedPath;
    QFile staged;
    for (int attempt = 0; attempt < 16 && !staged.isOpen(); ++attempt) {
        stagedPath = QFileInfo(path).path() + QLatin1Char('/') + stagedPrefix + randomSuffix();
        staged.setFileName(stagedPath);
        staged.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    }
    const bool written = staged.isOpen() && staged.write(content) == content.size() && staged.flush();
    const QString stagingError = staged.errorString();
    staged.close();
    if (written)
        ChangeSteps::passed("stage shortcut");
    if (!written) {
        if (staged.exists())
            QFile::remove(stagedPath);
        return report(error, QStringLiteral("Shortcut rollback staging failed: path=%1; error=%2").arg(path, stagingError));
    }
    const unsigned long moved = ShortcutsPlatform::moveOver(stagedPath, path);
    if (moved == 0) {
        ChangeSteps::passed("replace shortcut");
        return true;
    }
    QFile::remove(stagedPath);
    return report(error, QStringLiteral("Shortcut rollback replacement failed: path=%1; Windows=%2").arg(path).arg(moved));
}

bool removeStagedShortcuts(const QString &directory)
{
    bool removed = true;
    // A link of that name goes itself; nothing is removed through it.
    const QStringList names = QDir(directory).entryList({ stagedPrefix + QStringLiteral("??????") }, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        const bool gone = QFile::remove(directory + QLatin1Char('/') + name);
        if (gone)
            ChangeSteps::passed("remove staged shortcut");
        removed = removed && gone;
    }
    return removed;
}

bool restoreShortcutFile(const ShortcutSnapshot &snapshot, QString *error)
{
    // Rewriting a shortcut that is already back would leave its staged copy behind after a crash
    // at a time nothing records it any more.
    ShortcutSnapshot current;
    if (snapshot.existed && captureShortcutFile(snapshot.path, &current) && current.existed && current.content == snapshot.content)
        return true;
    if (snapshot.existed)
        return replaceShortcutFile(snapshot.path, snapshot.content, error);
    if (removeShortcutFile(snapshot.path))
        return true;
    return report(error, QStringLiteral("Shortcut rollback removal failed: path=%1").arg(snapshot.path));
}

} // namespace Shortcuts
