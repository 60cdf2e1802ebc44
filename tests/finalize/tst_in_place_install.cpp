#include "tst_finalize.h"
#include "finalize/in_place_install.h"
#include "finalize/install_actions.h"
#include "support/tree_fixture.h"
#include "support/test_links.h"
#include "support/log_capture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>

using namespace InPlaceInstall;

namespace {

QString backupOf(const TreeFixture &fixture)
{
    return fixture.base() + QStringLiteral("/BrisaLinker.backup-transaction-0123456789abcdef0123456789abcdef");
}

} // namespace


void FinalizeTest::installAndRollBack_data()
{
    QTest::addColumn<TreeFixture::Files>("installed");
    QTest::addColumn<TreeFixture::Files>("payload");
    QTest::addColumn<bool>("rootExists");
    QTest::newRow("a payload over an existing installation") << TreeFixture::installation() << TreeFixture::payload() << true;
    QTest::newRow("a payload into a directory that does not exist") << TreeFixture::Files() << TreeFixture::payload() << false;
    QTest::newRow("an empty payload changes nothing") << TreeFixture::installation() << TreeFixture::Files() << true;
    QTest::newRow("a payload of only new files in new directories")
        << TreeFixture::installation() << TreeFixture::Files { { "a/b/c/new.dll", "n" }, { "z.txt", "z" } } << true;
}

void FinalizeTest::installAndRollBack()
{
    QFETCH(TreeFixture::Files, installed);
    QFETCH(TreeFixture::Files, payload);
    QFETCH(bool, rootExists);
    TreeFixture fixture;
    QVERIFY(fixture.setUp(installed, payload));
    QCOMPARE(QFileInfo(fixture.root()).isDir(), rootExists);
    const QString backup = backupOf(fixture);

    OverlayState state;
    QVERIFY(installStagedFilesInPlace(fixture.stage(), fixture.root(), backup, &state, nullptr));
    QCOMPARE(TreeFixture::snapshot(fixture.root()), TreeFixture::expected(TreeFixture::overlaid(installed, payload)));
    QVERIFY2(QFileInfo(backup).isDir(), "the backup directory is made even for an empty payload");
    QCOMPARE(state.createdInstallRoot, !rootExists);
    QCOMPARE(state.moves.size(), payload.size());

    QVERIFY(rollbackStagedFiles(fixture.stage(), fixture.root(), backup, state));
    QCOMPARE(TreeFixture::snapshot(fixture.root()), TreeFixture::expected(installed));
    QCOMPARE(QFileInfo::exists(fixture.root()), rootExists);
    QCOMPARE(TreeFixture::snapshot(fixture.stage()), TreeFixture::expected(payload));
    // A root this run created is removed and ends the rollback; its backup sibling then stays.
    QCOMPARE(QFileInfo::exists(backup), !rootExists);
}

void FinalizeTest::failuresLeaveAnUndoableState_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<int>("movesRecorded");
    QTest::newRow("a backup slot already taken stops at that file") << "backup-taken" << 3;
    QTest::newRow("a directory where a file should be replaced") << "target-directory" << 3;
    QTest::newRow("a file where a directory must be made") << "parent-file" << 0;
    QTest::newRow("a cancel before the first file moves nothing") << "cancel" << 0;
    QTest::newRow("a link in the staged tree moves nothing") << "staged-link" << 0;
    QTest::newRow("a link where a directory must be made") << "target-link" << 3;
}

