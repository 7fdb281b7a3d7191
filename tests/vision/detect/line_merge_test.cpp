#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <memory>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"
#include "vision/detect/geometry.h"
#include "vision/detect/line_merge_internal.h"

namespace {

struct SetDeleter {
    void operator()(temp_LineSet* s) const { DeleteLineSet(s); }
};
using SetPtr = std::unique_ptr<temp_LineSet, SetDeleter>;
using Segment = std::pair<tem_Point, tem_Point>;

SetPtr MakeSet(std::initializer_list<Segment> segments) {
    SetPtr set(CreatLineSet());
    for (const Segment& s : segments)
        ADDLine2LineSet(set.get(), MakeLineFromEndPoints(s.first, s.second), kAppendPosition);
    return set;
}

Segment Ends(const tem_Line* line) {
    Segment s;
    GetLineEndPoint(line, &s.first, &s.second);
    return s;
}

void ExpectPoint(tem_Point p, int x, int y, int tolerance = 0) {
    EXPECT_NEAR(p.x, x, tolerance);
    EXPECT_NEAR(p.y, y, tolerance);
}

cv::Mat Edges(int w, int h) {
    return cv::Mat::zeros(h, w, CV_8UC1);
}

void Draw(cv::Mat& edges, tem_Point p, tem_Point q, int thickness = 3) {
    cv::line(edges, {p.x, p.y}, {q.x, q.y}, 255, thickness);
}

}  // namespace

TEST(LineFilter, DeleteShortLineKeepsOnlyStrictlyLongerLinesInOrder) {
    SetPtr set = MakeSet({{{0, 0}, {30, 40}}, {{0, 100}, {60, 100}}, {{0, 200}, {51, 200}}});
    tem_Line* third = GetLine(set.get(), 2);
    DeleteShortLine(Edges(10, 10), set.get(), 50.0);  // exactly 50 long goes
    ASSERT_EQ(set->count, 2);
    EXPECT_EQ(GetLine(set.get(), 1), third);

    SetPtr empty(CreatLineSet());
    DeleteShortLine(Edges(10, 10), empty.get(), 1.0);
    CombineSimiliarLine4(Edges(10, 10), empty.get(), set.get(), 10, 10);
    CombineSimiliarLine5(Edges(10, 10), empty.get(), set.get(), 10, 10);
    ExtendLineSetOnEdge(Edges(10, 10), empty.get());
    QvVP_AdjustAllLine(nullptr, empty.get(), nullptr);
    EXPECT_EQ(empty->count, 0);
    EXPECT_EQ(empty->head, nullptr);
}

TEST(LineGapTest, ToleratesOneMissLessThanAQuarterOfTheGap) {
    // (10,50)-(50,50): 39 pixels walked, 10 misses allowed.
    for (bool steep : {false, true}) {
        cv::Mat edges = Edges(100, 100);
        auto at = [steep](int main, int cross) {
            return steep ? cv::Point(cross, main) : cv::Point(main, cross);
        };
        cv::line(edges, at(10, 50), at(50, 50), 255, 1);
        const tem_Point p = steep ? tem_Point{50, 10} : tem_Point{10, 50};
        const tem_Point q = steep ? tem_Point{50, 50} : tem_Point{50, 50};
        for (int k = 0; k < 9; ++k) edges.at<uchar>(at(20 + k, 50)) = 49;
        EXPECT_EQ(TestTwoPointOnSameEdge(edges, p, q), 1) << steep;
        edges.at<uchar>(at(45, 50)) = 0;
        EXPECT_EQ(TestTwoPointOnSameEdge(edges, p, q), 0) << steep;
    }
    // Two pixels apart: one miss already fails; nothing between passes.
    cv::Mat edges = Edges(20, 20);
    EXPECT_EQ(TestTwoPointOnSameEdge(edges, {10, 10}, {12, 10}), 0);
    edges.at<uchar>(10, 11) = 255;
    EXPECT_EQ(TestTwoPointOnSameEdge(edges, {10, 10}, {12, 10}), 1);
    EXPECT_EQ(TestTwoPointOnSameEdge(Edges(20, 20), {10, 10}, {11, 11}), 1);
}

