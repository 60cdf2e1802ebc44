#include "app/app_paths.h"
#include "app/installer_launch.h"
#include "app/installer_logger.h"
#include "app/startup.h"
#include "location/installation_location.h"
#include "support/fake_installation.h"
#include "support/test_files.h"
#include "support/test_links.h"

#include <QtTest>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using InstallerLaunch::Options;
namespace {

const char writerOption[] = "--log-writer";
const int linesPerWriter = 300;

QString dayLog(const QString &root, const QString &suffix = QString())
{
    return QDir(root).filePath(QStringLiteral("installer-%1%2.log").arg(QDate::currentDate().toString(QStringLiteral("yyyyMMdd")), suffix));
}

QStringList readLines(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void writeLines(const QString &root, int writer)
{
    for (int i = 0; i < linesPerWriter; ++i)
        InstallerLogger::writeTo(root, QStringLiteral("writer=%1 line=%2 %3").arg(writer).arg(i).arg(QString(300, QLatin1Char('y'))));
}

} // namespace

class AppTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_temp;

    QString temp(const QString &relative) const { return m_temp.filePath(relative); }

private slots:
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        QTest::addColumn<bool>("silent");
        QTest::addColumn<bool>("manualFallback");
        const QString missingInstallDir = QStringLiteral("Missing or duplicate --install-dir argument.");
        const QString updatePair = QStringLiteral("Update mode requires both --update and --install-dir.");
        const QString fallback = QStringLiteral("Invalid update manual-fallback arguments.");
        const QString legacy = QStringLiteral("Legacy source requires an explicit legacy update target.");
        QTest::newRow("no arguments at all") << QStringList {} << QString() << false << false;
        QTest::newRow("program only") << QStringList { "setup.exe" } << QString() << false << false;
        QTest::newRow("verysilent in capitals still sets silent") << QStringList { "setup.exe", "/VERYSILENT" } << QString() << true << false;
        QTest::newRow("update in capitals is an unknown argument") << QStringList { "setup.exe", "--UPDATE" } << QString() << false << false;
        QTest::newRow("unknown arguments are ignored") << QStringList { "setup.exe", "--colour", "blue", "-x" } << QString() << false << false;
        QTest::newRow("install-dir followed by update never reaches update")
            << QStringList { "setup.exe", "--install-dir", "--update" } << missingInstallDir << false << false;
        QTest::newRow("install-dir as the last argument is then reported as a half pair")
            << QStringList { "setup.exe", "--update", "--install-dir" } << updatePair << false << false;
        QTest::newRow("install-dir given twice")
            << QStringList { "setup.exe", "--update", "--install-dir", "C:/A/BrisaLinker", "--install-dir", "C:/B/BrisaLinker" }
            << missingInstallDir << false << false;
        QTest::newRow("installer-source given twice") << QStringList { "setup.exe", "--installer-source", "web", "--installer-source", "mail" }
                                                      << QStringLiteral("Missing or duplicate --installer-source argument.") << false << false;
        QTest::newRow("legacy-caller-exe without a value") << QStringList { "setup.exe", "/verysilent", "--legacy-caller-exe" }
                                                           << QStringLiteral("Missing or duplicate --legacy-caller-exe argument.") << true << false;
        QTest::newRow("a value may begin with one dash") << QStringList { "setup.exe", "--installer-source", "-web" } << QString() << false << false;
        QTest::newRow("a value may begin with a slash") << QStringList { "setup.exe", "--installer-source", "/web" } << QString() << false << false;
        QTest::newRow("update given twice") << QStringList { "setup.exe", "--update", "--update", "--install-dir", "C:/A/BrisaLinker" }
                                            << QStringLiteral("Duplicate --update argument.") << false << false;
        QTest::newRow("update without its directory") << QStringList { "setup.exe", "--update" } << updatePair << false << false;
        QTest::newRow("directory without update") << QStringList { "setup.exe", "--install-dir", "C:/A/BrisaLinker" } << updatePair << false << false;
        QTest::newRow("legacy manual fallback needs verysilent") << QStringList { "setup.exe", "--legacy-manual-fallback" } << fallback << false << true;
        QTest::newRow("legacy manual fallback with verysilent is accepted")
            << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback" } << QString() << true << true;
        QTest::newRow("update manual fallback alone is accepted") << QStringList { "setup.exe", "--update-manual-fallback" } << QString() << false << true;
        QTest::newRow("update manual fallback refuses verysilent")
            << QStringList { "setup.exe", "/verysilent", "--update-manual-fallback" } << fallback << true << true;
        QTest::newRow("the two manual fallbacks together")
            << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback", "--update-manual-fallback" } << fallback << true << true;
        QTest::newRow("a manual fallback beside an update request overwrites the pair message")
            << QStringList { "setup.exe", "--update", "--update-manual-fallback" } << fallback << false << true;
        QTest::newRow("legacy source without update") << QStringList { "setup.exe", "/verysilent", "--legacy-source-dir", "C:/Old" } << legacy << true << false;
        QTest::newRow("the last broken rule's message is the one reported")
            << QStringList { "setup.exe", "--update", "--legacy-source-dir", "C:/Old", "--update-manual-fallback" } << legacy << false << true;
        QTest::newRow("legacy source beside the legacy manual fallback")
            << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback", "--legacy-source-dir", "C:/Old" } << legacy << true << true;
        // "@dir" is an existing directory that holds no installation.
        QTest::newRow("an update of a directory that is no installation falls back to a manual choice")
            << QStringList { "setup.exe", "--update", "--install-dir", "@dir" } << QString() << false << true;
        QTest::newRow("a silent update of a directory that is no installation falls back too")
            << QStringList { "setup.exe", "--update", "--install-dir", "@dir", "/verysilent" } << QString() << true << true;
    }
    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        QFETCH(bool, silent);
        QFETCH(bool, manualFallback);
        const qsizetype at = arguments.indexOf(QStringLiteral("@dir"));
        if (at >= 0)
            QVERIFY(QDir().mkpath(arguments[at] = temp(QStringLiteral("BrisaLinker"))));
        const Options options = InstallerLaunch::parse(arguments);
        QCOMPARE(options.errorText, error);
        QCOMPARE(options.silent, silent);
        QCOMPARE(options.manualFallback, manualFallback);
        QVERIFY(!options.automaticUpdate); // only start-up sets it
        // A manual choice replaces the update request whole.
        if (error.isEmpty() && manualFallback)
            QVERIFY(!options.update && options.installDirectory.isEmpty() && options.legacySourceDirectory.isEmpty());
    }

    void elevationArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("silent");
        QTest::addColumn<bool>("automaticUpdate");
        QTest::addColumn<bool>("manualFallback");
        QTest::addColumn<QString>("installDirectory");
        QTest::addColumn<QString>("legacySource");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("an ordinary start passes its arguments on") << QStringList { "setup.exe", "--installer-source", "web" }
            << false << false << false << QString() << QString() << QStringList { "--installer-source", "web" };
        QTest::newRow("a silent manual fallback drops the update and names its fallback once")
            << QStringList { "setup.exe", "/verysilent", "--update", "--install-dir", "C:\\A\\BrisaLinker\\", "--legacy-manual-fallback" }
            << true << false << true << QString() << QString() << QStringList { "/verysilent", "--legacy-manual-fallback" };
        QTest::newRow("a silent manual fallback gains the legacy fallback")
            << QStringList { "setup.exe", "/verysilent", "--legacy-source-dir", "C:/Old", "--legacy-caller-exe", "C:/Old/u.exe" }
            << true << false << true << QString() << QString() << QStringList { "/verysilent", "--legacy-caller-exe", "C:/Old/u.exe", "--legacy-manual-fallback" };
        QTest::newRow("an interactive manual fallback gains the update fallback") << QStringList { "setup.exe", "--update", "--install-dir", "D:/X/BrisaLinker" }
            << false << false << true << QString() << QString() << QStringList { "--update-manual-fallback" };
        QTest::newRow("a discovered silent update is handed over explicitly")
            << QStringList { "setup.exe", "/verysilent" } << true << true << false << "C:/Apps/BrisaLinker" << "C:/Old/Brisa"
            << QStringList { "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old/Brisa" };
        QTest::newRow("an explicit silent update is not given a second target")
            << QStringList { "setup.exe", "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old" }
            << true << true << false << "C:/Apps/BrisaLinker" << "C:/Old"
            << QStringList { "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old" };
        QTest::newRow("an interactive automatic update passes its arguments on")
            << QStringList { "setup.exe", "--update", "--install-dir", "C:/Apps/BrisaLinker" } << false << true << false << "C:/Apps/BrisaLinker"
            << QString() << QStringList { "--update", "--install-dir", "C:/Apps/BrisaLinker" };
    }
    void elevationArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, silent);
        QFETCH(bool, automaticUpdate);
        QFETCH(bool, manualFallback);
        QFETCH(QString, installDirectory);
        QFETCH(QString, legacySource);
        QFETCH(QStringList, expected);
        Options options;
        options.silent = silent;
        options.automaticUpdate = automaticUpdate;
        options.manualFallback = manualFallback;
        options.installDirectory = installDirectory;
        options.legacySourceDirectory = legacySource;
        QCOMPARE(InstallerLaunch::elevationArguments(arguments, options), expected);
    }

    void translationName_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("name");
        QTest::newRow("Russian") << QLocale(QLocale::Russian, QLocale::Russia) << "bl_installer_ru_RU";
        QTest::newRow("Spanish of Mexico is still Spanish") << QLocale(QLocale::Spanish, QLocale::Mexico) << "bl_installer_es_ES";
        QTest::newRow("Japanese") << QLocale(QLocale::Japanese, QLocale::Japan) << "bl_installer_ja_JP";
        QTest::newRow("German falls back to English") << QLocale(QLocale::German, QLocale::Germany) << "bl_installer_en_US";
        QTest::newRow("C locale falls back to English") << QLocale::c() << "bl_installer_en_US";
    }
    void translationName()
    {
        QFETCH(QLocale, locale);
        QFETCH(QString, name);
        QCOMPARE(Startup::translationName(locale), name);
    }

    void temporaryRootIsTheFirstUsableCandidate_data()
    {
        QTest::addColumn<QStringList>("candidates");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("an empty candidate is skipped") << QStringList { "", "good" } << "good";
        QTest::newRow("a candidate below a file is skipped") << QStringList { "file.txt/sub", "good" } << "good";
        QTest::newRow("a file in place of the root is skipped") << QStringList { "blocked", "good" } << "good";
        QTest::newRow("a candidate through a directory link is skipped") << QStringList { "@link/LocalAppData/Temp", "good" } << "good";
        QTest::newRow("a relative candidate is skipped") << QStringList { "@relative", "good" } << "good";
        QTest::newRow("a new nested candidate is made, and none after it") << QStringList { "a/b/c", "good" } << "a/b/c";
        QTest::newRow("without a usable candidate there is no root") << QStringList { "blocked" } << "";
    }
    void temporaryRootIsTheFirstUsableCandidate()
    {
        QFETCH(QStringList, candidates);
        QFETCH(QString, chosen);
        QTemporaryDir dir;
        QVERIFY(TestFiles::write(dir.filePath(QStringLiteral("file.txt")), {}));
        QVERIFY(TestFiles::write(dir.filePath(QStringLiteral("blocked/BrisaLinkerInstaller")), {}));
        QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("real"))));
        for (QString &candidate : candidates) {
            if (candidate == QLatin1String("@relative"))
                candidate = QStringLiteral("relative/dir");
            else if (candidate.startsWith(QLatin1String("@link")) && !TestLinks::makeDirectoryLink(dir.filePath(QStringLiteral("real")), dir.filePath(QStringLiteral("link"))))
                QSKIP("no directory link can be made here");
            else if (!candidate.isEmpty())
                candidate = dir.filePath(candidate.replace(QLatin1String("@link"), QLatin1String("link")));
        }
        const QString root = AppPaths::firstUsableTempRoot(candidates);
        QCOMPARE(root, chosen.isEmpty() ? QString() : dir.filePath(chosen + QStringLiteral("/BrisaLinkerInstaller")));
        QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("real/LocalAppData"))));
        QVERIFY(!QFileInfo::exists(QStringLiteral("relative")));
        if (!chosen.isEmpty()) {
            // The probes leave nothing behind, and later candidates are not made.
            const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            QCOMPARE(QDir(root).entryList(all), QStringList { QStringLiteral("log") });
            QCOMPARE(QDir(root + QStringLiteral("/log")).entryList(all), QStringList());
            QCOMPARE(QFileInfo::exists(dir.filePath(QStringLiteral("good"))), chosen == QLatin1String("good"));
        }
    }

    void logLineFormat()
    {
        const QString root = temp(QStringLiteral("format"));
        InstallerLogger::writeTo(root, QStringLiteral("first name=%1").arg(QStringLiteral("value")));
        InstallerLogger::writeTo(root, QString::fromUtf8("второй 二番目"));
        const QStringList lines = readLines(dayLog(root));
        QCOMPARE(lines.size(), 2);
        const QRegularExpression format(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}  (.*)$"));
        QVERIFY2(format.match(lines.at(0)).hasMatch(), qPrintable(lines.at(0)));
        QCOMPARE(format.match(lines.at(0)).captured(1), QStringLiteral("first name=value"));
        QCOMPARE(format.match(lines.at(1)).captured(1), QString::fromUtf8("второй 二番目"));
    }

    void logFallsBackWhenTheDayFileCannotBeOpened()
    {
        const QString root = temp(QStringLiteral("fallback"));
        // A directory in place of the day's file cannot be opened, like a file locked by another
        // process; the line goes to a file of its own instead of being lost.
        QVERIFY(QDir().mkpath(dayLog(root)));
        InstallerLogger::writeTo(root, QStringLiteral("kept"));
        const QStringList fallbacks = QDir(root).entryList(
            { QFileInfo(dayLog(root, QStringLiteral("-[0-9][0-9][0-9][0-9][0-9][0-9]-%1").arg(QCoreApplication::applicationPid()))).fileName() }, QDir::Files);
        QCOMPARE(fallbacks.size(), 1);
        QVERIFY(readLines(QDir(root).filePath(fallbacks.first())).first().endsWith(QLatin1String("  kept")));
#ifndef Q_OS_WIN
        // A link planted as the day's file is refused, not written through: its target stays as it was.
        const QString linkedRoot = temp(QStringLiteral("linked-log"));
        QVERIFY(TestFiles::write(temp(QStringLiteral("target.txt")), "untouched") && QDir().mkpath(linkedRoot));
        QVERIFY(QFile::link(temp(QStringLiteral("target.txt")), dayLog(linkedRoot)));
        InstallerLogger::writeTo(linkedRoot, QStringLiteral("not through the link"));
        QCOMPARE(readLines(temp(QStringLiteral("target.txt"))), QStringList { QStringLiteral("untouched") });
#endif
        // A log root that cannot be created (below a file) loses the line quietly.
        QVERIFY(TestFiles::write(temp(QStringLiteral("plain-file")), {}));
        InstallerLogger::writeTo(temp(QStringLiteral("plain-file/log")), QStringLiteral("lost"));
        QVERIFY(QFileInfo(temp(QStringLiteral("plain-file"))).isFile());
    }

    void concurrentWritersNeverInterleave_data()
    {
        QTest::addColumn<bool>("processes");
        QTest::newRow("six threads of one process") << false;
        QTest::newRow("three processes") << true;
    }
    void concurrentWritersNeverInterleave()
    {
        QFETCH(bool, processes);
        const QString root = temp(processes ? QStringLiteral("processes") : QStringLiteral("threads"));
        const int writers = processes ? 3 : 6;
        std::vector<std::unique_ptr<QThread>> threads;
        std::vector<std::unique_ptr<QProcess>> children;
        for (int w = 0; w < writers; ++w) {
            if (processes) {
                children.push_back(std::make_unique<QProcess>());
                children.back()->start(QCoreApplication::applicationFilePath(), { QString::fromLatin1(writerOption), root, QString::number(w) });
            } else {
                threads.emplace_back(QThread::create([root, w] { writeLines(root, w); }));
                threads.back()->start();
            }
        }
        for (const auto &thread : threads)
            QVERIFY(thread->wait(60000));
        for (const auto &child : children)
            QVERIFY(child->waitForFinished(120000) && child->exitCode() == 0);
        // A writer that finds the day's file momentarily unavailable writes to a file of its own;
        // every line must still be somewhere, whole.
        QSet<QString> seen;
        int lines = 0;
        for (const QString &name : QDir(root).entryList({ QStringLiteral("installer-*.log") }, QDir::Files)) {
            for (const QString &line : readLines(QDir(root).filePath(name))) {
                QVERIFY2(QRegularExpression(QStringLiteral("^\\S+  writer=\\d line=\\d+ y{300}$")).match(line).hasMatch(), qPrintable(line));
                seen.insert(line.section(QLatin1String("  "), 1));
                ++lines;
            }
        }
        QCOMPARE(lines, writers * linesPerWriter);
        QCOMPARE(seen.size(), writers * linesPerWriter);
    }

