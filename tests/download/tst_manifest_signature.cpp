#include "tst_download.h"
#include "download_fixture.h"

#include "support/log_capture.h"
#include "support/test_signing.h"

#include <QCryptographicHash>
#include <QDir>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString unsigned_ = QStringLiteral("The version manifest does not carry a valid signature of the publisher.");

} // namespace

// Each row serves the signed release through nginx with one thing changed: only the publisher's
// current or next key over the manifest's exact bytes lets it be read.
void TestDownload::servedManifest_data()
{
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QByteArray>("signature"); // "404": none on the server
    QTest::addColumn<QString>("check");        // the failed check the log names; empty: none failed
    QTest::addColumn<QString>("message");      // empty: the package is downloaded
    QTest::addColumn<bool>("cachedChunks");    // a corrupted, a half and a whole chunk in the cache
    const QByteArray manifest = signedMaterial(QStringLiteral("manifest.json"));
    const QByteArray current = signedMaterial(QStringLiteral("current.sig"));
    QVERIFY(manifest.contains("/signed/package.zip") && current.size() == 89);
    QTest::newRow("the current key over the exact bytes") << manifest << current << "" << "" << false;
    QTest::newRow("the next key, during a rotation") << manifest << signedMaterial(QStringLiteral("next.sig")) << "" << "" << false;
    QTest::newRow("without its line ending, with cached chunks to mend") << manifest << current.trimmed() << "" << "" << true;
    QTest::newRow("a key no build accepts") << manifest << signedMaterial(QStringLiteral("stranger.sig")) << "no_matching_key" << unsigned_ << false;
    QTest::newRow("a signature of other bytes") << manifest << signedMaterial(QStringLiteral("other-bytes.sig")) << "no_matching_key" << unsigned_ << false;
    QTest::newRow("the manifest with one blank added") << QByteArray(manifest).insert(1, ' ') << current << "no_matching_key" << unsigned_ << false;
    QTest::newRow("one bit of the signature flipped")
        << manifest << QByteArray(current).replace(0, 1, current.at(0) == 'A' ? "B" : "A") << "no_matching_key" << unsigned_ << false;
    QTest::newRow("an empty signature file") << manifest << QByteArray("") << "empty" << unsigned_ << false;
    QTest::newRow("a line ending alone") << manifest << QByteArray("\n") << "empty" << unsigned_ << false;
    QTest::newRow("a truncated signature") << manifest << current.left(60) << "wrong_length" << unsigned_ << false;
    QTest::newRow("a signature file of 2 KiB") << manifest << QByteArray(2048, 'A') << "oversized" << unsigned_ << false;
    QTest::newRow("a signature file of 1 MiB") << manifest << QByteArray(1048576, 'A') << "oversized" << unsigned_ << false;
    QTest::newRow("text that is not base64") << manifest << QByteArray("this is not a signature!").repeated(3) << "not_base64" << unsigned_ << false;
    QTest::newRow("two line endings") << manifest << current + "\n" << "not_base64" << unsigned_ << false;
    QTest::newRow("no signature on the server (404)") << manifest << QByteArray("404") << "missing" << unsigned_ << false;
    // A signed manifest is still checked as a manifest, and its package as a package.
    const QByteArray schema2 = QByteArray(manifest).replace("\"schemaVersion\":1", "\"schemaVersion\":2");
    const QByteArray html = "<html>maintenance</html>";
    const QByteArray noFull = manifest.left(manifest.indexOf(",\"fullPackage\"")) + "}";
    const QByteArray gone = QByteArray(manifest).replace("/signed/package.zip", "/signed/missing.zip");
    QTest::newRow("a signed manifest for schema 2 ends the run") << schema2 << TestSigning::signatureFile(schema2) << ""
        << "The version manifest is invalid: Unsupported manifest schema." << false;
    QTest::newRow("a signed HTML page ends the run") << html << TestSigning::signatureFile(html) << ""
        << "The version manifest is invalid: Invalid manifest JSON." << false;
    QTest::newRow("a signed manifest without a full package ends the run") << noFull << TestSigning::signatureFile(noFull) << ""
        << "The version manifest is invalid: Missing full package URL." << false;
    QTest::newRow("a package nginx answers with 404 ends the run at once") << gone << TestSigning::signatureFile(gone) << ""
        << "The download server does not support ranged requests." << false;
}

void TestDownload::servedManifest()
{
    QFETCH(QByteArray, manifest);
    QFETCH(QByteArray, signature);
    QFETCH(QString, check);
    QFETCH(QString, message);
    QFETCH(bool, cachedChunks);
    Nginx nginx;
    QVERIFY2(nginx.isRunning(), "the test harness starts nginx");
    QVERIFY(TestFiles::write(nginx.root() + "/signed/manifest.json", manifest));
    QFile::remove(nginx.root() + "/signed/manifest.json.sig");
    QVERIFY(signature == "404" || TestFiles::write(nginx.root() + "/signed/manifest.json.sig", signature));
    const QByteArray package = TestFiles::read(nginx.root() + "/signed/package.zip");
    const QDir dir(cacheRoot() + "/version-1.5.0");
    if (cachedChunks) {
        const qint64 chunk = DownloadManager::chunkSize;
        QVERIFY(TestFiles::write(dir.filePath("package.sha256"), QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex()));
        QByteArray corrupt = package.left(chunk);
        corrupt[12345] = char(corrupt.at(12345) ^ 1);
        QVERIFY(TestFiles::write(dir.filePath("chunk-0000.bin"), corrupt));
        QVERIFY(TestFiles::write(dir.filePath("chunk-0001.bin"), package.mid(chunk, chunk / 2)));
        QVERIFY(TestFiles::write(dir.filePath("chunk-0002.bin"), package.mid(2 * chunk, chunk)));
    }
    DownloadManager manager;
    useServer(manager, m_server, DownloadManager::Timing());
    QSignalSpy versions(&manager, &DownloadManager::manifestVersionKnown);
    const LogCapture log;
    const DownloadOutcome outcome = runDownload(manager, nginx.url("/signed/manifest.json"), cacheRoot());
    QVERIFY(outcome.finished);
    QCOMPARE(log.lines().filter("Manifest signature check failed:"),
             check.isEmpty() ? QStringList() : QStringList{"Manifest signature check failed: " + check});
    QTest::qWait(300); // nginx logs a request once its connection has closed
    const QList<QByteArray> packageRequests = nginx.takeRanges("/signed/package.zip");
    if (message.isEmpty()) {
        QVERIFY2(outcome.completed, qPrintable(outcome.message));
        QVERIFY(TestFiles::read(outcome.zipPath) == package);
        // Throwing a corrupted chunk away takes its bytes back out of the progress; otherwise it only grows.
        QVERIFY(!outcome.progressWentBack || cachedChunks);
        return;
    }
    QCOMPARE(outcome.message, message);
    QVERIFY(!dir.exists("package.zip"));
    if (message.startsWith("The version manifest")) {
        QCOMPARE(versions.count(), 0);
        QCOMPARE(packageRequests, QList<QByteArray>());
        QVERIFY(QDir(cacheRoot()).isEmpty());
    }
}
