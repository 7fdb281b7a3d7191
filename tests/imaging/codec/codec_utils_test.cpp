// Colour-ID lookups, file types, result translation and property sizes.
#include <gtest/gtest.h>

#include <cstring>

#include "imaging/codec/session.h"
#include "test_jpeg.h"

using namespace codec_test;

TEST(CodecColorIds, FirstMatchRulesBothWays) {
    // Rows 7 and 11 carry the same new IDs: new to old always finds 7.
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000210u), 7u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50001210u), 7u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000410u), 9u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000610u), 10u);
    // Old to new skips the alternative rows.
    EXPECT_EQ(MdUtilsOldColorID2New(11), 0x50001210u);
    EXPECT_EQ(MdUtilsOldColorID2New(15), 0x50001811u);
    EXPECT_EQ(MdUtilsOldColorID2New(29), 0x64001000u);
    // Old 36 appears twice with flag 0: the first row wins.
    EXPECT_EQ(MdUtilsOldColorID2New(36), 0x37001777u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x37005777u), 36u);
    // The document path's rows.
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000810u), 20u);
    EXPECT_EQ(MdUtilsNewColorID2Old(MPAF_I420), 15u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000800u), 21u);
    EXPECT_EQ(MdUtilsNewColorID2Old(0x50000801u), 19u);
    EXPECT_EQ(MdUtilsNewColorID2Old(MPAF_RGBA8888), 36u);
    // Unknown IDs pass through, NV21 among them.
    EXPECT_EQ(MdUtilsNewColorID2Old(MPAF_OTHERS_NV21), MPAF_OTHERS_NV21);
    EXPECT_EQ(MdUtilsOldColorID2New(0x70001002u), 0x70001002u);
    EXPECT_EQ(MdUtilsOldColorID2New(16), 16u);
}

TEST(CodecFileTypes, ByNameAndByContent) {
    EXPECT_EQ(MdUtilsGetFileType("photo.JPEG"), 2u);
    EXPECT_EQ(MdUtilsGetFileType("a.b.jpg"), 2u);
    EXPECT_EQ(MdUtilsGetFileType("x.Tiff"), 1024u);
    EXPECT_EQ(MdUtilsGetFileType("x.icon"), 2048u);
    EXPECT_EQ(MdUtilsGetFileType("x.svgz"), 256u);
    EXPECT_EQ(MdUtilsGetFileType("photo."), 0u);
    EXPECT_EQ(MdUtilsGetFileType("photo"), 0u);
    EXPECT_EQ(MdUtilsGetFileType("x.7z"), 0u);
    EXPECT_EQ(MdUtilsGetFileType(nullptr), 0u);

    auto sniff = [](std::vector<uint8_t> bytes, uint32_t* type) {
        Stream st(bytes);
        MStreamSeek(st.s, 0, 3);
        MRESULT r = MdGetImgFileFormat(st.s, type);
        EXPECT_EQ(MStreamTell(st.s), 3);  // position kept on every path
        return r;
    };
    uint32_t t = 0;
    EXPECT_EQ(sniff({0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0, 0, 0, 0}, &t), 0u);
    EXPECT_EQ(t, 2u);
    EXPECT_EQ(sniff({0x89, 'P', 'N', 'G', 0, 0, 0, 0, 0, 0}, &t), 0u);
    EXPECT_EQ(t, 8u);
    EXPECT_EQ(sniff({'M', 'M', 0, 42, 0, 0, 0, 8, 0, 0}, &t), 0u);
    EXPECT_EQ(t, 1024u);
    EXPECT_EQ(sniff({0, 0, 1, 0, 1, 0, 16, 16, 0, 0}, &t), 0u);
    EXPECT_EQ(t, 2048u);
    EXPECT_EQ(sniff({0, 0, 16, 16, 0, 0, 0, 0, 0, 0}, &t), 0u);
    EXPECT_EQ(t, 32u);
    std::vector<uint8_t> svg(600, ' ');
    std::memcpy(svg.data(), "<?xml", 5);
    std::memcpy(svg.data() + 254, "<svg", 4);  // straddles the 256-byte pieces
    EXPECT_EQ(sniff(svg, &t), 0u);
    EXPECT_EQ(t, 256u);
    t = 77;
    EXPECT_EQ(sniff({0, 0, 0, 24, 'f', 't', 'y', 'p', 0, 0}, &t), 3u);
    EXPECT_EQ(sniff({'<', '?', 'x', 'm', 'l', ' ', 0, 0, 0, 0}, &t), 3u);
    EXPECT_EQ(sniff({'h', 'e', 'l', 'l', 'o', 0, 0, 0, 0, 0}, &t), 3u);
    EXPECT_EQ(sniff({0xFF, 0xD8, 0, 0, 0, 0, 0, 0, 0}, &t), 4102u);  // 9 bytes
    EXPECT_EQ(t, 77u);
}

