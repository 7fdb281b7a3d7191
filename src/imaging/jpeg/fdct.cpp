/*
 * The two block coders: forward DCT of an 8x8 block of samples followed by
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
 * Mode 1 (integer): the Loeffler-Ligtenberg-Moschytz transform with 13-bit
 * fixed-point constants and 2 extra bits kept between the passes, output
 * scaled by 8, then division by 8 * entry rounding half away from zero.
 * Pure integer arithmetic: identical on every machine and compiler.
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
    __m256 t0 = _mm256_unpacklo_ps(r[0].v, r[1].v), t1 = _mm256_unpackhi_ps(r[0].v, r[1].v);
    __m256 t2 = _mm256_unpacklo_ps(r[2].v, r[3].v), t3 = _mm256_unpackhi_ps(r[2].v, r[3].v);
    __m256 t4 = _mm256_unpacklo_ps(r[4].v, r[5].v), t5 = _mm256_unpackhi_ps(r[4].v, r[5].v);
    __m256 t6 = _mm256_unpacklo_ps(r[6].v, r[7].v), t7 = _mm256_unpackhi_ps(r[6].v, r[7].v);
    __m256 u0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u4 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u5 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(3, 2, 3, 2));
    __m256 u6 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(1, 0, 1, 0));
    __m256 u7 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(3, 2, 3, 2));
    r[0].v = _mm256_permute2f128_ps(u0, u4, 0x20);
    r[1].v = _mm256_permute2f128_ps(u1, u5, 0x20);
    r[2].v = _mm256_permute2f128_ps(u2, u6, 0x20);
    r[3].v = _mm256_permute2f128_ps(u3, u7, 0x20);
    r[4].v = _mm256_permute2f128_ps(u0, u4, 0x31);
    r[5].v = _mm256_permute2f128_ps(u1, u5, 0x31);
    r[6].v = _mm256_permute2f128_ps(u2, u6, 0x31);
    r[7].v = _mm256_permute2f128_ps(u3, u7, 0x31);
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
    alignas(32) int16_t t[64];
    for (int i = 0; i < 4; ++i) _mm256_store_si256(reinterpret_cast<__m256i*>(t + i * 16), q[i]);
    for (int k = 0; k < 64; ++k) zz[k] = t[jpg_transposed_order[k]];
    uint64_t mask = 0;
    const __m256i zero = _mm256_setzero_si256();
    for (int i = 0; i < 4; i += 2) {
        const __m256i a =
            _mm256_cmpeq_epi16(_mm256_loadu_si256(reinterpret_cast<__m256i*>(zz + i * 16)), zero);
        const __m256i b = _mm256_cmpeq_epi16(
            _mm256_loadu_si256(reinterpret_cast<__m256i*>(zz + i * 16 + 16)), zero);
        const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8);
        mask |= uint64_t(~uint32_t(_mm256_movemask_epi8(bytes))) << (i * 16);
    }
    return mask & ~1ull;
}

// a | b << 256. Masked inserts into zero: GCC 12 warns about the undefined
// pass-through operand of the plain ones.
__attribute__((target("avx2,avx512f,avx512bw"))) inline __m512i Join(__m256i a, __m256i b) {
    const __m512i z = _mm512_setzero_si512();
    const __m512i t = _mm512_mask_inserti64x4(z, 0xFF, z, a, 0);
    return _mm512_mask_inserti64x4(t, 0xFF, t, b, 1);
}

// AVX-512BW: the zig-zag reordering is two cross-register word permutes
// and the mask two tests.
__attribute__((target("avx2,avx512f,avx512bw"))) uint64_t BlockCodeFloatAvx512(const uint8_t* src,
                                                                               int stride,
                                                                               const float* recip,
                                                                               int16_t* zz) {
    V8 r[8];
    FloatDctAvx2(src, stride, r);
    __m256i q[4];
    QuantiseAvx2(r, recip, q);
    // Joined in registers: two 256-bit stores read back as one 512-bit
    // load would miss store forwarding and stall.
    const __m512i lo = Join(q[0], q[1]), hi = Join(q[2], q[3]);
    alignas(64) static const uint16_t kIdx[64] = {
        0,  8,  1,  2,  9,  16, 24, 17, 10, 3,  4,  11, 18, 25, 32, 40, 33, 26, 19, 12, 5,  6,
        13, 20, 27, 34, 41, 48, 56, 49, 42, 35, 28, 21, 14, 7,  15, 22, 29, 36, 43, 50, 57, 58,
        51, 44, 37, 30, 23, 31, 38, 45, 52, 59, 60, 53, 46, 39, 47, 54, 61, 62, 55, 63};
    const __m512i z0 = _mm512_permutex2var_epi16(lo, _mm512_load_si512(kIdx), hi);
    const __m512i z1 = _mm512_permutex2var_epi16(lo, _mm512_load_si512(kIdx + 32), hi);
    _mm512_storeu_si512(zz, z0);
    _mm512_storeu_si512(zz + 32, z1);
    const uint64_t mask =
        uint64_t(_mm512_test_epi16_mask(z0, z0)) | (uint64_t(_mm512_test_epi16_mask(z1, z1)) << 32);
    return mask & ~1ull;
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

uint64_t BlockCodeFloat(const uint8_t* src, int stride, const float* recip, int16_t* zz) {
    return BlockCodeFloatAt(BlockCoderLevel(), src, stride, recip, zz);
}

namespace {

constexpr int kConstBits = 13, kPass1Bits = 2;
constexpr int32_t kFix0298 = 2446, kFix0390 = 3196, kFix0541 = 4433, kFix0765 = 6270,
                  kFix0899 = 7373, kFix1175 = 9633, kFix1501 = 12299, kFix1847 = 15137,
                  kFix1961 = 16069, kFix2053 = 16819, kFix2562 = 20995, kFix3072 = 25172;

inline int32_t Descale(int32_t x, int n) {
    return (x + (1 << (n - 1))) >> n;
}

// One 8-point LLM transform over p[0], p[s], ..., p[7s]. The first pass
// keeps kPass1Bits extra bits, the second removes them.
inline void Llm8(int32_t* p, int s, bool first) {
    int32_t tmp0 = p[0] + p[7 * s], tmp7 = p[0] - p[7 * s];
    int32_t tmp1 = p[s] + p[6 * s], tmp6 = p[s] - p[6 * s];
    int32_t tmp2 = p[2 * s] + p[5 * s], tmp5 = p[2 * s] - p[5 * s];
    int32_t tmp3 = p[3 * s] + p[4 * s], tmp4 = p[3 * s] - p[4 * s];

    int32_t tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
    int32_t tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
    const int shift = first ? kConstBits - kPass1Bits : kConstBits + kPass1Bits;
    if (first) {
        p[0] = (tmp10 + tmp11) * (1 << kPass1Bits);
        p[4 * s] = (tmp10 - tmp11) * (1 << kPass1Bits);
    } else {
        p[0] = Descale(tmp10 + tmp11, kPass1Bits);
        p[4 * s] = Descale(tmp10 - tmp11, kPass1Bits);
    }
    int32_t z1 = (tmp12 + tmp13) * kFix0541;
    p[2 * s] = Descale(z1 + tmp13 * kFix0765, shift);
    p[6 * s] = Descale(z1 - tmp12 * kFix1847, shift);

    z1 = tmp4 + tmp7;
    int32_t z2 = tmp5 + tmp6, z3 = tmp4 + tmp6, z4 = tmp5 + tmp7;
    const int32_t z5 = (z3 + z4) * kFix1175;
    tmp4 *= kFix0298;
    tmp5 *= kFix2053;
    tmp6 *= kFix3072;
    tmp7 *= kFix1501;
    z1 *= -kFix0899;
    z2 *= -kFix2562;
    z3 = z3 * -kFix1961 + z5;
    z4 = z4 * -kFix0390 + z5;
    p[7 * s] = Descale(tmp4 + z1 + z3, shift);
    p[5 * s] = Descale(tmp5 + z2 + z4, shift);
    p[3 * s] = Descale(tmp6 + z2 + z3, shift);
    p[1 * s] = Descale(tmp7 + z1 + z4, shift);
}

}  // namespace

uint64_t BlockCodeInt(const uint8_t* src, int stride, const uint16_t* divisor, int16_t* zz) {
    int32_t w[64];
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) w[y * 8 + x] = int32_t(src[y * stride + x]) - 128;
    for (int y = 0; y < 8; ++y) Llm8(w + y * 8, 1, true);
    for (int x = 0; x < 8; ++x) Llm8(w + x, 8, false);
    for (int i = 0; i < 64; ++i) {
        const int32_t q = divisor[i];
        int32_t c = w[i];
        if (c < 0) {
            c = -((-c + (q >> 1)) / q);
        } else {
            c = (c + (q >> 1)) / q;
        }
        w[i] = c;
    }
    uint64_t mask = 0;
    for (int k = 0; k < 64; ++k) {
        zz[k] = int16_t(w[jpg_natural_order[k]]);
        mask |= uint64_t(zz[k] != 0) << k;
    }
    return mask & ~1ull;
}

}  // namespace scrivo::jpeg
