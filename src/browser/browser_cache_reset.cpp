#include "browser/browser_cache_reset.h"
#include "browser/browser_cache_reset_platform.h"
#include "location/installation_location.h"
#include "system/desktop_user.h"
#include "system/file_links.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QUuid>

#include <algorithm>
#include <system_error>
#include <thread>

namespace BrowserCacheReset {

namespace {

// Relative to a profile directory; a backup name ends in the index into this list.
const char *const cacheDirectories[] = { "Code Cache", "Service Worker/Database", "Service Worker/ScriptCache" };
constexpr int cacheCount = 3;
constexpr int profileLimit = 1024;
constexpr qint64 preparationBudgetMs = 2000;
// "Local State" of a large profile set is a few hundred kilobytes; anything far beyond is no
// record of ours.
constexpr qint64 recordSizeLimit = 16 * 1024 * 1024;

const QRegularExpression &backupPattern()
{
    static const QRegularExpression pattern(QStringLiteral("^\\.bl-installer-cache-[0-9a-f]{32}-[0-2]$"));
    return pattern;
}

struct Move
{
    QString profile;
    int cache = 0;
    QString backup;
};

QString cachePath(const QString &root, const Move &move)
{
    return root + QLatin1Char('/') + move.profile + QLatin1Char('/') + QLatin1String(cacheDirectories[move.cache]);
}

// Beside the cache directory, so that the rename stays within one directory.
QString backupPath(const QString &root, const Move &move)
{
    return QFileInfo(cachePath(root, move)).path() + QLatin1Char('/') + move.backup;
}

bool readObject(const QString &path, QJsonObject *object)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > recordSizeLimit)
        return false;
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return false;
    *object = document.object();
    return true;
}

bool saveObject(const QString &path, const QJsonObject &object)
{
    // QSaveFile writes through a link to its target; the record is replaced, never a link's target.
    if (FileLinks::isLink(path))
        return false;
    QSaveFile file(path);
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

QJsonArray movesToJson(const QList<Move> &moves)
{
    QJsonArray array;
    for (const Move &move : moves) {
        array.append(QJsonObject { { QStringLiteral("profile"), move.profile },
                                   { QStringLiteral("cache"), QLatin1String(cacheDirectories[move.cache]) },
                                   { QStringLiteral("backup"), move.backup } });
    }
    return array;
}

// A record is acted on only when every part of it is ours: this root, this version, and moves
// that can only name a cache of the fixed list and a backup beside it.
bool movesFromJournal(const QJsonObject &journal, const QString &root, const QString &version, QList<Move> *moves)
{
    if (journal.value(QStringLiteral("schema")) != QJsonValue(1)
        || !InstallationLocation::same(journal.value(QStringLiteral("root")).toString(), root)
        || journal.value(QStringLiteral("version")).toString() != version
        || !journal.value(QStringLiteral("profiles")).isArray() || !journal.value(QStringLiteral("moves")).isArray()) {
        return false;
    }
    QList<Move> result;
    for (const QJsonValue &value : journal.value(QStringLiteral("moves")).toArray()) {
        const QJsonObject object = value.toObject();
        Move move { object.value(QStringLiteral("profile")).toString(), -1, object.value(QStringLiteral("backup")).toString() };
        for (int index = 0; index < cacheCount; ++index) {
            if (object.value(QStringLiteral("cache")).toString() == QLatin1String(cacheDirectories[index]))
                move.cache = index;
        }
        if (!safeName(move.profile) || move.cache < 0 || !backupPattern().match(move.backup).hasMatch()
            || !move.backup.endsWith(QString::number(move.cache))) {
            return false;
        }
        result.append(move);
    }
    *moves = result;
    return true;
}

// Puts backups back in reverse order. A move whose backup is gone was never made; a cache
// directory that exists again is never overwritten.
bool undo(const QString &root, const QList<Move> &moves, const RenameOperation &rename)
{
    for (auto move = moves.crbegin(); move != moves.crend(); ++move) {
        const QString backup = backupPath(root, *move);
        if (!FileLinks::exists(backup))
            continue;
        const QString cache = cachePath(root, *move);
        if (FileLinks::exists(cache) || FileLinks::pathHasLink(QFileInfo(cache).path()) || !rename(backup, cache))
            return false;
    }
    return true;
}

QString freshBackupName(int cache)
{
    return QStringLiteral(".bl-installer-cache-%1-%2").arg(QUuid::createUuid().toString(QUuid::Id128).toLower()).arg(cache);
}

// Locks each directory between the root and the cache (the profile, "Service Worker") once.
bool lockCacheParents(const QString &root, const QString &cache, QSet<QString> *locked, DirectoryLocks *locks)
{
    const QStringList parts = cache.mid(root.size() + 1).split(QLatin1Char('/'));
    QString directory = root;
    for (int index = 0; index + 1 < parts.size(); ++index) {
        directory += QLatin1Char('/') + parts.at(index);
        if (locked->contains(directory))
            continue;
        DirectoryLock lock = BrowserCacheResetPlatform::lockDirectory(directory);
        if (!lock)
            return false;
        locks->push_back(std::move(lock));
        locked->insert(directory);
    }
    return true;
}

Result finish(Result result, bool success, bool skipped, const QString &detail)
{
    result.success = success;
    result.skipped = skipped;
    result.detail = detail;
    return result;
}

Result failed(const Result &result, const QString &detail)
{
    return finish(result, false, false, detail);
}

Result skipped(const Result &result, const QString &detail)
{
    return finish(result, false, true, detail);
}

// A slow deletion must never hold up the installer, and backups are only ever ours to remove,
// so the thread is left to run on its own.
bool removeDetached(const QStringList &backups)
{
    try {
        std::thread([backups] {
            const BrowserCacheResetPlatform::Impersonation asUser;
            if (!asUser.active())
                return; // left for a later run rather than deleted with the installer's rights
            for (const QString &backup : backups)
                removeBackupTree(backup);
        }).detach();
        return true;
    } catch (const std::system_error &) {
        return false;
    }
}

} // namespace

