#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"
#include "support/fake_installation.h"
#include "support/legacy_registry.h"
#include "support/test_files.h"
#include "system/desktop_user.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace InstallationLocation;

namespace {

// The earlier layout's program, and our launcher. The host cannot read version resources and
// takes every valid image for the earlier layout.
#ifdef Q_OS_WIN
const QString oldLayoutExe = QStringLiteral(BRISA_OLD_LAYOUT_EXE);
const QString launcherExe = QStringLiteral(BRISA_FAKE_LAUNCHER_EXE);
#else
const QString oldLayoutExe;
const QString launcherExe;
#endif

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

// WINDIR names another directory while the object lives.
struct WindowsDirectory
{
    const QByteArray saved = qgetenv("WINDIR");
    explicit WindowsDirectory(const QString &path) { qputenv("WINDIR", QDir::toNativeSeparators(path).toLocal8Bit()); }
    ~WindowsDirectory() { qputenv("WINDIR", saved); }
};

// Under Wine a Unix directory symlink made by the harness shows as a reparse point:
// "C:/brisa-link-fixture/dir-link" leads to "C:/brisa-link-fixture/real".
const QString linkFixture = QStringLiteral("C:/brisa-link-fixture");

} // namespace

class LocationTest : public QObject
{
    Q_OBJECT

private slots:
    void pathRules_data();
    void pathRules();
    void installationKind_data();
    void installationKind();
    void linkedInstallation_data();
    void linkedInstallation();
    void identity_data();
    void identity();
    void rememberedLocation_data();
    void rememberedLocation();
    void sourceTarget_data();
    void sourceTarget();
    void callers_data();
    void callers();
    void discovery_data();
    void discovery();
};

void LocationTest::pathRules_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("input"); // arguments separated by "|"
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *rule) {
        return [rule](const char *name, const QString &input, const QString &expected) { QTest::newRow(name) << rule << input << expected; };
    };
    // What a chosen path is: "application directory", "other directory" (absolute, not a root) or "refused".
    const auto kind = row("kind");
    kind("a drive root", "C:/", "refused");
    kind("a drive root with a backslash", "C:\\", "refused");
    kind("a bare drive is too short", "C:", "refused");
    kind("a drive-relative path", "C:Apps\\BrisaLinker", "refused");
    kind("a digit is no drive letter", "1:/Apps/BrisaLinker", "refused");
    kind("a non-ASCII drive letter is still a letter", QStringLiteral("\u00c4:/Apps/BrisaLinker"), "application directory");
    kind("a share root", "//server/share", "refused");
    kind("a server without a share", "//server", "refused");
    kind("a share root written with backslashes", "\\\\server\\share\\", "refused");
    kind("a directory on a share", "\\\\server\\share\\Apps\\BrisaLinker", "application directory");
    kind("a relative path", "apps/dir", "refused");
    kind("a relative application name", "BrisaLinker", "refused");
    kind("the application name in other case", "D:/Apps/brisalinker", "application directory");
    kind("a longer name is not the application's", "D:/Apps/BrisaLinker2", "other directory");
    kind("the name as a middle component only", "D:/BrisaLinker/Apps", "other directory");
    kind("dot-dot parts are resolved first", "D:/Apps/BrisaLinker/sub/..", "application directory");
    kind("dot-dot that climbs out of the name", "D:/Apps/BrisaLinker/..", "other directory");
    kind("dot-dot up to the root is the root", "D:/Apps/..", "refused");
    kind("blanks around are trimmed", "  D:\\Apps\\BrisaLinker  ", "application directory");
    kind("empty", "", "refused");
    kind("only blanks", "   ", "refused");
    const auto normal = row("normalized");
    normal("backslashes, doubled separators, dots and a trailing slash", "  C:\\a\\\\b\\.\\c\\..\\  ", "C:/a/b");
    normal("a share keeps its two leading slashes", "\\\\server\\share\\x", "//server/share/x");
    normal("a drive root keeps its slash", "C:\\", "C:/");
    normal("a bare drive stays bare", "C:", "C:");
    normal("blank input is empty", " \t ", "");
    const auto parent = row("parentOf");
    parent("a directory on a drive has the drive root", "C:/x", "C:/");
    parent("backslashes and a trailing one", "C:\\Apps\\x\\", "C:/Apps");
    parent("a drive root is its own parent", "C:/", "C:/");
    parent("a directory on a share has the share", "//server/share/x", "//server/share");
    parent("a bare name has none", "x", "");
    const auto target = row("applicationTarget");
    target("a parent gets a directory of the application's own", "D:/Apps", "D:/Apps/BrisaLinker");
    target("the application directory is taken as it is", "D:\\Apps\\BrisaLinker\\", "D:/Apps/BrisaLinker");
    target("the name in other case is kept as written", "D:/Apps/BRISALINKER", "D:/Apps/BRISALINKER");
    target("a similar name still gets its own directory", "D:/Apps/BrisaLinker2", "D:/Apps/BrisaLinker2/BrisaLinker");
    target("a share directory", "//server/share/Apps", "//server/share/Apps/BrisaLinker");
    target("a drive root is never a target", "D:/", "");
    target("a share root is never a target", "//server/share", "");
    target("a relative choice is refused", "Apps", "");
    target("a drive-relative choice is refused", "D:Apps", "");
    // Either way round.
    const auto same = row("same");
    same("case and separators do not matter", "C:\\Apps\\BrisaLinker|c:/apps/brisalinker/", "yes");
    same("dot parts do not matter", "C:/Apps/./x/../BrisaLinker|C:/Apps/BrisaLinker", "yes");
    same("two empty paths are not the same", "| ", "no");
    same("an empty path is not the same as a directory", "|C:/Apps", "no");
    same("different directories", "C:/Apps/BrisaLinker|C:/Apps/BrisaLinker2", "no");
    // The machine's entry, the other location, the installation root.
    const auto retire = row("mayRetireMachineEntry");
    retire("the entry names the other location", "C:\\Apps\\BrisaLinker|c:/apps/brisalinker|", "yes");
    retire("the entry names the installation root", "C:/Old/BrisaLinker|D:/Else|c:\\old\\brisalinker", "yes");
    retire("the entry names another installation", "C:/Old/BrisaLinker|D:/Else|D:/New/BrisaLinker", "no");
    retire("an empty entry and an empty root", "|D:/Else|", "no");
}

