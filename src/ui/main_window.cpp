#include "ui/main_window.h"

#include "app/app_paths.h"
#include "location/installation_location.h"
#include "ui/elided_label.h"
#include "ui/hero_panel.h"
#include "ui/window_icons.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QStorageInfo>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

namespace {

const QString ProductDirectory = QStringLiteral("BrisaLinker");
const QString InstallerIcon = QStringLiteral(":/images/brisa-linker-installer-icon.png");
constexpr int HeroHeight = 326;
constexpr int FrameWidth = 1;

bool isProductDirectoryName(const QString &path)
{
    return QFileInfo(path).fileName().compare(ProductDirectory, Qt::CaseInsensitive) == 0;
}

// Style sheets read dynamic properties only when the widget is polished again.
void repolish(QWidget *widget)
{
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
    widget->update();
}

// Qt's own button labels would stay English: the installer ships no Qt translations.
void translateStandardButtons(QMessageBox &box)
{
    const struct {
        QMessageBox::StandardButton button;
        const char *text;
    } labels[] = {
        {QMessageBox::Ok, QT_TRANSLATE_NOOP("MainWindow", "OK")},
        {QMessageBox::Cancel, QT_TRANSLATE_NOOP("MainWindow", "Cancel")},
        {QMessageBox::Retry, QT_TRANSLATE_NOOP("MainWindow", "Retry")},
        {QMessageBox::Yes, QT_TRANSLATE_NOOP("MainWindow", "Yes")},
        {QMessageBox::No, QT_TRANSLATE_NOOP("MainWindow", "No")},
        {QMessageBox::Close, QT_TRANSLATE_NOOP("MainWindow", "Close")},
    };
    for (const auto &label : labels) {
        if (QAbstractButton *button = box.button(label.button))
            button->setText(QCoreApplication::translate("MainWindow", label.text));
    }
}

QPixmap installerIconPixmap(int size)
{
    QPixmap pixmap = QIcon(InstallerIcon).pixmap(QSize(size, size), 2.0);
    pixmap.setDevicePixelRatio(2.0);
    return pixmap;
}

} // namespace

MainWindow::MainWindow(const InstallerLaunch::Options &options, QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint)
    , m_options(options)
    , m_destinationFixed(options.update && !options.installDirectory.isEmpty())
{
    setWindowTitle(QStringLiteral("Brisa-Linker Installer"));
    setWindowIcon(QIcon(InstallerIcon));
    setFixedSize(WindowWidth, WindowHeight);
    setAttribute(Qt::WA_TranslucentBackground);
    buildWidgets();

    const QString initial = options.installDirectory.isEmpty()
        ? InstallationLocation::normalized(AppPaths::applicationRoot() + QLatin1Char('/') + ProductDirectory)
        : InstallationLocation::normalized(options.installDirectory);
    setDestination(initial);
    setPhase(Phase::Install);
    if (m_destinationFixed)
        lockInstallOptions(true);
}

