/*
 * Stand-alone JPEG in/out helpers over the codec framework: whole and
 * stepwise decoding, whole and stepwise encoding, saving a bitmap under a
 * free file name, and a small JPEG thumbnail of a camera frame. The capture
 * steps do not use them; they are the library's toolkit for host code that
 * handles camera frames and files itself.
 *
 * Decoding reads the JPEG from the stream's start, wherever its position.
 * - DecodeJPEG runs a thin decoder session (the component's own size, the
 *   bitmap's colour ID: R,G,B,A, grey, I420 or NV21) and allocates the
 *   record's planes; DecodeCreate / DecodeStepJPEG / DecodeDestroy decode
 *   any region of the image scaled to the record's size, as often as
 *   wanted on one decoder (each step sets region, size and format anew).
 * - EncodeCreate opens an encoder session with its quality and input
 *   format set; EncodeStepJPEG feeds bands top to bottom; EncodeJPEG does
 *   it in one call. NV21 input is repacked into I420 by the encode session
 *   (the encoder takes planar chroma); R,G,B,A, B,G,R,A and grey are taken
 *   as they are.
 * - RenameImage names files "<folder>QvScan_<k>.jpg" (the folder given with
 *   its trailing separator); SaveData takes the first free k. An NV21 frame
 *   is converted to 32-bit R,G,B,A before saving (full-range matrix).
 * - SetThumbnailStream keeps the whole frame when it has one of the two
 *   usual camera proportions (3:4 and 0.818) and otherwise crops the centre
 *   to the thumbnail's proportions (even offsets, so YUV chroma stays
 *   aligned) before the box-filtered reduction.
 */
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "scrivo/bitmap.h"

namespace {

/* The encoder's input format for a bitmap's colour ID (old scheme). */
bool EncoderFormat(uint32_t id, uint32_t* old) {
    switch (id) {
        case 0x50000810u:
            *old = 20;
            return true;
        case 0x50000800u:
            *old = 21;
            return true;
        case 0x50000801u:
            *old = 19;
            return true;
        case 0x50000811u:
            *old = 15;
            return true;
        case 0x70000002u:
            *old = 0x70001002u;
            return true;
        case 0x37001777u:
            *old = 36;
            return true;
        case 0x37000777u:
            *old = 37;
            return true;
        case 0x64000000u:
            *old = 29;
            return true;
        default:
            return false;
    }
}

struct ThinDecoder {
    MHIDEC d = nullptr;
    ~ThinDecoder() { MIDec_Destroy(d); }
};

}  // namespace

extern "C" MRESULT DecodeJPEG(MHAMCM manager, MHStream stream, MBITMAP* bitmap) {
    MLogPrint(MLOG_DEBUG, "DecodeJPEG start");
    if (!manager || !stream || !bitmap || bitmap->plane[0]) return MERR_INVALID_PARAM;
    ThinDecoder dec;
    if (MStreamSeek(stream, MSTREAM_SEEK_BEGIN, 0) != 0) return MERR_SEEK_FAILED;
    MRESULT r = MIDec_Create(manager, stream, &dec.d);
    if (r != 0) {
        dec.d = nullptr;
        MLogPrint(MLOG_DEBUG, "DecodeJPEG MIDec_Create fail");
        return r;
    }
    int32_t size[2] = {};
    if ((r = MIDec_GetProp(dec.d, MD_PROP_IMAGE_SIZE, size, 8)) != 0) {
        MLogPrint(MLOG_DEBUG, "DecodeJPEG MIDec_GetProp fail");
        return r;
    }
    if (bitmap->pixelFormat == 0) bitmap->pixelFormat = MPAF_RGBA8888;
    // NV21 has no row in the colour-ID table: callers name its old ID.
    const uint32_t old = bitmap->pixelFormat == MPAF_OTHERS_NV21
                             ? 0x70001002u
                             : MdUtilsNewColorID2Old(bitmap->pixelFormat);
    if ((r = MIDec_SetProp(dec.d, MD_PROP_PIXEL_FORMAT, &old, 4)) != 0) {
        MLogPrint(MLOG_DEBUG, "DecodeJPEG MIDec_SetProp fail");
        return r;
    }
    bitmap->width = size[0];
    bitmap->height = size[1];
    if ((r = MdBitmapAlloc(nullptr, bitmap)) != 0) return r;
    int32_t done = 0;
    r = MIDec_Scanlines(dec.d, bitmap, bitmap->height, &done);
    if (r == 0 && done != bitmap->height) r = MERR_UNKNOWN;
    if (r != 0) {
        MdBitmapFree(nullptr, bitmap);
        MLogPrint(MLOG_DEBUG, "DecodeJPEG MIDec_Scanlines fail");
        return r;
    }
    MLogPrint(MLOG_DEBUG, "DecodeJPEG end");
    return MOK;
}

