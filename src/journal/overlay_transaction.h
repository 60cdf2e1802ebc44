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

QString hash(const QString &path);
bool move(const QString &from, const QString &to);
bool regular(const QString &path);
// regular() for each path, with the directories they share looked at once.
bool regular(std::initializer_list<QString> paths);
bool relative(const QString &path);
QStringList shortcutPaths();
bool shortcutOwned(const QString &shortcut, const QString &root);
QList<QPair<QString, QString>> protocolValues();

} // namespace OverlayTransaction
