// Helpers of the four-line quadrangle searches.
//
// Designs of the open helpers (all lengths in work-image pixels):
// - Line2LineDistanceX2: mean of the distances of each line's two end points
//   to the other line (four distances), so a pair that converges in
//   perspective is measured where its segments actually are.
// - CoLength4: the overlap of the two segments along the first line's main
//   axis (x for a flat line, y for a steep one), measured along that line.
// - FindNearestHorEdge5_3: every flat line that crosses both verticals near
//   the image (2 % margin), covers at least 30 % of the stretch between the
//   crossings and has at least the contrast t (when its contrast is known)
//   is a top or bottom candidate, whichever end of the verticals its
//   crossings are nearer. Its cost is the mean distance of the crossings from
//   those vertical ends; costs beyond 35 % of the verticals' length (+ 20)
//   do not count. Of the cheapest and those within a few pixels of it the
//   outermost wins: a page's border is the outer one of near-equal choices
//   (printed rules and shadows lie inside).
// - FindThreeFullAngleQuardrangle: a corner is a "full angle" when both lines
//   end within a tolerance of their crossing. Top and bottom lines that give
//   three or four full angles with the pair are strong evidence of a page
//   even when they are not the nearest lines; up to two such candidates per
//   pair are added (four full angles first), each through the same tests as
//   the nearest-line candidate.
// - JudgeQuadragleByEdgeRatio: opposite sides differ at most 2.5 times (a
//   steeper perspective is no page photograph) and the short sides are at
//   least 12 % of the long ones (a receipt is narrow, but not a strip).
// - SetQuardrangleVertexType: a corner is on the border within a margin of
//   1 % of the image side (at least 3 pixels), outside beyond it. It also
//   counts the border lines that lie along the image frame (both ends within
//   0.6 % of the side, at least 3 pixels, of the same frame edge): the edge
//   cleaning traces the outline of patterns cut by the frame along it, so a
//   textured table yields straight lines there that bound no page.
// - QvVP_GetCorrectQuad: a candidate becomes illegal when
//   * its score is not a number, two or more corners lie outside, or one of
//     its border lines lies along the image frame;
//   * its outer energy (inside against outside) is below 40 % of the
//     strongest candidate's: quadrangles of a patterned cloth or of print
//     inside the page differ little from their surroundings, a page stands
//     out;
//   * it contains a smaller candidate that shares exactly two of its lines,
//     covers its sides better (fill higher by 0.08) and has corners at least
//     3 degrees closer to right angles: it borrowed a page's two sides and
//     closed them with lines of something turned against the page (a sheet
//     under it). The score cannot judge this, since the page's sides over
//     the sheet have little contrast and the borrowed borders look stronger;
//     without the angle, a page whose sides were found in part would lose to
//     a block of text lines inside it;
//   * it contains a candidate that shares three of its lines, and its two
//     sides that meet the fourth line are covered less than 70 % on average
//     (neither 80 %) while the
//     inner candidate's are covered at least 85 %: those sides run on past
//     the ends of their lines to a line beyond the page (wood grain, a cloth
//     stripe beside a narrow receipt). A page whose sides are all found, with
//     a printed rule inside it, keeps its well covered sides and stays.
//   Other nesting is left to the choice, which prefers the larger candidate.
// - DeleteQuadrangleByLine5: two candidates are duplicates when every corner
//   of one lies within 2 % (mode 0) or 3 % (mode 1) of the image diagonal of
//   the matching corner of the other, or when they share three border lines
//   and their areas differ by less than 15 %. Mode 0 keeps the higher score,
//   mode 1 the higher fill (then the score); a score that is not a number
//   always loses.
// - Quadrangle2InQuadrangle1: every corner of q2 lies inside q1 or within
//   1 % of the shorter image side (at least 2 pixels) of its sides.
// - Combine2Quadrangle2: for two candidates sharing border lines, take on
//   each side the line that covers more of its side; a new, legal,
//   right-angled combination is written to `out` with its fill.
// - CheckEffectQuadrangleWithLineEndPoint: a side is unsupported when its
//   line covers less than half of it and both its corners are farther than
//   max(20, 20 % of the side) from the line's nearest end; a choice with
//   three or four unsupported sides is no page.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "vision/detect/quad_internal.h"

