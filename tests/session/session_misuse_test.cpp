// Steps out of order, bad methods and bitmaps, stale engines and "no page":
// each answers with its code and delivers nothing (no bitmap pixel, no
// bytes, no point changed).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

constexpr int kW = 96, kH = 72;
constexpr uint8_t kUntouched = 0x5A;

struct Capture {
    Manager m;
    QvSession* s = QvSession_Create(m.m);
    tagVPPoint whole[4] = {{0, 0}, {0, kH}, {kW, kH}, {kW, 0}};
    uint8_t* data = nullptr;
    int32_t len = 0;
    ~Capture() { QvSession_Destroy(s); }

    VPHandle Engine(const Bytes& jpeg) {
        return QvSession_CreateEngine(s, jpeg.data(), int32_t(jpeg.size()));
    }
    VPHandle Engine() { return Engine(EncodeRgba(m.m, Picture(kW, kH), kW, kH)); }
    int32_t Size(VPHandle e, const tagVPPoint* q) {
        int32_t w = 0, h = 0;
        return QvSession_GetRectifiedImageSize(s, e, q, 4, &w, &h);
    }
    int32_t EnhancedData(VPHandle e, int32_t method = VP_ENHANCE_NONE) {
        const int32_t rc = QvSession_GetEnhancedImageData(s, e, method, &data, &len);
        if (rc != 0) {
            EXPECT_TRUE(data == nullptr && len == 0);
        }
        QvSession_FreeData(data);
        data = nullptr;
        return rc;
    }
};

// A bitmap filled with a marker, to see that a refused step wrote nothing.
struct MarkedBitmap : FakeBitmap {
    MarkedBitmap(int w, int h) : FakeBitmap(w, h) {
        std::fill(pixels.begin(), pixels.end(), kUntouched);
    }
    bool Untouched() const {
        return std::all_of(pixels.begin(), pixels.end(), [](uint8_t v) { return v == kUntouched; });
    }
};

}  // namespace

TEST(SessionMisuse, StepsOutOfOrderDeliverNoPage) {
    Capture c;
    VPHandle e = c.Engine();
    MarkedBitmap bmp(kW, kH);
    QvBitmapAccess access = bmp.Access();
    // Nothing rectified yet (the C99 caller checks the same after a size query).
    EXPECT_EQ(QvSession_GetEnhancedImage(c.s, e, VP_ENHANCE_GREY, &access),
              QV_SESSION_NOT_RECTIFIED);
    EXPECT_EQ(c.EnhancedData(e), QV_SESSION_NOT_RECTIFIED);
    EXPECT_TRUE(bmp.Untouched());

    // Rectified, but the enhanced bytes' size query missing or for other corners.
    VPHandle f = c.Engine();  // a new photograph forgets the last size query
    ASSERT_EQ(QvSession_GetRectifiedImageData(c.s, f, c.whole, 4, &c.data, &c.len), 0);
    QvSession_FreeData(c.data);
    c.data = nullptr;
    EXPECT_EQ(c.EnhancedData(f), QV_SESSION_NOT_SIZED);
    const tagVPPoint inner[4] = {{10, 10}, {10, 60}, {80, 60}, {80, 10}};
    ASSERT_EQ(c.Size(f, inner), 0);
    EXPECT_EQ(c.EnhancedData(f), QV_SESSION_NOT_SIZED);
    ASSERT_EQ(c.Size(f, c.whole), 0);
    EXPECT_EQ(c.EnhancedData(f), 0);
}

