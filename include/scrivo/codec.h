/*
 * Scrivo image codec framework: decode and encode sessions with numbered
 * properties, the bitmap record, colour IDs and file types.
 *
 * Results are the platform's MRESULT codes (0 success, 1 failure, 2 invalid
 * argument, 3 unsupported, 4 out of memory, 4102 stream too short, 4103
 * write failed).
 *
 * Pixel layout of the 32-bit colour ID 0x37001777 (MPAF_RGBA8888): 4 bytes a
 * pixel, in memory R, G, B, A -- the layout of an Android RGBA_8888 bitmap.
 * A photograph decoded into it, handed to the engine and written back into
 * such a bitmap or encoded by the JPEG encoder keeps its true colours.
 */
#ifndef SCRIVO_CODEC_H
#define SCRIVO_CODEC_H

#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The framework's pixel-array descriptor. Packed formats use plane[0]
 * only; planar YUV uses Y, U, V (I420) or Y and interleaved V/U (NV21). */
typedef struct {
    uint32_t pixelFormat; /* colour ID, new scheme */
    int32_t width;
    int32_t height;
    int32_t pitch[3]; /* bytes per line of each plane */
    uint8_t* plane[3];
} MBITMAP;

/* Colour IDs (new scheme) used on the document path. */
#define MPAF_RGBA8888 0x37001777u /* R, G, B, A bytes */
#define MPAF_I420 0x50000811u
#define MPAF_OTHERS_NV21 0x70000002u
#define MPAF_GRAY8 0x64000000u /* one byte a pixel (old ID 29) */

/* File types. */
enum {
    MD_FILETYPE_UNKNOWN = 0,
    MD_FILETYPE_BMP = 1,
    MD_FILETYPE_JPEG = 2,
    MD_FILETYPE_GIF = 4,
    MD_FILETYPE_PNG = 8,
    MD_FILETYPE_WBMP = 32,
    MD_FILETYPE_SWF = 128,
    MD_FILETYPE_SVG = 256,
    MD_FILETYPE_TIFF = 1024,
    MD_FILETYPE_ICO = 2048
};

/* Property numbers; the value size in bytes follows each. */
enum {
    MD_PROP_IMAGE_SIZE = 2,         /* 8: width, height (get) */
    MD_PROP_PIXEL_FORMAT = 3,       /* 4: decoder output, old colour ID */
    MD_PROP_OPTION_BYTE = 4,        /* 1 */
    MD_PROP_YUV_VARIANT = 5,        /* 4: 0, 4096, 8192, 12288 */
    MD_PROP_JPEG_SCALE = 4099,      /* 4: 1, 2, 4 or 8 (JPEG component) */
    MD_PROP_ZOOM_SCALE = 4103,      /* 8: destination width, height */
    MD_PROP_SRC_FORMAT = 4104,      /* 4: source pixel format (get) */
    MD_PROP_DST_REGION = 4106,      /* 16: left, top, right, bottom */
    MD_PROP_OPTION_4107 = 4107,     /* 4 */
    MD_PROP_RA_INDEX = 4112,        /* 8 (JPEG component) */
    MD_PROP_RA_BUDGET = 4114,       /* 4 (JPEG component) */
    MD_PROP_CAPS_1 = 5121,          /* 4 (get, component) */
    MD_PROP_CAPS_2 = 5122,          /* 4 (get, component) */
    MD_PROP_PALETTE = 5392,         /* 1024 */
    MD_PROP_OPTION_5393 = 5393,     /* 4 */
    MD_PROP_PIXARRAY_FORMAT = 8194, /* 4: encoder input, old colour ID */
    MD_PROP_JPEG_QUALITY = 8449     /* 4 */
};

/* Why a photograph cannot be decoded, where the reason is not the data
 * itself: the JPEG decoder's Open returns these framework results and the
 * framework passes them on unchanged (MCodec_DecodeCreate, MdBitmapLoad).
 * MD_MAX_DECODE_PIXELS is the most pixels a photograph may have. */
#define MD_ERR_IMAGE_TOO_LARGE 4120
#define MD_ERR_CMYK_UNSUPPORTED 4121
#define MD_MAX_DECODE_PIXELS (1u << 28)

