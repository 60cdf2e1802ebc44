#include "download/download_manager.h"
#include "ui/download_failure_dialog.h"
#include "ui/flow_platform.h"
#include "ui/hero_panel.h"
#include "ui/installation_flow.h"
#include "ui/main_window.h"
#include "support/test_files.h"
#include "support/test_https_server.h"
#include "support/test_signing.h"

#include <QtTest>
#include <QtWidgets>

#include <zip.h>

#include <memory>

namespace {

// The window with its two platform seams answered by the test: the folder chooser returns a
// prepared answer and a system move is only counted.
class DrivenWindow : public MainWindow
{
public:
    using MainWindow::MainWindow;
    QString answer, askedStart;
    int asked = 0, moves = 0;

protected:
    bool startSystemMove() override { return ++moves; }
    QString askForDirectory(const QString &startDirectory) override
    {
        ++asked;
        askedStart = startDirectory;
        return answer;
    }
};

// Answers the modal boxes shown meanwhile, in order, with a button's text or a key ("Escape",
// "Return"), and remembers what each box said and offered.
class ModalAnswers : public QObject
{
public:
    struct Seen
    {
        QString title, text;
        QStringList buttons;
        bool icon = false;
    };
    explicit ModalAnswers(QStringList answers) : m_answers(std::move(answers))
    {
        connect(&m_timer, &QTimer::timeout, this, &ModalAnswers::poll);
        m_timer.start(20);
    }
    QList<Seen> seen;

private:
    void poll()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal || modal == m_last)
            return;
        m_last = modal;
        auto *box = qobject_cast<QMessageBox *>(modal);
        auto *description = modal->findChild<QLabel *>(QStringLiteral("downloadFailureDescription"));
        Seen record { modal->windowTitle(), box ? box->text() : description ? description->text() : QString() };
        record.icon = box && !box->iconPixmap().isNull();
        const QString answer = m_answers.isEmpty() ? QStringLiteral("Cancel") : m_answers.takeFirst();
        QAbstractButton *chosen = nullptr;
        for (QAbstractButton *button : box ? box->buttons() : modal->findChildren<QAbstractButton *>()) {
            record.buttons << button->text().remove(QLatin1Char('&'));
            if (record.buttons.last() == answer)
                chosen = button;
        }
        seen << record;
        if (answer == QLatin1String("Escape") || answer == QLatin1String("Return"))
            QTest::keyClick(modal, answer == QLatin1String("Escape") ? Qt::Key_Escape : Qt::Key_Return);
        else if (chosen)
            QMetaObject::invokeMethod(chosen, &QAbstractButton::click, Qt::QueuedConnection);
        else
            QMetaObject::invokeMethod(modal, [modal] { modal->close(); }, Qt::QueuedConnection);
    }

    QStringList m_answers;
    QTimer m_timer;
    QPointer<QWidget> m_last;
};

InstallerLaunch::Options interactiveAt(const QString &directory)
{
    InstallerLaunch::Options options;
    options.installDirectory = directory;
    return options;
}

std::unique_ptr<DrivenWindow> shownWindow(const InstallerLaunch::Options &options)
{
    auto window = std::make_unique<DrivenWindow>(options);
    window->show();
    return QTest::qWaitForWindowExposed(window.get()) ? std::move(window) : nullptr;
}

template <typename T = QWidget>
T *part(QWidget *window, const char *name)
{
    return window->findChild<T *>(QString::fromLatin1(name));
}

// Numbers in the expectations are written with "." and get the system's decimal separator.
QString localized(QString text)
{
    return text.replace(QLatin1Char('.'), QLocale::system().decimalPoint());
}

void clickOn(QWidget *widget)
{
    QTest::mouseClick(widget, Qt::LeftButton, Qt::NoModifier, widget->rect().center());
}

void openSettings(QWidget *window)
{
    clickOn(part<QPushButton>(window, "customButton"));
    QTest::qWait(MainWindow::CustomAnimationDuration + 60);
}

QRgb centrePixel(QWidget *widget)
{
    const QImage image = widget->grab().toImage();
    return image.pixel(image.width() / 5, image.height() / 2);
}

using Files = QList<QPair<QString, QByteArray>>;

// The package a release carries: what the finalization accepts as a product.
const Files releaseFiles {
    { QStringLiteral("brisalinker.exe"), "launcher" },
    { QStringLiteral("updater.exe"), "updater" },
    { QStringLiteral("cfgdata/version.ini"), "[release]\nversion=2.1.0\n" },
    { QStringLiteral("2.1.0/bl-core.exe"), "core" },
    { QStringLiteral("2.1.0/resources/app.pak"), QByteArray(300000, 'p') },
};

// The archive's bytes, also left at `path`.
QByteArray writeZip(const QString &path, const Files &files)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    for (const auto &[name, content] : files) {
        // libzip keeps the buffer until zip_close; the list outlives it.
        zip_source_t *source = zip_source_buffer(archive, content.constData(), zip_uint64_t(content.size()), 0);
        zip_file_add(archive, name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8);
    }
    return archive && zip_close(archive) == 0 ? TestFiles::read(path) : QByteArray();
}

QStringList stagingLeftovers(const QString &parent)
{
    return QDir(parent).entryList({ QStringLiteral("*.installing-*") }, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot);
}

QByteArray manifestFor(const QByteArray &package, const QString &url, qint64 uncompressed)
{
    return QStringLiteral(R"({"schemaVersion": 1, "version": "2.1.0", "releaseId": "2.1.0-demo", "package": {"url": "%1",
        "fileName": "BrisaLinker-2.1.0.zip", "size": %2, "uncompressedSize": %3, "sha256": "%4"},
        "fullPackage": {"url": "%1", "fileName": "full.zip"}})")
        .arg(url).arg(package.size()).arg(uncompressed)
        .arg(QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex())).toUtf8();
}

using Reports = QList<QPair<qint64, qint64>>;

} // namespace

// The window driven by mouse and keys, its boxes and translations, and the installation flow
// driven through it: destination checks, the install lock, progress, close handling and whole
// installations from a package on disk and from a local server.
class UiTest : public QObject
{
    Q_OBJECT

    TestHttpsServer m_server;
    bool m_serverUp = false;
    QString m_serverError;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<MainWindow> m_window;

    QString temp(const char *relative) const { return m_dir->filePath(QString::fromUtf8(relative)); }

