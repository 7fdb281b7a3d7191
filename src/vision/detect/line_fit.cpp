// Shared pieces of the line merges: extents of segments along an axis, the
// facing ends of two disjoint segments, the least-squares refit of a merged
// group and the replacement of a line's coefficients and end points.
//
// The refit regresses along the axis of the larger spread of the points (y on
// x for flat sets, x on y for steep ones), so that neither a flat nor a steep
// border is fitted against the wrong variable. A steep fit whose slope would
// exceed the stand-in vertical slope is stored as CalLine stores a vertical
// pair (a = 10000, c = -10000 * x at y = 0), so merged and unmerged vertical
// lines compare alike in the angle and distance tests.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include "vision/detect/line_merge_internal.h"

namespace {

constexpr int32_t kExtremeSentinel = 1000000;

}  // namespace

bool AxisEnds(const tem_Line* line, bool alongX, tem_Point* lo, tem_Point* hi) {
    if (!line || !line->points || !line->points->points || line->points->count <= 0) return false;
    const tem_PointSet& set = *line->points;
    tem_Point first = set.points[0], last = set.points[0];
    for (int32_t i = 1; i < set.count; ++i) {
        const tem_Point p = set.points[i];
        if (AxisKey(p, alongX) < AxisKey(first, alongX)) first = p;
        if (AxisKey(p, alongX) > AxisKey(last, alongX)) last = p;
    }
    if (lo) *lo = first;
    if (hi) *hi = last;
    return true;
}

bool FacingEnds(const tem_Line* l1, const tem_Line* l2, bool alongX, tem_Point* from, tem_Point* to,
                bool* fromFirst) {
    tem_Point lo1, hi1, lo2, hi2;
    if (!AxisEnds(l1, alongX, &lo1, &hi1) || !AxisEnds(l2, alongX, &lo2, &hi2)) return false;
    bool first;
    if (AxisKey(hi1, alongX) < AxisKey(lo2, alongX)) {
        *from = hi1;
        *to = lo2;
        first = true;
    } else if (AxisKey(hi2, alongX) < AxisKey(lo1, alongX)) {
        *from = hi2;
        *to = lo1;
        first = false;
    } else {
        return false;
    }
    if (fromFirst) *fromFirst = first;
    return true;
}

void CalLineOnPointSet(const tem_Point* points, int32_t count, double coefficients[3]) {
    if (!coefficients) return;
    coefficients[0] = 0.0;
    coefficients[1] = -1.0;
    coefficients[2] = 0.0;
    if (!points || count <= 0) return;
    double mx = 0.0, my = 0.0;
    for (int32_t i = 0; i < count; ++i) {
        mx += points[i].x;
        my += points[i].y;
    }
    mx /= count;
    my /= count;
    double sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (int32_t i = 0; i < count; ++i) {
        const double dx = points[i].x - mx;
        const double dy = points[i].y - my;
        sxx += dx * dx;
        syy += dy * dy;
        sxy += dx * dy;
    }
    if (sxx >= syy) {
        const double a = sxx > 0.0 ? sxy / sxx : 0.0;
        coefficients[0] = a;
        coefficients[2] = my - a * mx;
        return;
    }
    // x = k * y + m, turned into y = x / k - m / k.
    const double k = sxy / syy;
    const double m = mx - k * my;
    if (std::fabs(k) * kVerticalSlope < 1.0) {
        coefficients[0] = kVerticalSlope;
        coefficients[2] = -kVerticalSlope * m;
    } else {
        coefficients[0] = 1.0 / k;
        coefficients[2] = -m / k;
    }
}

void ExtremePointsAlongLine(const tem_Point* points, int32_t count, double a, tem_Point* first,
                            tem_Point* last) {
    const bool alongX = std::fabs(a) <= 1.0;
    tem_Point lo{kExtremeSentinel, kExtremeSentinel};
    tem_Point hi{-kExtremeSentinel, -kExtremeSentinel};
    for (int32_t i = 0; points && i < count; ++i) {
        if (AxisKey(points[i], alongX) < AxisKey(lo, alongX)) lo = points[i];
        if (AxisKey(points[i], alongX) > AxisKey(hi, alongX)) hi = points[i];
    }
    if (first) *first = lo;
    if (last) *last = hi;
}

bool SetLineWithEndPoints(tem_Line* line, const double coefficients[3], tem_Point first,
                          tem_Point last) {
    if (!line || !coefficients) return false;
    tem_PointSet* created = nullptr;
    if (!line->points) {
        created = CreatPointSet();
        if (!created) return false;
        line->points = created;
    }
    const tem_Point ends[2] = {first, last};
    if (!SetPointSetPoints(line->points, ends, 2)) {
        if (created) {
            DeletePointSet(created);
            line->points = nullptr;
        }
        return false;
    }
    line->a = coefficients[0];
    line->b = coefficients[1];
    line->c = coefficients[2];
    return true;
}

MergeGroups::MergeGroups(const temp_LineSet* set) {
    if (!set) return;
    lines.reserve(static_cast<size_t>(std::max(set->count, 0)));
    for (tem_Line* l = set->head; l; l = l->next) lines.push_back(l);
    labels.resize(lines.size());
    std::iota(labels.begin(), labels.end(), 0);
}

void MergeGroups::DeleteMerged(temp_LineSet* set) const {
    for (int32_t k = size() - 1; k >= 0; --k)
        if (labels[k] != k) DeleteLineFromSet(set, lines[k]);
}

bool RefitLineThroughPoints(tem_Line* line, const tem_Point* points, int32_t count) {
    double k[3];
    CalLineOnPointSet(points, count, k);
    tem_Point first, last;
    ExtremePointsAlongLine(points, count, k[0], &first, &last);
    return SetLineWithEndPoints(line, k, first, last);
}
