// Test images: synthetic pictures compressed with libjpeg's own encoder.
#ifndef SCRIVO_TESTS_CODEC_TEST_JPEG_H
#define SCRIVO_TESTS_CODEC_TEST_JPEG_H

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

#include "support/libjpeg_ref.h"

#include "scrivo/codec.h"

namespace codec_test {

struct JpegOptions {
    bool progressive = false;
    int restartRows = 0;
    bool subsample420 = true;
    bool grey = false;
    int quality = 90;
};

// RGB pixels with smooth ramps plus sharp detail, so that chroma edges and
// upsampling show up in comparisons.
inline std::vector<uint8_t> Picture(int w, int h) {
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &rgb[(static_cast<size_t>(y) * w + x) * 3];
            p[0] = static_cast<uint8_t>(x * 255 / (w > 1 ? w - 1 : 1));
            p[1] = static_cast<uint8_t>(y * 255 / (h > 1 ? h - 1 : 1));
            p[2] = static_cast<uint8_t>(((x / 3 + y / 5) % 2) ? 230 : 20);
        }
    return rgb;
}

inline std::vector<uint8_t> Compress(const std::vector<uint8_t>& rgb, int w, int h,
                                     const JpegOptions& o = {}) {
    libjpeg_ref::CompressOptions c;
    c.grey = o.grey;
    c.quality = o.quality;
    if (!o.subsample420) c.hSamp = c.vSamp = 1;
    c.progressive = o.progressive;
    c.restartRows = o.restartRows;
    return libjpeg_ref::Compress(rgb.data(), w, h, size_t(w) * 3, c);
}

// A manager with the JPEG components, destroyed with the test.
struct Manager {
    MHAMCM m = nullptr;
    Manager() {
        AMCM_Create(nullptr, &m);
        MdRegisterJpegComponents(m);
    }
    ~Manager() { AMCM_Destroy(m); }
};

struct Stream {
    MHStream s;
    explicit Stream(std::vector<uint8_t>& bytes)
        : s(MStreamOpenFromMemoryBlock(bytes.data(), static_cast<int32_t>(bytes.size()))) {}
    Stream() : s(MStreamOpenFromMemoryBlock(nullptr, 0)) {}
    ~Stream() { MStreamClose(s); }
};

struct Rgba {
    MBITMAP bm{};
    std::vector<uint8_t> px;
    Rgba(int w, int h) : px(static_cast<size_t>(w) * h * 4) {
        bm.pixelFormat = MPAF_RGBA8888;
        bm.width = w;
        bm.height = h;
        bm.pitch[0] = w * 4;
        bm.plane[0] = px.data();
    }
    const uint8_t* at(int x, int y) const {
        return &px[(static_cast<size_t>(y) * bm.width + x) * 4];
    }
};

}  // namespace codec_test

#endif
