/*
 * Mode 1, the integer block coder: the Loeffler-Ligtenberg-Moschytz
 * transform with 13-bit fixed-point constants and 2 extra bits kept between
 * the passes (rows first, then columns), output scaled by 8, then division
 * by 8 * entry rounding half away from zero. Pure integer arithmetic:
 * identical on every machine and compiler.
 *
 * The AVX2 kernel runs the same transform over eight rows or columns at
 * once (one 32-bit lane each; a transpose before each pass puts the pass's
 * direction across registers). Integer sums and products are exact, so the
 * order of operations does not matter. The division becomes a multiply and
 * a shift, exact for every dividend the transform can give: see
 * BuildQuantScale.
 */
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SCRIVO_JPEG_X86 1
#endif

#include "imaging/jpeg/jpeg_internal.h"
#ifdef SCRIVO_JPEG_X86
#include "imaging/jpeg/block_simd.h"
#endif

namespace scrivo::jpeg {

namespace {

constexpr int kConstBits = 13, kPass1Bits = 2;
constexpr int32_t kFix0298 = 2446, kFix0390 = 3196, kFix0541 = 4433, kFix0765 = 6270,
                  kFix0899 = 7373, kFix1175 = 9633, kFix1501 = 12299, kFix1847 = 15137,
                  kFix1961 = 16069, kFix2053 = 16819, kFix2562 = 20995, kFix3072 = 25172;

// One 8-point transform of d0..d7 in place; `first` keeps kPass1Bits extra
// bits, the second pass removes them. Shared, as a macro, by the scalar
// and the AVX2 kernel (whose operators need the target attribute of the
// function they inline into). Needs constants c0298 ... of type T, Up (x 4)
// and Descale.
#define SCRIVO_LLM8_BODY(T)                                                      \
    const int shift = first ? kConstBits - kPass1Bits : kConstBits + kPass1Bits; \
    T tmp0 = d0 + d7, tmp7 = d0 - d7;                                            \
    T tmp1 = d1 + d6, tmp6 = d1 - d6;                                            \
    T tmp2 = d2 + d5, tmp5 = d2 - d5;                                            \
    T tmp3 = d3 + d4, tmp4 = d3 - d4;                                            \
    T tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;                                  \
    T tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;                                  \
    d0 = first ? Up(tmp10 + tmp11) : Descale(tmp10 + tmp11, kPass1Bits);         \
    d4 = first ? Up(tmp10 - tmp11) : Descale(tmp10 - tmp11, kPass1Bits);         \
    T z1 = (tmp12 + tmp13) * c0541;                                              \
    d2 = Descale(z1 + tmp13 * c0765, shift);                                     \
    d6 = Descale(z1 - tmp12 * c1847, shift);                                     \
    z1 = tmp4 + tmp7;                                                            \
    T z2 = tmp5 + tmp6, z3 = tmp4 + tmp6, z4 = tmp5 + tmp7;                      \
    const T z5 = (z3 + z4) * c1175;                                              \
    tmp4 = tmp4 * c0298;                                                         \
    tmp5 = tmp5 * c2053;                                                         \
    tmp6 = tmp6 * c3072;                                                         \
    tmp7 = tmp7 * c1501;                                                         \
    z1 = z1 * cm0899;                                                            \
    z2 = z2 * cm2562;                                                            \
    z3 = z3 * cm1961 + z5;                                                       \
    z4 = z4 * cm0390 + z5;                                                       \
    d7 = Descale(tmp4 + z1 + z3, shift);                                         \
    d5 = Descale(tmp5 + z2 + z4, shift);                                         \
    d3 = Descale(tmp6 + z2 + z3, shift);                                         \
    d1 = Descale(tmp7 + z1 + z4, shift);

#define SCRIVO_LLM8_CONSTANTS(T, K)                                                             \
    const T c0298 = K(kFix0298), c0541 = K(kFix0541), c0765 = K(kFix0765), c1175 = K(kFix1175), \
            c1501 = K(kFix1501), c1847 = K(kFix1847), c2053 = K(kFix2053), c3072 = K(kFix3072), \
            cm0390 = K(-kFix0390), cm0899 = K(-kFix0899), cm1961 = K(-kFix1961),                \
            cm2562 = K(-kFix2562);

inline int32_t Descale(int32_t x, int n) {
    return (x + (1 << (n - 1))) >> n;
}
inline int32_t Up(int32_t x) {
    return x * (1 << kPass1Bits);
}
inline int32_t Same(int32_t k) {
    return k;
}

// Transform of p[0], p[s], ..., p[7s].
inline void Llm8(int32_t* p, int s, bool first) {
    SCRIVO_LLM8_CONSTANTS(int32_t, Same)
    int32_t d0 = p[0], d1 = p[s], d2 = p[2 * s], d3 = p[3 * s], d4 = p[4 * s], d5 = p[5 * s],
            d6 = p[6 * s], d7 = p[7 * s];
    SCRIVO_LLM8_BODY(int32_t)
    p[0] = d0, p[s] = d1, p[2 * s] = d2, p[3 * s] = d3;
    p[4 * s] = d4, p[5 * s] = d5, p[6 * s] = d6, p[7 * s] = d7;
}

#ifdef SCRIVO_JPEG_X86
struct I8 {
    __m256i v;
};
__attribute__((target("avx2"))) inline I8 operator+(I8 a, I8 b) {
    return {_mm256_add_epi32(a.v, b.v)};
}
__attribute__((target("avx2"))) inline I8 operator-(I8 a, I8 b) {
    return {_mm256_sub_epi32(a.v, b.v)};
}
__attribute__((target("avx2"))) inline I8 operator*(I8 a, I8 b) {
    return {_mm256_mullo_epi32(a.v, b.v)};
}
__attribute__((target("avx2"))) inline I8 Descale(I8 x, int n) {
    return {_mm256_srai_epi32(_mm256_add_epi32(x.v, _mm256_set1_epi32(1 << (n - 1))), n)};
}
__attribute__((target("avx2"))) inline I8 Up(I8 x) {
    return {_mm256_slli_epi32(x.v, kPass1Bits)};
}
__attribute__((target("avx2"))) inline I8 Splat(int32_t k) {
    return {_mm256_set1_epi32(k)};
}

__attribute__((target("avx2"))) inline void Llm8Avx2(I8* r, bool first) {
    SCRIVO_LLM8_CONSTANTS(I8, Splat)
    I8 &d0 = r[0], &d1 = r[1], &d2 = r[2], &d3 = r[3], &d4 = r[4], &d5 = r[5], &d6 = r[6],
       &d7 = r[7];
    SCRIVO_LLM8_BODY(I8)
}

__attribute__((target("avx2"))) inline void TransposeI8(I8* r) {
    __m256 t[8];
    for (int i = 0; i < 8; ++i) t[i] = _mm256_castsi256_ps(r[i].v);
    Transpose8x8(t);
    for (int i = 0; i < 8; ++i) r[i].v = _mm256_castps_si256(t[i]);
}

// Transform and quantisation; q receives the block in natural order, 16
// coefficients a vector.
__attribute__((target("avx2"))) inline void IntCoderAvx2(const uint8_t* src, int stride,
                                                         const QuantScale& qs, __m256i* q) {
    const __m256i c128 = _mm256_set1_epi32(128);
    I8 r[8];
    for (int y = 0; y < 8; ++y) {
        const __m128i px = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + y * stride));
        r[y].v = _mm256_sub_epi32(_mm256_cvtepu8_epi32(px), c128);
    }
    TransposeI8(r);  // r[x]: column x, one row a lane
    Llm8Avx2(r, true);
    TransposeI8(r);  // r[y]: row y of the row transforms
    Llm8Avx2(r, false);
    __m256i quot[8];
    for (int v = 0; v < 8; ++v) {
        const __m256i half = _mm256_srli_epi32(
            _mm256_cvtepu16_epi32(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(qs.divisor + v * 8))),
            1);
        const __m256i n = _mm256_add_epi32(_mm256_abs_epi32(r[v].v), half);
        const __m256i mul = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(qs.divMul + v * 8));
        const __m256i sh =
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(qs.divShift + v * 8));
        quot[v] = _mm256_sign_epi32(_mm256_srlv_epi32(_mm256_mullo_epi32(n, mul), sh), r[v].v);
    }
    for (int v = 0; v < 8; v += 2)
        q[v / 2] = _mm256_permute4x64_epi64(_mm256_packs_epi32(quot[v], quot[v + 1]), 0xD8);
}

