#include "browser/browser_cache_reset.h"
#include "finalize/thread_exit_order.h"
#include "system/file_links.h"
#include "support/test_links.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace BrowserCacheReset;

namespace {

const QStringList caches { "Code Cache", "Service Worker/Database", "Service Worker/ScriptCache" };
const QRegularExpression backupName(QStringLiteral("^\\.bl-installer-cache-[0-9a-f]{32}-[0-2]$"));

void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Profiles "Profile 0" ... of which the first holds every cache, each with a marker file.
void makeUserData(const QString &root, int profiles)
{
    QJsonObject info;
    for (int index = 0; index < profiles; ++index) {
        write(root + QStringLiteral("/Profile %1/Preferences").arg(index), "{}");
        info.insert(QStringLiteral("Profile %1").arg(index), QJsonObject());
    }
    for (const QString &cache : caches)
        write(root + QStringLiteral("/Profile 0/") + cache + QStringLiteral("/marker"), "old worker");
    write(root + QStringLiteral("/Local State"), QJsonDocument(QJsonObject { { "profile", QJsonObject { { "info_cache", info } } } }).toJson());
}

bool cachesIntact(const QString &root)
{
    return std::all_of(caches.cbegin(), caches.cend(), [&](const QString &cache) {
        return read(root + QStringLiteral("/Profile 0/") + cache + QStringLiteral("/marker")) == "old worker";
    });
}

QString journalPath(const QString &root, const QString &version = QStringLiteral("1.4.20"))
{
    return root + QStringLiteral("/.bl-installer-migrations/worker-cache-reset-") + version + QStringLiteral(".json");
}

QJsonObject journal(const QString &root, const QString &version = QStringLiteral("1.4.20"))
{
    return QJsonDocument::fromJson(read(journalPath(root, version))).object();
}

// Real renames, recorded by the name they move; call number failAt fails, with failLater every
// later one too.
struct Renames
{
    int failAt = 0;
    bool failLater = false;
    QStringList moved;

    RenameOperation operation()
    {
        return [this](const QString &from, const QString &to) {
            moved.append(QFileInfo(from).fileName());
            const int call = int(moved.size());
            return !(failAt && (call == failAt || (failLater && call > failAt))) && renameDirectory(from, to);
        };
    }
};

bool idle(const QString &)
{
    return true;
}

} // namespace

class BrowserTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void reset_data();
    void reset();
    void rollback_data();
    void rollback();
    void earlierJournal_data();
    void earlierJournal();
    void profiles_data();
    void profiles();
#ifdef Q_OS_WIN
    void runningBrowser_data();
    void runningBrowser();
    void forDesktopUserRemovesTheBackups();
#endif
};

void BrowserTest::initTestCase()
{
    // The backups are removed on a thread of their own, which must end cleanly, as in the
    // installer, even while the process exits.
    QVERIFY(ThreadExitOrder::arranged());
}

void BrowserTest::reset_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<int>("profiles");
    QTest::addColumn<QString>("root"); // "plain", "missing" or "linked"
    QTest::addColumn<int>("idleAfterMs"); // negative: the browser is busy
    QTest::addColumn<bool>("skipped");
    QTest::addColumn<QString>("detail");
    QTest::newRow("version 1.2 is invalid") << "1.2" << 1 << "plain" << 0 << false << "invalid migration version";
    QTest::newRow("version 1.2.3 resets every cache") << "1.2.3" << 1 << "plain" << 0 << false << "reset 3 cache directories across 1 profiles";
    QTest::newRow("version 1.2.3.4 resets every cache") << "1.2.3.4" << 1 << "plain" << 0 << false << "reset 3 cache directories across 1 profiles";
    QTest::newRow("1024 profiles are processed") << "1.4.20" << 1024 << "plain" << 0 << false << "reset 3 cache directories across 1024 profiles";
    QTest::newRow("1025 profiles are skipped") << "1.4.20" << 1025 << "plain" << 0 << true << "too many profiles; skipped";
    QTest::newRow("a busy browser skips") << "1.4.20" << 1 << "plain" << -1 << true << "browser busy or process identity unavailable; skipped";
    QTest::newRow("no profile skips") << "1.4.20" << 0 << "plain" << 0 << true << "no existing browser profile";
    QTest::newRow("a missing user data directory skips") << "1.4.20" << 1 << "missing" << 0 << true << "profile root unavailable or contains directory links";
    QTest::newRow("a directory link among the ancestors skips") << "1.4.20" << 1 << "linked" << 0 << true << "profile root unavailable or contains directory links";
    QTest::newRow("a preparation over its budget skips") << "1.4.20" << 1 << "plain" << 2100 << true << "cache preparation budget exceeded; skipped";
}

