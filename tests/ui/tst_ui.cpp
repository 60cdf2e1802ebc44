#include "ui/hero_panel.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QTranslator>

#include <functional>
#include <memory>

namespace {

// The window with its two platform seams answered by the test: the folder chooser returns a
// prepared answer and a system move is only counted.
class DrivenWindow : public MainWindow
{
public:
    using MainWindow::MainWindow;
    QString answer;
    QString askedStart;
    int asked = 0;
    int moves = 0;

protected:
    bool startSystemMove() override
    {
        ++moves;
        return true;
    }
    QString askForDirectory(const QString &startDirectory) override
    {
        ++asked;
        askedStart = startDirectory;
        return answer;
    }
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
    if (!QTest::qWaitForWindowExposed(window.get()))
        return nullptr;
    return window;
}

template <typename T>
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

QRgb centrePixel(QWidget *widget)
{
    const QImage image = widget->grab().toImage();
    return image.pixel(image.width() / 5, image.height() / 2);
}

void answerNextMessageBox(const std::function<void(QMessageBox *)> &answer)
{
    QTimer::singleShot(0, [answer] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (box)
            answer(box);
    });
}

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void widgetsCarryTheirObjectNames_data();
    void widgetsCarryTheirObjectNames();
    void customButtonOpensAndClosesTheSettings_data();
    void customButtonOpensAndClosesTheSettings();
    void arrowsChangeSlides_data();
    void arrowsChangeSlides();
    void arrowsShowOnlyOverTheUpperBanner_data();
    void arrowsShowOnlyOverTheUpperBanner();
    void bannerTopMovesTheWindow_data();
    void bannerTopMovesTheWindow();
    void lockingFreezesTheLocation_data();
    void lockingFreezesTheLocation();
    void chosenFolderBecomesTheTarget_data();
    void chosenFolderBecomesTheTarget();
    void formatsBytes_data();
    void formatsBytes();
    void availableSpaceOfTheDestination_data();
    void availableSpaceOfTheDestination();
    void phasesLookDifferent();
    void longStatusStaysInsideTheProgressRow_data();
    void longStatusStaysInsideTheProgressRow();
    void confirmationReportsTheChoice_data();
    void confirmationReportsTheChoice();
    void warningReturnsTheButton();
    void translationsCoverEveryLanguage_data();
    void translationsCoverEveryLanguage();
    void windowSpeaksTheSystemLanguage();
    void warningButtonsSpeakTheLanguage();
    void sourcesKeepNoUnsafeCalls_data();
    void sourcesKeepNoUnsafeCalls();

private:
    QTemporaryDir m_temp;
};

void UiTest::initTestCase()
{
    QVERIFY(m_temp.isValid());
    QFile styles(QStringLiteral(":/styles/app.qss"));
    QVERIFY(styles.open(QIODevice::ReadOnly));
    qApp->setStyleSheet(QString::fromUtf8(styles.readAll()));
}

void UiTest::widgetsCarryTheirObjectNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kind");
    const QList<QPair<const char *, const char *>> parts = {
        {"root", "QWidget"}, {"heroPanel", "HeroPanel"}, {"windowButton", "QAbstractButton"},
        {"closeButton", "QAbstractButton"}, {"settingsPanel", "QWidget"}, {"pathPanel", "QWidget"},
        {"locationLabel", "QLabel"}, {"pathEdit", "QLineEdit"}, {"browsePathButton", "QAbstractButton"},
        {"spaceLabel", "QLabel"}, {"launchAfterInstallCheckBox", "QCheckBox"}, {"customButton", "QAbstractButton"},
        {"actionPanel", "QWidget"}, {"wordmark", "QLabel"}, {"versionLabel", "QLabel"},
        {"downloadProgressPanel", "QWidget"}, {"downloadStatusLabel", "QLabel"}, {"downloadSpeedLabel", "QLabel"},
        {"downloadProgressBar", "QProgressBar"}, {"overallProgressLabel", "QLabel"}, {"installButton", "QPushButton"},
    };
    for (const auto &[name, kind] : parts)
        QTest::addRow("%s is a %s", name, kind) << QString::fromLatin1(name) << QString::fromLatin1(kind);
}

