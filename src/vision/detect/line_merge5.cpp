// Second, wider merge (CombineSimiliarLine5): joins pieces of one border that
// the first merge left apart because the gap between them was too long or
// not covered by edges (a shadow, a finger, a fold across the border).
//
// Pairwise test (IfTwoLineCombineTogether5), with g = max(0.075 (W + H), 30):
// - the lines must agree within 2.2 degrees and 7.5 pixels;
// - pieces whose extents along the main axis touch or overlap join at once;
// - otherwise d is the distance between the facing ends and m the length of
//   the shorter piece; when d > 0.4 g the pair is refused if min(d, g) >
//   0.55 m or g > 0.85 m (a long gap needs long pieces on both sides);
// - a gap of at most 50 pixels joins;
// - a longer gap is refused when a line of the other orientation crosses it.
//   Such a line counts when it is at least a quarter of the image height
//   long (width, for a steep gap), so only lines that may be page sides
//   block; its crossing with the line through the facing ends lies within
//   the gap widened by 25 pixels at both ends (a side ending at the corner
//   where the piece stops still blocks); and that crossing lies on its own
//   segment or within 25 pixels beyond its ends (sides often stop short of
//   the corner, but a line far from the gap is no side of it).
// Join (Combine2Nearest2Line): the least-squares line through the four end
// points, ending at their extreme points along its main axis, as the first
// merge does; it replaces the earlier line, so later pieces are tested
// against the grown line.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "vision/detect/detector_internal.h"
#include "vision/detect/line_merge_internal.h"

namespace {

constexpr double kAngleTolerance = 2.2;
constexpr double kDistanceTolerance = 7.5;
constexpr double kGapShare = 0.075;  // of W + H
constexpr double kMinGap = 30.0;
constexpr double kFarGapShare = 0.4;  // of g: beyond it the pieces' lengths matter
constexpr double kShortPieceShare = 0.55;
constexpr double kLongPieceShare = 0.85;
constexpr double kDirectGap = 50.0;
constexpr double kSideShare = 0.25;  // of the height (flat gap) or width (steep gap)
constexpr int32_t kCrossMargin = 25;

bool GapCrossed(tem_Point from, tem_Point to, bool alongX, const temp_LineSet* otherSet,
                double minSide) {
    if (!otherSet) return false;
    const tem_Line gap = LineThrough(from, to);
    const int32_t lo = AxisKey(from, alongX) - kCrossMargin;
    const int32_t hi = AxisKey(to, alongX) + kCrossMargin;
    for (const tem_Line* o = otherSet->head; o; o = o->next) {
        tem_Point s, e;
        GetLineEndPoint(o, &s, &e);
        if (PointDistance(s, e) < minSide) continue;
        tem_Point x;
        if (!GetIntersectionPoint(o, &gap, &x)) continue;
        if (AxisKey(x, alongX) < lo || AxisKey(x, alongX) > hi) continue;
        const bool oAlongX = std::fabs(o->a) <= 1.0;
        tem_Point oLo, oHi;
        if (!AxisEnds(o, oAlongX, &oLo, &oHi)) continue;
        const int32_t key = AxisKey(x, oAlongX);
        if (key >= AxisKey(oLo, oAlongX) - kCrossMargin &&
            key <= AxisKey(oHi, oAlongX) + kCrossMargin)
            return true;
    }
    return false;
}

}  // namespace

bool IfTwoLineCombineTogether5(const tem_Line* l1, const tem_Line* l2, const temp_LineSet* otherSet,
                               int width, int height) {
    if (!Is2LineCanBeCombineByAngleAndDist(l1, l2, kAngleTolerance, kDistanceTolerance))
        return false;
    const bool alongX = std::fabs(l1->a) <= 1.0;
    tem_Point from, to;
    if (!FacingEnds(l1, l2, alongX, &from, &to, nullptr)) return true;

    tem_Point s1, e1, s2, e2;
    GetLineEndPoint(l1, &s1, &e1);
    GetLineEndPoint(l2, &s2, &e2);
    const double m = std::min(PointDistance(s1, e1), PointDistance(s2, e2));
    const double g = std::max(kGapShare * (static_cast<double>(width) + height), kMinGap);
    const double d = PointDistance(from, to);
    if (d > kFarGapShare * g && (std::min(d, g) > kShortPieceShare * m || g > kLongPieceShare * m))
        return false;
    if (d <= kDirectGap) return true;
    return !GapCrossed(from, to, alongX, otherSet, kSideShare * (alongX ? height : width));
}

bool Combine2Nearest2Line(tem_Line* into, const tem_Line* other) {
    if (!into || !other) return false;
    tem_Point pts[4];
    GetLineEndPoint(into, &pts[0], &pts[1]);
    GetLineEndPoint(other, &pts[2], &pts[3]);
    return RefitLineThroughPoints(into, pts, 4);
}

void CombineSimiliarLine5(const cv::Mat& edges, temp_LineSet* set, const temp_LineSet* otherSet,
                          int width, int height) {
    (void)edges;
    if (!set || set->count < 2) return;
    MergeGroups groups(set);
    const std::vector<tem_Line*>& lines = groups.lines;
    std::vector<int32_t>& labels = groups.labels;
    const int32_t n = groups.size();

    for (int32_t i = 0; i < n; ++i) {
        if (labels[i] != i) continue;
        for (int32_t j = i + 1; j < n; ++j) {
            if (labels[j] != j) continue;
            if (IfTwoLineCombineTogether5(lines[i], lines[j], otherSet, width, height) &&
                Combine2Nearest2Line(lines[i], lines[j]))
                labels[j] = i;
        }
    }
    groups.DeleteMerged(set);
}
