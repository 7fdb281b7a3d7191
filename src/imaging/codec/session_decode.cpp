/*
 * Framework decode sessions: component search, scaling and conversion.
 *
 * Creation sniffs the stream, asks the component manager for up to 10
 * decoders of that file type and keeps the first that opens the stream.
 *
 * The scanline call is given the source rectangle to decode (the region
 * DST_REGION sets, in image pixels); each call with one decodes it afresh
 * into the destination, a call without one delivers the lines still owed.
 *
 * Decoding takes one of two paths, fixed at the first scanline call:
 *  - direct: the destination is R,G,B,A or grey and the component accepts
 *    the destination size as an exact power-of-two reduction of the region
 *    (4103). The component then writes the caller's lines itself, with no
 *    intermediate copy.
 *  - indirect: the component decodes the region as R,G,B,A at the largest
 *    reduction d in {8, 4, 2, 1} whose scaled region still covers the
 *    destination (so the scaler only ever shrinks, or enlarges from full
 *    size), the box filter scales it to the destination size, and
 *    each scanline call converts its band into the destination layout.
 */
#include <algorithm>
#include <cstring>
#include <new>

#include "imaging/codec/session.h"

using scrivo::codec::Layout;

namespace scrivo::codec {

void ForgetDecode(MCODEC_SESSION* s) {
    s->prepared = false;
    s->direct = false;
    s->linesDone = 0;
    std::vector<uint8_t>().swap(s->scaled);
}

}  // namespace scrivo::codec

namespace {

MRESULT Comp(MCODEC_SESSION* s, MRESULT r) {
    return MdUtilsConvertResult(r, s->encoder ? 1 : 0);
}

MRESULT CompGet(MCODEC_SESSION* s, uint32_t prop, void* v, int32_t size) {
    return Comp(s, s->component->GetProp(s->component->self, prop, v, size));
}

MRESULT CompSet(MCODEC_SESSION* s, uint32_t prop, const void* v, int32_t size) {
    return Comp(s, s->component->SetProp(s->component->self, prop, v, size));
}

MRESULT Prepare(MCODEC_SESSION* s, const MBITMAP* bm, Layout layout) {
    const MRECT g = s->regionSet ? s->region : MRECT{0, 0, s->imageW, s->imageH};
    s->outW = s->dstW > 0 ? s->dstW : bm->width;
    s->outH = s->dstH > 0 ? s->dstH : bm->height;
    if (s->outW <= 0 || s->outH <= 0) return 2;
    MRESULT r = CompSet(s, MD_PROP_DST_REGION, &g, 16);
    if (r != 0) return r;
    if (layout == Layout::Rgba || layout == Layout::Gray) {
        const uint32_t fmt =
            layout == Layout::Gray ? scrivo::codec::kOldGray : scrivo::codec::kOldRgba;
        const int32_t size[2] = {s->outW, s->outH};
        if (CompSet(s, MD_PROP_PIXEL_FORMAT, &fmt, 4) == 0 &&
            CompSet(s, MD_PROP_ZOOM_SCALE, size, 8) == 0) {
            s->direct = true;
            s->prepared = true;
            return 0;
        }
    }
    int32_t d = 8;
    while (d > 1 && (scrivo::codec::ScaledExtent(g.left, g.right, d) < s->outW ||
                     scrivo::codec::ScaledExtent(g.top, g.bottom, d) < s->outH))
        d /= 2;
    const uint32_t rgba = scrivo::codec::kOldRgba;
    if ((r = CompSet(s, MD_PROP_PIXEL_FORMAT, &rgba, 4)) != 0) return r;
    if ((r = CompSet(s, MD_PROP_JPEG_SCALE, &d, 4)) != 0) return r;
    const int32_t cw = scrivo::codec::ScaledExtent(g.left, g.right, d);
    const int32_t ch = scrivo::codec::ScaledExtent(g.top, g.bottom, d);
    std::vector<uint8_t> decoded;
    try {
        decoded.resize(static_cast<size_t>(cw) * static_cast<size_t>(ch) * 4);
        s->scaled.resize(static_cast<size_t>(s->outW) * static_cast<size_t>(s->outH) * 4);
    } catch (...) {
        return 4;
    }
    MBITMAP tmp{};
    tmp.pixelFormat = MPAF_RGBA8888;
    tmp.width = cw;
    tmp.height = ch;
    tmp.pitch[0] = cw * 4;
    tmp.plane[0] = decoded.data();
    int32_t done = 0;
    r = Comp(s, s->component->Scanlines(s->component->self, &tmp, ch, &done));
    if (r != 0) return r;
    if (done != ch) return 1;
    if (scrivo::codec::Scale4(decoded.data(), cw * 4, cw, ch, s->scaled.data(), s->outW * 4,
                              s->outW, s->outH, scrivo::codec::ScaleFilter::Box) != 0)
        return 1;
    s->prepared = true;
    return 0;
}

}  // namespace

