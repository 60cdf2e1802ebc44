#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"
#include "support/fake_installation.h"
#include "system/desktop_user.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace InstallationLocation;
using FakeInstallation::writeFile;

namespace {

// Registry views and keys the tests write. On Windows these are the real keys discovery reads;
// on the host, INI files stand in for them.
struct Registry
{
    QList<LegacyUpdateLocation::Registration> entries;
    QList<LegacyUpdateLocation::Registration> discovered; // what discovery is given
    QTemporaryDir hostFiles;

    Registry()
    {
#ifdef Q_OS_WIN
        const QString sid = DesktopUser::sid();
        const QString user = QStringLiteral("HKEY_USERS\\") + sid;
        const QString uninstall = QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\");
        const QString machine = QStringLiteral("HKEY_LOCAL_MACHINE");
        const QString installer = QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer");
        const auto at = [](const QString &path, QSettings::Format format) { return LegacyUpdateLocation::Registration { path, format }; };
        // Written as each program writes them: the earlier 32-bit installer in the 32-bit view.
        entries = { at(machine + QStringLiteral("\\Software\\BrisaLinker"), QSettings::Registry32Format),
                    at(machine + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry32Format),
                    at(machine + uninstall + QStringLiteral("BrisaLinker"), QSettings::Registry64Format),
                    at(installer, QSettings::Registry64Format),
                    at(user + QStringLiteral("\\Software\\BrisaLinker"), QSettings::Registry64Format),
                    at(user + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry64Format),
                    at(user + uninstall + QStringLiteral("BrisaLinker"), QSettings::Registry64Format),
                    at(installer, QSettings::Registry64Format),
                    // The earlier installer in 64-bit install mode.
                    at(machine + uninstall + QStringLiteral("Brisa-Linker_is1"), QSettings::Registry64Format) };
        if (sid.isEmpty())
            entries.clear();
        discovered = LegacyUpdateLocation::registrations();
#else
        for (int i = 0; i < 9; ++i)
            entries << LegacyUpdateLocation::Registration { hostFiles.filePath(QStringLiteral("key%1.ini").arg(i)), QSettings::IniFormat };
        discovered = entries;
#endif
        clear();
    }
    ~Registry() { clear(); }
    void clear()
    {
        for (const auto &slot : std::as_const(entries)) {
            QSettings settings(slot.path, slot.format);
            settings.remove(QString());
            settings.sync();
        }
    }
    void set(int slot, const QString &name, const QString &value)
    {
        QSettings settings(entries.at(slot).path, entries.at(slot).format);
        settings.setValue(name, value);
        settings.sync();
        QCOMPARE(settings.status(), QSettings::NoError);
    }
};

// The earlier layout's program, and our launcher. The host cannot read version resources and
// takes every valid image for the earlier layout.
QString oldLayoutExe()
{
#ifdef Q_OS_WIN
    return QStringLiteral(BRISA_OLD_LAYOUT_EXE);
#else
    return QString();
#endif
}

QString launcherExe()
{
#ifdef Q_OS_WIN
    return QStringLiteral(BRISA_FAKE_LAUNCHER_EXE);
#else
    return QString();
#endif
}

QString expand(QString text, const QTemporaryDir &temp)
{
    return text.replace(QLatin1String("%T"), temp.path());
}

QByteArray image(quint32 peOffset, quint16 characteristics, quint16 optionalSize, quint16 magic)
{
    QByteArray data = FakeInstallation::minimalExecutable();
    qToLittleEndian<quint32>(peOffset, data.data() + 60);
    qToLittleEndian<quint16>(optionalSize, data.data() + 84);
    qToLittleEndian<quint16>(characteristics, data.data() + 86);
    qToLittleEndian<quint16>(magic, data.data() + 88);
    return data;
}

// Only the host can make file links (Wine 8 cannot from Windows code).
bool makeLink(const QString &target, const QString &link)
{
#ifdef Q_OS_WIN
    Q_UNUSED(target);
    Q_UNUSED(link);
    return false;
#else
    return QFile::link(target, link);
#endif
}

// Under Wine a Unix directory symlink made by the harness shows as a reparse point:
// "C:/brisa-link-fixture/dir-link" leads to "C:/brisa-link-fixture/real".
const QString linkFixture = QStringLiteral("C:/brisa-link-fixture");

} // namespace

