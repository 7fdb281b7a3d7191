// Per-pixel arithmetic of the perspective warp, and its fast form.
//
// Every output pixel (x, y) is fetched from the photograph through the
// inverse of the perspective matrix, in fixed point (WarpFixedMatrix: 13
// fraction bits in rows 0 and 1, 28 in row 2). Along a row X, Y and Z grow
// by a00, a10, a20 per column from X = a01 y + a02, Y = a11 y + a12,
// Z = a21 y + a22. Per pixel:
//   q  = 2^41 / Z                          (int64, toward zero)
//   sx = X * q / 8192, sy = Y * q / 8192   (toward zero: 13-bit positions)
//   ix = sx / 8192, iy = sy / 8192         (toward zero)
// A position with ix or iy negative or on/after the last column or row is
// black: the warp crosses the photograph's border instead of clamping, and
// never samples the last row and column. The bilinear warp blends the 2 x 2
// neighbourhood with 5-bit weights fx = (sx / 256) & 31, fy likewise, first
// along x on both rows, then along y, truncating after each step; the
// nearest-neighbour warp copies pixel (ix, iy).
//
// WarpPixelReference states this literally (with wrap-around int32 X and Y
// and int64 products, as the fixed-point machine arithmetic gives, and a
// black pixel for Z = 0, where the division is undefined). It is the
// definition; WarpRows must give the same bytes, faster:
//
//  * The 64-bit division goes through double precision: for an integer
//    |Z| <= 2^53, trunc(2^41 / (double)Z) is exactly the truncating integer
//    quotient. (When 2^41 / |Z| is not an integer it lies at least 1/|Z|
//    below the next integer, while the rounding error of the double
//    quotient is below 2^41 / |Z| * 2^-53 = 2^-12 / |Z|; so no correction
//    step is needed.)
//  * When no X or Y wraps along a row and |Z| <= 2^52 at both ends (a
//    "regular" row, which is every row of a sensible matrix), X, Y and Z
//    are exact doubles, and with |Z| > 1024 (so |q| < 2^31) the product X*q
//    is exact whenever it is below 2^53; X*q / 8192 then truncates to sx
//    exactly, and larger products are far outside the photograph either way.
//    Z is linear along the row, so |Z| > 1024 is checked once per chunk at
//    its ends. Chunks with smaller |Z| go through exact int64 code per
//    pixel (MapPixel), pixels with |Z| <= 1024 and irregular rows through
//    the reference.
//  * Rows are done in chunks of 256 pixels: first the positions and weights
//    of the chunk (SSE2, four pixels at a time, or AVX2, eight, chosen at run
//    time since the build assumes only SSE2), then the sampling, two pixels
//    at a time in 16-bit lanes, with the weights stored already spread over
//    four lanes. Reads stay within the 2 x 2 neighbourhood's bytes.
//  * The reads follow a slanted line across the photograph's rows, which
//    hardware prefetchers do not predict; the next output row reads almost
//    the same places one source row on, so each read prefetches that.
//
// Under the reference switch (platform/cpu_features.h), kBest runs the
// reference itself; kBaseline is an explicit choice and stays as it is.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/cpu_features.h"
#include "vision/rectify/rectify.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
// Chosen at run time: the build itself assumes no more than SSE2.
#include <immintrin.h>
#define SCRIVO_WARP_AVX2 1
#else
#define SCRIVO_WARP_AVX2 0
#endif

