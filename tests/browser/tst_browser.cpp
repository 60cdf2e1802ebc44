#include "browser/browser_cache_reset.h"
#include "finalize/thread_exit_order.h"
#include "system/file_links.h"
#include "support/test_files.h"
#include "support/test_links.h"

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
using TestFiles::read;
using TestFiles::write;

namespace {

const QStringList caches { "Code Cache", "Service Worker/Database", "Service Worker/ScriptCache" };
const QRegularExpression backupName(QStringLiteral("^\\.bl-installer-cache-[0-9a-f]{32}-[0-2]$"));

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

QString journalPath(const QString &root, const QString &version)
{
    return root + QStringLiteral("/.bl-installer-migrations/worker-cache-reset-") + version + QStringLiteral(".json");
}

} // namespace

class BrowserTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(ThreadExitOrder::arranged()); } // the backups' removal thread ends cleanly at exit
    void reset_data();
    void reset();
#ifdef Q_OS_WIN
    void forDesktopUserRemovesTheBackups();
#endif
};

void BrowserTest::reset_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<int>("profiles");
    // "missing" or "linked" user data, a "busy" or "slow" browser, "fail N" (and "later") renames,
    // "profile NAME": a second profile NAME named first in "Local State", "earlier S": a journal a crashed run left in state S, "running|ARGS": a browser started with ARGS
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<bool>("skipped");
    QTest::addColumn<QStringList>("moved"); // the renames in order; "backup N": a backup of cache N
    QTest::addColumn<QString>("state"); // of the journal afterwards; "unchanged": byte for byte
    const QString reset = QStringLiteral("reset 3 cache directories across 1 profiles");
    const QString untouched = QStringLiteral("profile root unavailable or contains directory links");
    const QString busy = QStringLiteral("browser busy or process identity unavailable; skipped");
    const QStringList three { "Code Cache", "Database", "ScriptCache" };
    QTest::newRow("version 1.2 is invalid") << "1.2" << 1 << "" << "invalid migration version" << false << QStringList() << "";
    QTest::newRow("version 1.2.3 resets every cache") << "1.2.3" << 1 << "" << reset << false << three << "complete";
    QTest::newRow("version 1.2.3.4 resets every cache") << "1.2.3.4" << 1 << "" << reset << false << three << "complete";
    QTest::newRow("1024 profiles are processed") << "1.4.20" << 1024 << "" << "reset 3 cache directories across 1024 profiles" << false << three << "complete";
    QTest::newRow("1025 profiles are skipped") << "1.4.20" << 1025 << "" << "too many profiles; skipped" << true << QStringList() << "";
    QTest::newRow("a busy browser skips") << "1.4.20" << 1 << "busy" << busy << true << QStringList() << "";
    QTest::newRow("no profile skips") << "1.4.20" << 0 << "" << "no existing browser profile" << true << QStringList() << "";
    QTest::newRow("a missing user data directory skips") << "1.4.20" << 1 << "missing" << untouched << true << QStringList() << "";
    QTest::newRow("a directory link among the ancestors skips") << "1.4.20" << 1 << "linked" << untouched << true << QStringList() << "";
    QTest::newRow("a preparation over its budget skips") << "1.4.20" << 1 << "slow" << "cache preparation budget exceeded; skipped" << true << QStringList() << "";
    QTest::newRow("a rename failing half-way restores the earlier renames in reverse") << "1.4.20" << 2 << "fail 3"
        << "cache busy; restored previous directories" << true << (three + QStringList { "backup 1", "backup 0" }) << "";
    QTest::newRow("a failing undo keeps the journal and backups") << "1.4.20" << 2 << "fail 2 later"
        << "cache rollback incomplete; backups retained for retry" << false << QStringList { "Code Cache", "Database", "backup 0" } << "prepared";
    QTest::newRow("a completed reset is skipped the second time") << "1.4.20" << 1 << "earlier complete"
        << "already completed for this version" << true << QStringList() << "unchanged";
    QTest::newRow("a prepared record from a crash is undone first") << "1.4.20" << 1 << "earlier prepared"
        << reset << false << (QStringList { "backup 0" } + three) << "complete";
    QTest::newRow("an unknown state leaves everything untouched") << "1.4.20" << 1 << "earlier rolling"
        << "unknown migration state" << false << QStringList() << "unchanged";
    QTest::newRow("an unparsable record leaves everything untouched") << "1.4.20" << 1 << "earlier {broken"
        << "invalid migration record; untouched" << false << QStringList() << "unchanged";
    const QString two = QStringLiteral("reset 3 cache directories across 2 profiles");
    QTest::newRow("a profile of an ordinary name is reset too") << "1.4.20" << 1 << "profile Profile 1" << two << false << three << "complete";
    QTest::newRow("a profile name with a separator is passed over") << "1.4.20" << 1 << "profile ../outside" << reset << false << three << "complete";
    QTest::newRow("a profile name with a backslash is passed over") << "1.4.20" << 1 << "profile sub\\inner" << reset << false << three << "complete";
    QTest::newRow("a profile name with a control character is passed over") << "1.4.20" << 1 << "profile bad\x01name" << reset << false << three << "complete";
    QTest::newRow("the parent directory as a profile is passed over") << "1.4.20" << 1 << "profile .." << reset << false << three << "complete";
    QTest::newRow("a profile name with a trailing dot is passed over") << "1.4.20" << 1 << "profile Profile 1." << reset << false << three << "complete";
    QTest::newRow("a very long profile name is passed over") << "1.4.20" << 1 << "profile " + QString(300, 'a') << reset << false << three << "complete";
