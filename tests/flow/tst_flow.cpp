#include "extract/archive_extractor.h"
#include "download/download_manager.h"
#include "finalize/installer_finalizer.h"
#include "ui/download_failure_dialog.h"
#include "ui/flow_platform.h"
#include "ui/installation_flow.h"
#include "ui/main_window.h"
#include "support/test_https_server.h"
#include "support/test_signing.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QCryptographicHash>
#include <QDialog>
#include <QDir>
#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <zip.h>

namespace {

// Answers the modal boxes the flow shows, in order, and remembers what they said.
class ModalAnswers : public QObject
{
public:
    struct Seen
    {
        QString title;
        QString text;
    };

    // Each answer is a button text ("Yes", "Retry", "Cancel", "OK", ...) matched against the
    // buttons of the box in front.
    explicit ModalAnswers(QStringList answers)
        : m_answers(std::move(answers))
    {
        m_timer.setInterval(20);
        connect(&m_timer, &QTimer::timeout, this, &ModalAnswers::poll);
        m_timer.start();
    }

    QList<Seen> seen;

private:
    void poll()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal || modal == m_last)
            return;
        m_last = modal;
        Seen record { modal->windowTitle(), QString() };
        if (auto *box = qobject_cast<QMessageBox *>(modal))
            record.text = box->text();
        else if (auto *description = modal->findChild<QLabel *>(QStringLiteral("downloadFailureDescription")))
            record.text = description->text();
        seen << record;
        const QString answer = m_answers.isEmpty() ? QStringLiteral("Cancel") : m_answers.takeFirst();
        const QList<QAbstractButton *> buttons = modal->findChildren<QAbstractButton *>();
        for (QAbstractButton *button : buttons) {
            if (button->text().remove(QLatin1Char('&')) == answer) {
                QMetaObject::invokeMethod(button, &QAbstractButton::click, Qt::QueuedConnection);
                return;
            }
        }
        QMetaObject::invokeMethod(modal, [modal] { modal->close(); }, Qt::QueuedConnection);
    }

    QStringList m_answers;
    QTimer m_timer;
    QPointer<QWidget> m_last;
};

QByteArray sha256(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return hash.result().toHex();
}

QMap<QString, QByteArray> tree(const QString &root)
{
    QMap<QString, QByteArray> result;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        result.insert(QDir(root).relativeFilePath(path), sha256(path));
    }
    return result;
}

// The package a release carries: what the finalization accepts as a product.
const QList<QPair<QString, QByteArray>> &releaseFiles()
{
    static const QList<QPair<QString, QByteArray>> files {
        { QStringLiteral("brisalinker.exe"), "launcher" },
        { QStringLiteral("updater.exe"), "updater" },
        { QStringLiteral("cfgdata/version.ini"), "[release]\nversion=2.1.0\n" },
        { QStringLiteral("2.1.0/bl-core.exe"), "core" },
        { QStringLiteral("2.1.0/resources/app.pak"), QByteArray(300000, 'p') },
    };
    return files;
}

bool writeZip(const QString &path, const QList<QPair<QString, QByteArray>> &files)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive)
        return false;
    for (const auto &[name, content] : files) {
        // libzip keeps the buffer until zip_close; the list outlives it.
        zip_source_t *source = zip_source_buffer(archive, content.constData(), zip_uint64_t(content.size()), 0);
        if (!source || zip_file_add(archive, name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0) {
            zip_source_free(source);
            zip_discard(archive);
            return false;
        }
    }
    return zip_close(archive) == 0;
}

QStringList stagingLeftovers(const QString &parent)
{
    return QDir(parent).entryList({ QStringLiteral("*.installing-*") },
                                  QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot);
}

using Reports = QList<QPair<qint64, qint64>>;