namespace {

// Candidates whose inside differs from their outside by less than this share
// of the strongest candidate's difference are dropped.
constexpr double kWeakContrastShare = 0.4;
// Side coverage of a candidate that overruns a nested page, and of the page.
constexpr double kOverrunFill = 0.7;  // on average over the two sides
constexpr double kOverrunMaxFill = 0.8;
constexpr double kCoveredFill = 0.85;

double MainAxisStretch(const tem_Line* l) {
    return IsHorizontalLine(*l) ? std::sqrt(1.0 + l->a * l->a)
                                : std::sqrt(1.0 + 1.0 / (l->a * l->a));
}

bool NearImage(tem_Point p, int32_t w, int32_t h) {
    const double mx = 0.02 * w, my = 0.02 * h;
    return p.x >= -mx && p.x <= w + mx && p.y >= -my && p.y <= h + my;
}

double NearestEndDistance(const tem_Line* l, tem_Point p) {
    tem_Point e1, e2;
    GetLineEndPoint(l, &e1, &e2);
    return std::min(PointDistance(p, e1), PointDistance(p, e2));
}

// Signed doubled area of (a, b, p).
double Cross(tem_Point a, tem_Point b, tem_Point p) {
    return (static_cast<double>(b.x) - a.x) * (static_cast<double>(p.y) - a.y) -
           (static_cast<double>(b.y) - a.y) * (static_cast<double>(p.x) - a.x);
}

struct HorizontalChoice {
    tem_Line* line;
    double cost;
    double meanY;
};

}  // namespace

int QvVP_GetLineDiff(const tem_Line* line) {
    if (!line || !line->sideDiff.valid) return -1;
    return std::abs(line->sideDiff.value[0]) + std::abs(line->sideDiff.value[1]) +
           std::abs(line->sideDiff.value[2]);
}

int QvVP_GetThresholdOfDiff(const tem_Line* l1, const tem_Line* l2) {
    const int d1 = QvVP_GetLineDiff(l1), d2 = QvVP_GetLineDiff(l2);
    if (d1 == -1 && d2 == -1) return 0;
    int d;
    if (d1 == -1)
        d = d2;
    else if (d2 == -1)
        d = d1;
    else
        d = std::min(d1, d2);
    return std::min(d / 2, 7);
}

bool VerticalPairUsable(const tem_Line* vi, const tem_Line* vj, int32_t width, int32_t height) {
    tem_Point cross;
    if (GetIntersectionPoint(vi, vj, &cross) && cross.x >= 0 && cross.x < width && cross.y > 0 &&
        cross.y < height)
        return false;
    return Line2LineDistanceX2(vi, vj) >= 0.2 * width;
}

double Line2LineDistanceX2(const tem_Line* l1, const tem_Line* l2) {
    if (!l1 || !l2) return 0.0;
    tem_Point a1, a2, b1, b2;
    GetLineEndPoint(l1, &a1, &a2);
    GetLineEndPoint(l2, &b1, &b2);
    return (Dot2LineDistance(l2, a1) + Dot2LineDistance(l2, a2) + Dot2LineDistance(l1, b1) +
            Dot2LineDistance(l1, b2)) /
           4.0;
}

double CoLength4(const tem_Line* l1, const tem_Line* l2) {
    if (!l1 || !l2) return 0.0;
    tem_Point a1, a2, b1, b2;
    GetLineEndPoint(l1, &a1, &a2);
    GetLineEndPoint(l2, &b1, &b2);
    const bool flat = IsHorizontalLine(*l1);
    auto key = [flat](tem_Point p) { return static_cast<double>(flat ? p.x : p.y); };
    const double lo = std::max(std::min(key(a1), key(a2)), std::min(key(b1), key(b2)));
    const double hi = std::min(std::max(key(a1), key(a2)), std::max(key(b1), key(b2)));
    return hi > lo ? (hi - lo) * MainAxisStretch(l1) : 0.0;
}

