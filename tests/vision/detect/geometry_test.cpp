#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "vision/detect/detector_internal.h"
#include "vision/detect/geometry.h"

namespace {

// A detector-style line through two points: coefficients from CalLine, the
// two points as its segment.
tem_Line* MakeLine(tem_Point p, tem_Point q) {
    return MakeLineFromEndPoints(p, q);
}

tem_Line Coefficients(double a, double c) {
    tem_Line line{};
    line.a = a;
    line.b = -1;
    line.c = c;
    return line;
}

}  // namespace

TEST(Geometry, LinesIntersectionsAndSides) {
    const tem_Line x10 = Coefficients(10000, -100000), x20 = Coefficients(10000, -200000);
    const tem_Line y5 = Coefficients(0, 5);
    tem_Point p{-1, -1};
    EXPECT_EQ(GetIntersectionPoint(&x10, &x20, &p), 0);
    ASSERT_EQ(GetIntersectionPoint(&x10, &y5, &p), 1);
    EXPECT_EQ(p.x, 10);
    EXPECT_EQ(p.y, 5);
    // Truncation toward zero: y = x + 0.5 meets y = -x at x = -0.25 -> 0, and
    // y = 2x + 7 meets y = -x at x = -7/3 -> -2, y = 2 from the flatter line.
    const tem_Line d1 = Coefficients(1, 0.5), anti = Coefficients(-1, 0), d2 = Coefficients(2, 7);
    ASSERT_EQ(GetIntersectionPoint(&d1, &anti, &p), 1);
    EXPECT_EQ(p.x, 0);
    ASSERT_EQ(GetIntersectionPoint(&d2, &anti, &p), 1);
    EXPECT_EQ(p.x, -2);
    EXPECT_EQ(p.y, 2);

    double k[3];
    CalLine({10, 0}, {10, 50}, k);
    EXPECT_EQ(k[0], 10000);
    EXPECT_EQ(k[2], -100000);
    CalLine({0, 3}, {4, 5}, k);
    EXPECT_EQ(k[0], 0.5);
    EXPECT_EQ(k[2], 3);

    const tem_Line y6 = Coefficients(0, 6);
    EXPECT_EQ(PointRelationshipWithLine(&y6, 3, 7), 0);
    EXPECT_EQ(PointRelationshipWithLine(&y6, 3, 8), 1);
    EXPECT_EQ(PointRelationshipWithLine(&x10, 12, 0), 1);
    EXPECT_EQ(PointRelationshipWithLine(&x10, 8, 0), -1);
    EXPECT_DOUBLE_EQ(Dot2LineDistance(&y6, {3, 10}), 4.0);
}

TEST(Geometry, EndPointsLengthsAndAreas) {
    tem_Line* h = MakeLine({30, 4}, {10, 2});
    const tem_Point extra[4] = {{30, 4}, {10, 2}, {10, 9}, {30, 0}};
    SetPointSetPoints(h->points, extra, 4);
    tem_Point lo, hi;
    GetLineEndPoint(h, &lo, &hi);
    EXPECT_EQ(lo.y, 2);  // first of equal x wins
    EXPECT_EQ(hi.y, 4);
    tem_Line* v = MakeLine({5, 40}, {8, 0});
    GetLineEndPoint(v, &lo, &hi);
    EXPECT_EQ(lo.y, 0);
    EXPECT_EQ(hi.y, 40);
    EXPECT_DOUBLE_EQ(LineLength(v), PointDistance({5, 40}, {8, 0}));
    SetPointSetPoints(v->points, nullptr, 0);
    GetLineEndPoint(v, &lo, &hi);
    EXPECT_EQ(lo.x, 99999999);
    EXPECT_EQ(hi.y, -99999999);
    EXPECT_EQ(LineLength(v), 0.0);
    DeleteLine(h);
    DeleteLine(v);

    const tem_Point square[4] = {{0, 0}, {0, 10}, {10, 10}, {10, 0}};
    EXPECT_NEAR(QuadrangleArea(square), 100.0, 1e-9);
    EXPECT_EQ(JudgeLeaglueQuadrangle2(square), 1);
    const tem_Point concave[4] = {{0, 0}, {0, 100}, {100, 100}, {20, 40}};
    EXPECT_EQ(JudgeLeaglueQuadrangle2(concave), 0);
    const tem_Point tiny[4] = {{0, 0}, {0, 6}, {6, 6}, {6, 0}};
    EXPECT_EQ(JudgeLeaglueQuadrangle2(tiny), 0);
    EXPECT_EQ(QuadrangleAreaRule(tiny, 1.0), 1);  // the tolerance alone refused it
    // Strict convexity: a straight corner or a crossing fails, either turning way passes.
    EXPECT_TRUE(IsStrictlyConvexQuad({{{0, 0}, {0, 10}, {10, 10}, {10, 0}}}));
    EXPECT_TRUE(IsStrictlyConvexQuad({{{0, 0}, {10, 0}, {10, 10}, {0, 10}}}));
    EXPECT_FALSE(IsStrictlyConvexQuad({{{0, 0}, {0, 5}, {0, 10}, {10, 0}}}));
    EXPECT_FALSE(IsStrictlyConvexQuad({{{0, 0}, {10, 10}, {0, 10}, {10, 0}}}));
    EXPECT_EQ(TriangleArea({0, 0}, {5, 5}, {10, 10}), 0.0);  // collinear, never NaN
}

