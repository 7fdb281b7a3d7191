// Decoding through the framework: sizes, scaled and regional pixels,
// conversions, corrupt input and the encode round trip.
#include <gtest/gtest.h>

#include <cstring>

#include "test_jpeg.h"

using namespace codec_test;

namespace {

// Decodes `bytes` with the document path's calling order: the scanline call
// is given the source rectangle that DST_REGION set.
MRESULT Decode(MHAMCM m, std::vector<uint8_t>& bytes, const MRECT& region, MBITMAP* dst) {
    Stream st(bytes);
    MHCODEC s = nullptr;
    MRESULT r = MCodec_DecodeCreate(m, st.s, 0, &s);
    if (r != 0) return r;
    const int32_t size[2] = {dst->width, dst->height};
    const uint32_t fmt = MdUtilsNewColorID2Old(dst->pixelFormat);
    int32_t done = 0, status = -1;
    r = MCodec_SetProp(s, MD_PROP_DST_REGION, &region, 16);
    if (r == 0) r = MCodec_SetProp(s, MD_PROP_ZOOM_SCALE, size, 8);
    if (r == 0) r = MCodec_SetProp(s, MD_PROP_PIXEL_FORMAT, &fmt, 4);
    if (r == 0) r = MCodec_DecodeScanlines(s, dst, &region, &done, &status);
    if (r == 0 && (done != dst->height || status != 0)) r = 1;
    MCodec_Destroy(s);
    return r;
}

std::vector<uint8_t> DirectDecode(const std::vector<uint8_t>& bytes) {
    jpeg_decompress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_mem_src(&c, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&c, TRUE);
    c.out_color_space = JCS_EXT_RGBA;
    jpeg_start_decompress(&c);
    std::vector<uint8_t> px(static_cast<size_t>(c.output_width) * c.output_height * 4);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = &px[static_cast<size_t>(c.output_scanline) * c.output_width * 4];
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    return px;
}

int Scaled(int lo, int hi, int d) {
    return (hi + d - 1) / d - lo / d;
}

}  // namespace

TEST(CodecDecode, RegionsAndReductionsMatchFullDecode) {
    Manager mgr;
    const int w = 203, h = 157;
    const auto rgb = Picture(w, h);
    JpegOptions variants[5];
    variants[1].progressive = true;
    variants[2].restartRows = 1;
    variants[3].subsample420 = false;
    variants[4].grey = true;
    for (const JpegOptions& o : variants) {
        auto bytes = Compress(rgb, w, h, o);
        std::vector<Rgba> full;
        for (int d : {1, 2, 4, 8}) {
            full.emplace_back(Scaled(0, w, d), Scaled(0, h, d));
            ASSERT_EQ(Decode(mgr.m, bytes, {0, 0, w, h}, &full.back().bm), 0u);
        }
        // Regions that start mid-MCU, odd ones, and one touching the edges.
        const MRECT regions[] = {{37, 45, 150, 120},
                                 {1, 1, 18, 9},
                                 {100, 60, w, h},
                                 {64, 32, 66, 34},
                                 {9, 130, 200, 157}};
        for (const MRECT& g : regions)
            for (int d : {1, 2, 4, 8}) {
                Rgba part(Scaled(g.left, g.right, d), Scaled(g.top, g.bottom, d));
                ASSERT_EQ(Decode(mgr.m, bytes, g, &part.bm), 0u) << d;
                // The decoder takes the first reduction that gives this size.
                int k = 0;
                while (Scaled(g.left, g.right, 1 << k) != part.bm.width ||
                       Scaled(g.top, g.bottom, 1 << k) != part.bm.height)
                    ++k;
                const int dd = 1 << k;
                for (int y = 0; y < part.bm.height; ++y)
                    ASSERT_EQ(std::memcmp(part.at(0, y), full[k].at(g.left / dd, g.top / dd + y),
                                          static_cast<size_t>(part.bm.width) * 4),
                              0)
                        << "d=" << dd << " region " << g.left << "," << g.top << " row " << y
                        << " progressive=" << o.progressive;
            }
    }
    // The full-size decode equals libjpeg's own decode into R,G,B,A.
    auto bytes = Compress(rgb, w, h);
    Rgba full(w, h);
    ASSERT_EQ(Decode(mgr.m, bytes, {0, 0, w, h}, &full.bm), 0u);
    EXPECT_EQ(full.px, DirectDecode(bytes));
}

