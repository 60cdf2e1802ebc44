#include "finalize/in_place_install.h"

#include "app/installer_logger.h"
#include "system/change_steps.h"
#include "journal/overlay_transaction.h"
#include "journal/plain_entries.h"
#include "system/file_links.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

namespace InPlaceInstall {

namespace {

enum class Leftover { None, NumberedBackup, TransactionBackup, Staging };

bool allDecimalDigits(const QString &text)
{
    return !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c.category() == QChar::Number_DecimalDigit;
    });
}

// What the part of a sibling's name behind the installation's name says it is: an earlier
// installer's numbered backup, or this installer's own transaction backup or staging folder.
Leftover leftoverKind(const QString &suffix)
{
    static const QRegularExpression transaction(QStringLiteral("^\\.backup-transaction-[0-9a-f]{32}$"));
    static const QRegularExpression staging(QStringLiteral("^\\.installing-[0-9]+-[0-9]+$"));
    const QLatin1String numbered(".backup-");
    if (suffix.startsWith(numbered) && allDecimalDigits(suffix.mid(numbered.size())))
        return Leftover::NumberedBackup;
    if (transaction.match(suffix).hasMatch())
        return Leftover::TransactionBackup;
    if (staging.match(suffix).hasMatch())
        return Leftover::Staging;
    return Leftover::None;
}

// Adds the folders the installation's recovery records name to referenced; false when a record
// exists but cannot be read.
bool referencedByRecords(const QString &installDir, QStringList *referenced)
{
    bool readable = true;
    for (const char *record : { ".install-transaction.json", ".legacy-migration.json" }) {
        QFile file(installDir + QLatin1Char('/') + QLatin1String(record));
        if (!FileLinks::exists(file.fileName()))
            continue;
        const QJsonDocument document = file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.read(16 * 1024 * 1024)) : QJsonDocument();
        if (!document.isObject()) {
            readable = false;
            continue;
        }
        for (const char *key : { "stage", "staging", "backup" }) {
            const QString path = document.object().value(QLatin1String(key)).toString();
            if (!path.isEmpty())
                referenced->append(QDir::cleanPath(QFileInfo(QDir::fromNativeSeparators(path)).absoluteFilePath()));
        }
    }
    return readable;
}

bool cancelled(const std::atomic<bool> *cancelRequested)
{
    return cancelRequested && cancelRequested->load();
}

bool makePath(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    if (!QDir().mkpath(path))
        return false;
    ChangeSteps::passed("make directory");
    return true;
}

