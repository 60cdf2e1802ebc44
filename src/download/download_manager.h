#pragma once

#include "download/package_assembly.h"
#include "download/version_manifest.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QList>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QQueue>
#include <QSslConfiguration>
#include <QString>
#include <QThread>
#include <QUrl>

#include <functional>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// Fetches the version manifest, then the package it names in 8 MiB byte ranges, at most six at
// once, each range streamed into its own chunk file of the download cache. Lives on the GUI
// thread and is driven by the event loop only, which decides everything. Chunks finished in index
// order are handed to the assembly thread, which appends them to the package and hashes them
// while later ones still download, so the package is verified moments after its last byte
// arrives and no hash ever keeps the GUI thread from draining the replies.
class DownloadManager : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 chunkSize = 8388608;
    static constexpr int maxParallelRequests = 6;

    struct ChunkState
    {
        qint64 start = 0;
        qint64 end = -1; // inclusive
        QString path;
        int attempts = 0;
        qint64 notBefore = 0; // run-clock ms; 0 = at once
        qint64 downloaded = 0;
        bool complete = false;
        bool fromCache = false; // bytes were already on disk when the run began
        qint64 length() const { return end - start + 1; }
    };

    struct ActiveTransfer
    {
        int index = -1;
        std::unique_ptr<QFile> file;
        QElapsedTimer clock;
        bool statusChecked = false;
        bool rangeRejected = false; // any status but 206
        bool wrongRange = false;    // a 206 for bytes this chunk did not ask for
    };

    // The time rules; tests shrink them so the stall rule can be proven in seconds.
    struct Timing
    {
        int stallMs = 20000;
        int retryDelayMs = 4000;
        int transferTimeoutMs = 4000;
        int activityIntervalMs = 250;
        int speedWindowMs = 1000;
    };

    explicit DownloadManager(QObject *parent = nullptr);
    ~DownloadManager() override;

    void setTiming(const Timing &timing);
    // TLS settings for every request (the default configuration unless set).
    void setSslConfiguration(const QSslConfiguration &configuration);

    // `cacheRoot` holds the per-version cache directories; empty means the installer's
    // temporary root.
    void start(const QUrl &manifestUrl, const QString &cacheRoot = QString());
    void prefetchManifest(const QUrl &manifestUrl);
    void cancel();

    const VersionManifest &manifest() const { return m_manifest; }
    QString cacheDirectory() const { return m_cacheDir; }

signals:
    void manifestVersionKnown(const QString &version);
    void progressChanged(qint64 received, qint64 total);
    void transferSpeedChanged(qint64 bytesPerSecond);
    void requiredSpaceKnown(qint64 bytes);
    void completed(const QString &zipPath, const QUrl &fullPackageUrl, const QString &version);
    void failed(const QString &message, const QUrl &fullPackageUrl);

private:
    void fetchManifest();
    QNetworkRequest manifestRequest(const QUrl &url) const;
    void manifestFinished(QNetworkReply *reply, QNetworkReply *signatureReply, bool signatureOversized, quint64 generation);
    void retryManifestOrFail(const QString &errorText, quint64 generation);
    void prepareChunks();
    void startPendingChunks();
    void startChunk(int index);
    void chunkReadyRead(QNetworkReply *reply);
    void finishChunk(QNetworkReply *reply);
    void retryOrFail(int index, const QString &message, bool networkError, qint64 elapsedMs);
    bool drain(QNetworkReply *reply, ActiveTransfer *transfer);
    void setDownloaded(int index, qint64 bytes);
    void noteChunkProgress(int index, qint64 bytes);
    void retryTimerFired();
    void checkNetworkActivity();
    void failCurrent(const QString &message);
    void resetAssembly();
    void queueAssembly();
    using AssemblyStep = std::function<bool(PackageAssembly *assembly, QString *error)>;
    using AssemblyDone = std::function<void(bool ok, PackageAssembly::Failure failure, const QString &error)>;
    void runAssemblyStep(AssemblyStep step, AssemblyDone done);
    void finishIfDone();
    void assemblyFinished(bool verified, PackageAssembly::Failure failure, const QString &error);
    bool discardCachedChunks();
    qint64 aggregate() const { return m_aggregate; }
    bool stalled() const;
    QNetworkRequest chunkRequest(const ChunkState &chunk) const;

    QNetworkAccessManager *m_network = nullptr;
    QTimer *m_activityTimer = nullptr;
    QTimer *m_retryTimer = nullptr;
    Timing m_timing;
    QSslConfiguration m_ssl;

    QElapsedTimer m_runClock;
    QElapsedTimer m_progressClock;
    QElapsedTimer m_manifestClock;
    QElapsedTimer m_speedClock;
    qint64 m_manifestBytesSeen = 0;
    qint64 m_lastSpeedSample = 0;
    qint64 m_largestAggregate = 0;

    bool m_resetConnections = false;
    bool m_disableHttp2 = false;
    bool m_manifestPhase = false;
    bool m_chunkPhase = false;
    bool m_cancelled = false;
    bool m_failed = false;
    bool m_prefetchOnly = false;
    bool m_cacheRetried = false;

    QUrl m_manifestUrl;
    QString m_cacheRoot;
    QString m_cacheDir;
    VersionManifest m_manifest;
    int m_manifestAttempts = 0;
    quint64 m_generation = 0;

    QList<ChunkState> m_chunks;
    qint64 m_aggregate = 0; // the sum of the chunks' useful bytes, kept as they change
    QByteArray m_readBuffer;
    QQueue<int> m_pending;
    QHash<QNetworkReply *, ActiveTransfer *> m_active;

    // The package grows chunk by chunk in index order on its own thread while the rest still
    // downloads. Only that thread touches the assembly; it reports each step back here.
    QThread m_assemblyThread;
    QObject *m_assemblyContext = nullptr; // lives on m_assemblyThread
    std::shared_ptr<PackageAssembly> m_assembly;
    quint64 m_assemblySerial = 0; // tells reports of an abandoned assembly apart
    int m_queuedChunks = 0;       // handed to the assembly thread
    int m_assembledChunks = 0;    // reported back as appended
};
