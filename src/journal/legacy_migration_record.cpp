#include "journal/legacy_migration_record.h"

#include "app/installer_logger.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace LegacyMigration::RecordFormat {

namespace {

// One value as compact JSON text: the only element of an array, without the brackets.
QByteArray valueText(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

} // namespace

QByteArray serialized(const QJsonObject &record)
{
    static const char *const order[] = {
        "schema", "id", "phase", "root", "staging", "backup", "archive", "sourceRoot", "sourceExecutables", "files",
        "createdDirectories", "directories", "uninstallFiles", "registrationOwner", "registrationSnapshot",
    };
    QByteArray text("{");
    for (const char *key : order) {
        const QJsonValue value = record.value(QLatin1String(key));
        if (value.isUndefined())
            continue;
        if (text.size() > 1)
            text += ',';
        text += valueText(QString::fromLatin1(key)) + ':' + valueText(value);
    }
    return text + '}';
}

QJsonObject snapshotObject(const QList<UserRegistry::Value> &values)
{
    QJsonObject snapshot;
    for (const UserRegistry::Value &value : values) {
        snapshot.insert(value.name, QJsonObject { { QStringLiteral("type"), qint64(value.type) },
                                                  { QStringLiteral("data"), QString::fromLatin1(value.data.toBase64()) } });
    }
    return snapshot;
}

bool snapshotValues(const QJsonValue &snapshot, QList<UserRegistry::Value> *values)
{
    if (!snapshot.isObject())
        return false;
    QList<UserRegistry::Value> result;
    const QJsonObject object = snapshot.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QJsonObject entry = it.value().toObject();
        const double type = entry.value(QStringLiteral("type")).toDouble(-1);
        const QJsonValue data = entry.value(QStringLiteral("data"));
        if (!it.value().isObject() || type < 0 || type > 0xffffffffu || type != double(quint32(type)) || !data.isString())
            return false;
        const auto bytes = QByteArray::fromBase64Encoding(data.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        if (!bytes)
            return false;
        result.append(UserRegistry::Value { it.key(), quint32(type), *bytes });
    }
    *values = result;
    return true;
}

bool sameValues(const QList<UserRegistry::Value> &a, const QList<UserRegistry::Value> &b)
{
    const auto byName = [](const UserRegistry::Value &x, const UserRegistry::Value &y) { return x.name.compare(y.name, Qt::CaseInsensitive) < 0; };
    QList<UserRegistry::Value> left = a;
    QList<UserRegistry::Value> right = b;
    std::sort(left.begin(), left.end(), byName);
    std::sort(right.begin(), right.end(), byName);
    return left == right;
}

QString uninstallSubkey()
{
    return QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
}

bool fail(QString *error, const QString &message)
{
    InstallerLogger::write(message);
    if (error)
        *error = message;
    return false;
}

} // namespace LegacyMigration::RecordFormat
