#include "finalize/installer_finalizer.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

void put(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

// Relative path -> SHA-256 of every file under root.
QMap<QString, QByteArray> digests(const QString &root)
{
    QMap<QString, QByteArray> result;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            result.insert(QDir(root).relativeFilePath(path), QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
    }
    return result;
}

struct Package
{
    QStringList files;
    QStringList directories;
};

Package stage(const QString &staging, bool complete)
{
    Package package;
    const QList<QPair<QString, QByteArray>> contents {
        { "brisalinker.exe", "new launcher" }, { "updater.exe", "new updater" },
        { "1.5.0/bl-core.exe", "new core" }, { "1.5.0/data/model.bin", "weights" },
        { "helper.exe", "left out of every installation" },
    };
    for (const auto &[path, content] : contents) {
        put(staging + QLatin1Char('/') + path, content);
        if (path != QLatin1String("helper.exe"))
            package.files << path;
    }
    if (complete) {
        put(staging + QStringLiteral("/cfgdata/version.ini"), "[release]\nversion=1.5.0\n");
        package.files << QStringLiteral("cfgdata/version.ini");
        package.directories << QStringLiteral("cfgdata");
    }
    package.directories << QStringLiteral("1.5.0") << QStringLiteral("1.5.0/data");
    return package;
}

} // namespace

class FinalizerTest : public QObject
{
    Q_OBJECT

private slots:
    void finalizes_data();
    void finalizes();
    void cancelAndCommitExcludeEachOther();
};

void FinalizerTest::finalizes_data()
{
    QTest::addColumn<bool>("completePackage");
    QTest::addColumn<bool>("existing");
    QTest::addColumn<bool>("cancelFirst");
    QTest::addColumn<QString>("failure");

    QTest::newRow("a fresh installation") << true << false << false << QString();
    QTest::newRow("an update over an installation keeps the user's files") << true << true << false << QString();
    QTest::newRow("a package without its version file touches nothing")
        << false << true << false
        << "The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.";
    QTest::newRow("a cancellation before the commit leaves the old installation") << true << true << true << "Installation cancelled.";
}

void FinalizerTest::finalizes()
{
    QFETCH(bool, completePackage);
    QFETCH(bool, existing);
    QFETCH(bool, cancelFirst);
    QFETCH(QString, failure);

    QTemporaryDir temp;
    const QString install = temp.filePath(QStringLiteral("Apps/BrisaLinker"));
    const QString staging = temp.filePath(QStringLiteral("Apps/BrisaLinker.installing-42-7"));
    if (existing) {
        put(install + QStringLiteral("/updater.exe"), "old updater");
        put(install + QStringLiteral("/1.4.0/bl-core.exe"), "old core");
        put(install + QStringLiteral("/user/settings.json"), "the user's own");
    }
    const QMap<QString, QByteArray> before = digests(install);
    const Package package = stage(staging, completePackage);

    InstallerFinalizer finalizer;
    QSignalSpy completed(&finalizer, &InstallerFinalizer::completed);
    QSignalSpy failed(&finalizer, &InstallerFinalizer::failed);
    QSignalSpy progress(&finalizer, &InstallerFinalizer::progressChanged);
    if (cancelFirst)
        QVERIFY(finalizer.requestCancel());
    finalizer.finalize(staging, install, QStringLiteral("1.5.0"), package.files, package.directories, QString());
    QTRY_VERIFY_WITH_TIMEOUT(completed.size() + failed.size() == 1, 60000);

    if (!failure.isEmpty()) {
        QCOMPARE(failed.first().first().toString(), failure);
        QCOMPARE(digests(install), before); // exactly the old installation
        QVERIFY(!QFileInfo::exists(install + QStringLiteral("/.install-transaction.json")));
        return;
    }
    QCOMPARE(completed.size(), 1);
    QCOMPARE(progress.last().first().toInt(), 100);
    const QMap<QString, QByteArray> after = digests(install);
    for (const QString &file : package.files)
        QVERIFY2(after.contains(file), qPrintable(file));
    QVERIFY(after.contains(QStringLiteral("uninstall.exe")));
    QVERIFY(after.contains(QStringLiteral("uninstall.dat")));
    QVERIFY(after.contains(QStringLiteral("obs-path-conf.json")));
    QVERIFY(!after.contains(QStringLiteral("helper.exe")));
    QCOMPARE(after.value(QStringLiteral("brisalinker.exe")), QCryptographicHash::hash("new launcher", QCryptographicHash::Sha256).toHex());
    if (existing) {
        QCOMPARE(after.value(QStringLiteral("user/settings.json")), before.value(QStringLiteral("user/settings.json")));
        QCOMPARE(after.value(QStringLiteral("1.4.0/bl-core.exe")), before.value(QStringLiteral("1.4.0/bl-core.exe")));
    }
    // The journal is retired, staging is gone and no backup directory is left beside the root.
    QVERIFY(!QFileInfo::exists(install + QStringLiteral("/.install-transaction.json")));
    QVERIFY(!QFileInfo::exists(staging));
    const QStringList siblings = QDir(temp.filePath(QStringLiteral("Apps"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(siblings, QStringList { QStringLiteral("BrisaLinker") });
}

void FinalizerTest::cancelAndCommitExcludeEachOther()
{
    InstallerFinalizer finalizer;
    QVERIFY(finalizer.beginCommitPhase());
    QVERIFY(!finalizer.requestCancel()); // too late once the commit phase began
    finalizer.resetCancellation();
    QVERIFY(finalizer.requestCancel());
    QVERIFY(!finalizer.beginCommitPhase()); // a cancellation that came first wins
}

QTEST_GUILESS_MAIN(FinalizerTest)
#include "tst_finalizer.moc"
