// The evidence that a quadrangle bounds a page.
//
// Each side is walked one sample a pixel, leaving 3 pixels at either end to
// the neighbouring sides, over its part inside the image (a side on one of
// the candidate's lines reads that line's samples; page_samples.cpp says
// what a sample holds: the edge across the side and the colour of the bands
// 3 to 6 pixels either side).
// The paper: the median colour of all inner bands, with a tolerance of 2.5
// median deviations (at least 10 levels of Y and 5 of chroma). A page's
// margin is paper all round its sides; its surroundings are not.
//
// Per side: the share of samples with an edge; its polarity (inside
// brighter or darker); the share whose bands differ by more than 8 levels;
// the shares of inner and of outer band samples of the paper's colour; and
// the sharpness, the edge gradient against the band step, which tells a
// paper edge (a step over a pixel or two) from a soft shadow's edge.
//
// A pattern line has the same cloth on both sides, a printed box has paper
// on both sides, a shadow's edge is soft and has paper on both sides in
// chroma, and a quadrangle that runs over the table has no paper along its
// inner bands: each fails a different measure, and no single case is
// special-cased. Around the quadrangle: the interior's paper and print, the
// paper in a ring just outside and further out (a dark bar printed on the
// page has paper again beyond it), and the paper's light and saturation
// against the whole image's. DescribeCandidate turns all this into the page
// model's features; how they weigh is learnt (page_model.h).
#include <algorithm>
#include <cmath>

#include "vision/detect/page_find.h"

