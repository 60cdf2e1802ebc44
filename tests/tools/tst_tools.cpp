#include "support/test_files.h"

#include <QtTest>

#include <map>

#ifdef Q_OS_WIN
#include "location/installation_identity.h"

#include <windows.h>
#else
#include "extract/archive_extractor.h"
#endif

namespace {

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

// The exit code, -1 when the program did not run to its end; its standard output in `output`.
int run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    if (output)
        *output = process.readAllStandardOutput().trimmed();
    return process.exitCode();
}

#ifndef Q_OS_WIN
using Files = std::map<QString, QByteArray>;

// A tool of tools/, beside make-release.
QString tool(const char *name)
{
    return QFileInfo(qEnvironmentVariable("BRISA_MAKE_RELEASE")).absolutePath() + QLatin1Char('/') + QLatin1String(name);
}

const Files productFiles = {
    { QStringLiteral("brisalinker.exe"), QByteArray("MZ launcher").repeated(300) },
    { QStringLiteral("updater.exe"), QByteArray("MZ updater") },
    { QStringLiteral("cfgdata/version.ini"), QByteArray("[Version]\nversion=2.0.1\n") },
    { QStringLiteral("2.0.1/bl-core.exe"), QByteArray(70000, 'c') },
    { QStringLiteral("empty.txt"), QByteArray() },
};
#else
QString demoProgram(int index)
{
    const QString path = qEnvironmentVariable("BRISA_DEMO_PROGRAMS").split(QLatin1Char('|')).value(index);
    // The build hands over host paths; Wine shows the host's root as drive Z:.
    return path.startsWith(QLatin1Char('/')) ? QStringLiteral("Z:") + path : path;
}

const QString validPolicy = QStringLiteral("[policy]\nschema=1\ninstallDir=%1\n[programs]\nbrisalinker.exe=%2\n");
#endif

} // namespace

