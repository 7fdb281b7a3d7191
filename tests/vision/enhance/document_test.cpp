// The document route's steps on constructed pages: what the layout
// analysis calls paper, text and picture, the background under text and
// pictures, the division of uneven light, the per-pixel colour step and
// the route as a whole.
#include <gtest/gtest.h>

#include <vector>

#include <opencv2/imgproc.hpp>

#include "engine/image.h"
#include "test_pages.h"
#include "vision/enhance/document.h"
#include "vision/enhance/enhance.h"
#include "vision/enhance/page_type.h"

namespace {

using test_pages::Planes;
using test_pages::Split;

// A 640 x 480 page: text in the top half, a noisy picture at the bottom
// left, plain paper at the bottom right.
cv::Mat MixedPage() {
    cv::Mat page = test_pages::TextPage(640, 480, 225, 40);
    page(cv::Rect(0, 240, 640, 240)).setTo(cv::Scalar(225, 225, 225));
    cv::Mat picture(160, 240, CV_8UC3);
    cv::randu(picture, 40, 200);
    cv::blur(picture, picture, cv::Size(2, 2));
    picture.copyTo(page(cv::Rect(32, 288, 240, 160)));
    return page;
}

struct Layout {
    int B = 16, BX = 0, BY = 0;
    std::vector<int32_t> A1, A2, A3, A4;
    LayoutCounters counters;
    uint8_t uneven = 0;
    int type = 0;

    Layout(const Planes& p, int startType) : type(startType) {
        BX = p.Y.cols / B;
        BY = p.Y.rows / B;
        A1.resize(BX * BY);
        A2.resize(BX * BY);
        A3.resize(BX * BY);
        A4.resize(BX * BY);
        PageLayoutAnalysis13(p.Y, p.Cr, p.Cb, &type, Blocks(), B, nullptr, &counters, &uneven);
    }
    BlockArrays Blocks() { return {A1.data(), A2.data(), A3.data(), A4.data()}; }
    int At(int x, int y) const { return A1[(y / B) * BX + x / B]; }
};

}  // namespace

TEST(DocumentLayout, BlocksOfTextPictureAndPaper) {
    const Planes p = Split(MixedPage());
    const Layout l(p, kPageLight);
    EXPECT_EQ(l.At(100, 340), kBlockPicture);
    EXPECT_EQ(l.At(200, 400), kBlockPicture);
    EXPECT_EQ(l.At(500, 400), kBlockPaper);
    EXPECT_EQ(l.At(80, 52), kBlockText);  // on the first line of words
    EXPECT_EQ(l.counters.C1 + l.counters.C2 + l.counters.C3, l.BX * l.BY);
    EXPECT_GT(l.counters.C3, 100);  // the picture is 15 x 10 blocks
    EXPECT_EQ(l.type, kPageLight);
    EXPECT_EQ(l.uneven, 0);
    EXPECT_NEAR(l.A2[(400 / 16) * l.BX + 500 / 16], 225, 3);
}

TEST(DocumentLayout, TypeAndLightFollowTheBlocks) {
    // An undecided page that is mostly paper with text is a document.
    const Planes text = Split(test_pages::TextPage(640, 480, 225, 40));
    EXPECT_EQ(Layout(text, kPageOther).type, kPageLight);
    EXPECT_EQ(Layout(text, kPageFlat).type, kPageLight);
    EXPECT_EQ(Layout(text, kPageDark).type, kPageDark);
    // A "light page" that is mostly picture is not.
    cv::Mat photo(480, 640, CV_8UC3);
    cv::randu(photo, 0, 255);
    EXPECT_EQ(Layout(Split(photo), kPageLight).type, kPageOther);
    // Light falling across the sheet is uneven.
    const Planes shaded =
        Split(test_pages::Shaded(test_pages::TextPage(640, 480, 225, 40), 1, 0.6));
    EXPECT_EQ(Layout(shaded, kPageLight).uneven, 1);
}