void FinalizeTest::failuresLeaveAnUndoableState()
{
    QFETCH(QString, obstacle);
    QFETCH(int, movesRecorded);
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installation(), TreeFixture::payload()));
    const QString backup = backupOf(fixture);
    std::atomic<bool> cancel { false };
    // Files go in the order 1.4.20/bl-core.exe, 1.4.20/res/Big.pak, brisalinker.exe, cfgdata/...
    if (obstacle == QLatin1String("backup-taken"))
        QVERIFY(TreeFixture::write(backup + "/cfgdata/version.ini", "not mine"));
    else if (obstacle == QLatin1String("target-directory"))
        QVERIFY(QFile::remove(fixture.root() + "/cfgdata/version.ini") && QDir().mkpath(fixture.root() + "/cfgdata/version.ini"));
    else if (obstacle == QLatin1String("parent-file"))
        QVERIFY(TreeFixture::write(fixture.root() + "/1.4.20", "a file"));
    else if (obstacle == QLatin1String("cancel"))
        cancel.store(true);
    else if (obstacle == QLatin1String("staged-link"))
        QVERIFY(TestLinks::makeDirectoryLink(fixture.root(), fixture.stage() + "/plugins/escape"));
    else if (obstacle == QLatin1String("target-link")) {
        QVERIFY(QDir().mkpath(fixture.base() + "/elsewhere"));
        QVERIFY(QDir(fixture.root()).rename("cfgdata", "cfgdata-real"));
        QVERIFY(TestLinks::makeDirectoryLink(fixture.base() + "/elsewhere", fixture.root() + "/cfgdata"));
    }
    const auto rootBefore = TreeFixture::snapshot(fixture.root());
    const auto stageBefore = TreeFixture::snapshot(fixture.stage());

    OverlayState state;
    QVERIFY(!installStagedFilesInPlace(fixture.stage(), fixture.root(), backup, &state, &cancel));
    QCOMPARE(state.moves.size(), movesRecorded);
    // Whatever is undone leaves the installation and the stage as they were, and says so.
    QVERIFY(rollbackStagedFiles(fixture.stage(), fixture.root(), backup, state));
    QCOMPARE(TreeFixture::snapshot(fixture.root()), rootBefore);
    QCOMPARE(TreeFixture::snapshot(fixture.stage()), stageBefore);
    QVERIFY(!QFileInfo::exists(fixture.base() + "/elsewhere/version.ini"));
}

void FinalizeTest::filesGoInCaseInsensitiveOrder()
{
    TreeFixture fixture;
    QVERIFY(fixture.setUp({}, { { "B.txt", "b" }, { "a.txt", "a" }, { "C/x.txt", "c" }, { "b0.txt", "b0" } }));
    OverlayState state;
    QVERIFY(installStagedFilesInPlace(fixture.stage(), fixture.root(), backupOf(fixture), &state, nullptr));
    QStringList order;
    for (const OverlayMove &move : std::as_const(state.moves))
        order.append(move.relativePath);
    QCOMPARE(order, QStringList({ "a.txt", "B.txt", "b0.txt", "C/x.txt" }));
}

void FinalizeTest::aNewFileThatCannotGoBackKeepsTheBackup()
{
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installation(), TreeFixture::payload()));
    const QString backup = backupOf(fixture);
    OverlayState state;
    QVERIFY(installStagedFilesInPlace(fixture.stage(), fixture.root(), backup, &state, nullptr));
    // Something took the new file's place in the stage: it cannot go back, so its old copy must
    // stay where it is, and so must the backup directory.
    QVERIFY(TreeFixture::write(fixture.stage() + "/updater.exe", "squatter"));
    QVERIFY(!rollbackStagedFiles(fixture.stage(), fixture.root(), backup, state));
    QCOMPARE(TreeFixture::read(backup + "/updater.exe"), QByteArray("old updater"));
    QCOMPARE(TreeFixture::read(fixture.root() + "/updater.exe"), QByteArray("new updater"));
    QCOMPARE(TreeFixture::read(fixture.root() + "/brisalinker.exe"), QByteArray("old launcher"));
}

