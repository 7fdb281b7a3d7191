// Luma/chroma planes of 3-channel images, and back.
//
// RGB -> Y, Cr, Cb in 14-bit fixed point, and back, clamped to
// [0, 255 << 14]. The reference kernels look the chroma up in 256 x 256
// tables indexed by (colour byte, Y), built once on first use (function-local
// statics, so thread-safe); the vector kernels compute the same bytes in
// 16-bit lanes (see below for why they agree).
#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "pixel/large_image.h"
#include "pixel/pixel.h"
#include "platform/cpu_features.h"

namespace {

// --- 14-bit luma/chroma ---------------------------------------------------
//
// Luma is (1868 b0 + 9617 b1 + 4899 b2 + 2^13) >> 14; the weights sum to
// 2^14, so it never exceeds 255. The reference kernels keep the historical
// form of the rest: chroma looked up in (colour, Y) tables holding
// Clamp14(kChromaBias + scale * (c - y)) >> 14, and the inverse clamping each
// channel to [0, 255 << 14] before the shift. The other kernels give the same
// bytes from forms that suit vector registers:
// - Flooring commutes with clamping to multiples of 2^14, and kChromaBias is
//   (128 << 14) + 2^13, so a chroma sample is
//   clamp(128 + ((scale * (c - y) + 2^13) >> 14), 0, 255).
// - Y << 14 passes through the final shift unchanged and every constant of
//   the inverse is 128 times its factors plus 2^13, so with e = v - 128 a
//   channel is clamp(y + ((k * e + 2^13) >> 14), 0, 255), green with two terms.
// - For |a| < 2^12 and 0 < k < 2^15, (k * a + 2^13) >> 14 fits 16-bit lanes
//   as (mulhi(a << 3, k) + 1) >> 1: the high half of the product is
//   floor(k * a / 2^13), and floor((floor(x) + 1) / 2) = floor((x + 1) / 2).
//   With a rounding multiply it is just mulhrs(a << 1, k).
// A vector kernel hands the pixels at the end of a row that do not fill its
// vector to the next narrower kernel, and in the end to the portable one.

constexpr int32_t kHalf14 = 8192;
constexpr int32_t kMax14 = 255 << 14;     // 4177920
constexpr int32_t kChromaBias = 2105344;  // 128 << 14 plus a half

constexpr int32_t kLumaB = 1868, kLumaG = 9617, kLumaR = 4899;
constexpr int32_t kCrScale = 11682, kCbScale = 9241;  // against byte 2 and byte 0
// Inverse: blue from Cb, red from Cr, green less both.
constexpr int32_t kBlueCb = 29049, kRedCr = 22987, kGreenCb = 5636, kGreenCr = 11698;

inline int32_t Clamp14(int32_t v) {
    return std::clamp(v, 0, kMax14);
}

inline uint8_t Sat8(int32_t v) {
    return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

inline int32_t Luma(int32_t b0, int32_t b1, int32_t b2) {
    return (kLumaB * b0 + kLumaG * b1 + kLumaR * b2 + kHalf14) >> 14;
}

// Chroma of one colour byte against luma: table[(colour << 8) | Y].
std::array<uint8_t, 65536> MakeChromaTable(int32_t scale) {
    std::array<uint8_t, 65536> t{};
    for (int32_t c = 0; c < 256; ++c) {
        for (int32_t y = 0; y < 256; ++y) {
            t[(c << 8) | y] = static_cast<uint8_t>(Clamp14(kChromaBias + scale * (c - y)) >> 14);
        }
    }
    return t;
}

const std::array<uint8_t, 65536>& CrTable() {
    static const std::array<uint8_t, 65536> table = MakeChromaTable(kCrScale);
    return table;
}

const std::array<uint8_t, 65536>& CbTable() {
    static const std::array<uint8_t, 65536> table = MakeChromaTable(kCbScale);
    return table;
}

// Row kernels over n pixels: 3-byte pixels to planes, or planes to pixels.
using SplitRowFn = void (*)(const uint8_t* src, uint8_t* y, uint8_t* cr, uint8_t* cb, ptrdiff_t n);
using LumaRowFn = void (*)(const uint8_t* src, uint8_t* y, ptrdiff_t n);
using JoinRowFn = void (*)(const uint8_t* y, const uint8_t* cr, const uint8_t* cb, uint8_t* dst,
                           ptrdiff_t n);

struct RowKernels {
    SplitRowFn split;
    LumaRowFn luma;
    JoinRowFn join;
};

void SplitRowReference(const uint8_t* s, uint8_t* py, uint8_t* pcr, uint8_t* pcb, ptrdiff_t n) {
    const auto& crTab = CrTable();
    const auto& cbTab = CbTable();
    for (ptrdiff_t i = 0; i < n; ++i, s += 3) {
        const int32_t b0 = s[0], b2 = s[2];
        const int32_t y = Luma(b0, s[1], b2);
        py[i] = static_cast<uint8_t>(y);
        pcr[i] = crTab[(b2 << 8) | y];
        pcb[i] = cbTab[(b0 << 8) | y];
    }
}

void LumaRowReference(const uint8_t* s, uint8_t* py, ptrdiff_t n) {
    for (ptrdiff_t i = 0; i < n; ++i, s += 3) py[i] = static_cast<uint8_t>(Luma(s[0], s[1], s[2]));
}

void JoinRowReference(const uint8_t* py, const uint8_t* pcr, const uint8_t* pcb, uint8_t* d,
                      ptrdiff_t n) {
    for (ptrdiff_t i = 0; i < n; ++i, d += 3) {
        const int32_t l = py[i] << 14, vr = pcr[i], vb = pcb[i];
        d[0] = static_cast<uint8_t>(Clamp14(l + kBlueCb * vb - 3710080) >> 14);
        d[1] = static_cast<uint8_t>(
            Clamp14(l + kHalf14 - (kGreenCb * vb + kGreenCr * vr - 2218752)) >> 14);
        d[2] = static_cast<uint8_t>(Clamp14(l + kRedCr * vr - 2934144) >> 14);
    }
}

// Table-free and branch-free, so that compilers can vectorise it where there
// is no hand-written kernel; also the tail of the vector kernels.
void SplitRowPortable(const uint8_t* s, uint8_t* py, uint8_t* pcr, uint8_t* pcb, ptrdiff_t n) {
    for (ptrdiff_t i = 0; i < n; ++i, s += 3) {
        const int32_t b0 = s[0], b2 = s[2];
        const int32_t y = Luma(b0, s[1], b2);
        py[i] = static_cast<uint8_t>(y);
        pcr[i] = Sat8(128 + ((kCrScale * (b2 - y) + kHalf14) >> 14));
        pcb[i] = Sat8(128 + ((kCbScale * (b0 - y) + kHalf14) >> 14));
    }
}

void JoinRowPortable(const uint8_t* py, const uint8_t* pcr, const uint8_t* pcb, uint8_t* d,
                     ptrdiff_t n) {
    for (ptrdiff_t i = 0; i < n; ++i, d += 3) {
        const int32_t y = py[i], er = pcr[i] - 128, eb = pcb[i] - 128;
        d[0] = Sat8(y + ((kBlueCb * eb + kHalf14) >> 14));
        d[1] = Sat8(y + ((kHalf14 - kGreenCb * eb - kGreenCr * er) >> 14));
        d[2] = Sat8(y + ((kRedCr * er + kHalf14) >> 14));
    }
}

#if defined(__SSE2__)
// Two 16-bit factors for a 16 x 16 -> 32-bit multiply-add, the low one first.
constexpr int32_t Pair16(int32_t lo, int32_t hi) {
    return static_cast<int32_t>(static_cast<uint32_t>(hi) << 16 | static_cast<uint16_t>(lo));
}

// Vectors of 16 pixels. Each round of the byte network below interleaves the
// low half of one register with the high half of another; three rounds turn
// 48 bytes of pixels into [b0 even | b1 even], [b2 even | b0 odd] and
// [b1 odd | b2 odd] (even and odd pixels, 8 of each), and a fourth would
// finish the split into whole planes. The kernels stop at three: the halves
// widen to 16-bit lanes as cheaply as whole planes would, and on the way back
// the saturating packs of even and odd results rebuild that state directly,
// so the join only undoes three rounds.
inline void Sse2Round(__m128i& x0, __m128i& x1, __m128i& x2) {
    const __m128i y0 = _mm_unpacklo_epi8(x0, _mm_unpackhi_epi64(x1, x1));
    const __m128i y1 = _mm_unpacklo_epi8(_mm_unpackhi_epi64(x0, x0), x2);
    const __m128i y2 = _mm_unpacklo_epi8(x1, _mm_unpackhi_epi64(x2, x2));
    x0 = y0;
    x1 = y1;
    x2 = y2;
}

// Inverse of Sse2Round: the even bytes of its results are the low halves it
// took, the odd bytes the high halves.
inline void Sse2Unround(__m128i& y0, __m128i& y1, __m128i& y2) {
    const __m128i lo = _mm_set1_epi16(0x00FF);
    const __m128i x0 = _mm_packus_epi16(_mm_and_si128(y0, lo), _mm_and_si128(y1, lo));
    const __m128i x1 = _mm_packus_epi16(_mm_and_si128(y2, lo), _mm_srli_epi16(y0, 8));
    const __m128i x2 = _mm_packus_epi16(_mm_srli_epi16(y1, 8), _mm_srli_epi16(y2, 8));
    y0 = x0;
    y1 = x1;
    y2 = x2;
}

// 16-bit lanes of byte 0, 1 and 2 of even (e) and odd (o) pixels.
struct Sse2Pixels {
    __m128i b0e, b1e, b2e, b0o, b1o, b2o;
};

inline Sse2Pixels Sse2Load(const uint8_t* s) {
    __m128i x0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    __m128i x1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16));
    __m128i x2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 32));
    Sse2Round(x0, x1, x2);
    Sse2Round(x0, x1, x2);
    Sse2Round(x0, x1, x2);
    const __m128i z = _mm_setzero_si128();
    return {_mm_unpacklo_epi8(x0, z), _mm_unpackhi_epi8(x0, z), _mm_unpacklo_epi8(x1, z),
            _mm_unpackhi_epi8(x1, z), _mm_unpacklo_epi8(x2, z), _mm_unpackhi_epi8(x2, z)};
}

