// Text-direction entry operations: refused arguments, the documented
// failure outputs, the decision kept for the text-line rectification, and
// source recovery.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "engine/client.h"
#include "vision/textdir/text_pages.h"
#include "vision/textdir/textdir.h"

namespace {

using Quad = std::array<tagVPPoint, 4>;

// A client made from a BGR image (through an RGBA record), released at the end.
struct Client {
    VPHandle h = nullptr;
    explicit Client(const cv::Mat& bgr) {
        cv::Mat rgba;
        cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
        tagVPImage record{VP_FORMAT_RGB, 4,        8, rgba.cols, static_cast<int32_t>(rgba.step),
                          rgba.rows,     rgba.data};
        h = VPCreateDocuviaClient(&record);
    }
    ~Client() { VPReleaseDocuviaClient(&h); }
};

struct Rgba {
    std::vector<uint8_t> pixels;
    tagVPImage record;
    tagVPImage* ptr = &record;
    Rgba(int w, int h) : pixels(size_t(w) * h * 4) {
        record = {VP_FORMAT_RGB, 4, 8, w, w * 4, h, pixels.data()};
    }
};

Quad Whole(int w, int h) {
    return Quad{{{0, 0}, {0, h}, {w, h}, {w, 0}}};
}

bool Same(const Quad& a, const Quad& b) {
    for (int i = 0; i < 4; ++i)
        if (a[i].x != b[i].x || a[i].y != b[i].y) return false;
    return true;
}

// A page lying sideways (its top to the right) on a dark table.
cv::Mat SidewaysPagePhoto(Quad* pageCorners) {
    const Quad placed{{{1060, 90}, {90, 60}, {120, 700}, {1080, 760}}};  // page TL..TR
    *pageCorners = placed;
    return textdir_test::Photograph(textdir_test::TextPage(700, 1000), cv::Size(1200, 860), placed);
}

}  // namespace

TEST(EngineTextDirection, RefusedArgumentsAndIllegalQuadrangles) {
    const cv::Mat blank(120, 160, CV_8UC3, cv::Scalar::all(128));
    Client c(blank);
    ASSERT_NE(c.h, nullptr);
    Quad q = Whole(160, 120), out{};
    int32_t w = 0, h = 0, dir = 0;
    Rgba rgba(160, 120);
    tagVPPoint *Q = q.data(), *O = out.data();
    tagVPImage* none = nullptr;
    const uint32_t refused[] = {
        VPDetectTextDirection(nullptr),
        VPDetectTextDirectionAndRectifiedImageSize(nullptr, &w, &h, Q, O, &dir),
        VPDetectTextDirectionAndRectifiedImageSize(c.h, nullptr, &h, Q, O, &dir),
        VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, nullptr, Q, O, &dir),
        VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, nullptr, O, &dir),
        VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, Q, nullptr, &dir),
        VPDetectTextDirectionWithVeterx(nullptr, Q),
        VPDetectTextDirectionWithVeterx(c.h, nullptr),
        VPGetRectifiedTextImageSizeWithVeterx(nullptr, Q, O, 2, &w, &h),
        VPGetRectifiedTextImageSizeWithVeterx(c.h, nullptr, O, 2, &w, &h),
        VPGetRectifiedTextImageSizeWithVeterx(c.h, Q, nullptr, 2, &w, &h),
        VPGetRectifiedTextImageSizeWithVeterx(c.h, Q, O, 2, nullptr, &h),
        VPGetRectifiedTextImageSizeWithVeterx(c.h, Q, O, 2, &w, nullptr),
        VPRectifyWithTextLine(nullptr, &rgba.ptr),
        VPRectifyWithTextLine(c.h, nullptr),
        VPRectifyWithTextLine(c.h, &none)};
    for (uint32_t r : refused) EXPECT_EQ(r, 0u);
    EXPECT_EQ(w, 0);  // nothing written on a refusal
    EXPECT_EQ(dir, 0);

    // A self-crossing quadrangle is refused and leaves the client as it was.
    c.h->sizeKnown = 0;
    const Quad crossed{{{24, 8}, {144, 108}, {16, 112}, {132, 14}}};
    ASSERT_EQ(JudgeLeaglueQuadrangle(crossed.data()), 0);
    q = crossed;
    EXPECT_EQ(VPDetectTextDirectionWithVeterx(c.h, q.data()), 0u);
    EXPECT_EQ(VPGetRectifiedTextImageSizeWithVeterx(c.h, q.data(), out.data(), 2, &w, &h), 0u);
    EXPECT_EQ(c.h->sizeKnown, 0);
    EXPECT_TRUE(c.h->rectifyMatrix.empty());
}

