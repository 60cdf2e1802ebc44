#include "tst_finalize.h"
#include "finalize/installation_processes.h"
#include "support/tree_fixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace InstallationProcesses;

void FinalizeTest::classification_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("required");
    QTest::newRow("the launcher") << "C:/Apps/BrisaLinker/brisalinker.exe" << true;
    QTest::newRow("the updater, written with backslashes") << "C:\\Apps\\BrisaLinker\\updater.exe" << true;
    QTest::newRow("the launcher's name in other case is not the launcher") << "C:/Apps/BrisaLinker/BrisaLinker.EXE" << false;
    QTest::newRow("a version directory's core is obsolete") << "C:/Apps/BrisaLinker/1.4.20/bl-core.exe" << false;
    QTest::newRow("a launcher in a subdirectory is not the launcher") << "C:/Apps/BrisaLinker/sub/brisalinker.exe" << false;
    QTest::newRow("the streamer component") << "C:/Apps/BrisaLinker/OBS-Studio/bin/64bit/Brisa-Linker Streamer64.exe" << true;
    QTest::newRow("components in any case") << "C:/Apps/BrisaLinker/pellacore/Pellacore.exe" << true;
    QTest::newRow("a component of the other root") << "D:/Old/Brisa/Pellacore/Pellacore.exe" << true;
    QTest::newRow("anything else of the other root") << "D:/Old/Brisa/brisalinker.exe" << false;
}

void FinalizeTest::classification()
{
    QFETCH(QString, path);
    QFETCH(bool, required);
    QCOMPARE(isRequired(path, QStringLiteral("C:/Apps/BrisaLinker"), QStringLiteral("D:/Old/Brisa")), required);
}

void FinalizeTest::versionDirectoriesAreSearched()
{
    QTemporaryDir temp;
    for (const char *name : { "1.4.20", "7", "1.x", "2.0" })
        QVERIFY(QDir().mkpath(temp.filePath(name)));
    const QStringList paths = productExecutablePaths(temp.path(), false);
    const auto has = [&](const QString &relative) {
        return paths.contains(QDir::cleanPath(temp.path() + QLatin1Char('/') + relative));
    };
    QCOMPARE(paths.first(), QDir::cleanPath(temp.filePath(QStringLiteral("brisalinker.exe"))));
    QVERIFY(has(QStringLiteral("1.4.20/bl-core.exe")));
    QVERIFY(has(QStringLiteral("2.0/Pellacore/Pellacore.exe")));
    QVERIFY(!has(QStringLiteral("7/bl-core.exe")));
    QVERIFY(!has(QStringLiteral("1.x/bl-core.exe")));
    QCOMPARE(paths.size(), 4 + 2 * 3);
}

void FinalizeTest::eachPathCountsOnce()
{
    const QStringList paths = installationExecutablePaths(QStringLiteral("C:/Apps/BrisaLinker"), QStringLiteral("c:\\apps\\brisalinker\\"), false);
    QCOMPARE(paths.size(), 4);
    QCOMPARE(normalizedWindowsPath(QStringLiteral("C:/Apps/./X/../BrisaLinker//Updater.EXE")), QStringLiteral("c:\\apps\\brisalinker\\updater.exe"));
}

void FinalizeTest::nothingRunningReturnsAtOnce()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(TreeFixture::write(root + QStringLiteral("/brisalinker.exe"), {}) && TreeFixture::write(root + QStringLiteral("/updater.exe"), {}));
    QElapsedTimer timer;
    timer.start();
    QString error;
    QVERIFY(prepareExistingInstallation(root, &error, QString(), QString(), QString()));
    QVERIFY(error.isEmpty());
    // No retry pause of a quarter second or more may happen when nothing runs.
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
}

#ifdef Q_OS_WIN

QProcess *FinalizeTest::startAs(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    if (!QFile::copy(QStringLiteral(BRISA_SLEEPER_EXE), path))
        return nullptr;
    auto *process = new QProcess(this);
    process->start(path, {});
    if (!process->waitForStarted())
        return nullptr;
    m_started << process;
    return process;
}

void FinalizeTest::cleanup()
{
    for (QProcess *process : std::as_const(m_started)) {
        process->kill();
        process->waitForFinished();
        delete process;
    }
    m_started.clear();
}

void FinalizeTest::stopsOnlyTheProductsOwnProcesses()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    QProcess *launcher = startAs(root + QStringLiteral("/brisalinker.exe"));
    QProcess *core = startAs(root + QStringLiteral("/1.2.3/bl-core.exe"));
    QProcess *stranger = startAs(temp.filePath(QStringLiteral("Elsewhere/brisalinker.exe")));
    QProcess *service = startAs(root + QStringLiteral("/WinServices/service/bl-maintenance.exe"));
    QVERIFY(launcher && core && stranger && service);

    const QStringList running = runningInstallProcesses(root, QString());
    QVERIFY2(running.contains(QDir::cleanPath(root + QStringLiteral("/brisalinker.exe")), Qt::CaseInsensitive), qPrintable(running.join(';')));
    QVERIFY(running.contains(QDir::cleanPath(root + QStringLiteral("/1.2.3/bl-core.exe")), Qt::CaseInsensitive));
    QCOMPARE(running.size(), 2);

    QString error;
    QVERIFY2(prepareExistingInstallation(root, &error, QString(), QString(), QString()), qPrintable(error));
    QVERIFY(launcher->waitForFinished(5000));
    QVERIFY(core->waitForFinished(5000));
    QCOMPARE(stranger->state(), QProcess::Running);
    QCOMPARE(service->state(), QProcess::Running); // its service control manager stops it
    QVERIFY(!isProcessRunningAtPath(root + QStringLiteral("/brisalinker.exe")));
}

void FinalizeTest::neverStopsTheInstallerItself()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    const QString updater = root + QStringLiteral("/updater.exe");
    QProcess *installer = startAs(updater);
    QVERIFY(installer);
    QString error;
    // Started as --installer-source from inside the installation: required, yet not stoppable.
    QVERIFY(!prepareExistingInstallation(root, &error, QString(), QDir::toNativeSeparators(updater), QString()));
    QCOMPARE(error, QStringLiteral("Unable to close the existing Brisa-Linker processes."));
    QCOMPARE(installer->state(), QProcess::Running);
}

void FinalizeTest::aLockedExecutableFailsWithinTheDeadline()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("BrisaLinker"));
    const QString updater = root + QStringLiteral("/updater.exe");
    QVERIFY(TreeFixture::write(updater, {}));
    // Held open without sharing, as a process outside our reach would.
    const HANDLE held = CreateFileW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(updater).utf16()), GENERIC_READ, 0,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    QVERIFY(held != INVALID_HANDLE_VALUE);
    QElapsedTimer timer;
    timer.start();
    QString error;
    const bool prepared = prepareExistingInstallation(root, &error, QString(), QString(), QString());
    const qint64 elapsed = timer.elapsed();
    CloseHandle(held);
    QVERIFY(!prepared);
    QCOMPARE(error, QStringLiteral("A Brisa-Linker process is still using installation files. Close it and retry."));
    QVERIFY2(elapsed < 15000, qPrintable(QString::number(elapsed)));
    // Once it is released, the same preparation succeeds.
    QVERIFY(prepareExistingInstallation(root, &error, QString(), QString(), QString()));
}

#endif
