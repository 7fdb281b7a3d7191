/*
 * Capture sessions: creation from JPEG bytes, page vertices, rectified
 * size and release, with the host methods' log lines and result codes.
 *
 * The log lines carry the names of the host methods they serve
 * ("JNI_CreateEngine in <----"): the JNI natives are thin wrappers over
 * these functions, and the command-line tool shows the same lines.
 *
 * Creation decodes the bytes straight into the engine's three-channel
 * working image (photo_decode.cpp: no four-byte bitmap of the whole
 * photograph, no copy), keeps a copy of the photograph's EXIF block and the
 * length of its thumbnail. The engine's image is then turned
 * into the way viewers show the photograph, by the Orientation of the kept
 * block, and the block is set to Orientation 1: from here on corners and
 * sizes are those of the photograph as viewed, and the pages, upright in
 * their pixels, must not be turned once more by their readers. A turned
 * photograph logs "JNI_CreateEngine orientation = %d". The previous photograph's
 * EXIF copy is dropped first, before anything is decoded: a photograph
 * without EXIF, or one that does not decode, never carries an earlier
 * photograph's block into its pages. A photograph without EXIF is accepted
 * (its GetExifInfo result is 1, logged as "JNI_CreateEngine GetExifInfo res
 * = 1"); a failed thumbnail lookup keeps the block with a thumbnail length
 * of 0.
 *
 * Early returns skip the "out ---->" lines (wrong point count, page not
 * found, stream not opened): the host's log readers rely on the exact
 * sequence, so they are kept. Null sessions, null point arrays and null
 * result pointers are treated as bad arguments and never followed; an
 * engine the session did not make (or has released) is refused after the
 * entry line, before it is touched.
 *
 * "No page" has one answer whatever the engine's page search mode: the
 * verified search reports nothing found with the whole photograph, the
 * fixed steps report the whole photograph as found; both are 1 with the
 * caller's points untouched.
 */
#include <cstring>
#include <new>

#include "session/session_internal.h"

using scrivo::session::IsWholePhotograph;
using scrivo::session::PhotographSize;
using scrivo::session::RefusedCorners;
using scrivo::session::Since;
using scrivo::session::StreamCloser;

namespace {

struct ExifCloser {
    MHExif exif = nullptr;
    bool locked = false;
    ~ExifCloser() {
        if (!exif) return;
        if (locked) MExif_UnLockExifData(exif);
        MExif_Destroy(exif);
    }
};

/* Reads the photograph's EXIF block into the session. The result is the
 * failing step's code, or the thumbnail lookup's result on success. */
MRESULT GetExifInfo(QvSession* s, MHStream stream) {
    MLogPrint(MLOG_DEBUG, "GetExifInfo in <----");
    ExifCloser ex;
    MRESULT res = MExif_Create(nullptr, &ex.exif);
    if (res != 0) {
        ex.exif = nullptr;
        MLogPrint(MLOG_DEBUG, "GetExifInfo MExif_Create fail");
        return res;
    }
    if ((res = MExif_InitFromStream(ex.exif, stream)) != 0) {
        MLogPrint(MLOG_DEBUG, "GetExifInfo MExif_InitFromStream fail");
        return res;
    }
    uint8_t* block = nullptr;
    uint32_t length = 0;
    if ((res = MExif_LockExifData(ex.exif, &block, &length)) != 0) {
        MLogPrint(MLOG_DEBUG, "GetExifInfo MExif_LockExifData fail");
        return res;
    }
    ex.locked = true;
    if (block == nullptr || length == 0) {
        MLogPrint(MLOG_DEBUG, "GetExifInfo Exif info is null");
        return MERR_UNKNOWN;
    }
    s->DropExif();
    s->m_pExifData = static_cast<uint8_t*>(MMemAlloc(nullptr, length));
    if (s->m_pExifData == nullptr) return MERR_NO_MEMORY;
    std::memcpy(s->m_pExifData, block, length);
    s->m_dwExifDataLen = length;
    MLogPrint(MLOG_DEBUG, "GetExifInfo m_dwExifDataLen = %d", static_cast<int>(length));
    uint8_t* thumb = nullptr;
    uint32_t thumbLength = 0;
    res = MeGetThumbnailData(s->m_pExifData, s->m_dwExifDataLen, &thumb, &thumbLength);
    MLogPrint(MLOG_DEBUG, "GetExifInfo MeGetThumbnailData res = %d", static_cast<int>(res));
    if (thumb) MeFreeThumbnailData(thumb);
    s->lThumbLength = res == 0 ? static_cast<int32_t>(thumbLength) : 0;
    MLogPrint(MLOG_DEBUG, "GetExifInfo MdExifGetFieldData lThumbLength = %d", s->lThumbLength);
    MExif_UnLockExifData(ex.exif);
    ex.locked = false;
    MExif_Destroy(ex.exif);
    ex.exif = nullptr;
    MLogPrint(MLOG_DEBUG, "GetExifInfo out ---->");
    return res;
}

/* The kept block's Orientation (1 without a block), which the block then
 * loses: it is set to 1. */
int32_t TakeOrientation(QvSession* s) {
    int32_t orientation = 1;
    if (s->m_pExifData == nullptr ||
        MeGetOrientation(s->m_pExifData, s->m_dwExifDataLen, &orientation) != 0)
        return 1;
    if (orientation != 1) {
        MeSetOrientation(s->m_pExifData, s->m_dwExifDataLen, 1);
        MLogPrint(MLOG_DEBUG, "JNI_CreateEngine orientation = %d", orientation);
    }
    return orientation;
}

}  // namespace

