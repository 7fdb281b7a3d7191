// The page search of a full-size photograph.
//
// 1. The photograph is reduced to its search size (longer side 2048,
//    rounded, each side at least 1) and the fixed detector runs on it as it
//    always has; besides its answer it hands over every legal candidate its
//    four-line searches scored.
// 2. With the fixed steps alone, that answer is mapped back (c = int(0.5 +
//    c * s)) and returned.
// 3. Otherwise the search image is reduced again to the evidence image
//    (page_evidence_image.cpp), whose long straight step edges give more
//    candidates (page_quads.cpp); a region of paper gives one more
//    (page_region.cpp). Every candidate, the fixed answer among them, is
//    measured by the same evidence (page_evidence.cpp) and scored by the
//    page model (page_model.h); the best wins, the fixed answer on a tie. A
//    winner with one side that has no paper inside it while the others do
//    gives way to the candidate that differs from it in that side alone and
//    has paper inside it (MendSides); a winner that holds a sharper page with
//    no paper around it gives way to that page (PreferNestedPage).
// 4. A best candidate below the evidence threshold means no page: the whole
//    photograph comes back, not found. A page that is there but was not
//    found is better reported as missing than replaced by a quadrangle that
//    has nothing of a page.
// 5. The winner's sides are refitted on the full-size photograph
//    (page_refine.cpp) and the corners rounded to photograph pixels. They may
//    lie outside the photograph when the page runs past its frame.
#include <algorithm>
#include <chrono>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"
#include "vision/detect/detector.h"
#include "vision/detect/detector_internal.h"
#include "vision/detect/geometry.h"
#include "vision/detect/page_find.h"
#include "vision/detect/page_model.h"
#include "vision/detect/page_search_trace.h"

namespace {

constexpr int32_t kSearchMaxSide = 2048;
constexpr int kMaxEvidenceLines = 64;
constexpr size_t kLineCandidates = 300;
// Mending a side (MendSides): a side is poor under this share of paper
// inside, rich from that; corners count as shared within these pixels.
constexpr double kMendPoor = 0.3;
constexpr double kMendRich = 0.7;
constexpr double kMendPixels = 3.0;
// Mending only breaks a near tie: the mended candidate scores at most this
// much (log odds) below the winner.
constexpr double kMendMargin = 1.0;
// A region's side snaps to a line within this many evidence pixels.
constexpr double kSnapPixels = 6.0;
// A nested page (PreferNestedPage): paper in at most this share of the ring
// around it, every side at least this strong.
constexpr double kNestedRing = 0.15;
constexpr double kNestedStrength = 0.5;
// Half-width of the refinement's band, in evidence pixels.
constexpr double kRefineBand = 3.0;

void SetWhole(PageSearchAnswer* a, int32_t w, int32_t h) {
    tagVPPoint q[4];
    WholeImageQuadrangle(w, h, q);
    for (int i = 0; i < 4; ++i) {
        a->corners[i] = {q[i].x, q[i].y};
        a->exact[i][0] = q[i].x;
        a->exact[i][1] = q[i].y;
    }
}

// Stage times for a trace.
class StageClock {
  public:
    explicit StageClock(PageSearchTrace* trace) : trace_(trace) {}
    void Lap(int stage) {
        if (trace_ == nullptr) return;
        const auto now = std::chrono::steady_clock::now();
        trace_->ms[stage] += std::chrono::duration<double, std::milli>(now - last_).count();
        last_ = now;
    }

    void Skip() { last_ = std::chrono::steady_clock::now(); }

