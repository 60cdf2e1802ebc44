#include "tst_system.h"
#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/sha256.h"
#include "system/shortcuts.h"
#include "system/url_protocol.h"
#include "system/windows_command_line.h"
#include "support/test_files.h"
#include "support/test_links.h"

#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_WIN
#include "fake_launch_api_win.h"
#include "support/registry_dump_win.h"
#include <windows.h>
#include <shellapi.h>
#include <objbase.h>
#include <shobjidl.h>
#else
#include <unistd.h>
#endif

void SystemTest::quoting_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("quoted");
    QTest::newRow("plain word") << "install" << "\"install\"";
    QTest::newRow("empty argument kept") << "" << "\"\"";
    QTest::newRow("blanks stay inside the quotes") << "C:/Program Files/x" << "\"C:/Program Files/x\"";
    QTest::newRow("trailing backslash doubled") << "C:\\Apps\\" << "\"C:\\Apps\\\\\"";
    QTest::newRow("two trailing backslashes doubled") << "a\\\\" << "\"a\\\\\\\\\"";
    QTest::newRow("embedded quote escaped") << "say \"hi\"" << "\"say \\\"hi\\\"\"";
    QTest::newRow("backslashes before a quote become 2n+1") << "a\\\"b" << "\"a\\\\\\\"b\"";
    QTest::newRow("inner backslashes untouched") << "C:\\a\\b" << "\"C:\\a\\b\"";
    QTest::newRow("non-ASCII kept") << QString::fromUtf8("Пользователь\\データ") << QString::fromUtf8("\"Пользователь\\データ\"");
}

void SystemTest::quoting()
{
    QFETCH(QString, argument);
    QFETCH(QString, quoted);
    QCOMPARE(WindowsCommandLine::quote(argument), quoted);
#ifdef Q_OS_WIN
    // The real parser must give back exactly what we quoted, also among other arguments.
    const QStringList list { QStringLiteral("prog.exe"), argument, QStringLiteral("tail\\"), argument };
    const QString line = WindowsCommandLine::join(list);
    int count = 0;
    LPWSTR *parsed = CommandLineToArgvW(reinterpret_cast<const wchar_t *>(line.utf16()), &count);
    QVERIFY(parsed);
    QStringList back;
    for (int i = 0; i < count; ++i)
        back << QString::fromWCharArray(parsed[i]);
    LocalFree(parsed);
    QCOMPARE(back, list);
#endif
}

void SystemTest::removalNeverFollowsALink_data()
{
    QTest::addColumn<QString>("linkAt");
    QTest::addColumn<bool>("refused");
    QTest::newRow("a plain tree with a read-only file goes whole") << "" << false;
    QTest::newRow("a directory link deep inside is not entered") << "a/b/escape" << false;
    QTest::newRow("a tree that is itself a link loses only the link") << "." << false;
    QTest::newRow("a link among the tree's ancestors refuses the removal") << ".." << true;
}