MRESULT scrivo::codec::OpenDecoderComponent(MHAMCM manager, MHStream stream, uint32_t componentId,
                                            uint32_t fileType, ComponentPtr* out) {
    uint32_t ids[scrivo::codec::kMaxCandidates];
    int32_t count = 0;
    MRESULT r = scrivo::codec::CandidateComponents(manager, componentId, fileType,
                                                   MD_COMPONENT_DECODER, ids, &count);
    if (r != 0) return r;
    const int32_t start = MStreamTell(stream);
    for (int32_t i = 0; i < count; ++i) {
        MCODEC_COMPONENT* c = nullptr;
        if ((r = AMCM_CreateComponent(manager, ids[i], &c)) != 0) continue;
        ComponentPtr comp(c);
        MStreamSeek(stream, 0, start);
        r = MdUtilsConvertResult(comp->Open(comp->self, stream, nullptr), 0);
        if (r == 0) {
            *out = std::move(comp);
            return 0;
        }
    }
    return r;
}

extern "C" MRESULT MCodec_DecodeCreate(MHAMCM manager, MHStream stream, uint32_t componentId,
                                       MHCODEC* session) {
    if (!manager || !stream || !session) return 2;
    *session = nullptr;
    std::unique_ptr<MCODEC_SESSION> s(new (std::nothrow) MCODEC_SESSION);
    if (!s) return 4;
    s->manager = manager;
    AMCM_GetGlobalData(manager, AMCM_KEY_MEMORY_MANAGER, &s->mem);
    AMCM_GetGlobalData(manager, AMCM_KEY_SECOND_SETTING, &s->secondSetting);
    uint32_t type = 0;
    MRESULT r = MdGetImgFileFormat(stream, &type);
    if (r != 0) return r;
    if ((r = scrivo::codec::OpenDecoderComponent(manager, stream, componentId, type,
                                                 &s->component)) != 0)
        return r;
    s->caps1Read = CompGet(s.get(), MD_PROP_CAPS_1, &s->caps1, 4) == 0;
    CompGet(s.get(), MD_PROP_CAPS_2, &s->caps2, 4);
    if ((r = CompGet(s.get(), MD_PROP_SRC_FORMAT, &s->srcFormat, 4)) != 0) return r;
    int32_t wh[2] = {};
    if ((r = CompGet(s.get(), MD_PROP_IMAGE_SIZE, wh, 8)) != 0) return r;
    s->imageW = wh[0];
    s->imageH = wh[1];
    int32_t paletteCount = 0;
    if (CompGet(s.get(), MD_PROP_PALETTE_COUNT, &paletteCount, 4) == 0 && paletteCount > 0) {
        try {
            s->palette.assign(1024, 0);
        } catch (...) {
            return 4;
        }
    }
    *session = s.release();
    return 0;
}

extern "C" MRESULT MCodec_DecodeScanlines(MHCODEC s, MBITMAP* bm, const MRECT* rect,
                                          int32_t* linesDone, int32_t* status) {
    if (linesDone) *linesDone = 0;
    if (!s || s->encoder || !bm || !bm->plane[0]) return 2;
    const uint32_t fmt = s->outFormatSet ? s->outFormatNew : bm->pixelFormat;
    const Layout layout = scrivo::codec::LayoutOf(fmt);
    if (layout == Layout::Unsupported) return 3;
    if (!scrivo::codec::HasPlanes(bm, layout)) return 2;
    if (rect) {
        // The source rectangle of this decode, as DST_REGION takes it: it
        // becomes the session's region and its decode starts over.
        if (rect->left < 0 || rect->top < 0 || rect->left >= rect->right ||
            rect->top >= rect->bottom || rect->right > s->imageW || rect->bottom > s->imageH)
            return 2;
        s->region = *rect;
        s->regionSet = true;
        scrivo::codec::ForgetDecode(s);
    }
    MRESULT r = 0;
    if (!s->prepared) {
        r = Prepare(s, bm, layout);
        if (r != 0) {
            scrivo::codec::ForgetDecode(s);
            return r;
        }
    }
    const int32_t top = s->linesDone, bottom = s->outH;
    if (bm->width < s->outW || bm->height < bottom) return 2;
    if (bm->pitch[0] < s->outW * scrivo::codec::FirstPlaneBytes(layout)) return 2;
    int32_t done = 0;
    if (s->direct) {
        MBITMAP band = *bm;
        band.plane[0] = bm->plane[0] + static_cast<ptrdiff_t>(top) * bm->pitch[0];
        r = Comp(s, s->component->Scanlines(s->component->self, &band, bottom - top, &done));
    } else {
        r = scrivo::codec::RgbaToBitmap(s->scaled.data(), s->outW * 4, bm, layout, top, bottom,
                                        scrivo::codec::YuvRange::Studio);
        if (r == 0) done = bottom - top;
    }
    s->linesDone += done;
    if (linesDone) *linesDone = done;
    if (status) *status = s->linesDone < s->outH ? 1 : 0;
    return r;
}

extern "C" MRESULT MCodec_DecodeData(MHAMCM manager, const void* data, int32_t size,
                                     MBITMAP* bitmap) {
    if (!manager || !data || size <= 0 || !bitmap) return 2;
    MHStream st = MStreamOpenFromMemoryBlock(const_cast<void*>(data), size);
    if (!st) return 4;
    MRESULT r = MdBitmapLoad(manager, st, 0, bitmap);
    MStreamClose(st);
    return r;
}
