// Corner order of a candidate and its score.
//
// A candidate is two lines of one kind and two of the other. Each pair is
// ordered by the side test: the second line's end points must both lie on
// the positive side of the first (below a flat line, right of a steep one),
// else the pair swaps, and a pair that straddles is no candidate. Corners run
// top-left, bottom-left, bottom-right, top-right.
//
// The score says how much the candidate looks like a sheet on a background:
//   E  edge similarity: the weakest border's colour step over the average;
//   F  fill: how much of the four sides is covered by the found lines;
//   S  shape: mean corner deviation from a right angle (degrees);
//   I  inner energy: spread of the colours just inside the borders;
//   O  outer energy: distance of the inside colours from the outside mean;
//   C  colour change: mean colour step across the borders.
// score = E + F + (1 - S / 90) [+ (1 - I / (I + O)) + C / 255 when C and O
// were computable]. Energies that cannot be computed read 0xFFFFFF; the
// outer energy then returns 1 so that the short form is not forced by it
// alone. The edge similarity leaves 3c + 1 in the stored colour energy.
// Side statistics come from copies of the border lines cut to the corners
// (the "full" lines), made and freed around the scoring.
#include <cmath>
#include <cstdlib>

#include "vision/detect/quad_internal.h"

namespace {

// Orders the pair (l0, l1): 1 when l0 comes first, -1 when l1 does, 0 when
// the pair is rejected.
int OrderPair(const tem_Line* l0, const tem_Line* l1) {
    if (!l0 || !l1 || IsHorizontalLine(*l0) != IsHorizontalLine(*l1)) return 0;
    tem_Point e1, e2;
    GetLineEndPoint(l1, &e1, &e2);
    const int r1 = PointRelationshipWithLine(l0, e1.x, e1.y);
    const int r2 = PointRelationshipWithLine(l0, e2.x, e2.y);
    if (r1 == 1 && r2 == 1) return 1;
    if (r1 == -1 && r2 == -1) return -1;
    return 0;
}

// first / second of (l0, l1), third / fourth of (l2, l3) and the corners.
bool OrderQuad(const tem_Line* l0, const tem_Line* l1, const tem_Line* l2, const tem_Line* l3,
               const tem_Line* ordered[4], tem_Point corners[4]) {
    if (!l0 || !l1 || !l2 || !l3) return false;
    if (IsHorizontalLine(*l0) == IsHorizontalLine(*l2)) return false;
    const int o1 = OrderPair(l0, l1);
    const int o2 = OrderPair(l2, l3);
    if (o1 == 0 || o2 == 0) return false;
    ordered[0] = o1 > 0 ? l0 : l1;
    ordered[1] = o1 > 0 ? l1 : l0;
    ordered[2] = o2 > 0 ? l2 : l3;
    ordered[3] = o2 > 0 ? l3 : l2;
    tem_Point c[4];
    if (!GetIntersectionPoint(ordered[0], ordered[2], &c[0]) ||
        !GetIntersectionPoint(ordered[1], ordered[2], &c[1]) ||
        !GetIntersectionPoint(ordered[1], ordered[3], &c[2]) ||
        !GetIntersectionPoint(ordered[0], ordered[3], &c[3]))
        return false;
    for (int i = 0; i < 4; ++i) corners[i] = c[i];
    return true;
}

tem_Line* MakeFullLine(const tagNoteDetector* detector, const tem_Line* border, tem_Point p,
                       tem_Point q) {
    if (!border) return nullptr;
    tem_Line* copy = CreateLine();
    if (!copy) return nullptr;
    *copy = *border;
    copy->next = nullptr;
    copy->points = CreatPointSet();  // the border's own points stay with the border
    const tem_Point pts[2] = {p, q};
    if (!copy->points || !SetPointSetPoints(copy->points, pts, 2)) {
        DeleteLine(copy);
        return nullptr;
    }
    QvVP_CalculateAver16(detector, copy);
    return copy;
}

// Inner group of each border: B of left and top, A of right and bottom.
void InnerOuter(const tagQuadrangle* quad, const tem_SideStats* inner[4],
                const tem_SideStats* outer[4]) {
    const tem_Line* lines[4] = {quad->fullLeft, quad->fullTop, quad->fullRight, quad->fullBottom};
    for (int i = 0; i < 4; ++i) {
        inner[i] = outer[i] = nullptr;
        if (!lines[i]) continue;
        const bool innerIsB = i < 2;
        inner[i] = innerIsB ? &lines[i]->sideB : &lines[i]->sideA;
        outer[i] = innerIsB ? &lines[i]->sideA : &lines[i]->sideB;
    }
}

// Per-channel integer mean over the valid groups; returns their number.
int32_t ValidMean(const tem_SideStats* const groups[4], int64_t mean[3]) {
    int32_t n = 0;
    int64_t sum[3] = {0, 0, 0};
    for (int k = 0; k < 4; ++k) {
        if (!groups[k] || !groups[k]->valid) continue;
        ++n;
        for (int c = 0; c < 3; ++c) sum[c] += groups[k]->value[c];
    }
    for (int c = 0; c < 3; ++c) mean[c] = n > 0 ? sum[c] / n : 0;
    return n;
}

// Mean L1 distance of the valid groups from `mean` (integer division), or
// -1 when no group is valid.
int32_t SpreadAbout(const tem_SideStats* const groups[4], const int64_t mean[3]) {
    int32_t n = 0;
    int64_t energy = 0;
    for (int k = 0; k < 4; ++k) {
        if (!groups[k] || !groups[k]->valid) continue;
        ++n;
        for (int c = 0; c < 3; ++c) energy += std::llabs(groups[k]->value[c] - mean[c]);
    }
    return n > 0 ? static_cast<int32_t>(energy / n) : -1;
}

int32_t DiffSum(const tem_SideStats& d) {
    return std::abs(d.value[0]) + std::abs(d.value[1]) + std::abs(d.value[2]);
}

// Whole-degree direction of p -> q (90 when vertical).
int32_t SideAngle(tem_Point p, tem_Point q) {
    const double dx = static_cast<double>(q.x) - p.x;
    const double dy = static_cast<double>(q.y) - p.y;
    if (dx == 0.0) return 90;
    return static_cast<int32_t>(std::atan(dy / dx) * 180.0 / kGeometryPi);
}

}  // namespace