extern "C" QvSession* QvSession_Create(MHAMCM manager) {
    QvSession* s = new (std::nothrow) QvSession;
    if (s) s->m_hAMCM = manager;
    return s;
}

extern "C" void QvSession_Destroy(QvSession* session) {
    delete session;
}

extern "C" void QvSession_SetJpegQuality(QvSession* session, int32_t quality) {
    if (!session) return;
    session->jpegQuality = quality < 0 ? 0 : (quality > 100 ? 100 : quality);
}

extern "C" void QvSession_SetThumbnailMayGrow(QvSession* session, int32_t mayGrow) {
    if (session) session->thumbnailMayGrow = mayGrow != 0;
}

extern "C" VPHandle QvSession_CreateEngine(QvSession* s, const uint8_t* jpeg, int32_t length) {
    if (!s) return nullptr;
    MLogPrint(MLOG_DEBUG, "JNI_CreateEngine in <----");
    s->m_lRectifiedWidth = 0;
    s->m_lRectifiedHeight = 0;
    s->DropExif();
    const uint32_t t0 = MGetCurTimeStamp();
    MLogPrint(MLOG_DEBUG, "JNI_CreateEngine jpegData length = %d", length);
    // A null block would open a growable (empty) stream: no bytes is an
    // open failure here, not an empty photograph.
    StreamCloser stream(jpeg && length > 0
                            ? MStreamOpenFromMemoryBlock(const_cast<uint8_t*>(jpeg), length)
                            : nullptr);
    if (!stream.s) {
        MLogPrint(MLOG_DEBUG, "JNI_CreateEngine MStreamOpenFromMemoryBlock fail");
        return nullptr;
    }
    VPHandle engine = nullptr;
    int32_t width = 0, height = 0;
    const MRESULT res =
        scrivo::session::DecodeIntoEngine(s->m_hAMCM, stream.s, &engine, &width, &height);
    MLogPrint(MLOG_DEBUG, "QvNote performance native decode cost %d", Since(t0));
    if (res != 0) {
        MLogPrint(MLOG_DEBUG, "JNI_CreateEngine DecodeJPEG fail res = %d", static_cast<int>(res));
    } else {
        MLogPrint(MLOG_DEBUG, "JNI_CreateEngine srcBmp width:%d,height:%d", width, height);
        const MRESULT exifRes = GetExifInfo(s, stream.s);
        MLogPrint(MLOG_DEBUG, "JNI_CreateEngine GetExifInfo res = %d", static_cast<int>(exifRes));
        const int32_t orientation = TakeOrientation(s);
        // The decode built the engine's own image and the engine took it as
        // it was (photo_decode.cpp): no copy is left to time here.
        MLogPrint(MLOG_DEBUG, "QvNote performance native VPCreateDocuviaClient cost %d", 0);
        if (engine && !scrivo::session::ShowAsViewed(engine, orientation))
            VPReleaseDocuviaClient(&engine);
        try {
            if (engine) s->engines.push_back(engine);
        } catch (...) {  // no memory to remember it: an engine no step would take
            VPReleaseDocuviaClient(&engine);
        }
    }
    MLogPrint(MLOG_DEBUG, "JNI_CreateEngine out ---->");
    return engine;
}

