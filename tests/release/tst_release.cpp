#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <zip.h>

#include <map>

namespace {

using Files = std::map<QString, QByteArray>;

bool writeTree(const QString &root, const Files &files)
{
    for (const auto &[path, content] : files) {
        const QString full = root + QLatin1Char('/') + path;
        if (!QDir().mkpath(QFileInfo(full).path()))
            return false;
        QFile file(full);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            return false;
    }
    return true;
}

struct Run
{
    int exitCode = -1;
    QByteArray errors;
};

Run makeRelease(const QStringList &arguments)
{
    QProcess process;
    process.start(qEnvironmentVariable("BRISA_MAKE_RELEASE"), arguments);
    process.waitForFinished(60000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardError()};
}

// A tool beside make-release in tools/.
QString toolPath(const QString &name)
{
    return QFileInfo(qEnvironmentVariable("BRISA_MAKE_RELEASE")).absolutePath() + QLatin1Char('/') + name;
}

// The exit code, -1 when the program did not run to its end.
int runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    return process.exitCode();
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The archive's files and their content, read back through libzip as the installer reads it.
bool readZip(const QString &path, Files *files)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    if (!archive)
        return false;
    bool ok = true;
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count && ok; ++i) {
        zip_stat_t stat;
        zip_stat_init(&stat);
        ok = zip_stat_index(archive, zip_uint64_t(i), 0, &stat) == 0;
        const QString name = QString::fromUtf8(stat.name);
        if (!ok || name.endsWith(QLatin1Char('/')))
            continue;
        QByteArray content(qsizetype(stat.size), Qt::Uninitialized);
        zip_file_t *entry = zip_fopen_index(archive, zip_uint64_t(i), 0);
        ok = entry && zip_fread(entry, content.data(), stat.size) == zip_int64_t(stat.size);
        if (entry)
            zip_fclose(entry);
        (*files)[name] = content;
    }
    zip_close(archive);
    return ok;
}

const Files productFiles = {
    {QStringLiteral("brisalinker.exe"), QByteArray("MZ launcher").repeated(300)},
    {QStringLiteral("updater.exe"), QByteArray("MZ updater")},
    {QStringLiteral("cfgdata/version.ini"), QByteArray("[Version]\nversion=2.0.1\n")},
    {QStringLiteral("2.0.1/bl-core.exe"), QByteArray(70000, 'c')},
    {QStringLiteral("empty.txt"), QByteArray()},
};

} // namespace

class ReleaseTest : public QObject
{
    Q_OBJECT

private slots:
    void manifestDescribesThePackage_data();
    void manifestDescribesThePackage();
    void refusesWhatTheInstallerWouldRefuse_data();
    void refusesWhatTheInstallerWouldRefuse();
    void sameInputGivesTheSamePackage();
    void signedExecutable_data();
    void signedExecutable();

private:
    QTemporaryDir m_signers; // "publisher" and "other": throwaway CAs with a certificate each
};

void ReleaseTest::manifestDescribesThePackage_data()
{
    QTest::addColumn<QStringList>("extra");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("releaseId");
    QTest::addColumn<QString>("fullUrl");
    const QString base = QStringLiteral("https://127.0.0.1:8443/bl-desktop/prod/brisalinker/installer/win");
    QTest::newRow("defaults name the package after the version")
        << QStringList() << "brisalinker-2.0.1-win-x64.zip" << "2.0.1" << base + QStringLiteral("/brisalinker-2.0.1-win-x64.zip");
    QTest::newRow("a chosen file name, release id and full package address are kept")
        << QStringList{QStringLiteral("--file-name"), QStringLiteral("pkg.zip"), QStringLiteral("--release-id"),
                       QStringLiteral("r-77"), QStringLiteral("--full-package-url"), QStringLiteral("https://127.0.0.1/full.zip")}
        << "pkg.zip" << "r-77" << "https://127.0.0.1/full.zip";
}