void FinalizeTest::historicalBackups_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<bool>("removed");
    const QByteArray none;
    QTest::newRow("a numbered backup is removed") << "BrisaLinker.backup-1700000000" << none << true;
    QTest::newRow("a backup with a suffix of 12a is kept") << "BrisaLinker.backup-12a" << none << false;
    QTest::newRow("a backup with an empty suffix is kept") << "BrisaLinker.backup-" << none << false;
    QTest::newRow("the current backup is kept") << "BrisaLinker.backup-42" << none << false;
    QTest::newRow("a transaction backup with a short id is not ours") << "BrisaLinker.backup-transaction-0123" << none << false;
    QTest::newRow("a transaction backup no record names is removed") << "BrisaLinker.backup-transaction-0123456789abcdef0123456789abcdef" << none << true;
    QTest::newRow("a staging folder no record names is removed") << "BrisaLinker.installing-12-34" << none << true;
    QTest::newRow("a staging folder with a word in its suffix is kept") << "BrisaLinker.installing-12-x" << none << false;
    QTest::newRow("a staging folder a recovery record names is kept")
        << "BrisaLinker.installing-12-34" << QByteArray("{\"stage\":\"BASE/BrisaLinker.installing-12-34\"}") << false;
    QTest::newRow("an unreadable recovery record keeps every leftover of ours") << "BrisaLinker.installing-12-34" << QByteArray("{cut") << false;
    QTest::newRow("an unreadable recovery record does not keep a numbered backup") << "BrisaLinker.backup-9" << QByteArray("{cut") << true;
    QTest::newRow("another product's backup is kept") << "Other.backup-17" << none << false;
}

void FinalizeTest::historicalBackups()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, record);
    QFETCH(bool, removed);
    TreeFixture fixture;
    TreeFixture::Files installed = TreeFixture::installation();
    if (!record.isEmpty())
        installed.insert(QStringLiteral(".install-transaction.json"), record.replace("BASE", fixture.base().toUtf8()));
    QVERIFY(fixture.setUp(installed, {}));
    const QString candidate = fixture.base() + QLatin1Char('/') + name;
    QVERIFY(TreeFixture::write(candidate + "/old/file.dll", "old"));
    cleanupHistoricalBackupDirectories(fixture.root(), fixture.base() + "/BrisaLinker.backup-42");
    QCOMPARE(!QFileInfo::exists(candidate), removed);
    QCOMPARE(TreeFixture::snapshot(fixture.root()), TreeFixture::expected(installed));
}

// A user may plant a link to anything inside the folders the elevated installer removes; each
// removal takes the link away at most, and never what it points to.
void FinalizeTest::removalsNeverFollowALink_data()
{
    QTest::addColumn<QString>("where");
    QTest::addColumn<bool>("removalLogged");
    QTest::newRow("inside a numbered historical backup") << "BrisaLinker.backup-17/deep" << true;
    QTest::newRow("inside a leftover transaction backup") << "BrisaLinker.backup-transaction-fedcba9876543210fedcba9876543210" << true;
    QTest::newRow("inside a leftover staging folder") << "BrisaLinker.installing-3-4/sub" << true;
    QTest::newRow("inside this run's backup when a failed install is rolled back") << "this-backup" << true;
    QTest::newRow("inside the staging directory when it is removed") << "stage" << true;
    QTest::newRow("inside a directory the install made, during rollback") << "created" << false;
}

