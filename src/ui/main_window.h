#pragma once

#include "app/installer_launch.h"

#include <QMessageBox>
#include <QPropertyAnimation>
#include <QWidget>

#include <functional>

class ElidedLabel;
class HeroPanel;
class QCheckBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QToolButton;

// The installer's single frameless window: the banner carousel above, the location controls
// (hidden until asked for), the launch option, the progress area and the install button below.
// The installation flow drives it through the presentation methods below.
class MainWindow : public QWidget
{
    Q_OBJECT

public:
    enum class Phase { Install, Busy, Done };

    static constexpr int WindowWidth = 743;
    static constexpr int WindowHeight = 480;
    static constexpr int MoveAreaHeight = 75;
    static constexpr int CustomAnimationDuration = 210;

    explicit MainWindow(const InstallerLaunch::Options &options, QWidget *parent = nullptr);

    // "12 MB" below 1 GiB, "1.5 GB" below 10 GiB, "12 GB" from there on, in the system locale.
    static QString formatBytes(qint64 bytes);

    static QMessageBox::StandardButton showInstallerWarning(
        QWidget *parent, const QString &title, const QString &text,
        QMessageBox::StandardButtons buttons = QMessageBox::Ok,
        QMessageBox::StandardButton defaultButton = QMessageBox::NoButton);
    // True only when the accept button was chosen.
    static bool confirmInstallerAction(QWidget *parent, const QString &title, const QString &question,
                                       const QString &acceptLabel, const QString &rejectLabel);

    QString destination() const;
    // Shows a new destination: path edit and its tooltip, available space, install tooltip.
    void setDestination(const QString &directory);
    bool destinationFixed() const { return m_destinationFixed; }

    void lockInstallOptions(bool locked);
    bool customOptionsExpanded() const { return m_customExpanded; }
    void toggleCustomOptions();

    void setPhase(Phase phase);
    Phase phase() const { return m_phase; }
    void setInstallButtonText(const QString &text);
    void setStatusText(const QString &text);
    void setSpeedText(const QString &text);
    void setRequiredSpace(qint64 bytes);
    void setVersionText(const QString &version);
    // value 0..maximum; a maximum of 0 makes the bar indeterminate.
    void setDownloadProgress(int value, int maximum = 100);
    void setOverallProgress(int percent);
    // Shows the progress area in place of the version while an installation runs.
    void setWorking(bool working);
    bool launchAfterInstall() const;

    void chooseInstallDirectory();
    void updateAvailableSpace();

    // The installation flow decides whether a close request is honoured (it may ask, cancel or
    // refuse); without a guard the window simply closes.
    void setCloseGuard(std::function<bool()> guard) { m_closeGuard = std::move(guard); }
    // The close controls follow whether closing is permitted right now.
    void setCloseEnabled(bool enabled);

signals:
    void installRequested();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    // The window system's own move; a seam so tests can see that a drag would move the window.
    virtual bool startSystemMove();
    // The toolkit's directory chooser; a seam so tests can answer it.
    virtual QString askForDirectory(const QString &startDirectory);

private:
    void buildWidgets();
    QWidget *buildSettingsPanel(QWidget *parent);
    QWidget *buildActionPanel(QWidget *parent);
    void updateCustomButtonPresentation();
    void updateVersionVisibility();
    void placeSettingsPanel();
    QRect settingsPanelGeometry(bool expanded) const;

    InstallerLaunch::Options m_options;
    bool m_destinationFixed = false;
    bool m_customExpanded = false;
    bool m_working = false;
    Phase m_phase = Phase::Install;
    QString m_version;

    HeroPanel *m_heroPanel = nullptr;
    QToolButton *m_windowButton = nullptr;
    QToolButton *m_closeButton = nullptr;
    QWidget *m_settingsPanel = nullptr;
    QLineEdit *m_pathEdit = nullptr;
    QToolButton *m_browseButton = nullptr;
    QLabel *m_spaceLabel = nullptr;
    QLabel *m_availableLabel = nullptr;
    QCheckBox *m_launchCheckBox = nullptr;
    QPushButton *m_customButton = nullptr;
    QLabel *m_versionLabel = nullptr;
    QWidget *m_progressPanel = nullptr;
    ElidedLabel *m_statusLabel = nullptr;
    QLabel *m_speedLabel = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QLabel *m_overallLabel = nullptr;
    QPushButton *m_installButton = nullptr;
    QPropertyAnimation *m_customAnimation = nullptr;
    std::function<bool()> m_closeGuard;
};