namespace {

constexpr int64_t kQuotientNumerator = int64_t{1} << 41;
constexpr double kQuotientNumeratorD = 2199023255552.0;  // 2^41
constexpr int64_t kExactZLimit = int64_t{1} << 52;
constexpr int64_t kSmallZ = 1024;  // |Z| <= this: |q| may reach 2^31
constexpr int kChunk = 256;
constexpr int32_t kMaxVectorSide = 1 << 18;
constexpr int32_t kOutside = -1;  // chunk marker: black pixel
constexpr int32_t kExact = -2;    // chunk marker: use the reference arithmetic

// Wrap-around arithmetic, as the fixed-point registers behave.
int32_t Add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t Mul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
int64_t Add64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t Mul64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

struct RowStart {
    int32_t X;
    int32_t Y;
    int64_t Z;
};

RowStart StartRow(const WarpFixedMatrix& m, int32_t y) {
    return {Add32(Mul32(m.a01, y), m.a02), Add32(Mul32(m.a11, y), m.a12),
            Add64(Mul64(m.a21, y), m.a22)};
}

int32_t BlendX(int32_t p0, int32_t p1, int32_t f) {
    return (p0 * 32 + f * (p1 - p0)) >> 5;
}

// The definition of one output pixel.
void WarpPixelReference(const cv::Mat& source, int32_t X, int32_t Y, int64_t Z,
                        WarpSampling sampling, uint8_t* out) {
    out[0] = out[1] = out[2] = 0;
    if (Z == 0) return;
    const int64_t q = kQuotientNumerator / Z;
    const int64_t px = Mul64(X, q);
    const int64_t py = Mul64(Y, q);
    const int64_t sx = (px < 0 ? px + 8191 : px) >> 13;
    const int64_t sy = (py < 0 ? py + 8191 : py) >> 13;
    const int64_t ix = sx / 8192;
    const int64_t iy = sy / 8192;
    if (static_cast<uint64_t>(iy) >= static_cast<uint64_t>(source.rows - 1) ||
        static_cast<uint64_t>(ix) >= static_cast<uint64_t>(source.cols - 1)) {
        return;
    }
    const uint8_t* p0 = source.ptr<uint8_t>(static_cast<int>(iy)) + ix * 3;
    if (sampling == WarpSampling::kNearest) {
        out[0] = p0[0];
        out[1] = p0[1];
        out[2] = p0[2];
        return;
    }
    const uint8_t* p1 = source.ptr<uint8_t>(static_cast<int>(iy) + 1) + ix * 3;
    const int32_t fx = static_cast<int32_t>((sx / 256) & 31);
    const int32_t fy = static_cast<int32_t>((sy / 256) & 31);
    for (int c = 0; c < 3; ++c) {
        const int32_t top = BlendX(p0[c], p0[c + 3], fx);
        const int32_t bottom = BlendX(p1[c], p1[c + 3], fx);
        out[c] = static_cast<uint8_t>(BlendX(top, bottom, fy));
    }
}

// ---------------------------------------------------------------------------
// The fast kernel.

// Positions of one chunk of a regular row: ix is kOutside or kExact for
// pixels not sampled directly; wx/wy hold the weight in four 16-bit lanes.
struct Chunk {
    int32_t ix[kChunk];
    int32_t iy[kChunk];
    uint64_t wx[kChunk];
    uint64_t wy[kChunk];
};

bool FitsInt32(int64_t v) {
    return v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max();
}

bool RowIsRegular(const RowStart& r, const WarpFixedMatrix& m, int32_t width) {
    const int64_t n = width - 1;
    int64_t zEnd = 0;
    if (__builtin_mul_overflow(n, m.a20, &zEnd) || __builtin_add_overflow(zEnd, r.Z, &zEnd)) {
        return false;
    }
    return FitsInt32(r.X + n * m.a00) && FitsInt32(r.Y + n * m.a10) && r.Z >= -kExactZLimit &&
           r.Z <= kExactZLimit && zEnd >= -kExactZLimit && zEnd <= kExactZLimit;
}

uint64_t SpreadWeight(int64_t s) {
    return static_cast<uint64_t>((s / 256) & 31) * 0x0001000100010001ull;
}

// One pixel of a regular row, in integers (tails and non-SSE2 builds).
void MapPixel(int32_t X, int32_t Y, int64_t Z, int32_t lastCol, int32_t lastRow, Chunk& c, int i) {
    if (Z >= -kSmallZ && Z <= kSmallZ) {
        c.ix[i] = kExact;
        return;
    }
    const int64_t q = static_cast<int64_t>(kQuotientNumeratorD / static_cast<double>(Z));
    const int64_t px = int64_t{X} * q;  // |q| < 2^31: no overflow
    const int64_t py = int64_t{Y} * q;
    const int64_t sx = (px + ((px >> 63) & 8191)) >> 13;
    const int64_t sy = (py + ((py >> 63) & 8191)) >> 13;
    const int64_t ix = sx / 8192;
    const int64_t iy = sy / 8192;
    if (ix < 0 || ix >= lastCol || iy < 0 || iy >= lastRow) {
        c.ix[i] = kOutside;
        return;
    }
    c.ix[i] = static_cast<int32_t>(ix);
    c.iy[i] = static_cast<int32_t>(iy);
    c.wx[i] = SpreadWeight(sx);
    c.wy[i] = SpreadWeight(sy);
}

// Z is linear along a row: when it has one sign and |Z| > kSmallZ at both
// ends of a chunk, it does at every pixel in between.
bool ChunkZIsLarge(int64_t zFirst, int64_t zLast) {
    return (zFirst > kSmallZ && zLast > kSmallZ) || (zFirst < -kSmallZ && zLast < -kSmallZ);
}

// The start of a chunk in the vector kernels: X and Y pre-scaled by 2^-13
// (exactly, a power of two), so X * q / 8192 is one rounding-free product
// whenever X * q is below 2^53; Z as is. All are integers (times 2^-13) of
// at most 2^53 in a regular row, so stepping them by additions is exact.
struct ChunkStart {
    double xs, ys, z;     // pixel x0
    double dxs, dys, dz;  // per pixel
};

ChunkStart StartChunk(const RowStart& r, const WarpFixedMatrix& m, int32_t x0) {
    const double scale = 1.0 / 8192.0;
    return {static_cast<double>(r.X + int64_t{x0} * m.a00) * scale,
            static_cast<double>(r.Y + int64_t{x0} * m.a10) * scale,
            static_cast<double>(r.Z + int64_t{x0} * m.a20),
            m.a00 * scale,
            m.a10 * scale,
            static_cast<double>(m.a20)};
}

#if defined(__SSE2__)
// Four pixels from their truncated 13-bit positions sx, sy (INT32_MIN for
// positions far outside, which the conversions give on overflow).
inline __attribute__((always_inline)) void StorePositions4(__m128i sx, __m128i sy, __m128i lastColB,
                                                           __m128i lastRowB, Chunk& c, int i) {
    const __m128i m8191 = _mm_set1_epi32(8191), m255 = _mm_set1_epi32(255);
    const __m128i m31 = _mm_set1_epi32(31), bias = _mm_set1_epi32(INT32_MIN);
    const __m128i signX = _mm_srai_epi32(sx, 31), signY = _mm_srai_epi32(sy, 31);
    // Division toward zero by 8192 and by 256: add divisor - 1 when negative.
    const __m128i ix = _mm_srai_epi32(_mm_add_epi32(sx, _mm_and_si128(signX, m8191)), 13);
    const __m128i iy = _mm_srai_epi32(_mm_add_epi32(sy, _mm_and_si128(signY, m8191)), 13);
    __m128i fx =
        _mm_and_si128(_mm_srai_epi32(_mm_add_epi32(sx, _mm_and_si128(signX, m255)), 8), m31);
    __m128i fy =
        _mm_and_si128(_mm_srai_epi32(_mm_add_epi32(sy, _mm_and_si128(signY, m255)), 8), m31);
    // Unsigned ix >= lastCol or iy >= lastRow, as signed compares of biased values.
    const __m128i outside = _mm_or_si128(_mm_cmpgt_epi32(_mm_xor_si128(ix, bias), lastColB),
                                         _mm_cmpgt_epi32(_mm_xor_si128(iy, bias), lastRowB));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.ix + i), _mm_or_si128(ix, outside));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.iy + i), iy);
    fx = _mm_or_si128(fx, _mm_slli_epi32(fx, 16));
    fy = _mm_or_si128(fy, _mm_slli_epi32(fy, 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.wx + i), _mm_unpacklo_epi32(fx, fx));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.wx + i + 2), _mm_unpackhi_epi32(fx, fx));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.wy + i), _mm_unpacklo_epi32(fy, fy));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(c.wy + i + 2), _mm_unpackhi_epi32(fy, fy));
}