void MainWindow::buildWidgets()
{
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *root = new QWidget(this);
    root->setObjectName(QStringLiteral("root"));
    outer->addWidget(root);

    auto *rootLayout = new QVBoxLayout(root);
    rootLayout->setContentsMargins(FrameWidth, FrameWidth, FrameWidth, FrameWidth);
    rootLayout->setSpacing(0);

    m_heroPanel = new HeroPanel(root);
    m_heroPanel->setObjectName(QStringLiteral("heroPanel"));
    m_heroPanel->setFixedHeight(HeroHeight);
    QList<QImage> slides;
    for (int slide = 1; slide <= 3; ++slide)
        slides << QImage(QStringLiteral(":/images/installer-banner-%1.jpg").arg(slide));
    m_heroPanel->setSlides(slides);
    rootLayout->addWidget(m_heroPanel);

    const QColor onBanner(0xf5, 0xf5, 0xf5);
    m_windowButton = new QToolButton(m_heroPanel);
    m_windowButton->setObjectName(QStringLiteral("windowButton"));
    m_windowButton->setToolTip(tr("Minimize"));
    m_windowButton->setIcon(WindowIcons::minimize(onBanner));
    m_closeButton = new QToolButton(m_heroPanel);
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_closeButton->setToolTip(tr("Close"));
    m_closeButton->setIcon(WindowIcons::close(onBanner));
    const int buttonTop = 12, buttonSize = 30, right = WindowWidth - 2 * FrameWidth - 12;
    m_closeButton->setGeometry(right - buttonSize, buttonTop, buttonSize, buttonSize);
    m_windowButton->setGeometry(right - 2 * buttonSize - 6, buttonTop, buttonSize, buttonSize);
    for (QToolButton *button : {m_windowButton, m_closeButton}) {
        button->setIconSize(QSize(16, 16));
        button->setCursor(Qt::PointingHandCursor);
        button->setFocusPolicy(Qt::NoFocus);
    }
    connect(m_windowButton, &QToolButton::clicked, this, &QWidget::showMinimized);
    connect(m_closeButton, &QToolButton::clicked, this, &QWidget::close);

    auto *bottom = new QWidget(root);
    bottom->setObjectName(QStringLiteral("bottomPanel"));
    auto *bottomLayout = new QVBoxLayout(bottom);
    bottomLayout->setContentsMargins(28, 14, 24, 16);
    bottomLayout->setSpacing(10);

    auto *options = new QHBoxLayout;
    options->setSpacing(12);
    m_launchCheckBox = new QCheckBox(tr("Launch Brisa-Linker when installation is complete"), bottom);
    m_launchCheckBox->setObjectName(QStringLiteral("launchAfterInstallCheckBox"));
    m_launchCheckBox->setChecked(true);
    m_launchCheckBox->setCursor(Qt::PointingHandCursor);
    m_customButton = new QPushButton(tr("Custom"), bottom);
    m_customButton->setObjectName(QStringLiteral("customButton"));
    m_customButton->setIcon(WindowIcons::sliders(QColor(0xf5, 0xf5, 0xf5)));
    m_customButton->setIconSize(QSize(16, 16));
    m_customButton->setCursor(Qt::PointingHandCursor);
    connect(m_customButton, &QPushButton::clicked, this, &MainWindow::toggleCustomOptions);
    options->addWidget(m_launchCheckBox);
    options->addStretch(1);
    options->addWidget(m_customButton);
    bottomLayout->addLayout(options);
    bottomLayout->addStretch(1);
    bottomLayout->addWidget(buildActionPanel(bottom));
    rootLayout->addWidget(bottom, 1);

    // The settings sheet rises over the lower edge of the banner; it is placed by hand because
    // its geometry is what the animation drives.
    m_settingsPanel = buildSettingsPanel(root);
    m_settingsPanel->setGeometry(settingsPanelGeometry(false));
    m_settingsPanel->hide();
    m_customAnimation = new QPropertyAnimation(m_settingsPanel, "geometry", this);
    m_customAnimation->setDuration(CustomAnimationDuration);
    m_customAnimation->setEasingCurve(QEasingCurve::OutCubic);
    connect(m_customAnimation, &QPropertyAnimation::finished, this, [this] {
        if (!m_customExpanded)
            m_settingsPanel->hide();
    });
    updateCustomButtonPresentation();
}

