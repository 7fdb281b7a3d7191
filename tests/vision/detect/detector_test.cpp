#include <gtest/gtest.h>

#include "photo_test_support.h"
#include "vision/detect/detector.h"
#include "vision/detect/detector_internal.h"

using photo_test::CornersNear;
using photo_test::Photo;
using photo_test::Render;
using photo_test::WholeImage;

namespace {

struct Detection {
    int result = -1;
    int edges = -1;
    int pass = -2;
    tem_Point corners[4] = {};
};

Detection Detect(const cv::Mat& image) {
    Detection d;
    d.result = DetectPageWithPass(image, nullptr, d.corners, &d.edges, &d.pass);
    return d;
}

}  // namespace

TEST(DetectPage, FindsPagesOnDarkTablesInTheFirstPass) {
    Photo square;
    square.page = {{150, 90}, {150, 520}, {640, 520}, {640, 90}};
    Photo tilted;
    tilted.page = {{190, 70}, {120, 540}, {690, 560}, {650, 110}};
    tilted.table = {30, 90, 120};  // brown wood
    Photo portrait;
    portrait.width = 600;
    portrait.height = 800;
    portrait.page = {{110, 130}, {80, 700}, {520, 720}, {470, 100}};
    for (const Photo* p : {&square, &tilted, &portrait}) {
        const Detection d = Detect(Render(*p));
        EXPECT_EQ(d.result, 1);
        EXPECT_EQ(d.edges, 4);
        EXPECT_EQ(d.pass, 0);
        EXPECT_TRUE(CornersNear(d.corners, p->page, 6));
    }
}

TEST(DetectPage, ChromaEdgesFindAWhitePageOnALightTableOfAnotherColour) {
    // The table has the paper's grey level but a blue cast: grey edges see
    // next to nothing, the chroma planes see the border.
    Photo p;
    p.page = {{170, 110}, {140, 500}, {650, 520}, {620, 90}};
    p.paper = {233, 233, 233};
    p.table = {255, 238, 215};
    p.noise = 2;
    p.print = false;
    const cv::Mat image = Render(p);
    cv::Mat grey, greyEdges;
    cv::cvtColor(image, grey, cv::COLOR_BGR2GRAY);
    QvVP_Canny(grey, greyEdges, 40, 100);
    EXPECT_LT(cv::countNonZero(greyEdges), 200);  // no outline in grey

    const Detection d = Detect(image);
    EXPECT_EQ(d.result, 1);
    EXPECT_TRUE(CornersNear(d.corners, p.page, 5));
}

TEST(DetectPage, SmallPagesAreLeftToTheSecondPass) {
    // 7 % of the image: the first pass drops what it finds, the second
    // pass, with its gentler edges and shorter lines, keeps it.
    Photo p;
    p.page = {{300, 200}, {300, 370}, {500, 370}, {500, 200}};
    ASSERT_LT(200.0 * 170.0, 0.08 * 800 * 600);
    const Detection d = Detect(Render(p));
    EXPECT_EQ(d.result, 1);
    EXPECT_EQ(d.pass, 1);
    EXPECT_TRUE(CornersNear(d.corners, p.page, 4));
}

TEST(DetectPage, PagesCutByTheImageBorderUseTheBorderForTheMissingSides) {
    // The page runs off the left side: three of its sides are found, the
    // fourth is the image border.
    Photo p;
    p.page = {{-80, 100}, {-80, 500}, {620, 520}, {600, 80}};
    const Detection d = Detect(Render(p));
    EXPECT_EQ(d.result, 1);
    EXPECT_EQ(d.edges, 3);
    EXPECT_TRUE(CornersNear(d.corners, {{0, 100}, {0, 500}, {620, 520}, {600, 80}}, 6));
}

TEST(DetectPage, NoPageGivesTheWholeImage) {
    // An empty table and one with only scattered clutter.
    const cv::Mat empty(480, 640, CV_8UC3, cv::Scalar(90, 90, 90));
    cv::Mat clutter = empty.clone();
    for (int k = 0; k < 6; ++k)
        cv::circle(clutter, cv::Point(80 + 90 * k, 100 + 50 * (k % 3)), 25, cv::Scalar(30, 30, 200),
                   -1);
    for (const cv::Mat* image : {&empty, static_cast<const cv::Mat*>(&clutter)}) {
        const Detection d = Detect(*image);
        EXPECT_EQ(d.result, 0);
        EXPECT_TRUE(CornersNear(d.corners, WholeImage(640, 480), 0));
    }
}

TEST(DetectPage, TooSmallOrBrokenImagesGiveTheWholeImageWithoutLooking) {
    Photo p;
    p.width = 63;
    p.height = 1000;
    p.page = {{10, 100}, {10, 900}, {55, 900}, {55, 100}};
    Detection d = Detect(Render(p));
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.pass, -1);
    EXPECT_TRUE(CornersNear(d.corners, WholeImage(63, 1000), 0));

    d = Detect(cv::Mat());
    EXPECT_EQ(d.result, 0);
    EXPECT_TRUE(CornersNear(d.corners, WholeImage(0, 0), 0));
    const cv::Mat grey(600, 800, CV_8UC1, cv::Scalar(128));
    d = Detect(grey);
    EXPECT_EQ(d.result, 0);
    EXPECT_TRUE(CornersNear(d.corners, WholeImage(800, 600), 0));
    EXPECT_EQ(GetQuotationSheetEdge(grey, nullptr, nullptr, nullptr), 0);
}

TEST(DetectPage, SettlingRejectsIllegalQuadranglesAndKeepsTheTopRightQuirk) {
    tem_Point out[4];
    int edges = 4;
    // A quadrangle with a corner inside the triangle of the others is no page.
    const tem_Point dented[4] = {{100, 100}, {100, 500}, {700, 500}, {200, 400}};
    EXPECT_EQ(SettleQuadrangle(dented, 800, 600, out, &edges), 0);
    EXPECT_EQ(edges, 0);
    EXPECT_TRUE(CornersNear(out, WholeImage(800, 600), 0));

    // A legal quadrangle whose top-right corner has x = 0: the whole image,
    // yet found, and the edge count stays.
    edges = 3;
    const tem_Point leaning[4] = {{-300, 50}, {-200, 500}, {300, 520}, {0, 40}};
    ASSERT_EQ(JudgeLeaglueQuadrangle2(leaning), 1);
    EXPECT_EQ(SettleQuadrangle(leaning, 800, 600, out, &edges), 1);
    EXPECT_EQ(edges, 3);
    EXPECT_TRUE(CornersNear(out, WholeImage(800, 600), 0));

    const tem_Point page[4] = {{100, 100}, {100, 500}, {700, 500}, {700, 100}};
    EXPECT_EQ(SettleQuadrangle(page, 800, 600, out, &edges), 1);
    EXPECT_TRUE(CornersNear(out, {{100, 100}, {100, 500}, {700, 500}, {700, 100}}, 0));
}