int CheckQuadrangleEdgeRatio(const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                             const tem_Line* bottom) {
    tem_Point it{0, 0}, ib{0, 0}, jt{0, 0}, jb{0, 0};
    GetIntersectionPoint(vi, top, &it);
    GetIntersectionPoint(vi, bottom, &ib);
    GetIntersectionPoint(vj, top, &jt);
    GetIntersectionPoint(vj, bottom, &jb);
    const double sides[4] = {PointDistance(it, ib), PointDistance(jt, jb), PointDistance(it, jt),
                             PointDistance(ib, jb)};
    const tem_Line* lines[4] = {vi, vj, top, bottom};
    int shortLines = 0;
    for (int k = 0; k < 4; ++k) {
        tem_Point e1, e2;
        GetLineEndPoint(lines[k], &e1, &e2);
        if (PointDistance(e1, e2) < 0.2 * sides[k]) ++shortLines;
    }
    return shortLines < 2 ? 1 : 0;
}

int CheckQuadrangleAngle(const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                         const tem_Line* bottom) {
    if (!vi || !vj || !top || !bottom) return 0;
    tem_Point e1, e2;
    GetLineEndPoint(vj, &e1, &e2);
    const int rv1 = PointRelationshipWithLine(vi, e1.x, e1.y);
    const int rv2 = PointRelationshipWithLine(vi, e2.x, e2.y);
    GetLineEndPoint(bottom, &e1, &e2);
    const int rh1 = PointRelationshipWithLine(top, e1.x, e1.y);
    const int rh2 = PointRelationshipWithLine(top, e2.x, e2.y);
    if (rv1 != rv2 || rv1 == 0 || rh1 != rh2 || rh1 == 0) return 0;
    const tem_Line* vPlus = rv1 == 1 ? vj : vi;
    const tem_Line* vMinus = rv1 == 1 ? vi : vj;
    const tem_Line* hPlus = rh1 == 1 ? bottom : top;
    const tem_Line* hMinus = rh1 == 1 ? top : bottom;
    double angles[4];
    if (std::fabs(vi->a) >= 1.0) {
        angles[0] = AngleLine2Line(vMinus, hMinus);
        angles[1] = AngleLine2Line(hPlus, vMinus);
        angles[2] = AngleLine2Line(hMinus, vPlus);
        angles[3] = AngleLine2Line(vPlus, hPlus);
    } else {
        angles[0] = AngleLine2Line(hMinus, vMinus);
        angles[1] = AngleLine2Line(vPlus, hMinus);
        angles[2] = AngleLine2Line(vMinus, hPlus);
        angles[3] = AngleLine2Line(hPlus, vPlus);
    }
    for (double angle : angles)
        if (angle < 62.5 || angle > 125.0) return 0;
    return 1;
}

int TryAddQuadCandidate(QuadSearchContext* ctx, tem_Line* vi, tem_Line* vj, tem_Line* top,
                        tem_Line* bottom) {
    if (!ctx || !ctx->candidates || ctx->candidates->size() >= ctx->capacity) return 0;
    const int t2 = QvVP_GetThresholdOfDiff(top, bottom);
    const int di = QvVP_GetLineDiff(vi), dj = QvVP_GetLineDiff(vj);
    if ((di != -1 && t2 > di) || (dj != -1 && t2 > dj)) return 0;
    if (Line2LineDistanceX2(top, bottom) < 0.15 * ctx->height) return 0;
    if (CoLength4(top, bottom) < 100.0) return 0;
    if (!CheckQuadrangleAngle(vi, vj, top, bottom) ||
        !CheckQuadrangleEdgeRatio(vi, vj, top, bottom))
        return 0;
    tagQuadrangle quad{};
    if (!FillQuadrangle(top, bottom, vi, vj, &quad) || !JudgeQuadragleByEdgeRatio(&quad)) return 0;
    ctx->candidates->push_back(quad);
    return 1;
}