QByteArray zipBytes(const QList<QPair<QString, QByteArray>> &files, const QString &scratch)
{
    if (!writeZip(scratch, files))
        return {};
    QFile file(scratch);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray manifestFor(const QByteArray &package, const QUrl &url, qint64 uncompressed)
{
    const QJsonObject entry {
        { QStringLiteral("url"), url.toString() },
        { QStringLiteral("fileName"), QStringLiteral("BrisaLinker-2.1.0.zip") },
        { QStringLiteral("size"), double(package.size()) },
        { QStringLiteral("uncompressedSize"), double(uncompressed) },
        { QStringLiteral("sha256"), QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex()) },
    };
    const QJsonObject manifest {
        { QStringLiteral("schemaVersion"), 1 },
        { QStringLiteral("version"), QStringLiteral("2.1.0") },
        { QStringLiteral("releaseId"), QStringLiteral("2.1.0-demo") },
        { QStringLiteral("package"), entry },
        { QStringLiteral("fullPackage"), QJsonObject { { QStringLiteral("url"), url.toString() },
                                                       { QStringLiteral("fileName"), QStringLiteral("full.zip") } } },
    };
    return QJsonDocument(manifest).toJson();
}

// Incompressible bytes, so the package spans several download chunks.
QByteArray noise(qint64 size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(42);
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

} // namespace

class FlowTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void progressOnlyGrows_data();
    void progressOnlyGrows();
    void formatsTransferSpeed_data();
    void formatsTransferSpeed();
    void destinationRefusals_data();
    void destinationRefusals();
    void secondInstallerWaitsForTheFirst();
    void installsTheReleaseEndToEnd();
    void closeDuringExtractionLeavesNoStaging();
    void failedExtractionOffersRetry_data();
    void failedExtractionOffersRetry();
    void retryStartsFromTheFirstPage_data();
    void retryStartsFromTheFirstPage();
    void downloadFailureDialog_data();
    void downloadFailureDialog();
    void downloadFailuresShowTheDialog_data();
    void downloadFailuresShowTheDialog();
    void closeDuringDownloadKeepsTheCacheForTheNextRun();

private:
    InstallationFlow::Settings settings() const;
    InstallationFlow::Settings served(const QString &path) const;

    TestHttpsServer m_server;
    bool m_serverUp = false;
    QString m_serverError;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<MainWindow> m_window;
};

void FlowTest::initTestCase()
{
    m_serverUp = m_server.start(&m_serverError);
}

void FlowTest::cleanupTestCase()
{
    m_server.stop();
}

void FlowTest::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_window = std::make_unique<MainWindow>(InstallerLaunch::Options {});
    // The test release holds no real program to start.
    m_window->findChild<QCheckBox *>(QStringLiteral("launchAfterInstallCheckBox"))->setChecked(false);
}

void FlowTest::cleanup()
{
    m_window.reset();
    m_dir.reset();
}

InstallationFlow::Settings FlowTest::settings() const
{
    InstallationFlow::Settings s;
    // Nothing listens there: a download that is not stopped by the test fails fast.
    s.manifestUrl = QUrl(QStringLiteral("https://127.0.0.1:9/bl-desktop/prod/brisalinker/installer/win/manifest.json"));
    s.temporaryRoot = m_dir->filePath(QStringLiteral("temp"));
    s.applicationRoot = m_dir->filePath(QStringLiteral("apps"));
    s.registryFormat = QSettings::IniFormat;
    s.installerKey = m_dir->filePath(QStringLiteral("installer-key.ini"));
    s.uninstallKeys = { m_dir->filePath(QStringLiteral("uninstall-key.ini")) };
    s.closePermissionDelayMs = 0;
    return s;
}

InstallationFlow::Settings FlowTest::served(const QString &path) const
{
    InstallationFlow::Settings s = settings();
    s.manifestUrl = QUrl(m_server.url(path));
    s.sslConfiguration.addCaCertificates(m_server.caCertificates());
    return s;
}