void SystemTest::removalNeverFollowsALink()
{
    QFETCH(QString, linkAt);
    QFETCH(bool, refused);
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString canaries = temp.filePath(QStringLiteral("canaries"));
    QVERIFY(TestFiles::write(canaries + QStringLiteral("/precious.txt"), "keep") && TestFiles::write(canaries + QStringLiteral("/sub/deeper.txt"), "keep too"));
    const QStringList canariesBefore = TestFiles::below(canaries, true);
    const QString parent = temp.filePath(linkAt == QLatin1String("..") ? QStringLiteral("real-parent") : QStringLiteral("parent"));
    QString tree = parent + QStringLiteral("/tree");
    QVERIFY(TestFiles::write(tree + QStringLiteral("/a/b/file.dll"), "own") && TestFiles::write(tree + QStringLiteral("/top.txt"), "own"));
    QVERIFY(QFile::setPermissions(tree + QStringLiteral("/top.txt"), QFileDevice::ReadOwner));
    QString link;
    if (linkAt == QLatin1String("..")) {
        link = temp.filePath(QStringLiteral("parent"));
        QVERIFY(TestLinks::makeDirectoryLink(parent, link));
        tree = link + QStringLiteral("/tree");
    } else if (linkAt == QLatin1String(".")) {
        link = temp.filePath(QStringLiteral("parent/linked-tree"));
        QVERIFY(TestLinks::makeDirectoryLink(canaries, link));
        tree = link;
    } else if (!linkAt.isEmpty()) {
        link = tree + QLatin1Char('/') + linkAt;
        QVERIFY(TestLinks::makeDirectoryLink(canaries, link));
    }
    const QStringList treeBefore = TestFiles::below(tree, true);

    QStringList links;
    const bool removed = FileLinks::removeTree(tree, &links);
    QCOMPARE(TestFiles::below(canaries, true), canariesBefore);
    if (refused) {
        QVERIFY(!removed);
        QCOMPARE(TestFiles::below(tree, true), treeBefore);
        return;
    }
    QCOMPARE(links, link.isEmpty() ? QStringList() : QStringList { link });
#ifdef Q_OS_WIN
    // Wine opens a Unix symlink's target even when asked for the link, so it leaves such links
    // where they are; Windows removes the link itself.
    if (!removed && !link.isEmpty())
        return;
#endif
    QVERIFY(removed);
    QVERIFY(!FileLinks::exists(tree));
}

// Paths relative to a directory holding "root/a", "root.backup/a", "elsewhere", the directory
// links "root.backup/link", "root/a/link" and "shared-link" to "elsewhere" and a "dangling" link;
// under Wine the harness's "C:/brisa-link-fixture/dir-link" leads to ".../real". Paths checked
// together share the look at their common directories; a link in any path's own part, or in the
// shared part, must still be found whichever path comes first.
void SystemTest::links_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("paths"); // separated by "|"
    QTest::addColumn<bool>("found");
    const auto row = [](const char *name, const char *rule, const char *paths, bool found) { QTest::newRow(name) << rule << paths << found; };
    row("a directory is no link", "isLink", "root/a", false);
    row("a missing path is no link", "isLink", "missing", false);
    row("a path not made yet below plain directories has no link", "pathHasLink", "root/a/not-yet", false);
#ifdef Q_OS_WIN
    row("a directory link is a link", "isLink", "C:/brisa-link-fixture/dir-link", true);
    row("a path below a directory link has a link", "pathHasLink", "C:/brisa-link-fixture/dir-link/inner/x.txt", true);
    row("the link's target has none", "pathHasLink", "C:/brisa-link-fixture/real/inner/x.txt", false);
#else
    row("a directory link is a link", "isLink", "shared-link", true);
    row("a path below a directory link has a link", "pathHasLink", "shared-link/inner/file.txt", true);
    row("a dangling link is a link", "isLink", "dangling", true);
    row("a dangling link exists", "exists", "dangling", true);
    row("both plain", "anyPathHasLink", "root/a/file|root.backup/a/file", false);
    row("second runs through a link", "anyPathHasLink", "root/a/file|root.backup/link/file", true);
    row("first runs through a link", "anyPathHasLink", "root.backup/link/file|root/a/file", true);
    row("same directory, second is the link", "anyPathHasLink", "root/a/file|root/a/link", true);
    row("shared parent is the link", "anyPathHasLink", "shared-link/a/file|shared-link/b/file", true);
    row("same path twice", "anyPathHasLink", "root/a/file|root/a/file", false);
#endif
}