void LocationTest::pathRules()
{
    QFETCH(QString, rule);
    QFETCH(QString, input);
    QFETCH(QString, expected);
    const QStringList in = input.split(QLatin1Char('|'));
    const auto yes = [](bool value) { return QString::fromLatin1(value ? "yes" : "no"); };
    QString result;
    if (rule == QLatin1String("kind"))
        result = QString::fromLatin1(isAbsoluteNonRootDirectory(in[0]) ? (isApplicationDirectory(in[0]) ? "application directory" : "other directory")
                                                                      : (isApplicationDirectory(in[0]) ? "application name only" : "refused"));
    else if (rule == QLatin1String("normalized"))
        result = normalized(in[0]);
    else if (rule == QLatin1String("parentOf"))
        result = parentOf(in[0]);
    else if (rule == QLatin1String("applicationTarget"))
        result = applicationTarget(in[0]);
    else if (rule == QLatin1String("same"))
        result = same(in[0], in[1]) == same(in[1], in[0]) ? yes(same(in[0], in[1])) : QStringLiteral("one way only");
    else
        result = yes(mayRetireMachineEntry(in[0], in[1], in[2]));
    QCOMPARE(result, expected);
}

// What a directory holds: an installation of ours ("existing") and a launcher build that updates
// itself ("automatic"), or neither. "remove F" and "directory F" change the file F; "markers",
// "old-layout", "windir=P", "rename N", "link F" and "link-directory" are explained where made.
void LocationTest::installationKind_data()
{
    QTest::addColumn<QString>("version"); // empty: an installation with uninstall data; else an updatable one
    QTest::addColumn<QByteArray>("magic");
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("kind");
    const QByteArray right = FakeInstallation::rightMagic;
    QTest::newRow("all four markers and the right magic") << "" << right << "" << "existing";
    QTest::newRow("the magic with blanks around it") << "" << QByteArray("  BRISALINKER_UNINSTALL_V1 ") << "" << "existing";
    QTest::newRow("a different first line") << "" << QByteArray("BRISALINKER_UNINSTALL_V2") << "" << "";
    QTest::newRow("the magic on the second line") << "" << QByteArray("\nBRISALINKER_UNINSTALL_V1") << "" << "";
    QTest::newRow("no updater") << "" << right << "remove updater.exe" << "";
    QTest::newRow("no uninstaller") << "" << right << "remove uninstall.exe" << "";
    QTest::newRow("no launcher") << "" << right << "remove brisalinker.exe" << "";
    QTest::newRow("the launcher is a directory") << "" << right << "directory brisalinker.exe" << "";
    QTest::newRow("the uninstall data is a directory") << "" << right << "directory uninstall.dat" << "";
    QTest::newRow("a directory of another name") << "" << right << "rename Other" << "";
#ifndef Q_OS_WIN // Wine 8 cannot make links from Windows code
    QTest::newRow("the updater is a symbolic link") << "" << right << "link updater.exe" << "";
    QTest::newRow("the uninstall data is a symbolic link") << "" << right << "link uninstall.dat" << "";
    QTest::newRow("the directory itself is a symbolic link") << "" << right << "link-directory" << "";
#endif
    QTest::newRow("a launcher installation with a three-part version") << "1.2.3" << right << "" << "automatic";
    QTest::newRow("a two-part version is enough") << "7.0" << right << "" << "automatic";
    QTest::newRow("a version with one number") << "7" << right << "" << "";
    QTest::newRow("a version with a letter") << "1.2.3b" << right << "" << "";
    QTest::newRow("a version that climbs out of the directory") << "../1.2" << right << "" << "";
    QTest::newRow("no core for that version") << "1.2.3" << right << "remove 1.2.3/bl-core.exe" << "";
    QTest::newRow("the core is a directory") << "1.2.3" << right << "directory 1.2.3/bl-core.exe" << "";
    QTest::newRow("no version file") << "1.2.3" << right << "remove cfgdata/version.ini" << "";
    QTest::newRow("the version file is a directory") << "1.2.3" << right << "directory cfgdata/version.ini" << "";
    QTest::newRow("an installation of ours with uninstall data is not updated automatically") << "1.2.3" << right << "markers" << "existing";
    QTest::newRow("an old-layout program is not the launcher") << "1.2.3" << right << "old-layout" << "";
    QTest::newRow("the Windows directory itself") << "1.2.3" << right << "windir=." << "";
    QTest::newRow("a directory inside the Windows directory") << "1.2.3" << right << "windir=.." << "";
    QTest::newRow("a Windows directory that only shares a prefix") << "1.2.3" << right << "windir=../Brisa" << "automatic";
}