void FlowTest::progressOnlyGrows_data()
{
    QTest::addColumn<Reports>("reports");
    QTest::addColumn<QList<int>>("overall");

    QTest::newRow("a plain download") << Reports { { 0, 100 }, { 50, 100 }, { 100, 100 } } << QList<int> { 1, 33, 65 };
    QTest::newRow("the cache resets to fewer bytes") << Reports { { 80, 100 }, { 10, 100 }, { 90, 100 } }
                                                     << QList<int> { 52, 52, 58 };
    QTest::newRow("more bytes than the package") << Reports { { 500, 100 } } << QList<int> { 65 };
    QTest::newRow("an unknown size leaves the figure alone") << Reports { { 40, 100 }, { 40, 0 }, { 70, -1 } }
                                                            << QList<int> { 26, 26, 26 };
    QTest::newRow("negative counts") << Reports { { -5, 100 }, { 1, 100 } } << QList<int> { 1, 1 };
    QTest::newRow("sizes past 4 GiB") << Reports { { 6000000000LL, 12000000000LL } } << QList<int> { 33 };
}

void FlowTest::progressOnlyGrows()
{
    QFETCH(Reports, reports);
    QFETCH(QList<int>, overall);
    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    flow->beginInstall();
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
    // The reports come from the test alone.
    flow->downloadManager()->cancel();
    auto *label = m_window->findChild<QLabel *>(QStringLiteral("overallProgressLabel"));
    QVERIFY(label);
    for (qsizetype i = 0; i < reports.size(); ++i) {
        emit flow->downloadManager()->progressChanged(reports.at(i).first, reports.at(i).second);
        QCOMPARE(flow->overallProgress(), overall.at(i));
        QCOMPARE(label->text(), QStringLiteral("%1%").arg(overall.at(i)));
    }
    // Extraction starts at 65 and reports 0 % first: the figure must not fall back.
    QVERIFY(InstallationFlow::extractionShare(0, 1000) >= 65);
    QCOMPARE(InstallationFlow::extractionShare(1000, 1000), 85);
    QCOMPARE(InstallationFlow::finalizationShare(250), 99);
    QCOMPARE(InstallationFlow::finalizationShare(-3), 85);
}

void FlowTest::formatsTransferSpeed_data()
{
    QTest::addColumn<qint64>("bytesPerSecond");
    QTest::addColumn<QString>("text");
    QTest::newRow("a stalled transfer") << qint64(0) << "0 KB/s";
    QTest::newRow("kilobytes round to the nearest") << qint64(1536) << "2 KB/s";
    QTest::newRow("just below a megabyte stays in kilobytes") << qint64(1023.4 * 1024) << "1023 KB/s";
    QTest::newRow("one megabyte per second keeps a decimal") << qint64(1024 * 1024) << "1.0 MB/s";
    QTest::newRow("fast transfers in megabytes") << qint64(12.25 * 1024 * 1024) << "12.3 MB/s";
}

void FlowTest::formatsTransferSpeed()
{
    QFETCH(qint64, bytesPerSecond);
    QFETCH(QString, text);
    // Group separators differ between locales; none of the expectations needs one.
    QString shown = InstallationFlow::transferSpeedText(bytesPerSecond);
    shown.remove(QLocale::system().groupSeparator());
    QCOMPARE(shown, text.replace(QLatin1Char('.'), QLocale::system().decimalPoint()));
}

void FlowTest::destinationRefusals_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QString>("expected");

#ifdef Q_OS_WIN
    QTest::newRow("a drive root") << "C:/" << "Choose a valid installation location.";
    QTest::newRow("a relative path") << "apps/BrisaLinker" << "Choose a valid installation location.";
    QTest::newRow("inside the Windows directory") << "C:/windows/Apps" << "Brisa-Linker cannot be installed in this system location.";
    QTest::newRow("below a directory link") << "C:/brisa-link-fixture/dir-link/Apps"
                                            << "The installation location cannot contain directory links.";
