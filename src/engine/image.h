// Engine images: the tagVPImage record, the OpenCV working images, the copies
// between them and the pixel conversions.
//
// Working images are cv::Mat, 8 bits a channel, 3 channels for colour. The
// raw-buffer conversions below follow the engine's buffer convention: a
// 24-bit buffer has rows of width x 3 bytes rounded up to a multiple of 4
// (Align4Row). Records made as views of a working image borrow its pixels
// and are released with FreeVPImageHead, never by freeing their data.
#pragma once

#include <opencv2/core.hpp>

#include "scrivo/engine.h"

// Row length in bytes of a 24-bit buffer of the given width.
inline int32_t Align4Row(int32_t width) {
    return (width * 3 + 3) & ~3;
}

// Record <-> working image. A bad record (null, size below 1, depth not 8,
// pitch too short for its rows) converts to an empty image.
cv::Mat CreateCvImageFromVPImage(const tagVPImage* image);         // converted copy, 3 channels
cv::Mat CreateCvImageHeadFromVPImage(const tagVPImage* image);     // wraps data, no copy
tagVPImage* CreateVPImageHeadFromCvImage(const cv::Mat& image);    // borrows pixels
tagVPImage* CreateVPImage32HeadFromCvImage(const cv::Mat& image);  // owns a w*h*4 block
void FreeVPImageHead(tagVPImage* record);                          // clears data, frees the record
void FreeVPImage32Head(tagVPImage* record);  // frees the owned block and the record
// Copy into a caller's record of 3 or 4 channels (4: 255 as the fourth
// byte); a grey image is written as three equal bytes. 0 and the record
// untouched on a width/height/depth mismatch or a pitch below width x 3;
// 1 without copying for a YUV record.
int CopyCvImage2VPImageBuffer(const cv::Mat& image, tagVPImage* record);
// The same, centring the smaller of image and record in the larger and
// copying the overlap.
int CopyCvImage2VPImageBuffer2(const cv::Mat& image, tagVPImage* record);

// Raw-buffer pixel conversions: 1 on success, 0 on a null buffer; a height
// below 1 returns 1 at once. VPConvertRGB24ToARGB32 is in engine.h.
int Convert4ChannelsTo3Channels(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height);
int RGB24_align(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height);
int YUV420toRGB24_convert(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height);
int RGB24toYUV420_convert(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height);

// Implementations of the luma/chroma conversions below; all give the same
// bytes. kAuto is the fastest one this machine runs. The others are there so
// that tests and benchmarks can hold each against kReference, the plain
// per-pixel arithmetic; a conversion asked for one that cannot run here
// returns 0.
enum class PlaneKernel { kAuto, kReference, kPortable, kSse2, kAvx2 };
bool PlaneKernelAvailable(PlaneKernel kernel);

// Luma/chroma planes of a 3-channel image (bytes read as blue, green, red).
// The planes are (re)allocated as 8-bit one-channel images of src's size.
int RGB24ToYCbCr(const cv::Mat& src, cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb,
                 PlaneKernel kernel = PlaneKernel::kAuto);
// Only the Y plane of RGB24ToYCbCr, byte for byte.
int RGB24ToY(const cv::Mat& src, cv::Mat& Y, PlaneKernel kernel = PlaneKernel::kAuto);
// dst is (re)allocated as an 8-bit 3-channel image of the planes' size.
int YCbCrToRGB24(cv::Mat& dst, const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb,
                 PlaneKernel kernel = PlaneKernel::kAuto);

// Quarter-turn rotation of any channel count; empty for an unknown code.
cv::Mat RotateImageWithfixDegree(const cv::Mat& image, tagVPRotateDegree degree);
