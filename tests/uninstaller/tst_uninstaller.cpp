#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <windows.h>
#include <sddl.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

namespace {

const QByteArray magic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1\n");

void put(const QString &path, const QByteArray &content = QByteArrayLiteral("x"))
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QStringList tree(const QString &root)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        entries << QDir(root).relativeFilePath(it.next());
    entries.sort();
    return entries;
}

int runUninstaller(const QString &installDirectory)
{
    const QString copy = installDirectory + QStringLiteral("/uninstall.exe");
    QFile::remove(copy);
    if (!QFile::copy(QStringLiteral(BRISA_UNINSTALL_EXE), copy))
        return -1;
    QProcess uninstall;
    uninstall.start(copy, { QStringLiteral("/S") });
    if (!uninstall.waitForFinished(120000))
        return -2;
    return uninstall.exitCode();
}

QString processSid()
{
    HANDLE token = nullptr;
    BYTE buffer[512];
    DWORD size = 0;
    wchar_t *sid = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return {};
    if (GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &size))
        ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER *>(buffer)->User.Sid, &sid);
    CloseHandle(token);
    const QString text = sid ? QString::fromWCharArray(sid) : QString();
    LocalFree(sid);
    return text;
}

bool createShortcut(const QString &path, const QString &target)
{
    IShellLinkW *link = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&link))))
        return false;
    link->SetPath(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(target).utf16()));
    IPersistFile *file = nullptr;
    bool saved = false;
    if (SUCCEEDED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&file)))) {
        saved = SUCCEEDED(file->Save(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()), TRUE));
        file->Release();
    }
    link->Release();
    return saved;
}

QString desktopFolder()
{
    wchar_t *path = nullptr;
    QString folder;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_Desktop, 0, nullptr, &path)))
        folder = QDir::fromNativeSeparators(QString::fromWCharArray(path));
    CoTaskMemFree(path);
    return folder;
}

} // namespace

class UninstallerTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    void removesExactlyWhatIsListed_data();
    void removesExactlyWhatIsListed();
    void neverFollowsALinkOutOfTheInstallation();
    void removesOnlyRegistrationsThatPointHere();
};

void UninstallerTest::removesExactlyWhatIsListed_data()
{
    QTest::addColumn<QString>("directoryName");
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("remaining"); // relative to the parent of the installation

    const QStringList installed { "BrisaLinker/brisalinker.exe", "BrisaLinker/updater.exe", "BrisaLinker/uninstall.dat",
                                  "BrisaLinker/bin/core.dll", "BrisaLinker/bin/deep/x.dat", "BrisaLinker/data/user-notes.txt",
                                  "outside.txt" };
    const QByteArray all = magic + "F\tbin/core.dll\nF\tbin/deep/x.dat\nF\tbrisalinker.exe\nF\tuninstall.dat\nF\tuninstall.exe\nF\tupdater.exe\n"
                                   "D\tbin/deep\nD\tbin\n";

    QTest::newRow("listed files and emptied directories go, the user's files and their directory stay")
        << "BrisaLinker" << all << installed << 0
        << QStringList { "BrisaLinker", "BrisaLinker/data", "BrisaLinker/data/user-notes.txt", "outside.txt" };
    QTest::newRow("a fully listed installation leaves no directory behind")
        << "BrisaLinker"
        << magic + "F\tbin/core.dll\nF\tbin/deep/x.dat\nF\tbrisalinker.exe\nF\tdata/user-notes.txt\nF\tuninstall.dat\n"
                   "F\tuninstall.exe\nF\tupdater.exe\nD\tbin/deep\nD\tbin\nD\tdata\n"
        << installed << 0 << QStringList { "outside.txt" };
    QTest::newRow("lines that leave the installation are never acted on")
        << "BrisaLinker"
        << magic + "F\t../outside.txt\nF\tC:/outside.txt\nF\t/outside.txt\nF\tbin/../../outside.txt\nF\tbin\\..\\..\\outside.txt\n"
                   "F\tbin//core.dll\nF\t./updater.exe\nD\t..\n"
        << installed << 2 << QStringList { "BrisaLinker", "BrisaLinker/bin", "BrisaLinker/bin/core.dll", "BrisaLinker/bin/deep",
                                           "BrisaLinker/bin/deep/x.dat", "BrisaLinker/brisalinker.exe", "BrisaLinker/data",
                                           "BrisaLinker/data/user-notes.txt", "BrisaLinker/uninstall.dat", "BrisaLinker/uninstall.exe",
                                           "BrisaLinker/updater.exe", "outside.txt" };
    QTest::newRow("a list without the magic line removes nothing")
        << "BrisaLinker" << QByteArray("F\tbrisalinker.exe\n") << QStringList { "BrisaLinker/brisalinker.exe", "BrisaLinker/uninstall.dat" } << 1
        << QStringList { "BrisaLinker", "BrisaLinker/brisalinker.exe", "BrisaLinker/uninstall.dat", "BrisaLinker/uninstall.exe" };
    QTest::newRow("a directory not named BrisaLinker is not an installation")
        << "Downloads" << QByteArray(magic + "F\tbrisalinker.exe\n") << QStringList { "Downloads/brisalinker.exe", "Downloads/uninstall.dat" } << 1
        << QStringList { "Downloads", "Downloads/brisalinker.exe", "Downloads/uninstall.dat", "Downloads/uninstall.exe" };
}

