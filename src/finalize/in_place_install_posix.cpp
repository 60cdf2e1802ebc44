#include "finalize/in_place_install.h"

#include "system/file_links.h"

#include <QFileInfo>

// The host has no hidden attribute; a directory is acceptable when it is a real directory.
namespace InPlaceInstall {

bool setDirectoryHidden(const QString &directory, bool)
{
    return QFileInfo(directory).isDir() && !FileLinks::isLink(directory);
}

bool prepareBackupDirectory(const QString &backupDir)
{
    return setDirectoryHidden(backupDir, true);
}

} // namespace InPlaceInstall
