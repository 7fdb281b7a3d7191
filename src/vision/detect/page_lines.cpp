// Long straight step edges of the evidence image.
//
// 1. Votes, once in the dominant gradient and once in the chroma gradient
//    alone (a faint chroma border under a textured luma would not show in
//    the first). Every pixel with a gradient above the floor and outside
//    the ink mask votes for the lines through it whose normal is its gradient's
//    direction (one degree bins over the full circle, so the two polarities
//    of an edge are different lines), and, with half the weight, for the
//    two neighbouring bins. The weight is the gradient magnitude capped at
//    eight grey levels per pixel: a faint page border on a crumpled sheet
//    votes nearly as much per pixel as a black rule, so its length counts,
//    not its contrast. rho is measured from the image centre, in Q14 fixed
//    point.
// 2. Peaks. The accumulator is smoothed (1 2 1 in both directions, the angle
//    wrapping round) and its local maxima taken in falling order; a peak
//    within 3 degrees and 4 pixels of a stronger one is the same line.
// 3. Fit. Each peak line is refitted twice to its edge's sub-pixel peaks
//    within two pixels of it (total least squares, weighted by magnitude):
//    one degree of error is five pixels at the end of a 600-pixel side.
// 4. Support. Along the line, one sample a pixel: supported when the
//    gradient at the line or one pixel either side is aligned with the
//    line's normal and has its polarity, and the colour steps across it
//    (printed rules and rows of text have paper on both sides). The ink
//    mask does not apply here: a border's drop shadow looks like a stroke. The longest stretch of
//    which at least 70 % is supported ranks the lines: text rows and crumples give many votes, but
//    a random texture lines up with a third of the samples at most, and never for long.
// 5. Choice. The lines of all gradients together (a line found in two is
//    kept once, with its longer run); the longest 8 of the paper regions'
//    borders first, the longest runs first, at most 3 per 15-degree sector
//    first (so that the many rows of a text page do not crowd out the page's
//    other two sides), then the rest by run length.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "vision/detect/page_find.h"

