#include "ui/main_window.h"

#include <QIcon>
#include <QVBoxLayout>

MainWindow::MainWindow(const InstallerLaunch::Options &options, QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint)
    , m_options(options)
{
    setWindowTitle(QStringLiteral("Brisa-Linker Installer"));
    setWindowIcon(QIcon(QStringLiteral(":/images/brisa-linker-installer-icon.png")));
    setFixedSize(743, 480);
    setAttribute(Qt::WA_TranslucentBackground);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *root = new QWidget(this);
    root->setObjectName(QStringLiteral("root"));
    layout->addWidget(root);
}