void ReleaseTest::manifestDescribesThePackage()
{
    QFETCH(QStringList, extra);
    QFETCH(QString, fileName);
    QFETCH(QString, releaseId);
    QFETCH(QString, fullUrl);
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString source = temp.filePath(QStringLiteral("product")), output = temp.filePath(QStringLiteral("out"));
    QVERIFY(writeTree(source, productFiles));
    const QString base = QStringLiteral("https://127.0.0.1:8443/bl-desktop/prod/brisalinker/installer/win/");
    const Run run = makeRelease(QStringList{QStringLiteral("--source"), source, QStringLiteral("--version"),
                                            QStringLiteral("2.0.1"), QStringLiteral("--base-url"), base,
                                            QStringLiteral("--output"), output} + extra);
    QVERIFY2(run.exitCode == 0, run.errors.constData());

    const QJsonObject manifest = QJsonDocument::fromJson(readAll(output + QStringLiteral("/manifest.json"))).object();
    const QJsonObject package = manifest.value(QStringLiteral("package")).toObject();
    const QByteArray zip = readAll(output + QLatin1Char('/') + fileName);
    QVERIFY(!zip.isEmpty());
    QCOMPARE(manifest.value(QStringLiteral("schemaVersion")).toInt(), 1);
    QCOMPARE(manifest.value(QStringLiteral("version")).toString(), QStringLiteral("2.0.1"));
    QCOMPARE(manifest.value(QStringLiteral("releaseId")).toString(), releaseId);
    QCOMPARE(package.value(QStringLiteral("fileName")).toString(), fileName);
    QCOMPARE(package.value(QStringLiteral("url")).toString(), base + fileName);
    QVERIFY(package.value(QStringLiteral("size")).isDouble());
    QCOMPARE(qint64(package.value(QStringLiteral("size")).toDouble()), qint64(zip.size()));
    QCOMPARE(package.value(QStringLiteral("sha256")).toString().toLatin1(),
             QCryptographicHash::hash(zip, QCryptographicHash::Sha256).toHex());
    qint64 unpacked = 0;
    for (const auto &entry : productFiles)
        unpacked += entry.second.size();
    QCOMPARE(qint64(package.value(QStringLiteral("uncompressedSize")).toDouble()), unpacked);
    QCOMPARE(manifest.value(QStringLiteral("fullPackage")).toObject().value(QStringLiteral("url")).toString(), fullUrl);

    Files packed;
    QVERIFY(readZip(output + QLatin1Char('/') + fileName, &packed));
    QVERIFY(packed == productFiles);
    // Nothing half-written is left beside the release.
    QCOMPARE(QDir(output).entryList(QDir::Files | QDir::Hidden).size(), 2);
}

void ReleaseTest::refusesWhatTheInstallerWouldRefuse_data()
{
    QTest::addColumn<QString>("problem");
    QTest::newRow("a plain http address") << "http";
    QTest::newRow("an empty version") << "version";
    QTest::newRow("a package name with a directory") << "name";
    QTest::newRow("a symbolic link in the product") << "link";
    QTest::newRow("a file name Windows cannot hold") << "colon";
    QTest::newRow("a file name ending in a dot") << "dot";
    QTest::newRow("an empty product directory") << "empty";
    QTest::newRow("a product directory that does not exist") << "missing";
}