// Positions of the first n & ~3 pixels of a chunk whose |Z| > kSmallZ
// throughout (so |q| < 2^31 fits the int32 conversion); returns how many.
inline __attribute__((always_inline)) int MapChunkSse2(const ChunkStart& s, int n, int32_t lastCol,
                                                       int32_t lastRow, Chunk& c) {
    const __m128d numerator = _mm_set1_pd(kQuotientNumeratorD);
    const __m128i lastColB = _mm_set1_epi32((lastCol - 1) ^ INT32_MIN);
    const __m128i lastRowB = _mm_set1_epi32((lastRow - 1) ^ INT32_MIN);
    __m128d xLo = _mm_set_pd(s.xs + s.dxs, s.xs),
            xHi = _mm_set_pd(s.xs + 3 * s.dxs, s.xs + 2 * s.dxs);
    __m128d yLo = _mm_set_pd(s.ys + s.dys, s.ys),
            yHi = _mm_set_pd(s.ys + 3 * s.dys, s.ys + 2 * s.dys);
    __m128d zLo = _mm_set_pd(s.z + s.dz, s.z), zHi = _mm_set_pd(s.z + 3 * s.dz, s.z + 2 * s.dz);
    const __m128d stepX = _mm_set1_pd(4 * s.dxs), stepY = _mm_set1_pd(4 * s.dys);
    const __m128d stepZ = _mm_set1_pd(4 * s.dz);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128d qLo = _mm_cvtepi32_pd(_mm_cvttpd_epi32(_mm_div_pd(numerator, zLo)));
        const __m128d qHi = _mm_cvtepi32_pd(_mm_cvttpd_epi32(_mm_div_pd(numerator, zHi)));
        const __m128i sx = _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(xLo, qLo)),
                                              _mm_cvttpd_epi32(_mm_mul_pd(xHi, qHi)));
        const __m128i sy = _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(yLo, qLo)),
                                              _mm_cvttpd_epi32(_mm_mul_pd(yHi, qHi)));
        StorePositions4(sx, sy, lastColB, lastRowB, c, i);
        xLo = _mm_add_pd(xLo, stepX);
        xHi = _mm_add_pd(xHi, stepX);
        yLo = _mm_add_pd(yLo, stepY);
        yHi = _mm_add_pd(yHi, stepY);
        zLo = _mm_add_pd(zLo, stepZ);
        zHi = _mm_add_pd(zHi, stepZ);
    }
    return i;
}
#endif

