#include "tst_download.h"
#include "download_fixture.h"

#include "download/download_manager.h"
#include "download/version_manifest.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#ifdef Q_OS_WIN
#include <windows.h>
#include <wincrypt.h>
#endif

namespace {

const QString digest = QString(64, QLatin1Char('a'));

// A valid manifest with one key changed, or removed when `value` is undefined; "package/size"
// names a key of the package.
QByteArray changed(const QString &key = QString(), const QJsonValue &value = QJsonValue::Undefined)
{
    QJsonObject manifest{
        {"schemaVersion", 1}, {"version", "1.2.3"}, {"releaseId", "r1"},
        {"package", QJsonObject{{"url", "https://cdn.example.invalid/p.zip"}, {"fileName", "p.zip"},
                                {"size", 100}, {"uncompressedSize", 200}, {"sha256", digest}}},
        {"fullPackage", QJsonObject{{"url", "https://cdn.example.invalid/full.zip"}, {"fileName", "full.zip"}}},
    };
    QJsonObject package = manifest.value("package").toObject();
    const bool inPackage = key.startsWith("package/");
    QJsonObject &object = inPackage ? package : manifest;
    if (value.isUndefined())
        object.remove(inPackage ? key.mid(8) : key);
    else
        object.insert(inPackage ? key.mid(8) : key, value);
    if (inPackage)
        manifest.insert("package", package);
    return manifestBytes(manifest);
}

} // namespace

void TestDownload::initTestCase()
{
    QString error;
    QVERIFY2(m_server.start(&error), qPrintable(error));
#ifdef Q_OS_WIN
    // Schannel ignores the CA handed to the TLS configuration; it trusts what the Root store holds.
    for (const QSslCertificate &ca : m_server.caCertificates()) {
        const QByteArray der = ca.toDer();
        QVERIFY(CertAddEncodedCertificateToSystemStoreW(L"Root", reinterpret_cast<const BYTE *>(der.constData()),
                                                        DWORD(der.size())));
    }
    // Wine's Schannel fetches but cannot serve TLS: the network runs are proven against nginx there.
    m_localTls = false;
#endif
}

void TestDownload::init()
{
    static const QStringList withoutLocalServer{"manifest", "servedManifest", "cacheDirectory", "cacheNeverFollowsALink",
                                                "killedAndRestarted"};
    if (!m_localTls && !withoutLocalServer.contains(QLatin1String(QTest::currentTestFunction())))
        QSKIP("the local TLS server cannot serve here");
    m_server.clearFaults();
    m_server.resetCounters();
    m_cache = std::make_unique<QTemporaryDir>();
    QVERIFY(m_cache->isValid());
}

