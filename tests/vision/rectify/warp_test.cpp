// Fixed-point perspective warp: its defining behaviour, the fast kernel
// against the reference, the band split, and a page against a
// double-precision warp.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>

#include "vision/rectify/rectify.h"

namespace {

cv::Mat RandomImage(int w, int h, uint32_t seed) {
    cv::Mat m(h, w, CV_8UC3);
    cv::RNG rng(seed);
    rng.fill(m, cv::RNG::UNIFORM, 0, 256);
    return m;
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
    return cv::norm(a, b, cv::NORM_INF) == 0;
}

// Runs both kernels over an output prefilled differently, so unwritten
// pixels would show.
void ExpectKernelsAgree(const cv::Mat& src, const WarpFixedMatrix& m, int w, int h) {
    for (WarpSampling s : {WarpSampling::kBilinear, WarpSampling::kNearest}) {
        cv::Mat ref(h, w, CV_8UC3, cv::Scalar::all(77));
        WarpRowsReference(src, ref, m, 0, h, s);
        for (WarpKernel k : {WarpKernel::kBest, WarpKernel::kBaseline}) {
            cv::Mat fast(h, w, CV_8UC3, cv::Scalar::all(99));
            WarpRows(src, fast, m, 0, h, s, k);
            ASSERT_TRUE(SameBytes(ref, fast)) << "size " << w << "x" << h << " a00 " << m.a00
                                              << " a20 " << m.a20 << " a22 " << m.a22;
        }
    }
}

TEST(Warp, IdentityCopiesAllButTheLastRowAndColumn) {
    const cv::Mat src = RandomImage(37, 23, 1);
    const cv::Mat identity = cv::Mat::eye(3, 3, CV_64F);
    for (bool fast : {false, true}) {
        cv::Mat out(23, 37, CV_8UC3, cv::Scalar::all(5));
        ASSERT_EQ(fast ? WarpPerspectiveCrossBorderFast(src, out, identity)
                       : WarpPerspectiveCrossBorder(src, out, identity),
                  1);
        const cv::Rect inner(0, 0, 36, 22);
        EXPECT_TRUE(SameBytes(out(inner), src(inner)));
        EXPECT_EQ(cv::countNonZero(out.col(36).reshape(1)), 0);
        EXPECT_EQ(cv::countNonZero(out.row(22).reshape(1)), 0);
    }
    // A source half a pixel left of column 0 truncates to column 0 and is
    // blended with weight 16 (-4096 / 256 = -16, & 31), not made black.
    const cv::Mat shift = (cv::Mat_<double>(3, 3) << 1, 0, 0.5, 0, 1, 0, 0, 0, 1);
    cv::Mat out(23, 37, CV_8UC3);
    WarpPerspectiveCrossBorder(src, out, shift);
    const cv::Vec3b a = src.at<cv::Vec3b>(10, 0), b = src.at<cv::Vec3b>(10, 1);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(out.at<cv::Vec3b>(10, 0)[c], (a[c] * 32 + 16 * (b[c] - a[c])) >> 5);
    }

    EXPECT_TRUE(SameBytes(GeometryRectifyWithVanishingPoint(src, shift, 37, 23), out));
    EXPECT_TRUE(GeometryRectifyWithVanishingPoint(src, shift, 0, 23).empty());

    cv::Mat empty;
    EXPECT_EQ(WarpPerspectiveCrossBorder(empty, out, identity), 0);
    EXPECT_EQ(WarpPerspectiveCrossBorder(src, out, cv::Mat::eye(2, 3, CV_64F)), 0);
    EXPECT_EQ(WarpPerspectiveCrossBorderFast(src, empty, identity), 0);
}

