#include "download_fixture.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTest>

QByteArray randomBytes(qint64 size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    for (qint64 i = size / 4 * 4; i < size; ++i)
        bytes[i] = char(generator.generate());
    return bytes;
}

ServedRelease serveRelease(TestHttpsServer &server, qint64 size, const QString &version, quint32 seed)
{
    ServedRelease release;
    release.package = randomBytes(size, seed);
    release.sha256 = QCryptographicHash::hash(release.package, QCryptographicHash::Sha256).toHex();
    server.setFile(QStringLiteral("/pkg/package.zip"), release.package);
    release.manifest = QJsonObject{
        {"schemaVersion", 1},
        {"version", version},
        {"releaseId", "r" + version},
        {"package", QJsonObject{{"url", server.url(QStringLiteral("/pkg/package.zip"))},
                                {"fileName", "package.zip"},
                                {"size", double(size)},
                                {"uncompressedSize", double(size * 2)},
                                {"sha256", QString::fromLatin1(release.sha256)}}},
        {"fullPackage", QJsonObject{{"url", server.url(QStringLiteral("/pkg/full.zip"))}, {"fileName", "full.zip"}}},
    };
    server.setFile(QStringLiteral("/manifest.json"), manifestBytes(release.manifest));
    return release;
}

QByteArray manifestBytes(const QJsonObject &manifest)
{
    return QJsonDocument(manifest).toJson(QJsonDocument::Compact);
}

DownloadOutcome runDownload(DownloadManager &manager, const QUrl &manifestUrl, const QString &cacheRoot, int timeoutMs)
{
    DownloadOutcome outcome;
    QMetaObject::Connection connections[3];
    connections[0] = QObject::connect(&manager, &DownloadManager::completed, [&](const QString &zip, const QUrl &, const QString &version) {
        outcome.finished = outcome.completed = true;
        outcome.zipPath = zip;
        outcome.version = version;
    });
    connections[1] = QObject::connect(&manager, &DownloadManager::failed, [&](const QString &message, const QUrl &) {
        outcome.finished = true;
        outcome.message = message;
    });
    connections[2] = QObject::connect(&manager, &DownloadManager::progressChanged, [&](qint64 received, qint64 total) {
        if (received < outcome.lastReceived && total == outcome.lastTotal)
            outcome.progressWentBack = true;
        outcome.lastReceived = received;
        outcome.lastTotal = total;
    });
    manager.start(manifestUrl, cacheRoot);
    QDeadlineTimer deadline(timeoutMs);
    while (!outcome.finished && !deadline.hasExpired())
        QTest::qWait(10);
    for (const auto &connection : connections)
        QObject::disconnect(connection);
    return outcome;
}

DownloadManager::Timing fastTiming()
{
    DownloadManager::Timing timing;
    timing.stallMs = 4000;
    timing.retryDelayMs = 400;
    // Long enough that a loaded machine does not abandon healthy transfers.
    timing.transferTimeoutMs = 1500;
    timing.activityIntervalMs = 25;
    timing.speedWindowMs = 100;
    return timing;
}
