/*
 * Capture outputs: the rectified and the enhanced page, into a caller's
 * RGBA bitmap or as JPEG bytes with the photograph's EXIF block.
 *
 * Bitmaps are reached through QvBitmapAccess (getInfo, then the format
 * check, then lockPixels, then the null-pixel check), each failure with its
 * own log line and code; a bitmap whose getInfo or lockPixels call is
 * missing is treated like no bitmap at all. The page is written as rows of
 * width x 4 bytes, so a bitmap whose rows are laid out otherwise is refused.
 *
 * The engine copies a page only into a record of exactly the page's size
 * and says nothing when it does not, so every step makes sure of the size
 * before it asks: the rectified bitmap must have the size of the page for
 * its corners, the enhanced bitmap and the enhanced bytes the size of the
 * rectified page the engine holds (the enhanced bytes are made at the size
 * of the last size query, which therefore has to be that size). A step out
 * of order answers with its own code and leaves the engine's images as
 * they were. After the engine's step the page it made is checked once more
 * against the record, so a step that produced no page, or one of another
 * size, fails instead of delivering the untouched record.
 *
 * JPEG outputs render the page into a zeroed block owned here, encode it
 * into an empty growable memory stream, put the EXIF block with a new
 * thumbnail into it when the photograph had one, and copy the stream into a
 * heap block for the caller. A failed encoding delivers nothing: a caller
 * never receives a partial or empty JPEG. The pages are encoded with the
 * session's JPEG quality (0 keeps the framework's default save, 4:2:0); the
 * thumbnail always uses the default.
 */
#include <cstring>
#include <memory>
#include <new>

#include "pixel/large_image.h"
#include "session/session_internal.h"

using scrivo::session::EnhancedPageSize;
using scrivo::session::RectifiedPageSize;
using scrivo::session::RefusedCorners;
using scrivo::session::Since;
using scrivo::session::StreamCloser;

namespace scrivo::session {

PageBlock::PageBlock(int32_t width, int32_t height) {
    if (width < 0 || height < 0) return;
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 4;
    data_ = static_cast<uint8_t*>(scrivo::pixel::AllocLargeBlock(bytes));
    if (data_ != nullptr) std::memset(data_, 0, bytes);
}

PageBlock::~PageBlock() {
    scrivo::pixel::FreeLargeBlock(data_);
}

MRESULT SaveJpeg(MHAMCM manager, MHStream stream, const MBITMAP* bm, int32_t quality) {
    if (quality <= 0) return MdBitmapSave(manager, stream, MD_FILETYPE_JPEG, bm);
    if (!manager || !stream || !bm || !bm->plane[0] || bm->width <= 0 || bm->height <= 0)
        return MERR_INVALID_PARAM;
    MENCODE_TARGET target{stream, bm->width, bm->height, bm->pixelFormat, 1000, 1000};
    MHCODEC codec = nullptr;
    MRESULT r = MCodec_EncodeCreate(manager, &target, MD_FILETYPE_JPEG, 0, &codec);
    if (r != 0) return r;
    std::unique_ptr<MCODEC_SESSION, MRESULT (*)(MHCODEC)> closer(codec, MCodec_Destroy);
    const uint32_t oldFormat = MdUtilsNewColorID2Old(bm->pixelFormat);
    int32_t lines = bm->height, done = 0;
    if ((r = MCodec_SetProp(codec, MD_PROP_JPEG_QUALITY, &quality, 4)) != 0) return r;
    if ((r = MCodec_SetProp(codec, MD_PROP_PIXARRAY_FORMAT, &oldFormat, 4)) != 0) return r;
    return MCodec_EncodeScanlines(codec, bm, &lines, &done);
}

int32_t EncodePage(QvSession* s, uint8_t* pixels, int32_t width, int32_t height, const char* step,
                   uint8_t** data, int32_t* length) {
    MBITMAP bitmap{};
    bitmap.pixelFormat = MPAF_RGBA8888;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.pitch[0] = width * 4;
    bitmap.plane[0] = pixels;
    StreamCloser stream(MStreamOpenFromMemoryBlock(nullptr, 0));
    if (!stream.s) return 0;
    const MRESULT res = SaveJpeg(s->m_hAMCM, stream.s, &bitmap, s->jpegQuality);
    if (res == 0 && s->m_dwExifDataLen != 0) {
        const MRESULT exifRes = RepalceExifInfoThumbnail(s, stream.s, &bitmap);
        MLogPrint(MLOG_DEBUG, "%s RepalceExifInfoThumbnail res = %d", step,
                  static_cast<int>(exifRes));
    }
    if (res != 0) return 0;
    const int32_t size = MStreamGetSize(stream.s);
    if (size <= 0 || MStreamSeek(stream.s, MSTREAM_SEEK_BEGIN, 0) != 0) return 0;
    uint8_t* bytes = static_cast<uint8_t*>(MMemAlloc(nullptr, static_cast<size_t>(size)));
    if (!bytes) return 0;
    if (MStreamRead(stream.s, bytes, size) != size) {
        MMemFree(nullptr, bytes);
        return 0;
    }
    *data = bytes;
    *length = size;
    return 1;
}

}  // namespace scrivo::session

