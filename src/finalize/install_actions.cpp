#include "finalize/install_actions.h"
#include "app/installer_logger.h"
#include "system/windows_command_line.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("InstallerFinalizer", text);
}

QString windowsDirectory()
{
    const QString value = qEnvironmentVariable("WINDIR").trimmed();
    return QDir::cleanPath(QDir::fromNativeSeparators(value.isEmpty() ? QStringLiteral("C:/Windows") : value));
}

} // namespace

void runInstallActions(const QString &installDir, const QString &otherRoot, int *warnings,
                       const std::function<void(const QString &text)> &progress)
{
    Q_UNUSED(otherRoot) // every program the rules cover lies in the installation directory
    const QString windows = windowsDirectory();
    const QString root = QDir::cleanPath(QDir::fromNativeSeparators(installDir));

    const auto runAction = [warnings](const QString &description, const QString &program, const QStringList &arguments) {
        InstallerLogger::write(QStringLiteral("Running optional system action: %1").arg(description));
        if (!QFileInfo(program).isFile()) {
            InstallerLogger::write(QStringLiteral("Optional system action skipped; file is missing: %1").arg(program));
            ++*warnings;
            return;
        }
        QProcess process;
        process.setProgram(program);
#ifdef Q_OS_WIN
        // Every argument quoted, so that paths with blanks reach the program unchanged.
        process.setNativeArguments(WindowsCommandLine::join(arguments));
#else
        process.setArguments(arguments);
#endif
        process.setWorkingDirectory(QFileInfo(program).path());
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start();
        if (!process.waitForStarted()) {
            InstallerLogger::write(QStringLiteral("Optional system action could not start: %1").arg(description));
            ++*warnings;
            return;
        }
        if (!process.waitForFinished(installActionTimeoutMs)) {
            process.kill();
            process.waitForFinished();
            InstallerLogger::write(QStringLiteral("Optional system action timed out after 30 seconds: %1").arg(description));
            ++*warnings;
            return;
        }
        if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            InstallerLogger::write(QStringLiteral("Optional system action failed: %1; exit code=%2").arg(description).arg(process.exitCode()));
            ++*warnings;
            return;
        }
        InstallerLogger::write(QStringLiteral("Optional system action completed: %1").arg(description));
    };

    const QString netsh = windows + QStringLiteral("/System32/netsh.exe");
    const auto firewallRule = [&runAction, &netsh](const QString &rule, const QString &program) {
        const QString target = QDir::toNativeSeparators(program);
        for (const QLatin1String protocol : { QLatin1String("TCP"), QLatin1String("UDP") }) {
            runAction(QStringLiteral("Delete %1 firewall rule: %2").arg(protocol, rule), netsh,
                      { QStringLiteral("advfirewall"), QStringLiteral("firewall"), QStringLiteral("delete"), QStringLiteral("rule"),
                        QStringLiteral("name=") + rule, QStringLiteral("dir=in"), QStringLiteral("program=") + target,
                        QStringLiteral("protocol=") + protocol });
            runAction(QStringLiteral("Add %1 firewall rule: %2").arg(protocol, rule), netsh,
                      { QStringLiteral("advfirewall"), QStringLiteral("firewall"), QStringLiteral("add"), QStringLiteral("rule"),
                        QStringLiteral("name=") + rule, QStringLiteral("dir=in"), QStringLiteral("action=allow"),
                        QStringLiteral("program=") + target, QStringLiteral("enable=yes"), QStringLiteral("profile=any"),
                        QStringLiteral("protocol=") + protocol });
        }
    };

    const QString cameraModules = root + QStringLiteral("/OBS-Studio/data/obs-plugins/win-dshow/");
    progress(tr("Installing 32-bit virtual camera..."));
    runAction(QStringLiteral("Register 32-bit virtual camera"), windows + QStringLiteral("/SysWOW64/regsvr32.exe"),
              { QStringLiteral("/s"), QStringLiteral("/i"), QDir::toNativeSeparators(cameraModules + QStringLiteral("obs-virtualcam-module32.dll")) });
    progress(tr("Installing 64-bit virtual camera..."));
    runAction(QStringLiteral("Register 64-bit virtual camera"), windows + QStringLiteral("/System32/regsvr32.exe"),
              { QStringLiteral("/s"), QStringLiteral("/i"), QDir::toNativeSeparators(cameraModules + QStringLiteral("obs-virtualcam-module64.dll")) });

    progress(tr("Configuring application..."));
    if (!QFileInfo(netsh).isFile()) {
        InstallerLogger::write(QStringLiteral("Firewall program is missing; rules skipped: %1").arg(netsh));
        ++*warnings;
        return;
    }
    firewallRule(QStringLiteral("brisalinker"), root + QStringLiteral("/brisalinker.exe"));
    firewallRule(QStringLiteral("BrisaLinker Updater"), root + QStringLiteral("/updater.exe"));
}
