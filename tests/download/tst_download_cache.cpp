#include "tst_download.h"
#include "support/test_links.h"
#include "download_fixture.h"
#include "test_nginx.h"

#include "download/download_cache.h"
#include "download/download_manager.h"
#include "download/version_manifest.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTimer>
#include <QSslConfiguration>
#include <QTest>

namespace {

constexpr qint64 chunk = DownloadManager::chunkSize;
// Three chunks, the last one short.
constexpr qint64 packageSize = 2 * chunk + 100;

QByteArray range(int index, qint64 from = 0)
{
    const qint64 end = std::min((index + 1) * chunk, packageSize) - 1;
    return "bytes=" + QByteArray::number(index * chunk + from) + '-' + QByteArray::number(end);
}

QByteArray chunkBytes(const QByteArray &package, int index)
{
    return package.mid(index * chunk, chunk);
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    return writeAll(path, bytes);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

QList<QByteArray> sorted(QList<QByteArray> list)
{
    std::sort(list.begin(), list.end());
    return list;
}

void useServer(DownloadManager &manager, const TestHttpsServer &server)
{
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(server.caCertificates());
    manager.setSslConfiguration(ssl);
}

enum class Cached { VerifiedZip, WrongZip, ChunkTooLong, ChunkShort, OtherPackage, CorruptedChunk };

} // namespace

Q_DECLARE_METATYPE(Cached)

void TestDownload::cacheDirectory_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("directory");
    QTest::newRow("a dotted version names its directory") << "1.2.3" << "version-1.2.3";
    QTest::newRow("letters, dashes and underscores are kept") << "2.0.0-beta_1" << "version-2.0.0-beta_1";
    QTest::newRow("non-ASCII letters are kept") << QString::fromUtf8("1.0-\u00e9t\u00e9") << QString::fromUtf8("version-1.0-\u00e9t\u00e9");
    QTest::newRow("a slash sends the cache to default") << "1.2/../../x" << "default";
    QTest::newRow("a blank sends the cache to default") << "1.2 3" << "default";
    QTest::newRow("a backslash sends the cache to default") << "1.2\\3" << "default";
    QTest::newRow("a colon sends the cache to default") << "C:1" << "default";
}

void TestDownload::cacheDirectory()
{
    QFETCH(QString, version);
    QFETCH(QString, directory);
    VersionManifest manifest;
    manifest.version = version;
    QCOMPARE(DownloadCache::directoryFor("/cache", manifest), "/cache/" + directory);
}

void TestDownload::cachedState_data()
{
    QTest::addColumn<Cached>("cached");
    QTest::addColumn<QList<QByteArray>>("requests");
    QTest::newRow("a verified cached package completes without any chunk request")
        << Cached::VerifiedZip << QList<QByteArray>();
    QTest::newRow("a cached package with a wrong digest is downloaded again")
        << Cached::WrongZip << QList<QByteArray>{range(0), range(1), range(2)};
    QTest::newRow("a chunk one byte too long is fetched again from its start")
        << Cached::ChunkTooLong << QList<QByteArray>{range(1)};
    QTest::newRow("a chunk one byte short is resumed from where it ends")
        << Cached::ChunkShort << QList<QByteArray>{range(1, chunk - 1)};
    QTest::newRow("chunks of another package are deleted before downloading")
        << Cached::OtherPackage << QList<QByteArray>{range(0), range(1), range(2)};
    QTest::newRow("a corrupted cached chunk is detected and fetched again")
        << Cached::CorruptedChunk << QList<QByteArray>{range(0), range(1), range(2)};
}