// Eight lumas as 16-bit lanes.
inline __m128i Sse2Luma(__m128i b0, __m128i b1, __m128i b2) {
    const __m128i k01 = _mm_set1_epi32(Pair16(kLumaB, kLumaG));
    const __m128i k2h = _mm_set1_epi32(Pair16(kLumaR, kHalf14));
    const __m128i one = _mm_set1_epi16(1);
    const __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(b0, b1), k01),
                                     _mm_madd_epi16(_mm_unpacklo_epi16(b2, one), k2h));
    const __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(b0, b1), k01),
                                     _mm_madd_epi16(_mm_unpackhi_epi16(b2, one), k2h));
    return _mm_packs_epi32(_mm_srai_epi32(lo, 14), _mm_srai_epi32(hi, 14));
}

// (k * a + 2^13) >> 14 on 16-bit lanes, |a| < 2^12.
inline __m128i Sse2Scale14(__m128i a, __m128i k) {
    const __m128i t = _mm_mulhi_epi16(_mm_slli_epi16(a, 3), k);
    return _mm_srai_epi16(_mm_add_epi16(t, _mm_set1_epi16(1)), 1);
}

// Even and odd 16-bit lanes, saturated to bytes, back in pixel order.
inline __m128i Sse2Merge(__m128i even, __m128i odd) {
    const __m128i p = _mm_packus_epi16(even, odd);
    return _mm_unpacklo_epi8(p, _mm_unpackhi_epi64(p, p));
}

