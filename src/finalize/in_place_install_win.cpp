#include "finalize/in_place_install.h"

#include "system/change_steps.h"
#include "system/handles_win.h"

#include <QDir>

#include <windows.h>

namespace InPlaceInstall {

namespace {

// A reparse point here could redirect every backup move somewhere else.
bool plainDirectoryAttributes(const QString &directory, DWORD *attributes)
{
    const DWORD read = GetFileAttributesW(wideChars(QDir::toNativeSeparators(directory)));
    if (read == INVALID_FILE_ATTRIBUTES)
        return false;
    if ((read & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != FILE_ATTRIBUTE_DIRECTORY)
        return false;
    *attributes = read;
    return true;
}

} // namespace

bool setDirectoryHidden(const QString &directory, bool hidden)
{
    DWORD attributes = 0;
    if (!plainDirectoryAttributes(directory, &attributes))
        return false;
    const DWORD wanted = hidden ? (attributes | FILE_ATTRIBUTE_HIDDEN) : (attributes & ~DWORD(FILE_ATTRIBUTE_HIDDEN));
    if (wanted == attributes)
        return true;
    if (!SetFileAttributesW(wideChars(QDir::toNativeSeparators(directory)), wanted))
        return false;
    ChangeSteps::passed("set attributes");
    return true;
}

bool prepareBackupDirectory(const QString &backupDir)
{
    return setDirectoryHidden(backupDir, true);
}

} // namespace InPlaceInstall
