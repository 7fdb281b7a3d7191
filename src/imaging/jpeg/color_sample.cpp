/*
 * Input pixels -> component rows of the current MCU row.
 *
 * RGB is converted to Y, Cb, Cr with the T.81/JFIF matrix in 16-bit fixed
 * point (coefficients rounded to 1/65536):
 *   Y  = ( 19595 R + 38470 G +  7471 B + 32768) >> 16
 *   Cb = (-11059 R - 21709 G + 32768 B + (128 << 16) + 32767) >> 16
 *   Cr = ( 32768 R - 27439 G -  5329 B + (128 << 16) + 32767) >> 16
 * (the chroma offsets round just below one half, which keeps the results
 * in 0..255 without clamping). Rows are written at full resolution and the
 * last pixel is repeated out to the MCU boundary; a subsampled component is
 * then reduced per MCU row (downsample.cpp). I420 input already has halved chroma: for 4:2:0
 * its U and V rows go straight into the chroma planes, for other layouts
 * they are repeated up to full resolution first. Grey input gives neutral
 * chroma (128) when a colour layout is asked for.
 */
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define SCRIVO_JPEG_X86 1
#endif

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

namespace {

enum Layout { kRgba, kBgra, kRgb, kBgr, kI420, kGrey, kNone };

Layout LayoutOf(uint32_t id) {
    // The YUV variant bits 0x3000 do not change the I420 layout.
    if ((id & 0xFFFFCFFFu) == 0x50000811u) return kI420;
    switch (id) {
        case 0x37001777u:
        case 36:
            return kRgba;
        case 0x37000777u:
        case 37:
            return kBgra;
        case 0x16001777u:
        case 1:
            return kRgb;
        case 0x16000777u:
        case 2:
            return kBgr;
        case 15:
            return kI420;
        case 0x64000000u:
        case 0x64001000u:
        case 29:
            return kGrey;
        default:
            return kNone;
    }
}

void PadRow(uint8_t* row, int from, int to) {
    if (from <= 0 || from >= to) return;
    std::memset(row + from, row[from - 1], size_t(to - from));
}

template <int kBpp, int kR, int kG, int kB>
void RgbRow(const uint8_t* s, int x, int w, uint8_t* y, uint8_t* cb, uint8_t* cr) {
    s += x * kBpp;
    if (!cb) {
        for (; x < w; ++x, s += kBpp) {
            const int32_t r = s[kR], g = s[kG], b = s[kB];
            y[x] = uint8_t((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
        }
        return;
    }
    for (; x < w; ++x, s += kBpp) {
        const int32_t r = s[kR], g = s[kG], b = s[kB];
        y[x] = uint8_t((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
        cb[x] = uint8_t((-11059 * r - 21709 * g + 32768 * b + (128 << 16) + 32767) >> 16);
        cr[x] = uint8_t((32768 * r - 27439 * g - 5329 * b + (128 << 16) + 32767) >> 16);
    }
}

#ifdef SCRIVO_JPEG_X86
// Eight pixels as 32-bit R | G << 8 | B << 16 | x << 24, then the same
// sums in 16 x 16 -> 32-bit multiply-adds. Coefficients of 32768 and above
// do not fit a signed 16-bit factor, so c * v is computed as
// (c - 65536) * v with v added back after the shift: (X + 65536 v) >> 16 is
// (X >> 16) + v exactly.
constexpr int32_t Pair(int lo, int hi) {
    return int32_t(uint32_t(hi) << 16 | uint16_t(lo));
}

struct Ycc8 {
    __m256i y, cb, cr;
};

__attribute__((target("avx2"))) inline Ycc8 Convert8(__m256i px, bool chroma) {
    const __m256i lowBytes = _mm256_set1_epi32(0x00FF00FF);
    const __m256i rb = _mm256_and_si256(px, lowBytes);
    const __m256i ga = _mm256_and_si256(_mm256_srli_epi32(px, 8), lowBytes);
    const __m256i lowWord = _mm256_set1_epi32(0xFFFF);
    const __m256i g = _mm256_and_si256(ga, lowWord);
    Ycc8 o;
    __m256i x = _mm256_add_epi32(_mm256_madd_epi16(rb, _mm256_set1_epi32(Pair(19595, 7471))),
                                 _mm256_madd_epi16(ga, _mm256_set1_epi32(Pair(38470 - 65536, 0))));
    x = _mm256_add_epi32(x, _mm256_set1_epi32(32768));
    o.y = _mm256_add_epi32(_mm256_srai_epi32(x, 16), g);
    if (!chroma) return o;
    const __m256i r = _mm256_and_si256(rb, lowWord);
    const __m256i b = _mm256_srli_epi32(rb, 16);
    const __m256i half = _mm256_set1_epi32((128 << 16) + 32767);
    x = _mm256_add_epi32(_mm256_madd_epi16(rb, _mm256_set1_epi32(Pair(-11059, 32768 - 65536))),
                         _mm256_madd_epi16(ga, _mm256_set1_epi32(Pair(-21709, 0))));
    o.cb = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(x, half), 16), b);
    x = _mm256_add_epi32(_mm256_madd_epi16(rb, _mm256_set1_epi32(Pair(32768 - 65536, -5329))),
                         _mm256_madd_epi16(ga, _mm256_set1_epi32(Pair(-27439, 0))));
    o.cr = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(x, half), 16), r);
    return o;
}

// Two vectors of eight 32-bit values 0..255 -> 16 bytes.
__attribute__((target("avx2"))) inline void Store16(__m256i a, __m256i b, uint8_t* dst) {
    __m256i w = _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8);
    __m256i p = _mm256_permute4x64_epi64(_mm256_packus_epi16(w, w), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(p));
}