namespace {

constexpr int kEndSkip = 3;
constexpr int kStepLevels = 8;

// A sample of a side, turned to the candidate: `in` is the inner band.
struct Sample {
    int edge;  // +1 brighter (or more chroma) inside, -1 the other way, 0 no edge
    int step;  // edge gradient, grey levels per pixel
    bool bands;
    int in[3];
    int out[3];
};

// Colour distance with chroma doubled (chroma differences are small).
int Distance(const int a[3], const int b[3]) {
    const int dy = a[0] - b[0], dr = 2 * (a[1] - b[1]), db = 2 * (a[2] - b[2]);
    return static_cast<int>(std::sqrt(static_cast<double>(dy * dy + dr * dr + db * db)));
}

// The value of rank n / 2 (from 0) of what a 256-bin histogram of n values
// counts.
int HistogramMedian(const int (&hist)[256], int n) {
    int below = 0;
    for (int v = 0; v < 256; ++v) {
        below += hist[v];
        if (below > n / 2) return v;
    }
    return 255;
}

int Median(const std::vector<int>& v) {
    int hist[256] = {};
    for (int x : v) ++hist[std::clamp(x, 0, 255)];
    return HistogramMedian(hist, static_cast<int>(v.size()));
}

struct Paper {
    int colour[3];
    int tol[3];
    bool Matches(const int c[3]) const {
        return std::abs(c[0] - colour[0]) <= tol[0] && std::abs(c[1] - colour[1]) <= tol[1] &&
               std::abs(c[2] - colour[2]) <= tol[2];
    }
};

Sample Turned(const EdgeSample& e, bool inwardIsPlus) {
    Sample s{};
    s.edge = inwardIsPlus ? e.edge : -e.edge;
    s.step = e.step;
    s.bands = e.bands != 0;
    for (int c = 0; c < 3; ++c) {
        s.in[c] = inwardIsPlus ? e.plus[c] : e.minus[c];
        s.out[c] = inwardIsPlus ? e.minus[c] : e.plus[c];
    }
    return s;
}

// The samples of side a -> b, from its line's samples when it has a line,
// otherwise sampled afresh; `insideShare` is the share of the side inside
// the image.
void SideSamples(const EvidenceImage& ev, const EvidenceLine* line, cv::Point2d a, cv::Point2d b,
                 cv::Point2d centre, std::vector<Sample>* samples, double* insideShare) {
    samples->clear();
    *insideShare = 0.0;
    const double len = std::hypot(b.x - a.x, b.y - a.y);
    if (len < 2 * kEndSkip + 2) return;
    const cv::Point2d u = (b - a) / len;
    cv::Point2d n(-u.y, u.x);
    if (n.dot(centre - (a + b) * 0.5) < 0) n = -n;
    const double lo = kEndSkip, hi = len - kEndSkip;  // along a -> b
    if (line != nullptr) {
        const bool plusInward = line->n.dot(n) > 0;
        double ta = line->Param(a), tb = line->Param(b);
        const bool forward = ta <= tb;
        if (!forward) std::swap(ta, tb);
        const double from = ta + (forward ? lo : len - hi), to = ta + (forward ? hi : len - lo);
        const int count = static_cast<int>(line->samples.size());
        const int k0 = std::max(0, static_cast<int>(std::ceil(from - line->t0 - 0.5)));
        const int k1 = std::min(count - 1, static_cast<int>(std::floor(to - line->t0 - 0.5)));
        for (int k = k0; k <= k1; ++k) samples->push_back(Turned(line->samples[k], plusInward));
        *insideShare = std::max(0, k1 - k0 + 1) / std::max(1.0, hi - lo);
        return;
    }
    const double w = ev.width, h = ev.height;
    int total = 0;
    for (double t = lo + 0.5; t < hi; t += 1.0) {
        ++total;
        const cv::Point2d p = a + u * t;
        if (p.x < 1 || p.y < 1 || p.x > w - 1 || p.y > h - 1) continue;
        samples->push_back(Turned(SampleAcross(ev, p, n), true));
    }
    *insideShare = total > 0 ? static_cast<double>(samples->size()) / total : 0.0;
}

// The paper: per channel, the median of the inner bands, with a tolerance of
// 2.5 median deviations (histograms of 256 levels).
Paper PaperOf(const std::vector<Sample> (&sides)[4]) {
    Paper paper{};
    int hist[3][256] = {};
    int n = 0;
    for (const auto& side : sides)
        for (const Sample& s : side)
            if (s.bands) {
                ++n;
                for (int c = 0; c < 3; ++c) ++hist[c][s.in[c]];
            }
    const int floorTol[3] = {10, 5, 5};
    for (int c = 0; c < 3; ++c) {
        paper.colour[c] = HistogramMedian(hist[c], n);
        int dev[256] = {};
        for (int v = 0; v < 256; ++v) dev[std::abs(v - paper.colour[c])] += hist[c][v];
        paper.tol[c] = std::max(floorTol[c], (5 * HistogramMedian(dev, n)) / 2);
    }
    return paper;
}

SideEvidence MeasureSide(const std::vector<Sample>& samples, double insideShare,
                         const Paper& paper) {
    SideEvidence e;
    e.inside = insideShare;
    if (samples.empty()) return e;
    int pos = 0, neg = 0, bands = 0, step = 0, pin = 0, pout = 0;
    std::vector<int> sharp;
    for (const Sample& s : samples) {
        if (s.edge > 0) ++pos;
        if (s.edge < 0) ++neg;
        if (!s.bands) continue;
        ++bands;
        if (Distance(s.in, s.out) > kStepLevels) ++step;
        if (paper.Matches(s.in)) ++pin;
        if (paper.Matches(s.out)) ++pout;
        const int dY = std::abs(s.in[0] - s.out[0]);
        if (dY >= 6) sharp.push_back(std::min(100, (100 * s.step) / dY));
    }
    const double n = static_cast<double>(samples.size());
    e.edge = std::max(pos, neg) / n;
    e.polarity = (pos - neg) / n;
    e.banded = bands / n;
    if (bands > 0) {
        e.step = static_cast<double>(step) / bands;
        e.paperIn = static_cast<double>(pin) / bands;
        e.paperOut = static_cast<double>(pout) / bands;
    }
    e.sharpness = sharp.size() >= 8 ? Median(sharp) / 100.0 : 0.0;
    return e;
}

int Pixel(const cv::Mat& m, double x, double y, int c) {
    const int xi = std::clamp(static_cast<int>(std::floor(x)), 0, m.cols - 1);
    const int yi = std::clamp(static_cast<int>(std::floor(y)), 0, m.rows - 1);
    return m.ptr<uint8_t>(yi)[3 * xi + c];
}

// The interior on a 16 x 16 grid (bilinear in the corners): the share of
// the paper's colour and the share on print; and a ring outside the sides,
// 4, 8 and 12 pixels out at 16 places along each: the share of the paper's
// colour there. A page is paper with print on it, and its surroundings are
// not paper.
void Interior(const EvidenceImage& ev, const Quad2d& q, const Paper& paper, PageEvidence* e) {
    int paperHits = 0, inkHits = 0, total = 0;
    for (int i = 0; i < 16; ++i) {
        const double v = (i + 0.5) / 16.0;
        for (int j = 0; j < 16; ++j) {
            const double u = (j + 0.5) / 16.0;
            const cv::Point2d top = q[0] * (1 - u) + q[3] * u;
            const cv::Point2d bottom = q[1] * (1 - u) + q[2] * u;
            const cv::Point2d p = top * (1 - v) + bottom * v;
            if (p.x < 0 || p.y < 0 || p.x >= ev.width || p.y >= ev.height) continue;
            int c[3];
            for (int k = 0; k < 3; ++k) c[k] = Pixel(ev.ycc, p.x, p.y, k);
            ++total;
            paperHits += paper.Matches(c);
            inkHits += ev.ink.at<uint8_t>(static_cast<int>(p.y), static_cast<int>(p.x)) != 0;
        }
    }
    e->interiorPaper = total > 0 ? static_cast<double>(paperHits) / total : 0.0;
    e->interiorInk = total > 0 ? static_cast<double>(inkHits) / total : 0.0;
    const cv::Point2d centre = (q[0] + q[1] + q[2] + q[3]) * 0.25;
    int ringHits = 0, ringTotal = 0;
    e->beyondMax = 0.0;
    e->beyondMean = 0.0;
    int beyondSides = 0;
    for (int s = 0; s < 4; ++s) {
        const cv::Point2d a = q[s], b = q[(s + 1) % 4];
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        if (len < 1.0) continue;
        cv::Point2d n(-(b.y - a.y) / len, (b.x - a.x) / len);
        if (n.dot(centre - (a + b) * 0.5) > 0) n = -n;  // outward
        int beyond = 0, places = 0;
        for (int k = 0; k < 16; ++k) {
            const cv::Point2d base = a + (b - a) * ((k + 0.5) / 16.0);
            for (int d = 4; d <= 12; d += 4) {
                const cv::Point2d p = base + n * static_cast<double>(d);
                if (p.x < 0 || p.y < 0 || p.x >= ev.width || p.y >= ev.height) continue;
                int c[3];
                for (int ch = 0; ch < 3; ++ch) c[ch] = Pixel(ev.ycc, p.x, p.y, ch);
                ++ringTotal;
                ringHits += paper.Matches(c);
            }
            // Paper again further out: the side is the edge of something
            // printed on the page (a dark header bar, a table), not of the
            // page.
            bool any = false, looked = false;
            for (int d = 14; d <= 40 && !any; d += 6) {
                const cv::Point2d p = base + n * static_cast<double>(d);
                if (p.x < 0 || p.y < 0 || p.x >= ev.width || p.y >= ev.height) break;
                int c[3];
                for (int ch = 0; ch < 3; ++ch) c[ch] = Pixel(ev.ycc, p.x, p.y, ch);
                looked = true;
                any = paper.Matches(c);
            }
            places += looked;
            beyond += any;
        }
        if (places >= 4) {
            const double share = static_cast<double>(beyond) / places;
            e->beyondMax = std::max(e->beyondMax, share);
            e->beyondMean += share;
            ++beyondSides;
        }
    }
    if (beyondSides > 0) e->beyondMean /= beyondSides;
    e->ringPaper = ringTotal > 0 ? static_cast<double>(ringHits) / ringTotal : 0.0;
    e->paperLight = ev.darkerThan[std::clamp(paper.colour[0], 0, 255)] / 65536.0;
    const int saturation = std::abs(paper.colour[1] - 128) + std::abs(paper.colour[2] - 128);
    e->paperSaturation = (saturation - ev.medianSaturation) / 64.0;
}

}  // namespace

