/*
 * The block coders: forward DCT of an 8x8 block of samples followed by
 * quantisation.
 *
 * Mode 0 (fast, default): the Arai-Agui-Nakajima factorisation in single
 * precision: 5 multiplications per 8-point transform, the remaining scale
 * folded into the quantiser, so quantisation is one multiplication by a
 * reciprocal and a round-to-nearest-even. The vertical pass runs first, then
 * the horizontal one, and the block is left transposed (coefficient (u, v)
 * at v * 8 + u) -- exactly what a register-wise AVX2 implementation does
 * with one transpose in the middle. The scalar version performs the same
 * operations in the same order, without fused multiply-adds, so both give
 * bit-identical coefficients. The AVX2 version (with AVX-512BW also the
 * zig-zag reordering as two word permutes) is picked at run time.
 *
 * Mode 1, the integer coder, is in fdct_int.cpp.
 *
 * Both coders hand the entropy coder the coefficients in zig-zag order with
 * a 64-bit mask of the non-zero AC terms, computed while the block is still
 * in registers.
 */
#include <cmath>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SCRIVO_JPEG_X86 1
#endif

#include "imaging/jpeg/jpeg_internal.h"
#include "platform/cpu_features.h"
#ifdef SCRIVO_JPEG_X86
#include "imaging/jpeg/block_simd.h"
#endif

namespace scrivo::jpeg {

namespace {

// One 8-point AAN transform. The body is shared, as a macro, by the scalar
// version and the AVX2 version (which needs the target attribute on the
// function itself so that the vector operators inline).
#define SCRIVO_AAN8_BODY(T)                     \
    T tmp0 = d0 + d7, tmp7 = d0 - d7;           \
    T tmp1 = d1 + d6, tmp6 = d1 - d6;           \
    T tmp2 = d2 + d5, tmp5 = d2 - d5;           \
    T tmp3 = d3 + d4, tmp4 = d3 - d4;           \
    T tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3; \
    T tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2; \
    d0 = tmp10 + tmp11;                         \
    d4 = tmp10 - tmp11;                         \
    T z1 = (tmp12 + tmp13) * k0707;             \
    d2 = tmp13 + z1;                            \
    d6 = tmp13 - z1;                            \
    tmp10 = tmp4 + tmp5;                        \
    tmp11 = tmp5 + tmp6;                        \
    tmp12 = tmp6 + tmp7;                        \
    T z5 = (tmp10 - tmp12) * k0382;             \
    T z2 = k0541 * tmp10 + z5;                  \
    T z4 = k1306 * tmp12 + z5;                  \
    T z3 = tmp11 * k0707;                       \
    T z11 = tmp7 + z3, z13 = tmp7 - z3;         \
    d5 = z13 + z2;                              \
    d3 = z13 - z2;                              \
    d1 = z11 + z4;                              \
    d7 = z11 - z4;

constexpr float kF0707 = 0.707106781f, kF0382 = 0.382683433f, kF0541 = 0.541196100f,
                kF1306 = 1.306562965f;

inline void Aan8(float& d0, float& d1, float& d2, float& d3, float& d4, float& d5, float& d6,
                 float& d7) {
    const float k0707 = kF0707, k0382 = kF0382, k0541 = kF0541, k1306 = kF1306;
    SCRIVO_AAN8_BODY(float)
}

#ifdef SCRIVO_JPEG_X86
struct V8 {
    __m256 v;
};
__attribute__((target("avx2"))) inline V8 operator+(V8 a, V8 b) {
    return {_mm256_add_ps(a.v, b.v)};
}
__attribute__((target("avx2"))) inline V8 operator-(V8 a, V8 b) {
    return {_mm256_sub_ps(a.v, b.v)};
}
__attribute__((target("avx2"))) inline V8 operator*(V8 a, V8 b) {
    return {_mm256_mul_ps(a.v, b.v)};
}

__attribute__((target("avx2"))) inline void Transpose8(V8* r) {
    __m256 t[8];
    for (int i = 0; i < 8; ++i) t[i] = r[i].v;
    Transpose8x8(t);
    for (int i = 0; i < 8; ++i) r[i].v = t[i];
}

__attribute__((target("avx2"))) inline void Aan8Avx2(V8* r) {
    const V8 k0707{_mm256_set1_ps(kF0707)}, k0382{_mm256_set1_ps(kF0382)},
        k0541{_mm256_set1_ps(kF0541)}, k1306{_mm256_set1_ps(kF1306)};
    V8 &d0 = r[0], &d1 = r[1], &d2 = r[2], &d3 = r[3], &d4 = r[4], &d5 = r[5], &d6 = r[6],
       &d7 = r[7];
    SCRIVO_AAN8_BODY(V8)
}

// Loads a block, runs both passes; r[v] then holds coefficients (u, v) for
// u = 0..7 (the transposed layout).
__attribute__((target("avx2"))) inline void FloatDctAvx2(const uint8_t* src, int stride, V8* r) {
    const __m256i c128 = _mm256_set1_epi32(128);
    for (int y = 0; y < 8; ++y) {
        __m128i px = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + y * stride));
        r[y].v = _mm256_cvtepi32_ps(_mm256_sub_epi32(_mm256_cvtepu8_epi32(px), c128));
    }
    Aan8Avx2(r);
    Transpose8(r);
    Aan8Avx2(r);
}

