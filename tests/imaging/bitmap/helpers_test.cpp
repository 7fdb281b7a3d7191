// The stand-alone toolkit: ConvertCS, JPEG in/out helpers, bitmap utilities.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

struct Owned {
    MBITMAP b{};
    Owned() = default;
    Owned(uint32_t format, int w, int h) { UTIL_MBitmapCreate(&b, format, w, h); }
    ~Owned() { MdBitmapFree(nullptr, &b); }
};

MBITMAP View(Bytes& px, int w, int h) {
    return MBITMAP{MPAF_RGBA8888, w, h, {w * 4}, {px.data()}};
}

Bytes Pixels(const MBITMAP& b) {
    Bytes out;
    for (int y = 0; y < b.height; ++y)
        out.insert(out.end(), b.plane[0] + y * b.pitch[0],
                   b.plane[0] + y * b.pitch[0] + b.width * 4);
    return out;
}

}  // namespace

TEST(ConvertCS, ConvertsAndScalesAmongFormatsAndRefusesBadOptions) {
    Bytes px = Picture(64, 48);
    MBITMAP src = View(px, 64, 48);
    for (uint32_t mid : {MPAF_I420, MPAF_OTHERS_NV21})
        for (int range : {1, 2}) {
            Owned yuv(mid, 64, 48), back(MPAF_RGBA8888, 64, 48);
            ASSERT_EQ(ConvertCS(&yuv.b, &src, 0, 1, range), 0u);
            ASSERT_EQ(ConvertCS(&back.b, &yuv.b, 0, 1, range), 0u);
            EXPECT_LT(MeanDiff(Pixels(back.b), px), 4.0) << mid << " " << range;
        }
    // A box reduction by two is the mean of each 2 x 2 block.
    Owned half(MPAF_RGBA8888, 32, 24);
    ASSERT_EQ(ConvertCS(&half.b, &src, 0, 1, 2), 0u);
    for (int c = 0; c < 3; ++c) {
        const int mean = (px[(6 * 64 + 6) * 4 + c] + px[(6 * 64 + 7) * 4 + c] +
                          px[(7 * 64 + 6) * 4 + c] + px[(7 * 64 + 7) * 4 + c] + 2) /
                         4;
        EXPECT_NEAR(half.b.plane[0][(3 * 32 + 3) * 4 + c], mean, 1);
    }

    // A large reduction averages the whole area: 3-pixel checks become grey.
    Bytes checks(480 * 360 * 4);
    for (size_t i = 0; i < checks.size(); ++i) checks[i] = (i / 12 + i / (480 * 12)) % 2 * 255;
    MBITMAP big = View(checks, 480, 360);
    Owned tiny(MPAF_RGBA8888, 16, 12);
    ASSERT_EQ(ConvertCS(&tiny.b, &big, 0, 1, 2), 0u);
    EXPECT_LT(MeanDiff(Pixels(tiny.b), Bytes(16 * 12 * 4, 128)), 4.0);

    EXPECT_EQ(ConvertCS(&half.b, &src, 1, 1, 2) | ConvertCS(&half.b, &src, 0, 3, 2) |
                  ConvertCS(&half.b, &src, 0, 1, 0) | ConvertCS(&half.b, nullptr, 0, 1, 2),
              2u);
    MBITMAP odd = src;
    odd.pixelFormat = 0x12345678u;
    EXPECT_EQ(ConvertCS(&half.b, &odd, 0, 1, 2), 3u);
}

TEST(JpegHelpers, EncodeDecodeWholeAndStepwise) {
    Manager m;
    Bytes px = Picture(64, 48);
    MBITMAP src = View(px, 64, 48);
    Owned nv21(MPAF_OTHERS_NV21, 64, 48);  // full range, as JPEG stores it
    ASSERT_EQ(ConvertCS(&nv21.b, &src, 0, 1, 1), 0u);
    for (const MBITMAP* in : {&src, &nv21.b}) {
        MHStream st = MStreamOpenFromMemoryBlock(nullptr, 0);
        ASSERT_EQ(EncodeJPEG(m.m, in, 95, st), 0u);
        Owned out;
        ASSERT_EQ(DecodeJPEG(m.m, st, &out.b), 0u);
        EXPECT_EQ(out.b.width, 64);
        EXPECT_LT(MeanDiff(Pixels(out.b), px), 5.0);

        // Two steps on one decoder: the right half at half size, then all.
        MHCODEC dec = nullptr;
        ASSERT_EQ(DecodeCreate(m.m, st, &dec), 0u);
        Owned right(MPAF_RGBA8888, 16, 24), whole(MPAF_RGBA8888, 64, 48);
        const MRECT half{32, 0, 64, 48};
        EXPECT_EQ(DecodeStepJPEG(dec, &half, &right.b), 0u);
        EXPECT_EQ(DecodeStepJPEG(dec, nullptr, &whole.b), 0u);
        EXPECT_EQ(DecodeStepJPEG(dec, nullptr, &whole.b), 0u);  // the same step again
        EXPECT_NEAR(right.b.plane[0][0], px[33 * 4], 8);
        EXPECT_LT(MeanDiff(Pixels(whole.b), px), 5.0);
        // Whole decoding into YUV gives the stepwise decoder's bytes.
        for (uint32_t fmt : {MPAF_I420, MPAF_OTHERS_NV21}) {
            Owned yuv, step(fmt, 64, 48);
            yuv.b.pixelFormat = fmt;
            ASSERT_EQ(DecodeJPEG(m.m, st, &yuv.b), 0u) << fmt;
            ASSERT_EQ(DecodeStepJPEG(dec, nullptr, &step.b), 0u);
            EXPECT_TRUE(std::equal(yuv.b.plane[0], yuv.b.plane[0] + 64 * 48, step.b.plane[0]));
            EXPECT_TRUE(std::equal(yuv.b.plane[1], yuv.b.plane[1] + 32 * 24, step.b.plane[1]));
        }
        const MRECT outside{32, 0, 65, 48};
        LogCollector log;
        EXPECT_EQ(DecodeStepJPEG(dec, &outside, &right.b), 2u);
        EXPECT_EQ(log.Take(), std::vector<std::string>{"error not correct size"});
        DecodeDestroy(dec);
        MStreamClose(st);
    }
    MHStream st = MStreamOpenFromMemoryBlock(nullptr, 0);
    MBITMAP unknown = src;
    unknown.pixelFormat = 0x12345678u;
    EXPECT_EQ(EncodeJPEG(m.m, &unknown, 90, st), 3u);
    EXPECT_EQ(EncodeJPEG(m.m, nullptr, 90, st), 2u);
    MStreamClose(st);
}

