#include "tst_finalize.h"
#include "finalize/installer_finalizer.h"
#include "finalize/thread_exit_order.h"
#include "support/log_capture.h"
#include "support/test_registrations.h"
#include "support/tree_fixture.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
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

// A finalization of the fixture's payload (and anything added to its stage) over its root.
struct Finalization
{
    InstallerFinalizer finalizer;
    QSignalSpy completed { &finalizer, &InstallerFinalizer::completed };
    QSignalSpy failed { &finalizer, &InstallerFinalizer::failed };
    QList<int> progress;

    bool run(const TreeFixture &fixture, const TreeFixture::Files &payload)
    {
        QStringList directories;
        for (const QString &entry : TreeFixture::expected(payload).keys()) {
            if (entry.endsWith(QLatin1Char('/')))
                directories << entry.chopped(1);
        }
        finalizer.finalize(fixture.stage(), fixture.root(), QStringLiteral("1.5.0"), payload.keys(), directories, QString());
        return QTest::qWaitFor([this] { return completed.size() + failed.size() == 1; }, 60000);
    }
    QString failure() const { return failed.isEmpty() ? QString() : failed.first().first().toString(); }
};

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

} // namespace

void FinalizeTest::finalizes_data()
{
    QTest::addColumn<bool>("existing");
    QTest::addColumn<bool>("completePackage");
    QTest::addColumn<int>("cancelAt"); // the progress at which the user cancels; 0 before the start, -1 never
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("failure"); // the start of the message; empty for a success

    const QString cancelled = QStringLiteral("Installation cancelled.");
    QTest::newRow("a fresh installation") << false << true << -1 << QString() << QString();
    QTest::newRow("an update over an installation keeps the user's files") << true << true << -1 << QString() << QString();
    QTest::newRow("a package without its version file touches nothing")
        << true << false << -1 << QString()
        << "The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.";
    QTest::newRow("a cancellation before the start leaves the old installation") << true << true << 0 << QString() << cancelled;
    QTest::newRow("a cancellation as the shortcuts begin runs no later step") << true << true << 25 << QString() << cancelled;
    QTest::newRow("a cancellation as the application is registered runs no later step") << true << true << 75 << QString() << cancelled;
    QTest::newRow("a cancellation as the installation finishes runs no later step") << true << true << 85 << QString() << cancelled;
    // The updater is replaced after the launcher and the core, so they have moved by then.
    QTest::newRow("a file held open by another program undoes every file moved before it")
        << true << true << -1 << "updater held open" << "Unable to replace installation files.";
    // The next start would roll a record that still says "preparing" back; it happens at once.
    QTest::newRow("a recovery record that cannot be committed is undone now, not shown as done")
        << true << true << 95 << "record blocked" << "Unable to prepare installation recovery.\nUnable to persist the installation recovery record: ";
}

