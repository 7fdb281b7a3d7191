// The text-direction decision on printed pages turned four ways, on pages
// without text, under the narrowing modes, and the measurements and block
// finding it rests on.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "vision/textdir/text_pages.h"
#include "vision/textdir/textdir.h"

namespace {

using textdir_test::TextPage;
using textdir_test::Turned;

// Lines of "letters" 6 px wide and 10 px tall, every third with a 5 px
// ascender above it: the ink of upright print as the measurements see it.
cv::Mat LetterLines(int lines) {
    cv::Mat ink = cv::Mat::zeros(40 * lines + 40, 400, CV_8UC1);
    for (int l = 0; l < lines; ++l) {
        const int top = 30 + 40 * l;
        for (int i = 0, x = 20; x < 370; ++i, x += 8) {
            cv::rectangle(ink, cv::Rect(x, top, 6, 10), cv::Scalar(255), cv::FILLED);
            if (i % 3 == 0)
                cv::rectangle(ink, cv::Rect(x, top - 5, 2, 5), cv::Scalar(255), cv::FILLED);
        }
    }
    return ink;
}

}  // namespace

TEST(TextDirectionDecision, TellsEveryTurnOfPrintedPages) {
    for (int font : {cv::FONT_HERSHEY_SIMPLEX, cv::FONT_HERSHEY_COMPLEX}) {
        const cv::Mat page = TextPage(700, 1000, font);
        for (int presented = 0; presented < 4; ++presented) {
            const TextDirection d = DecideTextDirection(Turned(page, presented));
            EXPECT_EQ(d.turn, (4 - presented) % 4) << "font " << font << ", turned " << presented;
            EXPECT_EQ(d.confidence, TextConfidence::kFull) << font << "/" << presented;
            EXPECT_EQ(d.axisScore > 0, presented % 2 == 0);
            EXPECT_GT(d.blocks, 100);
        }
    }
    // Print set 4 degrees askew, either way.
    for (double tilt : {4.0, -4.0}) {
        const cv::Mat page = TextPage(700, 1000);
        const cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(350.f, 500.f), tilt, 1.0);
        cv::Mat askew;
        cv::warpAffine(page, askew, turn, page.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                       cv::Scalar::all(248));
        for (int presented : {1, 2}) {
            const TextDirection d = DecideTextDirection(Turned(askew, presented));
            EXPECT_EQ(d.turn, 4 - presented) << tilt;
            EXPECT_NEAR(std::abs(d.slant), 4.0, 0.5) << tilt;
        }
    }
    // A grey page of one channel is taken as it is.
    cv::Mat grey;
    cv::cvtColor(Turned(TextPage(700, 1000), 2), grey, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(DecideTextDirection(grey).turn, 2);
}

TEST(TextDirectionDecision, PagesWithoutTextCannotBeTold) {
    cv::Mat blank(900, 700, CV_8UC3, cv::Scalar(240, 240, 240));
    cv::Mat shapes = blank.clone();  // a grid of round marks: no direction stands out
    for (int y = 60; y < 860; y += 45)
        for (int x = 60; x < 660; x += 45)
            cv::circle(shapes, {x, y}, 12, cv::Scalar(30, 30, 30), 3);
    cv::Mat picture(900, 700, CV_8UC3);
    cv::randu(picture, cv::Scalar::all(0), cv::Scalar::all(255));
    cv::GaussianBlur(picture, picture, cv::Size(0, 0), 6.0);
    for (const cv::Mat& page : {blank, shapes, picture, cv::Mat(), cv::Mat(20, 20, CV_8UC3),
                                cv::Mat(900, 700, CV_16UC1, cv::Scalar(0))}) {
        const TextDirection d = DecideTextDirection(page);
        EXPECT_EQ(d.confidence, TextConfidence::kNone) << page.size() << " axis " << d.axisScore;
        EXPECT_EQ(d.turn, 0);
    }
}

TEST(TextDirectionDecision, ModesNarrowTheChoice) {
    const cv::Mat page = TextPage(700, 1000);
    const cv::Mat upsideDown = Turned(page, 2), sideways = Turned(page, 1);
    TextDirection d = DecideTextDirection(upsideDown, kTextTurnFlipOnly);
    EXPECT_EQ(d.turn, 2);
    EXPECT_EQ(d.confidence, TextConfidence::kFull);
    // Lines running down are not a page this mode can set right.
    d = DecideTextDirection(sideways, kTextTurnFlipOnly);
    EXPECT_EQ(d.turn, 0);
    EXPECT_EQ(d.confidence, TextConfidence::kNone);
    // Keeping the page measures nothing; an unknown mode is refused.
    for (int32_t mode : {static_cast<int32_t>(kTextTurnKeep), 3, -1}) {
        d = DecideTextDirection(upsideDown, mode);
        EXPECT_EQ(d.turn, 0);
        EXPECT_EQ(d.confidence, TextConfidence::kNone);
        EXPECT_EQ(d.blocks, 0);
    }
}