TEST(Warp, BandsSplitTheRows) {
    int32_t first = 0, end = 0;
    for (int32_t i = 0; i < kWarpBands; ++i) {
        WarpBandRows(8, i, &first, &end);
        EXPECT_EQ(first, std::min(i, 8));
        EXPECT_EQ(end, std::min(i + 1, 8));
    }
    WarpBandRows(2204, 17, &first, &end);  // bands of 123 rows
    EXPECT_EQ(first, 2091);
    EXPECT_EQ(end, 2204);

    // An 8-row output through the engine equals the reference.
    const cv::Mat src = RandomImage(64, 48, 2);
    const cv::Mat h = (cv::Mat_<double>(3, 3) << 0.9, 0.1, -3, -0.05, 1.1, 2, 0.001, 0.002, 1);
    WarpFixedMatrix m;
    ASSERT_TRUE(MakeWarpFixedMatrix(h, &m));
    cv::Mat ref(8, 50, CV_8UC3), out(8, 50, CV_8UC3, cv::Scalar::all(1));
    WarpRowsReference(src, ref, m, 0, 8, WarpSampling::kBilinear);
    WarpPerspectiveCrossBorder(src, out, h);
    EXPECT_TRUE(SameBytes(ref, out));
    out.setTo(cv::Scalar::all(1));
    WarpPerspectiveCrossBorderSerial(src, out, h);
    EXPECT_TRUE(SameBytes(ref, out));
}

TEST(Warp, FastKernelMatchesTheReferenceBitForBit) {
    const cv::Mat src = RandomImage(97, 61, 3);
    std::mt19937 rng(12345);
    auto uniform = [&](double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng);
    };
    // Page quadrangles, partly outside the photograph (negative positions).
    for (int k = 0; k < 40; ++k) {
        tem_Point q[4];
        for (tem_Point& p : q) p = {int32_t(uniform(-60, 160)), int32_t(uniform(-40, 100))};
        const int w = int(uniform(1, 130)), h = int(uniform(1, 40));
        cv::Mat fwd;
        WarpFixedMatrix m;
        if (!MakeGeometryRectifyMatrix4(q, w, h, fwd) || !MakeWarpFixedMatrix(fwd, &m)) continue;
        ExpectKernelsAgree(src, m, w, h);
        ExpectKernelsAgree(src(cv::Rect(7, 5, 71, 43)), m, w, h);  // rows with a gap
    }
    // General fixed matrices whose Z changes sign inside the output.
    for (int k = 0; k < 40; ++k) {
        WarpFixedMatrix m{int32_t(uniform(-3, 3) * 8192),
                          int32_t(uniform(-3, 3) * 8192),
                          int32_t(uniform(-50, 150) * 8192),
                          int32_t(uniform(-3, 3) * 8192),
                          int32_t(uniform(-3, 3) * 8192),
                          int32_t(uniform(-50, 100) * 8192),
                          int64_t(uniform(-0.02, 0.02) * 268435456.0),
                          int64_t(uniform(-0.02, 0.02) * 268435456.0),
                          int64_t(uniform(-1, 1) * 268435456.0)};
        ExpectKernelsAgree(src, m, 121, 33);
    }
    // Z passing through 0, +-1 and +-1024 at single pixels with large X,
    // where q and the products are largest; and rows where X wraps around.
    for (int64_t z0 : {0, 1, -1, 1024, 1025, -1024, -1025, 5}) {
        ExpectKernelsAgree(src, {1, 0, 0, 1, 0, 0, 0, 0, z0}, 64, 2);  // Z constant along rows
        ExpectKernelsAgree(src, {8192, 0, 400 * 8192, 0, 8192, -2000, 3, 0, z0 - 3 * 50}, 103, 3);
        ExpectKernelsAgree(src, {-9, 7, 20 * 8192, 3, 1, 8192 * 30, 1 << 20, 1, z0 - (1 << 25)}, 64,
                           2);
    }
    ExpectKernelsAgree(src, {INT32_MAX / 3, 1, 0, 1, INT32_MAX / 5, 0, 1 << 28, 0, 1 << 28}, 40,
                       40);
    ExpectKernelsAgree(src, {8192, 0, 0, 0, 8192, 0, INT64_MAX / 7, INT64_MIN / 3, 1}, 20, 5);
}

// Bilinear sample of the photograph at a real position, 0 outside.
double ExactSample(const cv::Mat& src, double x, double y, int c) {
    const int x0 = int(std::floor(x)), y0 = int(std::floor(y));
    if (x0 < 0 || y0 < 0 || x0 + 1 >= src.cols || y0 + 1 >= src.rows) return 0.0;
    const double fx = x - x0, fy = y - y0;
    auto p = [&](int yy, int xx) { return double(src.at<cv::Vec3b>(yy, xx)[c]); };
    const double top = p(y0, x0) * (1 - fx) + p(y0, x0 + 1) * fx;
    const double bottom = p(y0 + 1, x0) * (1 - fx) + p(y0 + 1, x0 + 1) * fx;
    return top * (1 - fy) + bottom * fy;
}