TEST(CodecDecode, ZoomScaleChoiceAndOtherSizes) {
    Manager mgr;
    auto bytes = Compress(Picture(203, 157), 203, 157);
    Stream st(bytes);
    MHCODEC s = nullptr;
    ASSERT_EQ(MCodec_DecodeCreate(mgr.m, st.s, 0, &s), 0u);
    MCODEC_COMPONENT* c = nullptr;
    ASSERT_EQ(AMCM_CreateComponent(mgr.m, MD_COMPONENT_JPEG_DECODER, &c), 0u);
    MStreamSeek(st.s, 0, 0);
    ASSERT_EQ(c->Open(c->self, st.s, nullptr), 0u);
    const MRECT g{5, 3, 203, 157};
    ASSERT_EQ(c->SetProp(c->self, MD_PROP_DST_REGION, &g, 16), 0u);
    int32_t denom = 0;
    // ceil(203/4) - floor(5/4) = 50, ceil(157/4) - floor(3/4) = 40.
    const int32_t quarter[2] = {50, 40};
    EXPECT_EQ(c->SetProp(c->self, MD_PROP_ZOOM_SCALE, quarter, 8), 0u);
    c->GetProp(c->self, MD_PROP_JPEG_SCALE, &denom, 4);
    EXPECT_EQ(denom, 4);
    const int32_t odd[2] = {51, 40};
    EXPECT_EQ(c->SetProp(c->self, MD_PROP_ZOOM_SCALE, odd, 8), 3u);
    EXPECT_EQ(c->SetProp(c->self, MD_PROP_ZOOM_SCALE, odd, 4), 2u);
    c->Destroy(c->self);
    MCodec_Destroy(s);

    // Sizes that are no power-of-two reduction are scaled by the framework,
    // and the other destination formats are converted.
    Rgba scaled(77, 61);
    ASSERT_EQ(Decode(mgr.m, bytes, {0, 0, 203, 157}, &scaled.bm), 0u);
    EXPECT_GT(scaled.at(76, 0)[0], 200);  // red ramp reaches the right edge
    EXPECT_LT(scaled.at(0, 0)[0], 30);
    for (uint32_t fmt : {MPAF_I420, MPAF_OTHERS_NV21, MPAF_GRAY8}) {
        MBITMAP bm{};
        bm.pixelFormat = fmt;
        bm.width = 101;
        bm.height = 79;
        ASSERT_EQ(MdBitmapAlloc(nullptr, &bm), 0u);
        EXPECT_EQ(Decode(mgr.m, bytes, {0, 0, 203, 157}, &bm), 0u) << std::hex << fmt;
        // Bright green bottom-right, dark top-left in luma.
        EXPECT_GT(bm.plane[0][78 * bm.pitch[0] + 100], bm.plane[0][0] + 100);
        MdBitmapFree(nullptr, &bm);
    }
}

TEST(CodecDecode, BitmapLoadAndCorruptInput) {
    Manager mgr;
    auto bytes = Compress(Picture(64, 48), 64, 48, {});
    {
        Stream st(bytes);
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;  // width 0: the image's own size
        ASSERT_EQ(MdBitmapLoad(mgr.m, st.s, 0, &bm), 0u);
        EXPECT_EQ(bm.width, 64);
        EXPECT_EQ(bm.height, 48);
        MdBitmapFree(nullptr, &bm);
    }
    {
        Stream st(bytes);
        MBITMAPEX ex{};
        ex.bitmap.pixelFormat = MPAF_RGBA8888;
        ex.srcRegion = {16, 8, 48, 40};
        ASSERT_EQ(MdBitmapLoadEx(mgr.m, st.s, 2, &ex), 0u);
        EXPECT_EQ(ex.bitmap.width, 32);
        EXPECT_EQ(ex.bitmap.height, 32);
        MdBitmapFree(nullptr, &ex.bitmap);
    }
    auto tryLoad = [&](std::vector<uint8_t> data, uint32_t type = 0) {
        Stream st(data);
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;
        MRESULT r = MdBitmapLoad(mgr.m, st.s, type, &bm);
        if (r != 0) {
            EXPECT_EQ(bm.plane[0], nullptr);  // freed again on failure
        }
        MdBitmapFree(nullptr, &bm);
        return r;
    };
    EXPECT_EQ(tryLoad(bytes, 4096), 2u);  // unsupported type
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0, 0};
    EXPECT_EQ(tryLoad(png), 3u);  // no component for the type
    for (size_t cut : {size_t{12}, size_t{200}, bytes.size() / 2, bytes.size() - 40})
        EXPECT_NE(tryLoad(std::vector<uint8_t>(bytes.begin(), bytes.begin() + cut)), 0u) << cut;
    auto garbled = bytes;
    for (size_t i = garbled.size() / 3; i < garbled.size() - 2; i += 7) garbled[i] ^= 0x5A;
    EXPECT_NE(tryLoad(garbled), 0u);
    auto badHeader = bytes;
    badHeader[3] ^= 0xFF;  // first segment marker destroyed
    EXPECT_NE(tryLoad(badHeader), 0u);
}

