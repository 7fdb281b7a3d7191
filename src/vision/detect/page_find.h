// The verified page search around the fixed detector: an evidence image of
// the photograph, long straight step edges found on it, page candidates
// (from those edges, from the fixed detector's own search and from a region
// of paper), the evidence that a candidate is a page, and the refinement of
// the chosen corners on the full-size photograph.
//
// Coordinates: a Quad2d is four corners in the detector's order (top-left,
// bottom-left, bottom-right, top-right), continuous pixels (pixel (i, j)
// covers [i, i+1) x [j, j+1)), in the image the function names.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

using Quad2d = std::array<cv::Point2d, 4>;

// ---------------------------------------------------------------------------
// Evidence image (page_evidence_image.cpp).
// ---------------------------------------------------------------------------

// About the longer side of the evidence image: large enough that a page side
// is a few hundred samples long, small enough that every measurement stays
// cheap.
constexpr int kEvidenceSide = 512;

struct EvidenceImage {
    cv::Mat ycc;         // CV_8UC3 Y, Cr, Cb, lightly smoothed
    cv::Mat gx, gy;      // CV_16SC1 Sobel derivatives of the dominant channel (chroma doubled)
    cv::Mat cgx, cgy;    // CV_16SC1 the same of the dominant chroma channel alone
    cv::Mat ink;         // CV_8UC1, 1 on and around thin dark strokes (print, rules, grout)
    cv::Mat rgx, rgy;    // CV_16SC1 derivatives of the smoothed paper region (empty without one)
    double scale = 1.0;  // photograph pixels per evidence pixel
    int width = 0;
    int height = 0;
    // The image's own light and colour, against which a paper is judged:
    // the share of pixels darker than each Y level (1/65536), and the median
    // saturation |Cr - 128| + |Cb - 128|.
    int darkerThan[256] = {};
    int medianSaturation = 0;
};

// Reduces `image` (CV_8UC3, R, G, B), whose pixels are `imageScale` photograph
// pixels wide, to the evidence image. False for an empty or tiny image.
bool BuildEvidenceImage(const cv::Mat& image, double imageScale, EvidenceImage* out);

// Regions of paper (page_region.cpp): around the image centre, and around
// the most paper-like place when that differs. CV_8UC1 masks, 255 inside;
// returns how many were found (0 to 2).
int PaperRegions(const EvidenceImage& ev, cv::Mat masks[2]);
// The coarsest four-cornered polygon of a region's convex hull, in the
// detector's corner order; false when the hull does not come to four.
bool RegionQuadrangle(const cv::Mat& mask, Quad2d* q);
// Adds the regions' borders as a gradient to the evidence image (rgx, rgy).
void AddRegionGradient(const cv::Mat* masks, int count, EvidenceImage* ev);

// Squared gradient magnitude (Sobel units) below which a pixel carries no
// direction, and the cosine a gradient must reach with a side's normal to
// count as that side's edge.
constexpr int kGradientFloor2 = 8 * 8;
constexpr double kAlignedCos = 0.94;

// ---------------------------------------------------------------------------
// Samples across an edge (page_samples.cpp).
// ---------------------------------------------------------------------------

// What the evidence reads at one point of a line or side with normal n.
struct EdgeSample {
    int8_t edge = 0;        // +1 a gradient aligned with +n, -1 with -n, 0 none
    uint8_t step = 0;       // that gradient along n, grey levels per pixel (capped)
    uint8_t bands = 0;      // 1 when both bands lie inside the image
    uint8_t plus[3] = {};   // mean Y, Cr, Cb 3 to 6 pixels along +n
    uint8_t minus[3] = {};  // the same along -n
};

// The sample at p (continuous evidence-image pixels) across normal n.
EdgeSample SampleAcross(const EvidenceImage& ev, cv::Point2d p, cv::Point2d n);

// ---------------------------------------------------------------------------
// Straight step edges (page_lines.cpp).
// ---------------------------------------------------------------------------

// A full line across the evidence image, n . p = offset, oriented: the
// gradient of its edge points along +n. Samples are taken one pixel apart
// along the tangent (-n.y, n.x), sample k at t0 + k + 0.5, over the part
// inside the image [t0, t1]; support[k] counts the supported samples before
// sample k (an edge of the line's own polarity in the gradient that found
// the line).
struct EvidenceLine {
    cv::Point2d n;
    double offset = 0.0;
    double t0 = 0.0;
    double t1 = 0.0;
    int plane = 0;       // the gradient it was found in: 0 dominant, 1 chroma alone, 2 paper region
    bool frame = false;  // the photograph's frame: a page running past it ends there
    std::vector<uint16_t> support;
    std::vector<EdgeSample> samples;
    int longestRun = 0;  // longest run of support, bridging gaps of a few pixels

