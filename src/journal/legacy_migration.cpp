#include "journal/legacy_migration.h"

#include "app/installer_logger.h"
#include "system/change_steps.h"
#include "journal/legacy_migration_record.h"
#include "journal/overlay_transaction.h"
#include "journal/overlay_transaction_platform.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/user_registry.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QUuid>

#include <functional>

namespace LegacyMigration {

namespace {

constexpr qint64 maximumRecordBytes = 33554432;

const QStringList &componentDirectories()
{
    static const QStringList names { QStringLiteral("OBS-Studio"), QStringLiteral("Pellacore") };
    return names;
}

const QStringList &oldExecutables()
{
    static const QStringList names { QStringLiteral("brisalinker.exe"), QStringLiteral("updater.exe") };
    return names;
}

bool matches(const QJsonValue &value, const QString &pattern)
{
    return value.isString() && QRegularExpression(pattern).match(value.toString()).hasMatch();
}

bool isDigest(const QJsonValue &value)
{
    return matches(value, QStringLiteral("^[0-9a-f]{64}$"));
}

bool isUninstallFileName(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral("^unins[0-9]{3}\\.(exe|dat|msg)$"));
    return pattern.match(name).hasMatch();
}

QString text(const QJsonObject &record, const char *key)
{
    return record.value(QLatin1String(key)).toString();
}

// Where the record may send a recovery: the destination and its siblings named after it.
bool validPaths(const QJsonObject &record, const QString &root)
{
    const QString recordedRoot = text(record, "root");
    const QString id = text(record, "id");
    const QJsonValue phase = record.value(QStringLiteral("phase"));
    QString suffix;
    if (record.value(QStringLiteral("schema")) != QJsonValue(1) || !matches(record.value(QStringLiteral("id")), QStringLiteral("^[0-9a-f]{32}$")))
        return false;
    if (phase != QJsonValue(QStringLiteral("preparing")) && phase != QJsonValue(QStringLiteral("committed"))
        && phase != QJsonValue(QStringLiteral("complete")))
        return false;
    if (!InstallationLocation::isApplicationDirectory(recordedRoot) || !InstallationLocation::same(root, recordedRoot))
        return false;
    if (!OverlayTransaction::siblingNamed(text(record, "staging"), recordedRoot, QStringLiteral(".installing-"), &suffix)
        || !QRegularExpression(QStringLiteral("^[0-9]+-[0-9]+$")).match(suffix).hasMatch())
        return false;
    if (!OverlayTransaction::siblingNamed(text(record, "backup"), recordedRoot, QStringLiteral(".backup-legacy-"), &suffix)
        || !QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(suffix).hasMatch())
        return false;
    if (!OverlayTransaction::siblingNamed(text(record, "archive"), recordedRoot, QStringLiteral(".legacy-data-"), &suffix) || suffix != id)
        return false;
    return OverlayTransaction::regular({ recordedRoot, text(record, "staging"), text(record, "backup"), text(record, "archive") });
}

bool validExecutables(const QJsonValue &value)
{
    const QJsonObject executables = value.toObject();
    if (!value.isObject() || executables.isEmpty())
        return false;
    for (auto it = executables.begin(); it != executables.end(); ++it) {
        if (!oldExecutables().contains(it.key()) || !isDigest(it.value()))
            return false;
    }
    return true;
}

bool validNames(const QJsonValue &value, const std::function<bool(const QString &)> &known)
{
    if (!value.isArray())
        return false;
    QStringList seen;
    for (const QJsonValue &name : value.toArray()) {
        if (!name.isString() || !known(name.toString()) || seen.contains(name.toString(), Qt::CaseInsensitive))
            return false;
        seen.append(name.toString());
    }
    return true;
}

bool validSnapshot(const QJsonObject &record, bool required)
{
    const QJsonValue owner = record.value(QStringLiteral("registrationOwner"));
    if (!owner.isString() || owner.toString().isEmpty())
        return false;
    const QJsonValue snapshot = record.value(QStringLiteral("registrationSnapshot"));
    if (snapshot.isUndefined())
        return !required;
    QList<UserRegistry::Value> values;
    return RecordFormat::snapshotValues(snapshot, &values);
}

bool validFiles(const QJsonValue &value)
{
    if (!value.isArray())
        return false;
    for (const QJsonValue &entryValue : value.toArray()) {
        const QJsonObject entry = entryValue.toObject();
        const QJsonValue hadOriginal = entry.value(QStringLiteral("hadOriginal"));
        if (!entryValue.isObject() || !entry.value(QStringLiteral("path")).isString()
            || !OverlayTransaction::relative(entry.value(QStringLiteral("path")).toString())
            || !isDigest(entry.value(QStringLiteral("newSha256"))) || !hadOriginal.isBool()
            || (hadOriginal.toBool() && !isDigest(entry.value(QStringLiteral("oldSha256")))))
            return false;
    }
    return true;
}

// The detail of an invalid record, or empty when every key holds what it may.
QString invalidity(const QJsonObject &record, const QString &root)
{
    const bool preparing = text(record, "phase") == QLatin1String("preparing");
    const QString source = text(record, "sourceRoot");
    if (!validPaths(record, root))
        return QStringLiteral("The legacy migration recovery paths are invalid.");
    if (!record.value(QStringLiteral("sourceRoot")).isString()
        || !InstallationLocation::same(source, InstallationLocation::parentOf(InstallationLocation::normalized(text(record, "root"))))
        || !OverlayTransaction::regular(source))
        return QStringLiteral("The legacy migration source is not the destination's direct parent.");
    if (!validExecutables(record.value(QStringLiteral("sourceExecutables"))))
        return QStringLiteral("The legacy executable cleanup plan is invalid.");
    if (!validNames(record.value(QStringLiteral("directories")), [](const QString &name) { return componentDirectories().contains(name); }))
        return QStringLiteral("The legacy migration contains an unknown component directory.");
    if (!validNames(record.value(QStringLiteral("uninstallFiles")), isUninstallFileName))
        return QStringLiteral("The legacy migration contains an unknown uninstall file.");
    if (!validSnapshot(record, preparing))
        return QStringLiteral("The migration uninstall snapshot is invalid.");
    const QJsonValue created = record.value(QStringLiteral("createdDirectories"));
    if ((preparing || !created.isUndefined()) && !OverlayTransaction::validCreated(created))
        return QStringLiteral("The legacy migration contains an unsafe directory path.");
    const QJsonValue files = record.value(QStringLiteral("files"));
    if ((preparing || !files.isUndefined()) && !validFiles(files))
        return QStringLiteral("The legacy migration contains an unsafe or incomplete file plan.");
    return {};
}

QString under(const QString &directory, const QString &relativePath)
{
    return directory + QLatin1Char('/') + relativePath;
}

// A directory that holds no file any more (only empty folders) is removed; one with anything
// else in it, a link included, stays.
void removeIfNoFiles(const QString &directory)
{
    if (!FileLinks::exists(directory) || FileLinks::isLink(directory))
        return;
    QDirIterator walk(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString entry = walk.next();
        if (FileLinks::isLink(entry) || !walk.fileInfo().isDir())
            return;
    }
    if (FileLinks::removeTree(directory))
        ChangeSteps::passed("remove directory");
}

bool removeDirectoryIfEmpty(const QString &directory)
{
    if (!OverlayTransaction::regular(directory) || !QDir().rmdir(directory))
        return false;
    ChangeSteps::passed("remove directory");
    return true;
}

// Puts the user's uninstall entry back as the snapshot holds it, unless another installation
// has made it its own since.
bool restoreRegistration(const QJsonObject &record, const QString &root, QString *error)
{
    QList<UserRegistry::Value> saved;
    if (!RecordFormat::snapshotValues(record.value(QStringLiteral("registrationSnapshot")), &saved))
        return RecordFormat::fail(error, QStringLiteral("The preserved uninstall registration is invalid."));
    QList<UserRegistry::Value> current;
    if (UserRegistry::readValues(RecordFormat::uninstallSubkey(), &current) != 0)
        return RecordFormat::fail(error, QStringLiteral("Unable to restore the previous uninstall registration."));
    if (RecordFormat::sameValues(current, saved))
        return true;
    const QString location = UserRegistry::text(current, QStringLiteral("InstallLocation"));
    if (!location.isEmpty() && !InstallationLocation::same(location, root))
        return RecordFormat::fail(error, QStringLiteral("Another installation changed the uninstall registration. The migration backup was preserved."));
    const long status = saved.isEmpty() ? UserRegistry::removeKey(RecordFormat::uninstallSubkey())
                                        : UserRegistry::replaceValues(RecordFormat::uninstallSubkey(), saved);
    if (status != 0)
        return RecordFormat::fail(error, QStringLiteral("Unable to restore the previous uninstall registration."));
    ChangeSteps::passed("restore registration");
    return true;
}

// The component folders go back from the archive to where the old layout had them.
bool returnDirectories(const QJsonObject &record)
{
    const QString source = InstallationLocation::normalized(text(record, "sourceRoot"));
    const QString archive = InstallationLocation::normalized(text(record, "archive"));
    bool complete = true;
    for (const QJsonValue &name : record.value(QStringLiteral("directories")).toArray()) {
        const QString retired = under(archive, name.toString());
        const QString original = under(source, name.toString());
        if (!FileLinks::exists(retired))
            continue;
        if (FileLinks::exists(original) || !OverlayTransaction::move(retired, original)) {
            InstallerLogger::write(QStringLiteral("Old component could not be returned: %1").arg(original));
            complete = false;
        }
    }
    return complete;
}

} // namespace

