// The measures of the enhancement evaluation tool: the character error rate
// of recognised text, the paper statistics, the paper mask estimated from a
// plain page.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "../../tools/eval_paper.h"
#include "../../tools/eval_text.h"

namespace {

using scrivo_eval::CharacterErrorRate;
using scrivo_eval::EditDistance;
using scrivo_eval::NormaliseText;

TEST(CharacterErrorRate, LayoutAndTypographyAreNotErrors) {
    const std::vector<std::string> truth = {"Annual report  2021", "Total 12.50 - paid"};
    // The recogniser's line breaks, blank lines, indents and typographic
    // dash all match the truth's lines joined by a space.
    EXPECT_EQ(
        *CharacterErrorRate(truth, "\n  Annual report 2021\n\n\tTotal 12.50 \xE2\x80\x94 paid\n"),
        0.0);
    EXPECT_EQ(NormaliseText("\xEF\xAC\x81nal \xE2\x80\x9Cquote\xE2\x80\x9D"), U"final \"quote\"");
    // Separator rules are layout, however many dashes the recogniser sees;
    // short dashes and dots in the text are kept.
    EXPECT_EQ(NormaliseText("TOTAL 9.50\n-------------\n=== ... Paid - yes\n"),
              U"TOTAL 9.50 Paid - yes");
    EXPECT_EQ(*CharacterErrorRate({"A", "-----------", "B"},
                                  "A\n\xE2\x80\x94\xE2\x80\x94\xE2\x80\x94\nB"),
              0.0);
    // Case and punctuation are part of the print.
    EXPECT_NEAR(*CharacterErrorRate({"Abc."}, "abc"), 2.0 / 4.0, 1e-12);
}

TEST(CharacterErrorRate, CountsCodePointEdits) {
    EXPECT_EQ(EditDistance(U"kitten", U"sitting"), 3u);
    EXPECT_EQ(EditDistance(U"", U"abc"), 3u);
    EXPECT_EQ(EditDistance(U"flaw", U"lawn"), 2u);
    // One accented letter for a plain one is one substitution, not two bytes.
    EXPECT_NEAR(*CharacterErrorRate({"cafe"}, "caf\xC3\xA9"), 0.25, 1e-12);
    // Invented text makes the rate exceed 1; nothing recognised makes it 1.
    EXPECT_NEAR(*CharacterErrorRate({"ab"}, "xx yy zz"), 4.0, 1e-12);
    EXPECT_EQ(*CharacterErrorRate({"ab cd"}, ""), 1.0);
    // Malformed bytes count one each and do not swallow their neighbours.
    EXPECT_NEAR(*CharacterErrorRate({"abcd"},
                                    "ab\xE2\x80"
                                    "cd"),
                0.5, 1e-12);
    EXPECT_FALSE(CharacterErrorRate({"", "  "}, "text").has_value());
}

TEST(PaperStats, MeasuresOnlyTheMaskedPixels) {
    // 100 paper pixels with greys 156..255 once each, beside ink that must
    // not count.
    cv::Mat grey(10, 20, CV_8UC1, cv::Scalar(0)), mask(10, 20, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < 100; ++i) {
        grey.at<uint8_t>(i / 10, i % 10) = static_cast<uint8_t>(156 + i);
        mask.at<uint8_t>(i / 10, i % 10) = 255;
    }
    const scrivo_eval::PaperStats s = scrivo_eval::MeasurePaper(grey, mask);
    EXPECT_EQ(s.pixels, 100u);
    EXPECT_DOUBLE_EQ(s.white, 0.01);
    EXPECT_EQ(s.p05, 160);  // the 5th smallest
    EXPECT_EQ(s.p95, 250);  // the 95th smallest
    EXPECT_EQ(s.Spread(), 90);
    EXPECT_DOUBLE_EQ(s.mean, 205.5);

    // A rendering of pure white paper.
    const scrivo_eval::PaperStats w =
        scrivo_eval::MeasurePaper(cv::Mat(10, 20, CV_8UC1, cv::Scalar(255)), mask);
    EXPECT_EQ(w.white, 1.0);
    EXPECT_EQ(w.Spread(), 0);
    EXPECT_EQ(scrivo_eval::MeasurePaper(grey, cv::Mat::zeros(10, 20, CV_8UC1)).pixels, 0u);
}

// A page under light falling from 250 on the left to 140 on the right
// (56 %), with lines of dark "text", a yellow highlight and a mid-grey box
// several lines high.
TEST(EstimatedPaperMask, FollowsTheLightAndKeepsClearOfInk) {
    const int w = 640, h = 800;
    cv::Mat page(h, w, CV_8UC3), paper(h, w, CV_8UC1, cv::Scalar(255));
    for (int x = 0; x < w; ++x) {
        const auto v = static_cast<uint8_t>(250 - 110 * x / (w - 1));
        page.col(x).setTo(cv::Scalar(v, v, v));
    }
    for (int y = 60; y < 700; y += 40) {
        const cv::Rect line(40, y, 560, 14);
        page(line) *= 0.2;
        paper(line).setTo(0);
    }
    const cv::Rect highlight(300, 720, 200, 30);
    page(highlight).setTo(cv::Scalar(120, 240, 240));
    paper(highlight).setTo(0);
    const cv::Rect box(200, 300, 100, 60);  // a picture on the page: darker, not ink-dark
    page(box) *= 0.6;
    paper(box).setTo(0);

    const cv::Mat mask = scrivo_eval::EstimatePaperMask(page);
    cv::Mat dist;
    cv::distanceTransform(paper, dist, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    size_t far = 0, farKept = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool kept = mask.at<uint8_t>(y, x) != 0;
            const int edge = std::min({x, y, w - 1 - x, h - 1 - y});
            // Nothing within 3 px of ink, the highlight, the box or the page's rim.
            if (dist.at<float>(y, x) <= 3.0f || edge < 3) {
                ASSERT_FALSE(kept) << x << "," << y;
            } else if (dist.at<float>(y, x) > 5.0f && edge >= 5) {
                ++far;
                if (kept) ++farKept;
            }
        }
    }
    // Bare paper is found in the light and in the dim half alike.
    EXPECT_GT(static_cast<double>(farKept) / static_cast<double>(far), 0.97);
    EXPECT_NE(mask.at<uint8_t>(50, 620), 0);  // the dimmest paper, between lines
}

}  // namespace
