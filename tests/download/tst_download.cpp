#include "tst_download.h"
#include "download_fixture.h"

#include "download/download_manager.h"
#include "download/version_manifest.h"

#include <QDir>
#include <QElapsedTimer>
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
    useServer(manager, m_server, timing);
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