    InstallationFlow::Settings settings() const
    {
        InstallationFlow::Settings s;
        // Nothing listens there: a download that is not stopped by the test fails fast.
        s.manifestUrl = QUrl(QStringLiteral("https://127.0.0.1:9/bl-desktop/prod/brisalinker/installer/win/manifest.json"));
        s.temporaryRoot = temp("temp");
        s.applicationRoot = temp("apps");
        s.registryFormat = QSettings::IniFormat;
        s.installerKey = temp("installer-key.ini");
        s.uninstallKeys = { temp("uninstall-key.ini") };
        s.closePermissionDelayMs = 0;
        return s;
    }

    InstallationFlow::Settings served(const QString &path) const
    {
        InstallationFlow::Settings s = settings();
        s.manifestUrl = QUrl(m_server.url(path));
        s.sslConfiguration.addCaCertificates(m_server.caCertificates());
        return s;
    }

    // A flow in the fixture's window, its destination below "Apps", its download stopped so the
    // test alone reports.
    InstallationFlow *startedFlow(const InstallationFlow::Settings &s)
    {
        auto *flow = new InstallationFlow(m_window.get(), {}, s);
        m_window->setDestination(temp("Apps"));
        flow->beginInstall();
        flow->downloadManager()->cancel();
        return flow;
    }

private slots:
    void initTestCase()
    {
        m_serverUp = m_server.start(&m_serverError);
        QFile styles(QStringLiteral(":/styles/app.qss"));
        QVERIFY(styles.open(QIODevice::ReadOnly));
        qApp->setStyleSheet(QString::fromUtf8(styles.readAll()));
    }
    void cleanupTestCase() { m_server.stop(); }
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_window = std::make_unique<MainWindow>(InstallerLaunch::Options {});
        // The test release holds no real program to start.
        part<QCheckBox>(m_window.get(), "launchAfterInstallCheckBox")->setChecked(false);
    }
    void cleanup()
    {
        m_window.reset();
        m_dir.reset();
    }

    void widgetsCarryTheirObjectNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("kind");
        const char *parts[][2] = {
            {"root", "QWidget"}, {"heroPanel", "HeroPanel"}, {"windowButton", "QAbstractButton"}, {"closeButton", "QAbstractButton"},
            {"settingsPanel", "QWidget"}, {"pathPanel", "QWidget"}, {"locationLabel", "QLabel"}, {"pathEdit", "QLineEdit"},
            {"browsePathButton", "QAbstractButton"}, {"spaceLabel", "QLabel"}, {"launchAfterInstallCheckBox", "QCheckBox"},
            {"customButton", "QAbstractButton"}, {"actionPanel", "QWidget"}, {"wordmark", "QLabel"}, {"versionLabel", "QLabel"},
            {"downloadProgressPanel", "QWidget"}, {"downloadStatusLabel", "QLabel"}, {"downloadSpeedLabel", "QLabel"},
            {"downloadProgressBar", "QProgressBar"}, {"overallProgressLabel", "QLabel"}, {"installButton", "QPushButton"},
        };
        for (const auto &[name, kind] : parts)
            QTest::addRow("%s is a %s", name, kind) << QString::fromLatin1(name) << QString::fromLatin1(kind);
    }
    void widgetsCarryTheirObjectNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, kind);
        QCOMPARE(m_window->size(), QSize(743, 480));
        QVERIFY(m_window->windowFlags().testFlag(Qt::FramelessWindowHint));
        QVERIFY(m_window->testAttribute(Qt::WA_TranslucentBackground));
        const QList<QWidget *> found = m_window->findChildren<QWidget *>(name);
        QCOMPARE(found.size(), 1);
        QVERIFY2(found.first()->inherits(kind.toLatin1()), found.first()->metaObject()->className());
    }

    void customButtonOpensAndClosesTheSettings_data()
    {
        QTest::addColumn<int>("clicks");
        QTest::addColumn<bool>("expanded");
        QTest::newRow("untouched, the location stays hidden") << 0 << false;
        QTest::newRow("one click shows the location") << 1 << true;
        QTest::newRow("a second click hides it again") << 2 << false;
        QTest::newRow("a third click shows it once more") << 3 << true;
    }
    void customButtonOpensAndClosesTheSettings()
    {
        QFETCH(int, clicks);
        QFETCH(bool, expanded);
        auto window = shownWindow(interactiveAt(temp("BrisaLinker")));
        QVERIFY(window);
        auto *custom = part<QPushButton>(window.get(), "customButton");
        auto *settings = part(window.get(), "settingsPanel");
        for (int i = 0; i < clicks; ++i) {
            clickOn(custom);
            QTest::qWait(40); // a click in the middle of the animation must turn it around cleanly
        }
        QCOMPARE(custom->property("expanded").toBool(), expanded);
        QCOMPARE(custom->toolTip(), expanded ? QStringLiteral("Hide installation location") : QStringLiteral("Show installation location"));
        QTRY_COMPARE_WITH_TIMEOUT(settings->isVisible(), expanded, 2000);
        if (expanded) {
            QTRY_VERIFY_WITH_TIMEOUT(settings->height() > 80, 2000); // the animation may lag on a busy machine
            QTest::qWait(MainWindow::CustomAnimationDuration + 60);
            QCOMPARE(settings->geometry().bottom(), part(window.get(), "heroPanel")->geometry().bottom());
            QVERIFY(part(window.get(), "pathEdit")->isVisible());
        }
    }

    void arrowsChangeSlides_data()
    {
        QTest::addColumn<QString>("clicks");
        QTest::addColumn<int>("slide");
        QTest::newRow("right arrow shows the second slide") << "R" << 1;
        QTest::newRow("left arrow wraps from the first slide to the last") << "L" << 2;
        QTest::newRow("three right clicks come back to the first") << "RRR" << 0;
        QTest::newRow("right then left returns") << "RL" << 0;
        QTest::newRow("a click between the arrows changes nothing") << "M" << 0;
    }
    void arrowsChangeSlides()
    {
        QFETCH(QString, clicks);
        QFETCH(int, slide);
        auto window = shownWindow(interactiveAt(temp("BrisaLinker")));
        QVERIFY(window);
        auto *hero = part<HeroPanel>(window.get(), "heroPanel");
        QCOMPARE(hero->slideCount(), 3);
        for (const QChar c : clicks) {
            const QPoint at = c == QLatin1Char('L') ? hero->leftArrowRect().center()
                : c == QLatin1Char('R')             ? hero->rightArrowRect().center()
                                                    : QPoint(hero->width() / 2, hero->leftArrowRect().center().y());
            QTest::mouseMove(hero, at);
            QTest::mouseClick(hero, Qt::LeftButton, Qt::NoModifier, at);
        }
        QCOMPARE(hero->currentSlide(), slide);
        if (slide != 0) {
            // The automatic change waits a whole period after the transition the click started.
            QCOMPARE(hero->autoAdvanceInterval(), HeroPanel::TransitionDuration + HeroPanel::SlideInterval);
            QVERIFY(hero->transitionRunning());
            QTRY_VERIFY_WITH_TIMEOUT(!hero->transitionRunning(), 3000);
        }
    }

    void arrowsShowOnlyOverTheUpperBanner_data()
    {
        QTest::addColumn<double>("height");
        QTest::addColumn<bool>("onArrow");
        QTest::addColumn<bool>("visible");
        QTest::newRow("pointer near the banner's top shows the arrows") << 0.1 << false << true;
        QTest::newRow("pointer on an arrow shows a pointing hand") << -1.0 << true << true;
        QTest::newRow("pointer just below two thirds hides them") << 0.7 << false << false;
        QTest::newRow("pointer at the banner's foot hides them") << 0.95 << false << false;
    }
    void arrowsShowOnlyOverTheUpperBanner()
    {
        QFETCH(double, height);
        QFETCH(bool, onArrow);
        QFETCH(bool, visible);
        auto window = shownWindow(interactiveAt(temp("BrisaLinker")));
        QVERIFY(window);
        auto *hero = part<HeroPanel>(window.get(), "heroPanel");
        QTest::mouseMove(hero, onArrow ? hero->rightArrowRect().center() : QPoint(hero->width() / 2, int(hero->height() * height)));
        QTRY_COMPARE_WITH_TIMEOUT(hero->arrowsVisible(), visible, 2000);
        QCOMPARE(hero->cursor().shape() == Qt::PointingHandCursor, onArrow);
    }

    void bannerTopMovesTheWindow_data()
    {
        QTest::addColumn<QPoint>("press");
        QTest::addColumn<int>("button");
        QTest::addColumn<bool>("moves");
        QTest::newRow("a press at the banner's top moves the window") << QPoint(300, 10) << int(Qt::LeftButton) << true;
        QTest::newRow("a press one pixel above the limit moves it") << QPoint(300, 74) << int(Qt::LeftButton) << true;
        QTest::newRow("a press on the limit does not") << QPoint(300, 75) << int(Qt::LeftButton) << false;
        QTest::newRow("a press lower on the banner does not") << QPoint(300, 200) << int(Qt::LeftButton) << false;
        QTest::newRow("a right press at the top does not") << QPoint(300, 10) << int(Qt::RightButton) << false;
        QTest::newRow("a press on the close button closes, not moves") << QPoint(-1, -1) << int(Qt::LeftButton) << false;
    }
    void bannerTopMovesTheWindow()
    {
        QFETCH(QPoint, press);
        QFETCH(int, button);
        QFETCH(bool, moves);
        auto window = shownWindow(interactiveAt(temp("BrisaLinker")));
        QVERIFY(window);
        if (press == QPoint(-1, -1)) {
            auto *close = part(window.get(), "closeButton");
            press = close->mapTo(window.get(), close->rect().center());
        }
        QWidget *target = window->childAt(press);
        QVERIFY(target);
        QTest::mousePress(target, Qt::MouseButton(button), Qt::NoModifier, target->mapFrom(window.get(), press));
        QTest::mouseRelease(target, Qt::MouseButton(button), Qt::NoModifier, target->mapFrom(window.get(), press));
        QCOMPARE(window->moves > 0, moves);
    }

    void lockingFreezesTheLocation_data()
    {
        QTest::addColumn<bool>("update");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<bool>("locked");
        QTest::newRow("an interactive window starts unlocked") << false << "" << false;
        QTest::newRow("locking freezes the path and the chooser") << false << "L" << true;
        QTest::newRow("unlocking restores both") << false << "LU" << false;
        QTest::newRow("an update starts locked to its fixed directory") << true << "" << true;
    }
    void lockingFreezesTheLocation()
    {
        QFETCH(bool, update);
        QFETCH(QString, actions);
        QFETCH(bool, locked);
        InstallerLaunch::Options options = interactiveAt(temp("Fixed/BrisaLinker"));
        options.update = update;
        auto window = shownWindow(options);
        QVERIFY(window);
        for (const QChar c : actions)
            window->lockInstallOptions(c == QLatin1Char('L'));
        QCOMPARE(part<QLineEdit>(window.get(), "pathEdit")->isReadOnly(), locked);
        QCOMPARE(part(window.get(), "browsePathButton")->isEnabled(), !locked);
        openSettings(window.get());
        window->answer = temp("Elsewhere");
        clickOn(part(window.get(), "browsePathButton"));
        QCOMPARE(window->asked, locked ? 0 : 1);
        // A fixed update target is never offered to the chooser, whichever way it is reached.
        window->chooseInstallDirectory();
        QCOMPARE(window->asked, (locked ? 0 : 1) + (update ? 0 : 1));
        if (update)
            QCOMPARE(window->destination(), temp("Fixed/BrisaLinker"));
    }

    void chosenFolderBecomesTheTarget_data()
    {
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("target");
        QTest::newRow("a plain folder gets its own BrisaLinker subfolder") << "Apps/BrisaLinker" << "Games" << "Apps" << "Games/BrisaLinker";
        QTest::newRow("a folder already named BrisaLinker is taken as it is")
            << "Apps/BrisaLinker" << "Tools/BrisaLinker" << "Apps" << "Tools/BrisaLinker";
        QTest::newRow("the product name is recognised in any case") << "Apps/brisalinker" << "Tools/BRISALINKER" << "Apps" << "Tools/BRISALINKER";
        QTest::newRow("a trailing separator is not a folder name") << "Apps/BrisaLinker" << "Games/" << "Apps" << "Games/BrisaLinker";
        QTest::newRow("a current folder of another name is where the chooser starts") << "Apps/Other" << "Games" << "Apps/Other" << "Games/BrisaLinker";
        QTest::newRow("a cancelled chooser keeps the destination") << "Apps/BrisaLinker" << "" << "Apps" << "Apps/BrisaLinker";
    }
    void chosenFolderBecomesTheTarget()
    {
        QFETCH(QString, current);
        QFETCH(QString, chosen);
        QFETCH(QString, start);
        QFETCH(QString, target);
        const QString base = QDir::cleanPath(m_dir->path()) + QLatin1Char('/');
        auto window = shownWindow(interactiveAt(base + current));
        QVERIFY(window);
        window->answer = chosen.isEmpty() ? QString() : QDir::toNativeSeparators(base + chosen);
        openSettings(window.get());
        clickOn(part(window.get(), "browsePathButton"));
        QCOMPARE(window->asked, 1);
        QCOMPARE(QDir::cleanPath(QDir::fromNativeSeparators(window->askedStart)), base + start);
        QCOMPARE(window->destination(), base + target);
        const QString shown = QDir::toNativeSeparators(base + target);
        auto *edit = part<QLineEdit>(window.get(), "pathEdit");
        QCOMPARE(edit->text(), shown);
        QCOMPARE(edit->toolTip(), shown);
        QCOMPARE(part(window.get(), "installButton")->toolTip(), QStringLiteral("Install to %1").arg(shown));
    }

    void formatsSizesAndSpeeds_data()
    {
        QTest::addColumn<bool>("speed");
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        const qint64 MiB = 1024 * 1024, GiB = 1024 * MiB;
        QTest::newRow("nothing is zero megabytes") << false << qint64(0) << "0 MB";
        QTest::newRow("one mebibyte") << false << MiB << "1 MB";
        QTest::newRow("half a mebibyte rounds to one") << false << MiB / 2 << "1 MB";
        QTest::newRow("hundreds of megabytes have no decimals") << false << 512 * MiB + 100 << "512 MB";
        QTest::newRow("one gibibyte switches to gigabytes") << false << GiB << "1.0 GB";
        QTest::newRow("one and a half gibibytes keep a decimal") << false << GiB + GiB / 2 << "1.5 GB";
        QTest::newRow("just below ten gibibytes keeps a decimal") << false << 10 * GiB - 200 * MiB << "9.8 GB";
        QTest::newRow("ten gibibytes drop the decimal") << false << 10 * GiB << "10 GB";
        QTest::newRow("a large volume") << false << 931 * GiB + GiB / 3 << "931 GB";
        QTest::newRow("a stalled transfer") << true << qint64(0) << "0 KB/s";
        QTest::newRow("kilobytes per second round to the nearest") << true << qint64(1536) << "2 KB/s";
        QTest::newRow("just below a megabyte per second stays in kilobytes") << true << qint64(1023.4 * 1024) << "1023 KB/s";
        QTest::newRow("one megabyte per second keeps a decimal") << true << MiB << "1.0 MB/s";
        QTest::newRow("fast transfers in megabytes") << true << qint64(12.25 * MiB) << "12.3 MB/s";
    }
    void formatsSizesAndSpeeds()
    {
        QFETCH(bool, speed);
        QFETCH(qint64, bytes);
        QFETCH(QString, text);
        // Group separators differ between locales; none of the expectations needs one.
        QString shown = speed ? InstallationFlow::transferSpeedText(bytes) : MainWindow::formatBytes(bytes);
        QCOMPARE(shown.remove(QLocale::system().groupSeparator()), localized(text));
    }

    void availableSpaceOfTheDestination_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<bool>("known");
        QTest::newRow("a destination that does not exist yet uses its nearest existing folder") << "not/yet/there/BrisaLinker" << true;
        QTest::newRow("an existing destination uses its own volume") << "." << true;
        QTest::newRow("an empty destination has no volume") << "" << false;