void LocationTest::installationKind()
{
    QFETCH(QString, version);
    QFETCH(QByteArray, magic);
    QFETCH(QString, change);
    QFETCH(QString, kind);
#ifndef Q_OS_WIN
    if (kind == QLatin1String("automatic"))
        QSKIP("only Windows reads the version resource that names the launcher");
#endif
    QTemporaryDir temp;
    QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    const bool climbs = version.contains(QLatin1String(".."));
    if (version.isEmpty())
        QVERIFY(FakeInstallation::makeInstallation(root, QString(), magic));
    else
        QVERIFY(FakeInstallation::makeUpdatable(root, launcherExe, climbs ? QStringLiteral("1.2") : version));
    QVERIFY(!climbs || TestFiles::write(root + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=" + version.toUtf8() + "\n"));
    const QString file = root + QLatin1Char('/') + change.section(QLatin1Char(' '), 1);
    if (change.startsWith(QLatin1String("remove "))) {
        QVERIFY(QFile::remove(file));
    } else if (change.startsWith(QLatin1String("directory "))) {
        QVERIFY(QFile::remove(file) && QDir().mkpath(file));
    } else if (change == QLatin1String("markers")) {
        QVERIFY(FakeInstallation::makeInstallation(root, launcherExe));
    } else if (change == QLatin1String("old-layout")) {
        QVERIFY(FakeInstallation::makeUpdatable(root, oldLayoutExe, version));
    } else if (change.startsWith(QLatin1String("rename "))) {
        QVERIFY(QDir().rename(root, temp.filePath(change.mid(7))));
        root = temp.filePath(change.mid(7));
    } else if (change.startsWith(QLatin1String("link "))) {
        QVERIFY(QFile::rename(file, file + QStringLiteral(".real")) && QFile::link(file + QStringLiteral(".real"), file));
    } else if (change == QLatin1String("link-directory")) {
        QVERIFY(QDir().rename(root, temp.filePath(QStringLiteral("real"))) && QFile::link(temp.filePath(QStringLiteral("real")), root));
    }
    const WindowsDirectory windows(change.startsWith(QLatin1String("windir=")) ? QDir::cleanPath(root + QLatin1Char('/') + change.mid(7))
                                                                               : QString::fromLocal8Bit(qgetenv("WINDIR")));
    QStringList found;
    if (existingApplicationDirectory(root))
        found << QStringLiteral("existing");
    if (automaticUpdateDirectory(root))
        found << QStringLiteral("automatic");
    QCOMPARE(found.join(QLatin1Char(' ')), kind);
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
    const QString realBase = temp.path();
    const QString linkedBase = linkFixture + QStringLiteral("/dir-link/") + QFileInfo(temp.path()).fileName();
#else
    QTemporaryDir temp;
    const QString realBase = temp.filePath(QStringLiteral("real"));
    const QString linkedBase = temp.filePath(QStringLiteral("link"));
    QVERIFY(QDir().mkpath(realBase) && QFile::link(realBase, linkedBase));
#endif
    const QString real = realBase + QStringLiteral("/BrisaLinker");
    const QString linked = linkedBase + QStringLiteral("/BrisaLinker");
    QVERIFY(FakeInstallation::makeInstallation(real, oldLayoutExe));
    QVERIFY(TestFiles::write(real + QStringLiteral("/bl-wails-updater.exe"), FakeInstallation::minimalExecutable()));
    QVERIFY(QFileInfo(linked + QStringLiteral("/uninstall.dat")).isFile());

    if (rule == QLatin1String("hasNoDirectoryLinks")) {
        QVERIFY(hasNoDirectoryLinks(real) && hasNoDirectoryLinks(real + QStringLiteral("/not/yet/made")));
        QVERIFY(!hasNoDirectoryLinks(linked) && !hasNoDirectoryLinks(linked + QStringLiteral("/not/yet/made")));
        QVERIFY(!hasNoDirectoryLinks(real + QStringLiteral("/uninstall.dat/below-a-file")));
    } else if (rule == QLatin1String("existingApplicationDirectory")) {
        QVERIFY(existingApplicationDirectory(real) && !existingApplicationDirectory(linked));
    } else if (rule == QLatin1String("automaticUpdateDirectory")) {
        QVERIFY(QFile::remove(real + QStringLiteral("/uninstall.dat")));
        QVERIFY(FakeInstallation::makeUpdatable(real, launcherExe, QStringLiteral("1.2.3")));
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
    } else {
        LegacyRegistry registry;
        QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
        registry.set(0, QStringLiteral("InstallDir"), QDir::toNativeSeparators(linkedBase));
        QVERIFY(FakeInstallation::makeInstallation(realBase, oldLayoutExe));
        const LegacyUpdateLocation::Result result = LegacyUpdateLocation::discover(QString(), QString(), registry.discovered);
        QCOMPARE(result.source, QString());
        QVERIFY(result.message.startsWith(QLatin1String("Some recorded installations could not be verified.")));
    }
}

void LocationTest::identity_data()
{
    QTest::addColumn<QString>("file"); // a program of the build, "missing", "directory" or "" for `content` as a file
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("message"); // a message ending in "..." is compared by its beginning
    const int invalid = InstallationIdentity::Invalid;
    const int valid = InstallationIdentity::ValidExecutable;
    const QString dos = QStringLiteral("The application executable has an invalid DOS header.");
    const QString pe = QStringLiteral("The application executable has an invalid PE header.");
    const QString optional = QStringLiteral("The application executable has an invalid optional header.");
    const QString notFile = QStringLiteral("The application executable is not a regular file.");
    const QByteArray image64 = FakeInstallation::minimalExecutable();
    QByteArray signature = image64;
    signature[64] = 'N';
    const auto made = [](const char *name, const QByteArray &content, int kind, const QString &message) {
        QTest::newRow(name) << QString() << content << kind << message;
    };
    QTest::newRow("a missing file") << "missing" << QByteArray() << invalid << notFile;
    QTest::newRow("a directory") << "directory" << QByteArray() << invalid << notFile;
    made("an empty file", "", invalid, dos);
    made("63 bytes are no DOS header", image64.left(63), invalid, dos);
    made("a text file", QByteArray(200, 'a'), invalid, dos);
    made("a PE offset inside the DOS header", image(32, 0x22, 240, 0x20B), invalid, dos);
    made("a PE offset at the end of the file", image(quint32(image64.size()), 0x22, 240, 0x20B), invalid, dos);
    made("a PE offset far beyond the file", image(0xFFFFFFF0u, 0x22, 240, 0x20B), invalid, dos);
    made("a PE header cut short", image64.left(64 + 25), invalid, pe);
    made("a wrong PE signature", signature, invalid, "The application executable has an invalid PE signature.");
    made("an object file that is no image", image(64, 0x20, 240, 0x20B), invalid, pe);
    made("a DLL image", image(64, 0x2022, 240, 0x20B), invalid, pe);
    made("an optional header too small", image(64, 0x22, 95, 0x20B), invalid, optional);
    made("an unknown optional header magic", image(64, 0x22, 240, 0x107), invalid, optional);
#ifdef Q_OS_WIN
    const QString unreadable = QStringLiteral("Unable to read application resources (Windows ...");
    const QString tooLarge = QStringLiteral("The application version resource is too large.");
    const int launcher = InstallationIdentity::Launcher;
    const auto built = [](const char *name, const char *file, int kind, const QString &message) {
        QTest::newRow(name) << QString::fromLatin1(file) << QByteArray() << kind << message;
    };
    built("a DLL with valid headers", BRISA_PLAIN_DLL, invalid, pe);
    built("the product's launcher", BRISA_FAKE_LAUNCHER_EXE, launcher, "");
    built("a launcher described in lower case", BRISA_LAUNCHER_LOWER_CASE_EXE, launcher, "");
    built("a launcher named by its component string", BRISA_LAUNCHER_COMPONENT_EXE, launcher, "");
    built("Launchers is not the whole word", BRISA_LAUNCHERS_EXE, valid, "");
    built("an old-layout program", BRISA_OLD_LAYOUT_EXE, valid, "");
    built("strings without a translation table are not read", BRISA_NO_TRANSLATION_EXE, valid, "");
    built("a program without version information", BRISA_PLAIN_EXE, invalid, unreadable);
    built("version information far over 4 MiB", BRISA_BIG_VERSION_EXE, invalid, tooLarge);
    built("version information just over 4 MiB", BRISA_OVER_LIMIT_VERSION_EXE, invalid, tooLarge);
    built("version information of exactly 4 MiB is read", BRISA_LIMIT_VERSION_EXE, valid, "");
    QFile launcherFile(launcherExe);
    made("a launcher cut after its headers", launcherFile.open(QIODevice::ReadOnly) ? launcherFile.read(1024) : QByteArray(), invalid, unreadable);
#else
    made("valid headers without readable resources", image64, valid, "");
#endif
}

void LocationTest::identity()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(int, kind);
    QFETCH(QString, message);
    QTemporaryDir temp;
    const bool made = file.isEmpty() || file == QLatin1String("missing") || file == QLatin1String("directory");
    const QString path = made ? temp.filePath(QStringLiteral("brisalinker.exe")) : file;
    QVERIFY(file != QLatin1String("directory") || QDir().mkpath(path));
    QVERIFY(!file.isEmpty() || TestFiles::write(path, content));
    const InstallationIdentity::Result result = InstallationIdentity::executable(path);
    QCOMPARE(result.kind, kind);
    if (message.endsWith(QLatin1String("...")))
        QVERIFY2(result.message.startsWith(message.chopped(3)), qPrintable(result.message));
    else
        QCOMPARE(result.message, message);
    // The directory form reads the same file.
    if (made && file != QLatin1String("directory"))
        QCOMPARE(InstallationIdentity::installation(temp.path()).kind, kind);
}

void LocationTest::rememberedLocation_data()
{
    QTest::addColumn<bool>("installation");
    QTest::newRow("a finished installation is remembered") << true;
    QTest::newRow("a directory without our uninstall data is not") << false;
}

// The installer key on Windows (read back through the same 64-bit view as discovery), an INI
// file on the host.
void LocationTest::rememberedLocation()
{
    QFETCH(bool, installation);
    LegacyRegistry registry;
    QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
    const LegacyUpdateLocation::Registration key = registry.entries.at(3);
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(FakeInstallation::makeInstallation(root, QString(), installation ? FakeInstallation::rightMagic : QByteArray("OTHER")));
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    QCOMPARE(rememberSuccessfulLocation(root + QStringLiteral("/"), key.path, key.format), installation);
    const QSettings settings(key.path, key.format);
    if (!installation) {
        QVERIFY(!settings.contains(QStringLiteral("InstallLocation")) && !settings.contains(QStringLiteral("InstalledAtUtc")));
        QCOMPARE(registeredLocation({ key.path }, key.format), QString());
        return;
    }
    QCOMPARE(settings.value(QStringLiteral("InstallLocation")).toString(), QDir::toNativeSeparators(root));
    const QDateTime at = QDateTime::fromString(settings.value(QStringLiteral("InstalledAtUtc")).toString(), Qt::ISODateWithMs);
    QCOMPARE(at.timeSpec(), Qt::UTC);
    QVERIFY(at >= before && at <= QDateTime::currentDateTimeUtc());
    // A key that does not exist and one that names a vanished directory are passed over.
    registry.set(0, QStringLiteral("InstallLocation"), QDir::toNativeSeparators(temp.filePath(QStringLiteral("gone"))));
    QCOMPARE(registeredLocation({ registry.entries.at(1).path, registry.entries.at(0).path, key.path }, key.format), QDir::toNativeSeparators(root));
}

void LocationTest::sourceTarget_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<bool>("valid");
    const QString own = QStringLiteral("%T/Old/BrisaLinker");
    QTest::newRow("an old installation and its own target") << "%T/Old" << own << QByteArray() << true;
    QTest::newRow("a drive root as source") << "C:/" << own << QByteArray() << false;
    QTest::newRow("a share root as target") << "%T/Old" << "//server/share" << QByteArray() << false;
    QTest::newRow("a relative target") << "%T/Old" << "Old/BrisaLinker" << QByteArray() << false;
    QTest::newRow("a source inside the Windows directory") << "%T/Windows/Old" << own << QByteArray() << false;
    QTest::newRow("the Windows directory as target") << "%T/Old" << "%T/Windows" << QByteArray() << false;
    QTest::newRow("a migration of the same source goes on") << "%T/Old" << own << QByteArray("{\"sourceRoot\":\"%T\\\\OLD\"}") << true;
    QTest::newRow("a migration record without its source blocks the target") << "%T/Old" << own << QByteArray("{\"phase\":\"preparing\"}") << false;
    QTest::newRow("an unreadable migration record blocks the target") << "%T/Old" << own << QByteArray("{\"sourceRoot\":") << false;
    QTest::newRow("a migration of another source is not taken over") << "%T/Old" << own << QByteArray("{\"sourceRoot\":\"%T/Other\"}") << false;
}

