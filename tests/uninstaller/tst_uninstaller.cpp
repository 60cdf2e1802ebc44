#include "finalize/maintenance_service.h"
#include "support/test_files.h"
#include "support/user_token_win.h"
#include "system/desktop_user.h"
#include "system/shortcuts.h"
#include "uninstaller/uninstall_elevation.h"
#include "uninstaller/uninstall_service.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <windows.h>

namespace {

const QByteArray magic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1\n");
const QString entryKey = QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
const QString machineKey = QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer");
const QString uninstallTitle = QStringLiteral("Brisa-Linker Uninstall");
const QString runningTitle = QStringLiteral("Brisa-Linker is running");

QStringList tree(const QString &root)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        entries << QDir(root).relativeFilePath(it.next());
    entries.sort();
    return entries;
}

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

QStringList temporaryCopies()
{
    return QDir::temp().entryList({ QStringLiteral("BrisaLinkerUninstall-*.exe") }, QDir::Files | QDir::Hidden | QDir::System);
}

struct Run
{
    int exitCode = -1;
    QStringList asked; // the titles of the message boxes, in order, each answered yes
    QSet<HWND> answered;
};

BOOL CALLBACK answer(HWND window, LPARAM context)
{
    Run &run = *reinterpret_cast<Run *>(context);
    wchar_t title[64] = {};
    GetWindowTextW(window, title, 64);
    const QString text = QString::fromWCharArray(title);
    if (IsWindowVisible(window) && (text == uninstallTitle || text == runningTitle) && !run.answered.contains(window)) {
        run.answered.insert(window);
        run.asked << text;
        PostMessageW(window, WM_COMMAND, text == runningTitle ? IDOK : IDYES, 0);
    }
    return TRUE;
}

// Runs a command as Windows runs an "UninstallString", with /S when silent, answering its message
// boxes, until the uninstaller and its temporary copy have ended.
Run runCommand(const QString &command, bool silent)
{
    Run run;
    QStringList arguments = QProcess::splitCommand(command);
    QProcess uninstall;
    uninstall.start(arguments.takeFirst(), arguments + (silent ? QStringList { QStringLiteral("/S") } : QStringList()));
    const QDeadlineTimer deadline(120000);
    while (!deadline.hasExpired() && (uninstall.state() != QProcess::NotRunning || !temporaryCopies().isEmpty())) {
        EnumWindows(answer, reinterpret_cast<LPARAM>(&run));
        uninstall.waitForFinished(100);
    }
    if (uninstall.state() == QProcess::NotRunning)
        run.exitCode = uninstall.exitCode();
    return run;
}

int runUninstaller(const QString &installDirectory)
{
    const QString copy = installDirectory + QStringLiteral("/uninstall.exe");
    QFile::remove(copy);
    if (!QFile::copy(QStringLiteral(BRISA_UNINSTALL_EXE), copy))
        return -1;
    return runCommand(QLatin1Char('"') + native(copy) + QLatin1Char('"'), true).exitCode;
}

} // namespace

class UninstallerTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // Copies left behind by earlier builds, which could not remove them.
        for (const QString &copy : temporaryCopies())
            QFile::remove(QDir::temp().filePath(copy));
    }
    void removesExactlyWhatIsListed_data();
    void removesExactlyWhatIsListed();
    void neverFollowsALinkOutOfTheInstallation();
    void uninstallsThroughTheRegisteredCommand_data();
    void uninstallsThroughTheRegisteredCommand();
    void asksForAnAdministratorOnlyWhenNeeded_data();
    void asksForAnAdministratorOnlyWhenNeeded();
};

