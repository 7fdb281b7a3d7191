// Lengthening of lines along the edge map (ExtendLineSetOnEdge,
// ExtendLineOnEdge), so that pieces of a border that Hough cut short reach
// each other (and the corners) before the next merge.
//
// From each end the walk steps outward one pixel along the line's main axis
// (x for a flat line, y for a steep one); the other coordinate comes from
// the line's own equation, rounded, and the pixel there and those up to two
// pixels either side of it across the main axis are read. Any of them at 50
// or more supports the step. Up to four missed steps in a row are tolerated
// (breaks left by the dilation and rescaling of the map); the fifth ends the
// walk, as does leaving the image. The end moves to the last supported step,
// on the line, so a line is never shortened and its coefficients stay as
// they are. The line is not re-centred on the edge it follows: a border that
// bends away stops the walk instead of dragging the line off its fit.
#include <cmath>
#include <cstdint>

#include "vision/detect/detector_internal.h"
#include "vision/detect/line_merge_internal.h"

namespace {

constexpr int kCrossReach = 2;  // pixels either side of the line
constexpr int kMaxMissRun = 4;  // missed steps tolerated in a row

struct Walker {
    const cv::Mat& edges;
    bool alongX;
    double a, c;
    int32_t mainLimit;   // image extent along the main axis
    int32_t crossLimit;  // and across it

    // The rounded cross coordinate at a main coordinate; false off the image.
    bool Cross(int32_t main, int32_t* cross) const {
        const double v = alongX ? a * main + c : (main - c) / a;
        if (!(v >= -0.5 && v < crossLimit - 0.5)) return false;
        *cross = static_cast<int32_t>(std::floor(v + 0.5));
        return true;
    }

    bool Supported(int32_t main, int32_t cross) const {
        for (int32_t o = -kCrossReach; o <= kCrossReach; ++o) {
            const int32_t k = cross + o;
            if (k < 0 || k >= crossLimit) continue;
            const uchar v = alongX ? edges.ptr<uchar>(k)[main] : edges.ptr<uchar>(main)[k];
            if (v >= kEdgeHitLevel) return true;
        }
        return false;
    }

    // The farthest supported main coordinate beyond `start` in direction
    // `step`, or `start` when the edge does not continue.
    int32_t Walk(int32_t start, int32_t step) const {
        int32_t reached = start;
        int run = 0;
        for (int32_t m = start + step; m >= 0 && m < mainLimit; m += step) {
            int32_t cross;
            if (!Cross(m, &cross)) break;
            if (Supported(m, cross)) {
                reached = m;
                run = 0;
            } else if (++run > kMaxMissRun) {
                break;
            }
        }
        return reached;
    }

    tem_Point At(int32_t main) const {
        int32_t cross = 0;
        Cross(main, &cross);
        return alongX ? tem_Point{main, cross} : tem_Point{cross, main};
    }
};

}  // namespace

void ExtendLineOnEdge(const cv::Mat& edges, tem_Line* line) {
    if (!line || !line->points || !line->points->points || line->points->count < 2) return;
    if (edges.empty() || edges.type() != CV_8UC1) return;
    const bool alongX = std::fabs(line->a) <= 1.0;
    if (!alongX && line->a == 0.0) return;
    tem_Point* pts = line->points->points;
    const int32_t count = line->points->count;
    int32_t lo = 0, hi = 0;
    for (int32_t i = 1; i < count; ++i) {
        const int32_t key = AxisKey(pts[i], alongX);
        if (key < AxisKey(pts[lo], alongX)) lo = i;
        if (key > AxisKey(pts[hi], alongX)) hi = i;
    }
    const int32_t loKey = AxisKey(pts[lo], alongX);
    const int32_t hiKey = AxisKey(pts[hi], alongX);
    if (loKey == hiKey) return;

    const Walker walker{edges,
                        alongX,
                        line->a,
                        line->c,
                        alongX ? edges.cols : edges.rows,
                        alongX ? edges.rows : edges.cols};
    const int32_t newLo = walker.Walk(loKey, -1);
    const int32_t newHi = walker.Walk(hiKey, 1);
    if (newLo < loKey) pts[lo] = walker.At(newLo);
    if (newHi > hiKey) pts[hi] = walker.At(newHi);
}

void ExtendLineSetOnEdge(const cv::Mat& edges, temp_LineSet* set) {
    if (!set) return;
    for (tem_Line* line = set->head; line; line = line->next) ExtendLineOnEdge(edges, line);
}
