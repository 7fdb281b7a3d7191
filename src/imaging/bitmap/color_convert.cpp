/*
 * ConvertCS: scaling and pixel-format conversion between two bitmap
 * records, through the codec's conversions (imaging/codec/convert.h).
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
 * The work goes through R,G,B,A rows: an R,G,B,A source is scaled where it
 * lies, so a large photograph is never copied whole before a thumbnail is
 * made of it; other sources are converted to R,G,B,A at their size first.
 * The scaled rows are written straight into an R,G,B,A target, or
 * converted into the target's layout.
 */
#include <vector>

#include "imaging/codec/convert.h"
#include "scrivo/bitmap.h"

namespace {

using scrivo::codec::Layout;

bool Planes(const MBITMAP* b, Layout k) {
    if (!scrivo::codec::HasPlanes(b, k) || b->pitch[0] <= 0) return false;
    if (b->pitch[0] < b->width * scrivo::codec::FirstPlaneBytes(k)) return false;
    if (k == Layout::I420) return b->pitch[1] > 0 && b->pitch[2] > 0;
    if (k == Layout::NV21) return b->pitch[1] > 0;
    return true;
}

/* Any failure other than memory is a bad record or option. */
MRESULT AsResult(MRESULT r) {
    return r == 0 || r == MERR_NO_MEMORY ? r : MRESULT{MERR_INVALID_PARAM};
}

}  // namespace

extern "C" MRESULT ConvertCS(MBITMAP* target, const MBITMAP* source, int32_t flags, int32_t filter,
                             int32_t range) {
    if (!target || !source || flags != 0 || filter < 0 || filter > 2 || range < 1 || range > 2)
        return MERR_INVALID_PARAM;
    const Layout sk = scrivo::codec::LayoutOf(source->pixelFormat);
    const Layout tk = scrivo::codec::LayoutOf(target->pixelFormat);
    if (sk == Layout::Unsupported || tk == Layout::Unsupported) return MERR_UNSUPPORTED;
    if (source->width <= 0 || source->height <= 0 || target->width <= 0 || target->height <= 0 ||
        !Planes(source, sk) || !Planes(target, tk))
        return MERR_INVALID_PARAM;
    static const scrivo::codec::ScaleFilter kFilters[] = {scrivo::codec::ScaleFilter::Point,
                                                          scrivo::codec::ScaleFilter::Area,
                                                          scrivo::codec::ScaleFilter::Bilinear};
    const auto yuv = range == 1 ? scrivo::codec::YuvRange::Full : scrivo::codec::YuvRange::Studio;
    const int32_t sw = source->width, sh = source->height, tw = target->width, th = target->height;
    std::vector<uint8_t> whole, scaled;
    const uint8_t* p = source->plane[0];
    int32_t ps = source->pitch[0];
    if (sk != Layout::Rgba) {
        const MRESULT r = scrivo::codec::BitmapToRgba(source, yuv, &whole);
        if (r != 0) return AsResult(r);
        p = whole.data();
        ps = sw * 4;
    }
    if (sw != tw || sh != th) {
        // An R,G,B,A target takes the scaled rows directly.
        if (tk == Layout::Rgba)
            return AsResult(scrivo::codec::Scale4(p, ps, sw, sh, target->plane[0], target->pitch[0],
                                                  tw, th, kFilters[filter]));
        try {
            scaled.resize(static_cast<size_t>(tw) * th * 4);
        } catch (...) {
            return MERR_NO_MEMORY;
        }
        const MRESULT r =
            scrivo::codec::Scale4(p, ps, sw, sh, scaled.data(), tw * 4, tw, th, kFilters[filter]);
        if (r != 0) return AsResult(r);
        p = scaled.data();
        ps = tw * 4;
    }
    return AsResult(scrivo::codec::RgbaToBitmap(p, ps, target, tk, 0, th, yuv));
}
