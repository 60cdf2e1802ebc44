#include "system/sha256.h"

#include <windows.h>
#include <bcrypt.h>

#include <algorithm>

namespace {

// The provider is opened once for the process and shared by every hasher; CNG allows that
// from any thread.
BCRYPT_ALG_HANDLE provider()
{
    static const BCRYPT_ALG_HANDLE handle = [] {
        BCRYPT_ALG_HANDLE opened = nullptr;
        if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0)))
            return BCRYPT_ALG_HANDLE(nullptr);
        return opened;
    }();
    return handle;
}

// BCryptHashData takes a 32-bit length.
constexpr qsizetype largestPiece = 1 << 30;

} // namespace

struct Sha256::Context
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool ok = false;
    ~Context()
    {
        if (hash)
            BCryptDestroyHash(hash);
    }
};

Sha256::Sha256()
    : m_context(std::make_unique<Context>())
{
    const BCRYPT_ALG_HANDLE algorithm = provider();
    m_context->ok = algorithm && BCRYPT_SUCCESS(BCryptCreateHash(algorithm, &m_context->hash, nullptr, 0, nullptr, 0, 0));
}

Sha256::~Sha256() = default;

void Sha256::addData(QByteArrayView data)
{
    while (m_context->ok && !data.isEmpty()) {
        const qsizetype piece = std::min(data.size(), largestPiece);
        m_context->ok = BCRYPT_SUCCESS(BCryptHashData(m_context->hash,
            reinterpret_cast<PUCHAR>(const_cast<char *>(data.data())), ULONG(piece), 0));
        data = data.sliced(piece);
    }
}

QByteArray Sha256::result()
{
    QByteArray digest(32, Qt::Uninitialized);
    const bool ok = m_context->ok
        && BCRYPT_SUCCESS(BCryptFinishHash(m_context->hash, reinterpret_cast<PUCHAR>(digest.data()), 32, 0));
    m_context->ok = false;
    return ok ? digest : QByteArray();
}