void SystemTest::links()
{
    QFETCH(QString, rule);
    QFETCH(QString, paths);
    QFETCH(bool, found);
    QTemporaryDir temp;
    for (const char *directory : { "root/a", "root.backup/a", "elsewhere" })
        QVERIFY(QDir().mkpath(temp.filePath(QLatin1String(directory))));
#ifndef Q_OS_WIN
    for (const char *at : { "root.backup/link", "root/a/link", "shared-link" })
        QVERIFY(::symlink(QFile::encodeName(temp.filePath(QStringLiteral("elsewhere"))).constData(), QFile::encodeName(temp.filePath(QLatin1String(at))).constData()) == 0);
    QVERIFY(::symlink("/nonexistent/target", QFile::encodeName(temp.filePath(QStringLiteral("dangling"))).constData()) == 0);
#endif
    QStringList list = paths.split(QLatin1Char('|'));
    for (QString &path : list)
        path = path.startsWith(QLatin1String("C:")) ? path : temp.filePath(path);
    if (rule == QLatin1String("isLink"))
        QCOMPARE(FileLinks::isLink(list[0]), found);
    else if (rule == QLatin1String("exists"))
        QCOMPARE(FileLinks::exists(list[0]), found);
    else if (rule == QLatin1String("pathHasLink"))
        QCOMPARE(FileLinks::pathHasLink(list[0]), found);
    else // the shared look agrees with the paths checked one by one
        QVERIFY(FileLinks::anyPathHasLink({ list[0], list[1] }) == found
                && (FileLinks::pathHasLink(list[0]) || FileLinks::pathHasLink(list[1])) == found);
}

void SystemTest::sha256_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QList<int>>("pieces"); // sizes fed one after another; the rest comes last
    QTest::addColumn<QByteArray>("digest");
    QByteArray pattern(1048577, Qt::Uninitialized);
    for (int i = 0; i < pattern.size(); ++i)
        pattern[i] = char((i * 7 + 3) & 0xff);
    const QByteArray empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    const QByteArray abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const QByteArray big = "75059752ce0b546127d584a3992627babb59950933c6d82d10ad46fec48e7c96";
    QTest::newRow("nothing at all") << QByteArray() << QList<int>() << empty;
    QTest::newRow("abc") << QByteArray("abc") << QList<int>() << abc;
    QTest::newRow("abc fed a byte and then two") << QByteArray("abc") << QList<int>{1, 0} << abc;
    QTest::newRow("a block pattern one byte over a mebibyte") << pattern << QList<int>() << big;
    QTest::newRow("the same pattern fed in uneven pieces") << pattern << QList<int>{1, 63, 65, 524288} << big;
}

void SystemTest::sha256()
{
    QFETCH(QByteArray, data);
    QFETCH(QList<int>, pieces);
    QFETCH(QByteArray, digest);
    Sha256 hash;
    qsizetype fed = 0;
    for (int piece : pieces) {
        hash.addData(QByteArrayView(data).sliced(fed, piece));
        fed += piece;
    }
    hash.addData(QByteArrayView(data).sliced(fed));
    QCOMPARE(hash.hexResult(), digest);

    QTemporaryDir dir;
    QVERIFY(TestFiles::write(dir.filePath("content"), data));
    QCOMPARE(Sha256::fileDigest(dir.filePath("content")), QString::fromLatin1(digest));
    QCOMPARE(Sha256::fileDigest(dir.filePath("missing")), QString());
}