void LocationTest::sourceTarget()
{
    QFETCH(QString, source);
    QFETCH(QString, target);
    QFETCH(QByteArray, record);
    QFETCH(bool, valid);
    QTemporaryDir temp;
    const WindowsDirectory windows(temp.filePath(QStringLiteral("Windows")));
    target = expand(target, temp);
    const QByteArray escapedTemp = QDir::toNativeSeparators(temp.path()).replace(QLatin1Char('\\'), QLatin1String("\\\\")).toUtf8();
    QVERIFY(record.isEmpty() || TestFiles::write(target + QStringLiteral("/.legacy-migration.json"), record.replace("%T", escapedTemp)));
    QCOMPARE(LegacyUpdateLocation::validSourceTarget(expand(source, temp), target), valid);
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
    QTest::newRow("in our own directory a launcher without updater does not") << "%T/Bare/BrisaLinker/bl-wails-updater.exe" << "" << "";
    QTest::newRow("the installation's own updater") << "%T/Old/updater.exe" << "" << "%T/Old";
    QTest::newRow("an updater beside no program") << "%T/Empty/updater.exe" << "" << "";
    QTest::newRow("an updater that does not exist") << "%T/Old/tools/updater.exe" << "" << "";
    QTest::newRow("a relative path") << "Old/updater.exe" << "" << "";
    QTest::newRow("an installation inside the Windows directory is no caller") << "%T/Windows/Old/updater.exe" << "" << "";
    QTest::newRow("an installation whose target another source migrates to is no caller") << "%T/Taken/updater.exe" << "" << "";
    QTest::newRow("an installation whose target is a file is no caller") << "%T/Filed/updater.exe" << "" << "";
#ifdef Q_OS_WIN
    QTest::newRow("our launcher in a directory of its name is updated in place") << "%T/Own/BrisaLinker/updater.exe" << "" << "%T/Own/BrisaLinker";
    QTest::newRow("our launcher in a directory of another name is no caller") << "%T/Tools/updater.exe" << "" << "";
#endif
}

