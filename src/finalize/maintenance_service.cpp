#include "finalize/maintenance_service.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace MaintenancePolicy {

namespace {

// The executables the firewall rules may name.
const char *const programs[] = { "brisalinker.exe", "updater.exe" };

QByteArray fileDigest(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result().toHex() : QByteArray();
}

} // namespace

QByteArray compose(const QString &installDir, QString *error)
{
    QString text = QStringLiteral("[policy]\r\nschema=1\r\ninstallDir=%1\r\n\r\n[programs]\r\n").arg(QDir::toNativeSeparators(installDir));
    for (const char *program : programs) {
        const QByteArray digest = fileDigest(installDir + QLatin1Char('/') + QLatin1String(program));
        if (digest.isEmpty()) {
            if (error)
                *error = QStringLiteral("Unable to read the program the policy names: %1").arg(QLatin1String(program));
            return {};
        }
        text += QStringLiteral("%1=%2\r\n").arg(QLatin1String(program), QString::fromLatin1(digest));
    }
    // UTF-16 with its byte order mark: the service's profile reader then takes any path as written.
    QByteArray content("\xff\xfe", 2);
    content.append(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
    return content;
}

bool write(const QString &path, const QByteArray &content, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size() || !file.commit()) {
        if (error)
            *error = QStringLiteral("Unable to write the service policy: %1: %2").arg(QDir::toNativeSeparators(path), file.errorString());
        return false;
    }
    QFile written(path);
    if (written.open(QIODevice::ReadOnly) && written.readAll() == content)
        return true;
    if (error)
        *error = QStringLiteral("The service policy differs after writing: %1").arg(QDir::toNativeSeparators(path));
    return false;
}

bool statusMatches(const QByteArray &reply, const QString &version, const QByteArray &policy, QString *error)
{
    const QJsonObject status = QJsonDocument::fromJson(reply.trimmed()).object();
    const QString digest = QString::fromLatin1(QCryptographicHash::hash(policy, QCryptographicHash::Sha256).toHex());
    QString mismatch;
    if (status.value(QStringLiteral("service")).toString() != QLatin1String(maintenanceServiceName))
        mismatch = QStringLiteral("service name");
    else if (status.value(QStringLiteral("version")).toString() != version)
        mismatch = QStringLiteral("version %1, expected %2").arg(status.value(QStringLiteral("version")).toString(), version);
    else if (status.value(QStringLiteral("policySha256")).toString() != digest || !status.value(QStringLiteral("policyValid")).toBool())
        mismatch = QStringLiteral("policy");
    if (mismatch.isEmpty())
        return true;
    if (error)
        *error = QStringLiteral("The maintenance service's status does not match: %1; reply=%2").arg(mismatch, QString::fromUtf8(reply.trimmed()));
    return false;
}

} // namespace MaintenancePolicy
