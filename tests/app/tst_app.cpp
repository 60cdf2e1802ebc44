#include "app/app_paths.h"
#include "app/installer_launch.h"
#include "app/installer_logger.h"
#include "app/startup.h"
#include "location/installation_location.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#ifdef Q_OS_WIN
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <windows.h>
#else
#include <unistd.h>
#endif

using InstallerLaunch::Options;

namespace {

const char writerOption[] = "--log-writer";
const int linesPerWriter = 300;

QString dayLog(const QString &root)
{
    return QDir(root).filePath(QStringLiteral("installer-%1.log").arg(QDate::currentDate().toString(QStringLiteral("yyyyMMdd"))));
}

QStringList readLines(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

// A directory that is a link to another one, or an empty text where this platform's test cannot
// make one (the Wine harness provides one inside drive_c).
QString directoryLink(const QTemporaryDir &temp)
{
#ifdef Q_OS_WIN
    Q_UNUSED(temp);
    const QString fixture = QStringLiteral("C:/brisa-link-fixture/dir-link");
    return QFileInfo(fixture).isDir() ? fixture : QString();
#else
    const QString real = temp.filePath(QStringLiteral("real"));
    const QString link = temp.filePath(QStringLiteral("link"));
    QDir().mkpath(real);
    return ::symlink(QFile::encodeName(real).constData(), QFile::encodeName(link).constData()) == 0 ? link : QString();
#endif
}

} // namespace

class AppTest : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void updateToANonInstallationFallsBackToManual();
    void elevationArguments_data();
    void elevationArguments();
    void translationName_data();
    void translationName();
    void usableDirectory_data();
    void usableDirectory();
    void temporaryRootSkipsUnusableCandidates();
    void logLineFormat();
    void logFallsBackWhenTheDayFileCannotBeOpened();
    void concurrentThreadsNeverInterleave();
    void concurrentProcessesNeverInterleave();
#ifdef Q_OS_WIN
    void installerStopsWithoutAWritableDirectory();
    void installerFallsBackToTheWindowsTemp();
    void updateRequestTakesTheAutomaticPathOnlyForAnInstallation_data();
    void updateRequestTakesTheAutomaticPathOnlyForAnInstallation();
#endif
};

void AppTest::parse_data()
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
    QTest::newRow("installer-source given twice")
        << QStringList { "setup.exe", "--installer-source", "web", "--installer-source", "mail" }
        << QStringLiteral("Missing or duplicate --installer-source argument.") << false << false;
    QTest::newRow("legacy-caller-exe without a value")
        << QStringList { "setup.exe", "/verysilent", "--legacy-caller-exe" }
        << QStringLiteral("Missing or duplicate --legacy-caller-exe argument.") << true << false;
    QTest::newRow("a value may begin with one dash") << QStringList { "setup.exe", "--installer-source", "-web" } << QString() << false << false;
    QTest::newRow("a value may begin with a slash") << QStringList { "setup.exe", "--installer-source", "/web" } << QString() << false << false;
    QTest::newRow("update given twice")
        << QStringList { "setup.exe", "--update", "--update", "--install-dir", "C:/A/BrisaLinker" }
        << QStringLiteral("Duplicate --update argument.") << false << false;
    QTest::newRow("update without its directory") << QStringList { "setup.exe", "--update" } << updatePair << false << false;
    QTest::newRow("directory without update") << QStringList { "setup.exe", "--install-dir", "C:/A/BrisaLinker" } << updatePair << false << false;
    QTest::newRow("legacy manual fallback needs verysilent")
        << QStringList { "setup.exe", "--legacy-manual-fallback" } << fallback << false << true;
    QTest::newRow("legacy manual fallback with verysilent is accepted")
        << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback" } << QString() << true << true;
    QTest::newRow("update manual fallback alone is accepted")
        << QStringList { "setup.exe", "--update-manual-fallback" } << QString() << false << true;
    QTest::newRow("update manual fallback refuses verysilent")
        << QStringList { "setup.exe", "/verysilent", "--update-manual-fallback" } << fallback << true << true;
    QTest::newRow("the two manual fallbacks together")
        << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback", "--update-manual-fallback" } << fallback << true << true;
    QTest::newRow("a manual fallback beside an update request overwrites the pair message")
        << QStringList { "setup.exe", "--update", "--update-manual-fallback" } << fallback << false << true;
    QTest::newRow("legacy source without update")
        << QStringList { "setup.exe", "/verysilent", "--legacy-source-dir", "C:/Old" } << legacy << true << false;
    QTest::newRow("the last broken rule's message is the one reported")
        << QStringList { "setup.exe", "--update", "--legacy-source-dir", "C:/Old", "--update-manual-fallback" } << legacy << false << true;
    QTest::newRow("legacy source beside the legacy manual fallback")
        << QStringList { "setup.exe", "/verysilent", "--legacy-manual-fallback", "--legacy-source-dir", "C:/Old" } << legacy << true << true;
}

