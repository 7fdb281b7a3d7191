/*
 * Scrivo baseline JPEG encoder component (sequential DCT, Huffman coding,
 * standard tables), registered with the codec framework for file type 2.
 *
 * Calling order
 *   1. ajlJpgEncoderCreate(mem, &enc); ajlJpgEncoderAttachStream(enc, s).
 *   2. Set the image size (JpgEncSetImageSize or property 2), the input
 *      colour ID (property 8194), the quality (JpgSetQuality or 8449) and
 *      optionally sampling, restart interval, application segments and the
 *      block-coder mode.
 *   3. ajlJpgEncoderScanlines(enc, bitmap, lines) for bands of lines from
 *      top to bottom. The first call writes the header. When the lines
 *      given reach the image height the entropy coder is flushed and EOI
 *      written by itself; a caller that stops earlier (the final height is
 *      not known yet) calls JpgEncWriteFileTrailer and then
 *      JpgEncReWriteImageSize.
 *   4. ajlJpgEncoderDestroy(enc). The stream stays the caller's.
 *
 * Results are the component codes of codec.h: 0 success, 0x8001 invalid
 * argument (null encoder or pointer, bad size or value, unknown mode),
 * 0x8002 out of memory, 0x8008 unsupported colour ID or property, 0x8010
 * stream write or seek failure (no stream attached, short write).
 *
 * Input colour IDs (ajlJpgEncoderScanlines, property 8194). Either scheme
 * is accepted (the old IDs are small numbers, the new ones are not, so they
 * never collide):
 *   new 0x37001777 / old 36  R, G, B, A bytes (alpha ignored)
 *   new 0x37000777 / old 37  B, G, R, A bytes (alpha ignored)
 *   new 0x16001777 / old 1   R, G, B bytes
 *   new 0x16000777 / old 2   B, G, R bytes (OpenCV's order)
 *   new 0x50000811 (any YUV variant in bits 0x3000) / old 15   I420: Y, U,
 *                            V planes, chroma halved in both directions (odd
 *                            sizes round up)
 *   new 0x64000000 or 0x64001000 / old 29   8-bit grey
 * When property 8194 was never set, the bitmap's own pixelFormat is used.
 * Each plane pointer addresses the first line of the band; for I420 the
 * band must start on an even line (except the last, short band).
 */
#ifndef SCRIVO_JPEG_H
#define SCRIVO_JPEG_H

#include "scrivo/codec.h"
#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sampling modes (JpgEncSetSampling, property JPG_PROP_SAMPLING). */
enum {
    JPG_SAMPLING_AUTO = -1, /* default: grey for grey input, else 4:2:0 */
    JPG_SAMPLING_420 = 0,   /* Y 2x2, Cb 1x1, Cr 1x1 */
    JPG_SAMPLING_444 = 1,   /* all 1x1 */
    JPG_SAMPLING_GREY = 2,  /* one component (luminance only) */
    JPG_SAMPLING_422 = 3    /* Y 2x1, Cb 1x1, Cr 1x1 */
};

/* Encoder properties besides the framework's 2 (image size, 8 bytes, set
 * and get), 8194 (input colour ID, 4 bytes) and 8449 (quality, 4 bytes).
 * A value size other than the one listed gives 0x8001; unknown numbers
 * give 0x8008. */
enum {
    JPG_PROP_SAMPLING = 8450,         /* 4: JPG_SAMPLING_* */
    JPG_PROP_RESTART_INTERVAL = 8451, /* 4: MCUs between restarts, 0..65535 */
    JPG_PROP_APP_SEGMENTS = 8452,     /* any size: set only, see below */
    JPG_PROP_QUALITY_MODE = 8453,     /* 4: block-coder mode 0 or 1 */
    JPG_PROP_QUALITY_LEVEL = 8454,    /* 4: get only, 0..5 */
    JPG_PROP_LINES_DONE = 8455        /* 4: get only, lines encoded */
};

/* Default quality used when none is set. */
#define JPG_DEFAULT_QUALITY 90

SCRIVO_API MRESULT ajlJpgEncoderCreate(MHandle mem, void** encoder);
SCRIVO_API MRESULT ajlJpgEncoderDestroy(void* encoder);
SCRIVO_API MRESULT ajlJpgEncoderAttachStream(void* encoder, MHStream stream);
SCRIVO_API MRESULT ajlJpgEncoderSetProp(void* encoder, uint32_t prop, const void* value,
                                        int32_t size);
SCRIVO_API MRESULT ajlJpgEncoderGetProp(void* encoder, uint32_t prop, void* value, int32_t size);
/* Encodes the first `lines` lines of the bitmap (its width must be the
 * image width, lines >= 1 and <= bitmap->height). */
SCRIVO_API MRESULT ajlJpgEncoderScanlines(void* encoder, const MBITMAP* bitmap, int32_t lines);

/* Builds both quantisation tables from the quality (below 1 acts as 1,
 * above 100 as 100). 0x8001 for a null encoder. Set it before the header
 * is written (property 8449 refuses later changes with 0x8001). */
SCRIVO_API MRESULT JpgSetQuality(void* encoder, int32_t quality);
/* Block coder: 0 (default) the fast floating-point DCT with reciprocal
 * quantisation; 1 the integer DCT with exact rounding division, identical
 * on every platform. Other modes give 0x8001. */
SCRIVO_API MRESULT JpgEncSetQualityMode(void* encoder, int32_t mode);
SCRIVO_API MRESULT JpgEncSetImageSize(void* encoder, int32_t width, int32_t height);
SCRIVO_API MRESULT JpgEncSetSampling(void* encoder, int32_t mode);
/* MCUs between restart markers; 0 turns them off. */
SCRIVO_API MRESULT JpgEncSetRestartInterval(void* encoder, int32_t mcus);
/* Complete application segments (each starting with its 0xFF 0xEn marker
 * and length), written after SOI instead of the JFIF APP0. The bytes are
 * copied. A null pointer or size 0 returns to JFIF. The bytes must be a
 * sequence of well-formed APPn/COM segments, else 0x8001. */
SCRIVO_API MRESULT JpgEncSetAppSegments(void* encoder, const uint8_t* data, int32_t size);
/* Writes all segments up to and including the scan header; a second call
 * writes nothing. */
SCRIVO_API MRESULT JpgEncWriteHeader(void* encoder);
/* Finishes the last partial MCU row (repeating its last line), flushes the
 * entropy coder and writes EOI. A second call writes nothing. */
SCRIVO_API MRESULT JpgEncWriteFileTrailer(void* encoder);
/* Patches the frame header's height and width in the stream (after the
 * header has been written); 0x8010 for a failed seek or write. */
SCRIVO_API MRESULT JpgEncReWriteImageSize(void* encoder, int32_t width, int32_t height);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_JPEG_H */