namespace {

constexpr int kBins = 360;
constexpr int kQ = 14;
constexpr int kCap = 8 * 8;  // weight cap in Sobel units (8 grey levels per pixel)
constexpr int kPeakCandidates = 100;
// Raw votes below which a cell is no line: about 30 pixels of a faint edge
// (a gradient of 10 in Sobel units votes 20 in its own bin).
constexpr int kMinRawVotes = 600;
constexpr int kSameBins = 3;
constexpr int kSameRho = 4;
// A stretch supports a line when at least 70 % of its samples do: a
// textured surface aligns by chance with about 30 % of them.
constexpr int kDenseTenths = 7;
constexpr int kStepLevels = 6;
constexpr int kPerSector = 3;
constexpr int kRegionLines = 8;
constexpr int kSectorDegrees = 15;
constexpr double kPi = 3.14159265358979323846;

struct Tables {
    int cosQ[kBins];
    int sinQ[kBins];
    // Angle of (1, k / 1024) in tenths of a bin, for 0 <= k <= 1024.
    int16_t atanTenths[1025];
    Tables() {
        for (int b = 0; b < kBins; ++b) {
            cosQ[b] = static_cast<int>(std::lround(std::cos(b * kPi / 180.0) * (1 << kQ)));
            sinQ[b] = static_cast<int>(std::lround(std::sin(b * kPi / 180.0) * (1 << kQ)));
        }
        for (int k = 0; k <= 1024; ++k)
            atanTenths[k] = static_cast<int16_t>(std::lround(std::atan(k / 1024.0) * 1800.0 / kPi));
    }
};

const Tables& T() {
    static const Tables tables;
    return tables;
}

// Direction of (gx, gy) in whole degrees [0, 360), rounded.
int DirectionBin(int gx, int gy) {
    const int ax = std::abs(gx), ay = std::abs(gy);
    int tenths;  // angle within the first quadrant, tenths of a degree
    if (ax >= ay)
        tenths = T().atanTenths[(ay * 1024 + ax / 2) / ax];
    else
        tenths = 900 - T().atanTenths[(ax * 1024 + ay / 2) / ay];
    if (gx < 0) tenths = 1800 - tenths;
    if (gy < 0) tenths = 3600 - tenths;
    return ((tenths + 5) / 10) % kBins;
}

struct Plane {
    const cv::Mat* gx;
    const cv::Mat* gy;
};

Plane PlaneOf(const EvidenceImage& ev, int plane) {
    if (plane == 2) return Plane{&ev.rgx, &ev.rgy};
    return plane == 1 ? Plane{&ev.cgx, &ev.cgy} : Plane{&ev.gx, &ev.gy};
}

bool Aligned(const EvidenceImage& ev, Plane g, int x, int y, double nx, double ny,
             bool skipInk = true) {
    if (x < 0 || y < 0 || x >= ev.width || y >= ev.height) return false;
    if (skipInk && ev.ink.at<uint8_t>(y, x)) return false;
    const int gx = g.gx->at<int16_t>(y, x), gy = g.gy->at<int16_t>(y, x);
    const int m2 = gx * gx + gy * gy;
    if (m2 <= kGradientFloor2) return false;
    const double gn = gx * nx + gy * ny;
    return gn > 0.0 && gn * gn > kAlignedCos * kAlignedCos * m2;
}

// Refits the line to its edge: at each sample the strongest aligned
// gradient within 2 pixels across the line, placed at the sub-pixel peak of
// a parabola through it and its two neighbours across, weighted by its
// magnitude (a centroid of all aligned pixels would follow a blurred step's
// longer flank).
void RefitLine(const EvidenceImage& ev, EvidenceLine* line) {
    const Plane g = PlaneOf(ev, line->plane);
    auto along = [&](cv::Point2d c, double off) {
        const int x = static_cast<int>(std::floor(c.x + off * line->n.x));
        const int y = static_cast<int>(std::floor(c.y + off * line->n.y));
        // The ink mask is not applied here: a page's drop shadow or a
        // sharpening halo along its border looks like a stroke, and masking
        // it would pull the fit off the border into the page.
        if (!Aligned(ev, g, x, y, line->n.x, line->n.y, false)) return 0.0;
        return g.gx->at<int16_t>(y, x) * line->n.x + g.gy->at<int16_t>(y, x) * line->n.y;
    };
    double sw = 0, sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
    for (double s = line->t0 + 0.5; s < line->t1; s += 1.0) {
        const cv::Point2d c = line->At(s);
        double v[5];
        int best = -1;
        for (int k = 0; k < 5; ++k) {
            v[k] = along(c, k - 2);
            if (v[k] > 0 && (best < 0 || v[k] > v[best])) best = k;
        }
        if (best < 0) continue;
        double shift = best - 2;
        if (best > 0 && best < 4) {
            const double den = v[best - 1] - 2 * v[best] + v[best + 1];
            if (den < 0) shift += 0.5 * (v[best - 1] - v[best + 1]) / den;
        }
        const double w = std::min(v[best], 64.0);
        const double px = c.x + shift * line->n.x, py = c.y + shift * line->n.y;
        sw += w;
        sx += w * px;
        sy += w * py;
        sxx += w * px * px;
        sxy += w * px * py;
        syy += w * py * py;
    }
    if (sw < 20 * 8.0) return;
    const double mx = sx / sw, my = sy / sw;
    const double cxx = sxx / sw - mx * mx, cxy = sxy / sw - mx * my, cyy = syy / sw - my * my;
    // Normal = eigenvector of the smaller eigenvalue of the scatter matrix.
    const double theta = 0.5 * std::atan2(2.0 * cxy, cxx - cyy);  // major axis
    cv::Point2d n(-std::sin(theta), std::cos(theta));
    if (n.dot(line->n) < 0) n = -n;
    if (n.dot(line->n) < std::cos(3.0 * kPi / 180.0)) return;  // the fit ran off to another edge
    line->n = n;
    line->offset = n.x * mx + n.y * my;
}

// Parameter range of the line inside [margin, size - margin].
bool ClipToImage(const EvidenceLine& line, int w, int h, double* t0, double* t1) {
    const double m = 1.0;
    double lo = -1e9, hi = 1e9;
    const cv::Point2d p = line.At(0.0), t = line.Tangent();
    auto clip = [&](double pc, double tc, double a, double b) {
        if (std::abs(tc) < 1e-12) return pc >= a && pc <= b;
        double u = (a - pc) / tc, v = (b - pc) / tc;
        if (u > v) std::swap(u, v);
        lo = std::max(lo, u);
        hi = std::min(hi, v);
        return true;
    };
    if (!clip(p.x, t.x, m, w - m) || !clip(p.y, t.y, m, h - m)) return false;
    if (hi - lo < 2.0) return false;
    *t0 = std::ceil(lo);
    *t1 = std::floor(hi);
    return *t1 > *t0;
}

// Whether the colour 3 to 5 pixels either side of c differs by a step (at
// least kStepLevels in Y or in doubled chroma): a page border is a step, a
// printed rule or a row of text has paper on both sides.
bool IsStep(const EvidenceImage& ev, cv::Point2d c, cv::Point2d n) {
    int sum[2][3] = {};
    for (int side = 0; side < 2; ++side) {
        const double dir = side == 0 ? 1.0 : -1.0;
        for (int d = 3; d <= 5; ++d) {
            const int x = static_cast<int>(std::floor(c.x + dir * d * n.x));
            const int y = static_cast<int>(std::floor(c.y + dir * d * n.y));
            if (x < 0 || y < 0 || x >= ev.width || y >= ev.height) return false;
            const uint8_t* p = ev.ycc.ptr<uint8_t>(y) + 3 * x;
            for (int ch = 0; ch < 3; ++ch) sum[side][ch] += p[ch];
        }
    }
    const int dy = std::abs(sum[0][0] - sum[1][0]);
    const int dr = 2 * std::abs(sum[0][1] - sum[1][1]), db = 2 * std::abs(sum[0][2] - sum[1][2]);
    return std::max({dy, dr, db}) >= 3 * kStepLevels;
}

// Length of the longest stretch of samples of which at least kDenseShare
// support the line: with prefix sums S of (supported - share), the longest
// i < j with S[j] >= S[i], found with prefix minima and suffix maxima.
int LongestDenseStretch(const std::vector<uint16_t>& support) {
    const int n = static_cast<int>(support.size()) - 1;
    if (n <= 0) return 0;
    std::vector<int> S(n + 1);  // in tenths
    for (int k = 0; k <= n; ++k) S[k] = 10 * support[k] - kDenseTenths * k;
    std::vector<int> lmin(n + 1), rmax(n + 1);
    lmin[0] = S[0];
    for (int k = 1; k <= n; ++k) lmin[k] = std::min(lmin[k - 1], S[k]);
    rmax[n] = S[n];
    for (int k = n - 1; k >= 0; --k) rmax[k] = std::max(rmax[k + 1], S[k]);
    int best = 0, i = 0, j = 0;
    while (i <= n && j <= n) {
        if (lmin[i] <= rmax[j]) {
            best = std::max(best, j - i);
            ++j;
        } else {
            ++i;
        }
    }
    return best;
}

void MeasureSupport(const EvidenceImage& ev, EvidenceLine* line) {
    line->support.assign(1, 0);
    line->longestRun = 0;
    if (!ClipToImage(*line, ev.width, ev.height, &line->t0, &line->t1)) return;
    const Plane g = PlaneOf(ev, line->plane);
    const int n = static_cast<int>(line->t1 - line->t0);
    line->support.resize(n + 1);
    for (int k = 0; k < n; ++k) {
        const cv::Point2d c = line->At(line->t0 + k + 0.5);
        bool ok = false;
        for (int off = -1; off <= 1 && !ok; ++off)
            ok = Aligned(ev, g, static_cast<int>(std::floor(c.x + off * line->n.x)),
                         static_cast<int>(std::floor(c.y + off * line->n.y)), line->n.x, line->n.y,
                         false);
        // The region's border is a step by construction.
        ok = ok && (line->plane == 2 || IsStep(ev, c, line->n));
        line->support[k + 1] = static_cast<uint16_t>(line->support[k] + (ok ? 1 : 0));
    }
    line->longestRun = LongestDenseStretch(line->support);
}

struct Peak {
    int value;
    int bin;
    int rho;
};

bool SameLine(int binA, int rhoA, int binB, int rhoB) {
    const int db = std::min((binA - binB + kBins) % kBins, (binB - binA + kBins) % kBins);
    return db <= kSameBins && std::abs(rhoA - rhoB) <= kSameRho;
}

}  // namespace

