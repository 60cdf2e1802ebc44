#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>

class QThread;

// Turns an extracted staging directory into a working installation on a worker thread: validate,
// record, replace in place, register, commit; every failure before the commit is undone. Reports
// to the window only through signals.
class InstallerFinalizer : public QObject
{
    Q_OBJECT

public:
    explicit InstallerFinalizer(QObject *parent = nullptr);
    ~InstallerFinalizer() override;

    void finalize(const QString &stagingDir, const QString &installDir, const QString &version,
                  const QStringList &files, const QStringList &directories, const QString &otherRoot);

    // Cancellation and the point of no return exclude each other: a cancel succeeds only before
    // the commit phase, and the commit phase begins only when no cancel came first.
    bool requestCancel();
    bool beginCommitPhase();
    void resetCancellation();

    void prepareExistingInstallationAsync(const QString &installDir, const QString &otherRoot);
    bool prepareExistingInstallation(const QString &installDir, QString *error, const QString &otherRoot);
    QStringList runningInstallProcesses(const QString &installDir, const QString &otherRoot) const;

signals:
    void completed();
    void stageChanged(const QString &stage);
    void migrationNotice(const QString &notice);
    void failed(const QString &message);
    void progressChanged(int percent);
    void existingInstallationPrepared(bool ok, const QString &message);

private:
    friend class FinalizationRun;
    void finalizeOnWorkerThread(const QString &stagingDir, const QString &installDir, const QString &version,
                                const QStringList &files, const QStringList &directories, const QString &otherRoot);
    bool cancelled() const { return m_cancelRequested.load(); }

    QThread *m_worker = nullptr;
    QThread *m_preparation = nullptr;
    std::atomic<bool> m_cancelRequested { false };
    bool m_commitPhase = false;
    QMutex m_flagLock;
    struct PreparationResult
    {
        bool ok = false;
        QString error;
    } m_preparationResult;
};
