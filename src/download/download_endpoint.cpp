#include "download/download_endpoint.h"

#include "app/installer_logger.h"

#include <QSslCertificate>
#include <QtGlobal>

namespace DownloadEndpoint {

QUrl manifestUrl()
{
#ifdef BRISA_DEV_ENDPOINT
    const QString redirected = qEnvironmentVariable("BRISA_DEV_MANIFEST_URL");
    if (!redirected.isEmpty()) {
        InstallerLogger::write(QStringLiteral("Development manifest endpoint: %1").arg(redirected));
        return QUrl(redirected);
    }
#endif
    return QUrl(QStringLiteral(BRISA_MANIFEST_URL));
}

QSslConfiguration sslConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
#ifdef BRISA_DEV_ENDPOINT
    const QString caPath = qEnvironmentVariable("BRISA_DEV_CA_CERT");
    if (!caPath.isEmpty()) {
        const QList<QSslCertificate> extra = QSslCertificate::fromPath(caPath, QSsl::Pem);
        if (extra.isEmpty())
            InstallerLogger::write(QStringLiteral("Development CA certificate unreadable: %1").arg(caPath));
        configuration.addCaCertificates(extra);
    }
#endif
    return configuration;
}

} // namespace DownloadEndpoint
