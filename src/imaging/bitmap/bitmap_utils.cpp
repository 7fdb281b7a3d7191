/*
 * Bitmap record utilities for host code: create (zeroed planes), copy,
 * crop, convert to 32 bits, set the alpha byte, blend through a mask, and
 * the bits a pixel of a colour ID.
 *
 * Every function knows the plane geometry of the formats the framework
 * allocates: 32-bit (0x37001777, 0x37005777, 0x37000777), MPAF_GRAY8, I420
 * (chroma halved both ways, odd sizes round up) and NV21 (one interleaved
 * V/U plane). Records made here are freed with MdBitmapFree(0, bitmap).
 * "ARGB32" in the names means 32 bits a pixel with an alpha byte: the
 * alpha is the fourth byte in both 32-bit byte orders, and
 * MConvertBitmapToARGB32 produces MPAF_RGBA8888 (R, G, B, A bytes), the
 * layout of a phone's RGBA bitmap.
 *
 * Crops of YUV records must start on even coordinates (2 otherwise), so
 * the chroma samples keep their pixels.
 */
#include <cstring>

#include "scrivo/bitmap.h"

namespace {

struct Geometry {
    int planes = 0;
    int32_t rowBytes[3] = {};
    int32_t rows[3] = {};
    int32_t bytesPerPixel = 1;  // of plane 0
    bool yuv = false;
};

bool Is32(uint32_t id) {
    return id == 0x37001777u || id == 0x37005777u || id == 0x37000777u;
}

bool GeometryOf(uint32_t id, int32_t w, int32_t h, Geometry* g) {
    if (w <= 0 || h <= 0) return false;
    const int32_t cw = (w + 1) / 2, ch = (h + 1) / 2;
    if (Is32(id)) {
        *g = Geometry{1, {w * 4}, {h}, 4, false};
    } else if (id == MPAF_GRAY8 || id == 0x64001000u) {
        *g = Geometry{1, {w}, {h}, 1, false};
    } else if ((id & ~0x3000u) == MPAF_I420) {
        *g = Geometry{3, {w, cw, cw}, {h, ch, ch}, 1, true};
    } else if (id == MPAF_OTHERS_NV21) {
        *g = Geometry{2, {w, cw * 2}, {h, ch}, 1, true};
    } else {
        return false;
    }
    return true;
}

bool HasPlanes(const MBITMAP* b, const Geometry& g) {
    for (int p = 0; p < g.planes; ++p)
        if (!b->plane[p] || b->pitch[p] < g.rowBytes[p]) return false;
    return true;
}

void CopyPlanes(MBITMAP* dst, const MBITMAP* src, const Geometry& g, int32_t x, int32_t y) {
    for (int p = 0; p < g.planes; ++p) {
        const int32_t sx = p == 0 ? x * g.bytesPerPixel : (g.planes == 3 ? x / 2 : x);
        const int32_t sy = p == 0 ? y : y / 2;
        for (int32_t r = 0; r < g.rows[p]; ++r)
            std::memcpy(dst->plane[p] + ptrdiff_t(r) * dst->pitch[p],
                        src->plane[p] + ptrdiff_t(sy + r) * src->pitch[p] + sx,
                        size_t(g.rowBytes[p]));
    }
}

}  // namespace

extern "C" MRESULT UTIL_MBitmapCreate(MBITMAP* bitmap, uint32_t format, int32_t width,
                                      int32_t height) {
    if (!bitmap) return MERR_INVALID_PARAM;
    Geometry g;
    if (width <= 0 || height <= 0) return MERR_INVALID_PARAM;
    if (!GeometryOf(format, width, height, &g)) return MERR_UNSUPPORTED;
    *bitmap = MBITMAP{};
    bitmap->pixelFormat = format;
    bitmap->width = width;
    bitmap->height = height;
    const MRESULT r = MdBitmapAlloc(nullptr, bitmap);
    if (r != 0) {
        *bitmap = MBITMAP{};
        return r;
    }
    for (int p = 0; p < g.planes; ++p)
        for (int32_t row = 0; row < g.rows[p]; ++row)
            std::memset(bitmap->plane[p] + ptrdiff_t(row) * bitmap->pitch[p], 0,
                        size_t(g.rowBytes[p]));
    return MOK;
}

extern "C" MRESULT MBitmapCopy(MBITMAP* dst, const MBITMAP* src) {
    if (!dst || !src) return MERR_INVALID_PARAM;
    Geometry g;
    if (!GeometryOf(src->pixelFormat, src->width, src->height, &g)) return MERR_UNSUPPORTED;
    if (dst->pixelFormat != src->pixelFormat || dst->width != src->width ||
        dst->height != src->height || !HasPlanes(src, g) || !HasPlanes(dst, g))
        return MERR_INVALID_PARAM;
    CopyPlanes(dst, src, g, 0, 0);
    return MOK;
}