int FindThreeFullAngleQuardrangle(QuadSearchContext* ctx, const temp_LineSet* horizontal,
                                  tem_Line* vi, tem_Line* vj) {
    if (!ctx || !horizontal || !vi || !vj) return 0;
    const double tol = std::max(12.0, 0.04 * std::min(ctx->width, ctx->height));
    tem_Point ti, bi, tj, bj;
    GetLineEndPoint(vi, &ti, &bi);
    GetLineEndPoint(vj, &tj, &bj);
    struct Full {
        tem_Line* line;
        int count;
    };
    std::vector<Full> tops, bottoms;
    for (tem_Line* h = horizontal->head; h; h = h->next) {
        tem_Point ci, cj;
        if (!GetIntersectionPoint(h, vi, &ci) || !GetIntersectionPoint(h, vj, &cj)) continue;
        const bool nearTop = PointDistance(ci, ti) + PointDistance(cj, tj) <
                             PointDistance(ci, bi) + PointDistance(cj, bj);
        const int fullI =
            NearestEndDistance(h, ci) <= tol && PointDistance(ci, nearTop ? ti : bi) <= tol;
        const int fullJ =
            NearestEndDistance(h, cj) <= tol && PointDistance(cj, nearTop ? tj : bj) <= tol;
        if (fullI + fullJ == 0) continue;
        (nearTop ? tops : bottoms).push_back({h, fullI + fullJ});
    }
    int added = 0;
    for (int wanted = 4; wanted >= 3 && added < 2; --wanted) {
        for (const Full& t : tops) {
            for (const Full& b : bottoms) {
                if (added >= 2 || t.count + b.count != wanted) continue;
                added += TryAddQuadCandidate(ctx, vi, vj, t.line, b.line);
            }
        }
    }
    return added;
}

int FindNearestHorEdge5_3(const temp_LineSet* horizontal, const temp_LineSet* vertical, int t,
                          int32_t width, int32_t height, const tem_Line* vi, const tem_Line* vj,
                          tem_Line** top, tem_Line** bottom) {
    (void)vertical;
    if (!horizontal || !vi || !vj || !top || !bottom) return 0;
    *top = *bottom = nullptr;
    tem_Point ti, bi, tj, bj;
    GetLineEndPoint(vi, &ti, &bi);
    GetLineEndPoint(vj, &tj, &bj);
    const double meanLen = (PointDistance(ti, bi) + PointDistance(tj, bj)) / 2.0;
    const double maxCost = 0.35 * meanLen + 20.0;
    const VpSize size{width, height};
    std::vector<HorizontalChoice> tops, bottoms;
    for (tem_Line* h = horizontal->head; h; h = h->next) {
        tem_Point ci, cj;
        if (!GetIntersectionPoint(h, vi, &ci) || !GetIntersectionPoint(h, vj, &cj)) continue;
        if (!NearImage(ci, width, height) || !NearImage(cj, width, height)) continue;
        const int diff = QvVP_GetLineDiff(h);
        if (t > 0 && diff != -1 && diff < t) continue;
        const double span = PointDistance(ci, cj);
        if (span <= 0.0 || GetLengthBetween2LineWithSize(h, vi, vj, size) < 0.3 * span) continue;
        const double topCost = (PointDistance(ci, ti) + PointDistance(cj, tj)) / 2.0;
        const double bottomCost = (PointDistance(ci, bi) + PointDistance(cj, bj)) / 2.0;
        const double meanY = (ci.y + cj.y) / 2.0;
        if (topCost < bottomCost) {
            if (topCost <= maxCost) tops.push_back({h, topCost, meanY});
        } else if (bottomCost <= maxCost) {
            bottoms.push_back({h, bottomCost, meanY});
        }
    }
    if (tops.empty() || bottoms.empty()) return 0;
    const double window = std::max(6.0, 0.03 * meanLen);
    auto pick = [window](const std::vector<HorizontalChoice>& list, bool upper) {
        double best = list[0].cost;
        for (const HorizontalChoice& c : list) best = std::min(best, c.cost);
        const HorizontalChoice* chosen = nullptr;
        for (const HorizontalChoice& c : list) {
            if (c.cost > best + window) continue;
            if (!chosen || (upper ? c.meanY < chosen->meanY : c.meanY > chosen->meanY)) chosen = &c;
        }
        return chosen;
    };
    const HorizontalChoice* t0 = pick(tops, true);
    const HorizontalChoice* b0 = pick(bottoms, false);
    if (!t0 || !b0 || t0->line == b0->line || t0->meanY >= b0->meanY) return 0;
    *top = t0->line;
    *bottom = b0->line;
    return 1;
}