void FinalizeTest::removalsNeverFollowALink()
{
    QFETCH(QString, where);
    QFETCH(bool, removalLogged);
    TreeFixture fixture;
    TreeFixture::Files payload = TreeFixture::payload();
    payload.insert(QStringLiteral("fresh/new.dll"), "n");
    QVERIFY(fixture.setUp(TreeFixture::installation(), payload));
    const QString canaries = fixture.base() + QStringLiteral("/canaries");
    QVERIFY(TreeFixture::write(canaries + "/precious.txt", "keep me") && TreeFixture::write(canaries + "/sub/deeper.txt", "and me"));
    const auto canariesBefore = TreeFixture::snapshot(canaries);
    const QString backup = backupOf(fixture);
    const LogCapture log;

    QString link;
    if (where == QLatin1String("this-backup") || where == QLatin1String("created")) {
        OverlayState state;
        QVERIFY(installStagedFilesInPlace(fixture.stage(), fixture.root(), backup, &state, nullptr));
        link = (where == QLatin1String("created") ? fixture.root() + "/fresh" : backup) + "/planted";
        QVERIFY(TestLinks::makeDirectoryLink(canaries, link));
        QVERIFY(!rollbackStagedFiles(fixture.stage(), fixture.root(), backup, state) || !QFileInfo::exists(link));
    } else if (where == QLatin1String("stage")) {
        link = fixture.stage() + "/planted";
        QVERIFY(TestLinks::makeDirectoryLink(canaries, link));
        removeDirectoryTree(fixture.stage());
    } else {
        link = fixture.base() + QLatin1Char('/') + where + "/planted";
        QVERIFY(TreeFixture::write(fixture.base() + QLatin1Char('/') + where + "/own.dll", "old"));
        QVERIFY(TestLinks::makeDirectoryLink(canaries, link));
        cleanupHistoricalBackupDirectories(fixture.root(), backup);
    }
    QCOMPARE(TreeFixture::snapshot(canaries), canariesBefore);
    if (removalLogged)
        QVERIFY2(log.lines().join(QLatin1Char('\n')).contains(QStringLiteral("Removal did not follow link: ") + link), qPrintable(link));
}

#ifdef Q_OS_WIN
namespace {

// The ten runs of an installation into root, in order: program and arguments joined by "|".
QStringList tenRuns(const QString &root)
{
    const QString modules = QDir::toNativeSeparators(root + QStringLiteral("/OBS-Studio/data/obs-plugins/win-dshow/"));
    QStringList runs { "SysWOW64/regsvr32.exe|/s|/i|" + modules + "obs-virtualcam-module32.dll",
                       "System32/regsvr32.exe|/s|/i|" + modules + "obs-virtualcam-module64.dll" };
    for (const char *rule : { "brisalinker|brisalinker.exe", "BrisaLinker Updater|updater.exe" }) {
        const QString name = QString::fromLatin1(rule).section(QLatin1Char('|'), 0, 0);
        const QString program = QDir::toNativeSeparators(root + QLatin1Char('/') + QString::fromLatin1(rule).section(QLatin1Char('|'), 1));
        for (const QLatin1String protocol : { QLatin1String("TCP"), QLatin1String("UDP") }) {
            runs << "System32/netsh.exe|advfirewall|firewall|delete|rule|name=" + name + "|dir=in|program=" + program + "|protocol=" + protocol;
            runs << "System32/netsh.exe|advfirewall|firewall|add|rule|name=" + name + "|dir=in|action=allow|program=" + program
                    + "|enable=yes|profile=any|protocol=" + protocol;
        }
    }
    return runs;
}

} // namespace

