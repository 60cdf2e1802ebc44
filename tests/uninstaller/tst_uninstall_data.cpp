#include "support/test_files.h"
#include "uninstaller/uninstall_data.h"

#include <QTemporaryDir>
#include <QTest>

class UninstallDataTest : public QObject
{
    Q_OBJECT

private slots:
    void written_data();
    void written();
    void installedEntriesAreCarriedForward_data();
    void installedEntriesAreCarriedForward();
};

void UninstallDataTest::written_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("directories");
    QTest::addColumn<QByteArray>("content"); // "earlier": refused, the earlier list stays as it was

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
    const QByteArray refused("earlier");
    for (const char *unsafe : { "bin//x.dll", "./x.dll", "a/../b", "a\\..\\..\\b", "C:x", "x.dll:evil", "/etc/passwd", "bin/", "" })
        QTest::addRow("an unsafe path writes nothing: \"%s\"", unsafe) << QStringList { QString::fromLatin1(unsafe) } << QStringList {} << refused;
    QTest::newRow("an unsafe directory writes nothing") << QStringList { "ok.dll" } << QStringList { "../up" } << refused;
}

void UninstallDataTest::written()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, directories);
    QFETCH(QByteArray, content);
    QTemporaryDir staging;
    const QString list = staging.filePath(QStringLiteral("uninstall.dat"));
    QVERIFY(TestFiles::write(list, "earlier"));
    QCOMPARE(UninstallData::writeUninstallData(staging.path(), files, directories), content != "earlier");
    QCOMPARE(TestFiles::read(list), content);
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
    for (const char *name : { "1.5.0/bl-core.exe", "readme.txt" })
        QVERIFY(TestFiles::write(install.filePath(QString::fromLatin1(name)), {}));
    QTemporaryDir outside;
    if (list.contains("linked/")) {
#ifdef Q_OS_WIN
        QSKIP("Windows code cannot make links under Wine; the uninstaller test covers them");
#else
        QVERIFY(TestFiles::write(outside.filePath(QStringLiteral("victim.txt")), {}));
        QVERIFY(QFile::link(outside.path(), install.filePath(QStringLiteral("linked"))));
#endif
    }
    if (list != "!none")
        QVERIFY(TestFiles::write(install.filePath(QStringLiteral("uninstall.dat")), list.startsWith('!') ? list.mid(1) : "BRISALINKER_UNINSTALL_V1\n" + list));
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
