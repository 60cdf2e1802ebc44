#include "download/download_endpoint.h"

#include "app/installer_logger.h"

#include <QSslCertificate>
#include <QtGlobal>

#if defined(BRISA_DEV_ENDPOINT) && defined(Q_OS_WIN)
#include <windows.h>
#include <wincrypt.h>
#endif

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
#ifdef Q_OS_WIN
        // Schannel ignores CA certificates handed to the TLS configuration and trusts only its
        // certificate stores; a development build trusts its throwaway CA from there.
        for (const QSslCertificate &ca : extra) {
            const QByteArray der = ca.toDer();
            if (!CertAddEncodedCertificateToSystemStoreW(L"Root", reinterpret_cast<const BYTE *>(der.constData()),
                                                         DWORD(der.size())))
                InstallerLogger::write(QStringLiteral("Development CA certificate not trusted: error=%1").arg(GetLastError()));
        }
#endif
    }
#endif
    return configuration;
}

} // namespace DownloadEndpoint
