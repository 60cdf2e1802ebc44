#include "download_fixture.h"
#include "support/test_files.h"
#include "support/test_signing.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTest>

Nginx::Nginx()
    : m_dir(qEnvironmentVariable("BRISA_TEST_NGINX_DIR"))
{
    m_port = quint16(TestFiles::read(m_dir + QStringLiteral("/port")).trimmed().toUInt());
    m_logOffset = QFileInfo(m_dir + QStringLiteral("/logs/access.log")).size();
}

QString Nginx::url(const QString &path) const
{
    return QStringLiteral("https://127.0.0.1:%1%2").arg(m_port).arg(path);
}

QList<QByteArray> Nginx::takeRanges(const QString &path)
{
    QFile log(m_dir + QStringLiteral("/logs/access.log"));
    QList<QByteArray> ranges;
    if (!log.open(QIODevice::ReadOnly) || !log.seek(m_logOffset))
        return ranges;
    const QList<QByteArray> lines = log.readAll().split('\n');
    m_logOffset = log.pos();
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.trimmed().split(' ');
        if (fields.size() == 2 && fields.at(0) == path.toUtf8())
            ranges << fields.at(1);
    }
    return ranges;
}

QByteArray randomBytes(qint64 size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    for (qint64 i = size / 4 * 4; i < size; ++i)
        bytes[i] = char(generator.generate());
    return bytes;
}

QByteArray serveRelease(TestHttpsServer &server, qint64 size)
{
    const QByteArray package = randomBytes(size, 7);
    server.setFile(QStringLiteral("/pkg/package.zip"), package);
    const QByteArray manifest = manifestBytes(QJsonObject{
        {"schemaVersion", 1}, {"version", "1.2.3"}, {"releaseId", "r1.2.3"},
        {"package", QJsonObject{{"url", server.url(QStringLiteral("/pkg/package.zip"))}, {"fileName", "package.zip"},
                                {"size", double(size)}, {"uncompressedSize", double(size * 2)},
                                {"sha256", QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex())}}},
        {"fullPackage", QJsonObject{{"url", server.url(QStringLiteral("/pkg/full.zip"))}, {"fileName", "full.zip"}}},
    });
    server.setFile(QStringLiteral("/manifest.json"), manifest);
    server.setFile(QStringLiteral("/manifest.json.sig"), TestSigning::signatureFile(manifest));
    return package;
}

QByteArray manifestBytes(const QJsonObject &manifest)
{
    return QJsonDocument(manifest).toJson(QJsonDocument::Compact);
}

QByteArray signedMaterial(const QString &name)
{
    return TestFiles::read(qEnvironmentVariable("BRISA_TEST_SIGNATURE_DIR") + QLatin1Char('/') + name);
}

void useServer(DownloadManager &manager, const TestHttpsServer &server, const DownloadManager::Timing &timing)
{
    manager.setTiming(timing);
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(server.caCertificates());
    manager.setSslConfiguration(ssl);
}

DownloadOutcome runDownload(DownloadManager &manager, const QUrl &manifestUrl, const QString &cacheRoot, int timeoutMs)
{
    QSignalSpy completed(&manager, &DownloadManager::completed);
    QSignalSpy failed(&manager, &DownloadManager::failed);
    QSignalSpy progress(&manager, &DownloadManager::progressChanged);
    manager.start(manifestUrl, cacheRoot);
    const QDeadlineTimer deadline(timeoutMs);
    while (completed.isEmpty() && failed.isEmpty() && !deadline.hasExpired())
        QTest::qWait(10);
    DownloadOutcome outcome;
    outcome.completed = !completed.isEmpty();
    outcome.finished = outcome.completed || !failed.isEmpty();
    outcome.zipPath = outcome.completed ? completed.first().first().toString() : QString();
    outcome.message = failed.isEmpty() ? QString() : failed.first().first().toString();
    for (const QList<QVariant> &report : progress) {
        outcome.progressWentBack = outcome.progressWentBack || report.first().toLongLong() < outcome.lastReceived;
        outcome.lastReceived = report.first().toLongLong();
    }
    return outcome;
}

DownloadManager::Timing fastTiming()
{
    DownloadManager::Timing timing;
    timing.stallMs = 8000;
    timing.retryDelayMs = 400;
    // Long enough that a loaded machine does not abandon healthy transfers.
    timing.transferTimeoutMs = 1500;
    timing.activityIntervalMs = 25;
    timing.speedWindowMs = 100;
    return timing;
}
