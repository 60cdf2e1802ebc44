#include "tst_finalize.h"
#include "finalize/installer_finalizer.h"
#include "finalize/thread_exit_order.h"
#include "support/log_capture.h"
#include "system/desktop_user.h"
#include "system/shortcuts.h"

#include <QCryptographicHash>
#include <QDate>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QSignalSpy>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <pthread.h>
#ifdef Q_OS_WIN
#include <windows.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>

namespace {

void put(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

// Relative path -> SHA-256 of every file under root.
QMap<QString, QByteArray> digests(const QString &root)
{
    QMap<QString, QByteArray> result;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            result.insert(QDir(root).relativeFilePath(path), QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
    }
    return result;
}

struct Package
{
    QStringList files;
    QStringList directories;
};

Package stage(const QString &staging, bool complete)
{
    Package package;
    const QList<QPair<QString, QByteArray>> contents {
        { "brisalinker.exe", "new launcher" }, { "updater.exe", "new updater" },
        { "1.5.0/bl-core.exe", "new core" }, { "1.5.0/data/model.bin", "weights" },
        { "helper.exe", "left out of every installation" },
    };
    for (const auto &[path, content] : contents) {
        put(staging + QLatin1Char('/') + path, content);
        if (path != QLatin1String("helper.exe"))
            package.files << path;
    }
    if (complete) {
        put(staging + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=1.5.0\n");
        package.files << QStringLiteral("cfgdata/version.ini");
        package.directories << QStringLiteral("cfgdata");
    }
    package.directories << QStringLiteral("1.5.0") << QStringLiteral("1.5.0/data");
    return package;
}

// A thread-local object that notes, as it is destroyed, whether its storage still holds what it
// wrote: storage released before the destructor runs has been reused by the heap by then.
constexpr quint64 probePattern = 0x5a5aa5a5c3c33c3cull;
std::atomic<int> probeVerdict { -1 };

struct ExitProbe
{
    std::array<quint64, 16> words;
    ExitProbe() { words.fill(probePattern); }
    ~ExitProbe()
    {
        probeVerdict.store(std::all_of(words.cbegin(), words.cend(), [](quint64 word) { return word == probePattern; }) ? 1 : 0);
    }
};

thread_local ExitProbe exitProbe;

enum class WorkerUse { ThreadLocalObject, RegularExpression };

// Whether thread-specific keys can still be made and dropped: a thread that failed in its exit
// handler leaves the runtime's key lock taken, and this then blocks for good.
bool runtimeKeysUsable()
{
    const auto done = std::make_shared<std::atomic<bool>>(false);
    QThread *helper = QThread::create([done] {
        pthread_key_t key;
        if (pthread_key_create(&key, nullptr) == 0)
            pthread_key_delete(key);
        done->store(true);
    });
    helper->start();
    if (!helper->wait(10000))
        return false; // left running: it is stuck for good
    delete helper;
    return done->load();
}

#ifdef Q_OS_WIN
// Every finalization registers the product for the prefix's user; each test leaves none behind.
void forgetRegistrations();
#endif

} // namespace

void FinalizeTest::finalizes_data()
{
    QTest::addColumn<bool>("completePackage");
    QTest::addColumn<bool>("existing");
    QTest::addColumn<bool>("cancelFirst");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<bool>("updaterHeldOpen");

    QTest::newRow("a fresh installation") << true << false << false << QString() << false;
    QTest::newRow("an update over an installation keeps the user's files") << true << true << false << QString() << false;
    QTest::newRow("a package without its version file touches nothing")
        << false << true << false
        << "The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced."
        << false;
    QTest::newRow("a cancellation before the commit leaves the old installation")
        << true << true << true << "Installation cancelled." << false;
    // The updater is the last file replaced, so every file before it has moved by then.
    QTest::newRow("a file held open by another program undoes every file moved before it")
        << true << true << false << "Unable to replace installation files." << true;
}

void FinalizeTest::finalizes()
{
    QFETCH(bool, completePackage);
    QFETCH(bool, existing);
    QFETCH(bool, cancelFirst);
    QFETCH(QString, failure);
    QFETCH(bool, updaterHeldOpen);

#ifdef Q_OS_WIN
    const auto forget = qScopeGuard(forgetRegistrations);
#endif
    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-7"));
    if (existing) {
        put(install + QStringLiteral("/updater.exe"), "old updater");
        put(install + QStringLiteral("/1.4.0/bl-core.exe"), "old core");
        put(install + QStringLiteral("/user/settings.json"), "the user's own");
    }
    const QMap<QString, QByteArray> before = digests(install);
    const Package package = stage(staging, completePackage);
#ifdef Q_OS_WIN
    // Opened without delete sharing, as a program outside our reach holds a file: it cannot be
    // moved away while the handle is open.
    struct HeldFile {
        HANDLE handle = INVALID_HANDLE_VALUE;
        ~HeldFile() { if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle); }
    } held;
    if (updaterHeldOpen) {
        const QString updater = QDir::toNativeSeparators(install + QStringLiteral("/updater.exe"));
        held.handle = CreateFileW(reinterpret_cast<const wchar_t *>(updater.utf16()), GENERIC_READ, FILE_SHARE_READ,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
        QVERIFY(held.handle != INVALID_HANDLE_VALUE);
    }
#else
    if (updaterHeldOpen)
        QSKIP("only Windows keeps a file that is held open from being moved");
#endif

    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    QSignalSpy failed(&finalizer, &InstallerFinalizer::failed);
    QSignalSpy progress(&finalizer, &InstallerFinalizer::progressChanged);
    if (cancelFirst)
        QVERIFY(finalizer.requestCancel());
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_VERIFY_WITH_TIMEOUT(completed.size() + failed.size() == 1, 60000);

    if (!failure.isEmpty()) {
        QCOMPARE(failed.first().first().toString(), failure);
        QCOMPARE(digests(install), before); // exactly the old installation
        QVERIFY(!QFileInfo::exists(install + QStringLiteral("/.install-transaction.json")));
        // Nothing of the old installation is left behind in a backup either.
        const QStringList backups = QDir(temp.filePath(QStringLiteral("Apps")))
                                        .entryList({ QStringLiteral("*.backup-*") }, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        QVERIFY2(backups.isEmpty(), qPrintable(backups.join(QLatin1Char(' '))));
        return;
    }
    QCOMPARE(completed.size(), 1);
    QCOMPARE(progress.last().first().toInt(), 100);
    const QMap<QString, QByteArray> after = digests(install);
    for (const QString &file : package.files)
        QVERIFY2(after.contains(file), qPrintable(file));
    QVERIFY(after.contains(QStringLiteral("uninstall.exe")));
    QVERIFY(after.contains(QStringLiteral("uninstall.dat")));
    QVERIFY(after.contains(QStringLiteral("obs-path-conf.json")));
    QVERIFY(!after.contains(QStringLiteral("helper.exe")));
    QCOMPARE(after.value(QStringLiteral("brisalinker.exe")), QCryptographicHash::hash("new launcher", QCryptographicHash::Sha256).toHex());
    if (existing) {
        QCOMPARE(after.value(QStringLiteral("user/settings.json")), before.value(QStringLiteral("user/settings.json")));
        QCOMPARE(after.value(QStringLiteral("1.4.0/bl-core.exe")), before.value(QStringLiteral("1.4.0/bl-core.exe")));
    }
    // The journal is retired, staging is gone and no backup directory is left beside the root.
    QVERIFY(!QFileInfo::exists(install + QStringLiteral("/.install-transaction.json")));
    QVERIFY(!QFileInfo::exists(staging));
    const QStringList siblings = QDir(temp.filePath(QStringLiteral("Apps"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(siblings, QStringList { QStringLiteral("BrisaLinker") });
}

void FinalizeTest::optionalStepFailuresStillComplete_data()
{
    QTest::addColumn<QString>("extraFile");
    QTest::addColumn<QStringList>("lines"); // in this order, each the start of a logged line; %1 the root

#ifdef Q_OS_WIN
    const QString refused = QStringLiteral("Directory permission setup failed: operation=reject_service_payload path=%1/bl-maintenance.exe windows_error=5");
    const QString granted = QStringLiteral("Product permissions configured: user_sid=S-1-5-21-");
#else
    const QString refused = QStringLiteral("Directory permission setup failed: operation=validate_root path=%1 windows_error=87");
    const QString granted = refused;
#endif
    QTest::newRow("a refused permission setup keeps the former rights and completes")
        << "bl-maintenance.exe"
        << QStringList { "Configuring product directory permissions.", refused,
                         "Product permission setup skipped; original permissions retained; installation will continue.",
                         "Installation finalized; showing Done: %1" };
    QTest::newRow("system actions without their programs complete with warnings")
        << QString()
        << QStringList { "Configuring product directory permissions.", granted, "Running virtual camera and firewall actions as administrator.",
                         "Optional system action skipped; file is missing: ", "Optional system action skipped; file is missing: ",
                         "Firewall program is missing; rules skipped: ",
                         "Optional system actions completed with 3 warning(s); continuing installation.",
                         "Installation finalized; showing Done: %1" };
    QTest::newRow("a maintenance service program that does not run is rolled back and the installation completes")
        << "WinServices/bl-maintenance.exe"
        << QStringList { "Optional maintenance setup failed; installation will continue without managed firewall rules: ",
                         "Running virtual camera and firewall actions as administrator.", "Installation finalized; showing Done: %1" };
}

void FinalizeTest::optionalStepFailuresStillComplete()
{
    QFETCH(QString, extraFile);
    QFETCH(QStringList, lines);
#ifdef Q_OS_WIN
    const auto forget = qScopeGuard(forgetRegistrations);
#endif
    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-7"));
    Package package = stage(staging, true);
    if (!extraFile.isEmpty()) {
        put(staging + QLatin1Char('/') + extraFile, "not the product's");
        package.files << extraFile;
        if (extraFile.contains(QLatin1Char('/')))
            package.directories << QFileInfo(extraFile).path();
    }
    // A Windows directory without the system programs: every action is a warning.
    const QByteArray windows = qgetenv("WINDIR");
    QVERIFY(QDir().mkpath(temp.filePath(QStringLiteral("Windows"))));
    qputenv("WINDIR", QDir::toNativeSeparators(temp.filePath(QStringLiteral("Windows"))).toUtf8());

    const LogCapture log;
    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    QSignalSpy failed(&finalizer, &InstallerFinalizer::failed);
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_VERIFY_WITH_TIMEOUT(completed.size() + failed.size() == 1, 60000);
    qputenv("WINDIR", windows);
    QCOMPARE(completed.size(), 1);

    const QStringList logged = log.lines();
    qsizetype at = 0;
    for (const QString &line : lines) {
        const QString start = line.contains(QLatin1String("%1")) ? line.arg(install) : line;
        while (at < logged.size() && !logged.at(at).startsWith(start))
            ++at;
        QVERIFY2(at < logged.size(), qPrintable(QStringLiteral("missing in order: ") + start + QLatin1Char('\n') + logged.join(QLatin1Char('\n'))));
        ++at;
    }
}

void FinalizeTest::anUpdateListsEarlierFilesAndDropsVersionsNothingUses()
{
    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-9"));
#ifdef Q_OS_WIN
    const auto forget = qScopeGuard(forgetRegistrations);
#endif
    put(install + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=1.4.0\n");
    put(install + QStringLiteral("/1.4.0/bl-core.exe"), "replaced core");
    put(install + QStringLiteral("/1.4.0/assets/big.bin"), "replaced asset");
    put(install + QStringLiteral("/1.3.0/bl-core.exe"), "stale core");
    put(install + QStringLiteral("/notes.txt"), "the user's own");
    put(install + QStringLiteral("/uninstall.dat"), "BRISALINKER_UNINSTALL_V1\nF\t1.4.0/assets/big.bin\nF\t1.4.0/bl-core.exe\n"
                                                  "F\t1.4.0/gone.dll\nD\t1.4.0/assets\nD\t1.4.0\n");
    const Package package = stage(staging, true);

    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_COMPARE_WITH_TIMEOUT(completed.size(), 1, 60000);

    // The replaced version stays for this run, an older one nothing runs goes, the user's file stays.
    QVERIFY(QFileInfo::exists(install + QStringLiteral("/1.4.0/bl-core.exe")));
    QVERIFY(!QFileInfo::exists(install + QStringLiteral("/1.3.0")));
    QVERIFY(QFileInfo::exists(install + QStringLiteral("/notes.txt")));
    QFile list(install + QStringLiteral("/uninstall.dat"));
    QVERIFY(list.open(QIODevice::ReadOnly));
    const QByteArray lines = list.readAll();
    for (const QByteArray &line : { "F\t1.4.0/assets/big.bin\n", "F\t1.4.0/bl-core.exe\n", "D\t1.4.0/assets\n", "D\t1.4.0\n",
                                    "F\t1.5.0/bl-core.exe\n" })
        QVERIFY2(lines.contains(line), line.constData());
    QVERIFY(!lines.contains("gone.dll"));
    QVERIFY(!lines.contains("notes.txt"));
}

void FinalizeTest::cancelAndCommitExcludeEachOther()
{
    InstallerFinalizer finalizer;
    QVERIFY(finalizer.beginCommitPhase());
    QVERIFY(!finalizer.requestCancel()); // too late once the commit phase began
    finalizer.resetCancellation();
    QVERIFY(finalizer.requestCancel());
    QVERIFY(!finalizer.beginCommitPhase()); // a cancellation that came first wins
}

#ifdef Q_OS_WIN
namespace {

std::wstring userKey(const wchar_t *subkey)
{
    return DesktopUser::sid().toStdWString() + subkey;
}
const wchar_t entryKey[] = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker";
const wchar_t schemeKey[] = L"_Classes\\brisalinker";

// Every value of the entry as "name type bytes", in the registry's order.
QStringList entryValues()
{
    QStringList values;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_USERS, userKey(entryKey).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return values;
    wchar_t name[256];
    BYTE data[2048];
    for (DWORD i = 0;; ++i) {
        DWORD nameSize = 256, dataSize = sizeof(data), type = 0;
        if (RegEnumValueW(key, i, name, &nameSize, nullptr, &type, data, &dataSize) != ERROR_SUCCESS)
            break;
        const QByteArray bytes(reinterpret_cast<char *>(data), dataSize);
        values << QStringLiteral("%1 %2 %3").arg(QString::fromWCharArray(name, nameSize)).arg(type)
                      .arg(type == REG_SZ ? QString::fromWCharArray(reinterpret_cast<wchar_t *>(data)) : QString::fromLatin1(bytes.toHex()));
    }
    RegCloseKey(key);
    return values;
}

void setValue(const wchar_t *name, DWORD type, const QByteArray &bytes)
{
    RegSetKeyValueW(HKEY_USERS, userKey(entryKey).c_str(), name, type, bytes.constData(), DWORD(bytes.size()));
}

QByteArray wide(const QString &text)
{
    return QByteArray(reinterpret_cast<const char *>(text.utf16()), (text.size() + 1) * 2);
}

QString shortcut(Shortcuts::Folder folder)
{
    return Shortcuts::shortcutFilePath(folder, QStringLiteral("Brisa-Linker.lnk"));
}

bool shortcutExists(Shortcuts::Folder folder)
{
    Shortcuts::ShortcutSnapshot snapshot;
    return Shortcuts::captureShortcutFile(shortcut(folder), &snapshot) && snapshot.existed;
}

void forgetRegistrations()
{
    RegDeleteTreeW(HKEY_USERS, userKey(entryKey).c_str());
    RegDeleteKeyW(HKEY_USERS, userKey(entryKey).c_str());
    RegDeleteTreeW(HKEY_USERS, userKey(schemeKey).c_str());
    RegDeleteKeyW(HKEY_USERS, userKey(schemeKey).c_str());
    Shortcuts::removeShortcutFile(shortcut(Shortcuts::Folder::Desktop));
    Shortcuts::removeShortcutFile(shortcut(Shortcuts::Folder::Programs));
}

} // namespace

void FinalizeTest::registrationsReplaceAnOlderInstallersOrComeBack_data()
{
    QTest::addColumn<QString>("cancelAt");
    QTest::addColumn<bool>("entryElsewhere");
    QTest::newRow("an installation replaces an older installer's entry and registers itself") << QString() << false;
    QTest::newRow("a cancel after the registrations puts every former value back with its type")
        << "Finishing installation..." << false;
    // Before the entry is written it still names the other installation: that is the state to
    // keep, not another installation's takeover that would block the recovery.
    QTest::newRow("a cancel before the entry is written recovers although it names another installation")
        << "Creating shortcuts..." << true;
}

void FinalizeTest::registrationsReplaceAnOlderInstallersOrComeBack()
{
    QFETCH(QString, cancelAt);
    QFETCH(bool, entryElsewhere);
    forgetRegistrations();
    const auto forget = qScopeGuard(forgetRegistrations);
    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-8"));
    put(install + QStringLiteral("/updater.exe"), "old updater");
    const Package package = stage(staging, true);
    const QString location = entryElsewhere ? QStringLiteral("D:\\Elsewhere\\BrisaLinker") : QDir::toNativeSeparators(install);

    // What an older installer left: its own extras, in types a plain text rewrite would lose.
    setValue(L"DisplayName", REG_SZ, wide(QStringLiteral("Brisa-Linker 1.4")));
    setValue(L"InstallLocation", REG_SZ, wide(location));
    setValue(L"QuietUninstallString", REG_SZ, wide(QStringLiteral("\"C:\\old\\unins000.exe\" /SILENT")));
    const DWORD one = 1;
    setValue(L"WindowsInstaller", REG_DWORD, QByteArray(reinterpret_cast<const char *>(&one), 4));
    setValue(L"DisplayIcon", REG_EXPAND_SZ, wide(QStringLiteral("%ProgramFiles%\\old.ico")));
    setValue(L"EstimatedSize", REG_DWORD, QByteArray("\x00\x10\x00\x00", 4));
    setValue(L"Inno Setup: Blob", REG_BINARY, QByteArray("\x01\x02\xff", 3));
    const QStringList former = entryValues();

    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    QSignalSpy failed(&finalizer, &InstallerFinalizer::failed);
    connect(&finalizer, &InstallerFinalizer::stageChanged, &finalizer, [&](const QString &stageText) {
        if (stageText == cancelAt)
            finalizer.requestCancel();
    }, Qt::DirectConnection);
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_VERIFY_WITH_TIMEOUT(completed.size() + failed.size() == 1, 60000);

    if (!cancelAt.isEmpty()) {
        QCOMPARE(failed.first().first().toString(), QStringLiteral("Installation cancelled."));
        QCOMPARE(entryValues(), former);
        QVERIFY(!shortcutExists(Shortcuts::Folder::Desktop));
        QVERIFY(!shortcutExists(Shortcuts::Folder::Programs));
        HKEY scheme = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_USERS, userKey(schemeKey).c_str(), 0, KEY_READ, &scheme), LONG(ERROR_FILE_NOT_FOUND));
        QVERIFY(!QFileInfo::exists(install + QStringLiteral("/.install-transaction.json")));
        return;
    }
    QCOMPARE(completed.size(), 1);
    const QString root = QDir::toNativeSeparators(install);
    const QStringList entry = entryValues();
    for (const QString &value : { QStringLiteral("DisplayName 1 Brisa-Linker"), QStringLiteral("DisplayVersion 1 1.5.0"),
                                  QStringLiteral("Publisher 1 ORLANDA FIELDWORKS INC"), QStringLiteral("InstallLocation 1 ") + root,
                                  QStringLiteral("DisplayIcon 1 ") + root + QStringLiteral("\\brisalinker.exe"),
                                  QStringLiteral("UninstallString 1 \"") + root + QStringLiteral("\\uninstall.exe\""),
                                  QStringLiteral("NoModify 4 01000000"), QStringLiteral("NoRepair 4 01000000"),
                                  QStringLiteral("InstallDate 1 ") + QDate::currentDate().toString(QStringLiteral("yyyyMMdd")) })
        QVERIFY2(entry.contains(value), qPrintable(value + QStringLiteral(" in ") + entry.join(QStringLiteral(" | "))));
    QVERIFY(entry.filter(QRegularExpression(QStringLiteral("^(QuietUninstallString|WindowsInstaller) "))).isEmpty());
    QVERIFY(shortcutExists(Shortcuts::Folder::Desktop));
    QVERIFY(shortcutExists(Shortcuts::Folder::Programs));
    wchar_t command[512] = {};
    DWORD size = sizeof(command);
    QCOMPARE(RegGetValueW(HKEY_USERS, userKey(L"_Classes\\brisalinker\\shell\\open\\command").c_str(), nullptr, RRF_RT_REG_SZ,
                          nullptr, command, &size), LONG(ERROR_SUCCESS));
    QCOMPARE(QString::fromWCharArray(command), QStringLiteral("\"") + root + QStringLiteral("\\brisalinker.exe\" \"%1\""));
}
#endif

void FinalizeTest::stopsBeforeTheCommit_data()
{
    QTest::addColumn<int>("at");
    QTest::addColumn<bool>("commitBlocked");
    QTest::addColumn<QString>("failure");

    QTest::newRow("a cancellation as the shortcuts begin runs no later step") << 25 << false << "Installation cancelled.";
    QTest::newRow("a cancellation as the application is registered runs no later step") << 75 << false << "Installation cancelled.";
    QTest::newRow("a cancellation as the installation finishes runs no later step") << 85 << false << "Installation cancelled.";
    // The next start would roll a record that still says "preparing" back; it happens at once.
    QTest::newRow("a recovery record that cannot be committed is undone now, not shown as done")
        << 95 << true << "Unable to prepare installation recovery.\nUnable to persist the installation recovery record: ";
}

void FinalizeTest::stopsBeforeTheCommit()
{
    QFETCH(int, at);
    QFETCH(bool, commitBlocked);
    QFETCH(QString, failure);
    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-7"));
    put(install + QStringLiteral("/updater.exe"), "old updater");
    put(install + QStringLiteral("/1.4.0/bl-core.exe"), "old core");
    const QMap<QString, QByteArray> before = digests(install);
    const Package package = stage(staging, true);
    const QString record = install + QStringLiteral("/.install-transaction.json");

    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    QSignalSpy failed(&finalizer, &InstallerFinalizer::failed);
    QList<int> progress;
    // On the worker, between its steps.
    connect(&finalizer, &InstallerFinalizer::progressChanged, &finalizer, [&](int percent) {
        progress << percent;
        if (percent != at)
            return;
        if (!commitBlocked) {
            finalizer.requestCancel();
        } else {
            QFile::remove(record);
            QDir().mkpath(record); // nothing can be saved over a directory
        }
    }, Qt::DirectConnection);
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_VERIFY_WITH_TIMEOUT(completed.size() + failed.size() == 1, 60000);

    QCOMPARE(completed.size(), 0);
    QVERIFY2(failed.first().first().toString().startsWith(failure), qPrintable(failed.first().first().toString()));
    QCOMPARE(progress.last(), at);
    QMap<QString, QByteArray> after = digests(install);
    // The rights step just before the commit makes the product's empty lock file; undoing the
    // record now, like a recovery at the next start, leaves it.
    if (commitBlocked)
        after.remove(QStringLiteral(".brisalinker.lock"));
    QCOMPARE(after, before);
    if (!commitBlocked)
        QVERIFY(!QFileInfo::exists(record));
}

void FinalizeTest::workerThreadsEndCleanly_data()
{
    QTest::addColumn<int>("use");
    QTest::newRow("a thread-local object is destroyed before its storage is released") << int(WorkerUse::ThreadLocalObject);
    QTest::newRow("a regular expression matched on a worker leaves the runtime usable") << int(WorkerUse::RegularExpression);
}

void FinalizeTest::workerThreadsEndCleanly()
{
    QFETCH(int, use);
    QVERIFY(ThreadExitOrder::arranged());
    probeVerdict.store(-1);
    std::atomic<bool> matched { false };
    QThread *worker = QThread::create([use, &matched] {
        if (WorkerUse(use) == WorkerUse::ThreadLocalObject) {
            exitProbe.words[0] = probePattern;
            return;
        }
        // Qt keeps its pattern-matching stack in a thread-local object.
        const QRegularExpression id(QStringLiteral("^[0-9a-f]{32}$"));
        matched.store(id.match(QStringLiteral("0123456789abcdef0123456789abcdef")).hasMatch());
    });
    worker->start();
    QVERIFY(worker->wait(30000));
    delete worker;
    // Under POSIX a joined thread may still be running its thread-local destructors.
    if (WorkerUse(use) == WorkerUse::ThreadLocalObject)
        QTRY_COMPARE_WITH_TIMEOUT(probeVerdict.load(), 1, 10000);
    else
        QVERIFY(matched.load());
    QVERIFY2(runtimeKeysUsable(), "a thread-specific key could not be made after the worker ended");
}