void LocationTest::callers()
{
    QFETCH(QString, program);
    QFETCH(QString, legacySource);
    QFETCH(QString, caller);
    QTemporaryDir temp;
    for (const char *name : { "Old", "BrisaLinker", "Bare/BrisaLinker", "Windows/Old", "Taken", "Filed" })
        QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QString::fromLatin1(name)), oldLayoutExe));
    for (const char *name : { "Own/BrisaLinker", "Tools" })
        QVERIFY(launcherExe.isEmpty() || FakeInstallation::makeInstallation(temp.filePath(QString::fromLatin1(name)), launcherExe));
    QVERIFY(QFile::remove(temp.filePath(QStringLiteral("Bare/BrisaLinker/updater.exe"))));
    for (const char *name : { "BrisaLinker/bl-wails-updater.exe", "Bare/BrisaLinker/bl-wails-updater.exe", "Old/bl-wails-updater.exe",
                              "Old/tools/BL-WAILS-UPDATER.EXE", "Old/other-updater.exe", "Empty/bl-wails-updater.exe", "Empty/updater.exe" })
        QVERIFY(TestFiles::write(temp.filePath(QString::fromLatin1(name)), FakeInstallation::minimalExecutable()));
    QVERIFY(TestFiles::write(temp.filePath(QStringLiteral("Taken/BrisaLinker/.legacy-migration.json")),
                      "{\"sourceRoot\":\"" + temp.filePath(QStringLiteral("Elsewhere")).toUtf8() + "\"}"));
    QVERIFY(TestFiles::write(temp.filePath(QStringLiteral("Filed/BrisaLinker")), "x"));
    const WindowsDirectory windows(temp.filePath(QStringLiteral("Windows")));
    program = expand(program, temp);
    QCOMPARE(legacySourceLocation(program), QDir::toNativeSeparators(expand(legacySource, temp)));
    QCOMPARE(LegacyUpdateLocation::fromCaller(program), expand(caller, temp));
}

