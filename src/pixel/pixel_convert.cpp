// Pixel conversions between the engine's raw buffers and colour planes.
//
// Buffers. A 24-bit buffer written in the engine's convention has rows of
// width x 3 bytes rounded up to a multiple of 4 (Align4Row); the padding
// bytes are never written. A 32-bit buffer has 4 bytes a pixel. Planar
// YUV 4:2:0 is a packed Y plane of width x height bytes followed by two
// chroma planes of ((width - 1)/2 + 1) x ((height - 1)/2 + 1) samples each,
// the second starting right after the first. For even sizes that is the
// usual width x height / 4 per plane; for odd sizes the last chroma column
// and row serve a lone pixel column or row, and the planes never overlap.
//
// Byte order. Three-channel pixels are named by position. The YUV pair
// deliberately disagrees on it: the decoder puts the blue-difference result
// in byte 0 and reads the first chroma plane as U, while the encoder treats
// byte 0 as red and writes the V plane first. They are therefore not
// inverse to each other, and callers that round-trip must know it.
//
// Arithmetic. Everything is integer and bit-exact:
// - YUV -> RGB in 16.16 fixed point through five 256-entry tables
//   (entry k = a*k + b) and a 1024-byte clamp table indexed by
//   (sum >> 16) + 384; no rounding term, so results truncate downwards.
//   Two rows and two columns share one U and one V sample.
// - RGB -> YUV with the 8-bit BT.601 integer formulas; U comes from the
//   top-left pixel of each 2 x 2 block and V from the bottom-left one (the
//   top-left when the block has a single row), without averaging.
// The luma/chroma planes of 3-channel images are in plane_convert.cpp.
#include <array>
#include <cstring>

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#endif

#include "pixel/pixel.h"
#include "platform/cpu_features.h"
#include "scrivo/engine.h"

namespace {

// --- YUV 4:2:0 -> RGB24 tables ------------------------------------------

struct YuvTables {
    std::array<int32_t, 256> y, bu, gu, gv, rv;
    std::array<uint8_t, 1024> clamp;
};

constexpr YuvTables MakeYuvTables() {
    YuvTables t{};
    for (int32_t k = 0; k < 256; ++k) {
        t.y[k] = 76309 * k - 1220944;     // 1.164 per step, less 16 steps
        t.bu[k] = 132201 * k - 16921728;  // each chroma table less 128 steps
        t.gu[k] = 25675 * k - 3286400;
        t.gv[k] = 53279 * k - 6819712;
        t.rv[k] = 104597 * k - 13388416;
    }
    for (int i = 0; i < 1024; ++i) {
        t.clamp[i] = static_cast<uint8_t>(i < 384 ? 0 : (i < 640 ? i - 384 : 255));
    }
    return t;
}

constexpr YuvTables kYuv = MakeYuvTables();

// Sums stay within about +-2^25, so the index is always inside the table.
inline uint8_t Clamp16(int32_t sum) {
    return kYuv.clamp[(sum >> 16) + 384];
}

inline void PutYuvPixel(uint8_t* p, int32_t y, int32_t b, int32_t g, int32_t r) {
    p[0] = Clamp16(y + b);
    p[1] = Clamp16(y - g);
    p[2] = Clamp16(y + r);
}

}  // namespace

namespace {

// A row kernel over n pixels, and the choice between a vector kernel and
// its reference: the vector one where the processor has AVX2 (and so
// SSSE3) unless the reference kernels are asked for.
using ByteRow = void (*)(const uint8_t*, uint8_t*, int32_t);

ByteRow ChooseRow(ByteRow fast, ByteRow reference) {
    const scrivo::platform::CpuFeatures& cpu = scrivo::platform::Cpu();
    return fast != nullptr && cpu.avx2 && !cpu.referenceOnly ? fast : reference;
}

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#define SCRIVO_SSSE3_OR(kernel) (&kernel)
#else
#define SCRIVO_SSSE3_OR(kernel) (nullptr)
#endif

// One row of n pixels given a fourth byte of 255: the reference.
void AddFourthReference(const uint8_t* s, uint8_t* d, int32_t n) {
    for (int32_t x = 0; x < n; ++x, s += 3, d += 4) {
        d[0] = s[0];
        d[1] = s[1];
        d[2] = s[2];
        d[3] = 0xFF;
    }
}

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
// Four pixels a shuffle. Each load reads 16 bytes for the 12 it uses, so
// loads stop while at least 6 pixels remain and nothing past the row is
// read; the reference does the rest.
__attribute__((target("ssse3"))) void AddFourthSsse3(const uint8_t* s, uint8_t* d, int32_t n) {
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    int32_t x = 0;
    for (; x + 6 <= n; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * x),
                         _mm_or_si128(_mm_shuffle_epi8(v, spread), alpha));
    }
    AddFourthReference(s + 3 * x, d + 4 * x, n - x);
}
#endif

}  // namespace

uint32_t VPConvertRGB24ToARGB32(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height,
                                int32_t srcPitch, int32_t dstPitch) {
    if (src == nullptr || dst == nullptr) return 0;
    if (height < 1 || width < 1) return 1;
    // A pitch of 0 (or less) stands for the buffer convention of the side.
    const ptrdiff_t sp = srcPitch > 0 ? srcPitch : Align4Row(width);
    const ptrdiff_t dp = dstPitch > 0 ? dstPitch : static_cast<ptrdiff_t>(width) * 4;
    static const ByteRow row = ChooseRow(SCRIVO_SSSE3_OR(AddFourthSsse3), &AddFourthReference);
    for (int32_t y = 0; y < height; ++y) row(src + y * sp, dst + y * dp, width);
    return 1;
}

