#include "system/sha256.h"

#include <openssl/evp.h>

struct Sha256::Context
{
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    bool ok = false;
    ~Context() { EVP_MD_CTX_free(context); }
};

Sha256::Sha256()
    : m_context(std::make_unique<Context>())
{
    m_context->ok = m_context->context && EVP_DigestInit_ex(m_context->context, EVP_sha256(), nullptr) == 1;
}

Sha256::~Sha256() = default;

void Sha256::addData(QByteArrayView data)
{
    if (m_context->ok && !data.isEmpty())
        m_context->ok = EVP_DigestUpdate(m_context->context, data.data(), size_t(data.size())) == 1;
}

QByteArray Sha256::result()
{
    QByteArray digest(32, Qt::Uninitialized);
    unsigned int length = 0;
    const bool ok = m_context->ok
        && EVP_DigestFinal_ex(m_context->context, reinterpret_cast<unsigned char *>(digest.data()), &length) == 1
        && length == 32;
    m_context->ok = false;
    return ok ? digest : QByteArray();
}