#else
    QTest::newRow("the root") << "/" << "Choose a valid installation location.";
    QTest::newRow("a relative path") << "apps/BrisaLinker" << "Choose a valid installation location.";
    QTest::newRow("inside the Windows directory") << "@windir/Apps" << "Brisa-Linker cannot be installed in this system location.";
    QTest::newRow("below a directory link") << "@link/Apps" << "The installation location cannot contain directory links.";
#endif
    QTest::newRow("an existing program that is not ours") << "@foreign"
                                                          << "The existing application executable cannot be identified. No old files were removed.";
}

void FlowTest::destinationRefusals()
{
    QFETCH(QString, destination);
    QFETCH(QString, expected);
    const QByteArray windir = qgetenv("WINDIR");
#ifndef Q_OS_WIN
    qputenv("WINDIR", m_dir->filePath(QStringLiteral("windows")).toUtf8());
#endif
    if (destination == QLatin1String("@windir/Apps")) {
        destination = m_dir->filePath(QStringLiteral("windows/Apps"));
    } else if (destination == QLatin1String("@link/Apps")) {
        QDir().mkpath(m_dir->filePath(QStringLiteral("real")));
        QVERIFY(QFile::link(m_dir->filePath(QStringLiteral("real")), m_dir->filePath(QStringLiteral("link"))));
        destination = m_dir->filePath(QStringLiteral("link/Apps"));
    } else if (destination == QLatin1String("@foreign")) {
        destination = m_dir->filePath(QStringLiteral("Apps/BrisaLinker"));
        QDir().mkpath(destination);
        QFile exe(destination + QStringLiteral("/brisalinker.exe"));
        QVERIFY(exe.open(QIODevice::WriteOnly));
        exe.write("not a program");
    }
    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    m_window->setDestination(destination);
    ModalAnswers answers({ QStringLiteral("OK") });
    flow->beginInstall();
    if (windir.isNull())
        qunsetenv("WINDIR");
    else
        qputenv("WINDIR", windir);
    QCOMPARE(answers.seen.size(), 1);
    QCOMPARE(answers.seen.first().title, QStringLiteral("Invalid installation location"));
    QVERIFY2(answers.seen.first().text.startsWith(expected), qPrintable(answers.seen.first().text));
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
    QVERIFY(!flow->holdsInstallLock());
}

void FlowTest::secondInstallerWaitsForTheFirst()
{
    // The other installer holds the lock from its own thread, as another process would.
    FlowPlatform::InstallOperationLock *other = nullptr;
    QThread holder;
    QObject context;
    context.moveToThread(&holder);
    holder.start();
    QMetaObject::invokeMethod(&context, [&other] {
        other = new FlowPlatform::InstallOperationLock;
        other->acquire();
    }, Qt::BlockingQueuedConnection);
    QVERIFY(other->held());

    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    m_window->setDestination(m_dir->filePath(QStringLiteral("Apps")));
    {
        ModalAnswers answers({ QStringLiteral("OK") });
        flow->beginInstall();
        QCOMPARE(answers.seen.size(), 1);
        QCOMPARE(answers.seen.first().title, QStringLiteral("Installation in progress"));
        QCOMPARE(answers.seen.first().text, QStringLiteral("Another installer is currently installing Brisa-Linker. "
                                                           "You can keep this window open and try again when it finishes."));
    }
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
    QVERIFY(m_window->findChild<QWidget *>(QStringLiteral("installButton"))->isEnabled());

    QMetaObject::invokeMethod(&context, [&other] { delete other; }, Qt::BlockingQueuedConnection);
    holder.quit();
    holder.wait();

    // The same window tries again once the other installer is done.
    flow->beginInstall();
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
    QVERIFY(flow->holdsInstallLock());
    flow->downloadManager()->cancel();
}