void SystemTest::desktopUserRegistryPaths()
{
    const QString sid = DesktopUser::sid();
#ifdef Q_OS_WIN
    // Wine has a shell window owned by explorer, so the desktop user is found as on Windows.
    QVERIFY(DesktopUser::token());
    QVERIFY2(sid.startsWith(QLatin1String("S-1-5-")), qPrintable(sid));
#endif
    if (sid.isEmpty()) {
        QVERIFY(DesktopUser::uninstallKey().isEmpty());
    } else {
        QCOMPARE(DesktopUser::uninstallKey(),
                 QStringLiteral("HKEY_USERS\\") + sid + QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker"));
    }
}

#ifdef Q_OS_WIN

// Words of `setup`: the desktop token is "elevated", of type "full" or "limited", has a "linked"
// token, gives a "short-elevation" or "short-link" read, "fails-type" reads, or claims a "big-user"
// record; the linked token is of "linked:session-2", of "linked:other-user" or "linked:elevated";
// "fails:duplicate", "fails:environment" and "fails:create" fail those calls; "no-token" launches
// without a desktop token; "url" passes an address to open.
void SystemTest::launchChoosesTheToken_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("stage");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<uint>("error");
    QTest::addColumn<bool>("launchElevated");
    QTest::addColumn<int>("startedWith"); // 0: the desktop token, 1: the linked one
    const auto row = [](const char *name, const char *setup, const char *stage, const char *mode, uint error, bool elevated, int token) {
        QTest::newRow(name) << setup << stage << mode << error << elevated << token;
    };
    row("an administrator under UAC starts the product with the linked standard token", "elevated full linked", "complete", "linked_standard", 0, false, 1);
    row("with UAC turned off the product starts elevated with the desktop token", "elevated", "complete", "desktop_elevated_no_link", 0, true, 0);
    row("a standard user's own token is used", "", "complete", "desktop_standard", 0, false, 0);
    row("an address to open follows the program as one quoted argument", "url", "complete", "desktop_standard", 0, false, 0);
    row("a limited token that is not elevated is used as it is", "limited", "complete", "desktop_standard", 0, false, 0);
    row("a limited token that claims elevation is refused", "limited elevated", "validate_desktop_token", "unresolved", 13, true, -1);
    row("a linked token of another session is refused", "elevated full linked linked:session-2", "validate_linked_token", "unresolved", 13, true, -1);
    row("a linked token of another user is refused", "elevated full linked linked:other-user", "validate_linked_token", "unresolved", 13, true, -1);
    row("an elevated linked token is refused", "elevated full linked linked:elevated", "validate_linked_token", "unresolved", 13, true, -1);
    row("a full token without a linked handle fails as an invalid handle", "elevated full", "linked_token", "unresolved", 6, true, -1);
    row("a short elevation read is invalid data", "short-elevation", "desktop_elevation", "unresolved", 13, false, -1);
    row("a failing elevation read gives its Windows error", "fails-type", "desktop_elevation", "unresolved", 5, false, -1);
    row("a short linked-token read is invalid data", "elevated full linked short-link", "linked_token", "unresolved", 13, true, -1);
    row("user information over 64 KiB is refused", "big-user", "desktop_identity", "unresolved", 1312, false, -1);
    row("a failed duplication stops before any process", "elevated full linked fails:duplicate", "duplicate_token", "linked_standard", 5, false, -1);
    row("a failed environment stops before any process", "elevated full linked fails:environment", "create_environment", "linked_standard", 8, false, -1);
    row("a failed start reports the start's error", "elevated full linked fails:create", "create_process", "linked_standard", 2, false, 1);
    row("no desktop token leaves the launch unresolved", "no-token", "desktop_token", "unresolved", 1312, false, -1);
}