// Converts the longest prefix of the row that it can read safely, 16
// pixels at a time; returns how many pixels it did.
__attribute__((target("avx2"))) int RgbRowAvx2(const uint8_t* s, int w, int bpp, bool bgr,
                                               uint8_t* y, uint8_t* cb, uint8_t* cr) {
    const __m256i toRgbx =
        bpp == 4 ? _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15, 2, 1, 0,
                                    3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15)
        : bgr ? _mm256_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1, 2, 1, 0, -1,
                                 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1)
              : _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1,
                                 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    // Three-byte pixels are read 16 bytes at a time for every 4 pixels.
    const int limit = bpp == 4 ? w - 16 : w - 18;
    int x = 0;
    for (; x <= limit; x += 16) {
        __m256i px[2];
        for (int h = 0; h < 2; ++h) {
            const uint8_t* p = s + (x + 8 * h) * bpp;
            if (bpp == 4) {
                px[h] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
                if (bgr) px[h] = _mm256_shuffle_epi8(px[h], toRgbx);
            } else {
                px[h] = _mm256_shuffle_epi8(
                    _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(p + 12),
                                        reinterpret_cast<const __m128i*>(p)),
                    toRgbx);
            }
        }
        const Ycc8 a = Convert8(px[0], cb != nullptr), b = Convert8(px[1], cb != nullptr);
        Store16(a.y, b.y, y + x);
        if (cb) {
            Store16(a.cb, b.cb, cb + x);
            Store16(a.cr, b.cr, cr + x);
        }
    }
    return x;
}