class LocationTest : public QObject
{
    Q_OBJECT

private slots:
    void rules_data();
    void rules();
    void normalizedForm_data();
    void normalizedForm();
    void parentDirectory_data();
    void parentDirectory();
    void target_data();
    void target();
    void sameDirectory_data();
    void sameDirectory();
    void existingInstallation_data();
    void existingInstallation();
    void linkedInstallation_data();
    void linkedInstallation();
    void automaticUpdate_data();
    void automaticUpdate();
    void identity_data();
    void identity();
    void rememberedLocation_data();
    void rememberedLocation();
    void retireMachineEntry_data();
    void retireMachineEntry();
    void sourceTarget_data();
    void sourceTarget();
    void callers_data();
    void callers();
    void discovery_data();
    void discovery();
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
    QTest::newRow("a digit is no drive letter") << "1:/Apps/BrisaLinker" << false << false;
    QTest::newRow("a non-ASCII drive letter is still a letter") << QStringLiteral("\u00c4:/Apps/BrisaLinker") << true << true;
    QTest::newRow("a share root") << "//server/share" << false << false;
    QTest::newRow("a server without a share") << "//server" << false << false;
    QTest::newRow("a share root written with backslashes") << "\\\\server\\share\\" << false << false;
    QTest::newRow("a directory on a share") << "\\\\server\\share\\Apps\\BrisaLinker" << true << true;
    QTest::newRow("a relative path") << "apps/dir" << false << false;
    QTest::newRow("a relative application name") << "BrisaLinker" << false << false;
    QTest::newRow("the application name in other case") << "D:/Apps/brisalinker" << true << true;
    QTest::newRow("a longer name is not the application's") << "D:/Apps/BrisaLinker2" << true << false;
    QTest::newRow("the name as a middle component only") << "D:/BrisaLinker/Apps" << true << false;
    QTest::newRow("dot-dot parts are resolved first") << "D:/Apps/BrisaLinker/sub/.." << true << true;
    QTest::newRow("dot-dot that climbs out of the name") << "D:/Apps/BrisaLinker/.." << true << false;
    QTest::newRow("dot-dot up to the root is the root") << "D:/Apps/.." << false << false;
    QTest::newRow("blanks around are trimmed") << "  D:\\Apps\\BrisaLinker  " << true << true;
    QTest::newRow("empty") << "" << false << false;
    QTest::newRow("only blanks") << "   " << false << false;
}

void LocationTest::rules()
{
    QFETCH(QString, path);
    QFETCH(bool, absoluteNonRoot);
    QFETCH(bool, application);
    QCOMPARE(isAbsoluteNonRootDirectory(path), absoluteNonRoot);
    QCOMPARE(isApplicationDirectory(path), application);
}

void LocationTest::normalizedForm_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("backslashes, doubled separators, dots and a trailing slash") << "  C:\\a\\\\b\\.\\c\\..\\  " << "C:/a/b";
    QTest::newRow("a share keeps its two leading slashes") << "\\\\server\\share\\x" << "//server/share/x";
    QTest::newRow("a drive root keeps its slash") << "C:\\" << "C:/";
    QTest::newRow("a bare drive stays bare") << "C:" << "C:";
    QTest::newRow("blank input is empty") << " \t " << "";
}

void LocationTest::normalizedForm()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QCOMPARE(normalized(path), expected);
}

void LocationTest::parentDirectory_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("parent");
    QTest::newRow("a directory on a drive has the drive root") << "C:/x" << "C:/";
    QTest::newRow("backslashes and a trailing one") << "C:\\Apps\\x\\" << "C:/Apps";
    QTest::newRow("a drive root is its own parent") << "C:/" << "C:/";
    QTest::newRow("a directory on a share has the share") << "//server/share/x" << "//server/share";
    QTest::newRow("a bare name has none") << "x" << "";
}

void LocationTest::parentDirectory()
{
    QFETCH(QString, path);
    QFETCH(QString, parent);
    QCOMPARE(InstallationLocation::parentOf(path), parent);
}

void LocationTest::target_data()
{
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("target");
    QTest::newRow("a parent gets a directory of the application's own") << "D:/Apps" << "D:/Apps/BrisaLinker";
    QTest::newRow("the application directory is taken as it is") << "D:\\Apps\\BrisaLinker\\" << "D:/Apps/BrisaLinker";
    QTest::newRow("the name in other case is kept as written") << "D:/Apps/BRISALINKER" << "D:/Apps/BRISALINKER";
    QTest::newRow("a similar name still gets its own directory") << "D:/Apps/BrisaLinker2" << "D:/Apps/BrisaLinker2/BrisaLinker";
    QTest::newRow("a share directory") << "//server/share/Apps" << "//server/share/Apps/BrisaLinker";
    QTest::newRow("a drive root is never a target") << "D:/" << "";
    QTest::newRow("a share root is never a target") << "//server/share" << "";
    QTest::newRow("a relative choice is refused") << "Apps" << "";
    QTest::newRow("a drive-relative choice is refused") << "D:Apps" << "";
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
    QTest::newRow("dot parts do not matter") << "C:/Apps/./x/../BrisaLinker" << "C:/Apps/BrisaLinker" << true;
    QTest::newRow("two empty paths are not the same") << "" << " " << false;
    QTest::newRow("an empty path is not the same as a directory") << "" << "C:/Apps" << false;
    QTest::newRow("different directories") << "C:/Apps/BrisaLinker" << "C:/Apps/BrisaLinker2" << false;
}

void LocationTest::sameDirectory()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, same);
    QCOMPARE(InstallationLocation::same(a, b), same);
    QCOMPARE(InstallationLocation::same(b, a), same);
}

void LocationTest::existingInstallation_data()
{
    QTest::addColumn<QByteArray>("magic");
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("existing");
    const QByteArray right = FakeInstallation::rightMagic;
    QTest::newRow("all four markers and the right magic") << right << QString() << true;
    QTest::newRow("the magic with blanks around it") << QByteArray("  BRISALINKER_UNINSTALL_V1 ") << QString() << true;
    QTest::newRow("a different first line") << QByteArray("BRISALINKER_UNINSTALL_V2") << QString() << false;
    QTest::newRow("the magic on the second line") << QByteArray("\nBRISALINKER_UNINSTALL_V1") << QString() << false;
    QTest::newRow("no updater") << right << "remove updater.exe" << false;
    QTest::newRow("no uninstaller") << right << "remove uninstall.exe" << false;
    QTest::newRow("no launcher") << right << "remove brisalinker.exe" << false;
    QTest::newRow("the launcher is a directory") << right << "directory brisalinker.exe" << false;
    QTest::newRow("the uninstall data is a directory") << right << "directory uninstall.dat" << false;
    QTest::newRow("a directory of another name") << right << "rename Other" << false;
#ifndef Q_OS_WIN
    QTest::newRow("the updater is a symbolic link") << right << "link updater.exe" << false;
    QTest::newRow("the uninstall data is a symbolic link") << right << "link uninstall.dat" << false;
    QTest::newRow("the directory itself is a symbolic link") << right << "link-directory" << false;
#endif
}