TEST(CodecEncode, RoundTripKeepsColours) {
    Manager mgr;
    // A red patch on white, as R, G, B, A bytes.
    Rgba src(48, 32);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 48; ++x) {
            uint8_t* p = &src.px[(static_cast<size_t>(y) * 48 + x) * 4];
            const bool red = x >= 8 && x < 32 && y >= 8 && y < 24;
            p[0] = 255;
            p[1] = p[2] = red ? 0 : 255;
            p[3] = 255;
        }
    Stream out;
    ASSERT_EQ(MdBitmapSave(mgr.m, out.s, 2, &src.bm), 0u);
    const int32_t n = MStreamGetSize(out.s);
    ASSERT_GT(n, 100);
    std::vector<uint8_t> jpeg(static_cast<size_t>(n));
    MStreamSeek(out.s, 0, 0);
    ASSERT_EQ(MStreamRead(out.s, jpeg.data(), n), n);
    Rgba back(48, 32);
    ASSERT_EQ(Decode(mgr.m, jpeg, {0, 0, 48, 32}, &back.bm), 0u);
    const uint8_t* red = back.at(20, 16);
    EXPECT_GT(red[0], 220);
    EXPECT_LT(red[1], 40);
    EXPECT_LT(red[2], 40);
    const uint8_t* white = back.at(2, 2);
    EXPECT_GT(white[0] + white[1] + white[2], 3 * 235);

    // NV21 input (converted to I420 on the way in) keeps the red too.
    MBITMAP nv21{};
    nv21.pixelFormat = MPAF_OTHERS_NV21;
    nv21.width = 48;
    nv21.height = 32;
    ASSERT_EQ(MdBitmapAlloc(nullptr, &nv21), 0u);
    ASSERT_EQ(MdBitmapResample(nullptr, &src.bm, &nv21), 0u);
    Stream out2;
    EXPECT_EQ(MdBitmapSave(mgr.m, out2.s, 2, &nv21), 0u);
    MdBitmapFree(nullptr, &nv21);
    std::vector<uint8_t> jpeg2(static_cast<size_t>(MStreamGetSize(out2.s)));
    MStreamSeek(out2.s, 0, 0);
    MStreamRead(out2.s, jpeg2.data(), static_cast<int32_t>(jpeg2.size()));
    ASSERT_EQ(Decode(mgr.m, jpeg2, {0, 0, 48, 32}, &back.bm), 0u);
    EXPECT_GT(back.at(20, 16)[0], 200);
    EXPECT_LT(back.at(20, 16)[1], 60);

    // MCodec_EncodeData gives a decodable file too.
    void* data = nullptr;
    int32_t size = 0;
    ASSERT_EQ(MCodec_EncodeData(mgr.m, &src.bm, 75, &data, &size), 0u);
    std::vector<uint8_t> again(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
    MMemFree(nullptr, data);
    Rgba back2(48, 32);
    ASSERT_EQ(MCodec_DecodeData(mgr.m, again.data(), size, &back2.bm), 0u);
    EXPECT_GT(back2.at(20, 16)[0], 200);
    EXPECT_LT(back2.at(20, 16)[1], 60);
}