inline void Sse2Store(uint8_t* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

void SplitRowSse2(const uint8_t* s, uint8_t* py, uint8_t* pcr, uint8_t* pcb, ptrdiff_t n) {
    const __m128i kCr = _mm_set1_epi16(kCrScale), kCb = _mm_set1_epi16(kCbScale);
    const __m128i k128 = _mm_set1_epi16(128);
    ptrdiff_t i = 0;
    for (; i + 16 <= n; i += 16, s += 48) {
        const Sse2Pixels p = Sse2Load(s);
        const __m128i ye = Sse2Luma(p.b0e, p.b1e, p.b2e);
        const __m128i yo = Sse2Luma(p.b0o, p.b1o, p.b2o);
        // Lumas fit a byte, so the odd ones slot into the high bytes.
        Sse2Store(py + i, _mm_or_si128(ye, _mm_slli_epi16(yo, 8)));
        Sse2Store(pcr + i,
                  Sse2Merge(_mm_add_epi16(Sse2Scale14(_mm_sub_epi16(p.b2e, ye), kCr), k128),
                            _mm_add_epi16(Sse2Scale14(_mm_sub_epi16(p.b2o, yo), kCr), k128)));
        Sse2Store(pcb + i,
                  Sse2Merge(_mm_add_epi16(Sse2Scale14(_mm_sub_epi16(p.b0e, ye), kCb), k128),
                            _mm_add_epi16(Sse2Scale14(_mm_sub_epi16(p.b0o, yo), kCb), k128)));
    }
    SplitRowPortable(s, py + i, pcr + i, pcb + i, n - i);
}

void LumaRowSse2(const uint8_t* s, uint8_t* py, ptrdiff_t n) {
    ptrdiff_t i = 0;
    for (; i + 16 <= n; i += 16, s += 48) {
        const Sse2Pixels p = Sse2Load(s);
        const __m128i ye = Sse2Luma(p.b0e, p.b1e, p.b2e);
        const __m128i yo = Sse2Luma(p.b0o, p.b1o, p.b2o);
        Sse2Store(py + i, _mm_or_si128(ye, _mm_slli_epi16(yo, 8)));
    }
    LumaRowReference(s, py + i, n - i);
}

// Eight pixels of the inverse as 16-bit lanes: luma and centred chroma in.
struct Sse2Rgb {
    __m128i b0, b1, b2;
};

inline Sse2Rgb Sse2Inverse(__m128i y, __m128i er, __m128i eb) {
    const __m128i kG = _mm_set1_epi32(Pair16(-kGreenCb, -kGreenCr));
    const __m128i half = _mm_set1_epi32(kHalf14);
    const __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(eb, er), kG), half);
    const __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(eb, er), kG), half);
    const __m128i g = _mm_packs_epi32(_mm_srai_epi32(lo, 14), _mm_srai_epi32(hi, 14));
    return {_mm_add_epi16(y, Sse2Scale14(eb, _mm_set1_epi16(kBlueCb))), _mm_add_epi16(y, g),
            _mm_add_epi16(y, Sse2Scale14(er, _mm_set1_epi16(kRedCr)))};
}

