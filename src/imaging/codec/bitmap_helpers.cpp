/*
 * Whole-bitmap helpers: load a stream into a bitmap record and save a
 * bitmap record into a stream or file, each in one call over a framework
 * session, plus plane allocation for records.
 *
 * Loading fills a missing destination size from the image (width <= 0 or
 * height < 1), allocates the planes when the record has none (and frees
 * them again if decoding fails), and for JPEG sets the source region
 * before the destination size and format, so the decoder can choose its
 * reduction against the region. Saving uses quality
 * MD_DEFAULT_JPEG_QUALITY (90) and the encoder's default 4:2:0 sampling.
 */
#include <cstring>

#include "imaging/codec/session.h"

using scrivo::codec::Layout;

namespace {

struct SessionCloser {
    MHCODEC s = nullptr;
    ~SessionCloser() { MCodec_Destroy(s); }
};

MRESULT Load(MHAMCM manager, MHStream stream, uint32_t fileType, MBITMAP* bm, const MRECT* region,
             uint32_t option4107) {
    if (!manager || !stream || !bm) return 2;
    if (fileType == 0) {
        MRESULT r = MdGetImgFileFormat(stream, &fileType);
        if (r != 0) return r;
    }
    if (fileType != MD_FILETYPE_JPEG && fileType != MD_FILETYPE_BMP &&
        fileType != MD_FILETYPE_PNG && fileType != MD_FILETYPE_GIF)
        return 2;
    const Layout layout = scrivo::codec::LayoutOf(bm->pixelFormat);
    if ((bm->pixelFormat & 0xF0000000u) == 0x50000000u && fileType != MD_FILETYPE_JPEG) return 3;
    if (MStreamSeek(stream, 0, 0) != 0) return 4102;
    SessionCloser session;
    MRESULT r = MCodec_DecodeCreate(manager, stream, 0, &session.s);
    if (r != 0) return r;
    int32_t wh[2] = {};
    if ((r = MCodec_GetProp(session.s, MD_PROP_IMAGE_SIZE, wh, 8)) != 0) return r;
    const bool hasRegion = region && region->right > region->left && region->bottom > region->top;
    const MRECT g = hasRegion ? *region : MRECT{0, 0, wh[0], wh[1]};
    if (bm->width <= 0) bm->width = g.right - g.left;
    if (bm->height < 1) bm->height = g.bottom - g.top;
    bool allocated = false;
    if (!bm->plane[0]) {
        if (layout == Layout::Unsupported) return 3;
        if ((r = MdBitmapAlloc(nullptr, bm)) != 0) return r;
        allocated = true;
    }
    const uint8_t option = 1;
    const int32_t size[2] = {bm->width, bm->height};
    const uint32_t oldFormat = MdUtilsNewColorID2Old(bm->pixelFormat);
    int32_t done = 0, status = 0;
    if (fileType == MD_FILETYPE_PNG || fileType == MD_FILETYPE_BMP)
        MCodec_SetProp(session.s, MD_PROP_OPTION_BYTE, &option, 1);
    if (fileType == MD_FILETYPE_JPEG) r = MCodec_SetProp(session.s, MD_PROP_DST_REGION, &g, 16);
    if (r == 0) r = MCodec_SetProp(session.s, MD_PROP_ZOOM_SCALE, size, 8);
    if (r == 0) r = MCodec_SetProp(session.s, MD_PROP_OPTION_4107, &option4107, 4);
    if (r == 0) r = MCodec_SetProp(session.s, MD_PROP_PIXEL_FORMAT, &oldFormat, 4);
    if (r == 0) r = MCodec_DecodeScanlines(session.s, bm, nullptr, &done, &status);
    if (r == 0 && done != bm->height) r = 1;
    if (r != 0 && allocated) MdBitmapFree(nullptr, bm);
    return r;
}

}  // namespace

extern "C" MRESULT MdBitmapLoad(MHAMCM manager, MHStream stream, uint32_t fileType,
                                MBITMAP* bitmap) {
    return Load(manager, stream, fileType, bitmap, nullptr, 0);
}