void LocationTest::existingInstallation()
{
    QFETCH(QByteArray, magic);
    QFETCH(QString, change);
    QFETCH(bool, existing);
    QTemporaryDir temp;
    QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(FakeInstallation::makeInstallation(root, QString(), magic));
    const QString action = change.section(QLatin1Char(' '), 0, 0);
    const QString name = change.section(QLatin1Char(' '), 1);
    const QString file = root + QLatin1Char('/') + name;
    if (action == QLatin1String("remove")) {
        QVERIFY(QFile::remove(file));
    } else if (action == QLatin1String("directory")) {
        QVERIFY(QFile::remove(file));
        QVERIFY(QDir().mkpath(file));
    } else if (action == QLatin1String("rename")) {
        QVERIFY(QDir().rename(root, temp.filePath(name)));
        root = temp.filePath(name);
    } else if (action == QLatin1String("link")) {
        QVERIFY(QFile::rename(file, file + QStringLiteral(".real")));
        QVERIFY(makeLink(file + QStringLiteral(".real"), file));
    } else if (action == QLatin1String("link-directory")) {
        QVERIFY(QDir().rename(root, temp.filePath(QStringLiteral("real"))));
        QVERIFY(makeLink(temp.filePath(QStringLiteral("real")), root));
    }
    QCOMPARE(existingApplicationDirectory(root), existing);
}

// A link anywhere above an installation redirects every write; each rule that guards writes must
// see it. On the host the link is made here; under Wine the harness's directory link is used.
void LocationTest::linkedInstallation_data()
{
    QTest::addColumn<QString>("rule");
    QTest::newRow("links are found above the directory") << "hasNoDirectoryLinks";
    QTest::newRow("an installation behind a link is not an existing one") << "existingApplicationDirectory";
    QTest::newRow("an installation behind a link is not updated automatically") << "automaticUpdateDirectory";
    QTest::newRow("a legacy updater behind a link names no source") << "legacySourceLocation";
    QTest::newRow("an updater behind a link is no caller") << "fromCaller";
    QTest::newRow("a recorded installation behind a link is not taken") << "discover";
}

void LocationTest::linkedInstallation()
{
    QFETCH(QString, rule);
#ifdef Q_OS_WIN
    QVERIFY2(QFileInfo(linkFixture + QStringLiteral("/dir-link")).isDir(), "the harness's link fixture is missing");
    QTemporaryDir temp(linkFixture + QStringLiteral("/real/location-XXXXXX"));
    const QString linkedBase = linkFixture + QStringLiteral("/dir-link/") + QFileInfo(temp.path()).fileName();
#else
    QTemporaryDir temp;
    QVERIFY(QDir(temp.path()).mkdir(QStringLiteral("real")));
    QVERIFY(makeLink(temp.filePath(QStringLiteral("real")), temp.filePath(QStringLiteral("link"))));
    const QString linkedBase = temp.filePath(QStringLiteral("link"));
    const QString realBase = temp.filePath(QStringLiteral("real"));
#endif
    QVERIFY(temp.isValid());
#ifdef Q_OS_WIN
    const QString realBase = temp.path();
#endif
    const QString real = realBase + QStringLiteral("/BrisaLinker");
    const QString linked = linkedBase + QStringLiteral("/BrisaLinker");
    QVERIFY(FakeInstallation::makeInstallation(real, oldLayoutExe()));
    QVERIFY(FakeInstallation::writeFile(real + QStringLiteral("/bl-wails-updater.exe"), FakeInstallation::minimalExecutable()));
    QVERIFY(QFileInfo(linked + QStringLiteral("/uninstall.dat")).isFile());

    if (rule == QLatin1String("hasNoDirectoryLinks")) {
        QVERIFY(hasNoDirectoryLinks(real));
        QVERIFY(hasNoDirectoryLinks(real + QStringLiteral("/not/yet/made")));
        QVERIFY(!hasNoDirectoryLinks(linked));
        QVERIFY(!hasNoDirectoryLinks(linked + QStringLiteral("/not/yet/made")));
        QVERIFY(!hasNoDirectoryLinks(real + QStringLiteral("/uninstall.dat/below-a-file")));
    } else if (rule == QLatin1String("existingApplicationDirectory")) {
        QVERIFY(existingApplicationDirectory(real));
        QVERIFY(!existingApplicationDirectory(linked));
    } else if (rule == QLatin1String("automaticUpdateDirectory")) {
        QVERIFY(QFile::remove(real + QStringLiteral("/uninstall.dat")));
        QVERIFY(FakeInstallation::makeUpdatable(real, launcherExe(), QStringLiteral("1.2.3")));
#ifdef Q_OS_WIN
        QVERIFY(automaticUpdateDirectory(real));
#endif
        QVERIFY(!automaticUpdateDirectory(linked));
    } else if (rule == QLatin1String("legacySourceLocation")) {
        QCOMPARE(legacySourceLocation(real + QStringLiteral("/bl-wails-updater.exe")), QDir::toNativeSeparators(real));
        QCOMPARE(legacySourceLocation(linked + QStringLiteral("/bl-wails-updater.exe")), QString());
    } else if (rule == QLatin1String("fromCaller")) {
        QCOMPARE(LegacyUpdateLocation::fromCaller(real + QStringLiteral("/updater.exe")), real);
        QCOMPARE(LegacyUpdateLocation::fromCaller(linked + QStringLiteral("/updater.exe")), QString());
    } else if (rule == QLatin1String("discover")) {
        Registry registry;
        QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
        registry.set(0, QStringLiteral("InstallDir"), QDir::toNativeSeparators(linkedBase));
        QVERIFY(FakeInstallation::makeInstallation(realBase, oldLayoutExe()));
        const LegacyUpdateLocation::Result result = LegacyUpdateLocation::discover(QString(), QString(), registry.discovered);
        QCOMPARE(result.source, QString());
        QVERIFY(result.message.startsWith(QLatin1String("Some recorded installations could not be verified.")));
    }
}