TEST(SessionMisuse, APageRectifiedAloneOutlivesItsReleasedPhotograph) {
    Capture c;
    VPHandle e = c.Engine();
    EXPECT_EQ(QvSession_ReleasePhotograph(c.s, e), QV_SESSION_NOT_RECTIFIED);  // kept
    EXPECT_EQ(QvSession_ReleasePhotograph(nullptr, e), QV_SESSION_BAD_ARGUMENT);
    EXPECT_EQ(QvSession_ReleasePhotograph(c.s, nullptr), QV_SESSION_UNKNOWN_ENGINE);
    const tagVPPoint inner[4] = {{10, 10}, {10, 60}, {80, 60}, {80, 10}};
    int32_t w = 0, h = 0;
    ASSERT_EQ(QvSession_GetRectifiedImageSize(c.s, e, inner, 4, &w, &h), 0);
    EXPECT_EQ(QvSession_Rectify(c.s, e, inner, 3), QV_SESSION_BAD_ARGUMENT);
    ASSERT_EQ(QvSession_Rectify(c.s, e, inner, 4), 0);  // into the engine alone
    ASSERT_EQ(c.EnhancedData(e, VP_ENHANCE_GREY), 0);
    ASSERT_EQ(QvSession_ReleasePhotograph(c.s, e), 0);
    ASSERT_EQ(QvSession_ReleasePhotograph(c.s, e), 0);

    // The page and everything made from it stay; the photograph's steps answer 1.
    for (int32_t method = VP_ENHANCE_LOW; method <= VP_ENHANCE_ECONOMIC; ++method)
        EXPECT_EQ(c.EnhancedData(e, method), 0) << method;
    tagVPPoint found[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
    EXPECT_EQ(QvSession_FindPageVertex(c.s, e, found, 4), QV_SESSION_FAILED);
    EXPECT_EQ(found[0].x, 1);
    EXPECT_EQ(c.Size(e, inner), QV_SESSION_FAILED);
    EXPECT_EQ(QvSession_GetPhotographSize(c.s, e, &w, &h), QV_SESSION_FAILED);
    MarkedBitmap again(w, h);
    QvBitmapAccess againAccess = again.Access();
    EXPECT_EQ(QvSession_GetRectifiedImage(c.s, e, inner, 4, &againAccess), QV_SESSION_FAILED);
    EXPECT_EQ(QvSession_Rectify(c.s, e, inner, 4), QV_SESSION_FAILED);
    EXPECT_TRUE(again.Untouched());
    EXPECT_EQ(QvSession_GetRectifiedImageData(c.s, e, inner, 4, &c.data, &c.len),
              QV_SESSION_FAILED);
    EXPECT_TRUE(c.data == nullptr && c.len == 0);
}

TEST(SessionMisuse, BadMethodsBitmapsAndArgumentsAreRefused) {
    Capture c;
    VPHandle e = c.Engine();
    ASSERT_EQ(c.Size(e, c.whole), 0);
    MarkedBitmap page(kW, kH);
    QvBitmapAccess pageAccess = page.Access();
    ASSERT_EQ(QvSession_GetRectifiedImage(c.s, e, c.whole, 4, &pageAccess), 0);
    ASSERT_FALSE(page.Untouched());

    MarkedBitmap narrow(kW - 1, kH), tall(kW, kH + 1), padded(kW, kH);
    padded.info.stride = kW * 4 + 8;
    MarkedBitmap good(kW, kH);
    const std::vector<std::pair<MarkedBitmap*, int32_t>> bitmaps = {
        {&narrow, QV_SESSION_WRONG_SIZE}, {&tall, QV_SESSION_WRONG_SIZE}, {&padded, 2}};
    for (const auto& [bmp, code] : bitmaps) {
        QvBitmapAccess a = bmp->Access();
        EXPECT_EQ(QvSession_GetRectifiedImage(c.s, e, c.whole, 4, &a), code);
        EXPECT_EQ(QvSession_GetEnhancedImage(c.s, e, VP_ENHANCE_NONE, &a), code);
        EXPECT_TRUE(bmp->Untouched());
    }
    QvBitmapAccess goodAccess = good.Access();
    for (int32_t method : {0, 6, -1, 1 << 20}) {
        EXPECT_EQ(QvSession_GetEnhancedImage(c.s, e, method, &goodAccess),
                  QV_SESSION_UNKNOWN_METHOD);
        EXPECT_EQ(c.EnhancedData(e, method), QV_SESSION_UNKNOWN_METHOD);
    }
    EXPECT_TRUE(good.Untouched());
    // No bitmap, three points, null results, corners that bound no page.
    const tagVPPoint line[4] = {{0, 0}, {10, 10}, {20, 20}, {30, 30}};
    EXPECT_EQ(QvSession_GetRectifiedImage(c.s, e, c.whole, 4, nullptr), QV_SESSION_NO_BITMAP);
    EXPECT_EQ(QvSession_GetRectifiedImage(c.s, e, c.whole, 3, &goodAccess), 2);
    EXPECT_EQ(QvSession_GetRectifiedImage(c.s, e, line, 4, &goodAccess), QV_SESSION_FAILED);
    EXPECT_EQ(QvSession_GetEnhancedImageData(c.s, e, 1, nullptr, &c.len), 2);
    EXPECT_EQ(QvSession_GetRectifiedImageData(c.s, e, c.whole, 4, &c.data, nullptr), 2);
    EXPECT_EQ(QvSession_GetRectifiedImageSize(c.s, e, c.whole, 4, nullptr, &c.len), 2);
    EXPECT_TRUE(good.Untouched());
    // The page rectified above is still there for a good call.
    EXPECT_EQ(QvSession_GetEnhancedImage(c.s, e, VP_ENHANCE_NONE, &goodAccess), 0);
    EXPECT_EQ(good.pixels, page.pixels);
}

TEST(SessionMisuse, EnginesNotLiveInThisSessionAreNeverFollowed) {
    Capture c, other;
    exiftest::BlockOptions o;
    const Bytes photo =
        WithExif(EncodeRgba(c.m.m, Picture(kW, kH), kW, kH), exiftest::BuildExifBlock(o));
    VPHandle released = c.Engine();
    VPHandle foreign = other.Engine();
    Bytes px = Picture(kW, kH);
    tagVPImage image{VP_FORMAT_RGB, 4, 8, kW, kW * 4, kH, px.data()};
    VPHandle bare = VPCreateDocuviaClient(&image);
    ASSERT_EQ(QvSession_ReleaseEngine(c.s, released), 0);

    MarkedBitmap bmp(kW, kH);
    QvBitmapAccess a = bmp.Access();
    tagVPPoint pts[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}}, upright[4];
    int32_t turn = 0;
    const std::vector<std::function<int32_t(VPHandle)>> steps = {
        [&](VPHandle e) { return QvSession_FindPageVertex(c.s, e, pts, 4); },
        [&](VPHandle e) {
            return QvSession_DetectTextDirection(c.s, e, c.whole, 4, upright, &turn, nullptr,
                                                 nullptr);
        },
        [&](VPHandle e) { return c.Size(e, c.whole); },
        [&](VPHandle e) { return QvSession_GetRectifiedImage(c.s, e, c.whole, 4, &a); },
        [&](VPHandle e) {
            return QvSession_GetRectifiedImageData(c.s, e, c.whole, 4, &c.data, &c.len);
        },
        [&](VPHandle e) { return QvSession_GetEnhancedImage(c.s, e, 1, &a); },
        [&](VPHandle e) { return c.EnhancedData(e); },
        [&](VPHandle e) { return QvSession_ReleaseEngine(c.s, e); }};
    // No engine is made in `c` meanwhile, so the released address cannot
    // have come back as a new engine.
    for (VPHandle e : {released, foreign, bare, static_cast<VPHandle>(nullptr)}) {
        for (size_t i = 0; i < steps.size(); ++i)
            EXPECT_EQ(steps[i](e), QV_SESSION_UNKNOWN_ENGINE) << "step " << i;
    }
    EXPECT_EQ(pts[0].x, 1);
    EXPECT_EQ(c.data, nullptr);
    EXPECT_TRUE(bmp.Untouched());

    // Releasing what is not ours leaves the live capture's EXIF block alone.
    VPHandle live = c.Engine(photo);
    ASSERT_NE(QvSession_GetExifLength(c.s), 0u);
    EXPECT_EQ(QvSession_ReleaseEngine(c.s, foreign), QV_SESSION_UNKNOWN_ENGINE);
    EXPECT_EQ(QvSession_ReleaseEngine(c.s, nullptr), QV_SESSION_UNKNOWN_ENGINE);
    EXPECT_NE(QvSession_GetExifLength(c.s), 0u);
    EXPECT_EQ(QvSession_ReleaseEngine(c.s, live), 0);
    VPReleaseDocuviaClient(&bare);
}

