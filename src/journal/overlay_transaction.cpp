#include "journal/overlay_transaction.h"

#include "app/installer_logger.h"
#include "system/change_steps.h"
#include "journal/overlay_transaction_platform.h"
#include "journal/plain_entries.h"
#include "location/installation_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/sha256.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QThread>
#include <QUuid>

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace OverlayTransaction {

namespace {

constexpr qint64 maximumRecordBytes = 33554432;

bool fail(QString *error, const QString &message)
{
    InstallerLogger::write(message);
    if (error)
        *error = message;
    return false;
}

QString clean(const QString &path)
{
    return QDir::cleanPath(QDir::fromNativeSeparators(path.trimmed()));
}

bool matches(const QJsonValue &value, const QRegularExpression &pattern)
{
    return value.isString() && pattern.match(value.toString()).hasMatch();
}

const QRegularExpression &digestPattern()
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{64}$"));
    return pattern;
}

const QRegularExpression &idPattern()
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{32}$"));
    return pattern;
}

// The record-level rules: identity, ownership and where the record may send a recovery.
bool validRecordHeader(const QJsonObject &record, const QString &root)
{
    static const QRegularExpression stageSuffix(QStringLiteral("^[0-9]+-[0-9]+$"));
    const QString recordedRoot = record.value(QStringLiteral("root")).toString();
    const QString stage = record.value(QStringLiteral("stage")).toString();
    const QString backup = record.value(QStringLiteral("backup")).toString();
    const QString id = record.value(QStringLiteral("id")).toString();
    const QString owner = DesktopUser::sid();
    const QJsonValue phase = record.value(QStringLiteral("phase"));
    QString suffix;
    if (record.value(QStringLiteral("schema")) != QJsonValue(1))
        return false;
    if (!InstallationLocation::isApplicationDirectory(root) || !InstallationLocation::same(root, recordedRoot))
        return false;
    if (!record.value(QStringLiteral("owner")).isString() || owner.isEmpty()
        || record.value(QStringLiteral("owner")).toString() != owner)
        return false;
    if (!matches(record.value(QStringLiteral("id")), idPattern()))
        return false;
    if (!siblingNamed(stage, recordedRoot, QStringLiteral(".installing-"), &suffix) || !stageSuffix.match(suffix).hasMatch())
        return false;
    if (!siblingNamed(backup, recordedRoot, QStringLiteral(".backup-transaction-"), &suffix) || suffix != id)
        return false;
    if (!regular(recordedRoot) || !regular(stage) || !regular(backup))
        return false;
    return phase == QJsonValue(QStringLiteral("preparing")) || phase == QJsonValue(QStringLiteral("committed"));
}

bool validFilePlan(const QJsonValue &files)
{
    if (!files.isArray())
        return false;
    for (const QJsonValue &value : files.toArray()) {
        const QJsonObject entry = value.toObject();
        const QJsonValue hadOld = entry.value(QStringLiteral("hadOld"));
        if (!value.isObject() || !entry.value(QStringLiteral("path")).isString()
            || !relative(entry.value(QStringLiteral("path")).toString())
            || !matches(entry.value(QStringLiteral("new")), digestPattern()) || !hadOld.isBool())
            return false;
        if (hadOld.toBool() && !matches(entry.value(QStringLiteral("old")), digestPattern()))
            return false;
        if (!hadOld.toBool() && !entry.value(QStringLiteral("old")).isString())
            return false;
    }
    return true;
}

// The digest of a path whose link-free check has already been made by the caller.
QString digestOfChecked(const QString &path)
{
    if (!PlainEntries::isFile(QFileInfo(path)))
        return {};
    return Sha256::fileDigest(path);
}

QString under(const QString &directory, const QString &relativePath)
{
    return directory + QLatin1Char('/') + relativePath;
}

bool removeFile(const QString &path)
{
    if (!regular(path) || !QFile::remove(path))
        return false;
    ChangeSteps::passed("remove file");
    return true;
}

void removeDirectoryIfEmpty(const QString &path)
{
    if (regular(path) && QDir().rmdir(path))
        ChangeSteps::passed("remove directory");
}

