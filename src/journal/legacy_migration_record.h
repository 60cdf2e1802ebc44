#pragma once

#include "system/user_registry.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

// The parts of the legacy migration record shared by the migration and its clean-up: the text
// written to disk (keys in their fixed order), the registration snapshot's encoding, and the
// one way a failure is reported.
namespace LegacyMigration {

// Writes the record whole through an atomic save and hides it.
bool save(const QJsonObject &record, QString *error = nullptr);

namespace RecordFormat {

// Compact JSON with the keys in the order begin() introduces them; QJsonObject would sort them.
QByteArray serialized(const QJsonObject &record);

// "registrationSnapshot": value name -> { "type": registry type, "data": base64 of the bytes }.
QJsonObject snapshotObject(const QList<UserRegistry::Value> &values);
bool snapshotValues(const QJsonValue &snapshot, QList<UserRegistry::Value> *values);
// The same names with the same types and bytes, in any order.
bool sameValues(const QList<UserRegistry::Value> &a, const QList<UserRegistry::Value> &b);

QString uninstallSubkey();

// Logs the message, hands it to the caller and returns false.
bool fail(QString *error, const QString &message);

} // namespace RecordFormat
} // namespace LegacyMigration
