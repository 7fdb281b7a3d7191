// Manual adjustment tables: the walked contrast curve, the gamma curve with
// its wrap and its max = 0 case, the preview threshold, and the in-place
// table step on regions of interest.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "vision/enhance/enhance.h"
#include "vision/enhance/manual_tables.h"

namespace {

using Table = std::array<unsigned char, 256>;

Table Contrast(int brightness, int contrast) {
    Table t;
    std::iota(t.begin(), t.end(), 0);
    CalAdjustTableByContrast(t.data(), brightness, contrast);
    return t;
}

Table Manual(int threshold, int brightness, int contrast, float gamma) {
    Table t;
    CalAdjustImageByManuallyMatrix(t.data(), threshold, brightness, contrast, gamma);
    return t;
}

}  // namespace

TEST(ManualTables, ContrastCurve) {
    const Table bright = Contrast(100, 0);
    EXPECT_EQ(bright[0], 100);
    EXPECT_EQ(bright[154], 254);
    for (int i = 155; i < 256; ++i) EXPECT_EQ(bright[i], 255) << i;
    EXPECT_EQ(Contrast(-100, 0)[99], 0);

    // Lowest contrast: both knees nominally reach b + 128 and the middle is
    // flat; the single-precision walk arrives at 127.99994.
    const Table flat = Contrast(0, -100);
    EXPECT_EQ(flat[40], 127);
    for (int i = 41; i <= 217; ++i) EXPECT_EQ(flat[i], flat[40]) << i;
    EXPECT_EQ(Contrast(0, -400), flat);

    // Raised contrast: knees at 84 and 172, middle slope 2, walked in single
    // precision (39.99997 at the knee); level 173 still takes a middle step
    // (217.99997), where the upper piece would give 216.
    const Table steep = Contrast(0, 50);
    EXPECT_EQ(steep[84], 39);
    EXPECT_EQ(steep[172], 215);
    EXPECT_EQ(steep[173], 217);
    EXPECT_EQ(steep[174], 218);

    // Composition: an existing table is mapped through the curve.
    Table twice = Contrast(10, 20);
    CalAdjustTableByContrast(twice.data(), 10, 20);
    const Table once = Contrast(10, 20);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(twice[i], once[once[i]]);
}

TEST(ManualTables, GammaCurve) {
    EXPECT_EQ(Manual(200, 20, 30, 1.0f), Contrast(20, 30));
    EXPECT_EQ(Manual(200, 0, 0, 0.05f), Manual(200, 0, 0, 0.1f));
    EXPECT_EQ(Manual(200, 0, 0, 7.0f), Manual(200, 0, 0, 5.0f));
    const Table g = Manual(100, 0, 0, 0.5f);  // max 100: t -> (t/100)^2 * 100
    EXPECT_EQ(g[50], 25);
    EXPECT_EQ(g[100], 100);
    EXPECT_EQ(g[200], 400 & 0xFF);  // above max: unclamped, low 8 bits
    // Tiny max and smallest gamma overflow int: saturated, no wrap to 0.
    Table big;
    std::iota(big.begin(), big.end(), 0);
    CalAdjustTableByGamma(big.data(), 0.1f, 1);
    EXPECT_EQ(big[1], 1);
    EXPECT_EQ(big[255], 0xFF);

    // A brightest level that maps to 0 zeroes the whole table.
    const Table dark = Manual(30, -100, 0, 2.0f);
    for (unsigned char v : dark) EXPECT_EQ(v, 0);
    Table t;
    std::iota(t.begin(), t.end(), 0);
    CalAdjustTableByGamma(t.data(), 1.0f, 0);
    for (unsigned char v : t) EXPECT_EQ(v, 0);
}

TEST(ManualTables, ThresholdAndTableStep) {
    cv::Mat image(20, 30, CV_8UC3, cv::Scalar(10, 20, 30));
    EXPECT_EQ(CalAdjustThreshold(image), 30);
    image.at<cv::Vec3b>(19, 29)[1] = 201;
    EXPECT_EQ(CalAdjustThreshold(image), 201);
    EXPECT_EQ(CalAdjustThreshold(image(cv::Rect(0, 0, 29, 20))), 30);  // outside the region
    EXPECT_EQ(CalAdjustThreshold(cv::Mat::zeros(4, 4, CV_8UC1)) + CalAdjustThreshold(cv::Mat()), 0);

    Table inverse;
    for (int i = 0; i < 256; ++i) inverse[i] = static_cast<unsigned char>(255 - i);
    cv::Mat roi = image(cv::Rect(3, 2, 7, 5));  // odd byte count a row
    EnhanceImageWithTable(roi, inverse.data());
    EXPECT_EQ(image.at<cv::Vec3b>(2, 3), cv::Vec3b(245, 235, 225));
    EXPECT_EQ(image.at<cv::Vec3b>(6, 9), cv::Vec3b(245, 235, 225));
    EXPECT_EQ(image.at<cv::Vec3b>(6, 10), cv::Vec3b(10, 20, 30));
    EXPECT_EQ(image.at<cv::Vec3b>(1, 3), cv::Vec3b(10, 20, 30));
    const cv::Mat bytes = image.reshape(1);
    EXPECT_EQ(cv::countNonZero((bytes > 200) & (bytes < 250) & (bytes != 201)), 7 * 5 * 3);
}