void LocationTest::automaticUpdate_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("automatic");
    QTest::newRow("a launcher installation with a three-part version") << "1.2.3" << QString() << true;
    QTest::newRow("a two-part version is enough") << "7.0" << QString() << true;
    QTest::newRow("a version with one number") << "7" << QString() << false;
    QTest::newRow("a version with a letter") << "1.2.3b" << QString() << false;
    QTest::newRow("a version that climbs out of the directory") << "../1.2" << QString() << false;
    QTest::newRow("no core for that version") << "1.2.3" << "remove 1.2.3/bl-core.exe" << false;
    QTest::newRow("the core is a directory") << "1.2.3" << "directory 1.2.3/bl-core.exe" << false;
    QTest::newRow("no version file") << "1.2.3" << "remove cfgdata/version.ini" << false;
    QTest::newRow("the version file is a directory") << "1.2.3" << "directory cfgdata/version.ini" << false;
    QTest::newRow("an installation of ours with uninstall data") << "1.2.3" << "markers" << false;
    QTest::newRow("an old-layout program is not the launcher") << "1.2.3" << "old-layout" << false;
    QTest::newRow("the Windows directory itself") << "1.2.3" << "windir=." << false;
    QTest::newRow("a directory inside the Windows directory") << "1.2.3" << "windir=.." << false;
    QTest::newRow("a Windows directory that only shares a prefix") << "1.2.3" << "windir=../Brisa" << true;
}