QString journalPath(const QString &root)
{
    return InstallationLocation::normalized(root) + QStringLiteral("/.legacy-migration.json");
}

bool save(const QJsonObject &record, QString *error)
{
    const QString target = journalPath(text(record, "root"));
    if (text(record, "root").isEmpty() || !OverlayTransaction::regular(target))
        return RecordFormat::fail(error, QStringLiteral("Migration record contains a directory link: %1").arg(target));
    const QString root = QFileInfo(target).path();
    if (!QFileInfo(root).isDir()) {
        if (!QDir().mkpath(root))
            return RecordFormat::fail(error, QStringLiteral("Unable to save the legacy migration record: %1").arg(root));
        ChangeSteps::passed("make directory");
    }
    QString reason;
    if (!OverlayTransaction::writeDurably(target, RecordFormat::serialized(record), &reason))
        return RecordFormat::fail(error, QStringLiteral("Unable to save the legacy migration record: %1").arg(reason));
    ChangeSteps::passed("save record");
    // Not the user's file; a failure only leaves it visible.
    if (!OverlayTransactionPlatform::hideFile(target))
        InstallerLogger::write(QStringLiteral("Unable to hide the legacy migration record: %1").arg(target));
    return true;
}

bool load(const QString &root, State *state, QString *error)
{
    const QString path = journalPath(root);
    QFile file(path);
    if (!OverlayTransaction::regular(path) || !file.open(QIODevice::ReadOnly))
        return RecordFormat::fail(error, QStringLiteral("Unable to read the legacy migration record: %1").arg(file.errorString()));
    const QByteArray bytes = file.read(maximumRecordBytes + 1);
    QJsonParseError parseError {};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (bytes.size() > maximumRecordBytes)
        return RecordFormat::fail(error, QStringLiteral("Unable to read the legacy migration record: %1").arg(QStringLiteral("the record is too large")));
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return RecordFormat::fail(error, QStringLiteral("Unable to read the legacy migration record: %1").arg(parseError.errorString()));
    const QJsonObject record = document.object();
    const QString detail = invalidity(record, InstallationLocation::normalized(root));
    if (!detail.isEmpty())
        return RecordFormat::fail(error, QStringLiteral("The legacy migration record is invalid; no cleanup was performed: %1").arg(detail));
    // Another account's migration is its to finish: its registration and its decisions.
    if (text(record, "registrationOwner") != DesktopUser::sid())
        return RecordFormat::fail(error, QStringLiteral("Resume the interrupted migration using the Windows account that started it."));
    state->record = record;
    state->active = true;
    return true;
}

