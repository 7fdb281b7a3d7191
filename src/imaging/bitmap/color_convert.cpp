/*
 * ConvertCS: scaling and pixel-format conversion between two bitmap
 * records, on libyuv.
 *
 *   ConvertCS(target, source, flags, filter, range)
 *
 * Formats (either side): MPAF_RGBA8888 and its alias 0x37005777 (R, G, B,
 * A bytes), 0x37000777 (B, G, R, A bytes), MPAF_GRAY8, MPAF_I420 (any YUV
 * variant bits 0x3000) and MPAF_OTHERS_NV21. Both records must have their
 * planes, sizes and pitches set; the source is scaled to the target's size.
 *
 *   flags   reserved, must be 0.
 *   filter  how pixels are combined when the size changes: 0 nearest
 *           (point sampling), 1 box (area averaging: the right choice for
 *           large reductions such as thumbnails, where sampling would turn
 *           the lines of a text page into moire), 2 bilinear.
 *   range   the YUV matrix for I420 and NV21 on either side: 1 full range
 *           (JPEG/JFIF, what camera previews deliver), 2 BT.601 studio
 *           range (16..235). Grey planes are always full range.
 *
 * Results: 0, 2 for a missing record, plane, bad size or option, 3 for an
 * unsupported format, 4 when memory runs out.
 *
 * The work goes through R,G,B,A rows: a 4-byte source is scaled in its own
 * byte order (channel order does not matter to the scaler), so a large
 * photograph is never copied whole before a thumbnail is made of it; other
 * sources are converted to R,G,B,A at their size first. The scaled rows
 * are written straight into an R,G,B,A target, or converted into the
 * target's layout.
 */
#include <libyuv.h>

#include <cstring>
#include <vector>

#include "scrivo/bitmap.h"

namespace {

enum class Kind { Unsupported, Rgba, Bgra, Gray, I420, NV21 };

Kind KindOf(uint32_t id) {
    if (id == MPAF_RGBA8888 || id == 0x37005777u) return Kind::Rgba;
    if (id == 0x37000777u) return Kind::Bgra;
    if (id == MPAF_GRAY8 || id == 0x64001000u) return Kind::Gray;
    if ((id & ~0x3000u) == MPAF_I420) return Kind::I420;
    if (id == MPAF_OTHERS_NV21) return Kind::NV21;
    return Kind::Unsupported;
}

bool Planes(const MBITMAP* b, Kind k) {
    if (!b->plane[0] || b->pitch[0] <= 0) return false;
    const int32_t minPitch = (k == Kind::Rgba || k == Kind::Bgra) ? b->width * 4 : b->width;
    if (b->pitch[0] < minPitch) return false;
    if (k == Kind::I420) return b->plane[1] && b->plane[2] && b->pitch[1] > 0 && b->pitch[2] > 0;
    if (k == Kind::NV21) return b->plane[1] && b->pitch[1] > 0;
    return true;
}

/* A source converted to R,G,B,A rows at its own size. */
int ToRgba(const MBITMAP* s, Kind k, int32_t range, uint8_t* d, int ds) {
    const int w = s->width, h = s->height;
    switch (k) {
        case Kind::Bgra:
            return libyuv::ARGBToABGR(s->plane[0], s->pitch[0], d, ds, w, h);
        case Kind::Gray:
            return libyuv::J400ToARGB(s->plane[0], s->pitch[0], d, ds, w, h);
        case Kind::I420:
            return range == 1
                       ? libyuv::J420ToABGR(s->plane[0], s->pitch[0], s->plane[1], s->pitch[1],
                                            s->plane[2], s->pitch[2], d, ds, w, h)
                       : libyuv::I420ToABGR(s->plane[0], s->pitch[0], s->plane[1], s->pitch[1],
                                            s->plane[2], s->pitch[2], d, ds, w, h);
        case Kind::NV21: {
            const int cw = (w + 1) / 2, ch = (h + 1) / 2;
            std::vector<uint8_t> yuv(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch);
            uint8_t* u = yuv.data() + static_cast<size_t>(w) * h;
            uint8_t* v = u + static_cast<size_t>(cw) * ch;
            if (libyuv::NV21ToI420(s->plane[0], s->pitch[0], s->plane[1], s->pitch[1], yuv.data(),
                                   w, u, cw, v, cw, w, h) != 0)
                return -1;
            return range == 1 ? libyuv::J420ToABGR(yuv.data(), w, u, cw, v, cw, d, ds, w, h)
                              : libyuv::I420ToABGR(yuv.data(), w, u, cw, v, cw, d, ds, w, h);
        }
        default:
            return -1;
    }
}

/* R,G,B,A rows (or B,G,R,A when `bgra`) into the target's layout. */
int FromRgba(const uint8_t* p, int ps, bool bgra, MBITMAP* t, Kind k, int32_t range) {
    const int w = t->width, h = t->height;
    std::vector<uint8_t> swapped;
    if (bgra && k != Kind::Bgra) {
        // Bring B,G,R,A rows into R,G,B,A order once; the swap is its own inverse.
        swapped.resize(static_cast<size_t>(w) * h * 4);
        libyuv::ARGBToABGR(p, ps, swapped.data(), w * 4, w, h);
        p = swapped.data();
        ps = w * 4;
    }
    switch (k) {
        case Kind::Rgba:
            return libyuv::ARGBCopy(p, ps, t->plane[0], t->pitch[0], w, h);
        case Kind::Bgra:
            return bgra ? libyuv::ARGBCopy(p, ps, t->plane[0], t->pitch[0], w, h)
                        : libyuv::ABGRToARGB(p, ps, t->plane[0], t->pitch[0], w, h);
        case Kind::Gray:
            return libyuv::ABGRToJ400(p, ps, t->plane[0], t->pitch[0], w, h);
        case Kind::I420:
            return range == 1 ? libyuv::ABGRToJ420(p, ps, t->plane[0], t->pitch[0], t->plane[1],
                                                   t->pitch[1], t->plane[2], t->pitch[2], w, h)
                              : libyuv::ABGRToI420(p, ps, t->plane[0], t->pitch[0], t->plane[1],
                                                   t->pitch[1], t->plane[2], t->pitch[2], w, h);
        case Kind::NV21: {
            const int cw = (w + 1) / 2, ch = (h + 1) / 2;
            std::vector<uint8_t> uv(2 * static_cast<size_t>(cw) * ch);
            uint8_t* u = uv.data();
            uint8_t* v = u + static_cast<size_t>(cw) * ch;
            const int rc =
                range == 1
                    ? libyuv::ABGRToJ420(p, ps, t->plane[0], t->pitch[0], u, cw, v, cw, w, h)
                    : libyuv::ABGRToI420(p, ps, t->plane[0], t->pitch[0], u, cw, v, cw, w, h);
            if (rc != 0) return rc;
            // Only the chroma needs interleaving; Y is already in place.
            for (int y = 0; y < ch; ++y) {
                uint8_t* vu = t->plane[1] + static_cast<ptrdiff_t>(y) * t->pitch[1];
                for (int x = 0; x < cw; ++x) {
                    vu[2 * x] = v[y * cw + x];
                    vu[2 * x + 1] = u[y * cw + x];
                }
            }
            return 0;
        }
        default:
            return -1;
    }
}

/* Scales 4-byte pixels. libyuv averages whole 2 x 2 blocks when it halves,
 * but on larger reductions its box filter samples only a few source pixels
 * per output pixel; so the box filter halves first, while the reduction left
 * is two or more, and lets libyuv finish the last step. */
int Scale(const uint8_t* p, int ps, int sw, int sh, uint8_t* d, int ds, int tw, int th,
          int32_t filter) {
    static const libyuv::FilterMode kFilters[] = {libyuv::kFilterNone, libyuv::kFilterBox,
                                                  libyuv::kFilterBilinear};
    std::vector<uint8_t> halves[2];
    for (int i = 0; filter == 1 && sw >= 2 * tw && sh >= 2 * th; i ^= 1) {
        const int hw = sw / 2, hh = sh / 2;
        halves[i].resize(static_cast<size_t>(hw) * hh * 4);
        if (libyuv::ARGBScale(p, ps, sw, sh, halves[i].data(), hw * 4, hw, hh,
                              libyuv::kFilterBox) != 0)
            return -1;
        p = halves[i].data();
        ps = hw * 4;
        sw = hw;
        sh = hh;
    }
    return libyuv::ARGBScale(p, ps, sw, sh, d, ds, tw, th, kFilters[filter]);
}

}  // namespace

