// The one-pass ink-saving rendering's row kernels in AVX2, eight columns
// to a register, byte for byte the reference kernels of binarize_pass.cpp.
//
// Running sums and prefixes. Eight column sums gain (a - d) and their
// squares (a - d)(a + d) = a^2 - d^2, the same residues modulo 2^32 as the
// reference's two products. Each register is then scanned in place (two
// shifted adds within each 128-bit half, then the low half's total into
// the high half) and the running total of the registers before it added.
//
// The threshold. Every step is the reference's operation on 32-bit lanes:
// wrapping subtraction and low-half multiplication (the wrapping square
// S * S and m * scale), arithmetic shifts, clamping by min and max.
// The deviation s = ceil(sqrt(v)) comes from the single-precision square
// root instead of the table, and equals it for every v in 0 ... 16384:
// v converts exactly, and the root is correctly rounded. A square k^2
// gives k exactly. Otherwise k - 1 < sqrt(v) < k, and sqrt(v) lies at
// least 1 / (2k) >= 1 / 256 from both whole numbers (k^2 - 1 and
// (k - 1)^2 + 1 are the nearest other values), while the rounding moves a
// root of at most 128 by at most half of 2^-16: the rounded root stays
// strictly between k - 1 and k, and its ceiling is k.
// Columns past the last full register go through the reference arithmetic.
#include "vision/enhance/binarize_internal.h"

#ifdef SCRIVO_BINARIZE_AVX2

#include <immintrin.h>

#define SCRIVO_AVX2 __attribute__((target("avx2")))

using namespace binarize_detail;

namespace {

// Inclusive prefix of the eight lanes.
SCRIVO_AVX2 inline __m256i Scan8(__m256i x) {
    x = _mm256_add_epi32(x, _mm256_slli_si256(x, 4));
    x = _mm256_add_epi32(x, _mm256_slli_si256(x, 8));
    const __m256i lowTotal = _mm256_shuffle_epi32(x, 0xFF);
    return _mm256_add_epi32(x, _mm256_permute2x128_si256(lowTotal, lowTotal, 0x08));
}

// Eight columns of pixel sums and of square sums after the slide.
struct Columns {
    __m256i sum, squares;
};

SCRIVO_AVX2 inline Columns Slide8(const uint8_t* add, const uint8_t* drop, uint32_t* col,
                                  uint32_t* col2) {
    const __m256i a = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(add)));
    const __m256i d = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(drop)));
    __m256i* pc = reinterpret_cast<__m256i*>(col);
    __m256i* pc2 = reinterpret_cast<__m256i*>(col2);
    const __m256i diff = _mm256_sub_epi32(a, d);
    const Columns out{_mm256_add_epi32(_mm256_loadu_si256(pc), diff),
                      _mm256_add_epi32(_mm256_loadu_si256(pc2),
                                       _mm256_mullo_epi32(diff, _mm256_add_epi32(a, d)))};
    _mm256_storeu_si256(pc, out.sum);
    _mm256_storeu_si256(pc2, out.squares);
    return out;
}

// Prefixes of sixteen values after `run` (the total so far in every lane);
// returns the new total. Only the last add depends on `run`, so the chain
// from one step to the next is two instructions per sixteen columns.
SCRIVO_AVX2 inline __m256i Prefix16(__m256i lo, __m256i hi, __m256i run, uint32_t* P) {
    const __m256i last = _mm256_set1_epi32(7);
    lo = Scan8(lo);
    hi = _mm256_add_epi32(Scan8(hi), _mm256_permutevar8x32_epi32(lo, last));
    hi = _mm256_add_epi32(hi, run);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(P), _mm256_add_epi32(lo, run));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(P + 8), hi);
    return _mm256_permutevar8x32_epi32(hi, last);
}

SCRIVO_AVX2 void SlidePrefixAvx2(const uint8_t* add, const uint8_t* drop, uint32_t* col,
                                 uint32_t* col2, uint32_t* P, uint32_t* P2, int width) {
    __m256i run = _mm256_setzero_si256(), run2 = _mm256_setzero_si256();
    P[0] = P2[0] = 0;
    int c = 0;
    for (; c + 16 <= width; c += 16) {
        const Columns lo = Slide8(add + c, drop + c, col + c, col2 + c);
        const Columns hi = Slide8(add + c + 8, drop + c + 8, col + c + 8, col2 + c + 8);
        run = Prefix16(lo.sum, hi.sum, run, P + c + 1);
        run2 = Prefix16(lo.squares, hi.squares, run2, P2 + c + 1);
    }
    uint32_t total = static_cast<uint32_t>(_mm256_cvtsi256_si32(run));
    uint32_t total2 = static_cast<uint32_t>(_mm256_cvtsi256_si32(run2));
    for (; c < width; ++c) {
        const uint32_t a = add[c], d = drop[c];
        col[c] += a - d;
        col2[c] += a * a - d * d;
        total += col[c];
        total2 += col2[c];
        P[c + 1] = total;
        P2[c + 1] = total2;
    }
}