extern "C" MRESULT DecodeCreate(MHAMCM manager, MHStream stream, MHCODEC* decoder) {
    if (!decoder) return MERR_INVALID_PARAM;
    *decoder = nullptr;
    if (!stream || MStreamSeek(stream, MSTREAM_SEEK_BEGIN, 0) != 0) return MERR_INVALID_PARAM;
    const MRESULT r = MCodec_DecodeCreate(manager, stream, 0, decoder);
    if (r != 0) {
        *decoder = nullptr;
        MLogPrint(MLOG_DEBUG, "error for DecodeCreate");
    }
    return r;
}

extern "C" MRESULT DecodeStepJPEG(MHCODEC decoder, const MRECT* region, MBITMAP* bitmap) {
    if (!decoder || !bitmap) {
        MLogPrint(MLOG_DEBUG, "error for invalid param");
        return MERR_INVALID_PARAM;
    }
    if (!bitmap->plane[0]) {
        MLogPrint(MLOG_DEBUG, "error not data");
        return MERR_INVALID_PARAM;
    }
    int32_t size[2] = {};
    MRESULT r = MCodec_GetProp(decoder, MD_PROP_IMAGE_SIZE, size, 8);
    if (r != 0) return r;
    const MRECT whole{0, 0, size[0], size[1]};
    const MRECT g = region ? *region : whole;
    if (bitmap->width <= 0 || bitmap->height <= 0 || g.left < 0 || g.top < 0 || g.right <= g.left ||
        g.bottom <= g.top || g.right > size[0] || g.bottom > size[1]) {
        MLogPrint(MLOG_DEBUG, "error not correct size");
        return MERR_INVALID_PARAM;
    }
    if ((r = MCodec_SetProp(decoder, MD_PROP_DST_REGION, &g, 16)) != 0) {
        MLogPrint(MLOG_DEBUG, "error SetProp DST_REGION");
        return r;
    }
    const int32_t dst[2] = {bitmap->width, bitmap->height};
    if ((r = MCodec_SetProp(decoder, MD_PROP_ZOOM_SCALE, dst, 8)) != 0) {
        MLogPrint(MLOG_DEBUG, "error SetProp ZOOM_SCALE");
        return r;
    }
    const uint32_t old = MdUtilsNewColorID2Old(bitmap->pixelFormat);
    if ((r = MCodec_SetProp(decoder, MD_PROP_PIXEL_FORMAT, &old, 4)) != 0) {
        MLogPrint(MLOG_DEBUG, "error SetProp PIXEL_FORMAT");
        return r;
    }
    int32_t done = 0, status = 0;
    r = MCodec_DecodeScanlines(decoder, bitmap, nullptr, &done, &status);
    if (r == 0 && done != bitmap->height) r = MERR_UNKNOWN;
    if (r != 0) MLogPrint(MLOG_DEBUG, "error DecodeScanlines");
    return r;
}

extern "C" MRESULT DecodeDestroy(MHCODEC decoder) {
    return decoder ? MCodec_Destroy(decoder) : 0;
}

