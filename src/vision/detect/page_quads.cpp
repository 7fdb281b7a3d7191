// Page candidates bounded by four straight edges, and the quadrangle helpers
// of the verified page search.
//
// Two lines are a pair of opposite sides when they are within 35 degrees of
// parallel (either polarity) and lie apart by at least 8 % of the image's
// shorter side; two pairs make a candidate when their directions differ by
// at least 40 degrees (strong perspective still leaves that much). The four
// crossings must make a convex quadrangle covering at least 4 % of the image
// whose corners lie at most 15 % of the image outside it (pages cut by the
// frame keep their true corners outside). The frame's four sides are lines
// too, for a page whose side lies beyond the frame; at most two of them, not
// opposite, bound a candidate.
//
// The line score of a candidate is the mean over its sides of the share of
// the side supported by its line, where the part of a side outside the image
// counts as 0.35 (neither for nor against). A page is brighter (or darker)
// than its surroundings all round, so a side whose edge has the other
// polarity than most counts half. The best by line score are kept, each
// line in 16 of them at most.
#include <algorithm>
#include <cmath>

#include "vision/detect/geometry.h"
#include "vision/detect/page_find.h"

namespace {

constexpr double kParallelCos = 0.8191520442889918;  // cos 35 degrees
constexpr double kCrossCos = 0.766044443118978;      // cos 40 degrees
constexpr double kMinSeparation = 0.08;
constexpr double kMinAreaShare = 0.04;
constexpr double kOutsideMargin = 0.15;
constexpr double kUnseenSideCredit = 0.35;
constexpr int kPerLine = 40;

struct Pair {
    int a, b;
};

}  // namespace

double QuadArea(const Quad2d& q) {
    double s = 0.0;
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d& a = q[i];
        const cv::Point2d& b = q[(i + 1) % 4];
        s += a.x * b.y - b.x * a.y;
    }
    return std::abs(s) * 0.5;
}

Quad2d OrderCorners(const std::array<cv::Point2d, 4>& pts) {
    cv::Point2d c(0, 0);
    for (const auto& p : pts) c += p * 0.25;
    std::array<int, 4> idx = {0, 1, 2, 3};
    double angle[4];
    for (int i = 0; i < 4; ++i) angle[i] = std::atan2(pts[i].y - c.y, pts[i].x - c.x);
    // Counter-clockwise on the screen (y down) means decreasing atan2 angle.
    std::sort(idx.begin(), idx.end(), [&](int i, int j) { return angle[i] > angle[j]; });
    int first = 0;
    for (int k = 1; k < 4; ++k)
        if (pts[idx[k]].x + pts[idx[k]].y < pts[idx[first]].x + pts[idx[first]].y) first = k;
    Quad2d q;
    for (int k = 0; k < 4; ++k) q[k] = pts[idx[(first + k) % 4]];
    // Top-left, then bottom-left: the second corner lies below the fourth.
    if (q[1].y - q[0].y < q[3].y - q[0].y) std::swap(q[1], q[3]);
    return q;
}