bool safeName(const QString &name)
{
    static const QRegularExpression unsafe(QStringLiteral("[\\\\/:*?\"<>|\\x00-\\x1f]"));
    // Windows drops a trailing dot or blank, so such a name would lead to another directory;
    // this also refuses "." and "..".
    return !name.isEmpty() && !name.contains(unsafe) && !name.endsWith(QLatin1Char('.')) && !name.endsWith(QLatin1Char(' '));
}

bool safePath(const QString &path)
{
    QString rest = InstallationLocation::normalized(path);
    static const QRegularExpression root(QStringLiteral("^(?:[A-Za-z]:)?/"));
    const QRegularExpressionMatch match = root.match(rest);
    if (match.hasMatch())
        rest = rest.mid(match.capturedLength());
    if (rest.isEmpty())
        return false;
    const QStringList components = rest.split(QLatin1Char('/'));
    return std::all_of(components.cbegin(), components.cend(), safeName);
}

bool lockAncestors(const QString &path, DirectoryLocks *locks)
{
    const QString clean = InstallationLocation::normalized(path);
    if (!QDir::isAbsolutePath(clean))
        return false;
    QStringList chain;
    for (QString current = clean;;) {
        chain.prepend(current);
        const int slash = current.lastIndexOf(QLatin1Char('/'));
        QString parent = slash < 0 ? current : current.left(slash);
        if (parent.isEmpty() || parent.endsWith(QLatin1Char(':')))
            parent += QLatin1Char('/');
        if (slash < 0 || parent == current)
            break;
        current = parent;
    }
    // From the volume root down: each directory held open pins the name of the next one.
    for (const QString &directory : chain) {
        DirectoryLock lock = BrowserCacheResetPlatform::lockDirectory(directory);
        if (!lock)
            return false;
        locks->push_back(std::move(lock));
    }
    return true;
}

QStringList profiles(const QString &userDataDirectory)
{
    QJsonObject localState;
    if (!readObject(userDataDirectory + QStringLiteral("/Local State"), &localState))
        return {};
    const QJsonObject profile = localState.value(QStringLiteral("profile")).toObject();
    QStringList candidates { profile.value(QStringLiteral("last_used")).toString() };
    for (const QJsonValue &name : profile.value(QStringLiteral("last_active_profiles")).toArray())
        candidates.append(name.toString());
    candidates.append(profile.value(QStringLiteral("info_cache")).toObject().keys());

    QStringList names;
    QSet<QString> seen; // Windows names are case-insensitive: one directory, one profile
    for (const QString &name : std::as_const(candidates)) {
        if (!safeName(name) || seen.contains(name.toLower()))
            continue;
        const QString directory = userDataDirectory + QLatin1Char('/') + name;
        if (QFileInfo(directory + QStringLiteral("/Preferences")).isFile()
            || QFileInfo(directory + QStringLiteral("/Secure Preferences")).isFile()) {
            seen.insert(name.toLower());
            names.append(name);
        }
    }
    return names;
}