namespace {

/* The checks of a caller's bitmap; the result is 0 and the pixels, or the
 * step's code. `line` and `noBitmapCode` differ between the two
 * bitmap steps. */
int32_t LockBitmap(const char* step, const QvBitmapAccess* access, int line, int32_t noBitmapCode,
                   QvBitmapInfo* info, uint8_t** pixels) {
    if (!access || !access->bitmap || !access->getInfo || !access->lockPixels) {
        MLogPrint(MLOG_DEBUG, "%s [Ln%d] bitmap=MNull", step, line);
        return noBitmapCode;
    }
    const int32_t rc = access->getInfo(access->context, access->bitmap, info);
    if (rc < 0) {
        MLogPrint(MLOG_DEBUG, "%s AndroidBitmap_getInfo Error: %d", step, rc);
        return rc;
    }
    MLogPrint(MLOG_DEBUG, "%s format=%d", step, info->format);
    if (info->format != QV_BITMAP_FORMAT_RGBA_8888) {
        MLogPrint(MLOG_DEBUG, "%s info.format != ANDROID_BITMAP_FORMAT_RGBA_8888", step);
        return QV_SESSION_BAD_ARGUMENT;
    }
    if (info->stride != info->width * 4u || info->width > INT32_MAX / 4 ||
        info->height > INT32_MAX) {
        return QV_SESSION_BAD_ARGUMENT;
    }
    void* p = nullptr;
    if (access->lockPixels(access->context, access->bitmap, &p) < 0) {
        MLogPrint(MLOG_DEBUG, "%s AndroidBitmap_lockPixels  Error", step);
        return QV_SESSION_BAD_ARGUMENT;
    }
    if (p == nullptr) {
        MLogPrint(MLOG_DEBUG, "%s pixels = MNull", step);
        return QV_SESSION_BAD_ARGUMENT;
    }
    *pixels = static_cast<uint8_t*>(p);
    return QV_SESSION_OK;
}

/* The 4-channel record over a bitmap's pixels (sizes checked by LockBitmap). */
void DescribeBitmap(tagVPImage* rec, const QvBitmapInfo& info, uint8_t* pixels) {
    const int32_t w = static_cast<int32_t>(info.width);
    *rec = tagVPImage{VP_FORMAT_RGB, 4, 8, w, w * 4, static_cast<int32_t>(info.height), pixels};
}

bool SameSize(const QvBitmapInfo& info, int32_t width, int32_t height) {
    return static_cast<int64_t>(info.width) == width && static_cast<int64_t>(info.height) == height;
}

/* Whether the engine's image (read by `size`) is width x height, i.e. was
 * copied into a record of that size. */
bool Delivered(bool (*size)(VPHandle, int32_t*, int32_t*), VPHandle engine, int32_t width,
               int32_t height) {
    int32_t w = 0, h = 0;
    return size(engine, &w, &h) && w == width && h == height;
}

bool KnownMethod(int32_t method) {
    return method >= VP_ENHANCE_NONE && method <= VP_ENHANCE_ECONOMIC;
}

bool ValidOut(uint8_t** data, int32_t* length) {
    if (!data || !length) return false;
    *data = nullptr;
    *length = 0;
    return true;
}

}  // namespace

