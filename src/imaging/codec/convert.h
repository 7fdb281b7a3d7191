/*
 * The one place where colour IDs meet pixel layouts and libyuv: the layout
 * of each colour ID, conversions between R,G,B,A rows and every layout,
 * scaling of 4-byte pixels and the NV21 to I420 repacking. The codec
 * framework (sessions, components, resampling) and the bitmap toolkit
 * (ConvertCS) both convert through it.
 *
 * Everything meets in R,G,B,A bytes, which libyuv calls "ABGR" (it names
 * formats by a little-endian 32-bit word). Grey is always full range; I420
 * and NV21 take the YUV matrix the caller names: the codec framework works
 * in BT.601 studio range, ConvertCS lets its caller choose.
 */
#ifndef SCRIVO_IMAGING_CODEC_CONVERT_H
#define SCRIVO_IMAGING_CODEC_CONVERT_H

#include <cstdint>
#include <vector>

#include "scrivo/codec.h"

namespace scrivo::codec {

/* Pixel layout of a colour ID (new scheme; NV21 also under its old ID
 * 0x70001002, which sessions carry unchanged). */
enum class Layout { Unsupported, Rgba, Bgra, Gray, I420, NV21 };
Layout LayoutOf(uint32_t id);
/* Bytes a pixel of the first plane: 4 for the packed layouts, else 1. */
int32_t FirstPlaneBytes(Layout layout);
/* True when the record has the planes its layout needs. */
bool HasPlanes(const MBITMAP* b, Layout layout);

enum class YuvRange { Full, Studio };

/* Converts lines [top, bottom) of an R,G,B,A image of dst's width into
 * dst's layout (dst planes address line 0); YUV bands must start on even
 * lines. 0, 2 (libyuv refused, odd YUV band), 3 (unsupported layout) or 4. */
MRESULT RgbaToBitmap(const uint8_t* rgba, int32_t stride, MBITMAP* dst, Layout layout, int32_t top,
                     int32_t bottom, YuvRange range);
/* Converts a whole bitmap into R,G,B,A rows, width x 4 bytes apart. */
MRESULT BitmapToRgba(const MBITMAP* src, YuvRange range, std::vector<uint8_t>* rgba);

/* How 4-byte pixels are combined when scaled: point sampling, libyuv's box
 * filter, bilinear, or area averaging (the box filter halving while the
 * reduction left is two or more, so that every source pixel counts). */
enum class ScaleFilter { Point, Box, Bilinear, Area };
/* Scales 4-byte pixels (any channel order). 0, 2 or 4. */
MRESULT Scale4(const uint8_t* src, int32_t srcStride, int32_t sw, int32_t sh, uint8_t* dst,
               int32_t dstStride, int32_t dw, int32_t dh, ScaleFilter filter);

/* The first `lines` lines of an NV21 record as I420 planes in *buffer;
 * *i420 views them (format MPAF_I420). 0, 2 or 4. */
MRESULT RepackNv21AsI420(const MBITMAP* nv21, int32_t lines, std::vector<uint8_t>* buffer,
                         MBITMAP* i420);

}  // namespace scrivo::codec

#endif