#ifdef Q_OS_WIN
    QTest::newRow("a browser started with the option naming the directory is busy") << "1.4.20" << 1
        << "running|--type=browser|--user-data-dir=%1" << busy << true << QStringList() << "";
    QTest::newRow("a browser given the option and the directory as two arguments is busy") << "1.4.20" << 1
        << "running|--user-data-dir|%1" << busy << true << QStringList() << "";
    QTest::newRow("a browser of another directory is no obstacle") << "1.4.20" << 1
        << "running|--user-data-dir=C:\\Other\\User Data" << reset << false << three << "complete";
#endif
}

void BrowserTest::reset()
{
    QFETCH(QString, version);
    QFETCH(int, profiles);
    QFETCH(QString, setup);
    QFETCH(QString, detail);
    QFETCH(bool, skipped);
    QFETCH(QStringList, moved);
    QFETCH(QString, state);
#ifdef Q_OS_WIN
    // Under Wine a link made at test time outlives its directory; the harness's "dir-link" leads to "real".
    QTemporaryDir temp(setup == "linked" ? QStringLiteral("C:/brisa-link-fixture/real/browser-XXXXXX") : QString());
    const QString link = QString(temp.path()).replace(QStringLiteral("/real/"), QStringLiteral("/dir-link/"));
#else
    QTemporaryDir temp;
    const QString link = temp.filePath(QStringLiteral("link"));
    QVERIFY(setup != "linked" || TestLinks::makeDirectoryLink(temp.path(), link));
#endif
    const QString data = temp.filePath(QStringLiteral("User Data"));
    makeUserData(data, profiles);
    const QString used = setup == "missing" ? temp.filePath(QStringLiteral("Other")) : setup == "linked" ? link + QStringLiteral("/User Data") : data;
    QVERIFY(QFileInfo(used).isDir() || setup == "missing");

    const QString profile = setup.startsWith("profile ") ? setup.mid(8) : QString();
    if (!profile.isEmpty()) {
        // Named three times, once without a directory; the first profile has only its secure preferences.
        QVERIFY(QDir().rename(data + QStringLiteral("/Profile 0/Preferences"), data + QStringLiteral("/Profile 0/Secure Preferences")));
        write(data + QLatin1Char('/') + profile + QStringLiteral("/Preferences"), "{}");
        const QJsonObject state { { "last_used", profile }, { "last_active_profiles", QJsonArray { profile, "Missing" } },
                                  { "info_cache", QJsonObject { { profile, QJsonObject() }, { "Profile 0", QJsonObject() } } } };
        write(data + QStringLiteral("/Local State"), QJsonDocument(QJsonObject { { "profile", state } }).toJson());
    }
    const QString earlier = setup.startsWith("earlier ") ? setup.mid(8) : QString();
    const QString crashBackup = data + QStringLiteral("/Profile 0/.bl-installer-cache-0123456789abcdef0123456789abcdef-0");
    if (earlier == "complete") {
        QVERIFY(BrowserCacheReset::reset(data, version, [](const QString &) { return true; }, renameDirectory).success);
    } else if (!earlier.isEmpty()) {
        QVERIFY(QDir().rename(data + QStringLiteral("/Profile 0/Code Cache"), crashBackup));
        const QJsonObject move { { "profile", "Profile 0" }, { "cache", "Code Cache" }, { "backup", QFileInfo(crashBackup).fileName() } };
        const QJsonObject record { { "schema", 1 }, { "root", data }, { "version", version }, { "profiles", QJsonArray { "Profile 0" } },
                                   { "moves", QJsonArray { move } }, { "state", earlier } };
        write(journalPath(data, version), earlier.startsWith('{') ? earlier.toUtf8() : QJsonDocument(record).toJson());
    }
    const QByteArray journalBefore = read(journalPath(data, version));
    QProcess browser;
    IdleTest idle = [&](const QString &) {
        QThread::msleep(setup == "slow" ? 2100 : 0);
        return setup != "busy";
    };
#ifdef Q_OS_WIN
    if (setup.startsWith("running|")) {
        QStringList arguments = setup.split('|').mid(1);
        arguments.replaceInStrings(QStringLiteral("%1"), QDir::toNativeSeparators(data));
        QVERIFY(QFile::copy(QStringLiteral(BRISA_SLEEPER_EXE), temp.filePath(QStringLiteral("pellacore.exe"))));
        browser.start(temp.filePath(QStringLiteral("pellacore.exe")), arguments);
        QVERIFY(browser.waitForStarted());
        idle = browserIdle;
    }
#endif
    // Real renames, recorded by the name they move, a backup as "backup N"; call "fail N" fails,
    // with "later" every later one too.
    const int failAt = setup.startsWith("fail ") ? setup.section(' ', 1, 1).toInt() : 0;
    QStringList renames;
    const Result result = BrowserCacheReset::reset(used, version, idle, [&](const QString &from, const QString &to) {
        const QString name = QFileInfo(from).fileName();
        renames.append(backupName.match(name).hasMatch() ? QStringLiteral("backup ") + name.right(1) : name);
        const int call = int(renames.size());
        return !(failAt && (call == failAt || (setup.endsWith(" later") && call > failAt))) && renameDirectory(from, to);
    });
    browser.kill();
    browser.waitForFinished();

    QCOMPARE(result.detail, detail);
    QCOMPARE(result.skipped, skipped);
    QCOMPARE(result.success, detail.startsWith("reset "));
    QCOMPARE(renames, moved);
    const QJsonObject after = QJsonDocument::fromJson(read(journalPath(data, version))).object();
    QVERIFY(state == "unchanged" ? read(journalPath(data, version)) == journalBefore : after.value("state").toString() == state);
    const QStringList backupsLeft = QDir(data + QStringLiteral("/Profile 0")).entryList({ ".bl-installer-cache-*" }, QDir::Dirs | QDir::Hidden);
    if (result.success) {
        const QStringList named = after.value("profiles").toVariant().toStringList();
        QVERIFY(profile.isEmpty() || named == (detail.contains(" 2 ") ? QStringList { profile, "Profile 0" } : QStringList { "Profile 0" }));
        QCOMPARE(result.backups.size(), 3);
        for (const QString &backup : result.backups) {
            QVERIFY(backupName.match(QFileInfo(backup).fileName()).hasMatch());
            QCOMPARE(read(backup + QStringLiteral("/marker")), QByteArray("old worker"));
        }
    } else if (!earlier.isEmpty() || failAt) {
        // Whatever could not be put back stays where the journal says, for a later run.
        QCOMPARE(cachesIntact(data), earlier.isEmpty() && !setup.endsWith(" later"));
        QCOMPARE(backupsLeft.size(), cachesIntact(data) ? 0 : 1);
    } else {
        QVERIFY(profiles == 0 || cachesIntact(data));
    }
}

#ifdef Q_OS_WIN

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
    for (const QJsonValue &move : QJsonDocument::fromJson(read(journalPath(data, "1.4.20"))).object().value("moves").toArray())
        QVERIFY(backupName.match(move[QStringLiteral("backup")].toString()).hasMatch());
    QTRY_COMPARE_WITH_TIMEOUT(TestFiles::below(data + QStringLiteral("/Profile 0")), QStringList { "Preferences" }, 10000);
    FileLinks::removeTree(browserData);
}

#endif

QTEST_GUILESS_MAIN(BrowserTest)
#include "tst_browser.moc"
