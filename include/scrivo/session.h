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

/* ------------------------------------------------------------------------ */
/* JPEG in/out helpers (stand-alone; the capture steps do not call them).   */
/* ------------------------------------------------------------------------ */

/* Scales and converts source into target (both with planes, sizes and
 * pitches set). Formats: MPAF_RGBA8888 (and 0x37005777), 0x37000777
 * (B,G,R,A), MPAF_GRAY8, MPAF_I420, MPAF_OTHERS_NV21. flags: 0 (reserved);
 * filter: 0 nearest, 1 box (area average), 2 bilinear; range: YUV matrix, 1
 * full range (JPEG), 2 BT.601 studio range. 0, 2 bad argument, 3
 * unsupported format, 4 out of memory. */
SCRIVO_API MRESULT ConvertCS(MBITMAP* target, const MBITMAP* source, int32_t flags, int32_t filter,
                             int32_t range);

/* Whole decoding through a thin decoder session: the image at its own size
 * in bitmap->pixelFormat (0: MPAF_RGBA8888; grey, I420 and NV21 too). The
 * record must have no planes; they are allocated here (MdBitmapFree). */
SCRIVO_API MRESULT DecodeJPEG(MHAMCM manager, MHStream stream, MBITMAP* bitmap);
/* Stepwise decoding: one decoder, any number of steps, each decoding the
 * region (null: the whole image) scaled to the size of the bitmap, whose
 * planes the caller provides, in its pixel format. */
SCRIVO_API MRESULT DecodeCreate(MHAMCM manager, MHStream stream, MHCODEC* decoder);
SCRIVO_API MRESULT DecodeStepJPEG(MHCODEC decoder, const MRECT* region, MBITMAP* bitmap);
SCRIVO_API MRESULT DecodeDestroy(MHCODEC decoder);

/* Encodes a bitmap as JPEG at `quality` (1..100) into the stream. Input:
 * MPAF_RGBA8888, 0x37000777, MPAF_GRAY8, MPAF_I420, MPAF_OTHERS_NV21; the
 * other YUV IDs 0x50000810/0x50000800/0x50000801 are passed to the encoder,
 * which may refuse them (3); anything else gives 3. YUV input is taken as
 * full-range YCbCr, as JPEG stores it. */
SCRIVO_API MRESULT EncodeJPEG(MHAMCM manager, const MBITMAP* bitmap, int32_t quality,
                              MHStream stream);
/* Stepwise encoding of a width x height image of colour ID colorId: bands
 * of `lines` lines from top to bottom (the band's planes address its first
 * line; I420 bands start on even lines). */
SCRIVO_API MRESULT EncodeCreate(MHAMCM manager, MHStream stream, int32_t width, int32_t height,
                                uint32_t colorId, int32_t quality, MHCODEC* encoder);
SCRIVO_API MRESULT EncodeStepJPEG(MHCODEC encoder, const MBITMAP* band, int32_t lines);
SCRIVO_API MRESULT EncodeDestroy(MHCODEC encoder);

/* Size of the path buffers of RenameImage and SaveData, and the answer
 * for a name that is taken. */
#define QV_IMAGE_PATH_SIZE 256
#define QV_FILE_EXISTS 4098u

/* Writes "<folder>QvScan_<number>.jpg" into pathOut (QV_IMAGE_PATH_SIZE
 * bytes; the folder ends with its separator): 0 when no such file exists,
 * QV_FILE_EXISTS when one does, 2 when the path does not fit. */
SCRIVO_API MRESULT RenameImage(char* pathOut, int32_t number, const char* folder);
/* Saves the bitmap as JPEG under the first free RenameImage name (written
 * into pathOut); NV21 frames are converted to MPAF_RGBA8888 first. */
SCRIVO_API MRESULT SaveData(MHAMCM manager, const MBITMAP* bitmap, const char* folder,
                            char* pathOut);
/* Encodes a width x height (1..639 x 1..479) JPEG thumbnail of a frame into
 * the stream: frames of proportions 3:4 or 0.818 (height / width) are
 * scaled whole, others cropped around the centre to the thumbnail's
 * proportions first. 2 for a bad size or argument. */
SCRIVO_API MRESULT SetThumbnailStream(MHAMCM manager, const MBITMAP* source, int32_t width,
                                      int32_t height, MHStream stream);

/* A record of the given format and size with zeroed planes (MdBitmapFree). */
SCRIVO_API MRESULT UTIL_MBitmapCreate(MBITMAP* bitmap, uint32_t format, int32_t width,
                                      int32_t height);
/* Copies the pixels between two records of the same format and size. */
SCRIVO_API MRESULT MBitmapCopy(MBITMAP* dst, const MBITMAP* src);
/* A new record (MdBitmapFree) with the rectangle of src; YUV rectangles
 * start on even coordinates. */
SCRIVO_API MRESULT UIUtil_BitmapCrop(MBITMAP* dst, const MBITMAP* src, const MRECT* rect);
/* A new MPAF_RGBA8888 record (MdBitmapFree) with src converted. */
SCRIVO_API MRESULT MConvertBitmapToARGB32(MBITMAP* dst, const MBITMAP* src);
/* Sets the alpha byte of every pixel of a 32-bit record. */
SCRIVO_API MRESULT SetARGB32BitmapAlpha(MBITMAP* bitmap, uint8_t alpha);
/* dst = src x m + dst x (1 - m) per byte, m the grey mask (0..255) of the
 * same size; dst and src 32-bit of one format. */
SCRIVO_API MRESULT MergeBitmapWithMask(MBITMAP* dst, const MBITMAP* src, const MBITMAP* mask);
/* Bits a pixel of a colour ID (32, 24, 16, 12, 8), 0 when unknown. */
SCRIVO_API int32_t GetColorDepth(uint32_t format);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_SESSION_H */
