// Why a photograph does not decode: the decoder's own results for a frame
// over the pixel limit and for CMYK data, and the end of the stream (a
// photograph missing only its end marker decodes to the same pixels, one
// missing data does not, progressive scans included).
#include <gtest/gtest.h>

#include "test_jpeg.h"

using namespace codec_test;

namespace {

MRESULT Load(std::vector<uint8_t> bytes, std::vector<uint8_t>* pixels = nullptr) {
    Manager mgr;
    Stream st(bytes);
    MBITMAP bm{};
    bm.pixelFormat = MPAF_RGBA8888;
    const MRESULT r = MdBitmapLoad(mgr.m, st.s, 0, &bm);
    if (r == 0 && pixels != nullptr)
        pixels->assign(bm.plane[0], bm.plane[0] + size_t(bm.pitch[0]) * bm.height);
    MdBitmapFree(nullptr, &bm);
    return r;
}

std::vector<uint8_t> CompressCmyk(int w, int h) {
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = static_cast<JDIMENSION>(w);
    c.image_height = static_cast<JDIMENSION>(h);
    c.input_components = 4;
    c.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&c);
    jpeg_start_compress(&c, TRUE);
    std::vector<uint8_t> row(static_cast<size_t>(w) * 4, 100);
    for (int y = 0; y < h; ++y) {
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&c, &p, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<uint8_t> bytes(out, out + size);
    std::free(out);
    return bytes;
}

}  // namespace

TEST(CodecReasons, TooLargeAndCmykHaveTheirOwnResults) {
    // Frame headers of 60000 x 60000 (over the pixel limit) and 65535 x 65535
    // (over libjpeg's side limit too) on a small photograph's data.
    for (const int side : {60000, 65535}) {
        auto bomb = Compress(Picture(16, 16), 16, 16, {});
        for (size_t i = 2; i + 8 < bomb.size(); ++i) {
            if (bomb[i] == 0xFF && bomb[i + 1] == 0xC0) {
                bomb[i + 5] = bomb[i + 7] = static_cast<uint8_t>(side >> 8);
                bomb[i + 6] = bomb[i + 8] = static_cast<uint8_t>(side & 0xFF);
                break;
            }
        }
        EXPECT_EQ(Load(bomb), MRESULT{MD_ERR_IMAGE_TOO_LARGE}) << side;
    }
    EXPECT_EQ(Load(CompressCmyk(32, 16)), MRESULT{MD_ERR_CMYK_UNSUPPORTED});
    Manager mgr;
    auto cmyk = CompressCmyk(8, 8);
    Stream st(cmyk);
    MHCODEC s = nullptr;
    EXPECT_EQ(MCodec_DecodeCreate(mgr.m, st.s, 0, &s), MRESULT{MD_ERR_CMYK_UNSUPPORTED});
    EXPECT_EQ(s, nullptr);
}

TEST(CodecReasons, OnlyTheEndMarkerMayBeMissing) {
    JpegOptions restart;
    restart.restartRows = 1;
    JpegOptions progressive;
    progressive.progressive = true;
    for (const JpegOptions& o : {JpegOptions{}, restart, progressive}) {
        const auto whole = Compress(Picture(70, 45), 70, 45, o);
        ASSERT_EQ(whole[whole.size() - 2], 0xFF);
        std::vector<uint8_t> expected, got;
        ASSERT_EQ(Load(whole, &expected), 0u);
        EXPECT_EQ(Load({whole.begin(), whole.end() - 2}, &got), 0u) << o.progressive;
        EXPECT_EQ(got, expected);
        EXPECT_NE(Load({whole.begin(), whole.end() - 40}), 0u) << o.progressive;
        if (!o.progressive) continue;
        // Cut before the last scan: every marker is intact, data is missing.
        size_t lastScan = 0;
        for (size_t i = 2; i + 1 < whole.size(); ++i)
            if (whole[i] == 0xFF && whole[i + 1] == 0xDA) lastScan = i;
        EXPECT_NE(Load({whole.begin(), whole.begin() + lastScan}), 0u);
    }
}