void EvidenceLine::Coverage(double ta, double tb, double* supported, double* inside) const {
    if (ta > tb) std::swap(ta, tb);
    const double lo = std::max(ta, t0), hi = std::min(tb, t1);
    if (hi - lo < 1.0 || tb - ta < 1e-9) {
        *supported = 0.0;
        *inside = 0.0;
        return;
    }
    const int n = static_cast<int>(support.size()) - 1;
    const int i0 = std::clamp(static_cast<int>(lo - t0), 0, n);
    const int i1 = std::clamp(static_cast<int>(hi - t0), 0, n);
    *supported = i1 > i0 ? static_cast<double>(support[i1] - support[i0]) / (i1 - i0) : 0.0;
    *inside = (hi - lo) / (tb - ta);
}

void AddFrameLines(int width, int height, std::vector<EvidenceLine>* lines) {
    const cv::Point2d normals[4] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    const double offsets[4] = {0.0, -static_cast<double>(width), 0.0, -static_cast<double>(height)};
    for (int k = 0; k < 4; ++k) {
        EvidenceLine line;
        line.n = normals[k];
        line.offset = offsets[k];
        line.frame = true;
        line.t0 = -1e6;  // nothing of it is sampled
        line.t1 = -1e6;
        line.support.assign(1, 0);
        lines->push_back(std::move(line));
    }
}