void BrowserTest::reset()
{
    QFETCH(QString, version);
    QFETCH(int, profiles);
    QFETCH(QString, root);
    QFETCH(int, idleAfterMs);
    QFETCH(bool, skipped);
    QFETCH(QString, detail);
#ifdef Q_OS_WIN
    // Under Wine a link made at test time outlives its directory; the harness's "dir-link" leads to "real".
    QTemporaryDir temp(root == "linked" ? QStringLiteral("C:/brisa-link-fixture/real/browser-XXXXXX") : QString());
    const QString link = QString(temp.path()).replace(QStringLiteral("/real/"), QStringLiteral("/dir-link/"));
#else
    QTemporaryDir temp;
    const QString link = temp.filePath(QStringLiteral("link"));
    QVERIFY(root != "linked" || TestLinks::makeDirectoryLink(temp.path(), link));
#endif
    const QString data = temp.filePath(QStringLiteral("User Data"));
    makeUserData(data, profiles);
    const QString used = root == "plain" ? data : root == "missing" ? temp.filePath(QStringLiteral("Other")) : link + QStringLiteral("/User Data");
    QVERIFY(root != "linked" || QFileInfo(used).isDir());

    Renames renames;
    const Result result = BrowserCacheReset::reset(used, version, [&](const QString &) {
        QThread::msleep(qMax(idleAfterMs, 0));
        return idleAfterMs >= 0;
    }, renames.operation());
    QCOMPARE(result.detail, detail);
    QCOMPARE(result.skipped, skipped);
    QCOMPARE(result.success, detail.startsWith("reset "));
    if (!result.success) {
        QVERIFY(renames.moved.isEmpty());
        QVERIFY(profiles == 0 || cachesIntact(data));
        return;
    }
    QCOMPARE(journal(data, version).value("state").toString(), QStringLiteral("complete"));
    QCOMPARE(result.backups.size(), 3);
    for (const QString &backup : result.backups) {
        QVERIFY(backupName.match(QFileInfo(backup).fileName()).hasMatch());
        QCOMPARE(read(backup + QStringLiteral("/marker")), QByteArray("old worker"));
    }
}

void BrowserTest::rollback_data()
{
    QTest::addColumn<int>("failAt");
    QTest::addColumn<bool>("undoFails");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QStringList>("moved"); // "backup N": the backup of cache N
    QTest::newRow("a rename failing half-way restores the earlier renames in reverse")
        << 3 << false << "cache busy; restored previous directories"
        << QStringList { "Code Cache", "Database", "ScriptCache", "backup 1", "backup 0" };
    QTest::newRow("a failing undo keeps the journal and backups")
        << 2 << true << "cache rollback incomplete; backups retained for retry" << QStringList { "Code Cache", "Database", "backup 0" };
}

