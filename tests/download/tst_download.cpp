#include "tst_download.h"
#include "download_fixture.h"

#include "download/download_manager.h"
#include "download/version_manifest.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTest>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#ifdef Q_OS_WIN
#include <windows.h>
#include <wincrypt.h>
#endif

namespace {

const QString digest = QString(64, QLatin1Char('a'));

QJsonObject validManifest()
{
    return QJsonObject{
        {"schemaVersion", 1}, {"version", "1.2.3"}, {"releaseId", "r1"},
        {"package", QJsonObject{{"url", "https://cdn.example.invalid/p.zip"}, {"fileName", "p.zip"},
                                {"size", 100}, {"uncompressedSize", 200}, {"sha256", digest}}},
        {"fullPackage", QJsonObject{{"url", "https://cdn.example.invalid/full.zip"}, {"fileName", "full.zip"}}},
    };
}

QByteArray withPackage(const char *key, const QJsonValue &value)
{
    QJsonObject manifest = validManifest();
    QJsonObject package = manifest.value("package").toObject();
    if (value.isUndefined())
        package.remove(key);
    else
        package.insert(key, value);
    manifest.insert("package", package);
    return manifestBytes(manifest);
}

QByteArray withTop(const char *key, const QJsonValue &value)
{
    QJsonObject manifest = validManifest();
    if (value.isUndefined())
        manifest.remove(key);
    else
        manifest.insert(key, value);
    return manifestBytes(manifest);
}

void useServer(DownloadManager &manager, const TestHttpsServer &server)
{
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(server.caCertificates());
    manager.setSslConfiguration(ssl);
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
    // Can this system's TLS serve as well as fetch?
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(m_server.url("/probe")));
    request.setTransferTimeout(5000);
    QNetworkReply *reply = network.get(request);
    QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
    m_localTls = reply->error() == QNetworkReply::ContentNotFoundError;
    delete reply;
#endif
}

void TestDownload::init()
{
    // Wine's Schannel cannot serve TLS; there the network runs are proven against nginx.
    static const QStringList withoutLocalServer{"manifest", "manifestSignature", "cacheDirectory", "cacheNeverFollowsALink", "realServer", "killedAndRestarted"};
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
    const QJsonValue absent = QJsonValue::Undefined;

    QTest::newRow("a complete manifest is accepted") << manifestBytes(validManifest()) << QString();
    QTest::newRow("broken JSON is invalid") << QByteArray("{\"schemaVersion\":1,") << "Invalid manifest JSON.";
    QTest::newRow("a top-level array is invalid JSON") << QByteArray("[1,2]") << "Invalid manifest JSON.";
    QTest::newRow("empty bytes are invalid JSON") << QByteArray() << "Invalid manifest JSON.";
    QTest::newRow("schema 2 is unsupported") << withTop("schemaVersion", 2) << "Unsupported manifest schema.";
    QTest::newRow("schema as a string is unsupported") << withTop("schemaVersion", "1") << "Unsupported manifest schema.";
    QTest::newRow("schema 1.5 is unsupported") << withTop("schemaVersion", 1.5) << "Unsupported manifest schema.";
    QTest::newRow("a missing version is a schema error, not a package error") << withTop("version", absent) << "Unsupported manifest schema.";
    QTest::newRow("a numeric version is a schema error") << withTop("version", 3) << "Unsupported manifest schema.";
    QTest::newRow("a size of exactly 20 GiB is accepted") << withPackage("size", 21474836480.0) << QString();
    QTest::newRow("a size one byte over 20 GiB is rejected") << withPackage("size", 21474836481.0) << "Invalid package definition.";
    QTest::newRow("a size of zero is rejected") << withPackage("size", 0) << "Invalid package definition.";
    QTest::newRow("a negative size is rejected") << withPackage("size", -5) << "Invalid package definition.";
    QTest::newRow("a huge size beyond 64 bits is rejected") << withPackage("size", 1e300) << "Invalid package definition.";
    QTest::newRow("a size of 1.9 is read as 1 and accepted") << withPackage("size", 1.9) << QString();
    QTest::newRow("a size given as a string is rejected") << withPackage("size", "100") << "Invalid package definition.";
    QTest::newRow("a file name with a slash is rejected") << withPackage("fileName", "sub/p.zip") << "Invalid package definition.";
    QTest::newRow("a file name with a backslash is rejected") << withPackage("fileName", "sub\\p.zip") << "Invalid package definition.";
    QTest::newRow("an empty file name is rejected") << withPackage("fileName", "") << "Invalid package definition.";
    QTest::newRow("an upper-case digest is accepted") << withPackage("sha256", digest.toUpper()) << QString();
    QTest::newRow("a 63-digit digest is rejected") << withPackage("sha256", digest.left(63)) << "Invalid package definition.";
    QTest::newRow("a 65-digit digest is rejected") << withPackage("sha256", digest + "a") << "Invalid package definition.";
    QTest::newRow("a digest with a trailing newline is rejected") << withPackage("sha256", digest + "\n") << "Invalid package definition.";
    QTest::newRow("a digest with a non-hex digit is rejected") << withPackage("sha256", digest.left(63) + "g") << "Invalid package definition.";
    QTest::newRow("an HTTPS scheme in capitals is accepted") << withPackage("url", "HTTPS://cdn.example.invalid/p.zip") << QString();
    QTest::newRow("a plain http package is rejected") << withPackage("url", "http://cdn.example.invalid/p.zip") << "Invalid package definition.";
    QTest::newRow("a missing package url is rejected") << withPackage("url", absent) << "Invalid package definition.";
    QTest::newRow("a missing package object is rejected") << withTop("package", absent) << "Invalid package definition.";
    QTest::newRow("a missing full package fails with its own message") << withTop("fullPackage", absent) << "Missing full package URL.";
    QTest::newRow("a plain http full package fails with its own message")
        << withTop("fullPackage", QJsonObject{{"url", "http://cdn.example.invalid/full.zip"}}) << "Missing full package URL.";
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

void TestDownload::invalidManifestFailsTheRun_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("message");
    QTest::newRow("a manifest for schema 2 ends the run") << withTop("schemaVersion", 2)
        << "The version manifest is invalid: Unsupported manifest schema.";
    QTest::newRow("an HTML error page ends the run") << QByteArray("<html>maintenance</html>")
        << "The version manifest is invalid: Invalid manifest JSON.";
    QTest::newRow("a manifest without a full package ends the run") << withTop("fullPackage", QJsonValue::Undefined)
        << "The version manifest is invalid: Missing full package URL.";
}