void EnumerateLineQuads(const std::vector<EvidenceLine>& lines, int width, int height, size_t keep,
                        std::vector<PageCandidate>* out) {
    const int n = static_cast<int>(lines.size());
    const double shorter = std::min(width, height);
    std::vector<Pair> pairs;
    for (int i = 0; i < n; ++i) {
        const cv::Point2d mid = lines[i].At(0.5 * (lines[i].t0 + lines[i].t1));
        for (int j = i + 1; j < n; ++j) {
            if (std::abs(lines[i].n.dot(lines[j].n)) < kParallelCos) continue;
            const double sep = std::abs(lines[j].n.dot(mid) - lines[j].offset);
            if (sep < kMinSeparation * shorter) continue;
            pairs.push_back({i, j});
        }
    }
    const double lo_x = -kOutsideMargin * width, hi_x = (1 + kOutsideMargin) * width;
    const double lo_y = -kOutsideMargin * height, hi_y = (1 + kOutsideMargin) * height;
    const double minArea = kMinAreaShare * width * height;
    std::vector<PageCandidate> found;
    for (size_t p = 0; p < pairs.size(); ++p) {
        for (size_t r = p + 1; r < pairs.size(); ++r) {
            const int i = pairs[p].a, j = pairs[p].b, k = pairs[r].a, l = pairs[r].b;
            if (i == k || i == l || j == k || j == l) continue;
            // At most two sides on the frame, and not two opposite ones: a
            // stripe or a plank between two frame sides is no page.
            const int frames = lines[i].frame + lines[j].frame + lines[k].frame + lines[l].frame;
            if (frames > 2 || (lines[i].frame && lines[j].frame) ||
                (lines[k].frame && lines[l].frame))
                continue;
            if (std::abs(lines[i].n.dot(lines[k].n)) > kCrossCos) continue;
            cv::Point2d c[4];
            if (!IntersectLines(lines[i], lines[k], &c[0]) ||
                !IntersectLines(lines[i], lines[l], &c[1]) ||
                !IntersectLines(lines[j], lines[l], &c[2]) ||
                !IntersectLines(lines[j], lines[k], &c[3]))
                continue;
            bool inRange = true;
            for (const cv::Point2d& pt : c)
                inRange = inRange && pt.x >= lo_x && pt.x <= hi_x && pt.y >= lo_y && pt.y <= hi_y;
            if (!inRange) continue;
            const Quad2d around = {c[0], c[1], c[2], c[3]};  // sides on i, l, j, k
            if (!IsStrictlyConvexQuad(around) || QuadArea(around) < minArea) continue;
            const int sideLine[4] = {i, l, j, k};
            const cv::Point2d centre = (c[0] + c[1] + c[2] + c[3]) * 0.25;
            double cov[4], ins[4];
            int inward[4], inwardCount = 0;
            for (int s = 0; s < 4; ++s) {
                const EvidenceLine& line = lines[sideLine[s]];
                const cv::Point2d& a = c[s];
                const cv::Point2d& b = c[(s + 1) % 4];
                line.Coverage(line.Param(a), line.Param(b), &cov[s], &ins[s]);
                inward[s] = line.n.dot(centre - (a + b) * 0.5) > 0 ? 1 : 0;
                inwardCount += inward[s];
            }
            const int major = inwardCount >= 2 ? 1 : 0;
            double score = 0.0;
            for (int s = 0; s < 4; ++s) {
                const double seen = inward[s] == major ? cov[s] : 0.5 * cov[s];
                score += seen * ins[s] + kUnseenSideCredit * (1.0 - ins[s]);
            }
            PageCandidate cand;
            cand.corners = OrderCorners({c[0], c[1], c[2], c[3]});
            for (int t = 0; t < 4; ++t)
                for (int o = 0; o < 4; ++o) {
                    const cv::Point2d& a = c[o];
                    const cv::Point2d& b = c[(o + 1) % 4];
                    const cv::Point2d& qa = cand.corners[t];
                    const cv::Point2d& qb = cand.corners[(t + 1) % 4];
                    if ((a == qa && b == qb) || (a == qb && b == qa)) cand.lines[t] = sideLine[o];
                }
            cand.source = CandidateSource::kLines;
            cand.lineScore = score * 0.25;
            found.push_back(cand);
        }
    }
    std::stable_sort(
        found.begin(), found.end(),
        [](const PageCandidate& a, const PageCandidate& b) { return a.lineScore > b.lineScore; });
    // The best first, but no line in more than kPerLine of the kept ones: a
    // tiled floor or a checked cloth makes hundreds of well-covered
    // quadrangles out of the same few pattern lines.
    std::vector<int> uses(lines.size(), 0);
    size_t kept = 0;
    for (const PageCandidate& c : found) {
        if (kept >= keep) break;
        bool spent = false;
        for (int l : c.lines) spent = spent || (l >= 0 && uses[l] >= kPerLine);
        if (spent) continue;
        for (int l : c.lines)
            if (l >= 0) ++uses[l];
        out->push_back(c);
        ++kept;
    }
}