// Slots 0-3 are the machine's keys ("Software\BrisaLinker", the earlier installer's uninstall
// entry, ours, the installer key), 4-7 the desktop user's, 8 the earlier installer's machine
// entry in the 64-bit view. %OLD and %OTHER hold old-layout programs, %EMPTY holds nothing, %NEW
// holds our launcher. "@file P" makes P a file, "@migration P" gives P another source's migration
// record, "@earlier P" makes the earlier installer's installation at P with its entries.
void LocationTest::discovery_data()
{
    QTest::addColumn<QStringList>("records");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("message");
    const QString more = QStringLiteral("More than one Brisa-Linker installation was found. Select the installation location manually.\n");
    const QString unverified = QStringLiteral("Some recorded installations could not be verified. Select the installation location manually.\n");
    const QString none = QStringLiteral("The previous Brisa-Linker installation was not found. Select the installation location manually.");
    const auto row = [](const char *name, const QStringList &records, const QString &source, const QString &message) {
        QTest::newRow(name) << records << source << message;
    };
    row("nothing recorded", {}, "", none);
    row("one installation recorded by the earlier installer", { "1|InstallLocation|%OLD\\" }, "%OLD", "");
    row("an install directory is preferred to an install location", { "0|InstallDir|%OLD", "0|InstallLocation|%OTHER" }, "%OLD", "");
    row("the same directory under the machine and the user key counts once", { "1|InstallLocation|%OLD", "5|InstallLocation|%old" }, "%OLD", "");
    row("a quoted uninstall command names the directory", { "5|UninstallString|\"%OLD\\unins000.exe\" /SILENT" }, "%OLD", "");
    row("an unquoted uninstall command ends at .exe", { "1|UninstallString|%OLD\\unins000.exe /SILENT" }, "%OLD", "");
    row("an earlier installer that wrote the 64-bit view is found too", { "8|InstallLocation|%OLD" }, "%OLD", "");
    row("the same installation in both views counts once", { "1|InstallLocation|%OLD", "8|InstallLocation|%OLD" }, "%OLD", "");
    row("two installations ask the user", { "0|InstallDir|%OLD", "4|InstallDir|%OTHER" }, "", more + "%OLD\n%OTHER");
    row("a recorded directory without the program cannot be verified", { "1|InstallLocation|%EMPTY" }, "", unverified + "%EMPTY");
    row("a verified installation wins over an unverifiable one", { "1|InstallLocation|%EMPTY", "3|InstallLocation|%OLD" }, "%OLD", "");
    row("a recorded drive root is not an installation", { "0|InstallDir|C:/" }, "", unverified + "C:/");
    row("an uninstall command that is no program names nothing", { "1|UninstallString|rundll32" }, "", none);
    row("a target that is a file refuses the installation", { "1|InstallLocation|%OLD", "@file %OLD/BrisaLinker" }, "", unverified + "%OLD");
    row("a target taken by another migration refuses the installation", { "1|InstallLocation|%OLD", "@migration %OLD/BrisaLinker" }, "", unverified + "%OLD");
#ifdef Q_OS_WIN
    row("our launcher is not an earlier installation", { "2|InstallLocation|%NEW" }, "", unverified + "%NEW");
    row("an installation as the earlier installer left it, with its entries", { "@earlier %OTHER/Earlier" }, "%OTHER/Earlier", "");
#endif
}

