// The four-line quadrangle searches of the two detection passes.
//
// FindSquareArea6 (pass 0) and FindSquareArea7 (pass 1) share one
// procedure; they differ only in the angle test of a vertical pair, which
// pass 0 applies when the vertical set holds more than 60 lines. That test
// folds the angle to at least 90 degrees and then rejects anything above 45,
// so such a set yields nothing in pass 0: a deliberate limit kept as it is.
//
// 1. Candidates: for each pair of vertical lines that do not cross inside
//    the image, are at least 0.2 W apart and share L_min = min(0.1 min(W, H),
//    65) of length, the "full angle" helper may add candidates, and the
//    nearest top and bottom lines give one more (unless the helper made the
//    same one). Every candidate passes the contrast, distance, common length,
//    corner angle, side ratio and legality tests. The array has room for
//    4 x horizontal x vertical candidates (plus one combined slot).
// 2. Scoring (energies, vertex types, clean-up of broken candidates).
// 3. Duplicates by score, 4. fill threshold, 5. duplicates by fill.
// 6. Largest (L), second (Q) and best scoring (b) candidates, 7. the choice
//    among them, 8. the end-point check of the choice.
#include <cmath>
#include <vector>

#include "vision/detect/quad_internal.h"

namespace {

void ZeroCorners(tem_Point corners[4]) {
    if (!corners) return;
    for (int k = 0; k < 4; ++k) corners[k] = tem_Point{0, 0};
}

double AreaRatio(const tagQuadrangle& a, const tagQuadrangle& b) {
    return b.area > 0 ? static_cast<double>(a.area) / b.area : 0.0;
}

int FindSquareAreaCommon(tagNoteDetector* detector, const cv::Mat& workImage,
                         temp_LineSet* horizontal, temp_LineSet* vertical, tem_Point corners[4],
                         bool limitVerticalCount) {
    if (!corners) return 0;
    ZeroCorners(corners);
    if (!horizontal || !vertical || horizontal->count <= 0 || vertical->count <= 1) return 0;
    const int32_t W = workImage.cols, H = workImage.rows;
    if (W <= 0 || H <= 0) return 0;
    const double lMin = std::fmin(0.1 * std::fmin(W, H), 65.0);

    std::vector<tagQuadrangle> candidates;
    const size_t capacity =
        4 * static_cast<size_t>(horizontal->count) * static_cast<size_t>(vertical->count);
    candidates.reserve(capacity + 1);
    QuadSearchContext ctx{detector, W, H, &candidates, capacity};

    // 1. Candidates.
    for (tem_Line* vi = vertical->head; vi; vi = vi->next) {
        for (tem_Line* vj = vi->next; vj; vj = vj->next) {
            if (!VerticalPairUsable(vi, vj, W, H)) continue;
            double angle = AngleLine2Line(vi, vj);
            if (angle <= 90.0) angle = 180.0 - angle;
            if (limitVerticalCount && vertical->count > 60 && angle > 45.0) continue;
            if (CoLength4(vi, vj) < lMin) continue;
            const int t = QvVP_GetThresholdOfDiff(vi, vj);
            const size_t before = candidates.size();
            const int added = FindThreeFullAngleQuardrangle(&ctx, horizontal, vi, vj);
            tem_Line *top = nullptr, *bottom = nullptr;
            if (!FindNearestHorEdge5_3(horizontal, vertical, t, W, H, vi, vj, &top, &bottom))
                continue;
            if (added > 0 && FindSameQuardrangleWithEdge(candidates, before, vi, vj, top, bottom))
                continue;
            TryAddQuadCandidate(&ctx, vi, vj, top, bottom);
        }
    }
    const int n = static_cast<int>(candidates.size());
    if (n == 0) return 0;

    // 2. Scoring.
    for (tagQuadrangle& q : candidates) {
        QvVP_SimilarityOfQuad(detector, &q);
        SetQuardrangleVertexType(&q, W, H);
    }
    QvVP_GetCorrectQuad(candidates.data(), n);
    if (detector != nullptr && detector->candidates != nullptr)
        for (const tagQuadrangle& q : candidates)
            if (q.legal)
                detector->candidates->push_back(
                    {q.corners[0], q.corners[1], q.corners[2], q.corners[3]});

    // 3. Duplicates by score.
    auto removeDuplicates = [&](int mode) {
        for (int i = 0; i < n; ++i) {
            if (!candidates[i].legal) continue;
            for (int j = i + 1; j < n && candidates[i].legal; ++j) {
                if (!candidates[j].legal) continue;
                DeleteQuadrangleByLine5(&candidates[i], &candidates[j], W, H, mode);
            }
        }
    };
    removeDuplicates(0);

    // 4. Fill threshold.
    int k = 0;
    double fMax = 0.0, fMin = 2.0;
    for (const tagQuadrangle& q : candidates) {
        if (!q.legal) continue;
        ++k;
        fMax = std::fmax(fMax, q.fill);
        fMin = std::fmin(fMin, q.fill);
    }
    double threshold = std::fmin(fMin + 0.001, 0.8);
    if (k > 2 && fMax > 0.9)
        threshold = std::fmax(threshold, 0.76);
    else
        threshold = k < 2 ? 0.63 : 0.69;
    for (tagQuadrangle& q : candidates)
        if (q.legal && q.fill < threshold) q.legal = 0;

    // 5. Duplicates by fill.
    removeDuplicates(1);

    // 6. Largest, second and best.
    double bestScore = 0.0;
    int b = -1, L = -1, Q = -1;
    double a1 = 0.0, a2 = 0.0;
    const VpSize size{W, H};
    for (int i = 0; i < n; ++i) {
        const tagQuadrangle& q = candidates[i];
        if (!q.legal) continue;
        if (q.score > bestScore) {
            bestScore = q.score;
            b = i;
        }
        if (L < 0 || q.area > a1) {
            if (L >= 0 && !Quadrangle2InQuadrangle1(size, &q, &candidates[L])) {
                Q = L;
                a2 = a1;
            }
            L = i;
            a1 = q.area;
        } else if (a2 < q.area && q.area < a1) {
            if (SharedBorderLines(&q, &candidates[L]) < 2) {
                Q = i;
                a2 = q.area;
            }
        }
    }
    if (L < 0) return 0;

    // 7. Choice.
    int chosen = L;
    const tagQuadrangle& cl = candidates[L];
    if (b >= 0 && cl.score + 0.9 < bestScore && AreaRatio(candidates[b], cl) > 0.5 &&
        cl.fill < 0.98) {
        chosen = b;
    } else if (Q >= 0 && 0.65 * a1 < a2) {
        const tagQuadrangle& cq = candidates[Q];
        if (SharedBorderLines(&cl, &cq) > 1 && AreaRatio(cq, cl) > 0.95)
            chosen = cl.fill > cq.fill ? L : Q;
        tagQuadrangle combined{};
        if (Combine2Quadrangle2(workImage, &candidates[chosen], &candidates[Q], &combined)) {
            SetQuardrangleVertexType(&combined, W, H);
            candidates.push_back(combined);
            chosen = static_cast<int>(candidates.size()) - 1;
        } else if (AreaRatio(candidates[Q], candidates[chosen]) > 0.95) {
            chosen = candidates[chosen].fill > candidates[Q].fill ? chosen : Q;
        }
    } else if (Q >= 0 && 0.55 * a1 < a2 && a2 > 0.48 * W * H) {
        if (candidates[Q].fill > cl.fill + 0.15) chosen = Q;
    }

    // 8. Final check.
    const tagQuadrangle& pick = candidates[chosen];
    if (!CheckEffectQuadrangleWithLineEndPoint(&pick, W, H)) return 0;
    for (int c = 0; c < 4; ++c) corners[c] = pick.corners[c];
    return 1;
}

}  // namespace

int FindSquareArea6(tagNoteDetector* detector, const cv::Mat& workImage, temp_LineSet* horizontal,
                    temp_LineSet* vertical, tem_Point corners[4], unsigned char* flags) {
    (void)flags;
    return FindSquareAreaCommon(detector, workImage, horizontal, vertical, corners, true);
}

int FindSquareArea7(tagNoteDetector* detector, const cv::Mat& workImage, temp_LineSet* horizontal,
                    temp_LineSet* vertical, tem_Point corners[4], unsigned char* flags) {
    (void)flags;
    return FindSquareAreaCommon(detector, workImage, horizontal, vertical, corners, false);
}
