#include "tst_download.h"
#include "download_fixture.h"

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

bool writeAll(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

// Debian's nginx serving a directory over HTTPS on 127.0.0.1 with the test server's certificates.
class Nginx
{
public:
    ~Nginx()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000))
                m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    bool start(const QString &certificates, QString *error)
    {
        m_port = freePort();
        const QString root = m_dir.filePath("www");
        QDir().mkpath(root);
        QDir().mkpath(m_dir.filePath("logs"));
        // The workers may run as another user; they must be able to read what they serve.
        QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFile::ReadOther | QFile::ExeOther);
        const QString temp = m_dir.filePath("logs");
        const QByteArray config = QStringLiteral(
            "daemon off; worker_processes 1; pid %1/nginx.pid; error_log %1/logs/error.log;\n"
            "events { worker_connections 64; }\n"
            "http { access_log off; client_body_temp_path %2; proxy_temp_path %2; fastcgi_temp_path %2;\n"
            "  uwsgi_temp_path %2; scgi_temp_path %2; types { application/json json; }\n"
            "  server { listen 127.0.0.1:%3 ssl; ssl_certificate %4/server.pem; ssl_certificate_key %4/server.key;\n"
            "    root %5; } }\n")
            .arg(m_dir.path(), temp).arg(m_port).arg(certificates, root).toUtf8();
        if (!writeAll(m_dir.filePath("nginx.conf"), config))
            return false;
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral("nginx"), {"-e", m_dir.filePath("logs/error.log"), "-p", m_dir.path(), "-c",
                                                  m_dir.filePath("nginx.conf")});
        if (!m_process.waitForStarted(5000))
            return false;
        for (int i = 0; i < 100; ++i) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, m_port);
            if (probe.waitForConnected(100))
                return true;
            if (m_process.state() == QProcess::NotRunning)
                break;
            QTest::qWait(50);
        }
        QFile log(m_dir.filePath("logs/error.log"));
        log.open(QIODevice::ReadOnly);
        *error = QString::fromLocal8Bit(m_process.readAll() + log.readAll());
        return false;
    }

    QString root() const { return m_dir.filePath("www"); }
    QString url(const QString &path) const { return QStringLiteral("https://127.0.0.1:%1%2").arg(m_port).arg(path); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
};

} // namespace

void TestDownload::realServer_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("cached");
    QTest::addColumn<bool>("packageServed");
    QTest::newRow("nginx serves every range of a package of many chunks") << 7 * chunk + 4321 << "" << true;
    QTest::newRow("against nginx a half chunk resumes and a corrupted chunk is fetched again")
        << 3 * chunk + 10 << "half-and-corrupt" << true;
    QTest::newRow("a package nginx does not have ends the run by the stall rule") << chunk << "" << false;
}

void TestDownload::realServer()
{
#ifdef Q_OS_WIN
    QSKIP("nginx runs on the host");
#else
    QFETCH(qint64, size);
    QFETCH(QString, cached);
    QFETCH(bool, packageServed);
    if (QStandardPaths::findExecutable("nginx").isEmpty()
        && QStandardPaths::findExecutable("nginx", {"/usr/sbin", "/sbin"}).isEmpty())
        QSKIP("nginx is not installed (tools/setup installs it)");
    Nginx nginx;
    QString error;
    QVERIFY2(nginx.start(QFileInfo(m_server.caPath()).path(), &error), qPrintable(error));

    const QByteArray package = randomBytes(size, 31);
    const QByteArray sha256 = QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex();
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
    manager.setTiming(fastTiming());
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(m_server.caCertificates());
    manager.setSslConfiguration(ssl);
    const DownloadOutcome outcome = runDownload(manager, QUrl(nginx.url(manifestPath)), cacheRoot());
    QVERIFY(outcome.finished);
    if (!packageServed) {
        QVERIFY(!outcome.completed);
        QVERIFY2(outcome.message.startsWith("A download chunk failed: ")
                     || outcome.message == "No download progress was made for 20 seconds.",
                 qPrintable(outcome.message));
        QVERIFY(!dir.exists("package.zip"));
        return;
    }
    QVERIFY2(outcome.completed, qPrintable(outcome.message));
    QFile zip(outcome.zipPath);
    QVERIFY(zip.open(QIODevice::ReadOnly));
    QVERIFY(zip.readAll() == package);
    // Throwing a corrupted chunk away takes its bytes back out of the progress; otherwise it only grows.
    QVERIFY(!outcome.progressWentBack || !cached.isEmpty());
#endif
}
