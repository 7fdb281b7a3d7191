// The text-block edge map's row kernels in AVX2, byte for byte the
// reference kernels of text_edges.cpp.
//
// Gradients: sixteen columns to a register in 16-bit lanes (|dx| + |dy| is
// at most 2040, so nothing overflows); the first and last columns, which
// need the replicated border, and a short tail go through GradientAt.
//
// Peak test: eight columns to a register in 32-bit lanes, as MarkAt does
// it, without branches. Each lane takes the neighbour pair of its direction
// by blending; "m reaches the second neighbour" on the straight directions
// is "m exceeds the second neighbour minus one", so one comparison serves
// all three. Codes are packed to bytes and the edges' addresses found from
// a byte mask. Sixteen columns none of which passes the low threshold are
// written as zeros at once.
#include "vision/enhance/text_edges_internal.h"

#ifdef SCRIVO_EDGES_AVX2

#include <immintrin.h>

#define SCRIVO_AVX2 __attribute__((target("avx2")))

using namespace text_edges_detail;

namespace {

SCRIVO_AVX2 inline __m256i Widen(const uint8_t* p) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

SCRIVO_AVX2 void GradientRowAvx2(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                                 int16_t* dx, int16_t* dy, int16_t* mag) {
    GradientAt(r0, r1, r2, width, 0, dx, dy, mag);
    int x = 1;
    for (; x + 17 <= width; x += 16) {
        const __m256i a0 = Widen(r0 + x - 1), b0 = Widen(r0 + x), c0 = Widen(r0 + x + 1);
        const __m256i a1 = Widen(r1 + x - 1), c1 = Widen(r1 + x + 1);
        const __m256i a2 = Widen(r2 + x - 1), b2 = Widen(r2 + x), c2 = Widen(r2 + x + 1);
        const __m256i gx =
            _mm256_add_epi16(_mm256_add_epi16(_mm256_sub_epi16(c0, a0), _mm256_sub_epi16(c2, a2)),
                             _mm256_slli_epi16(_mm256_sub_epi16(c1, a1), 1));
        const __m256i below = _mm256_add_epi16(_mm256_add_epi16(a2, c2), _mm256_slli_epi16(b2, 1));
        const __m256i above = _mm256_add_epi16(_mm256_add_epi16(a0, c0), _mm256_slli_epi16(b0, 1));
        const __m256i gy = _mm256_sub_epi16(below, above);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dx + x), gx);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dy + x), gy);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(mag + x),
                            _mm256_add_epi16(_mm256_abs_epi16(gx), _mm256_abs_epi16(gy)));
    }
    for (; x < width; ++x) GradientAt(r0, r1, r2, width, x, dx, dy, mag);
}

SCRIVO_AVX2 inline __m256i Wide(const int16_t* p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

struct MarkConstants {
    __m256i tan22, low, high, minusOne;
};

// The codes of columns x ... x + 7, as 32-bit lanes.
SCRIVO_AVX2 inline __m256i Mark8(const int16_t* above, const int16_t* at, const int16_t* below,
                                 const int16_t* dx, const int16_t* dy, int x,
                                 const MarkConstants& k) {
    const __m256i m = Wide(at + x);
    const __m256i gx = Wide(dx + x), gy = Wide(dy + x);
    const __m256i xs = _mm256_abs_epi32(gx), ys = _mm256_abs_epi32(gy);
    const __m256i tg22x = _mm256_mullo_epi32(xs, k.tan22), y = _mm256_slli_epi32(ys, 15);
    const __m256i horizontal = _mm256_cmpgt_epi32(tg22x, y);
    const __m256i vertical =
        _mm256_cmpgt_epi32(y, _mm256_add_epi32(tg22x, _mm256_slli_epi32(xs, 16)));
    // dx and dy of one sign: up-left and down-right; else up-right and
    // down-left.
    const __m256i oneSign = _mm256_cmpgt_epi32(_mm256_xor_si256(gx, gy), k.minusOne);
    const __m256i diagonalA = _mm256_blendv_epi8(Wide(above + x + 1), Wide(above + x - 1), oneSign);
    const __m256i diagonalB = _mm256_blendv_epi8(Wide(below + x - 1), Wide(below + x + 1), oneSign);
    const __m256i a = _mm256_blendv_epi8(_mm256_blendv_epi8(diagonalA, Wide(above + x), vertical),
                                         Wide(at + x - 1), horizontal);
    __m256i b = _mm256_blendv_epi8(_mm256_blendv_epi8(diagonalB, Wide(below + x), vertical),
                                   Wide(at + x + 1), horizontal);
    b = _mm256_add_epi32(b, _mm256_or_si256(horizontal, vertical));
    const __m256i candidate =
        _mm256_and_si256(_mm256_and_si256(_mm256_cmpgt_epi32(m, a), _mm256_cmpgt_epi32(m, b)),
                         _mm256_cmpgt_epi32(m, k.low));
    const __m256i edge = _mm256_and_si256(candidate, _mm256_cmpgt_epi32(m, k.high));
    return _mm256_sub_epi32(_mm256_setzero_si256(), _mm256_add_epi32(candidate, edge));
}

SCRIVO_AVX2 void MarkRowAvx2(const int16_t* above, const int16_t* at, const int16_t* below,
                             const int16_t* dx, const int16_t* dy, int width, int low, int high,
                             uint8_t* map, std::vector<uint8_t*>& seeds) {
    const MarkConstants k{_mm256_set1_epi32(kTan22), _mm256_set1_epi32(low),
                          _mm256_set1_epi32(high), _mm256_set1_epi32(-1)};
    const __m128i edgeCode = _mm_set1_epi8(static_cast<char>(kEdge));
    int x = 0;
    const __m256i low16 = _mm256_set1_epi16(static_cast<int16_t>(low));
    for (; x + 16 <= width; x += 16) {
        // Most of a page is paper: no column above the low threshold.
        const __m256i m = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + x));
        if (_mm256_testz_si256(_mm256_cmpgt_epi16(m, low16), _mm256_set1_epi16(-1)) != 0) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(map + x), _mm_setzero_si128());
            continue;
        }
        const __m256i lo = Mark8(above, at, below, dx, dy, x, k);
        const __m256i hi = Mark8(above, at, below, dx, dy, x + 8, k);
        const __m256i words = _mm256_permute4x64_epi64(_mm256_packs_epi32(lo, hi), 0xD8);
        const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0xD8);
        const __m128i codes = _mm256_castsi256_si128(bytes);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(map + x), codes);
        uint32_t edges = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(codes, edgeCode)));
        while (edges != 0) {
            seeds.push_back(map + x + __builtin_ctz(edges));
            edges &= edges - 1;
        }
    }
    for (; x < width; ++x) {
        map[x] = MarkAt(above, at, below, dx, dy, x, low, high);
        if (map[x] == kEdge) seeds.push_back(map + x);
    }
}

}  // namespace

const EdgeRowKernels text_edges_detail::kAvx2EdgeKernels = {GradientRowAvx2, MarkRowAvx2};

#endif  // SCRIVO_EDGES_AVX2