#if SCRIVO_WARP_AVX2
// As MapChunkSse2, eight pixels at a time.
__attribute__((target("avx2"))) int MapChunkAvx2(const ChunkStart& s, int n, int32_t lastCol,
                                                 int32_t lastRow, Chunk& c) {
    const __m256d numerator = _mm256_set1_pd(kQuotientNumeratorD);
    const __m256d lane = _mm256_set_pd(3, 2, 1, 0);
    __m256d x0 = _mm256_add_pd(_mm256_set1_pd(s.xs), _mm256_mul_pd(lane, _mm256_set1_pd(s.dxs)));
    __m256d y0 = _mm256_add_pd(_mm256_set1_pd(s.ys), _mm256_mul_pd(lane, _mm256_set1_pd(s.dys)));
    __m256d z0 = _mm256_add_pd(_mm256_set1_pd(s.z), _mm256_mul_pd(lane, _mm256_set1_pd(s.dz)));
    const __m256d fourX = _mm256_set1_pd(4 * s.dxs), fourY = _mm256_set1_pd(4 * s.dys);
    const __m256d fourZ = _mm256_set1_pd(4 * s.dz);
    const __m256i m8191 = _mm256_set1_epi32(8191), m255 = _mm256_set1_epi32(255);
    const __m256i m31 = _mm256_set1_epi32(31);
    const __m256i bias = _mm256_set1_epi32(INT32_MIN);
    const __m256i lastColB = _mm256_set1_epi32((lastCol - 1) ^ INT32_MIN);
    const __m256i lastRowB = _mm256_set1_epi32((lastRow - 1) ^ INT32_MIN);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256d x1 = _mm256_add_pd(x0, fourX), y1 = _mm256_add_pd(y0, fourY);
        const __m256d z1 = _mm256_add_pd(z0, fourZ);
        const __m256d q0 = _mm256_cvtepi32_pd(_mm256_cvttpd_epi32(_mm256_div_pd(numerator, z0)));
        const __m256d q1 = _mm256_cvtepi32_pd(_mm256_cvttpd_epi32(_mm256_div_pd(numerator, z1)));
        const __m256i sx = _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_mul_pd(x1, q1)),
                                            _mm256_cvttpd_epi32(_mm256_mul_pd(x0, q0)));
        const __m256i sy = _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_mul_pd(y1, q1)),
                                            _mm256_cvttpd_epi32(_mm256_mul_pd(y0, q0)));
        const __m256i signX = _mm256_srai_epi32(sx, 31), signY = _mm256_srai_epi32(sy, 31);
        const __m256i ix =
            _mm256_srai_epi32(_mm256_add_epi32(sx, _mm256_and_si256(signX, m8191)), 13);
        const __m256i iy =
            _mm256_srai_epi32(_mm256_add_epi32(sy, _mm256_and_si256(signY, m8191)), 13);
        __m256i fx = _mm256_and_si256(
            _mm256_srai_epi32(_mm256_add_epi32(sx, _mm256_and_si256(signX, m255)), 8), m31);
        __m256i fy = _mm256_and_si256(
            _mm256_srai_epi32(_mm256_add_epi32(sy, _mm256_and_si256(signY, m255)), 8), m31);
        const __m256i outside =
            _mm256_or_si256(_mm256_cmpgt_epi32(_mm256_xor_si256(ix, bias), lastColB),
                            _mm256_cmpgt_epi32(_mm256_xor_si256(iy, bias), lastRowB));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.ix + i), _mm256_or_si256(ix, outside));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.iy + i), iy);
        fx = _mm256_or_si256(fx, _mm256_slli_epi32(fx, 16));
        fy = _mm256_or_si256(fy, _mm256_slli_epi32(fy, 16));
        const __m256i fxLo = _mm256_unpacklo_epi32(fx, fx), fxHi = _mm256_unpackhi_epi32(fx, fx);
        const __m256i fyLo = _mm256_unpacklo_epi32(fy, fy), fyHi = _mm256_unpackhi_epi32(fy, fy);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.wx + i),
                            _mm256_permute2x128_si256(fxLo, fxHi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.wx + i + 4),
                            _mm256_permute2x128_si256(fxLo, fxHi, 0x31));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.wy + i),
                            _mm256_permute2x128_si256(fyLo, fyHi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c.wy + i + 4),
                            _mm256_permute2x128_si256(fyLo, fyHi, 0x31));
        x0 = _mm256_add_pd(x1, fourX);
        y0 = _mm256_add_pd(y1, fourY);
        z0 = _mm256_add_pd(z1, fourZ);
    }
    return i;
}
#endif

