// The enhancement dispatch: the small-image route, copies, invalid methods,
// and what each method does to a page that a user would see.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "engine/image.h"
#include "test_pages.h"
#include "vision/enhance/color_tables.h"
#include "vision/enhance/enhance.h"

namespace {

bool Same(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

bool ChannelsEqual(const cv::Mat& bgr) {
    cv::Mat ch[3];
    cv::split(bgr, ch);
    return Same(ch[0], ch[1]) && Same(ch[1], ch[2]);
}

cv::Mat Grey(const cv::Mat& bgr) {
    cv::Mat ch[3];
    cv::split(bgr, ch);
    return ch[0];
}

}  // namespace

TEST(Enhance, SmallImagesTakeTheShortRoute) {
    const cv::Mat small = test_pages::Photograph(63, 500);
    for (const int method : {0, 1, 2, 3, 6, -4}) {
        const cv::Mat out = EnhanceImage(small, method, nullptr);
        EXPECT_TRUE(Same(out, small)) << method;
        EXPECT_NE(out.data, small.data);
    }
    // The grey methods give a plain grey copy, not a rendering.
    const cv::Mat expected = test_pages::Luma(small);
    for (const int method : {4, 5}) {
        const cv::Mat out = EnhanceImage(small, method, nullptr);
        ASSERT_EQ(out.type(), CV_8UC3);
        EXPECT_TRUE(ChannelsEqual(out));
        EXPECT_TRUE(Same(Grey(out), expected)) << method;
    }
}

TEST(Enhance, CopiesAndInvalidMethods) {
    const cv::Mat page = test_pages::Photograph(120, 90);
    const cv::Mat before = page.clone();
    const cv::Mat copy = EnhanceImage(page, VP_ENHANCE_NONE, nullptr);
    EXPECT_TRUE(Same(copy, page));
    EXPECT_NE(copy.data, page.data);
    for (const int method : {0, -1, 6, 1000})
        EXPECT_TRUE(EnhanceImage(page, method, nullptr).empty());
    for (int method = 2; method <= 5; ++method) {
        const cv::Mat out = EnhanceImage(page, method, nullptr);
        EXPECT_EQ(out.size(), page.size());
        EXPECT_EQ(out.type(), CV_8UC3);
    }
    EXPECT_TRUE(Same(page, before)) << "the source is never changed";
    EXPECT_TRUE(EnhanceImage(cv::Mat(), VP_ENHANCE_LOW, nullptr).empty());
}

TEST(Enhance, EconomicLightPageIsInkOnWhite) {
    const cv::Mat page = test_pages::TextPage(900, 1200, 200, 60);
    const cv::Mat out = EnhanceImage(page, VP_ENHANCE_ECONOMIC, nullptr);
    ASSERT_TRUE(ChannelsEqual(out));
    const cv::Mat y = test_pages::Luma(page), g = Grey(out);
    const cv::Mat paper = y > 170, ink = y < 90;
    EXPECT_GE(cv::countNonZero((g == 255) & paper), cv::countNonZero(paper) * 99 / 100);
    EXPECT_GT(cv::mean(g, ink)[0], 40.0);  // ink keeps a dark grey, not black
    EXPECT_LT(cv::mean(g, ink)[0], 100.0);
}

TEST(Enhance, EconomicDarkBoardComesOutDarkOnWhite) {
    const cv::Mat board = test_pages::TextPage(900, 700, 45, 210);
    const cv::Mat out = Grey(EnhanceImage(board, VP_ENHANCE_ECONOMIC, nullptr));
    const cv::Mat y = test_pages::Luma(board);
    const cv::Mat slate = y<70, chalk = y> 190;
    EXPECT_GE(cv::countNonZero((out == 255) & slate), cv::countNonZero(slate) * 98 / 100);
    EXPECT_LT(cv::mean(out, chalk)[0], 80.0);  // the writing is dark
}

TEST(Enhance, GreyStretchesTheLuma) {
    const cv::Mat page = test_pages::TextPage(400, 300, 170, 90);
    const cv::Mat out = EnhanceImage(page, VP_ENHANCE_GREY, nullptr);
    ASSERT_TRUE(ChannelsEqual(out));
    const cv::Mat y = test_pages::Luma(page);
    // Paper brighter, ink darker, and the contrast between them nearly
    // doubled (the stretch of a page at mid level 151 is capped at 2).
    const cv::Mat paper = y > 150, ink = y < 110;
    const double paperBefore = cv::mean(y, paper)[0], inkBefore = cv::mean(y, ink)[0];
    const double paperAfter = cv::mean(Grey(out), paper)[0], inkAfter = cv::mean(Grey(out), ink)[0];
    EXPECT_GT(paperAfter, paperBefore + 10.0);
    EXPECT_LT(inkAfter, inkBefore - 40.0);
    EXPECT_GT(paperAfter - inkAfter, 1.8 * (paperBefore - inkBefore));
}

TEST(Enhance, ColourKeepsHuesAndSaturates) {
    cv::Mat page = test_pages::TextPage(400, 300, 170, 90);
    const cv::Rect mark(300, 20, 60, 30);
    page(mark).setTo(cv::Scalar(90, 120, 170));  // a coloured stamp
    const cv::Mat out = EnhanceImage(page, VP_ENHANCE_LOW, nullptr);
    cv::Mat y0, cr0, cb0, y1, cr1, cb1;
    RGB24ToYCbCr(page, y0, cr0, cb0);
    RGB24ToYCbCr(out, y1, cr1, cb1);
    const cv::Point c(330, 35);
    const auto away = [&](const cv::Mat& m) { return std::abs(m.at<uint8_t>(c) - 128); };
    EXPECT_GT(away(cr1), away(cr0));
    EXPECT_GT(away(cb1), away(cb0));
    EXPECT_EQ(cr1.at<uint8_t>(c) > 128, cr0.at<uint8_t>(c) > 128);  // same hue side
    EXPECT_EQ(cb1.at<uint8_t>(c) > 128, cb0.at<uint8_t>(c) > 128);
    EXPECT_GT(cv::mean(y1, y0 > 150)[0], cv::mean(y0, y0 > 150)[0] + 10.0);
}

TEST(Enhance, DocumentRouteGivesBrightNonDocumentsTheColourTables) {
    // A bright, nearly flat sheet has no text contrast: method 3 falls
    // back to the method-2 tables.
    cv::Mat sheet(200, 300, CV_8UC3, cv::Scalar(238, 240, 236));
    cv::circle(sheet, cv::Point(150, 100), 40, cv::Scalar(230, 235, 240), -1);
    EXPECT_TRUE(Same(EnhanceImage(sheet, VP_ENHANCE_HIGH, nullptr),
                     EnhanceImage(sheet, VP_ENHANCE_LOW, nullptr)));
}

TEST(Enhance, TableMethodsMatchThePlaneRoute) {
    // Methods 2 and 4 work in row stripes; their bytes must be those of
    // splitting the page, running the tables on whole planes and joining.
    cv::Mat big = test_pages::Photograph(400, 300);
    test_pages::TextPage(380, 150, 200, 50).copyTo(big(cv::Rect(10, 140, 380, 150)));
    for (const cv::Mat& page : {big, big(cv::Rect(3, 5, 333, 251))}) {
        cv::Mat Y, Cr, Cb, colour;
        RGB24ToYCbCr(page, Y, Cr, Cb);
        cv::Mat grey = Y.clone();
        EnhancePerserveHue2(Y, Cr, Cb, VP_ENHANCE_LOW, nullptr);
        YCbCrToRGB24(colour, Y, Cr, Cb);
        EXPECT_TRUE(Same(EnhanceImage(page, VP_ENHANCE_LOW, nullptr), colour)) << page.size();

        unsigned char table[256];
        float mid = 0.0f;
        CalcColorTableGCELow4(grey, table, &mid);
        EnhanceImageWithTable(grey, table);
        const cv::Mat out = EnhanceImage(page, VP_ENHANCE_GREY, nullptr);
        EXPECT_TRUE(ChannelsEqual(out));
        EXPECT_TRUE(Same(Grey(out), grey)) << page.size();
    }
}