void FinalizeTest::systemActions_data()
{
    QTest::addColumn<QStringList>("programs"); // present under the Windows directory, with any marker
    QTest::addColumn<int>("warnings");
    QTest::addColumn<QList<int>>("ran"); // which of the ten runs happened
    QTest::addColumn<QString>("problem"); // the line that tells the warning

    const QStringList all { "SysWOW64/regsvr32.exe", "System32/regsvr32.exe", "System32/netsh.exe" };
    const QList<int> ten { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    QTest::newRow("every program present runs ten times in order without a warning") << all << 0 << ten << QString();
    QTest::newRow("a system without SysWOW64 costs one warning and still registers the 64-bit camera")
        << all.mid(1) << 1 << ten.mid(1) << "Optional system action skipped; file is missing: %1/SysWOW64/regsvr32.exe";
    QTest::newRow("a registration that exits with an error costs one warning")
        << (all + QStringList { "System32/regsvr32.exe.fail" }) << 1 << ten
        << "Optional system action failed: Register 64-bit virtual camera; exit code=3";
    QTest::newRow("a hanging registration is killed after 30 seconds and the rest still run")
        << (all + QStringList { "SysWOW64/regsvr32.exe.hang" }) << 1 << ten
        << "Optional system action timed out after 30 seconds: Register 32-bit virtual camera";
    QTest::newRow("without the firewall program the rules are skipped with one warning")
        << all.mid(0, 2) << 1 << ten.mid(0, 2) << "Firewall program is missing; rules skipped: %1/System32/netsh.exe";
}

void FinalizeTest::systemActions()
{
    QFETCH(QStringList, programs);
    QFETCH(int, warnings);
    QFETCH(QList<int>, ran);
    QFETCH(QString, problem);

    QTemporaryDir temp;
    const QString windows = temp.filePath(QStringLiteral("Windows"));
    for (const QString &program : programs) {
        const QString path = windows + QLatin1Char('/') + program;
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        if (program.endsWith(QLatin1String(".exe")))
            QVERIFY(QFile::copy(QStringLiteral(BRISA_ARGUMENT_RECORDER), path));
        else
            QVERIFY(QFile(path).open(QIODevice::WriteOnly));
    }
    const QString record = temp.filePath(QStringLiteral("runs.txt"));
    const QByteArray realWindows = qgetenv("WINDIR");
    qputenv("WINDIR", QDir::toNativeSeparators(windows).toUtf8());
    qputenv("BRISA_RECORD_FILE", QDir::toNativeSeparators(record).toUtf8());
    const QString install = temp.filePath(QStringLiteral("Program Files/BrisaLinker"));

    const LogCapture log;
    QStringList stages;
    int counted = 0;
    QElapsedTimer clock;
    clock.start();
    runInstallActions(install, QString(), &counted, [&stages](const QString &text) { stages << text; });
    const qint64 elapsed = clock.elapsed();
    qunsetenv("BRISA_RECORD_FILE");
    qputenv("WINDIR", realWindows);

    QCOMPARE(counted, warnings);
    QCOMPARE(stages, (QStringList { "Installing 32-bit virtual camera...", "Installing 64-bit virtual camera...", "Configuring application..." }));
    QFile file(record);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QStringList actual;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString program = QDir::fromNativeSeparators(line.section(QLatin1Char('|'), 0, 0)).section(QLatin1Char('/'), -2);
        actual << program + QLatin1Char('|') + line.section(QLatin1Char('|'), 1);
    }
    QStringList expected;
    for (int run : ran)
        expected << tenRuns(install).at(run);
    QCOMPARE(actual, expected);
    if (!problem.isEmpty()) {
        const QString line = problem.contains(QLatin1String("%1")) ? problem.arg(QDir::cleanPath(windows)) : problem;
        QVERIFY2(log.lines().contains(line), qPrintable(log.lines().join(QLatin1Char('\n'))));
    }
    if (problem.contains(QLatin1String("timed out")))
        QVERIFY(elapsed >= installActionTimeoutMs);
}

void FinalizeTest::systemActionsUseTheRealWindowsDirectoryByDefault()
{
    const QByteArray windows = qgetenv("WINDIR");
    qunsetenv("WINDIR");
    QTemporaryDir temp;
    const LogCapture log;
    int warnings = 0;
    runInstallActions(temp.filePath(QStringLiteral("BrisaLinker")), QString(), &warnings, [](const QString &) {});
    qputenv("WINDIR", windows);
    const QStringList lines = log.lines();
    // Wine's own programs run; whatever they answer, none of them is missing.
    QVERIFY2(!lines.contains(QStringLiteral("Optional system action skipped; file is missing: C:/Windows/System32/regsvr32.exe")), qPrintable(lines.join('\n')));
    QVERIFY(!lines.contains(QStringLiteral("Firewall program is missing; rules skipped: C:/Windows/System32/netsh.exe")));
    QCOMPARE(lines.filter(QStringLiteral("Running optional system action: ")).size(), 10);
}
#endif

QTEST_GUILESS_MAIN(FinalizeTest)