// The publisher's tools: make-release and sign-executable on the build host, the demo product
// under Wine.
class ToolsTest : public QObject
{
    Q_OBJECT

#ifndef Q_OS_WIN
    QTemporaryDir m_signers; // "publisher" and "other": throwaway CAs with a certificate each

private slots:
    void makeRelease_data()
    {
        QTest::addColumn<QStringList>("extra");   // arguments after the ordinary ones; the last of an option counts
        QTest::addColumn<QString>("productFile"); // added to the product, or "@link", or "@none" for an empty product
        QTest::addColumn<QString>("fileName");    // empty when the release is refused
        QTest::addColumn<QString>("releaseId");
        QTest::addColumn<QString>("fullUrl");
        QTest::newRow("defaults name the package after the version") << QStringList() << "" << "brisalinker-2.0.1-win-x64.zip" << "2.0.1"
            << "https://127.0.0.1:8443/bl-desktop/prod/brisalinker/installer/win/brisalinker-2.0.1-win-x64.zip";
        QTest::newRow("a chosen file name, release id and full package address are kept")
            << QStringList { "--file-name", "pkg.zip", "--release-id", "r-77", "--full-package-url", "https://127.0.0.1/full.zip" } << ""
            << "pkg.zip" << "r-77" << "https://127.0.0.1/full.zip";
        QTest::newRow("a plain http address is refused") << QStringList { "--base-url", "http://127.0.0.1/x" } << "" << "" << "" << "";
        QTest::newRow("an empty version is refused") << QStringList { "--version", " " } << "" << "" << "" << "";
        QTest::newRow("a package name with a directory is refused") << QStringList { "--file-name", "sub/pkg.zip" } << "" << "" << "" << "";
        QTest::newRow("a symbolic link in the product is refused") << QStringList() << "@link" << "" << "" << "";
        QTest::newRow("a file name Windows cannot hold is refused") << QStringList() << "cfgdata/a:b.ini" << "" << "" << "";
        QTest::newRow("a file name ending in a dot is refused") << QStringList() << "notes." << "" << "" << "";
        QTest::newRow("an empty product directory is refused") << QStringList() << "@none" << "" << "" << "";
        QTest::newRow("a product directory that does not exist is refused") << QStringList { "--source", "@nothing" } << "" << "" << "" << "";
    }
    void makeRelease()
    {
        QFETCH(QStringList, extra);
        QFETCH(QString, productFile);
        QFETCH(QString, fileName);
        QFETCH(QString, releaseId);
        QFETCH(QString, fullUrl);
        QTemporaryDir temp;
        const QString source = temp.filePath(QStringLiteral("product")), output = temp.filePath(QStringLiteral("out"));
        Files files = productFile == QLatin1String("@none") ? Files() : productFiles;
        if (!productFile.startsWith(QLatin1Char('@')) && !productFile.isEmpty())
            files[productFile] = "x";
        QVERIFY(QDir().mkpath(source));
        for (const auto &[path, content] : files)
            QVERIFY(TestFiles::write(source + QLatin1Char('/') + path, content));
        if (productFile == QLatin1String("@link"))
            QVERIFY(QFile::link(source + QStringLiteral("/updater.exe"), source + QStringLiteral("/linked.exe")));
        // A release already being served is replaced whole or stays exactly as it was.
        QVERIFY(TestFiles::write(output + QStringLiteral("/manifest.json"), "{\"previous\":true}"));
        const QString base = QStringLiteral("https://127.0.0.1:8443/bl-desktop/prod/brisalinker/installer/win/");
        const QStringList arguments = QStringList { QStringLiteral("--source"), source, QStringLiteral("--version"), QStringLiteral("2.0.1"),
                                                    QStringLiteral("--base-url"), base, QStringLiteral("--output"), output }
            + extra.replaceInStrings(QStringLiteral("@nothing"), temp.filePath(QStringLiteral("nothing")));
        QProcess process;
        process.start(qEnvironmentVariable("BRISA_MAKE_RELEASE"), arguments);
        QVERIFY(process.waitForFinished(60000));
        const QByteArray errors = process.readAllStandardError();
        QCOMPARE(QDir(output).entryList(QDir::Files | QDir::Hidden).size(), fileName.isEmpty() ? 1 : 2);
        if (fileName.isEmpty()) {
            QCOMPARE(process.exitCode(), 1);
            QVERIFY(!errors.isEmpty());
            QCOMPARE(TestFiles::read(output + QStringLiteral("/manifest.json")), QByteArray("{\"previous\":true}"));
            return;
        }
        QVERIFY2(process.exitCode() == 0, errors.constData());
        const QByteArray manifestBytes = TestFiles::read(output + QStringLiteral("/manifest.json"));
        const QJsonObject manifest = QJsonDocument::fromJson(manifestBytes).object();
        const QJsonObject package = manifest.value(QStringLiteral("package")).toObject();
        const QByteArray zip = TestFiles::read(output + QLatin1Char('/') + fileName);
        QCOMPARE(manifest.value(QStringLiteral("schemaVersion")).toInt(), 1);
        QCOMPARE(manifest.value(QStringLiteral("version")).toString(), QStringLiteral("2.0.1"));
        QCOMPARE(manifest.value(QStringLiteral("releaseId")).toString(), releaseId);
        QCOMPARE(package.value(QStringLiteral("fileName")).toString(), fileName);
        QCOMPARE(package.value(QStringLiteral("url")).toString(), base + fileName);
        QVERIFY(package.value(QStringLiteral("size")).isDouble() && !zip.isEmpty());
        QCOMPARE(qint64(package.value(QStringLiteral("size")).toDouble()), qint64(zip.size()));
        QCOMPARE(package.value(QStringLiteral("sha256")).toString().toLatin1(), sha256(zip));
        qint64 uncompressed = 0;
        for (const auto &entry : productFiles)
            uncompressed += entry.second.size();
        QCOMPARE(qint64(package.value(QStringLiteral("uncompressedSize")).toDouble()), uncompressed);
        QCOMPARE(manifest.value(QStringLiteral("fullPackage")).toObject().value(QStringLiteral("url")).toString(), fullUrl);
        // The package read back as the installer reads it.
        std::atomic<bool> cancelled { false };
        std::atomic<qint64> processed { 0 };
        const QString unpackedRoot = temp.filePath(QStringLiteral("unpacked"));
        const ArchiveExtractor::Result unpacked = ArchiveExtractor::extractZip(output + QLatin1Char('/') + fileName, unpackedRoot, cancelled, processed, {});
        QCOMPARE(unpacked.status, 0);
        QStringList names = unpacked.files;
        names.sort();
        QCOMPARE(names, (QStringList { "2.0.1/bl-core.exe", "brisalinker.exe", "cfgdata/version.ini", "empty.txt", "updater.exe" }));
        for (const auto &[path, content] : productFiles)
            QVERIFY2(TestFiles::read(unpackedRoot + QLatin1Char('/') + path) == content, qPrintable(path));
        // The same input gives the same package, also when its files are touched later.
        QTest::qWait(1100);
        QVERIFY(QFile::remove(source + QStringLiteral("/empty.txt")) && TestFiles::write(source + QStringLiteral("/empty.txt"), {}));
        QCOMPARE(run(qEnvironmentVariable("BRISA_MAKE_RELEASE"), QStringList(arguments).replaceInStrings(output, output + QLatin1Char('2'))), 0);
        QCOMPARE(TestFiles::read(output + QStringLiteral("2/manifest.json")), manifestBytes);
    }