// Positions of pixels x0 .. x0+n-1 of a regular row.
template <WarpKernel kKernel>
inline __attribute__((always_inline)) void MapChunk(const RowStart& r, const WarpFixedMatrix& m,
                                                    int32_t x0, int n, int32_t lastCol,
                                                    int32_t lastRow, Chunk& c) {
    int i = 0;
    // The vector code only resolves positions below 2^31 / 8192 pixels.
    if (lastCol < kMaxVectorSide && lastRow < kMaxVectorSide &&
        ChunkZIsLarge(r.Z + int64_t{x0} * m.a20, r.Z + int64_t{x0 + n - 1} * m.a20)) {
        const ChunkStart s = StartChunk(r, m, x0);
#if SCRIVO_WARP_AVX2
        if constexpr (kKernel == WarpKernel::kBest) i = MapChunkAvx2(s, n, lastCol, lastRow, c);
#endif
#if defined(__SSE2__)
        if (i == 0) i = MapChunkSse2(s, n, lastCol, lastRow, c);
#else
        (void)s;
#endif
    }
    for (; i < n; ++i) {
        const int64_t x = x0 + i;
        MapPixel(static_cast<int32_t>(r.X + x * m.a00), static_cast<int32_t>(r.Y + x * m.a10),
                 r.Z + x * m.a20, lastCol, lastRow, c, i);
    }
}