void JoinRowSse2(const uint8_t* py, const uint8_t* pcr, const uint8_t* pcb, uint8_t* d,
                 ptrdiff_t n) {
    const __m128i lo = _mm_set1_epi16(0x00FF), k128 = _mm_set1_epi16(128);
    ptrdiff_t i = 0;
    for (; i + 16 <= n; i += 16, d += 48) {
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(py + i));
        const __m128i cr = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcr + i));
        const __m128i cb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pcb + i));
        const Sse2Rgb e =
            Sse2Inverse(_mm_and_si128(y, lo), _mm_sub_epi16(_mm_and_si128(cr, lo), k128),
                        _mm_sub_epi16(_mm_and_si128(cb, lo), k128));
        const Sse2Rgb o =
            Sse2Inverse(_mm_srli_epi16(y, 8), _mm_sub_epi16(_mm_srli_epi16(cr, 8), k128),
                        _mm_sub_epi16(_mm_srli_epi16(cb, 8), k128));
        // The saturating packs clamp and build the state after three rounds.
        __m128i x0 = _mm_packus_epi16(e.b0, e.b1);
        __m128i x1 = _mm_packus_epi16(e.b2, o.b0);
        __m128i x2 = _mm_packus_epi16(o.b1, o.b2);
        Sse2Unround(x0, x1, x2);
        Sse2Unround(x0, x1, x2);
        Sse2Unround(x0, x1, x2);
        Sse2Store(d, x0);
        Sse2Store(d + 16, x1);
        Sse2Store(d + 32, x2);
    }
    JoinRowPortable(py + i, pcr + i, pcb + i, d, n - i);
}
#endif  // __SSE2__

#if defined(__SSE2__) && (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define SCRIVO_PLANES_AVX2 1
#define SCRIVO_AVX2 __attribute__((target("avx2")))
// The same kernels on 32 pixels, chosen at run time. Each 128-bit lane runs
// the 16-pixel network on its own, the high lane on pixels 16 to 31, and the
// scaling uses the rounding multiply.
SCRIVO_AVX2 inline void Avx2Round(__m256i& x0, __m256i& x1, __m256i& x2) {
    const __m256i y0 = _mm256_unpacklo_epi8(x0, _mm256_unpackhi_epi64(x1, x1));
    const __m256i y1 = _mm256_unpacklo_epi8(_mm256_unpackhi_epi64(x0, x0), x2);
    const __m256i y2 = _mm256_unpacklo_epi8(x1, _mm256_unpackhi_epi64(x2, x2));
    x0 = y0;
    x1 = y1;
    x2 = y2;
}

