/*
 * Conversions between bitmap records, all through libyuv (see convert.h).
 *
 * Resampling: crop the source rectangle (a pointer offset for packed
 * formats), flip, rotate by quarter turns, scale with the box filter to the
 * destination rectangle and convert into the destination's layout. An I420
 * to I420 job without rotation or flip stays planar (I420Scale) and skips
 * the RGBA round trip. The framework's YUV is BT.601 studio range.
 */
#include "imaging/codec/convert.h"

#include <libyuv.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "imaging/codec/codec_internal.h"

namespace scrivo::codec {

Layout LayoutOf(uint32_t id) {
    if (id == MPAF_RGBA8888 || id == 0x37005777u) return Layout::Rgba;
    if (id == 0x37000777u) return Layout::Bgra;
    if (id == MPAF_GRAY8 || id == 0x64001000u) return Layout::Gray;
    if ((id & ~0x3000u) == MPAF_I420) return Layout::I420;
    if (id == MPAF_OTHERS_NV21 || id == kOldNV21) return Layout::NV21;
    return Layout::Unsupported;
}

int32_t FirstPlaneBytes(Layout layout) {
    return layout == Layout::Rgba || layout == Layout::Bgra ? 4 : 1;
}

bool HasPlanes(const MBITMAP* b, Layout l) {
    if (!b->plane[0]) return false;
    if (l == Layout::I420) return b->plane[1] && b->plane[2];
    if (l == Layout::NV21) return b->plane[1] != nullptr;
    return true;
}

namespace {

// Interleaves separate U and V planes into NV21's V,U plane.
void InterleaveVu(const uint8_t* u, const uint8_t* v, int cw, int ch, uint8_t* vu, int pitch) {
    for (int y = 0; y < ch; ++y) {
        uint8_t* row = vu + static_cast<ptrdiff_t>(y) * pitch;
        for (int x = 0; x < cw; ++x) {
            row[2 * x] = v[y * cw + x];
            row[2 * x + 1] = u[y * cw + x];
        }
    }
}

}  // namespace

MRESULT RgbaToBitmap(const uint8_t* rgba, int32_t stride, MBITMAP* dst, Layout layout, int32_t top,
                     int32_t bottom, YuvRange range) {
    const int32_t w = dst->width, h = bottom - top;
    if (h <= 0) return 0;
    if ((layout == Layout::I420 || layout == Layout::NV21) && top % 2) return 2;
    const uint8_t* src = rgba + static_cast<ptrdiff_t>(top) * stride;
    auto row = [&](int32_t plane, int32_t y) {
        return dst->plane[plane] + static_cast<ptrdiff_t>(y) * dst->pitch[plane];
    };
    const bool full = range == YuvRange::Full;
    int rc = 0;
    switch (layout) {
        case Layout::Rgba:
            rc = libyuv::ARGBCopy(src, stride, row(0, top), dst->pitch[0], w, h);
            break;
        case Layout::Bgra:
            rc = libyuv::ABGRToARGB(src, stride, row(0, top), dst->pitch[0], w, h);
            break;
        case Layout::Gray:
            rc = libyuv::ABGRToJ400(src, stride, row(0, top), dst->pitch[0], w, h);
            break;
        case Layout::I420:
            rc = (full ? libyuv::ABGRToJ420 : libyuv::ABGRToI420)(
                src, stride, row(0, top), dst->pitch[0], row(1, top / 2), dst->pitch[1],
                row(2, top / 2), dst->pitch[2], w, h);
            break;
        case Layout::NV21: {
            if (!full) {
                rc = libyuv::ABGRToNV21(src, stride, row(0, top), dst->pitch[0], row(1, top / 2),
                                        dst->pitch[1], w, h);
                break;
            }
            // Full range goes through separate planes; only the chroma then
            // needs interleaving, Y is already in place.
            const int cw = (w + 1) / 2, ch = (h + 1) / 2;
            std::vector<uint8_t> uv;
            try {
                uv.resize(2 * static_cast<size_t>(cw) * ch);
            } catch (...) {
                return 4;
            }
            uint8_t* u = uv.data();
            uint8_t* v = u + static_cast<size_t>(cw) * ch;
            rc = libyuv::ABGRToJ420(src, stride, row(0, top), dst->pitch[0], u, cw, v, cw, w, h);
            if (rc == 0) InterleaveVu(u, v, cw, ch, row(1, top / 2), dst->pitch[1]);
            break;
        }
        default:
            return 3;
    }
    return rc == 0 ? 0 : 2;
}

MRESULT BitmapToRgba(const MBITMAP* src, YuvRange range, std::vector<uint8_t>* out) {
    const Layout layout = LayoutOf(src->pixelFormat);
    const int32_t w = src->width, h = src->height;
    std::vector<uint8_t> i420;
    try {
        out->resize(static_cast<size_t>(w) * static_cast<size_t>(h) * 4);
    } catch (...) {
        return 4;
    }
    uint8_t* d = out->data();
    const int32_t ds = w * 4;
    const bool full = range == YuvRange::Full;
    const uint8_t* const* p = src->plane;
    const int32_t* ps = src->pitch;
    int rc = 0;
    switch (layout) {
        case Layout::Rgba:
            rc = libyuv::ARGBCopy(p[0], ps[0], d, ds, w, h);
            break;
        case Layout::Bgra:
            rc = libyuv::ARGBToABGR(p[0], ps[0], d, ds, w, h);
            break;
        case Layout::Gray:
            // J400 to ARGB gives B=G=R=Y, A=255: the same bytes in R,G,B,A order.
            rc = libyuv::J400ToARGB(p[0], ps[0], d, ds, w, h);
            break;
        case Layout::I420:
            rc = (full ? libyuv::J420ToABGR : libyuv::I420ToABGR)(p[0], ps[0], p[1], ps[1], p[2],
                                                                  ps[2], d, ds, w, h);
            break;
        case Layout::NV21: {
            if (!full) {
                rc = libyuv::NV21ToABGR(p[0], ps[0], p[1], ps[1], d, ds, w, h);
                break;
            }
            MBITMAP planar{};
            const MRESULT r = RepackNv21AsI420(src, h, &i420, &planar);
            if (r != 0) return r;
            rc = libyuv::J420ToABGR(planar.plane[0], planar.pitch[0], planar.plane[1],
                                    planar.pitch[1], planar.plane[2], planar.pitch[2], d, ds, w, h);
            break;
        }
        default:
            return 3;
    }
    return rc == 0 ? 0 : 2;
}

MRESULT Scale4(const uint8_t* p, int32_t ps, int32_t sw, int32_t sh, uint8_t* d, int32_t ds,
               int32_t tw, int32_t th, ScaleFilter filter) {
    // libyuv averages whole 2 x 2 blocks when it halves, but on larger
    // reductions its box filter samples only a few source pixels per output
    // pixel; so area averaging halves first, while the reduction left is two
    // or more, and lets the box filter finish the last step.
    std::vector<uint8_t> halves[2];
    try {
        for (int i = 0; filter == ScaleFilter::Area && sw >= 2 * tw && sh >= 2 * th; i ^= 1) {
            const int32_t hw = sw / 2, hh = sh / 2;
            halves[i].resize(static_cast<size_t>(hw) * hh * 4);
            if (libyuv::ARGBScale(p, ps, sw, sh, halves[i].data(), hw * 4, hw, hh,
                                  libyuv::kFilterBox) != 0)
                return 2;
            p = halves[i].data();
            ps = hw * 4;
            sw = hw;
            sh = hh;
        }
    } catch (...) {
        return 4;
    }
    const libyuv::FilterMode mode = filter == ScaleFilter::Point      ? libyuv::kFilterNone
                                    : filter == ScaleFilter::Bilinear ? libyuv::kFilterBilinear
                                                                      : libyuv::kFilterBox;
    return libyuv::ARGBScale(p, ps, sw, sh, d, ds, tw, th, mode) == 0 ? 0 : 2;
}

MRESULT RepackNv21AsI420(const MBITMAP* nv21, int32_t lines, std::vector<uint8_t>* buffer,
                         MBITMAP* i420) {
    const int32_t w = nv21->width, cw = (w + 1) / 2, ch = (lines + 1) / 2;
    try {
        buffer->resize(static_cast<size_t>(w) * lines + 2 * static_cast<size_t>(cw) * ch);
    } catch (...) {
        return 4;
    }
    uint8_t* y = buffer->data();
    uint8_t* u = y + static_cast<size_t>(w) * lines;
    uint8_t* v = u + static_cast<size_t>(cw) * ch;
    if (libyuv::NV21ToI420(nv21->plane[0], nv21->pitch[0], nv21->plane[1], nv21->pitch[1], y, w, u,
                           cw, v, cw, w, lines) != 0)
        return 2;
    *i420 = MBITMAP{MPAF_I420, w, lines, {w, cw, cw}, {y, u, v}};
    return 0;
}

}  // namespace scrivo::codec