void UninstallerTest::removesExactlyWhatIsListed_data()
{
    QTest::addColumn<QString>("directoryName");
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("remaining"); // relative to the parent of the installation; empty: all that was there

    QTest::newRow("listed files and emptied directories go, the user's files and their directory stay")
        << "BrisaLinker"
        << magic + "F\tbin/core.dll\nF\tbin/deep/x.dat\nF\tbrisalinker.exe\nF\tuninstall.dat\nF\tuninstall.exe\nD\tbin/deep\nD\tbin\n"
        << 0 << QStringList { "BrisaLinker", "BrisaLinker/data", "BrisaLinker/data/user-notes.txt", "outside.txt" };
    QTest::newRow("a fully listed installation leaves no directory behind")
        << "BrisaLinker"
        << magic + "F\tbin/core.dll\nF\tbin/deep/x.dat\nF\tbrisalinker.exe\nF\tdata/user-notes.txt\nF\tuninstall.dat\n"
                   "F\tuninstall.exe\nD\tbin/deep\nD\tbin\nD\tdata\n"
        << 0 << QStringList { "outside.txt" };
    QTest::newRow("lines that leave the installation are never acted on")
        << "BrisaLinker"
        << magic + "F\t../outside.txt\nF\tC:/outside.txt\nF\t/outside.txt\nF\tbin/../../outside.txt\nF\tbin\\..\\..\\outside.txt\n"
                   "F\tbin//core.dll\nF\t./brisalinker.exe\nD\t..\n"
        << 2 << QStringList {};
    QTest::newRow("a list without the magic line removes nothing") << "BrisaLinker" << QByteArray("F\tbrisalinker.exe\n") << 1 << QStringList {};
    QTest::newRow("a directory not named BrisaLinker is not an installation")
        << "Downloads" << QByteArray(magic + "F\tbrisalinker.exe\n") << 1 << QStringList {};
}

void UninstallerTest::removesExactlyWhatIsListed()
{
    QFETCH(QString, directoryName);
    QFETCH(QByteArray, list);
    QFETCH(int, exitCode);
    QFETCH(QStringList, remaining);

    QTemporaryDir temp;
    for (const char *relative : { "brisalinker.exe", "bin/core.dll", "bin/deep/x.dat", "data/user-notes.txt", "uninstall.exe" })
        QVERIFY(TestFiles::write(temp.filePath(directoryName + QLatin1Char('/') + QLatin1String(relative)), "x"));
    QVERIFY(TestFiles::write(temp.filePath(QStringLiteral("outside.txt")), "x"));
    const QString installation = temp.filePath(directoryName);
    QVERIFY(TestFiles::write(installation + QStringLiteral("/uninstall.dat"), list));
    if (remaining.isEmpty())
        remaining = tree(temp.path());
    QCOMPARE(runUninstaller(installation), exitCode);
    QCOMPARE(tree(temp.path()).join(QLatin1Char(' ')), remaining.join(QLatin1Char(' ')));
}

void UninstallerTest::neverFollowsALinkOutOfTheInstallation()
{
    // The harness made "plugins" a directory link to a folder outside the installation.
    const QString installation = QStringLiteral("C:/brisa-link-fixture/install-with-link/BrisaLinker");
    const QString victim = QStringLiteral("C:/brisa-link-fixture/outside/victim.txt");
    if (!QFileInfo::exists(victim))
        QSKIP("the link fixture is not available");
    QVERIFY(TestFiles::write(installation + QStringLiteral("/brisalinker.exe"), "x"));
    QVERIFY(TestFiles::write(installation + QStringLiteral("/uninstall.dat"), magic + "F\tplugins/victim.txt\nF\tbrisalinker.exe\nD\tplugins\n"));
    QCOMPARE(runUninstaller(installation), 2);
    QVERIFY(QFileInfo::exists(victim));
    QVERIFY(!QFileInfo::exists(installation + QStringLiteral("/brisalinker.exe")));
}