extern "C" MRESULT MdBitmapLoadEx(MHAMCM manager, MHStream stream, uint32_t fileType,
                                  MBITMAPEX* bitmap) {
    if (!bitmap) return 2;
    return Load(manager, stream, fileType, &bitmap->bitmap, &bitmap->srcRegion, bitmap->option4107);
}

extern "C" MRESULT MdBitmapSave(MHAMCM manager, MHStream stream, uint32_t fileType,
                                const MBITMAP* bm) {
    if (!manager || !stream || !bm || !bm->plane[0] || bm->width <= 0 || bm->height <= 0) return 2;
    MENCODE_TARGET t{stream, bm->width, bm->height, bm->pixelFormat, 1000, 1000};
    SessionCloser session;
    MRESULT r = MCodec_EncodeCreate(manager, &t, fileType, 0, &session.s);
    if (r != 0) return r;
    const int32_t quality = MD_DEFAULT_JPEG_QUALITY;
    const uint32_t oldFormat = MdUtilsNewColorID2Old(bm->pixelFormat);
    int32_t lines = bm->height, done = 0;
    if ((r = MCodec_SetProp(session.s, MD_PROP_JPEG_QUALITY, &quality, 4)) != 0) return r;
    if ((r = MCodec_SetProp(session.s, MD_PROP_PIXARRAY_FORMAT, &oldFormat, 4)) != 0) return r;
    return MCodec_EncodeScanlines(session.s, bm, &lines, &done);
}

extern "C" MRESULT MdBitmapSave2(MHAMCM manager, const char* path, uint32_t fileType,
                                 const MBITMAP* bm) {
    if (!path) return 2;
    MHStream st = MStreamOpenFromFileS(path, 2);
    if (!st) return 4103;
    MRESULT r = MdBitmapSave(manager, st, fileType, bm);
    if (MStreamClose(st) != 1 && r == 0) r = 4103;
    return r;
}

extern "C" MRESULT MdBitmapAlloc(MHandle mem, MBITMAP* bm) {
    if (!bm || bm->width <= 0 || bm->height <= 0) return 2;
    const Layout l = scrivo::codec::LayoutOf(bm->pixelFormat);
    const bool packed32 = (bm->pixelFormat & 0xFF000FFFu) == 0x37000777u ||
                          (bm->pixelFormat & 0xFF000FFFu) == 0x16000777u;
    const size_t w = static_cast<size_t>(bm->width), h = static_cast<size_t>(bm->height);
    const size_t cw = (w + 1) / 2, ch = (h + 1) / 2;
    size_t sizes[3] = {};
    int32_t pitches[3] = {};
    if (l == Layout::Rgba || packed32) {
        sizes[0] = w * h * 4;
        pitches[0] = bm->width * 4;
    } else if (l == Layout::Gray) {
        sizes[0] = w * h;
        pitches[0] = bm->width;
    } else if (l == Layout::I420) {
        sizes[0] = w * h;
        sizes[1] = sizes[2] = cw * ch;
        pitches[0] = bm->width;
        pitches[1] = pitches[2] = static_cast<int32_t>(cw);
    } else if (l == Layout::NV21) {
        sizes[0] = w * h;
        sizes[1] = cw * 2 * ch;
        pitches[0] = bm->width;
        pitches[1] = static_cast<int32_t>(cw * 2);
    } else {
        return 3;
    }
    uint8_t* planes[3] = {};
    for (int i = 0; i < 3; ++i) {
        if (!sizes[i]) continue;
        planes[i] = static_cast<uint8_t*>(MMemAlloc(mem, sizes[i]));
        if (!planes[i]) {
            for (int j = 0; j < i; ++j) MMemFree(mem, planes[j]);
            return 4;
        }
    }
    for (int i = 0; i < 3; ++i) {
        bm->plane[i] = planes[i];
        bm->pitch[i] = pitches[i];
    }
    return 0;
}

extern "C" MRESULT MdBitmapFree(MHandle mem, MBITMAP* bm) {
    if (!bm) return 2;
    for (int i = 0; i < 3; ++i) {
        if (bm->plane[i]) MMemFree(mem, bm->plane[i]);
        bm->plane[i] = nullptr;
    }
    return 0;
}