void FinalizeTest::finalizes()
{
    QFETCH(bool, existing);
    QFETCH(bool, completePackage);
    QFETCH(int, cancelAt);
    QFETCH(QString, obstacle);
    QFETCH(QString, failure);
    const auto forget = qScopeGuard(TestRegistrations::forget);
    TreeFixture fixture;
    TreeFixture::Files installed;
    if (existing) {
        installed = TreeFixture::installationWithoutLauncher();
        installed.insert(QStringLiteral("user/settings.json"), "the user's own");
    }
    TreeFixture::Files payload = TreeFixture::payload();
    if (!completePackage)
        payload.remove(QStringLiteral("cfgdata/version.ini"));
    QVERIFY(fixture.setUp(installed, payload));
    QVERIFY(TreeFixture::write(fixture.stage() + QStringLiteral("/helper.exe"), "left out of every installation"));
    const auto before = TreeFixture::snapshot(fixture.root());
    const QString record = fixture.root() + QStringLiteral("/.install-transaction.json");
#ifdef Q_OS_WIN
    // Opened without delete sharing, as a program outside our reach holds a file.
    const QString updater = QDir::toNativeSeparators(fixture.root() + QStringLiteral("/updater.exe"));
    const HANDLE held = obstacle == QLatin1String("updater held open")
        ? CreateFileW(reinterpret_cast<const wchar_t *>(updater.utf16()), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr)
        : INVALID_HANDLE_VALUE;
    const auto release = qScopeGuard([held] { if (held != INVALID_HANDLE_VALUE) CloseHandle(held); });
#else
    if (obstacle == QLatin1String("updater held open"))
        QSKIP("only Windows keeps a file that is held open from being moved");
#endif

    Finalization run;
    if (cancelAt == 0)
        QVERIFY(run.finalizer.requestCancel());
    // On the worker, between its steps.
    connect(&run.finalizer, &InstallerFinalizer::progressChanged, &run.finalizer, [&](int percent) {
        run.progress << percent;
        if (percent == cancelAt && obstacle.isEmpty())
            run.finalizer.requestCancel();
        if (percent == cancelAt && obstacle == QLatin1String("record blocked"))
            QVERIFY(QFile::remove(record) && QDir().mkpath(record)); // nothing can be saved over a directory
    }, Qt::DirectConnection);
    QVERIFY(run.run(fixture, payload));

    auto after = TreeFixture::snapshot(fixture.root());
    if (!failure.isEmpty()) {
        QVERIFY2(run.failure().startsWith(failure), qPrintable(run.failure()));
        if (cancelAt > 0)
            QCOMPARE(run.progress.last(), cancelAt);
        // The rights step just before the commit makes the product's lock file and empty
        // folders; undoing the record now, as a recovery at the next start would, leaves them.
        if (obstacle == QLatin1String("record blocked")) {
            after.remove(QStringLiteral(".brisalinker.lock"));
            for (const QString &entry : after.keys()) {
                if (entry.endsWith(QLatin1Char('/')) && !before.contains(entry))
                    after.remove(entry);
            }
        } else {
            QVERIFY(!QFileInfo::exists(record));
        }
        QCOMPARE(after, before);
        // A failure before any file moved leaves no backup of the old installation either.
        if (cancelAt <= 0)
            QCOMPARE(QDir(fixture.base()).entryList({ QStringLiteral("*.backup-*") }, QDir::AllEntries | QDir::Hidden), QStringList());
        return;
    }
    QCOMPARE(run.completed.size(), 1);
    QCOMPARE(run.progress.last(), 100);
    // Every new file and every old one the package does not name, the user's included.
    const auto expected = TreeFixture::expected(TreeFixture::overlaid(installed, payload));
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QVERIFY2(after.value(it.key()) == it.value(), qPrintable(it.key()));
    for (const char *added : { "uninstall.exe", "uninstall.dat", "obs-path-conf.json" })
        QVERIFY2(after.contains(QLatin1String(added)), added);
    QVERIFY(!after.contains(QStringLiteral("helper.exe")));
    // The record is retired, the stage is gone and no backup is left beside the root.
    QVERIFY(!QFileInfo::exists(record));
    QCOMPARE(QDir(fixture.base()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList { QStringLiteral("BrisaLinker") });
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
    const auto forget = qScopeGuard(TestRegistrations::forget);
    TreeFixture fixture;
    TreeFixture::Files payload = TreeFixture::payload();
    if (!extraFile.isEmpty())
        payload.insert(extraFile, "not the product's");
    QVERIFY(fixture.setUp({}, payload));
    // A Windows directory without the system programs: every action is a warning.
    const QByteArray windows = qgetenv("WINDIR");
    qputenv("WINDIR", QDir::toNativeSeparators(fixture.base()).toUtf8());
    const LogCapture log;
    Finalization run;
    QVERIFY(run.run(fixture, payload));
    qputenv("WINDIR", windows);
    QCOMPARE(run.completed.size(), 1);

    const QStringList logged = log.lines();
    qsizetype at = 0;
    for (const QString &line : lines) {
        const QString start = line.contains(QLatin1String("%1")) ? line.arg(fixture.root()) : line;
        while (at < logged.size() && !logged.at(at).startsWith(start))
            ++at;
        QVERIFY2(at < logged.size(), qPrintable(QStringLiteral("missing in order: ") + start + QLatin1Char('\n') + logged.join(QLatin1Char('\n'))));
        ++at;
    }
}

void FinalizeTest::anUpdateListsEarlierFilesAndDropsVersionsNothingUses()
{
    const auto forget = qScopeGuard(TestRegistrations::forget);
    TreeFixture fixture;
    QVERIFY(fixture.setUp({ { "cfgdata/version.ini", "[release]\nversion=1.4.0\n" }, { "1.4.0/bl-core.exe", "replaced core" },
                            { "1.4.0/assets/big.bin", "replaced asset" }, { "1.3.0/bl-core.exe", "stale core" },
                            { "notes.txt", "the user's own" },
                            { "uninstall.dat", "BRISALINKER_UNINSTALL_V1\nF\t1.4.0/assets/big.bin\nF\t1.4.0/bl-core.exe\n"
                                               "F\t1.4.0/gone.dll\nD\t1.4.0/assets\nD\t1.4.0\n" } },
                          TreeFixture::payload()));
    Finalization run;
    QVERIFY(run.run(fixture, TreeFixture::payload()));
    QCOMPARE(run.completed.size(), 1);

    // The replaced version stays for this run, an older one nothing runs goes, the user's file stays.
    QVERIFY(QFileInfo::exists(fixture.root() + QStringLiteral("/1.4.0/bl-core.exe")));
    QVERIFY(!QFileInfo::exists(fixture.root() + QStringLiteral("/1.3.0")));
    QVERIFY(QFileInfo::exists(fixture.root() + QStringLiteral("/notes.txt")));
    const QByteArray lines = TreeFixture::read(fixture.root() + QStringLiteral("/uninstall.dat"));
    for (const char *line : { "F\t1.4.0/assets/big.bin\n", "F\t1.4.0/bl-core.exe\n", "D\t1.4.0/assets\n", "D\t1.4.0\n",
                                    "F\t1.4.20/bl-core.exe\n" })
        QVERIFY2(lines.contains(line), line);
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
void FinalizeTest::registrationsReplaceAnOlderInstallersOrComeBack_data()
{
    QTest::addColumn<bool>("entryElsewhere");
    QTest::newRow("an installation replaces an older installer's entry and registers itself") << false;
    // Before the entry is written it still names the other installation: that is the state to
    // keep, not another installation's takeover that would block the recovery.
    QTest::newRow("a cancel before the entry is written recovers although it names another installation") << true;
}

void FinalizeTest::registrationsReplaceAnOlderInstallersOrComeBack()
{
    QFETCH(bool, entryElsewhere);
    const auto forget = qScopeGuard(TestRegistrations::forget);
    TestRegistrations::forget();
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installationWithoutLauncher(), TreeFixture::payload()));
    QVERIFY(TestRegistrations::plantOlderInstaller(fixture.root(), entryElsewhere ? QStringLiteral("D:\\Elsewhere\\BrisaLinker") : QString()));
    const QMap<QString, QByteArray> former = TestRegistrations::snapshot();

    Finalization run;
    connect(&run.finalizer, &InstallerFinalizer::stageChanged, &run.finalizer, [&](const QString &stage) {
        if (entryElsewhere && stage == QLatin1String("Creating shortcuts..."))
            run.finalizer.requestCancel();
    }, Qt::DirectConnection);
    QVERIFY(run.run(fixture, TreeFixture::payload()));
    if (entryElsewhere) {
        QCOMPARE(run.failure(), QStringLiteral("Installation cancelled."));
        QCOMPARE(TestRegistrations::snapshot(), former);
        QVERIFY(!QFileInfo::exists(fixture.root() + QStringLiteral("/.install-transaction.json")));
        return;
    }
    QCOMPARE(run.completed.size(), 1);
    const QString root = QDir::toNativeSeparators(fixture.root());
    const auto text = [](const QString &value) { return "1:" + QByteArray(reinterpret_cast<const char *>(value.utf16()), (value.size() + 1) * 2).toHex(); };
    const QMap<QString, QByteArray> expected {
        { "DisplayName", text("Brisa-Linker") }, { "DisplayVersion", text("1.5.0") }, { "Publisher", text("ORLANDA FIELDWORKS INC") },
        { "InstallLocation", text(root) }, { "DisplayIcon", text(root + "\\brisalinker.exe") },
        { "UninstallString", text('"' + root + "\\uninstall.exe\"") }, { "NoModify", "4:01000000" }, { "NoRepair", "4:01000000" },
        { "InstallDate", text(QDate::currentDate().toString(QStringLiteral("yyyyMMdd"))) }, { "Inno Setup: Blob", "3:0102ff" },
    };
    QMap<QString, QByteArray> entry;
    const QMap<QString, QByteArray> now = TestRegistrations::snapshot();
    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        if (it.key().startsWith(QLatin1String("Uninstall\\BrisaLinker|")) && !it.key().endsWith(QLatin1String("|(key)")))
            entry.insert(it.key().mid(22), it.value());
    }
    QCOMPARE(entry, expected); // "QuietUninstallString" and "WindowsInstaller" are gone
    QCOMPARE(now.value(QStringLiteral("brisalinker\\shell\\open\\command|")), text('"' + root + "\\brisalinker.exe\" \"%1\""));
    for (const QString &shortcut : now.keys().filter(QStringLiteral("target:")))
        QVERIFY2(shortcut.contains(QLatin1String("Uninstall")) || now.value(shortcut) == (root + "\\brisalinker.exe").toUtf8(), qPrintable(shortcut));
    QCOMPARE(now.keys().filter(QStringLiteral("target:")).size(), 2); // the old uninstall shortcut is retired
}
#endif

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
