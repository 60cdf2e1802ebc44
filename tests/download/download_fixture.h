#pragma once

#include "download/download_manager.h"
#include "support/test_https_server.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// A served release: a random package and the manifest that names it.
struct ServedRelease
{
    QByteArray package;
    QByteArray sha256;
    QJsonObject manifest;
};

// What one download run ended with.
struct DownloadOutcome
{
    bool finished = false;
    bool completed = false;
    QString zipPath;
    QString message;
    QString version;
    qint64 lastReceived = -1;
    qint64 lastTotal = -1;
    bool progressWentBack = false;
};

ServedRelease serveRelease(TestHttpsServer &server, qint64 size, const QString &version = QStringLiteral("1.2.3"),
                           quint32 seed = 7);
QByteArray manifestBytes(const QJsonObject &manifest);
QByteArray randomBytes(qint64 size, quint32 seed);
// Runs one download to its end (or `timeoutMs`).
DownloadOutcome runDownload(DownloadManager &manager, const QUrl &manifestUrl, const QString &cacheRoot,
                            int timeoutMs = 60000);
// Stall and retry rules several times faster than in the installer.
DownloadManager::Timing fastTiming();
