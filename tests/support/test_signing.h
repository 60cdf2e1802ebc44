#pragma once

#include <QByteArray>

// Signs manifests for tests with the build tree's throwaway publisher key, so a test that serves
// a manifest can serve its "manifest.json.sig" too: CNG under Wine, libcrypto on the host.
namespace TestSigning {

// The text of "manifest.json.sig" for these bytes (base64 of r||s and a line ending), or empty
// when the key cannot be used.
QByteArray signatureFile(const QByteArray &manifest);

} // namespace TestSigning