extern "C" int32_t QvSession_GetRectifiedImage(QvSession* s, VPHandle engine,
                                               const tagVPPoint* points, int32_t count,
                                               const QvBitmapAccess* bitmap) {
    static const char kStep[] = "JNI_GetRectifiedImage";
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    MLogPrint(MLOG_DEBUG, "JNI_GetRectifiedImage in <----");
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    if (!scrivo::session::HoldsPhotograph(engine)) return QV_SESSION_FAILED;  // released
    std::unique_ptr<tagVPImage> rec(new (std::nothrow) tagVPImage{});
    if (!rec) return QV_SESSION_NO_BITMAP;
    if (count != 4 || points == nullptr) return QV_SESSION_BAD_ARGUMENT;
    tagVPPoint quad[4] = {points[0], points[1], points[2], points[3]};
    QvBitmapInfo info{};
    uint8_t* pixels = nullptr;
    const int32_t rc = LockBitmap(kStep, bitmap, 631, QV_SESSION_NO_BITMAP, &info, &pixels);
    if (rc != QV_SESSION_OK) return rc;
    int32_t w = 0, h = 0;
    if (!VPGetRectifiedImageSize(engine, quad, &w, &h)) return RefusedCorners(engine, quad);
    if (!SameSize(info, w, h)) return QV_SESSION_WRONG_SIZE;
    DescribeBitmap(rec.get(), info, pixels);
    tagVPImage* out = rec.get();
    const uint32_t t0 = MGetCurTimeStamp();
    const uint32_t ok = VPRectifyVertexArea(engine, quad, &out);
    MLogPrint(MLOG_DEBUG, "QvNote performance native VPRectifyVertexArea cost %d", Since(t0));
    if (!ok || !Delivered(RectifiedPageSize, engine, w, h)) return QV_SESSION_FAILED;
    rec.reset();
    MLogPrint(MLOG_DEBUG, "JNI_GetRectifiedImage out ---->");
    return QV_SESSION_OK;
}

namespace {

/* What both rectifications without a caller's bitmap do: the corners
 * checked and sized, and the page made in the engine alone (a record
 * without pixels, which the engine fills with nothing). */
int32_t RectifyInEngine(VPHandle engine, const tagVPPoint* points, int32_t count, int32_t* w,
                        int32_t* h) {
    if (!scrivo::session::HoldsPhotograph(engine)) return QV_SESSION_FAILED;  // released
    if (count != 4 || points == nullptr) return QV_SESSION_BAD_ARGUMENT;
    tagVPPoint quad[4] = {points[0], points[1], points[2], points[3]};
    if (!VPGetRectifiedImageSize(engine, quad, w, h)) return RefusedCorners(engine, quad);
    tagVPImage rec{VP_FORMAT_RGB, 4, 8, *w, *w * 4, *h, nullptr};
    tagVPImage* out = &rec;
    const uint32_t t0 = MGetCurTimeStamp();
    const uint32_t ok = VPRectifyVertexArea(engine, quad, &out);
    MLogPrint(MLOG_DEBUG, "QvNote performance native VPRectifyVertexArea cost %d", Since(t0));
    return ok && Delivered(RectifiedPageSize, engine, *w, *h) ? QV_SESSION_OK : QV_SESSION_FAILED;
}

}  // namespace

extern "C" int32_t QvSession_Rectify(QvSession* s, VPHandle engine, const tagVPPoint* points,
                                     int32_t count) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    int32_t w = 0, h = 0;
    return RectifyInEngine(engine, points, count, &w, &h);
}

extern "C" int32_t QvSession_GetEnhancedImage(QvSession* s, VPHandle engine, int32_t method,
                                              const QvBitmapAccess* bitmap) {
    static const char kStep[] = "JNI_GetEnhancedImage";
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    MLogPrint(MLOG_DEBUG, "JNI_GetEnhancedImage in <----");
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    std::unique_ptr<tagVPImage> rec(new (std::nothrow) tagVPImage{});
    if (!rec) return QV_SESSION_NO_BITMAP;
    if (!KnownMethod(method)) return QV_SESSION_UNKNOWN_METHOD;
    QvBitmapInfo info{};
    uint8_t* pixels = nullptr;
    const int32_t rc = LockBitmap(kStep, bitmap, 785, QV_SESSION_NO_BITMAP, &info, &pixels);
    if (rc != QV_SESSION_OK) return rc;
    int32_t w = 0, h = 0;
    if (!RectifiedPageSize(engine, &w, &h)) return QV_SESSION_NOT_RECTIFIED;
    if (!SameSize(info, w, h)) return QV_SESSION_WRONG_SIZE;
    DescribeBitmap(rec.get(), info, pixels);
    tagVPImage* out = rec.get();
    const bool ok =
        VPEnhancement(engine, method, &out) && Delivered(EnhancedPageSize, engine, w, h);
    rec.reset();
    MLogPrint(MLOG_DEBUG, "JNI_GetEnhancedImage out ---->");
    return ok ? QV_SESSION_OK : QV_SESSION_FAILED;
}