void BrowserTest::rollback()
{
    QFETCH(int, failAt);
    QFETCH(bool, undoFails);
    QFETCH(QString, detail);
    QFETCH(QStringList, moved);
    QTemporaryDir temp;
    const QString data = temp.filePath(QStringLiteral("User Data"));
    makeUserData(data, 2);
    Renames renames { failAt, undoFails, {} };
    const Result result = BrowserCacheReset::reset(data, "1.4.20", idle, renames.operation());
    QCOMPARE(result.detail, detail);
    QCOMPARE(result.skipped, !undoFails);
    QCOMPARE(renames.moved.size(), moved.size());
    for (int index = 0; index < moved.size(); ++index) {
        const QString name = renames.moved.at(index);
        QVERIFY2(moved.at(index).startsWith("backup ") ? backupName.match(name).hasMatch() && name.right(1) == moved.at(index).right(1)
                                                       : name == moved.at(index), qPrintable(name));
    }
    QCOMPARE(cachesIntact(data), !undoFails);
    QCOMPARE(journal(data).value("state").toString(), undoFails ? QStringLiteral("prepared") : QString());
    QCOMPARE(QDir(data + QStringLiteral("/Profile 0")).entryList({ ".bl-installer-cache-*" }, QDir::Dirs | QDir::Hidden).size(), undoFails ? 1 : 0);
}

void BrowserTest::earlierJournal_data()
{
    QTest::addColumn<QString>("earlier"); // "complete", or what a crashed run left as its record
    QTest::addColumn<QString>("detail");
    QTest::newRow("a completed reset is skipped the second time") << "complete" << "already completed for this version";
    QTest::newRow("a prepared record from a crash is undone first") << "prepared" << "reset 3 cache directories across 1 profiles";
    QTest::newRow("an unknown state leaves everything untouched") << "rolling" << "unknown migration state";
    QTest::newRow("an unparsable record leaves everything untouched") << "{broken" << "invalid migration record; untouched";
}

void BrowserTest::earlierJournal()
{
    QFETCH(QString, earlier);
    QFETCH(QString, detail);
    QTemporaryDir temp;
    const QString data = temp.filePath(QStringLiteral("User Data"));
    makeUserData(data, 1);
    const QString backup = data + QStringLiteral("/Profile 0/.bl-installer-cache-0123456789abcdef0123456789abcdef-0");
    if (earlier == "complete") {
        QVERIFY(BrowserCacheReset::reset(data, "1.4.20", idle, renameDirectory).success);
    } else {
        QVERIFY(QDir().rename(data + QStringLiteral("/Profile 0/Code Cache"), backup));
        const QJsonObject move { { "profile", "Profile 0" }, { "cache", "Code Cache" }, { "backup", QFileInfo(backup).fileName() } };
        const QJsonObject record { { "schema", 1 }, { "root", data }, { "version", "1.4.20" }, { "profiles", QJsonArray { "Profile 0" } },
                                   { "moves", QJsonArray { move } }, { "state", earlier } };
        write(journalPath(data), earlier.startsWith('{') ? earlier.toUtf8() : QJsonDocument(record).toJson());
    }
    const QByteArray before = read(journalPath(data));
    Renames renames;
    const Result result = BrowserCacheReset::reset(data, "1.4.20", idle, renames.operation());
    QCOMPARE(result.detail, detail);
    QCOMPARE(result.skipped, earlier == "complete");
    if (result.success) {
        QCOMPARE(renames.moved.first(), QFileInfo(backup).fileName());
        QCOMPARE(journal(data).value("state").toString(), QStringLiteral("complete"));
        return;
    }
    QVERIFY(renames.moved.isEmpty());
    QCOMPARE(read(journalPath(data)), before);
    QVERIFY(earlier == "complete" || QFileInfo(backup + QStringLiteral("/marker")).isFile());
}

void BrowserTest::profiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("kept");
    QTest::newRow("an ordinary name") << "Profile 1" << true;
    QTest::newRow("a name with a separator") << "../outside" << false;
    QTest::newRow("a name with a backslash") << "sub\\inner" << false;
    QTest::newRow("a name with a control character") << "bad\x01name" << false;
    QTest::newRow("the parent directory") << ".." << false;
    QTest::newRow("a name with a trailing dot") << "Profile 1." << false;
    QTest::newRow("a very long name") << QString(300, 'a') << false;
}

