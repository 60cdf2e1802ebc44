#include "journal/overlay_transaction.h"

#include "app/installer_logger.h"
#include "journal/overlay_transaction_platform.h"
#include "location/installation_location.h"
#include "system/file_links.h"
#include "system/shortcuts.h"

#include <QDataStream>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <QJsonArray>

// The registry values and shortcut files that the pipeline changes after the files are in place:
// recorded before anything changes and put back on a rollback, unless somebody else has changed
// them since, in which case their change wins and the record is kept.
namespace OverlayTransaction {

namespace {

using Platform = OverlayTransactionPlatform::RegistryResult;

bool fail(QString *error, const QString &message)
{
    InstallerLogger::write(message);
    if (error)
        *error = message;
    return false;
}

// A count, then each value's name, a type tag and the value. Written by hand rather than as
// streamed variants, whose type registry a static build does not carry for every type.
enum ValueTag : quint8 { TextValue = 1, TextListValue = 2, NumberValue = 3, WideNumberValue = 4, BytesValue = 5 };

QByteArray serialized(const QVariantMap &values)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << quint32(values.size());
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        stream << it.key();
        switch (it.value().typeId()) {
        case QMetaType::QStringList:
            stream << quint8(TextListValue) << it.value().toStringList();
            break;
        case QMetaType::Int:
        case QMetaType::UInt:
            stream << quint8(NumberValue) << qint32(it.value().toLongLong());
            break;
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            stream << quint8(WideNumberValue) << qint64(it.value().toLongLong());
            break;
        case QMetaType::QByteArray:
            stream << quint8(BytesValue) << it.value().toByteArray();
            break;
        default:
            stream << quint8(TextValue) << it.value().toString();
            break;
        }
    }
    return bytes;
}

bool deserialized(const QByteArray &bytes, QVariantMap *values)
{
    QDataStream stream(bytes);
    stream.setVersion(QDataStream::Qt_6_0);
    quint32 count = 0;
    stream >> count;
    QVariantMap result;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        QString name;
        quint8 tag = 0;
        stream >> name >> tag;
        QVariant value;
        if (tag == TextValue) {
            QString text;
            stream >> text;
            value = text;
        } else if (tag == TextListValue) {
            // Read by hand: streaming the list reserves room for whatever count the record
            // claims, and a damaged count would ask for gigabytes before failing.
            quint32 size = 0;
            stream >> size;
            if (size > stream.device()->bytesAvailable() / qint64(sizeof(quint32)))
                return false;
            QStringList list;
            for (quint32 item = 0; item < size && stream.status() == QDataStream::Ok; ++item) {
                QString text;
                stream >> text;
                list.append(text);
            }
            value = list;
        } else if (tag == NumberValue) {
            qint32 number = 0;
            stream >> number;
            value = number;
        } else if (tag == WideNumberValue) {
            qint64 number = 0;
            stream >> number;
            value = number;
        } else if (tag == BytesValue) {
            QByteArray data;
            stream >> data;
            value = data;
        } else {
            return false;
        }
        result.insert(name, value);
    }
    if (stream.status() != QDataStream::Ok || !stream.atEnd())
        return false;
    *values = result;
    return true;
}

bool decodedBase64(const QJsonValue &value, QByteArray *bytes)
{
    if (!value.isString())
        return false;
    const auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return false;
    *bytes = *decoded;
    return true;
}

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

bool restoreUninstall(const QJsonObject &record, const QString &root, QString *error)
{
    const QJsonObject snapshot = record.value(QStringLiteral("uninstall")).toObject();
    QByteArray bytes;
    QVariantMap saved;
    if (!record.value(QStringLiteral("uninstall")).isObject() || !snapshot.value(QStringLiteral("existed")).isBool()
        || !decodedBase64(snapshot.value(QStringLiteral("data")), &bytes) || !deserialized(bytes, &saved))
        return fail(error, QStringLiteral("Invalid preserved uninstall metadata."));
    QVariantMap current;
    QString location;
    if (!OverlayTransactionPlatform::readUninstallValues(&current, &location))
        return fail(error, QStringLiteral("Unable to restore uninstall metadata."));
    // Still (or again) what it was before: a crash before the entry was written, or a rollback
    // that already put it back. A new entry is deleted again even without values: its key may be
    // there.
    const bool existed = snapshot.value(QStringLiteral("existed")).toBool();
    if (existed && current == saved)
        return true;
    // An entry that still names the location it named before was changed by this run, which
    // was cut off before it wrote its own location; only a new location elsewhere is a takeover.
    const bool sameLocation = current.value(QStringLiteral("InstallLocation")) == saved.value(QStringLiteral("InstallLocation"));
    if (!location.isEmpty() && !InstallationLocation::same(location, root) && !(existed && sameLocation))
        return fail(error, QStringLiteral("Another installation owns the current registration; recovery data was preserved."));
    if (!OverlayTransactionPlatform::writeUninstallValues(existed ? saved : QVariantMap()))
        return fail(error, QStringLiteral("Unable to restore uninstall metadata."));
    return true;
}