__attribute__((target("avx2"))) uint64_t BlockCodeIntAvx2(const uint8_t* src, int stride,
                                                          const QuantScale& qs, int16_t* zz) {
    __m256i q[4];
    IntCoderAvx2(src, stride, qs, q);
    static const ZigZagShuffles kShuffles = MakeZigZagShuffles(jpg_natural_order);
    return ZigZagAvx2(q, kShuffles, zz);
}

__attribute__((target("avx2,avx512f,avx512bw"))) uint64_t BlockCodeIntAvx512(const uint8_t* src,
                                                                             int stride,
                                                                             const QuantScale& qs,
                                                                             int16_t* zz) {
    __m256i q[4];
    IntCoderAvx2(src, stride, qs, q);
    alignas(64) static const uint16_t kIdx[64] = {
        0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
        41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
        30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};
    return ZigZagAvx512(q, kIdx, zz);
}
#endif

}  // namespace

uint64_t BlockCodeIntScalar(const uint8_t* src, int stride, const uint16_t* divisor, int16_t* zz) {
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

uint64_t BlockCodeIntAt(int level, const uint8_t* src, int stride, const QuantScale& qs,
                        int16_t* zz) {
#ifdef SCRIVO_JPEG_X86
    if (level >= 2) return BlockCodeIntAvx512(src, stride, qs, zz);
    if (level == 1) return BlockCodeIntAvx2(src, stride, qs, zz);
#else
    (void)level;
#endif
    return BlockCodeIntScalar(src, stride, qs.divisor, zz);
}

}  // namespace scrivo::jpeg
