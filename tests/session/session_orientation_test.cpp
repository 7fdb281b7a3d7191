// Photographs whose EXIF Orientation says they are stored turned or
// mirrored: the session works on the photograph as viewed (sizes, corners
// in and out, the page's pixels) and its pages say Orientation 1. Turned
// pages keep their resolution.
#include <gtest/gtest.h>

#include <cmath>

#include "scrivo/scan.h"
#include "session/orientation_photos.h"
#include "vision/textdir/text_pages.h"

using namespace capturetest;
using namespace orientationtest;

namespace {

// Decodes JPEG bytes to R,G,B,A (the caller frees the bitmap).
MBITMAP Decode(MHAMCM m, const uint8_t* jpeg, size_t length) {
    MBITMAP bm{};
    bm.pixelFormat = MPAF_RGBA8888;
    EXPECT_EQ(MCodec_DecodeData(m, jpeg, int32_t(length), &bm), 0u);
    return bm;
}

scrivo_scan_result Scan(const Bytes& jpeg, const scrivo_scan_options& o) {
    scrivo_scan_result r;
    EXPECT_EQ(scrivo_scan(jpeg.data(), jpeg.size(), &o, &r), SCRIVO_OK);
    return r;
}

}  // namespace

TEST(SessionOrientation, EveryOrientationGivesThePhotographAsViewed) {
    Manager m;
    const int vw = 96, vh = 64;
    const Bytes viewed = Picture(vw, vh);
    for (int o = 1; o <= 8; ++o) {
        SCOPED_TRACE(o);
        const Bytes jpeg = OrientedJpeg(m.m, viewed, vw, vh, o);
        MBITMAP stored = Decode(m.m, jpeg.data(), jpeg.size());
        QvSession* s = QvSession_Create(m.m);
        VPHandle e = QvSession_CreateEngine(s, jpeg.data(), int32_t(jpeg.size()));
        ASSERT_NE(e, nullptr);
        int32_t w = 0, h = 0;
        ASSERT_EQ(QvSession_GetPhotographSize(s, e, &w, &h), QV_SESSION_OK);
        ASSERT_EQ(w * 1000 + h, vw * 1000 + vh);
        FakeBitmap photo(vw, vh);
        const QvBitmapAccess access = photo.Access();
        ASSERT_EQ(QvSession_GetPhotograph(s, e, &access), QV_SESSION_OK);
        int wrong = 0;
        for (int Y = 0; Y < vh; ++Y)
            for (int X = 0; X < vw; ++X) {
                const auto [x, y] = StoredAt(o, X, Y, stored.width, stored.height);
                const uint8_t* a = &photo.pixels[(size_t(Y) * vw + X) * 4];
                const uint8_t* b = stored.plane[0] + y * stored.pitch[0] + x * 4;
                wrong += a[0] != b[0] || a[1] != b[1] || a[2] != b[2];
            }
        EXPECT_EQ(wrong, 0);
        MdBitmapFree(nullptr, &stored);

        // The page says Orientation 1: it is upright in its pixels.
        const tagVPPoint whole[4] = {{0, 0}, {0, vh}, {vw, vh}, {vw, 0}};
        uint8_t* data = nullptr;
        int32_t length = 0;
        ASSERT_EQ(QvSession_GetRectifiedImageData(s, e, whole, 4, &data, &length), QV_SESSION_OK);
        const Bytes page(data, data + length);
        QvSession_FreeData(data);
        EXPECT_EQ(OrientationOf(page), 1);
        QvSession_Destroy(s);
    }
}

TEST(SessionOrientation, CornersInAndOutAreThoseOfThePhotographAsViewed) {
    Manager m;
    const tagVPPoint truth[4] = {{50, 60}, {50, 240}, {350, 240}, {350, 60}};
    for (int o : {3, 6, 8}) {
        SCOPED_TRACE(o);
        const Bytes jpeg = OrientedJpeg(m.m, MarkedPage(), 400, 300, o);
        scrivo_scan_options options;
        scrivo_scan_options_init(&options);
        options.enhancement = SCRIVO_ENHANCE_NONE;
        scrivo_scan_result r = Scan(jpeg, options);
        EXPECT_EQ(r.page_found, 1);
        for (int i = 0; i < 4; ++i)
            EXPECT_LT(std::hypot(r.corners[i].x - truth[i].x, r.corners[i].y - truth[i].y), 6.0);
        MBITMAP page = Decode(m.m, r.jpeg, r.jpeg_length);
        EXPECT_EQ(page.width * 1000 + page.height, r.width * 1000 + r.height);
        EXPECT_GT(page.width, page.height);
        EXPECT_TRUE(MarkTopLeft(page));
        EXPECT_EQ(OrientationOf(Bytes(r.jpeg, r.jpeg + r.jpeg_length)), 1);
        MdBitmapFree(nullptr, &page);
        scrivo_scan_result_free(&r);

        // Given corners reaching x = 340: inside the photograph as viewed
        // (400 x 300), outside the stored frame of a sideways one.
        options.corners_given = 1;
        const scrivo_point given[4] = {{60, 70}, {60, 230}, {340, 230}, {340, 70}};
        std::copy(given, given + 4, options.corners);
        r = Scan(jpeg, options);
        page = Decode(m.m, r.jpeg, r.jpeg_length);
        EXPECT_EQ(page.width * 1000 + page.height, 280 * 1000 + 160);
        EXPECT_TRUE(MarkTopLeft(page));
        MdBitmapFree(nullptr, &page);
        scrivo_scan_result_free(&r);
    }
}

TEST(SessionOrientation, AnUprightTurnKeepsThePagesResolution) {
    // A page lying sideways, its top to the photograph's right.
    const std::array<tagVPPoint, 4> placed{{{1060, 90}, {90, 60}, {120, 700}, {1080, 760}}};
    cv::Mat rgba;
    cv::cvtColor(
        textdir_test::Photograph(textdir_test::TextPage(700, 1000), cv::Size(1200, 860), placed),
        rgba, cv::COLOR_BGR2RGBA);
    Manager m;
    const Bytes jpeg = EncodeRgba(m.m, Bytes(rgba.data, rgba.data + rgba.total() * 4), 1200, 860);
    scrivo_scan_options options;
    scrivo_scan_options_init(&options);
    options.enhancement = SCRIVO_ENHANCE_NONE;
    scrivo_scan_result lying = Scan(jpeg, options);
    options.auto_rotate = 1;
    scrivo_scan_result upright = Scan(jpeg, options);
    EXPECT_EQ(upright.turn, 270);
    EXPECT_GT(lying.width, 900);
    EXPECT_EQ(upright.width * 10000 + upright.height, lying.height * 10000 + lying.width);
    scrivo_scan_result_free(&lying);
    scrivo_scan_result_free(&upright);
}