SCRIVO_AVX2 inline void Avx2Unround(__m256i& y0, __m256i& y1, __m256i& y2) {
    const __m256i lo = _mm256_set1_epi16(0x00FF);
    const __m256i x0 = _mm256_packus_epi16(_mm256_and_si256(y0, lo), _mm256_and_si256(y1, lo));
    const __m256i x1 = _mm256_packus_epi16(_mm256_and_si256(y2, lo), _mm256_srli_epi16(y0, 8));
    const __m256i x2 = _mm256_packus_epi16(_mm256_srli_epi16(y1, 8), _mm256_srli_epi16(y2, 8));
    y0 = x0;
    y1 = x1;
    y2 = x2;
}

struct Avx2Pixels {
    __m256i b0e, b1e, b2e, b0o, b1o, b2o;
};

SCRIVO_AVX2 inline __m256i Avx2Lanes(const uint8_t* lo, const uint8_t* hi) {
    const __m256i v = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lo)));
    return _mm256_inserti128_si256(v, _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi)), 1);
}

SCRIVO_AVX2 inline Avx2Pixels Avx2Load(const uint8_t* s) {
    __m256i x0 = Avx2Lanes(s, s + 48);
    __m256i x1 = Avx2Lanes(s + 16, s + 64);
    __m256i x2 = Avx2Lanes(s + 32, s + 80);
    Avx2Round(x0, x1, x2);
    Avx2Round(x0, x1, x2);
    Avx2Round(x0, x1, x2);
    const __m256i z = _mm256_setzero_si256();
    return {_mm256_unpacklo_epi8(x0, z), _mm256_unpackhi_epi8(x0, z), _mm256_unpacklo_epi8(x1, z),
            _mm256_unpackhi_epi8(x1, z), _mm256_unpacklo_epi8(x2, z), _mm256_unpackhi_epi8(x2, z)};
}

SCRIVO_AVX2 inline __m256i Avx2Luma(__m256i b0, __m256i b1, __m256i b2) {
    const __m256i k01 = _mm256_set1_epi32(Pair16(kLumaB, kLumaG));
    const __m256i k2h = _mm256_set1_epi32(Pair16(kLumaR, kHalf14));
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(b0, b1), k01),
                                        _mm256_madd_epi16(_mm256_unpacklo_epi16(b2, one), k2h));
    const __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(b0, b1), k01),
                                        _mm256_madd_epi16(_mm256_unpackhi_epi16(b2, one), k2h));
    return _mm256_packs_epi32(_mm256_srai_epi32(lo, 14), _mm256_srai_epi32(hi, 14));
}

SCRIVO_AVX2 inline __m256i Avx2Scale14(__m256i a, __m256i k) {
    return _mm256_mulhrs_epi16(_mm256_slli_epi16(a, 1), k);
}

SCRIVO_AVX2 inline __m256i Avx2Merge(__m256i even, __m256i odd) {
    const __m256i p = _mm256_packus_epi16(even, odd);
    return _mm256_unpacklo_epi8(p, _mm256_unpackhi_epi64(p, p));
}

SCRIVO_AVX2 inline __m256i Avx2Chroma(__m256i ce, __m256i co, __m256i ye, __m256i yo, __m256i k) {
    const __m256i k128 = _mm256_set1_epi16(128);
    return Avx2Merge(_mm256_add_epi16(Avx2Scale14(_mm256_sub_epi16(ce, ye), k), k128),
                     _mm256_add_epi16(Avx2Scale14(_mm256_sub_epi16(co, yo), k), k128));
}