void TestDownload::invalidManifestFailsTheRun()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, message);
    m_server.setFile("/bad-manifest.json", json);
    DownloadManager manager;
    useServer(manager, m_server);
    QSignalSpy versions(&manager, &DownloadManager::manifestVersionKnown);
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/bad-manifest.json"), cacheRoot());
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.message, message);
    QCOMPARE(versions.count(), 0);
    QVERIFY(QDir(cacheRoot()).isEmpty());
}

void TestDownload::serverFaults_data()
{
    using Fault = TestHttpsServer::Fault;
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("path");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("failure"); // a pattern; empty: the download completes

    const qint64 threeChunks = 2 * DownloadManager::chunkSize + 12345;
    const QString pkg = "/pkg/package.zip";
    QTest::newRow("a clean server delivers a verified package") << threeChunks << pkg << Fault::None << 0 << QString();
    QTest::newRow("a one-byte package is one chunk") << qint64(1) << pkg << Fault::None << 0 << QString();
    QTest::newRow("an exact multiple of the chunk size has no empty chunk") << 2 * DownloadManager::chunkSize << pkg << Fault::None << 0 << QString();
    QTest::newRow("connections reset mid-body are resumed") << threeChunks << pkg << Fault::ResetMidBody << 3 << QString();
    QTest::newRow("a body that stalls is abandoned and resumed") << threeChunks << pkg << Fault::StallMidBody << 2 << QString();
    QTest::newRow("connections dropped before an answer are retried") << threeChunks << pkg << Fault::DropBeforeAnswer << 3 << QString();
    QTest::newRow("a short body is resumed where it ends") << threeChunks << pkg << Fault::ShortBody << 3 << QString();
    QTest::newRow("bytes of a wrong range are never written") << threeChunks << pkg << Fault::WrongContentRange << 2 << QString();
    QTest::newRow("a slow trickle still completes") << qint64(40000) << pkg << Fault::Trickle << 1 << QString();
    QTest::newRow("a manifest that is briefly missing is fetched again") << threeChunks << "/manifest.json" << Fault::NotFound << 2 << QString();
    QTest::newRow("200 with the whole body to a range fails at once") << threeChunks << pkg << Fault::WholeBodyFor200 << 1
        << "^The download server does not support ranged requests\\.$";
    QTest::newRow("a 500 to a range fails at once") << threeChunks << pkg << Fault::Status500 << 1
        << "^The download server does not support ranged requests\\.$";
    QTest::newRow("a 503 to a range fails at once") << threeChunks << pkg << Fault::Status503 << 1
        << "^The download server does not support ranged requests\\.$";
    QTest::newRow("corrupted bytes fail verification") << threeChunks << pkg << Fault::CorruptBytes << 1
        << "^The combined package failed verification\\.$";
    QTest::newRow("a manifest that stays missing ends the run by the stall rule") << threeChunks << "/manifest.json" << Fault::NotFound << 1000
        << "^(No download progress was made for 20 seconds\\.|Unable to download the version manifest: .*)$";
    QTest::newRow("a chunk that keeps failing ends the run by the stall rule") << threeChunks << pkg << Fault::DropBeforeAnswer << 1000
        << "^(No download progress was made for 20 seconds\\.|A download chunk failed: .*)$";
    QTest::newRow("a chunk that keeps coming short ends the run by the stall rule") << qint64(3000) << pkg << Fault::ShortBody << 1000
        << "^(No download progress was made for 20 seconds\\.|A download chunk has an unexpected size\\.)$";
}

