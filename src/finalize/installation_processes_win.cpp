#include "finalize/installation_processes.h"
#include "finalize/installation_processes_platform.h"
#include "app/installer_logger.h"
#include "system/handles_win.h"

#include <QDir>
#include <QFileInfo>

#include <tlhelp32.h>

#include <vector>

namespace InstallationProcessesPlatform {

namespace {

QString imagePath(HANDLE process)
{
    std::vector<wchar_t> buffer(32768);
    DWORD size = DWORD(buffer.size());
    if (!QueryFullProcessImageNameW(process, 0, buffer.data(), &size))
        return {};
    return QString::fromWCharArray(buffer.data(), int(size));
}

bool alive(HANDLE process)
{
    return WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

// Calls visit(pid) for every process whose executable name is the path's file name; false when
// the process list cannot be read.
template<typename Visit>
bool forEachNamed(const QString &path, Visit visit)
{
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (snapshot.get() == INVALID_HANDLE_VALUE || !snapshot)
        return false;
    const QString name = QFileInfo(path).fileName();
    PROCESSENTRY32W entry {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID != GetCurrentProcessId()
            && QString::fromWCharArray(entry.szExeFile).compare(name, Qt::CaseInsensitive) == 0) {
            visit(entry.th32ProcessID);
        }
    }
    return true;
}

} // namespace

QStringList runningImagesUnder(const QString &root)
{
    QStringList images;
    if (root.trimmed().isEmpty())
        return images;
    const QString prefix = InstallationProcesses::normalizedWindowsPath(root) + QLatin1Char('\\');
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (snapshot.get() == INVALID_HANDLE_VALUE || !snapshot)
        return images;
    PROCESSENTRY32W entry {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == GetCurrentProcessId())
            continue;
        const UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID));
        if (!process)
            continue;
        const QString image = imagePath(process.get());
        if (!image.isEmpty() && InstallationProcesses::normalizedWindowsPath(image).startsWith(prefix))
            images << QDir::fromNativeSeparators(image);
    }
    return images;
}

bool isProcessRunningAtPath(const QString &path)
{
    const QString wanted = InstallationProcesses::normalizedWindowsPath(path);
    bool running = false;
    forEachNamed(path, [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, pid));
        if (process && InstallationProcesses::normalizedWindowsPath(imagePath(process.get())) == wanted && alive(process.get()))
            running = true;
    });
    return running;
}

bool forceStopAttempt(const QString &path, int attempt, const QDeadlineTimer &deadline)
{
    const QString wanted = InstallationProcesses::normalizedWindowsPath(path);
    const bool listed = forEachNamed(path, [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, pid));
        if (!process || InstallationProcesses::normalizedWindowsPath(imagePath(process.get())) != wanted || !alive(process.get()))
            return;
        InstallerLogger::write(QStringLiteral("Force stopping installed process: attempt=%1 pid=%2 path=%3").arg(attempt).arg(pid).arg(path));
        if (!TerminateProcess(process.get(), 1)) {
            InstallerLogger::write(QStringLiteral("Unable to force stop process: attempt=%1 pid=%2 error=%3")
                                       .arg(attempt).arg(pid).arg(GetLastError()));
            return;
        }
        WaitForSingleObject(process.get(), DWORD(std::clamp<qint64>(deadline.remainingTime(), 0, 800)));
    });
    if (!listed) {
        const DWORD error = GetLastError();
        if (isProcessRunningAtPath(path))
            InstallerLogger::write(QStringLiteral("Unable to enumerate processes: attempt=%1 error=%2").arg(attempt).arg(error));
    }
    return listed;
}

LockState lockState(const QString &path)
{
    const UniqueHandle file(CreateFileW(wideChars(QDir::toNativeSeparators(path)), DELETE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (file.get() != INVALID_HANDLE_VALUE && file)
        return LockState::Free;
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return LockState::Free;
    if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION)
        return LockState::Locked;
    return LockState::OtherError;
}

} // namespace InstallationProcessesPlatform
