#include "download/manifest_signature.h"
#include "download/manifest_public_keys.h"

namespace ManifestSignature {

namespace {

// Far above the 90 bytes a signature file needs; anything larger is refused before decoding.
constexpr qsizetype maximumFileBytes = 1024;
constexpr qsizetype signatureBytes = 64;

} // namespace

QList<QByteArray> compiledKeys()
{
    QList<QByteArray> keys;
    for (const auto &point : ManifestPublicKeys::points)
        keys.append(QByteArray(reinterpret_cast<const char *>(point), sizeof point));
    return keys;
}

Check verify(const QByteArray &manifest, const QByteArray &signatureFile, const QList<QByteArray> &keys)
{
    if (signatureFile.size() > maximumFileBytes)
        return Check::Oversized;
    QByteArray text = signatureFile;
    if (text.endsWith('\n'))
        text.chop(text.endsWith("\r\n") ? 2 : 1);
    if (text.isEmpty())
        return Check::Empty;
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return Check::NotBase64;
    if (decoded.decoded.size() != signatureBytes)
        return Check::WrongLength;
    for (const QByteArray &key : keys) {
        if (verifiedBy(manifest, decoded.decoded, key))
            return Check::Valid;
    }
    return Check::NoKeyMatches;
}

QString checkName(Check check)
{
    switch (check) {
    case Check::Valid:
        return QStringLiteral("valid");
    case Check::Empty:
        return QStringLiteral("empty");
    case Check::Oversized:
        return QStringLiteral("oversized");
    case Check::NotBase64:
        return QStringLiteral("not_base64");
    case Check::WrongLength:
        return QStringLiteral("wrong_length");
    case Check::NoKeyMatches:
        return QStringLiteral("no_matching_key");
    }
    return QString();
}

} // namespace ManifestSignature
