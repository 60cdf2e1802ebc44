// libFuzzer entry: any bytes either parse into a manifest that satisfies every rule the
// downloader relies on, or fail and leave the output alone.
#include "download/version_manifest.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    VersionManifest manifest;
    manifest.version = QStringLiteral("untouched");
    QString error;
    if (!VersionManifest::fromJson(bytes, &manifest, &error)) {
        if (manifest.version != QLatin1String("untouched") || error.isEmpty())
            std::abort();
        return 0;
    }
    const DownloadPackage &package = manifest.package;
    if (package.size < 1 || package.size > 21474836480LL || package.sha256.size() != 64
        || package.fileName.contains(QLatin1Char('/')) || package.fileName.contains(QLatin1Char('\\'))
        || package.url.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) != 0
        || manifest.version.isEmpty() || manifest.schemaVersion != 1)
        std::abort();
    return 0;
}
