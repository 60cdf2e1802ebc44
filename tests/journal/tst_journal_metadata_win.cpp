// The registry values and shortcuts that a rollback puts back, on Windows only: the uninstall
// entry, the shortcuts and the URL scheme, and the cases where another installation has taken
// them over since and must win.
#include "tst_journal.h"

#include "journal/overlay_transaction.h"
#include "support/test_files.h"
#include "support/test_registrations.h"
#include "support/tree_fixture.h"
#include "system/desktop_user.h"
#include "system/shortcuts.h"

#include <QScopeGuard>
#include <QSettings>
#include <QTest>

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
    // The registry and the Desktop outlive a test; every row starts and ends with none of ours.
    TestRegistrations::forget();
    const auto forget = qScopeGuard(TestRegistrations::forget);
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installation(), TreeFixture::payload()));
    QVERIFY(TestRegistrations::plantOlderInstaller(fixture.root()));
    const QMap<QString, QByteArray> before = TestRegistrations::snapshot();
    OverlayTransaction::State state;
    QVERIFY(OverlayTransaction::begin(fixture.root(), fixture.stage(), &state));
    QVERIFY(OverlayTransaction::metadataStarted(&state));

    // What this installation wrote, or what somebody else wrote over it.
    QSettings entry(DesktopUser::uninstallKey(), QSettings::NativeFormat);
    entry.setValue("DisplayName", "Brisa-Linker new");
    entry.setValue("DisplayVersion", "1.4.20");
    if (takeover == QLatin1String("uninstall"))
        entry.setValue("InstallLocation", "C:\\Other\\BrisaLinker");
    entry.sync();
    const QString shortcut = OverlayTransaction::shortcutPaths().value(0);
    const QString launcher = fixture.root() + "/brisalinker.exe";
    if (takeover == QLatin1String("shortcut"))
        QVERIFY(TestFiles::write(shortcut, "another application's bytes"));
    else
        QVERIFY(Shortcuts::createShortcut(Shortcuts::Folder::Desktop, launcher, fixture.base(), launcher, "Brisa-Linker.lnk"));
    const QByteArray shortcutNow = TestFiles::read(shortcut);
    QVERIFY(shortcutNow != before.value("lnk:" + shortcut));
    QSettings scheme("HKEY_USERS\\" + DesktopUser::sid() + "_Classes\\brisalinker", QSettings::NativeFormat);
    scheme.setValue("Default", "BrisaLinker URL Protocol");
    if (takeover == QLatin1String("protocol"))
        scheme.setValue("shell/open/command/Default", "\"C:\\Other\\brisalinker.exe\" \"%1\"");
    scheme.sync();

    QString error;
    QCOMPARE(OverlayTransaction::recover(fixture.root(), &error), message.isEmpty());
    QCOMPARE(error, message);
    if (message.isEmpty()) {
        QCOMPARE(TestRegistrations::snapshot(), before);
        QVERIFY(!QFile::exists(OverlayTransaction::path(fixture.root())));
        return;
    }
    // The takeover wins and the record stays for a later attempt. The parts restored before the
    // refusal (in the order uninstall entry, shortcut, URL scheme) are the user's again.
    QVERIFY(QFile::exists(OverlayTransaction::path(fixture.root())));
    entry.sync();
    scheme.sync();
    if (takeover == QLatin1String("uninstall"))
        QCOMPARE(entry.value("InstallLocation").toString(), QStringLiteral("C:\\Other\\BrisaLinker"));
    else
        QCOMPARE(entry.value("DisplayName").toString(), QStringLiteral("Brisa-Linker 1.4"));
    QCOMPARE(TestFiles::read(shortcut), takeover == QLatin1String("protocol") ? before.value("lnk:" + shortcut) : shortcutNow);
    QCOMPARE(scheme.value("Default").toString(), QStringLiteral("BrisaLinker URL Protocol"));
}
