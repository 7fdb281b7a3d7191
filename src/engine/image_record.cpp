// Copies and views between tagVPImage records and the working images.
//
// Into the engine (CreateCvImageFromVPImage) every record becomes a new,
// continuous 3-channel cv::Mat:
// - format 0, 3 channels: rows are read at the buffer convention's padded
//   length, Align4Row(width), whatever the record's pitch says; the pitch
//   only has to be at least that long, which guarantees the rows read lie
//   inside the buffer the record describes;
// - format 0, 4 channels: packed rows of width x 4 (pitch at least that),
//   the fourth byte dropped;
// - format 1: planar YUV 4:2:0 (layout in pixel_convert.cpp).
// Anything else (null record or data, width or height below 1, more than
// 2^28 pixels, depth other than 8, a short pitch) gives an empty Mat.
//
// Out of the engine (CopyCvImage2VPImageBuffer) the image's bytes 0..2 go to
// the record row by row at the record's pitch: verbatim for a 3-channel
// record, with 255 as the fourth byte for a 4-channel one. The record must
// match the image's width, height and depth, or it is left untouched and 0
// is returned. A one-channel (grey) image is written as three equal bytes a
// pixel, so grey renderings can go straight to a caller's colour buffer. A
// pitch shorter than width x 3 is refused: it cannot describe the rows.
//
// Views. CreateVPImageHeadFromCvImage borrows the Mat's pixels (release with
// FreeVPImageHead, which never frees them); CreateVPImage32HeadFromCvImage
// owns a fresh width x height x 4 block but, as the engine has always done,
// records the Mat's own (3-channel) row step as its pitch, so copies into
// it use that step. Records are allocated with new (std::nothrow).
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "engine/image.h"

namespace {

// Far beyond any photograph; refusing more keeps a corrupt size from
// turning into a giant allocation.
constexpr int64_t kMaxPixels = int64_t{1} << 28;

// Bits per channel of a Mat, as the record's depth field counts them.
int32_t BitDepth(const cv::Mat& m) {
    switch (m.depth()) {
        case CV_8U:
        case CV_8S:
            return 8;
        case CV_16U:
        case CV_16S:
        case CV_16F:
            return 16;
        case CV_32S:
        case CV_32F:
            return 32;
        default:
            return 64;
    }
}

bool UsableRecord(const tagVPImage* r) {
    return r != nullptr && r->data != nullptr && r->width > 0 && r->height > 0 && r->depth == 8;
}

// The image as 8-bit three channels (grey expanded), or empty when it has
// no such reading.
cv::Mat AsColour(const cv::Mat& image) {
    if (image.dims != 2 || image.depth() != CV_8U) return cv::Mat();
    if (image.channels() == 3) return image;
    if (image.channels() != 1) return cv::Mat();
    cv::Mat colour;
    cv::merge(std::vector<cv::Mat>{image, image, image}, colour);
    return colour;
}

// Copies a w x h block of 3-byte pixels from an image into a record at
// (dx, dy); the record's format, depth and pitch have been checked.
void PutBlock(const cv::Mat& colour, int sx, int sy, tagVPImage* record, int dx, int dy, int w,
              int h) {
    const ptrdiff_t pitch = record->pitch;
    if (record->channels == 3) {
        for (int y = 0; y < h; ++y) {
            const uint8_t* s = colour.ptr<uint8_t>(sy + y) + sx * 3;
            uint8_t* d = record->data + (dy + y) * pitch + dx * 3;
            // A view record of the same image copies onto itself.
            if (s != d) std::memmove(d, s, static_cast<size_t>(w) * 3);
        }
    } else {
        VPConvertRGB24ToARGB32(colour.ptr<uint8_t>(sy) + sx * 3, record->data + dy * pitch + dx * 4,
                               w, h, static_cast<int32_t>(colour.step[0]), record->pitch);
    }
}

bool WritableRecord(const cv::Mat& image, const tagVPImage* record) {
    return !image.empty() && image.dims == 2 && record != nullptr && record->data != nullptr &&
           BitDepth(image) == record->depth;
}

bool PitchHolds(const tagVPImage* record) {
    return (record->channels == 3 || record->channels == 4) &&
           static_cast<int64_t>(record->pitch) >= static_cast<int64_t>(record->width) * 3;
}

}  // namespace