TEST(LineMerge4, CoveredGapsMergeUpToTheGapToleranceOfTheImageSize) {
    cv::Mat edges = Edges(1000, 1000);
    Draw(edges, {100, 200}, {900, 200});
    SetPtr near = MakeSet({{{100, 200}, {400, 200}}, {{430, 200}, {800, 200}}});
    CombineSimiliarLine4(edges, near.get(), nullptr, 1000, 1000);
    ASSERT_EQ(near->count, 1);
    ExpectPoint(Ends(near->head).first, 100, 200);
    ExpectPoint(Ends(near->head).second, 800, 200);
    EXPECT_NEAR(near->head->a, 0.0, 1e-9);

    SetPtr far = MakeSet({{{100, 200}, {400, 200}}, {{441, 200}, {800, 200}}});
    CombineSimiliarLine4(edges, far.get(), nullptr, 1000, 1000);
    EXPECT_EQ(far->count, 2);
    CombineSimiliarLine4(edges, far.get(), nullptr, 2001, 2001);  // gap tolerance 45
    EXPECT_EQ(far->count, 1);

    // Uncovered gaps merge only below the distance tolerance (here 0.02 * 500).
    SetPtr bare9 = MakeSet({{{0, 500}, {500, 500}}, {{509, 500}, {1009, 500}}});
    SetPtr bare12 = MakeSet({{{0, 500}, {500, 500}}, {{512, 500}, {1012, 500}}});
    SetPtr cross = MakeSet({{{504, 300}, {504, 700}}});
    CombineSimiliarLine4(Edges(1100, 1000), bare9.get(), cross.get(), 1100, 1000);
    CombineSimiliarLine4(Edges(1100, 1000), bare12.get(), cross.get(), 1100, 1000);
    EXPECT_EQ(bare9->count, 1);
    EXPECT_EQ(bare12->count, 2);
}

TEST(LineMerge4, ContainedShortLinesAreRemovedAndTheirGroupSurvives) {
    const tem_Point l1{100, 200}, l2{800, 200};
    for (bool shortFirst : {false, true}) {
        SetPtr set = shortFirst ? MakeSet({{{300, 202}, {500, 202}}, {l1, l2}})
                                : MakeSet({{l1, l2}, {{300, 202}, {500, 202}}});
        CombineSimiliarLine4(Edges(1000, 1000), set.get(), nullptr, 1000, 1000);
        ASSERT_EQ(set->count, 1);
        ExpectPoint(Ends(set->head).first, 100, 200);
        ExpectPoint(Ends(set->head).second, 800, 200);
        EXPECT_EQ(set->head->a, 0.0);
        EXPECT_EQ(set->head->c, 200.0);
    }
    // S merges with P, then lies inside the longer L (3 degrees off) and is
    // removed; P, which L does not match (4 degrees), must stay.
    cv::Mat edges = Edges(1000, 1000);
    Draw(edges, {300, 200}, {700, 200}, 1);
    const double t3 = std::tan(3.0 * kGeometryPi / 180.0), t1 = std::tan(kGeometryPi / 180.0);
    const tem_Point p2{700, static_cast<int32_t>(std::lround(200 - 260 * t1))};
    const tem_Point lLo{100, static_cast<int32_t>(std::lround(200 - 250 * t3))};
    const tem_Point lHi{520, static_cast<int32_t>(std::lround(200 + 170 * t3))};
    SetPtr set = MakeSet({{{300, 200}, {400, 200}}, {{440, 200}, p2}, {lLo, lHi}});
    tem_Line* p = GetLine(set.get(), 1);
    tem_Line* l = GetLine(set.get(), 2);
    CombineSimiliarLine4(edges, set.get(), nullptr, 1000, 1000);
    ASSERT_EQ(set->count, 2);
    EXPECT_EQ(GetLine(set.get(), 0), p);
    EXPECT_EQ(GetLine(set.get(), 1), l);
}