void TestDownload::manifest_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error"); // empty: accepted
    QTest::newRow("a complete manifest is accepted") << changed() << QString();
    QTest::newRow("broken JSON is invalid") << QByteArray("{\"schemaVersion\":1,") << "Invalid manifest JSON.";
    QTest::newRow("a top-level array is invalid JSON") << QByteArray("[1,2]") << "Invalid manifest JSON.";
    QTest::newRow("empty bytes are invalid JSON") << QByteArray() << "Invalid manifest JSON.";
    QTest::newRow("schema 2 is unsupported") << changed("schemaVersion", 2) << "Unsupported manifest schema.";
    QTest::newRow("schema as a string is unsupported") << changed("schemaVersion", "1") << "Unsupported manifest schema.";
    QTest::newRow("schema 1.5 is unsupported") << changed("schemaVersion", 1.5) << "Unsupported manifest schema.";
    QTest::newRow("a missing version is a schema error, not a package error") << changed("version") << "Unsupported manifest schema.";
    QTest::newRow("a numeric version is a schema error") << changed("version", 3) << "Unsupported manifest schema.";
    QTest::newRow("a size of exactly 20 GiB is accepted") << changed("package/size", 21474836480.0) << QString();
    QTest::newRow("a size one byte over 20 GiB is rejected") << changed("package/size", 21474836481.0) << "Invalid package definition.";
    QTest::newRow("a size of zero is rejected") << changed("package/size", 0) << "Invalid package definition.";
    QTest::newRow("a negative size is rejected") << changed("package/size", -5) << "Invalid package definition.";
    QTest::newRow("a huge size beyond 64 bits is rejected") << changed("package/size", 1e300) << "Invalid package definition.";
    QTest::newRow("a size of 1.9 is read as 1 and accepted") << changed("package/size", 1.9) << QString();
    QTest::newRow("a size given as a string is rejected") << changed("package/size", "100") << "Invalid package definition.";
    QTest::newRow("a file name with a slash is rejected") << changed("package/fileName", "sub/p.zip") << "Invalid package definition.";
    QTest::newRow("a file name with a backslash is rejected") << changed("package/fileName", "sub\\p.zip") << "Invalid package definition.";
    QTest::newRow("an empty file name is rejected") << changed("package/fileName", "") << "Invalid package definition.";
    QTest::newRow("an upper-case digest is accepted") << changed("package/sha256", digest.toUpper()) << QString();
    QTest::newRow("a 63-digit digest is rejected") << changed("package/sha256", digest.left(63)) << "Invalid package definition.";
    QTest::newRow("a 65-digit digest is rejected") << changed("package/sha256", digest + "a") << "Invalid package definition.";
    QTest::newRow("a digest with a trailing newline is rejected") << changed("package/sha256", digest + "\n") << "Invalid package definition.";
    QTest::newRow("a digest with a non-hex digit is rejected") << changed("package/sha256", digest.left(63) + "g") << "Invalid package definition.";
    QTest::newRow("an HTTPS scheme in capitals is accepted") << changed("package/url", "HTTPS://cdn.example.invalid/p.zip") << QString();
    QTest::newRow("a plain http package is rejected") << changed("package/url", "http://cdn.example.invalid/p.zip") << "Invalid package definition.";
    QTest::newRow("a missing package url is rejected") << changed("package/url") << "Invalid package definition.";
    QTest::newRow("a missing package object is rejected") << changed("package") << "Invalid package definition.";
    QTest::newRow("a missing full package fails with its own message") << changed("fullPackage") << "Missing full package URL.";
    QTest::newRow("a plain http full package fails with its own message")
        << changed("fullPackage", QJsonObject{{"url", "http://cdn.example.invalid/full.zip"}}) << "Missing full package URL.";
}

void TestDownload::manifest()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    VersionManifest parsed;
    parsed.version = QStringLiteral("previous");
    QString message = QStringLiteral("unset");
    const bool ok = VersionManifest::fromJson(json, &parsed, &message);
    if (error.isEmpty()) {
        QVERIFY2(ok, qPrintable(message));
        QCOMPARE(parsed.version, QStringLiteral("1.2.3"));
        QCOMPARE(parsed.package.sha256, digest.toLatin1());
        QVERIFY(parsed.package.size >= 1);
    } else {
        QVERIFY(!ok);
        QCOMPARE(message, error);
        QCOMPARE(parsed.version, QStringLiteral("previous"));
    }
    QString noOutput;
    QVERIFY(!VersionManifest::fromJson(json, nullptr, &noOutput));
    QCOMPARE(noOutput, QStringLiteral("Missing manifest output."));
}