void TestDownload::serverFaults()
{
    QFETCH(qint64, size);
    QFETCH(QString, path);
    QFETCH(TestHttpsServer::Fault, fault);
    QFETCH(int, count);
    QFETCH(QString, failure);
    const ServedRelease release = serveRelease(m_server, size);
    m_server.addFault(path, fault, count);
    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    QElapsedTimer clock;
    clock.start();
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY(outcome.finished);
    if (outcome.message.startsWith("The download server does not support"))
        QVERIFY2(clock.elapsed() < fastTiming().stallMs, "a refused range is not waited out");
    const QDir cacheDir(cacheRoot() + "/version-1.2.3");
    if (failure.isEmpty()) {
        QVERIFY2(outcome.completed, qPrintable(outcome.message));
        QCOMPARE(outcome.zipPath, cacheDir.filePath("package.zip"));
        QFile zip(outcome.zipPath);
        QVERIFY(zip.open(QIODevice::ReadOnly));
        QVERIFY(zip.readAll() == release.package);
        QCOMPARE(outcome.lastReceived, size);
        QVERIFY(!QFile::exists(outcome.zipPath + ".assembling"));
    } else {
        QVERIFY(!outcome.completed);
        QVERIFY2(QRegularExpression(failure).match(outcome.message).hasMatch(), qPrintable(outcome.message));
        QVERIFY(!cacheDir.exists("package.zip"));
        // A package that does not add up keeps its chunks for the next run, which fetches them
        // again if they still do not; nothing of a wrong body may stay otherwise.
        const QStringList chunks = cacheDir.entryList({"chunk-*.bin"}, QDir::Files);
        if (fault == TestHttpsServer::Fault::CorruptBytes)
            QCOMPARE(chunks.size(), 3);
        for (const QString &name : chunks) {
            if (fault == TestHttpsServer::Fault::CorruptBytes)
                break;
            const int index = name.mid(6, 4).toInt();
            QFile chunk(cacheDir.filePath(name));
            QVERIFY(chunk.open(QIODevice::ReadOnly));
            QVERIFY2(release.package.mid(index * DownloadManager::chunkSize).startsWith(chunk.readAll()), qPrintable(name));
        }
    }
    QVERIFY(!outcome.progressWentBack);
}

void TestDownload::shortRangeKeepsItsBytes()
{
    // The server answers the first request with two thirds of the range and says so.
    const ServedRelease release = serveRelease(m_server, 3000);
    m_server.addFault("/pkg/package.zip", TestHttpsServer::Fault::ShortBody);
    DownloadManager manager;
    manager.setTiming(fastTiming());
    useServer(manager, m_server);
    const DownloadOutcome outcome = runDownload(manager, m_server.url("/manifest.json"), cacheRoot());
    QVERIFY2(outcome.completed, qPrintable(outcome.message));
    QCOMPARE(m_server.ranges("/pkg/package.zip"), QList<QByteArray>({"bytes=0-2999", "bytes=2000-2999"}));
    QFile zip(outcome.zipPath);
    QVERIFY(zip.open(QIODevice::ReadOnly));
    QVERIFY(zip.readAll() == release.package);
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
    QVERIFY2(elapsed >= timing.stallMs && elapsed < timing.stallMs + timing.retryDelayMs + 1500,
             qPrintable(QString::number(elapsed)));
    // Retries kept coming until the end, each after the retry delay.
    const int requests = m_server.requestCount("/pkg/package.zip");
    QVERIFY2(requests >= timing.stallMs / timing.retryDelayMs, qPrintable(QString::number(requests)));
}

void TestDownload::prefetch_data()
{
    QTest::addColumn<bool>("serverUp");
    QTest::addColumn<int>("manifestRequests");
    QTest::newRow("a prefetch reports the version and the space") << true << 1;
    QTest::newRow("a prefetch with the manifest missing tries five times and stays quiet") << false << 5;
}

void TestDownload::prefetch()
{
    QFETCH(bool, serverUp);
    QFETCH(int, manifestRequests);
    serveRelease(m_server, 1000);
    if (!serverUp)
        m_server.addFault("/manifest.json", TestHttpsServer::Fault::NotFound, 100);
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
    QCOMPARE(versions.count(), serverUp ? 1 : 0);
    QCOMPARE(space.count(), serverUp ? 1 : 0);
    if (serverUp)
        QCOMPARE(space.at(0).at(0).toLongLong(), qint64(2000));
    QCOMPARE(failures.count(), 0);
    QCOMPARE(progress.count(), 0);
    QVERIFY(m_server.requestCount("/pkg/package.zip") == 0);
}
