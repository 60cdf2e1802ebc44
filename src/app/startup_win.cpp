#include "app/installer_logger.h"
#include "app/startup.h"
#include "app/startup_platform.h"
#include "system/desktop_user.h"
#include "system/handles_win.h"
#include "system/windows_command_line.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>
#include <QWidget>

#include <shellapi.h>

namespace StartupPlatform {

bool acquireDesktopToken()
{
    return DesktopUser::token() != nullptr;
}

void showNormal(QWidget *window)
{
    ShowWindow(reinterpret_cast<HWND>(window->winId()), SW_SHOWNORMAL);
}

} // namespace StartupPlatform

namespace Startup {

namespace {

// "The requested operation requires elevation"; not every MinGW header names it.
constexpr int elevationRequired = 740;

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerStartup", text);
}

bool processElevated()
{
    HANDLE own = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &own))
        return false;
    const UniqueHandle token(own);
    TOKEN_ELEVATION elevation {};
    DWORD size = 0;
    if (!GetTokenInformation(own, TokenElevation, &elevation, sizeof(elevation), &size))
        return false;
    return elevation.TokenIsElevated != 0;
}

QString systemMessage(DWORD code)
{
    wchar_t buffer[1024] = {};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                        buffer, DWORD(std::size(buffer)), nullptr);
    return QString::fromWCharArray(buffer, int(length)).trimmed();
}

} // namespace

int ensureInstallerElevation(const InstallerLaunch::Options &options, const QStringList &arguments)
{
    const bool elevated = processElevated();
    InstallerLogger::write(QStringLiteral("Installer process elevated: %1").arg(elevated ? QStringLiteral("yes") : QStringLiteral("no")));
    if (elevated)
        return -1;
    if (arguments.contains(QStringLiteral("--elevation-retry"))) {
        QMessageBox::critical(nullptr, QStringLiteral("Brisa-Linker Installer"),
                              tr("Administrator permission is required to install the system maintenance service. "
                                 "Please run the installer as administrator."));
        return elevationRequired;
    }

    const QString parameters = WindowsCommandLine::join(InstallerLaunch::elevationArguments(arguments, options)
                                                        << QStringLiteral("--elevation-retry"));
    const QString file = QDir::toNativeSeparators(QCoreApplication::applicationFilePath());
    while (true) {
        SHELLEXECUTEINFOW info {};
        info.cbSize = sizeof(info);
        info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
        info.lpVerb = L"runas";
        info.lpFile = wideChars(file);
        info.lpParameters = wideChars(parameters);
        info.nShow = SW_SHOWNORMAL;
        if (ShellExecuteExW(&info)) {
            if (!info.hProcess)
                return elevationRequired;
            // Stay alive without a window until the elevated copy ends, so that a caller waiting
            // on this process sees the real result.
            const UniqueHandle process(info.hProcess);
            DWORD code = 0;
            if (WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0 || !GetExitCodeProcess(process.get(), &code))
                return ERROR_PROCESS_ABORTED; // 1067
            return int(code);
        }
        const DWORD code = GetLastError();
        const QString message = code == ERROR_CANCELLED
            ? tr("Administrator authorization was cancelled or did not complete (Windows error 1223). "
                 "Click Retry and choose Yes in the Windows permission dialog.")
            : tr("Windows could not start the installer with administrator permission. Windows error %1: %2")
                  .arg(code)
                  .arg(systemMessage(code));
        InstallerLogger::write(QStringLiteral("Installer elevation failed: %1; %2").arg(code).arg(message));
        const auto choice = QMessageBox::warning(
            nullptr, QStringLiteral("Brisa-Linker Installer"),
            message + QStringLiteral("\n\n")
                + tr("Click Retry to request administrator permission again, or Cancel to close the installer."),
            QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry);
        if (choice != QMessageBox::Retry)
            return int(code);
        InstallerLogger::write(QStringLiteral("Retrying administrator authorization at the user's request."));
    }
}

} // namespace Startup
