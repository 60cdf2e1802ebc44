#include "download/manifest_signature.h"

#include <memory>

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace ManifestSignature {

namespace {

template<auto Free>
struct Deleter
{
    template<typename T>
    void operator()(T *object) const { Free(object); }
};

void freeBytes(unsigned char *bytes)
{
    OPENSSL_free(bytes);
}

} // namespace

bool verifiedBy(const QByteArray &manifest, const QByteArray &signature, const QByteArray &point)
{
    if (point.size() != 65 || point.at(0) != 0x04 || signature.size() != 64)
        return false;
    const std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>> context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    QByteArray pointBytes = point;
    char group[] = "prime256v1";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0),
        OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, pointBytes.data(), size_t(pointBytes.size())),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY *rawKey = nullptr;
    if (!context || EVP_PKEY_fromdata_init(context.get()) != 1
        || EVP_PKEY_fromdata(context.get(), &rawKey, EVP_PKEY_PUBLIC_KEY, const_cast<OSSL_PARAM *>(parameters)) != 1)
        return false;
    const std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>> key(rawKey);

    // libcrypto checks the DER form of the signature; r and s come from the raw halves.
    const std::unique_ptr<ECDSA_SIG, Deleter<ECDSA_SIG_free>> pair(ECDSA_SIG_new());
    const auto *bytes = reinterpret_cast<const unsigned char *>(signature.constData());
    BIGNUM *r = BN_bin2bn(bytes, 32, nullptr);
    BIGNUM *s = BN_bin2bn(bytes + 32, 32, nullptr);
    if (!pair || !r || !s || ECDSA_SIG_set0(pair.get(), r, s) != 1) {
        BN_free(r);
        BN_free(s);
        return false;
    }
    unsigned char *der = nullptr;
    const int derSize = i2d_ECDSA_SIG(pair.get(), &der);
    const std::unique_ptr<unsigned char, Deleter<freeBytes>> derOwner(der);
    const std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>> digest(EVP_MD_CTX_new());
    return derSize > 0 && digest && EVP_DigestVerifyInit(digest.get(), nullptr, EVP_sha256(), nullptr, key.get()) == 1
        && EVP_DigestVerify(digest.get(), der, size_t(derSize), reinterpret_cast<const unsigned char *>(manifest.constData()),
                            size_t(manifest.size())) == 1;
}

} // namespace ManifestSignature