void AppTest::parse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    QFETCH(bool, silent);
    QFETCH(bool, manualFallback);
    const Options options = InstallerLaunch::parse(arguments);
    QCOMPARE(options.errorText, error);
    QCOMPARE(options.silent, silent);
    QCOMPARE(options.manualFallback, manualFallback);
    QVERIFY(!options.automaticUpdate); // only start-up sets it
}

void AppTest::updateToANonInstallationFallsBackToManual()
{
    QTemporaryDir temp;
    const QString directory = temp.filePath(QStringLiteral("BrisaLinker"));
    QVERIFY(QDir().mkpath(directory));
    for (const bool silent : { false, true }) {
        QStringList arguments { QStringLiteral("setup.exe"), QStringLiteral("--update"), QStringLiteral("--install-dir"), directory };
        if (silent)
            arguments << QStringLiteral("/verysilent");
        const Options options = InstallerLaunch::parse(arguments);
        QCOMPARE(options.errorText, QString());
        QVERIFY(!options.update);
        QVERIFY(options.manualFallback);
        QVERIFY(options.installDirectory.isEmpty());
        QVERIFY(options.legacySourceDirectory.isEmpty());
    }
}

void AppTest::elevationArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("silent");
    QTest::addColumn<bool>("automaticUpdate");
    QTest::addColumn<bool>("manualFallback");
    QTest::addColumn<QString>("installDirectory");
    QTest::addColumn<QString>("legacySource");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("an ordinary start passes its arguments on")
        << QStringList { "setup.exe", "--installer-source", "web" } << false << false << false << QString() << QString()
        << QStringList { "--installer-source", "web" };
    QTest::newRow("a silent manual fallback drops the update and names its fallback once")
        << QStringList { "setup.exe", "/verysilent", "--update", "--install-dir", "C:\\A\\BrisaLinker\\", "--legacy-manual-fallback" }
        << true << false << true << QString() << QString()
        << QStringList { "/verysilent", "--legacy-manual-fallback" };
    QTest::newRow("a silent manual fallback gains the legacy fallback")
        << QStringList { "setup.exe", "/verysilent", "--legacy-source-dir", "C:/Old", "--legacy-caller-exe", "C:/Old/u.exe" }
        << true << false << true << QString() << QString()
        << QStringList { "/verysilent", "--legacy-caller-exe", "C:/Old/u.exe", "--legacy-manual-fallback" };
    QTest::newRow("an interactive manual fallback gains the update fallback")
        << QStringList { "setup.exe", "--update", "--install-dir", "D:/X/BrisaLinker" } << false << false << true << QString() << QString()
        << QStringList { "--update-manual-fallback" };
    QTest::newRow("a discovered silent update is handed over explicitly")
        << QStringList { "setup.exe", "/verysilent" } << true << true << false << "C:/Apps/BrisaLinker" << "C:/Old/Brisa"
        << QStringList { "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old/Brisa" };
    QTest::newRow("an explicit silent update is not given a second target")
        << QStringList { "setup.exe", "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old" }
        << true << true << false << "C:/Apps/BrisaLinker" << "C:/Old"
        << QStringList { "/verysilent", "--update", "--install-dir", "C:/Apps/BrisaLinker", "--legacy-source-dir", "C:/Old" };
    QTest::newRow("an interactive automatic update passes its arguments on")
        << QStringList { "setup.exe", "--update", "--install-dir", "C:/Apps/BrisaLinker" } << false << true << false << "C:/Apps/BrisaLinker" << QString()
        << QStringList { "--update", "--install-dir", "C:/Apps/BrisaLinker" };
}