namespace {

using scrivo::codec::Layout;

bool Inside(const MRECT& r, const MBITMAP* b) {
    return r.left >= 0 && r.top >= 0 && r.left < r.right && r.top < r.bottom &&
           r.right <= b->width && r.bottom <= b->height;
}

MRESULT Resample(const MBITMAP* src, const MRECT& sr, MBITMAP* dst, const MRECT& dr,
                 int32_t rotation, uint32_t flip) {
    const Layout sl = scrivo::codec::LayoutOf(src->pixelFormat);
    const Layout dl = scrivo::codec::LayoutOf(dst->pixelFormat);
    if (sl == Layout::Unsupported || dl == Layout::Unsupported) return 3;
    if (!scrivo::codec::HasPlanes(src, sl) || !scrivo::codec::HasPlanes(dst, dl)) return 2;
    const int32_t sw = sr.right - sr.left, sh = sr.bottom - sr.top;
    const int32_t dw = dr.right - dr.left, dh = dr.bottom - dr.top;
    const bool evenOrigins =
        sr.left % 2 == 0 && sr.top % 2 == 0 && dr.left % 2 == 0 && dr.top % 2 == 0;
    if (sl == Layout::I420 && dl == Layout::I420 && rotation == 0 && flip == 0 && evenOrigins) {
        auto at = [](const MBITMAP* b, int p, int32_t x, int32_t y) {
            const int32_t s = p == 0 ? 1 : 2;
            return b->plane[p] + static_cast<ptrdiff_t>(y / s) * b->pitch[p] + x / s;
        };
        return libyuv::I420Scale(
                   at(src, 0, sr.left, sr.top), src->pitch[0], at(src, 1, sr.left, sr.top),
                   src->pitch[1], at(src, 2, sr.left, sr.top), src->pitch[2], sw, sh,
                   at(dst, 0, dr.left, dr.top), dst->pitch[0], at(dst, 1, dr.left, dr.top),
                   dst->pitch[1], at(dst, 2, dr.left, dr.top), dst->pitch[2], dw, dh,
                   libyuv::kFilterBox) == 0
                   ? 0
                   : 2;
    }
    std::vector<uint8_t> whole, cropped, turned, scaled;
    MRESULT r = scrivo::codec::BitmapToRgba(src, scrivo::codec::YuvRange::Studio, &whole);
    if (r != 0) return r;
    const int32_t ws = src->width * 4;
    const uint8_t* p = whole.data() + static_cast<ptrdiff_t>(sr.top) * ws + sr.left * 4;
    int32_t ps = ws;
    try {
        if (flip != 0) {
            cropped.resize(static_cast<size_t>(sw) * sh * 4);
            // A negative height makes libyuv read bottom-up: a vertical flip.
            const int32_t copyH = (flip & 2) ? -sh : sh;
            if (flip & 1)
                libyuv::ARGBMirror(p, ps, cropped.data(), sw * 4, sw, copyH);
            else
                libyuv::ARGBCopy(p, ps, cropped.data(), sw * 4, sw, copyH);
            p = cropped.data();
            ps = sw * 4;
        }
        int32_t tw = sw, th = sh;
        if (rotation != 0) {
            if (rotation == 90 || rotation == 270) std::swap(tw, th);
            turned.resize(static_cast<size_t>(tw) * th * 4);
            libyuv::ARGBRotate(p, ps, turned.data(), tw * 4, sw, sh,
                               static_cast<libyuv::RotationMode>(rotation));
            p = turned.data();
            ps = tw * 4;
        }
        scaled.resize(static_cast<size_t>(dw) * dh * 4);
        if ((r = scrivo::codec::Scale4(p, ps, tw, th, scaled.data(), dw * 4, dw, dh,
                                       scrivo::codec::ScaleFilter::Box)) != 0)
            return r;
    } catch (...) {
        return 4;
    }
    if ((dl == Layout::I420 || dl == Layout::NV21) && (dr.left % 2 || dr.top % 2)) return 2;
    MBITMAP sub = *dst;
    sub.width = dw;
    sub.height = dh;
    for (int i = 0; i < 3; ++i) {
        if (!dst->plane[i]) continue;
        const int32_t sx = i == 0 ? 1 : 2;
        const int32_t bytes =
            i == 0 ? scrivo::codec::FirstPlaneBytes(dl) : (dl == Layout::NV21 ? 2 : 1);
        const int32_t x = (i == 0 || dl == Layout::I420) ? dr.left / sx : dr.left / 2;
        sub.plane[i] = dst->plane[i] + static_cast<ptrdiff_t>(dr.top / sx) * dst->pitch[i] +
                       static_cast<ptrdiff_t>(x) * bytes;
    }
    return scrivo::codec::RgbaToBitmap(scaled.data(), dw * 4, &sub, dl, 0, dh,
                                       scrivo::codec::YuvRange::Studio);
}

}  // namespace

extern "C" MRESULT MdBitmapCropRotFlipResample(MHandle, const MBITMAP* src, const MRECT* srcRect,
                                               MBITMAP* dst, const MRECT* dstRect, int32_t rotation,
                                               uint32_t flip) {
    if (!src || !dst || !srcRect || !dstRect) return 2;
    if (rotation != 0 && rotation != 90 && rotation != 180 && rotation != 270) return 2;
    if (src->width <= 0 || src->height <= 0 || dst->width <= 0 || dst->height <= 0) return 3;
    if (!Inside(*srcRect, src) || !Inside(*dstRect, dst)) return 2;
    static const MRESULT kKeep[] = {2, 4, 3};
    return MdUtilConvertErrorCode(Resample(src, *srcRect, dst, *dstRect, rotation, flip), kKeep, 3);
}

extern "C" MRESULT MdBitmapResample(MHandle handle, const MBITMAP* src, MBITMAP* dst) {
    if (!src || !dst) return 2;
    const MRECT sr{0, 0, src->width, src->height};
    const MRECT dr{0, 0, dst->width, dst->height};
    return MdBitmapCropRotFlipResample(handle, src, &sr, dst, &dr, 0, 0);
}
