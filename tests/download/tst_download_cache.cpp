#include "tst_download.h"
#include "download_fixture.h"

#include "download/download_cache.h"
#include "download/download_manager.h"
#include "download/version_manifest.h"
#include "support/test_links.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {

constexpr qint64 chunk = DownloadManager::chunkSize;
// Three chunks, the last one short; the bytes serveRelease() serves by default.
constexpr qint64 packageSize = 2 * chunk + 100;
const QByteArray package = randomBytes(packageSize, 7);
const QByteArray packageSha = QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex();

QByteArray range(int index, qint64 from = 0)
{
    const qint64 end = std::min((index + 1) * chunk, packageSize) - 1;
    return "bytes=" + QByteArray::number(index * chunk + from) + '-' + QByteArray::number(end);
}

QByteArray part(int index)
{
    return package.mid(index * chunk, chunk);
}

QList<QByteArray> sorted(QList<QByteArray> list)
{
    std::sort(list.begin(), list.end());
    return list;
}

using Files = QMap<QString, QByteArray>;
using Fault = TestHttpsServer::Fault;
const QString pkg = QStringLiteral("/pkg/package.zip");

Files with(Files files, const QString &name, const QByteArray &bytes)
{
    files.insert(name, bytes);
    return files;
}

} // namespace

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