SCRIVO_AVX2 inline void Avx2Store(uint8_t* p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

SCRIVO_AVX2 void SplitRowAvx2(const uint8_t* s, uint8_t* py, uint8_t* pcr, uint8_t* pcb,
                              ptrdiff_t n) {
    const __m256i kCr = _mm256_set1_epi16(kCrScale), kCb = _mm256_set1_epi16(kCbScale);
    ptrdiff_t i = 0;
    for (; i + 32 <= n; i += 32, s += 96) {
        const Avx2Pixels p = Avx2Load(s);
        const __m256i ye = Avx2Luma(p.b0e, p.b1e, p.b2e);
        const __m256i yo = Avx2Luma(p.b0o, p.b1o, p.b2o);
        Avx2Store(py + i, _mm256_or_si256(ye, _mm256_slli_epi16(yo, 8)));
        Avx2Store(pcr + i, Avx2Chroma(p.b2e, p.b2o, ye, yo, kCr));
        Avx2Store(pcb + i, Avx2Chroma(p.b0e, p.b0o, ye, yo, kCb));
    }
    SplitRowSse2(s, py + i, pcr + i, pcb + i, n - i);
}

SCRIVO_AVX2 void LumaRowAvx2(const uint8_t* s, uint8_t* py, ptrdiff_t n) {
    ptrdiff_t i = 0;
    for (; i + 32 <= n; i += 32, s += 96) {
        const Avx2Pixels p = Avx2Load(s);
        const __m256i ye = Avx2Luma(p.b0e, p.b1e, p.b2e);
        const __m256i yo = Avx2Luma(p.b0o, p.b1o, p.b2o);
        Avx2Store(py + i, _mm256_or_si256(ye, _mm256_slli_epi16(yo, 8)));
    }
    LumaRowSse2(s, py + i, n - i);
}

struct Avx2Rgb {
    __m256i b0, b1, b2;
};

SCRIVO_AVX2 inline Avx2Rgb Avx2Inverse(__m256i y, __m256i er, __m256i eb) {
    const __m256i kG = _mm256_set1_epi32(Pair16(-kGreenCb, -kGreenCr));
    const __m256i half = _mm256_set1_epi32(kHalf14);
    const __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(eb, er), kG), half);
    const __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(eb, er), kG), half);
    const __m256i g = _mm256_packs_epi32(_mm256_srai_epi32(lo, 14), _mm256_srai_epi32(hi, 14));
    return {_mm256_add_epi16(y, Avx2Scale14(eb, _mm256_set1_epi16(kBlueCb))),
            _mm256_add_epi16(y, g),
            _mm256_add_epi16(y, Avx2Scale14(er, _mm256_set1_epi16(kRedCr)))};
}

SCRIVO_AVX2 void JoinRowAvx2(const uint8_t* py, const uint8_t* pcr, const uint8_t* pcb, uint8_t* d,
                             ptrdiff_t n) {
    const __m256i lo = _mm256_set1_epi16(0x00FF), k128 = _mm256_set1_epi16(128);
    ptrdiff_t i = 0;
    for (; i + 32 <= n; i += 32, d += 96) {
        const __m256i y = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(py + i));
        const __m256i cr = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pcr + i));
        const __m256i cb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pcb + i));
        const Avx2Rgb e =
            Avx2Inverse(_mm256_and_si256(y, lo), _mm256_sub_epi16(_mm256_and_si256(cr, lo), k128),
                        _mm256_sub_epi16(_mm256_and_si256(cb, lo), k128));
        const Avx2Rgb o =
            Avx2Inverse(_mm256_srli_epi16(y, 8), _mm256_sub_epi16(_mm256_srli_epi16(cr, 8), k128),
                        _mm256_sub_epi16(_mm256_srli_epi16(cb, 8), k128));
        __m256i x0 = _mm256_packus_epi16(e.b0, e.b1);
        __m256i x1 = _mm256_packus_epi16(e.b2, o.b0);
        __m256i x2 = _mm256_packus_epi16(o.b1, o.b2);
        Avx2Unround(x0, x1, x2);
        Avx2Unround(x0, x1, x2);
        Avx2Unround(x0, x1, x2);
        // Low lanes hold the first 48 bytes, high lanes the next 48.
        Avx2Store(d, _mm256_permute2x128_si256(x0, x1, 0x20));
        Avx2Store(d + 32, _mm256_permute2x128_si256(x2, x0, 0x30));
        Avx2Store(d + 64, _mm256_permute2x128_si256(x1, x2, 0x31));
    }
    JoinRowSse2(py + i, pcr + i, pcb + i, d, n - i);
}

const RowKernels kAvx2Kernels = {SplitRowAvx2, LumaRowAvx2, JoinRowAvx2};
#undef SCRIVO_AVX2
#endif  // x86 with GCC-style target attributes

const RowKernels kReferenceKernels = {SplitRowReference, LumaRowReference, JoinRowReference};
const RowKernels kPortableKernels = {SplitRowPortable, LumaRowReference, JoinRowPortable};
#if defined(__SSE2__)
const RowKernels kSse2Kernels = {SplitRowSse2, LumaRowSse2, JoinRowSse2};
#endif

