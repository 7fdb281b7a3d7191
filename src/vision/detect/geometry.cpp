// Geometric primitives of the page detector: lines, intersections, side
// tests, lengths, areas, angles and the quadrangle convexity tests: the
// area rule on integer corners (the detector's legality test and, with the
// engine's crossing test added, the engine's) and strict convexity on double
// corners (the page search and the evaluation tools).
//
// Lines are y = a*x + c, stored as a*x + b*y + c = 0 with b = -1; a vertical
// pair of points gets the stand-in slope 10000 (c = -10000*x), so a
// "vertical" line leans by 1/10000 pixel per row. Coordinates are integer
// pixels, coefficients doubles. The fixed conventions (truncation toward zero
// of intersections, the one-pixel side tolerance, the 0.0001 parallel
// tolerance, pi = 3.1415926 in degree conversions, the 20 square pixel
// convexity tolerance) decide downstream thresholds, so they are kept exactly.
//
// Guards against degenerate input, none of which the detector produces:
// - Conversions of doubles to int32 saturate (NaN gives 0), so an almost
//   parallel pair cannot overflow; non-finite coefficients give no
//   intersection.
// - Heron's product can come out a hair below zero for collinear points
//   through rounding; such a triangle has area 0 instead of NaN.
// - When 1 + a1*a2 is exactly 0 the lines are perpendicular and both angle
//   functions return exactly 90. (IEEE atan(+-inf) would give +-pi/2, which
//   the 3.1415926 conversion turns into 90.000003, or 89.999997 after
//   adding 180 to the negative one: not what a right angle should read.)
// - LineLength sums the squares with int32 wrap-around, computed in uint32 so
//   the wrap is defined; a line without points has length 0.
//
// GetLengthBetween2LineWithSize measures the part of a line that is at once
// between its two crossing lines, on its own segment and inside the image.
// It works along the line's principal axis (x for a horizontal line, y for a
// vertical one), where each condition is an interval:
//   1. the crossings: the principal coordinates of GetIntersectionPoint with
//      cross1 and cross2 (so they agree with the truncated corners);
//   2. the segment: the principal coordinates of GetLineEndPoint;
//   3. the image: the principal coordinate in [0, extent - 1], and the other
//      coordinate, taken from the line equation, in [-1, extent] (one pixel of
//      tolerance, like the side test, so that the 1/10000 lean of a vertical
//      line on the last column does not cut it off).
// The overlap [lo, hi] is measured along the line: (hi - lo) * sqrt(1 + a^2)
// for a horizontal line, (hi - lo) * sqrt(1 + 1/a^2) for a vertical one. The
// result is 0 when the overlap is empty, a crossing line is parallel, the
// line has no points or the size is not positive.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "vision/detect/geometry.h"

namespace {

constexpr double kParallelTolerance = 0.0001;
constexpr double kSideTolerance = 1.0;
constexpr double kConvexTolerance = 20.0;
constexpr int32_t kSentinel = 99999999;

// Truncation toward zero into int32, saturating instead of overflowing.
int32_t TruncToInt32(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<int32_t>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}

double ToDegrees(double radians) {
    return radians * 180.0 / kGeometryPi;
}

double Heron(double a, double b, double c) {
    const double s = (a + b + c) / 2.0;
    const double product = s * (s - a) * (s - b) * (s - c);
    return product > 0.0 ? std::sqrt(product) : 0.0;
}

struct Interval {
    double lo;
    double hi;
};

Interval Ordered(double p, double q) {
    return p <= q ? Interval{p, q} : Interval{q, p};
}

}  // namespace

void CalLine(tem_Point p1, tem_Point p2, double coefficients[3]) {
    if (!coefficients) return;
    double a, c;
    if (p1.x != p2.x) {
        a = (static_cast<double>(p1.y) - p2.y) / (static_cast<double>(p1.x) - p2.x);
        c = p1.y - a * p1.x;
    } else {
        a = kVerticalSlope;
        c = -kVerticalSlope * p1.x;
    }
    coefficients[0] = a;
    coefficients[1] = -1.0;
    coefficients[2] = c;
}

