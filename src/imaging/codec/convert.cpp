/*
 * Pixel conversion, cropping, rotation and scaling between bitmap records,
 * all through libyuv.
 *
 * Everything meets in R,G,B,A bytes, which libyuv calls "ABGR" (it names
 * formats by a little-endian 32-bit word). I420 and NV21 are libyuv's
 * BT.601 studio-range YUV. Resampling: crop the source rectangle (a
 * pointer offset for packed formats), flip, rotate by quarter turns, scale
 * with the box filter to the destination rectangle and convert into the
 * destination's layout. An I420 to I420 job without rotation or flip stays
 * planar (I420Scale) and skips the RGBA round trip.
 */
#include <libyuv.h>

#include <algorithm>
#include <cstring>

#include "imaging/codec/session.h"

namespace scrivo::codec {

MRESULT RgbaToBitmap(const uint8_t* rgba, int32_t stride, MBITMAP* dst, Layout layout, int32_t top,
                     int32_t bottom) {
    const int32_t w = dst->width, h = bottom - top;
    if (h <= 0) return 0;
    const uint8_t* src = rgba + static_cast<ptrdiff_t>(top) * stride;
    auto row = [&](int32_t plane, int32_t y) {
        return dst->plane[plane] + static_cast<ptrdiff_t>(y) * dst->pitch[plane];
    };
    int rc = 0;
    switch (layout) {
        case Layout::Rgba:
            for (int32_t y = 0; y < h; ++y)
                std::memcpy(row(0, top + y), src + static_cast<ptrdiff_t>(y) * stride,
                            static_cast<size_t>(w) * 4);
            break;
        case Layout::Gray:
            // Full-range luma, as a JPEG decoder produces for grey output.
            rc = libyuv::ABGRToJ400(src, stride, row(0, top), dst->pitch[0], w, h);
            break;
        case Layout::I420:
            if (top % 2) return 2;
            rc = libyuv::ABGRToI420(src, stride, row(0, top), dst->pitch[0], row(1, top / 2),
                                    dst->pitch[1], row(2, top / 2), dst->pitch[2], w, h);
            break;
        case Layout::NV21:
            if (top % 2) return 2;
            rc = libyuv::ABGRToNV21(src, stride, row(0, top), dst->pitch[0], row(1, top / 2),
                                    dst->pitch[1], w, h);
            break;
        default:
            return 3;
    }
    return rc == 0 ? 0 : 2;
}

MRESULT BitmapToRgba(const MBITMAP* src, std::vector<uint8_t>* out) {
    const Layout layout = LayoutOf(src->pixelFormat);
    const int32_t w = src->width, h = src->height;
    try {
        out->resize(static_cast<size_t>(w) * static_cast<size_t>(h) * 4);
    } catch (...) {
        return 4;
    }
    uint8_t* d = out->data();
    const int32_t ds = w * 4;
    int rc = 0;
    switch (layout) {
        case Layout::Rgba:
            for (int32_t y = 0; y < h; ++y)
                std::memcpy(d + static_cast<ptrdiff_t>(y) * ds,
                            src->plane[0] + static_cast<ptrdiff_t>(y) * src->pitch[0],
                            static_cast<size_t>(ds));
            break;
        case Layout::Gray:
            // J400 to ARGB gives B=G=R=Y, A=255: the same bytes in R,G,B,A order.
            rc = libyuv::J400ToARGB(src->plane[0], src->pitch[0], d, ds, w, h);
            break;
        case Layout::I420:
            rc = libyuv::I420ToABGR(src->plane[0], src->pitch[0], src->plane[1], src->pitch[1],
                                    src->plane[2], src->pitch[2], d, ds, w, h);
            break;
        case Layout::NV21:
            rc = libyuv::NV21ToABGR(src->plane[0], src->pitch[0], src->plane[1], src->pitch[1], d,
                                    ds, w, h);
            break;
        default:
            return 3;
    }
    return rc == 0 ? 0 : 2;
}

}  // namespace scrivo::codec

namespace {

using scrivo::codec::Layout;

bool Inside(const MRECT& r, const MBITMAP* b) {
    return r.left >= 0 && r.top >= 0 && r.left < r.right && r.top < r.bottom &&
           r.right <= b->width && r.bottom <= b->height;
}

bool PlanesPresent(const MBITMAP* b, Layout l) {
    if (!b->plane[0]) return false;
    if (l == Layout::I420) return b->plane[1] && b->plane[2];
    if (l == Layout::NV21) return b->plane[1] != nullptr;
    return true;
}

MRESULT Resample(const MBITMAP* src, const MRECT& sr, MBITMAP* dst, const MRECT& dr,
                 int32_t rotation, uint32_t flip) {
    const Layout sl = scrivo::codec::LayoutOf(src->pixelFormat);
    const Layout dl = scrivo::codec::LayoutOf(dst->pixelFormat);
    if (sl == Layout::Unsupported || dl == Layout::Unsupported) return 3;
    if (!PlanesPresent(src, sl) || !PlanesPresent(dst, dl)) return 2;
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
    MRESULT r = scrivo::codec::BitmapToRgba(src, &whole);
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
        if (libyuv::ARGBScale(p, ps, tw, th, scaled.data(), dw * 4, dw, dh, libyuv::kFilterBox))
            return 2;
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
        const int32_t bytes = dl == Layout::Rgba ? 4 : (dl == Layout::NV21 && i == 1 ? 2 : 1);
        const int32_t x = (i == 0 || dl == Layout::I420) ? dr.left / sx : dr.left / 2;
        sub.plane[i] = dst->plane[i] + static_cast<ptrdiff_t>(dr.top / sx) * dst->pitch[i] +
                       static_cast<ptrdiff_t>(x) * bytes;
    }
    return scrivo::codec::RgbaToBitmap(scaled.data(), dw * 4, &sub, dl, 0, dh);
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