#ifdef Q_OS_WIN
        QTest::newRow("a drive that does not exist has no volume") << "Q:/Nowhere/BrisaLinker" << false;
#endif
    }
    void availableSpaceOfTheDestination()
    {
        QFETCH(QString, destination);
        QFETCH(bool, known);
        m_window->setDestination(destination.isEmpty() || QDir::isAbsolutePath(destination) ? destination
                                                                                           : QDir::cleanPath(m_dir->filePath(destination)));
        // Others write to the same volume while the test runs; the figure may move by a step.
        const qint64 free = QStorageInfo(m_dir->path()).bytesAvailable();
        QStringList acceptable;
        for (const qint64 delta : { qint64(0), qint64(-8) << 20, qint64(8) << 20 })
            acceptable << (known ? QStringLiteral("Available: %1").arg(MainWindow::formatBytes(free + delta)) : QStringLiteral("Available: --"));
        const QString shown = part<QLabel>(m_window.get(), "availableSpaceLabel")->text();
        QVERIFY2(acceptable.contains(shown), qPrintable(shown + QStringLiteral(" vs ") + acceptable.first()));
    }

    void progressRowShowsTheWork_data()
    {
        QTest::addColumn<QString>("status");
        QTest::addColumn<bool>("shortened");
        QTest::newRow("a short status is shown whole") << "Extracting..." << false;
        QTest::newRow("a long translated status is shortened, whole in its tooltip")
            << QStringLiteral("Закрытие запущенных приложений, которые используют файлы установки...") << true;
    }
    void progressRowShowsTheWork()
    {
        QFETCH(QString, status);
        QFETCH(bool, shortened);
        auto window = shownWindow(interactiveAt(temp("BrisaLinker")));
        QVERIFY(window);
        auto *install = part<QPushButton>(window.get(), "installButton");
        const QRect before = install->geometry();
        QCOMPARE(install->property("phase").toString(), QStringLiteral("install"));
        QCOMPARE(install->text(), QStringLiteral("Install"));
        const QRgb idle = centrePixel(install);
        window->setVersionText(QStringLiteral("1.4.20"));
        QVERIFY(part(window.get(), "versionLabel")->isVisible());
        window->setPhase(MainWindow::Phase::Busy);
        window->setWorking(true);
        window->setSpeedText(localized(QStringLiteral("2.5 MB/s")));
        window->setStatusText(status);
        QTest::qWait(50);
        auto *label = part(window.get(), "downloadStatusLabel");
        auto *panel = part(window.get(), "downloadProgressPanel");
        QCOMPARE(install->geometry(), before);
        QVERIFY(panel->isVisible() && !part(window.get(), "versionLabel")->isVisible());
        QVERIFY(panel->geometry().right() < install->geometry().left());
        QVERIFY(label->geometry().right() <= panel->width());
        QCOMPARE(label->toolTip(), shortened ? status : QString());
        window->setRequiredSpace(300LL << 20);
        QCOMPARE(part<QLabel>(window.get(), "spaceLabel")->text(), QStringLiteral("Required: 300 MB"));
        window->setInstallButtonText(QStringLiteral("Preparing..."));
        QCOMPARE(install->property("phase").toString(), QStringLiteral("busy"));
        const QRgb busy = centrePixel(install);
        window->setPhase(MainWindow::Phase::Done);
        QCOMPARE(install->property("phase").toString(), QStringLiteral("done"));
        QCOMPARE(install->text(), QStringLiteral("Done"));
        const QRgb done = centrePixel(install);
        QVERIFY(idle != busy && busy != done && idle != done);
        auto *custom = part(window.get(), "customButton");
        const QRgb collapsed = centrePixel(custom);
        clickOn(custom);
        QVERIFY(centrePixel(custom) != collapsed);
    }

    void boxesReportTheChoice_data()
    {
        QTest::addColumn<bool>("confirmation");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<int>("result");
        QTest::addColumn<QStringList>("buttons");
        const int retry = QMessageBox::Retry, cancel = QMessageBox::Cancel;
        QTest::newRow("the accept button agrees") << true << "" << "Replace" << 1 << QStringList { "Keep", "Replace" };
        QTest::newRow("the reject button declines") << true << "" << "Keep" << 0 << QStringList { "Keep", "Replace" };
        QTest::newRow("Escape declines") << true << "" << "Escape" << 0 << QStringList { "Keep", "Replace" };
        QTest::newRow("Enter does not agree by accident") << true << "" << "Return" << 0 << QStringList { "Keep", "Replace" };
        QTest::newRow("Enter on a warning presses its default") << false << "" << "Return" << retry << QStringList { "Cancel", "Retry" };
        QTest::newRow("a warning reports the button pressed") << false << "" << "Cancel" << cancel << QStringList { "Cancel", "Retry" };
        // The installer ships no Qt translations, so the box's own labels must come from ours.
        QTest::newRow("a warning's buttons speak Russian") << false << "ru_RU" << QStringLiteral("Отмена") << cancel
                                                           << QStringList { QStringLiteral("Отмена"), QStringLiteral("Повторить") };
    }
    void boxesReportTheChoice()
    {
        QFETCH(bool, confirmation);
        QFETCH(QString, language);
        QFETCH(QString, answer);
        QFETCH(int, result);
        QFETCH(QStringList, buttons);
        QTranslator translator;
        if (!language.isEmpty()) {
            QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_%1.qm").arg(language)));
            QCoreApplication::installTranslator(&translator);
        }
        ModalAnswers answers({ answer });
        QCOMPARE(confirmation ? int(MainWindow::confirmInstallerAction(nullptr, QStringLiteral("Question"), QStringLiteral("Replace it?"),
                                                                       QStringLiteral("Replace"), QStringLiteral("Keep")))
                              : int(MainWindow::showInstallerWarning(nullptr, QStringLiteral("Installation failed"), QStringLiteral("No."),
                                                                     QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry)),
                 result);
        QCoreApplication::removeTranslator(&translator);
        QCOMPARE(answers.seen.size(), 1);
        QVERIFY(answers.seen.first().icon);
        answers.seen.first().buttons.sort();
        QCOMPARE(answers.seen.first().buttons, buttons);
    }

    void translationsCoverEveryLanguage_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("context");
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("translation");
        const QString startup = QStringLiteral("InstallerStartup"), finalizer = QStringLiteral("InstallerFinalizer");
        QTest::newRow("Russian start-up notice keeps its placeholder")
            << "ru_RU" << startup << "Windows could not start the installer with administrator permission. Windows error %1: %2"
            << QStringLiteral("Windows не удалось запустить установщик с правами администратора. Ошибка Windows %1: %2");
        QTest::newRow("Russian finalizer stage") << "ru_RU" << finalizer << "Creating shortcuts..." << QStringLiteral("Создание ярлыков...");
        QTest::newRow("Spanish location discovery message")
            << "es_ES" << startup << "The previous Brisa-Linker installation was not found. Select the installation location manually."
            << QStringLiteral("No se encontró la instalación anterior de Brisa-Linker. Seleccione la ubicación de instalación manualmente.");
        QTest::newRow("Japanese multi-line message keeps its line break")
            << "ja_JP" << startup << "More than one Brisa-Linker installation was found. Select the installation location manually.\n%1"
            << QStringLiteral("Brisa-Linker のインストールが複数見つかりました。インストール先を手動で選択してください。\n%1");
        QTest::newRow("English keeps the source text") << "en_US" << startup << "Choose installation location" << QStringLiteral("Choose installation location");
    }
    void translationsCoverEveryLanguage()
    {
        QFETCH(QString, file);
        QFETCH(QString, context);
        QFETCH(QString, source);
        QFETCH(QString, translation);
        QTranslator translator;
        QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_%1.qm").arg(file)));
        QCOMPARE(translator.translate(context.toLatin1(), source.toUtf8()), translation);
    }

    void windowSpeaksTheSystemLanguage()
    {
        QTranslator translator;
        QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_ja_JP.qm")));
        QCoreApplication::installTranslator(&translator);
        MainWindow window(interactiveAt(temp("BrisaLinker")));
        QCoreApplication::removeTranslator(&translator);
        QCOMPARE(part<QPushButton>(&window, "installButton")->text(), QStringLiteral("インストール"));
        QCOMPARE(part<QLabel>(&window, "locationLabel")->text(), QStringLiteral("インストール先"));
        QCOMPARE(part(&window, "customButton")->toolTip(), QStringLiteral("インストール先を表示"));
    }

    void sourcesKeepNoUnsafeCalls_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("allowedIn");
        // The installer runs elevated: whatever it opens for the user runs as the administrator.
        QTest::newRow("no label opens its links by itself") << "setOpenExternalLinks(true)" << QString();
        QTest::newRow("no address is opened through the toolkit") << "QDesktopServices::openUrl" << QString();
        QTest::newRow("only the elevation requests go through the shell") << "ShellExecute" << "app/startup_win.cpp uninstaller/uninstall_main.cpp";
        // A recursive removal that walks into a junction deletes what it points to.
        QTest::newRow("no tree is removed by a walk that follows links") << "removeRecursively" << QString();
    }
    void sourcesKeepNoUnsafeCalls()
    {
        QFETCH(QString, call);
        QFETCH(QString, allowedIn);
        QString root = QStringLiteral(BRISA_TEST_SOURCE_DIR "/../src");
#ifdef Q_OS_WIN
        if (root.startsWith(QLatin1Char('/')))
            root.prepend(QStringLiteral("Z:")); // the Unix tree as Wine shows it
#endif
        QStringList found;
        int read = 0;
        QDirIterator it(root, { QStringLiteral("*.cpp"), QStringLiteral("*.h") }, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString relative = QDir(root).relativeFilePath(it.next());
            ++read;
            if (!allowedIn.split(QLatin1Char(' ')).contains(relative) && QString::fromUtf8(TestFiles::read(it.filePath())).contains(call))
                found << relative;
        }
        QVERIFY2(read > 50, qPrintable(root));
        QVERIFY2(found.isEmpty(), qPrintable(found.join(QLatin1Char(' '))));
    }

    void progressOnlyGrows_data()
    {
        QTest::addColumn<Reports>("reports");
        QTest::addColumn<QList<int>>("overall");
        QTest::newRow("a plain download") << Reports { { 0, 100 }, { 50, 100 }, { 100, 100 } } << QList<int> { 1, 33, 65 };
        QTest::newRow("the cache resets to fewer bytes") << Reports { { 80, 100 }, { 10, 100 }, { 90, 100 } } << QList<int> { 52, 52, 58 };
        QTest::newRow("more bytes than the package") << Reports { { 500, 100 } } << QList<int> { 65 };
        QTest::newRow("an unknown size leaves the figure alone") << Reports { { 40, 100 }, { 40, 0 }, { 70, -1 } } << QList<int> { 26, 26, 26 };
        QTest::newRow("negative counts") << Reports { { -5, 100 }, { 1, 100 } } << QList<int> { 1, 1 };
        QTest::newRow("sizes past 4 GiB") << Reports { { 6000000000LL, 12000000000LL } } << QList<int> { 33 };
    }
    void progressOnlyGrows()
    {
        QFETCH(Reports, reports);
        QFETCH(QList<int>, overall);
        InstallationFlow *flow = startedFlow(settings());
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
        for (qsizetype i = 0; i < reports.size(); ++i) {
            emit flow->downloadManager()->progressChanged(reports.at(i).first, reports.at(i).second);
            QCOMPARE(flow->overallProgress(), overall.at(i));
            QCOMPARE(part<QLabel>(m_window.get(), "overallProgressLabel")->text(), QStringLiteral("%1%").arg(overall.at(i)));
        }
        // Extraction starts at 65 and reports 0 % first: the figure must not fall back.
        QVERIFY(InstallationFlow::extractionShare(0, 1000) >= 65);
        QCOMPARE(InstallationFlow::extractionShare(1000, 1000), 85);
        QCOMPARE(InstallationFlow::finalizationShare(250), 99);
        QCOMPARE(InstallationFlow::finalizationShare(-3), 85);
    }

    void destinationRefusals_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("expected");
        const QString invalid = QStringLiteral("Choose a valid installation location.");
