#pragma once

#include "app/installer_launch.h"

#include <QWidget>

// The installer's single frameless window.
class MainWindow : public QWidget
{
    Q_OBJECT

public:
    explicit MainWindow(const InstallerLaunch::Options &options, QWidget *parent = nullptr);

private:
    InstallerLaunch::Options m_options;
};
