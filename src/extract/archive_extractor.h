#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class QThread;

// Unpacks the verified package into a staging directory, or takes a payload tree that is
// already on disk, on a worker thread of its own. Only the cancel flag and the byte counter are
// shared with the GUI thread; every signal is emitted on the GUI thread.
class ArchiveExtractor : public QObject
{
    Q_OBJECT

public:
    // The worker's outcome. Codes are per operation (ZIP or payload tree), as the messages are.
    enum ZipStatus {
        ZipSuccess = 0,
        ZipCannotOpen = 1,
        ZipInvalid = 2,
        ZipUnsafePath = 3,
        ZipNoSpace = 4,
        ZipCannotCreateDirectory = 5,
        ZipCannotWriteFile = 6,
        ZipCannotExtract = 7,
        ZipCancelled = 8,
    };
    enum PayloadStatus {
        PayloadSuccess = 0,
        PayloadMissing = 1,
        PayloadInvalid = 2,
        PayloadHasLink = 3,
        PayloadNoSpace = 4,
        PayloadCannotCreateDirectory = 5,
        PayloadCannotCopy = 6,
        PayloadCancelled = 8,
        PayloadUnexpected = 9,
    };

    struct Result
    {
        int status = 0;
        QList<QString> files;       // relative, "/" separators, archive (or walk) order
        QList<QString> directories; // relative, deepest first
    };

    using ProgressCallback = std::function<void(qint64 processed, qint64 total)>;

    explicit ArchiveExtractor(QObject *parent = nullptr);
    ~ArchiveExtractor() override;

    void extract(const QString &zipPath, const QString &stagingDir);
    void copyDirectory(const QString &source, const QString &target);
    void scanDirectory(const QString &directory);
    void cancel();
    // Blocks until every worker has returned; after cancel() that is at most one block away.
    // Whoever removes the staging directory next must not race a worker still writing into it.
    void waitForWorkers();

    bool isRunning() const;

    // The workers themselves, callable from any thread; tests and the benchmark use them directly.
    static Result extractZip(const QString &zipPath, const QString &stagingDir, const std::atomic<bool> &cancelFlag,
                             std::atomic<qint64> &processedBytes, const ProgressCallback &progress);
    static Result copyPayload(const QString &source, const QString &target, const std::atomic<bool> &cancelFlag);
    static Result scanPayload(const QString &directory, const std::atomic<bool> &cancelFlag);

    // The cleaned relative form of an entry name, or an empty string when the name is unsafe.
    // "." (the staging root itself) is returned as ".".
    static QString safeEntryPath(const QByteArray &rawName);

    static QString zipMessage(int status);
    static QString payloadMessage(int status);

    // Files a payload must hold at its root to be ours.
    static QString productExecutableName();

    // Directories ordered so that removing them in list order empties each before its parent.
    static QList<QString> deepestFirst(QList<QString> directories);

signals:
    void progressChanged(qint64 processed, qint64 total);
    void completed(const QString &stagingDir, const QList<QString> &files, const QList<QString> &directories);
    void failed(const QString &message);

private:
    enum class Operation { Zip, Payload };
    using Work = std::function<Result(const std::shared_ptr<std::atomic<bool>> &cancel,
                                      const std::shared_ptr<std::atomic<qint64>> &processed)>;
    void startWorker(Operation operation, const QString &directory, Work work);
    void finishWorker(QThread *thread, Operation operation, const QString &directory, const Result &result);

    QPointer<QThread> m_worker;             // the run whose result counts
    QList<QPointer<QThread>> m_threads;     // every run not yet finished, superseded ones included
    std::shared_ptr<std::atomic<bool>> m_cancel;
    std::shared_ptr<std::atomic<qint64>> m_processed;
};
