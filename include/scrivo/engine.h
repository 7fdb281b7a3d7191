/*
 * Scrivo document engine: the engine client and its entry operations.
 *
 * A client is created from a photograph and owns a working copy of it and
 * every image derived from it (the rectified page, the enhanced page, a
 * reduced preview for manual adjustment). Typical use:
 *
 *   VPHandle h = VPCreateDocuviaClient(&photo);
 *   tagVPPoint quad[4];                       // TL, BL, BR, TR
 *   VPFindPageVertex(h, quad);                // or let the user place them
 *   int w, hgt;
 *   VPGetRectifiedImageSize(h, quad, &w, &hgt);
 *   tagVPImage out = {0, 4, 8, w, w * 4, hgt, pixels};
 *   tagVPImage* pout = &out;
 *   VPRectifyVertexArea(h, quad, &pout);      // straightened page into out
 *   VPEnhancement(h, VP_ENHANCE_GREY, &pout); // enhanced page into out
 *   VPReleaseDocuviaClient(&h);
 *
 * Entry operations return 1 for success and 0 for failure unless said
 * otherwise; none throws, and none may be called concurrently on one
 * client. Output records are allocated by the caller with the right size:
 * a record whose width, height or depth differs from the image receives no
 * pixels.
 */
#ifndef SCRIVO_ENGINE_H
#define SCRIVO_ENGINE_H

#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The engine's image descriptor. */
typedef struct {
    int32_t format;   /* 0 interleaved RGB (see channels), 1 planar YUV 4:2:0 */
    int32_t channels; /* format 0: 3 (24-bit) or 4 (32-bit, fourth byte alpha) */
    int32_t depth;    /* bits per channel: 8 */
    int32_t width;
    int32_t pitch; /* bytes from one row to the next */
    int32_t height;
    uint8_t* data; /* YUV 4:2:0: the Y plane, then the two chroma planes */
} tagVPImage;

enum { VP_FORMAT_RGB = 0, VP_FORMAT_YUV420 = 1 };

/* A vertex in pixels of the full-size photograph, y downwards. A page
 * quadrangle is four of them: top-left, bottom-left, bottom-right,
 * top-right. The whole W x H photograph is (0,0), (0,H), (W,H), (W,0). */
typedef struct {
    int32_t x;
    int32_t y;
} tagVPPoint;

typedef int32_t tagVPEnhanceMethod;
enum {
    VP_ENHANCE_NONE = 1,     /* a copy of the page */
    VP_ENHANCE_LOW = 2,      /* colour, hues kept: global luma and chroma tables */
    VP_ENHANCE_HIGH = 3,     /* full document clean-up, flattened lighting */
    VP_ENHANCE_GREY = 4,     /* grey by a global contrast stretch */
    VP_ENHANCE_ECONOMIC = 5, /* ink-saving: dark content on white */
    /* Descriptive aliases of methods 2 and 3. */
    VP_ENHANCE_COLOR = VP_ENHANCE_LOW,
    VP_ENHANCE_DOCUMENT = VP_ENHANCE_HIGH
};

typedef int32_t tagVPRotateDegree;
enum {
    VP_ROTATE_NONE = 0,
    VP_ROTATE_CCW_90 = 1, /* a quarter turn counter-clockwise */
    VP_ROTATE_180 = 2,
    VP_ROTATE_CW_90 = 3 /* a quarter turn clockwise */
};

/* Which image VPGetImageFromHandle copies out. */
enum { VP_IMAGE_RECTIFIED = 2, VP_IMAGE_ENHANCED = 3 };

/* What VPReduceDocuviaClient frees. */
enum {
    VP_REDUCE_SOURCE = 1,
    VP_REDUCE_RECTIFIED_VIEW = 2,
    VP_REDUCE_RECTIFIED = 3,
    VP_REDUCE_ENHANCED = 4,
    VP_REDUCE_PREVIEW = 5
};

typedef struct VPClient* VPHandle;

/* Version: 1.0.0.7. The three texts are copied into caller buffers of at
 * least 31, 11 and 33 bytes (null buffers are skipped). */