void LocationTest::discovery()
{
    QFETCH(QStringList, records);
    QFETCH(QString, source);
    QFETCH(QString, message);
    QTemporaryDir temp;
    LegacyRegistry registry;
    QVERIFY2(registry.entries.size() == 9, "the desktop user's SID is unknown");
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Old")), oldLayoutExe));
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("Other")), oldLayoutExe));
    QVERIFY(FakeInstallation::makeInstallation(temp.filePath(QStringLiteral("New")), launcherExe));
    QVERIFY(QDir().mkpath(temp.filePath(QStringLiteral("Empty"))));
    const auto fill = [&](QString text, bool native) {
        text.replace(QLatin1String("%OLD"), temp.filePath(QStringLiteral("Old"))).replace(QLatin1String("%old"), temp.filePath(QStringLiteral("Old")).toLower());
        text.replace(QLatin1String("%OTHER"), temp.filePath(QStringLiteral("Other"))).replace(QLatin1String("%EMPTY"), temp.filePath(QStringLiteral("Empty")));
        text.replace(QLatin1String("%NEW"), temp.filePath(QStringLiteral("New")));
        return native ? QDir::toNativeSeparators(text) : text;
    };
    for (const QString &record : std::as_const(records)) {
        const QString path = fill(record.section(QLatin1Char(' '), 1), false);
        if (record.startsWith(QLatin1String("@file ")))
            QVERIFY(TestFiles::write(path, "x"));
        else if (record.startsWith(QLatin1String("@earlier ")))
            QVERIFY(FakeInstallation::makeEarlierInstallation(path, oldLayoutExe, QStringLiteral("HKEY_USERS\\") + DesktopUser::sid()));
        else if (record.startsWith(QLatin1String("@migration ")))
            QVERIFY(TestFiles::write(path + QStringLiteral("/.legacy-migration.json"), "{\"sourceRoot\":\"" + temp.filePath(QStringLiteral("Elsewhere")).toUtf8() + "\"}"));
        else
            registry.set(record.section(QLatin1Char('|'), 0, 0).toInt(), record.section(QLatin1Char('|'), 1, 1), fill(record.section(QLatin1Char('|'), 2), true));
    }
    const LegacyUpdateLocation::Result result = LegacyUpdateLocation::discover(QString(), QString(), registry.discovered);
    QCOMPARE(QDir::toNativeSeparators(result.source), fill(source, true));
    QCOMPARE(result.target, source.isEmpty() ? QString() : fill(source, false) + QStringLiteral("/BrisaLinker"));
    QCOMPARE(result.message, fill(message, true));
}

QTEST_GUILESS_MAIN(LocationTest)
#include "tst_location.moc"
