#include "ui/download_failure_dialog.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

DownloadFailureDialog::DownloadFailureDialog(const QUrl &fullPackageUrl, QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("downloadFailureDialog"));
    setWindowTitle(tr("Download failed"));
    setWindowIcon(QIcon(QStringLiteral(":/images/brisa-linker-installer-icon.png")));
    setModal(true);

    auto *layout = new QVBoxLayout(this);
    auto *title = new QLabel(tr("Download failed"), this);
    title->setObjectName(QStringLiteral("downloadFailureTitle"));
    auto *description = new QLabel(tr("We couldn't download the required files. Retry or download the full package."), this);
    description->setObjectName(QStringLiteral("downloadFailureDescription"));
    description->setWordWrap(true);

    auto *link = new QLabel(this);
    link->setObjectName(QStringLiteral("fullPackageLink"));
    // Only an https address is offered as a link: the text comes from the network.
    if (fullPackageUrl.isValid() && fullPackageUrl.scheme() == QLatin1String("https")) {
        const QString address = fullPackageUrl.toString(QUrl::FullyEncoded);
        link->setText(QStringLiteral("<a href=\"%1\">%2</a>").arg(address.toHtmlEscaped(), tr("Download full package")));
        link->setTextFormat(Qt::RichText);
        link->setToolTip(address);
    } else {
        link->setText(tr("The full package link is unavailable."));
        link->setTextFormat(Qt::PlainText);
    }

    auto *support = new QLabel(this);
    support->setObjectName(QStringLiteral("supportLabel"));
    support->setText(QStringLiteral("%1 <a href=\"mailto:%2\">%2</a>").arg(tr("Need help? Contact").toHtmlEscaped(),
                                                                        QLatin1String(SupportAddress)));
    support->setTextFormat(Qt::RichText);
    for (QLabel *label : { link, support }) {
        connect(label, &QLabel::linkActivated, this,
                [this](const QString &address) { emit linkRequested(QUrl(address, QUrl::StrictMode)); });
    }

    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    auto *cancel = new QPushButton(tr("Cancel"), this);
    cancel->setObjectName(QStringLiteral("downloadFailureCancelButton"));
    auto *retry = new QPushButton(tr("Retry"), this);
    retry->setObjectName(QStringLiteral("downloadFailureRetryButton"));
    retry->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(retry);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(retry, &QPushButton::clicked, this, &QDialog::accept);

    layout->addWidget(title);
    layout->addWidget(description);
    layout->addWidget(link);
    layout->addWidget(support);
    layout->addLayout(buttons);
}