// One download run per row: the files left in the installer's temporary root before it (paths
// relative to the root; "->x" makes a link to x), the server's misbehaviour, then how the run ends,
// the ranges it asked for, in any order ({"any"}: not checked), and what the root holds after it
// ("" for nothing, "->" for a link).
void TestDownload::download_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<Files>("before");
    QTest::addColumn<QString>("path");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("failure"); // a pattern; empty: the download completes
    QTest::addColumn<QList<QByteArray>>("ranges");
    QTest::addColumn<Files>("after");
    const QString v = "version-1.2.3/", l = "releaseId-r1.2.3/";
    const QList<QByteArray> any{"any"}, all{range(0), range(1), range(2)};
    // Each range once in full, then again from where the short answer (two thirds of it) ended.
    QList<QByteArray> resumed;
    for (int i = 0; i < 3; ++i) {
        const qint64 length = std::min((i + 1) * chunk, packageSize) - i * chunk;
        resumed << range(i) << range(i, length - std::max<qint64>(1, length / 3));
    }
    const QString refused = "^The download server does not support ranged requests\\.$";
    const QString stalled = "^(No download progress was made for 20 seconds\\.|%1)$";
    const auto faultRow = [&](const char *name, qint64 size, const QString &path, Fault fault, int count, const QString &failure = QString(),
                           const QList<QByteArray> &ranges = {"any"}) {
        QTest::newRow(name) << size << Files() << path << fault << count << failure << ranges << Files();
    };
    faultRow("a clean server delivers a verified package", packageSize, pkg, Fault::None, 0, QString(), all);
    faultRow("a one-byte package is one chunk", 1, pkg, Fault::None, 0, QString(), {"bytes=0-0"});
    faultRow("an exact multiple of the chunk size has no empty chunk", 2 * chunk, pkg, Fault::None, 0, QString(),
          {"bytes=0-8388607", "bytes=8388608-16777215"});
    faultRow("connections reset mid-body are resumed", packageSize, pkg, Fault::ResetMidBody, 3);
    faultRow("a body that stalls is abandoned and resumed", packageSize, pkg, Fault::StallMidBody, 2);
    faultRow("connections dropped before an answer are retried", packageSize, pkg, Fault::DropBeforeAnswer, 3);
    faultRow("a short body is kept and resumed where it ends", packageSize, pkg, Fault::ShortBody, 3, QString(), resumed);
    faultRow("bytes of a wrong range are never written", packageSize, pkg, Fault::WrongContentRange, 2);
    faultRow("a slow trickle still completes", 40000, pkg, Fault::Trickle, 1);
    faultRow("a manifest that is briefly missing is fetched again", packageSize, "/manifest.json", Fault::NotFound, 2);
    faultRow("a signature that is briefly unreachable is fetched again", packageSize, "/manifest.json.sig", Fault::DropBeforeAnswer, 2);
    faultRow("200 with the whole body to a range fails at once", packageSize, pkg, Fault::WholeBodyFor200, 1, refused);
    faultRow("a 500 to a range fails at once", packageSize, pkg, Fault::Status500, 1, refused);
    faultRow("a 503 to a range fails at once", packageSize, pkg, Fault::Status503, 1, refused);
    // Every answer is corrupted, so a retry after a slow transfer cannot bring clean bytes instead.
    faultRow("corrupted bytes fail verification", packageSize, pkg, Fault::CorruptBytes, 1000, "^The combined package failed verification\\.$");
    // The network's own error is named; "Operation canceled" would be the installer's abort talking.
    faultRow("a manifest that stays missing ends the run by the stall rule", packageSize, "/manifest.json", Fault::NotFound, 1000,
          stalled.arg("Unable to download the version manifest: (?!Operation canceled).+"));
    faultRow("a chunk that keeps failing ends the run by the stall rule", packageSize, pkg, Fault::DropBeforeAnswer, 1000,
          stalled.arg("A download chunk failed: (?!Operation canceled).+"));
    faultRow("a chunk that keeps coming short ends the run by the stall rule", 3000, pkg, Fault::ShortBody, 1000,
          stalled.arg("A download chunk has an unexpected size\\."));

    const auto cachedRow = [&](const char *name, const Files &before, const QList<QByteArray> &ranges, const Files &after) {
        QTest::newRow(name) << packageSize << before << QString() << Fault::None << 0 << QString() << ranges << after;
    };
    const Files chunks{{v + "package.sha256", packageSha + "\n"}, {v + "chunk-0000.bin", part(0)}, {v + "chunk-0001.bin", part(1)},
                       {v + "chunk-0002.bin", part(2)}};
    QByteArray corrupted = part(1);
    corrupted[4096] = char(corrupted.at(4096) ^ 1);
    const Files mine{{v + "package.sha256", packageSha}};
    cachedRow("a verified cached package completes without any chunk request", {{v + "package.sha256", packageSha}, {v + "package.zip", package}}, {}, mine);
    cachedRow("a cached package with a wrong digest is downloaded again",
           {{v + "package.sha256", packageSha}, {v + "package.zip", QByteArray(packageSize, 'x')}}, all, mine);
    cachedRow("a chunk one byte too long is fetched again from its start", with(chunks, v + "chunk-0001.bin", part(1) + "!"), {range(1)}, mine);
    cachedRow("a chunk one byte short is resumed from where it ends", with(chunks, v + "chunk-0001.bin", part(1).chopped(1)), {range(1, chunk - 1)}, mine);
    cachedRow("chunks of another package are deleted before downloading", with(chunks, v + "package.sha256", QByteArray(64, 'b')), all, mine);
    cachedRow("a corrupted cached chunk is detected and fetched again", with(chunks, v + "chunk-0001.bin", corrupted), all, mine);
    // The legacy directory keeps what is not a chunk of this package, so it is never removed.
    const Files legacy{{l + "package.sha256", packageSha}, {l + "chunk-0000.bin", part(0)}, {l + "chunk-0001.bin", part(1)},
                       {l + "notes.txt", "not a chunk"}, {"outside/chunk-0000.bin", part(0)}};
    const Files moved{{l + "notes.txt", "not a chunk"}, {l + "chunk-0001.bin", ""}, {"outside/chunk-0000.bin", part(0)}};
    cachedRow("legacy chunks of the same package are moved, not downloaded", legacy, {range(2)}, moved);
    const Files occupied = with(with(legacy, l + "chunk-0000.bin", QByteArray(chunk, 'z')), v + "package.sha256", packageSha);
    cachedRow("a legacy chunk never replaces a chunk already in the cache", with(occupied, v + "chunk-0000.bin", part(0)), {range(2)},
           with(moved, l + "chunk-0000.bin", QByteArray(chunk, 'z')));
    cachedRow("legacy chunks of another package stay where they are", with(legacy, l + "package.sha256", QByteArray(64, 'c')), all,
           with(moved, l + "chunk-0001.bin", part(1)));
    cachedRow("a linked legacy chunk is neither followed nor moved", with(legacy, l + "chunk-0000.bin", "->outside/chunk-0000.bin"),
           {range(0), range(2)}, with(moved, l + "chunk-0000.bin", "->"));
    cachedRow("a linked legacy directory is ignored",
           {{"outside/package.sha256", packageSha}, {"outside/chunk-0000.bin", part(0)}, {"outside/chunk-0001.bin", part(1)}, {"releaseId-r1.2.3", "->outside"}},
           all, {{"outside/chunk-0000.bin", part(0)}, {"outside/chunk-0001.bin", part(1)}});
}