TEST(Geometry, AnglesUseTheShortPi) {
    const tem_Line flat = Coefficients(0, 0), up = Coefficients(1, 0), down = Coefficients(-1, 0);
    EXPECT_EQ(AngleBetween2Line(&up, &down), 90.0);
    EXPECT_EQ(AngleLine2Line(&up, &down), 90.0);
    // atan(1 - 1e-8) is just under 45 degrees; with pi = 3.1415926 it reads
    // just over, and the complementary angle just under 135.
    const tem_Line almost = Coefficients(1 - 1e-8, 0);
    EXPECT_EQ(static_cast<int>(AngleBetween2Line(&almost, &flat)), 45);
    EXPECT_EQ(static_cast<int>(AngleLine2Line(&flat, &almost)), 134);
}

TEST(Geometry, CoveredLengthBetweenCrossings) {
    const VpSize size{200, 100};
    tem_Line* h = MakeLine({0, 10}, {100, 10});
    tem_Line* xa = MakeLine({20, 0}, {20, 99});
    tem_Line* xb = MakeLine({70, 0}, {70, 99});
    tem_Line* xneg = MakeLine({-10, 0}, {-10, 99});
    EXPECT_NEAR(GetLengthBetween2LineWithSize(h, xa, xb, size), 50.0, 1e-9);
    EXPECT_NEAR(GetLengthBetween2LineWithSize(h, xb, xneg, size), 70.0, 1e-9);       // segment cut
    EXPECT_NEAR(GetLengthBetween2LineWithSize(h, xneg, xb, {40, 100}), 39.0, 1e-9);  // image cut
    EXPECT_EQ(GetLengthBetween2LineWithSize(h, xa, xa, size), 0.0);
    EXPECT_EQ(GetLengthBetween2LineWithSize(h, xa, h, size), 0.0);  // parallel crossing
    tem_Line* diag = MakeLine({0, 0}, {100, 100});                  // leaves through the bottom
    EXPECT_NEAR(GetLengthBetween2LineWithSize(diag, xneg, xb, {200, 50}), 50.0 * std::sqrt(2.0),
                1e-9);
    // A vertical border on the last column keeps its full length.
    tem_Line* v = MakeLine({199, 0}, {199, 99});
    tem_Line* top = MakeLine({0, 10}, {199, 10});
    tem_Line* bottom = MakeLine({0, 90}, {199, 90});
    EXPECT_NEAR(GetLengthBetween2LineWithSize(v, top, bottom, size), 80.0, 1e-6);
    for (tem_Line* l : {h, xa, xb, xneg, diag, v, top, bottom}) DeleteLine(l);
}

TEST(LineSet, MatchesAVectorModel) {
    temp_LineSet* set = CreatLineSet();
    EXPECT_EQ(GetLine(set, 0), nullptr);
    std::vector<tem_Line*> model;
    uint32_t seed = 12345;
    auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    for (int step = 0; step < 400; ++step) {
        const uint32_t r = next();
        if (r % 3 != 0 || model.empty()) {
            const int32_t choices[] = {0, -3, 100000, static_cast<int32_t>(next() % 12)};
            const int32_t pos = choices[r % 4];
            tem_Line* line = CreateLine();
            ADDLine2LineSet(set, line, pos);
            const size_t at =
                pos <= 0 ? 0 : std::min<size_t>(static_cast<size_t>(pos), model.size());
            model.insert(model.begin() + at, line);
        } else {
            const size_t at = next() % model.size();
            DeleteLineFromSet(set, model[at]);
            model.erase(model.begin() + at);
        }
        ASSERT_EQ(set->count, static_cast<int32_t>(model.size()));
        for (size_t i = 0; i < model.size(); ++i)
            ASSERT_EQ(GetLine(set, static_cast<int32_t>(i)), model[i]);
        ASSERT_EQ(GetLine(set, set->count), nullptr);
    }
    tem_Line* stranger = CreateLine();
    DeleteLineFromSet(set, stranger);  // not in the set: left alone
    EXPECT_EQ(set->count, static_cast<int32_t>(model.size()));
    DeleteLine(stranger);
    DeleteLineSet(set);
    DeleteLineSet(nullptr);
}
