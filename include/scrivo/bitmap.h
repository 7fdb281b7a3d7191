/*
 * Scrivo bitmap toolkit: stand-alone helpers around the codec framework's
 * bitmap records. Scaling and pixel-format conversion (ConvertCS), whole and
 * stepwise JPEG decoding and encoding, cropping, alpha and mask operations,
 * thumbnails of camera frames and numbered files in a folder. The capture
 * session uses ConvertCS for its thumbnails; the rest serves hosts that
 * handle camera frames themselves.
 */
#ifndef SCRIVO_BITMAP_H
#define SCRIVO_BITMAP_H

#include "scrivo/codec.h"
#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

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

#endif /* SCRIVO_BITMAP_H */