bool restoreShortcuts(const QJsonObject &record, const QString &root, QString *error)
{
    const QJsonValue value = record.value(QStringLiteral("shortcuts"));
    const QStringList paths = shortcutPaths();
    const QJsonArray entries = value.toArray();
    if (!value.isArray() || entries.size() != paths.size())
        return fail(error, QStringLiteral("Invalid shortcut recovery data."));
    QList<QByteArray> contents;
    for (const QJsonValue &entryValue : entries) {
        const QJsonObject entry = entryValue.toObject();
        QByteArray bytes;
        if (!entryValue.isObject() || !entry.value(QStringLiteral("existed")).isBool()
            || (entry.value(QStringLiteral("existed")).toBool() && !decodedBase64(entry.value(QStringLiteral("data")), &bytes)))
            return fail(error, QStringLiteral("Invalid shortcut recovery data."));
        contents.append(bytes);
    }
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const QString &shortcut = paths.at(i);
        const bool existed = entries.at(i).toObject().value(QStringLiteral("existed")).toBool();
        if (!regular(shortcut))
            return fail(error, QStringLiteral("Unsafe shortcut recovery path."));
        // A crash between a replacement's two steps leaves its copy beside the shortcut.
        if (!Shortcuts::removeStagedShortcuts(QFileInfo(shortcut).path()))
            InstallerLogger::write(QStringLiteral("Unable to remove a staged shortcut beside: ") + shortcut);
        if (FileLinks::exists(shortcut)) {
            QFile current(shortcut);
            if (!current.open(QIODevice::ReadOnly))
                return fail(error, QStringLiteral("Unable to inspect previous shortcut."));
            const QByteArray now = current.readAll();
            if (existed && now == contents.at(i))
                continue; // never changed, or already put back
            if (!shortcutOwned(shortcut, root))
                return fail(error, QStringLiteral("Another application changed the shortcut; recovery data was preserved."));
        }
        if (!existed) {
            if (!Shortcuts::removeShortcutFile(shortcut))
                return fail(error, QStringLiteral("Unable to remove new shortcut."));
            continue;
        }
        if (!Shortcuts::replaceShortcutFile(shortcut, contents.at(i)))
            return fail(error, QStringLiteral("Unable to restore shortcut."));
    }
    return true;
}

bool sameValues(const QList<OverlayTransactionPlatform::RegistryValue> &a, const QList<OverlayTransactionPlatform::RegistryValue> &b)
{
    if (a.size() != b.size())
        return false;
    for (qsizetype i = 0; i < a.size(); ++i) {
        if (a.at(i).present != b.at(i).present || a.at(i).keyPresent != b.at(i).keyPresent
            || (a.at(i).present && (a.at(i).type != b.at(i).type || a.at(i).data != b.at(i).data)))
            return false;
    }
    return true;
}