#ifdef Q_OS_WIN
    // The real installer started as Windows starts it, and closed as a user closes it.
    void installerStartsWhereItCan_data()
    {
        QTest::addColumn<QString>("windowsTemp"); // "blocked" or "usable" when every other temporary directory is refused
        QTest::addColumn<QString>("target");      // an update's directory, after a "+" when it holds an installation
        QTest::addColumn<QString>("firstWindow");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("logged");
        const QString window = QStringLiteral("Brisa-Linker Installer"), notice = QStringLiteral("Choose installation location");
        const QStringList manual { QStringLiteral("Installer update request: target="), QStringLiteral("automatic=0; manual_fallback=1") };
        QTest::newRow("without a writable directory the installer stops") << "blocked" << "" << window << 1 << QStringList();
        QTest::newRow("the Windows directory's temp is the last fallback") << "usable" << "" << window << 0
                                                                           << QStringList { "Desktop user=S-1-5-", "Installer process elevated: yes" };
        QTest::newRow("an installed product is updated automatically") << "" << "+BrisaLinker" << window << -1
                                                                       << QStringList { "Installer update request: target=@target", "automatic=1; manual_fallback=0" };
        QTest::newRow("a directory that is no installation falls back to a manual choice") << "" << "BrisaLinker" << notice << -1 << manual;
        // Never turned into a new installation in a "BrisaLinker" subdirectory of it.
        QTest::newRow("an installation in a directory of another name falls back to a manual choice") << "" << "+Tools" << notice << -1 << manual;
    }
    void installerStartsWhereItCan()
    {
        QFETCH(QString, windowsTemp);
        QFETCH(QString, target);
        QFETCH(QString, firstWindow);
        QFETCH(int, exitCode);
        QFETCH(QStringList, logged);
        QTemporaryDir dir;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // Nothing listens on this port: an automatic update's download fails on this machine.
        environment.insert(QStringLiteral("BRISA_DEV_MANIFEST_URL"), QStringLiteral("https://127.0.0.1:9/manifest.json"));
        QString temporary = dir.filePath(QStringLiteral("temp")), logRoot = temporary + QStringLiteral("/BrisaLinkerInstaller/log");
        const QString cacheBlocker = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QStringLiteral("/BrisaLinkerInstallerCache/BrisaLinkerInstaller");
        const auto unblock = qScopeGuard([&] {
            if (!windowsTemp.isEmpty() && QFile::remove(cacheBlocker))
                QDir().rmdir(QFileInfo(cacheBlocker).path());
        });
        if (!windowsTemp.isEmpty()) {
            // TEMP runs through a directory link, the LocalAppData cache is blocked by a file, and
            // WINDIR points into the test's own directory.
            QVERIFY(!QFileInfo::exists(cacheBlocker) && TestFiles::write(cacheBlocker, {}));
            temporary = QStringLiteral("C:/brisa-link-fixture/dir-link/temp");
            environment.insert(QStringLiteral("WINDIR"), QDir::toNativeSeparators(dir.filePath(QStringLiteral("windows"))));
            logRoot = dir.filePath(QStringLiteral("windows/Temp/BrisaLinkerInstaller/log"));
            if (windowsTemp == QLatin1String("blocked"))
                QVERIFY(TestFiles::write(QFileInfo(logRoot).path(), {}));
        }
        environment.insert(QStringLiteral("TEMP"), QDir::toNativeSeparators(temporary));
        environment.insert(QStringLiteral("TMP"), QDir::toNativeSeparators(temporary));
        QStringList arguments;
        const QString targetPath = dir.filePath(QStringLiteral("Apps/") + QString(target).remove(QLatin1Char('+')));
        if (!target.isEmpty()) {
            arguments << QStringLiteral("--update") << QStringLiteral("--install-dir") << QDir::toNativeSeparators(targetPath);
            QVERIFY(QDir().mkpath(targetPath + QStringLiteral("/cfgdata")));
            if (target.startsWith(QLatin1Char('+')))
                QVERIFY(FakeInstallation::makeUpdatable(targetPath, QStringLiteral(BRISA_FAKE_LAUNCHER_EXE), QStringLiteral("1.2.3")));
        }
        QProcess installer;
        installer.setProcessEnvironment(environment);
        installer.start(QStringLiteral(BRISA_INSTALLER_EXE), arguments);
        QVERIFY(installer.waitForStarted());
        QVERIFY2(awaitWindow(&installer, firstWindow), qPrintable(firstWindow + QStringLiteral(" was not shown")));
        // An update's decision is logged before its first window; what follows is not this test's.
        if (exitCode < 0)
            installer.kill();
        QVERIFY(closeInstaller(&installer));
        if (exitCode >= 0)
            QCOMPARE(installer.exitCode(), exitCode);
        const QString log = readLines(dayLog(logRoot)).join(QLatin1Char('\n'));
        for (const QString &line : logged)
            QVERIFY2(log.contains(QString(line).replace(QLatin1String("@target"), InstallationLocation::normalized(targetPath))), qPrintable(log));
        QVERIFY(!QFileInfo::exists(targetPath + QStringLiteral("/BrisaLinker")));
        QVERIFY(!QFileInfo::exists(QStringLiteral("C:/brisa-link-fixture/real/temp")));
    }