TEST(Warp, PageAgreesWithADoublePrecisionWarp) {
    // A pale page with smooth shading on a dark table.
    cv::Mat photo(600, 800, CV_8UC3, cv::Scalar(40, 50, 60));
    const tagVPPoint quad[4] = {{170, 110}, {90, 430}, {700, 470}, {640, 91}};
    const cv::Point poly[4] = {{170, 110}, {90, 430}, {700, 470}, {640, 91}};
    cv::Mat shade(600, 800, CV_8UC3);
    for (int y = 0; y < 600; ++y) {
        for (int x = 0; x < 800; ++x) {
            const double s = 25 * std::sin(x / 37.0) * std::cos(y / 29.0);
            shade.at<cv::Vec3b>(y, x) = cv::Vec3b(cv::saturate_cast<uint8_t>(200 + s),
                                                  cv::saturate_cast<uint8_t>(210 - s), 190);
        }
    }
    cv::Mat mask(600, 800, CV_8U, cv::Scalar(0));
    cv::fillConvexPoly(mask, poly, 4, cv::Scalar(255));
    shade.copyTo(photo, mask);

    const cv::Mat page = PerspectiveRectifyAndCutImage(photo, quad);
    tem_Point q[4];
    for (int i = 0; i < 4; ++i) q[i] = {quad[i].x, quad[i].y};
    int32_t w = 0, h = 0;
    CalDstSize2(q, photo, &w, &h);
    ASSERT_EQ(h % 4, 2) << "the page should have two padding rows";
    ASSERT_EQ(page.cols, w);
    ASSERT_EQ(page.rows, h + 2);

    cv::Mat matrix;
    ASSERT_EQ(MakeGeometryRectifyMatrix3(q, photo, matrix), 1);
    const cv::Mat inverse = matrix.inv();
    double sum = 0.0, worst = 0.0;
    int count = 0;
    for (int y = 3; y < h - 3; ++y) {
        for (int x = 3; x < w - 3; ++x) {
            const cv::Mat p = inverse * (cv::Mat_<double>(3, 1) << x, y, 1.0);
            const double sx = p.at<double>(0) / p.at<double>(2);
            const double sy = p.at<double>(1) / p.at<double>(2);
            for (int c = 0; c < 3; ++c) {
                const double d =
                    std::abs(page.at<cv::Vec3b>(y, x)[c] - ExactSample(photo, sx, sy, c));
                sum += d;
                worst = std::max(worst, d);
                ++count;
            }
        }
    }
    EXPECT_LT(sum / count, 0.5);
    EXPECT_LE(worst, 3.0);
    // The corners of the page land on the output's corners: inside them is
    // paper, the padding rows below the bottom edge show the table.
    for (cv::Point p :
         {cv::Point(2, 2), cv::Point(w - 3, 2), cv::Point(2, h - 3), cv::Point(w - 3, h - 3)}) {
        EXPECT_EQ(page.at<cv::Vec3b>(p)[2], 190) << p;
    }
    EXPECT_EQ(page.at<cv::Vec3b>(h + 1, w / 2), cv::Vec3b(40, 50, 60));

    // Implausible vertices give a copy of the photograph.
    const tagVPPoint onAxis[4] = {{170, 110}, {90, 430}, {0, 470}, {640, 91}};
    EXPECT_TRUE(SameBytes(PerspectiveRectifyAndCutImage(photo, onAxis), photo));
    EXPECT_TRUE(PerspectiveRectifyAndCutImage(cv::Mat(), quad).empty());

    // The animation frame warps nearest-neighbour into the target's size.
    cv::Mat frame(h / 2, w / 2, CV_8UC3, cv::Scalar::all(0));
    EXPECT_EQ(PerspectiveRectifyAndCutImageAnimation(photo, frame, quad), 1);
    EXPECT_EQ(frame.at<cv::Vec3b>(h / 4, w / 4)[2], 190);
    EXPECT_EQ(PerspectiveRectifyAndCutImageAnimation(photo, frame, onAxis), 0);
    cv::Mat huge(3001, 10, CV_8UC3);
    EXPECT_EQ(PerspectiveRectifyAndCutImageAnimation(photo, huge, quad), 0);
}

}  // namespace
