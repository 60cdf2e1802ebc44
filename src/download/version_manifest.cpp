#include "download/version_manifest.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QRegularExpression>

#include <limits>

namespace {

// The publisher never serves more; anything larger is a broken or hostile manifest.
constexpr quint64 maxPackageSizeMinusOne = 0x4FFFFFFFFull;

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

qint64 readSize(const QJsonValue &value)
{
    if (!value.isDouble())
        return 0;
    const double number = value.toDouble();
    // Out-of-range doubles would be undefined behaviour when converted; clamp them so the size
    // check rejects them.
    if (!(number > -9.2e18))
        return number != number ? 0 : std::numeric_limits<qint64>::min();
    if (!(number < 9.2e18))
        return std::numeric_limits<qint64>::max();
    return static_cast<qint64>(number);
}

DownloadPackage readPackage(const QJsonObject &object)
{
    DownloadPackage package;
    package.url = QUrl(object.value(QLatin1String("url")).toString(), QUrl::TolerantMode);
    package.fileName = object.value(QLatin1String("fileName")).toString();
    package.size = readSize(object.value(QLatin1String("size")));
    package.uncompressedSize = readSize(object.value(QLatin1String("uncompressedSize")));
    package.sha256 = object.value(QLatin1String("sha256")).toString().toLatin1().toLower();
    return package;
}

bool isHttps(const QUrl &url)
{
    return url.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
}

bool validPackage(const DownloadPackage &package)
{
    // Anchored for the whole text: "$" alone would also accept a trailing newline, and such a
    // digest could never match the package.
    static const QRegularExpression digest(QRegularExpression::anchoredPattern(QStringLiteral("[0-9a-f]{64}")));
    if (!package.url.isValid() || package.url.isEmpty() || package.fileName.isEmpty())
        return false;
    if (static_cast<quint64>(package.size) - 1 > maxPackageSizeMinusOne)
        return false;
    if (QFileInfo(package.fileName).fileName() != package.fileName
        || package.fileName.contains(QLatin1Char('/')) || package.fileName.contains(QLatin1Char('\\')))
        return false;
    if (!isHttps(package.url))
        return false;
    return digest.match(QString::fromLatin1(package.sha256)).hasMatch();
}

} // namespace

bool VersionManifest::fromJson(const QByteArray &bytes, VersionManifest *manifest, QString *error)
{
    if (!manifest)
        return fail(error, QStringLiteral("Missing manifest output."));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return fail(error, QStringLiteral("Invalid manifest JSON."));

    const QJsonObject root = document.object();
    VersionManifest parsed;
    const QJsonValue schema = root.value(QLatin1String("schemaVersion"));
    parsed.schemaVersion = schema.isDouble() ? schema.toInt() : 0;
    parsed.version = root.value(QLatin1String("version")).toString();
    parsed.releaseId = root.value(QLatin1String("releaseId")).toString();
    parsed.package = readPackage(root.value(QLatin1String("package")).toObject());
    const QJsonObject full = root.value(QLatin1String("fullPackage")).toObject();
    parsed.fullPackage.url = QUrl(full.value(QLatin1String("url")).toString(), QUrl::TolerantMode);
    parsed.fullPackage.fileName = full.value(QLatin1String("fileName")).toString();

    if (parsed.schemaVersion != 1 || parsed.version.isEmpty())
        return fail(error, QStringLiteral("Unsupported manifest schema."));
    if (!validPackage(parsed.package))
        return fail(error, QStringLiteral("Invalid package definition."));
    const QUrl &fullUrl = parsed.fullPackage.url;
    if (!fullUrl.isValid() || fullUrl.isEmpty() || !isHttps(fullUrl))
        return fail(error, QStringLiteral("Missing full package URL."));
    *manifest = parsed;
    return true;
}
