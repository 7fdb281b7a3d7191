// Rotation by quarter turns and resampling of caller records.
//
// Rotation. With W x H the source size, the codes map destination pixel
// (x', y') to a source pixel as follows:
//   0  copy                      (x', y')
//   1  quarter turn CCW, H x W   (W - 1 - y', x')
//   2  half turn, W x H          (W - 1 - x', H - 1 - y')
//   3  quarter turn CW, H x W    (y', H - 1 - x')
// and any other code gives an empty image. OpenCV's rotate (a blocked
// transpose plus a flip) produces exactly these mappings and is far kinder
// to the cache than a pixel walk down the source's columns, so it does the
// work for every pixel size it supports; other pixel sizes (more than four
// channels) take a plain per-pixel copy.
//
// Resampling (VPResampleImage). The source record is converted to a working
// image, resized to the requested size by area interpolation, optionally
// smoothed in place by a square Gaussian of aperture 2 x level + 1 (sigma
// derived from the aperture, edge pixels replicated beyond the border) and
// copied into the destination record, which must already have that size:
// a record of another size silently receives nothing, as with every copy
// out of the engine. Levels above 1024 are refused, as are null records,
// sizes below 1 and destinations over 2^28 pixels; nothing throws out.
// FitAndFilteImage is the same pass with cubic interpolation at the source's
// own size. VPImageResizeRGB24 only names an interpolation (3 area for mode
// 1, else 2 cubic, OpenCV's codes) and touches no pixels.
#include <opencv2/imgproc.hpp>

#include <cstring>

#include "engine/image.h"

namespace {

constexpr int32_t kMaxSmoothing = 1024;
constexpr int64_t kMaxPixels = int64_t{1} << 28;

bool RotatesNatively(size_t elemSize) {
    switch (elemSize) {
        case 1:
        case 2:
        case 3:
        case 4:
        case 6:
        case 8:
        case 12:
        case 16:
        case 24:
        case 32:
            return true;
        default:
            return false;
    }
}

cv::Mat RotateByPixel(const cv::Mat& src, tagVPRotateDegree degree) {
    const int w = src.cols, h = src.rows;
    const size_t px = src.elemSize();
    cv::Mat dst = degree == VP_ROTATE_180 ? cv::Mat(h, w, src.type()) : cv::Mat(w, h, src.type());
    for (int y = 0; y < dst.rows; ++y) {
        uint8_t* d = dst.ptr<uint8_t>(y);
        for (int x = 0; x < dst.cols; ++x, d += px) {
            int sx = 0, sy = 0;
            if (degree == VP_ROTATE_CCW_90) {
                sx = w - 1 - y, sy = x;
            } else if (degree == VP_ROTATE_180) {
                sx = w - 1 - x, sy = h - 1 - y;
            } else {
                sx = y, sy = h - 1 - x;
            }
            std::memcpy(d, src.ptr<uint8_t>(sy) + sx * px, px);
        }
    }
    return dst;
}

}  // namespace

cv::Mat RotateImageWithfixDegree(const cv::Mat& image, tagVPRotateDegree degree) {
    if (image.empty() || image.dims != 2) return cv::Mat();
    switch (degree) {
        case VP_ROTATE_NONE:
            return image.clone();
        case VP_ROTATE_CCW_90:
        case VP_ROTATE_180:
        case VP_ROTATE_CW_90:
            break;
        default:
            return cv::Mat();
    }
    if (!RotatesNatively(image.elemSize())) return RotateByPixel(image, degree);
    const int code = degree == VP_ROTATE_CCW_90 ? cv::ROTATE_90_COUNTERCLOCKWISE
                     : degree == VP_ROTATE_180  ? cv::ROTATE_180
                                                : cv::ROTATE_90_CLOCKWISE;
    cv::Mat out;
    cv::rotate(image, out, code);
    return out;
}

namespace {

uint32_t ResizeAndSmooth(tagVPImage** src, tagVPImage** dst, int32_t width, int32_t height,
                         int interpolation, int32_t smoothing) {
    if (src == nullptr || *src == nullptr || (*src)->data == nullptr) return 0;
    if (dst == nullptr || *dst == nullptr || width < 1 || height < 1 || smoothing < 0 ||
        smoothing > kMaxSmoothing || static_cast<int64_t>(width) * height > kMaxPixels) {
        return 0;
    }
    try {
        const cv::Mat source = CreateCvImageFromVPImage(*src);
        if (source.empty()) return 0;
        cv::Mat resized;
        cv::resize(source, resized, cv::Size(width, height), 0, 0, interpolation);
        if (smoothing != 0) {
            const int aperture = 2 * smoothing + 1;
            cv::GaussianBlur(resized, resized, cv::Size(aperture, aperture), 0, 0,
                             cv::BORDER_REPLICATE);
        }
        CopyCvImage2VPImageBuffer(resized, *dst);
        return 1;
    } catch (...) {
        return 0;
    }
}

}  // namespace

uint32_t VPResampleImage(tagVPImage** src, tagVPImage** dst, int32_t width, int32_t height,
                         int32_t smoothing) {
    return ResizeAndSmooth(src, dst, width, height, cv::INTER_AREA, smoothing);
}

uint32_t FitAndFilteImage(tagVPImage** src, tagVPImage** dst, int32_t smoothing) {
    if (src == nullptr || *src == nullptr) return 0;
    return ResizeAndSmooth(src, dst, (*src)->width, (*src)->height, cv::INTER_CUBIC, smoothing);
}

int32_t VPImageResizeRGB24(tagVPImage**, tagVPImage**, int32_t, int32_t, int32_t mode) {
    return mode == 1 ? cv::INTER_AREA : cv::INTER_CUBIC;
}