void UiTest::widgetsCarryTheirObjectNames()
{
    QFETCH(QString, name);
    QFETCH(QString, kind);
    MainWindow window(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QCOMPARE(window.size(), QSize(743, 480));
    QVERIFY(window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(window.testAttribute(Qt::WA_TranslucentBackground));
    const QList<QWidget *> found = window.findChildren<QWidget *>(name);
    QCOMPARE(found.size(), 1);
    QVERIFY2(found.first()->inherits(kind.toLatin1()), qPrintable(found.first()->metaObject()->className()));
}

void UiTest::customButtonOpensAndClosesTheSettings_data()
{
    QTest::addColumn<int>("clicks");
    QTest::addColumn<bool>("expanded");
    QTest::addColumn<QString>("toolTip");
    QTest::newRow("untouched, the location stays hidden") << 0 << false << "Show installation location";
    QTest::newRow("one click shows the location") << 1 << true << "Hide installation location";
    QTest::newRow("a second click hides it again") << 2 << false << "Show installation location";
    QTest::newRow("a third click shows it once more") << 3 << true << "Hide installation location";
}

void UiTest::customButtonOpensAndClosesTheSettings()
{
    QFETCH(int, clicks);
    QFETCH(bool, expanded);
    QFETCH(QString, toolTip);
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QVERIFY(window);
    auto *custom = part<QPushButton>(window.get(), "customButton");
    auto *settings = part<QWidget>(window.get(), "settingsPanel");
    for (int i = 0; i < clicks; ++i) {
        clickOn(custom);
        QTest::qWait(40); // a click in the middle of the animation must turn it around cleanly
    }
    QCOMPARE(custom->property("expanded").toBool(), expanded);
    QCOMPARE(custom->toolTip(), toolTip);
    QTRY_COMPARE_WITH_TIMEOUT(settings->isVisible(), expanded, 2000);
    QTest::qWait(MainWindow::CustomAnimationDuration + 60);
    if (expanded) {
        QVERIFY(settings->height() > 80);
        const QRect hero = part<QWidget>(window.get(), "heroPanel")->geometry();
        QCOMPARE(settings->geometry().bottom(), hero.bottom());
        QVERIFY(part<QLineEdit>(window.get(), "pathEdit")->isVisible());
    }
}

void UiTest::arrowsChangeSlides_data()
{
    QTest::addColumn<QString>("clicks");
    QTest::addColumn<int>("slide");
    QTest::newRow("right arrow shows the second slide") << "R" << 1;
    QTest::newRow("left arrow wraps from the first slide to the last") << "L" << 2;
    QTest::newRow("three right clicks come back to the first") << "RRR" << 0;
    QTest::newRow("right then left returns") << "RL" << 0;
    QTest::newRow("a click between the arrows changes nothing") << "M" << 0;
}

void UiTest::arrowsChangeSlides()
{
    QFETCH(QString, clicks);
    QFETCH(int, slide);
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
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

void UiTest::arrowsShowOnlyOverTheUpperBanner_data()
{
    QTest::addColumn<double>("height");
    QTest::addColumn<bool>("onArrow");
    QTest::addColumn<bool>("visible");
    QTest::newRow("pointer near the banner's top shows the arrows") << 0.1 << false << true;
    QTest::newRow("pointer on an arrow shows a pointing hand") << -1.0 << true << true;
    QTest::newRow("pointer just below two thirds hides them") << 0.7 << false << false;
    QTest::newRow("pointer at the banner's foot hides them") << 0.95 << false << false;
}

void UiTest::arrowsShowOnlyOverTheUpperBanner()
{
    QFETCH(double, height);
    QFETCH(bool, onArrow);
    QFETCH(bool, visible);
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QVERIFY(window);
    auto *hero = part<HeroPanel>(window.get(), "heroPanel");
    const QPoint at = onArrow ? hero->rightArrowRect().center() : QPoint(hero->width() / 2, int(hero->height() * height));
    QTest::mouseMove(hero, at);
    QTRY_COMPARE_WITH_TIMEOUT(hero->arrowsVisible(), visible, 2000);
    QCOMPARE(hero->cursor().shape() == Qt::PointingHandCursor, onArrow);
}

void UiTest::bannerTopMovesTheWindow_data()
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

void UiTest::bannerTopMovesTheWindow()
{
    QFETCH(QPoint, press);
    QFETCH(int, button);
    QFETCH(bool, moves);
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QVERIFY(window);
    if (press == QPoint(-1, -1)) {
        auto *close = part<QToolButton>(window.get(), "closeButton");
        press = close->mapTo(window.get(), close->rect().center());
    }
    QWidget *target = window->childAt(press);
    QVERIFY(target);
    QTest::mousePress(target, Qt::MouseButton(button), Qt::NoModifier, target->mapFrom(window.get(), press));
    QTest::mouseRelease(target, Qt::MouseButton(button), Qt::NoModifier, target->mapFrom(window.get(), press));
    QCOMPARE(window->moves > 0, moves);
}

void UiTest::lockingFreezesTheLocation_data()
{
    QTest::addColumn<bool>("update");
    QTest::addColumn<QString>("actions");
    QTest::addColumn<bool>("locked");
    QTest::newRow("an interactive window starts unlocked") << false << "" << false;
    QTest::newRow("locking freezes the path and the chooser") << false << "L" << true;
    QTest::newRow("unlocking restores both") << false << "LU" << false;
    QTest::newRow("an update starts locked to its fixed directory") << true << "" << true;
}

void UiTest::lockingFreezesTheLocation()
{
    QFETCH(bool, update);
    QFETCH(QString, actions);
    QFETCH(bool, locked);
    InstallerLaunch::Options options = interactiveAt(m_temp.filePath(QStringLiteral("Fixed/BrisaLinker")));
    options.update = update;
    auto window = shownWindow(options);
    QVERIFY(window);
    for (const QChar c : actions)
        window->lockInstallOptions(c == QLatin1Char('L'));
    QCOMPARE(part<QLineEdit>(window.get(), "pathEdit")->isReadOnly(), locked);
    QCOMPARE(part<QToolButton>(window.get(), "browsePathButton")->isEnabled(), !locked);
    clickOn(part<QPushButton>(window.get(), "customButton"));
    QTest::qWait(MainWindow::CustomAnimationDuration + 60);
    window->answer = m_temp.filePath(QStringLiteral("Elsewhere"));
    clickOn(part<QToolButton>(window.get(), "browsePathButton"));
    QCOMPARE(window->asked, locked ? 0 : 1);
    // A fixed update target is never offered to the chooser, whichever way it is reached.
    const int before = window->asked;
    window->chooseInstallDirectory();
    QCOMPARE(window->asked - before, update ? 0 : 1);
    if (update)
        QCOMPARE(window->destination(), m_temp.filePath(QStringLiteral("Fixed/BrisaLinker")));
}

void UiTest::chosenFolderBecomesTheTarget_data()
{
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("start");
    QTest::addColumn<QString>("target");
    QTest::newRow("a plain folder gets its own BrisaLinker subfolder")
        << "Apps/BrisaLinker" << "Games" << "Apps" << "Games/BrisaLinker";
    QTest::newRow("a folder already named BrisaLinker is taken as it is")
        << "Apps/BrisaLinker" << "Tools/BrisaLinker" << "Apps" << "Tools/BrisaLinker";
    QTest::newRow("the product name is recognised in any case")
        << "Apps/brisalinker" << "Tools/BRISALINKER" << "Apps" << "Tools/BRISALINKER";
    QTest::newRow("a trailing separator is not a folder name")
        << "Apps/BrisaLinker" << "Games/" << "Apps" << "Games/BrisaLinker";
    QTest::newRow("a current folder of another name is where the chooser starts")
        << "Apps/Other" << "Games" << "Apps/Other" << "Games/BrisaLinker";
    QTest::newRow("a cancelled chooser keeps the destination")
        << "Apps/BrisaLinker" << "" << "Apps" << "Apps/BrisaLinker";
}

void UiTest::chosenFolderBecomesTheTarget()
{
    QFETCH(QString, current);
    QFETCH(QString, chosen);
    QFETCH(QString, start);
    QFETCH(QString, target);
    const QString base = QDir::cleanPath(m_temp.path());
    auto window = shownWindow(interactiveAt(base + QLatin1Char('/') + current));
    QVERIFY(window);
    window->answer = chosen.isEmpty() ? QString() : QDir::toNativeSeparators(base + QLatin1Char('/') + chosen);
    clickOn(part<QPushButton>(window.get(), "customButton"));
    QTest::qWait(MainWindow::CustomAnimationDuration + 60);
    clickOn(part<QToolButton>(window.get(), "browsePathButton"));
    QCOMPARE(window->asked, 1);
    QCOMPARE(QDir::cleanPath(QDir::fromNativeSeparators(window->askedStart)), base + QLatin1Char('/') + start);
    const QString expected = base + QLatin1Char('/') + target;
    QCOMPARE(window->destination(), expected);
    auto *edit = part<QLineEdit>(window.get(), "pathEdit");
    QCOMPARE(edit->text(), QDir::toNativeSeparators(expected));
    QCOMPARE(edit->toolTip(), QDir::toNativeSeparators(expected));
    QCOMPARE(part<QPushButton>(window.get(), "installButton")->toolTip(),
             QStringLiteral("Install to %1").arg(QDir::toNativeSeparators(expected)));
}

void UiTest::formatsBytes_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");
    const qint64 MiB = 1024 * 1024, GiB = 1024 * MiB;
    QTest::newRow("nothing is zero megabytes") << qint64(0) << "0 MB";
    QTest::newRow("one mebibyte") << MiB << "1 MB";
    QTest::newRow("half a mebibyte rounds to one") << MiB / 2 << "1 MB";
    QTest::newRow("hundreds of megabytes have no decimals") << 512 * MiB + 100 << "512 MB";
    QTest::newRow("one gibibyte switches to gigabytes") << GiB << "1.0 GB";
    QTest::newRow("one and a half gibibytes keep a decimal") << GiB + GiB / 2 << "1.5 GB";
    QTest::newRow("just below ten gibibytes keeps a decimal") << 10 * GiB - 200 * MiB << "9.8 GB";
    QTest::newRow("ten gibibytes drop the decimal") << 10 * GiB << "10 GB";
    QTest::newRow("a large volume") << 931 * GiB + GiB / 3 << "931 GB";
}

void UiTest::formatsBytes()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, text);
    QCOMPARE(MainWindow::formatBytes(bytes), localized(text));
}