void FlowTest::installsTheReleaseEndToEnd()
{
#ifdef Q_OS_WIN
    // Finalization remembers the directory machine-wide; other tests share this machine.
    QSettings remembered(QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\ORLANDA FIELDWORKS INC\\BrisaLinker\\Installer"),
                         QSettings::NativeFormat);
    QVariantMap before;
    for (const QString &name : remembered.allKeys())
        before.insert(name, remembered.value(name));
    const auto restore = qScopeGuard([&] {
        remembered.clear();
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            remembered.setValue(it.key(), it.value());
    });
#endif
    const QString zip = m_dir->filePath(QStringLiteral("package.zip"));
    QVERIFY(writeZip(zip, releaseFiles()));
    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    const QString parent = m_dir->filePath(QStringLiteral("Apps"));
    m_window->setDestination(parent);
    auto *label = m_window->findChild<QLabel *>(QStringLiteral("overallProgressLabel"));
    QList<int> seen;
    QTimer sampler;
    connect(&sampler, &QTimer::timeout, this, [&] {
        const int value = label->text().chopped(1).toInt();
        if (seen.isEmpty() || seen.last() != value)
            seen << value;
    });
    sampler.start(1);

    flow->beginInstall();
    QCOMPARE(flow->destination(), parent + QStringLiteral("/BrisaLinker"));
    flow->downloadManager()->cancel();
    emit flow->downloadManager()->progressChanged(400, 1000);
    emit flow->downloadManager()->completed(zip, QUrl(), QStringLiteral("2.1.0"));
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Extracting);
    const QString staging = flow->stagingDirectory();
    QVERIFY(QFileInfo(staging).fileName().startsWith(QStringLiteral("BrisaLinker.installing-")));
    QTRY_COMPARE_WITH_TIMEOUT(flow->phase(), InstallationFlow::Phase::Done, 60000);
    sampler.stop();

    QCOMPARE(flow->overallProgress(), 100);
    QCOMPARE(label->text(), QStringLiteral("100%"));
    QCOMPARE(m_window->phase(), MainWindow::Phase::Done);
    QVERIFY(!flow->holdsInstallLock());
    for (qsizetype i = 1; i < seen.size(); ++i)
        QVERIFY2(seen.at(i) > seen.at(i - 1), "the overall progress went backwards");
    QVERIFY(seen.indexOf(100) == seen.size() - 1);

    const QString installed = flow->destination();
    const QMap<QString, QByteArray> files = tree(installed);
    for (const auto &[name, content] : releaseFiles())
        QCOMPARE(files.value(name), QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
    QTRY_VERIFY(stagingLeftovers(parent).isEmpty());
}

void FlowTest::closeDuringExtractionLeavesNoStaging()
{
    // Large enough that the close arrives while the extractor is still writing.
    const QString zip = m_dir->filePath(QStringLiteral("package.zip"));
    QList<QPair<QString, QByteArray>> files = releaseFiles();
    for (int i = 0; i < 8; ++i)
        files << qMakePair(QStringLiteral("2.1.0/blob-%1.bin").arg(i), QByteArray(32 * 1024 * 1024, char('a' + i)));
    QVERIFY(writeZip(zip, files));

    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    const QString parent = m_dir->filePath(QStringLiteral("Apps"));
    m_window->setDestination(parent);
    QSignalSpy quit(flow, &InstallationFlow::quitRequested);
    flow->beginInstall();
    flow->downloadManager()->cancel();
    emit flow->downloadManager()->completed(zip, QUrl(), QStringLiteral("2.1.0"));
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Extracting);
    QVERIFY(QFileInfo(flow->stagingDirectory()).isDir());
    QTRY_VERIFY(flow->closePermitted());

    ModalAnswers answers({ QStringLiteral("Yes") });
    QVERIFY(m_window->close());
    QTRY_COMPARE_WITH_TIMEOUT(quit.size(), 1, 30000);
    QCOMPARE(answers.seen.size(), 1);
    QCOMPARE(answers.seen.first().title, QStringLiteral("Exit installation?"));
    QCOMPARE(stagingLeftovers(parent), QStringList());
    QVERIFY(!QFileInfo::exists(parent + QStringLiteral("/BrisaLinker")));
    QVERIFY(!flow->holdsInstallLock());
}