TEST(TextLineEvidence, AxisAndUpDownFollowTheLines) {
    const cv::Mat ink = LetterLines(8);
    const double across = MeasureLineAxis(ink, 4);
    EXPECT_GT(across, 1.0);
    EXPECT_NEAR(MeasureLineAxis(Turned(ink, 1), 4), -across, 1e-9);
    EXPECT_EQ(MeasureLineAxis(cv::Mat::zeros(50, 50, CV_8UC1), 4), 0.0);
    EXPECT_EQ(MeasureLineAxis(cv::Mat(), 4), 0.0);

    const UpDownEvidence up = MeasureUpDown(ink, 4);
    EXPECT_GE(up.pieces, 8);
    EXPECT_GT(up.mean, 0.05);
    EXPECT_GT(up.z, 5.0);
    cv::Mat flipped;
    cv::flip(ink, flipped, 0);
    const UpDownEvidence down = MeasureUpDown(flipped, 4);
    EXPECT_NEAR(down.mean, -up.mean, 1e-9);
    EXPECT_EQ(down.pieces, up.pieces);
    // Lines rising to the right by 3 degrees: found, and levelled back.
    cv::Mat rising;
    cv::warpAffine(ink, rising, cv::getRotationMatrix2D(cv::Point2f(200.f, 180.f), 3.0, 1.0),
                   ink.size(), cv::INTER_NEAREST);
    const double slant = EstimateLineSlant(rising);
    EXPECT_NEAR(slant, -3.0, 0.3);
    const UpDownEvidence levelled = MeasureUpDown(LevelLines(rising, slant), 4);
    EXPECT_GT(levelled.z, 3.0);
    EXPECT_GT(levelled.mean, 0.5 * up.mean);
    EXPECT_EQ(EstimateLineSlant(ink), 0.0);
    EXPECT_EQ(LevelLines(ink, 0.2).data, ink.data);  // too little to turn
    // Lone letters are no line pieces.
    cv::Mat dots = cv::Mat::zeros(200, 200, CV_8UC1);
    for (int y = 20; y < 180; y += 40)
        for (int x = 20; x < 180; x += 40)
            cv::rectangle(dots, cv::Rect(x, y, 8, 10), 255, cv::FILLED);
    EXPECT_EQ(MeasureUpDown(dots, 4).pieces, 0);
}

TEST(TextBlocks, WorkingSizeBlocksAndInk) {
    double scale = 0.0;
    EXPECT_EQ(MakeTextWorkingImage(cv::Mat(3000, 4000, CV_8UC3, cv::Scalar::all(9)), &scale).size(),
              cv::Size(1600, 1200));
    EXPECT_DOUBLE_EQ(scale, 0.4);
    EXPECT_EQ(MakeTextWorkingImage(cv::Mat(300, 400, CV_8UC4, cv::Scalar::all(9)), &scale).size(),
              cv::Size(800, 600));  // enlarged at most twice
    EXPECT_EQ(MakeTextWorkingImage(cv::Mat(30, 40, CV_16UC1), &scale).empty(), true);
    EXPECT_EQ(scale, 0.0);

    cv::Mat grey;
    cv::cvtColor(TextPage(700, 1000), grey, cv::COLOR_BGR2GRAY);
    const std::vector<VpRect> blocks = FindTextBlocks(grey);
    ASSERT_GT(blocks.size(), 100u);
    const VpSize size{grey.cols, grey.rows};
    for (const VpRect& b : blocks) ASSERT_EQ(JudgeByRectSize(&b, &size), 1);
    const double text = TypicalTextSize(blocks);
    EXPECT_GT(text, 8.0);
    EXPECT_LT(text, 30.0);
    EXPECT_EQ(TypicalTextSize({}), 0.0);

    // The ink is the strokes, on dark print on light paper and on light
    // print on a dark band alike, and nothing outside the blocks.
    for (bool inverted : {false, true}) {
        cv::Mat page = grey.clone();
        if (inverted) cv::bitwise_not(page, page);
        const std::vector<VpRect> found = FindTextBlocks(page);
        const cv::Mat ink = MakeTextInkMask(page, found);
        cv::Mat outside(ink.size(), CV_8UC1, cv::Scalar(255));
        for (const VpRect& b : found) outside(cv::Rect(b.x, b.y, b.width, b.height)) = 0;
        cv::Mat strokes, stray, agree;
        cv::compare(page, 128, strokes, inverted ? cv::CMP_GT : cv::CMP_LT);
        cv::bitwise_and(ink, strokes, agree);
        EXPECT_GT(cv::countNonZero(agree), 0.6 * cv::countNonZero(ink)) << inverted;
        EXPECT_LT(cv::countNonZero(ink), 0.5 * cv::countNonZero(outside == 0)) << inverted;
        // Blocks are binarised grown by a pixel; beyond that ring, no ink.
        cv::erode(outside, outside, cv::Mat());
        cv::bitwise_and(ink, outside, stray);
        EXPECT_EQ(cv::countNonZero(stray), 0) << inverted;
    }
    EXPECT_TRUE(FindTextBlocks(cv::Mat()).empty());
}