void AppTest::elevationArguments()
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

void AppTest::translationName_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("name");
    QTest::newRow("Russian") << QLocale(QLocale::Russian, QLocale::Russia) << "bl_installer_ru_RU";
    QTest::newRow("Spanish of Mexico is still Spanish") << QLocale(QLocale::Spanish, QLocale::Mexico) << "bl_installer_es_ES";
    QTest::newRow("Japanese") << QLocale(QLocale::Japanese, QLocale::Japan) << "bl_installer_ja_JP";
    QTest::newRow("German falls back to English") << QLocale(QLocale::German, QLocale::Germany) << "bl_installer_en_US";
    QTest::newRow("C locale falls back to English") << QLocale::c() << "bl_installer_en_US";
}

void AppTest::translationName()
{
    QFETCH(QLocale, locale);
    QFETCH(QString, name);
    QCOMPARE(Startup::translationName(locale), name);
}

void AppTest::usableDirectory_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<bool>("usable");
    QTest::newRow("a new nested directory is created and usable") << "a/b/c" << true;
    QTest::newRow("a path below a file is not usable") << "file.txt/sub" << false;
    QTest::newRow("a path through a directory link is not usable") << "@link/sub" << false;
    QTest::newRow("an empty path is not usable") << "@empty" << false;
    QTest::newRow("a relative path is not usable") << "@relative" << false;
}

void AppTest::usableDirectory()
{
    QFETCH(QString, relative);
    QFETCH(bool, usable);
    QTemporaryDir temp;
    QFile file(temp.filePath(QStringLiteral("file.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QString path;
    if (relative == QLatin1String("@link/sub")) {
        const QString link = directoryLink(temp);
        if (link.isEmpty())
            QSKIP("no directory link available here");
        path = link + QStringLiteral("/sub");
    } else if (relative == QLatin1String("@empty")) {
        path = QString();
    } else if (relative == QLatin1String("@relative")) {
        path = QStringLiteral("relative/dir");
    } else {
        path = temp.filePath(relative);
    }
    QCOMPARE(AppPaths::usableDirectory(path), usable);
    if (usable) {
        // The probe leaves nothing behind.
        QCOMPARE(QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot), QStringList());
    }
}

void AppTest::temporaryRootSkipsUnusableCandidates()
{
    QTemporaryDir temp;
    const QString link = directoryLink(temp);
    QFile blocker(temp.filePath(QStringLiteral("blocked/BrisaLinkerInstaller")));
    QVERIFY(QDir().mkpath(temp.filePath(QStringLiteral("blocked"))));
    QVERIFY(blocker.open(QIODevice::WriteOnly)); // a file where the root directory should be
    blocker.close();
    QStringList bases { QString(), temp.filePath(QStringLiteral("blocked")) };
    if (!link.isEmpty())
        bases << link + QStringLiteral("/LocalAppData/Temp"); // a junction on the way is refused
    bases << temp.filePath(QStringLiteral("good")) << temp.filePath(QStringLiteral("later"));
    QCOMPARE(AppPaths::firstUsableTempRoot(bases), temp.filePath(QStringLiteral("good/BrisaLinkerInstaller")));
    QVERIFY(QFileInfo(temp.filePath(QStringLiteral("good/BrisaLinkerInstaller/log"))).isDir());
    QVERIFY(!QFileInfo::exists(temp.filePath(QStringLiteral("later"))));
    QCOMPARE(AppPaths::firstUsableTempRoot({ temp.filePath(QStringLiteral("blocked")) }), QString());
}

void AppTest::logLineFormat()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("log"));
    InstallerLogger::writeTo(root, QStringLiteral("first name=%1").arg(QStringLiteral("value")));
    InstallerLogger::writeTo(root, QString::fromUtf8("второй 二番目"));
    const QStringList lines = readLines(dayLog(root));
    QCOMPARE(lines.size(), 2);
    const QRegularExpression format(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}  (.*)$"));
    const auto first = format.match(lines.at(0));
    QVERIFY2(first.hasMatch(), qPrintable(lines.at(0)));
    QCOMPARE(first.captured(1), QStringLiteral("first name=value"));
    QCOMPARE(format.match(lines.at(1)).captured(1), QString::fromUtf8("второй 二番目"));
}

