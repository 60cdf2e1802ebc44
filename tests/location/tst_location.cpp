#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace InstallationLocation;

namespace {

void put(const QString &path, const QByteArray &content = QByteArrayLiteral("x"))
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

void makeInstallation(const QString &root, const QByteArray &uninstallFirstLine)
{
    for (const char *marker : { "brisalinker.exe", "updater.exe", "uninstall.exe" })
        put(root + QLatin1Char('/') + QString::fromLatin1(marker));
    put(root + QStringLiteral("/uninstall.dat"), uninstallFirstLine + "\nF\tbrisalinker.exe\n");
}

} // namespace

class LocationTest : public QObject
{
    Q_OBJECT

private slots:
    void rules_data();
    void rules();
    void target_data();
    void target();
    void sameDirectory_data();
    void sameDirectory();
    void existingInstallation_data();
    void existingInstallation();
    void identity_data();
    void identity();
    void retireMachineEntry();
    void discoveryWithoutRecordsAsksTheUser();
};

void LocationTest::rules_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("absoluteNonRoot");
    QTest::addColumn<bool>("application");
    QTest::newRow("a drive root") << "C:/" << false << false;
    QTest::newRow("a drive root with a backslash") << "C:\\" << false << false;
    QTest::newRow("a bare drive is too short") << "C:" << false << false;
    QTest::newRow("a drive-relative path") << "C:Apps\\BrisaLinker" << false << false;
    QTest::newRow("a share root") << "//server/share" << false << false;
    QTest::newRow("a share root written with backslashes") << "\\\\server\\share\\" << false << false;
    QTest::newRow("a directory on a share") << "\\\\server\\share\\Apps\\BrisaLinker" << true << true;
    QTest::newRow("a relative path") << "apps/dir" << false << false;
    QTest::newRow("the application name in other case") << "D:/Apps/brisalinker" << true << true;
    QTest::newRow("a longer name is not the application's") << "D:/Apps/BrisaLinker2" << true << false;
    QTest::newRow("dot-dot parts are resolved first") << "D:/Apps/BrisaLinker/sub/.." << true << true;
    QTest::newRow("blanks around are trimmed") << "  D:\\Apps\\BrisaLinker  " << true << true;
    QTest::newRow("empty") << "" << false << false;
}

void LocationTest::rules()
{
    QFETCH(QString, path);
    QFETCH(bool, absoluteNonRoot);
    QFETCH(bool, application);
    QCOMPARE(isAbsoluteNonRootDirectory(path), absoluteNonRoot);
    QCOMPARE(isApplicationDirectory(path), application);
}

void LocationTest::target_data()
{
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("target");
    QTest::newRow("a parent gets a directory of the application's own") << "D:/Apps" << "D:/Apps/BrisaLinker";
    QTest::newRow("the application directory is taken as it is") << "D:\\Apps\\BrisaLinker\\" << "D:/Apps/BrisaLinker";
    QTest::newRow("a drive root is never a target") << "D:/" << "";
    QTest::newRow("a relative choice is refused") << "Apps" << "";
}

void LocationTest::target()
{
    QFETCH(QString, chosen);
    QFETCH(QString, target);
    QCOMPARE(applicationTarget(chosen), target);
}

void LocationTest::sameDirectory_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<bool>("same");
    QTest::newRow("case and separators do not matter") << "C:\\Apps\\BrisaLinker" << "c:/apps/brisalinker/" << true;
    QTest::newRow("two empty paths are not the same") << "" << " " << false;
    QTest::newRow("different directories") << "C:/Apps/BrisaLinker" << "C:/Apps/BrisaLinker2" << false;
}

void LocationTest::sameDirectory()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, same);
    QCOMPARE(InstallationLocation::same(a, b), same);
}

void LocationTest::existingInstallation_data()
{
    QTest::addColumn<QByteArray>("firstLine");
    QTest::addColumn<QString>("missingMarker");
    QTest::addColumn<bool>("existing");
    QTest::newRow("all four markers and the right magic") << QByteArray("BRISALINKER_UNINSTALL_V1") << QString() << true;
    QTest::newRow("the magic with blanks around it") << QByteArray("  BRISALINKER_UNINSTALL_V1 ") << QString() << true;
    QTest::newRow("a different first line") << QByteArray("BRISALINKER_UNINSTALL_V2") << QString() << false;
    QTest::newRow("no updater") << QByteArray("BRISALINKER_UNINSTALL_V1") << "updater.exe" << false;
    QTest::newRow("no uninstaller") << QByteArray("BRISALINKER_UNINSTALL_V1") << "uninstall.exe" << false;
}

