#include "tst_download.h"

#include "download/manifest_signature.h"
#include "support/test_signing.h"

#include <QFile>
#include <QTest>

using ManifestSignature::Check;
Q_DECLARE_METATYPE(ManifestSignature::Check)

namespace {

QByteArray material(const QString &name)
{
    QFile file(qEnvironmentVariable("BRISA_TEST_SIGNATURE_DIR") + QLatin1Char('/') + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// Each row changes one thing about a manifest and its signature; only the publisher's current or
// next key over the exact bytes is accepted.
void TestDownload::manifestSignature_data()
{
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<Check>("check");
    const QByteArray manifest = material(QStringLiteral("manifest.json"));
    const QByteArray current = material(QStringLiteral("current.sig"));
    QVERIFY(!manifest.isEmpty() && current.size() == 89);
    QTest::newRow("the current key over the exact bytes") << manifest << current << Check::Valid;
    QTest::newRow("the next key, during a rotation") << manifest << material(QStringLiteral("next.sig")) << Check::Valid;
    QTest::newRow("signed at test time with the same key") << manifest << TestSigning::signatureFile(manifest) << Check::Valid;
    QTest::newRow("without its line ending") << manifest << current.trimmed() << Check::Valid;
    QTest::newRow("a key no build accepts") << manifest << material(QStringLiteral("stranger.sig")) << Check::NoKeyMatches;
    QTest::newRow("a signature of other bytes") << manifest << material(QStringLiteral("other-bytes.sig")) << Check::NoKeyMatches;
    QTest::newRow("the manifest with one blank added") << QByteArray(manifest).insert(1, ' ') << current << Check::NoKeyMatches;
    QTest::newRow("one bit of the signature flipped") << manifest << QByteArray::fromBase64(current).toBase64().replace(0, 1, current.at(0) == 'A' ? "B" : "A") << Check::NoKeyMatches;
    QTest::newRow("an empty signature file") << manifest << QByteArray() << Check::Empty;
    QTest::newRow("a line ending alone") << manifest << QByteArray("\n") << Check::Empty;
    QTest::newRow("a truncated signature") << manifest << current.left(60) << Check::WrongLength;
    QTest::newRow("a signature file of 1 MiB") << manifest << QByteArray(1048576, 'A') << Check::Oversized;
    QTest::newRow("text that is not base64") << manifest << QByteArray("this is not a signature!").repeated(3) << Check::NotBase64;
    QTest::newRow("two line endings") << manifest << current + "\n" << Check::NotBase64;
}

void TestDownload::manifestSignature()
{
    QFETCH(QByteArray, manifest);
    QFETCH(QByteArray, signature);
    QFETCH(Check, check);
    QCOMPARE(ManifestSignature::verify(manifest, signature), check);
}
