// Table builders on constructed histograms: where the knees fall, the slope
// caps, the levels deliberately left out of the tails, the chroma pieces,
// and the fixed sharpening step.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "vision/enhance/color_tables.h"

namespace {

using Table = std::array<unsigned char, 256>;

// A 100 x 100 plane holding `count` pixels at each listed level (the rest
// at `fill`).
cv::Mat Plane(std::vector<std::pair<int, int>> levels, int fill) {
    cv::Mat plane(100, 100, CV_8UC1, cv::Scalar(fill));
    int i = 0;
    for (const auto& [level, count] : levels) {
        for (int n = 0; n < count; ++n, ++i) plane.at<uint8_t>(i / 100, i % 100) = level;
    }
    return plane;
}

Table Stretch(const cv::Mat& plane, float* mid) {
    Table t;
    CalcColorTableGCELow4(plane, t.data(), mid);
    return t;
}

Table Chroma(float mid) {
    Table t;
    GetCrTableLow(cv::Mat(), t.data(), mid);
    return t;
}

}  // namespace

TEST(ColorTables, StretchKneesFollowTheTails) {
    // 6 % at 60 (the dark 5 % end there), 2 % at 200 (the bright 1 %
    // begin there), the rest at 150: lo = 60, hi = 200, mid = 130.
    float mid = 0.0f;
    const Table t = Stretch(Plane({{60, 600}, {200, 200}}, 150), &mid);
    EXPECT_EQ(mid, 130.0f);
    // slope (255 - 48) / 140 = 1.4786; lo maps to 0.8 lo = 48.
    EXPECT_EQ(t[60], 48);
    EXPECT_EQ(t[199], 253);  // 255 - 1.4786
    EXPECT_EQ(t[200], 255);
    EXPECT_EQ(t[150], 181);
    EXPECT_EQ(t[0], 0);
    EXPECT_EQ(t[255], 255);
}

TEST(ColorTables, StretchSlopeCapsAndClippedLevels) {
    // Nearly flat page at 120 with a 1 % bright tail at 130: slope
    // (255 - 96) / 10 = 15.9 is capped at 2.0 (mid 125 > 44).
    float mid = 0.0f;
    Table t = Stretch(Plane({{130, 200}}, 120), &mid);
    EXPECT_EQ(mid, 125.0f);
    EXPECT_EQ(t[120], 96);
    EXPECT_EQ(t[121], 98);
    EXPECT_EQ(t[130], 116);

    // A dark page (mean below 20: counting from level 0) whose mid is 44 or
    // less gets the 3.8 cap: lo = 5, hi = 30.
    t = Stretch(Plane({{5, 600}, {30, 200}}, 10), &mid);
    EXPECT_EQ(mid, 17.0f);
    EXPECT_EQ(t[5], 4);
    EXPECT_EQ(t[6], 7);  // 4 + 3.8 = 7.8

    // Both tails on one level: hi - lo = 0 is an infinite slope, capped.
    t = Stretch(Plane({}, 100), &mid);
    EXPECT_EQ(mid, 100.0f);
    EXPECT_EQ(t[100], 80);
    EXPECT_EQ(t[101], 82);

    // Clipped highlights at 254 and 255 are not the bright tail: with 30 %
    // there and 2 % at 180 the bright end is 180, not 255.
    t = Stretch(Plane({{255, 1500}, {254, 1500}, {180, 200}, {40, 600}}, 120), &mid);
    EXPECT_EQ(mid, 110.0f);
    EXPECT_EQ(t[179], 253);
    EXPECT_EQ(t[180], 255);
}

TEST(ColorTables, StretchStartLevelDependsOnTheMean) {
    // A bright page with 10 % black frame: counting starts at 20, so the
    // frame does not pin the dark end; lo is the page's own 5 % (at 90).
    float mid = 0.0f;
    Table t = Stretch(Plane({{0, 1000}, {90, 600}, {220, 200}}, 200), &mid);
    EXPECT_EQ(mid, 155.0f);
    EXPECT_EQ(t[90], 72);
    // A dark page (mean 30): counting starts at 5, so the 10 % at level 2
    // is ignored and lo is 25.
    t = Stretch(Plane({{2, 1000}, {25, 600}, {60, 200}}, 32), &mid);
    EXPECT_EQ(mid, 42.0f);
    EXPECT_EQ(t[25], 20);
}

TEST(ColorTables, ChromaPiecesMeetAtTheirKnees) {
    for (const float mid : {20.0f, 44.9f, 45.0f, 200.0f}) {
        const Table t = Chroma(mid);
        const bool dark = mid < 45.0f;
        const int knee1 = dark ? 100 : 70, knee2 = dark ? 155 : 185;
        EXPECT_EQ(t[0], 0) << mid;
        EXPECT_EQ(t[knee1], 40) << mid;
        EXPECT_EQ(t[knee2], 215) << mid;
        EXPECT_EQ(t[255], 255) << mid;
        EXPECT_EQ(t[128], dark ? 129 : 128) << mid;
        for (int i = 1; i < 256; ++i) EXPECT_GE(t[i], t[i - 1]) << mid << " " << i;
    }
    EXPECT_EQ(Chroma(20.0f)[99], 40);  // 39.6 rounds up to the knee
    EXPECT_EQ(Chroma(20.0f)[154], 212);
}

TEST(ColorTables, SharpeningIsAFixedStepAwayFromTheLocalMean) {
    cv::Mat y(20, 20, CV_8UC1, cv::Scalar(200));
    y.at<uint8_t>(10, 10) = 100;  // box mean 196: 96 below, pushed down 10
    y.at<uint8_t>(3, 3) = 195;    // within 10 of its mean: unchanged
    y.at<uint8_t>(15, 4) = 5;     // pushed below 0: clamped
    cv::Mat dark(20, 20, CV_8UC1, cv::Scalar(20));
    dark.at<uint8_t>(10, 10) = 250;  // pushed above 255: clamped
    UnsharpMaskSingleChannel6(y, 20.0f);
    UnsharpMaskSingleChannel6(dark, 20.0f);
    EXPECT_EQ(y.at<uint8_t>(10, 10), 90);
    EXPECT_EQ(y.at<uint8_t>(3, 3), 195);
    EXPECT_EQ(y.at<uint8_t>(15, 4), 0);
    // Paper next to the dark pixel: its mean is 196, 4 below it: unchanged.
    EXPECT_EQ(y.at<uint8_t>(10, 11), 200);
    EXPECT_EQ(dark.at<uint8_t>(10, 10), 255);
    // A neighbour 9 levels above a mean of 11.x... is not pushed.
    EXPECT_EQ(dark.at<uint8_t>(0, 0), 20);
}
