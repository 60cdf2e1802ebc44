// Renders the installer window in each of its looks into PNG files, for a person to inspect:
//   ui_gallery <output directory> [language|-] [pause in ms]
// The pause keeps each look on screen for a while, so the real window can be photographed too.
// Not a test; the window's behaviour is checked by tst_ui.
#include "ui/hero_panel.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTranslator>

namespace {

int pauseMs = 60;

void save(QWidget *window, const QString &directory, const QString &name)
{
    QTest::qWait(pauseMs);
    window->grab().save(QDir(directory).filePath(name + QStringLiteral(".png")));
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString out = arguments.value(1, QStringLiteral("."));
    QDir().mkpath(out);
    QFile styles(QStringLiteral(":/styles/app.qss"));
    if (styles.open(QIODevice::ReadOnly))
        application.setStyleSheet(QString::fromUtf8(styles.readAll()));
    pauseMs = qMax(60, arguments.value(3).toInt());
    QTranslator translator;
    if (arguments.size() > 2 && translator.load(QStringLiteral(":/i18n/bl_installer_%1.qm").arg(arguments.at(2))))
        QCoreApplication::installTranslator(&translator);

    InstallerLaunch::Options options;
    options.installDirectory = QDir::tempPath() + QStringLiteral("/Programs/BrisaLinker");
    MainWindow window(options);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return 1;
    auto *hero = window.findChild<HeroPanel *>(QStringLiteral("heroPanel"));
    save(&window, out, QStringLiteral("idle"));

    QTest::mouseMove(hero, QPoint(hero->width() / 2, 60));
    save(&window, out, QStringLiteral("arrows"));
    QTest::mouseClick(hero, Qt::LeftButton, Qt::NoModifier, hero->rightArrowRect().center());
    QTest::qWait(HeroPanel::TransitionDuration / 2);
    save(&window, out, QStringLiteral("transition"));
    for (int slide = 1; slide <= 2; ++slide) {
        QTest::qWait(HeroPanel::TransitionDuration);
        QTest::mouseMove(hero, QPoint(hero->width() / 2, hero->height() - 5));
        save(&window, out, QStringLiteral("slide-%1").arg(slide + 1));
        QTest::mouseClick(hero, Qt::LeftButton, Qt::NoModifier, hero->rightArrowRect().center());
    }
    QTest::qWait(HeroPanel::TransitionDuration);

    window.toggleCustomOptions();
    QTest::qWait(MainWindow::CustomAnimationDuration / 2);
    save(&window, out, QStringLiteral("custom-opening"));
    QTest::qWait(MainWindow::CustomAnimationDuration);
    window.setRequiredSpace(742LL << 20);
    save(&window, out, QStringLiteral("custom"));

    window.setVersionText(QStringLiteral("1.4.20"));
    window.toggleCustomOptions();
    QTest::qWait(MainWindow::CustomAnimationDuration + 50);
    save(&window, out, QStringLiteral("version"));

    window.lockInstallOptions(true);
    window.setPhase(MainWindow::Phase::Busy);
    window.setInstallButtonText(QCoreApplication::translate("MainWindow", "Preparing..."));
    window.setWorking(true);
    window.setStatusText(QCoreApplication::translate("MainWindow", "Downloading... %1%").arg(42));
    window.setSpeedText(QStringLiteral("3.4 MB/s"));
    window.setDownloadProgress(42);
    window.setOverallProgress(28);
    save(&window, out, QStringLiteral("downloading"));
    window.toggleCustomOptions();
    QTest::qWait(MainWindow::CustomAnimationDuration + 50);
    save(&window, out, QStringLiteral("downloading-custom"));
    window.toggleCustomOptions();
    QTest::qWait(MainWindow::CustomAnimationDuration + 50);

    window.setStatusText(QCoreApplication::translate("MainWindow", "Closing running applications..."));
    window.setInstallButtonText(QCoreApplication::translate("MainWindow", "Installing..."));
    window.setSpeedText(QString());
    window.setDownloadProgress(88);
    window.setOverallProgress(86);
    save(&window, out, QStringLiteral("finalizing"));

    window.setPhase(MainWindow::Phase::Done);
    window.setWorking(false);
    window.lockInstallOptions(false);
    save(&window, out, QStringLiteral("done"));

    QTimer::singleShot(pauseMs, [out] {
        if (QWidget *box = QApplication::activeModalWidget()) {
            box->grab().save(QDir(out).filePath(QStringLiteral("warning.png")));
            box->close();
        }
    });
    MainWindow::showInstallerWarning(&window, QCoreApplication::translate("MainWindow", "Installation in progress"),
                                     QCoreApplication::translate("MainWindow", "Another installer is currently installing "
                                                                               "Brisa-Linker. You can keep this window open "
                                                                               "and try again when it finishes."));
    return 0;
}