void AppTest::logFallsBackWhenTheDayFileCannotBeOpened()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("log"));
    // A directory in place of the day's file cannot be opened, like a file locked by another
    // process; the line goes to a file of its own instead of being lost.
    QVERIFY(QDir().mkpath(dayLog(root)));
    InstallerLogger::writeTo(root, QStringLiteral("kept"));
    const QStringList fallbacks = QDir(root).entryList(
        { QStringLiteral("installer-%1-[0-9][0-9][0-9][0-9][0-9][0-9]-%2.log").arg(QDate::currentDate().toString(QStringLiteral("yyyyMMdd"))).arg(QCoreApplication::applicationPid()) },
        QDir::Files);
    QCOMPARE(fallbacks.size(), 1);
    QVERIFY(readLines(QDir(root).filePath(fallbacks.first())).first().endsWith(QLatin1String("  kept")));
#ifndef Q_OS_WIN
    // A link planted as the day's file is refused, not written through: its target stays as it was.
    const QString linkedRoot = temp.filePath(QStringLiteral("linked-log"));
    QFile target(temp.filePath(QStringLiteral("target.txt")));
    QVERIFY(QDir().mkpath(linkedRoot) && target.open(QIODevice::WriteOnly) && target.write("untouched") == 9);
    target.close();
    QVERIFY(QFile::link(target.fileName(), dayLog(linkedRoot)));
    InstallerLogger::writeTo(linkedRoot, QStringLiteral("not through the link"));
    QVERIFY(target.open(QIODevice::ReadOnly));
    QCOMPARE(target.readAll(), QByteArray("untouched"));
#endif
    // A log root that cannot be created (below a file) loses the line quietly.
    QFile file(temp.filePath(QStringLiteral("plain-file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    InstallerLogger::writeTo(file.fileName() + QStringLiteral("/log"), QStringLiteral("lost"));
    QVERIFY(QFileInfo(file.fileName()).isFile());
}

void AppTest::concurrentThreadsNeverInterleave()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("log"));
    QList<QThread *> threads;
    for (int t = 0; t < 6; ++t) {
        threads << QThread::create([root, t] {
            for (int i = 0; i < linesPerWriter; ++i)
                InstallerLogger::writeTo(root, QStringLiteral("thread=%1 line=%2 %3").arg(t).arg(i).arg(QString(200, QLatin1Char('x'))));
        });
        threads.last()->start();
    }
    for (QThread *thread : threads) {
        QVERIFY(thread->wait(60000));
        delete thread;
    }
    const QStringList lines = readLines(dayLog(root));
    QCOMPARE(lines.size(), 6 * linesPerWriter);
    const QRegularExpression whole(QStringLiteral("^\\S+  thread=\\d line=\\d+ x{200}$"));
    for (const QString &line : lines)
        QVERIFY2(whole.match(line).hasMatch(), qPrintable(line));
}