    cv::Point2d Tangent() const { return {-n.y, n.x}; }
    cv::Point2d At(double t) const { return {n.x * offset + t * -n.y, n.y * offset + t * n.x}; }
    double Param(cv::Point2d p) const { return p.x * -n.y + p.y * n.x; }
    // Share of the samples between parameters ta < tb that support the line,
    // and the share of [ta, tb] that lies inside the image.
    void Coverage(double ta, double tb, double* supported, double* inside) const;
};

// The straight step edges of the evidence image, the longest first, at most
// `maxLines`, no orientation crowding out the others, each with its samples.
// `considered` (may be null) receives every line the choice was made from.
std::vector<EvidenceLine> FindEvidenceLines(const EvidenceImage& ev, int maxLines,
                                            std::vector<EvidenceLine>* considered = nullptr);

// The four sides of the image's frame as lines, normals pointing inwards,
// with no support and no samples.
void AddFrameLines(int width, int height, std::vector<EvidenceLine>* lines);

// Intersection of two lines; false when they are (nearly) parallel.
bool IntersectLines(const EvidenceLine& a, const EvidenceLine& b, cv::Point2d* p);

// ---------------------------------------------------------------------------
// Candidates (page_quads.cpp) and their evidence (page_evidence.cpp).
// ---------------------------------------------------------------------------

enum class CandidateSource : int { kLines = 0, kFixedSearch = 1, kFixedAnswer = 2, kRegion = 3 };

struct PageCandidate {
    Quad2d corners;  // evidence-image pixels
    // For line candidates, the line of each side (P0P1, P1P2, P2P3, P3P0),
    // whose samples the evidence reuses; -1 otherwise.
    int lines[4] = {-1, -1, -1, -1};
    CandidateSource source = CandidateSource::kLines;
    double lineScore = 0.0;  // coverage of the sides by their lines (line candidates)
    double evidence = 0.0;   // the page model's rank score
};

// Quadrangles bounded by four of the lines (two roughly opposite pairs),
// convex, covering at least a few percent of the image, corners at most a
// little outside it; the `keep` best by the coverage of their sides.
void EnumerateLineQuads(const std::vector<EvidenceLine>& lines, int width, int height, size_t keep,
                        std::vector<PageCandidate>* out);

// Per-side measurements of a candidate (see page_evidence.cpp).
struct SideEvidence {
    double inside = 0.0;     // share of the side inside the image
    double banded = 0.0;     // share of its samples with both bands inside the image
    double edge = 0.0;       // share of samples with a sharp edge across the side
    double polarity = 0.0;   // +1 brighter inside, -1 darker inside (mean sign of the edge)
    double step = 0.0;       // share of samples whose two bands differ
    double paperIn = 0.0;    // share of inner band samples of the page's paper colour
    double paperOut = 0.0;   // share of outer band samples of that colour
    double sharpness = 0.0;  // edge gradient relative to the band step (soft shadows are low)
};

struct PageEvidence {
    SideEvidence side[4];          // sides P0P1, P1P2, P2P3, P3P0
    double interiorPaper = 0.0;    // share of the interior of the paper colour
    double interiorInk = 0.0;      // share of the interior on print (the ink mask)
    double ringPaper = 0.0;        // share of a ring 4 to 12 pixels outside of the paper colour
    double paperLight = 0.0;       // share of the image darker than the paper
    double paperSaturation = 0.0;  // the paper's saturation above the image's median, /64
    int frameSides = 0;            // sides along the image's frame
    double beyondMax = 0.0;        // the most, over the sides, of paper again 14 to 40 pixels out
    double beyondMean = 0.0;       // the mean of it
    double areaShare = 0.0;        // candidate area / image area
};

// What the page model reads of a candidate: order statistics of its sides'
// measures, its interior and surroundings, its shape and where it came from
// (page_evidence.cpp lists them).
constexpr int kCandidateFeatures = 34;
using CandidateFeatures = std::array<float, kCandidateFeatures>;
CandidateFeatures DescribeCandidate(const PageEvidence& e, const PageCandidate& c);

// Measures the evidence that the candidate bounds a page; its sides read the
// samples of their lines when it has them (`lines` as FindEvidenceLines gave
// them), otherwise they are sampled afresh.
PageEvidence MeasurePageEvidence(const EvidenceImage& ev, const std::vector<EvidenceLine>& lines,
                                 const PageCandidate& candidate);

// ---------------------------------------------------------------------------
// Refinement on the full-size photograph (page_refine.cpp).
// ---------------------------------------------------------------------------

// Refits each side of `q` (photograph pixels) to the edge of the photograph
// within `band` pixels of it and intersects the refitted sides. A side
// without a clear edge keeps its place.
Quad2d RefinePageCorners(const cv::Mat& photo, const Quad2d& q, double band);

// ---------------------------------------------------------------------------
// Geometry helpers.
// ---------------------------------------------------------------------------

// Puts four corners in the detector's order (top-left first, then
// counter-clockwise on the screen: bottom-left, bottom-right, top-right).
Quad2d OrderCorners(const std::array<cv::Point2d, 4>& pts);
double QuadArea(const Quad2d& q);