void FlowTest::failedExtractionOffersRetry_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QString>("message");

    QTest::newRow("not a zip") << QByteArray("this is no archive") << "The downloaded ZIP package is invalid.";
    QTest::newRow("missing file") << QByteArray() << "Unable to open the downloaded ZIP package.";
}

void FlowTest::failedExtractionOffersRetry()
{
    QFETCH(QByteArray, archive);
    QFETCH(QString, message);
    const QString zip = m_dir->filePath(QStringLiteral("package.zip"));
    if (!archive.isEmpty()) {
        QFile file(zip);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(archive);
    }
    auto *flow = new InstallationFlow(m_window.get(), {}, settings());
    const QString parent = m_dir->filePath(QStringLiteral("Apps"));
    m_window->setDestination(parent);
    QSignalSpy cleaned(flow, &InstallationFlow::stagingCleanupFinished);
    ModalAnswers answers({ QStringLiteral("Cancel") });
    flow->beginInstall();
    flow->downloadManager()->cancel();
    emit flow->downloadManager()->completed(zip, QUrl(), QStringLiteral("2.1.0"));
    QTRY_COMPARE(answers.seen.size(), 1);
    QCOMPARE(answers.seen.first().title, QStringLiteral("Installation failed"));
    QCOMPARE(answers.seen.first().text, message);
    QTRY_COMPARE(cleaned.size(), 1);
    QCOMPARE(stagingLeftovers(parent), QStringList());
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
    QCOMPARE(m_window->phase(), MainWindow::Phase::Install);
    QVERIFY(!flow->holdsInstallLock());
}

void FlowTest::retryStartsFromTheFirstPage_data()
{
    QTest::addColumn<bool>("foreignProgram");

    QTest::newRow("the retry is a new attempt under the close rule") << false;
    QTest::newRow("a retry refused by the location leaves the first page usable") << true;
}

void FlowTest::retryStartsFromTheFirstPage()
{
    QFETCH(bool, foreignProgram);
    InstallationFlow::Settings s = settings();
    s.closePermissionDelayMs = 600000;
    auto *flow = new InstallationFlow(m_window.get(), {}, s);
    m_window->setDestination(m_dir->filePath(QStringLiteral("Apps")));
    flow->beginInstall();
    flow->downloadManager()->cancel();
    if (foreignProgram) {
        // Appears after the first attempt's checks, so only the retry meets it.
        QDir().mkpath(flow->destination());
        QFile exe(flow->destination() + QStringLiteral("/brisalinker.exe"));
        QVERIFY(exe.open(QIODevice::WriteOnly));
        exe.write("not a program");
    }
    ModalAnswers answers({ QStringLiteral("Retry"), QStringLiteral("OK") });
    emit flow->downloadManager()->completed(m_dir->filePath(QStringLiteral("missing.zip")), QUrl(), QStringLiteral("2.1.0"));
    QTRY_VERIFY(!answers.seen.isEmpty());
    QCOMPARE(answers.seen.first().title, QStringLiteral("Installation failed"));
    if (!foreignProgram) {
        QTRY_COMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
        QVERIFY(!flow->closePermitted());
        QVERIFY(!m_window->findChild<QWidget *>(QStringLiteral("closeButton"))->isEnabled());
        flow->downloadManager()->cancel();
        return;
    }
    QTRY_COMPARE(answers.seen.size(), 2);
    QCOMPARE(answers.seen.at(1).title, QStringLiteral("Invalid installation location"));
    QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
    QCOMPARE(m_window->phase(), MainWindow::Phase::Install);
    QVERIFY(m_window->findChild<QWidget *>(QStringLiteral("installButton"))->isEnabled());
    QVERIFY(m_window->findChild<QWidget *>(QStringLiteral("closeButton"))->isEnabled());
    QVERIFY(!flow->holdsInstallLock());
}

