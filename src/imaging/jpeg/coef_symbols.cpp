/*
 * The per-coefficient half of Huffman coding, done for a whole block at
 * once before the sequential half (run lengths, code lookups, bit output).
 *
 * Each coefficient is clamped to what the baseline AC tables can express
 * (+-1023); its magnitude category is the bit length of the absolute value
 * and its value bits are the low `category` bits of the value, with
 * negative values written as the one's complement of their magnitude.
 *
 * The AVX2 kernel gets the same numbers without a per-lane count of
 * leading zeros: the bit length of a (at most 10 bits) is the largest of
 * len(low nibble), 4 + len(middle nibble) and 8 + len(high bits), each a
 * byte table lookup (a zero nibble gives 0 in the last two tables); the
 * mask (1 << len) - 1 is a smeared right shift of a, and the one's
 * complement of a under that mask is a XOR mask.
 */
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SCRIVO_JPEG_X86 1
#endif

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

void CoefSymbolsScalar(const int16_t* zz, CoefSymbols* out) {
    for (int k = 0; k < 64; ++k) {
        int v = zz[k];
        if (v > 1023) v = 1023;
        if (v < -1023) v = -1023;
        const uint32_t a = uint32_t(v < 0 ? -v : v);
        const int nb = a ? 32 - __builtin_clz(a) : 0;
        out->nbits[k] = uint8_t(nb);
        out->bits[k] = uint16_t(uint32_t(v < 0 ? v - 1 : v) & ((1u << nb) - 1));
    }
}

#ifdef SCRIVO_JPEG_X86
namespace {

__attribute__((target("avx2"))) void CoefSymbolsAvx2(const int16_t* zz, CoefSymbols* out) {
    const __m256i hi = _mm256_set1_epi16(1023), lo = _mm256_set1_epi16(-1023);
    const __m256i nibble = _mm256_set1_epi8(0x0F), lowByte = _mm256_set1_epi16(0xFF);
    // len(x), 4 + len(x) and 8 + len(x) for a nibble x, 0 for x = 0.
    const __m256i len0 = _mm256_setr_epi8(0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 0, 1, 2,
                                          2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4);
    const __m256i len4 = _mm256_setr_epi8(0, 5, 6, 6, 7, 7, 7, 7, 8, 8, 8, 8, 8, 8, 8, 8, 0, 5, 6,
                                          6, 7, 7, 7, 7, 8, 8, 8, 8, 8, 8, 8, 8);
    const __m256i len8 =
        _mm256_setr_epi8(0, 9, 10, 10, 11, 11, 11, 11, 12, 12, 12, 12, 12, 12, 12, 12, 0, 9, 10, 10,
                         11, 11, 11, 11, 12, 12, 12, 12, 12, 12, 12, 12);
    for (int half = 0; half < 2; ++half) {
        __m256i a[2];
        for (int i = 0; i < 2; ++i) {
            const int k = half * 32 + i * 16;
            const __m256i v = _mm256_min_epi16(
                _mm256_max_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(zz + k)), lo),
                hi);
            a[i] = _mm256_abs_epi16(v);
            __m256i m = _mm256_or_si256(a[i], _mm256_srli_epi16(a[i], 1));
            m = _mm256_or_si256(m, _mm256_srli_epi16(m, 2));
            m = _mm256_or_si256(m, _mm256_srli_epi16(m, 4));
            m = _mm256_or_si256(m, _mm256_srli_epi16(m, 8));
            const __m256i bits =
                _mm256_xor_si256(a[i], _mm256_and_si256(m, _mm256_srai_epi16(v, 15)));
            _mm256_store_si256(reinterpret_cast<__m256i*>(out->bits + k), bits);
        }
        // Low and high bytes of the 32 magnitudes, in order after the
        // lane-wise pack is undone.
        const __m256i low = _mm256_permute4x64_epi64(
            _mm256_packus_epi16(_mm256_and_si256(a[0], lowByte), _mm256_and_si256(a[1], lowByte)),
            0xD8);
        const __m256i high = _mm256_permute4x64_epi64(
            _mm256_packus_epi16(_mm256_srli_epi16(a[0], 8), _mm256_srli_epi16(a[1], 8)), 0xD8);
        const __m256i n0 = _mm256_shuffle_epi8(len0, _mm256_and_si256(low, nibble));
        const __m256i n4 =
            _mm256_shuffle_epi8(len4, _mm256_and_si256(_mm256_srli_epi16(low, 4), nibble));
        const __m256i n8 = _mm256_shuffle_epi8(len8, high);
        _mm256_store_si256(reinterpret_cast<__m256i*>(out->nbits + half * 32),
                           _mm256_max_epu8(_mm256_max_epu8(n0, n4), n8));
    }
}

}  // namespace
#endif

void CoefSymbolsAt(int level, const int16_t* zz, CoefSymbols* out) {
#ifdef SCRIVO_JPEG_X86
    if (level >= 1) return CoefSymbolsAvx2(zz, out);
#else
    (void)level;
#endif
    CoefSymbolsScalar(zz, out);
}

}  // namespace scrivo::jpeg