void TestDownload::cachedState()
{
    QFETCH(Cached, cached);
    QFETCH(QList<QByteArray>, requests);
    const ServedRelease release = serveRelease(m_server, packageSize);
    const QDir dir(cacheRoot() + "/version-1.2.3");
    QByteArray marker = release.sha256;
    if (cached == Cached::VerifiedZip)
        QVERIFY(writeFile(dir.filePath("package.zip"), release.package));
    if (cached == Cached::WrongZip)
        QVERIFY(writeFile(dir.filePath("package.zip"), QByteArray(packageSize, 'x')));
    if (cached == Cached::ChunkTooLong || cached == Cached::ChunkShort || cached == Cached::OtherPackage || cached == Cached::CorruptedChunk) {
        for (int i = 0; i < 3; ++i)
            QVERIFY(writeFile(dir.filePath(DownloadCache::chunkFileName(i)), chunkBytes(release.package, i)));
    }
    if (cached == Cached::ChunkTooLong)
        QVERIFY(writeFile(dir.filePath("chunk-0001.bin"), chunkBytes(release.package, 1) + "!"));
    if (cached == Cached::ChunkShort)
        QVERIFY(writeFile(dir.filePath("chunk-0001.bin"), chunkBytes(release.package, 1).chopped(1)));
    if (cached == Cached::OtherPackage)
        marker = QByteArray(64, 'b');
    if (cached == Cached::CorruptedChunk) {
        QByteArray bytes = chunkBytes(release.package, 1);
        bytes[4096] = char(bytes.at(4096) ^ 1);
        QVERIFY(writeFile(dir.filePath("chunk-0001.bin"), bytes));
    }
    QVERIFY(writeFile(dir.filePath("package.sha256"), marker + "\n"));

    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY2(outcome.completed, qPrintable(outcome.message));
    QCOMPARE(readFile(outcome.zipPath), release.package);
    QCOMPARE(sorted(m_server.ranges("/pkg/package.zip")), sorted(requests));
    QCOMPARE(readFile(dir.filePath("package.sha256")).trimmed(), release.sha256);
}

void TestDownload::cancelDuringCacheVerification_data()
{
    QTest::addColumn<bool>("startAgain");
    QTest::newRow("a cancel while the cached package is verified ends the run without a word") << false;
    QTest::newRow("a cancel and a new start while it is verified leave one run that uses it") << true;
}

void TestDownload::cancelDuringCacheVerification()
{
    QFETCH(bool, startAgain);
    const ServedRelease release = serveRelease(m_server, packageSize);
    const QString zipPath = cacheRoot() + "/version-1.2.3/package.zip";
    QVERIFY(writeFile(zipPath, release.package));
    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    QSignalSpy completed(&manager, &DownloadManager::completed);
    QSignalSpy failed(&manager, &DownloadManager::failed);
    // Runs at the first turn of the event loop after the manifest, while the package is verified.
    bool once = true;
    connect(&manager, &DownloadManager::manifestVersionKnown, this, [&] {
        if (!std::exchange(once, false))
            return;
        QTimer::singleShot(0, &manager, [&] {
            manager.cancel();
            if (startAgain)
                manager.start(QUrl(m_server.url("/manifest.json")), cacheRoot());
        });
    });
    manager.start(QUrl(m_server.url("/manifest.json")), cacheRoot());
    QTest::qWait(1500);
    QCOMPARE(completed.count(), startAgain ? 1 : 0);
    QCOMPARE(failed.count(), 0);
    if (startAgain)
        QCOMPARE(completed.at(0).at(0).toString(), zipPath);
    QCOMPARE(readFile(zipPath), release.package);
    QCOMPARE(m_server.requestCount("/pkg/package.zip"), 0);
}

void TestDownload::legacyMigration_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QList<QByteArray>>("requests");
    QTest::addColumn<bool>("legacyRemoved");
    QTest::newRow("legacy chunks of the same package are moved, not downloaded")
        << "same" << QList<QByteArray>{range(2)} << true;
    QTest::newRow("a legacy chunk never replaces a chunk already in the cache")
        << "occupied" << QList<QByteArray>{range(2)} << false;
    QTest::newRow("legacy chunks of another package stay where they are")
        << "other" << QList<QByteArray>{range(0), range(1), range(2)} << false;
    QTest::newRow("a linked legacy chunk is neither followed nor moved")
        << "linked-chunk" << QList<QByteArray>{range(0), range(2)} << false;
    QTest::newRow("a linked legacy directory is ignored")
        << "linked-directory" << QList<QByteArray>{range(0), range(1), range(2)} << false;
}