uint32_t Load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

void BilinearPixel(const uint8_t* p0, size_t step, uint64_t wx, uint64_t wy, uint8_t* out) {
    const int32_t fx = static_cast<int32_t>(wx & 31);
    const int32_t fy = static_cast<int32_t>(wy & 31);
    const uint8_t* p1 = p0 + step;
    for (int c = 0; c < 3; ++c) {
        out[c] = static_cast<uint8_t>(
            BlendX(BlendX(p0[c], p0[c + 3], fx), BlendX(p1[c], p1[c + 3], fx), fy));
    }
}

// Byte distance in the photograph from the sample of pixel x0 in this row to
// that of the same column in the next row, for prefetching; 0 when unknown.
ptrdiff_t NextRowDistance(const RowStart& r, const WarpFixedMatrix& m, int32_t x0, size_t step) {
    const double X = r.X + static_cast<double>(m.a00) * x0;
    const double Y = r.Y + static_cast<double>(m.a10) * x0;
    const double Z = static_cast<double>(r.Z) + static_cast<double>(m.a20) * x0;
    const double Z1 = Z + static_cast<double>(m.a21);
    if (Z == 0.0 || Z1 == 0.0) return 0;
    const double toPixels = 32768.0;  // 2^28 / 2^13
    const double dx = ((X + m.a01) / Z1 - X / Z) * toPixels;
    const double dy = ((Y + m.a11) / Z1 - Y / Z) * toPixels;
    if (!(std::abs(dx) < 64.0 && std::abs(dy) < 64.0)) return 0;
    return static_cast<ptrdiff_t>(std::lround(dy)) * static_cast<ptrdiff_t>(step) +
           static_cast<ptrdiff_t>(std::lround(dx)) * 3;
}

// A hint only: the address may lie outside the photograph.
void Prefetch(const uint8_t* p, ptrdiff_t distance) {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(p) + distance));
}

