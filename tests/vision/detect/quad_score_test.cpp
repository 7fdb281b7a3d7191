#include <gtest/gtest.h>

#include <cmath>

#include "quad_test_support.h"

using quad_test::MakeLine;
using quad_test::Scene;

namespace {

struct LineDeleter {
    void operator()(tem_Line* l) const { DeleteLine(l); }
};
using LinePtr = std::unique_ptr<tem_Line, LineDeleter>;

bool SameCorners(const tem_Point* c, std::initializer_list<tem_Point> want) {
    int k = 0;
    for (const tem_Point& p : want) {
        if (c[k].x != p.x || c[k].y != p.y) return false;
        ++k;
    }
    return true;
}

}  // namespace

TEST(QuadScoreOrder, CornersComeOutInOneOrderWhateverTheLineOrder) {
    LinePtr h100(MakeLine({0, 100}, {600, 100})), h500(MakeLine({0, 500}, {600, 500}));
    LinePtr v50(MakeLine({50, 0}, {50, 600})), v400(MakeLine({400, 0}, {400, 600}));
    tem_Line* hs[2] = {h100.get(), h500.get()};
    tem_Line* vs[2] = {v50.get(), v400.get()};
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            tem_Point c[4] = {};
            ASSERT_EQ(GetSequenceVertxt(hs[i], hs[1 - i], vs[j], vs[1 - j], c), 1);
            EXPECT_TRUE(SameCorners(c, {{50, 100}, {50, 500}, {400, 500}, {400, 100}}));
            tagQuadrangle q{};
            EXPECT_EQ(FillQuadrangle(hs[i], hs[1 - i], vs[j], vs[1 - j], &q), 1);
            EXPECT_EQ(q.top, h100.get());
            EXPECT_EQ(q.left, v50.get());
            EXPECT_EQ(q.area, 350 * 400);
        }
    }
    // A pair of mixed kinds, or a line that straddles its partner, is no candidate.
    tem_Point c[4];
    EXPECT_EQ(GetSequenceVertxt(h100.get(), v50.get(), h500.get(), v400.get(), c), 0);
    LinePtr cutting(MakeLine({0, 50}, {600, 150}));  // crosses y = 100 inside
    EXPECT_EQ(GetSequenceVertxt(h100.get(), cutting.get(), v50.get(), v400.get(), c), 0);
}

TEST(QuadScoreSides, SamplesBothSidesOfABorder) {
    Scene s(400, 300, {{100, 80}, {100, 240}, {300, 240}, {300, 80}});
    LinePtr top(MakeLine({100, 80}, {300, 80}));
    for (int samples : {8, 16}) {
        samples == 8 ? QvVP_CalculateAver8(&s.detector, top.get())
                     : QvVP_CalculateAver16(&s.detector, top.get());
        ASSERT_TRUE(top->sideA.valid && top->sideB.valid && top->sideDiff.valid);
        EXPECT_EQ(top->sideA.value[0], 60);   // table above
        EXPECT_EQ(top->sideB.value[0], 235);  // paper below
        EXPECT_EQ(top->sideDiff.value[2], 40 - 235);
    }
    LinePtr left(MakeLine({100, 80}, {100, 240}));
    QvVP_CalculateAver16(&s.detector, left.get());
    EXPECT_EQ(left->sideA.value[1], 50);  // table left
    EXPECT_EQ(left->sideB.value[1], 235);
    // On the image's first row the upper side is off the image.
    LinePtr edge(MakeLine({0, 0}, {399, 0}));
    QvVP_CalculateAver16(&s.detector, edge.get());
    EXPECT_FALSE(edge->sideA.valid);
    EXPECT_TRUE(edge->sideB.valid);
    EXPECT_FALSE(edge->sideDiff.valid);
}

TEST(QuadScoreEnergies, PageOnTableScoresWellAndStoresTheColourTerm) {
    Scene s(800, 600, {{150, 100}, {150, 500}, {650, 500}, {650, 100}});
    tem_Line* top = s.Add(true, {150, 100}, {650, 100});
    tem_Line* bottom = s.Add(true, {150, 500}, {650, 500});
    tem_Line* left = s.Add(false, {150, 100}, {150, 500});
    tem_Line* right = s.Add(false, {650, 100}, {650, 500}, 0.0, 0.5);
    tagQuadrangle q{};
    ASSERT_EQ(FillQuadrangle(top, bottom, left, right, &q), 1);

    tagQuadrangle probe = q;
    QvVP_CreateFullQaudLine(&s.detector, &probe);
    const int32_t c = QvVP_GetColorChangeEnergy(&probe);
    QvVP_DeleteFullQaudLine(&probe);

    ASSERT_EQ(QvVP_SimilarityOfQuad(&s.detector, &q), 1);
    EXPECT_EQ(q.fullLeft, nullptr);  // the border copies are freed again
    EXPECT_EQ(q.shapeEnergy, 0);
    EXPECT_EQ(q.innerEnergy, 0);        // uniform paper inside
    EXPECT_GT(q.outerEnergy, 3 * 150);  // dark table outside
    EXPECT_EQ(c, (175 + 185 + 195) / 3);
    EXPECT_EQ(q.colourEnergy, 3 * c + 1);
    EXPECT_NEAR(q.fillRight, 0.5, 0.01);
    EXPECT_NEAR(q.fill, (400 + 200 + 500 + 500) / 1800.0, 0.01);
    const double expected = q.fill + 1.0 + 1.0 + 1.0 + c / 255.0;  // E = 1: equal borders
    EXPECT_NEAR(q.score, expected, 0.02);
}

TEST(QuadScoreEnergies, NoStatisticsGiveTheShortFormWithFullSimilarity) {
    Scene s(800, 600, {{150, 100}, {150, 500}, {650, 500}, {650, 100}});
    s.detector.half.release();  // nothing to sample
    tem_Line* top = s.Add(true, {150, 100}, {650, 100});
    tem_Line* bottom = s.Add(true, {150, 500}, {650, 500});
    tem_Line* left = s.Add(false, {150, 100}, {150, 500});
    tem_Line* right = s.Add(false, {650, 100}, {650, 500});
    tagQuadrangle q{};
    ASSERT_EQ(FillQuadrangle(top, bottom, left, right, &q), 1);
    QvVP_SimilarityOfQuad(&s.detector, &q);
    EXPECT_EQ(q.innerEnergy, kNoEnergy);
    EXPECT_EQ(q.outerEnergy, kNoEnergy);
    EXPECT_EQ(q.colourEnergy, kNoEnergy);
    EXPECT_NEAR(q.fill, 1.0, 0.01);
    EXPECT_DOUBLE_EQ(q.score, q.fill + 1.0 + 1.0);  // E + F + (1 - 0 / 90), E = 1

    // A skewed corner shows in the shape energy.
    tagQuadrangle skew{};
    const tem_Point corners[4] = {{100, 100}, {160, 500}, {650, 500}, {650, 100}};
    std::copy(corners, corners + 4, skew.corners);
    EXPECT_EQ(QvVP_GetEdgeShapeEnergy(&skew), (9 + 9 + 0 + 0) >> 2);  // 81 degrees at two corners
}