// Quantises r into four vectors of 16 coefficients in transposed order.
__attribute__((target("avx2"))) inline void QuantiseAvx2(const V8* r, const float* recip,
                                                         __m256i* q) {
    for (int v = 0; v < 8; v += 2) {
        __m256i a = _mm256_cvtps_epi32(_mm256_mul_ps(r[v].v, _mm256_loadu_ps(recip + v * 8)));
        __m256i b =
            _mm256_cvtps_epi32(_mm256_mul_ps(r[v + 1].v, _mm256_loadu_ps(recip + v * 8 + 8)));
        q[v / 2] = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
    }
}

__attribute__((target("avx2"))) uint64_t BlockCodeFloatAvx2(const uint8_t* src, int stride,
                                                            const float* recip, int16_t* zz) {
    V8 r[8];
    FloatDctAvx2(src, stride, r);
    __m256i q[4];
    QuantiseAvx2(r, recip, q);
    static const ZigZagShuffles kShuffles = MakeZigZagShuffles(jpg_transposed_order);
    return ZigZagAvx2(q, kShuffles, zz);
}

// Zig-zag position -> index in the transposed layout, for word permutes.
alignas(64) const uint16_t kTransposedIdx[64] = {
    0,  8,  1,  2,  9,  16, 24, 17, 10, 3,  4,  11, 18, 25, 32, 40, 33, 26, 19, 12, 5,  6,
    13, 20, 27, 34, 41, 48, 56, 49, 42, 35, 28, 21, 14, 7,  15, 22, 29, 36, 43, 50, 57, 58,
    51, 44, 37, 30, 23, 31, 38, 45, 52, 59, 60, 53, 46, 39, 47, 54, 61, 62, 55, 63};

#define SCRIVO_AVX512 __attribute__((target("avx2,avx512f,avx512bw")))

SCRIVO_AVX512 uint64_t BlockCodeFloatAvx512(const uint8_t* src, int stride, const float* recip,
                                            int16_t* zz) {
    V8 r[8];
    FloatDctAvx2(src, stride, r);
    __m256i q[4];
    QuantiseAvx2(r, recip, q);
    return ZigZagAvx512(q, kTransposedIdx, zz);
}

