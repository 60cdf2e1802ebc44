#include "tst_finalize.h"
#include "finalize/maintenance_service.h"
#include "support/tree_fixture.h"
#include "support/user_token_win.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <vector>

#include <windows.h>

namespace {

const wchar_t *const name = L"BrisaLinkerMaintenance";

QString built(const char *path)
{
    return QStringLiteral("Z:") + QLatin1String(path);
}

QByteArray content(const QString &path)
{
    return QFileInfo::exists(path) ? TreeFixture::read(path) : QByteArray("missing");
}

// What the service control manager holds of the service: type, start, account, command, whether
// it runs and its description (Wine keeps no recovery actions to read back); empty when there is
// no such service.
QString configuration()
{
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS);
    QString result;
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    auto *config = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(buffer.data());
    SERVICE_STATUS status {};
    if (service && size && QueryServiceConfigW(service, config, size, &size) && QueryServiceStatus(service, &status))
        result = QStringLiteral("%1 %2 %3 %4 active=%5").arg(config->dwServiceType).arg(config->dwStartType)
                     .arg(QString::fromWCharArray(config->lpServiceStartName), QString::fromWCharArray(config->lpBinaryPathName))
                     .arg(status.dwCurrentState != SERVICE_STOPPED);
    QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, nullptr, 0, &size);
    buffer.assign(size, 0);
    const auto *text = reinterpret_cast<SERVICE_DESCRIPTIONW *>(buffer.data());
    if (!result.isEmpty() && size && QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer.data(), size, &size) && text->lpDescription)
        result += QStringLiteral(" description=") + QString::fromWCharArray(text->lpDescription);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return result;
}

// The full path of the program a process runs; empty when it cannot be read.
QString imagePath(HANDLE process)
{
    wchar_t path[MAX_PATH * 2];
    DWORD size = MAX_PATH * 2;
    return process && QueryFullProcessImageNameW(process, 0, path, &size) ? QString::fromWCharArray(path, int(size)) : QString();
}

// Ends the service's process however it behaves and deletes the service. The identifier the
// manager reports may be stale and name another process by then: only a process other than this
// one that still runs the service's program is ended.
void removeService()
{
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_ALL_ACCESS);
    SERVICE_STATUS_PROCESS status {};
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    auto *config = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(buffer.data());
    const QString command = size && QueryServiceConfigW(service, config, size, &size) ? QString::fromWCharArray(config->lpBinaryPathName) : QString();
    if (service && QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE *>(&status), sizeof(status), &size)
        && status.dwCurrentState != SERVICE_STOPPED && status.dwProcessId && status.dwProcessId != GetCurrentProcessId()) {
        HANDLE process = OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, status.dwProcessId);
        const QString image = imagePath(process);
        if (!image.isEmpty() && command.startsWith(QLatin1Char('"') + image + QLatin1Char('"'), Qt::CaseInsensitive)) {
            TerminateProcess(process, 1);
            WaitForSingleObject(process, 5000);
        }
        if (process)
            CloseHandle(process);
    }
    if (service)
        DeleteService(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    for (int i = 0; i < 50 && !configuration().isEmpty(); ++i)
        QThread::msleep(100);
}

// An installation under a path with blanks whose package carries payload as its service program.
void prepare(const QString &root, const QString &payload, const QString &version)
{
    QVERIFY(TreeFixture::write(root + QStringLiteral("/brisalinker.exe"), "launcher")
            && TreeFixture::write(root + QStringLiteral("/updater.exe"), "updater")
            && TreeFixture::write(root + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=" + version.toUtf8() + '\n')
            && TreeFixture::write(root + QStringLiteral("/WinServices/bl-maintenance.exe"), content(payload)));
}

} // namespace

void FinalizeTest::maintenanceServiceSetup_data()
{
    QTest::addColumn<QString>("before"); // "", "demo": set up from the demo program, "stubborn": a service that never stops
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QString>("version"); // of the package
    QTest::addColumn<bool>("policyBlocked");
    QTest::addColumn<QString>("error"); // its start; empty for success

    const QString demo = built(BRISA_MAINTENANCE_DEMO);
    const QString newer = built(BRISA_MAINTENANCE_NEWER);
    QTest::newRow("a first install runs a copy of the package's program under its quoted path")
        << "" << demo << BRISA_DEMO_VERSION << false << "";
    QTest::newRow("a newer program replaces the running one")
        << "demo" << newer << "9.9.0" << false << "";
    QTest::newRow("a new program reporting another version than the package's is rolled back")
        << "demo" << newer << BRISA_DEMO_VERSION << false << "The maintenance service's status does not match: version 9.9.0, expected " BRISA_DEMO_VERSION;
    QTest::newRow("a first install whose program fails its verification leaves no service")
        << "" << newer << BRISA_DEMO_VERSION << false << "The maintenance service's status does not match: version 9.9.0";
    QTest::newRow("an old service that does not stop in time stays as it was")
        << "stubborn" << demo << BRISA_DEMO_VERSION << false << "The maintenance service did not stop within 2000 ms";
    QTest::newRow("a policy that cannot be written leaves no service")
        << "" << demo << BRISA_DEMO_VERSION << true << "Unable to write the service policy: ";
}