    void signedExecutable_data()
    {
        QTest::addColumn<QString>("change"); // what happens to the program between signing and verifying
        QTest::addColumn<QString>("trusted"); // the CA verification trusts
        QTest::addColumn<bool>("verifies");
        QTest::newRow("signed by the publisher, verified against the publisher's CA") << "none" << "publisher" << true;
        QTest::newRow("one byte of code changed after signing") << "code byte" << "publisher" << false;
        QTest::newRow("one byte of the DOS header stub changed after signing") << "header byte" << "publisher" << false;
        QTest::newRow("a CA that did not issue the publisher's certificate") << "none" << "other" << false;
        QTest::newRow("never signed") << "unsigned" << "publisher" << false;
        QTest::newRow("a key that is not the certificate's is refused, the program left as it was") << "mismatched key" << "publisher" << false;
    }
    void signedExecutable()
    {
        QFETCH(QString, change);
        QFETCH(QString, trusted);
        QFETCH(bool, verifies);
        const QString sample = QStringLiteral(BRISA_TEST_BINARY_DIR "/tools/signing-sample.exe");
        if (!QFileInfo::exists(sample))
            QSKIP("no MinGW compiler made the sample program");
        const QString publisher = m_signers.filePath(QStringLiteral("publisher")), other = m_signers.filePath(QStringLiteral("other"));
        for (const QString &signer : { publisher, other }) {
            if (!QFileInfo::exists(signer + QStringLiteral("/ca.pem")))
                QCOMPARE(run(tool("make-demo-signer"), { signer }), 0);
        }
        QTemporaryDir temp;
        const QString program = temp.filePath(QStringLiteral("program.exe"));
        QVERIFY(QFile::copy(sample, program));
        const QByteArray original = TestFiles::read(program);
        if (change != QLatin1String("unsigned")) {
            const bool mismatched = change == QLatin1String("mismatched key");
            QCOMPARE(run(tool("sign-executable"), { QStringLiteral("--cert"), publisher + QStringLiteral("/signer.pem"), QStringLiteral("--key"),
                                                   (mismatched ? other : publisher) + QStringLiteral("/signer.key"), QStringLiteral("--name"),
                                                   QStringLiteral("Sample"), program }),
                     mismatched ? 1 : 0);
            QCOMPARE(TestFiles::read(program) == original, mismatched);
            QCOMPARE(QDir(temp.path()).entryList(QDir::Files), QStringList { QStringLiteral("program.exe") });
        }
        if (change.endsWith(QLatin1String(" byte"))) {
            // MinGW's code section starts at 0x400; the DOS stub's message lies at 0x4e.
            const qint64 offset = change == QLatin1String("code byte") ? 0x410 : 0x50;
            QFile file(program);
            char byte = 0;
            QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(offset) && file.getChar(&byte) && file.seek(offset) && file.putChar(char(byte ^ 1)));
        }
        const QString ca = (trusted == QLatin1String("publisher") ? publisher : other) + QStringLiteral("/ca.pem");
        QCOMPARE(run(QStringLiteral("osslsigncode"), { QStringLiteral("verify"), QStringLiteral("-in"), program, QStringLiteral("-CAfile"), ca }) == 0,
                 verifies);
    }
#else
    // An installation with blanks in its path and the demo maintenance service deployed with its
    // policy; %1 in the policy is the installation, %2 the SHA-256 of the product's launcher.
    static QString deployService(const QTemporaryDir &temp, const QString &policy)
    {
        const QString root = temp.filePath(QStringLiteral("Brisa Linker")), service = root + QStringLiteral("/WinServices/service");
        if (!TestFiles::write(root + QStringLiteral("/brisalinker.exe"), "the launcher")
            || !TestFiles::write(service + QStringLiteral("/policy.ini"), policy.arg(QDir::toNativeSeparators(root), QString::fromLatin1(sha256("the launcher"))).toUtf8())
            || !QFile::copy(demoProgram(3), service + QStringLiteral("/bl-maintenance.exe")))
            return {};
        return QDir::toNativeSeparators(service + QStringLiteral("/bl-maintenance.exe"));
    }