// Samples pixels x0 .. x0+n-1 of output row `out` from the mapped chunk,
// prefetching where the next output row will read.
inline __attribute__((always_inline)) void SampleChunk(const cv::Mat& source, const RowStart& r,
                                                       const WarpFixedMatrix& m, int32_t x0, int n,
                                                       int32_t width, WarpSampling sampling,
                                                       const Chunk& c, uint8_t* out) {
    const uint8_t* base = source.data;
    const size_t step = source.step[0];
    auto pixelAt = [&](int i) {
        return base + static_cast<size_t>(c.iy[i]) * step + static_cast<size_t>(c.ix[i]) * 3;
    };
    const ptrdiff_t ahead = NextRowDistance(r, m, x0, step);
    const ptrdiff_t below = ahead + static_cast<ptrdiff_t>(step);
    // 4-byte stores are safe up to the row's last pixel, and pixels are
    // written left to right so each overwrites the previous one's spill.
    const int lastWide = width - 2 - x0;
    int i = 0;
    while (i < n) {
        uint8_t* dst = out + static_cast<size_t>(x0 + i) * 3;
#if defined(__SSE2__)
        if (sampling == WarpSampling::kBilinear && i + 1 < n && i + 1 <= lastWide && c.ix[i] >= 0 &&
            c.ix[i + 1] >= 0) {
            const uint8_t* a = pixelAt(i);
            const uint8_t* b = pixelAt(i + 1);
            Prefetch(a, ahead);
            Prefetch(a, below);
            // Top-left of each pixel with one spare byte, and its right
            // neighbour read from one byte earlier and shifted down, so no
            // load passes the neighbourhood's last byte.
            const __m128i v00 = _mm_set_epi32(
                static_cast<int32_t>(Load32(b + step)), static_cast<int32_t>(Load32(a + step)),
                static_cast<int32_t>(Load32(b)), static_cast<int32_t>(Load32(a)));
            const __m128i v01 =
                _mm_srli_epi32(_mm_set_epi32(static_cast<int32_t>(Load32(b + step + 2)),
                                             static_cast<int32_t>(Load32(a + step + 2)),
                                             static_cast<int32_t>(Load32(b + 2)),
                                             static_cast<int32_t>(Load32(a + 2))),
                               8);
            const __m128i zero = _mm_setzero_si128();
            const __m128i fx = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c.wx + i));
            const __m128i fy = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c.wy + i));
            const __m128i t0 = _mm_unpacklo_epi8(v00, zero);  // top rows, a | b
            const __m128i b0 = _mm_unpackhi_epi8(v00, zero);  // bottom rows
            const __m128i t1 = _mm_unpacklo_epi8(v01, zero);
            const __m128i b1 = _mm_unpackhi_epi8(v01, zero);
            const __m128i top = _mm_srai_epi16(
                _mm_add_epi16(_mm_slli_epi16(t0, 5), _mm_mullo_epi16(fx, _mm_sub_epi16(t1, t0))),
                5);
            const __m128i bottom = _mm_srai_epi16(
                _mm_add_epi16(_mm_slli_epi16(b0, 5), _mm_mullo_epi16(fx, _mm_sub_epi16(b1, b0))),
                5);
            const __m128i blend =
                _mm_srai_epi16(_mm_add_epi16(_mm_slli_epi16(top, 5),
                                             _mm_mullo_epi16(fy, _mm_sub_epi16(bottom, top))),
                               5);
            const __m128i bytes = _mm_packus_epi16(blend, blend);
            const uint32_t first = static_cast<uint32_t>(_mm_cvtsi128_si32(bytes));
            const uint32_t second =
                static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(bytes, 4)));
            std::memcpy(dst, &first, 4);
            std::memcpy(dst + 3, &second, 4);
            i += 2;
            continue;
        }
#endif
        const int32_t ix = c.ix[i];
        if (ix >= 0) {
            const uint8_t* p = pixelAt(i);
            Prefetch(p, ahead);
            if (sampling == WarpSampling::kBilinear) {
                Prefetch(p, below);
                BilinearPixel(p, step, c.wx[i], c.wy[i], dst);
            } else if (i <= lastWide) {
                std::memcpy(dst, p, 4);  // p + 3 is still in the row: ix < cols - 1
            } else {
                std::memcpy(dst, p, 3);
            }
        } else if (ix == kOutside) {
            dst[0] = dst[1] = dst[2] = 0;
        } else {
            const int32_t x = x0 + i;
            WarpPixelReference(source, static_cast<int32_t>(r.X + int64_t{x} * m.a00),
                               static_cast<int32_t>(r.Y + int64_t{x} * m.a10),
                               r.Z + int64_t{x} * m.a20, sampling, dst);
        }
        ++i;
    }
}

