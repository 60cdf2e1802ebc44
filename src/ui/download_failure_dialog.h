#pragma once

#include <QDialog>
#include <QUrl>

// Shown when the package could not be downloaded: Retry resumes from the chunks already saved,
// and the full package link lets the user fetch it by other means. The dialog opens nothing
// itself: the installer runs elevated, so a link is handed to whoever can open it as the user.
class DownloadFailureDialog : public QDialog
{
    Q_OBJECT

public:
    static constexpr auto SupportAddress = "support@brisalinker.com";

    explicit DownloadFailureDialog(const QUrl &fullPackageUrl, QWidget *parent = nullptr);

signals:
    // The full package or the support address was clicked.
    void linkRequested(const QUrl &address);
};
