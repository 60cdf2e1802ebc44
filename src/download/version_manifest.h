#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

// One downloadable ZIP package as the publisher describes it.
struct DownloadPackage
{
    QUrl url;
    QString fileName;
    qint64 size = 0;
    qint64 uncompressedSize = 0;
    QByteArray sha256; // lower-case hexadecimal
};

// The version manifest the installer fetches before every download.
struct VersionManifest
{
    int schemaVersion = 0;
    QString version;
    QString releaseId;
    DownloadPackage package;
    DownloadPackage fullPackage; // only url and fileName are read

    // Parses and validates the raw document. On failure `manifest` is left untouched and
    // `error` (if given) receives a plain, untranslated message.
    static bool fromJson(const QByteArray &bytes, VersionManifest *manifest, QString *error = nullptr);
};
