// Page-type judgement on a light page of text, a dark board with light
// writing and a colourful photograph, and the text-block tests' limits.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "engine/image.h"
#include "test_pages.h"
#include "vision/enhance/page_type.h"
#include "vision/enhance/text_blocks.h"

namespace {

using test_pages::Planes;
using test_pages::Split;

int ByEdge(const cv::Mat& Y, float* g = nullptr, float* e = nullptr) {
    float background = -1.0f, edge = -1.0f, a = 0.0f, b = 0.0f;
    const int type = JudgeImageTypeByEdge(Y, &background, &edge, &a, &b);
    EXPECT_EQ(a, 0.0f);  // the last two outputs are left alone
    EXPECT_EQ(b, 0.0f);
    if (g != nullptr) *g = background;
    if (e != nullptr) *e = edge;
    return type;
}

}  // namespace

TEST(PageType, LightPageOfText) {
    const Planes p = Split(test_pages::TextPage(900, 1200, 225, 40));
    EXPECT_EQ(IsTextImage(p.Y), 1);
    EXPECT_EQ(JudgeImageTypeByY(p.Y), kPageLight);
    EXPECT_EQ(JudgeImageTypeYUB2(p.Cr, p.Cb, kPageLight), kPageLight);
    float g = 0.0f, e = 0.0f;
    EXPECT_EQ(ByEdge(p.Y, &g, &e), kPageLight);
    EXPECT_NEAR(g, 225.0f, 3.0f);  // the paper
    EXPECT_LT(e, g - 32.0f);       // strokes well below it
}

TEST(PageType, DarkBoardWithLightWriting) {
    const Planes p = Split(test_pages::TextPage(900, 700, 45, 210));
    EXPECT_EQ(JudgeImageTypeByY(p.Y), kPageDark);
    EXPECT_EQ(JudgeImageTypeYUB2(p.Cr, p.Cb, kPageDark), kPageDark);
    EXPECT_EQ(ByEdge(p.Y), kPageDark);
}

TEST(PageType, ColourfulPhotograph) {
    const Planes p = Split(test_pages::Photograph(800, 600));
    EXPECT_EQ(JudgeImageTypeByY(p.Y), kPageOther);
    // Even a page the luma took for a document stays undecided in colour.
    EXPECT_EQ(JudgeImageTypeYUB2(p.Cr, p.Cb, kPageLight), kPageOther);
    EXPECT_EQ(IsTextImage(p.Y), 0);
}

TEST(PageType, EdgeJudgementLimits) {
    // No edges at all: the edge grey is the background's, d = 0.
    float g = 0.0f, e = 0.0f;
    EXPECT_EQ(ByEdge(cv::Mat(300, 300, CV_8UC1, cv::Scalar(128)), &g, &e), kPageFlat);
    EXPECT_EQ(g, 128.0f);
    EXPECT_EQ(e, 128.0f);
    // Too dark a background is undecided whatever the edges.
    EXPECT_EQ(ByEdge(test_pages::Luma(test_pages::TextPage(600, 600, 35, 5))), kPageOther);
    // A long side over 1280 is judged on a reduced copy, to the same answer.
    const cv::Mat big = test_pages::Luma(test_pages::TextPage(1400, 2600, 225, 40));
    EXPECT_EQ(ByEdge(big, &g), kPageLight);
    EXPECT_NEAR(g, 225.0f, 3.0f);
}

TEST(TextBlocks, SizeAndShapeLimits) {
    const VpSize image{1000, 2000};
    const auto accepts = [&](int x, int y, int w, int h) {
        const VpRect r{x, y, w, h};
        return JudgeByRectSize(&r, &image);
    };
    EXPECT_EQ(accepts(5, 5, 60, 20), 1);
    EXPECT_EQ(accepts(5, 5, 60, 19), 0);  // under 1 % of the height
    EXPECT_EQ(accepts(5, 5, 9, 20), 0);   // under 1 % of the width
    EXPECT_EQ(accepts(5, 5, 200, 400), 1);
    EXPECT_EQ(accepts(5, 5, 201, 40), 0);  // over 20 % of the width
    EXPECT_EQ(accepts(5, 5, 150, 401), 0);
    EXPECT_EQ(accepts(5, 5, 20, 200), 1);  // 10:1 is still a text block
    EXPECT_EQ(accepts(5, 5, 20, 201), 0);
    const VpSize small{300, 300};
    const VpRect tiny{0, 0, 8, 30};
    EXPECT_EQ(JudgeByRectSize(&tiny, &small), 0);  // under 9 px
}

TEST(TextBlocks, ContrastAndBorderTests) {
    cv::Mat bin(10, 10, CV_8UC1, cv::Scalar(0));
    EXPECT_EQ(JudegByContrast(bin), 0);
    bin(cv::Rect(0, 0, 10, 2)).setTo(255);  // 20 % set
    EXPECT_EQ(JudegByContrast(bin), 1);
    EXPECT_EQ(JudegByImageSideContrast(bin), 0);  // top white, rest black
    bin.setTo(0);
    // One white corner counts twice: 2 x 255 / (20 x 510) = 5 %: still a
    // black border.
    bin.at<uint8_t>(0, 0) = 255;
    EXPECT_EQ(JudegByImageSideContrast(bin), 1);
    bin(cv::Rect(0, 0, 10, 1)).setTo(255);  // 11 of 40 border units: mixed
    EXPECT_EQ(JudegByImageSideContrast(bin), 0);

    // A word on paper is a text block; a cut through a ramp is not.
    const cv::Mat page = test_pages::Luma(test_pages::TextPage(400, 200, 225, 40));
    EXPECT_EQ(JudgeByEdgeContrast(page, VpRect{38, 38, 80, 30}, -1), 1);
    cv::Mat ramp(200, 400, CV_8UC1);
    for (int x = 0; x < 400; ++x) ramp.col(x).setTo(x * 255 / 399);
    EXPECT_EQ(JudgeByEdgeContrast(ramp, VpRect{100, 50, 80, 30}, 0), 1);
    EXPECT_EQ(JudgeByEdgeContrast(ramp, VpRect{100, 50, 80, 30}, -1), 0);
}