  private:
    PageSearchTrace* trace_;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

Quad2d ToEvidence(const tem_Point c[4], double factor) {
    Quad2d q;
    for (int i = 0; i < 4; ++i) q[i] = {c[i].x / factor, c[i].y / factor};
    return q;
}

// Snaps each side of a region's quadrangle to the line nearest it (within
// 3 degrees and kSnapPixels at both ends); the corners are the crossings of
// the snapped sides, and a snapped side reads its line's samples.
void SnapToLines(const std::vector<EvidenceLine>& lines, PageCandidate* c) {
    const EvidenceLine* side[4] = {};
    for (int s = 0; s < 4; ++s) {
        const cv::Point2d a = c->corners[s], b = c->corners[(s + 1) % 4];
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        if (len < 1.0) return;
        const cv::Point2d u = (b - a) / len;
        double bestDist = kSnapPixels;
        for (size_t l = 0; l < lines.size(); ++l) {
            if (lines[l].frame || std::abs(lines[l].n.dot(u)) > std::sin(3.0 * CV_PI / 180.0))
                continue;
            const double d = std::max(std::abs(lines[l].n.dot(a) - lines[l].offset),
                                      std::abs(lines[l].n.dot(b) - lines[l].offset));
            if (d < bestDist) {
                bestDist = d;
                side[s] = &lines[l];
                c->lines[s] = static_cast<int>(l);
            }
        }
    }
    Quad2d snapped = c->corners;
    for (int k = 0; k < 4; ++k) {
        const EvidenceLine* before = side[(k + 3) % 4];
        const EvidenceLine* after = side[k];
        cv::Point2d p;
        if (before != nullptr && after != nullptr && IntersectLines(*before, *after, &p))
            snapped[k] = p;
    }
    if (IsStrictlyConvexQuad(snapped)) {
        c->corners = snapped;
    } else {
        for (int& l : c->lines) l = -1;
    }
}

// True when b has the sides of a other than side s (within kMendPixels at
// the corners): b's two corners away from s are a's, and its corners on s
// lie on a's neighbouring sides.
bool SharesAllBut(const Quad2d& a, const Quad2d& b, int s) {
    auto near = [](cv::Point2d p, cv::Point2d q) {
        return std::hypot(p.x - q.x, p.y - q.y) <= kMendPixels;
    };
    auto onLine = [](cv::Point2d p, cv::Point2d u, cv::Point2d v) {
        const double len = std::hypot(v.x - u.x, v.y - u.y);
        return len > 0 &&
               std::abs((v.x - u.x) * (p.y - u.y) - (v.y - u.y) * (p.x - u.x)) / len <= kMendPixels;
    };
    const int s1 = (s + 1) % 4, s2 = (s + 2) % 4, s3 = (s + 3) % 4;
    return near(a[s2], b[s2]) && near(a[s3], b[s3]) && onLine(b[s], a[s3], a[s]) &&
           onLine(b[s1], a[s1], a[s2]) && !(near(a[s], b[s]) && near(a[s1], b[s1]));
}

// A page has paper inside every side. When the winner has one side with
// hardly any (a line of the table beyond the page taken for its border)
// while the others have plenty, the candidate with the same other sides and
// paper inside that one takes its place, the best scored such -- but only
// when the page model nearly agrees (kMendMargin): a band of shadowed paper
// inside a page's true side has no paper colour either, and there the model
// rightly prefers the whole page by a wide margin.
int MendSides(const std::vector<PageCandidate>& c, const std::vector<PageEvidence>& e, int best) {
    for (int round = 0; round < 4; ++round) {
        int bad = -1, good = 0;
        for (int s = 0; s < 4; ++s) {
            const SideEvidence& d = e[best].side[s];
            if (d.inside < 0.5) continue;
            if (d.paperIn < kMendPoor)
                bad = bad < 0 ? s : 4;  // two poor sides: not a mending matter
            else if (d.paperIn >= kMendRich)
                ++good;
        }
        if (bad < 0 || bad > 3 || good < 2) return best;
        int pick = -1;
        for (size_t k = 0; k < c.size(); ++k) {
            const SideEvidence& d = e[k].side[bad];
            if (d.inside < 0.5 || d.paperIn < kMendRich || d.edge < 0.5) continue;
            if (!SharesAllBut(c[best].corners, c[k].corners, bad)) continue;
            if (c[k].evidence < c[best].evidence - kMendMargin) continue;
            if (pick < 0 || c[k].evidence > c[pick].evidence) pick = static_cast<int>(k);
        }
        if (pick < 0) return best;
        best = pick;
    }
    return best;
}

// True when every corner lies within 3 % of the image's shorter side (6
// pixels at least) of the frame's corresponding corner.
bool AlongTheFrame(const Quad2d& q, int w, int h) {
    const double tol = std::max(6.0, 0.03 * std::min(w, h));
    const cv::Point2d frame[4] = {{0, 0},
                                  {0, static_cast<double>(h)},
                                  {static_cast<double>(w), static_cast<double>(h)},
                                  {static_cast<double>(w), 0}};
    for (int i = 0; i < 4; ++i)
        if (std::hypot(q[i].x - frame[i].x, q[i].y - frame[i].y) > tol) return false;
    return true;
}

// The weakest side's strength: edge x step x paper inside x no paper
// outside; 1 for a page's side on a contrasting table.
double WeakestSide(const PageEvidence& e) {
    double weakest = 1.0;
    for (const SideEvidence& d : e.side)
        if (d.inside >= 0.5)
            weakest = std::min(weakest, d.edge * d.step * d.paperIn * (1.0 - d.paperOut));
    return weakest;
}

bool Inside(const Quad2d& outer, cv::Point2d p) {
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d a = outer[i], b = outer[(i + 1) % 4];
        // The corners run counter-clockwise on the screen: inside is left of
        // each side as seen with y down, i.e. a non-negative cross product.
        if ((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x) < 0) return false;
    }
    return true;
}

// A quadrangle that holds a page, sharp all round and with no paper in a
// ring around it, cannot be that page: it takes in things that are not
// paper (a cloth's checks around the sheet). The nested page, the best
// scored such, wins instead when its sides are stronger than the winner's.
// A folded sheet's panel has the other panel's paper around it and stays
// part of the whole.
int PreferNestedPage(const std::vector<PageCandidate>& c, const std::vector<PageEvidence>& e,
                     int best) {
    const double area = QuadArea(c[best].corners);
    int pick = -1;
    for (size_t k = 0; k < c.size(); ++k) {
        if (static_cast<int>(k) == best || c[k].evidence <= kPageScoreFloor) continue;
        if (e[k].ringPaper > kNestedRing || WeakestSide(e[k]) < kNestedStrength) continue;
        if (QuadArea(c[k].corners) < 0.25 * area) continue;
        bool inside = true;
        for (const cv::Point2d& p : c[k].corners) inside = inside && Inside(c[best].corners, p);
        if (!inside) continue;
        if (pick < 0 || c[k].evidence > c[pick].evidence) pick = static_cast<int>(k);
    }
    return pick >= 0 && WeakestSide(e[pick]) > WeakestSide(e[best]) ? pick : best;
}

}  // namespace