int FindSameQuardrangleWithEdge(const std::vector<tagQuadrangle>& candidates, size_t from,
                                const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                                const tem_Line* bottom) {
    for (size_t k = from; k < candidates.size(); ++k) {
        const tagQuadrangle& q = candidates[k];
        const bool sameV = (q.left == vi && q.right == vj) || (q.left == vj && q.right == vi);
        const bool sameH =
            (q.top == top && q.bottom == bottom) || (q.top == bottom && q.bottom == top);
        if (sameV && sameH) return 1;
    }
    return 0;
}

int JudgeQuadragleByEdgeRatio(const tagQuadrangle* quad) {
    if (!quad) return 0;
    const tem_Point* p = quad->corners;
    const double top = PointDistance(p[0], p[3]), bottom = PointDistance(p[1], p[2]);
    const double left = PointDistance(p[0], p[1]), right = PointDistance(p[3], p[2]);
    if (std::min(top, bottom) < 0.4 * std::max(top, bottom)) return 0;
    if (std::min(left, right) < 0.4 * std::max(left, right)) return 0;
    const double horiz = (top + bottom) / 2.0, vert = (left + right) / 2.0;
    return std::min(horiz, vert) >= 0.12 * std::max(horiz, vert) ? 1 : 0;
}

void SetQuardrangleVertexType(tagQuadrangle* quad, int32_t width, int32_t height) {
    if (!quad) return;
    const double mx = std::max(3.0, 0.01 * width), my = std::max(3.0, 0.01 * height);
    quad->outsideCorners = 0;
    for (int k = 0; k < 4; ++k) {
        const double x = quad->corners[k].x, y = quad->corners[k].y;
        int32_t type = kVertexInside;
        if (x < -mx || y < -my || x > width - 1 + mx || y > height - 1 + my)
            type = kVertexOutside;
        else if (x < mx || y < my || x > width - 1 - mx || y > height - 1 - my)
            type = kVertexOnBorder;
        quad->vertexType[k] = type;
        if (type == kVertexOutside) ++quad->outsideCorners;
    }
    const double fx = std::max(3.0, 0.006 * width), fy = std::max(3.0, 0.006 * height);
    auto alongFrame = [&](const tem_Line* line) {
        if (!line) return false;
        tem_Point p, q;
        GetLineEndPoint(line, &p, &q);
        if (IsHorizontalLine(*line))
            return (p.y <= fy && q.y <= fy) || (p.y >= height - 1 - fy && q.y >= height - 1 - fy);
        return (p.x <= fx && q.x <= fx) || (p.x >= width - 1 - fx && q.x >= width - 1 - fx);
    };
    quad->frameSides = alongFrame(quad->left) + alongFrame(quad->right) + alongFrame(quad->top) +
                       alongFrame(quad->bottom);
}