void LocationTest::existingInstallation()
{
    QFETCH(QByteArray, firstLine);
    QFETCH(QString, missingMarker);
    QFETCH(bool, existing);
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    makeInstallation(root, firstLine);
    if (!missingMarker.isEmpty())
        QVERIFY(QFile::remove(root + QLatin1Char('/') + missingMarker));
    QCOMPARE(existingApplicationDirectory(root), existing);
    // A directory of another name is never an installation of ours.
    const QString other = temp.filePath(QStringLiteral("Other"));
    makeInstallation(other, firstLine);
    QVERIFY(!existingApplicationDirectory(other));
}

void LocationTest::identity_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("message");
    QTest::newRow("a missing file") << "@missing" << int(InstallationIdentity::Invalid) << "The application executable is not a regular file.";
    QTest::newRow("63 bytes are no DOS header") << "@short" << int(InstallationIdentity::Invalid) << "The application executable has an invalid DOS header.";
    QTest::newRow("a text file") << "@text" << int(InstallationIdentity::Invalid) << "The application executable has an invalid DOS header.";
    QTest::newRow("a PE offset beyond the file") << "@offset" << int(InstallationIdentity::Invalid) << "The application executable has an invalid DOS header.";
    QTest::newRow("a wrong PE signature") << "@signature" << int(InstallationIdentity::Invalid) << "The application executable has an invalid PE signature.";
#ifdef Q_OS_WIN
    QTest::newRow("a DLL with valid headers") << QStringLiteral(BRISA_PLAIN_DLL) << int(InstallationIdentity::Invalid)
                                              << "The application executable has an invalid PE header.";
    QTest::newRow("the product's launcher") << QStringLiteral(BRISA_FAKE_LAUNCHER_EXE) << int(InstallationIdentity::Launcher) << "";
    QTest::newRow("a program without version strings") << QStringLiteral(BRISA_PLAIN_EXE) << int(InstallationIdentity::ValidExecutable) << "";
#endif
}

void LocationTest::identity()
{
    QFETCH(QString, file);
    QFETCH(int, kind);
    QFETCH(QString, message);
    QTemporaryDir temp;
    QString path = file;
    if (file.startsWith(QLatin1Char('@'))) {
        path = temp.filePath(QStringLiteral("brisalinker.exe"));
        QByteArray header(64, '\0');
        header[0] = 'M';
        header[1] = 'Z';
        header[60] = char(64);
        if (file == QLatin1String("@short"))
            put(path, header.left(63));
        else if (file == QLatin1String("@text"))
            put(path, QByteArray(200, 'a'));
        else if (file == QLatin1String("@offset"))
            put(path, header); // the PE header would start at the end of the file
        else if (file == QLatin1String("@signature"))
            put(path, header + QByteArray("NE\0\0", 4) + QByteArray(40, '\0'));
    }
    const InstallationIdentity::Result result = InstallationIdentity::executable(path);
    QCOMPARE(result.kind, kind);
    QCOMPARE(result.message, message);
}

void LocationTest::retireMachineEntry()
{
    QVERIFY(mayRetireMachineEntry(QStringLiteral("C:\\Apps\\BrisaLinker"), QStringLiteral("c:/apps/brisalinker"), QString()));
    QVERIFY(mayRetireMachineEntry(QStringLiteral("C:/Old/BrisaLinker"), QStringLiteral("D:/Else"), QStringLiteral("c:\\old\\brisalinker")));
    QVERIFY(!mayRetireMachineEntry(QStringLiteral("C:/Old/BrisaLinker"), QStringLiteral("D:/Else"), QStringLiteral("D:/New/BrisaLinker")));
}

void LocationTest::discoveryWithoutRecordsAsksTheUser()
{
    const LegacyUpdateLocation::Result result = LegacyUpdateLocation::discover(QString(), QString(), {});
    QVERIFY(result.source.isEmpty());
    QCOMPARE(result.message, QStringLiteral("The previous Brisa-Linker installation was not found. Select the installation location manually."));
}

QTEST_GUILESS_MAIN(LocationTest)
#include "tst_location.moc"