const RowKernels* KernelsFor(PlaneKernel kernel) {
    switch (kernel) {
        case PlaneKernel::kAuto: {
            static const RowKernels* const best = [] {
                if (scrivo::platform::Cpu().referenceOnly) return &kReferenceKernels;
                for (PlaneKernel k : {PlaneKernel::kAvx2, PlaneKernel::kSse2}) {
                    if (const RowKernels* found = KernelsFor(k)) return found;
                }
                return &kPortableKernels;
            }();
            return best;
        }
        case PlaneKernel::kReference:
            return &kReferenceKernels;
        case PlaneKernel::kPortable:
            return &kPortableKernels;
        case PlaneKernel::kSse2:
#if defined(__SSE2__)
            return &kSse2Kernels;
#else
            return nullptr;
#endif
        case PlaneKernel::kAvx2:
#if defined(SCRIVO_PLANES_AVX2)
            return scrivo::platform::Cpu().avx2 ? &kAvx2Kernels : nullptr;
#else
            return nullptr;
#endif
    }
    return nullptr;
}

bool IsPlane(const cv::Mat& m, const cv::Size& size) {
    return m.type() == CV_8UC1 && m.dims == 2 && m.size() == size;
}

// Whether the images can be treated as one long row, which leaves the vector
// kernels a single short tail instead of one a row.
bool AllContinuous(std::initializer_list<const cv::Mat*> images) {
    return std::all_of(images.begin(), images.end(),
                       [](const cv::Mat* m) { return m->isContinuous(); });
}

}  // namespace

bool PlaneKernelAvailable(PlaneKernel kernel) {
    return KernelsFor(kernel) != nullptr;
}

int RGB24ToYCbCr(const cv::Mat& src, cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, PlaneKernel kernel) {
    const RowKernels* k = KernelsFor(kernel);
    if (k == nullptr || src.empty() || src.type() != CV_8UC3 || src.dims != 2) return 0;
    const cv::Mat in = src;  // keeps the pixels alive should a plane alias src
    scrivo::pixel::CreateLarge(Y, in.size(), CV_8UC1);
    scrivo::pixel::CreateLarge(Cr, in.size(), CV_8UC1);
    scrivo::pixel::CreateLarge(Cb, in.size(), CV_8UC1);
    const bool flat = AllContinuous({&in, &Y, &Cr, &Cb});
    const ptrdiff_t n = flat ? static_cast<ptrdiff_t>(in.total()) : in.cols;
    for (int r = 0; r < (flat ? 1 : in.rows); ++r) {
        k->split(in.ptr<uint8_t>(r), Y.ptr<uint8_t>(r), Cr.ptr<uint8_t>(r), Cb.ptr<uint8_t>(r), n);
    }
    return 1;
}

int RGB24ToY(const cv::Mat& src, cv::Mat& Y, PlaneKernel kernel) {
    const RowKernels* k = KernelsFor(kernel);
    if (k == nullptr || src.empty() || src.type() != CV_8UC3 || src.dims != 2) return 0;
    const cv::Mat in = src;
    Y.create(in.size(), CV_8UC1);
    const bool flat = AllContinuous({&in, &Y});
    const ptrdiff_t n = flat ? static_cast<ptrdiff_t>(in.total()) : in.cols;
    for (int r = 0; r < (flat ? 1 : in.rows); ++r)
        k->luma(in.ptr<uint8_t>(r), Y.ptr<uint8_t>(r), n);
    return 1;
}

int YCbCrToRGB24(cv::Mat& dst, const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb,
                 PlaneKernel kernel) {
    const RowKernels* k = KernelsFor(kernel);
    if (k == nullptr || Y.empty() || !IsPlane(Y, Y.size()) || !IsPlane(Cr, Y.size()) ||
        !IsPlane(Cb, Y.size())) {
        return 0;
    }
    // Own references, so that re-creating dst cannot pull a plane away.
    const cv::Mat y = Y, cr = Cr, cb = Cb;
    scrivo::pixel::CreateLarge(dst, y.size(), CV_8UC3);
    const bool flat = AllContinuous({&dst, &y, &cr, &cb});
    const ptrdiff_t n = flat ? static_cast<ptrdiff_t>(y.total()) : y.cols;
    for (int r = 0; r < (flat ? 1 : y.rows); ++r) {
        k->join(y.ptr<uint8_t>(r), cr.ptr<uint8_t>(r), cb.ptr<uint8_t>(r), dst.ptr<uint8_t>(r), n);
    }
    return 1;
}