int GetIntersectionPoint(const tem_Line* l1, const tem_Line* l2, tem_Point* out) {
    if (!l1 || !l2 || !out) return 0;
    const double da = l1->a - l2->a;
    if (!(std::fabs(da) > kParallelTolerance)) return 0;  // parallel, or NaN
    const double xr = (l2->c - l1->c) / da;
    if (!std::isfinite(xr)) return 0;
    const int32_t x = TruncToInt32(xr);
    // The flatter line gives y: its value moves least with the truncation of x.
    const double y = std::fabs(l1->a) < std::fabs(l2->a) ? l1->c + l1->a * x : l2->c + l2->a * x;
    out->x = x;
    out->y = TruncToInt32(y);
    return 1;
}

int PointRelationshipWithLine(const tem_Line* line, int32_t x, int32_t y) {
    if (!line) return 0;
    const double d =
        IsHorizontalLine(*line) ? y - (line->c + line->a * x) : x - (y - line->c) / line->a;
    if (d > kSideTolerance) return 1;
    if (d < -kSideTolerance) return -1;
    return 0;
}

double Dot2LineDistance(const tem_Line* line, tem_Point p) {
    if (!line) return 0.0;
    const double norm = std::sqrt(line->a * line->a + line->b * line->b);
    if (norm == 0.0) return 0.0;  // a zeroed record is no line
    return std::fabs(line->a * p.x + line->b * p.y + line->c) / norm;
}

double PointDistance(tem_Point p, tem_Point q) {
    const double dx = static_cast<double>(p.x) - q.x;
    const double dy = static_cast<double>(p.y) - q.y;
    return std::sqrt(dx * dx + dy * dy);
}

void GetLineEndPoint(const tem_Line* line, tem_Point* first, tem_Point* second) {
    tem_Point lo{kSentinel, kSentinel};
    tem_Point hi{-kSentinel, -kSentinel};
    if (line && line->points && line->points->points) {
        const bool horizontal = IsHorizontalLine(*line);
        const tem_PointSet& set = *line->points;
        for (int32_t i = 0; i < set.count; ++i) {
            const tem_Point& p = set.points[i];
            const int32_t key = horizontal ? p.x : p.y;
            if (key < (horizontal ? lo.x : lo.y)) lo = p;
            if (key > (horizontal ? hi.x : hi.y)) hi = p;
        }
    }
    if (first) *first = lo;
    if (second) *second = hi;
}

double LineLength(const tem_Line* line) {
    if (!line || !line->points || !line->points->points || line->points->count <= 0) return 0.0;
    tem_Point p, q;
    GetLineEndPoint(line, &p, &q);
    const uint32_t dx = static_cast<uint32_t>(p.x) - static_cast<uint32_t>(q.x);
    const uint32_t dy = static_cast<uint32_t>(p.y) - static_cast<uint32_t>(q.y);
    const int32_t squared = static_cast<int32_t>(dx * dx + dy * dy);
    return std::sqrt(static_cast<double>(squared));
}

double TriangleArea(tem_Point p0, tem_Point p1, tem_Point p2) {
    return Heron(PointDistance(p0, p1), PointDistance(p1, p2), PointDistance(p2, p0));
}

double QuadrangleArea(const tem_Point corners[4]) {
    if (!corners) return 0.0;
    return TriangleArea(corners[0], corners[1], corners[2]) +
           TriangleArea(corners[0], corners[2], corners[3]);
}

double AngleLine2Line(const tem_Line* l1, const tem_Line* l2) {
    if (!l1 || !l2) return 0.0;
    const double den = 1.0 + l1->a * l2->a;
    if (den == 0.0) return 90.0;
    double angle = ToDegrees(std::atan((l1->a - l2->a) / den));
    if (angle < 0.0) angle += 180.0;
    return angle;
}

double AngleBetween2Line(const tem_Line* l1, const tem_Line* l2) {
    if (!l1 || !l2) return 0.0;
    const double den = 1.0 + l1->a * l2->a;
    if (den == 0.0) return 90.0;
    const double angle = ToDegrees(std::atan(std::fabs(l1->a - l2->a) / den));
    return angle < 0.0 ? -angle : angle;
}