bool begin(const QString &root, const QString &staging, const QString &backup, State *state, QString *error,
           const QString &sourceRoot)
{
    const QString normalizedRoot = InstallationLocation::normalized(root);
    const QString source = InstallationLocation::normalized(sourceRoot);
    const QString id = QUuid::createUuid().toString(QUuid::Id128).toLower();
    QJsonObject record {
        { QStringLiteral("schema"), 1 },
        { QStringLiteral("id"), id },
        { QStringLiteral("phase"), QStringLiteral("preparing") },
        { QStringLiteral("root"), normalizedRoot },
        { QStringLiteral("staging"), InstallationLocation::normalized(staging) },
        { QStringLiteral("backup"), InstallationLocation::normalized(backup) },
        { QStringLiteral("archive"), normalizedRoot + QStringLiteral(".legacy-data-") + id },
        { QStringLiteral("sourceRoot"), source },
    };
    if (!InstallationLocation::isApplicationDirectory(normalizedRoot) || !validPaths(record, normalizedRoot))
        return RecordFormat::fail(error, QStringLiteral("The legacy migration paths are unsafe."));
    if (FileLinks::exists(journalPath(normalizedRoot))) {
        State previous;
        if (!load(normalizedRoot, &previous, error))
            return false;
        if (text(previous.record, "phase") != QLatin1String("complete"))
            return RecordFormat::fail(error, QStringLiteral("An unfinished legacy migration must be recovered before another begins."));
    }
    if (InstallationLocation::same(source, normalizedRoot)
        || !InstallationLocation::same(InstallationLocation::applicationTarget(source), normalizedRoot)
        || !InstallationLocation::hasNoDirectoryLinks(source)
        || InstallationIdentity::installation(source).kind != InstallationIdentity::ValidExecutable)
        return RecordFormat::fail(error, QStringLiteral("The legacy migration source cannot be verified."));

    QJsonObject executables;
    for (const QString &name : oldExecutables()) {
        const QString digest = OverlayTransaction::hash(under(source, name));
        if (digest.isEmpty())
            return RecordFormat::fail(error, QStringLiteral("Unable to preserve old executable identity: %1").arg(under(source, name)));
        executables.insert(name, digest);
    }
    record.insert(QStringLiteral("sourceExecutables"), executables);

    QList<OverlayTransaction::PlannedFile> planned;
    QStringList created;
    QString unreadable;
    switch (OverlayTransaction::planFiles(normalizedRoot, text(record, "staging"), &planned, &created, &unreadable)) {
    case OverlayTransaction::PlanOutcome::Planned:
        break;
    case OverlayTransaction::PlanOutcome::LinkFound:
        return RecordFormat::fail(error, QStringLiteral("The staged migration contains a directory link."));
    case OverlayTransaction::PlanOutcome::UnsafePath:
        return RecordFormat::fail(error, QStringLiteral("The staged migration contains an unsafe path."));
    case OverlayTransaction::PlanOutcome::UnreadableFile:
        return RecordFormat::fail(error, QStringLiteral("Unable to verify files before migration: %1").arg(unreadable));
    }
    QJsonArray files;
    for (const OverlayTransaction::PlannedFile &file : std::as_const(planned)) {
        QJsonObject entry { { QStringLiteral("path"), file.path }, { QStringLiteral("newSha256"), file.newDigest },
                            { QStringLiteral("hadOriginal"), file.hadOld } };
        if (file.hadOld)
            entry.insert(QStringLiteral("oldSha256"), file.oldDigest);
        files.append(entry);
    }
    record.insert(QStringLiteral("files"), files);
    // The root itself is made by the record; only what lies below it is the payload's.
    record.insert(QStringLiteral("createdDirectories"), QJsonArray::fromStringList(created));

    QStringList directories;
    for (const QString &name : componentDirectories()) {
        const QString path = under(source, name);
        if (!FileLinks::exists(path))
            continue;
        if (FileLinks::isLink(path) || !QFileInfo(path).isDir())
            return RecordFormat::fail(error, QStringLiteral("An old component is not a regular directory: %1").arg(path));
        directories.append(name);
    }
    record.insert(QStringLiteral("directories"), QJsonArray::fromStringList(directories));

    QStringList uninstallFiles;
    const QStringList patterns { QStringLiteral("unins*.exe"), QStringLiteral("unins*.dat"), QStringLiteral("unins*.msg") };
    for (const QFileInfo &entry : QDir(source).entryInfoList(patterns, QDir::Files | QDir::Hidden | QDir::System, QDir::Name)) {
        if (isUninstallFileName(entry.fileName()) && !FileLinks::isLink(entry.filePath()))
            uninstallFiles.append(entry.fileName());
    }
    record.insert(QStringLiteral("uninstallFiles"), QJsonArray::fromStringList(uninstallFiles));

    QList<UserRegistry::Value> registration;
    if (DesktopUser::sid().isEmpty() || UserRegistry::readValues(RecordFormat::uninstallSubkey(), &registration) != 0)
        return RecordFormat::fail(error, QStringLiteral("Unable to preserve the uninstall registration before migration."));
    record.insert(QStringLiteral("registrationOwner"), DesktopUser::sid());
    record.insert(QStringLiteral("registrationSnapshot"), RecordFormat::snapshotObject(registration));

    if (!save(record, error))
        return false;
    state->record = record;
    state->active = true;
    retireDirectories(*state);
    InstallerLogger::write(QStringLiteral("Legacy core migration started; retained user data: %1").arg(text(record, "archive")));
    return true;
}

