#include "finalize/installer_finalizer.h"
#include "finalize/finalization_run.h"
#include "finalize/installation_processes.h"
#include "finalize/thread_exit_order.h"
#include "app/installer_logger.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QThread>

InstallerFinalizer::InstallerFinalizer(QObject *parent)
    : QObject(parent)
{
}

InstallerFinalizer::~InstallerFinalizer()
{
    // A finalization that has passed its commit point must finish; waiting is the only safe exit.
    for (QThread *thread : { m_worker, m_preparation }) {
        if (thread) {
            thread->wait();
            delete thread;
        }
    }
}

void InstallerFinalizer::finalize(const QString &stagingDir, const QString &installDir, const QString &version,
                                  const QStringList &files, const QStringList &directories, const QString &otherRoot)
{
    if (m_worker) {
        m_worker->wait();
        delete m_worker;
    }
    if (!ThreadExitOrder::arranged())
        InstallerLogger::write(QStringLiteral("Thread-local destruction order not arranged; a worker thread may fail as it ends."));
    m_worker = QThread::create([=, this] {
        finalizeOnWorkerThread(stagingDir, installDir, version, files, directories, otherRoot);
    });
    m_worker->start();
}

bool InstallerFinalizer::requestCancel()
{
    const QMutexLocker locker(&m_flagLock);
    if (m_commitPhase)
        return false;
    m_cancelRequested = true;
    return true;
}

bool InstallerFinalizer::beginCommitPhase()
{
    const QMutexLocker locker(&m_flagLock);
    if (m_cancelRequested)
        return false;
    m_commitPhase = true;
    return true;
}

void InstallerFinalizer::resetCancellation()
{
    const QMutexLocker locker(&m_flagLock);
    m_cancelRequested = false;
    m_commitPhase = false;
}

void InstallerFinalizer::finalizeOnWorkerThread(const QString &stagingDir, const QString &installDir, const QString &version,
                                                const QStringList &files, const QStringList &directories,
                                                const QString &otherRoot)
{
    FinalizationRun run(this, { stagingDir, installDir, version, files, directories, otherRoot });
    run.execute();
}

namespace {

// The installer's own file and the one it was started as ("--installer-source") must never be
// stopped as if they were the product.
QString installerSourceArgument()
{
    const QStringList arguments = QCoreApplication::arguments();
    const qsizetype at = arguments.indexOf(QStringLiteral("--installer-source"));
    return at >= 0 && at + 1 < arguments.size() ? arguments.at(at + 1) : QString();
}

} // namespace

bool InstallerFinalizer::prepareExistingInstallation(const QString &installDir, QString *error, const QString &otherRoot)
{
    return InstallationProcesses::prepareExistingInstallation(installDir, error, otherRoot, installerSourceArgument(),
                                                              QCoreApplication::applicationFilePath());
}

void InstallerFinalizer::prepareExistingInstallationAsync(const QString &installDir, const QString &otherRoot)
{
    if (m_preparation && m_preparation->isRunning())
        return;
    delete m_preparation;
    m_preparationResult = {};
    m_preparation = QThread::create([=, this] {
        m_preparationResult.ok = prepareExistingInstallation(installDir, &m_preparationResult.error, otherRoot);
    });
    connect(m_preparation, &QThread::finished, this, [this] {
        emit existingInstallationPrepared(m_preparationResult.ok, m_preparationResult.error);
    });
    m_preparation->start(QThread::InheritPriority);
}

QStringList InstallerFinalizer::runningInstallProcesses(const QString &installDir, const QString &otherRoot) const
{
    return InstallationProcesses::runningInstallProcesses(installDir, otherRoot);
}