void LocationTest::automaticUpdate()
{
    QFETCH(QString, version);
    QFETCH(QString, change);
    QFETCH(bool, automatic);
#ifndef Q_OS_WIN
    if (automatic)
        QSKIP("only Windows reads the version resource that names the launcher");
#endif
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(FakeInstallation::makeUpdatable(root, launcherExe(), version.contains(QLatin1String("..")) ? QStringLiteral("1.2") : version));
    if (version.contains(QLatin1String("..")))
        QVERIFY(writeFile(root + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=" + version.toUtf8() + "\n"));
    const QString action = change.section(QLatin1Char(' '), 0, 0);
    const QString file = root + QLatin1Char('/') + change.section(QLatin1Char(' '), 1);
    const QByteArray windowsDirectory = qgetenv("WINDIR");
    if (action == QLatin1String("remove")) {
        QVERIFY(QFile::remove(file));
    } else if (action == QLatin1String("directory")) {
        QVERIFY(QFile::remove(file));
        QVERIFY(QDir().mkpath(file));
    } else if (action == QLatin1String("markers")) {
        QVERIFY(FakeInstallation::makeInstallation(root, launcherExe()));
    } else if (action == QLatin1String("old-layout")) {
        QVERIFY(FakeInstallation::makeUpdatable(root, oldLayoutExe(), version));
    } else if (action.startsWith(QLatin1String("windir="))) {
        const QString windows = QDir::cleanPath(root + QLatin1Char('/') + action.mid(7));
        qputenv("WINDIR", QDir::toNativeSeparators(windows).toLocal8Bit());
    }
    const bool result = automaticUpdateDirectory(root);
    qputenv("WINDIR", windowsDirectory);
    QCOMPARE(result, automatic);
}

void LocationTest::identity_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("message"); // a message ending in "..." is compared by its beginning
    const int invalid = InstallationIdentity::Invalid;
    const QString dos = QStringLiteral("The application executable has an invalid DOS header.");
    const QString pe = QStringLiteral("The application executable has an invalid PE header.");
    const QString optional = QStringLiteral("The application executable has an invalid optional header.");
    QTest::newRow("a missing file") << "@missing" << invalid << "The application executable is not a regular file.";
    QTest::newRow("a directory") << "@directory" << invalid << "The application executable is not a regular file.";
    QTest::newRow("an empty file") << "@empty" << invalid << dos;
    QTest::newRow("63 bytes are no DOS header") << "@short" << invalid << dos;
    QTest::newRow("a text file") << "@text" << invalid << dos;
    QTest::newRow("a PE offset inside the DOS header") << "@offset-low" << invalid << dos;
    QTest::newRow("a PE offset at the end of the file") << "@offset-end" << invalid << dos;
    QTest::newRow("a PE offset far beyond the file") << "@offset-huge" << invalid << dos;
    QTest::newRow("a PE header cut short") << "@cut" << invalid << pe;
    QTest::newRow("a wrong PE signature") << "@signature" << invalid << "The application executable has an invalid PE signature.";
    QTest::newRow("an object file that is no image") << "@not-image" << invalid << pe;
    QTest::newRow("a DLL image") << "@dll" << invalid << pe;
    QTest::newRow("an optional header too small") << "@optional-size" << invalid << optional;
    QTest::newRow("an unknown optional header magic") << "@optional-magic" << invalid << optional;
#ifdef Q_OS_WIN
    const QString unreadable = QStringLiteral("Unable to read application resources (Windows ...");
    QTest::newRow("a DLL with valid headers") << QStringLiteral(BRISA_PLAIN_DLL) << invalid << pe;
    QTest::newRow("the product's launcher") << QStringLiteral(BRISA_FAKE_LAUNCHER_EXE) << int(InstallationIdentity::Launcher) << "";
    QTest::newRow("a launcher described in lower case") << QStringLiteral(BRISA_LAUNCHER_LOWER_CASE_EXE) << int(InstallationIdentity::Launcher) << "";
    QTest::newRow("a launcher named by its component string") << QStringLiteral(BRISA_LAUNCHER_COMPONENT_EXE) << int(InstallationIdentity::Launcher) << "";
    QTest::newRow("Launchers is not the whole word") << QStringLiteral(BRISA_LAUNCHERS_EXE) << int(InstallationIdentity::ValidExecutable) << "";
    QTest::newRow("an old-layout program") << QStringLiteral(BRISA_OLD_LAYOUT_EXE) << int(InstallationIdentity::ValidExecutable) << "";
    QTest::newRow("strings without a translation table are not read") << QStringLiteral(BRISA_NO_TRANSLATION_EXE) << int(InstallationIdentity::ValidExecutable) << "";
    QTest::newRow("a program without version information") << QStringLiteral(BRISA_PLAIN_EXE) << invalid << unreadable;
    QTest::newRow("version information far over 4 MiB") << QStringLiteral(BRISA_BIG_VERSION_EXE) << invalid << "The application version resource is too large.";
    QTest::newRow("version information just over 4 MiB") << QStringLiteral(BRISA_OVER_LIMIT_VERSION_EXE) << invalid << "The application version resource is too large.";
    QTest::newRow("version information of exactly 4 MiB is read") << QStringLiteral(BRISA_LIMIT_VERSION_EXE) << int(InstallationIdentity::ValidExecutable) << "";
    QTest::newRow("a launcher cut after its headers") << "@truncated-launcher" << invalid << unreadable;
#else
    QTest::newRow("valid headers without readable resources") << "@valid" << int(InstallationIdentity::ValidExecutable) << "";
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
        const QByteArray valid = FakeInstallation::minimalExecutable();
        QByteArray content;
        if (file == QLatin1String("@directory"))
            QVERIFY(QDir().mkpath(path));
        else if (file == QLatin1String("@short"))
            content = valid.left(63);
        else if (file == QLatin1String("@text"))
            content = QByteArray(200, 'a');
        else if (file == QLatin1String("@offset-low"))
            content = image(32, 0x22, 240, 0x20B);
        else if (file == QLatin1String("@offset-end"))
            content = image(quint32(valid.size()), 0x22, 240, 0x20B);
        else if (file == QLatin1String("@offset-huge"))
            content = image(0xFFFFFFF0u, 0x22, 240, 0x20B);
        else if (file == QLatin1String("@cut"))
            content = valid.left(64 + 25);
        else if (file == QLatin1String("@signature"))
            content = valid, content[64] = 'N';
        else if (file == QLatin1String("@not-image"))
            content = image(64, 0x20, 240, 0x20B);
        else if (file == QLatin1String("@dll"))
            content = image(64, 0x2022, 240, 0x20B);
        else if (file == QLatin1String("@optional-size"))
            content = image(64, 0x22, 95, 0x20B);
        else if (file == QLatin1String("@optional-magic"))
            content = image(64, 0x22, 240, 0x107);
        else if (file == QLatin1String("@valid"))
            content = valid;
#ifdef Q_OS_WIN
        else if (file == QLatin1String("@truncated-launcher")) {
            QFile launcher(QStringLiteral(BRISA_FAKE_LAUNCHER_EXE));
            QVERIFY(launcher.open(QIODevice::ReadOnly));
            content = launcher.read(1024);
        }
#endif
        if (file != QLatin1String("@missing") && file != QLatin1String("@directory"))
            QVERIFY(writeFile(path, content));
    }
    const InstallationIdentity::Result result = InstallationIdentity::executable(path);
    QCOMPARE(result.kind, kind);
    if (message.endsWith(QLatin1String("...")))
        QVERIFY2(result.message.startsWith(message.chopped(3)), qPrintable(result.message));
    else
        QCOMPARE(result.message, message);
    // The directory form reads the same file.
    if (file.startsWith(QLatin1Char('@')) && file != QLatin1String("@directory"))
        QCOMPARE(InstallationIdentity::installation(temp.path()).kind, kind);
}

