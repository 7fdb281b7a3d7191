#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "quad_test_support.h"

using quad_test::Scene;

namespace {

// Adds the four borders of the page (tl, bl, br, tr), each the part
// [f0, f1] of its side.
void AddPage(Scene& s, tem_Point tl, tem_Point bl, tem_Point br, tem_Point tr, double f0 = 0.0,
             double f1 = 1.0) {
    s.Add(true, tl, tr, f0, f1);
    s.Add(true, bl, br, f0, f1);
    s.Add(false, tl, bl, f0, f1);
    s.Add(false, tr, br, f0, f1);
}

::testing::AssertionResult Near(const tem_Point* got, std::initializer_list<tem_Point> want,
                                int tolerance) {
    int k = 0;
    for (const tem_Point& p : want) {
        if (std::abs(got[k].x - p.x) > tolerance || std::abs(got[k].y - p.y) > tolerance)
            return ::testing::AssertionFailure()
                   << "corner " << k << " is (" << got[k].x << ", " << got[k].y << "), want ("
                   << p.x << ", " << p.y << ")";
        ++k;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(QuadSearchFourLines, FindsATiltedPageAndKeepsTheVerticalCountQuirk) {
    Scene s(800, 600, {{160, 110}, {140, 500}, {660, 520}, {640, 90}});
    AddPage(s, {160, 110}, {140, 500}, {660, 520}, {640, 90});
    s.Add(true, {200, 300}, {600, 305});  // a printed rule inside the page
    s.Add(true, {0, 560}, {799, 560});    // a long line on the table
    tem_Point c[4];
    ASSERT_EQ(s.Search7(c), 1);
    EXPECT_TRUE(Near(c, {{160, 110}, {140, 500}, {660, 520}, {640, 90}}, 2));
    ASSERT_EQ(s.Search6(c), 1);
    EXPECT_TRUE(Near(c, {{160, 110}, {140, 500}, {660, 520}, {640, 90}}, 2));

    // 59 more short verticals on the table: 61 in all. Pass 0 finds nothing.
    for (int k = 0; k < 59; ++k) s.Add(false, {10 + k, 20}, {10 + k, 120});
    ASSERT_EQ(s.vertical->count, 61);
    EXPECT_EQ(s.Search6(c), 0);
    EXPECT_TRUE(Near(c, {{0, 0}, {0, 0}, {0, 0}, {0, 0}}, 0));
    ASSERT_EQ(s.Search7(c), 1);
    EXPECT_TRUE(Near(c, {{160, 110}, {140, 500}, {660, 520}, {640, 90}}, 2));
}

TEST(QuadSearchFourLines, PairDistanceAndFillThresholdRejectCandidates) {
    // Verticals 140 pixels apart in an 800 wide image (< 0.2 W) bound nothing.
    Scene narrow(800, 600, {{300, 100}, {300, 500}, {440, 500}, {440, 100}});
    AddPage(narrow, {300, 100}, {300, 500}, {440, 500}, {440, 100});
    tem_Point c[4] = {{1, 1}, {1, 1}, {1, 1}, {1, 1}};
    EXPECT_EQ(narrow.Search7(c), 0);
    EXPECT_TRUE(Near(c, {{0, 0}, {0, 0}, {0, 0}, {0, 0}}, 0));

    // One candidate alone is held to a fill of 0.63: 65 % of each side found
    // passes, 60 % does not.
    for (double share : {0.65, 0.60}) {
        Scene s(800, 600, {{150, 100}, {150, 500}, {650, 500}, {650, 100}});
        const double f0 = (1.0 - share) / 2.0;
        AddPage(s, {150, 100}, {150, 500}, {650, 500}, {650, 100}, f0, 1.0 - f0);
        const int found = s.Search7(c);
        EXPECT_EQ(found, share > 0.63 ? 1 : 0) << share;
        if (found) {
            EXPECT_TRUE(Near(c, {{150, 100}, {150, 500}, {650, 500}, {650, 100}}, 1));
        }
    }

    // Empty sets find nothing in any search.
    Scene empty(800, 600, {{0, 0}});
    tem_Point* out = c;
    EXPECT_EQ(empty.Search6(out), 0);
    EXPECT_EQ(FindSquareAreaWith3Edge(&empty.detector, empty.image, empty.horizontal.get(),
                                      empty.vertical.get(), out, nullptr),
              0);
    EXPECT_EQ(FindSquareAreaWith1Line(&empty.detector, empty.image, empty.horizontal.get(),
                                      empty.vertical.get(), out),
              0);
}

TEST(QuadSearchFallback, PagesCrossingTheBorderAreClosedByTheFrame) {
    // The page runs off the bottom: top, left and right were found.
    Scene s(800, 600, {{200, 120}, {190, 640}, {610, 650}, {600, 110}});
    s.Add(true, {200, 120}, {600, 110});
    s.Add(false, {200, 120}, {190, 640}, 0.0, 0.92);
    s.Add(false, {600, 110}, {610, 650}, 0.0, 0.9);
    tem_Point c[4];
    EXPECT_EQ(s.Search7(c), 0);
    ASSERT_EQ(FindSquareAreaWith3Edge(&s.detector, s.image, s.horizontal.get(), s.vertical.get(), c,
                                      nullptr),
              1);
    EXPECT_TRUE(Near(c, {{200, 120}, {191, 599}, {608, 599}, {600, 110}}, 2));
    // Its verticals do not reach the top border, so two lines are not enough.
    EXPECT_EQ(FindSquareAreaWith2VerticalLine(&s.detector, s.image, s.horizontal.get(),
                                              s.vertical.get(), c, nullptr),
              0);

    // A page across the top and the bottom, seen by its two sides only.
    Scene tall(800, 600, {{220, -20}, {230, 620}, {560, 620}, {570, -20}});
    tall.Add(false, {220, 0}, {230, 599});
    tall.Add(false, {570, 0}, {560, 599});
    ASSERT_EQ(FindSquareAreaWith2VerticalLine(&tall.detector, tall.image, tall.horizontal.get(),
                                              tall.vertical.get(), c, nullptr),
              1);
    EXPECT_TRUE(Near(c, {{220, 0}, {230, 599}, {560, 599}, {570, 0}}, 1));

    // One found line closes a page with three borders only when it spans the image.
    Scene band(800, 600, {{0, 250}, {0, 600}, {800, 600}, {800, 250}});
    band.Add(true, {0, 250}, {799, 250});
    band.Add(true, {300, 120}, {500, 120});  // short: reaches neither side
    ASSERT_EQ(FindSquareAreaWith1Line(&band.detector, band.image, band.horizontal.get(),
                                      band.vertical.get(), c),
              1);
    EXPECT_TRUE(Near(c, {{0, 250}, {0, 599}, {799, 599}, {799, 250}}, 1));
}

TEST(QuadSearchFourLines, ASheetUnderThePageDoesNotWidenIt) {
    // The page, and a sheet of the same size turned by 12 degrees and pushed
    // down and right under it; the sheet's right and bottom edges are seen.
    const cv::Point2d centre(350, 275);
    const double turn = 12 * 3.14159265 / 180;
    std::vector<cv::Point> sheet;
    for (cv::Point2d p : {cv::Point2d(200, 150), cv::Point2d(200, 400), cv::Point2d(500, 400),
                          cv::Point2d(500, 150)}) {
        const cv::Point2d d = p - centre;
        sheet.emplace_back(
            static_cast<int>(centre.x + 60 + d.x * std::cos(turn) - d.y * std::sin(turn)),
            static_cast<int>(centre.y + 50 + d.x * std::sin(turn) + d.y * std::cos(turn)));
    }
    Scene s(800, 600, sheet, {60, 50, 40}, {215, 215, 215});
    cv::fillConvexPoly(s.image,
                       std::vector<cv::Point>{{200, 150}, {200, 400}, {500, 400}, {500, 150}},
                       cv::Scalar(245, 245, 245));
    cv::resize(s.image, s.detector.half, s.detector.half.size());
    auto pt = [&](int k) { return tem_Point{sheet[k].x, sheet[k].y}; };
    AddPage(s, {200, 150}, {200, 400}, {500, 400}, {500, 150});
    s.Add(true, pt(1), pt(2));   // sheet bottom
    s.Add(false, pt(3), pt(2));  // sheet right
    tem_Point c[4];
    ASSERT_EQ(s.Search7(c), 1);
    EXPECT_TRUE(Near(c, {{200, 150}, {200, 400}, {500, 400}, {500, 150}}, 1));
}

TEST(QuadSearchFourLines, LinesAlongTheFrameAndBeyondANarrowPageBoundNothing) {
    // Traces along the image frame (what a patterned table leaves there
    // after edge cleaning) around a page: the page is chosen.
    Scene framed(800, 600, {{200, 150}, {200, 450}, {600, 450}, {600, 150}});
    AddPage(framed, {200, 150}, {200, 450}, {600, 450}, {600, 150});
    framed.Add(true, {0, 1}, {799, 1});
    framed.Add(true, {0, 598}, {799, 597});
    framed.Add(false, {1, 0}, {1, 599});
    framed.Add(false, {798, 0}, {798, 599});
    tem_Point c[4];
    ASSERT_EQ(framed.Search7(c), 1);
    EXPECT_TRUE(Near(c, {{200, 150}, {200, 450}, {600, 450}, {600, 150}}, 1));

    // The frame rule itself: one side along the frame is enough.
    tagQuadrangle q{};
    tem_Line* lines[4] = {GetLine(framed.horizontal.get(), 2), GetLine(framed.horizontal.get(), 1),
                          GetLine(framed.vertical.get(), 0), GetLine(framed.vertical.get(), 1)};
    ASSERT_EQ(FillQuadrangle(lines[0], lines[1], lines[2], lines[3], &q), 1);
    SetQuardrangleVertexType(&q, 800, 600);
    EXPECT_EQ(q.frameSides, 1);

    // A receipt, and a long grain line of the table far to its left: the
    // top and bottom edges would have to run on past their ends to reach it.
    Scene receipt(1000, 600, {{450, 40}, {430, 560}, {700, 570}, {720, 50}});
    cv::fillConvexPoly(receipt.image,
                       std::vector<cv::Point>{{0, 0}, {120, 0}, {100, 599}, {0, 599}},
                       cv::Scalar(25, 20, 15));
    cv::resize(receipt.image, receipt.detector.half, receipt.detector.half.size());
    AddPage(receipt, {450, 40}, {430, 560}, {700, 570}, {720, 50});
    receipt.Add(false, {120, 0}, {100, 599});
    ASSERT_EQ(receipt.Search7(c), 1);
    EXPECT_TRUE(Near(c, {{450, 40}, {430, 560}, {700, 570}, {720, 50}}, 2));
}