int GetSequenceVertxt(const tem_Line* l0, const tem_Line* l1, const tem_Line* l2,
                      const tem_Line* l3, tem_Point corners[4]) {
    const tem_Line* ordered[4];
    tem_Point c[4];
    if (!corners || !OrderQuad(l0, l1, l2, l3, ordered, c)) return 0;
    for (int i = 0; i < 4; ++i) corners[i] = c[i];
    return 1;
}

int FillQuadrangle(tem_Line* l0, tem_Line* l1, tem_Line* l2, tem_Line* l3, tagQuadrangle* quad) {
    if (!quad) return 0;
    const tem_Line* ordered[4];
    tem_Point c[4];
    if (!OrderQuad(l0, l1, l2, l3, ordered, c)) {
        quad->legal = 0;
        return 0;
    }
    quad->top = const_cast<tem_Line*>(ordered[0]);
    quad->bottom = const_cast<tem_Line*>(ordered[1]);
    quad->left = const_cast<tem_Line*>(ordered[2]);
    quad->right = const_cast<tem_Line*>(ordered[3]);
    for (int i = 0; i < 4; ++i) quad->corners[i] = c[i];
    quad->area = static_cast<int32_t>(QuadrangleArea(c));
    quad->lenTop = PointDistance(c[0], c[3]);
    quad->lenBottom = PointDistance(c[1], c[2]);
    quad->lenLeft = PointDistance(c[0], c[1]);
    quad->lenRight = PointDistance(c[3], c[2]);
    quad->legal = JudgeLeaglueQuadrangle3(c);
    return quad->legal;
}

int QvVP_CreateFullQaudLine(const tagNoteDetector* detector, tagQuadrangle* quad) {
    if (!quad) return 0;
    QvVP_DeleteFullQaudLine(quad);
    const tem_Point* p = quad->corners;
    quad->fullLeft = MakeFullLine(detector, quad->left, p[0], p[1]);
    quad->fullRight = MakeFullLine(detector, quad->right, p[3], p[2]);
    quad->fullTop = MakeFullLine(detector, quad->top, p[0], p[3]);
    quad->fullBottom = MakeFullLine(detector, quad->bottom, p[1], p[2]);
    return quad->fullLeft && quad->fullRight && quad->fullTop && quad->fullBottom ? 1 : 0;
}

void QvVP_DeleteFullQaudLine(tagQuadrangle* quad) {
    if (!quad) return;
    DeleteLine(quad->fullLeft);
    DeleteLine(quad->fullRight);
    DeleteLine(quad->fullTop);
    DeleteLine(quad->fullBottom);
    quad->fullLeft = quad->fullRight = quad->fullTop = quad->fullBottom = nullptr;
}

int32_t QvVP_GetInnerEnergy(tagQuadrangle* quad) {
    const tem_SideStats *inner[4], *outer[4];
    InnerOuter(quad, inner, outer);
    int64_t mean[3];
    if (ValidMean(inner, mean) == 0) return quad->innerEnergy = kNoEnergy;
    return quad->innerEnergy = SpreadAbout(inner, mean);
}

int32_t QvVP_GetOuterEnergy(tagQuadrangle* quad) {
    const tem_SideStats *inner[4], *outer[4];
    InnerOuter(quad, inner, outer);
    int64_t mean[3];
    if (ValidMean(outer, mean) == 0) {
        quad->outerEnergy = kNoEnergy;
        return 1;
    }
    const int32_t energy = SpreadAbout(inner, mean);
    return quad->outerEnergy = energy < 0 ? kNoEnergy : energy;
}