TEST(JpegHelpers, SaveDataNamesAndThumbnailStream) {
    Manager m;
    const std::string dir = ::testing::TempDir();
    Bytes px = Picture(64, 48);
    MBITMAP src = View(px, 64, 48);
    Owned nv21(MPAF_OTHERS_NV21, 64, 48);
    ConvertCS(&nv21.b, &src, 0, 1, 1);
    char first[QV_IMAGE_PATH_SIZE], second[QV_IMAGE_PATH_SIZE];
    ASSERT_EQ(SaveData(m.m, &src, dir.c_str(), first), 0u);
    ASSERT_EQ(SaveData(m.m, &nv21.b, dir.c_str(), second), 0u);
    const int k = std::stoi(std::string(first).substr(dir.size() + 7));  // after "QvScan_"
    EXPECT_EQ(std::string(second), dir + "QvScan_" + std::to_string(k + 1) + ".jpg");
    std::remove(first);
    std::remove(second);
    EXPECT_EQ(RenameImage(second, 1, "/nonexistent/"), 0u);
    EXPECT_EQ(std::string(second), "/nonexistent/QvScan_1.jpg");
    EXPECT_EQ(RenameImage(second, 1, std::string(300, 'a').c_str()), 2u);

    Bytes wide = Picture(640, 480);
    MBITMAP frame = View(wide, 640, 360);
    LogCollector log;
    MHStream st = MStreamOpenFromMemoryBlock(nullptr, 0);
    EXPECT_EQ(SetThumbnailStream(m.m, &frame, 160, 120, st), 0u);
    auto lines = log.Take();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "lWidhtOffset=80, lHeightOffset=0"),
              lines.end());
    EXPECT_EQ(lines.back(), "SetThumbnailStream  res=0 ---->");
    Owned thumb;
    ASSERT_EQ(DecodeJPEG(m.m, st, &thumb.b), 0u);
    EXPECT_EQ(thumb.b.width, 160);
    log.Take();
    frame.height = 480;  // 3:4 is kept whole (no offsets logged)
    EXPECT_EQ(SetThumbnailStream(m.m, &frame, 160, 120, st), 0u);
    EXPECT_EQ(log.Take().size(), lines.size() - 1);
    EXPECT_EQ(SetThumbnailStream(m.m, &frame, 640, 120, st), 2u);
    MStreamClose(st);
}

TEST(BitmapUtils, CropAlphaMerge) {
    Bytes px = Picture(64, 48);
    MBITMAP src = View(px, 64, 48);
    Owned crop, yuv(MPAF_I420, 64, 48), yuvCrop;
    const MRECT r{10, 4, 30, 20}, oddRect{1, 4, 30, 20}, outside{0, 0, 65, 10};
    ASSERT_EQ(UIUtil_BitmapCrop(&crop.b, &src, &r), 0u);
    EXPECT_TRUE(std::equal(crop.b.plane[0], crop.b.plane[0] + 80, &px[(4 * 64 + 10) * 4]));
    EXPECT_EQ(UIUtil_BitmapCrop(&yuvCrop.b, &yuv.b, &oddRect), 2u);
    EXPECT_EQ(UIUtil_BitmapCrop(&yuvCrop.b, &yuv.b, &outside), 2u);

    Owned blend(MPAF_RGBA8888, 20, 16), mask(MPAF_GRAY8, 20, 16);
    ASSERT_EQ(SetARGB32BitmapAlpha(&crop.b, 7), 0u);
    mask.b.plane[0][1] = 255;  // the second pixel from crop, the rest kept (zero)
    ASSERT_EQ(MergeBitmapWithMask(&blend.b, &crop.b, &mask.b), 0u);
    EXPECT_EQ(blend.b.plane[0][0], 0);
    EXPECT_EQ(blend.b.plane[0][4], crop.b.plane[0][4]);
    EXPECT_EQ(blend.b.plane[0][7], 7);
}