// AVX-512BW, four-byte pixels only: Convert8's sums sixteen pixels a
// register, each result narrowed straight to 16 bytes (the values are
// 0..255 already). Returns how many pixels it did. (The zero-masked forms
// with a full mask: GCC 12 warns about the undefined pass-through operand
// of the plain ones.)
__attribute__((target("avx2,avx512f,avx512bw"))) int RgbaRowAvx512(const uint8_t* s, int w,
                                                                   bool bgr, uint8_t* y,
                                                                   uint8_t* cb, uint8_t* cr) {
    const __mmask16 kAll = 0xFFFF;
    const __m512i toRgbx = _mm512_set4_epi32(0x0F0C0D0E, 0x0B08090A, 0x07040506, 0x03000102);
    const __m512i lowBytes = _mm512_set1_epi32(0x00FF00FF), lowWord = _mm512_set1_epi32(0xFFFF);
    const __m512i half = _mm512_set1_epi32((128 << 16) + 32767);
    int x = 0;
    for (; x + 16 <= w; x += 16) {
        __m512i px = _mm512_loadu_si512(s + x * 4);
        if (bgr) px = _mm512_shuffle_epi8(px, toRgbx);
        const __m512i rb = _mm512_and_si512(px, lowBytes);
        const __m512i ga = _mm512_and_si512(_mm512_maskz_srli_epi32(kAll, px, 8), lowBytes);
        __m512i t =
            _mm512_add_epi32(_mm512_madd_epi16(rb, _mm512_set1_epi32(Pair(19595, 7471))),
                             _mm512_madd_epi16(ga, _mm512_set1_epi32(Pair(38470 - 65536, 0))));
        t = _mm512_add_epi32(t, _mm512_set1_epi32(32768));
        t = _mm512_add_epi32(_mm512_maskz_srai_epi32(kAll, t, 16), _mm512_and_si512(ga, lowWord));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + x), _mm512_maskz_cvtepi32_epi8(kAll, t));
        if (!cb) continue;
        t = _mm512_add_epi32(_mm512_madd_epi16(rb, _mm512_set1_epi32(Pair(-11059, 32768 - 65536))),
                             _mm512_madd_epi16(ga, _mm512_set1_epi32(Pair(-21709, 0))));
        t = _mm512_add_epi32(_mm512_maskz_srai_epi32(kAll, _mm512_add_epi32(t, half), 16),
                             _mm512_maskz_srli_epi32(kAll, rb, 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(cb + x), _mm512_maskz_cvtepi32_epi8(kAll, t));
        t = _mm512_add_epi32(_mm512_madd_epi16(rb, _mm512_set1_epi32(Pair(32768 - 65536, -5329))),
                             _mm512_madd_epi16(ga, _mm512_set1_epi32(Pair(-27439, 0))));
        t = _mm512_add_epi32(_mm512_maskz_srai_epi32(kAll, _mm512_add_epi32(t, half), 16),
                             _mm512_and_si512(rb, lowWord));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(cr + x), _mm512_maskz_cvtepi32_epi8(kAll, t));
    }
    return x;
}
#endif

template <int kBpp, int kR, int kG, int kB>
void RgbRowBest(const uint8_t* s, int w, uint8_t* y, uint8_t* cb, uint8_t* cr, int level) {
    int x = 0;
#ifdef SCRIVO_JPEG_X86
    if (level >= 2 && kBpp == 4) x = RgbaRowAvx512(s, w, kR == 2, y, cb, cr);
    if (level >= 1)
        x += RgbRowAvx2(s + x * kBpp, w - x, kBpp, kR == 2, y + x, cb ? cb + x : nullptr,
                        cb ? cr + x : nullptr);
#else
    (void)level;
#endif
    RgbRow<kBpp, kR, kG, kB>(s, x, w, y, cb, cr);
}

}  // namespace

bool IsSupportedFormat(uint32_t colorId) {
    return LayoutOf(colorId) != kNone;
}

void RgbToYcc(const uint8_t* s, int w, int bpp, bool bgr, uint8_t* y, uint8_t* cb, uint8_t* cr,
              int level) {
    if (bpp == 4) {
        if (bgr) {
            RgbRowBest<4, 2, 1, 0>(s, w, y, cb, cr, level);
        } else {
            RgbRowBest<4, 0, 1, 2>(s, w, y, cb, cr, level);
        }
    } else {
        if (bgr) {
            RgbRowBest<3, 2, 1, 0>(s, w, y, cb, cr, level);
        } else {
            RgbRowBest<3, 0, 1, 2>(s, w, y, cb, cr, level);
        }
    }
}

bool IsGreyFormat(uint32_t colorId) {
    return LayoutOf(colorId) == kGrey;
}

bool IsI420Format(uint32_t colorId) {
    return LayoutOf(colorId) == kI420;
}

