// First merge of broken border pieces (CombineSimiliarLine4): the pairwise
// decision, the edge-covered gap test and the grouping by labels.
//
// Labels: every line starts as its own group, labelled by its index; a
// group's label is always the index of its first (smallest) live member and
// the line count marks a removed line. A merge (result 1) moves the larger
// label's group onto the smaller one. When a line is removed (results 2 and
// 3) while it heads a group that still has other members, the group's next
// member by index becomes the new head and every member takes its index, so
// the group keeps a live first line for the refit and no member is lost.
// Each group of two or more lines is refitted by least squares through all
// their end points; its extreme points become the end points of the group's
// first line, and the other members are deleted.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "vision/detect/detector_internal.h"
#include "vision/detect/line_merge_internal.h"

namespace {

constexpr double kMinDistanceTolerance = 8.1;
constexpr double kDistanceShare = 0.02;   // of the shorter line
constexpr double kContainedRatio = 1.2;   // "markedly shorter"
constexpr double kCrossingNear = 15.0;    // pixels from a facing end
constexpr double kGapBoxMargin = 2.0;     // pixels around the gap's extents
constexpr double kLongCrossedGap = 80.0;  // largest gap allowed with two crossings
constexpr int kLargeImageSide = 2000;

struct Tolerances {
    double angle, distance, gap;
};

Tolerances TolerancesFor(int width, int height) {
    if (std::min(width, height) <= kLargeImageSide) return {3.5, 11.0, 40.0};
    return {3.5, 15.0, 45.0};
}

bool IsEdge(const cv::Mat& edges, double col, double row) {
    // Truncation toward zero as the walk computes it; anything off the map is a miss.
    if (!(col > -1.0 && row > -1.0 && col < edges.cols && row < edges.rows)) return false;
    return edges.ptr<uchar>(static_cast<int>(row))[static_cast<int>(col)] >= kEdgeHitLevel;
}

bool InBox(tem_Point p, tem_Point u, tem_Point v, double margin) {
    return p.x >= std::min(u.x, v.x) - margin && p.x <= std::max(u.x, v.x) + margin &&
           p.y >= std::min(u.y, v.y) - margin && p.y <= std::max(u.y, v.y) + margin;
}

// Takes a line out of its group, handing the group to its next member when
// the line was the group's first.
void RemoveFromGroup(std::vector<int32_t>& labels, int32_t index) {
    const int32_t removed = static_cast<int32_t>(labels.size());
    const bool wasHead = labels[index] == index;
    labels[index] = removed;
    if (!wasHead) return;
    int32_t newHead = -1;
    for (int32_t k = index + 1; k < removed; ++k) {
        if (labels[k] != index) continue;
        if (newHead < 0) newHead = k;
        labels[k] = newHead;
    }
}

}  // namespace

bool Is2LineCanBeCombineByAngleAndDist(const tem_Line* l1, const tem_Line* l2,
                                       double angleTolerance, double distanceTolerance) {
    if (!l1 || !l2) return false;
    if (std::fabs(AngleBetween2Line(l1, l2)) > angleTolerance) return false;
    tem_Point s1, e1, s2, e2;
    GetLineEndPoint(l1, &s1, &e1);
    GetLineEndPoint(l2, &s2, &e2);
    const double d1 = std::min(Dot2LineDistance(l2, s1), Dot2LineDistance(l2, e1));
    const double d2 = std::min(Dot2LineDistance(l1, s2), Dot2LineDistance(l1, e2));
    return (d1 + d2) / 2.0 < distanceTolerance;
}

int TestTwoPointOnSameEdge(const cv::Mat& edges, tem_Point p, tem_Point q) {
    const int32_t allowed = static_cast<int32_t>(0.5 + 0.25 * PointDistance(p, q));
    const bool readable = !edges.empty() && edges.type() == CV_8UC1;
    double k[3];
    CalLine(p, q, k);
    const double a = k[0], c = k[2];
    int32_t misses = 0;
    if (std::fabs(a) <= 1.0) {
        const int32_t hi = std::max(p.x, q.x);
        for (int32_t x = std::min(p.x, q.x) + 1; x < hi; ++x) {
            const double row = std::trunc(c + a * x + 0.5);
            if (readable && IsEdge(edges, x, row)) continue;
            if (++misses >= allowed) return 0;
        }
    } else {
        const int32_t hi = std::max(p.y, q.y);
        for (int32_t y = std::min(p.y, q.y) + 1; y < hi; ++y) {
            const double col = std::trunc((y - c) / a + 0.5);
            if (readable && IsEdge(edges, col, y)) continue;
            if (++misses >= allowed) return 0;
        }
    }
    return 1;
}