namespace {

// One row of n pixels, the fourth byte of each dropped: the reference.
void DropFourthReference(const uint8_t* s, uint8_t* d, int32_t n) {
    for (int32_t x = 0; x < n; ++x, s += 4, d += 3) {
        d[0] = s[0];
        d[1] = s[1];
        d[2] = s[2];
    }
}

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
// Four pixels a shuffle. Each store writes 16 bytes for the 12 it means:
// the 4 after them are written again by the next store or by the reference
// tail, so stores stop while at least 6 pixels remain (3 x 6 >= 16) and
// nothing past the row is ever written.
__attribute__((target("ssse3"))) void DropFourthSsse3(const uint8_t* s, uint8_t* d, int32_t n) {
    const __m128i pick = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    int32_t x = 0;
    for (; x + 6 <= n; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * x), _mm_shuffle_epi8(v, pick));
    }
    DropFourthReference(s + 4 * x, d + 3 * x, n - x);
}
#endif

}  // namespace

int Convert4ChannelsTo3Channels(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height) {
    if (src == nullptr || dst == nullptr) return 0;
    if (height < 1 || width < 1) return 1;
    const ptrdiff_t dp = Align4Row(width);
    static const ByteRow row = ChooseRow(SCRIVO_SSSE3_OR(DropFourthSsse3), &DropFourthReference);
    for (int32_t y = 0; y < height; ++y)
        row(src + static_cast<ptrdiff_t>(y) * width * 4, dst + y * dp, width);
    return 1;
}

int RGB24_align(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height) {
    if (src == nullptr || dst == nullptr) return 0;
    if (height < 1 || width < 1) return 1;
    std::memcpy(dst, src, static_cast<size_t>(Align4Row(width)) * height);
    return 1;
}

int YUV420toRGB24_convert(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height) {
    if (src == nullptr || dst == nullptr) return 0;
    if (height < 1 || width < 1) return 1;
    const ptrdiff_t pitch = Align4Row(width);
    const ptrdiff_t cw = (width - 1) / 2 + 1;
    const ptrdiff_t ch = (height - 1) / 2 + 1;
    const uint8_t* planeY = src;
    const uint8_t* planeU = src + static_cast<ptrdiff_t>(width) * height;
    const uint8_t* planeV = planeU + cw * ch;
    for (int32_t j = 0; j < height; j += 2) {
        const bool pairRow = j + 1 < height;
        const uint8_t* y0 = planeY + static_cast<ptrdiff_t>(j) * width;
        const uint8_t* y1 = y0 + width;
        const uint8_t* u = planeU + (j / 2) * cw;
        const uint8_t* v = planeV + (j / 2) * cw;
        uint8_t* d0 = dst + j * pitch;
        uint8_t* d1 = d0 + pitch;
        for (int32_t i = 0; i < width; i += 2) {
            const int32_t b = kYuv.bu[u[i / 2]];
            const int32_t g = kYuv.gu[u[i / 2]] + kYuv.gv[v[i / 2]];
            const int32_t r = kYuv.rv[v[i / 2]];
            const bool pairCol = i + 1 < width;
            PutYuvPixel(d0 + i * 3, kYuv.y[y0[i]], b, g, r);
            if (pairCol) PutYuvPixel(d0 + i * 3 + 3, kYuv.y[y0[i + 1]], b, g, r);
            if (pairRow) {
                PutYuvPixel(d1 + i * 3, kYuv.y[y1[i]], b, g, r);
                if (pairCol) PutYuvPixel(d1 + i * 3 + 3, kYuv.y[y1[i + 1]], b, g, r);
            }
        }
    }
    return 1;
}

int RGB24toYUV420_convert(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height) {
    if (src == nullptr || dst == nullptr) return 0;
    if (height < 1 || width < 1) return 1;
    const ptrdiff_t pitch = Align4Row(width);
    const ptrdiff_t cw = (width - 1) / 2 + 1;
    const ptrdiff_t ch = (height - 1) / 2 + 1;
    uint8_t* planeY = dst;
    uint8_t* planeV = dst + static_cast<ptrdiff_t>(width) * height;
    uint8_t* planeU = planeV + cw * ch;
    for (int32_t j = 0; j < height; ++j) {
        const uint8_t* s = src + j * pitch;
        uint8_t* py = planeY + static_cast<ptrdiff_t>(j) * width;
        // V from the odd row of a block; a block cut to one row uses that row.
        const bool takeU = (j & 1) == 0;
        const bool takeV = (j & 1) == 1 || j + 1 == height;
        uint8_t* pu = planeU + (j / 2) * cw;
        uint8_t* pv = planeV + (j / 2) * cw;
        for (int32_t i = 0; i < width; ++i, s += 3) {
            const int32_t b0 = s[0], b1 = s[1], b2 = s[2];
            py[i] = static_cast<uint8_t>(((66 * b0 + 129 * b1 + 25 * b2 + 128) >> 8) + 16);
            if (i & 1) continue;
            if (takeU) {
                pu[i / 2] =
                    static_cast<uint8_t>(((-38 * b0 - 74 * b1 + 112 * b2 + 128) >> 8) + 128);
            }
            if (takeV) {
                pv[i / 2] = static_cast<uint8_t>(((112 * b0 - 94 * b1 - 18 * b2 + 128) >> 8) + 128);
            }
        }
    }
    return 1;
}