void SystemTest::launchChoosesTheToken()
{
    QFETCH(QString, setup);
    QFETCH(QString, stage);
    QFETCH(QString, mode);
    QFETCH(uint, error);
    QFETCH(bool, launchElevated);
    QFETCH(int, startedWith);
    const QStringList words = setup.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    FakeToken desktop;
    desktop.elevated = words.contains("elevated");
    desktop.type = words.contains("full") ? TokenElevationTypeFull : words.contains("limited") ? TokenElevationTypeLimited : TokenElevationTypeDefault;
    desktop.hasLinked = words.contains("linked");
    desktop.shortRead = words.contains("short-elevation") ? TokenElevation : words.contains("short-link") ? TokenLinkedToken : desktop.shortRead;
    desktop.failing = words.contains("fails-type") ? TokenElevationType : desktop.failing;
    desktop.userInfoSize = words.contains("big-user") ? 65537 : 0;
    FakeToken linked;
    linked.type = TokenElevationTypeLimited;
    linked.session = words.contains("linked:session-2") ? 2 : 1;
    linked.sid = words.contains("linked:other-user") ? QStringLiteral("S-1-5-21-1-2-3-1002") : linked.sid;
    linked.elevated = words.contains("linked:elevated");
    FakeLaunchWorld world;
    world.tokens = { desktop, linked };
    world.failDuplicate = words.contains("fails:duplicate");
    world.failEnvironment = words.contains("fails:environment");
    world.createProcessError = words.contains("fails:create") ? ERROR_FILE_NOT_FOUND : 0;
    const QStringList arguments = words.contains("url") ? QStringList { "https://example.invalid/a b?c=\"d\"" } : QStringList();
    quint64 pid = 99;
    quint32 windowsError = 99;
    DesktopUser::LaunchDiagnostics diagnostics;
    const bool started = DesktopUser::launchWithDesktopToken(words.contains("no-token") ? nullptr : world.handleFor(0),
                                                             QStringLiteral("C:/Program Files/Brisa Linker/brisalinker.exe"),
                                                             QStringLiteral("C:/Program Files/Brisa Linker/"), &pid, &windowsError,
                                                             &diagnostics, fakeLaunchApi(&world), arguments);
    QCOMPARE(started, stage == QLatin1String("complete"));
    QCOMPARE(diagnostics.stage, stage);
    QCOMPARE(diagnostics.mode, mode);
    QCOMPARE(windowsError, error);
    QCOMPARE(diagnostics.launchElevated, launchElevated);
    QCOMPARE(world.startedWith, startedWith);
    QCOMPARE(pid, started ? quint64(4242) : quint64(0));
    // Whatever happened, an environment block that was made is destroyed exactly once.
    QCOMPARE(world.environmentsDestroyed, world.environmentsCreated);
    if (!QStringList { "desktop_token", "desktop_elevation", "desktop_identity" }.contains(stage))
        QCOMPARE(diagnostics.user, QStringLiteral("S-1-5-21-1-2-3-1001"));
    if (startedWith < 0)
        return;
    // A quoted program path, then each argument quoted, started on the user's desktop.
    QCOMPARE(world.applicationName, QStringLiteral("C:\\Program Files\\Brisa Linker\\brisalinker.exe"));
    QCOMPARE(world.commandLine, QStringLiteral("\"C:\\Program Files\\Brisa Linker\\brisalinker.exe\"")
                                    + (arguments.isEmpty() ? QString() : QStringLiteral(" \"https://example.invalid/a b?c=\\\"d\\\"\"")));
    QCOMPARE(world.workingDirectory, QStringLiteral("C:\\Program Files\\Brisa Linker\\"));
    QCOMPARE(world.desktop, QStringLiteral("winsta0\\default"));
    QCOMPARE(world.logonFlags, DWORD(LOGON_WITH_PROFILE));
    QVERIFY(world.creationFlags & CREATE_UNICODE_ENVIRONMENT);
}

void SystemTest::launchAsTheRealDesktopUser()
{
    // The real token and the real CreateProcessWithTokenW: Wine's administrator token decides
    // which branch is taken; whichever it is, the program must start as the desktop user.
    const QString program = QStringLiteral("C:/windows/system32/hostname.exe");
    if (!QFileInfo::exists(program))
        QSKIP("no hostname.exe in this Windows");
    quint64 pid = 0;
    quint32 error = 0;
    DesktopUser::LaunchDiagnostics diagnostics;
    const bool ok = DesktopUser::launchWithDesktopToken(DesktopUser::token(), program, QStringLiteral("C:/windows"),
                                                        &pid, &error, &diagnostics);
    qInfo("stage=%s mode=%s error=%u desktop_elevated=%d launch_elevated=%d", qPrintable(diagnostics.stage),
          qPrintable(diagnostics.mode), error, diagnostics.desktopElevated, diagnostics.launchElevated);
    QVERIFY(ok);
    QVERIFY(pid != 0);
    QCOMPARE(error, quint32(0));
    QCOMPARE(diagnostics.user, DesktopUser::sid());
}

namespace {

QString shellLinkText(IShellLinkW *link, HRESULT (STDMETHODCALLTYPE IShellLinkW::*get)(LPWSTR, int))
{
    wchar_t text[MAX_PATH + 1] = {};
    return SUCCEEDED((link->*get)(text, MAX_PATH)) ? QString::fromWCharArray(text) : QString();
}

// A scratch classes root, so the scheme rows never touch the user's real registration.
struct ScratchClasses
{
    HKEY key = nullptr;
    ScratchClasses()
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\BrisaLinkerTest\\Classes");
        RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\BrisaLinkerTest\\Classes", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    }
    ~ScratchClasses()
    {
        RegCloseKey(key);
        RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\BrisaLinkerTest\\Classes");
    }
    void set(const std::wstring &subkey, const wchar_t *name, const std::wstring &text) const
    {
        RegSetKeyValueW(key, subkey.c_str(), name, REG_SZ, text.c_str(), DWORD((text.size() + 1) * sizeof(wchar_t)));
    }
};

} // namespace