#ifdef Q_OS_WIN
        QTest::newRow("a drive root") << "C:/" << invalid;
        QTest::newRow("inside the Windows directory") << "C:/windows/Apps" << "Brisa-Linker cannot be installed in this system location.";
        QTest::newRow("below a directory link") << "C:/brisa-link-fixture/dir-link/Apps" << "The installation location cannot contain directory links.";
#else
        QTest::newRow("the root") << "/" << invalid;
        QTest::newRow("inside the Windows directory") << "@windir/Apps" << "Brisa-Linker cannot be installed in this system location.";
        QTest::newRow("below a directory link") << "@link/Apps" << "The installation location cannot contain directory links.";
#endif
        QTest::newRow("a relative path") << "apps/BrisaLinker" << invalid;
        QTest::newRow("an existing program that is not ours")
            << "@foreign" << "The existing application executable cannot be identified. No old files were removed.";
    }
    void destinationRefusals()
    {
        QFETCH(QString, destination);
        QFETCH(QString, expected);
        const QByteArray windir = qgetenv("WINDIR");
#ifndef Q_OS_WIN
        qputenv("WINDIR", temp("windows").toUtf8());
#endif
        const auto restore = qScopeGuard([&] { windir.isNull() ? qunsetenv("WINDIR") : qputenv("WINDIR", windir); });
        if (destination == QLatin1String("@windir/Apps")) {
            destination = temp("windows/Apps");
        } else if (destination == QLatin1String("@link/Apps")) {
            QDir().mkpath(temp("real"));
            QVERIFY(QFile::link(temp("real"), temp("link")));
            destination = temp("link/Apps");
        } else if (destination == QLatin1String("@foreign")) {
            destination = temp("Apps/BrisaLinker");
            QVERIFY(TestFiles::write(destination + QStringLiteral("/brisalinker.exe"), "not a program"));
        }
        auto *flow = new InstallationFlow(m_window.get(), {}, settings());
        m_window->setDestination(destination);
        ModalAnswers answers({ QStringLiteral("OK") });
        flow->beginInstall();
        QCOMPARE(answers.seen.size(), 1);
        QCOMPARE(answers.seen.first().title, QStringLiteral("Invalid installation location"));
        QVERIFY2(answers.seen.first().text.startsWith(expected), qPrintable(answers.seen.first().text));
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
        QVERIFY(!flow->holdsInstallLock());
    }

    void secondInstallerWaitsForTheFirst()
    {
        // The other installer holds the lock from its own thread, as another process would.
        FlowPlatform::InstallOperationLock *other = nullptr;
        QThread holder;
        QObject context;
        context.moveToThread(&holder);
        holder.start();
        QMetaObject::invokeMethod(&context, [&other] { (other = new FlowPlatform::InstallOperationLock)->acquire(); },
                                  Qt::BlockingQueuedConnection);
        QVERIFY(other->held());
        auto *flow = new InstallationFlow(m_window.get(), {}, settings());
        m_window->setDestination(temp("Apps"));
        {
            ModalAnswers answers({ QStringLiteral("OK") });
            flow->beginInstall();
            QCOMPARE(answers.seen.size(), 1);
            QCOMPARE(answers.seen.first().title, QStringLiteral("Installation in progress"));
            QCOMPARE(answers.seen.first().text, QStringLiteral("Another installer is currently installing Brisa-Linker. "
                                                               "You can keep this window open and try again when it finishes."));
        }
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
        QVERIFY(part(m_window.get(), "installButton")->isEnabled());
        QMetaObject::invokeMethod(&context, [&other] { delete other; }, Qt::BlockingQueuedConnection);
        holder.quit();
        holder.wait();
        // The same window tries again once the other installer is done.
        flow->beginInstall();
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
        QVERIFY(flow->holdsInstallLock());
        flow->downloadManager()->cancel();
    }

    void installsTheReleaseEndToEnd()
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
        const QString zip = temp("package.zip");
        QVERIFY(!writeZip(zip, releaseFiles).isEmpty());
        auto *label = part<QLabel>(m_window.get(), "overallProgressLabel");
        QList<int> seen;
        QTimer sampler;
        const auto sample = [&] {
            const int value = label->text().chopped(1).toInt();
            if (seen.isEmpty() || seen.last() != value)
                seen << value;
        };
        connect(&sampler, &QTimer::timeout, this, sample);
        sampler.start(1);
        InstallationFlow *flow = startedFlow(settings());
        QCOMPARE(flow->destination(), temp("Apps/BrisaLinker"));
        emit flow->downloadManager()->progressChanged(400, 1000);
        emit flow->downloadManager()->completed(zip, QUrl(), QStringLiteral("2.1.0"));
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Extracting);
        QVERIFY(QFileInfo(flow->stagingDirectory()).fileName().startsWith(QStringLiteral("BrisaLinker.installing-")));
        QTRY_COMPARE_WITH_TIMEOUT(flow->phase(), InstallationFlow::Phase::Done, 60000);
        sampler.stop();
        sample();
        QCOMPARE(flow->overallProgress(), 100);
        QCOMPARE(label->text(), QStringLiteral("100%"));
        QCOMPARE(m_window->phase(), MainWindow::Phase::Done);
        QVERIFY(!flow->holdsInstallLock());
        for (qsizetype i = 1; i < seen.size(); ++i)
            QVERIFY2(seen.at(i) > seen.at(i - 1), "the overall progress went backwards");
        QVERIFY(seen.indexOf(100) == seen.size() - 1);
        for (const auto &[name, content] : releaseFiles)
            QVERIFY2(TestFiles::read(flow->destination() + QLatin1Char('/') + name) == content, qPrintable(name));
        QTRY_VERIFY(stagingLeftovers(temp("Apps")).isEmpty());
    }

    void closeDuringExtractionLeavesNoStaging()
    {
        // Large enough that the close arrives while the extractor is still writing.
        Files files = releaseFiles;
        for (int i = 0; i < 8; ++i)
            files << qMakePair(QStringLiteral("2.1.0/blob-%1.bin").arg(i), QByteArray(32 * 1024 * 1024, char('a' + i)));
        QVERIFY(!writeZip(temp("package.zip"), files).isEmpty());
        InstallationFlow *flow = startedFlow(settings());
        QSignalSpy quit(flow, &InstallationFlow::quitRequested);
        emit flow->downloadManager()->completed(temp("package.zip"), QUrl(), QStringLiteral("2.1.0"));
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Extracting);
        QVERIFY(QFileInfo(flow->stagingDirectory()).isDir());
        QTRY_VERIFY(flow->closePermitted());
        ModalAnswers answers({ QStringLiteral("Yes") });
        QVERIFY(m_window->close());
        QTRY_COMPARE_WITH_TIMEOUT(quit.size(), 1, 30000);
        QCOMPARE(answers.seen.size(), 1);
        QCOMPARE(answers.seen.first().title, QStringLiteral("Exit installation?"));
        QCOMPARE(stagingLeftovers(temp("Apps")), QStringList());
        QVERIFY(!QFileInfo::exists(temp("Apps/BrisaLinker")));
        QVERIFY(!flow->holdsInstallLock());
    }

    void failedExtractionOffersRetry_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("foreignProgram");
        QTest::addColumn<QString>("message");
        const QString unopened = QStringLiteral("Unable to open the downloaded ZIP package.");
        QTest::newRow("a file that is no zip is refused and cancelled back to the first page")
            << QByteArray("this is no archive") << "Cancel" << false << "The downloaded ZIP package is invalid.";
        QTest::newRow("a missing package is reported and cancelled back to the first page") << QByteArray() << "Cancel" << false << unopened;
        QTest::newRow("the retry is a new attempt under the close rule") << QByteArray() << "Retry" << false << unopened;
        QTest::newRow("a retry refused by the location leaves the first page usable") << QByteArray() << "Retry" << true << unopened;
    }
    void failedExtractionOffersRetry()
    {
        QFETCH(QByteArray, archive);
        QFETCH(QString, answer);
        QFETCH(bool, foreignProgram);
        QFETCH(QString, message);
        if (!archive.isEmpty())
            QVERIFY(TestFiles::write(temp("package.zip"), archive));
        InstallationFlow::Settings s = settings();
        s.closePermissionDelayMs = 600000;
        InstallationFlow *flow = startedFlow(s);
        QSignalSpy cleaned(flow, &InstallationFlow::stagingCleanupFinished);
        // Appears after the first attempt's checks, so only the retry meets it.
        if (foreignProgram)
            QVERIFY(TestFiles::write(flow->destination() + QStringLiteral("/brisalinker.exe"), "not a program"));
        ModalAnswers answers({ answer, QStringLiteral("OK") });
        emit flow->downloadManager()->completed(temp("package.zip"), QUrl(), QStringLiteral("2.1.0"));
        QTRY_VERIFY(!answers.seen.isEmpty());
        QCOMPARE(answers.seen.first().title, QStringLiteral("Installation failed"));
        QCOMPARE(answers.seen.first().text, message);
        if (answer == QLatin1String("Retry") && !foreignProgram) {
            QTRY_COMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
            QVERIFY(!flow->closePermitted());
            QVERIFY(!part(m_window.get(), "closeButton")->isEnabled());
            return flow->downloadManager()->cancel();
        }
        if (foreignProgram) {
            QTRY_COMPARE(answers.seen.size(), 2);
            QCOMPARE(answers.seen.at(1).title, QStringLiteral("Invalid installation location"));
            QVERIFY(part(m_window.get(), "installButton")->isEnabled());
            QVERIFY(part(m_window.get(), "closeButton")->isEnabled());
        } else {
            QTRY_COMPARE(cleaned.size(), 1);
            QCOMPARE(stagingLeftovers(temp("Apps")), QStringList());
        }
        QCOMPARE(flow->phase(), InstallationFlow::Phase::Initial);
        QCOMPARE(m_window->phase(), MainWindow::Phase::Install);
        QVERIFY(!flow->holdsInstallLock());
    }

    void downloadFailureDialog_data()
    {
        QTest::addColumn<QUrl>("fullPackage");
        QTest::addColumn<QString>("linkText");
        const QString unavailable = QStringLiteral("The full package link is unavailable.");
        QTest::newRow("with a full package") << QUrl(QStringLiteral("https://example.invalid/full.zip"))
                                             << "<a href=\"https://example.invalid/full.zip\">Download full package</a>";
        QTest::newRow("without one") << QUrl() << unavailable;
        QTest::newRow("a plain http address is not offered") << QUrl(QStringLiteral("http://example.invalid/full.zip")) << unavailable;
        QTest::newRow("markup in the address stays text") << QUrl(QStringLiteral("https://example.invalid/a\"><b>x"))
                                                          << "<a href=\"https://example.invalid/a%22%3E%3Cb%3Ex\">Download full package</a>";
    }
    void downloadFailureDialog()
    {
        QFETCH(QUrl, fullPackage);
        QFETCH(QString, linkText);
        DownloadFailureDialog dialog(fullPackage);
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Download failed"));
        QCOMPARE(part<QLabel>(&dialog, "downloadFailureDescription")->text(),
                 QStringLiteral("We couldn't download the required files. Retry or download the full package."));
        QCOMPARE(part<QLabel>(&dialog, "fullPackageLink")->text(), linkText);
        auto *support = part<QLabel>(&dialog, "supportLabel");
        QVERIFY(support->text().startsWith(QStringLiteral("Need help? Contact")));
        // Opened by nobody in this elevated process: a click is handed on to be opened as the user.
        for (const QLabel *label : dialog.findChildren<QLabel *>())
            QVERIFY(!label->openExternalLinks());
        QSignalSpy requested(&dialog, &DownloadFailureDialog::linkRequested);
        emit support->linkActivated(QStringLiteral("mailto:support@brisalinker.com"));
        QCOMPARE(requested.size(), 1);
        QCOMPARE(requested.first().first().toUrl(), QUrl(QStringLiteral("mailto:support@brisalinker.com")));
    }

    void downloadFailuresShowTheDialog_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("an invalid manifest") << "manifest";
        QTest::newRow("a package that fails verification") << "digest";
        QTest::newRow("no manifest at all") << "missing";
    }
    void downloadFailuresShowTheDialog()
    {
        QFETCH(QString, fault);
        if (!m_serverUp)
            QSKIP(qPrintable(QStringLiteral("the local TLS server is unavailable: ") + m_serverError));
        const QString base = QLatin1Char('/') + fault;
        const QByteArray package = writeZip(temp("p.zip"), releaseFiles);
        QVERIFY(!package.isEmpty());
        const QByteArray manifest = fault == QLatin1String("manifest") ? QByteArray("{\"schemaVersion\": 2}")
                                                                   : manifestFor(package, m_server.url(base + QStringLiteral("/package.zip")), 4096);
        if (fault != QLatin1String("missing")) {
            m_server.setFile(base + QStringLiteral("/manifest.json"), manifest);
            m_server.setFile(base + QStringLiteral("/manifest.json.sig"), TestSigning::signatureFile(manifest));
        }
        QByteArray onServer = package;
        if (fault == QLatin1String("digest"))
            onServer[onServer.size() / 2] = char(onServer.at(onServer.size() / 2) ^ 0x5a);
        m_server.setFile(base + QStringLiteral("/package.zip"), onServer);
        auto *flow = new InstallationFlow(m_window.get(), {}, served(base + QStringLiteral("/manifest.json")));
        m_window->setDestination(temp("Apps"));
        ModalAnswers answers({ QStringLiteral("Cancel") });
        flow->beginInstall();
        QTRY_COMPARE_WITH_TIMEOUT(answers.seen.size(), 1, 60000);
        QCOMPARE(answers.seen.first().title, QStringLiteral("Download failed"));
        QCOMPARE(answers.seen.first().text, QStringLiteral("We couldn't download the required files. Retry or download the full package."));
        QTRY_COMPARE(flow->phase(), InstallationFlow::Phase::Initial);
        QVERIFY(!flow->holdsInstallLock());
        QVERIFY(!QFileInfo::exists(flow->destination()));
    }

    void closeDuringDownloadKeepsTheCacheForTheNextRun()
    {
        if (!m_serverUp)
            QSKIP(qPrintable(QStringLiteral("the local TLS server is unavailable: ") + m_serverError));
        // Three chunks of incompressible bytes; the first request stalls halfway, so one chunk is
        // unfinished at the close.
        QByteArray noise(20 * 1024 * 1024, Qt::Uninitialized);
        QRandomGenerator(42).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        Files files = releaseFiles;
        files << qMakePair(QStringLiteral("2.1.0/resources/noise.bin"), noise);
        const QByteArray package = writeZip(temp("p.zip"), files);
        QVERIFY(package.size() > 16 * 1024 * 1024);
        qint64 uncompressed = 0;
        for (const auto &file : files)
            uncompressed += file.second.size();
        const QString zip = QStringLiteral("/resume/package.zip");
        const QByteArray manifest = manifestFor(package, m_server.url(zip), uncompressed);
        m_server.setFile(QStringLiteral("/resume/manifest.json"), manifest);
        m_server.setFile(QStringLiteral("/resume/manifest.json.sig"), TestSigning::signatureFile(manifest));
        m_server.setFile(zip, package);
        m_server.clearFaults();
        m_server.addFault(zip, TestHttpsServer::Fault::StallMidBody, 1);
        m_server.resetCounters();
        const InstallationFlow::Settings s = served(QStringLiteral("/resume/manifest.json"));
        {
            MainWindow window(InstallerLaunch::Options {});
            auto *flow = new InstallationFlow(&window, {}, s);
            window.setDestination(temp("Apps"));
            QSignalSpy quit(flow, &InstallationFlow::quitRequested);
            flow->beginInstall();
            QTRY_VERIFY_WITH_TIMEOUT(m_server.requestCount(zip) >= 3, 30000);
            QTest::qWait(1500); // lets the two healthy chunks land in the cache
            QCOMPARE(flow->phase(), InstallationFlow::Phase::Downloading);
            QTRY_VERIFY(flow->closePermitted());
            ModalAnswers answers({ QStringLiteral("Yes") });
            QVERIFY(window.close());
            QTRY_COMPARE(quit.size(), 1);
            QVERIFY(!flow->holdsInstallLock());
        }
        const QList<QByteArray> first = m_server.ranges(zip);
        m_server.resetCounters();
        auto *flow = new InstallationFlow(m_window.get(), {}, s);
        m_window->setDestination(temp("Apps"));
        flow->beginInstall();
        QTRY_COMPARE_WITH_TIMEOUT(flow->phase(), InstallationFlow::Phase::Done, 120000);
        // Only the unfinished chunk travels again.
        const QList<QByteArray> again = m_server.ranges(zip);
        QVERIFY2(again.size() == 1, qPrintable(QStringLiteral("first run %1; second run %2 requests").arg(first.join(' ')).arg(again.size())));
        QVERIFY(TestFiles::read(flow->destination() + QStringLiteral("/2.1.0/resources/noise.bin")) == noise);
    }
};

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