QWidget *MainWindow::buildSettingsPanel(QWidget *parent)
{
    auto *panel = new QWidget(parent);
    panel->setObjectName(QStringLiteral("settingsPanel"));
    auto *panelLayout = new QVBoxLayout(panel);
    panelLayout->setContentsMargins(0, 0, 0, 0);

    auto *pathPanel = new QWidget(panel);
    pathPanel->setObjectName(QStringLiteral("pathPanel"));
    auto *layout = new QVBoxLayout(pathPanel);
    layout->setContentsMargins(20, 14, 20, 12);
    layout->setSpacing(8);

    auto *location = new QLabel(tr("Install location"), pathPanel);
    location->setObjectName(QStringLiteral("locationLabel"));
    layout->addWidget(location);

    auto *row = new QHBoxLayout;
    row->setSpacing(8);
    m_pathEdit = new QLineEdit(pathPanel);
    m_pathEdit->setObjectName(QStringLiteral("pathEdit"));
    m_pathEdit->setPlaceholderText(tr("Edit the installation location or choose a folder"));
    connect(m_pathEdit, &QLineEdit::textEdited, this, [this](const QString &text) {
        m_pathEdit->setToolTip(text);
        m_installButton->setToolTip(tr("Install to %1").arg(text));
        updateAvailableSpace();
    });
    m_browseButton = new QToolButton(pathPanel);
    m_browseButton->setObjectName(QStringLiteral("browsePathButton"));
    m_browseButton->setToolTip(tr("Browse folders"));
    m_browseButton->setIcon(WindowIcons::folder(QColor(0x3b, 0x2a, 0x55)));
    m_browseButton->setIconSize(QSize(16, 16));
    m_browseButton->setCursor(Qt::PointingHandCursor);
    connect(m_browseButton, &QToolButton::clicked, this, &MainWindow::chooseInstallDirectory);
    row->addWidget(m_pathEdit, 1);
    row->addWidget(m_browseButton);
    layout->addLayout(row);

    auto *space = new QHBoxLayout;
    space->setSpacing(18);
    m_spaceLabel = new QLabel(tr("Required: --"), pathPanel);
    m_spaceLabel->setObjectName(QStringLiteral("spaceLabel"));
    m_availableLabel = new QLabel(tr("Available: --"), pathPanel);
    m_availableLabel->setObjectName(QStringLiteral("availableSpaceLabel"));
    space->addWidget(m_spaceLabel);
    space->addWidget(m_availableLabel);
    space->addStretch(1);
    layout->addLayout(space);

    panelLayout->addWidget(pathPanel);
    return panel;
}

QWidget *MainWindow::buildActionPanel(QWidget *parent)
{
    auto *panel = new QWidget(parent);
    panel->setObjectName(QStringLiteral("actionPanel"));
    auto *layout = new QHBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(14);

    auto *wordmark = new QLabel(panel);
    wordmark->setObjectName(QStringLiteral("wordmark"));
    QPixmap logo(QStringLiteral(":/images/brisa-linker-bottom-logo.png"));
    // The wordmark is drawn at twice its display height so it stays sharp on dense screens.
    logo.setDevicePixelRatio(2.0);
    wordmark->setPixmap(logo);
    layout->addWidget(wordmark, 0, Qt::AlignVCenter);

    m_versionLabel = new QLabel(panel);
    m_versionLabel->setObjectName(QStringLiteral("versionLabel"));
    m_versionLabel->hide();
    layout->addWidget(m_versionLabel, 0, Qt::AlignVCenter);
    layout->addStretch(1);

    m_progressPanel = new QWidget(panel);
    m_progressPanel->setObjectName(QStringLiteral("downloadProgressPanel"));
    m_progressPanel->setFixedWidth(300);
    auto *progress = new QGridLayout(m_progressPanel);
    progress->setContentsMargins(0, 0, 0, 0);
    progress->setHorizontalSpacing(10);
    progress->setVerticalSpacing(6);
    m_statusLabel = new ElidedLabel(tr("Preparing download..."), m_progressPanel);
    m_statusLabel->setObjectName(QStringLiteral("downloadStatusLabel"));
    m_speedLabel = new QLabel(m_progressPanel);
    m_speedLabel->setObjectName(QStringLiteral("downloadSpeedLabel"));
    m_speedLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_progressBar = new QProgressBar(m_progressPanel);
    m_progressBar->setObjectName(QStringLiteral("downloadProgressBar"));
    m_progressBar->setRange(0, 100);
    m_progressBar->setValue(0);
    m_progressBar->setTextVisible(false);
    m_overallLabel = new QLabel(QStringLiteral("0%"), m_progressPanel);
    m_overallLabel->setObjectName(QStringLiteral("overallProgressLabel"));
    m_overallLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_overallLabel->setMinimumWidth(40);
    progress->addWidget(m_statusLabel, 0, 0);
    progress->addWidget(m_speedLabel, 0, 1);
    progress->addWidget(m_progressBar, 1, 0, Qt::AlignVCenter);
    progress->addWidget(m_overallLabel, 1, 1);
    progress->setColumnStretch(0, 1);
    progress->setColumnMinimumWidth(0, 120);
    m_progressPanel->hide();
    layout->addWidget(m_progressPanel, 0, Qt::AlignVCenter);

    m_installButton = new QPushButton(tr("Install"), panel);
    m_installButton->setObjectName(QStringLiteral("installButton"));
    m_installButton->setCursor(Qt::PointingHandCursor);
    m_installButton->setDefault(true);
    connect(m_installButton, &QPushButton::clicked, this, &MainWindow::installRequested);
    // Enter installs, and no focus frame lands on the launch option when the window opens.
    m_installButton->setFocus();
    layout->addWidget(m_installButton, 0, Qt::AlignVCenter);
    return panel;
}