void LocationTest::rememberedLocation_data()
{
    QTest::addColumn<bool>("installation");
    QTest::addColumn<bool>("remembered");
    QTest::newRow("a finished installation is remembered") << true << true;
    QTest::newRow("a directory without our uninstall data is not") << false << false;
}

// The installer key on Windows (read back through the same 64-bit view as discovery), an INI
// file on the host.
void LocationTest::rememberedLocation()
{
    QFETCH(bool, installation);
    QFETCH(bool, remembered);
    Registry registry;
    QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
    const LegacyUpdateLocation::Registration key = registry.entries.at(3);
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(FakeInstallation::makeInstallation(root, QString(), installation ? FakeInstallation::rightMagic : QByteArray("OTHER")));
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    QCOMPARE(rememberSuccessfulLocation(root + QStringLiteral("/"), key.path, key.format), remembered);
    const QSettings settings(key.path, key.format);
    if (!remembered) {
        QVERIFY(!settings.contains(QStringLiteral("InstallLocation")));
        QVERIFY(!settings.contains(QStringLiteral("InstalledAtUtc")));
        QCOMPARE(registeredLocation({ key.path }, key.format), QString());
        return;
    }
    QCOMPARE(settings.value(QStringLiteral("InstallLocation")).toString(), QDir::toNativeSeparators(root));
    const QDateTime at = QDateTime::fromString(settings.value(QStringLiteral("InstalledAtUtc")).toString(), Qt::ISODateWithMs);
    QCOMPARE(at.timeSpec(), Qt::UTC);
    QVERIFY(at >= before && at <= QDateTime::currentDateTimeUtc());
    // A key that does not exist and one that names a vanished directory are passed over.
    registry.set(0, QStringLiteral("InstallLocation"), QDir::toNativeSeparators(temp.filePath(QStringLiteral("gone"))));
    const QStringList keys { registry.entries.at(1).path, registry.entries.at(0).path, key.path };
    QCOMPARE(registeredLocation(keys, key.format), QDir::toNativeSeparators(root));
}

void LocationTest::retireMachineEntry_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("other");
    QTest::addColumn<QString>("root");
    QTest::addColumn<bool>("retire");
    QTest::newRow("the entry names the other location") << "C:\\Apps\\BrisaLinker" << "c:/apps/brisalinker" << "" << true;
    QTest::newRow("the entry names the installation root") << "C:/Old/BrisaLinker" << "D:/Else" << "c:\\old\\brisalinker" << true;
    QTest::newRow("the entry names another installation") << "C:/Old/BrisaLinker" << "D:/Else" << "D:/New/BrisaLinker" << false;
    QTest::newRow("an empty entry and an empty root") << "" << "D:/Else" << "" << false;
}

void LocationTest::retireMachineEntry()
{
    QFETCH(QString, entry);
    QFETCH(QString, other);
    QFETCH(QString, root);
    QFETCH(bool, retire);
    QCOMPARE(mayRetireMachineEntry(entry, other, root), retire);
}

void LocationTest::sourceTarget_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<bool>("valid");
    QTest::newRow("an old installation and its own target") << "%T/Old" << "%T/Old/BrisaLinker" << QByteArray() << true;
    QTest::newRow("a drive root as source") << "C:/" << "%T/Old/BrisaLinker" << QByteArray() << false;
    QTest::newRow("a share root as target") << "%T/Old" << "//server/share" << QByteArray() << false;
    QTest::newRow("a relative target") << "%T/Old" << "Old/BrisaLinker" << QByteArray() << false;
    QTest::newRow("a source inside the Windows directory") << "%WINDIR/Old" << "%T/Old/BrisaLinker" << QByteArray() << false;
    QTest::newRow("the Windows directory as target") << "%T/Old" << "%WINDIR" << QByteArray() << false;
    QTest::newRow("a migration of the same source goes on") << "%T/Old" << "%T/Old/BrisaLinker"
                                                            << QByteArray("{\"sourceRoot\":\"%T\\\\OLD\"}") << true;
    QTest::newRow("a migration record without its source blocks the target") << "%T/Old" << "%T/Old/BrisaLinker"
                                                                            << QByteArray("{\"phase\":\"preparing\"}") << false;
    QTest::newRow("an unreadable migration record blocks the target") << "%T/Old" << "%T/Old/BrisaLinker"
                                                                      << QByteArray("{\"sourceRoot\":") << false;
    QTest::newRow("a migration of another source is not taken over") << "%T/Old" << "%T/Old/BrisaLinker"
                                                                     << QByteArray("{\"sourceRoot\":\"%T/Other\"}") << false;
}

void LocationTest::sourceTarget()
{
    QFETCH(QString, source);
    QFETCH(QString, target);
    QFETCH(QByteArray, record);
    QFETCH(bool, valid);
    QTemporaryDir temp;
    const QString windowsDirectory = temp.filePath(QStringLiteral("Windows"));
    const QByteArray savedWindows = qgetenv("WINDIR");
    qputenv("WINDIR", QDir::toNativeSeparators(windowsDirectory).toLocal8Bit());
    source = expand(source, temp).replace(QLatin1String("%WINDIR"), windowsDirectory);
    target = expand(target, temp).replace(QLatin1String("%WINDIR"), windowsDirectory);
    if (!record.isEmpty()) {
        const QByteArray escapedTemp = QDir::toNativeSeparators(temp.path()).replace(QLatin1Char('\\'), QLatin1String("\\\\")).toUtf8();
        QVERIFY(writeFile(target + QStringLiteral("/.legacy-migration.json"), record.replace("%T", escapedTemp)));
    }
    const bool result = LegacyUpdateLocation::validSourceTarget(source, target);
    qputenv("WINDIR", savedWindows);
    QCOMPARE(result, valid);
}

