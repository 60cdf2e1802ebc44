#include "system/shortcuts.h"
#include "system/shortcuts_platform.h"

#include "system/change_steps.h"
#include "system/com_win.h"
#include "system/desktop_user.h"
#include "system/handles_win.h"

#include <QDir>

#include <knownfolders.h>
#include <shlobj.h>
#include <shobjidl.h>

namespace Shortcuts {

namespace {

constexpr LONGLONG largestShortcut = 4194304;

REFKNOWNFOLDERID folderId(Folder folder)
{
    return folder == Folder::Desktop ? FOLDERID_Desktop : FOLDERID_Programs;
}

// The user's folder, created when missing (a fresh profile may have no Programs folder yet).
QString userFolder(Folder folder)
{
    wchar_t *raw = nullptr;
    const HRESULT result = SHGetKnownFolderPath(folderId(folder), KF_FLAG_CREATE, static_cast<HANDLE>(DesktopUser::token()), &raw);
    const UniqueCoTaskString owned(raw);
    if (FAILED(result) || !raw)
        return {};
    return QDir::fromNativeSeparators(QString::fromWCharArray(raw));
}

std::wstring native(const QString &path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

bool isPlainFile(DWORD attributes)
{
    return !(attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

} // namespace

bool createShortcut(Folder folder, const QString &target, const QString &workingDirectory, const QString &iconPath,
                    const QString &fileName)
{
    const ComScope com;
    if (!com.usable())
        return false;
    IShellLinkW *rawLink = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&rawLink))))
        return false;
    const ComPointer<IShellLinkW> link(rawLink);
    if (FAILED(link->SetPath(native(target).c_str())) || FAILED(link->SetWorkingDirectory(native(workingDirectory).c_str()))
        || FAILED(link->SetDescription(L"Brisa-Linker")) || FAILED(link->SetIconLocation(native(iconPath).c_str(), 0)))
        return false;
    const QString directory = userFolder(folder);
    if (directory.isEmpty())
        return false;
    IPersistFile *rawFile = nullptr;
    if (FAILED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&rawFile))))
        return false;
    const ComPointer<IPersistFile> file(rawFile);
    if (FAILED(file->Save(native(directory + QLatin1Char('/') + fileName).c_str(), TRUE)))
        return false;
    ChangeSteps::passed("write shortcut");
    return true;
}

QString shortcutFilePath(Folder folder, const QString &fileName)
{
    const QString directory = userFolder(folder);
    return directory.isEmpty() ? QString() : directory + QLatin1Char('/') + fileName;
}

bool captureShortcutFile(const QString &path, ShortcutSnapshot *snapshot)
{
    *snapshot = ShortcutSnapshot { path, false, {} };
    const std::wstring name = native(path);
    const DWORD attributes = GetFileAttributesW(name.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    }
    if (!isPlainFile(attributes))
        return false;
    // Opened without following a reparse point, and looked at again through the handle: the name
    // may have been swapped for a link since the attributes were read.
    const UniqueHandle file(CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION info {};
    if (file.get() == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(file.get(), &info) || !isPlainFile(info.dwFileAttributes))
        return false;
    const LONGLONG size = (LONGLONG(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    if (size > largestShortcut)
        return false;
    QByteArray content(qsizetype(size), Qt::Uninitialized);
    DWORD read = 0;
    if (size > 0 && (!ReadFile(file.get(), content.data(), DWORD(size), &read, nullptr) || read != DWORD(size)))
        return false;
    snapshot->existed = true;
    snapshot->content = content;
    return true;
}

QString shortcutTarget(const QString &path)
{
    const ComScope com;
    if (!com.usable())
        return {};
    IShellLinkW *rawLink = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&rawLink))))
        return {};
    const ComPointer<IShellLinkW> link(rawLink);
    IPersistFile *rawFile = nullptr;
    if (FAILED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&rawFile))))
        return {};
    const ComPointer<IPersistFile> file(rawFile);
    if (FAILED(file->Load(native(path).c_str(), STGM_READ)))
        return {};
    wchar_t target[MAX_PATH + 1] = {};
    if (link->GetPath(target, MAX_PATH, nullptr, SLGP_RAWPATH) != S_OK)
        return {};
    return QString::fromWCharArray(target);
}

bool removeShortcutFile(const QString &path)
{
    if (DeleteFileW(native(path).c_str())) {
        ChangeSteps::passed("remove shortcut");
        return true;
    }
    const DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

} // namespace Shortcuts

namespace ShortcutsPlatform {

unsigned long moveOver(const QString &from, const QString &to)
{
    // Shell helpers (indexers, scanners, Wine's menu builder) read a fresh shortcut for a moment
    // after it is written; wait that out rather than fail the restore.
    for (int attempt = 0;; ++attempt) {
        if (MoveFileExW(wideChars(QDir::toNativeSeparators(from)), wideChars(QDir::toNativeSeparators(to)),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return 0;
        const DWORD error = GetLastError();
        if ((error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) || attempt == 20)
            return error;
        Sleep(100);
    }
}

} // namespace ShortcutsPlatform
