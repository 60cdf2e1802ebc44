#include "extract/archive_extractor.h"

#include "app/installer_logger.h"

#include <QThread>

#include <algorithm>

ArchiveExtractor::ArchiveExtractor(QObject *parent) : QObject(parent) { }

ArchiveExtractor::~ArchiveExtractor()
{
    // Workers share only atomics and their result with us, but the progress callback posts to
    // this object: stop them and wait, so nothing is posted to a destroyed extractor.
    if (m_cancel)
        m_cancel->store(true);
    for (const QPointer<QThread> &thread : std::as_const(m_threads)) {
        if (thread) {
            thread->wait();
            delete thread.data();
        }
    }
}

void ArchiveExtractor::extract(const QString &zipPath, const QString &stagingDir)
{
    InstallerLogger::write(QStringLiteral("Extracting %1 to %2").arg(zipPath, stagingDir));
    startWorker(Operation::Zip, stagingDir, [zipPath, stagingDir, this](const std::shared_ptr<std::atomic<bool>> &cancel,
                                                                       const std::shared_ptr<std::atomic<qint64>> &processed) {
        // The destructor waits for every worker, so the extractor outlives this callback.
        return extractZip(zipPath, stagingDir, *cancel, *processed, [this, cancel](qint64 done, qint64 total) {
            QMetaObject::invokeMethod(this, [this, cancel, done, total] {
                // A report of a superseded run arrives late and is dropped.
                if (m_cancel == cancel)
                    emit progressChanged(done, total);
            }, Qt::QueuedConnection);
        });
    });
}

void ArchiveExtractor::copyDirectory(const QString &source, const QString &target)
{
    InstallerLogger::write(QStringLiteral("Copying bundled payload %1 to %2").arg(source, target));
    startWorker(Operation::Payload, target, [source, target](const std::shared_ptr<std::atomic<bool>> &cancel,
                                                             const std::shared_ptr<std::atomic<qint64>> &) {
        return copyPayload(source, target, *cancel);
    });
}

void ArchiveExtractor::scanDirectory(const QString &directory)
{
    InstallerLogger::write(QStringLiteral("Scanning bundled payload: %1").arg(directory));
    startWorker(Operation::Payload, directory, [directory](const std::shared_ptr<std::atomic<bool>> &cancel,
                                                           const std::shared_ptr<std::atomic<qint64>> &) {
        return scanPayload(directory, *cancel);
    });
}

void ArchiveExtractor::cancel()
{
    if (m_cancel)
        m_cancel->store(true);
}

void ArchiveExtractor::waitForWorkers()
{
    for (const QPointer<QThread> &thread : std::as_const(m_threads)) {
        if (thread)
            thread->wait();
    }
}

bool ArchiveExtractor::isRunning() const
{
    return !m_worker.isNull();
}

void ArchiveExtractor::startWorker(Operation operation, const QString &directory, Work work)
{
    // A run still going is superseded: it stops at its next block and its result is dropped.
    cancel();
    m_cancel = std::make_shared<std::atomic<bool>>(false);
    m_processed = std::make_shared<std::atomic<qint64>>(0);
    auto result = std::make_shared<Result>();
    QThread *thread = QThread::create([work = std::move(work), cancel = m_cancel, processed = m_processed, result] {
        *result = work(cancel, processed);
    });
    thread->setObjectName(QStringLiteral("ArchiveExtractor"));
    m_threads.removeAll(nullptr);
    m_threads.append(thread);
    m_worker = thread;
    connect(thread, &QThread::finished, this, [this, thread, operation, directory, result] {
        finishWorker(thread, operation, directory, *result);
    }, Qt::QueuedConnection);
    thread->start();
}

void ArchiveExtractor::finishWorker(QThread *thread, Operation operation, const QString &directory, const Result &result)
{
    m_threads.removeAll(thread);
    thread->deleteLater();
    if (thread != m_worker)
        return;
    m_worker = nullptr;

    const bool zip = operation == Operation::Zip;
    const int cancelled = zip ? int(ZipCancelled) : int(PayloadCancelled);
    // A run that finished just as it was cancelled is reported as cancelled: after cancel() the
    // caller hears nothing more.
    if (result.status == cancelled || m_cancel->load()) {
        InstallerLogger::write(QStringLiteral("Extraction cancelled: %1").arg(directory));
        return;
    }
    if (result.status != 0) {
        const QString message = zip ? zipMessage(result.status) : payloadMessage(result.status);
        InstallerLogger::write(QStringLiteral("Extraction failed with status %1: %2").arg(result.status).arg(message));
        emit failed(message);
        return;
    }
    if (zip)
        InstallerLogger::write(QStringLiteral("Archive extraction completed: %1").arg(directory));
    else
        InstallerLogger::write(QStringLiteral("Bundled payload ready: %1 (%2 files)").arg(directory).arg(result.files.size()));
    emit completed(directory, result.files, result.directories);
}

QString ArchiveExtractor::zipMessage(int status)
{
    switch (status) {
    case ZipSuccess:
    case ZipCancelled:
        return {};
    case ZipCannotOpen:
        return tr("Unable to open the downloaded ZIP package.");
    case ZipInvalid:
        return tr("The downloaded ZIP package is invalid.");
    case ZipUnsafePath:
        return tr("The ZIP package contains an unsafe path.");
    case ZipNoSpace:
        return tr("There is not enough disk space to install.");
    case ZipCannotCreateDirectory:
        return tr("Unable to create the installation directory.");
    case ZipCannotWriteFile:
        return tr("Unable to write an installation file.");
    default:
        return tr("Unable to extract the downloaded ZIP package.");
    }
}

QString ArchiveExtractor::payloadMessage(int status)
{
    switch (status) {
    case PayloadSuccess:
    case PayloadCancelled:
        return {};
    case PayloadMissing:
        return tr("The bundled Brisa-Linker payload is missing.");
    case PayloadInvalid:
        return tr("The bundled Brisa-Linker payload is invalid.");
    case PayloadHasLink:
        return tr("The bundled payload contains a directory link.");
    case PayloadNoSpace:
        return tr("There is not enough disk space to install.");
    case PayloadCannotCreateDirectory:
        return tr("Unable to create the bundled payload directory.");
    case PayloadCannotCopy:
        return tr("Unable to copy the bundled Brisa-Linker payload.");
    default:
        return tr("Unable to prepare the bundled Brisa-Linker payload.");
    }
}

QString ArchiveExtractor::productExecutableName()
{
    return QStringLiteral("brisalinker.exe");
}

QList<QString> ArchiveExtractor::deepestFirst(QList<QString> directories)
{
    std::sort(directories.begin(), directories.end());
    std::stable_sort(directories.begin(), directories.end(), [](const QString &a, const QString &b) {
        return a.count(QLatin1Char('/')) > b.count(QLatin1Char('/'));
    });
    return directories;
}