void BrowserTest::profiles()
{
    QFETCH(QString, name);
    QFETCH(bool, kept);
    QTemporaryDir temp;
    const QString data = temp.filePath(QStringLiteral("User Data"));
    write(data + QStringLiteral("/Default/Secure Preferences"), "{}");
    write(data + QLatin1Char('/') + name + QStringLiteral("/Preferences"), "{}");
    const QJsonObject profile { { "last_used", name }, { "last_active_profiles", QJsonArray { name, "Missing" } },
                                { "info_cache", QJsonObject { { name, QJsonObject() }, { "Default", QJsonObject() } } } };
    write(data + QStringLiteral("/Local State"), QJsonDocument(QJsonObject { { "profile", profile } }).toJson());
    const QStringList expected = kept ? QStringList { name, "Default" } : QStringList { "Default" };
    QCOMPARE(BrowserCacheReset::profiles(data), expected);
}

#ifdef Q_OS_WIN

void BrowserTest::runningBrowser_data()
{
    QTest::addColumn<QStringList>("arguments"); // %1: the user data directory
    QTest::addColumn<bool>("busy");
    QTest::newRow("the option naming the directory") << QStringList { "--type=browser", "--user-data-dir=%1" } << true;
    QTest::newRow("the option and the directory as two arguments") << QStringList { "--user-data-dir", "%1" } << true;
    QTest::newRow("a browser of another directory") << QStringList { "--user-data-dir=C:\\Other\\User Data" } << false;
}

void BrowserTest::runningBrowser()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, busy);
    QTemporaryDir temp;
    const QString data = temp.filePath(QStringLiteral("User Data"));
    makeUserData(data, 1);
    const QString browser = temp.filePath(QStringLiteral("pellacore.exe"));
    QVERIFY(QFile::copy(QStringLiteral(BRISA_SLEEPER_EXE), browser));
    for (QString &argument : arguments)
        argument.replace(QStringLiteral("%1"), QDir::toNativeSeparators(data));
    QProcess process;
    process.start(browser, arguments);
    QVERIFY(process.waitForStarted());
    const Result result = BrowserCacheReset::reset(data, "1.4.20", browserIdle, renameDirectory);
    process.kill();
    process.waitForFinished();
    QCOMPARE(result.detail, busy ? QStringLiteral("browser busy or process identity unavailable; skipped")
                                 : QStringLiteral("reset 3 cache directories across 1 profiles"));
    QCOMPARE(cachesIntact(data), busy);
}

void BrowserTest::forDesktopUserRemovesTheBackups()
{
    QTemporaryDir installation;
    QCOMPARE(forDesktopUser(installation.path(), "1.4.20").detail, QStringLiteral("installed plugin verification failed; skipped"));
    write(installation.filePath(QStringLiteral("Pellacore/helper/brisa-linker-chrome-plugin/manifest.json")),
          R"({"version":"2.1","manifest_version":3,"background":{"service_worker":"worker.js"},"content_scripts":[]})");
    const QString browserData = QDir::fromNativeSeparators(qEnvironmentVariable("USERPROFILE")) + QStringLiteral("/AppData/Local/PellacoreBrowser");
    FileLinks::removeTree(browserData);
    const QString data = browserData + QStringLiteral("/User Data");
    makeUserData(data, 1);

    const Result result = forDesktopUser(installation.path(), "1.4.20");
    HANDLE token = nullptr;
    QVERIFY2(!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token), "the thread still impersonates");
    QVERIFY(result.detail.startsWith(QStringLiteral("reset 3 cache directories across 1 profiles user=S-1-5-")));
    QVERIFY(result.detail.endsWith(QStringLiteral(" root=") + data));
    for (const QJsonValue &move : journal(data).value("moves").toArray())
        QVERIFY(backupName.match(move.toObject().value("backup").toString()).hasMatch());
    QTRY_COMPARE_WITH_TIMEOUT(QDir(data + QStringLiteral("/Profile 0")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                                  + QDir(data + QStringLiteral("/Profile 0/Service Worker")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                              QStringList({ "Preferences", "Service Worker" }), 10000);
    FileLinks::removeTree(browserData);
}

#endif

QTEST_GUILESS_MAIN(BrowserTest)
#include "tst_browser.moc"