// The new file is in the way of the old one: drop it when the stage still has its copy,
// otherwise hand it back to the stage so that no new file is ever lost either.
bool setNewFileAside(const QString &target, const QString &staged)
{
    if (FileLinks::exists(staged))
        return removeFile(target);
    return move(target, staged);
}

PlannedFile plannedFile(const QJsonObject &entry)
{
    return PlannedFile { entry.value(QStringLiteral("path")).toString(), entry.value(QStringLiteral("new")).toString(),
                         entry.value(QStringLiteral("hadOld")).toBool(), entry.value(QStringLiteral("old")).toString() };
}

} // namespace

QString path(const QString &root)
{
    return InstallationLocation::normalized(root) + QStringLiteral("/.install-transaction.json");
}

bool siblingNamed(const QString &candidate, const QString &root, const QString &marker, QString *suffix)
{
    const QFileInfo rootInfo(root);
    const QFileInfo info(clean(candidate));
    if (!InstallationLocation::same(info.path(), rootInfo.path()))
        return false;
    const QString prefix = rootInfo.fileName() + marker;
    const QString name = info.fileName();
    if (rootInfo.fileName().isEmpty() || !name.startsWith(prefix, Qt::CaseInsensitive))
        return false;
    *suffix = name.mid(prefix.size());
    return true;
}

bool regular(const QString &path)
{
    return regular({ path });
}

bool regular(std::initializer_list<QString> paths)
{
    for (const QString &path : paths) {
        const QString cleaned = clean(path);
        if (cleaned.isEmpty() || !QDir::isAbsolutePath(cleaned))
            return false;
    }
    return !FileLinks::anyPathHasLink(paths);
}

bool validCreated(const QJsonValue &created)
{
    if (!created.isArray())
        return false;
    for (const QJsonValue &value : created.toArray()) {
        if (!value.isString() || !relative(value.toString()))
            return false;
    }
    return true;
}

bool relative(const QString &path)
{
    if (path.isEmpty() || path.contains(QLatin1Char('\\')) || path.contains(QLatin1Char(':'))
        || !QDir::isRelativePath(path))
        return false;
    static const QString forbidden = QStringLiteral("<>\"|?*");
    for (const QString &part : path.split(QLatin1Char('/'))) {
        if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String("..")
            || part.endsWith(QLatin1Char('.')) || part.endsWith(QLatin1Char(' ')))
            return false;
        for (const QChar c : part) {
            if (c.unicode() < 32 || forbidden.contains(c))
                return false;
        }
    }
    return true;
}

QString hash(const QString &path)
{
    return regular(path) ? digestOfChecked(path) : QString();
}

bool move(const QString &from, const QString &to)
{
    if (!regular({ from, to }) || FileLinks::exists(to))
        return false;
    const QString parent = QFileInfo(clean(to)).path();
    if (!PlainEntries::isDirectory(QFileInfo(parent))) {
        if (!QDir().mkpath(parent))
            return false;
        ChangeSteps::passed("make directory");
    }
    if (!OverlayTransactionPlatform::moveEntry(clean(from), clean(to)))
        return false;
    ChangeSteps::passed("move");
    return true;
}

bool restoreFile(const PlannedFile &file, const QString &root, const QString &stage, const QString &backup)
{
    const QString target = under(root, file.path);
    const QString staged = under(stage, file.path);
    const QString saved = under(backup, file.path);
    // Checked once here; the digests below read the same paths.
    if (!regular({ target, staged, saved }))
        return false;
    if (FileLinks::exists(staged) && digestOfChecked(staged) != file.newDigest)
        return false;
    if (FileLinks::exists(saved)) {
        if (!file.hadOld || digestOfChecked(saved) != file.oldDigest)
            return false;
        if (FileLinks::exists(target)) {
            const QString current = digestOfChecked(target);
            if (current == file.oldDigest)
                return true;
            if (current != file.newDigest || !setNewFileAside(target, staged))
                return false;
        }
        return move(saved, target);
    }
    if (!file.hadOld) {
        if (!FileLinks::exists(target))
            return true;
        return digestOfChecked(target) == file.newDigest && setNewFileAside(target, staged);
    }
    return FileLinks::exists(target) && digestOfChecked(target) == file.oldDigest;
}

