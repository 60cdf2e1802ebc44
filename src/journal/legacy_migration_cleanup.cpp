#include "journal/legacy_migration.h"

#include "app/installer_logger.h"
#include "system/change_steps.h"
#include "journal/legacy_migration_record.h"
#include "journal/overlay_transaction.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/user_registry.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QJsonArray>

// The clean-up after a committed migration. Whatever cannot be done now (a component still in
// use, a file that will not go, a registration that cannot be retired) stays listed in the record
// and is tried again by the next installation; nothing is ever removed that the old installation
// does not provably own.
namespace LegacyMigration {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("LegacyMigration", text);
}

class CleanupRun
{
public:
    explicit CleanupRun(Cleanup *result) : m_result(result) { }

    void log(const QString &message)
    {
        InstallerLogger::write(message);
        m_result->messages.append(message);
    }
    void notify(const QString &notice) { m_result->notices.append(notice); }
    void pending(const QString &what) { m_pending.append(what); }
    const QStringList &remaining() const { return m_pending; }

private:
    Cleanup *m_result;
    QStringList m_pending;
};

bool inside(const QString &path, const QString &directory)
{
    const QString normalized = InstallationLocation::normalized(path);
    return !normalized.isEmpty()
        && (InstallationLocation::same(normalized, directory)
            || normalized.startsWith(InstallationLocation::normalized(directory) + QLatin1Char('/'), Qt::CaseInsensitive));
}

bool holdsAnything(const QString &directory)
{
    return FileLinks::exists(directory)
        && QDirIterator(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot).hasNext();
}

// A registration of the earlier installer is ours to retire only when it names the source root.
void retireRegistration(CleanupRun &run, const QString &subkey, const QString &source, bool judgedByInstallDir)
{
    QList<UserRegistry::Value> values;
    bool exists = false;
    if (UserRegistry::readValues(subkey, &values, &exists) != 0) {
        run.log(QStringLiteral("Unable to open the desktop user's registration for legacy cleanup."));
        run.pending(subkey);
        return;
    }
    if (!exists)
        return;
    const bool ours = judgedByInstallDir
        ? inside(UserRegistry::text(values, QStringLiteral("InstallDir")), source)
        : inside(UserRegistry::text(values, QStringLiteral("InstallLocation")), source)
            || inside(LegacyUpdateLocation::uninstallProgram(UserRegistry::text(values, QStringLiteral("UninstallString"))), source);
    if (!ours)
        return;
    const long status = UserRegistry::removeKey(subkey);
    if (status != 0) {
        run.log(QStringLiteral("Unable to retire matching Inno registration: Windows %1").arg(status));
        run.pending(subkey);
        return;
    }
    ChangeSteps::passed("remove registration");
}

// The old executables go only while they are still the ones the migration began with; the old
// uninstaller's files go as listed.
QStringList removeOldFiles(CleanupRun &run, const QJsonObject &record, const QString &source)
{
    QStringList failed;
    const auto remove = [&](const QString &path) {
        if (!FileLinks::exists(path))
            return;
        if (!OverlayTransaction::regular(path) || !FileLinks::removeTree(path)) {
            failed.append(QDir::toNativeSeparators(path));
            return;
        }
        ChangeSteps::passed("remove file");
    };
    const QJsonObject executables = record.value(QStringLiteral("sourceExecutables")).toObject();
    for (auto it = executables.begin(); it != executables.end(); ++it) {
        const QString path = source + QLatin1Char('/') + it.key();
        if (FileLinks::exists(path) && OverlayTransaction::hash(path) != it.value().toString()) {
            run.log(QStringLiteral("Old executable changed since the migration began and is kept: %1").arg(path));
            run.pending(path);
            continue;
        }
        remove(path);
    }
    for (const QJsonValue &name : record.value(QStringLiteral("uninstallFiles")).toArray())
        remove(source + QLatin1Char('/') + name.toString());
    return failed;
}

} // namespace

Cleanup finish(const QString &root)
{
    Cleanup result;
    CleanupRun run(&result);
    if (!FileLinks::exists(journalPath(root))) {
        result.complete = true;
        return result;
    }
    State state;
    QString error;
    if (!load(root, &state, &error)) {
        result.messages.append(error); // logged by load
        return result;
    }
    const QString phase = state.record.value(QStringLiteral("phase")).toString();
    if (phase != QLatin1String("committed")) {
        result.complete = phase == QLatin1String("complete");
        return result;
    }
    const QString source = InstallationLocation::normalized(state.record.value(QStringLiteral("sourceRoot")).toString());
    const QString archive = InstallationLocation::normalized(state.record.value(QStringLiteral("archive")).toString());

    for (const QString &directory : retireDirectories(state))
        run.pending(directory);
    if (holdsAnything(archive)) {
        run.log(QStringLiteral("Previous OBS/Pellacore files are retained for user-data recovery: %1").arg(archive));
        run.notify(tr("Previous OBS/Pellacore files were preserved at:\n%1").arg(QDir::toNativeSeparators(archive)));
    }

    if (DesktopUser::sid().isEmpty()) {
        run.log(QStringLiteral("Unable to open the desktop user's registration for legacy cleanup."));
        run.pending(QStringLiteral("registrations"));
    } else {
        retireRegistration(run, QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Brisa-Linker_is1"), source, false);
        retireRegistration(run, QStringLiteral("Software\\BrisaLinker"), source, true);
    }

    const QStringList failed = removeOldFiles(run, state.record, source);
    if (!failed.isEmpty()) {
        run.log(QStringLiteral("Some old files could not be removed and will be retried on the next installation:\n%1").arg(failed.join(QLatin1Char('\n'))));
        run.notify(tr("Some old files could not be removed and will be retried on the next installation:\n%1").arg(failed.join(QLatin1Char('\n'))));
        for (const QString &path : failed)
            run.pending(path);
    }

    if (!run.remaining().isEmpty()) {
        run.log(QStringLiteral("Legacy cleanup remains pending: %1").arg(run.remaining().join(QStringLiteral("; "))));
        return result;
    }
    QJsonObject record = state.record;
    record.insert(QStringLiteral("phase"), QStringLiteral("complete"));
    if (!save(record, &error)) {
        result.messages.append(error);
        return result;
    }
    result.complete = true;
    return result;
}

} // namespace LegacyMigration
