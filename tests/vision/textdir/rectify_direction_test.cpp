// Rectifications that deliver the page upright: the turn matrices and
// quadrangle orders, a page photographed in perspective given in every
// corner order, the page search, and the fallback of refused calls (the
// search's own fallback is checked through the engine's entry operations).
#include <gtest/gtest.h>

#include <array>

#include "vision/textdir/text_pages.h"
#include "vision/textdir/textdir.h"

namespace {

using Quad = std::array<tagVPPoint, 4>;
using textdir_test::Photograph;
using textdir_test::TextPage;
using textdir_test::Turned;

cv::Point2d Apply(const cv::Mat& m, tagVPPoint p) {
    const cv::Mat v = m * (cv::Mat_<double>(3, 1) << p.x, p.y, 1.0);
    return {v.at<double>(0) / v.at<double>(2), v.at<double>(1) / v.at<double>(2)};
}

// The matrix takes quad[0..3] onto (0,0), (0,h), (w,h), (w,0).
void ExpectMapsOntoOutput(const cv::Mat& m, const tagVPPoint quad[4], int32_t w, int32_t h) {
    ASSERT_EQ(m.size(), cv::Size(3, 3));
    ASSERT_EQ(m.type(), CV_64F);
    const cv::Point2d corners[4] = {{0, 0}, {0, double(h)}, {double(w), double(h)}, {double(w), 0}};
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d p = Apply(m, quad[i]);
        EXPECT_NEAR(p.x, corners[i].x, 1e-6) << "corner " << i;
        EXPECT_NEAR(p.y, corners[i].y, 1e-6) << "corner " << i;
    }
}

bool Same(const tagVPPoint* a, const tagVPPoint* b) {
    for (int i = 0; i < 4; ++i)
        if (a[i].x != b[i].x || a[i].y != b[i].y) return false;
    return true;
}

Quad Whole(int w, int h) {
    return Quad{{{0, 0}, {0, h}, {w, h}, {w, 0}}};
}

}  // namespace

TEST(TextTurn, MatricesAndQuadrangleOrders) {
    const Quad page = Whole(300, 200);
    for (int32_t turn = 0; turn < 4; ++turn) {
        Quad turned;
        TurnQuadrangle(page.data(), turn, turned.data());
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(turned[i].x, page[(i + turn) % 4].x);
            EXPECT_EQ(turned[i].y, page[(i + turn) % 4].y);
        }
        // The turned order is the upright page's corners, top-left first.
        ExpectMapsOntoOutput(TextTurnMatrix(turn, 300, 200), turned.data(), turn % 2 ? 200 : 300,
                             turn % 2 ? 300 : 200);
    }
    EXPECT_TRUE(cv::countNonZero(TextTurnMatrix(4, 3, 2) != TextTurnMatrix(0, 3, 2)) == 0);
    EXPECT_TRUE(cv::countNonZero(TextTurnMatrix(-1, 3, 2) != TextTurnMatrix(3, 3, 2)) == 0);
    Quad q = page;  // in place
    TurnQuadrangle(q.data(), 1, q.data());
    EXPECT_TRUE(Same(q.data(), Quad{{{0, 200}, {300, 200}, {300, 0}, {0, 0}}}.data()));
}

TEST(RectifyDirection, GivenQuadrangleInEveryOrder) {
    const Quad truth{{{310, 90}, {240, 1010}, {1010, 1060}, {990, 60}}};
    const cv::Mat photo = Photograph(TextPage(700, 1000), cv::Size(1280, 1120), truth);
    for (int32_t presented = 0; presented < 4; ++presented) {
        Quad given, out;
        TurnQuadrangle(truth.data(), presented, given.data());
        cv::Mat m;
        int32_t w = 0, h = 0;
        TextDirection d;
        EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, given.data(), out.data(),
                                                       kTextTurnAny, &m, &w, &h, &d),
                  1);
        EXPECT_EQ(d.turn, (4 - presented) % 4);
        EXPECT_TRUE(Same(out.data(), truth.data())) << "presented " << presented;
        EXPECT_LT(w, h);  // the page is portrait once upright
        EXPECT_EQ(w % 4, 0);
        ExpectMapsOntoOutput(m, out.data(), w, h);
    }
    // Keeping the page decides nothing and rectifies the corners as given.
    Quad given, out;
    TurnQuadrangle(truth.data(), 1, given.data());
    cv::Mat m;
    int32_t w = 0, h = 0;
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, given.data(), out.data(), kTextTurnKeep,
                                                   &m, &w, &h),
              1);
    EXPECT_TRUE(Same(out.data(), given.data()));
    EXPECT_GT(w, h);
    ExpectMapsOntoOutput(m, given.data(), w, h);
}