int QuadrangleAreaRule(const tem_Point corners[4], double tolerance) {
    if (!corners) return 0;
    const double t1 = TriangleArea(corners[0], corners[1], corners[2]);
    const double t2 = TriangleArea(corners[0], corners[3], corners[2]);
    const double t3 = TriangleArea(corners[0], corners[1], corners[3]);
    const double t4 = TriangleArea(corners[2], corners[1], corners[3]);
    const double m = std::max(std::max(t1, t2), std::max(t3, t4));
    const bool sameSplit = std::fabs(t1 + t2 - t3 - t4) <= tolerance;
    const bool firstNotCovered = std::fabs(m - t1 - t2) >= tolerance;
    const bool secondNotCovered = std::fabs(m - t3 - t4) >= tolerance;
    return sameSplit && firstNotCovered && secondNotCovered ? 1 : 0;
}

bool IsStrictlyConvexQuad(const std::array<cv::Point2d, 4>& q) {
    int sign = 0;
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d& a = q[i];
        const cv::Point2d& b = q[(i + 1) % 4];
        const cv::Point2d& c = q[(i + 2) % 4];
        const double cross = (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
        const int s = cross > 0 ? 1 : (cross < 0 ? -1 : 0);
        if (s == 0 || (sign != 0 && s != sign)) return false;
        sign = s;
    }
    return true;
}

int JudgeLeaglueQuadrangle2(const tem_Point corners[4]) {
    return QuadrangleAreaRule(corners, kConvexTolerance);
}

int JudgeLeaglueQuadrangle3(const tem_Point corners[4]) {
    return QuadrangleAreaRule(corners, kConvexTolerance);
}

double GetLengthBetween2LineWithSize(const tem_Line* line, const tem_Line* cross1,
                                     const tem_Line* cross2, VpSize size) {
    if (!line || !cross1 || !cross2 || size.width <= 0 || size.height <= 0) return 0.0;
    if (!line->points || !line->points->points || line->points->count <= 0) return 0.0;
    const bool horizontal = IsHorizontalLine(*line);
    const double a = line->a;
    const double c = line->c;

    tem_Point i1, i2;
    if (!GetIntersectionPoint(line, cross1, &i1) || !GetIntersectionPoint(line, cross2, &i2))
        return 0.0;
    tem_Point e1, e2;
    GetLineEndPoint(line, &e1, &e2);

    Interval crossings, segment, image;
    const double maxX = size.width - 1.0;
    const double maxY = size.height - 1.0;
    if (horizontal) {
        crossings = Ordered(i1.x, i2.x);
        segment = Ordered(e1.x, e2.x);
        image = {0.0, maxX};
        // y = a*x + c must stay within [-1, height].
        const double yLo = -kSideTolerance, yHi = maxY + kSideTolerance;
        if (a == 0.0) {
            if (c < yLo || c > yHi) return 0.0;
        } else {
            const Interval bound = Ordered((yLo - c) / a, (yHi - c) / a);
            if (bound.lo > image.lo) image.lo = bound.lo;
            if (bound.hi < image.hi) image.hi = bound.hi;
        }
    } else {
        crossings = Ordered(i1.y, i2.y);
        segment = Ordered(e1.y, e2.y);
        image = {0.0, maxY};
        // x = (y - c) / a must stay within [-1, width], i.e. y within a*x + c.
        const Interval bound = Ordered(a * -kSideTolerance + c, a * (maxX + kSideTolerance) + c);
        if (bound.lo > image.lo) image.lo = bound.lo;
        if (bound.hi < image.hi) image.hi = bound.hi;
    }

    const double lo = std::fmax(crossings.lo, std::fmax(segment.lo, image.lo));
    const double hi = std::fmin(crossings.hi, std::fmin(segment.hi, image.hi));
    if (!(hi > lo)) return 0.0;
    const double stretch = horizontal ? std::sqrt(1.0 + a * a) : std::sqrt(1.0 + 1.0 / (a * a));
    return (hi - lo) * stretch;
}
