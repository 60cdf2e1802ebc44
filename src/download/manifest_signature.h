#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Whoever controls the download server must not control what the installer runs: the publisher
// signs the manifest's exact bytes with a key that never touches the server, and the installer
// checks that signature against the public keys compiled into it before it reads a single field.
//
// "manifest.json.sig" is the base64 text of the 64-byte signature r||s (32 bytes each,
// big-endian): ECDSA over P-256 with SHA-256. One line ending is tolerated after it.
namespace ManifestSignature {

enum class Check {
    Valid,
    Empty,
    Oversized,
    NotBase64,
    WrongLength,
    NoKeyMatches,
};

// The uncompressed P-256 points (65 bytes each) the installer accepts: one, or two while the
// publisher rotates keys.
QList<QByteArray> compiledKeys();

Check verify(const QByteArray &manifest, const QByteArray &signatureFile, const QList<QByteArray> &keys = compiledKeys());

// The failed check's name for the log.
QString checkName(Check check);

// One key against one raw r||s signature, through the platform's cryptography.
bool verifiedBy(const QByteArray &manifest, const QByteArray &signature, const QByteArray &point);

} // namespace ManifestSignature