void TestDownload::download()
{
    QFETCH(qint64, size);
    QFETCH(Files, before);
    QFETCH(QString, path);
    QFETCH(Fault, fault);
    QFETCH(int, count);
    QFETCH(QString, failure);
    QFETCH(QList<QByteArray>, ranges);
    QFETCH(Files, after);
    const QByteArray served = serveRelease(m_server, size);
    m_server.addFault(path, fault, count);
    const QDir root(cacheRoot());
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (!it.value().startsWith("->")) {
            QVERIFY(TestFiles::write(root.filePath(it.key()), it.value()));
            continue;
        }
#ifdef Q_OS_WIN
        QSKIP("Windows code cannot make links under Wine; the host build proves the link rules");
#endif
        QVERIFY(QDir().mkpath(QFileInfo(root.filePath(it.key())).path()));
        QVERIFY(QFile::link(root.filePath(QString::fromUtf8(it.value().mid(2))), root.filePath(it.key())));
    }
    DownloadManager manager;
    useServer(manager, m_server);
    QElapsedTimer clock;
    clock.start();
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY(outcome.finished);
    // Throwing a corrupted cached chunk away takes its bytes back out of the progress; otherwise it only grows.
    QVERIFY(!outcome.progressWentBack || !before.isEmpty());
    if (ranges != QList<QByteArray>{"any"})
        QCOMPARE(sorted(m_server.ranges(pkg)), sorted(ranges));
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        const QFileInfo file(root.filePath(it.key()));
        if (it.value() == "->")
            QVERIFY2(file.isSymLink(), qPrintable(it.key()));
        else if (it.value().isEmpty())
            QVERIFY2(!file.exists(), qPrintable(it.key()));
        else
            QVERIFY2(TestFiles::read(file.filePath()).trimmed() == it.value().trimmed(), qPrintable(it.key()));
    }
    const QDir cacheDir(root.filePath("version-1.2.3"));
    if (failure.isEmpty()) {
        QVERIFY2(outcome.completed, qPrintable(outcome.message));
        QCOMPARE(outcome.zipPath, cacheDir.filePath("package.zip"));
        QVERIFY(TestFiles::read(outcome.zipPath) == served);
        QCOMPARE(outcome.lastReceived, size);
        QVERIFY(!QFile::exists(outcome.zipPath + ".assembling"));
        return;
    }
    QVERIFY2(QRegularExpression(failure).match(outcome.message).hasMatch(), qPrintable(outcome.message));
    if (outcome.message.startsWith("The download server does not support"))
        QVERIFY2(clock.elapsed() < fastTiming().stallMs, "a refused range is not waited out");
    QVERIFY(!cacheDir.exists("package.zip"));
    // Every chunk file stays for the next run, holding only bytes of its own range (a package
    // that does not add up is fetched again by the next run).
    const QStringList names = cacheDir.entryList({"chunk-*.bin"}, QDir::Files);
    QCOMPARE(names.size(), path == "/manifest.json" ? 0 : int((size + chunk - 1) / chunk));
    for (const QString &name : names) {
        const QByteArray bytes = TestFiles::read(cacheDir.filePath(name));
        QVERIFY2(fault == Fault::CorruptBytes || served.mid(name.mid(6, 4).toInt() * chunk).startsWith(bytes), qPrintable(name));
    }
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
    serveRelease(m_server, packageSize);
    const QString zipPath = cacheRoot() + "/version-1.2.3/package.zip";
    QVERIFY(TestFiles::write(zipPath, package));
    DownloadManager manager;
    useServer(manager, m_server);
    QSignalSpy completed(&manager, &DownloadManager::completed);
    QSignalSpy failed(&manager, &DownloadManager::failed);
    // Runs at the first turn of the event loop after the manifest, while the package is verified.
    const auto interrupt = [&] {
        manager.cancel();
        if (startAgain)
            manager.start(QUrl(m_server.url("/manifest.json")), cacheRoot());
    };
    connect(&manager, &DownloadManager::manifestVersionKnown, this, [&] { QTimer::singleShot(0, &manager, interrupt); },
            Qt::SingleShotConnection);
    manager.start(QUrl(m_server.url("/manifest.json")), cacheRoot());
    QTest::qWait(1500);
    QCOMPARE(completed.count(), startAgain ? 1 : 0);
    QCOMPARE(failed.count(), 0);
    if (startAgain)
        QCOMPARE(completed.at(0).at(0).toString(), zipPath);
    QCOMPARE(TestFiles::read(zipPath), package);
    QCOMPARE(m_server.requestCount("/pkg/package.zip"), 0);
}

void TestDownload::killedAndRestarted_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (1)") << 11u;
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (2)") << 12u;
    QTest::newRow("killed at random points, it resumes and never fetches a finished chunk again (3)") << 13u;
}