void UninstallerTest::uninstallsThroughTheRegisteredCommand_data()
{
    QTest::addColumn<bool>("silent");
    QTest::addColumn<bool>("registeredHere"); // the service, entry, scheme, shortcut and machine key name it
    QTest::addColumn<QStringList>("asked");
    QTest::newRow("asked, it closes the product and removes its service, registrations and files; the user's file stays")
        << false << true << QStringList { uninstallTitle, runningTitle, uninstallTitle };
    QTest::newRow("silently the same, without a question") << true << true << QStringList {};
    QTest::newRow("a service and registrations of another installation stay") << true << false << QStringList {};
}

void UninstallerTest::uninstallsThroughTheRegisteredCommand()
{
    QFETCH(bool, silent);
    QFETCH(bool, registeredHere);
    QFETCH(QStringList, asked);
    QTemporaryDir temp;
    const QString installation = temp.filePath(QStringLiteral("Brisa Apps/BrisaLinker"));
    const QString named = registeredHere ? installation : temp.filePath(QStringLiteral("Elsewhere/BrisaLinker"));
    // As the installer leaves them: the package's files and list, the service set up from the
    // package's program, a running launcher.
    for (const QString &root : QSet<QString> { installation, named }) {
        QVERIFY(TestFiles::write(root + QStringLiteral("/updater.exe"), "x"));
        QVERIFY(TestFiles::write(root + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=" BRISA_DEMO_VERSION "\n"));
        QVERIFY(QFile::copy(QStringLiteral(BRISA_SLEEPER_EXE), root + QStringLiteral("/brisalinker.exe")));
        QVERIFY(QDir().mkpath(root + QStringLiteral("/WinServices")));
        QVERIFY(QFile::copy(QStringLiteral(BRISA_MAINTENANCE_DEMO), root + QStringLiteral("/WinServices/bl-maintenance.exe")));
    }
    QVERIFY(TestFiles::write(installation + QStringLiteral("/uninstall.dat"), magic + "F\tWinServices/bl-maintenance.exe\nF\tbrisalinker.exe\nF\tcfgdata/version.ini\n"
                                                                 "F\tuninstall.dat\nF\tuninstall.exe\nF\tupdater.exe\nD\tWinServices\nD\tcfgdata\n"));
    QVERIFY(TestFiles::write(installation + QStringLiteral("/data/user-notes.txt"), "x"));
    QVERIFY(QFile::copy(QStringLiteral(BRISA_UNINSTALL_EXE), installation + QStringLiteral("/uninstall.exe")));
    MaintenanceSetupState state;
    QString error;
    QVERIFY2(setupMaintenanceService(named, named + QStringLiteral("/WinServices/bl-maintenance.exe"), &state, &error), qPrintable(error));
    const QString command = QStringLiteral("HKEY_USERS\\%1_Classes\\brisalinker\\shell\\open\\command").arg(DesktopUser::processSid());
    const QString launcher = native(named) + QStringLiteral("\\brisalinker.exe");
    QSettings(entryKey, QSettings::NativeFormat).setValue(QStringLiteral("InstallLocation"), native(named));
    QSettings(entryKey, QSettings::NativeFormat).setValue(QStringLiteral("UninstallString"), QStringLiteral("\"%1\\uninstall.exe\"").arg(native(installation)));
    QSettings(command, QSettings::NativeFormat).setValue(QStringLiteral("Default"), QStringLiteral("\"%1\" \"%2\"").arg(launcher, QStringLiteral("%1")));
    QSettings(machineKey, QSettings::Registry64Format).setValue(QStringLiteral("InstallLocation"), native(named));
    const QString shortcut = Shortcuts::shortcutFilePath(Shortcuts::Folder::Desktop, QStringLiteral("Brisa-Linker.lnk"));
    QVERIFY(Shortcuts::createShortcut(Shortcuts::Folder::Desktop, launcher, native(named), launcher, QStringLiteral("Brisa-Linker.lnk")));
    QProcess running;
    running.start(installation + QStringLiteral("/brisalinker.exe"));
    QVERIFY(running.waitForStarted());

    const Run run = runCommand(QSettings(entryKey, QSettings::NativeFormat).value(QStringLiteral("UninstallString")).toString(), silent);
    QCOMPARE(run.asked, asked);
    QVERIFY(temporaryCopies().isEmpty());
    QVERIFY(running.waitForFinished(5000));
    QCOMPARE(tree(temp.filePath(QStringLiteral("Brisa Apps"))), (QStringList { "BrisaLinker", "BrisaLinker/data", "BrisaLinker/data/user-notes.txt" }));
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, L"BrisaLinkerMaintenance", SERVICE_QUERY_STATUS);
    // service, entry, scheme, shortcut, machine key
    const QList<bool> left { service != nullptr, QSettings(entryKey, QSettings::NativeFormat).contains(QStringLiteral("InstallLocation")),
                             QSettings(command, QSettings::NativeFormat).contains(QStringLiteral("Default")), QFileInfo::exists(shortcut),
                             QSettings(machineKey, QSettings::Registry64Format).contains(QStringLiteral("InstallLocation")) };
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    QCOMPARE(left, QList<bool>(5, !registeredHere));
    QCOMPARE(run.exitCode, 0);

    QVERIFY(removeMaintenanceService(native(named).toStdWString()));
    QSettings(entryKey, QSettings::NativeFormat).remove(QString());
    QSettings(command.section(QLatin1Char('\\'), 0, -4), QSettings::NativeFormat).remove(QString());
    QSettings(machineKey, QSettings::Registry64Format).remove(QString());
    QFile::remove(shortcut);
}

void UninstallerTest::asksForAnAdministratorOnlyWhenNeeded_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<bool>("administrator");
    QTest::addColumn<bool>("needed");
    QTest::newRow("a user's own installation needs none") << "" << false << false;
    QTest::newRow("its maintenance service needs one") << "service here" << false << true;
    QTest::newRow("another installation's service does not") << "service elsewhere" << false << false;
    QTest::newRow("the service's protected folder needs one") << "folder" << false << true;
    QTest::newRow("a machine key naming it needs one") << "machine key here" << false << true;
    QTest::newRow("a machine key naming another installation does not") << "machine key elsewhere" << false << false;
    QTest::newRow("an administrator is not asked again") << "service here" << true << false;
}

