#include "download/download_manager.h"
#include "download/download_cache.h"
#include "download/manifest_signature.h"

#include "app/app_paths.h"
#include "app/installer_logger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QRegularExpression>
#include <QUrlQuery>

#include <algorithm>
#include <memory>

namespace {

// A 206 must start where the chunk file ends and stay inside the chunk; it may end early, and
// the rest is then asked for again from where the file ends.
bool acceptsContentRange(const DownloadManager::ChunkState &chunk, const QByteArray &header)
{
    static const QRegularExpression pattern(QStringLiteral("^bytes (\\d+)-(\\d+)/(\\d+|\\*)$"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(header.trimmed()));
    if (!match.hasMatch())
        return false;
    const qint64 first = match.captured(1).toLongLong();
    const qint64 last = match.captured(2).toLongLong();
    return first == chunk.start + chunk.downloaded && last >= first && last <= chunk.end;
}

constexpr int prefetchAttempts = 5;
constexpr qint64 signatureReadLimit = 65536;
constexpr int writeAttempts = 5;
// Each read is written at once, so this is also the size of every chunk-file write: Linux's page
// cache took up to twice the system time for 1 MiB writes as for 64 KiB ones (larger folios to
// allocate and fill, a source block no longer in the processor's cache).
constexpr qint64 readBufferBytes = 65536;
// What each reply may hold before Qt stops reading its socket, so that six fast transfers cannot
// pile up in memory ahead of the disk. With 4 MiB, transfers were seen to stall under Wine's Schannel.
constexpr qint64 replyBufferBytes = 1048576;

qint64 fileSize(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() ? info.size() : 0;
}

} // namespace

DownloadManager::DownloadManager(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_activityTimer(new QTimer(this))
    , m_retryTimer(new QTimer(this))
    , m_ssl(QSslConfiguration::defaultConfiguration())
{
    m_activityTimer->setInterval(m_timing.activityIntervalMs);
    m_retryTimer->setSingleShot(true);
    connect(m_activityTimer, &QTimer::timeout, this, &DownloadManager::checkNetworkActivity);
    connect(m_retryTimer, &QTimer::timeout, this, &DownloadManager::retryTimerFired);
    m_assemblyThread.setObjectName(QStringLiteral("Package assembly"));
    m_assemblyContext = new QObject;
    m_assemblyContext->moveToThread(&m_assemblyThread);
    connect(&m_assemblyThread, &QThread::finished, m_assemblyContext, &QObject::deleteLater);
    m_assemblyThread.start();
}

DownloadManager::~DownloadManager()
{
    cancel();
    // The assembly thread may still be reporting to this object: it ends first.
    m_assemblyThread.quit();
    m_assemblyThread.wait();
}

void DownloadManager::setTiming(const Timing &timing)
{
    m_timing = timing;
    m_activityTimer->setInterval(timing.activityIntervalMs);
}

void DownloadManager::setSslConfiguration(const QSslConfiguration &configuration)
{
    m_ssl = configuration;
}

void DownloadManager::start(const QUrl &manifestUrl, const QString &cacheRoot)
{
    cancel();
    m_manifest = VersionManifest();
    m_resetConnections = m_disableHttp2 = m_manifestPhase = m_chunkPhase = false;
    m_cancelled = m_failed = m_prefetchOnly = m_cacheRetried = false;
    m_manifestBytesSeen = m_lastSpeedSample = m_largestAggregate = 0;
    m_manifestAttempts = 0;
    m_chunks.clear();
    m_aggregate = 0;
    m_pending.clear();
    resetAssembly();
    m_manifestUrl = manifestUrl;
    m_cacheRoot = cacheRoot.isEmpty() ? AppPaths::installerTempRoot() : cacheRoot;
    m_cacheDir.clear();
    m_runClock.start();
    InstallerLogger::write(QStringLiteral("Starting manifest request: %1").arg(manifestUrl.toString()));
    m_progressClock.start();
    m_speedClock.invalidate();
    m_manifestPhase = true;
    m_activityTimer->start();
    fetchManifest();
}

void DownloadManager::prefetchManifest(const QUrl &manifestUrl)
{
    cancel();
    m_cancelled = m_failed = false;
    m_prefetchOnly = true;
    m_manifestAttempts = 0;
    m_manifestUrl = manifestUrl;
    m_runClock.start();
    m_progressClock.start();
    InstallerLogger::write(QStringLiteral("Prefetching manifest metadata."));
    fetchManifest();
}

void DownloadManager::cancel()
{
    ++m_generation;
    m_cancelled = true;
    m_activityTimer->stop();
    m_retryTimer->stop();
    m_resetConnections = m_disableHttp2 = m_manifestPhase = m_chunkPhase = false;
    const auto active = m_active;
    m_active.clear();
    for (auto it = active.begin(); it != active.end(); ++it) {
        it.key()->disconnect(this);
        it.key()->abort();
        it.key()->deleteLater();
        delete it.value();
    }
    resetAssembly();
}

QNetworkRequest DownloadManager::manifestRequest(const QUrl &url) const
{
    QNetworkRequest request(url);
    request.setSslConfiguration(m_ssl);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setRawHeader("Cache-Control", "no-cache, no-store, max-age=0");
    request.setRawHeader("Pragma", "no-cache");
    request.setTransferTimeout(m_timing.transferTimeoutMs);
    if (m_disableHttp2)
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    return request;
}

void DownloadManager::fetchManifest()
{
    if (m_cancelled)
        return;
    QUrl url = m_manifestUrl;
    QUrlQuery query(url);
    query.removeAllQueryItems(QStringLiteral("t"));
    query.addQueryItem(QStringLiteral("t"), QString::number(QDateTime::currentMSecsSinceEpoch()));
    url.setQuery(query);
    // The signature lies beside the manifest and travels with it, past every cache alike, so
    // that both always come from the same release.
    QUrl signatureUrl = url;
    signatureUrl.setPath(url.path() + QStringLiteral(".sig"));

    QNetworkRequest request = manifestRequest(url);
    request.setRawHeader("Accept", "application/json");
    if (m_resetConnections) {
        m_network->clearConnectionCache();
        m_resetConnections = false;
    }
    ++m_manifestAttempts;
    m_manifestClock.start();
    QNetworkReply *reply = m_network->get(request);
    QNetworkReply *signatureReply = m_network->get(manifestRequest(signatureUrl));
    const quint64 generation = m_generation;
    connect(reply, &QNetworkReply::downloadProgress, this, [this, generation](qint64 received, qint64) {
        if (m_prefetchOnly || generation != m_generation || received <= m_manifestBytesSeen)
            return;
        m_manifestBytesSeen = received;
        m_progressClock.start();
    });
    struct Pair
    {
        int unfinished = 2;
        bool signatureOversized = false;
    };
    const auto pair = std::make_shared<Pair>();
    // A hostile server must not make the installer hold more than a few signatures' worth.
    connect(signatureReply, &QNetworkReply::downloadProgress, this, [signatureReply, pair](qint64 received, qint64) {
        if (received > signatureReadLimit && !pair->signatureOversized) {
            pair->signatureOversized = true;
            signatureReply->abort();
        }
    });
    const auto oneFinished = [this, reply, signatureReply, pair, generation] {
        if (--pair->unfinished == 0)
            manifestFinished(reply, signatureReply, pair->signatureOversized, generation);
    };
    connect(reply, &QNetworkReply::finished, this, oneFinished);
    connect(signatureReply, &QNetworkReply::finished, this, oneFinished);
}

void DownloadManager::manifestFinished(QNetworkReply *reply, QNetworkReply *signatureReply, bool signatureOversized,
                                       quint64 generation)
{
    reply->deleteLater();
    signatureReply->deleteLater();
    if (generation != m_generation)
        return;
    const QByteArray body = reply->readAll();
    if (m_cancelled)
        return;
    if (reply->error() != QNetworkReply::NoError) {
        retryManifestOrFail(reply->errorString(), generation);
        return;
    }
    // A signature the server does not have is no network fault: waiting will not bring it.
    const QNetworkReply::NetworkError signatureError = signatureOversized ? QNetworkReply::NoError : signatureReply->error();
    if (signatureError != QNetworkReply::NoError && signatureError != QNetworkReply::ContentNotFoundError) {
        retryManifestOrFail(signatureReply->errorString(), generation);
        return;
    }
    // Nothing of the manifest is read before the publisher's signature over its exact bytes holds.
    QString failedCheck = QStringLiteral("missing");
    if (signatureError == QNetworkReply::NoError) {
        const ManifestSignature::Check check = signatureOversized ? ManifestSignature::Check::Oversized
                                                                  : ManifestSignature::verify(body, signatureReply->readAll());
        failedCheck = check == ManifestSignature::Check::Valid ? QString() : ManifestSignature::checkName(check);
    }
    if (!failedCheck.isEmpty()) {
        InstallerLogger::write(QStringLiteral("Manifest signature check failed: %1").arg(failedCheck));
        if (!m_prefetchOnly)
            failCurrent(tr("The version manifest does not carry a valid signature of the publisher."));
        return;
    }
    VersionManifest parsed;
    QString parseError;
    if (!VersionManifest::fromJson(body, &parsed, &parseError)) {
        if (m_prefetchOnly)
            InstallerLogger::write(QStringLiteral("Manifest metadata is invalid: %1").arg(parseError));
        else
            failCurrent(tr("The version manifest is invalid: %1").arg(parseError));
        return;
    }
    m_manifest = parsed;
    InstallerLogger::write(QStringLiteral("Manifest loaded: version=%1 release=%2").arg(parsed.version, parsed.releaseId));
    // A receiver may cancel, or cancel and start again, from inside these signals.
    emit manifestVersionKnown(parsed.version);
    if (generation != m_generation)
        return;
    if (parsed.package.uncompressedSize > 0)
        emit requiredSpaceKnown(parsed.package.uncompressedSize);
    if (generation != m_generation)
        return;
    if (m_prefetchOnly) {
        InstallerLogger::write(QStringLiteral("Manifest metadata loaded; required bytes=%1").arg(parsed.package.uncompressedSize));
        return;
    }
    prepareChunks();
}

void DownloadManager::retryManifestOrFail(const QString &errorText, quint64 generation)
{
    if (m_prefetchOnly) {
        if (m_manifestAttempts < prefetchAttempts)
            fetchManifest();
        else
            InstallerLogger::write(QStringLiteral("Manifest metadata prefetch failed: %1").arg(errorText));
        return;
    }
    m_resetConnections = m_disableHttp2 = true;
    if (m_progressClock.elapsed() >= m_timing.stallMs) {
        failCurrent(tr("Unable to download the version manifest: %1").arg(errorText));
        return;
    }
    InstallerLogger::write(QStringLiteral("Retrying manifest request after network error: %1").arg(errorText));
    const qint64 delay = std::max<qint64>(0, m_timing.retryDelayMs - m_manifestClock.elapsed());
    QTimer::singleShot(delay, this, [this, generation] {
        if (generation != m_generation || m_cancelled || m_failed)
            return;
        if (stalled())
            failCurrent(tr("No download progress was made for 20 seconds."));
        else
            fetchManifest();
    });
}

void DownloadManager::prepareChunks()
{
    m_activityTimer->stop();
    m_manifestPhase = false;
    // A copy: verifying a cached package runs the event loop, and a new start() may replace
    // the manifest meanwhile.
    const DownloadPackage package = m_manifest.package;
    const quint64 generation = m_generation;
    m_cacheDir = DownloadCache::directoryFor(m_cacheRoot, m_manifest);
    if (!QDir().mkpath(m_cacheDir)) {
        failCurrent(tr("Unable to create the download directory."));
        return;
    }
    if (DownloadCache::usableName(m_manifest.releaseId)) {
        const QString legacy = QDir(m_cacheRoot).filePath(QStringLiteral("releaseId-") + m_manifest.releaseId);
        DownloadCache::migrateLegacy(legacy, m_cacheDir, package.sha256);
        QDir().rmdir(legacy);
    }
    DownloadCache::claimForPackage(m_cacheDir, package.sha256);

    const QString zipPath = QDir(m_cacheDir).filePath(package.fileName);
    if (QFileInfo::exists(zipPath)) {
        const bool verified = QFileInfo(zipPath).size() == package.size && DownloadCache::verifyFile(zipPath, package.sha256);
        // Cancelled, and perhaps started again, while verifying: this run is over.
        if (generation != m_generation)
            return;
        if (verified) {
            InstallerLogger::write(QStringLiteral("Using verified cached ZIP: %1").arg(zipPath));
            emit progressChanged(package.size, package.size);
            emit completed(zipPath, m_manifest.fullPackage.url, m_manifest.version);
            return;
        }
        InstallerLogger::write(QStringLiteral("Discarding invalid cached ZIP: %1").arg(zipPath));
        QFile::remove(zipPath);
    } else {
        InstallerLogger::write(QStringLiteral("No cached ZIP found for version %1.").arg(m_manifest.version));
    }

    const int count = static_cast<int>((package.size + chunkSize - 1) / chunkSize);
    InstallerLogger::write(QStringLiteral("Preparing %1 download chunks in %2").arg(count).arg(m_cacheDir));
    m_chunks.reserve(count);
    for (int i = 0; i < count; ++i) {
        ChunkState chunk;
        chunk.start = i * chunkSize;
        chunk.end = std::min((i + 1) * chunkSize, package.size) - 1;
        chunk.path = QDir(m_cacheDir).filePath(DownloadCache::chunkFileName(i));
        if (fileSize(chunk.path) > chunk.length())
            QFile::remove(chunk.path);
        chunk.downloaded = fileSize(chunk.path);
        chunk.complete = chunk.downloaded == chunk.length();
        chunk.fromCache = chunk.downloaded > 0;
        if (!chunk.complete)
            m_pending.enqueue(i);
        m_aggregate += chunk.downloaded;
        m_chunks.append(chunk);
    }
    m_largestAggregate = aggregate();
    m_chunkPhase = true;
    m_speedClock.start();
    m_lastSpeedSample = m_largestAggregate;
    m_progressClock.start();
    m_activityTimer->start();
    emit progressChanged(m_largestAggregate, package.size);
    if (m_cancelled)
        return;
    queueAssembly();
    startPendingChunks();
}

void DownloadManager::startPendingChunks()
{
    if (m_pending.isEmpty()) {
        m_retryTimer->stop();
        return;
    }
    if (m_resetConnections) {
        if (!m_active.isEmpty())
            return;
        m_network->clearConnectionCache();
        m_resetConnections = false;
        InstallerLogger::write(QStringLiteral("Cleared network connections before resuming failed chunks."));
    }
    if (m_active.isEmpty())
        InstallerLogger::write(QStringLiteral("Starting or resuming package download."));
    while (!m_cancelled && !m_failed && !m_pending.isEmpty() && m_active.size() < maxParallelRequests) {
        const qint64 wait = m_chunks.at(m_pending.head()).notBefore - m_runClock.elapsed();
        if (wait > 0) {
            m_retryTimer->start(static_cast<int>(wait));
            return;
        }
        startChunk(m_pending.dequeue());
    }
    if (m_pending.isEmpty())
        m_retryTimer->stop();
}

QNetworkRequest DownloadManager::chunkRequest(const ChunkState &chunk) const
{
    QNetworkRequest request(m_manifest.package.url);
    request.setSslConfiguration(m_ssl);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setTransferTimeout(m_timing.transferTimeoutMs);
    if (m_disableHttp2)
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setRawHeader("Range", "bytes=" + QByteArray::number(chunk.start + chunk.downloaded) + '-' + QByteArray::number(chunk.end));
    return request;
}

void DownloadManager::startChunk(int index)
{
    ChunkState &chunk = m_chunks[index];
    chunk.notBefore = 0;
    setDownloaded(index, fileSize(chunk.path));
    auto transfer = new ActiveTransfer;
    transfer->index = index;
    transfer->file = std::make_unique<QFile>(chunk.path);
    // Unbuffered: every read is one large write, and Qt's buffer would only copy it once more.
    if (!transfer->file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        delete transfer;
        retryOrFail(index, tr("Unable to write a download chunk."), false, 0);
        return;
    }
    QNetworkReply *reply = m_network->get(chunkRequest(chunk));
    reply->setReadBufferSize(replyBufferBytes);
    transfer->clock.start();
    m_active.insert(reply, transfer);
    InstallerLogger::write(QStringLiteral("Downloading chunk %1 from byte %2 of %3.").arg(index).arg(chunk.downloaded).arg(chunk.length()));
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { chunkReadyRead(reply); });
    connect(reply, &QNetworkReply::downloadProgress, this, [this] {
        if (!m_cancelled && !m_failed)
            emit progressChanged(aggregate(), m_manifest.package.size);
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { finishChunk(reply); });
}

void DownloadManager::chunkReadyRead(QNetworkReply *reply)
{
    ActiveTransfer *transfer = m_active.value(reply);
    if (!transfer)
        return;
    if (!transfer->statusChecked) {
        transfer->statusChecked = true;
        // Anything but 206 means the server does not serve this range: an error page or the
        // whole file would be written in the wrong place.
        transfer->rangeRejected = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 206;
        if (!transfer->rangeRejected && !acceptsContentRange(m_chunks.at(transfer->index), reply->rawHeader("Content-Range"))) {
            // Bytes of another range are never written; the chunk is left short and retried.
            transfer->wrongRange = true;
            reply->abort();
            return;
        }
    }
    if (transfer->rangeRejected) {
        reply->skip(reply->bytesAvailable());
        return;
    }
    if (!drain(reply, transfer))
        return;
    emit progressChanged(aggregate(), m_manifest.package.size);
}

void DownloadManager::finishChunk(QNetworkReply *reply)
{
    reply->deleteLater();
    ActiveTransfer *transfer = m_active.take(reply);
    if (!transfer)
        return;
    const std::unique_ptr<ActiveTransfer> owned(transfer);
    // A reply that ends before any answer (reset, timeout) has no status and is retried.
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!transfer->statusChecked && status.isValid())
        transfer->rangeRejected = status.toInt() != 206;
    const int index = transfer->index;
    if (!transfer->rangeRejected)
        drain(reply, transfer);
    transfer->file->close();
    const qint64 elapsed = transfer->clock.elapsed();
    const QNetworkReply::NetworkError error = reply->error();
    const QString errorText = reply->errorString();
    if (m_cancelled)
        return;
    if (transfer->rangeRejected) {
        failCurrent(tr("The download server does not support ranged requests."));
        return;
    }
    ChunkState &chunk = m_chunks[index];
    setDownloaded(index, fileSize(chunk.path));
    if (error != QNetworkReply::NoError && !transfer->wrongRange) {
        retryOrFail(index, tr("A download chunk failed: %1").arg(errorText), true, elapsed);
        return;
    }
    if (transfer->wrongRange || chunk.downloaded != chunk.length()) {
        retryOrFail(index, tr("A download chunk has an unexpected size."), true, elapsed);
        return;
    }
    chunk.complete = true;
    emit progressChanged(aggregate(), m_manifest.package.size);
    if (m_cancelled)
        return;
    queueAssembly();
    startPendingChunks();
    finishIfDone();
}

void DownloadManager::retryOrFail(int index, const QString &message, bool networkError, qint64 elapsedMs)
{
    ChunkState &chunk = m_chunks[index];
    ++chunk.attempts;
    setDownloaded(index, fileSize(chunk.path));
    if (chunk.downloaded > chunk.length()) {
        QFile::remove(chunk.path);
        setDownloaded(index, 0);
    }
    if (networkError) {
        m_resetConnections = m_disableHttp2 = true;
        if (stalled()) {
            failCurrent(message);
            return;
        }
        InstallerLogger::write(QStringLiteral("Retrying chunk %1 after network error (attempt %2): %3").arg(index).arg(chunk.attempts).arg(message));
        chunk.notBefore = m_runClock.elapsed() + std::max<qint64>(0, m_timing.retryDelayMs - elapsedMs);
        m_pending.prepend(index);
    } else {
        if (chunk.attempts >= writeAttempts) {
            failCurrent(message);
            return;
        }
        InstallerLogger::write(QStringLiteral("Retrying chunk %1 (attempt %2): %3").arg(index).arg(chunk.attempts).arg(message));
        m_pending.enqueue(index);
    }
    startPendingChunks();
}

bool DownloadManager::drain(QNetworkReply *reply, ActiveTransfer *transfer)
{
    // Reads straight into one reused buffer: no allocation per read.
    if (m_readBuffer.size() < readBufferBytes)
        m_readBuffer.resize(readBufferBytes);
    qint64 written = 0;
    for (;;) {
        const qint64 read = reply->read(m_readBuffer.data(), m_readBuffer.size());
        if (read <= 0)
            break;
        if (transfer->file->write(m_readBuffer.constData(), read) != read) {
            reply->abort();
            return false;
        }
        written += read;
    }
    if (written > 0)
        noteChunkProgress(transfer->index, m_chunks.at(transfer->index).downloaded + written);
    return true;
}

void DownloadManager::setDownloaded(int index, qint64 bytes)
{
    ChunkState &chunk = m_chunks[index];
    m_aggregate += std::min(bytes, chunk.length()) - std::min(chunk.downloaded, chunk.length());
    chunk.downloaded = bytes;
}

void DownloadManager::noteChunkProgress(int index, qint64 bytes)
{
    setDownloaded(index, bytes);
    if (m_aggregate > m_largestAggregate) {
        m_largestAggregate = m_aggregate;
        m_progressClock.start();
    }
}

bool DownloadManager::stalled() const
{
    return m_progressClock.isValid() && m_progressClock.elapsed() >= m_timing.stallMs;
}

void DownloadManager::retryTimerFired()
{
    if (m_cancelled || m_failed || !m_chunkPhase)
        return;
    if (stalled())
        failCurrent(tr("No download progress was made for 20 seconds."));
    else
        startPendingChunks();
}

void DownloadManager::checkNetworkActivity()
{
    if (m_cancelled || m_failed || m_prefetchOnly)
        return;
    if (m_chunkPhase && m_speedClock.isValid() && m_speedClock.elapsed() >= m_timing.speedWindowMs) {
        const qint64 now = aggregate();
        const qint64 speed = std::max<qint64>(0, (now - m_lastSpeedSample) * 1000 / std::max<qint64>(m_speedClock.elapsed(), 1));
        emit transferSpeedChanged(speed);
        m_lastSpeedSample = now;
        m_speedClock.start();
    }
    if (!m_manifestPhase && !m_chunkPhase)
        return;
    if (stalled())
        failCurrent(tr("No download progress was made for 20 seconds."));
}

void DownloadManager::failCurrent(const QString &message)
{
    if (m_failed || m_cancelled)
        return;
    m_failed = true;
    InstallerLogger::write(QStringLiteral("Download failed: %1").arg(message));
    cancel();
    emit failed(message, m_manifest.fullPackage.url);
}

void DownloadManager::resetAssembly()
{
    if (m_assembly) {
        // Steps already queued return at once; the last of them closes the file on the
        // assembly thread, before any step of a new assembly of the same file runs.
        m_assembly->abandon();
        m_assembly.reset();
    }
    ++m_assemblySerial;
    m_queuedChunks = m_assembledChunks = 0;
}

void DownloadManager::runAssemblyStep(AssemblyStep step, AssemblyDone done)
{
    const std::shared_ptr<PackageAssembly> assembly = m_assembly;
    const quint64 serial = m_assemblySerial;
    QMetaObject::invokeMethod(m_assemblyContext, [this, assembly, serial, step = std::move(step), done = std::move(done)] {
        if (assembly->abandoned())
            return;
        QString error;
        const bool ok = step(assembly.get(), &error);
        const PackageAssembly::Failure failure = assembly->failure();
        QMetaObject::invokeMethod(this, [this, serial, ok, failure, error, done] {
            if (serial == m_assemblySerial)
                done(ok, failure, error);
        }, Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}

void DownloadManager::queueAssembly()
{
    if (m_cancelled || m_failed || !m_chunkPhase)
        return;
    if (!m_assembly) {
        m_assembly = std::make_shared<PackageAssembly>(QDir(m_cacheDir).filePath(m_manifest.package.fileName));
        runAssemblyStep([](PackageAssembly *assembly, QString *error) { return assembly->begin(error); },
                        [this](bool ok, PackageAssembly::Failure, const QString &error) {
                            if (!ok)
                                failCurrent(error);
                        });
    }
    for (; m_queuedChunks < m_chunks.size() && m_chunks.at(m_queuedChunks).complete; ++m_queuedChunks) {
        const ChunkState &chunk = m_chunks.at(m_queuedChunks);
        runAssemblyStep([path = chunk.path, length = chunk.length()](PackageAssembly *assembly, QString *error) {
                            return assembly->append(path, length, error);
                        },
                        [this](bool ok, PackageAssembly::Failure, const QString &error) {
                            if (!ok) {
                                failCurrent(error);
                                return;
                            }
                            ++m_assembledChunks;
                            // Assembling cached chunks is progress too; the stall rule must not end it.
                            m_progressClock.start();
                            finishIfDone();
                        });
    }
}

void DownloadManager::finishIfDone()
{
    if (!m_chunkPhase || !m_active.isEmpty() || !m_pending.isEmpty() || m_assembledChunks < m_chunks.size())
        return;
    m_chunkPhase = false;
    m_activityTimer->stop();
    m_retryTimer->stop();
    runAssemblyStep([sha256 = m_manifest.package.sha256](PackageAssembly *assembly, QString *error) {
                        return assembly->finish(sha256, error);
                    },
                    [this](bool verified, PackageAssembly::Failure failure, const QString &error) {
                        assemblyFinished(verified, failure, error);
                    });
}

void DownloadManager::assemblyFinished(bool verified, PackageAssembly::Failure failure, const QString &error)
{
    const QString zipPath = m_assembly->targetPath();
    resetAssembly();
    if (verified) {
        InstallerLogger::write(QStringLiteral("ZIP download complete: %1").arg(zipPath));
        emit completed(zipPath, m_manifest.fullPackage.url, m_manifest.version);
        return;
    }
    QFile::remove(zipPath + QStringLiteral(".assembling"));
    // Chunks kept from an earlier run are the likely culprits: they are fetched again once. The
    // chunks of this run stay on disk; the next run starts from them and, finding them cached,
    // fetches them again if they still do not add up.
    if (failure == PackageAssembly::Failure::Verification && discardCachedChunks())
        return;
    failCurrent(error);
}

bool DownloadManager::discardCachedChunks()
{
    if (m_cacheRetried)
        return false;
    bool any = false;
    for (int i = 0; i < m_chunks.size(); ++i) {
        ChunkState &chunk = m_chunks[i];
        if (!chunk.fromCache)
            continue;
        any = true;
        QFile::remove(chunk.path);
        setDownloaded(i, 0);
        chunk.complete = chunk.fromCache = false;
        chunk.attempts = 0;
        m_pending.enqueue(i);
    }
    if (!any)
        return false;
    m_cacheRetried = true;
    InstallerLogger::write(QStringLiteral("Cached chunks failed verification; downloading %1 of them again.").arg(m_pending.size()));
    resetAssembly();
    m_chunkPhase = true;
    m_largestAggregate = aggregate();
    m_progressClock.start();
    m_activityTimer->start();
    emit progressChanged(m_largestAggregate, m_manifest.package.size);
    queueAssembly();
    startPendingChunks();
    return true;
}