void FinalizeTest::maintenanceServiceSetup()
{
    QFETCH(QString, before);
    QFETCH(QString, payload);
    QFETCH(QString, version);
    QFETCH(bool, policyBlocked);
    QFETCH(QString, error);
    removeService();
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("Brisa Linker Apps/BrisaLinker"));
    const QString serviceDir = root + QStringLiteral("/WinServices/service");
    MaintenanceSetupState state;
    QString detail;
    if (before == QLatin1String("demo")) {
        prepare(root, built(BRISA_MAINTENANCE_DEMO), QStringLiteral(BRISA_DEMO_VERSION));
        QVERIFY2(setupMaintenanceService(root, root + QStringLiteral("/WinServices/bl-maintenance.exe"), &state, &detail), qPrintable(detail));
        state = MaintenanceSetupState();
    } else if (before == QLatin1String("stubborn")) {
        state.timeoutMs = 2000; // the full limit would only make the test slow
        const std::wstring command = QStringLiteral("\"%1\"").arg(QDir::toNativeSeparators(built(BRISA_STUBBORN_SERVICE))).toStdWString();
        SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        SC_HANDLE service = CreateServiceW(manager, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                           SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
        QVERIFY(service && StartServiceW(service, 0, nullptr));
        CloseServiceHandle(service);
        CloseServiceHandle(manager);
        QTRY_VERIFY(configuration().contains(QLatin1String("active=1")));
    }
    const QString formerConfiguration = configuration();
    const QByteArray formerProgram = content(serviceDir + QStringLiteral("/bl-maintenance.exe"));
    const QByteArray formerPolicy = content(serviceDir + QStringLiteral("/policy.ini"));
    prepare(root, payload, version);
    if (policyBlocked)
        QVERIFY(QDir().mkpath(serviceDir + QStringLiteral("/policy.ini/occupied")));

    const bool done = setupMaintenanceService(root, root + QStringLiteral("/WinServices/bl-maintenance.exe"), &state, &detail);
    QString restoreError;
    const bool restored = done || rollbackMaintenanceService(state, &restoreError);
    const QString after = configuration();
    removeService();

    if (!error.isEmpty()) {
        QVERIFY2(!done && detail.startsWith(error), qPrintable(detail));
        // The stubborn service cannot be stopped for its restoration either.
        QVERIFY2(restored || before == QLatin1String("stubborn"), qPrintable(restoreError));
        QCOMPARE(after, formerConfiguration);
        if (before.isEmpty())
            QVERIFY(!QFileInfo::exists(serviceDir));
        QCOMPARE(content(serviceDir + QStringLiteral("/bl-maintenance.exe")), formerProgram);
        QCOMPARE(content(serviceDir + QStringLiteral("/policy.ini")), formerPolicy);
        return;
    }
    QVERIFY2(done, qPrintable(detail));
    const QString program = QDir::toNativeSeparators(serviceDir + QStringLiteral("/bl-maintenance.exe"));
    QCOMPARE(after, QStringLiteral("16 3 LocalSystem \"%1\" --service active=1 description=Applies Brisa-Linker's firewall rules for "
                                   "the programs its installer named.").arg(program));
    QCOMPARE(content(program), content(payload));
    QCOMPARE(QDir(serviceDir).entryList(QDir::Files), (QStringList { QStringLiteral("bl-maintenance.exe"), QStringLiteral("policy.ini") }));
    QProcess status;
    status.start(program, { QStringLiteral("--status") });
    QVERIFY(status.waitForFinished(10000));
    const QByteArray reply = status.readAllStandardOutput().trimmed();
    QCOMPARE(reply, "{\"service\":\"BrisaLinkerMaintenance\",\"version\":\"" + version.toUtf8() + "\",\"policySha256\":\""
                        + QCryptographicHash::hash(content(serviceDir + QStringLiteral("/policy.ini")), QCryptographicHash::Sha256).toHex()
                        + "\",\"policyValid\":true}");

    // Only the system and administrators may change the service's files, whatever the product
    // directory grants its user. Wine keeps a file's list as Unix modes and gives the
    // administrators' entry to the file's owner, the test's own user: there only reading holds.
    const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
    const UniqueHandle user = UserToken::restricted();
    for (const QString &path : { root + QStringLiteral("/WinServices"), serviceDir, QDir::fromNativeSeparators(program), serviceDir + QStringLiteral("/policy.ini") }) {
        QVERIFY2(UserToken::mayAccess(user.get(), path, FILE_GENERIC_READ | FILE_GENERIC_EXECUTE), qPrintable(path));
        for (DWORD change : { DWORD(FILE_WRITE_DATA), DWORD(FILE_APPEND_DATA), DWORD(DELETE), DWORD(WRITE_DAC), DWORD(WRITE_OWNER) })
            QVERIFY2(wine || !UserToken::mayAccess(user.get(), path, change), qPrintable(QStringLiteral("%1 %2").arg(path).arg(change, 0, 16)));
    }
}