void QvVP_GetCorrectQuad(tagQuadrangle* candidates, int n) {
    if (!candidates) return;
    for (int k = 0; k < n; ++k) {
        tagQuadrangle& q = candidates[k];
        if (!q.legal) continue;
        if (!std::isfinite(q.score) || q.outsideCorners >= 2 || q.frameSides > 0) q.legal = 0;
    }
    // Against the strongest contrast found, weak ones are texture or print.
    int32_t strongest = 0;
    for (int k = 0; k < n; ++k) {
        const tagQuadrangle& q = candidates[k];
        if (q.legal && q.outerEnergy != kNoEnergy) strongest = std::max(strongest, q.outerEnergy);
    }
    for (int k = 0; k < n; ++k) {
        tagQuadrangle& q = candidates[k];
        if (q.legal && q.outerEnergy != kNoEnergy && q.outerEnergy < kWeakContrastShare * strongest)
            q.legal = 0;
    }
    // A candidate that borrows two lines of a better one inside it and
    // closes them with two lines from elsewhere (a sheet lying under the
    // page, a table edge) covers less of its sides and is worse shaped.
    std::vector<char> dominated(static_cast<size_t>(std::max(n, 0)), 0);
    for (int k = 0; k < n; ++k) {
        const tagQuadrangle& outer = candidates[k];
        if (!outer.legal) continue;
        for (int m = 0; m < n && !dominated[k]; ++m) {
            const tagQuadrangle& inner = candidates[m];
            if (m == k || !inner.legal || SharedBorderLines(&outer, &inner) != 2) continue;
            if (inner.fill < outer.fill + 0.08 || inner.shapeEnergy + 3 > outer.shapeEnergy)
                continue;
            if (inner.area >= outer.area) continue;
            if (Quadrangle2InQuadrangle1(VpSize{1, 1}, &outer, &inner)) dominated[k] = 1;
        }
    }
    for (int k = 0; k < n; ++k) {
        const tagQuadrangle& outer = candidates[k];
        if (!outer.legal || dominated[k]) continue;
        for (int m = 0; m < n && !dominated[k]; ++m) {
            const tagQuadrangle& inner = candidates[m];
            if (m == k || !inner.legal || inner.area >= outer.area ||
                SharedBorderLines(&outer, &inner) != 3)
                continue;
            // The sides that meet the unshared line.
            const bool acrossVertical = outer.left != inner.left || outer.right != inner.right;
            const double o1 = acrossVertical ? outer.fillTop : outer.fillLeft;
            const double o2 = acrossVertical ? outer.fillBottom : outer.fillRight;
            const double i1 = acrossVertical ? inner.fillTop : inner.fillLeft;
            const double i2 = acrossVertical ? inner.fillBottom : inner.fillRight;
            if (o1 + o2 < 2.0 * kOverrunFill && std::max(o1, o2) < kOverrunMaxFill &&
                i1 >= kCoveredFill && i2 >= kCoveredFill &&
                Quadrangle2InQuadrangle1(VpSize{1, 1}, &outer, &inner))
                dominated[k] = 1;
        }
    }
    for (int k = 0; k < n; ++k)
        if (dominated[k]) candidates[k].legal = 0;
}

int SharedBorderLines(const tagQuadrangle* q1, const tagQuadrangle* q2) {
    if (!q1 || !q2) return 0;
    return (q1->left == q2->left) + (q1->right == q2->right) + (q1->top == q2->top) +
           (q1->bottom == q2->bottom);
}