bool restoreProtocol(const QJsonObject &record, const QString &root, QString *error)
{
    const QJsonValue value = record.value(QStringLiteral("protocol"));
    const auto names = protocolValues();
    const QJsonArray entries = value.toArray();
    if (!value.isArray() || entries.size() != names.size())
        return fail(error, QStringLiteral("Invalid URL recovery data."));
    QList<OverlayTransactionPlatform::RegistryValue> values;
    for (const QJsonValue &entryValue : entries) {
        const QJsonObject entry = entryValue.toObject();
        OverlayTransactionPlatform::RegistryValue saved;
        const double type = entry.value(QStringLiteral("type")).toDouble(-1);
        if (!entryValue.isObject() || !entry.value(QStringLiteral("present")).isBool() || type < 0 || type > 0xffffffffu
            || type != static_cast<double>(static_cast<quint32>(type)) || !decodedBase64(entry.value(QStringLiteral("data")), &saved.data))
            return fail(error, QStringLiteral("Invalid URL recovery data."));
        saved.present = entry.value(QStringLiteral("present")).toBool();
        // Records written before keys were noted: every key is taken to have existed.
        saved.keyPresent = entry.value(QStringLiteral("key")).toBool(true);
        saved.type = static_cast<quint32>(type);
        values.append(saved);
    }
    QList<OverlayTransactionPlatform::RegistryValue> current;
    if (OverlayTransactionPlatform::readProtocolValues(names, &current) == Platform::Done && sameValues(current, values))
        return true; // nothing changed since the snapshot, or already put back
    QString command;
    bool present = false;
    if (OverlayTransactionPlatform::currentProtocolCommand(&command, &present) != Platform::Done)
        return fail(error, QStringLiteral("Unable to read URL registration."));
    if (present && command != OverlayTransactionPlatform::protocolCommandFor(InstallationLocation::normalized(root) + QStringLiteral("/brisalinker.exe")))
        return fail(error, QStringLiteral("Another installation changed the URL registration; recovery data was preserved."));
    switch (OverlayTransactionPlatform::writeProtocolValues(names, values)) {
    case Platform::Done:
        return true;
    case Platform::RootUnavailable:
        return fail(error, QStringLiteral("Unable to restore URL registration."));
    case Platform::ValueFailed:
        break;
    }
    return fail(error, QStringLiteral("Unable to restore URL registration value."));
}

} // namespace

bool snapshotMetadata(QJsonObject *record, QString *error)
{
    QVariantMap uninstall;
    if (!OverlayTransactionPlatform::readUninstallValues(&uninstall))
        return fail(error, QStringLiteral("Unable to read uninstall registration."));

    QJsonArray shortcuts;
    for (const QString &shortcut : shortcutPaths()) {
        if (!regular(shortcut))
            return fail(error, QStringLiteral("Unsafe shortcut path: ") + shortcut);
        if (!FileLinks::exists(shortcut)) {
            shortcuts.append(QJsonObject { { QStringLiteral("existed"), false } });
            continue;
        }
        QFile file(shortcut);
        if (!file.open(QIODevice::ReadOnly))
            return fail(error, QStringLiteral("Unable to preserve shortcut: ") + shortcut);
        shortcuts.append(QJsonObject { { QStringLiteral("existed"), true }, { QStringLiteral("data"), base64(file.readAll()) } });
    }

    QList<OverlayTransactionPlatform::RegistryValue> values;
    switch (OverlayTransactionPlatform::readProtocolValues(protocolValues(), &values)) {
    case Platform::Done:
        break;
    case Platform::RootUnavailable:
        return fail(error, QStringLiteral("Unable to preserve URL registration."));
    case Platform::ValueFailed:
        return fail(error, QStringLiteral("Unable to preserve URL registration value."));
    }
    QJsonArray protocol;
    for (const auto &value : std::as_const(values)) {
        protocol.append(QJsonObject {
            { QStringLiteral("present"), value.present },
            { QStringLiteral("type"), static_cast<qint64>(value.type) },
            { QStringLiteral("data"), base64(value.data) },
            { QStringLiteral("key"), value.keyPresent },
        });
    }
    record->insert(QStringLiteral("uninstall"), QJsonObject {
        { QStringLiteral("existed"), !uninstall.isEmpty() },
        { QStringLiteral("data"), base64(serialized(uninstall)) },
    });
    record->insert(QStringLiteral("shortcuts"), shortcuts);
    record->insert(QStringLiteral("protocol"), protocol);
    return true;
}

bool restoreMetadata(const QJsonObject &record, QString *error)
{
    if (!record.value(QStringLiteral("metadataStarted")).toBool())
        return true;
    const QString root = InstallationLocation::normalized(record.value(QStringLiteral("root")).toString());
    return restoreUninstall(record, root, error) && restoreShortcuts(record, root, error) && restoreProtocol(record, root, error);
}

} // namespace OverlayTransaction
