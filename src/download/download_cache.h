#pragma once

#include <QByteArray>
#include <QString>

struct VersionManifest;

// The download cache on disk: one directory per product version holding the package's chunk
// files, a marker naming the package they belong to, and the assembled package.
namespace DownloadCache {

// Whether a version or release identifier can be used as a directory name as it is.
bool usableName(const QString &name);

// "<root>/version-<version>", or "<root>/default" when the version is not usable.
QString directoryFor(const QString &root, const VersionManifest &manifest);

// "chunk-0000.bin" and so on.
QString chunkFileName(int index);

// Makes sure the chunks in `directory` belong to the package with `sha256`: when the marker is
// missing or names another package, every chunk file is deleted and the marker rewritten.
void claimForPackage(const QString &directory, const QByteArray &sha256);

// Moves chunks of the same package from an older cache directory into `targetDir`, never
// following links and never overwriting a chunk already there. Returns how many were moved.
int migrateLegacy(const QString &legacyDir, const QString &targetDir, const QByteArray &sha256);

// SHA-256 of the file compared with `expectedSha256` (hexadecimal, any case). Keeps the event
// loop turning while it reads, so a caller must expect to be cancelled or restarted meanwhile.
bool verifyFile(const QString &path, const QByteArray &expectedSha256);

} // namespace DownloadCache
