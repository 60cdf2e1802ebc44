#pragma once

#include "download/download_manager.h"
#include "support/test_files.h"
#include "support/test_https_server.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

// What one download run ended with.
struct DownloadOutcome
{
    bool finished = false;
    bool completed = false;
    QString zipPath;
    QString message;
    qint64 lastReceived = -1;
    bool progressWentBack = false;
};

// The nginx the test harness started (tests/support/test-nginx.sh): it serves a directory over
// HTTPS with the test certificates and logs the Range header of every request.
class Nginx
{
public:
    Nginx();
    bool isRunning() const { return m_port != 0; }
    QString root() const { return m_dir + QStringLiteral("/www"); }
    QString url(const QString &path) const;
    // "bytes=a-b" (or "-") of every request for `path` since the last call.
    QList<QByteArray> takeRanges(const QString &path);

private:
    QString m_dir;
    quint16 m_port = 0;
    qint64 m_logOffset = 0;
};

// Serves a package of random bytes (always the same for a size) and its signed manifest, version
// 1.2.3, under "/manifest.json"; returns the package.
QByteArray serveRelease(TestHttpsServer &server, qint64 size);
QByteArray manifestBytes(const QJsonObject &manifest);
QByteArray randomBytes(qint64 size, quint32 seed);
// Made before the test by make-test-signatures.sh.
QByteArray signedMaterial(const QString &name);

// Runs one download to its end (or `timeoutMs`).
DownloadOutcome runDownload(DownloadManager &manager, const QUrl &manifestUrl, const QString &cacheRoot,
                            int timeoutMs = 60000);
// Stall and retry rules several times faster than in the installer.
DownloadManager::Timing fastTiming();
// Trusts the test CA, which signed both the local server's and nginx's certificates; with the
// fast rules unless told otherwise.
void useServer(DownloadManager &manager, const TestHttpsServer &server, const DownloadManager::Timing &timing = fastTiming());