void ReleaseTest::refusesWhatTheInstallerWouldRefuse()
{
    QFETCH(QString, problem);
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString source = temp.filePath(QStringLiteral("product")), output = temp.filePath(QStringLiteral("out"));
    Files files = productFiles;
    if (problem == QLatin1String("colon"))
        files[QStringLiteral("cfgdata/a:b.ini")] = "x";
    if (problem == QLatin1String("dot"))
        files[QStringLiteral("notes.")] = "x";
    if (problem == QLatin1String("empty"))
        files.clear();
    QVERIFY(QDir().mkpath(source));
    QVERIFY(writeTree(source, files));
    if (problem == QLatin1String("link"))
        QVERIFY(QFile::link(source + QStringLiteral("/updater.exe"), source + QStringLiteral("/linked.exe")));
    // A release already being served stays exactly as it was.
    QVERIFY(writeTree(output, {{QStringLiteral("manifest.json"), "{\"previous\":true}"}}));

    QStringList arguments{QStringLiteral("--source"),
                          problem == QLatin1String("missing") ? temp.filePath(QStringLiteral("nothing")) : source,
                          QStringLiteral("--version"), problem == QLatin1String("version") ? QStringLiteral(" ") : QStringLiteral("2.0.1"),
                          QStringLiteral("--base-url"),
                          problem == QLatin1String("http") ? QStringLiteral("http://127.0.0.1/x") : QStringLiteral("https://127.0.0.1/x"),
                          QStringLiteral("--output"), output};
    if (problem == QLatin1String("name"))
        arguments << QStringLiteral("--file-name") << QStringLiteral("sub/pkg.zip");
    const Run run = makeRelease(arguments);
    QCOMPARE(run.exitCode, 1);
    QVERIFY(!run.errors.isEmpty());
    QCOMPARE(readAll(output + QStringLiteral("/manifest.json")), QByteArray("{\"previous\":true}"));
    QCOMPARE(QDir(output).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

void ReleaseTest::sameInputGivesTheSamePackage()
{
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString source = temp.filePath(QStringLiteral("product"));
    QVERIFY(writeTree(source, productFiles));
    QByteArray digests[2];
    for (int i = 0; i < 2; ++i) {
        const QString output = temp.filePath(QStringLiteral("out%1").arg(i));
        const Run run = makeRelease({QStringLiteral("--source"), source, QStringLiteral("--version"), QStringLiteral("2.0.1"),
                                     QStringLiteral("--base-url"), QStringLiteral("https://127.0.0.1/x"),
                                     QStringLiteral("--output"), output});
        QVERIFY2(run.exitCode == 0, run.errors.constData());
        digests[i] = readAll(output + QStringLiteral("/manifest.json"));
        // Files touched later must not change the package.
        QTest::qWait(1100);
        QFile::remove(source + QStringLiteral("/empty.txt"));
        QVERIFY(writeTree(source, {{QStringLiteral("empty.txt"), QByteArray()}}));
    }
    QCOMPARE(digests[0], digests[1]);
}

void ReleaseTest::signedExecutable_data()
{
    QTest::addColumn<QString>("change"); // what happens to the program between signing and verifying
    QTest::addColumn<QString>("trusted"); // the CA verification trusts
    QTest::addColumn<bool>("verifies");

    QTest::newRow("signed by the publisher, verified against the publisher's CA") << "none" << "publisher" << true;
    QTest::newRow("one byte of code changed after signing") << "code byte" << "publisher" << false;
    QTest::newRow("one byte of the DOS header stub changed after signing") << "header byte" << "publisher" << false;
    QTest::newRow("a CA that did not issue the publisher's certificate") << "none" << "other" << false;
    QTest::newRow("never signed") << "unsigned" << "publisher" << false;
    QTest::newRow("a key that is not the certificate's is refused, the program left as it was")
        << "mismatched key" << "publisher" << false;
}

void ReleaseTest::signedExecutable()
{
    QFETCH(QString, change);
    QFETCH(QString, trusted);
    QFETCH(bool, verifies);

    const QString sample = QStringLiteral(BRISA_TEST_BINARY_DIR "/release/signing-sample.exe");
    if (!QFileInfo::exists(sample))
        QSKIP("no MinGW compiler made the sample program");
    const QString publisher = m_signers.filePath(QStringLiteral("publisher"));
    const QString other = m_signers.filePath(QStringLiteral("other"));
    for (const QString &signer : {publisher, other}) {
        if (!QFileInfo::exists(signer + QStringLiteral("/ca.pem")))
            QCOMPARE(runTool(toolPath(QStringLiteral("make-demo-signer")), {signer}), 0);
    }

    QTemporaryDir temp;
    const QString program = temp.filePath(QStringLiteral("program.exe"));
    QVERIFY(QFile::copy(sample, program));
    const QByteArray original = readAll(program);
    if (change != QLatin1String("unsigned")) {
        const bool mismatched = change == QLatin1String("mismatched key");
        const int signedCode = runTool(toolPath(QStringLiteral("sign-executable")),
                                       {QStringLiteral("--cert"), publisher + QStringLiteral("/signer.pem"), QStringLiteral("--key"),
                                        (mismatched ? other : publisher) + QStringLiteral("/signer.key"), QStringLiteral("--name"),
                                        QStringLiteral("Sample"), program});
        QCOMPARE(signedCode, mismatched ? 1 : 0);
        QCOMPARE(readAll(program) == original, mismatched);
        QCOMPARE(QDir(temp.path()).entryList(QDir::Files), QStringList {QStringLiteral("program.exe")});
    }
    if (change.endsWith(QLatin1String(" byte"))) {
        // MinGW's code section starts at 0x400; the DOS stub's message lies at 0x4e.
        const qint64 offset = change == QLatin1String("code byte") ? 0x410 : 0x50;
        QFile file(program);
        QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(offset));
        char byte = 0;
        QVERIFY(file.getChar(&byte) && file.seek(offset) && file.putChar(char(byte ^ 1)));
    }
    const QString ca = (trusted == QLatin1String("publisher") ? publisher : other) + QStringLiteral("/ca.pem");
    QCOMPARE(runTool(QStringLiteral("osslsigncode"), {QStringLiteral("verify"), QStringLiteral("-in"), program,
                                                     QStringLiteral("-CAfile"), ca}) == 0, verifies);
}

QTEST_GUILESS_MAIN(ReleaseTest)
#include "tst_release.moc"