TEST(LineMerge4, BrokenOffsetPiecesOfOneBorderBecomeOneLine) {
    cv::Mat edges = Edges(1000, 800);
    Draw(edges, {50, 300}, {950, 309});
    SetPtr set = MakeSet({{{50, 300}, {300, 302}},
                          {{320, 303}, {600, 305}},
                          {{620, 306}, {950, 309}},
                          {{100, 600}, {900, 600}}});
    tem_Line* other = GetLine(set.get(), 3);
    CombineSimiliarLine4(edges, set.get(), nullptr, 1000, 800);
    ASSERT_EQ(set->count, 2);
    const Segment merged = Ends(set->head);
    ExpectPoint(merged.first, 50, 300);
    ExpectPoint(merged.second, 950, 309);
    EXPECT_NEAR(set->head->a * 50 + set->head->c, 300.0, 1.0);
    EXPECT_NEAR(set->head->a * 950 + set->head->c, 309.0, 1.0);
    EXPECT_EQ(GetLine(set.get(), 1), other);

    // The refit of steep groups keeps the vertical convention.
    const tem_Point column[4] = {{7, 10}, {7, 90}, {7, 120}, {7, 300}};
    double k[3];
    CalLineOnPointSet(column, 4, k);
    EXPECT_EQ(k[0], kVerticalSlope);
    EXPECT_EQ(k[2], -70000.0);
}

TEST(LineExtend, FollowsTheEdgeOverSmallBreaksToTheBorderAndStopsAtGaps) {
    cv::Mat edges = Edges(1000, 800);
    Draw(edges, {0, 300}, {999, 300}, 1);
    for (int x = 500; x < 504; ++x) edges.at<uchar>(301, x) = 0, edges.at<uchar>(300, x) = 0;
    for (int x = 700; x < 705; ++x) edges.at<uchar>(300, x) = 0;
    edges.at<uchar>(302, 200) = 255;  // two rows off the line still supports it
    SetPtr set = MakeSet({{{300, 300}, {200, 300}}, {{100, 760}, {400, 770}}});
    const double a = set->head->a, c = set->head->c;
    ExtendLineSetOnEdge(edges, set.get());
    ExpectPoint(set->head->points->points[0], 699, 300);  // point order is kept
    ExpectPoint(set->head->points->points[1], 0, 300);
    EXPECT_EQ(set->head->a, a);
    EXPECT_EQ(set->head->c, c);
    const Segment untouched = Ends(GetLine(set.get(), 1));  // no edges: never shortened
    ExpectPoint(untouched.first, 100, 760);
    ExpectPoint(untouched.second, 400, 770);

    // A slanted thick border with a 40-pixel break, and a vertical one.
    cv::Mat slanted = Edges(1000, 800);
    Draw(slanted, {100, 300}, {600, 316});
    Draw(slanted, {640, 317}, {900, 326});
    Draw(slanted, {500, 50}, {500, 750});
    SetPtr lines = MakeSet({{{300, 306}, {450, 311}}, {{500, 300}, {500, 400}}});
    ExtendLineSetOnEdge(slanted, lines.get());
    const Segment flat = Ends(lines->head);
    ExpectPoint(flat.first, 100, 300, 2);
    ExpectPoint(flat.second, 600, 316, 2);
    const Segment steep = Ends(GetLine(lines.get(), 1));
    ExpectPoint(steep.first, 500, 50, 2);
    ExpectPoint(steep.second, 500, 750, 2);
}

