// Pixel conversions below the engine and the vision code: raw 24/32-bit and
// YUV 4:2:0 buffers, and the luma/chroma planes the enhancement works on.
//
// A 24-bit buffer has rows of width x 3 bytes rounded up to a multiple of 4
// (Align4Row), as OpenCV images do. The arithmetic is fixed point and
// identical on every machine; the optimised row kernels are held byte-equal
// to the plain reference kernel by the tests.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

// Row length in bytes of a 24-bit buffer of the given width.
inline int32_t Align4Row(int32_t width) {
    return (width * 3 + 3) & ~3;
}

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
