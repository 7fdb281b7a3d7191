// Straightened page size and the perspective matrix that goes with it.
#include <gtest/gtest.h>

#include "vision/rectify/rectify.h"

namespace {

struct Sizes {
    int32_t rawW, rawH;
    VpSize padded;
    int32_t reportedW, reportedH;
};

Sizes SizesOf(const tem_Point (&q)[4], const cv::Mat& photo) {
    Sizes s{};
    EXPECT_EQ(CalDstSize2(q, photo, &s.rawW, &s.rawH), 1);
    EXPECT_EQ(GetRectifiedQuadrangleSize3(q, photo, &s.padded), 1);
    const tagVPPoint vp[4] = {
        {q[0].x, q[0].y}, {q[1].x, q[1].y}, {q[2].x, q[2].y}, {q[3].x, q[3].y}};
    EXPECT_EQ(GetRectifiedImageSizeWithVertex(photo, vp, &s.reportedW, &s.reportedH), 1);
    return s;
}

const cv::Mat kPhoto(1500, 2000, CV_8UC3);

TEST(RectifiedSize, SidesRatiosAndFitting) {
    // Axis-aligned 1000 x 600: no correction.
    Sizes s = SizesOf({{100, 100}, {100, 700}, {1100, 700}, {1100, 100}}, kPhoto);
    EXPECT_EQ(s.rawW, 1000);
    EXPECT_EQ(s.rawH, 600);
    EXPECT_EQ(s.reportedW, 1000);
    EXPECT_EQ(s.reportedH, 600);

    // Top 800, bottom 1000: rH = 1.25 stretches the height by 1.125^2;
    // 769.85 -> 770, which pads by 2 to 772.
    s = SizesOf({{200, 100}, {100, 700}, {1100, 700}, {1000, 100}}, kPhoto);
    EXPECT_EQ(s.rawW, 1000);
    EXPECT_EQ(s.rawH, 770);
    EXPECT_EQ(s.padded.height, 772);
    EXPECT_EQ(s.reportedH, 772);

    // Top 300, bottom 1000: the ratio is capped at 2, so 2.25 x 531.5.
    s = SizesOf({{450, 100}, {100, 500}, {1100, 500}, {750, 100}}, kPhoto);
    EXPECT_EQ(s.rawW, 1000);
    EXPECT_EQ(s.rawH, 1196);

    // Left 1.05 x right snaps to no correction; width 1001.25 -> 1000.
    s = SizesOf({{100, 100}, {100, 1150}, {1100, 1100}, {1100, 100}}, kPhoto);
    EXPECT_EQ(s.rawW, 1000);
    EXPECT_EQ(s.rawH, 1050);
    EXPECT_EQ(s.padded.height, 1052);

    // 3000 x 1000 is fitted into 2000 x 1500 keeping its aspect.
    s = SizesOf({{10, 10}, {10, 1010}, {3010, 1010}, {3010, 10}}, kPhoto);
    EXPECT_EQ(s.rawW, 2000);
    EXPECT_EQ(s.rawH, 666);
    EXPECT_EQ(s.reportedW, 2000);
    EXPECT_EQ(s.reportedH, 668);
}

TEST(RectifiedSize, ImplausibleVerticesReportThePhotograph) {
    // Third vertex on an axis.
    Sizes s = SizesOf({{100, 100}, {100, 700}, {0, 700}, {1100, 100}}, kPhoto);
    EXPECT_EQ(s.reportedW, 2000);
    EXPECT_EQ(s.reportedH, 1500);
    // All four vertices together: no matrix, zero size.
    s = SizesOf({{50, 50}, {50, 50}, {50, 50}, {50, 50}}, kPhoto);
    EXPECT_EQ(s.rawW, 0);
    EXPECT_EQ(s.reportedW, 2000);
    EXPECT_EQ(s.reportedH, 1500);
    // Three collinear vertices have an area but admit no perspective matrix.
    s = SizesOf({{100, 100}, {100, 700}, {100, 1300}, {1100, 100}}, kPhoto);
    EXPECT_EQ(s.reportedW, 2000);

    int32_t w = -1, h = -1;
    EXPECT_EQ(GetRectifiedImageSizeWithVertex(kPhoto, nullptr, &w, &h), 1);
    EXPECT_EQ(w, 2000);
    EXPECT_EQ(h, 1500);
    EXPECT_EQ(CalDstSize2(nullptr, kPhoto, &w, &h), 0);
    const tem_Point q[4] = {{0, 0}, {0, 10}, {10, 10}, {10, 0}};
    EXPECT_EQ(CalDstSize2(q, cv::Mat(), &w, &h), 0);
    EXPECT_EQ(w, 0);
}

TEST(RectifyMatrix, MapsTheVerticesOntoTheOutputCorners) {
    const tem_Point q[4] = {{430, 210}, {120, 1290}, {1830, 1400}, {1610, 90}};
    cv::Mat m;
    ASSERT_EQ(MakeGeometryRectifyMatrix4(q, 1200, 900, m), 1);
    ASSERT_EQ(m.type(), CV_64F);
    const double corners[4][2] = {{0, 0}, {0, 900}, {1200, 900}, {1200, 0}};
    for (int i = 0; i < 4; ++i) {
        const cv::Mat p = m * (cv::Mat_<double>(3, 1) << q[i].x, q[i].y, 1.0);
        EXPECT_NEAR(p.at<double>(0) / p.at<double>(2), corners[i][0], 1e-6);
        EXPECT_NEAR(p.at<double>(1) / p.at<double>(2), corners[i][1], 1e-6);
    }
    EXPECT_DOUBLE_EQ(m.at<double>(2, 2), 1.0);

    // The size-driven builder uses the raw (unpadded) size.
    ASSERT_EQ(MakeGeometryRectifyMatrix3(q, kPhoto, m), 1);
    int32_t w = 0, h = 0;
    CalDstSize2(q, kPhoto, &w, &h);
    const cv::Mat p = m * (cv::Mat_<double>(3, 1) << q[2].x, q[2].y, 1.0);
    EXPECT_NEAR(p.at<double>(0) / p.at<double>(2), w, 1e-6);
    EXPECT_NEAR(p.at<double>(1) / p.at<double>(2), h, 1e-6);

    const tem_Point collinear[4] = {{0, 0}, {100, 100}, {200, 200}, {300, 0}};
    EXPECT_EQ(MakeGeometryRectifyMatrix4(collinear, 100, 100, m), 0);
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(MakeGeometryRectifyMatrix4(q, 0, 100, m), 0);
    EXPECT_EQ(MakeGeometryRectifyMatrix4(nullptr, 100, 100, m), 0);
}

}  // namespace