bool writeDurably(const QString &target, const QByteArray &bytes, QString *reason)
{
    QSaveFile file(target);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush()
        && OverlayTransactionPlatform::flushToDisk(&file) && file.commit())
        return true;
    *reason = file.errorString();
    return false;
}

bool save(const QJsonObject &record, QString *error)
{
    const QString target = path(record.value(QStringLiteral("root")).toString());
    if (record.value(QStringLiteral("root")).toString().isEmpty() || !regular(target))
        return fail(error, QStringLiteral("Unsafe installation recovery path."));
    // A first installation has no root yet; the record is its first content.
    const QString root = QFileInfo(target).path();
    if (!QFileInfo(root).isDir()) {
        if (!QDir().mkpath(root))
            return fail(error, QStringLiteral("Unable to persist the installation recovery record: ") + root);
        ChangeSteps::passed("make directory");
    }
    QString reason;
    if (!writeDurably(target, QJsonDocument(record).toJson(QJsonDocument::Compact), &reason))
        return fail(error, QStringLiteral("Unable to persist the installation recovery record: ") + reason);
    ChangeSteps::passed("save record");
    return true;
}

PlanOutcome planFiles(const QString &root, const QString &stage, QList<PlannedFile> *files, QStringList *created,
                      QString *unreadable)
{
    struct Planned
    {
        PlannedFile file;
        QString staged;
        QString target;
    };
    QList<Planned> planned;
    QSet<QString> createdSet;
    QSet<QString> seenParents;
    QDirIterator walk(stage, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    const QDir stageDir(stage);
    while (walk.hasNext()) {
        const QString entry = walk.next();
        // The stage itself passed the full check; each entry below it is reached through
        // entries already checked, so testing the entry itself covers every ancestor.
        if (FileLinks::isLink(entry))
            return PlanOutcome::LinkFound;
        if (PlainEntries::isDirectory(walk.fileInfo()))
            continue;
        const QString relativePath = stageDir.relativeFilePath(entry);
        if (!relative(relativePath))
            return PlanOutcome::UnsafePath;
        const QString target = under(root, relativePath);
        planned.append(Planned { PlannedFile { relativePath, {}, FileLinks::exists(target), {} }, entry, target });
        for (QString parent = QFileInfo(relativePath).path(); parent != QLatin1String(".");
             parent = QFileInfo(parent).path()) {
            if (seenParents.contains(parent))
                break;
            seenParents.insert(parent);
            if (!FileLinks::exists(under(root, parent)))
                createdSet.insert(parent);
        }
    }
    // Reading and hashing every old and new file is most of the time spent here, and the files
    // are independent: each core takes the next file until none is left.
    std::atomic<qsizetype> next { 0 };
    // Detached once here, so that no thread touches the list itself, only its own entries.
    Planned *const entries = planned.data();
    const qsizetype count = planned.size();
    const auto digestRemaining = [entries, count, &next] {
        for (qsizetype i = next++; i < count; i = next++) {
            Planned &entry = entries[i];
            entry.file.newDigest = digestOfChecked(entry.staged);
            if (entry.file.hadOld)
                entry.file.oldDigest = hash(entry.target);
        }
    };
    std::vector<std::thread> helpers;
    const int cores = std::clamp(QThread::idealThreadCount(), 1, 4);
    for (int i = 1; i < cores && i * 64 < count; ++i) {
        try {
            helpers.emplace_back(digestRemaining);
        } catch (const std::system_error &) {
            break; // no more threads to be had: the ones running, this one included, do it all
        }
    }
    digestRemaining();
    for (std::thread &helper : helpers)
        helper.join();

    QList<PlannedFile> result;
    result.reserve(planned.size());
    for (const Planned &entry : std::as_const(planned)) {
        if (entry.file.newDigest.isEmpty() || (entry.file.hadOld && entry.file.oldDigest.isEmpty())) {
            *unreadable = entry.target;
            return PlanOutcome::UnreadableFile;
        }
        result.append(entry.file);
    }
    std::sort(result.begin(), result.end(), [](const PlannedFile &a, const PlannedFile &b) {
        return a.path.compare(b.path, Qt::CaseInsensitive) < 0;
    });
    QStringList createdList(createdSet.begin(), createdSet.end());
    createdList.sort();
    *files = result;
    *created = createdList;
    return PlanOutcome::Planned;
}

bool begin(const QString &root, const QString &stage, State *state, QString *error)
{
    if (FileLinks::exists(path(root)))
        return fail(error, QStringLiteral("An unfinished installation must be recovered before starting another transaction."));
    const QString normalizedRoot = InstallationLocation::normalized(root);
    const QString normalizedStage = InstallationLocation::normalized(stage);
    const QString id = QUuid::createUuid().toString(QUuid::Id128).toLower();
    QJsonObject record {
        { QStringLiteral("schema"), 1 },
        { QStringLiteral("id"), id },
        { QStringLiteral("root"), normalizedRoot },
        { QStringLiteral("stage"), normalizedStage },
        { QStringLiteral("backup"), normalizedRoot + QStringLiteral(".backup-transaction-") + id },
        { QStringLiteral("owner"), DesktopUser::sid() },
        { QStringLiteral("phase"), QStringLiteral("preparing") },
        { QStringLiteral("hadRoot"), QFileInfo(normalizedRoot).isDir() },
        { QStringLiteral("metadataStarted"), false },
    };
    // A record that a later run could not load would block that run, so the record's own
    // rules are applied before anything is written.
    if (DesktopUser::sid().isEmpty() || !regular(normalizedRoot) || !regular(normalizedStage)
        || !validRecordHeader(record, normalizedRoot))
        return fail(error, QStringLiteral("Unsafe installation transaction paths or user identity."));

    QList<PlannedFile> planned;
    QStringList createdList;
    QString unreadable;
    switch (planFiles(normalizedRoot, normalizedStage, &planned, &createdList, &unreadable)) {
    case PlanOutcome::Planned:
        break;
    case PlanOutcome::LinkFound:
        return fail(error, QStringLiteral("The payload contains a directory link."));
    case PlanOutcome::UnsafePath:
        return fail(error, QStringLiteral("The payload contains an unsafe file path."));
    case PlanOutcome::UnreadableFile:
        return fail(error, QStringLiteral("Unable to verify transaction file: ") + unreadable);
    }
    QJsonArray fileArray;
    for (const PlannedFile &file : std::as_const(planned)) {
        fileArray.append(QJsonObject {
            { QStringLiteral("path"), file.path },
            { QStringLiteral("new"), file.newDigest },
            { QStringLiteral("hadOld"), file.hadOld },
            { QStringLiteral("old"), file.oldDigest },
        });
    }
    record.insert(QStringLiteral("files"), fileArray);
    record.insert(QStringLiteral("created"), QJsonArray::fromStringList(createdList));
    if (!snapshotMetadata(&record, error) || !save(record, error))
        return false;
    state->record = record;
    state->active = true;
    return true;
}

bool metadataStarted(State *state, QString *error)
{
    if (!state->active)
        return true;
    QJsonObject record = state->record;
    record.insert(QStringLiteral("metadataStarted"), true);
    if (!save(record, error))
        return false;
    state->record = record;
    return true;
}

bool commit(State *state, QString *error)
{
    if (!state->active)
        return true;
    QJsonObject record = state->record;
    record.insert(QStringLiteral("phase"), QStringLiteral("committed"));
    if (!save(record, error))
        return false;
    state->record = record;
    return true;
}

bool load(const QString &root, State *state, QString *error)
{
    const QString recordPath = path(root);
    QFile file(recordPath);
    if (!regular(recordPath) || !file.open(QIODevice::ReadOnly) || file.size() > maximumRecordBytes)
        return fail(error, QStringLiteral("Unable to read installation recovery record."));
    // Read what the size promised and one byte more, so a file that grew meanwhile is noticed
    // without reserving the whole limit for every small record.
    const QByteArray bytes = file.read(file.size() + 1);
    QJsonParseError parseError {};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (bytes.size() > maximumRecordBytes || parseError.error != QJsonParseError::NoError || !document.isObject())
        return fail(error, QStringLiteral("Unable to read installation recovery record."));
    return validate(document.object(), root, state, error);
}

bool validate(const QJsonObject &record, const QString &root, State *state, QString *error)
{
    if (!validRecordHeader(record, InstallationLocation::normalized(root)))
        return fail(error, QStringLiteral("Invalid installation recovery record; backups were preserved."));
    if (!validFilePlan(record.value(QStringLiteral("files"))))
        return fail(error, QStringLiteral("Invalid installation recovery file plan."));
    if (!validCreated(record.value(QStringLiteral("created"))))
        return fail(error, QStringLiteral("Invalid recovery directory."));
    state->record = record;
    state->active = true;
    return true;
}

bool rollback(State *state, QString *error)
{
    if (!state->active)
        return true;
    const QJsonObject &record = state->record;
    if (record.value(QStringLiteral("phase")).toString() != QLatin1String("preparing"))
        return fail(error, QStringLiteral("Cannot roll back a committed installation."));
    const QString root = InstallationLocation::normalized(record.value(QStringLiteral("root")).toString());
    const QString stage = InstallationLocation::normalized(record.value(QStringLiteral("stage")).toString());
    const QString backup = InstallationLocation::normalized(record.value(QStringLiteral("backup")).toString());
    const QJsonArray files = record.value(QStringLiteral("files")).toArray();
    bool complete = true;
    for (qsizetype i = files.size() - 1; i >= 0; --i) {
        if (!restoreFile(plannedFile(files.at(i).toObject()), root, stage, backup)) {
            InstallerLogger::write(QStringLiteral("Recovery entry failed: path=%1").arg(files.at(i).toObject().value(QStringLiteral("path")).toString()));
            complete = false;
        }
    }
    if (!complete)
        return fail(error, QStringLiteral("Installation recovery is incomplete. Preserve the recovery record and backup: ") + backup);
    if (!restoreMetadata(record, error))
        return false;
    const QJsonArray created = record.value(QStringLiteral("created")).toArray();
    for (qsizetype i = created.size() - 1; i >= 0; --i)
        removeDirectoryIfEmpty(under(root, created.at(i).toString()));
    if (!record.value(QStringLiteral("hadRoot")).toBool())
        removeDirectoryIfEmpty(root);
    if (!removeFile(path(root)))
        return fail(error, QStringLiteral("Unable to remove the completed recovery record."));
    removeDirectoryIfEmpty(backup);
    state->active = false;
    InstallerLogger::write(QStringLiteral("Recovered interrupted installation: ") + root);
    return true;
}

bool recover(const QString &root, QString *error)
{
    if (!FileLinks::exists(path(root)))
        return true;
    State state;
    if (!load(root, &state, error))
        return false;
    if (state.record.value(QStringLiteral("phase")).toString() == QLatin1String("preparing"))
        return rollback(&state, error);
    if (!removeFile(path(root)))
        return fail(error, QStringLiteral("Unable to retire the committed recovery record."));
    return true;
}

QStringList shortcutPaths()
{
    return OverlayTransactionPlatform::shortcutPaths();
}

bool shortcutOwned(const QString &shortcut, const QString &root)
{
    return OverlayTransactionPlatform::shortcutOwned(shortcut, root);
}

QList<QPair<QString, QString>> protocolValues()
{
    const QString scheme = QStringLiteral("brisalinker");
    const QString command = QStringLiteral("brisalinker\\shell\\open\\command");
    return {
        { scheme, QString() },
        { scheme, QStringLiteral("URL Protocol") },
        { scheme, QStringLiteral("BrisaLinkerInstallerRegistration") },
        { QStringLiteral("brisalinker\\DefaultIcon"), QString() },
        { QStringLiteral("brisalinker\\shell"), QString() },
        { command, QString() },
        { command, QStringLiteral("DelegateExecute") },
    };
}

} // namespace OverlayTransaction