// Against nginx serving the signed release of seven chunks.
void TestDownload::killedAndRestarted()
{
    QFETCH(quint32, seed);
    Nginx web;
    QVERIFY2(web.isRunning(), "the test harness starts nginx");
    const QByteArray manifest = signedMaterial("manifest.json");
    QVERIFY(TestFiles::write(web.root() + "/signed/manifest.json", manifest));
    QVERIFY(TestFiles::write(web.root() + "/signed/manifest.json.sig", signedMaterial("current.sig")));
    const qint64 size = QFileInfo(web.root() + "/signed/package.zip").size();
    web.takeRanges(QString());
    const QDir root(cacheRoot());
    QVERIFY(TestFiles::write(root.filePath("outside/keep.txt"), "keep"));
    const QString cache = root.filePath("cache");
    const QDir dir(cache + "/version-1.5.0");
    QRandomGenerator random(seed);
    bool done = false;
    int requestsSeen = 0;
    for (int run = 0; run < 12 && !done; ++run) {
        QList<qint64> before;
        for (int i = 0; i < 7; ++i)
            before << QFileInfo(dir.filePath(DownloadCache::chunkFileName(i))).size();
        QProcess child;
        child.start(QCoreApplication::applicationDirPath() + QStringLiteral("/download_child"),
                    {web.url("/signed/manifest.json"), cache, m_server.caPath()});
        QVERIFY(child.waitForStarted());
        if (run >= 8) {
            QTRY_VERIFY_WITH_TIMEOUT(child.state() == QProcess::NotRunning, 60000);
        } else {
            QTest::qWait(int(random.bounded(150, 700)));
            child.kill(); // SIGKILL, or TerminateProcess on Windows: no chance to tidy up
            // A busy Wine can take many seconds to report a terminated process.
            QVERIFY(child.waitForFinished(60000) || child.state() == QProcess::NotRunning);
        }
        done = child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0;
        QTest::qWait(300); // nginx logs a request once its connection has closed
        // Every request of this run starts where that chunk's file ended before it.
        const QList<QByteArray> requests = web.takeRanges("/signed/package.zip");
        requestsSeen += int(requests.size());
        for (const QByteArray &requested : requests) {
            const qint64 from = requested.mid(6, requested.indexOf('-') - 6).toLongLong();
            const int index = int(from / chunk);
            QVERIFY2(before.at(index) < std::min((index + 1) * chunk, size) - index * chunk, qPrintable("finished chunk fetched again: " + requested));
            QVERIFY2(from >= index * chunk + before.at(index), qPrintable("resumed too early: " + requested));
        }
    }
    QVERIFY(done);
    QVERIFY(requestsSeen >= 7);
    QCOMPARE(TestFiles::read(dir.filePath("package.zip")), TestFiles::read(web.root() + "/signed/package.zip"));
    // Nothing outside the cache directory was touched.
    QCOMPARE(root.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList({"cache", "outside"}));
    QCOMPARE(TestFiles::read(root.filePath("outside/keep.txt")), QByteArray("keep"));
    QCOMPARE(QDir(cache).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList({"version-1.5.0"}));
    for (const QString &name : dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden))
        QVERIFY2(name == "package.zip" || name == "package.sha256" || name.startsWith("chunk-"), qPrintable(name));
}

// The cache lives where the user can write: a link planted among the chunks, named like one,
// loses at most itself when the cache is claimed for another package.
void TestDownload::cacheNeverFollowsALink()
{
    const QString cache = cacheRoot() + QStringLiteral("/cache");
    const QString canaries = cacheRoot() + QStringLiteral("/canaries");
    QVERIFY(TestFiles::write(canaries + QStringLiteral("/precious.bin"), "keep") && QDir().mkpath(cache));
    QVERIFY(TestLinks::makeDirectoryLink(canaries, cache + QStringLiteral("/chunk-0001.bin")));
#ifndef Q_OS_WIN
    QVERIFY(QFile::link(canaries + QStringLiteral("/precious.bin"), cache + QStringLiteral("/chunk-0002.bin")));
#endif
    DownloadCache::claimForPackage(cache, QByteArray(64, 'a'));
    QCOMPARE(TestFiles::read(canaries + QStringLiteral("/precious.bin")), QByteArray("keep"));
    QCOMPARE(QDir(canaries).entryList(QDir::Files), QStringList{QStringLiteral("precious.bin")});
}

QTEST_GUILESS_MAIN(TestDownload)