void TestDownload::legacyMigration()
{
    QFETCH(QString, setup);
    QFETCH(QList<QByteArray>, requests);
    QFETCH(bool, legacyRemoved);
    const ServedRelease release = serveRelease(m_server, packageSize);
    const QDir root(cacheRoot());
    const QString legacy = root.filePath("releaseId-r1.2.3");
    const QString outside = root.filePath("outside");
    const QString target = root.filePath("version-1.2.3");
    QVERIFY(writeFile(outside + "/chunk-0000.bin", chunkBytes(release.package, 0)));
#ifdef Q_OS_WIN
    // Windows code cannot make links under Wine; the link rules are proven by the host build.
    if (setup.startsWith(QLatin1String("linked")))
        QSKIP("links cannot be created here");
#endif
    const QString legacyFiles = setup == "linked-directory" ? outside : legacy;
    QVERIFY(writeFile(legacyFiles + "/package.sha256", setup == "other" ? QByteArray(64, 'c') : release.sha256));
    if (setup == "linked-directory")
        QVERIFY(QFile::link(outside, legacy));
    if (setup == "linked-chunk")
        QVERIFY(QFile::link(outside + "/chunk-0000.bin", legacy + "/chunk-0000.bin"));
    else if (setup != "linked-directory")
        QVERIFY(writeFile(legacy + "/chunk-0000.bin", setup == "occupied" ? QByteArray(chunk, 'z') : chunkBytes(release.package, 0)));
    QVERIFY(writeFile(legacy + "/chunk-0001.bin", chunkBytes(release.package, 1)));
    QVERIFY(writeFile(legacy + "/notes.txt", "not a chunk"));
    if (setup == "occupied") {
        QVERIFY(writeFile(target + "/package.sha256", release.sha256));
        QVERIFY(writeFile(target + "/chunk-0000.bin", chunkBytes(release.package, 0)));
    }

    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY2(outcome.completed, qPrintable(outcome.message));
    QCOMPARE(readFile(outcome.zipPath), release.package);
    QCOMPARE(sorted(m_server.ranges("/pkg/package.zip")), sorted(requests));
    QVERIFY(QFile::exists(legacy + "/notes.txt") || setup == "linked-directory");
    QCOMPARE(QFileInfo::exists(legacy + "/chunk-0001.bin"), setup == "other" || setup == "linked-directory");
    QCOMPARE(readFile(outside + "/chunk-0000.bin"), chunkBytes(release.package, 0));
    if (setup == "occupied")
        QCOMPARE(readFile(legacy + "/chunk-0000.bin"), QByteArray(chunk, 'z'));
    if (setup == "linked-chunk")
        QVERIFY(QFileInfo(legacy + "/chunk-0000.bin").isSymLink());
    Q_UNUSED(legacyRemoved);
}

void TestDownload::killedAndRestarted_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<bool>("nginx");
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (1)") << 11u << false;
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (2)") << 12u << false;
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (3)") << 13u << false;
    QTest::newRow("killed at random points while nginx serves, it resumes the same way") << 14u << true;
}

