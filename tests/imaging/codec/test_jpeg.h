// Test images: synthetic pictures compressed with libjpeg's own encoder.
#ifndef SCRIVO_TESTS_CODEC_TEST_JPEG_H
#define SCRIVO_TESTS_CODEC_TEST_JPEG_H

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

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
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = static_cast<JDIMENSION>(w);
    c.image_height = static_cast<JDIMENSION>(h);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    if (o.grey) jpeg_set_colorspace(&c, JCS_GRAYSCALE);
    jpeg_set_quality(&c, o.quality, TRUE);
    if (!o.subsample420 && !o.grey) c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = 1;
    if (o.progressive) jpeg_simple_progression(&c);
    c.restart_in_rows = o.restartRows;
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(&rgb[static_cast<size_t>(c.next_scanline) * w * 3]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<uint8_t> bytes(out, out + size);
    free(out);
    return bytes;
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
