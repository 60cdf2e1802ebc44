#include "journal/overlay_transaction_platform.h"

#include "system/file_links.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

// The host has no registry and no shell: the snapshot finds nothing, and putting nothing back
// always succeeds. Moves and flushes are real, so the file logic behaves as on Windows.
namespace OverlayTransactionPlatform {

bool moveEntry(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // A file system without the no-replace flag: the check and the rename are two steps, which
    // is acceptable only because nobody else writes into an installation being replaced.
    return !FileLinks::exists(to) && ::rename(source.constData(), target.constData()) == 0;
}

bool hideFile(const QString &)
{
    return true;
}

bool flushToDisk(QFileDevice *file)
{
    return file->handle() >= 0 && ::fsync(file->handle()) == 0;
}

bool readUninstallValues(QVariantMap *values, QString *installLocation)
{
    values->clear();
    if (installLocation)
        installLocation->clear();
    return true;
}

bool writeUninstallValues(const QVariantMap &)
{
    return true;
}

QStringList shortcutPaths()
{
    return {};
}

bool shortcutOwned(const QString &, const QString &)
{
    return false;
}

RegistryResult readProtocolValues(const QList<QPair<QString, QString>> &names, QList<RegistryValue> *values)
{
    values->clear();
    for (qsizetype i = 0; i < names.size(); ++i)
        values->append(RegistryValue {});
    return RegistryResult::Done;
}

RegistryResult writeProtocolValues(const QList<QPair<QString, QString>> &, const QList<RegistryValue> &)
{
    return RegistryResult::Done;
}

RegistryResult currentProtocolCommand(QString *command, bool *present)
{
    command->clear();
    *present = false;
    return RegistryResult::Done;
}

QString protocolCommandFor(const QString &executable)
{
    return QStringLiteral("\"%1\" \"%2\"").arg(executable, QStringLiteral("%1"));
}

} // namespace OverlayTransactionPlatform