QRect MainWindow::settingsPanelGeometry(bool expanded) const
{
    const int inset = 16, height = 116;
    const int bottom = FrameWidth + HeroHeight;
    const int width = WindowWidth - 2 * inset;
    return expanded ? QRect(inset, bottom - height, width, height) : QRect(inset, bottom, width, 0);
}

QString MainWindow::formatBytes(qint64 bytes)
{
    constexpr double MiB = 1024.0 * 1024.0;
    constexpr double GiB = MiB * 1024.0;
    const QLocale locale = QLocale::system();
    if (bytes < qint64(GiB))
        return tr("%1 MB").arg(locale.toString(double(bytes) / MiB, 'f', 0));
    const double gib = double(bytes) / GiB;
    return tr("%1 GB").arg(locale.toString(gib, 'f', bytes < qint64(10 * GiB) ? 1 : 0));
}

QMessageBox::StandardButton MainWindow::showInstallerWarning(QWidget *parent, const QString &title,
                                                             const QString &text,
                                                             QMessageBox::StandardButtons buttons,
                                                             QMessageBox::StandardButton defaultButton)
{
    QMessageBox box(QMessageBox::Warning, title, text, buttons, parent);
    box.setIconPixmap(installerIconPixmap(48));
    box.setWindowIcon(QIcon(InstallerIcon));
    translateStandardButtons(box);
    if (defaultButton != QMessageBox::NoButton)
        box.setDefaultButton(defaultButton);
    return QMessageBox::StandardButton(box.exec());
}

bool MainWindow::confirmInstallerAction(QWidget *parent, const QString &title, const QString &question,
                                        const QString &acceptLabel, const QString &rejectLabel)
{
    QMessageBox box(QMessageBox::Question, title, question, QMessageBox::NoButton, parent);
    box.setIconPixmap(installerIconPixmap(48));
    box.setWindowIcon(QIcon(InstallerIcon));
    QPushButton *accept = box.addButton(acceptLabel, QMessageBox::AcceptRole);
    QPushButton *reject = box.addButton(rejectLabel, QMessageBox::RejectRole);
    // Every question guards something that cannot be taken back; a stray Enter must not agree.
    box.setDefaultButton(reject);
    box.setEscapeButton(reject);
    box.exec();
    return box.clickedButton() == accept;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_closeGuard && !m_closeGuard()) {
        event->ignore();
        return;
    }
    event->accept();
}

void MainWindow::setCloseEnabled(bool enabled)
{
    m_closeButton->setEnabled(enabled);
}

QString MainWindow::destination() const
{
    return InstallationLocation::normalized(m_pathEdit->text());
}

void MainWindow::setDestination(const QString &directory)
{
    const QString shown = QDir::toNativeSeparators(InstallationLocation::normalized(directory));
    m_pathEdit->setText(shown);
    m_pathEdit->setToolTip(shown);
    m_installButton->setToolTip(tr("Install to %1").arg(shown));
    updateAvailableSpace();
}

void MainWindow::lockInstallOptions(bool locked)
{
    m_pathEdit->setReadOnly(locked);
    m_browseButton->setEnabled(!locked);
    repolish(m_pathEdit);
}

void MainWindow::toggleCustomOptions()
{
    m_customExpanded = !m_customExpanded;
    m_customAnimation->stop();
    if (m_customExpanded) {
        m_settingsPanel->show();
        m_settingsPanel->raise();
    }
    m_customAnimation->setStartValue(m_settingsPanel->geometry());
    m_customAnimation->setEndValue(settingsPanelGeometry(m_customExpanded));
    m_customAnimation->start();
    updateCustomButtonPresentation();
}