struct Constants {
    __m128i shift;
    __m256i K, base, zero, maxVariance, c64, darkLow, darkRange, brightRange, c255;
};

SCRIVO_AVX2 inline __m256i Load(const uint32_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// Eight rendered pixels, as 32-bit lanes.
SCRIVO_AVX2 inline __m256i Render8(const uint32_t* P, const uint32_t* P2, int span,
                                   const uint8_t* in, const Constants& k) {
    const __m256i S = _mm256_sub_epi32(Load(P + span), Load(P));
    const __m256i Q = _mm256_sub_epi32(Load(P2 + span), Load(P2));
    const __m256i m = _mm256_sra_epi32(S, k.shift);
    const __m256i square = _mm256_sra_epi32(_mm256_mullo_epi32(S, S), k.shift);
    __m256i v = _mm256_sra_epi32(_mm256_sub_epi32(Q, square), k.shift);
    v = _mm256_min_epi32(_mm256_max_epi32(v, k.zero), k.maxVariance);
    const __m256 root = _mm256_round_ps(_mm256_sqrt_ps(_mm256_cvtepi32_ps(v)),
                                        _MM_FROUND_TO_POS_INF | _MM_FROUND_NO_EXC);
    const __m256i s = _mm256_cvtps_epi32(root);
    // Flat: m > 64 and s <= 2 (v <= 4), or m <= 64 and 2 <= s <= 9
    // (2 <= v <= 81); that is, v - low <= range as unsigned numbers.
    const __m256i bright = _mm256_cmpgt_epi32(m, k.c64);
    const __m256i low = _mm256_andnot_si256(bright, k.darkLow);
    const __m256i range = _mm256_blendv_epi8(k.darkRange, k.brightRange, bright);
    const __m256i offset = _mm256_sub_epi32(v, low);
    const __m256i flat = _mm256_cmpeq_epi32(_mm256_min_epu32(offset, range), offset);
    // K (s - 128) + 2^23 as K s + (2^23 - 128 K); a flat window's
    // threshold becomes -1, below every pixel.
    const __m256i scale = _mm256_add_epi32(_mm256_mullo_epi32(k.K, s), k.base);
    const __m256i T = _mm256_or_si256(_mm256_srai_epi32(_mm256_mullo_epi32(m, scale), 23), flat);
    const __m256i p = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in)));
    return _mm256_blendv_epi8(p, k.c255, _mm256_cmpgt_epi32(p, T));
}

SCRIVO_AVX2 void RenderAvx2(const uint32_t* P, const uint32_t* P2, int span, int count, int shift,
                            int32_t K, const int32_t* sqrtTable, const uint8_t* in, uint8_t* out) {
    const Constants k{_mm_cvtsi32_si128(shift),
                      _mm256_set1_epi32(K),
                      _mm256_set1_epi32((1 << 23) - 128 * K),
                      _mm256_setzero_si256(),
                      _mm256_set1_epi32(kMaxVariance),
                      _mm256_set1_epi32(64),
                      _mm256_set1_epi32(2),
                      _mm256_set1_epi32(79),
                      _mm256_set1_epi32(4),
                      _mm256_set1_epi32(255)};
    // Lanes come out of the two packs as 0-3 of each quarter, then 4-7.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i r0 = Render8(P + i, P2 + i, span, in + i, k);
        const __m256i r1 = Render8(P + i + 8, P2 + i + 8, span, in + i + 8, k);
        const __m256i r2 = Render8(P + i + 16, P2 + i + 16, span, in + i + 16, k);
        const __m256i r3 = Render8(P + i + 24, P2 + i + 24, span, in + i + 24, k);
        const __m256i bytes =
            _mm256_packus_epi16(_mm256_packs_epi32(r0, r1), _mm256_packs_epi32(r2, r3));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_permutevar8x32_epi32(bytes, order));
    }
    for (; i < count; ++i) {
        out[i] = WindowPixel(in[i], P[i + span] - P[i], P2[i + span] - P2[i], shift, K, sqrtTable);
    }
}

}  // namespace

const RowKernels binarize_detail::kAvx2RowKernels = {SlidePrefixAvx2, RenderAvx2};

#endif  // SCRIVO_BINARIZE_AVX2
