/*
 * Reduction of subsampled chroma, one MCU row at a time, from the rows at
 * full resolution to the component's own plane.
 *
 * 2x2 pixels are averaged with a bias that alternates 1, 2 along the row
 * (2x1 pixels: 0, 1; 1x2 pixels: always 1), so that rounding does not drift
 * in one direction. The AVX2 kernel forms the pair sums with an unsigned x
 * signed byte multiply-add against ones, adds the alternating bias as a
 * constant vector (32 outputs per step start at an even x) and packs back
 * to bytes; the rest of the row goes through the plain kernel.
 */
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SCRIVO_JPEG_X86 1
#endif

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

namespace {

void DownsampleFrom(int x, const uint8_t* a, const uint8_t* b, int hs, int outW, uint8_t* o) {
    if (b && hs == 2) {
        for (; x < outW; ++x) {
            const int sum = a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1];
            o[x] = uint8_t((sum + 1 + (x & 1)) >> 2);
        }
    } else if (hs == 2) {
        for (; x < outW; ++x) o[x] = uint8_t((a[2 * x] + a[2 * x + 1] + (x & 1)) >> 1);
    } else {
        for (; x < outW; ++x) o[x] = uint8_t((a[x] + b[x] + 1) >> 1);
    }
}

#ifdef SCRIVO_JPEG_X86
__attribute__((target("avx2"))) inline __m256i PairSums(const uint8_t* p) {
    return _mm256_maddubs_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)),
                                _mm256_set1_epi8(1));
}

// Returns how many outputs it did (a multiple of 32).
__attribute__((target("avx2"))) int DownsampleAvx2(const uint8_t* a, const uint8_t* b, int outW,
                                                   uint8_t* o) {
    const __m256i bias = b ? _mm256_set1_epi32(0x00020001) : _mm256_set1_epi32(0x00010000);
    const int shift = b ? 2 : 1;
    int x = 0;
    for (; x + 32 <= outW; x += 32) {
        __m256i s0 = _mm256_add_epi16(PairSums(a + 2 * x), bias);
        __m256i s1 = _mm256_add_epi16(PairSums(a + 2 * x + 32), bias);
        if (b) {
            s0 = _mm256_add_epi16(s0, PairSums(b + 2 * x));
            s1 = _mm256_add_epi16(s1, PairSums(b + 2 * x + 32));
        }
        const __m128i n = _mm_cvtsi32_si128(shift);
        const __m256i packed =
            _mm256_packus_epi16(_mm256_srl_epi16(s0, n), _mm256_srl_epi16(s1, n));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + x),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
    return x;
}
#endif

}  // namespace

void DownsampleRowScalar(const uint8_t* a, const uint8_t* b, int hs, int outW, uint8_t* o) {
    DownsampleFrom(0, a, b, hs, outW, o);
}

void DownsampleRowAt(int level, const uint8_t* a, const uint8_t* b, int hs, int outW, uint8_t* o) {
    int x = 0;
#ifdef SCRIVO_JPEG_X86
    if (level >= 1 && hs == 2) x = DownsampleAvx2(a, b, outW, o);
#else
    (void)level;
#endif
    DownsampleFrom(x, a, b, hs, outW, o);
}

void DownsampleMcuRow(Encoder* e) {
    if (e->numComps != 3 || e->chromaDirect) return;
    const int hs = e->maxH / e->comp[1].h, vs = e->maxV / e->comp[1].v;
    if (hs == 1 && vs == 1) return;
    const int pw = e->paddedWidth;
    const int level = BlockCoderLevel();
    for (int c = 1; c < 3; ++c) {
        const int outW = e->planeStride[c];
        for (int r = 0; r < 8 * e->comp[c].v; ++r) {
            const uint8_t* a = e->full[c].data() + ptrdiff_t(r * vs) * pw;
            DownsampleRowAt(level, a, vs == 2 ? a + pw : nullptr, hs, outW,
                            e->plane[c].data() + ptrdiff_t(r) * outW);
        }
    }
}

}  // namespace scrivo::jpeg