TEST(DocumentBackground, PaperLevelRunsUnderPicturesAndText) {
    cv::Mat page = MixedPage();
    page(cv::Rect(0, 0, 640, 480)) += cv::Scalar(0, 0, 6);  // a faint cast
    const Planes p = Split(page);
    Layout l(p, kPageLight);
    cv::Mat bgY, bgCr, bgCb;
    PageLevels levels;
    CalBackGround(p.Cr, p.Cb, p.Y, bgY, bgCr, bgCb, l.Blocks(), l.B, &levels);
    ASSERT_EQ(bgY.size(), p.Y.size());
    EXPECT_NEAR(bgY.at<uint8_t>(360, 150), bgY.at<uint8_t>(360, 500), 4);  // under the picture
    EXPECT_NEAR(bgY.at<uint8_t>(52, 80), bgY.at<uint8_t>(400, 500), 4);    // under the text
    const cv::Rect paperArea(400, 300, 200, 150);
    EXPECT_NEAR(levels.L1, cv::mean(p.Cr(paperArea))[0], 1.5);
    EXPECT_NEAR(levels.L2, cv::mean(p.Cb(paperArea))[0], 1.5);
    EXPECT_NEAR(levels.paper, cv::mean(p.Y(paperArea))[0], 3.0);
}

TEST(DocumentBackground, ReducedEstimateFollowsPaperAndFillsMarks) {
    // A gradient sheet (100 .. 227 across) with dark marks not flagged.
    cv::Mat y(90, 128, CV_8UC1), flag(90, 128, CV_8UC1, cv::Scalar(255));
    for (int x = 0; x < 128; ++x) y.col(x).setTo(100 + x);
    y(cv::Rect(40, 30, 30, 20)).setTo(20);
    flag(cv::Rect(40, 30, 30, 20)).setTo(0);
    cv::Mat bg;
    ComputeBackGround9(y, flag, bg, flag, 150, 7);
    for (const int x : {10, 60, 110}) {
        EXPECT_NEAR(bg.at<uint8_t>(70, x), 100 + x, 3) << x;  // on paper
        EXPECT_NEAR(bg.at<uint8_t>(40, x), 100 + x, 6) << x;  // across the marks
    }
    ComputeBackGround9(y, cv::Mat::zeros(y.size(), CV_8UC1), bg, flag, 150, 7);
    EXPECT_EQ(cv::countNonZero(bg != 150), 0) << "no paper at all: the page level";
}

TEST(DocumentIllumination, DivisionByTheBackground) {
    std::vector<uint8_t> table(256 * 256);
    MakeDivisionTable(180, table.data());
    EXPECT_EQ(table[100 * 256 + 100], 180);  // equal to its background: M
    EXPECT_EQ(table[150 * 256 + 100], 255);  // brighter: capped
    EXPECT_EQ(table[50 * 256 + 100], 90);
    EXPECT_EQ(table[0], 255);
    EXPECT_EQ(table[77 * 256], 255);  // column 0

    // A shaded page of text comes out with its paper at the page level;
    // the last row and column keep their input.
    const Planes p = Split(test_pages::Shaded(test_pages::TextPage(640, 480, 225, 40), 1, 0.55));
    Layout l(p, kPageLight);
    cv::Mat bgY, bgCr, bgCb, y = p.Y.clone();
    CalBackGround(p.Cr, p.Cb, y, bgY, bgCr, bgCb, l.Blocks(), l.B, nullptr);
    EXPECT_EQ(DeleteNonUniformIllumination5(y, p.Cr, p.Cb, bgY, bgCr, bgCb, l.A1.data(),
                                            l.A2.data(), l.BX, l.BY, l.B),
              0);
    const cv::Mat paper = p.Y > bgY - 20;
    cv::Scalar mean, spread, meanBefore, spreadBefore;
    cv::meanStdDev(y, mean, spread, paper);
    cv::meanStdDev(p.Y, meanBefore, spreadBefore, paper);
    EXPECT_LT(spread[0], spreadBefore[0] / 3.0);
    EXPECT_EQ(cv::countNonZero(y.row(479) != p.Y.row(479)), 0);
    EXPECT_EQ(cv::countNonZero(y.col(639) != p.Y.col(639)), 0);

    // Without any paper block M is 0 and the page goes black.
    std::vector<int32_t> pictures(l.A1.size(), kBlockPicture);
    y = p.Y.clone();
    DeleteNonUniformIllumination5(y, p.Cr, p.Cb, bgY, bgCr, bgCb, pictures.data(), l.A2.data(),
                                  l.BX, l.BY, l.B);
    EXPECT_EQ(cv::countNonZero(y(cv::Rect(0, 0, 639, 479))), 0);
}