void DeleteQuadrangleByLine5(tagQuadrangle* q1, tagQuadrangle* q2, int32_t width, int32_t height,
                             int mode) {
    if (!q1 || !q2 || !q1->legal || !q2->legal) return;
    const double diagonal =
        std::sqrt(static_cast<double>(width) * width + static_cast<double>(height) * height);
    const double tol = (mode == 0 ? 0.02 : 0.03) * diagonal;
    bool close = true;
    for (int k = 0; k < 4 && close; ++k)
        close = PointDistance(q1->corners[k], q2->corners[k]) <= tol;
    const double areaRatio =
        q1->area > 0 && q2->area > 0
            ? static_cast<double>(std::min(q1->area, q2->area)) / std::max(q1->area, q2->area)
            : 0.0;
    if (!close && (SharedBorderLines(q1, q2) < 3 || areaRatio < 0.85)) return;
    bool firstWins;
    if (std::isnan(q1->score) || std::isnan(q2->score))
        firstWins = !std::isnan(q1->score);
    else if (mode == 0 || q1->fill == q2->fill)
        firstWins = q1->score >= q2->score;
    else
        firstWins = q1->fill > q2->fill;
    (firstWins ? q2 : q1)->legal = 0;
}

int Quadrangle2InQuadrangle1(VpSize size, const tagQuadrangle* q1, const tagQuadrangle* q2) {
    if (!q1 || !q2) return 0;
    const double tol = std::max(2.0, 0.01 * std::min(size.width, size.height));
    const tem_Point* c = q1->corners;
    double orientation = 0.0;
    for (int k = 0; k < 4; ++k) orientation += Cross(c[0], c[k], c[(k + 1) % 4]);
    const double sign = orientation >= 0.0 ? 1.0 : -1.0;
    for (int k = 0; k < 4; ++k) {
        const tem_Point p = q2->corners[k];
        for (int e = 0; e < 4; ++e) {
            const tem_Point a = c[e], b = c[(e + 1) % 4];
            const double len = PointDistance(a, b);
            if (len <= 0.0) return 0;
            if (sign * Cross(a, b, p) / len < -tol) return 0;
        }
    }
    return 1;
}

int Combine2Quadrangle2(const cv::Mat& workImage, const tagQuadrangle* q1, const tagQuadrangle* q2,
                        tagQuadrangle* out) {
    if (!q1 || !q2 || !out || SharedBorderLines(q1, q2) < 2) return 0;
    tem_Line* left = q1->fillLeft >= q2->fillLeft ? q1->left : q2->left;
    tem_Line* right = q1->fillRight >= q2->fillRight ? q1->right : q2->right;
    tem_Line* top = q1->fillTop >= q2->fillTop ? q1->top : q2->top;
    tem_Line* bottom = q1->fillBottom >= q2->fillBottom ? q1->bottom : q2->bottom;
    auto same = [&](const tagQuadrangle* q) {
        return q->left == left && q->right == right && q->top == top && q->bottom == bottom;
    };
    if (same(q1) || same(q2)) return 0;
    if (!CheckQuadrangleAngle(left, right, top, bottom)) return 0;
    tagQuadrangle quad{};
    if (!FillQuadrangle(top, bottom, left, right, &quad) || !JudgeQuadragleByEdgeRatio(&quad))
        return 0;
    QvVP_GetEdgeFillEnergy2(&quad, VpSize{workImage.cols, workImage.rows});
    quad.score = std::max(q1->score, q2->score);
    *out = quad;
    return 1;
}

int CheckEffectQuadrangleWithLineEndPoint(const tagQuadrangle* quad, int32_t width,
                                          int32_t height) {
    (void)width;
    (void)height;
    if (!quad) return 0;
    const tem_Point* p = quad->corners;
    struct Side {
        const tem_Line* line;
        tem_Point a, b;
        double fill;
    };
    const Side sides[4] = {{quad->left, p[0], p[1], quad->fillLeft},
                           {quad->right, p[3], p[2], quad->fillRight},
                           {quad->top, p[0], p[3], quad->fillTop},
                           {quad->bottom, p[1], p[2], quad->fillBottom}};
    int unsupported = 0;
    for (const Side& s : sides) {
        if (!s.line) return 0;
        const double far = std::max(20.0, 0.2 * PointDistance(s.a, s.b));
        if (s.fill < 0.5 && NearestEndDistance(s.line, s.a) > far &&
            NearestEndDistance(s.line, s.b) > far)
            ++unsupported;
    }
    return unsupported < 3 ? 1 : 0;
}