void FlowTest::downloadFailureDialog_data()
{
    QTest::addColumn<QUrl>("fullPackage");
    QTest::addColumn<QString>("linkText");

    QTest::newRow("with a full package") << QUrl(QStringLiteral("https://example.invalid/full.zip"))
                                         << "<a href=\"https://example.invalid/full.zip\">Download full package</a>";
    QTest::newRow("without one") << QUrl() << "The full package link is unavailable.";
    QTest::newRow("a plain http address is not offered") << QUrl(QStringLiteral("http://example.invalid/full.zip"))
                                                         << "The full package link is unavailable.";
    QTest::newRow("markup in the address stays text")
        << QUrl(QStringLiteral("https://example.invalid/a\"><b>x"))
        << "<a href=\"https://example.invalid/a%22%3E%3Cb%3Ex\">Download full package</a>";
}

void FlowTest::downloadFailureDialog()
{
    QFETCH(QUrl, fullPackage);
    QFETCH(QString, linkText);
    DownloadFailureDialog dialog(fullPackage);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Download failed"));
    QCOMPARE(dialog.findChild<QLabel *>(QStringLiteral("downloadFailureDescription"))->text(),
             QStringLiteral("We couldn't download the required files. Retry or download the full package."));
    QCOMPARE(dialog.findChild<QLabel *>(QStringLiteral("fullPackageLink"))->text(), linkText);
    auto *support = dialog.findChild<QLabel *>(QStringLiteral("supportLabel"));
    QVERIFY(support->text().startsWith(QStringLiteral("Need help? Contact")));
    // Opened by nobody in this elevated process: a click is handed on to be opened as the user.
    for (const QLabel *label : dialog.findChildren<QLabel *>())
        QVERIFY(!label->openExternalLinks());
    QSignalSpy requested(&dialog, &DownloadFailureDialog::linkRequested);
    emit support->linkActivated(QStringLiteral("mailto:support@brisalinker.com"));
    QCOMPARE(requested.size(), 1);
    QCOMPARE(requested.first().first().toUrl(), QUrl(QStringLiteral("mailto:support@brisalinker.com")));
}

void FlowTest::downloadFailuresShowTheDialog_data()
{
    QTest::addColumn<QString>("fault");

    QTest::newRow("an invalid manifest") << "manifest";
    QTest::newRow("a package that fails verification") << "digest";
    QTest::newRow("no manifest at all") << "missing";
}

void FlowTest::downloadFailuresShowTheDialog()
{
    QFETCH(QString, fault);
    if (!m_serverUp)
        QSKIP(qPrintable(QStringLiteral("the local TLS server is unavailable: ") + m_serverError));
    const QString base = QStringLiteral("/%1").arg(QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('-')));
    const QByteArray package = zipBytes(releaseFiles(), m_dir->filePath(QStringLiteral("p.zip")));
    QVERIFY(!package.isEmpty());
    QByteArray manifest = manifestFor(package, QUrl(m_server.url(base + QStringLiteral("/package.zip"))), 4096);
    if (fault == QLatin1String("manifest"))
        manifest = "{\"schemaVersion\": 2}";
    if (fault != QLatin1String("missing")) {
        m_server.setFile(base + QStringLiteral("/manifest.json"), manifest);
        m_server.setFile(base + QStringLiteral("/manifest.json.sig"), TestSigning::signatureFile(manifest));
    }
    QByteArray onServer = package;
    if (fault == QLatin1String("digest"))
        onServer[onServer.size() / 2] = char(onServer.at(onServer.size() / 2) ^ 0x5a);
    m_server.setFile(base + QStringLiteral("/package.zip"), onServer);

    auto *flow = new InstallationFlow(m_window.get(), {}, served(base + QStringLiteral("/manifest.json")));
    m_window->setDestination(m_dir->filePath(QStringLiteral("Apps")));
    ModalAnswers answers({ QStringLiteral("Cancel") });
    flow->beginInstall();
    QTRY_COMPARE_WITH_TIMEOUT(answers.seen.size(), 1, 60000);
    QCOMPARE(answers.seen.first().title, QStringLiteral("Download failed"));
    QCOMPARE(answers.seen.first().text,
             QStringLiteral("We couldn't download the required files. Retry or download the full package."));
    QTRY_COMPARE(flow->phase(), InstallationFlow::Phase::Initial);
    QVERIFY(!flow->holdsInstallLock());
    QVERIFY(!QFileInfo::exists(flow->destination()));
}