TEST(DocumentColour, IndexTableAndBlackFlags) {
    int32_t t[256];
    CalIndex9(t, 90, 90);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
    // L3 = 40, L4 = 200: top 200, slope 180 / 160, start 40 - 18 = 22;
    // L3 maps to half of itself, L4 to the top, and the table is capped
    // there.
    CalIndex9(t, 40, 200);
    EXPECT_EQ(t[21], 0);
    EXPECT_EQ(t[22], 0);
    EXPECT_EQ(t[23], 1);
    EXPECT_EQ(t[40], 20);
    EXPECT_EQ(t[200], 200);
    EXPECT_EQ(t[255], 200);
    // A dark page (L4 = 100): top 140, cap 180.
    CalIndex9(t, 20, 100);
    EXPECT_EQ(t[100], 140);
    EXPECT_EQ(t[255], 180);

    // The flags are the 14 x 14 squares of the definition.
    cv::Mat y(40, 37, CV_8UC1);
    cv::randu(y, 100, 255);
    y.at<uint8_t>(20, 18) = 119;
    y.at<uint8_t>(3, 3) = 0;     // too near the edge to paint
    y.at<uint8_t>(32, 29) = 50;  // the last row and column that paint
    cv::Mat flag, expected(y.size(), CV_8UC1, cv::Scalar(0));
    for (int r = 7; r <= y.rows - 8; ++r) {
        for (int c = 7; c <= y.cols - 8; ++c) {
            if (y.at<uint8_t>(r, c) <= 119) expected(cv::Rect(c - 7, r - 7, 14, 14)).setTo(255);
        }
    }
    GetBlackFlag(y, flag);
    EXPECT_EQ(cv::countNonZero(flag != expected), 0);
    GetBlackFlag(y.rowRange(0, 14), flag);
    EXPECT_EQ(cv::countNonZero(flag), 0);
}

TEST(DocumentColour, PerPixelCases) {
    // One row per case, on planes of 17 rows (one stripe is empty).
    const int32_t L1 = 130, L2 = 126;
    cv::Mat Y(17, 20, CV_8UC1, cv::Scalar(240)), kept(17, 20, CV_8UC1, cv::Scalar(240));
    cv::Mat Cr(17, 20, CV_8UC1, cv::Scalar(L1)), Cb(17, 20, CV_8UC1, cv::Scalar(L2));
    const cv::Mat bgCr(17, 20, CV_8UC1, cv::Scalar(L1)), bgCb(17, 20, CV_8UC1, cv::Scalar(L2));
    // Row 2: bright paper with the paper's cast: re-centred on neutral.
    // Row 5: a red mark (far from the paper chroma), darker: boosted.
    Y.row(5).setTo(150);
    kept.row(5).setTo(150);
    Cr.row(5).setTo(170);
    // Row 9: grey text of middling luma near paper chroma, lifted towards
    // T[k] by its chroma distance (here 0: unchanged luma).
    Y.row(9).setTo(170);
    kept.row(9).setTo(170);
    EnhanceColorByPixel9(Y, kept, Cr, Cb, bgCr, bgCb, 40, 200, L1, L2);
    EXPECT_EQ(Cr.at<uint8_t>(2, 10), 128);
    EXPECT_EQ(Cb.at<uint8_t>(2, 10), 128);
    EXPECT_EQ(Y.at<uint8_t>(2, 10), 240);
    EXPECT_EQ(Cr.at<uint8_t>(5, 10), 230);  // 130 + 40 x 2.5
    EXPECT_GE(Y.at<uint8_t>(5, 10), 150);
    EXPECT_EQ(Y.at<uint8_t>(9, 10), 170);
    EXPECT_EQ(Cr.at<uint8_t>(16, 19), 128) << "the last row is done too";
}

