#include "location/installation_identity.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <windows.h>

namespace {

QString demoProgram(int index)
{
    QString path = qEnvironmentVariable("BRISA_DEMO_PROGRAMS").split(QLatin1Char('|')).value(index);
    // The build hands over host paths; Wine shows the host's root as drive Z:.
    return path.startsWith(QLatin1Char('/')) ? QStringLiteral("Z:") + path : path;
}

// An installation with blanks in its path and the service deployed with its policy; %1 in the
// policy is the SHA-256 of the product's launcher.
QString deployService(const QTemporaryDir &temp, const QString &policy)
{
    const QString root = temp.filePath(QStringLiteral("Brisa Linker"));
    const QString service = root + QStringLiteral("/WinServices/service");
    QDir().mkpath(service);
    QFile launcher(root + QStringLiteral("/brisalinker.exe"));
    launcher.open(QIODevice::WriteOnly);
    launcher.write("the launcher");
    launcher.close();
    QFile::copy(demoProgram(3), service + QStringLiteral("/bl-maintenance.exe"));
    QFile file(service + QStringLiteral("/policy.ini"));
    file.open(QIODevice::WriteOnly);
    file.write(policy.arg(QDir::toNativeSeparators(root), QString::fromLatin1(QCryptographicHash::hash("the launcher", QCryptographicHash::Sha256).toHex())).toUtf8());
    return QDir::toNativeSeparators(service + QStringLiteral("/bl-maintenance.exe"));
}

} // namespace

class DemoProductTest : public QObject
{
    Q_OBJECT

private slots:
    void programsAreRecognised_data();
    void programsAreRecognised();
    void maintenanceServiceKeepsToItsPolicy_data();
    void maintenanceServiceKeepsToItsPolicy();
    void maintenanceServiceRunsUnderTheServiceManager();
};

void DemoProductTest::programsAreRecognised_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("kind");
    QTest::newRow("the demo launcher is the product's launcher") << 0 << int(InstallationIdentity::Launcher);
    QTest::newRow("the demo updater is a valid program but no launcher") << 1 << int(InstallationIdentity::ValidExecutable);
    QTest::newRow("the demo core is a valid program but no launcher") << 2 << int(InstallationIdentity::ValidExecutable);
}

void DemoProductTest::programsAreRecognised()
{
    QFETCH(int, index);
    QFETCH(int, kind);
    const QString path = demoProgram(index);
    QVERIFY2(QFileInfo::exists(path), qPrintable(path));
    const InstallationIdentity::Result identity = InstallationIdentity::executable(path);
    QVERIFY2(identity.kind == kind, qPrintable(QStringLiteral("kind %1: %2").arg(identity.kind).arg(identity.message)));
}

void DemoProductTest::maintenanceServiceKeepsToItsPolicy_data()
{
    const QString valid = QStringLiteral("[policy]\nschema=1\ninstallDir=%1\n[programs]\nbrisalinker.exe=%2\n");
    QTest::addColumn<QString>("policy");
    QTest::addColumn<QString>("program"); // relative to the installation, or a command
    QTest::addColumn<QString>("reply");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("a named program with its digest is allowed") << valid << "brisalinker.exe" << "{\"allowed\":true}" << 0;
    QTest::newRow("a program the policy does not name is refused") << valid << "updater.exe" << "{\"allowed\":false,\"reason\":\"not_in_policy\"}" << 3;
    QTest::newRow("a named program with other content is refused")
        << QString(valid).replace(QStringLiteral("%2"), QString(64, QLatin1Char('0'))) << "brisalinker.exe"
        << "{\"allowed\":false,\"reason\":\"digest_mismatch\"}" << 3;
    QTest::newRow("a policy naming a path outside the installation refuses everything")
        << valid + QStringLiteral("../escape.exe=%2\n") << "brisalinker.exe" << "{\"allowed\":false,\"reason\":\"invalid_policy\"}" << 3;
    QTest::newRow("the status names the service, its version and the policy's digest") << valid << "--status"
        << "{\"service\":\"BrisaLinkerMaintenance\",\"version\":\"1.5.0\",\"policySha256\":\"%1\",\"policyValid\":true}" << 0;
}

void DemoProductTest::maintenanceServiceKeepsToItsPolicy()
{
    QFETCH(QString, policy);
    QFETCH(QString, program);
    QFETCH(QString, reply);
    QFETCH(int, exitCode);
    QTemporaryDir temp;
    const QString service = deployService(temp, policy);
    QStringList arguments { program };
    if (program != QLatin1String("--status"))
        arguments = QStringList { QStringLiteral("--check-program"), QDir::toNativeSeparators(temp.filePath(QStringLiteral("Brisa Linker/")) + program) };
    QProcess process;
    process.start(service, arguments);
    QVERIFY(process.waitForFinished(10000));
    QFile written(QFileInfo(service).path() + QStringLiteral("/policy.ini"));
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()).trimmed(),
             reply.contains(QLatin1String("%1")) ? reply.arg(QString::fromLatin1(QCryptographicHash::hash(written.readAll(), QCryptographicHash::Sha256).toHex())) : reply);
    QCOMPARE(process.exitCode(), exitCode);
}

// Created with a quoted binary path that has blanks, started, stopped promptly and deleted
// through Wine's real service control manager.
void DemoProductTest::maintenanceServiceRunsUnderTheServiceManager()
{
    QTemporaryDir temp;
    const QString binary = QStringLiteral("\"%1\" --service").arg(deployService(temp, QStringLiteral("[policy]\nschema=1\ninstallDir=%1\n[programs]\nbrisalinker.exe=%2\n")));
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    QVERIFY(manager);
    const wchar_t *name = L"BrisaLinkerMaintenanceDemoTest";
    SC_HANDLE service = CreateServiceW(manager, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                       SERVICE_ERROR_NORMAL, reinterpret_cast<const wchar_t *>(binary.utf16()), nullptr, nullptr, nullptr, nullptr, nullptr);
    QVERIFY(service);
    SERVICE_STATUS status {};
    const auto waitFor = [&](DWORD state) {
        for (int i = 0; i < 100 && QueryServiceStatus(service, &status) && status.dwCurrentState != state; ++i)
            Sleep(50);
        return status.dwCurrentState == state;
    };
    const bool started = StartServiceW(service, 0, nullptr) && waitFor(SERVICE_RUNNING);
    const bool stopped = ControlService(service, SERVICE_CONTROL_STOP, &status) && waitFor(SERVICE_STOPPED);
    DeleteService(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    QVERIFY(started);
    QVERIFY(stopped); // within 5 s
}

QTEST_GUILESS_MAIN(DemoProductTest)
#include "tst_demo_product.moc"
