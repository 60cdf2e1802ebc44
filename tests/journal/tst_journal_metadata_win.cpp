// The registry values and shortcuts that a rollback puts back, on Windows only: the uninstall
// entry, the desktop shortcut and the URL scheme, and the cases where another installation has
// taken them over since and must win.
#include "tst_journal.h"

#include "journal/overlay_transaction.h"
#include "system/desktop_user.h"
#include "system/url_protocol.h"
#include "support/tree_fixture.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QScopeGuard>
#include <QTest>

#include <windows.h>
#include <objbase.h>
#include <shobjidl.h>

namespace {

const QString uninstallKeyOf()
{
    return DesktopUser::uninstallKey();
}

HKEY classesKey(const QString &subkey)
{
    HKEY key = nullptr;
    const std::wstring path = DesktopUser::sid().toStdWString() + L"_Classes\\" + subkey.toStdWString();
    RegCreateKeyExW(HKEY_USERS, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    return key;
}

void setClassesString(const QString &subkey, const QString &name, const QString &value)
{
    const HKEY key = classesKey(subkey);
    const std::wstring text = value.toStdWString();
    RegSetValueExW(key, name.isEmpty() ? nullptr : reinterpret_cast<const wchar_t *>(name.utf16()), 0, REG_SZ,
                   reinterpret_cast<const BYTE *>(text.c_str()), DWORD((text.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
}

QString classesString(const QString &subkey)
{
    const HKEY key = classesKey(subkey);
    wchar_t buffer[512] = {};
    DWORD size = sizeof(buffer) - sizeof(wchar_t);
    const LSTATUS status = RegQueryValueExW(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE *>(buffer), &size);
    RegCloseKey(key);
    return status == ERROR_SUCCESS ? QString::fromWCharArray(buffer) : QString();
}

// A real shell link, as the pipeline writes it.
bool writeShortcut(const QString &path, const QString &target)
{
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    IShellLinkW *link = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, reinterpret_cast<void **>(&link))))
        return false;
    IPersistFile *file = nullptr;
    const bool saved = SUCCEEDED(link->SetPath(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(target).utf16())))
        && SUCCEEDED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void **>(&file)))
        && SUCCEEDED(file->Save(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()), TRUE));
    if (file)
        file->Release();
    link->Release();
    return saved;
}

// The registry and the Desktop outlive a test; every row starts and ends with none of ours.
void forgetRegistrations()
{
    QSettings(DesktopUser::uninstallKey(), QSettings::NativeFormat).remove(QString());
    for (const QString &shortcut : OverlayTransaction::shortcutPaths())
        QFile::remove(shortcut);
    const std::wstring classes = DesktopUser::sid().toStdWString() + L"_Classes\\brisalinker";
    RegDeleteTreeW(HKEY_USERS, classes.c_str());
}

} // namespace

void JournalTest::metadataIsRestoredUnlessTakenOver_data()
{
    QTest::addColumn<QString>("takeover");
    QTest::addColumn<QString>("message");
    QTest::newRow("the uninstall entry, shortcut and URL scheme all come back") << "" << "";
    QTest::newRow("an uninstall entry now naming another installation is left alone")
        << "uninstall" << "Another installation owns the current registration; recovery data was preserved.";
    QTest::newRow("a shortcut rewritten by another application is left alone")
        << "shortcut" << "Another application changed the shortcut; recovery data was preserved.";
    QTest::newRow("a URL command of another installation is left alone")
        << "protocol" << "Another installation changed the URL registration; recovery data was preserved.";
}

void JournalTest::metadataIsRestoredUnlessTakenOver()
{
    QFETCH(QString, takeover);
    QFETCH(QString, message);
    forgetRegistrations();
    const auto forget = qScopeGuard(forgetRegistrations);
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installation(), TreeFixture::payload()));
    const QString launcher = QDir::toNativeSeparators(fixture.root() + "/brisalinker.exe");
    const QString shortcut = OverlayTransaction::shortcutPaths().value(0);
    QVERIFY(!shortcut.isEmpty());

    // What the user had before this installation.
    {
        QSettings entry(uninstallKeyOf(), QSettings::NativeFormat);
        entry.remove(QString());
        entry.setValue("DisplayName", "Brisa-Linker old");
        entry.setValue("InstallLocation", QDir::toNativeSeparators(fixture.root()));
    }
    QVERIFY(TreeFixture::write(shortcut, "the user's own shortcut bytes"));
    setClassesString("brisalinker", QString(), "URL:old");
    setClassesString("brisalinker\\shell\\open\\command", QString(), QString::fromStdWString(UrlProtocol::launchCommand(launcher.toStdWString())));

    OverlayTransaction::State state;
    QVERIFY(OverlayTransaction::begin(fixture.root(), fixture.stage(), &state));
    QVERIFY(OverlayTransaction::metadataStarted(&state));

    // What this installation wrote, or what somebody else wrote over it.
    {
        QSettings entry(uninstallKeyOf(), QSettings::NativeFormat);
        entry.setValue("DisplayName", "Brisa-Linker new");
        entry.setValue("DisplayVersion", "1.4.20");
        if (takeover == QLatin1String("uninstall"))
            entry.setValue("InstallLocation", "C:\\Other\\BrisaLinker");
    }
    QVERIFY(QFile::remove(shortcut));
    if (takeover == QLatin1String("shortcut"))
        QVERIFY(TreeFixture::write(shortcut, "another application's bytes"));
    else
        QVERIFY(writeShortcut(shortcut, fixture.root() + "/brisalinker.exe"));
    setClassesString("brisalinker", QString(), "BrisaLinker URL Protocol");
    if (takeover == QLatin1String("protocol"))
        setClassesString("brisalinker\\shell\\open\\command", QString(), "\"C:\\Other\\brisalinker.exe\" \"%1\"");
    const QByteArray shortcutNow = TreeFixture::read(shortcut);

    QString error;
    QCOMPARE(OverlayTransaction::recover(fixture.root(), &error), message.isEmpty());
    QCOMPARE(error, message);
    const QSettings entry(uninstallKeyOf(), QSettings::NativeFormat);
    if (message.isEmpty()) {
        QCOMPARE(entry.value("DisplayName").toString(), QStringLiteral("Brisa-Linker old"));
        QVERIFY(!entry.contains("DisplayVersion"));
        QCOMPARE(TreeFixture::read(shortcut), QByteArray("the user's own shortcut bytes"));
        QCOMPARE(classesString("brisalinker"), QStringLiteral("URL:old"));
        QVERIFY(!QFile::exists(OverlayTransaction::path(fixture.root())));
        return;
    }
    // The takeover wins and the record stays for a later attempt. The parts restored before the
    // refusal (in the order uninstall entry, shortcut, URL scheme) are the user's again.
    QVERIFY(QFile::exists(OverlayTransaction::path(fixture.root())));
    if (takeover == QLatin1String("uninstall"))
        QCOMPARE(entry.value("InstallLocation").toString(), QStringLiteral("C:\\Other\\BrisaLinker"));
    if (takeover != QLatin1String("protocol"))
        QCOMPARE(TreeFixture::read(shortcut), shortcutNow);
    QCOMPARE(classesString("brisalinker"), QStringLiteral("BrisaLinker URL Protocol"));
}