/* Codec component results, translated by the framework into MRESULTs. */
enum {
    MD_CERR_INVALID_PARAM = 0x8001,
    MD_CERR_NO_MEMORY = 0x8002,
    MD_CERR_INVALID_PARAM2 = 0x8004,
    MD_CERR_UNSUPPORTED = 0x8008,
    MD_CERR_STREAM = 0x8010,
    MD_CERR_WRITE = 0x8020,
    MD_CERR_GENERAL = 0x8FFF
};

/* ------------------------------------------------------------------------ */
/* Codec components and the component manager.                              */
/* ------------------------------------------------------------------------ */

/* Component type bits given to AMCM_RegisterEx. */
#define MD_COMPONENT_DECODER 0x1000000u
#define MD_COMPONENT_ENCODER 0x2000000u

/* Component IDs of the JPEG components. */
#define MD_COMPONENT_JPEG_DECODER 0x81001202u
#define MD_COMPONENT_JPEG_ENCODER 0x81002202u

/* Global-data keys of the component manager. */
#define AMCM_KEY_MEMORY_MANAGER 0x80000001u
#define AMCM_KEY_SECOND_SETTING 0x92000001u

/* Property 4096 (get, component): palette entry count; 0 for true colour. */
#define MD_PROP_PALETTE_COUNT 4096

/* What an encoder is opened on (MCodec_EncodeCreate): the output stream, the
 * image size, the input colour ID (new scheme) and two further values that
 * callers set to 1000 each (stored, passed to the component, not used by
 * the JPEG encoder). */
typedef struct {
    MHStream stream;
    int32_t width;
    int32_t height;
    uint32_t colorID;
    int32_t xResolution;
    int32_t yResolution;
} MENCODE_TARGET;

/* A codec component: an object with a fixed table of operations. Every
 * operation returns a component result (0 or one of MD_CERR_*, or a
 * framework code that passes translation unchanged).
 *   Open:      decoder: parse the stream's headers (target is null);
 *              encoder: attach to target->stream (stream is target->stream).
 *   Scanlines: decoder: deliver the next `lines` lines of the (scaled,
 *              regional) image into `bitmap` whose plane pointers address
 *              the first of them; encoder: take `lines` lines from `bitmap`.
 *              *done receives the number of lines moved. */
typedef struct MCODEC_COMPONENT {
    void* self;
    MRESULT (*Open)(void* self, MHStream stream, const MENCODE_TARGET* target);
    MRESULT (*GetProp)(void* self, uint32_t prop, void* value, int32_t size);
    MRESULT (*SetProp)(void* self, uint32_t prop, const void* value, int32_t size);
    MRESULT (*Scanlines)(void* self, const MBITMAP* bitmap, int32_t lines, int32_t* done);
    void (*Destroy)(void* self);
} MCODEC_COMPONENT;

/* Makes a component; the memory manager is the component manager's. */
typedef MRESULT (*MCODEC_CREATOR)(MHandle memHandle, MCODEC_COMPONENT** component);

typedef struct AMCM_Manager* MHAMCM;

/* Creates a component manager whose global data holds memHandle under key
 * 0x80000001 (and 0 under 0x92000001). */
SCRIVO_API MRESULT AMCM_Create(MHandle memHandle, MHAMCM* manager);
/* Registers a creator; `type` carries the decoder/encoder bit, `fileType`
 * the file type(s) it handles (bit values), `priority` is kept for lookup
 * order (lower first, then registration order). Registering the same ID
 * again keeps both entries: lookups list each ID once. */
SCRIVO_API MRESULT AMCM_RegisterEx(MHAMCM manager, uint32_t componentId, uint32_t type,
                                   uint32_t fileType, uint32_t priority, MCODEC_CREATOR creator);
SCRIVO_API MRESULT AMCM_Destroy(MHAMCM manager);
SCRIVO_API MRESULT AMCM_GetGlobalData(MHAMCM manager, uint32_t key, void** value);
SCRIVO_API MRESULT AMCM_SetGlobalData(MHAMCM manager, uint32_t key, void* value);
/* Creates the component registered under componentId. */
SCRIVO_API MRESULT AMCM_CreateComponent(MHAMCM manager, uint32_t componentId,
                                        MCODEC_COMPONENT** component);
/* Up to `capacity` distinct component IDs for a file type with all bits of
 * `typeMask` set, in lookup order; *count receives how many. */