private:
    static HWND processWindow(QProcess *installer, const QString &title)
    {
        struct Search
        {
            DWORD processId;
            QString title;
            HWND found;
        } search { DWORD(installer->processId()), title, nullptr };
        EnumWindows([](HWND window, LPARAM parameter) -> BOOL {
            auto *search = reinterpret_cast<Search *>(parameter);
            DWORD owner = 0;
            GetWindowThreadProcessId(window, &owner);
            wchar_t text[128] = {};
            GetWindowTextW(window, text, 128);
            if (owner != search->processId || !IsWindowVisible(window) || QString::fromWCharArray(text) != search->title)
                return TRUE;
            search->found = window;
            return FALSE;
        }, reinterpret_cast<LPARAM>(&search));
        return search.found;
    }

    static HWND awaitWindow(QProcess *installer, const QString &title)
    {
        for (int i = 0; i < 600 && installer->state() == QProcess::Running; ++i) {
            if (HWND found = processWindow(installer, title))
                return found;
            QTest::qWait(100);
        }
        return nullptr;
    }

    // Closes the installer's windows as a user would with the title bar's close button, a failed
    // download's box first, and answers "Exit installation?" with Yes. A busy Wine can drop keys or
    // the close request, so it is all asked again until the process ends.
    static bool closeInstaller(QProcess *installer)
    {
        for (int i = 0; i < 30 && !installer->waitForFinished(2000); ++i) {
            if (HWND question = processWindow(installer, QStringLiteral("Exit installation?"))) {
                // Cancel has the focus; Tab moves it to Yes and Space presses it.
                for (const auto &[key, scan] : { std::pair<WPARAM, LPARAM>(VK_TAB, 0x000F0001), { VK_SPACE, 0x00390001 } }) {
                    PostMessageW(question, WM_KEYDOWN, key, scan);
                    PostMessageW(question, WM_KEYUP, key, scan | 0xC0000000);
                    QTest::qWait(200);
                }
                continue;
            }
            for (const char *title : { "Download failed", "Brisa-Linker Installer" }) {
                if (HWND window = processWindow(installer, QString::fromLatin1(title)))
                    PostMessageW(window, WM_CLOSE, 0, 0);
            }
        }
        return installer->state() == QProcess::NotRunning;
    }
#endif
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // The concurrency test starts copies of this program as plain log writers.
    if (argc == 4 && qstrcmp(argv[1], writerOption) == 0)
        return writeLines(QString::fromLocal8Bit(argv[2]), atoi(argv[3])), 0;
    AppTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_app.moc"