extern "C" MRESULT EncodeCreate(MHAMCM manager, MHStream stream, int32_t width, int32_t height,
                                uint32_t colorId, int32_t quality, MHCODEC* encoder) {
    if (!encoder) return MERR_INVALID_PARAM;
    *encoder = nullptr;
    uint32_t old = 0;
    if (!EncoderFormat(colorId, &old)) return MERR_UNSUPPORTED;
    const MENCODE_TARGET target{stream, width, height, colorId, 1000, 1000};
    MHCODEC enc = nullptr;
    MRESULT r = MCodec_EncodeCreate(manager, &target, MD_FILETYPE_JPEG, 0, &enc);
    if (r != 0) {
        MLogPrint(MLOG_DEBUG, "error for EncodeCreate");
        return r;
    }
    if ((r = MCodec_SetProp(enc, MD_PROP_JPEG_QUALITY, &quality, 4)) != 0) {
        MLogPrint(MLOG_DEBUG, "error for SetProp JPEG_QUALIT");
    } else if ((r = MCodec_SetProp(enc, MD_PROP_PIXARRAY_FORMAT, &old, 4)) != 0) {
        MLogPrint(MLOG_DEBUG, "error for SetProp PIXARRAY_FORMAT");
    }
    if (r != 0) {
        MCodec_Destroy(enc);
        return r;
    }
    *encoder = enc;
    return MOK;
}

extern "C" MRESULT EncodeStepJPEG(MHCODEC encoder, const MBITMAP* band, int32_t lines) {
    if (!encoder || !band || !band->plane[0] || lines <= 0) return MERR_INVALID_PARAM;
    int32_t count = lines, done = 0;
    const MRESULT r = MCodec_EncodeScanlines(encoder, band, &count, &done);
    return r == 0 && done != lines ? MRESULT{MERR_UNKNOWN} : r;
}

extern "C" MRESULT EncodeDestroy(MHCODEC encoder) {
    return encoder ? MCodec_Destroy(encoder) : 0;
}

extern "C" MRESULT EncodeJPEG(MHAMCM manager, const MBITMAP* bitmap, int32_t quality,
                              MHStream stream) {
    if (!manager || !bitmap || !stream || !bitmap->plane[0] || bitmap->width <= 0 ||
        bitmap->height <= 0)
        return MERR_INVALID_PARAM;
    uint32_t old = 0;
    if (!EncoderFormat(bitmap->pixelFormat, &old)) return MERR_UNSUPPORTED;
    MHCODEC enc = nullptr;
    MRESULT r = EncodeCreate(manager, stream, bitmap->width, bitmap->height, bitmap->pixelFormat,
                             quality, &enc);
    if (r != 0) return r;
    r = EncodeStepJPEG(enc, bitmap, bitmap->height);
    EncodeDestroy(enc);
    return r;
}

extern "C" MRESULT RenameImage(char* pathOut, int32_t number, const char* folder) {
    if (!pathOut || !folder) return MERR_INVALID_PARAM;
    std::memset(pathOut, 0, QV_IMAGE_PATH_SIZE);
    const int n = std::snprintf(pathOut, QV_IMAGE_PATH_SIZE, "%s%s%d%s", folder, "QvScan_",
                                static_cast<int>(number), ".jpg");
    if (n < 0 || n >= QV_IMAGE_PATH_SIZE) {
        std::memset(pathOut, 0, QV_IMAGE_PATH_SIZE);
        return MERR_INVALID_PARAM;
    }
    MLogPrint(MLOG_DEBUG, "RenameImage save path %s", pathOut);
    return MStreamFileExistsS(pathOut) ? QV_FILE_EXISTS : MRESULT{MOK};
}

extern "C" MRESULT SaveData(MHAMCM manager, const MBITMAP* bitmap, const char* folder,
                            char* pathOut) {
    MLogPrint(MLOG_DEBUG, "SaveData start");
    if (!manager || !bitmap || !folder || !pathOut) return MERR_INVALID_PARAM;
    MRESULT r = QV_FILE_EXISTS;
    for (int32_t k = 1; r == QV_FILE_EXISTS && k <= 100000; ++k)
        r = RenameImage(pathOut, k, folder);
    if (r != 0) return r;
    MBITMAP rgba{};
    struct Freer {
        MBITMAP* b;
        ~Freer() { MdBitmapFree(nullptr, b); }
    } freeRgba{&rgba};
    const MBITMAP* toSave = bitmap;
    if (bitmap->pixelFormat == MPAF_OTHERS_NV21) {
        if ((r = UTIL_MBitmapCreate(&rgba, MPAF_RGBA8888, bitmap->width, bitmap->height)) != 0)
            return r;
        if ((r = ConvertCS(&rgba, bitmap, 0, 2, 1)) != 0) return r;
        toSave = &rgba;
    }
    r = MdBitmapSave2(manager, pathOut, MD_FILETYPE_JPEG, toSave);
    MLogPrint(MLOG_DEBUG, "SaveData end");
    return r;
}