int IfTwoLineCombineTogether4(const cv::Mat& edges, const tem_Line* l1, const tem_Line* l2,
                              const temp_LineSet* set, const temp_LineSet* otherSet,
                              double angleTolerance, double distanceTolerance,
                              double gapTolerance) {
    (void)set;
    if (!l1 || !l2) return 0;
    tem_Point s1, e1, s2, e2;
    GetLineEndPoint(l1, &s1, &e1);
    GetLineEndPoint(l2, &s2, &e2);
    const double len1 = PointDistance(s1, e1);
    const double len2 = PointDistance(s2, e2);
    const double m = kDistanceShare * std::min(len1, len2);
    const double d =
        m <= kMinDistanceTolerance ? kMinDistanceTolerance : std::min(m, distanceTolerance);
    if (!Is2LineCanBeCombineByAngleAndDist(l1, l2, angleTolerance, d)) return 0;

    const bool alongX = std::fabs(l1->a) <= 1.0;
    tem_Point lo1, hi1, lo2, hi2;
    if (!AxisEnds(l1, alongX, &lo1, &hi1) || !AxisEnds(l2, alongX, &lo2, &hi2)) return 0;
    const int32_t a1 = AxisKey(lo1, alongX), b1 = AxisKey(hi1, alongX);
    const int32_t a2 = AxisKey(lo2, alongX), b2 = AxisKey(hi2, alongX);
    if ((a2 <= a1 && b1 <= b2) || (a1 <= a2 && b2 <= b1)) {
        if (len1 > kContainedRatio * len2) return 3;
        if (len2 > kContainedRatio * len1) return 2;
        return 1;
    }
    tem_Point from, to;
    bool fromFirst = true;
    if (!FacingEnds(l1, l2, alongX, &from, &to, &fromFirst)) return 1;  // partial overlap

    const double g = PointDistance(from, to);
    if (g > gapTolerance) return 0;
    if (TestTwoPointOnSameEdge(edges, from, to)) return 1;
    if (!(g < d)) return 0;
    if (!otherSet || !otherSet->head) return 1;

    // A line of the other orientation running through the gap means the two
    // pieces may end at a corner: it must pass right at one of the ends.
    const tem_Line gap = LineThrough(from, to);
    const tem_Line* fromLine = fromFirst ? l1 : l2;
    const tem_Line* toLine = fromFirst ? l2 : l1;
    const int32_t fromKey = AxisKey(from, alongX), toKey = AxisKey(to, alongX);
    int32_t counted = 0;
    for (const tem_Line* o = otherSet->head; o; o = o->next) {
        tem_Point x;
        if (GetIntersectionPoint(o, &gap, &x)) {
            const int32_t key = AxisKey(x, alongX);
            if (key >= fromKey && key <= toKey) {
                if (std::min(PointDistance(x, from), PointDistance(x, to)) > kCrossingNear)
                    return 0;
                continue;
            }
        }
        tem_Point y;
        if (GetIntersectionPoint(o, fromLine, &y) && PointDistance(y, from) <= kCrossingNear &&
            InBox(y, from, to, kGapBoxMargin))
            ++counted;
        if (GetIntersectionPoint(o, toLine, &y) && PointDistance(y, to) <= kCrossingNear &&
            InBox(y, from, to, kGapBoxMargin))
            ++counted;
    }
    if (counted < 2) return 1;
    return g <= kLongCrossedGap ? 1 : 0;
}

void CombineSimiliarLine4(const cv::Mat& edges, temp_LineSet* set, const temp_LineSet* otherSet,
                          int width, int height) {
    if (!set || set->count < 2) return;
    MergeGroups groups(set);
    const std::vector<tem_Line*>& lines = groups.lines;
    std::vector<int32_t>& labels = groups.labels;
    const int32_t n = groups.size();
    const Tolerances tol = TolerancesFor(width, height);

    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = i + 1; j < n && labels[i] != n; ++j) {
            if (labels[j] == n) continue;
            const int r = IfTwoLineCombineTogether4(edges, lines[i], lines[j], set, otherSet,
                                                    tol.angle, tol.distance, tol.gap);
            if (r == 1) {
                const int32_t lo = std::min(labels[i], labels[j]);
                const int32_t hi = std::max(labels[i], labels[j]);
                for (int32_t& label : labels)
                    if (label == hi) label = lo;
            } else if (r == 3) {
                RemoveFromGroup(labels, j);
            } else if (r == 2) {
                RemoveFromGroup(labels, i);
            }
        }
    }

    std::vector<tem_Point> gathered;
    gathered.reserve(static_cast<size_t>(2 * n));
    for (int32_t head = 0; head < n; ++head) {
        if (labels[head] != head) continue;
        gathered.clear();
        for (int32_t k = head; k < n; ++k) {
            if (labels[k] != head) continue;
            tem_Point p, q;
            GetLineEndPoint(lines[k], &p, &q);
            gathered.push_back(p);
            gathered.push_back(q);
        }
        if (gathered.size() <= 2) continue;
        if (!RefitLineThroughPoints(lines[head], gathered.data(),
                                    static_cast<int32_t>(gathered.size()))) {
            // Out of memory: keep the pieces apart rather than lose them.
            for (int32_t m = head + 1; m < n; ++m)
                if (labels[m] == head) labels[m] = m;
        }
    }

    groups.DeleteMerged(set);
}
