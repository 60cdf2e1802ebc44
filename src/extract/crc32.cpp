#include "extract/crc32.h"

#include <zlib.h>

#include <algorithm>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define BRISA_CRC32_FOLDING 1
#endif

namespace {

quint32 portable(quint32 crc, const unsigned char *data, qint64 length)
{
    while (length > 0) {
        const auto step = std::min<qint64>(length, 1 << 30);
        crc = quint32(crc32_z(crc, data, size_t(step)));
        data += step;
        length -= step;
    }
    return crc;
}

#ifdef BRISA_CRC32_FOLDING
#define BRISA_FOLDING_TARGET __attribute__((target("pclmul,sse4.1")))

BRISA_FOLDING_TARGET inline __m128i load(const unsigned char *at)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
}

// value * x^(distance) folded onto the next 128 bits, the two powers held in `constants`.
BRISA_FOLDING_TARGET inline __m128i fold(__m128i value, __m128i constants, __m128i next)
{
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(value, constants, 0x11),
                                       _mm_clmulepi64_si128(value, constants, 0x00)), next);
}

// Folding with carry-less multiplication, after Gopal et al., "Fast CRC Computation for Generic
// Polynomials Using PCLMULQDQ Instruction" (Intel, 2009), with the constants of the reflected
// ZIP polynomial. `state` is the inverted CRC; `length` is at least 64 and a multiple of 16.
BRISA_FOLDING_TARGET quint32 folded(quint32 state, const unsigned char *data, qint64 length)
{
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596, 0x0154442bd4);
    const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009e, 0x01751997d0);
    const __m128i k5k0 = _mm_set_epi64x(0, 0x0163cd6124);
    const __m128i poly = _mm_set_epi64x(0x01f7011641, 0x01db710641);
    __m128i x1 = _mm_xor_si128(load(data), _mm_cvtsi32_si128(int(state)));
    __m128i x2 = load(data + 16);
    __m128i x3 = load(data + 32);
    __m128i x4 = load(data + 48);
    data += 64;
    length -= 64;
    while (length >= 64) {
        x1 = fold(x1, k1k2, load(data));
        x2 = fold(x2, k1k2, load(data + 16));
        x3 = fold(x3, k1k2, load(data + 32));
        x4 = fold(x4, k1k2, load(data + 48));
        data += 64;
        length -= 64;
    }
    x1 = fold(x1, k3k4, x2);
    x1 = fold(x1, k3k4, x3);
    x1 = fold(x1, k3k4, x4);
    while (length >= 16) {
        x1 = fold(x1, k3k4, load(data));
        data += 16;
        length -= 16;
    }

    // 128 bits to 64, then Barrett reduction to 32.
    const __m128i low32 = _mm_setr_epi32(~0, 0, ~0, 0);
    __m128i x2r = _mm_clmulepi64_si128(x1, k3k4, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2r);
    x2r = _mm_srli_si128(x1, 4);
    x1 = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x1, low32), k5k0, 0x00), x2r);
    __m128i reduced = _mm_clmulepi64_si128(_mm_and_si128(x1, low32), poly, 0x10);
    reduced = _mm_clmulepi64_si128(_mm_and_si128(reduced, low32), poly, 0x00);
    return quint32(_mm_extract_epi32(_mm_xor_si128(x1, reduced), 1));
}

bool canFold()
{
    static const bool supported = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    }();
    return supported;
}
#endif

} // namespace

quint32 Crc32::update(quint32 crc, const char *data, qint64 length)
{
    auto bytes = reinterpret_cast<const unsigned char *>(data);
#ifdef BRISA_CRC32_FOLDING
    if (length >= 64 && canFold()) {
        const qint64 whole = length & ~qint64(15);
        crc = ~folded(~crc, bytes, whole);
        bytes += whole;
        length -= whole;
    }
#endif
    return portable(crc, bytes, length);
}