TEST(CodecResults, Translation) {
    EXPECT_EQ(MdUtilsConvertResult(0x8001, 0), 2u);
    EXPECT_EQ(MdUtilsConvertResult(0x8004, 1), 2u);
    EXPECT_EQ(MdUtilsConvertResult(0x8002, 0), 4u);
    EXPECT_EQ(MdUtilsConvertResult(0x8008, 0), 3u);
    EXPECT_EQ(MdUtilsConvertResult(0x8010, 0), 4102u);
    EXPECT_EQ(MdUtilsConvertResult(0x8010, 1), 4103u);
    EXPECT_EQ(MdUtilsConvertResult(0x8020, 0), 4103u);
    EXPECT_EQ(MdUtilsConvertResult(0x8FFF, 0), 1u);
    EXPECT_EQ(MdUtilsConvertResult(0x8003, 0), 0x8003u);
    const MRESULT keep[] = {2, 4, 3};
    EXPECT_EQ(MdUtilConvertErrorCode(0, keep, 3), 0u);
    EXPECT_EQ(MdUtilConvertErrorCode(4, keep, 3), 4u);
    EXPECT_EQ(MdUtilConvertErrorCode(1, keep, 3), 2u);
    EXPECT_EQ(MdUtilConvertErrorCode(4102, keep, 3), 2u);
}

TEST(CodecProperties, SizesAndValues) {
    Manager mgr;
    auto bytes = Compress(Picture(40, 30), 40, 30);
    Stream st(bytes);
    MHCODEC s = nullptr;
    ASSERT_EQ(MCodec_DecodeCreate(mgr.m, st.s, 0, &s), 0u);
    int32_t wh[2] = {};
    EXPECT_EQ(MCodec_GetProp(s, 2, wh, 4), 2u);
    EXPECT_EQ(MCodec_GetProp(s, 2, wh, 8), 0u);
    EXPECT_EQ(wh[0], 40);
    EXPECT_EQ(wh[1], 30);
    EXPECT_EQ(MCodec_GetProp(nullptr, 2, wh, 8), 2u);
    EXPECT_EQ(MCodec_GetProp(s, 2, nullptr, 8), 2u);
    EXPECT_EQ(MCodec_SetProp(s, 3, nullptr, 4), 2u);
    const int32_t zoom[2] = {20, 15};
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_ZOOM_SCALE, zoom, 4), 2u);
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_ZOOM_SCALE, zoom, 8), 0u);
    const MRECT region{0, 0, 40, 30};
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_DST_REGION, &region, 8), 2u);
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_DST_REGION, &region, 16), 0u);
    const MRECT outside{0, 0, 41, 30};
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_DST_REGION, &outside, 16), 2u);
    std::vector<uint8_t> palette(1024, 7);
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_PALETTE, palette.data(), 1023), 2u);
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_PALETTE, palette.data(), 1024), 0u);
    const uint8_t option = 1;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_OPTION_BYTE, &option, 4), 2u);
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_OPTION_BYTE, &option, 1), 0u);

    // YUV variant: only bits 0x3000 of a YUV-family output change.
    const uint32_t i420Old = 15;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_PIXEL_FORMAT, &i420Old, 4), 0u);
    int32_t variant = 4097;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_YUV_VARIANT, &variant, 4), 2u);
    variant = 4096;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_YUV_VARIANT, &variant, 4), 0u);
    EXPECT_EQ(s->outFormatNew, 0x50001811u);
    variant = 8192;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_YUV_VARIANT, &variant, 4), 0u);
    EXPECT_EQ(s->outFormatNew, 0x50002811u);
    const uint32_t unknownFormat = 22;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_PIXEL_FORMAT, &unknownFormat, 4), 3u);

    // The JPEG component's own properties.
    int32_t denom = 3;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_JPEG_SCALE, &denom, 4), 2u);
    denom = 4;
    EXPECT_EQ(MCodec_SetProp(s, MD_PROP_JPEG_SCALE, &denom, 4), 0u);
    int32_t caps = -1;
    EXPECT_EQ(MCodec_GetProp(s, MD_PROP_CAPS_1, &caps, 4), 0u);
    EXPECT_EQ(MCodec_GetProp(s, 9999, &caps, 4), 3u);
    EXPECT_EQ(MCodec_Destroy(s), 0u);
}