int32_t QvVP_GetColorChangeEnergy(tagQuadrangle* quad) {
    const tem_Line* lines[4] = {quad->fullLeft, quad->fullTop, quad->fullRight, quad->fullBottom};
    int32_t n = 0, s[3] = {0, 0, 0};
    for (const tem_Line* l : lines) {
        if (!l || !l->sideDiff.valid) continue;
        ++n;
        for (int c = 0; c < 3; ++c) s[c] += std::abs(l->sideDiff.value[c]);
    }
    if (n == 0) return quad->colourEnergy = kNoEnergy;
    return quad->colourEnergy = (s[0] / n + s[1] / n + s[2] / n) / 3;
}

double QvVP_GetEdgeSimilarEnergy(tagQuadrangle* quad) {
    if (quad->colourEnergy == kNoEnergy) return 1.0;
    const tem_Line* lines[4] = {quad->fullLeft, quad->fullTop, quad->fullRight, quad->fullBottom};
    int32_t m = kNoEnergy;
    for (const tem_Line* l : lines) {
        if (!l || !l->sideDiff.valid) continue;
        const int32_t d = DiffSum(l->sideDiff);
        if (d < m) m = d;
    }
    quad->colourEnergy = 3 * quad->colourEnergy + 1;
    return static_cast<double>(m) / quad->colourEnergy;
}

int32_t QvVP_GetEdgeShapeEnergy(tagQuadrangle* quad) {
    const tem_Point* p = quad->corners;
    const int32_t a0 = SideAngle(p[3], p[0]);
    const int32_t a1 = SideAngle(p[0], p[1]);
    const int32_t a2 = SideAngle(p[1], p[2]);
    const int32_t a3 = SideAngle(p[2], p[3]);
    const int32_t sum = std::abs(std::abs(a1 - a0) - 90) + std::abs(std::abs(a2 - a1) - 90) +
                        std::abs(std::abs(a3 - a2) - 90) + std::abs(std::abs(a0 - a3) - 90);
    return quad->shapeEnergy = sum >> 2;
}

double QvVP_GetEdgeFillEnergy2(tagQuadrangle* quad, VpSize size) {
    const tem_Point* p = quad->corners;
    quad->lenLeft = PointDistance(p[0], p[1]);
    quad->lenRight = PointDistance(p[3], p[2]);
    quad->lenTop = PointDistance(p[0], p[3]);
    quad->lenBottom = PointDistance(p[1], p[2]);
    const double cl = GetLengthBetween2LineWithSize(quad->left, quad->top, quad->bottom, size);
    const double cr = GetLengthBetween2LineWithSize(quad->right, quad->top, quad->bottom, size);
    const double ct = GetLengthBetween2LineWithSize(quad->top, quad->left, quad->right, size);
    const double cb = GetLengthBetween2LineWithSize(quad->bottom, quad->left, quad->right, size);
    auto ratio = [](double covered, double len) { return len > 0.0 ? covered / len : 0.0; };
    quad->fillLeft = ratio(cl, quad->lenLeft);
    quad->fillRight = ratio(cr, quad->lenRight);
    quad->fillTop = ratio(ct, quad->lenTop);
    quad->fillBottom = ratio(cb, quad->lenBottom);
    const double covered = cl + cr + ct + cb;
    const double perimeter = quad->lenLeft + quad->lenRight + quad->lenTop + quad->lenBottom;
    quad->foundLength = static_cast<int32_t>(covered);
    quad->perimeter = static_cast<int32_t>(perimeter);
    double fill = perimeter > 0.0 ? covered / perimeter : 0.0;
    if (fill > 1.0) fill = 1.0;
    return quad->fill = fill;
}

int QvVP_SimilarityOfQuad(const tagNoteDetector* detector, tagQuadrangle* quad) {
    if (!quad) return 0;
    QvVP_CreateFullQaudLine(detector, quad);
    const double inner = QvVP_GetInnerEnergy(quad);
    const double outer = QvVP_GetOuterEnergy(quad);
    const int32_t colour = QvVP_GetColorChangeEnergy(quad);
    const double similar = QvVP_GetEdgeSimilarEnergy(quad);
    const double shape = QvVP_GetEdgeShapeEnergy(quad);
    const VpSize size{detector ? detector->width : 0, detector ? detector->height : 0};
    const double fill = QvVP_GetEdgeFillEnergy2(quad, size);
    double score = fill + (1.0 - shape / 90.0);
    score += similar;
    if (colour != kNoEnergy && outer != kNoEnergy)
        score += (1.0 - inner / (inner + outer)) + colour / 255.0;
    quad->score = score;
    QvVP_DeleteFullQaudLine(quad);
    return 1;
}
