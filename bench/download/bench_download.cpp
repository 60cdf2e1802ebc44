// bench_download <manifest url> <cache root> <CA certificate>
// Downloads the package the manifest names and prints, on one line:
//   received_s=<start to last byte> verify_s=<last byte to verified package> rss_kib=<peak>
#include "download/download_endpoint.h"
#include "download/download_manager.h"
#include "peak_memory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

int main(int argc, char **argv)
{
    // The installer runs on Windows, whose event dispatcher wakes a thread once per batch of
    // posted events; GLib's writes its eventfd for every event the network thread posts, which
    // cost a third of the host's run. Measure with the dispatcher that behaves like Windows'.
    qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 4) {
        QTextStream(stderr) << "usage: bench_download <manifest url> <cache root> <CA certificate>\n";
        return 2;
    }
    DownloadManager manager;
    // Trusted as the installer trusts a test server's CA, which under Schannel means its store.
    qputenv("BRISA_DEV_CA_CERT", arguments.at(3).toLocal8Bit());
    manager.setSslConfiguration(DownloadEndpoint::sslConfiguration());

    QElapsedTimer clock;
    qint64 lastByteNs = -1;
    QObject::connect(&manager, &DownloadManager::progressChanged, [&](qint64 received, qint64 total) {
        if (lastByteNs < 0 && total > 0 && received == total)
            lastByteNs = clock.nsecsElapsed();
    });
    int status = 1;
    QObject::connect(&manager, &DownloadManager::completed, [&] {
        const qint64 doneNs = clock.nsecsElapsed();
        QTextStream(stdout) << "received_s=" << QString::number(lastByteNs / 1e9, 'f', 3)
                            << " verify_s=" << QString::number((doneNs - lastByteNs) / 1e9, 'f', 3)
                            << " rss_kib=" << peakMemoryKib() << Qt::endl;
        status = 0;
        app.quit();
    });
    QObject::connect(&manager, &DownloadManager::failed, [&](const QString &message) {
        QTextStream(stderr) << "download failed: " << message << Qt::endl;
        app.quit();
    });
    clock.start();
    manager.start(QUrl(arguments.at(1)), arguments.at(2));
    app.exec();
    return status;
}
