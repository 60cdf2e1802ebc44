// One download run, to be killed at any moment by the restart test:
//   download_child <manifest url> <cache root> <CA certificate>
// Exit code 0 and "completed <zip>" when the package is ready, 1 and "failed <message>" otherwise.
#include "download/download_manager.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTextStream>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 4)
        return 2;
    DownloadManager manager;
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.addCaCertificates(QSslCertificate::fromPath(arguments.at(3)));
    manager.setSslConfiguration(ssl);
    QTextStream out(stdout);
    QObject::connect(&manager, &DownloadManager::completed, [&](const QString &zip) {
        out << "completed " << zip << Qt::endl;
        app.exit(0);
    });
    QObject::connect(&manager, &DownloadManager::failed, [&](const QString &message) {
        out << "failed " << message << Qt::endl;
        app.exit(1);
    });
    manager.start(QUrl(arguments.at(1)), arguments.at(2));
    return app.exec();
}
