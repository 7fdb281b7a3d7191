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
 * Every step answers with one of the QV_SESSION_* codes below (0 done) and,
 * when it fails, delivers nothing: no bitmap is written, no bytes are
 * handed out, no point is changed. The steps must come in their order:
 *
 *   QvSession_CreateEngine
 *   QvSession_FindPageVertex            (or the caller's own corners)
 *   QvSession_DetectTextDirection       (optional: corners for an upright page)
 *   QvSession_GetRectifiedImageSize     (the page's size for those corners)
 *   QvSession_GetRectifiedImage / ...Data
 *   QvSession_GetEnhancedImage / ...Data   (any number of times)
 *   QvSession_ReleaseEngine
 *
 * A step called before the step it builds on answers with a code of its
 * own (QV_SESSION_NOT_RECTIFIED, QV_SESSION_NOT_SIZED) instead of
 * rendering a blank page. Every step logs its entry and exit lines and
 * timing lines through MLogPrint.
 *
 * Coordinates: every corner that goes in or comes out, and every size, is
 * in pixels of the photograph as a viewer shows it, with its EXIF
 * Orientation (tag 0x0112, values 1..8) applied. The engine is made from
 * the decoded pixels turned or mirrored that way, and the kept EXIF block
 * says Orientation 1, so every page is written upright in its pixels and
 * carries 1.
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
    uint32_t stride; /* bytes per row: the steps take only width x 4 */
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

/* Result codes of every step. 3 is not used. */
enum {
    QV_SESSION_OK = 0,
    /* The engine could not do it: no page found, corners that do not bound
     * a page (not convex, degenerate), a rectification or enhancement that
     * produced no page. */
    QV_SESSION_FAILED = 1,
    /* A null session or result pointer, a point count other than 4, or a
     * bitmap that cannot take the page (not RGBA_8888, pixels not locked,
     * rows not width x 4 bytes). */
    QV_SESSION_BAD_ARGUMENT = 2,
    /* No bitmap was given, or no memory for the page. */
    QV_SESSION_NO_BITMAP = 4,
    /* The engine is null, already released, or not made by this session. */
    QV_SESSION_UNKNOWN_ENGINE = 5,
    /* An enhancement before any rectification: there is no page yet. */
    QV_SESSION_NOT_RECTIFIED = 6,
    /* The enhanced JPEG bytes before any size query, or after a size query
     * for other corners than those of the rectified page. */
    QV_SESSION_NOT_SIZED = 7,
    /* The bitmap's width and height are not the page's. */
    QV_SESSION_WRONG_SIZE = 8,
    /* An enhancement method other than 1..5 (VP_ENHANCE_*). */
    QV_SESSION_UNKNOWN_METHOD = 9,
    /* The page could not be encoded as JPEG. */
    QV_SESSION_NOT_ENCODED = 10,
    /* The corners are in order, but bound a page smaller than the smallest
     * the engine makes: VP_SMALLEST_PAGE x VP_SMALLEST_PAGE pixels. */
    QV_SESSION_TOO_SMALL = 11
    /* The bitmap steps also pass on a bitmap's negative getInfo code. */
};

/* A new session over a component manager with the JPEG components registered
 * (null when out of memory). The manager must outlive the session. */
SCRIVO_API QvSession* QvSession_Create(MHAMCM manager);
/* Frees the session and its EXIF copy. Engines it made and did not release
 * are released too. */
SCRIVO_API void QvSession_Destroy(QvSession* session);
/* JPEG quality of the encoded pages: 0 (the default) uses the framework's
 * default save; 1..100 an explicit quality (4:2:0). The EXIF thumbnail does
 * not follow it: it is made as small as the kept block requires (see
 * QvSession_SetThumbnailMayGrow). */
SCRIVO_API void QvSession_SetJpegQuality(QvSession* session, int32_t quality);
/* Whether a page's EXIF block may grow to hold the page's full thumbnail
 * (non-zero; for a desktop, where bytes are cheap). Off (the default), the
 * block never grows beyond the photograph's: a thumbnail longer than the
 * photograph's own is made smaller (smaller sides, lower quality, a few
 * tries) and, where none fits, the thumbnail is removed from the block. */
SCRIVO_API void QvSession_SetThumbnailMayGrow(QvSession* session, int32_t mayGrow);

/* Decodes the JPEG bytes, keeps the photograph's EXIF block and thumbnail
 * length, and creates an engine from the pixels turned as its Orientation
 * says (the kept block then says 1); null on failure. Resets the size from
 * the last size query to 0 x 0. The engine belongs to this session: give
 * it back with QvSession_ReleaseEngine. */
SCRIVO_API VPHandle QvSession_CreateEngine(QvSession* session, const uint8_t* jpeg, int32_t length);
/* Looks for the page: the one answer to "is there a page in the
 * photograph". count must be 4.
 *   0  a page: its corners are written (top-left, bottom-left,
 *      bottom-right, top-right), each within the photograph (0..width,
 *      0..height): a page that runs past its frame has them on its edge;
 *   1  no page: the points are left as they were (whatever the engine's
 *      page search mode, VPSetPageSearch, answers for "nothing": the whole
 *      photograph is never reported as a page);
 *   2  count not 4 or null points;  5  unknown engine. */
SCRIVO_API int32_t QvSession_FindPageVertex(QvSession* session, VPHandle engine, tagVPPoint* points,
                                            int32_t count);
/* Decides which way the text on the page within the four points runs, and
 * writes to `upright` the corners to rectify so that the page comes out
 * upright (turned by quarter turns in the same warp), and to *turn the
 * clockwise turn they make: 0, 90, 180 or 270, or -1 when the direction
 * could not be told (or the photograph is too small to turn), in which case
 * `upright` = the points as given. *width x *height (either may be null):
 * the upright page as the decision saw it, the photograph's size when it
 * could not decide. The size to rectify at comes from the size query on the
 * `upright` corners. 0 done; 2 count not 4 or a null pointer; 5 unknown
 * engine. */
SCRIVO_API int32_t QvSession_DetectTextDirection(QvSession* session, VPHandle engine,
                                                 const tagVPPoint* points, int32_t count,
                                                 tagVPPoint* upright, int32_t* turn, int32_t* width,
                                                 int32_t* height);
/* The page's size for these corners, kept for QvSession_GetEnhancedImageData.
 * 0 done, 1 the corners bound no page (not convex, crossed), 2 count not 4
 * or a null pointer, 5 unknown engine, 11 a page too small to make. */
SCRIVO_API int32_t QvSession_GetRectifiedImageSize(QvSession* session, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   int32_t* width, int32_t* height);
/* Rectifies the page for these corners into the engine only, for a host
 * that wants only its enhancements: no bitmap, no bytes. 0 done; 1 the
 * corners bound no page or the rectification failed (or the photograph was
 * released); 2 count not 4 or a null pointer; 5 unknown engine; 11 a page
 * too small to make. */
SCRIVO_API int32_t QvSession_Rectify(QvSession* session, VPHandle engine, const tagVPPoint* points,
                                     int32_t count);
/* Rectifies into the caller's RGBA bitmap, which must have the page's size
 * for these corners (as the size query reports it). 0 done; 1 the corners
 * bound no page or the rectification failed; 2 count not 4 (3 points
 * included) or a bitmap that cannot take the page; 4 no bitmap (or no
 * memory); 5 unknown engine; 8 bitmap of another size; 11 a page too small
 * to make; or the bitmap's negative getInfo code. */
SCRIVO_API int32_t QvSession_GetRectifiedImage(QvSession* session, VPHandle engine,
                                               const tagVPPoint* points, int32_t count,
                                               const QvBitmapAccess* bitmap);
/* Enhances the rectified page (method 1..5, each time from the rectified
 * page) into the caller's RGBA bitmap of the page's size. 0 done; 1 the
 * enhancement produced no page; 2 a bitmap that cannot take the page;
 * 4 no bitmap; 5 unknown engine; 6 nothing rectified yet; 8 bitmap of
 * another size; 9 unknown method; or the bitmap's negative getInfo code. */
SCRIVO_API int32_t QvSession_GetEnhancedImage(QvSession* session, VPHandle engine, int32_t method,
                                              const QvBitmapAccess* bitmap);
/* Rectifies and encodes the page as JPEG with the photograph's EXIF block
 * and a new thumbnail (when it had one). 0: *data (the caller frees it with
 * QvSession_FreeData) and *length are set. Otherwise *data is null and
 * *length 0 (when they are not null): 1 the corners bound no page or the
 * rectification failed, 2 count not 4 or null data/length, 4 no memory,
 * 5 unknown engine, 10 not encoded, 11 a page too small to make. */
SCRIVO_API int32_t QvSession_GetRectifiedImageData(QvSession* session, VPHandle engine,
                                                   const tagVPPoint* points, int32_t count,
                                                   uint8_t** data, int32_t* length);
/* Enhances the rectified page at the size of the last size query, which
 * must be the page's, and encodes it like QvSession_GetRectifiedImageData.
 * 0 delivered; otherwise nothing: 1 the enhancement produced no page,
 * 2 null data/length, 4 no memory, 5 unknown engine, 6 nothing rectified
 * yet, 7 no size query for the rectified page, 9 unknown method,
 * 10 not encoded. */
SCRIVO_API int32_t QvSession_GetEnhancedImageData(QvSession* session, VPHandle engine,
                                                  int32_t method, uint8_t** data, int32_t* length);
/* Frees bytes delivered by the data steps (null is accepted). */
SCRIVO_API void QvSession_FreeData(uint8_t* data);
/* Releases an engine this session made and drops the kept EXIF block: 0.
 * An unknown engine (null, already released, made elsewhere) is left alone,
 * and so is the EXIF block: 5. A null session: 2. */
SCRIVO_API int32_t QvSession_ReleaseEngine(QvSession* session, VPHandle engine);

/* Frees the engine's copy of the photograph once its page is rectified and
 * no other corners will be tried (a one-shot capture): the photograph is
 * the largest block a capture holds, and the page, its sizes and its
 * enhancements need only the rectified page. Afterwards the steps that need
 * the photograph (page search, text direction, size query, rectification,
 * the photograph's own size and pixels) answer 1, as after any reduction
 * that freed it. 0 done (also when it was freed already); 2 a null
 * session; 5 unknown engine; 6 nothing rectified yet, so the photograph is
 * kept. */
SCRIVO_API int32_t QvSession_ReleasePhotograph(QvSession* session, VPHandle engine);

/* The photograph as the engine holds it, as a viewer shows it: its size,
 * and its pixels copied into the caller's RGBA bitmap of that size (for
 * drawing corners on it). 0 done; 1 the engine no longer holds it (a
 * reduction freed it); 2 a null session or size pointer, or a bitmap that
 * cannot take the photograph; 4 no bitmap; 5 unknown engine; 8 a bitmap of
 * another size; or the bitmap's negative getInfo code. */
SCRIVO_API int32_t QvSession_GetPhotographSize(QvSession* session, VPHandle engine, int32_t* width,
                                               int32_t* height);
SCRIVO_API int32_t QvSession_GetPhotograph(QvSession* session, VPHandle engine,
                                           const QvBitmapAccess* bitmap);

/* What the session keeps, for tools and tests. */
SCRIVO_API uint32_t QvSession_GetExifLength(const QvSession* session);
SCRIVO_API int32_t QvSession_GetThumbLength(const QvSession* session);
SCRIVO_API void QvSession_GetRectifiedSize(const QvSession* session, int32_t* width,
                                           int32_t* height);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_SESSION_H */