TEST(SessionMisuse, NoPageIsOneAnswerInEitherSearchMode) {
    // An empty table under uneven light: nothing bounds a page.
    constexpr int w = 320, h = 240;
    Bytes px(size_t(w) * h * 4, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            p[0] = uint8_t(80 + (x + y) % 7), p[1] = uint8_t(70 + y / 8),
            p[2] = uint8_t(60 + x / 8);
        }
    Capture c;
    const Bytes table = EncodeRgba(c.m.m, px, w, h);
    for (int32_t mode : {VP_PAGE_SEARCH_VERIFIED, VP_PAGE_SEARCH_FIXED_STEPS}) {
        VPHandle e = c.Engine(table);
        ASSERT_EQ(VPSetPageSearch(e, mode), 1u);
        tagVPPoint engine[4] = {};
        const uint32_t said = VPFindPageVertex(e, engine);
        // The engine's own answers differ: the whole photograph, "found" or not.
        const tagVPPoint whole[4] = {{0, 0}, {0, h}, {w, h}, {w, 0}};
        ASSERT_EQ(std::memcmp(engine, whole, sizeof whole), 0) << "mode " << mode;
        EXPECT_EQ(said, mode == VP_PAGE_SEARCH_FIXED_STEPS ? 1u : 0u);
        tagVPPoint pts[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
        EXPECT_EQ(QvSession_FindPageVertex(c.s, e, pts, 4), QV_SESSION_FAILED) << "mode " << mode;
        EXPECT_EQ(pts[2].x, 5);
        QvSession_ReleaseEngine(c.s, e);
    }
}