void LocationTest::callers_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("legacySource");
    QTest::addColumn<QString>("caller");
    QTest::newRow("the legacy updater beside the old program") << "%T/Old/bl-wails-updater.exe" << "%T/Old" << "";
    QTest::newRow("the legacy updater in a subdirectory") << "%T/Old/tools/BL-WAILS-UPDATER.EXE" << "%T/Old" << "";
    QTest::newRow("a legacy updater far from any program") << "%T/Empty/bl-wails-updater.exe" << "" << "";
    QTest::newRow("another program name") << "%T/Old/other-updater.exe" << "" << "";
    QTest::newRow("in our own directory the updater speaks for it") << "%T/BrisaLinker/bl-wails-updater.exe" << "%T/BrisaLinker" << "";
    QTest::newRow("in our own directory a launcher without updater does not")
        << "%T/Bare/BrisaLinker/bl-wails-updater.exe" << "" << "";
    QTest::newRow("the installation's own updater") << "%T/Old/updater.exe" << "" << "%T/Old";
    QTest::newRow("an updater beside no program") << "%T/Empty/updater.exe" << "" << "";
    QTest::newRow("an updater that does not exist") << "%T/Old/tools/updater.exe" << "" << "";
    QTest::newRow("a relative path") << "Old/updater.exe" << "" << "";
    QTest::newRow("an installation inside the Windows directory is no caller") << "%T/Windows/Old/updater.exe" << "" << "";
    QTest::newRow("an installation whose target another source migrates to is no caller") << "%T/Taken/updater.exe" << "" << "";
    QTest::newRow("an installation whose target is a file is no caller") << "%T/Filed/updater.exe" << "" << "";
#ifdef Q_OS_WIN
    QTest::newRow("our launcher in a directory of its name is updated in place")
        << "%T/Own/BrisaLinker/updater.exe" << "" << "%T/Own/BrisaLinker";
    QTest::newRow("our launcher in a directory of another name is no caller") << "%T/Tools/updater.exe" << "" << "";
#endif
}

void LocationTest::callers()
{
    QFETCH(QString, program);
    QFETCH(QString, legacySource);
    QFETCH(QString, caller);
    QTemporaryDir temp;
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Old")), oldLayoutExe()));
    const QByteArray executable = FakeInstallation::minimalExecutable();
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("BrisaLinker")), oldLayoutExe()));
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Bare/BrisaLinker")), oldLayoutExe()));
    QVERIFY(QFile::remove(temp.filePath(QStringLiteral("Bare/BrisaLinker/updater.exe"))));
    for (const char *name : { "BrisaLinker/bl-wails-updater.exe", "Bare/BrisaLinker/bl-wails-updater.exe", "Old/bl-wails-updater.exe", "Old/tools/BL-WAILS-UPDATER.EXE", "Old/other-updater.exe",
                              "Empty/bl-wails-updater.exe", "Empty/updater.exe" }) {
        QVERIFY(writeFile(temp.filePath(QString::fromLatin1(name)), executable));
    }
    for (const char *name : { "Windows/Old", "Taken", "Filed" })
        QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QString::fromLatin1(name)), oldLayoutExe()));
    QVERIFY(writeFile(temp.filePath(QStringLiteral("Taken/BrisaLinker/.legacy-migration.json")),
                      "{\"sourceRoot\":\"" + temp.filePath(QStringLiteral("Elsewhere")).toUtf8() + "\"}"));
    QVERIFY(writeFile(temp.filePath(QStringLiteral("Filed/BrisaLinker")), "x"));
    if (!launcherExe().isEmpty()) {
        QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Own/BrisaLinker")), launcherExe()));
        QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Tools")), launcherExe()));
    }
    const QByteArray savedWindows = qgetenv("WINDIR");
    qputenv("WINDIR", QDir::toNativeSeparators(temp.filePath(QStringLiteral("Windows"))).toLocal8Bit());
    const auto restoreWindows = qScopeGuard([&] { qputenv("WINDIR", savedWindows); });
    program = expand(program, temp);
    QCOMPARE(legacySourceLocation(program), QDir::toNativeSeparators(expand(legacySource, temp)));
    QCOMPARE(LegacyUpdateLocation::fromCaller(program), expand(caller, temp));
}