bool IntersectLines(const EvidenceLine& a, const EvidenceLine& b, cv::Point2d* p) {
    const double det = a.n.x * b.n.y - a.n.y * b.n.x;
    if (std::abs(det) < 1e-3) return false;
    p->x = (a.offset * b.n.y - a.n.y * b.offset) / det;
    p->y = (a.n.x * b.offset - a.offset * b.n.x) / det;
    return true;
}

namespace {

void LinesOfPlane(const EvidenceImage& ev, int plane, std::vector<EvidenceLine>* out) {
    const Plane g = PlaneOf(ev, plane);
    const int w = ev.width, h = ev.height;
    const int cx = w / 2, cy = h / 2;  // rho is measured from the image centre
    const int R = static_cast<int>(std::ceil(std::hypot(w, h) / 2)) + 2;
    const int cols = 2 * R + 1;
    std::vector<int> acc(static_cast<size_t>(kBins) * cols, 0);
    const Tables& tb = T();
    for (int y = 0; y < h; ++y) {
        const int16_t* gxr = g.gx->ptr<int16_t>(y);
        const int16_t* gyr = g.gy->ptr<int16_t>(y);
        const uint8_t* ink = ev.ink.ptr<uint8_t>(y);
        for (int x = 0; x < w; ++x) {
            const int gx = gxr[x], gy = gyr[x];
            const int m2 = gx * gx + gy * gy;
            if (m2 <= kGradientFloor2 || (plane != 2 && ink[x])) continue;
            const int wgt =
                m2 >= kCap * kCap ? kCap : static_cast<int>(std::sqrt(static_cast<double>(m2)));
            const int b0 = DirectionBin(gx, gy);
            for (int d = -1; d <= 1; ++d) {
                const int b = (b0 + d + kBins) % kBins;
                const int rho =
                    (((x - cx) * tb.cosQ[b] + (y - cy) * tb.sinQ[b]) + (1 << (kQ - 1))) >> kQ;
                acc[static_cast<size_t>(b) * cols + rho + R] += d == 0 ? 2 * wgt : wgt;
            }
        }
    }
    // Peaks of the accumulator smoothed by 1 2 1 x 1 2 1 (the angle wrapping
    // round), looked at only where the raw count could make a line.
    auto at = [&](int b, int r) {
        return acc[static_cast<size_t>((b + kBins) % kBins) * cols + r];
    };
    auto smooth = [&](int b, int r) {
        auto col = [&](int c) { return at(b - 1, c) + 2 * at(b, c) + at(b + 1, c); };
        return col(r - 1) + 2 * col(r) + col(r + 1);
    };
    std::vector<Peak> peaks;
    for (int b = 0; b < kBins; ++b) {
        const int* row = &acc[static_cast<size_t>(b) * cols];
        for (int r = 2; r + 2 < cols; ++r) {
            if (row[r] < kMinRawVotes) continue;
            const int v = smooth(b, r);
            bool peak = true;
            for (int db = -1; db <= 1 && peak; ++db)
                for (int dr = -1; dr <= 1 && peak; ++dr)
                    if ((db != 0 || dr != 0) && smooth(b + db, r + dr) > v) peak = false;
            if (peak) peaks.push_back({v, b, r - R});
        }
    }
    std::sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) {
        if (a.value != b.value) return a.value > b.value;
        if (a.bin != b.bin) return a.bin < b.bin;
        return a.rho < b.rho;
    });
    std::vector<Peak> kept;
    for (const Peak& p : peaks) {
        bool same = false;
        for (const Peak& k : kept) same = same || SameLine(p.bin, p.rho, k.bin, k.rho);
        if (same) continue;
        kept.push_back(p);
        if (static_cast<int>(kept.size()) >= kPeakCandidates) break;
    }

    for (const Peak& p : kept) {
        EvidenceLine line;
        line.plane = plane;
        line.n = {tb.cosQ[p.bin] / double(1 << kQ), tb.sinQ[p.bin] / double(1 << kQ)};
        const double norm = std::hypot(line.n.x, line.n.y);
        line.n /= norm;
        // rho was voted with pixel indices; the lines live in continuous
        // coordinates, where pixel (x, y) has its centre at (x + 0.5, y + 0.5).
        line.offset = p.rho + (cx + 0.5) * line.n.x + (cy + 0.5) * line.n.y;
        for (int it = 0; it < 2; ++it) {
            if (!ClipToImage(line, w, h, &line.t0, &line.t1)) break;
            RefitLine(ev, &line);
        }
        MeasureSupport(ev, &line);
        if (line.longestRun > 0) out->push_back(std::move(line));
    }
}