private slots:
    void programsAreRecognised_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("kind");
        QTest::newRow("the demo launcher is the product's launcher") << 0 << int(InstallationIdentity::Launcher);
        QTest::newRow("the demo updater is a valid program but no launcher") << 1 << int(InstallationIdentity::ValidExecutable);
        QTest::newRow("the demo core is a valid program but no launcher") << 2 << int(InstallationIdentity::ValidExecutable);
    }
    void programsAreRecognised()
    {
        QFETCH(int, index);
        QFETCH(int, kind);
        const InstallationIdentity::Result identity = InstallationIdentity::executable(demoProgram(index));
        QVERIFY2(identity.kind == kind, qPrintable(QStringLiteral("%1: kind %2: %3").arg(demoProgram(index)).arg(identity.kind).arg(identity.message)));
    }

    // The contract of docs/maintenance-service.md.
    void maintenanceServiceKeepsToItsPolicy_data()
    {
        QTest::addColumn<QString>("policy");
        QTest::addColumn<QString>("program"); // relative to the installation, or a command
        QTest::addColumn<QString>("reply");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("a named program with its digest is allowed") << validPolicy << "brisalinker.exe" << "{\"allowed\":true}" << 0;
        QTest::newRow("a program the policy does not name is refused") << validPolicy << "updater.exe" << "{\"allowed\":false,\"reason\":\"not_in_policy\"}" << 3;
        QTest::newRow("a named program with other content is refused") << QString(validPolicy).replace(QStringLiteral("%2"), QString(64, QLatin1Char('0')))
                                                                       << "brisalinker.exe" << "{\"allowed\":false,\"reason\":\"digest_mismatch\"}" << 3;
        QTest::newRow("a policy naming a path outside the installation refuses everything")
            << validPolicy + QStringLiteral("../escape.exe=%2\n") << "brisalinker.exe" << "{\"allowed\":false,\"reason\":\"invalid_policy\"}" << 3;
        QTest::newRow("the status names the service, its version and the policy's digest") << validPolicy << "--status"
            << "{\"service\":\"BrisaLinkerMaintenance\",\"version\":\"1.5.0\",\"policySha256\":\"%1\",\"policyValid\":true}" << 0;
    }
    void maintenanceServiceKeepsToItsPolicy()
    {
        QFETCH(QString, policy);
        QFETCH(QString, program);
        QFETCH(QString, reply);
        QFETCH(int, exitCode);
        QTemporaryDir temp;
        const QString service = deployService(temp, policy);
        QVERIFY(!service.isEmpty());
        const QStringList arguments = program == QLatin1String("--status") ? QStringList { program }
            : QStringList { QStringLiteral("--check-program"), QDir::toNativeSeparators(temp.filePath(QStringLiteral("Brisa Linker/")) + program) };
        QByteArray output;
        QCOMPARE(run(service, arguments, &output), exitCode);
        QCOMPARE(QString::fromUtf8(output), reply.replace(QStringLiteral("%1"), QString::fromLatin1(sha256(TestFiles::read(QFileInfo(service).path() + QStringLiteral("/policy.ini"))))));
    }

    // Created with a quoted binary path that has blanks, started, stopped promptly and deleted
    // through Wine's real service control manager.
    void maintenanceServiceRunsUnderTheServiceManager()
    {
        QTemporaryDir temp;
        const QString binary = QStringLiteral("\"%1\" --service").arg(deployService(temp, validPolicy));
        const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        QVERIFY(manager);
        SC_HANDLE service = CreateServiceW(manager, L"BrisaLinkerMaintenanceDemoTest", L"BrisaLinkerMaintenanceDemoTest", SERVICE_ALL_ACCESS,
                                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                           reinterpret_cast<const wchar_t *>(binary.utf16()), nullptr, nullptr, nullptr, nullptr, nullptr);
        QVERIFY(service);
        SERVICE_STATUS status {};
        const auto waitFor = [&](DWORD state) {
            for (int i = 0; i < 100 && QueryServiceStatus(service, &status) && status.dwCurrentState != state; ++i)
                Sleep(50);
            return status.dwCurrentState == state;
        };
        const bool started = StartServiceW(service, 0, nullptr) && waitFor(SERVICE_RUNNING);
        const bool stopped = ControlService(service, SERVICE_CONTROL_STOP, &status) && waitFor(SERVICE_STOPPED);
        DeleteService(service);
        CloseServiceHandle(service);
        CloseServiceHandle(manager);
        QVERIFY(started);
        QVERIFY(stopped); // within 5 s
    }
#endif
};

QTEST_GUILESS_MAIN(ToolsTest)
#include "tst_tools.moc"