void ConvertRow(Encoder* e, uint32_t colorId, const MBITMAP* bm, int line, int row) {
    const int w = e->width;
    const int pw = e->paddedWidth;
    const uint8_t* s = bm->plane[0] + ptrdiff_t(line) * bm->pitch[0];
    uint8_t* y = e->plane[0].data() + ptrdiff_t(row) * e->planeStride[0];
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    const int level = BlockCoderLevel();
    const bool colour = e->numComps == 3;
    const bool subsampled = colour && (e->comp[1].h != e->maxH || e->comp[1].v != e->maxV);
    if (colour && !e->chromaDirect) {
        if (subsampled) {
            cb = e->full[1].data() + ptrdiff_t(row) * pw;
            cr = e->full[2].data() + ptrdiff_t(row) * pw;
        } else {
            cb = e->plane[1].data() + ptrdiff_t(row) * e->planeStride[1];
            cr = e->plane[2].data() + ptrdiff_t(row) * e->planeStride[2];
        }
    }
    switch (LayoutOf(colorId)) {
        case kRgba:
            RgbToYcc(s, w, 4, false, y, cb, cr, level);
            break;
        case kBgra:
            RgbToYcc(s, w, 4, true, y, cb, cr, level);
            break;
        case kRgb:
            RgbToYcc(s, w, 3, false, y, cb, cr, level);
            break;
        case kBgr:
            RgbToYcc(s, w, 3, true, y, cb, cr, level);
            break;
        case kGrey:
            std::memcpy(y, s, size_t(w));
            if (cb) {
                std::memset(cb, 128, size_t(w));
                std::memset(cr, 128, size_t(w));
            }
            break;
        case kI420: {
            std::memcpy(y, s, size_t(w));
            const int cw = (w + 1) / 2;
            const uint8_t* u = bm->plane[1] + ptrdiff_t(line / 2) * bm->pitch[1];
            const uint8_t* v = bm->plane[2] + ptrdiff_t(line / 2) * bm->pitch[2];
            if (e->chromaDirect) {
                if ((row & 1) == 0) {
                    uint8_t* pu = e->plane[1].data() + ptrdiff_t(row / 2) * e->planeStride[1];
                    uint8_t* pv = e->plane[2].data() + ptrdiff_t(row / 2) * e->planeStride[2];
                    std::memcpy(pu, u, size_t(cw));
                    std::memcpy(pv, v, size_t(cw));
                    PadRow(pu, cw, e->planeStride[1]);
                    PadRow(pv, cw, e->planeStride[2]);
                }
            } else if (cb) {
                for (int x = 0; x < w; ++x) {
                    cb[x] = u[x >> 1];
                    cr[x] = v[x >> 1];
                }
            }
            break;
        }
        case kNone:
            break;
    }
    PadRow(y, w, pw);
    if (cb) {
        PadRow(cb, w, pw);
        PadRow(cr, w, pw);
    }
}

void ReplicateRow(Encoder* e, int fromRow, int toRow) {
    const int pw = e->paddedWidth;
    auto copy = [](std::vector<uint8_t>& buf, int stride, int from, int to) {
        std::memcpy(buf.data() + ptrdiff_t(to) * stride, buf.data() + ptrdiff_t(from) * stride,
                    size_t(stride));
    };
    copy(e->plane[0], e->planeStride[0], fromRow, toRow);
    if (e->numComps != 3) return;
    if (e->chromaDirect) {
        // Chroma rows are at half height; row r's chroma is row r / 2.
        if ((toRow & 1) == 0 && toRow / 2 != fromRow / 2)
            for (int c = 1; c < 3; ++c)
                copy(e->plane[c], e->planeStride[c], fromRow / 2, toRow / 2);
        return;
    }
    const bool subsampled = e->comp[1].h != e->maxH || e->comp[1].v != e->maxV;
    for (int c = 1; c < 3; ++c) {
        if (subsampled) {
            copy(e->full[c], pw, fromRow, toRow);
        } else {
            copy(e->plane[c], e->planeStride[c], fromRow, toRow);
        }
    }
}

}  // namespace scrivo::jpeg
