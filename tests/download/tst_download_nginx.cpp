#include "tst_download.h"
#include "download_fixture.h"
#include "test_nginx.h"

#include "download/download_cache.h"
#include "download/download_manager.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QProcess>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

namespace {

constexpr qint64 chunk = DownloadManager::chunkSize;

} // namespace

void TestDownload::realServer_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("cached");
    QTest::addColumn<bool>("packageServed");
    QTest::newRow("nginx serves every range of a package of many chunks") << 7 * chunk + 4321 << "" << true;
    QTest::newRow("against nginx a half chunk resumes and a corrupted chunk is fetched again")
        << 3 * chunk + 10 << "half-and-corrupt" << true;
    QTest::newRow("a package nginx answers with 404 ends the run at once") << chunk << "" << false;
}

void TestDownload::realServer()
{
    QFETCH(qint64, size);
    QFETCH(QString, cached);
    QFETCH(bool, packageServed);
    Nginx nginx;
    QString why;
    bool skip = false;
    if (!nginx.startOrAttach(QFileInfo(m_server.caPath()).path(), &why, &skip)) {
        if (skip)
            QSKIP(qPrintable(why));
        QFAIL(qPrintable(why));
    }

    const QByteArray package = randomBytes(size, 31);
    const QByteArray sha256 = QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex();
    // An nginx started by the harness serves one directory for every row.
    QFile::remove(nginx.root() + "/pkg/package.zip");
    if (packageServed)
        QVERIFY(writeAll(nginx.root() + "/pkg/package.zip", package));
    const QJsonObject manifest{
        {"schemaVersion", 1}, {"version", "4.5.6"}, {"releaseId", ""},
        {"package", QJsonObject{{"url", nginx.url("/pkg/package.zip")}, {"fileName", "package.zip"},
                                {"size", double(size)}, {"uncompressedSize", double(size)},
                                {"sha256", QString::fromLatin1(sha256)}}},
        {"fullPackage", QJsonObject{{"url", nginx.url("/pkg/full.zip")}, {"fileName", "full.zip"}}},
    };
    const QString manifestPath = "/bl-desktop/prod/brisalinker/installer/win/manifest.json";
    QVERIFY(writeAll(nginx.root() + manifestPath, manifestBytes(manifest)));

    const QDir dir(cacheRoot() + "/version-4.5.6");
    if (cached == "half-and-corrupt") {
        QVERIFY(writeAll(dir.filePath("package.sha256"), sha256));
        QByteArray corrupt = package.mid(0, chunk);
        corrupt[12345] = char(corrupt.at(12345) ^ 1);
        QVERIFY(writeAll(dir.filePath(DownloadCache::chunkFileName(0)), corrupt));
        QVERIFY(writeAll(dir.filePath(DownloadCache::chunkFileName(1)), package.mid(chunk, chunk / 2)));
        QVERIFY(writeAll(dir.filePath(DownloadCache::chunkFileName(2)), package.mid(2 * chunk, chunk)));
    }

    DownloadManager manager;
    // Real request timeouts: TLS set-up of six connections at once can take a while under Wine.
    DownloadManager::Timing timing = fastTiming();
    timing.stallMs = 6000;
    timing.retryDelayMs = 1000;
    timing.transferTimeoutMs = 4000;
    manager.setTiming(timing);
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(m_server.caCertificates());
    manager.setSslConfiguration(ssl);
    const DownloadOutcome outcome = runDownload(manager, QUrl(nginx.url(manifestPath)), cacheRoot());
    QVERIFY(outcome.finished);
    if (!packageServed) {
        QVERIFY(!outcome.completed);
        QCOMPARE(outcome.message, QStringLiteral("The download server does not support ranged requests."));
        QVERIFY(!dir.exists("package.zip"));
        return;
    }
    QVERIFY2(outcome.completed, qPrintable(outcome.message));
    QFile zip(outcome.zipPath);
    QVERIFY(zip.open(QIODevice::ReadOnly));
    QVERIFY(zip.readAll() == package);
    // Throwing a corrupted chunk away takes its bytes back out of the progress; otherwise it only grows.
    QVERIFY(!outcome.progressWentBack || !cached.isEmpty());
}
