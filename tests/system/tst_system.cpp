#include "system/desktop_user.h"
#include "system/file_links.h"
#include "system/windows_command_line.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_WIN
#include <windows.h>
#include <shellapi.h>
#else
#include <unistd.h>
#endif

class SystemTest : public QObject
{
    Q_OBJECT

private slots:
    void quoting_data();
    void quoting();
    void linksAreRecognised();
    void desktopUserRegistryPaths();
};

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

void SystemTest::linksAreRecognised()
{
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString real = temp.filePath(QStringLiteral("real"));
    QVERIFY(QDir().mkpath(real + QStringLiteral("/inner")));
    QVERIFY(!FileLinks::isLink(real));
    QVERIFY(!FileLinks::pathHasLink(real + QStringLiteral("/inner/not-yet")));
    QVERIFY(!FileLinks::isLink(temp.filePath(QStringLiteral("missing"))));
#ifndef Q_OS_WIN
    const QString link = temp.filePath(QStringLiteral("link"));
    QVERIFY(::symlink(QFile::encodeName(real).constData(), QFile::encodeName(link).constData()) == 0);
    QVERIFY(FileLinks::isLink(link));
    QVERIFY(FileLinks::pathHasLink(link + QStringLiteral("/inner/file.txt")));
    const QString dangling = temp.filePath(QStringLiteral("dangling"));
    QVERIFY(::symlink("/nonexistent/target", QFile::encodeName(dangling).constData()) == 0);
    QVERIFY(FileLinks::isLink(dangling));
    QVERIFY(FileLinks::exists(dangling));
#endif
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

QTEST_GUILESS_MAIN(SystemTest)
#include "tst_system.moc"