void TestDownload::killedAndRestarted()
{
    QFETCH(quint32, seed);
    QFETCH(bool, nginx);
    if (!nginx && !m_localTls)
        QSKIP("the local TLS server cannot serve here");
    const qint64 size = 6 * chunk + 777;
    const ServedRelease release = serveRelease(m_server, size, "1.2.3", seed);
    Nginx web;
    QString manifestUrl = m_server.url("/manifest.json");
    if (nginx) {
        QString why;
        bool skip = false;
        if (!web.startOrAttach(QFileInfo(m_server.caPath()).path(), &why, &skip)) {
            if (skip)
                QSKIP(qPrintable(why));
            QFAIL(qPrintable(why));
        }
        QJsonObject manifest = release.manifest;
        QJsonObject package = manifest.value("package").toObject();
        package.insert("url", web.url("/kill/package.zip"));
        manifest.insert("package", package);
        QVERIFY(writeAll(web.root() + "/kill/package.zip", release.package));
        QVERIFY(writeAll(web.root() + "/kill/manifest.json", manifestBytes(manifest)));
        manifestUrl = web.url("/kill/manifest.json");
        web.takeRanges(QString());
    }
    const QDir root(cacheRoot());
    QVERIFY(writeFile(root.filePath("outside/keep.txt"), "keep"));
    const QString cache = root.filePath("cache");
    const QDir dir(cache + "/version-1.2.3");
    QRandomGenerator random(seed);
    bool done = false;
    int requestsSeen = 0;
    for (int run = 0; run < 12 && !done; ++run) {
        QList<qint64> before;
        for (int i = 0; i < 7; ++i)
            before << QFileInfo(dir.filePath(DownloadCache::chunkFileName(i))).size();
        m_server.resetCounters();
        QProcess child;
        child.start(QCoreApplication::applicationDirPath() + QStringLiteral("/download_child"), {manifestUrl, cache, m_server.caPath()});
        QVERIFY(child.waitForStarted());
        const bool lastRun = run >= 8;
        if (lastRun) {
            QTRY_VERIFY_WITH_TIMEOUT(child.state() == QProcess::NotRunning, 60000);
        } else {
            QTest::qWait(int(random.bounded(150, 700)));
            child.kill(); // SIGKILL, or TerminateProcess on Windows: no chance to tidy up
            // A busy Wine can take many seconds to report a terminated process.
            QVERIFY(child.waitForFinished(60000) || child.state() == QProcess::NotRunning);
        }
        done = child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0;
        // Every request of this run starts where that chunk's file ended before it.
        if (nginx)
            QTest::qWait(300); // nginx logs a request once its connection has closed
        const QList<QByteArray> requests = nginx ? web.takeRanges("/kill/package.zip") : m_server.ranges("/pkg/package.zip");
        requestsSeen += int(requests.size());
        for (const QByteArray &requested : requests) {
            const qint64 from = requested.mid(6, requested.indexOf('-') - 6).toLongLong();
            const int index = int(from / chunk);
            const qint64 length = std::min((index + 1) * chunk, size) - index * chunk;
            QVERIFY2(before.at(index) < length, qPrintable("finished chunk fetched again: " + requested));
            QVERIFY2(from >= index * chunk + before.at(index), qPrintable("resumed too early: " + requested));
        }
    }
    QVERIFY(done);
    QVERIFY(requestsSeen >= 7);
    QCOMPARE(readFile(dir.filePath("package.zip")), release.package);
    // Nothing outside the cache directory was touched.
    QCOMPARE(root.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList({"cache", "outside"}));
    QCOMPARE(readFile(root.filePath("outside/keep.txt")), QByteArray("keep"));
    QCOMPARE(QDir(cache).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList({"version-1.2.3"}));
    for (const QString &name : dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden))
        QVERIFY2(name == "package.zip" || name == "package.sha256" || name.startsWith("chunk-"), qPrintable(name));
}

// The cache lives where the user can write: a link planted among the chunks, named like one,
// loses at most itself when the cache is claimed for another package.
void TestDownload::cacheNeverFollowsALink()
{
    const QString cache = cacheRoot() + QStringLiteral("/cache");
    const QString canaries = cacheRoot() + QStringLiteral("/canaries");
    QVERIFY(QDir().mkpath(cache) && QDir().mkpath(canaries));
    QFile canary(canaries + QStringLiteral("/precious.bin"));
    QVERIFY(canary.open(QIODevice::WriteOnly) && canary.write("keep") == 4);
    canary.close();
    QVERIFY(TestLinks::makeDirectoryLink(canaries, cache + QStringLiteral("/chunk-0001.bin")));
#ifndef Q_OS_WIN
    QVERIFY(QFile::link(canary.fileName(), cache + QStringLiteral("/chunk-0002.bin")));
#endif
    DownloadCache::claimForPackage(cache, QByteArray(64, 'a'));
    QVERIFY(canary.open(QIODevice::ReadOnly));
    QCOMPARE(canary.readAll(), QByteArray("keep"));
    QCOMPARE(QDir(canaries).entryList(QDir::Files), QStringList { QStringLiteral("precious.bin") });
}

QTEST_GUILESS_MAIN(TestDownload)