bool commit(State *state, QString *error)
{
    if (!state->active)
        return true;
    QJsonObject record = state->record;
    record.insert(QStringLiteral("phase"), QStringLiteral("committed"));
    for (const char *key : { "files", "createdDirectories", "registrationSnapshot" })
        record.remove(QLatin1String(key));
    if (!save(record, error))
        return false;
    state->record = record;
    return true;
}

bool rollback(State *state, QString *error)
{
    if (!state->active)
        return true;
    const QJsonObject &record = state->record;
    if (text(record, "phase") != QLatin1String("preparing"))
        return RecordFormat::fail(error, QStringLiteral("A committed migration cannot be rolled back."));
    const QString root = InstallationLocation::normalized(text(record, "root"));
    const QString staging = InstallationLocation::normalized(text(record, "staging"));
    const QString backup = InstallationLocation::normalized(text(record, "backup"));
    const QString archive = InstallationLocation::normalized(text(record, "archive"));
    const QJsonArray files = record.value(QStringLiteral("files")).toArray();
    bool complete = true;
    for (qsizetype i = files.size() - 1; i >= 0; --i) {
        const QJsonObject entry = files.at(i).toObject();
        const OverlayTransaction::PlannedFile file { text(entry, "path"), text(entry, "newSha256"),
                                                     entry.value(QStringLiteral("hadOriginal")).toBool(), text(entry, "oldSha256") };
        if (!OverlayTransaction::restoreFile(file, root, staging, backup)) {
            InstallerLogger::write(QStringLiteral("Migration recovery entry failed: path=%1").arg(file.path));
            complete = false;
        }
    }
    if (!complete || !returnDirectories(record))
        return RecordFormat::fail(error, QStringLiteral("Legacy migration recovery is incomplete. The original files were retained at %1 and %2.")
                                             .arg(QDir::toNativeSeparators(backup), QDir::toNativeSeparators(archive)));
    if (!restoreRegistration(record, root, error))
        return false;
    const QJsonArray created = record.value(QStringLiteral("createdDirectories")).toArray();
    for (qsizetype i = created.size() - 1; i >= 0; --i)
        removeDirectoryIfEmpty(under(root, created.at(i).toString()));
    // Emptied folders go while the record still names them; the root goes with the record.
    removeIfNoFiles(backup);
    removeIfNoFiles(archive);
    if (!FileLinks::removeTree(journalPath(root)))
        return RecordFormat::fail(error, QStringLiteral("Unable to remove the restored migration record."));
    ChangeSteps::passed("remove record");
    removeDirectoryIfEmpty(root);
    state->active = false;
    InstallerLogger::write(QStringLiteral("Legacy migration restored the previous installation."));
    return true;
}

