#pragma once

#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <initializer_list>

// The durable recovery record (".install-transaction.json") that makes an in-place replacement
// of an installation's files recoverable: begin before the first move, commit after the point of
// no return, rollback or recover after a failure or a crash.
namespace OverlayTransaction {

struct State
{
    QJsonObject record;
    bool active = false;
};

QString path(const QString &root);
bool begin(const QString &root, const QString &stage, State *state, QString *error = nullptr);
bool metadataStarted(State *state, QString *error = nullptr);
bool commit(State *state, QString *error = nullptr);
bool rollback(State *state, QString *error = nullptr);
bool recover(const QString &root, QString *error = nullptr);
bool load(const QString &root, State *state, QString *error = nullptr);
// The checks of load() over a record already parsed: every key, before anything is acted on.
bool validate(const QJsonObject &record, const QString &root, State *state, QString *error = nullptr);
bool save(const QJsonObject &record, QString *error = nullptr);
bool snapshotMetadata(QJsonObject *record, QString *error = nullptr);
bool restoreMetadata(const QJsonObject &record, QString *error = nullptr);

// One payload file of a journal's plan, whichever record it is stored in.
struct PlannedFile
{
    QString path; // relative to the root, the stage and the backup
    QString newDigest;
    bool hadOld = false;
    QString oldDigest; // empty unless hadOld
};

enum class PlanOutcome { Planned, LinkFound, UnsafePath, UnreadableFile };

// Walks the stage (hidden and system entries included) and digests every file and the file it
// will replace under root; `created` gets the directories under root the payload needs that do
// not exist yet, sorted so that parents come first. On UnreadableFile, `unreadable` names it.
PlanOutcome planFiles(const QString &root, const QString &stage, QList<PlannedFile> *files, QStringList *created,
                      QString *unreadable);
// Puts one planned file back as it was before the payload came, never overwriting content that
// is neither the old nor the new file: false when that cannot be proven.
bool restoreFile(const PlannedFile &file, const QString &root, const QString &stage, const QString &backup);
// Writes bytes to target through a save-file flushed to the disk before it replaces the target;
// on failure `reason` gets the save-file's error text.
bool writeDurably(const QString &target, const QByteArray &bytes, QString *reason);

// Whether candidate is a sibling of root named root's name + marker + suffix; the suffix is left
// for the caller to check. Anything else could point a recovery at somebody else's files.
bool siblingNamed(const QString &candidate, const QString &root, const QString &marker, QString *suffix);

QString hash(const QString &path);
bool move(const QString &from, const QString &to);
bool regular(const QString &path);
// regular() for each path, with the directories they share looked at once.
bool regular(std::initializer_list<QString> paths);
bool relative(const QString &path);
// A record's list of directories the transaction made: relative paths only.
bool validCreated(const QJsonValue &created);
QStringList shortcutPaths();
bool shortcutOwned(const QString &shortcut, const QString &root);
QList<QPair<QString, QString>> protocolValues();

} // namespace OverlayTransaction
