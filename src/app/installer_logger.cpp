#include "app/installer_logger.h"
#include "app/app_paths.h"
#include "app/log_append.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QMutex>
#include <QMutexLocker>

namespace InstallerLogger {

namespace {

QMutex &logLock()
{
    static QMutex lock;
    return lock;
}

} // namespace

void writeTo(const QString &logRoot, const QString &message)
{
    const QMutexLocker locker(&logLock());
    if (logRoot.isEmpty() || !QDir().mkpath(logRoot))
        return;
    const QDateTime now = QDateTime::currentDateTime();
    const QByteArray line = now.toString(Qt::ISODateWithMs).toUtf8() + "  " + message.toUtf8() + LogAppend::lineEnd();
    const QDir root(logRoot);
    if (LogAppend::appendLine(root.filePath(QStringLiteral("installer-%1.log").arg(now.toString(QStringLiteral("yyyyMMdd")))), line))
        return;
    // The day's file may be locked by another process; write beside it rather than lose the line.
    const QString fallback = QStringLiteral("installer-%1-%2.log")
                                 .arg(now.toString(QStringLiteral("yyyyMMdd-HHmmss")))
                                 .arg(QCoreApplication::applicationPid());
    if (LogAppend::appendLine(root.filePath(fallback), line))
        return;
    qWarning("Installer log unavailable: %s", message.toLocal8Bit().constData());
}

void write(const QString &message)
{
    writeTo(AppPaths::installerLogRoot(), message);
}

} // namespace InstallerLogger