extern "C" int32_t QvSession_FindPageVertex(QvSession* s, VPHandle engine, tagVPPoint* points,
                                            int32_t count) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    MLogPrint(MLOG_DEBUG, "JNI_FindPageVertex in <----");
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    if (!scrivo::session::HoldsPhotograph(engine)) return QV_SESSION_FAILED;  // released
    if (count != 4 || points == nullptr) return QV_SESSION_BAD_ARGUMENT;
    tagVPPoint quad[4] = {};
    const uint32_t t0 = MGetCurTimeStamp();
    const uint32_t found = VPFindPageVertex(engine, quad);
    MLogPrint(MLOG_DEBUG, "QvNote performance native VPFindPageVertex cost %d", Since(t0));
    int32_t w = 0, h = 0;
    if (!found || !PhotographSize(engine, &w, &h) || IsWholePhotograph(quad, w, h))
        return QV_SESSION_FAILED;
    for (int i = 0; i < 4; ++i) points[i] = quad[i];
    MLogPrint(MLOG_DEBUG, "JNI_FindPageVertex out ---->");
    return QV_SESSION_OK;
}

extern "C" int32_t QvSession_GetRectifiedImageSize(QvSession* s, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   int32_t* width, int32_t* height) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    MLogPrint(MLOG_DEBUG, "JNI_GetRectifiedImageSize in <----");
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    if (!scrivo::session::HoldsPhotograph(engine)) return QV_SESSION_FAILED;  // released
    if (count != 4 || points == nullptr || width == nullptr || height == nullptr)
        return QV_SESSION_BAD_ARGUMENT;
    tagVPPoint quad[4] = {points[0], points[1], points[2], points[3]};
    int32_t w = 0, h = 0;
    const uint32_t t0 = MGetCurTimeStamp();
    const uint32_t ok = VPGetRectifiedImageSize(engine, quad, &w, &h);
    MLogPrint(MLOG_DEBUG, "QvNote performance native VPGetRectifiedImageSize cost %d", Since(t0));
    if (!ok) return RefusedCorners(engine, quad);
    *width = w;
    *height = h;
    s->m_lRectifiedWidth = w;
    s->m_lRectifiedHeight = h;
    MLogPrint(MLOG_DEBUG, "JNI_GetRectifiedImageSize out ---->");
    return QV_SESSION_OK;
}

extern "C" int32_t QvSession_ReleaseEngine(QvSession* s, VPHandle engine) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    // A stale handle must neither free memory twice nor take the current
    // photograph's EXIF block with it.
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    std::erase(s->engines, engine);
    const uint32_t t0 = MGetCurTimeStamp();
    VPReleaseDocuviaClient(&engine);
    MLogPrint(MLOG_DEBUG, "QvNote performance native VPReleaseDocuviaClient cost %d", Since(t0));
    MLogPrint(MLOG_DEBUG, "ReleaseExifInfo in <----");
    s->DropExif();
    MLogPrint(MLOG_DEBUG, "ReleaseExifInfo out ---->");
    return QV_SESSION_OK;
}

extern "C" int32_t QvSession_ReleasePhotograph(QvSession* s, VPHandle engine) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    int32_t w = 0, h = 0;
    if (!scrivo::session::RectifiedPageSize(engine, &w, &h)) return QV_SESSION_NOT_RECTIFIED;
    VPReduceDocuviaClient(&engine, VP_REDUCE_SOURCE);
    return QV_SESSION_OK;
}

extern "C" int32_t QvSession_GetPhotographSize(QvSession* s, VPHandle engine, int32_t* width,
                                               int32_t* height) {
    if (!s || !width || !height) return QV_SESSION_BAD_ARGUMENT;
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    return PhotographSize(engine, width, height) ? QV_SESSION_OK : QV_SESSION_FAILED;
}

extern "C" uint32_t QvSession_GetExifLength(const QvSession* s) {
    return s ? s->m_dwExifDataLen : 0;
}

extern "C" int32_t QvSession_GetThumbLength(const QvSession* s) {
    return s ? s->lThumbLength : 0;
}

extern "C" void QvSession_GetRectifiedSize(const QvSession* s, int32_t* width, int32_t* height) {
    if (width) *width = s ? s->m_lRectifiedWidth : 0;
    if (height) *height = s ? s->m_lRectifiedHeight : 0;
}

extern "C" void QvSession_FreeData(uint8_t* data) {
    MMemFree(nullptr, data);
}