PageEvidence MeasurePageEvidence(const EvidenceImage& ev, const std::vector<EvidenceLine>& lines,
                                 const PageCandidate& candidate) {
    PageEvidence e;
    const Quad2d& q = candidate.corners;
    const cv::Point2d centre = (q[0] + q[1] + q[2] + q[3]) * 0.25;
    // The sides' samples, kept between calls: hundreds of candidates are
    // measured per photograph.
    thread_local std::vector<Sample> samples[4];
    double inside[4];
    for (int s = 0; s < 4; ++s) {
        const int l = candidate.lines[s];
        const EvidenceLine* line =
            l >= 0 && l < static_cast<int>(lines.size()) ? &lines[l] : nullptr;
        e.frameSides += line != nullptr && line->frame;
        SideSamples(ev, line, q[s], q[(s + 1) % 4], centre, &samples[s], &inside[s]);
    }
    const Paper paper = PaperOf(samples);
    for (int s = 0; s < 4; ++s) e.side[s] = MeasureSide(samples[s], inside[s], paper);
    Interior(ev, q, paper, &e);
    e.areaShare = QuadArea(q) / (static_cast<double>(ev.width) * ev.height);
    return e;
}

CandidateFeatures DescribeCandidate(const PageEvidence& e, const PageCandidate& c) {
    CandidateFeatures f{};
    // Sides seen in the image (at least a fifth of them inside), weakest
    // first by edge x step x paper inside x no paper outside.
    double quantity[4][7];
    double strength[4];
    int n = 0;
    for (int s = 0; s < 4; ++s) {
        const SideEvidence& d = e.side[s];
        if (d.inside < 0.2) continue;
        const double q[7] = {d.inside,  d.edge,     std::abs(d.polarity),      d.step,
                             d.paperIn, d.paperOut, std::min(d.sharpness, 1.0)};
        for (int k = 0; k < 7; ++k) quantity[n][k] = q[k];
        strength[n] = d.edge * d.step * d.paperIn * (1.0 - d.paperOut);
        ++n;
    }
    int k = 0;
    for (int q = 0; q < 7; ++q) {  // 0..13: min and mean of each measure
        double lo = 1.0, sum = 0.0;
        for (int i = 0; i < n; ++i) {
            lo = std::min(lo, quantity[i][q]);
            sum += quantity[i][q];
        }
        f[k++] = static_cast<float>(n > 0 ? lo : 0.0);
        f[k++] = static_cast<float>(n > 0 ? sum / n : 0.0);
    }
    for (int i = 1; i < n; ++i)  // at most four: insertion
        for (int j = i; j > 0 && strength[j] < strength[j - 1]; --j)
            std::swap(strength[j], strength[j - 1]);
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += strength[i];
    f[k++] = static_cast<float>(n > 0 ? strength[0] : 0.0);            // 14: weakest side
    f[k++] = static_cast<float>(n > 1 ? strength[1] : 0.0);            // 15: second weakest
    f[k++] = static_cast<float>(n > 0 ? sum / n : 0.0);                // 16: mean
    f[k++] = static_cast<float>(n);                                    // 17: sides seen
    f[k++] = static_cast<float>(e.areaShare);                          // 18
    f[k++] = static_cast<float>(e.interiorPaper);                      // 19
    f[k++] = static_cast<float>(e.interiorInk);                        // 20
    f[k++] = static_cast<float>(e.ringPaper);                          // 21
    f[k++] = static_cast<float>(e.paperLight);                         // 22
    f[k++] = static_cast<float>(e.paperSaturation);                    // 23
    f[k++] = static_cast<float>(e.frameSides);                         // 24
    f[k++] = static_cast<float>(c.lineScore);                          // 25
    f[k++] = c.source == CandidateSource::kFixedAnswer ? 1.0f : 0.0f;  // 26
    f[k++] = c.source == CandidateSource::kFixedSearch ? 1.0f : 0.0f;  // 27
    // 28: agreement of the sides' polarity (all brighter inside, or all darker)
    double pol = 0.0, ins = 0.0;
    for (const SideEvidence& d : e.side) {
        pol += d.inside * d.polarity;
        ins += d.inside;
    }
    f[k++] = static_cast<float>(ins > 0 ? std::abs(pol) / ins : 0.0);
    // 29: the corner angle furthest from a right angle, /90; 30, 31: the
    // shorter over the longer of each pair of opposite sides.
    const Quad2d& q = c.corners;
    double worst = 0.0, len[4];
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d a = q[(i + 3) % 4] - q[i], b = q[(i + 1) % 4] - q[i];
        const double cosine =
            a.dot(b) / std::max(1e-9, std::hypot(a.x, a.y) * std::hypot(b.x, b.y));
        worst = std::max(worst,
                         std::abs(std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / CV_PI - 90.0));
        len[i] = std::hypot(q[(i + 1) % 4].x - q[i].x, q[(i + 1) % 4].y - q[i].y);
    }
    f[k++] = static_cast<float>(worst / 90.0);
    f[k++] =
        static_cast<float>(std::min(len[0], len[2]) / std::max(1e-9, std::max(len[0], len[2])));
    f[k++] =
        static_cast<float>(std::min(len[1], len[3]) / std::max(1e-9, std::max(len[1], len[3])));
    f[k++] = static_cast<float>(e.beyondMax);   // 32
    f[k++] = static_cast<float>(e.beyondMean);  // 33
    return f;
}