// Two blocks at once, one in each 256-bit half of sixteen-lane registers: per lane the same
// operations in the same order as FloatDctAvx2 and QuantiseAvx2. (Zero-masked forms with a full
// mask where GCC 12 warns about the undefined pass-through operand of the plain ones.)
struct V16 {
    __m512 v;
};
SCRIVO_AVX512 inline V16 operator+(V16 a, V16 b) {
    return {_mm512_add_ps(a.v, b.v)};
}
SCRIVO_AVX512 inline V16 operator-(V16 a, V16 b) {
    return {_mm512_sub_ps(a.v, b.v)};
}
// AVX-512F has fused multiply-adds for these registers, and the compiler
// would fuse a product into the sum it feeds, skipping the product's
// rounding; the empty asm makes the rounded product opaque.
SCRIVO_AVX512 inline V16 operator*(V16 a, V16 b) {
    __m512 p = _mm512_mul_ps(a.v, b.v);
    asm("" : "+v"(p));
    return {p};
}

SCRIVO_AVX512 inline void Aan8Avx512(V16* r) {
    const V16 k0707{_mm512_set1_ps(kF0707)}, k0382{_mm512_set1_ps(kF0382)},
        k0541{_mm512_set1_ps(kF0541)}, k1306{_mm512_set1_ps(kF1306)};
    V16 &d0 = r[0], &d1 = r[1], &d2 = r[2], &d3 = r[3], &d4 = r[4], &d5 = r[5], &d6 = r[6],
        &d7 = r[7];
    SCRIVO_AAN8_BODY(V16)
}

// Transpose8x8 in each half: the in-lane steps are the same, the exchange
// of 128-bit lanes is a two-source permute per half.
SCRIVO_AVX512 inline void TransposePair(V16* r) {
    const __mmask16 all = 0xFFFF;
    __m512 t[8], u[8];
    for (int i = 0; i < 8; i += 2) {
        t[i] = _mm512_maskz_unpacklo_ps(all, r[i].v, r[i + 1].v);
        t[i + 1] = _mm512_maskz_unpackhi_ps(all, r[i].v, r[i + 1].v);
    }
    for (int h = 0; h < 8; h += 4) {
        u[h] = _mm512_maskz_shuffle_ps(all, t[h], t[h + 2], _MM_SHUFFLE(1, 0, 1, 0));
        u[h + 1] = _mm512_maskz_shuffle_ps(all, t[h], t[h + 2], _MM_SHUFFLE(3, 2, 3, 2));
        u[h + 2] = _mm512_maskz_shuffle_ps(all, t[h + 1], t[h + 3], _MM_SHUFFLE(1, 0, 1, 0));
        u[h + 3] = _mm512_maskz_shuffle_ps(all, t[h + 1], t[h + 3], _MM_SHUFFLE(3, 2, 3, 2));
    }
    const __m512i lo = _mm512_setr_epi32(0, 1, 2, 3, 16, 17, 18, 19, 8, 9, 10, 11, 24, 25, 26, 27);
    const __m512i hi =
        _mm512_setr_epi32(4, 5, 6, 7, 20, 21, 22, 23, 12, 13, 14, 15, 28, 29, 30, 31);
    for (int i = 0; i < 4; ++i) {
        r[i].v = _mm512_permutex2var_ps(u[i], lo, u[i + 4]);
        r[i + 4].v = _mm512_permutex2var_ps(u[i], hi, u[i + 4]);
    }
}