void UninstallerTest::removesExactlyWhatIsListed()
{
    QFETCH(QString, directoryName);
    QFETCH(QByteArray, list);
    QFETCH(QStringList, present);
    QFETCH(int, exitCode);
    QFETCH(QStringList, remaining);

    QTemporaryDir temp;
    for (const QString &relative : present)
        put(temp.filePath(relative));
    const QString installation = temp.filePath(directoryName);
    put(installation + QStringLiteral("/uninstall.dat"), list);
    QCOMPARE(runUninstaller(installation), exitCode);
    // The temporary copy removes uninstall.exe itself just after the caller has its answer.
    for (int i = 0; i < 100 && tree(temp.path()) != remaining; ++i)
        QTest::qWait(100);
    QCOMPARE(tree(temp.path()).join(QLatin1Char(' ')), remaining.join(QLatin1Char(' ')));
}

void UninstallerTest::neverFollowsALinkOutOfTheInstallation()
{
    // The harness made "plugins" a directory link to a folder outside the installation.
    const QString installation = QStringLiteral("C:/brisa-link-fixture/install-with-link/BrisaLinker");
    const QString victim = QStringLiteral("C:/brisa-link-fixture/outside/victim.txt");
    if (!QFileInfo::exists(victim))
        QSKIP("the link fixture is not available");
    put(installation + QStringLiteral("/brisalinker.exe"));
    put(installation + QStringLiteral("/uninstall.dat"), magic + "F\tplugins/victim.txt\nF\tbrisalinker.exe\nD\tplugins\n");
    QCOMPARE(runUninstaller(installation), 2);
    QVERIFY(QFileInfo::exists(victim));
    QVERIFY(!QFileInfo::exists(installation + QStringLiteral("/brisalinker.exe")));
}

void UninstallerTest::removesOnlyRegistrationsThatPointHere()
{
    QTemporaryDir temp;
    const QString installation = temp.filePath(QStringLiteral("BrisaLinker"));
    const QString other = temp.filePath(QStringLiteral("Elsewhere/BrisaLinker"));
    put(installation + QStringLiteral("/brisalinker.exe"));
    put(other + QStringLiteral("/brisalinker.exe"));
    put(installation + QStringLiteral("/uninstall.dat"), magic + "F\tbrisalinker.exe\nF\tuninstall.dat\nF\tuninstall.exe\n");

    const QString key = QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
    const QString scheme = QStringLiteral("HKEY_USERS\\%1_Classes\\brisalinker").arg(processSid());
    const QString desktop = desktopFolder();
    QVERIFY(!desktop.isEmpty());
    const QString ours = desktop + QStringLiteral("/Brisa-Linker.lnk");

    for (const bool pointsHere : { false, true }) {
        const QString location = QDir::toNativeSeparators(pointsHere ? installation : other);
        {
            QSettings entry(key, QSettings::NativeFormat);
            entry.setValue(QStringLiteral("InstallLocation"), location);
            QSettings command(scheme + QStringLiteral("\\shell\\open\\command"), QSettings::NativeFormat);
            command.setValue(QStringLiteral("Default"), QStringLiteral("\"%1\\brisalinker.exe\" \"%2\"").arg(location, QStringLiteral("%1")));
        }
        QVERIFY(createShortcut(ours, location + QStringLiteral("\\brisalinker.exe")));
        QCOMPARE(runUninstaller(installation), 0);
        QCOMPARE(QSettings(key, QSettings::NativeFormat).contains(QStringLiteral("InstallLocation")), !pointsHere);
        QCOMPARE(QSettings(scheme + QStringLiteral("\\shell\\open\\command"), QSettings::NativeFormat).contains(QStringLiteral("Default")), !pointsHere);
        QCOMPARE(QFileInfo::exists(ours), !pointsHere);
        // The next round needs the installation back, once the uninstaller's temporary copy has
        // removed its own file and the emptied directory after the silent caller returned.
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(installation), 30000);
        put(installation + QStringLiteral("/brisalinker.exe"));
        put(installation + QStringLiteral("/uninstall.dat"), magic + "F\tbrisalinker.exe\nF\tuninstall.dat\nF\tuninstall.exe\n");
    }
    QSettings(key, QSettings::NativeFormat).remove(QString());
    QSettings(scheme, QSettings::NativeFormat).remove(QString());
    QFile::remove(ours);
}

QTEST_GUILESS_MAIN(UninstallerTest)
#include "tst_uninstaller.moc"
