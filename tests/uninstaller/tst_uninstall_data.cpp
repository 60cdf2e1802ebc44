#include "uninstaller/uninstall_data.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class UninstallDataTest : public QObject
{
    Q_OBJECT

private slots:
    void written_data();
    void written();
    void anUnsafePathWritesNothing_data();
    void anUnsafePathWritesNothing();
    void installedEntriesAreCarriedForward_data();
    void installedEntriesAreCarriedForward();
};

void UninstallDataTest::written_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("directories");
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("the installer's own files are listed once, even when named already")
        << QStringList { "uninstall.exe", "brisalinker.exe", "uninstall.exe" } << QStringList {}
        << QByteArray("BRISALINKER_UNINSTALL_V1\nF\tbrisalinker.exe\nF\tobs-path-conf.json\nF\tuninstall.dat\nF\tuninstall.exe\n");
    QTest::newRow("files sort by plain comparison, capitals first")
        << QStringList { "b.dll", "B.dll", "a/z.dll", "\xc3\xa9.txt" } << QStringList {}
        << QByteArray("BRISALINKER_UNINSTALL_V1\nF\tB.dll\nF\ta/z.dll\nF\tb.dll\nF\tobs-path-conf.json\nF\tuninstall.dat\nF\tuninstall.exe\nF\t\xc3\xa9.txt\n");
    QTest::newRow("directories deepest first, then longer first")
        << QStringList {} << QStringList { "a", "a/b", "a/bb", "a/b/c" }
        << QByteArray("BRISALINKER_UNINSTALL_V1\nF\tobs-path-conf.json\nF\tuninstall.dat\nF\tuninstall.exe\nD\ta/b/c\nD\ta/bb\nD\ta/b\nD\ta\n");
    QTest::newRow("backslashes become forward slashes")
        << QStringList { "bin\\x.dll" } << QStringList { "bin" }
        << QByteArray("BRISALINKER_UNINSTALL_V1\nF\tbin/x.dll\nF\tobs-path-conf.json\nF\tuninstall.dat\nF\tuninstall.exe\nD\tbin\n");
}

void UninstallDataTest::written()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, directories);
    QFETCH(QByteArray, content);
    QTemporaryDir staging;
    QVERIFY(UninstallData::writeUninstallData(staging.path(), files, directories));
    QFile written(staging.filePath(QStringLiteral("uninstall.dat")));
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), content);
}

void UninstallDataTest::anUnsafePathWritesNothing_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("directories");
    QTest::newRow("a doubled slash") << QStringList { "bin//x.dll" } << QStringList {};
    QTest::newRow("a dot part") << QStringList { "./x.dll" } << QStringList {};
    QTest::newRow("a dot-dot part") << QStringList { "a/../b" } << QStringList {};
    QTest::newRow("a dot-dot part written with backslashes") << QStringList { "a\\..\\..\\b" } << QStringList {};
    QTest::newRow("a drive-relative path") << QStringList { "C:x" } << QStringList {};
    QTest::newRow("an alternate data stream") << QStringList { "x.dll:evil" } << QStringList {};
    QTest::newRow("an absolute path") << QStringList { "/etc/passwd" } << QStringList {};
    QTest::newRow("a trailing slash") << QStringList { "bin/" } << QStringList {};
    QTest::newRow("an empty path") << QStringList { "" } << QStringList {};
    QTest::newRow("an unsafe directory") << QStringList { "ok.dll" } << QStringList { "../up" };
}

void UninstallDataTest::anUnsafePathWritesNothing()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, directories);
    QTemporaryDir staging;
    // An earlier list stays exactly as it was.
    QFile earlier(staging.filePath(QStringLiteral("uninstall.dat")));
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write("earlier");
    earlier.close();
    QVERIFY(!UninstallData::writeUninstallData(staging.path(), files, directories));
    QVERIFY(earlier.open(QIODevice::ReadOnly));
    QCOMPARE(earlier.readAll(), QByteArray("earlier"));
}

void UninstallDataTest::installedEntriesAreCarriedForward_data()
{
    QTest::addColumn<QByteArray>("list"); // without the magic line unless it starts with "!"
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QStringList>("carried"); // files, then "D " directories

    QTest::newRow("entries still there are carried, gone ones dropped")
        << QByteArray("F\t1.5.0/bl-core.exe\nF\t1.5.0/gone.dll\nF\treadme.txt\nD\t1.5.0\nD\tgone\n") << true
        << QStringList { "1.5.0/bl-core.exe", "readme.txt", "D 1.5.0" };
    QTest::newRow("no list carries nothing") << QByteArray("!none") << true << QStringList {};
    QTest::newRow("a wrong magic carries nothing") << QByteArray("!BRISALINKER_UNINSTALL_V2\nF\treadme.txt\n") << false << QStringList {};
    QTest::newRow("a line without its ending carries nothing") << QByteArray("F\treadme.txt") << false << QStringList {};
    QTest::newRow("a path out of the installation carries nothing") << QByteArray("F\treadme.txt\nD\t..\n") << false << QStringList {};
    QTest::newRow("an absolute path carries nothing") << QByteArray("F\t/etc/passwd\n") << false << QStringList {};
    QTest::newRow("an unknown kind of line carries nothing") << QByteArray("X\treadme.txt\n") << false << QStringList {};
    QTest::newRow("a file entry that is now a directory carries nothing") << QByteArray("F\t1.5.0\n") << false << QStringList {};
    QTest::newRow("a path through a link carries nothing") << QByteArray("F\tlinked/victim.txt\n") << false << QStringList {};
}

void UninstallDataTest::installedEntriesAreCarriedForward()
{
    QFETCH(QByteArray, list);
    QFETCH(bool, accepted);
    QFETCH(QStringList, carried);
    QTemporaryDir install;
    QVERIFY(QDir().mkpath(install.filePath(QStringLiteral("1.5.0"))));
    for (const char *name : { "1.5.0/bl-core.exe", "readme.txt" }) {
        QFile file(install.filePath(QString::fromLatin1(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    QTemporaryDir outside;
    if (list.contains("linked/")) {
#ifdef Q_OS_WIN
        QSKIP("Windows code cannot make links under Wine; the uninstaller test covers them");
#else
        QFile victim(outside.filePath(QStringLiteral("victim.txt")));
        QVERIFY(victim.open(QIODevice::WriteOnly));
        QVERIFY(QFile::link(outside.path(), install.filePath(QStringLiteral("linked"))));
#endif
    }
    if (list != "!none") {
        QFile file(install.filePath(QStringLiteral("uninstall.dat")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(list.startsWith('!') ? list.mid(1) : "BRISALINKER_UNINSTALL_V1\n" + list);
    }
    QStringList files { QStringLiteral("untouched on failure") };
    QStringList directories;
    QCOMPARE(UninstallData::installedEntries(install.path(), &files, &directories), accepted);
    if (!accepted) {
        QCOMPARE(files, QStringList { QStringLiteral("untouched on failure") });
        return;
    }
    for (const QString &directory : std::as_const(directories))
        files << QStringLiteral("D ") + directory;
    QCOMPARE(files, carried);
}

QTEST_GUILESS_MAIN(UninstallDataTest)
#include "tst_uninstall_data.moc"