bool pluginReady(const QString &installationRoot, const QString &version)
{
    Q_UNUSED(version); // the extension carries its own version, independent of the product's
    QJsonObject manifest;
    if (!readObject(installationRoot + QStringLiteral("/Pellacore/helper/brisa-linker-chrome-plugin/manifest.json"), &manifest))
        return false;
    const QJsonValue worker = manifest.value(QStringLiteral("background")).toObject().value(QStringLiteral("service_worker"));
    return !manifest.value(QStringLiteral("version")).toString().isEmpty()
        && manifest.value(QStringLiteral("manifest_version")).isDouble() && !worker.toString().isEmpty()
        && manifest.value(QStringLiteral("content_scripts")).isArray();
}

bool removeBackupTree(const QString &path)
{
    const QFileInfo backup(InstallationLocation::normalized(path));
    if (!backupPattern().match(backup.fileName()).hasMatch() || FileLinks::pathHasLink(backup.path()))
        return false;
    return FileLinks::removeTree(backup.filePath());
}

Result reset(const QString &userDataDirectory, const QString &version, const IdleTest &idle, const RenameOperation &rename)
{
    QElapsedTimer preparation;
    preparation.start();
    Result result;
    result.version = version;
    static const QRegularExpression versionPattern(QStringLiteral("^[0-9]+\\.[0-9]+\\.[0-9]+(?:\\.[0-9]+)?$"));
    if (!versionPattern.match(version).hasMatch())
        return failed(result, QStringLiteral("invalid migration version"));
    const QString root = InstallationLocation::normalized(userDataDirectory);
    if (!idle(root))
        return skipped(result, QStringLiteral("browser busy or process identity unavailable; skipped"));
    DirectoryLocks locks;
    if (!QFileInfo(root).isDir() || !safePath(root) || !lockAncestors(root, &locks))
        return skipped(result, QStringLiteral("profile root unavailable or contains directory links"));
    const QStringList names = profiles(root);
    if (names.isEmpty())
        return skipped(result, QStringLiteral("no existing browser profile"));

    const QString recordDirectory = root + QStringLiteral("/.bl-installer-migrations");
    const QString journalPath = recordDirectory + QStringLiteral("/worker-cache-reset-") + version + QStringLiteral(".json");
    if (FileLinks::exists(journalPath)) {
        QJsonObject journal;
        QList<Move> earlier;
        if (!readObject(journalPath, &journal) || !movesFromJournal(journal, root, version, &earlier))
            return failed(result, QStringLiteral("invalid migration record; untouched"));
        const QString state = journal.value(QStringLiteral("state")).toString();
        if (state == QLatin1String("complete")) {
            // Backups a detached removal did not finish are ours to remove now.
            for (const Move &move : std::as_const(earlier)) {
                if (FileLinks::exists(backupPath(root, move)))
                    result.backups.append(backupPath(root, move));
            }
            return skipped(result, QStringLiteral("already completed for this version"));
        }
        if (state != QLatin1String("prepared"))
            return failed(result, QStringLiteral("unknown migration state"));
        if (!undo(root, earlier, rename))
            return failed(result, QStringLiteral("unfinished cache transaction could not be restored; retained for retry"));
        if (!QFile::remove(journalPath))
            return failed(result, QStringLiteral("cannot retire recovered journal"));
    }

    if (FileLinks::isLink(recordDirectory))
        return failed(result, QStringLiteral("unsafe migration directory"));
    if (!QFileInfo(recordDirectory).isDir() && !QDir().mkdir(recordDirectory))
        return failed(result, QStringLiteral("cannot create migration record directory"));
    DirectoryLock recordLock = BrowserCacheResetPlatform::lockDirectory(recordDirectory);
    if (!recordLock)
        return failed(result, QStringLiteral("unsafe migration directory"));
    if (names.size() > profileLimit)
        return skipped(result, QStringLiteral("too many profiles; skipped"));

    const QString budgetExceeded = QStringLiteral("cache preparation budget exceeded; skipped");
    QList<Move> moves;
    QSet<QString> locked;
    for (const QString &profile : names) {
        if (preparation.elapsed() > preparationBudgetMs)
            return skipped(result, budgetExceeded);
        if (!safeName(profile))
            return skipped(result, QStringLiteral("unsafe profile path; skipped"));
        for (int cache = 0; cache < cacheCount; ++cache) {
            const Move move { profile, cache, freshBackupName(cache) };
            const QString path = cachePath(root, move);
            if (!QFileInfo(path).isDir())
                continue;
            if (!safePath(path))
                return skipped(result, QStringLiteral("unsafe cache path; skipped"));
            if (!lockCacheParents(root, path, &locked, &locks))
                return skipped(result, QStringLiteral("browser busy or unsafe cache parent; skipped"));
            moves.append(move);
        }
    }
    if (preparation.elapsed() > preparationBudgetMs)
        return skipped(result, budgetExceeded);

    QJsonObject journal { { QStringLiteral("schema"), 1 },
                          { QStringLiteral("root"), root },
                          { QStringLiteral("version"), version },
                          { QStringLiteral("profiles"), QJsonArray::fromStringList(names) },
                          { QStringLiteral("moves"), movesToJson(moves) },
                          { QStringLiteral("state"), QStringLiteral("prepared") } };
    if (!saveObject(journalPath, journal))
        return failed(result, QStringLiteral("cannot save cache journal; untouched"));
    for (qsizetype done = 0; done < moves.size(); ++done) {
        if (rename(cachePath(root, moves.at(done)), backupPath(root, moves.at(done))))
            continue;
        if (!undo(root, moves.mid(0, done), rename))
            return failed(result, QStringLiteral("cache rollback incomplete; backups retained for retry"));
        QFile::remove(journalPath); // nothing is left to recover; a leftover one would undo nothing
        return skipped(result, QStringLiteral("cache busy; restored previous directories"));
    }
    journal.insert(QStringLiteral("state"), QStringLiteral("complete"));
    journal.insert(QStringLiteral("completedAt"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    if (!saveObject(journalPath, journal))
        return failed(result, QStringLiteral("cannot save cache completion; no success recorded"));
    for (const Move &move : std::as_const(moves))
        result.backups.append(backupPath(root, move));
    return finish(result, true, false, QStringLiteral("reset %1 cache directories across %2 profiles").arg(moves.size()).arg(names.size()));
}

Result forDesktopUser(const QString &installationRoot, const QString &version)
{
    Result result;
    result.version = version;
    if (!pluginReady(installationRoot, version))
        return skipped(result, QStringLiteral("installed plugin verification failed; skipped"));
    const QString sid = DesktopUser::sid();
    const QString profile = BrowserCacheResetPlatform::desktopProfileDirectory();
    if (!DesktopUser::token() || sid.isEmpty() || profile.isEmpty())
        return skipped(result, QStringLiteral("desktop user unavailable; skipped"));
    const QString root = InstallationLocation::normalized(profile + QStringLiteral("/AppData/Local/PellacoreBrowser/User Data"));
    {
        // Files are touched with the user's own rights; the scope reverts on every path.
        const BrowserCacheResetPlatform::Impersonation asUser;
        result = asUser.active() ? reset(root, version, browserIdle, renameDirectory)
                                 : skipped(result, QStringLiteral("desktop user unavailable; skipped"));
    }
    if (!result.backups.isEmpty() && !removeDetached(result.backups))
        result.detail += QStringLiteral("; backup cleanup deferred");
    result.detail += QStringLiteral(" user=%1 root=%2").arg(sid, root);
    return result;
}

} // namespace BrowserCacheReset

namespace BrowserCacheResetPlatform {

bool namesDirectory(const QStringList &arguments, const QString &directory)
{
    static const QString option = QStringLiteral("--user-data-dir");
    for (qsizetype index = 0; index < arguments.size(); ++index) {
        const QString &argument = arguments.at(index);
        QString value;
        if (argument.startsWith(option + QLatin1Char('='), Qt::CaseInsensitive))
            value = argument.mid(option.size() + 1);
        else if (argument.compare(option, Qt::CaseInsensitive) == 0 && index + 1 < arguments.size())
            value = arguments.at(index + 1);
        if (!value.isEmpty() && InstallationLocation::same(value, directory))
            return true;
    }
    return false;
}

} // namespace BrowserCacheResetPlatform