void WarpRowReference(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m, int32_t y,
                      WarpSampling sampling) {
    RowStart r = StartRow(m, y);
    uint8_t* out = target.ptr<uint8_t>(y);
    for (int32_t x = 0; x < target.cols; ++x) {
        WarpPixelReference(source, r.X, r.Y, r.Z, sampling, out + 3 * x);
        r.X = Add32(r.X, m.a00);
        r.Y = Add32(r.Y, m.a10);
        r.Z = Add64(r.Z, m.a20);
    }
}

bool UsableImage(const cv::Mat& image) {
    return !image.empty() && image.type() == CV_8UC3;
}

bool ClampRows(const cv::Mat& target, int32_t* first, int32_t* end) {
    *first = std::max(*first, 0);
    *end = std::min(*end, target.rows);
    return *first < *end;
}

template <WarpKernel kKernel>
inline __attribute__((always_inline)) void WarpRowsWith(const cv::Mat& source, cv::Mat& target,
                                                        const WarpFixedMatrix& m, int32_t firstRow,
                                                        int32_t endRow, WarpSampling sampling) {
    const int32_t width = target.cols;
    const int32_t lastCol = source.cols - 1;
    const int32_t lastRow = source.rows - 1;
    Chunk chunk;
    for (int32_t y = firstRow; y < endRow; ++y) {
        const RowStart r = StartRow(m, y);
        if (!RowIsRegular(r, m, width)) {
            WarpRowReference(source, target, m, y, sampling);
            continue;
        }
        uint8_t* out = target.ptr<uint8_t>(y);
        for (int32_t x0 = 0; x0 < width; x0 += kChunk) {
            const int n = std::min(kChunk, width - x0);
            MapChunk<kKernel>(r, m, x0, n, lastCol, lastRow, chunk);
            SampleChunk(source, r, m, x0, n, width, sampling, chunk, out);
        }
    }
}

void WarpRowsBaseline(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m,
                      int32_t firstRow, int32_t endRow, WarpSampling sampling) {
    WarpRowsWith<WarpKernel::kBaseline>(source, target, m, firstRow, endRow, sampling);
}

#if SCRIVO_WARP_AVX2
// The same code with the AVX2 positions and VEX-encoded sampling.
__attribute__((target("avx2"))) void WarpRowsAvx2(const cv::Mat& source, cv::Mat& target,
                                                  const WarpFixedMatrix& m, int32_t firstRow,
                                                  int32_t endRow, WarpSampling sampling) {
    WarpRowsWith<WarpKernel::kBest>(source, target, m, firstRow, endRow, sampling);
}
#endif

}  // namespace

void WarpRowsReference(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m,
                       int32_t firstRow, int32_t endRow, WarpSampling sampling) {
    if (!UsableImage(source) || !UsableImage(target) || !ClampRows(target, &firstRow, &endRow)) {
        return;
    }
    for (int32_t y = firstRow; y < endRow; ++y) WarpRowReference(source, target, m, y, sampling);
}

void WarpRows(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m, int32_t firstRow,
              int32_t endRow, WarpSampling sampling, WarpKernel kernel) {
    if (!UsableImage(source) || !UsableImage(target) || !ClampRows(target, &firstRow, &endRow)) {
        return;
    }
    const scrivo::platform::CpuFeatures& cpu = scrivo::platform::Cpu();
    if (kernel == WarpKernel::kBest && cpu.referenceOnly) {
        for (int32_t y = firstRow; y < endRow; ++y)
            WarpRowReference(source, target, m, y, sampling);
        return;
    }
#if SCRIVO_WARP_AVX2
    if (kernel == WarpKernel::kBest && cpu.avx2) {
        WarpRowsAvx2(source, target, m, firstRow, endRow, sampling);
        return;
    }
#endif
    WarpRowsBaseline(source, target, m, firstRow, endRow, sampling);
}