// Slots 0-3 are the machine's keys ("Software\BrisaLinker", the earlier installer's uninstall
// entry, ours, the installer key), 4-7 the desktop user's, 8 the earlier installer's machine
// entry in the 64-bit view. %OLD and %OTHER hold old-layout programs, %EMPTY holds nothing, %NEW
// holds our launcher.
void LocationTest::discovery_data()
{
    QTest::addColumn<QStringList>("records");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("message");
    const QString more = QStringLiteral("More than one Brisa-Linker installation was found. Select the installation location manually.\n");
    const QString unverified = QStringLiteral("Some recorded installations could not be verified. Select the installation location manually.\n");
    const QString none = QStringLiteral("The previous Brisa-Linker installation was not found. Select the installation location manually.");
    QTest::newRow("nothing recorded") << QStringList() << "" << none;
    QTest::newRow("one installation recorded by the earlier installer")
        << QStringList { "1|InstallLocation|%OLD\\" } << "%OLD" << "";
    QTest::newRow("an install directory is preferred to an install location")
        << QStringList { "0|InstallDir|%OLD", "0|InstallLocation|%OTHER" } << "%OLD" << "";
    QTest::newRow("the same directory under the machine and the user key counts once")
        << QStringList { "1|InstallLocation|%OLD", "5|InstallLocation|%old" } << "%OLD" << "";
    QTest::newRow("a quoted uninstall command names the directory")
        << QStringList { "5|UninstallString|\"%OLD\\unins000.exe\" /SILENT" } << "%OLD" << "";
    QTest::newRow("an unquoted uninstall command ends at .exe")
        << QStringList { "1|UninstallString|%OLD\\unins000.exe /SILENT" } << "%OLD" << "";
    QTest::newRow("an earlier installer that wrote the 64-bit view is found too")
        << QStringList { "8|InstallLocation|%OLD" } << "%OLD" << "";
    QTest::newRow("the same installation in both views counts once")
        << QStringList { "1|InstallLocation|%OLD", "8|InstallLocation|%OLD" } << "%OLD" << "";
    QTest::newRow("two installations ask the user")
        << QStringList { "0|InstallDir|%OLD", "4|InstallDir|%OTHER" } << "" << more + "%OLD\n%OTHER";
    QTest::newRow("a recorded directory without the program cannot be verified")
        << QStringList { "1|InstallLocation|%EMPTY" } << "" << unverified + "%EMPTY";
    QTest::newRow("a verified installation wins over an unverifiable one")
        << QStringList { "1|InstallLocation|%EMPTY", "3|InstallLocation|%OLD" } << "%OLD" << "";
    QTest::newRow("a recorded drive root is not an installation")
        << QStringList { "0|InstallDir|C:/" } << "" << unverified + "C:/";
    QTest::newRow("an uninstall command that is no program names nothing")
        << QStringList { "1|UninstallString|rundll32" } << "" << none;
    QTest::newRow("a target that is a file refuses the installation")
        << QStringList { "1|InstallLocation|%OLD", "@file %OLD/BrisaLinker" } << "" << unverified + "%OLD";
    QTest::newRow("a target taken by another migration refuses the installation")
        << QStringList { "1|InstallLocation|%OLD", "@migration %OLD/BrisaLinker" } << "" << unverified + "%OLD";
#ifdef Q_OS_WIN
    QTest::newRow("our launcher is not an earlier installation")
        << QStringList { "2|InstallLocation|%NEW" } << "" << unverified + "%NEW";
    QTest::newRow("an installation as the earlier installer left it, with its entries")
        << QStringList { "@earlier %OTHER/Earlier" } << "%OTHER/Earlier" << "";
#endif
}

void LocationTest::discovery()
{
    QFETCH(QStringList, records);
    QFETCH(QString, source);
    QFETCH(QString, message);
    QTemporaryDir temp;
    Registry registry;
    QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
    const QString old = temp.filePath(QStringLiteral("Old"));
    const QString other = temp.filePath(QStringLiteral("Other"));
    const QString empty = temp.filePath(QStringLiteral("Empty"));
    const QString newer = temp.filePath(QStringLiteral("New"));
    QVERIFY(FakeInstallation::makeInstallation(old, oldLayoutExe()));
    QVERIFY(FakeInstallation::makeInstallation(other, oldLayoutExe()));
    QVERIFY(FakeInstallation::makeInstallation(newer, launcherExe()));
    QVERIFY(QDir().mkpath(empty));
    const auto fill = [&](QString text, bool native) {
        text.replace(QLatin1String("%OLD"), old).replace(QLatin1String("%old"), old.toLower());
        text.replace(QLatin1String("%OTHER"), other).replace(QLatin1String("%EMPTY"), empty).replace(QLatin1String("%NEW"), newer);
        return native ? QDir::toNativeSeparators(text) : text;
    };
    for (const QString &record : std::as_const(records)) {
        if (record.startsWith(QLatin1String("@file ")))
            QVERIFY(writeFile(fill(record.mid(6), false), "x"));
        else if (record.startsWith(QLatin1String("@earlier ")))
            QVERIFY(FakeInstallation::makeEarlierInstallation(fill(record.mid(9), false), oldLayoutExe(),
                                                              QStringLiteral("HKEY_USERS\\") + DesktopUser::sid()));
        else if (record.startsWith(QLatin1String("@migration ")))
            QVERIFY(writeFile(fill(record.mid(11), false) + QStringLiteral("/.legacy-migration.json"),
                              "{\"sourceRoot\":\"" + temp.filePath(QStringLiteral("Elsewhere")).toUtf8() + "\"}"));
        else
            registry.set(record.section(QLatin1Char('|'), 0, 0).toInt(), record.section(QLatin1Char('|'), 1, 1),
                         fill(record.section(QLatin1Char('|'), 2), true));
    }
    const LegacyUpdateLocation::Result result = LegacyUpdateLocation::discover(QString(), QString(), registry.discovered);
    QCOMPARE(QDir::toNativeSeparators(result.source), fill(source, true));
    QCOMPARE(result.target, source.isEmpty() ? QString() : applicationTarget(fill(source, false)));
    QCOMPARE(result.message, fill(message, true));
}

QTEST_GUILESS_MAIN(LocationTest)
#include "tst_location.moc"