extern "C" MRESULT ConvertCS(MBITMAP* target, const MBITMAP* source, int32_t flags, int32_t filter,
                             int32_t range) {
    if (!target || !source || flags != 0 || filter < 0 || filter > 2 || range < 1 || range > 2)
        return MERR_INVALID_PARAM;
    const Kind sk = KindOf(source->pixelFormat), tk = KindOf(target->pixelFormat);
    if (sk == Kind::Unsupported || tk == Kind::Unsupported) return MERR_UNSUPPORTED;
    if (source->width <= 0 || source->height <= 0 || target->width <= 0 || target->height <= 0 ||
        !Planes(source, sk) || !Planes(target, tk))
        return MERR_INVALID_PARAM;
    const int sw = source->width, sh = source->height, tw = target->width, th = target->height;
    try {
        std::vector<uint8_t> whole, scaled;
        const uint8_t* p = source->plane[0];
        int ps = source->pitch[0];
        bool bgra = sk == Kind::Bgra;
        if (sk != Kind::Rgba && sk != Kind::Bgra) {
            whole.resize(static_cast<size_t>(sw) * sh * 4);
            if (ToRgba(source, sk, range, whole.data(), sw * 4) != 0) return MERR_INVALID_PARAM;
            p = whole.data();
            ps = sw * 4;
            bgra = false;
        }
        if (sw != tw || sh != th) {
            // Scale straight into a target of the same byte order.
            const bool direct = (tk == Kind::Rgba && !bgra) || (tk == Kind::Bgra && bgra);
            uint8_t* d = target->plane[0];
            int ds = target->pitch[0];
            if (!direct) {
                scaled.resize(static_cast<size_t>(tw) * th * 4);
                d = scaled.data();
                ds = tw * 4;
            }
            if (Scale(p, ps, sw, sh, d, ds, tw, th, filter) != 0) return MERR_INVALID_PARAM;
            if (direct) return MOK;
            p = scaled.data();
            ps = tw * 4;
        }
        return FromRgba(p, ps, bgra, target, tk, range) == 0 ? MOK : MERR_INVALID_PARAM;
    } catch (...) {
        return MERR_NO_MEMORY;
    }
}