void TestDownload::serverFaults_data()
{
    using Fault = TestHttpsServer::Fault;
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("path");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("failure"); // a pattern; empty: the download completes
    QTest::addColumn<QList<QByteArray>>("ranges"); // every range asked for, in any order; empty: not checked

    const qint64 chunk = DownloadManager::chunkSize;
    const qint64 three = 2 * chunk + 12345;
    const QString pkg = "/pkg/package.zip";
    // Each range once in full, then again from where the short answer (two thirds of it) ended.
    QList<QByteArray> resumed;
    for (qint64 start = 0; start < three; start += chunk) {
        const qint64 end = std::min(start + chunk, three) - 1;
        const qint64 kept = end - start + 1 - std::max<qint64>(1, (end - start + 1) / 3);
        resumed << "bytes=" + QByteArray::number(start) + '-' + QByteArray::number(end)
                << "bytes=" + QByteArray::number(start + kept) + '-' + QByteArray::number(end);
    }
    const QString refused = "^The download server does not support ranged requests\\.$";
    const QString stalled = "^(No download progress was made for 20 seconds\\.|%1)$";
    QTest::newRow("a clean server delivers a verified package") << three << pkg << Fault::None << 0 << QString() << QList<QByteArray>();
    QTest::newRow("a one-byte package is one chunk") << qint64(1) << pkg << Fault::None << 0 << QString() << QList<QByteArray>{"bytes=0-0"};
    QTest::newRow("an exact multiple of the chunk size has no empty chunk") << 2 * chunk << pkg << Fault::None << 0 << QString()
        << QList<QByteArray>{"bytes=0-8388607", "bytes=8388608-16777215"};
    QTest::newRow("connections reset mid-body are resumed") << three << pkg << Fault::ResetMidBody << 3 << QString() << QList<QByteArray>();
    QTest::newRow("a body that stalls is abandoned and resumed") << three << pkg << Fault::StallMidBody << 2 << QString() << QList<QByteArray>();
    QTest::newRow("connections dropped before an answer are retried") << three << pkg << Fault::DropBeforeAnswer << 3 << QString() << QList<QByteArray>();
    QTest::newRow("a short body is kept and resumed where it ends") << three << pkg << Fault::ShortBody << 3 << QString() << resumed;
    QTest::newRow("bytes of a wrong range are never written") << three << pkg << Fault::WrongContentRange << 2 << QString() << QList<QByteArray>();
    QTest::newRow("a slow trickle still completes") << qint64(40000) << pkg << Fault::Trickle << 1 << QString() << QList<QByteArray>();
    QTest::newRow("a manifest that is briefly missing is fetched again") << three << "/manifest.json" << Fault::NotFound << 2 << QString() << QList<QByteArray>();
    QTest::newRow("a signature that is briefly unreachable is fetched again") << three << "/manifest.json.sig" << Fault::DropBeforeAnswer << 2 << QString() << QList<QByteArray>();
    QTest::newRow("200 with the whole body to a range fails at once") << three << pkg << Fault::WholeBodyFor200 << 1 << refused << QList<QByteArray>();
    QTest::newRow("a 500 to a range fails at once") << three << pkg << Fault::Status500 << 1 << refused << QList<QByteArray>();
    QTest::newRow("a 503 to a range fails at once") << three << pkg << Fault::Status503 << 1 << refused << QList<QByteArray>();
    QTest::newRow("corrupted bytes fail verification") << three << pkg << Fault::CorruptBytes << 1
        << "^The combined package failed verification\\.$" << QList<QByteArray>();
    // The network's own error is named; "Operation canceled" would be the installer's abort talking.
    QTest::newRow("a manifest that stays missing ends the run by the stall rule") << three << "/manifest.json" << Fault::NotFound << 1000
        << stalled.arg("Unable to download the version manifest: (?!Operation canceled).+") << QList<QByteArray>();
    QTest::newRow("a chunk that keeps failing ends the run by the stall rule") << three << pkg << Fault::DropBeforeAnswer << 1000
        << stalled.arg("A download chunk failed: (?!Operation canceled).+") << QList<QByteArray>();
    QTest::newRow("a chunk that keeps coming short ends the run by the stall rule") << qint64(3000) << pkg << Fault::ShortBody << 1000
        << stalled.arg("A download chunk has an unexpected size\\.") << QList<QByteArray>();
}

