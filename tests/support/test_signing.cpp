#include "support/test_signing.h"
#include "support/test_signing_key.h"

#include <QCryptographicHash>

#ifdef Q_OS_WIN
#include <windows.h>
#include <bcrypt.h>
#else
#include <openssl/bn.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#endif

namespace TestSigning {

QByteArray signatureFile(const QByteArray &manifest)
{
    const QByteArray digest = QCryptographicHash::hash(manifest, QCryptographicHash::Sha256);
    QByteArray signature(64, '\0');
#ifdef Q_OS_WIN
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    QByteArray blob(sizeof(BCRYPT_ECCKEY_BLOB), '\0');
    auto *header = reinterpret_cast<BCRYPT_ECCKEY_BLOB *>(blob.data());
    header->dwMagic = BCRYPT_ECDSA_PRIVATE_P256_MAGIC;
    header->cbKey = 32;
    blob.append(reinterpret_cast<const char *>(TestSigningKey::point) + 1, 64);
    blob.append(reinterpret_cast<const char *>(TestSigningKey::secret), 32);
    ULONG written = 0;
    QByteArray hash = digest;
    const bool signedHash = BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0))
        && BCRYPT_SUCCESS(BCryptImportKeyPair(algorithm, nullptr, BCRYPT_ECCPRIVATE_BLOB, &key,
                                              reinterpret_cast<PUCHAR>(blob.data()), ULONG(blob.size()), 0))
        && BCRYPT_SUCCESS(BCryptSignHash(key, nullptr, reinterpret_cast<PUCHAR>(hash.data()), ULONG(hash.size()),
                                         reinterpret_cast<PUCHAR>(signature.data()), ULONG(signature.size()), &written, 0))
        && written == 64;
    if (key)
        BCryptDestroyKey(key);
    if (algorithm)
        BCryptCloseAlgorithmProvider(algorithm, 0);
    if (!signedHash)
        return {};
#else
    FILE *file = fopen(TestSigningKey::pemPath, "r");
    EVP_PKEY *key = file ? PEM_read_PrivateKey(file, nullptr, nullptr, nullptr) : nullptr;
    if (file)
        fclose(file);
    EVP_PKEY_CTX *context = key ? EVP_PKEY_CTX_new(key, nullptr) : nullptr;
    unsigned char der[80];
    size_t derSize = sizeof der;
    const bool signedHash = context && EVP_PKEY_sign_init(context) == 1
        && EVP_PKEY_sign(context, der, &derSize, reinterpret_cast<const unsigned char *>(digest.constData()), size_t(digest.size())) == 1;
    EVP_PKEY_CTX_free(context);
    EVP_PKEY_free(key);
    if (!signedHash)
        return {};
    const unsigned char *read = der;
    ECDSA_SIG *pair = d2i_ECDSA_SIG(nullptr, &read, long(derSize));
    if (!pair)
        return {};
    BN_bn2binpad(ECDSA_SIG_get0_r(pair), reinterpret_cast<unsigned char *>(signature.data()), 32);
    BN_bn2binpad(ECDSA_SIG_get0_s(pair), reinterpret_cast<unsigned char *>(signature.data()) + 32, 32);
    ECDSA_SIG_free(pair);
#endif
    return signature.toBase64() + '\n';
}

} // namespace TestSigning
