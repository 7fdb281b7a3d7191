// Rectangle and point helpers: exclusive edges, intersection and union
// rules, normalisation, saturation and null pointers.
#include <gtest/gtest.h>

#include <climits>

#include "scrivo/platform.h"

namespace {

bool operator==(const MRECT& a, const MRECT& b) {
    return ADK_EqualRect(&a, &b) == 1;
}

TEST(Rect, MeasuresContainmentAndSaturation) {
    const MRECT r{10, 20, 30, 60}, flat{5, 5, 5, 9}, reversed{9, 0, 0, 9};
    EXPECT_EQ(ADK_GetRectWidth(&r), 20);
    EXPECT_EQ(ADK_GetRectHeight(&r), 40);
    EXPECT_EQ(ADK_RectCenterPoint(&r).x, 20);
    EXPECT_EQ(ADK_PtInRect(&r, MPOINT{10, 20}), 1);
    EXPECT_EQ(ADK_PtInRect(&r, MPOINT{30, 40}), 0);  // right edge is outside
    EXPECT_EQ(ADK_IsRectEmpty(&flat) + ADK_IsRectEmpty(&reversed), 2);
    const MRECT huge{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX};
    EXPECT_EQ(ADK_GetRectWidth(&huge), INT32_MAX);  // saturates
    EXPECT_EQ(ADK_RectCenterPoint(&huge).x, 0);
    MRECT m{0, 0, INT32_MAX - 1, 1};
    ADK_OffsetRect(&m, 10, 0);
    EXPECT_TRUE(m == (MRECT{10, 0, INT32_MAX, 1}));
    ADK_InflateRect(&m, 2, 3);
    EXPECT_TRUE(m == (MRECT{8, -3, INT32_MAX, 4}));
    m = reversed;
    ADK_NormalizeRect(&m);
    EXPECT_TRUE(m == (MRECT{0, 0, 9, 9}));
    MPOINT p;
    ADK_PointSet(&p, -2, 4);
    ADK_PointOffset(&p, INT32_MIN, 1);
    EXPECT_EQ(ADK_PointIsEqual(p, MPOINT{INT32_MIN, 5}), 1);
}

TEST(Rect, IntersectionUnionAndNullPointers) {
    const MRECT a{0, 0, 10, 10}, b{5, 5, 20, 20}, apart{10, 0, 20, 10}, empty{50, 50, 40, 60};
    MRECT out{1, 2, 3, 4};
    EXPECT_EQ(ADK_IntersectRect(&out, &a, &apart), 0);  // touching edges share nothing
    EXPECT_EQ(ADK_IsRectEmpty(&out), 1);
    EXPECT_EQ(ADK_UnionRect(&out, &a, &b), 1);
    EXPECT_TRUE(out == (MRECT{0, 0, 20, 20}));
    EXPECT_EQ(ADK_UnionRect(&out, &empty, &b), 1);
    EXPECT_TRUE(out == b);
    EXPECT_EQ(ADK_UnionRect(&out, &empty, &empty), 0);
    EXPECT_EQ(ADK_IsRectEmpty(&out), 1);
    out = a;
    EXPECT_EQ(ADK_IntersectRect(&out, &out, &b), 1);  // the output may be an input
    EXPECT_TRUE(out == (MRECT{5, 5, 10, 10}));

    EXPECT_EQ(ADK_IsRectEmpty(nullptr) + ADK_IsRectNull(nullptr), 2);
    EXPECT_EQ(ADK_PtInRect(nullptr, MPOINT{0, 0}), 0);
    EXPECT_EQ(ADK_IntersectRect(nullptr, &a, &a) + ADK_UnionRect(nullptr, &a, &a), 0);
    EXPECT_EQ(ADK_UnionRect(&out, nullptr, &a), 1);
    EXPECT_TRUE(out == a);
    ADK_OffsetRect(nullptr, 1, 1);
}

}  // namespace