bool recover(const QString &root, QString *error)
{
    if (!FileLinks::exists(journalPath(root)))
        return true;
    State state;
    if (!load(root, &state, error))
        return false;
    if (text(state.record, "phase") == QLatin1String("preparing"))
        return rollback(&state, error);
    return true;
}

bool needsRecovery(const QString &root)
{
    QFile file(journalPath(root));
    if (!FileLinks::exists(file.fileName()) || !file.open(QIODevice::ReadOnly))
        return false;
    const QJsonObject record = QJsonDocument::fromJson(file.read(maximumRecordBytes)).object();
    return text(record, "phase") == QLatin1String("preparing");
}

QStringList retireDirectories(const State &state)
{
    const QString source = InstallationLocation::normalized(text(state.record, "sourceRoot"));
    const QString archive = InstallationLocation::normalized(text(state.record, "archive"));
    QStringList remaining;
    for (const QJsonValue &name : state.record.value(QStringLiteral("directories")).toArray()) {
        const QString original = under(source, name.toString());
        if (!FileLinks::exists(original))
            continue;
        // Never over data already retired, and never a link put in the component's place.
        if (FileLinks::isLink(original) || FileLinks::exists(under(archive, name.toString()))
            || !OverlayTransaction::move(original, under(archive, name.toString()))) {
            InstallerLogger::write(QStringLiteral("Old component remains in use; cleanup will be retried: %1").arg(original));
            remaining.append(original);
        }
    }
    return remaining;
}

} // namespace LegacyMigration