cv::Mat CreateCvImageFromVPImage(const tagVPImage* image) {
    if (!UsableRecord(image)) return cv::Mat();
    const int32_t w = image->width, h = image->height;
    if (static_cast<int64_t>(w) * h > kMaxPixels) return cv::Mat();
    cv::Mat out(h, w, CV_8UC3);
    if (image->format == VP_FORMAT_RGB && image->channels == 3) {
        const ptrdiff_t row = Align4Row(w);
        if (image->pitch < row) return cv::Mat();
        if (row == w * 3) {
            RGB24_align(image->data, out.data, w, h);
        } else {
            for (int32_t y = 0; y < h; ++y) {
                std::memcpy(out.ptr<uint8_t>(y), image->data + y * row, static_cast<size_t>(w) * 3);
            }
        }
    } else if (image->format == VP_FORMAT_RGB && image->channels == 4) {
        if (image->pitch < static_cast<int64_t>(w) * 4) return cv::Mat();
        // Row by row: a single row is written without padding, which the
        // continuous Mat has none of.
        for (int32_t y = 0; y < h; ++y) {
            Convert4ChannelsTo3Channels(image->data + static_cast<ptrdiff_t>(y) * w * 4,
                                        out.ptr<uint8_t>(y), w, 1);
        }
    } else if (image->format == VP_FORMAT_YUV420) {
        const int32_t row = Align4Row(w);
        if (row == w * 3) {
            YUV420toRGB24_convert(image->data, out.data, w, h);
        } else {
            cv::Mat padded(h, row, CV_8UC1);
            YUV420toRGB24_convert(image->data, padded.data, w, h);
            cv::Mat(h, w, CV_8UC3, padded.data, row).copyTo(out);
        }
    } else {
        return cv::Mat();
    }
    return out;
}

cv::Mat CreateCvImageHeadFromVPImage(const tagVPImage* image) {
    if (!UsableRecord(image) || image->format != VP_FORMAT_RGB || image->channels < 1 ||
        image->channels > 4 ||
        image->pitch < static_cast<int64_t>(image->width) * image->channels) {
        return cv::Mat();
    }
    return cv::Mat(image->height, image->width, CV_8UC(image->channels), image->data,
                   static_cast<size_t>(image->pitch));
}

tagVPImage* CreateVPImageHeadFromCvImage(const cv::Mat& image) {
    if (image.empty() || image.dims != 2) return nullptr;
    auto* r = new (std::nothrow) tagVPImage;
    if (r == nullptr) return nullptr;
    *r = {VP_FORMAT_RGB,
          image.channels(),
          BitDepth(image),
          image.cols,
          static_cast<int32_t>(image.step[0]),
          image.rows,
          image.data};
    return r;
}

tagVPImage* CreateVPImage32HeadFromCvImage(const cv::Mat& image) {
    if (image.empty() || image.dims != 2) return nullptr;
    auto* r = new (std::nothrow) tagVPImage;
    if (r == nullptr) return nullptr;
    uint8_t* block = new (std::nothrow) uint8_t[static_cast<size_t>(image.total()) * 4];
    if (block == nullptr) {
        delete r;
        return nullptr;
    }
    *r = {VP_FORMAT_RGB, 4,    BitDepth(image), image.cols, static_cast<int32_t>(image.step[0]),
          image.rows,    block};
    return r;
}

void FreeVPImageHead(tagVPImage* record) {
    if (record == nullptr) return;
    record->data = nullptr;  // borrowed: the working image frees it
    delete record;
}

void FreeVPImage32Head(tagVPImage* record) {
    if (record == nullptr) return;
    delete[] record->data;
    delete record;
}

int CopyCvImage2VPImageBuffer(const cv::Mat& image, tagVPImage* record) {
    if (!WritableRecord(image, record) || image.cols != record->width ||
        image.rows != record->height) {
        return 0;
    }
    if (record->format != VP_FORMAT_RGB) return 1;
    if (!PitchHolds(record)) return 0;
    const cv::Mat colour = AsColour(image);
    if (colour.empty()) return 0;
    PutBlock(colour, 0, 0, record, 0, 0, colour.cols, colour.rows);
    return 1;
}

int CopyCvImage2VPImageBuffer2(const cv::Mat& image, tagVPImage* record) {
    if (!WritableRecord(image, record) || record->width < 1 || record->height < 1) return 0;
    if (record->format != VP_FORMAT_RGB) return 1;
    if (!PitchHolds(record)) return 0;
    const cv::Mat colour = AsColour(image);
    if (colour.empty()) return 0;
    // Centre the smaller extent in the larger, axis by axis.
    const int dw = colour.cols - record->width, dh = colour.rows - record->height;
    const int sx = std::max(dw / 2, 0), dx = std::max(-dw / 2, 0);
    const int sy = std::max(dh / 2, 0), dy = std::max(-dh / 2, 0);
    PutBlock(colour, sx, sy, record, dx, dy, std::min<int>(colour.cols, record->width),
             std::min<int>(colour.rows, record->height));
    return 1;
}
