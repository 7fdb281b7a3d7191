// Photographs stored turned: a picture as a viewer should show it, stored
// the way a camera held sideways (or upside down, or a mirror) stores it,
// with an EXIF block whose Orientation says how to show it again.
#ifndef SCRIVO_TESTS_SESSION_ORIENTATION_PHOTOS_H
#define SCRIVO_TESTS_SESSION_ORIENTATION_PHOTOS_H

#include <utility>

#include "support/capture_test_util.h"

namespace orientationtest {

using capturetest::Bytes;

// Where the viewed pixel (X, Y) lies in the stored sw x sh image, by the
// meaning of EXIF Orientation o (which stored row and column are the
// viewed top, bottom, left or right).
inline std::pair<int, int> StoredAt(int o, int X, int Y, int sw, int sh) {
    switch (o) {
        case 2:
            return {sw - 1 - X, Y};
        case 3:
            return {sw - 1 - X, sh - 1 - Y};
        case 4:
            return {X, sh - 1 - Y};
        case 5:
            return {Y, X};
        case 6:
            return {Y, sh - 1 - X};
        case 7:
            return {sw - 1 - Y, sh - 1 - X};
        case 8:
            return {sw - 1 - Y, X};
        default:
            return {X, Y};
    }
}

// The stored R,G,B,A pixels (and size) of a vw x vh picture as viewed.
inline Bytes StoreAs(int o, const Bytes& viewed, int vw, int vh, int* sw, int* sh) {
    *sw = o >= 5 ? vh : vw;
    *sh = o >= 5 ? vw : vh;
    Bytes stored(viewed.size());
    for (int Y = 0; Y < vh; ++Y)
        for (int X = 0; X < vw; ++X) {
            const auto [x, y] = StoredAt(o, X, Y, *sw, *sh);
            for (int c = 0; c < 4; ++c)
                stored[(size_t(y) * *sw + x) * 4 + c] = viewed[(size_t(Y) * vw + X) * 4 + c];
        }
    return stored;
}

// An EXIF block with a thumbnail whose IFD0 carries Orientation o.
inline Bytes OrientationBlock(MHAMCM m, int o) {
    exiftest::BlockOptions options;
    options.thumbnail = capturetest::EncodeRgba(m, capturetest::Picture(40, 30), 40, 30);
    Bytes block = exiftest::BuildExifBlock(options);
    const uint32_t entry = 10 + exiftest::kIfd0 + 2 + 2 * 12;  // a SHORT field, retagged
    block[entry] = 0x12, block[entry + 1] = 0x01, block[entry + 8] = uint8_t(o);
    return block;
}

// The picture's JPEG, stored turned for Orientation o.
inline Bytes OrientedJpeg(MHAMCM m, const Bytes& viewed, int vw, int vh, int o) {
    int sw = 0, sh = 0;
    const Bytes stored = StoreAs(o, viewed, vw, vh, &sw, &sh);
    return capturetest::WithExif(capturetest::EncodeRgba(m, stored, sw, sh, 95),
                                 OrientationBlock(m, o));
}

// The Orientation a JPEG's EXIF block says (0 without a block).
inline int32_t OrientationOf(const Bytes& jpeg) {
    const Bytes block = capturetest::ExifOf(jpeg);
    int32_t o = 0;
    if (!block.empty()) MeGetOrientation(block.data(), uint32_t(block.size()), &o);
    return o;
}

// A light page with a dark mark in its top-left corner on a dark table, as
// viewed: the page covers (50, 60) to (350, 240) of 400 x 300.
inline Bytes MarkedPage(int w = 400, int h = 300) {
    Bytes px(size_t(w) * h * 4, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool page = x >= w / 8 && x < w * 7 / 8 && y >= h / 5 && y < h * 4 / 5;
            const bool mark =
                x >= w / 8 + 10 && x < w / 8 + 90 && y >= h / 5 + 10 && y < h / 5 + 70;
            for (int c = 0; c < 3; ++c)
                px[(size_t(y) * w + x) * 4 + c] = mark ? 20 : (page ? 235 : 45);
        }
    return px;
}

// Whether a decoded page shows the mark in its top-left quarter and not in
// the other three.
inline bool MarkTopLeft(const MBITMAP& page) {
    auto dark = [&](int qx, int qy) {
        long sum = 0, n = 0;
        for (int y = qy * page.height / 2; y < (qy + 1) * page.height / 2; ++y)
            for (int x = qx * page.width / 2; x < (qx + 1) * page.width / 2; ++x, ++n)
                sum += page.plane[0][y * page.pitch[0] + x * 4 + 1];
        return n > 0 && sum / n < 200;
    };
    return dark(0, 0) && !dark(1, 0) && !dark(0, 1) && !dark(1, 1);
}

}  // namespace orientationtest

#endif
