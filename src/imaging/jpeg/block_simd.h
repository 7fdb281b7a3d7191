/*
 * Steps shared by the x86 block coders: the 8x8 transpose of eight vectors
 * of eight 32-bit lanes, and the last step, 64 quantised coefficients in
 * four vectors of 16 (in the coder's own order) -> zig-zag order in memory
 * and the mask of the non-zero AC terms (the shuffle tables and `idx` come
 * from a zig-zag order: for each zig-zag position, the coefficient's index
 * in the coder's order).
 */
#ifndef SCRIVO_IMAGING_JPEG_BLOCK_SIMD_H
#define SCRIVO_IMAGING_JPEG_BLOCK_SIMD_H

#include <immintrin.h>

#include <cstdint>

namespace scrivo::jpeg {

__attribute__((target("avx2"))) inline void Transpose8x8(__m256* r) {
    __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
    __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
    __m256 u0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u4 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u5 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u6 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u7 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(3, 2, 3, 2));
    r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
    r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
    r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
    r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
    r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
    r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
    r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
    r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

// AVX2: byte shuffles. A shuffle moves bytes only within a 128-bit lane,
// so each output vector j is the OR over the source vectors i of two
// shuffles, one of source i and one of source i with its lanes swapped;
// control bytes of 0x80 give zeros where another source supplies the word.
struct ZigZagShuffles {
    alignas(32) uint8_t ctl[4][4][2][32];  // [output][source][swapped][byte]
};

inline ZigZagShuffles MakeZigZagShuffles(const uint8_t* order) {
    ZigZagShuffles z;
    for (auto& out : z.ctl)
        for (auto& src : out)
            for (auto& half : src)
                for (uint8_t& b : half) b = 0x80;
    for (int k = 0; k < 64; ++k) {
        const int s = order[k];
        const int lane = (k % 16) / 8, srcLane = (s % 16) / 8;
        uint8_t* c = z.ctl[k / 16][s / 16][lane != srcLane] + lane * 16 + 2 * (k % 8);
        c[0] = uint8_t(2 * (s % 8));
        c[1] = uint8_t(2 * (s % 8) + 1);
    }
    return z;
}

__attribute__((target("avx2"))) inline uint64_t ZigZagAvx2(const __m256i* q,
                                                           const ZigZagShuffles& z, int16_t* zz) {
    __m256i swapped[4];
    for (int i = 0; i < 4; ++i) swapped[i] = _mm256_permute2x128_si256(q[i], q[i], 0x01);
    uint64_t mask = 0;
    const __m256i zero = _mm256_setzero_si256();
    __m256i isZero[4];
    for (int j = 0; j < 4; ++j) {
        __m256i o = _mm256_setzero_si256();
        for (int i = 0; i < 4; ++i) {
            const __m256i* c = reinterpret_cast<const __m256i*>(z.ctl[j][i][0]);
            o = _mm256_or_si256(o, _mm256_shuffle_epi8(q[i], _mm256_load_si256(c)));
            o = _mm256_or_si256(o, _mm256_shuffle_epi8(swapped[i], _mm256_load_si256(c + 1)));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(zz + 16 * j), o);
        isZero[j] = _mm256_cmpeq_epi16(o, zero);
    }
    for (int i = 0; i < 4; i += 2) {
        const __m256i bytes =
            _mm256_permute4x64_epi64(_mm256_packs_epi16(isZero[i], isZero[i + 1]), 0xD8);
        mask |= uint64_t(~uint32_t(_mm256_movemask_epi8(bytes))) << (i * 16);
    }
    return mask & ~1ull;
}

// a | b << 256. Masked inserts into zero: GCC 12 warns about the undefined
// pass-through operand of the plain ones.
__attribute__((target("avx2,avx512f,avx512bw"))) inline __m512i Join256(__m256i a, __m256i b) {
    const __m512i z = _mm512_setzero_si512();
    const __m512i t = _mm512_mask_inserti64x4(z, 0xFF, z, a, 0);
    return _mm512_mask_inserti64x4(t, 0xFF, t, b, 1);
}

// AVX-512BW: two cross-register word permutes and two tests. The halves
// are joined in registers: two 256-bit stores read back as one 512-bit
// load would miss store forwarding and stall.
__attribute__((target("avx2,avx512f,avx512bw"))) inline uint64_t ZigZagAvx512(const __m256i* q,
                                                                              const uint16_t* idx,
                                                                              int16_t* zz) {
    const __m512i lo = Join256(q[0], q[1]), hi = Join256(q[2], q[3]);
    const __m512i z0 = _mm512_permutex2var_epi16(lo, _mm512_loadu_si512(idx), hi);
    const __m512i z1 = _mm512_permutex2var_epi16(lo, _mm512_loadu_si512(idx + 32), hi);
    _mm512_storeu_si512(zz, z0);
    _mm512_storeu_si512(zz + 32, z1);
    const uint64_t mask =
        uint64_t(_mm512_test_epi16_mask(z0, z0)) | (uint64_t(_mm512_test_epi16_mask(z1, z1)) << 32);
    return mask & ~1ull;
}

}  // namespace scrivo::jpeg

#endif
