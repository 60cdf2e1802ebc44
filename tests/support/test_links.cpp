#include "support/test_links.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace TestLinks {

#ifdef Q_OS_WIN
namespace {

bool reparsePoint(const QString &path)
{
    const DWORD attributes = GetFileAttributesW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()));
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

QByteArray unixName(const QString &path)
{
    using UnixName = char *(CDECL *)(const wchar_t *);
    const auto convert = reinterpret_cast<UnixName>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!convert)
        return {};
    char *name = convert(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()));
    const QByteArray result(name);
    HeapFree(GetProcessHeap(), 0, name);
    return result;
}

bool runLn(const QByteArray &target, const QByteArray &link)
{
    QString command = QStringLiteral("/bin/ln -s \"%1\" \"%2\"").arg(QString::fromUtf8(target), QString::fromUtf8(link));
    STARTUPINFOW startup {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process {};
    if (!CreateProcessW(L"Z:\\bin\\ln", reinterpret_cast<wchar_t *>(command.data()), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return false;
    WaitForSingleObject(process.hProcess, 30000);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
}

} // namespace
#endif

bool makeDirectoryLink(const QString &target, const QString &link)
{
    if (!QDir().mkpath(QFileInfo(link).path()))
        return false;
#ifdef Q_OS_WIN
    const auto wide = [](const QString &path) { return reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()); };
    if (CreateSymbolicLinkW(wide(link), wide(target), SYMBOLIC_LINK_FLAG_DIRECTORY | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE) && reparsePoint(link))
        return true;
    const QByteArray unixTarget = unixName(target);
    const QByteArray unixLink = unixName(link);
    if (unixTarget.isEmpty() || unixLink.isEmpty() || !runLn(unixTarget, unixLink))
        return false;
    // Wine cannot wait for a Unix child, so the link is awaited instead.
    for (int i = 0; i < 200 && !reparsePoint(link); ++i)
        Sleep(25);
    return reparsePoint(link);
#else
    return ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(link).constData()) == 0;
#endif
}

} // namespace TestLinks