// Every staged file's path relative to the stage, or false when the walk was cancelled or met
// a link: a link in the payload could make a later move write outside the installation.
bool collectStagedFiles(const QString &stagingDir, const std::atomic<bool> *cancelRequested, QStringList *files)
{
    const QDir stage(stagingDir);
    QDirIterator walk(stagingDir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        if (cancelled(cancelRequested))
            return false;
        const QString entry = walk.next();
        if (FileLinks::isLink(entry)) {
            InstallerLogger::write(QStringLiteral("Unsafe staged directory link: %1").arg(entry));
            return false;
        }
        if (PlainEntries::isDirectory(walk.fileInfo()))
            continue;
        files->append(QDir::fromNativeSeparators(stage.relativeFilePath(entry)));
    }
    std::sort(files->begin(), files->end(), [](const QString &a, const QString &b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    return true;
}

bool unsafeRelativePath(const QString &path)
{
    return path.isEmpty() || path == QLatin1String("..") || path.startsWith(QLatin1String("../"))
        || !QDir::isRelativePath(path);
}

// Creates the missing parents of one payload file one level at a time, so that each directory
// this run made is recorded and can be removed again.
bool ensureParents(const QString &installDir, const QString &relativePath, OverlayState *state)
{
    const QStringList parts = relativePath.split(QLatin1Char('/'));
    QString current = installDir;
    for (qsizetype i = 0; i + 1 < parts.size(); ++i) {
        current += QLatin1Char('/') + parts.at(i);
        if (FileLinks::exists(current)) {
            if (FileLinks::isLink(current) || !PlainEntries::isDirectory(QFileInfo(current)))
                return false;
            continue;
        }
        if (!QDir().mkdir(current))
            return false;
        ChangeSteps::passed("make directory");
        state->createdDirectories.append(current);
    }
    return true;
}

bool installOne(const QString &stagingDir, const QString &installDir, const QString &backupDir,
                const QString &relativePath, OverlayState *state)
{
    if (unsafeRelativePath(relativePath) || !ensureParents(installDir, relativePath, state))
        return false;
    const QString target = installDir + QLatin1Char('/') + relativePath;
    const QString staged = stagingDir + QLatin1Char('/') + relativePath;
    const QString saved = backupDir + QLatin1Char('/') + relativePath;
    bool backedUp = false;
    if (FileLinks::exists(target)) {
        if (FileLinks::isLink(target) || !PlainEntries::isFile(QFileInfo(target)))
            return false;
        if (!makePath(QFileInfo(saved).path()) || !OverlayTransaction::move(target, saved)) {
            InstallerLogger::write(QStringLiteral("Unable to back up existing file: %1").arg(target));
            return false;
        }
        backedUp = true;
    }
    // Recorded before the new file moves, so a failure of that move still restores the backup.
    state->moves.append(OverlayMove { relativePath, backedUp, false });
    if (!OverlayTransaction::move(staged, target)) {
        InstallerLogger::write(QStringLiteral("Unable to replace installation file: %1").arg(target));
        return false;
    }
    state->moves.last().installed = true;
    return true;
}

} // namespace

bool installStagedFilesInPlace(const QString &stagingDir, const QString &installDir, const QString &backupDir,
                               OverlayState *state, const std::atomic<bool> *cancelRequested)
{
    if (!QFileInfo(installDir).isDir()) {
        if (!makePath(installDir))
            return false;
        state->createdInstallRoot = true;
    }
    // Set even when the directory was there: the caller guarantees the backup path is new.
    if (!makePath(backupDir))
        return false;
    state->createdBackupRoot = true;
    if (!prepareBackupDirectory(backupDir))
        return false;
    QStringList files;
    if (!collectStagedFiles(stagingDir, cancelRequested, &files))
        return false;
    for (const QString &relativePath : std::as_const(files)) {
        if (cancelled(cancelRequested))
            return false;
        if (!installOne(stagingDir, installDir, backupDir, relativePath, state))
            return false;
    }
    return true;
}

bool rollbackStagedFiles(const QString &stagingDir, const QString &installDir, const QString &backupDir,
                         const OverlayState &state)
{
    bool complete = true;
    for (qsizetype i = state.moves.size() - 1; i >= 0; --i) {
        const OverlayMove &move = state.moves.at(i);
        const QString target = installDir + QLatin1Char('/') + move.relativePath;
        if (move.installed && !OverlayTransaction::move(target, stagingDir + QLatin1Char('/') + move.relativePath)) {
            // The old file cannot go back while the new one is in its place; its backup stays.
            InstallerLogger::write(QStringLiteral("CRITICAL: unable to roll back new file: %1").arg(target));
            complete = false;
            continue;
        }
        if (move.backedUp && (FileLinks::exists(target) || !OverlayTransaction::move(backupDir + QLatin1Char('/') + move.relativePath, target))) {
            InstallerLogger::write(QStringLiteral("CRITICAL: unable to restore old file: %1").arg(target));
            complete = false;
        }
    }
    for (qsizetype i = state.createdDirectories.size() - 1; i >= 0; --i) {
        if (!QDir().rmdir(state.createdDirectories.at(i))) {
            complete = false;
            continue;
        }
        ChangeSteps::passed("remove directory");
    }
    if (state.createdInstallRoot) {
        if (QDir().rmdir(installDir)) {
            ChangeSteps::passed("remove directory");
            return complete;
        }
        complete = false;
    }
    if (complete && state.createdBackupRoot && QFileInfo(backupDir).isDir()) {
        if (!OverlayTransaction::regular(backupDir) || !removeDirectoryTree(backupDir))
            return false;
        ChangeSteps::passed("remove directory tree");
    }
    return complete;
}

bool removeDirectoryTree(const QString &path)
{
    QStringList links;
    const bool removed = FileLinks::removeTree(path, &links);
    for (const QString &link : links)
        InstallerLogger::write(QStringLiteral("Removal did not follow link: %1").arg(link));
    return removed;
}

void cleanupHistoricalBackupDirectories(const QString &installDir, const QString &currentBackupDir)
{
    const QFileInfo install(QDir::cleanPath(QDir::fromNativeSeparators(installDir)));
    const QString name = install.fileName();
    if (name.isEmpty())
        return;
    const QString current = QDir::cleanPath(QFileInfo(currentBackupDir).absoluteFilePath());
    QStringList kept { current };
    // Folders a recovery record still names belong to that recovery; an unreadable record keeps
    // every leftover of ours.
    const bool leftoversFree = referencedByRecords(install.filePath(), &kept);
    QDirIterator list(install.path(), { name + QStringLiteral(".*") }, QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (list.hasNext()) {
        const QString candidate = list.next();
        const QString suffix = list.fileName().mid(name.size());
        const Leftover kind = leftoverKind(suffix);
        if (kind == Leftover::None || (kind != Leftover::NumberedBackup && !leftoversFree))
            continue;
        if (!list.fileName().startsWith(name, Qt::CaseInsensitive))
            continue;
        const QString absolute = QDir::cleanPath(QFileInfo(candidate).absoluteFilePath());
        if (std::any_of(kept.cbegin(), kept.cend(), [&](const QString &path) { return path.compare(absolute, Qt::CaseInsensitive) == 0; }))
            continue;
        if (FileLinks::isLink(candidate))
            continue;
        const bool removed = removeDirectoryTree(candidate);
        if (kind != Leftover::NumberedBackup)
            InstallerLogger::write(removed ? QStringLiteral("Removed leftover installation folder: %1").arg(candidate)
                                           : QStringLiteral("Unable to remove leftover installation folder; leaving it for a future attempt: %1").arg(candidate));
        else if (removed)
            InstallerLogger::write(QStringLiteral("Removed historical installation backup: %1").arg(candidate));
        else
            InstallerLogger::write(QStringLiteral("Unable to remove historical installation backup; leaving it for a future attempt: %1").arg(candidate));
    }
}

} // namespace InPlaceInstall