SCRIVO_AVX512 void BlockCodeFloatPairAvx512(const uint8_t* a, const uint8_t* b, int stride,
                                            const QuantScale& qs, int16_t* zz, uint64_t* masks) {
    const __mmask16 all = 0xFFFF;
    const __m512i c128 = _mm512_set1_epi32(128);
    V16 r[8];
    for (int y = 0; y < 8; ++y) {
        const __m128i px =
            _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + y * stride)),
                               _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b + y * stride)));
        r[y].v = _mm512_maskz_cvtepi32_ps(
            all, _mm512_sub_epi32(_mm512_maskz_cvtepu8_epi32(all, px), c128));
    }
    Aan8Avx512(r);
    TransposePair(r);
    Aan8Avx512(r);
    __m256i qa[4], qb[4];
    for (int v = 0; v < 8; v += 2) {
        __m256i w[2];
        for (int i = 0; i < 2; ++i) {
            const __m512 scaled =
                _mm512_mul_ps(r[v + i].v, _mm512_loadu_ps(qs.recipPair + (v + i) * 16));
            w[i] = _mm512_maskz_cvtsepi32_epi16(all, _mm512_maskz_cvtps_epi32(all, scaled));
        }
        qa[v / 2] = _mm256_permute2x128_si256(w[0], w[1], 0x20);
        qb[v / 2] = _mm256_permute2x128_si256(w[0], w[1], 0x31);
    }
    masks[0] = ZigZagAvx512(qa, kTransposedIdx, zz);
    masks[1] = ZigZagAvx512(qb, kTransposedIdx, zz + 64);
}

int DetectLevel() {
    const scrivo::platform::CpuFeatures& cpu = scrivo::platform::Cpu();
    if (cpu.referenceOnly || !cpu.avx2) return 0;
    return cpu.avx512bw ? 2 : 1;
}
#endif

}  // namespace

namespace {

inline uint64_t ZigZag(const int16_t* t, const uint8_t* order, int16_t* zz) {
    uint64_t mask = 0;
    for (int k = 0; k < 64; ++k) {
        zz[k] = t[order[k]];
        mask |= uint64_t(zz[k] != 0) << k;
    }
    return mask & ~1ull;
}

}  // namespace

int BlockCoderLevel() {
#ifdef SCRIVO_JPEG_X86
    static const int level = DetectLevel();
    return level;
#else
    return 0;
#endif
}

uint64_t BlockCodeFloatScalar(const uint8_t* src, int stride, const float* recip, int16_t* zz) {
    float w[64];
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) w[y * 8 + x] = float(int(src[y * stride + x]) - 128);
    for (int x = 0; x < 8; ++x) {
        float* c = w + x;
        Aan8(c[0], c[8], c[16], c[24], c[32], c[40], c[48], c[56]);
    }
    for (int u = 0; u < 8; ++u) {
        float* r = w + u * 8;
        Aan8(r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7]);
    }
    int16_t t[64];
    for (int u = 0; u < 8; ++u)
        for (int v = 0; v < 8; ++v)
            t[v * 8 + u] = int16_t(std::nearbyint(w[u * 8 + v] * recip[v * 8 + u]));
    return ZigZag(t, jpg_transposed_order, zz);
}

uint64_t BlockCodeFloatAt(int level, const uint8_t* src, int stride, const float* recip,
                          int16_t* zz) {
#ifdef SCRIVO_JPEG_X86
    if (level >= 2) return BlockCodeFloatAvx512(src, stride, recip, zz);
    if (level == 1) return BlockCodeFloatAvx2(src, stride, recip, zz);
#else
    (void)level;
#endif
    return BlockCodeFloatScalar(src, stride, recip, zz);
}

void BlockCodeFloatPairAt(int level, const uint8_t* a, const uint8_t* b, int stride,
                          const QuantScale& qs, int16_t* zz, uint64_t* masks) {
#ifdef SCRIVO_JPEG_X86
    if (level >= 2) return BlockCodeFloatPairAvx512(a, b, stride, qs, zz, masks);
#endif
    masks[0] = BlockCodeFloatAt(level, a, stride, qs.recip, zz);
    masks[1] = BlockCodeFloatAt(level, b, stride, qs.recip, zz + 64);
}

uint64_t BlockCodeFloat(const uint8_t* src, int stride, const float* recip, int16_t* zz) {
    return BlockCodeFloatAt(BlockCoderLevel(), src, stride, recip, zz);
}

}  // namespace scrivo::jpeg
