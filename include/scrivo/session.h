/*
 * Scrivo capture sessions: the steps of one capture, from the photograph's
 * JPEG bytes to the page as a caller's bitmap or as new JPEG bytes that carry
 * the photograph's EXIF block with a fresh thumbnail.
 *
 * A session holds what the steps share: the codec framework's component
 * manager (borrowed, not owned), the photograph's EXIF block and the length
 * of its thumbnail, and the size from the last size query. The engines
 * (VPHandle) are separate objects made by QvSession_CreateEngine and given
 * back to QvSession_ReleaseEngine; releasing one also drops the kept EXIF
 * block, so a session serves one capture at a time. Several sessions may run
 * at once on different threads (each with its own component manager).
 *
 * Results follow the host methods they serve (0 done, small positive codes
 * for failures, negative bitmap-interface codes passed on as they are); the
 * JPEG-bytes steps return 1 when bytes were delivered and 0 otherwise. Every
 * step logs its entry and exit lines and timing lines through MLogPrint.
 */
#ifndef SCRIVO_SESSION_H
#define SCRIVO_SESSION_H

#include "scrivo/codec.h"
#include "scrivo/engine.h"
#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct QvSession QvSession;

/* What a bitmap's owner reports about it. */
typedef struct {
    uint32_t width;
    uint32_t height;
    uint32_t stride; /* bytes per row as the owner reports it */
    int32_t format;  /* QV_BITMAP_FORMAT_* */
} QvBitmapInfo;

enum { QV_BITMAP_FORMAT_NONE = 0, QV_BITMAP_FORMAT_RGBA_8888 = 1 };

/* A caller's bitmap and the two calls the capture path makes on it. A null
 * `bitmap` means that the caller passed none. getInfo returns 0 or a
 * negative error (handed back to the caller as is); lockPixels returns 0 and
 * the pixel address, or a negative error. There is no unlock: the pixels
 * stay addressable after the step returns. The engine writes rows of
 * width x 4 bytes (R, G, B, 255). */
typedef struct {
    void* bitmap;
    void* context;
    int32_t (*getInfo)(void* context, void* bitmap, QvBitmapInfo* info);
    int32_t (*lockPixels)(void* context, void* bitmap, void** pixels);
} QvBitmapAccess;

/* Result codes of the bitmap steps and the vertex/size steps. */
enum {
    QV_SESSION_OK = 0,
    QV_SESSION_FAILED = 1,       /* not found / size failed / enhancement failed */
    QV_SESSION_BAD_ARGUMENT = 2, /* point array length not 4; bitmap unusable */
    QV_SESSION_NO_BITMAP = 4     /* enhancement without a bitmap; record allocation */
};

/* A new session over a component manager with the JPEG components registered
 * (null when out of memory). The manager must outlive the session. */
SCRIVO_API QvSession* QvSession_Create(MHAMCM manager);
/* Frees the session and its EXIF copy (engines are the caller's). */
SCRIVO_API void QvSession_Destroy(QvSession* session);
/* JPEG quality of the encoded pages: 0 (the default) uses the framework's
 * default save; 1..100 an explicit quality (4:2:0). The EXIF thumbnail is
 * always encoded with the default. */
SCRIVO_API void QvSession_SetJpegQuality(QvSession* session, int32_t quality);

/* Decodes the JPEG bytes, keeps the photograph's EXIF block and thumbnail
 * length, and creates an engine from the pixels; null on failure. Resets the
 * size from the last size query to 0 x 0. */
SCRIVO_API VPHandle QvSession_CreateEngine(QvSession* session, const uint8_t* jpeg, int32_t length);
/* count must be 4: 0 found and written, 1 not found (points unchanged), 2
 * count not 4. Order: top-left, bottom-left, bottom-right, top-right. */
SCRIVO_API int32_t QvSession_FindPageVertex(QvSession* session, VPHandle engine, tagVPPoint* points,
                                            int32_t count);
/* 0 done (size written and kept), 1 size failed, 2 count not 4. */
SCRIVO_API int32_t QvSession_GetRectifiedImageSize(QvSession* session, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   int32_t* width, int32_t* height);
/* Rectifies into the caller's RGBA bitmap, which must have the size of the
 * last size query. 0 done (also for a count other than 4 and for no bitmap,
 * which do nothing), 1 rectification failed, 2 bitmap unusable, 4 no memory
 * for the record, or the bitmap's negative getInfo code. */
SCRIVO_API int32_t QvSession_GetRectifiedImage(QvSession* session, VPHandle engine,
                                               const tagVPPoint* points, int32_t count,
                                               const QvBitmapAccess* bitmap);
/* Enhances the rectified page (method 1..5) into the caller's RGBA bitmap:
 * 0 done, 1 enhancement failed, 2 bitmap unusable, 4 no bitmap, or the
 * bitmap's negative getInfo code. */
SCRIVO_API int32_t QvSession_GetEnhancedImage(QvSession* session, VPHandle engine, int32_t method,
                                              const QvBitmapAccess* bitmap);
/* Rectifies and encodes the page as JPEG with the photograph's EXIF block
 * and a new thumbnail (when it had one). 1: *data (free with
 * QvSession_FreeData) and *length are set; 0: nothing was delivered. */
SCRIVO_API int32_t QvSession_GetRectifiedImageData(QvSession* session, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   uint8_t** data, int32_t* length);
/* Enhances the rectified page at the size of the last size query and
 * encodes it like QvSession_GetRectifiedImageData. */
SCRIVO_API int32_t QvSession_GetEnhancedImageData(QvSession* session, VPHandle engine,
                                                  int32_t method, uint8_t** data, int32_t* length);
SCRIVO_API void QvSession_FreeData(uint8_t* data);
/* Releases the engine (null is accepted) and drops the kept EXIF block. */
SCRIVO_API void QvSession_ReleaseEngine(QvSession* session, VPHandle engine);

/* What the session keeps, for tools and tests. */
SCRIVO_API uint32_t QvSession_GetExifLength(const QvSession* session);
SCRIVO_API int32_t QvSession_GetThumbLength(const QvSession* session);
SCRIVO_API void QvSession_GetRectifiedSize(const QvSession* session, int32_t* width,
                                           int32_t* height);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_SESSION_H */