extern "C" MRESULT UIUtil_BitmapCrop(MBITMAP* dst, const MBITMAP* src, const MRECT* rect) {
    if (!dst || !src || !rect) return MERR_INVALID_PARAM;
    Geometry whole, part;
    if (!GeometryOf(src->pixelFormat, src->width, src->height, &whole)) return MERR_UNSUPPORTED;
    const int32_t w = rect->right - rect->left, h = rect->bottom - rect->top;
    if (!HasPlanes(src, whole) || rect->left < 0 || rect->top < 0 || w <= 0 || h <= 0 ||
        rect->right > src->width || rect->bottom > src->height ||
        (whole.yuv && (rect->left % 2 || rect->top % 2)))
        return MERR_INVALID_PARAM;
    GeometryOf(src->pixelFormat, w, h, &part);
    const MRESULT r = UTIL_MBitmapCreate(dst, src->pixelFormat, w, h);
    if (r != 0) return r;
    CopyPlanes(dst, src, part, rect->left, rect->top);
    return MOK;
}

extern "C" MRESULT MConvertBitmapToARGB32(MBITMAP* dst, const MBITMAP* src) {
    if (!dst || !src) return MERR_INVALID_PARAM;
    MRESULT r = UTIL_MBitmapCreate(dst, MPAF_RGBA8888, src->width, src->height);
    if (r != 0) return r;
    if ((r = ConvertCS(dst, src, 0, 0, 1)) != 0) MdBitmapFree(nullptr, dst);
    return r;
}

extern "C" MRESULT SetARGB32BitmapAlpha(MBITMAP* bitmap, uint8_t alpha) {
    if (!bitmap) return MERR_INVALID_PARAM;
    Geometry g;
    if (!GeometryOf(bitmap->pixelFormat, bitmap->width, bitmap->height, &g))
        return MERR_UNSUPPORTED;
    if (!Is32(bitmap->pixelFormat)) return MERR_UNSUPPORTED;
    if (!HasPlanes(bitmap, g)) return MERR_INVALID_PARAM;
    for (int32_t y = 0; y < bitmap->height; ++y) {
        uint8_t* p = bitmap->plane[0] + ptrdiff_t(y) * bitmap->pitch[0];
        for (int32_t x = 0; x < bitmap->width; ++x) p[x * 4 + 3] = alpha;
    }
    return MOK;
}

extern "C" MRESULT MergeBitmapWithMask(MBITMAP* dst, const MBITMAP* src, const MBITMAP* mask) {
    if (!dst || !src || !mask) return MERR_INVALID_PARAM;
    Geometry g, gm;
    if (!Is32(dst->pixelFormat) || src->pixelFormat != dst->pixelFormat ||
        (mask->pixelFormat != MPAF_GRAY8 && mask->pixelFormat != 0x64001000u))
        return MERR_UNSUPPORTED;
    if (!GeometryOf(dst->pixelFormat, dst->width, dst->height, &g) ||
        !GeometryOf(mask->pixelFormat, mask->width, mask->height, &gm) ||
        src->width != dst->width || src->height != dst->height || mask->width != dst->width ||
        mask->height != dst->height || !HasPlanes(dst, g) || !HasPlanes(src, g) ||
        !HasPlanes(mask, gm))
        return MERR_INVALID_PARAM;
    for (int32_t y = 0; y < dst->height; ++y) {
        uint8_t* d = dst->plane[0] + ptrdiff_t(y) * dst->pitch[0];
        const uint8_t* s = src->plane[0] + ptrdiff_t(y) * src->pitch[0];
        const uint8_t* m = mask->plane[0] + ptrdiff_t(y) * mask->pitch[0];
        for (int32_t x = 0; x < dst->width; ++x) {
            const int a = m[x];
            for (int c = 0; c < 4; ++c) {
                uint8_t& v = d[x * 4 + c];
                v = static_cast<uint8_t>((s[x * 4 + c] * a + v * (255 - a) + 127) / 255);
            }
        }
    }
    return MOK;
}

extern "C" int32_t GetColorDepth(uint32_t format) {
    switch (format >> 24) {
        case 0x37:
            return 32;
        case 0x16:
            return 24;
        case 0x15:
            return 16;
        case 0x64:
            return 8;
        default:
            break;
    }
    if ((format & ~0x3000u) == MPAF_I420 || format == MPAF_OTHERS_NV21) return 12;
    return 0;
}
