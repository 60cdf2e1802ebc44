#pragma once

#include <QDialog>
#include <QUrl>

// Shown when the package could not be downloaded: Retry resumes from the chunks already saved,
// and the full package link lets the user fetch it by other means.
class DownloadFailureDialog : public QDialog
{
    Q_OBJECT

public:
    static constexpr auto SupportAddress = "support@brisalinker.com";

    explicit DownloadFailureDialog(const QUrl &fullPackageUrl, QWidget *parent = nullptr);
};