void UiTest::availableSpaceOfTheDestination_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<bool>("known");
    QTest::newRow("a destination that does not exist yet uses its nearest existing folder")
        << m_temp.filePath(QStringLiteral("not/yet/there/BrisaLinker")) << true;
    QTest::newRow("an existing destination uses its own volume") << m_temp.path() << true;
    QTest::newRow("an empty destination has no volume") << QString() << false;
#ifdef Q_OS_WIN
    QTest::newRow("a drive that does not exist has no volume") << QStringLiteral("Q:/Nowhere/BrisaLinker") << false;
#endif
}

void UiTest::availableSpaceOfTheDestination()
{
    QFETCH(QString, destination);
    QFETCH(bool, known);
    MainWindow window(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    window.setDestination(destination);
    const QString shown = window.findChild<QLabel *>(QStringLiteral("availableSpaceLabel"))->text();
    if (!known) {
        QCOMPARE(shown, QStringLiteral("Available: --"));
        return;
    }
    // Others write to the same volume while the test runs; the figure may move by a step.
    const QStorageInfo volume(m_temp.path());
    const qint64 free = volume.bytesAvailable();
    QStringList acceptable;
    for (const qint64 delta : {qint64(0), qint64(-8) << 20, qint64(8) << 20})
        acceptable << QStringLiteral("Available: %1").arg(MainWindow::formatBytes(free + delta));
    QVERIFY2(acceptable.contains(shown), qPrintable(shown + QStringLiteral(" vs ") + acceptable.first()));
}

void UiTest::phasesLookDifferent()
{
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QVERIFY(window);
    auto *install = part<QPushButton>(window.get(), "installButton");
    QCOMPARE(install->property("phase").toString(), QStringLiteral("install"));
    QCOMPARE(install->text(), QStringLiteral("Install"));
    const QRgb idle = centrePixel(install);
    window->setPhase(MainWindow::Phase::Busy);
    window->setInstallButtonText(QStringLiteral("Preparing..."));
    QCOMPARE(install->property("phase").toString(), QStringLiteral("busy"));
    const QRgb busy = centrePixel(install);
    window->setPhase(MainWindow::Phase::Done);
    QCOMPARE(install->property("phase").toString(), QStringLiteral("done"));
    QCOMPARE(install->text(), QStringLiteral("Done"));
    const QRgb done = centrePixel(install);
    QVERIFY(idle != busy && busy != done && idle != done);

    auto *custom = part<QPushButton>(window.get(), "customButton");
    const QRgb collapsed = centrePixel(custom);
    clickOn(custom);
    QVERIFY(centrePixel(custom) != collapsed);

    window->setVersionText(QStringLiteral("1.4.20"));
    QVERIFY(part<QLabel>(window.get(), "versionLabel")->isVisible());
    window->setWorking(true);
    QVERIFY(!part<QLabel>(window.get(), "versionLabel")->isVisible());
    QVERIFY(part<QWidget>(window.get(), "downloadProgressPanel")->isVisible());
    window->setRequiredSpace(300LL << 20);
    QCOMPARE(part<QLabel>(window.get(), "spaceLabel")->text(), QStringLiteral("Required: 300 MB"));
}

void UiTest::longStatusStaysInsideTheProgressRow_data()
{
    QTest::addColumn<QString>("status");
    QTest::addColumn<bool>("shortened");
    QTest::newRow("a short status is shown whole") << "Extracting..." << false;
    QTest::newRow("a long translated status is shortened, whole in its tooltip")
        << QStringLiteral("Закрытие запущенных приложений, которые используют файлы установки...") << true;
}

void UiTest::longStatusStaysInsideTheProgressRow()
{
    QFETCH(QString, status);
    QFETCH(bool, shortened);
    auto window = shownWindow(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QVERIFY(window);
    auto *install = part<QPushButton>(window.get(), "installButton");
    const QRect before = install->geometry();
    window->setPhase(MainWindow::Phase::Busy);
    window->setWorking(true);
    window->setSpeedText(localized(QStringLiteral("2.5 MB/s")));
    window->setStatusText(status);
    QTest::qWait(50);
    auto *label = part<QLabel>(window.get(), "downloadStatusLabel");
    auto *panel = part<QWidget>(window.get(), "downloadProgressPanel");
    QCOMPARE(install->geometry(), before);
    QVERIFY(panel->geometry().right() < install->geometry().left());
    QVERIFY(label->geometry().right() <= panel->width());
    QCOMPARE(label->toolTip(), shortened ? status : QString());
}

void UiTest::confirmationReportsTheChoice_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("the accept button agrees") << "Replace" << true;
    QTest::newRow("the reject button declines") << "Keep" << false;
    QTest::newRow("Escape declines") << "Escape" << false;
    QTest::newRow("Enter does not agree by accident") << "Enter" << false;
}

void UiTest::confirmationReportsTheChoice()
{
    QFETCH(QString, answer);
    QFETCH(bool, accepted);
    bool iconShown = false;
    answerNextMessageBox([answer, &iconShown](QMessageBox *box) {
        iconShown = !box->iconPixmap().isNull();
        if (answer == QLatin1String("Escape"))
            QTest::keyClick(box, Qt::Key_Escape);
        else if (answer == QLatin1String("Enter"))
            QTest::keyClick(box, Qt::Key_Return);
        else
            for (QAbstractButton *button : box->buttons())
                if (button->text() == answer)
                    button->click();
    });
    QCOMPARE(MainWindow::confirmInstallerAction(nullptr, QStringLiteral("Question"), QStringLiteral("Replace it?"),
                                                QStringLiteral("Replace"), QStringLiteral("Keep")),
             accepted);
    QVERIFY(iconShown);
}

void UiTest::warningReturnsTheButton()
{
    answerNextMessageBox([](QMessageBox *box) { QTest::keyClick(box, Qt::Key_Return); });
    QCOMPARE(MainWindow::showInstallerWarning(nullptr, QStringLiteral("Installation failed"), QStringLiteral("No."),
                                              QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry),
             QMessageBox::Retry);
    answerNextMessageBox([](QMessageBox *box) { box->button(QMessageBox::Cancel)->click(); });
    QCOMPARE(MainWindow::showInstallerWarning(nullptr, QStringLiteral("Installation failed"), QStringLiteral("No."),
                                              QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry),
             QMessageBox::Cancel);
}

void UiTest::translationsCoverEveryLanguage_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("translation");
    const QString startup = QStringLiteral("InstallerStartup"), window = QStringLiteral("MainWindow"),
                  finalizer = QStringLiteral("InstallerFinalizer");
    QTest::newRow("Russian install button") << "ru_RU" << window << "Install" << QStringLiteral("Установить");
    QTest::newRow("Russian start-up notice keeps its placeholder")
        << "ru_RU" << startup
        << "Windows could not start the installer with administrator permission. Windows error %1: %2"
        << QStringLiteral("Windows не удалось запустить установщик с правами администратора. Ошибка Windows %1: %2");
    QTest::newRow("Russian finalizer stage") << "ru_RU" << finalizer << "Creating shortcuts..." << QStringLiteral("Создание ярлыков...");
    QTest::newRow("Spanish launch option") << "es_ES" << window << "Launch Brisa-Linker when installation is complete"
                                           << QStringLiteral("Iniciar Brisa-Linker al terminar la instalación");
    QTest::newRow("Spanish location discovery message")
        << "es_ES" << startup << "The previous Brisa-Linker installation was not found. Select the installation location manually."
        << QStringLiteral("No se encontró la instalación anterior de Brisa-Linker. Seleccione la ubicación de instalación manualmente.");
    QTest::newRow("Spanish finalizer failure") << "es_ES" << finalizer << "Installation cancelled." << QStringLiteral("Instalación cancelada.");
    QTest::newRow("Japanese custom button") << "ja_JP" << window << "Custom" << QStringLiteral("カスタム");
    QTest::newRow("Japanese multi-line message keeps its line break")
        << "ja_JP" << startup << "More than one Brisa-Linker installation was found. Select the installation location manually.\n%1"
        << QStringLiteral("Brisa-Linker のインストールが複数見つかりました。インストール先を手動で選択してください。\n%1");
    QTest::newRow("Japanese finalizer stage") << "ja_JP" << finalizer << "Registering application..."
                                              << QStringLiteral("アプリケーションを登録しています...");
    QTest::newRow("English keeps the source text") << "en_US" << window << "Install" << QStringLiteral("Install");
    QTest::newRow("English start-up text") << "en_US" << startup << "Choose installation location"
                                           << QStringLiteral("Choose installation location");
}