void SystemTest::shortcutReadsBackThroughTheShell()
{
    const QString target = QStringLiteral("C:/Program Files/BrisaLinker/brisalinker.exe");
    const QString name = QStringLiteral("Brisa-Linker test shortcut.lnk");
    QVERIFY(Shortcuts::createShortcut(Shortcuts::Folder::Desktop, target, QStringLiteral("C:/Program Files/BrisaLinker"), target, name));
    const QString path = Shortcuts::shortcutFilePath(Shortcuts::Folder::Desktop, name);
    const auto removed = qScopeGuard([&] { Shortcuts::removeShortcutFile(path); });

    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    IShellLinkW *link = nullptr;
    IPersistFile *file = nullptr;
    QVERIFY(SUCCEEDED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&link))));
    QVERIFY(SUCCEEDED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&file))));
    QVERIFY(SUCCEEDED(file->Load(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()), STGM_READ)));
    wchar_t text[MAX_PATH + 1] = {};
    QVERIFY(SUCCEEDED(link->GetPath(text, MAX_PATH, nullptr, SLGP_RAWPATH)));
    QCOMPARE(QString::fromWCharArray(text), QStringLiteral("C:\\Program Files\\BrisaLinker\\brisalinker.exe"));
    QCOMPARE(shellLinkText(link, &IShellLinkW::GetWorkingDirectory), QStringLiteral("C:\\Program Files\\BrisaLinker"));
    QCOMPARE(shellLinkText(link, &IShellLinkW::GetDescription), QStringLiteral("Brisa-Linker"));
    int icon = -1;
    QVERIFY(SUCCEEDED(link->GetIconLocation(text, MAX_PATH, &icon)));
    QCOMPARE(QString::fromWCharArray(text), QStringLiteral("C:\\Program Files\\BrisaLinker\\brisalinker.exe"));
    QCOMPARE(icon, 0);
    file->Release();
    link->Release();
    CoUninitialize();

    // Captured whole, removed, and put back byte for byte.
    Shortcuts::ShortcutSnapshot snapshot;
    QVERIFY(Shortcuts::captureShortcutFile(path, &snapshot));
    QVERIFY(snapshot.existed);
    QVERIFY(Shortcuts::removeShortcutFile(path));
    QVERIFY(Shortcuts::removeShortcutFile(path)); // already gone counts as removed
    QVERIFY(Shortcuts::restoreShortcutFile(snapshot));
    Shortcuts::ShortcutSnapshot restored;
    QVERIFY(Shortcuts::captureShortcutFile(path, &restored));
    QCOMPARE(restored.content, snapshot.content);
}

void SystemTest::captureRefusesWhatNoShortcutOfOursIs_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("a missing shortcut is captured as absent") << "missing" << true;
    QTest::newRow("a shortcut of exactly 4 MiB is captured") << "4 MiB" << true;
    QTest::newRow("a shortcut over 4 MiB is refused") << "over 4 MiB" << false;
    QTest::newRow("a directory is refused") << "directory" << false;
    QTest::newRow("a directory link is refused, never followed") << "link" << false;
}

void SystemTest::captureRefusesWhatNoShortcutOfOursIs()
{
    QFETCH(QString, kind);
    QFETCH(bool, accepted);
    QTemporaryDir temp;
    QString path = temp.filePath(QStringLiteral("Brisa-Linker.lnk"));
    if (kind.endsWith(QLatin1String("MiB"))) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(4194304 + (kind.startsWith(QLatin1String("over")) ? 1 : 0)));
    } else if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkpath(path));
    } else if (kind == QLatin1String("link")) {
        path = QStringLiteral("C:/brisa-link-fixture/dir-link");
        QVERIFY(FileLinks::isLink(path));
    }
    Shortcuts::ShortcutSnapshot snapshot;
    QCOMPARE(Shortcuts::captureShortcutFile(path, &snapshot), accepted);
    QCOMPARE(snapshot.existed, accepted && kind != QLatin1String("missing"));
}