TEST(DocumentRoute, ShadedPageComesOutFlatAndWhite) {
    cv::Mat page = test_pages::TextPage(900, 1200, 225, 40);
    const cv::Rect stamp(600, 100, 120, 60);
    page(stamp).setTo(cv::Scalar(60, 60, 200));  // red in the engine's byte order
    const cv::Mat shaded = test_pages::Shaded(page, 1.0, 0.55);
    const cv::Mat out = EnhanceImage(shaded, VP_ENHANCE_HIGH, nullptr);
    const Planes before = Split(page), after = Split(out);
    const cv::Mat paper = before.Y > 215;
    cv::Mat p05, sorted;
    after.Y.copyTo(p05, paper);
    std::vector<uint8_t> values;
    for (int y = 0; y < paper.rows; ++y) {
        for (int x = 0; x < paper.cols; ++x) {
            if (paper.at<uint8_t>(y, x)) values.push_back(after.Y.at<uint8_t>(y, x));
        }
    }
    std::sort(values.begin(), values.end());
    const int spread = values[values.size() * 95 / 100] - values[values.size() * 5 / 100];
    EXPECT_LE(spread, 12);
    EXPECT_GE(cv::mean(after.Y, paper)[0], 235.0);
    // The stamp keeps its hue: red stays red.
    const cv::Point c(660, 130);
    EXPECT_GT(after.Cr.at<uint8_t>(c), 150);
    EXPECT_LT(after.Cb.at<uint8_t>(c), 128);
    // Ink stays dark.
    EXPECT_LT(cv::mean(after.Y, before.Y < 80)[0], 90.0);
}

TEST(DocumentRoute, PagesWithoutContrastTakeTheColourTables) {
    // A flat, bright page: nothing to map.
    cv::Mat flat(300, 300, CV_8UC3, cv::Scalar(200, 200, 200));
    cv::randn(flat, cv::Scalar(200, 200, 200), cv::Scalar(2, 2, 2));
    const cv::Mat out = EnhanceImage(flat, VP_ENHANCE_HIGH, nullptr);
    EXPECT_EQ(cv::norm(out, EnhanceImage(flat, VP_ENHANCE_LOW, nullptr), cv::NORM_INF), 0.0);
}

TEST(DocumentRoute, EvenlyLitPageIsWhitenedAndKeepsItsColours) {
    // Even light on a dull, slightly warm sheet: no division needed, the
    // paper still comes out white and neutral, a blue mark stays blue.
    cv::Mat page = test_pages::TextPage(800, 600, 190, 50);
    page += cv::Scalar(0, 0, 8);
    const cv::Rect mark(500, 20, 150, 30);
    page(mark).setTo(cv::Scalar(200, 120, 90));
    const Planes before = Split(page);
    Layout l(before, kPageLight);
    ASSERT_EQ(l.uneven, 0);
    const Planes after = Split(EnhanceImage(page, VP_ENHANCE_HIGH, nullptr));
    const cv::Mat paper = before.Y > 180;
    EXPECT_GE(cv::mean(after.Y, paper)[0], 240.0);
    EXPECT_NEAR(cv::mean(after.Cr, paper)[0], 128.0, 1.0);
    EXPECT_NEAR(cv::mean(after.Cb, paper)[0], 128.0, 1.0);
    const cv::Point c(575, 35);
    EXPECT_GT(after.Cb.at<uint8_t>(c), before.Cb.at<uint8_t>(c));  // bluer, not greyer
    EXPECT_LT(cv::mean(after.Y, before.Y < 80)[0], 60.0);
}
