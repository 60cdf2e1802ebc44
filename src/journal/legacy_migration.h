#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Moves an installation of the earlier layout (the executables directly in the source root, next
// to the component folders "OBS-Studio" and "Pellacore") into its own "BrisaLinker" directory
// below it as a recoverable transaction. The record ".legacy-migration.json" in the destination
// root lists every file the migration writes, the old executables, components and uninstaller
// files to retire, and the user's uninstall registration as it was; an interrupted migration is
// rolled back from it, a committed one is cleaned up, over several runs if need be.
namespace LegacyMigration {

struct State
{
    QJsonObject record;
    bool active = false;
};

// What finish() did: every message it logged, and those the user is shown.
struct Cleanup
{
    QStringList messages;
    QStringList notices;
    bool complete = false;
};

QString journalPath(const QString &root);
bool begin(const QString &root, const QString &staging, const QString &backup, State *state, QString *error,
           const QString &sourceRoot);
bool commit(State *state, QString *error = nullptr);
bool rollback(State *state, QString *error = nullptr);
// Rolls a "preparing" record back; succeeds when there is none or it is past "preparing".
bool recover(const QString &root, QString *error = nullptr);
bool needsRecovery(const QString &root);
// Reads and validates the record completely before anything acts on it.
bool load(const QString &root, State *state, QString *error = nullptr);
// The clean-up of a committed migration; repeated on later runs until the phase is "complete".
Cleanup finish(const QString &root);
// Moves the listed component folders that are still in the source root into the archive; returns
// those that stay (in use).
QStringList retireDirectories(const State &state);

} // namespace LegacyMigration
