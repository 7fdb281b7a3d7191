// Length filter of the line sets (DeleteShortLine) and the final tidy-up of
// both sets (QvVP_AdjustAllLine): two ordered end points per line, its set's
// orientation, length, angle, cleared filter counters and side statistics.
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "vision/detect/detector_internal.h"
#include "vision/detect/line_merge_internal.h"

namespace {

// Reduces a line's points to the extremes along one axis. Among points that
// share an extreme coordinate the one closest to the line wins (the first of
// equals); should all points share it, the extremes along the other axis are
// taken instead so that two distinct points remain.
void CombineAllPoints(tem_Line* line, bool alongX) {
    if (!line || !line->points || !line->points->points || line->points->count < 2) return;
    const tem_Point* pts = line->points->points;
    const int32_t count = line->points->count;
    auto key = [alongX](tem_Point p) { return AxisKey(p, alongX); };
    auto offLine = [line, alongX](tem_Point p) {
        if (alongX) return std::fabs(p.y - (line->a * p.x + line->c));
        return line->a != 0.0 ? std::fabs(p.x - (p.y - line->c) / line->a) : 0.0;
    };
    int32_t lo = 0, hi = 0;
    for (int32_t i = 1; i < count; ++i) {
        const int32_t k = key(pts[i]);
        if (k < key(pts[lo]) || (k == key(pts[lo]) && offLine(pts[i]) < offLine(pts[lo]))) lo = i;
        if (k > key(pts[hi]) || (k == key(pts[hi]) && offLine(pts[i]) < offLine(pts[hi]))) hi = i;
    }
    if (key(pts[lo]) == key(pts[hi])) {
        tem_Point first, last;
        AxisEnds(line, !alongX, &first, &last);
        const tem_Point ends[2] = {first, last};
        SetPointSetPoints(line->points, ends, 2);
        return;
    }
    const tem_Point ends[2] = {pts[lo], pts[hi]};
    SetPointSetPoints(line->points, ends, 2);
}

void AdjustLine(const tagNoteDetector* detector, tem_Line* line, bool horizontal) {
    tem_PointSet* set = line->points;
    if (set && set->points && set->count > 2) {
        if (horizontal)
            QvVP_CombineAllPointX(line);
        else
            QvVP_CombineAllPointY(line);
    } else if (set && set->points && set->count == 2) {
        tem_Point& p = set->points[0];
        tem_Point& q = set->points[1];
        if (horizontal ? p.x > q.x : p.y > q.y) std::swap(p, q);
    }
    line->orientation = horizontal ? 0 : 1;
    line->length = 0;
    line->angle = 0;
    if (set && set->points && set->count >= 2) {
        const tem_Point p = set->points[0], q = set->points[1];
        line->length = static_cast<int32_t>(PointDistance(p, q));
        const double dx = static_cast<double>(q.x) - p.x;
        const double dy = static_cast<double>(q.y) - p.y;
        line->angle =
            dx == 0.0 ? 90 : static_cast<int32_t>(std::atan(dy / dx) * 180.0 / kGeometryPi);
    }
    line->filterCount[0] = 0;
    line->filterCount[1] = 0;
    QvVP_CalculateAver8(detector, line);
}

}  // namespace

void QvVP_CombineAllPointX(tem_Line* line) {
    CombineAllPoints(line, true);
}

void QvVP_CombineAllPointY(tem_Line* line) {
    CombineAllPoints(line, false);
}

void DeleteShortLine(const cv::Mat& edges, temp_LineSet* set, double minLength) {
    (void)edges;
    if (!set || !set->head) return;
    std::vector<tem_Line*> lines;
    lines.reserve(static_cast<size_t>(set->count));
    for (tem_Line* l = set->head; l; l = l->next) lines.push_back(l);
    for (size_t k = lines.size(); k-- > 0;) {
        tem_Point p, q;
        GetLineEndPoint(lines[k], &p, &q);
        if (!(PointDistance(p, q) > minLength)) DeleteLineFromSet(set, lines[k]);
    }
}

void QvVP_AdjustAllLine(const tagNoteDetector* detector, temp_LineSet* horizontal,
                        temp_LineSet* vertical) {
    if (horizontal)
        for (tem_Line* l = horizontal->head; l; l = l->next) AdjustLine(detector, l, true);
    if (vertical)
        for (tem_Line* l = vertical->head; l; l = l->next) AdjustLine(detector, l, false);
}