void AppTest::concurrentProcessesNeverInterleave()
{
    QTemporaryDir temp;
    const QString root = temp.filePath(QStringLiteral("log"));
    QList<QProcess *> writers;
    for (int w = 0; w < 3; ++w) {
        auto *process = new QProcess(this);
        process->start(QCoreApplication::applicationFilePath(),
                       { QString::fromLatin1(writerOption), root, QString::number(w) });
        writers << process;
    }
    for (QProcess *process : writers) {
        QVERIFY(process->waitForFinished(120000));
        QCOMPARE(process->exitCode(), 0);
    }
    // A writer that finds the day's file momentarily unavailable writes to a file of its own;
    // every line must still be somewhere, whole.
    QStringList lines;
    for (const QString &name : QDir(root).entryList({ QStringLiteral("installer-*.log") }, QDir::Files))
        lines << readLines(QDir(root).filePath(name));
    QCOMPARE(lines.size(), 3 * linesPerWriter);
    const QRegularExpression whole(QStringLiteral("^\\S+  writer=\\d line=\\d+ y{300}$"));
    QSet<QString> seen;
    for (const QString &line : lines) {
        QVERIFY2(whole.match(line).hasMatch(), qPrintable(line));
        seen.insert(line.section(QLatin1String("  "), 1));
    }
    QCOMPARE(seen.size(), 3 * linesPerWriter);
}

#ifdef Q_OS_WIN

