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
SCRIVO_API uint32_t VPResampleImage(tagVPImage** src, tagVPImage** dst, int32_t width,
                                    int32_t height, int32_t smoothing);
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