void FlowTest::closeDuringDownloadKeepsTheCacheForTheNextRun()
{
    if (!m_serverUp)
        QSKIP(qPrintable(QStringLiteral("the local TLS server is unavailable: ") + m_serverError));
    // Three chunks; the first request stalls halfway, so one chunk is unfinished at the close.
    QList<QPair<QString, QByteArray>> files = releaseFiles();
    files << qMakePair(QStringLiteral("2.1.0/resources/noise.bin"), noise(20 * 1024 * 1024));
    const QByteArray package = zipBytes(files, m_dir->filePath(QStringLiteral("p.zip")));
    QVERIFY(package.size() > 16 * 1024 * 1024);
    qint64 uncompressed = 0;
    for (const auto &file : files)
        uncompressed += file.second.size();
    const QString base = QStringLiteral("/resume");
    const QByteArray manifest = manifestFor(package, QUrl(m_server.url(base + QStringLiteral("/package.zip"))), uncompressed);
    m_server.setFile(base + QStringLiteral("/manifest.json"), manifest);
    m_server.setFile(base + QStringLiteral("/manifest.json.sig"), TestSigning::signatureFile(manifest));
    m_server.setFile(base + QStringLiteral("/package.zip"), package);
    m_server.clearFaults();
    m_server.addFault(base + QStringLiteral("/package.zip"), TestHttpsServer::Fault::StallMidBody, 1);
    m_server.resetCounters();

    const InstallationFlow::Settings settings = served(base + QStringLiteral("/manifest.json"));
    {
        MainWindow window(InstallerLaunch::Options {});
        auto *flow = new InstallationFlow(&window, {}, settings);
        window.setDestination(m_dir->filePath(QStringLiteral("Apps")));
        QSignalSpy quit(flow, &InstallationFlow::quitRequested);
        flow->beginInstall();
        QTRY_VERIFY_WITH_TIMEOUT(m_server.requestCount(base + QStringLiteral("/package.zip")) >= 3, 30000);
        // Let the two healthy chunks land in the cache.
        QTest::qWait(1500);
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
        QTRY_VERIFY(flow->closePermitted());
        ModalAnswers answers({ QStringLiteral("Yes") });
        QVERIFY(window.close());
        QTRY_COMPARE(quit.size(), 1);
        QVERIFY(!flow->holdsInstallLock());
    }
    const QStringList firstRanges = [&] {
        QStringList list;
        for (const QByteArray &range : m_server.ranges(base + QStringLiteral("/package.zip")))
            list << QString::fromLatin1(range);
        return list;
    }();
    m_server.resetCounters();

    auto *flow = new InstallationFlow(m_window.get(), {}, settings);
    m_window->setDestination(m_dir->filePath(QStringLiteral("Apps")));
    flow->beginInstall();
    QTRY_COMPARE_WITH_TIMEOUT(flow->phase(), InstallationFlow::Phase::Done, 120000);
    // Only the unfinished chunk travels again.
    const QList<QByteArray> again = m_server.ranges(base + QStringLiteral("/package.zip"));
    QVERIFY2(again.size() == 1, qPrintable(QStringLiteral("first run %1; second run %2 requests")
                                               .arg(firstRanges.join(QLatin1Char(' ')))
                                               .arg(again.size())));
    QCOMPARE(sha256(flow->destination() + QStringLiteral("/2.1.0/resources/noise.bin")),
             QCryptographicHash::hash(files.last().second, QCryptographicHash::Sha256).toHex());
}

QTEST_MAIN(FlowTest)
#include "tst_flow.moc"