TEST(RectifyDirection, PageSearchAndWholePhotograph) {
    // A page lying sideways on a dark table: found, and turned upright.
    const Quad placed{{{120, 700}, {1080, 760}, {1060, 90}, {90, 60}}};  // page TL..TR
    const cv::Mat photo = Photograph(TextPage(700, 1000), cv::Size(1200, 860), placed);
    cv::Mat m;
    int32_t w = 0, h = 0;
    Quad a, b;
    TextDirection d;
    ASSERT_EQ(GetRectifyDirectionAndSize(photo, &m, &w, &h, a.data(), b.data(), kTextTurnAny, &d),
              1);
    // The detector orders the corners as the photograph shows them.
    const Quad shown{{placed[3], placed[0], placed[1], placed[2]}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(a[i].x, shown[i].x, 12) << i;
        EXPECT_NEAR(a[i].y, shown[i].y, 12) << i;
    }
    EXPECT_EQ(d.turn, 1);
    Quad expected;
    TurnQuadrangle(a.data(), 1, expected.data());
    EXPECT_TRUE(Same(b.data(), expected.data()));
    EXPECT_LT(w, h);
    ExpectMapsOntoOutput(m, b.data(), w, h);

    // A photograph that is all page: the photograph itself is turned.
    const cv::Mat sideways = Turned(TextPage(700, 1000), 3);
    ASSERT_EQ(
        GetRectifyDirectionAndSize(sideways, &m, &w, &h, a.data(), b.data(), kTextTurnAny, &d), 1);
    EXPECT_EQ(d.turn, 1);
    EXPECT_TRUE(Same(a.data(), Whole(1000, 700).data()));
    EXPECT_EQ(cv::Size(w, h), cv::Size(700, 1000));
    EXPECT_EQ(cv::countNonZero(m != TextTurnMatrix(1, 1000, 700)), 0);
}

TEST(RectifyDirection, RefusalsWriteTheFallback) {
    const cv::Mat photo(300, 400, CV_8UC3, cv::Scalar::all(200));
    const Quad fine{{{10, 10}, {10, 290}, {390, 290}, {390, 10}}};
    const Quad line{{{10, 10}, {100, 100}, {200, 200}, {300, 300}}};  // no perspective matrix
    Quad out, other;
    cv::Mat m;
    int32_t w = -1, h = -1;
    auto expectFallback = [&](int32_t W, int32_t H) {
        EXPECT_EQ(cv::countNonZero(m != cv::Mat::eye(3, 3, CV_64F)), 0);
        EXPECT_EQ(w, W);
        EXPECT_EQ(h, H);
        EXPECT_TRUE(Same(out.data(), Whole(W, H).data()));
    };
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, line.data(), out.data(), kTextTurnAny, &m,
                                                   &w, &h),
              0);
    expectFallback(400, 300);
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, fine.data(), out.data(), 7, &m, &w, &h),
              0);
    expectFallback(400, 300);
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(cv::Mat(), fine.data(), out.data(), kTextTurnAny,
                                                   &m, &w, &h),
              0);
    expectFallback(0, 0);
    EXPECT_EQ(GetRectifyDirectionAndSize(photo, &m, &w, &h, out.data(), other.data(), 9), 0);
    expectFallback(400, 300);
    EXPECT_TRUE(Same(other.data(), Whole(400, 300).data()));
    EXPECT_EQ(GetRectifyDirectionAndSize(cv::Mat(300, 400, CV_8UC1), &m, &w, &h, out.data(),
                                         other.data(), kTextTurnAny),
              0);
    expectFallback(400, 300);

    // Null outputs: refused, nothing written.
    w = h = 5;
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, fine.data(), nullptr, 2, &m, &w, &h), 0);
    EXPECT_EQ(GetRectifyDirectionAndSizeWithVertex(photo, nullptr, out.data(), 2, &m, &w, &h), 0);
    EXPECT_EQ(GetRectifyDirectionAndSize(photo, nullptr, &w, &h, out.data(), other.data(), 2), 0);
    EXPECT_EQ(GetRectifyDirectionAndSize(photo, &m, &w, nullptr, out.data(), other.data(), 2), 0);
    EXPECT_EQ(w + h, 10);
}