void TestDownload::serverFaults()
{
    QFETCH(qint64, size);
    QFETCH(QString, path);
    QFETCH(TestHttpsServer::Fault, fault);
    QFETCH(int, count);
    QFETCH(QString, failure);
    QFETCH(QList<QByteArray>, ranges);
    const QByteArray package = serveRelease(m_server, size);
    m_server.addFault(path, fault, count);
    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    QElapsedTimer clock;
    clock.start();
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY(outcome.finished);
    QVERIFY(!outcome.progressWentBack);
    if (!ranges.isEmpty()) {
        QList<QByteArray> asked = m_server.ranges("/pkg/package.zip");
        std::sort(asked.begin(), asked.end());
        std::sort(ranges.begin(), ranges.end());
        QCOMPARE(asked, ranges);
    }
    const QDir cacheDir(cacheRoot() + "/version-1.2.3");
    if (failure.isEmpty()) {
        QVERIFY2(outcome.completed, qPrintable(outcome.message));
        QCOMPARE(outcome.zipPath, cacheDir.filePath("package.zip"));
        QVERIFY(readFile(outcome.zipPath) == package);
        QCOMPARE(outcome.lastReceived, size);
        QVERIFY(!QFile::exists(outcome.zipPath + ".assembling"));
        return;
    }
    QVERIFY(!outcome.completed);
    QVERIFY2(QRegularExpression(failure).match(outcome.message).hasMatch(), qPrintable(outcome.message));
    if (outcome.message.startsWith("The download server does not support"))
        QVERIFY2(clock.elapsed() < fastTiming().stallMs, "a refused range is not waited out");
    QVERIFY(!cacheDir.exists("package.zip"));
    // Every chunk file stays for the next run, holding only bytes of its own range (a package
    // that does not add up is fetched again by the next run).
    const QStringList chunks = cacheDir.entryList({"chunk-*.bin"}, QDir::Files);
    QCOMPARE(chunks.size(), path == "/manifest.json" ? 0 : int((size + DownloadManager::chunkSize - 1) / DownloadManager::chunkSize));
    for (const QString &name : chunks) {
        const QByteArray bytes = readFile(cacheDir.filePath(name));
        const QByteArray range = package.mid(name.mid(6, 4).toInt() * DownloadManager::chunkSize);
        QVERIFY2(fault == TestHttpsServer::Fault::CorruptBytes || range.startsWith(bytes), qPrintable(name));
    }
}

void TestDownload::stallRule_data()
{
    QTest::addColumn<bool>("realScale");
    QTest::newRow("a dead server ends the run after the scaled stall time") << false;
    QTest::newRow("a dead server ends the run after twenty real seconds") << true;
}

void TestDownload::stallRule()
{
    QFETCH(bool, realScale);
    serveRelease(m_server, 3 * DownloadManager::chunkSize);
    m_server.addFault("/pkg/package.zip", TestHttpsServer::Fault::DropBeforeAnswer, 100000);
    DownloadManager manager;
    const DownloadManager::Timing timing = realScale ? DownloadManager::Timing() : fastTiming();
    manager.setTiming(timing);
    useServer(manager, m_server);
    QElapsedTimer clock;
    clock.start();
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot(), 60000);
    const qint64 elapsed = clock.elapsed();
    QVERIFY(outcome.finished && !outcome.completed);
    QVERIFY2(elapsed >= timing.stallMs && elapsed < timing.stallMs + timing.retryDelayMs + 1500, qPrintable(QString::number(elapsed)));
    // Retries kept coming until the end, each after the retry delay.
    const int requests = m_server.requestCount("/pkg/package.zip");
    QVERIFY2(requests >= timing.stallMs / timing.retryDelayMs, qPrintable(QString::number(requests)));
}

void TestDownload::prefetch_data()
{
    QTest::addColumn<QString>("missing"); // served with 404, or nothing
    QTest::addColumn<int>("manifestRequests");
    QTest::newRow("a prefetch reports the version and the space") << QString() << 1;
    QTest::newRow("a prefetch with the manifest missing tries five times and stays quiet") << "/manifest.json" << 5;
    QTest::newRow("a prefetch of an unsigned manifest reports nothing of it") << "/manifest.json.sig" << 1;
}

void TestDownload::prefetch()
{
    QFETCH(QString, missing);
    QFETCH(int, manifestRequests);
    serveRelease(m_server, 1000);
    m_server.addFault(missing, TestHttpsServer::Fault::NotFound, 100);
    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    QSignalSpy versions(&manager, &DownloadManager::manifestVersionKnown);
    QSignalSpy space(&manager, &DownloadManager::requiredSpaceKnown);
    QSignalSpy failures(&manager, &DownloadManager::failed);
    QSignalSpy progress(&manager, &DownloadManager::progressChanged);
    manager.prefetchManifest(m_server.url("/manifest.json"));
    QTRY_COMPARE(m_server.requestCount("/manifest.json"), manifestRequests);
    QTest::qWait(500);
    QCOMPARE(m_server.requestCount("/manifest.json"), manifestRequests);
    QCOMPARE(versions.count(), missing.isEmpty() ? 1 : 0);
    QCOMPARE(space.count(), missing.isEmpty() ? 1 : 0);
    if (missing.isEmpty())
        QCOMPARE(space.at(0).at(0).toLongLong(), qint64(2000));
    QCOMPARE(failures.count() + progress.count() + m_server.requestCount("/pkg/package.zip"), 0);
}