SCRIVO_API MRESULT MdUtilsFindCodecComponents(MHAMCM manager, uint32_t fileType, uint32_t typeMask,
                                              uint32_t* ids, int32_t capacity, int32_t* count);

/* The JPEG components: the decoder on libjpeg-turbo and the adapter over our
 * baseline encoder. */
SCRIVO_API MRESULT MDecoder_AJL2Create(MHandle memHandle, MCODEC_COMPONENT** component);
SCRIVO_API MRESULT MEncoder_AJL2Create(MHandle memHandle, MCODEC_COMPONENT** component);
/* Registers both JPEG components in a manager. */
SCRIVO_API MRESULT MdRegisterJpegComponents(MHAMCM manager);

/* ------------------------------------------------------------------------ */
/* Framework sessions.                                                      */
/* ------------------------------------------------------------------------ */

typedef struct MCODEC_SESSION* MHCODEC;

/* componentId 0: find the component by the stream's type. */
SCRIVO_API MRESULT MCodec_DecodeCreate(MHAMCM manager, MHStream stream, uint32_t componentId,
                                       MHCODEC* session);
SCRIVO_API MRESULT MCodec_EncodeCreate(MHAMCM manager, const MENCODE_TARGET* target,
                                       uint32_t fileType, uint32_t componentId, MHCODEC* session);
SCRIVO_API MRESULT MCodec_GetProp(MHCODEC session, uint32_t prop, void* value, int32_t size);
SCRIVO_API MRESULT MCodec_SetProp(MHCODEC session, uint32_t prop, const void* value, int32_t size);
/* Decodes the source rectangle `rect` (image pixels: left, top, right,
 * bottom, as DST_REGION takes it; it becomes the session's region) scaled
 * to the destination size into `bitmap`, whose planes address destination
 * line 0. A call with a rectangle decodes it afresh; with null it delivers
 * the destination lines not yet delivered of the region set (the whole
 * image when none was). A rectangle outside the image gives 2. *status is
 * 1 while lines remain, 0 when the image is complete. The destination size
 * is the ZOOM_SCALE size (the bitmap's size when none was set). */
SCRIVO_API MRESULT MCodec_DecodeScanlines(MHCODEC session, MBITMAP* bitmap, const MRECT* rect,
                                          int32_t* linesDone, int32_t* status);
/* Encodes *lineCount lines from the bitmap's planes (the next band). */
SCRIVO_API MRESULT MCodec_EncodeScanlines(MHCODEC session, const MBITMAP* bitmap,
                                          int32_t* lineCount, int32_t* linesDone);
/* One-call forms over a memory block: decode `size` bytes into *bitmap (as
 * MdBitmapLoad with file type 0), and encode a bitmap as JPEG at `quality`
 * into a new heap block (*data, freed with MMemFree(0, ...)). */
SCRIVO_API MRESULT MCodec_DecodeData(MHAMCM manager, const void* data, int32_t size,
                                     MBITMAP* bitmap);
SCRIVO_API MRESULT MCodec_EncodeData(MHAMCM manager, const MBITMAP* bitmap, int32_t quality,
                                     void** data, int32_t* size);
SCRIVO_API MRESULT MCodec_Destroy(MHCODEC session);

/* Thin sessions: the component itself, with results translated, no
 * conversion or scaling. MIDec_Scanlines delivers the component's output
 * format at the component's size. */
typedef struct MCODEC_THIN* MHIDEC;
typedef struct MCODEC_THIN* MHIENC;
SCRIVO_API MRESULT MIDec_Create(MHAMCM manager, MHStream stream, MHIDEC* dec);
SCRIVO_API MRESULT MIDec_CreateEx(MHAMCM manager, MHStream stream, uint32_t componentId,
                                  MHIDEC* dec);
SCRIVO_API MRESULT MIDec_CreateWithFileName(MHAMCM manager, const char* path, MHIDEC* dec);
SCRIVO_API MRESULT MIDec_GetProp(MHIDEC dec, uint32_t prop, void* value, int32_t size);
SCRIVO_API MRESULT MIDec_SetProp(MHIDEC dec, uint32_t prop, const void* value, int32_t size);
SCRIVO_API MRESULT MIDec_Scanlines(MHIDEC dec, MBITMAP* bitmap, int32_t lines, int32_t* done);
SCRIVO_API MRESULT MIDec_Destroy(MHIDEC dec);
SCRIVO_API MRESULT MIEnc_Create(MHAMCM manager, const MENCODE_TARGET* target, uint32_t fileType,
                                MHIENC* enc);