typedef struct {
    int32_t major;
    int32_t minor;
    int32_t revision;
    int32_t build;
    char* version; /* >= 31 bytes */
    char* date;    /* >= 11 bytes */
    char* notice;  /* >= 33 bytes */
} _tag_QvNoteEnigne_Version;

SCRIVO_API VPHandle VPCreateDocuviaClient(tagVPImage* image);
SCRIVO_API uint32_t VPFindPageVertex(VPHandle handle, tagVPPoint quad[4]);
SCRIVO_API uint32_t VPFindPageVertex2(VPHandle handle, tagVPPoint quad[4], int32_t mode);
/* How VPFindPageVertex and VPFindPageVertex2 search (per engine; the
 * verified search unless set otherwise):
 *   VP_PAGE_SEARCH_VERIFIED: the detector's candidates and more compete on
 *     the evidence that they bound a page; the winner's corners are refined
 *     on the full-size photograph. No convincing page: the whole
 *     photograph with 0.
 *   VP_PAGE_SEARCH_FIXED_STEPS: the detector's answer alone, unverified and
 *     unrefined (a photograph without a page comes back as the whole
 *     photograph, found by VPFindPageVertex's third-corner rule).
 * Either way the corners lie within the photograph (0..W, 0..H): a page that
 * runs past its frame has them on the frame's edge.
 * Returns 1, or 0 for a null handle or an unknown mode. */
#define VP_PAGE_SEARCH_VERIFIED 0
#define VP_PAGE_SEARCH_FIXED_STEPS 1
SCRIVO_API uint32_t VPSetPageSearch(VPHandle handle, int32_t mode);
/* The size query and the rectification make a page of at least
 * VP_SMALLEST_PAGE pixels each way, never larger than the photograph as the
 * page lies in it: corners that bound a smaller page are refused (0), never
 * replaced by the whole photograph. Corners that start at another corner of
 * the page than its top-left as the photograph shows it turn the page by
 * quarter turns; the turned page keeps the size it has unturned. */
#define VP_SMALLEST_PAGE 8
SCRIVO_API uint32_t VPGetRectifiedImageSize(VPHandle handle, tagVPPoint quad[4], int32_t* width,
                                            int32_t* height);
SCRIVO_API uint32_t VPRectifyVertexArea(VPHandle handle, tagVPPoint quad[4], tagVPImage** out);
SCRIVO_API uint32_t VPRectifyVertexAreaAnimation(VPHandle handle, tagVPPoint quad[4],
                                                 tagVPImage** out);
SCRIVO_API uint32_t VPEnhancement(VPHandle handle, tagVPEnhanceMethod method, tagVPImage** out);
SCRIVO_API uint32_t VPEnhancement2(VPHandle handle, tagVPEnhanceMethod method, tagVPImage** out,
                                   char* extra);
SCRIVO_API uint32_t VPEnhanceImageSetManually(VPHandle handle, int32_t previewWidth,
                                              int32_t previewHeight, int32_t on);
SCRIVO_API uint32_t VPEnhanceImageManually(VPHandle handle, tagVPImage** previewOut,
                                           tagVPImage** fullOut, int32_t brightness,
                                           int32_t contrast, float gamma, int32_t alsoFull);
SCRIVO_API uint32_t VPRotation(VPHandle handle, tagVPRotateDegree degree, tagVPImage** out);
SCRIVO_API uint32_t VPGetImageFromHandle(VPHandle handle, tagVPImage** out, int32_t which);
SCRIVO_API uint32_t VPReduceDocuviaClient(VPHandle* handle, int32_t what);
SCRIVO_API uint32_t VPReleaseDocuviaClient(VPHandle* handle);
/* Text direction. The engine decides whether the text of the page runs
 * across or down it and which way up it is, and prepares a rectification
 * (VPRectifyWithTextLine) that delivers the page upright. A turn is given in
 * clockwise degrees: 0, 90, 180 or 270, the turn that makes the page as
 * first straightened (corners in the given order) upright.
 *
 * Decision modes (VPGetRectifiedTextImageSizeWithVeterx; the other
 * operations use VP_TEXT_TURN_ANY): */