PageSearchSize GetPageSearchSize(int32_t width, int32_t height, bool alwaysResize) {
    const int32_t longer = std::max(width, height);
    if (longer <= kSearchMaxSide) return PageSearchSize{1.0, width, height, alwaysResize};
    const double s = longer * 0.00048828125;  // longer / 2048
    auto side = [s](int32_t v) {
        const int32_t r = static_cast<int32_t>(v / s + 0.5);
        return std::clamp(r, 1, kSearchMaxSide);
    };
    return PageSearchSize{s, side(width), side(height), true};
}

PageSearchAnswer SearchPageTraced(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                                  bool fixedStepsOnly, PageSearchTrace* trace) {
    PageSearchAnswer answer{};
    StageClock clock(trace);
    SetWhole(&answer, photo.cols, photo.rows);
    const PageSearchSize size = GetPageSearchSize(photo.cols, photo.rows, alwaysResize);
    cv::Mat reduced;
    if (size.resize) {
        // Some 9 MB written once: on memory that faults in 2 MiB at a time.
        scrivo::pixel::CreateLarge(reduced, size.height, size.width, photo.type());
        cv::resize(photo, reduced, reduced.size(), 0.0, 0.0, cv::INTER_LINEAR);
    } else
        reduced = photo;
    clock.Lap(0);

    std::vector<std::array<tem_Point, 4>> fixedCandidates;
    tem_Point fixed[4] = {};
    int edgeCount = 0;
    answer.detectorResult = DetectPageWithPass(reduced, flags, fixed, &edgeCount, nullptr,
                                               fixedStepsOnly ? nullptr : &fixedCandidates);
    tagVPPoint fixedQuad[4];
    for (int i = 0; i < 4; ++i) fixedQuad[i] = {fixed[i].x, fixed[i].y};
    const bool fixedWhole = IsWholeImageQuadrangle(fixedQuad, size.width, size.height);
    clock.Lap(1);

    if (fixedStepsOnly) {
        for (int i = 0; i < 4; ++i) {
            answer.corners[i] = {MapSearchCoordinate(fixed[i].x, size.scale),
                                 MapSearchCoordinate(fixed[i].y, size.scale)};
            answer.exact[i][0] = answer.corners[i].x;
            answer.exact[i][1] = answer.corners[i].y;
        }
        answer.found = answer.detectorResult == 1 && !fixedWhole;
        return answer;
    }

    EvidenceImage ev;
    if (!BuildEvidenceImage(reduced, size.scale, &ev)) return answer;
    const double factor = ev.scale / size.scale;  // search pixels per evidence pixel
    clock.Lap(2);

    std::vector<PageCandidate> candidates;
    if (answer.detectorResult == 1 && !fixedWhole) {
        PageCandidate c;
        c.corners = ToEvidence(fixed, factor);
        c.source = CandidateSource::kFixedAnswer;
        candidates.push_back(c);
    }
    for (const auto& fc : fixedCandidates) {
        PageCandidate c;
        c.corners = ToEvidence(fc.data(), factor);
        c.source = CandidateSource::kFixedSearch;
        candidates.push_back(c);
    }
    cv::Mat regions[2];
    const int regionCount = PaperRegions(ev, regions);
    AddRegionGradient(regions, regionCount, &ev);
    clock.Lap(3);
    std::vector<EvidenceLine> lines =
        FindEvidenceLines(ev, kMaxEvidenceLines, trace != nullptr ? &trace->considered : nullptr);
    AddFrameLines(ev.width, ev.height, &lines);
    clock.Lap(4);
    EnumerateLineQuads(lines, ev.width, ev.height, kLineCandidates, &candidates);
    for (int r = 0; r < regionCount; ++r) {
        PageCandidate c;
        if (!RegionQuadrangle(regions[r], &c.corners)) continue;
        c.source = CandidateSource::kRegion;
        SnapToLines(lines, &c);
        candidates.push_back(c);
    }
    clock.Lap(5);

    int best = -1;
    std::vector<PageEvidence> evidence(candidates.size());
    for (size_t k = 0; k < candidates.size(); ++k) {
        PageCandidate& c = candidates[k];
        bool usable = IsStrictlyConvexQuad(c.corners);
        if (usable) evidence[k] = MeasurePageEvidence(ev, lines, c);
        // A page shows at least two of its sides, with what lies either side
        // of them; a quadrangle along the frame all round is the photograph
        // itself, whose answer is no page.
        int seen = 0;
        for (const SideEvidence& d : evidence[k].side) seen += d.inside >= 0.5 && d.banded >= 0.5;
        usable = usable && seen >= 2 && !AlongTheFrame(c.corners, ev.width, ev.height);
        if (trace != nullptr) trace->evidence.push_back(evidence[k]);
        c.evidence = usable ? RankCandidate(DescribeCandidate(evidence[k], c)) : -1e9;
        if (usable && (best < 0 || c.evidence > candidates[best].evidence))
            best = static_cast<int>(k);
    }
    if (best >= 0)
        best = PreferNestedPage(candidates, evidence, MendSides(candidates, evidence, best));
    const double odds = best >= 0 ? candidates[best].evidence : kPageScoreFloor;
    clock.Lap(6);
    if (trace != nullptr) {
        trace->candidates = candidates;
        trace->lines = lines;
        trace->evidenceScale = ev.scale;
    }
    if (trace != nullptr) trace->odds = odds;
    if (best < 0 || odds <= kPageScoreFloor) return answer;

    Quad2d q = candidates[best].corners;
    for (cv::Point2d& p : q) p *= ev.scale;
    clock.Skip();  // the trace's copies are not the search's time
    q = RefinePageCorners(photo, q, kRefineBand * ev.scale);
    clock.Lap(7);
    for (int i = 0; i < 4; ++i) {
        answer.exact[i][0] = q[i].x;
        answer.exact[i][1] = q[i].y;
        answer.corners[i] = {static_cast<int32_t>(std::lround(q[i].x)),
                             static_cast<int32_t>(std::lround(q[i].y))};
    }
    answer.found = true;
    answer.evidence = 1.0 / (1.0 + std::exp(-odds));  // against the empty answer
    if (trace != nullptr) trace->chosen = best;
    return answer;
}

