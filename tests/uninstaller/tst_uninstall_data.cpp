#include "uninstaller/uninstall_data.h"

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

QTEST_GUILESS_MAIN(UninstallDataTest)
#include "tst_uninstall_data.moc"