namespace {

struct WindowSearch
{
    DWORD processId;
    QString title;
    HWND found;
};

BOOL CALLBACK findProcessWindow(HWND window, LPARAM parameter)
{
    auto *search = reinterpret_cast<WindowSearch *>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    wchar_t title[128] = {};
    GetWindowTextW(window, title, 128);
    if (owner == search->processId && IsWindowVisible(window) && QString::fromWCharArray(title) == search->title) {
        search->found = window;
        return FALSE;
    }
    return TRUE;
}

HWND processWindow(QProcess *installer, const QString &title)
{
    WindowSearch search { DWORD(installer->processId()), title, nullptr };
    EnumWindows(findProcessWindow, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

// Waits for the installer's visible top-level window with this title and closes it as a user
// would with the title bar's close button.
bool closeWindow(QProcess *installer, const QString &title = QStringLiteral("Brisa-Linker Installer"))
{
    for (int i = 0; i < 600 && installer->state() == QProcess::Running; ++i) {
        if (HWND found = processWindow(installer, title)) {
            QTest::qWait(500);
            PostMessageW(found, WM_CLOSE, 0, 0);
            return true;
        }
        QTest::qWait(100);
    }
    return false;
}

// Closes the installer's window as a user would and answers what it asks on the way out: a
// failed download is dismissed, and "Exit installation?" is answered Yes. A busy Wine can drop
// the keys or the close request, so while the main window stays without a question for a few
// seconds the close is asked again.
bool closeInstallerWindow(QProcess *installer)
{
    if (!closeWindow(installer))
        return false;
    QElapsedTimer sinceClose;
    sinceClose.start();
    for (int i = 0; i < 600 && installer->state() == QProcess::Running; ++i) {
        if (HWND question = processWindow(installer, QStringLiteral("Exit installation?"))) {
            // Cancel has the focus; Tab moves it to Yes and Space presses it.
            QTest::qWait(300);
            PostMessageW(question, WM_KEYDOWN, VK_TAB, 0x000F0001);
            PostMessageW(question, WM_KEYUP, VK_TAB, 0xC00F0001);
            QTest::qWait(200);
            PostMessageW(question, WM_KEYDOWN, VK_SPACE, 0x00390001);
            PostMessageW(question, WM_KEYUP, VK_SPACE, 0xC0390001);
            QTest::qWait(1000);
            sinceClose.restart();
        } else if (HWND failure = processWindow(installer, QStringLiteral("Download failed"))) {
            PostMessageW(failure, WM_CLOSE, 0, 0);
            QTest::qWait(300);
            if (HWND main = processWindow(installer, QStringLiteral("Brisa-Linker Installer")))
                PostMessageW(main, WM_CLOSE, 0, 0);
            sinceClose.restart();
        } else if (sinceClose.hasExpired(3000)) {
            if (HWND main = processWindow(installer, QStringLiteral("Brisa-Linker Installer")))
                PostMessageW(main, WM_CLOSE, 0, 0);
            sinceClose.restart();
        }
        QTest::qWait(100);
    }
    return installer->state() == QProcess::NotRunning || installer->waitForFinished(1000);
}

// Makes a directory impossible to create by putting a file where it would be.
bool block(const QString &directory)
{
    QDir().mkpath(QFileInfo(directory).path());
    QFile file(directory);
    return file.open(QIODevice::WriteOnly);
}

struct BlockedCandidates
{
    QTemporaryDir temp;
    QString cacheBlocker;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

    // TEMP runs through a directory link, the LocalAppData cache is blocked by a file; WINDIR
    // points into the test's own directory.
    bool prepare(bool windowsTempUsable)
    {
        const QString localAppData = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        cacheBlocker = localAppData + QStringLiteral("/BrisaLinkerInstallerCache/BrisaLinkerInstaller");
        if (QFileInfo::exists(cacheBlocker) || !block(cacheBlocker))
            return false;
        const QString linkedTemp = QStringLiteral("C:/brisa-link-fixture/dir-link/temp");
        environment.insert(QStringLiteral("TEMP"), linkedTemp);
        environment.insert(QStringLiteral("TMP"), linkedTemp);
        const QString windows = temp.filePath(QStringLiteral("windows"));
        environment.insert(QStringLiteral("WINDIR"), QDir::toNativeSeparators(windows));
        if (!windowsTempUsable)
            return block(windows + QStringLiteral("/Temp/BrisaLinkerInstaller"));
        return true;
    }
    ~BlockedCandidates()
    {
        QFile::remove(cacheBlocker);
        QDir().rmdir(QFileInfo(cacheBlocker).path());
    }
};

} // namespace

void AppTest::installerStopsWithoutAWritableDirectory()
{
    BlockedCandidates candidates;
    QVERIFY(candidates.prepare(false));
    QProcess installer;
    installer.setProcessEnvironment(candidates.environment);
    installer.start(QStringLiteral(BRISA_INSTALLER_EXE), {});
    QVERIFY(installer.waitForStarted());
    QVERIFY2(closeInstallerWindow(&installer), "the installer showed no box");
    QCOMPARE(installer.exitCode(), 1);
}

void AppTest::installerFallsBackToTheWindowsTemp()
{
    BlockedCandidates candidates;
    QVERIFY(candidates.prepare(true));
    QProcess installer;
    installer.setProcessEnvironment(candidates.environment);
    installer.start(QStringLiteral(BRISA_INSTALLER_EXE), {});
    QVERIFY(installer.waitForStarted());
    QVERIFY2(closeInstallerWindow(&installer), "the installer window did not appear");
    QCOMPARE(installer.exitCode(), 0);
    const QString logRoot = candidates.temp.filePath(QStringLiteral("windows/Temp/BrisaLinkerInstaller/log"));
    const QStringList lines = readLines(dayLog(logRoot));
    QVERIFY2(!lines.isEmpty(), qPrintable(logRoot));
    const QString joined = lines.join(QLatin1Char('\n'));
    QVERIFY2(joined.contains(QStringLiteral("Desktop user=S-1-5-")), qPrintable(joined));
    QVERIFY(joined.contains(QStringLiteral("Installer process elevated: yes")));
    QVERIFY(!QFileInfo::exists(QStringLiteral("C:/brisa-link-fixture/real/temp")));
}

void AppTest::updateRequestTakesTheAutomaticPathOnlyForAnInstallation_data()
{
    QTest::addColumn<bool>("installation");
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QString>("decision");
    QTest::newRow("an installed product is updated automatically") << true << "BrisaLinker" << "automatic=1; manual_fallback=0";
    QTest::newRow("a directory that is no installation falls back to a manual choice")
        << false << "BrisaLinker" << "automatic=0; manual_fallback=1";
    // Never turned into a new installation in a "BrisaLinker" subdirectory of it.
    QTest::newRow("an installation in a directory of another name falls back to a manual choice")
        << true << "Tools" << "automatic=0; manual_fallback=1";
}

void AppTest::updateRequestTakesTheAutomaticPathOnlyForAnInstallation()
{
    QFETCH(bool, installation);
    QFETCH(QString, directory);
    QFETCH(QString, decision);
    QTemporaryDir temp;
    const QString target = temp.filePath(QStringLiteral("Apps/") + directory);
    QVERIFY(QDir().mkpath(target + QStringLiteral("/cfgdata")));
    if (installation) {
        // What an installation of the product leaves on disk: the launcher, its version file and
        // the core of that version.
        QVERIFY(QFile::copy(QStringLiteral(BRISA_FAKE_LAUNCHER_EXE), target + QStringLiteral("/brisalinker.exe")));
        QVERIFY(QFile::copy(QStringLiteral(BRISA_FAKE_LAUNCHER_EXE), target + QStringLiteral("/updater.exe")));
        QVERIFY(QDir().mkpath(target + QStringLiteral("/1.2.3")));
        QVERIFY(QFile::copy(QStringLiteral(BRISA_FAKE_LAUNCHER_EXE), target + QStringLiteral("/1.2.3/bl-core.exe")));
        QFile version(target + QStringLiteral("/cfgdata/version.ini"));
        QVERIFY(version.open(QIODevice::WriteOnly));
        version.write("[release]\nversion=1.2.3\n");
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString temporary = temp.filePath(QStringLiteral("temp"));
    environment.insert(QStringLiteral("TEMP"), QDir::toNativeSeparators(temporary));
    environment.insert(QStringLiteral("TMP"), QDir::toNativeSeparators(temporary));
    // The automatic path starts downloading at once: nothing listens on this port, so it fails
    // without the test ever reaching past this machine.
    environment.insert(QStringLiteral("BRISA_DEV_MANIFEST_URL"), QStringLiteral("https://127.0.0.1:9/manifest.json"));
    QProcess installer;
    installer.setProcessEnvironment(environment);
    installer.start(QStringLiteral(BRISA_INSTALLER_EXE), { QStringLiteral("--update"), QStringLiteral("--install-dir"), QDir::toNativeSeparators(target) });
    QVERIFY(installer.waitForStarted());
    if (decision.contains(QLatin1String("manual_fallback=1")))
        QVERIFY2(closeWindow(&installer, QStringLiteral("Choose installation location")), "the manual-fallback notice was not shown");
    QVERIFY2(closeInstallerWindow(&installer), "the installer window did not appear");
    const QString log = readLines(dayLog(temporary + QStringLiteral("/BrisaLinkerInstaller/log"))).join(QLatin1Char('\n'));
    QVERIFY2(log.contains(QStringLiteral("Installer update request: target=")), qPrintable(log));
    QVERIFY2(log.contains(decision), qPrintable(log));
    QVERIFY(!QFileInfo::exists(target + QStringLiteral("/BrisaLinker")));
    if (decision.contains(QLatin1String("automatic=1")))
        QVERIFY2(log.contains(QStringLiteral("target=") + InstallationLocation::normalized(target)), qPrintable(log));
}

#endif

int main(int argc, char *argv[])
{
    // The process-concurrency test starts copies of this program as plain log writers.
    if (argc == 4 && qstrcmp(argv[1], writerOption) == 0) {
        QCoreApplication application(argc, argv);
        const QString root = QString::fromLocal8Bit(argv[2]);
        for (int i = 0; i < linesPerWriter; ++i)
            InstallerLogger::writeTo(root, QStringLiteral("writer=%1 line=%2 %3").arg(QString::fromLatin1(argv[3])).arg(i).arg(QString(300, QLatin1Char('y'))));
        return 0;
    }
    QCoreApplication application(argc, argv);
    AppTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_app.moc"