TEST(CodecThinSession, ComponentOutputAsIs) {
    Manager mgr;
    auto bytes = Compress(Picture(40, 24), 40, 24);
    Stream st(bytes);
    MHIDEC dec = nullptr;
    ASSERT_EQ(MIDec_Create(mgr.m, st.s, &dec), 0u);
    int32_t wh[2] = {};
    EXPECT_EQ(MIDec_GetProp(dec, MD_PROP_IMAGE_SIZE, wh, 8), 0u);
    EXPECT_EQ(wh[0], 40);
    const int32_t half = 2;
    EXPECT_EQ(MIDec_SetProp(dec, MD_PROP_JPEG_SCALE, &half, 4), 0u);
    Rgba out(20, 12);
    int32_t done = 0;
    EXPECT_EQ(MIDec_Scanlines(dec, &out.bm, 12, &done), 0u);
    EXPECT_EQ(done, 12);
    EXPECT_EQ(MIDec_Destroy(dec), 0u);
    EXPECT_EQ(MIDec_CreateWithFileName(mgr.m, "/nonexistent/x.jpg", &dec), 4102u);
    EXPECT_EQ(dec, nullptr);
}

TEST(CodecResample, ConvertCropRotate) {
    Rgba src(8, 4);
    for (int i = 0; i < 32; ++i) {
        src.px[i * 4] = static_cast<uint8_t>(i * 8);
        src.px[i * 4 + 1] = src.px[i * 4 + 2] = 0;
        src.px[i * 4 + 3] = 255;
    }
    Rgba rot(4, 8);
    const MRECT sr{0, 0, 8, 4}, dr{0, 0, 4, 8};
    ASSERT_EQ(MdBitmapCropRotFlipResample(nullptr, &src.bm, &sr, &rot.bm, &dr, 90, 0), 0u);
    // Clockwise: the source's bottom-left pixel lands top-left.
    EXPECT_EQ(rot.at(0, 0)[0], src.at(0, 3)[0]);
    EXPECT_EQ(rot.at(3, 7)[0], src.at(7, 0)[0]);
    EXPECT_EQ(MdBitmapCropRotFlipResample(nullptr, &src.bm, &sr, &rot.bm, &dr, 45, 0), 2u);
    const MRECT outside{0, 0, 9, 4};
    EXPECT_EQ(MdBitmapCropRotFlipResample(nullptr, &src.bm, &outside, &rot.bm, &dr, 0, 0), 2u);
    Rgba empty(0, 4);
    EXPECT_EQ(MdBitmapCropRotFlipResample(nullptr, &empty.bm, &sr, &rot.bm, &dr, 0, 0), 3u);
    // RGBA -> I420 -> RGBA at another size keeps a flat colour.
    Rgba flat(16, 16);
    for (size_t i = 0; i < flat.px.size(); i += 4) {
        flat.px[i] = 200;
        flat.px[i + 1] = 40;
        flat.px[i + 2] = 90;
        flat.px[i + 3] = 255;
    }
    MBITMAP yuv{};
    yuv.pixelFormat = MPAF_I420;
    yuv.width = 10;
    yuv.height = 6;
    ASSERT_EQ(MdBitmapAlloc(nullptr, &yuv), 0u);
    ASSERT_EQ(MdBitmapResample(nullptr, &flat.bm, &yuv), 0u);
    Rgba back(10, 6);
    ASSERT_EQ(MdBitmapResample(nullptr, &yuv, &back.bm), 0u);
    EXPECT_NEAR(back.at(5, 3)[0], 200, 4);
    EXPECT_NEAR(back.at(5, 3)[1], 40, 4);
    EXPECT_NEAR(back.at(5, 3)[2], 90, 4);
    MdBitmapFree(nullptr, &yuv);
    // B,G,R,A records share the toolkit's colour-ID table: red and blue swap.
    Rgba bgra(16, 16);
    bgra.bm.pixelFormat = 0x37000777u;
    ASSERT_EQ(MdBitmapResample(nullptr, &flat.bm, &bgra.bm), 0u);
    EXPECT_EQ(bgra.at(3, 3)[0] * 1000 + bgra.at(3, 3)[2], 90 * 1000 + 200);
}