void SystemTest::urlSchemeRegistration_data()
{
    QTest::addColumn<QString>("before"); // "none" or "other": another program's scheme
    QTest::addColumn<QString>("executable");
    QTest::addColumn<QString>("afterApply"); // "", "recapture" or "takeover"
    QTest::addColumn<int>("applyResult");
    QTest::addColumn<int>("expected"); // of the second capture or the rollback
    QTest::addColumn<QString>("command");

    const QString launcher = QStringLiteral("C:\\Apps\\BrisaLinker\\brisalinker.exe");
    QTest::newRow("a wrong file name writes nothing")
        << "other" << "C:\\Apps\\BrisaLinker\\notepad.exe" << "" << 87 << 0 << "";
    QTest::newRow("a second capture is refused") << "none" << launcher << "recapture" << 0 << 5023 << "";
    QTest::newRow("a marker rewritten by another installer wins over the rollback")
        << "other" << launcher << "takeover" << 0 << 170 << "";
    QTest::newRow("a UNC path is registered in its plain form")
        << "none" << "\\\\?\\UNC\\server\\share\\BrisaLinker\\brisalinker.exe" << "" << 0 << 0
        << "\"\\\\server\\share\\BrisaLinker\\brisalinker.exe\" \"%1\"";
    QTest::newRow("a scheme that did not exist is removed completely") << "none" << launcher << "" << 0 << 0 << "";
    QTest::newRow("another program's scheme comes back value for value") << "other" << launcher << "" << 0 << 0 << "";
}

void SystemTest::urlSchemeRegistration()
{
    QFETCH(QString, before);
    QFETCH(QString, executable);
    QFETCH(QString, afterApply);
    QFETCH(int, applyResult);
    QFETCH(int, expected);
    QFETCH(QString, command);
    const ScratchClasses classes;
    QVERIFY(classes.key);
    if (before == QLatin1String("other")) {
        classes.set(L"brisalinker", nullptr, L"URL:Other");
        classes.set(L"brisalinker\\shell\\open\\command", nullptr, L"\"C:\\Other\\other.exe\" \"%1\"");
        classes.set(L"brisalinker\\shell\\open\\command", L"DelegateExecute", L"{00000000-0000-0000-0000-000000000000}");
    }
    const QStringList original = TestRegistry::dump(classes.key);

    UrlProtocol::Registration registration(classes.key);
    QCOMPARE(registration.capture(), 0L);
    QCOMPARE(registration.apply(executable.toStdWString()), long(applyResult));
    if (applyResult != 0) {
        QCOMPARE(TestRegistry::dump(classes.key), original);
        return;
    }
    const QStringList applied = TestRegistry::dump(classes.key);
    QVERIFY(applied.join('\n').contains(QStringLiteral("URL Protocol 1")));
    QVERIFY(!applied.join('\n').contains(QStringLiteral("DelegateExecute")));
    if (!command.isEmpty()) {
        wchar_t text[512] = {};
        DWORD size = sizeof(text);
        QCOMPARE(RegGetValueW(classes.key, L"brisalinker\\shell\\open\\command", nullptr, RRF_RT_REG_SZ, nullptr, text, &size), ERROR_SUCCESS);
        QCOMPARE(QString::fromWCharArray(text), command);
    }
    if (afterApply == QLatin1String("recapture")) {
        QCOMPARE(registration.capture(), long(expected));
        return;
    }
    if (afterApply == QLatin1String("takeover"))
        classes.set(L"brisalinker", L"BrisaLinkerInstallerRegistration", L"another installer's run");
    const QStringList beforeRollback = TestRegistry::dump(classes.key);
    QCOMPARE(registration.rollback(), long(expected));
    QCOMPARE(TestRegistry::dump(classes.key), expected == 0 ? original : beforeRollback);
}

#endif

QTEST_GUILESS_MAIN(SystemTest)
