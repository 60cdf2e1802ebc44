#include "download/manifest_signature.h"

#include "system/sha256.h"

#include <memory>

#include <windows.h>
#include <bcrypt.h>

namespace ManifestSignature {

namespace {

struct AlgorithmCloser
{
    void operator()(BCRYPT_ALG_HANDLE algorithm) const { BCryptCloseAlgorithmProvider(algorithm, 0); }
};
struct KeyDestroyer
{
    void operator()(BCRYPT_KEY_HANDLE key) const { BCryptDestroyKey(key); }
};

} // namespace

bool verifiedBy(const QByteArray &manifest, const QByteArray &signature, const QByteArray &point)
{
    if (point.size() != 65 || point.at(0) != 0x04 || signature.size() != 64)
        return false;
    BCRYPT_ALG_HANDLE rawAlgorithm = nullptr;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&rawAlgorithm, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0)))
        return false;
    const std::unique_ptr<void, AlgorithmCloser> algorithm(rawAlgorithm);
    // The public blob is its header followed by X and Y, the point without its 0x04 tag.
    QByteArray blob(sizeof(BCRYPT_ECCKEY_BLOB), '\0');
    auto *header = reinterpret_cast<BCRYPT_ECCKEY_BLOB *>(blob.data());
    header->dwMagic = BCRYPT_ECDSA_PUBLIC_P256_MAGIC;
    header->cbKey = 32;
    blob.append(point.mid(1));
    BCRYPT_KEY_HANDLE rawKey = nullptr;
    if (!BCRYPT_SUCCESS(BCryptImportKeyPair(rawAlgorithm, nullptr, BCRYPT_ECCPUBLIC_BLOB, &rawKey,
                                            reinterpret_cast<PUCHAR>(blob.data()), ULONG(blob.size()), 0)))
        return false;
    const std::unique_ptr<void, KeyDestroyer> key(rawKey);
    Sha256 hash;
    hash.addData(manifest);
    QByteArray digest = hash.result();
    QByteArray rs = signature;
    return BCRYPT_SUCCESS(BCryptVerifySignature(rawKey, nullptr, reinterpret_cast<PUCHAR>(digest.data()), ULONG(digest.size()),
                                                reinterpret_cast<PUCHAR>(rs.data()), ULONG(rs.size()), 0));
}

} // namespace ManifestSignature