// Whether two lines are the same edge: within 3 degrees and 4 pixels.
bool SameEdge(const EvidenceLine& a, const EvidenceLine& b) {
    if (a.n.dot(b.n) < std::cos(kSameBins * kPi / 180.0)) return false;
    const cv::Point2d mid = a.At(0.5 * (a.t0 + a.t1));
    return std::abs(b.n.dot(mid) - b.offset) <= kSameRho;
}

}  // namespace

std::vector<EvidenceLine> FindEvidenceLines(const EvidenceImage& ev, int maxLines,
                                            std::vector<EvidenceLine>* considered) {
    std::vector<EvidenceLine> lines;
    LinesOfPlane(ev, 0, &lines);
    LinesOfPlane(ev, 1, &lines);
    if (!ev.rgx.empty()) LinesOfPlane(ev, 2, &lines);
    std::stable_sort(lines.begin(), lines.end(), [](const EvidenceLine& a, const EvidenceLine& b) {
        return a.longestRun > b.longestRun;
    });
    // A chroma line that repeats a longer line of the dominant gradient (or
    // the other way round) goes.
    std::vector<EvidenceLine> unique;
    for (EvidenceLine& l : lines) {
        bool same = false;
        for (const EvidenceLine& u : unique) same = same || SameEdge(u, l);
        if (!same) unique.push_back(std::move(l));
    }
    lines = std::move(unique);
    if (considered != nullptr) *considered = lines;
    std::vector<EvidenceLine> out;
    std::vector<char> taken(lines.size(), 0);
    // The paper regions' borders first: few, and what a faint page has.
    int regionLines = 0;
    for (size_t i = 0; i < lines.size() && regionLines < kRegionLines; ++i)
        if (lines[i].plane == 2) {
            taken[i] = 1;
            out.push_back(lines[i]);
            ++regionLines;
        }
    int perSector[180 / kSectorDegrees] = {};
    for (size_t i = 0; i < lines.size() && static_cast<int>(out.size()) < maxLines; ++i) {
        if (taken[i]) continue;
        double deg = std::atan2(lines[i].n.y, lines[i].n.x) * 180.0 / kPi;
        deg = std::fmod(deg + 360.0, 180.0);
        const int sector =
            std::min(static_cast<int>(deg) / kSectorDegrees, 180 / kSectorDegrees - 1);
        if (perSector[sector] >= kPerSector) continue;
        ++perSector[sector];
        taken[i] = 1;
        out.push_back(lines[i]);
    }
    for (size_t i = 0; i < lines.size() && static_cast<int>(out.size()) < maxLines; ++i)
        if (!taken[i]) out.push_back(lines[i]);
    for (EvidenceLine& l : out) {
        const int n = static_cast<int>(l.support.size()) - 1;
        l.samples.resize(n);
        for (int k = 0; k < n; ++k) l.samples[k] = SampleAcross(ev, l.At(l.t0 + k + 0.5), l.n);
    }
    return out;
}
