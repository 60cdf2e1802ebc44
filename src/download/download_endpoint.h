#pragma once

#include <QSslConfiguration>
#include <QUrl>

// Where the installer gets its manifest, and whom it trusts for it. Release builds always use
// the publisher's address and the system's trust store; test and demo builds can be pointed at
// a local server through the environment (BRISA_DEV_MANIFEST_URL, BRISA_DEV_CA_CERT).
namespace DownloadEndpoint {

QUrl manifestUrl();

// The default TLS configuration, plus the extra CA certificate in a test or demo build.
QSslConfiguration sslConfiguration();

} // namespace DownloadEndpoint