namespace {

/* A view of src from (x, y) with the given size; x and y are even. */
MBITMAP SubView(const MBITMAP* src, int32_t x, int32_t y, int32_t w, int32_t h) {
    MBITMAP v = *src;
    v.width = w;
    v.height = h;
    const int32_t bpp = GetColorDepth(src->pixelFormat) == 32 ? 4 : 1;
    v.plane[0] = src->plane[0] + ptrdiff_t(y) * src->pitch[0] + ptrdiff_t(x) * bpp;
    if (src->pixelFormat == MPAF_OTHERS_NV21) {
        v.plane[1] = src->plane[1] + ptrdiff_t(y / 2) * src->pitch[1] + x;
    } else if ((src->pixelFormat & ~0x3000u) == MPAF_I420) {
        for (int p = 1; p < 3; ++p)
            v.plane[p] = src->plane[p] + ptrdiff_t(y / 2) * src->pitch[p] + x / 2;
    }
    return v;
}

}  // namespace

extern "C" MRESULT SetThumbnailStream(MHAMCM manager, const MBITMAP* source, int32_t width,
                                      int32_t height, MHStream stream) {
    MLogPrint(MLOG_DEBUG, "SetThumbnailStream <----");
    MLogPrint(MLOG_DEBUG, "width=%d, height=%d<---", width, height);
    MRESULT res = MERR_INVALID_PARAM;
    if (manager && source && stream && source->plane[0] && source->width > 0 &&
        source->height > 0 && width >= 1 && width <= 639 && height >= 1 && height <= 479) {
        MBITMAP thumb{};
        res = UTIL_MBitmapCreate(&thumb, MPAF_RGBA8888, width, height);
        MLogPrint(MLOG_DEBUG, "bitmapThumbnail  w=%d, h=%d", width, height);
        const int32_t sw = source->width, sh = source->height;
        const double ratio = double(sh) / double(sw);
        MLogPrint(MLOG_DEBUG, "pSrcFrame w=%d, h=%d, h/w=%f", sw, sh, ratio);
        MBITMAP view = *source;
        // The two usual camera proportions are scaled whole; anything else is
        // cut to the thumbnail's proportions around the centre first.
        const bool whole = (ratio > 0.7495 && ratio < 0.7505) || (ratio > 0.8175 && ratio < 0.8185);
        if (res == 0 && !whole) {
            int32_t cw = sw, ch = sh;
            if (int64_t(sw) * height > int64_t(sh) * width)
                cw = std::max<int32_t>(1, int32_t(int64_t(sh) * width / height));
            else
                ch = std::max<int32_t>(1, int32_t(int64_t(sw) * height / width));
            const int32_t ox = ((sw - cw) / 2) & ~1, oy = ((sh - ch) / 2) & ~1;
            MLogPrint(MLOG_DEBUG, "lWidhtOffset=%d, lHeightOffset=%d", ox, oy);
            view = SubView(source, ox, oy, cw, ch);
        }
        MLogPrint(MLOG_DEBUG, "bitmap w=%d, h=%d, f=%d", view.width, view.height,
                  static_cast<int>(view.pixelFormat));
        MLogPrint(MLOG_DEBUG, "MPAF_OTHERS_NV21=%d", static_cast<int>(MPAF_OTHERS_NV21));
        MLogPrint(MLOG_DEBUG, "MPAF_I420=%d", static_cast<int>(MPAF_I420));
        if (res == 0) res = ConvertCS(&thumb, &view, 0, 1, 1);
        if (res == 0) res = MdBitmapSave(manager, stream, MD_FILETYPE_JPEG, &thumb);
        MdBitmapFree(nullptr, &thumb);
    }
    MLogPrint(MLOG_DEBUG, "SetThumbnailStream  res=%d ---->", static_cast<int>(res));
    return res;
}