TEST(LineMerge5, JoinsFarPiecesUnlessAPageSideCrossesTheGap) {
    // W + H = 1800: g = 135; the 120-pixel gap needs the crossing test.
    const Segment a{{50, 100}, {400, 100}}, b{{520, 101}, {950, 101}};
    auto run = [&](std::initializer_list<Segment> others) {
        SetPtr set = MakeSet({a, b});
        SetPtr other = MakeSet(others);
        CombineSimiliarLine5(Edges(1000, 800), set.get(), other.get(), 1000, 800);
        return set->count;
    };
    EXPECT_EQ(run({}), 1);
    EXPECT_EQ(run({{{460, 90}, {460, 700}}}), 2);   // crosses the middle
    EXPECT_EQ(run({{{400, 110}, {400, 700}}}), 2);  // a side from the corner
    EXPECT_EQ(run({{{460, 120}, {460, 299}}}), 1);  // too short for a side
    EXPECT_EQ(run({{{460, 400}, {460, 790}}}), 1);  // far below the gap
    EXPECT_EQ(run({{{560, 90}, {560, 700}}}), 1);   // beyond the gap's margin

    SetPtr joined = MakeSet({a, b});
    CombineSimiliarLine5(Edges(1000, 800), joined.get(), nullptr, 1000, 800);
    ASSERT_EQ(joined->count, 1);
    ExpectPoint(Ends(joined->head).first, 50, 100);
    ExpectPoint(Ends(joined->head).second, 950, 101);

    // Short pieces: a 100-pixel gap is refused, a 45-pixel one accepted.
    SetPtr shortFar = MakeSet({{{100, 100}, {250, 100}}, {{350, 100}, {500, 100}}});
    SetPtr shortNear = MakeSet({{{100, 100}, {200, 100}}, {{245, 100}, {345, 100}}});
    CombineSimiliarLine5(Edges(1000, 800), shortFar.get(), nullptr, 1000, 800);
    CombineSimiliarLine5(Edges(1000, 800), shortNear.get(), nullptr, 1000, 800);
    EXPECT_EQ(shortFar->count, 2);
    EXPECT_EQ(shortNear->count, 1);
    // Off by 3 degrees: the second merge is stricter than the first.
    SetPtr tilted = MakeSet({{{100, 100}, {500, 100}}, {{520, 101}, {900, 122}}});
    CombineSimiliarLine5(Edges(1000, 800), tilted.get(), nullptr, 1000, 800);
    EXPECT_EQ(tilted->count, 2);
}

TEST(LineAdjust, OrdersEndPointsAndFillsTheLineRecord) {
    tagNoteDetector detector;
    detector.width = 1000;
    detector.height = 800;
    detector.half = cv::Mat(400, 500, CV_8UC3, cv::Scalar(77, 77, 77));
    detector.halfWidth = 500;
    detector.halfHeight = 400;
    SetPtr h = MakeSet({{{500, 100}, {100, 110}}});
    SetPtr v = MakeSet({{{200, 500}, {210, 100}}, {{300, 600}, {300, 100}}});
    // A merged horizontal line with many points; two share the smallest x.
    const tem_Point many[4] = {{100, 50}, {100, 60}, {300, 70}, {200, 65}};
    tem_Line* wide = MakeLineFromEndPoints({100, 60}, {300, 70});
    SetPointSetPoints(wide->points, many, 4);
    ADDLine2LineSet(h.get(), wide, kAppendPosition);
    h->head->filterCount[0] = 7;
    QvVP_AdjustAllLine(&detector, h.get(), v.get());

    const tem_Line* l = h->head;
    ExpectPoint(l->points->points[0], 100, 110);
    EXPECT_EQ(l->length, 400);
    EXPECT_EQ(l->angle, -1);
    EXPECT_EQ(l->orientation, 0);
    EXPECT_EQ(l->filterCount[0], 0);
    EXPECT_EQ(l->sideA.valid, 1);
    EXPECT_EQ(l->sideA.value[2], 77);
    ASSERT_EQ(wide->points->count, 2);
    ExpectPoint(wide->points->points[0], 100, 60);
    ExpectPoint(wide->points->points[1], 300, 70);

    const tem_Line* s = v->head;
    ExpectPoint(s->points->points[0], 210, 100);
    EXPECT_EQ(s->angle, -88);
    EXPECT_EQ(s->orientation, 1);
    EXPECT_EQ(GetLine(v.get(), 1)->angle, 90);
    EXPECT_EQ(GetLine(v.get(), 1)->length, 500);
}