void MainWindow::updateCustomButtonPresentation()
{
    m_customButton->setProperty("expanded", m_customExpanded);
    m_customButton->setToolTip(m_customExpanded ? tr("Hide installation location") : tr("Show installation location"));
    repolish(m_customButton);
}

void MainWindow::setPhase(Phase phase)
{
    m_phase = phase;
    static const char *const names[] = {"install", "busy", "done"};
    m_installButton->setProperty("phase", QString::fromLatin1(names[int(phase)]));
    if (phase == Phase::Install)
        m_installButton->setText(tr("Install"));
    else if (phase == Phase::Done)
        m_installButton->setText(tr("Done"));
    // While busy the button only reports what is happening.
    m_installButton->setEnabled(phase != Phase::Busy);
    repolish(m_installButton);
}

void MainWindow::setInstallButtonText(const QString &text)
{
    m_installButton->setText(text);
}

void MainWindow::setStatusText(const QString &text)
{
    m_statusLabel->setText(text);
}

void MainWindow::setSpeedText(const QString &text)
{
    m_speedLabel->setText(text);
}

void MainWindow::setRequiredSpace(qint64 bytes)
{
    m_spaceLabel->setText(bytes > 0 ? tr("Required: %1").arg(formatBytes(bytes)) : tr("Required: --"));
}

void MainWindow::setVersionText(const QString &version)
{
    m_version = version;
    m_versionLabel->setText(version.isEmpty() ? QString() : QStringLiteral("v%1").arg(version));
    updateVersionVisibility();
}

void MainWindow::setDownloadProgress(int value, int maximum)
{
    if (maximum <= 0) {
        m_progressBar->setRange(0, 0);
        return;
    }
    m_progressBar->setRange(0, maximum);
    m_progressBar->setValue(qBound(0, value, maximum));
}

void MainWindow::setOverallProgress(int percent)
{
    m_overallLabel->setText(QStringLiteral("%1%").arg(qBound(0, percent, 100)));
}

void MainWindow::setWorking(bool working)
{
    m_working = working;
    m_progressPanel->setVisible(working);
    updateVersionVisibility();
}

void MainWindow::updateVersionVisibility()
{
    m_versionLabel->setVisible(!m_version.isEmpty() && !m_working);
}

bool MainWindow::launchAfterInstall() const
{
    return m_launchCheckBox->isChecked();
}

void MainWindow::chooseInstallDirectory()
{
    if (m_destinationFixed)
        return;
    const QString current = destination();
    const QString start = isProductDirectoryName(current) ? InstallationLocation::parentOf(current) : current;
    QString chosen = InstallationLocation::normalized(askForDirectory(start));
    if (chosen.isEmpty())
        return;
    // The product always gets a directory of its own, never the bare folder the user picked.
    if (!isProductDirectoryName(chosen))
        chosen = InstallationLocation::normalized(chosen + QLatin1Char('/') + ProductDirectory);
    setDestination(chosen);
}

QString MainWindow::askForDirectory(const QString &startDirectory)
{
    return QFileDialog::getExistingDirectory(this, tr("Choose installation location"),
                                             QDir::toNativeSeparators(startDirectory),
                                             QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
}

void MainWindow::updateAvailableSpace()
{
    QString probe = destination();
    bool found = false;
    while (!probe.isEmpty()) {
        if (QFileInfo::exists(probe)) {
            found = true;
            break;
        }
        const QString parent = InstallationLocation::parentOf(probe);
        if (parent.isEmpty() || parent == probe)
            break;
        probe = parent;
    }
    QString text = tr("Available: --");
    if (found) {
        const QStorageInfo volume(probe);
        if (volume.isValid() && volume.isReady())
            text = tr("Available: %1").arg(formatBytes(volume.bytesAvailable()));
    }
    m_availableLabel->setText(text);
}

void MainWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && event->position().y() < MoveAreaHeight && startSystemMove()) {
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

bool MainWindow::startSystemMove()
{
    QWindow *window = windowHandle();
    return window && window->startSystemMove();
}