TEST(EngineTextDirection, NothingToTellGivesThePhotograph) {
    const cv::Mat blank(120, 160, CV_8UC3, cv::Scalar(90, 120, 150));
    Client c(blank);
    int32_t w = 0, h = 0, dir = 0;
    Quad a{}, b{};
    EXPECT_EQ(VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, a.data(), b.data(), &dir),
              0u);
    EXPECT_EQ(w, 160);
    EXPECT_EQ(h, 120);
    EXPECT_TRUE(Same(a, Whole(160, 120)));
    EXPECT_TRUE(Same(b, Whole(160, 120)));
    EXPECT_EQ(dir, -1);
    EXPECT_EQ(c.h->sizeKnown, 0);
    EXPECT_EQ(VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, a.data(), b.data(), nullptr),
              0u);
    EXPECT_EQ(VPDetectTextDirection(c.h), 0u);

    // Without a decision the text-line rectification copies the photograph.
    Rgba out(160, 120);
    ASSERT_EQ(VPRectifyWithTextLine(c.h, &out.ptr), 1u);
    EXPECT_EQ(c.h->rectified, 1);
    EXPECT_EQ(cv::norm(c.h->rectifiedImage, c.h->source, cv::NORM_INF), 0.0);
    ASSERT_NE(c.h->rectifiedView, nullptr);
    EXPECT_EQ(c.h->rectifiedView->data, c.h->rectifiedImage.data);

    // An unknown mode: 0, the photograph's size and corners, and the kept
    // decision warps the photograph onto itself.
    Quad q{{{10, 10}, {12, 110}, {150, 112}, {148, 8}}}, out4{};
    EXPECT_EQ(VPGetRectifiedTextImageSizeWithVeterx(c.h, q.data(), out4.data(), 7, &w, &h), 0u);
    EXPECT_EQ(w, 160);
    EXPECT_EQ(h, 120);
    EXPECT_TRUE(Same(out4, Whole(160, 120)));
    EXPECT_EQ(c.h->sizeKnown, 1);
    ASSERT_EQ(VPRectifyWithTextLine(c.h, &out.ptr), 1u);
    EXPECT_EQ(c.h->rectifiedImage.size(), cv::Size(160, 120));

    // A corner on an axis where a page corner cannot be: the whole photograph.
    q = Quad{{{0, 0}, {0, 120}, {160, 120}, {0, 0}}};
    q[3] = {0, 5};
    EXPECT_EQ(VPGetRectifiedTextImageSizeWithVeterx(c.h, q.data(), out4.data(), 2, &w, &h), 0u);
    EXPECT_TRUE(Same(out4, Whole(160, 120)));
}

TEST(EngineTextDirection, SidewaysPageComesOutUpright) {
    Quad page;
    Client c(SidewaysPagePhoto(&page));
    int32_t w = 0, h = 0, dir = 0;
    Quad a{}, b{};
    ASSERT_EQ(VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, a.data(), b.data(), &dir),
              1u);
    EXPECT_EQ(dir, 270);  // the page's top is at the photograph's right
    EXPECT_LT(w, h);
    EXPECT_EQ(c.h->sizeKnown, 1);
    EXPECT_EQ(c.h->rectWidth, w);
    EXPECT_EQ(c.h->rectHeight, h);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(b[i].x, page[i].x, 12) << i;  // quadB starts at the page's own top-left
        EXPECT_NEAR(b[i].y, page[i].y, 12) << i;
    }
    Rgba out(w, h);
    ASSERT_EQ(VPRectifyWithTextLine(c.h, &out.ptr), 1u);
    EXPECT_EQ(c.h->rectifiedImage.size(), cv::Size(w, h));
    EXPECT_EQ(DecideTextDirection(c.h->rectifiedImage).turn, 0);

    // The caller's corners, in the photograph's order: the same turn.
    EXPECT_EQ(VPDetectTextDirectionWithVeterx(c.h, a.data()), 1u);
    EXPECT_EQ(c.h->sizeKnown, 1);
    EXPECT_EQ(c.h->rectWidth, w);
    Quad turned{};
    int32_t w2 = 0, h2 = 0;
    EXPECT_EQ(VPGetRectifiedTextImageSizeWithVeterx(c.h, a.data(), turned.data(), 2, &w2, &h2), 1u);
    EXPECT_TRUE(Same(turned, b));
    EXPECT_EQ(w2, w);
    EXPECT_EQ(h2, h);
}

TEST(EngineTextDirection, ReleasedPhotographIsRecovered) {
    Client c(textdir_test::Turned(textdir_test::TextPage(500, 700), 2));
    Rgba copy(500, 700);
    Quad whole = Whole(500, 700);
    ASSERT_EQ(VPRectifyVertexArea(c.h, whole.data(), &copy.ptr), 1u);
    VPReduceDocuviaClient(&c.h, VP_REDUCE_SOURCE);
    // The quadrangle forms need the photograph itself.
    EXPECT_EQ(VPDetectTextDirectionWithVeterx(c.h, whole.data()), 0u);
    // The search forms take the rectified page for the photograph.
    EXPECT_EQ(VPDetectTextDirection(c.h), 1u);  // upside down: needs a turn
    EXPECT_EQ(c.h->source.size(), cv::Size(500, 700));
    EXPECT_TRUE(c.h->rectifiedImage.empty());
    EXPECT_EQ(c.h->rectified, 0);
    EXPECT_EQ(c.h->rectifiedView, nullptr);

    // Nothing left to recover: 0, and a 0 x 0 photograph's outputs.
    VPReduceDocuviaClient(&c.h, VP_REDUCE_SOURCE);
    int32_t w = -1, h = -1, dir = 0;
    Quad a{}, b{};
    a[2] = {7, 7};
    EXPECT_EQ(VPDetectTextDirectionAndRectifiedImageSize(c.h, &w, &h, a.data(), b.data(), &dir),
              0u);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 0);
    EXPECT_TRUE(Same(a, Whole(0, 0)));
    EXPECT_EQ(VPDetectTextDirection(c.h), 0u);
    Rgba out(500, 700);
    EXPECT_EQ(VPRectifyWithTextLine(c.h, &out.ptr), 0u);
    EXPECT_EQ(out.ptr, nullptr);  // a copy of nothing clears the caller's record
}