enum {
    VP_TEXT_TURN_KEEP = 0,      /* no decision: the page as the corners order it */
    VP_TEXT_TURN_FLIP_ONLY = 1, /* upright or upside down only (0 or 180) */
    VP_TEXT_TURN_ANY = 2        /* any of the four turns */
};

/* Looks for the page like VPFindPageVertex (the whole photograph when there
 * is none), decides the direction on the straightened page and keeps the
 * upright size and matrix for VPRectifyWithTextLine. 1 when there is
 * something to rectify (a page was found or the text needs a turn), else 0
 * (the text-line rectification then copies the photograph). */
SCRIVO_API uint32_t VPDetectTextDirection(VPHandle handle);
/* The same, also reporting: the upright width and height; quadA = the page
 * as found (top-left, bottom-left, bottom-right, top-right of the
 * photograph); quadB = the same corners starting from the upright page's
 * top-left, so that rectifying quadB the ordinary way also gives the upright
 * page; and, when `direction` is not null, the turn in degrees or -1 when
 * the text direction could not be told (nothing turned). Null arguments
 * (direction may be null): 0 and nothing written. When the result above is
 * 0: 0 with the photograph's W x H and (0,0), (0,H), (W,H), (W,0) in both
 * quadrangles. */
SCRIVO_API uint32_t VPDetectTextDirectionAndRectifiedImageSize(VPHandle handle, int32_t* width,
                                                               int32_t* height, tagVPPoint quadA[4],
                                                               tagVPPoint quadB[4],
                                                               int32_t* direction);
/* The decision for the caller's quadrangle (legal, or 0): keeps the upright
 * size and matrix for VPRectifyWithTextLine in every case, and returns 1
 * when the text direction was told, 0 when it could not be (the page is
 * then kept as the corners order it). */
SCRIVO_API uint32_t VPDetectTextDirectionWithVeterx(VPHandle handle, tagVPPoint quad[4]);
/* The same with a decision mode, also reporting the upright width and height
 * and quadOut = the corners starting from the upright page's top-left. A
 * quadrangle without a plausible rectification, or an unknown mode, gives 0
 * with W x H and the whole-photograph quadrangle. */
SCRIVO_API uint32_t VPGetRectifiedTextImageSizeWithVeterx(VPHandle handle, tagVPPoint quad[4],
                                                          tagVPPoint quadOut[4], int32_t mode,
                                                          int32_t* width, int32_t* height);
/* Rectifies with the size and matrix of the last text-direction call (a copy
 * of the photograph when that asked for none) into `*out`, a record of that
 * size; the result becomes the client's rectified page. */
SCRIVO_API uint32_t VPRectifyWithTextLine(VPHandle handle, tagVPImage** out);

/* Resizes *src to width x height by area interpolation into *dst, a record
 * of that size, and smooths it by a square Gaussian of aperture
 * 2 x smoothing + 1 when smoothing is not 0 (0..1024). 1 on success. */
SCRIVO_API uint32_t VPResampleImage(tagVPImage** src, tagVPImage** dst, int32_t width,
                                    int32_t height, int32_t smoothing);
/* The same with cubic interpolation at the source's own size (*dst is a
 * record of that size): in effect a copy, smoothed when smoothing is not 0. */
SCRIVO_API uint32_t FitAndFilteImage(tagVPImage** src, tagVPImage** dst, int32_t smoothing);
/* Names the interpolation an RGB24 resize would use and changes no pixels:
 * 3 (area) when mode is 1, else 2 (cubic). The records and size are not
 * looked at. */
SCRIVO_API int32_t VPImageResizeRGB24(tagVPImage** src, tagVPImage** dst, int32_t width,
                                      int32_t height, int32_t mode);
SCRIVO_API uint32_t QvNoteEngine_GetVersion(_tag_QvNoteEnigne_Version* version);

/* Pixel conversions on caller buffers: 1 on success, 0 for a null buffer;
 * a height below 1 returns 1 at once. 24-bit buffers have rows of
 * width x 3 bytes rounded up to a multiple of 4 unless a pitch is given. */
SCRIVO_API uint32_t VPConvertRGB24ToARGB32(const uint8_t* src, uint8_t* dst, int32_t width,
                                           int32_t height, int32_t srcPitch, int32_t dstPitch);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_ENGINE_H */