void UiTest::translationsCoverEveryLanguage()
{
    QFETCH(QString, file);
    QFETCH(QString, context);
    QFETCH(QString, source);
    QFETCH(QString, translation);
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_%1.qm").arg(file)));
    QVERIFY(!translator.isEmpty());
    QCOMPARE(translator.translate(context.toLatin1(), source.toUtf8()), translation);
}

void UiTest::windowSpeaksTheSystemLanguage()
{
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_ja_JP.qm")));
    QCoreApplication::installTranslator(&translator);
    MainWindow window(interactiveAt(m_temp.filePath(QStringLiteral("BrisaLinker"))));
    QCoreApplication::removeTranslator(&translator);
    QCOMPARE(window.findChild<QPushButton *>(QStringLiteral("installButton"))->text(), QStringLiteral("インストール"));
    QCOMPARE(window.findChild<QLabel *>(QStringLiteral("locationLabel"))->text(), QStringLiteral("インストール先"));
    QCOMPARE(window.findChild<QPushButton *>(QStringLiteral("customButton"))->toolTip(), QStringLiteral("インストール先を表示"));
}

void UiTest::warningButtonsSpeakTheLanguage()
{
    // The installer ships no Qt translations, so the box's own labels must come from ours.
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(":/i18n/bl_installer_ru_RU.qm")));
    QCoreApplication::installTranslator(&translator);
    QStringList labels;
    answerNextMessageBox([&labels](QMessageBox *box) {
        for (QAbstractButton *button : box->buttons())
            labels << button->text();
        box->button(QMessageBox::Cancel)->click();
    });
    MainWindow::showInstallerWarning(nullptr, QStringLiteral("Installation failed"), QStringLiteral("No."),
                                     QMessageBox::Retry | QMessageBox::Cancel, QMessageBox::Retry);
    QCoreApplication::removeTranslator(&translator);
    labels.sort();
    QCOMPARE(labels, (QStringList{QStringLiteral("Отмена"), QStringLiteral("Повторить")}));
}

void UiTest::sourcesKeepNoUnsafeCalls_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("allowedIn");

    // The installer runs elevated: whatever it opens for the user runs as the administrator.
    QTest::newRow("no label opens its links by itself") << "setOpenExternalLinks(true)" << QString();
    QTest::newRow("no address is opened through the toolkit") << "QDesktopServices::openUrl" << QString();
    QTest::newRow("only the elevation request goes through the shell") << "ShellExecute" << "app/startup_win.cpp";
    // A recursive removal that walks into a junction deletes what it points to.
    QTest::newRow("no tree is removed by a walk that follows links") << "removeRecursively" << QString();
}

void UiTest::sourcesKeepNoUnsafeCalls()
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
        QFile file(it.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        ++read;
        const QString relative = QDir(root).relativeFilePath(file.fileName());
        if (relative != allowedIn && QString::fromUtf8(file.readAll()).contains(call))
            found << relative;
    }
    QVERIFY2(read > 50, qPrintable(root));
    QVERIFY2(found.isEmpty(), qPrintable(found.join(QLatin1Char(' '))));
}

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