extern "C" int32_t QvSession_GetPhotograph(QvSession* s, VPHandle engine,
                                           const QvBitmapAccess* bitmap) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    int32_t w = 0, h = 0;
    if (!scrivo::session::PhotographSize(engine, &w, &h)) return QV_SESSION_FAILED;
    QvBitmapInfo info{};
    uint8_t* pixels = nullptr;
    const int32_t rc = LockBitmap("QvSession_GetPhotograph", bitmap, __LINE__, QV_SESSION_NO_BITMAP,
                                  &info, &pixels);
    if (rc != QV_SESSION_OK) return rc;
    if (!SameSize(info, w, h)) return QV_SESSION_WRONG_SIZE;
    tagVPImage rec{};
    DescribeBitmap(&rec, info, pixels);
    return scrivo::session::CopyPhotograph(engine, &rec) ? QV_SESSION_OK : QV_SESSION_FAILED;
}

extern "C" int32_t QvSession_GetRectifiedImageData(QvSession* s, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   uint8_t** data, int32_t* length) {
    if (!s || !ValidOut(data, length)) return QV_SESSION_BAD_ARGUMENT;
    // The bitmap step's entry line: the host's log readers expect it here.
    MLogPrint(MLOG_DEBUG, "JNI_GetRectifiedImage in <----");
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    // The page's four-byte block is made after the warp, not beside the
    // photograph and the page while it runs (the capture's peak).
    int32_t w = 0, h = 0;
    const int32_t made = RectifyInEngine(engine, points, count, &w, &h);
    if (made != QV_SESSION_OK) return made;
    const scrivo::session::PageBlock pixels(w, h);
    if (pixels.data() == nullptr) return QV_SESSION_NO_BITMAP;
    tagVPImage rec{VP_FORMAT_RGB, 4, 8, w, w * 4, h, pixels.data()};
    if (!scrivo::session::CopyRectifiedPage(engine, &rec)) return QV_SESSION_FAILED;
    const uint32_t t0 = MGetCurTimeStamp();
    const int32_t delivered = scrivo::session::EncodePage(
        s, pixels.data(), w, h, "JNI_GetRectifiedImageData", data, length);
    MLogPrint(MLOG_DEBUG, "QvNote performance native encode cost %d", Since(t0));
    return delivered ? QV_SESSION_OK : QV_SESSION_NOT_ENCODED;
}

namespace {

int32_t EnhanceAndEncode(QvSession* s, VPHandle engine, int32_t method, uint8_t** data,
                         int32_t* length) {
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    if (!KnownMethod(method)) return QV_SESSION_UNKNOWN_METHOD;
    int32_t w = 0, h = 0;
    if (!RectifiedPageSize(engine, &w, &h)) return QV_SESSION_NOT_RECTIFIED;
    // The bytes are made at the size of the last size query: before any
    // query, or after one for other corners, the page would not fit.
    if (s->m_lRectifiedWidth != w || s->m_lRectifiedHeight != h) return QV_SESSION_NOT_SIZED;
    // The page's four-byte block is made once the enhancement's own working
    // images are gone: it would otherwise add to the capture's peak.
    tagVPImage* none = nullptr;
    if (!VPEnhancement(engine, method, &none) || !Delivered(EnhancedPageSize, engine, w, h))
        return QV_SESSION_FAILED;
    const scrivo::session::PageBlock pixels(w, h);
    if (pixels.data() == nullptr) return QV_SESSION_NO_BITMAP;
    tagVPImage rec{VP_FORMAT_RGB, 4, 8, w, w * 4, h, pixels.data()};
    if (!scrivo::session::CopyEnhancedPage(engine, &rec)) return QV_SESSION_FAILED;
    return scrivo::session::EncodePage(s, pixels.data(), w, h, "JNI_GetEnhancedImageData", data,
                                       length)
               ? QV_SESSION_OK
               : QV_SESSION_NOT_ENCODED;
}

}  // namespace

extern "C" int32_t QvSession_GetEnhancedImageData(QvSession* s, VPHandle engine, int32_t method,
                                                  uint8_t** data, int32_t* length) {
    if (!s || !ValidOut(data, length)) return QV_SESSION_BAD_ARGUMENT;
    MLogPrint(MLOG_DEBUG, "JNI_GetEnhancedImageData in <----");
    const int32_t result = EnhanceAndEncode(s, engine, method, data, length);
    MLogPrint(MLOG_DEBUG, "JNI_GetEnhancedImageData out ---->");
    return result;
}