SCRIVO_API MRESULT MIEnc_GetProp(MHIENC enc, uint32_t prop, void* value, int32_t size);
SCRIVO_API MRESULT MIEnc_SetProp(MHIENC enc, uint32_t prop, const void* value, int32_t size);
SCRIVO_API MRESULT MIEnc_Scanlines(MHIENC enc, const MBITMAP* bitmap, int32_t lines, int32_t* done);
SCRIVO_API MRESULT MIEnc_Destroy(MHIENC enc);

/* ------------------------------------------------------------------------ */
/* Whole-bitmap helpers.                                                    */
/* ------------------------------------------------------------------------ */

/* Extended bitmap record for MdBitmapLoadEx: the source region to decode
 * (all zero: the whole image) and the 32-bit option passed as 4107. */
typedef struct {
    MBITMAP bitmap;
    MRECT srcRegion;
    uint32_t option4107;
} MBITMAPEX;

/* Default JPEG quality of MdBitmapSave and MdBitmapSave2 (4:2:0 sampling):
 * 90 keeps camera photographs and document renderings free of visible
 * block artefacts at about a third of the size of quality 100. */
#define MD_DEFAULT_JPEG_QUALITY 90

SCRIVO_API MRESULT MdBitmapLoad(MHAMCM manager, MHStream stream, uint32_t fileType,
                                MBITMAP* bitmap);
SCRIVO_API MRESULT MdBitmapLoadEx(MHAMCM manager, MHStream stream, uint32_t fileType,
                                  MBITMAPEX* bitmap);
SCRIVO_API MRESULT MdBitmapSave(MHAMCM manager, MHStream stream, uint32_t fileType,
                                const MBITMAP* bitmap);
/* Saves into a file (created or truncated). */
SCRIVO_API MRESULT MdBitmapSave2(MHAMCM manager, const char* path, uint32_t fileType,
                                 const MBITMAP* bitmap);
/* Allocates the planes of a record whose format, width and height are set;
 * pitches are set from the width. Supported: MPAF_RGBA8888 and the other
 * 32-bit IDs, MPAF_GRAY8, MPAF_I420 (and its YUV variants), NV21. */
SCRIVO_API MRESULT MdBitmapAlloc(MHandle memHandle, MBITMAP* bitmap);
SCRIVO_API MRESULT MdBitmapFree(MHandle memHandle, MBITMAP* bitmap);
SCRIVO_API MRESULT MdBitmapResample(MHandle handle, const MBITMAP* src, MBITMAP* dst);
/* rotation in degrees (0, 90, 180, 270), clockwise; flip: bit 1
 * horizontal, bit 2 vertical, applied to the source before rotation. */
SCRIVO_API MRESULT MdBitmapCropRotFlipResample(MHandle handle, const MBITMAP* src,
                                               const MRECT* srcRect, MBITMAP* dst,
                                               const MRECT* dstRect, int32_t rotation,
                                               uint32_t flip);

/* ------------------------------------------------------------------------ */
/* Utilities.                                                               */
/* ------------------------------------------------------------------------ */

SCRIVO_API uint32_t MdUtilsNewColorID2Old(uint32_t newId);
SCRIVO_API uint32_t MdUtilsOldColorID2New(uint32_t oldId);
/* By the text after the last '.'; 0 when unknown. */
SCRIVO_API uint32_t MdUtilsGetFileType(const char* name);
/* By the first 10 bytes: 0 and *fileType on success, 4102 when fewer than
 * 10 bytes can be read, 3 when no type matches; the position is restored. */
SCRIVO_API MRESULT MdGetImgFileFormat(MHStream stream, uint32_t* fileType);
/* Component result to framework result; `encoding` selects 4103 for 0x8010. */
SCRIVO_API MRESULT MdUtilsConvertResult(MRESULT componentResult, int32_t encoding);
/* 0 and the codes in `keep` stay, anything else becomes 2. */
SCRIVO_API MRESULT MdUtilConvertErrorCode(MRESULT code, const MRESULT* keep, int32_t count);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_CODEC_H */