void UninstallerTest::asksForAnAdministratorOnlyWhenNeeded()
{
    QFETCH(QString, setup);
    QFETCH(bool, administrator);
    QFETCH(bool, needed);
    QTemporaryDir temp;
    const QString installation = temp.filePath(QStringLiteral("BrisaLinker"));
    const QString named = setup.endsWith(QLatin1String("elsewhere")) ? temp.filePath(QStringLiteral("Other/BrisaLinker")) : installation;
    QVERIFY(TestFiles::write(installation + QStringLiteral("/brisalinker.exe"), "x"));
    if (setup == QLatin1String("folder"))
        QVERIFY(QDir().mkpath(installation + QStringLiteral("/WinServices")));
    if (setup.startsWith(QLatin1String("machine key")))
        QSettings(machineKey, QSettings::Registry64Format).setValue(QStringLiteral("InstallLocation"), native(named));
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    const std::wstring program = QStringLiteral("\"%1\\WinServices\\service\\bl-maintenance.exe\" --service").arg(native(named)).toStdWString();
    const SC_HANDLE service = setup.startsWith(QLatin1String("service"))
        ? CreateServiceW(manager, L"BrisaLinkerMaintenance", L"Brisa-Linker Maintenance", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                         SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, program.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)
        : nullptr;
    const UniqueHandle user = UserToken::restricted();
    QCOMPARE(needsElevation(native(installation).toStdWString(), administrator ? nullptr : user.get()), needed);
    if (service)
        DeleteService(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    QSettings(machineKey, QSettings::Registry64Format).remove(QString());
}

QTEST_GUILESS_MAIN(UninstallerTest)
#include "tst_uninstaller.moc"
