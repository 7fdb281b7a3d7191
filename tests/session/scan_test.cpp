// scrivo_scan: the sample photograph to a page in one call, and every kind
// of bad input answered with its status and no bytes.
#include "scrivo/scan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

Bytes Sample() {
    std::ifstream in(std::string(SCRIVO_SOURCE_DIR) + "/samples/page-on-desk.jpg",
                     std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// The page's width and height as its JPEG bytes decode.
std::pair<int, int> Decoded(const scrivo_scan_result& r) {
    Manager m;
    MBITMAP bm{};
    bm.pixelFormat = MPAF_RGBA8888;
    if (MCodec_DecodeData(m.m, r.jpeg, int32_t(r.jpeg_length), &bm) != 0) return {0, 0};
    MdBitmapFree(nullptr, &bm);
    return {bm.width, bm.height};
}

}  // namespace

TEST(Scan, SamplePhotographBecomesAnUprightPageWithItsExif) {
    const Bytes photo = Sample();
    ASSERT_FALSE(photo.empty());
    scrivo_scan_options o;
    scrivo_scan_options_init(&o);
    EXPECT_EQ(o.enhancement, SCRIVO_ENHANCE_DOCUMENT);
    o.enhancement = SCRIVO_ENHANCE_GREY;
    o.auto_rotate = 1;
    scrivo_scan_result r;
    ASSERT_EQ(scrivo_scan(photo.data(), photo.size(), &o, &r), SCRIVO_OK);
    EXPECT_EQ(r.page_found, 1);
    EXPECT_EQ(r.turn, 0);  // the sample's text is upright
    // The true corners of the sample (samples/page-on-desk.json), within 12 pixels.
    const double truth[4][2] = {{72.7, 464.9}, {405.9, 2729.0}, {1990.7, 2852.7}, {1990.6, 119.4}};
    for (int i = 0; i < 4; ++i)
        EXPECT_LT(std::hypot(r.corners[i].x - truth[i][0], r.corners[i].y - truth[i][1]), 12.0);
    EXPECT_LT(r.width, r.height);
    EXPECT_EQ(Decoded(r), std::make_pair(int(r.width), int(r.height)));
    EXPECT_FALSE(ExifOf(Bytes(r.jpeg, r.jpeg + r.jpeg_length)).empty());
    scrivo_scan_result_free(&r);
    EXPECT_EQ(r.jpeg, nullptr);
    scrivo_scan_result_free(&r);  // twice is harmless
    scrivo_scan_result_free(nullptr);
}

TEST(Scan, BadInputGetsItsStatusAndNoBytes) {
    Manager m;
    const Bytes small = EncodeRgba(m.m, Picture(96, 72), 96, 72);
    const Bytes tiny = EncodeRgba(m.m, Picture(1, 1), 1, 1);
    const Bytes junk = {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3};
    scrivo_scan_options good;
    scrivo_scan_options_init(&good);
    scrivo_scan_result r;

    EXPECT_EQ(scrivo_scan(small.data(), small.size(), &good, nullptr), SCRIVO_ERR_NULL_POINTER);
    EXPECT_EQ(scrivo_scan(nullptr, 10, &good, &r), SCRIVO_ERR_NULL_POINTER);
    EXPECT_EQ(scrivo_scan(small.data(), small.size(), nullptr, &r), SCRIVO_ERR_NULL_POINTER);
    EXPECT_EQ(scrivo_scan(junk.data(), junk.size(), &good, &r), SCRIVO_ERR_NOT_JPEG);
    EXPECT_EQ(scrivo_scan(small.data(), 0, &good, &r), SCRIVO_ERR_NOT_JPEG);
    EXPECT_EQ(scrivo_scan(tiny.data(), tiny.size(), &good, &r), SCRIVO_ERR_TOO_SMALL);

    struct Case {
        const char* what;
        void (*spoil)(scrivo_scan_options*);
        scrivo_status status;
    };
    const Case cases[] = {
        {"method 0", [](scrivo_scan_options* o) { o->enhancement = 0; }, SCRIVO_ERR_BAD_OPTION},
        {"method 6", [](scrivo_scan_options* o) { o->enhancement = 6; }, SCRIVO_ERR_BAD_OPTION},
        {"quality", [](scrivo_scan_options* o) { o->jpeg_quality = 101; }, SCRIVO_ERR_BAD_OPTION},
        {"flag", [](scrivo_scan_options* o) { o->auto_rotate = 2; }, SCRIVO_ERR_BAD_OPTION},
    };
    for (const Case& c : cases) {
        scrivo_scan_options o = good;
        c.spoil(&o);
        EXPECT_EQ(scrivo_scan(small.data(), small.size(), &o, &r), c.status) << c.what;
        EXPECT_TRUE(r.jpeg == nullptr && r.jpeg_length == 0) << c.what;
    }
    // Given corners the engine cannot take.
    const struct {
        const char* what;
        scrivo_point q[4];
        scrivo_status status;
    } corners[] = {
        {"outside", {{0, 0}, {0, 72}, {97, 72}, {96, 0}}, SCRIVO_ERR_BAD_CORNERS},
        {"mirrored", {{0, 0}, {96, 0}, {96, 72}, {0, 72}}, SCRIVO_ERR_BAD_CORNERS},
        {"3 x 3", {{10, 10}, {10, 13}, {13, 13}, {13, 10}}, SCRIVO_ERR_TOO_SMALL},
        {"3 pixels wide", {{10, 2}, {10, 70}, {13, 70}, {13, 2}}, SCRIVO_ERR_TOO_SMALL},
    };
    for (const auto& c : corners) {
        scrivo_scan_options o = good;
        o.corners_given = 1;
        std::copy(c.q, c.q + 4, o.corners);
        EXPECT_EQ(scrivo_scan(small.data(), small.size(), &o, &r), c.status) << c.what;
        EXPECT_TRUE(r.jpeg == nullptr && r.jpeg_length == 0) << c.what;
    }

    // The same photograph with options in order.
    good.enhancement = SCRIVO_ENHANCE_NONE;
    ASSERT_EQ(scrivo_scan(small.data(), small.size(), &good, &r), SCRIVO_OK);
    EXPECT_EQ(Decoded(r), std::make_pair(int(r.width), int(r.height)));
    scrivo_scan_result_free(&r);

    std::set<std::string> texts;
    for (int s = SCRIVO_OK; s <= SCRIVO_ERR_TOO_SMALL + 1; ++s)
        texts.insert(scrivo_strerror(static_cast<scrivo_status>(s)));
    EXPECT_EQ(texts.size(), size_t(SCRIVO_ERR_TOO_SMALL + 2));  // one each, and "unknown"
}
