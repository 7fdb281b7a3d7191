// Helpers shared by the line filters and merges (line_merge*.cpp,
// line_extend.cpp, line_adjust.cpp), exposed for their tests.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/detect/geometry.h"

// Edge map pixels at or above this value count as edge (the map is 0/255).
constexpr int kEdgeHitLevel = 50;

// A point's coordinate along one axis (x when alongX, else y).
inline int32_t AxisKey(tem_Point p, bool alongX) {
    return alongX ? p.x : p.y;
}

// The unbounded line through two points, as a value (CalLine coefficients,
// no point set): for crossing tests against gaps.
inline tem_Line LineThrough(tem_Point p, tem_Point q) {
    tem_Line line{};
    double k[3];
    CalLine(p, q, k);
    line.a = k[0];
    line.b = k[1];
    line.c = k[2];
    return line;
}

// The points of smallest and largest key along one axis (x when alongX, else
// y) among a line's points; the first of equal keys wins. False when the line
// has no points.
bool AxisEnds(const tem_Line* line, bool alongX, tem_Point* lo, tem_Point* hi);

// Facing end points of two segments whose extents along the axis are
// disjoint: `from` is the upper end of the earlier segment, `to` the lower
// end of the later one, `fromFirst` whether the earlier segment is l1. False
// when the extents touch or overlap (or a line has no points).
bool FacingEnds(const tem_Line* l1, const tem_Line* l2, bool alongX, tem_Point* from, tem_Point* to,
                bool* fromFirst);

// Least-squares line through a point set ("CalLine on a point set"), in the
// coefficient form of CalLine (b = -1). The regression runs along the axis
// of the larger spread: y on x for flat sets, x on y for steep ones, so a
// vertical run of points gets the stand-in slope 10000 like CalLine. Fewer
// than two distinct points give the horizontal line through their mean.
void CalLineOnPointSet(const tem_Point* points, int32_t count, double coefficients[3]);

// The extreme points of a set along the main axis of the line with slope a
// (x for |a| <= 1, else y), starting from the sentinels 1000000 / -1000000.
void ExtremePointsAlongLine(const tem_Point* points, int32_t count, double a, tem_Point* first,
                            tem_Point* last);

// Gives a line new coefficients and exactly the two points first, last.
// False (line unchanged) when memory is short.
bool SetLineWithEndPoints(tem_Line* line, const double coefficients[3], tem_Point first,
                          tem_Point last);

// Replaces a line by the least-squares line through the points, ending at
// their extreme points along its main axis: how merged pieces become one
// line. False (line unchanged) when memory is short.
bool RefitLineThroughPoints(tem_Line* line, const tem_Point* points, int32_t count);

// The lines of a set in order and a group label per line (its own index at
// first): the working state of the merging passes.
struct MergeGroups {
    std::vector<tem_Line*> lines;
    std::vector<int32_t> labels;
    explicit MergeGroups(const temp_LineSet* set);
    int32_t size() const { return static_cast<int32_t>(lines.size()); }
    // Deletes, from the last index down, every line whose label is not its
    // own index (merged into another or removed).
    void DeleteMerged(temp_LineSet* set) const;
};

// Pairwise test and join of the second, wider merge (CombineSimiliarLine5).
bool IfTwoLineCombineTogether5(const tem_Line* l1, const tem_Line* l2, const temp_LineSet* otherSet,
                               int width, int height);
bool Combine2Nearest2Line(tem_Line* into, const tem_Line* other);

// Reduce a line's points to the two extremes along x (QvVP_CombineAllPointX)
// or y (QvVP_CombineAllPointY), in increasing order; among points sharing an
// extreme coordinate the one nearest the line wins.
void QvVP_CombineAllPointX(tem_Line* line);
void QvVP_CombineAllPointY(tem_Line* line);