PageSearchAnswer SearchPageInPhotograph(const cv::Mat& photo, bool alwaysResize,
                                        unsigned char* flags, bool fixedStepsOnly) {
    return SearchPageTraced(photo, alwaysResize, flags, fixedStepsOnly, nullptr);
}

int FindPageInPhotograph(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                         tem_Point corners[4], bool* whole, bool fixedStepsOnly) {
    const PageSearchAnswer a = SearchPageInPhotograph(photo, alwaysResize, flags, fixedStepsOnly);
    for (int i = 0; i < 4; ++i) corners[i] = a.corners[i];
    if (whole != nullptr) *whole = !a.found;
    if (fixedStepsOnly) return a.detectorResult;
    return a.found ? 1 : 0;
}

void WholeImageQuadrangle(int32_t w, int32_t h, tagVPPoint quad[4]) {
    quad[0] = {0, 0};
    quad[1] = {0, h};
    quad[2] = {w, h};
    quad[3] = {w, 0};
}

bool IsWholeImageQuadrangle(const tagVPPoint quad[4], int32_t w, int32_t h) {
    return quad[0].x == 0 && quad[0].y == 0 && quad[1].x == 0 && quad[1].y == h && quad[2].x == w &&
           quad[2].y == h && quad[3].x == w && quad[3].y == 0;
}
