// A region of paper: the second opinion when the page's borders are too
// faint to stand out as edges (a white page on a crumpled white sheet under
// coloured light differs from it in tint more than in any single edge).
//
// At half the evidence image's size:
// 1. Colour without print: Y closed by 3 x 3 (print is narrower than that),
//    Cr and Cb smoothed by a 3 x 3 box.
// 2. Each plane is scaled by its spread over the image (10th to 90th
//    percentile, at least 20 levels for Y and 4 for chroma), so that a page
//    that differs from its surroundings only in a faint tint still stands
//    apart, while a plane that is flat everywhere does not amplify noise.
// 3. Two seeds, each a box of a tenth of the image: its centre (the
//    photographer centres the page), and the most paper-like place, where Y
//    less twice the saturation, averaged over a box of that size, is
//    highest (a page off-centre, or a receipt beside a brick wall). Per
//    seed, its median colour; every pixel's distance to it is taken, and
//    Otsu's threshold on the distances splits near from far.
// 4. The near pixels connected to the seed box, with their holes filled
//    (text blocks, pictures), are a region; the second seed's region counts
//    only when it differs from the first.
// The region's border then stands for the page's border, twice: its mask is
// smoothed and differentiated like the image, and the line search reads it
// as one more gradient (page_lines.cpp), so its straight stretches become
// candidate sides; and the coarsest four-cornered polygon of its convex hull
// is a candidate of its own, its sides snapped to the nearest straight edges
// (page_search.cpp). The evidence weighs both like any other candidate.
#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/detect/geometry.h"
#include "vision/detect/page_find.h"

namespace {

constexpr int kBins = 256;

// Percentile of an 8-bit plane from its histogram.
int Percentile(const cv::Mat& plane, double q) {
    int hist[256] = {};
    for (int y = 0; y < plane.rows; ++y) {
        const uint8_t* p = plane.ptr<uint8_t>(y);
        for (int x = 0; x < plane.cols; ++x) ++hist[p[x]];
    }
    const double target = q * plane.total();
    double sum = 0;
    for (int v = 0; v < 256; ++v) {
        sum += hist[v];
        if (sum >= target) return v;
    }
    return 255;
}

// Otsu's threshold over a histogram.
int Otsu(const std::vector<int>& hist) {
    double total = 0, sumAll = 0;
    for (int i = 0; i < static_cast<int>(hist.size()); ++i) {
        total += hist[i];
        sumAll += static_cast<double>(i) * hist[i];
    }
    double wB = 0, sumB = 0, best = -1;
    int threshold = 0;
    for (int t = 0; t < static_cast<int>(hist.size()); ++t) {
        wB += hist[t];
        if (wB == 0) continue;
        const double wF = total - wB;
        if (wF == 0) break;
        sumB += static_cast<double>(t) * hist[t];
        const double mB = sumB / wB, mF = (sumAll - sumB) / wF;
        const double between = wB * wF * (mB - mF) * (mB - mF);
        if (between > best) {
            best = between;
            threshold = t;
        }
    }
    return threshold;
}

}  // namespace

namespace {

// The planes without print, each with its spread (see 1 and 2 above).
struct RegionPlanes {
    cv::Mat plane[3];
    int spread[3];
};

RegionPlanes PlanesOf(const cv::Mat& ycc) {
    RegionPlanes r;
    cv::split(ycc, r.plane);
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, {3, 3});
    cv::morphologyEx(r.plane[0], r.plane[0], cv::MORPH_CLOSE, square, {-1, -1}, 1,
                     cv::BORDER_REPLICATE);
    cv::blur(r.plane[1], r.plane[1], {3, 3}, {-1, -1}, cv::BORDER_REPLICATE);
    cv::blur(r.plane[2], r.plane[2], {3, 3}, {-1, -1}, cv::BORDER_REPLICATE);
    const int floorSpread[3] = {20, 4, 4};
    for (int c = 0; c < 3; ++c)
        r.spread[c] =
            std::max(floorSpread[c], Percentile(r.plane[c], 0.9) - Percentile(r.plane[c], 0.1));
    return r;
}

// The most paper-like box of the image's size / 10.
cv::Rect PaperLikeBox(const RegionPlanes& r) {
    const int w = r.plane[0].cols, h = r.plane[0].rows;
    cv::Mat score(h, w, CV_16SC1);
    for (int y = 0; y < h; ++y) {
        const uint8_t* p0 = r.plane[0].ptr<uint8_t>(y);
        const uint8_t* p1 = r.plane[1].ptr<uint8_t>(y);
        const uint8_t* p2 = r.plane[2].ptr<uint8_t>(y);
        int16_t* o = score.ptr<int16_t>(y);
        for (int x = 0; x < w; ++x)
            o[x] =
                static_cast<int16_t>(p0[x] - 2 * (std::abs(p1[x] - 128) + std::abs(p2[x] - 128)));
    }
    const int bw = std::max(1, w / 10), bh = std::max(1, h / 10);
    cv::Mat mean;
    cv::boxFilter(score, mean, CV_32F, {bw, bh}, {0, 0}, true, cv::BORDER_REPLICATE);
    double best = -1e9;
    cv::Point at(0, 0);
    for (int y = 0; y + bh <= h; ++y)
        for (int x = 0; x + bw <= w; ++x)
            if (mean.at<float>(y, x) > best) {
                best = mean.at<float>(y, x);
                at = {x, y};
            }
    return cv::Rect(at.x, at.y, bw, bh);
}

bool RegionFromSeed(const RegionPlanes& r, cv::Rect box, cv::Mat* mask) {
    const int w = r.plane[0].cols, h = r.plane[0].rows;
    int seed[3];
    for (int c = 0; c < 3; ++c) seed[c] = Percentile(r.plane[c](box), 0.5);
    // Distances to the seed, in spreads, scaled to 0..255 (4 spreads and
    // beyond are 255).
    cv::Mat dist(h, w, CV_8UC1);
    std::vector<int> hist(kBins, 0);
    for (int y = 0; y < h; ++y) {
        const uint8_t* p0 = r.plane[0].ptr<uint8_t>(y);
        const uint8_t* p1 = r.plane[1].ptr<uint8_t>(y);
        const uint8_t* p2 = r.plane[2].ptr<uint8_t>(y);
        uint8_t* o = dist.ptr<uint8_t>(y);
        for (int x = 0; x < w; ++x) {
            const double d0 = static_cast<double>(p0[x] - seed[0]) / r.spread[0];
            const double d1 = static_cast<double>(p1[x] - seed[1]) / r.spread[1];
            const double d2 = static_cast<double>(p2[x] - seed[2]) / r.spread[2];
            const int d = static_cast<int>(std::sqrt(d0 * d0 + d1 * d1 + d2 * d2) * 64.0);
            o[x] = static_cast<uint8_t>(std::min(d, 255));
            ++hist[o[x]];
        }
    }
    const int t = Otsu(hist);
    cv::Mat near;
    cv::threshold(dist, near, t, 255, cv::THRESH_BINARY_INV);
    cv::morphologyEx(near, near, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}));
    cv::Mat labels;
    const int count = cv::connectedComponents(near, labels, 4, CV_32S);
    // The component holding the most of the seed box.
    std::vector<int> votes(count, 0);
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x) ++votes[labels.at<int>(y, x)];
    int best = 0;
    for (int l = 1; l < count; ++l)
        if (votes[l] > votes[best] || best == 0) best = votes[l] > 0 ? l : best;
    if (best == 0 || votes[best] == 0) return false;
    cv::Mat region = labels == best;
    // Fill holes: what the outside cannot reach from the frame is inside.
    cv::Mat outside;
    cv::copyMakeBorder(region, outside, 1, 1, 1, 1, cv::BORDER_CONSTANT, 0);
    cv::floodFill(outside, cv::Point(0, 0), 128);
    *mask = outside(cv::Rect(1, 1, w, h)) != 128;
    return true;
}

}  // namespace

int PaperRegions(const EvidenceImage& ev, cv::Mat masks[2]) {
    if (ev.width < 32 || ev.height < 32) return 0;
    // At half the evidence image's size: regions are coarse.
    cv::Mat half;
    cv::resize(ev.ycc, half, cv::Size(ev.width / 2, ev.height / 2), 0.0, 0.0, cv::INTER_AREA);
    const int w = half.cols, h = half.rows;
    const RegionPlanes planes = PlanesOf(half);
    const cv::Rect centre(w * 9 / 20, h * 9 / 20, std::max(1, w / 10), std::max(1, h / 10));
    int n = 0;
    if (RegionFromSeed(planes, centre, &masks[n])) ++n;
    cv::Mat other;
    if (RegionFromSeed(planes, PaperLikeBox(planes), &other)) {
        bool differs = true;
        if (n == 1) {
            const double both = cv::countNonZero(masks[0] & other);
            const double either = cv::countNonZero(masks[0] | other);
            differs = either > 0 && both / either < 0.9;
        }
        if (differs) masks[n++] = other;
    }
    for (int k = 0; k < n; ++k) {
        cv::Mat full;
        cv::resize(masks[k], full, cv::Size(w * 2, h * 2), 0.0, 0.0, cv::INTER_NEAREST);
        cv::copyMakeBorder(full, masks[k], 0, ev.height - h * 2, 0, ev.width - w * 2,
                           cv::BORDER_REPLICATE);
    }
    return n;
}

void AddRegionGradient(const cv::Mat* masks, int count, EvidenceImage* ev) {
    if (count <= 0) return;
    // The masks scaled to 0..64 together and smoothed, so that a border is
    // a step of a few grey levels per pixel, like a clear page edge.
    cv::Mat soft(masks[0].size(), CV_8UC1, cv::Scalar(0));
    for (int k = 0; k < count; ++k) cv::add(soft, masks[k] & (64 / count), soft);
    cv::GaussianBlur(soft, soft, cv::Size(5, 5), 1.0, 1.0, cv::BORDER_REPLICATE);
    cv::Sobel(soft, ev->rgx, CV_16S, 1, 0, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
    cv::Sobel(soft, ev->rgy, CV_16S, 0, 1, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
}

bool RegionQuadrangle(const cv::Mat& mask, Quad2d* q) {
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(mask, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    if (contours.empty()) return false;
    size_t largest = 0;
    for (size_t k = 1; k < contours.size(); ++k)
        if (cv::contourArea(contours[k]) > cv::contourArea(contours[largest])) largest = k;
    std::vector<cv::Point> hull, poly;
    cv::convexHull(contours[largest], hull);
    const double perimeter = cv::arcLength(hull, true);
    // The coarsest polygon of four corners: widen the tolerance until the
    // hull has no more than four.
    for (double eps = 0.01; eps <= 0.1; eps += 0.01) {
        cv::approxPolyDP(hull, poly, eps * perimeter, true);
        if (poly.size() <= 4) break;
    }
    if (poly.size() != 4) return false;
    std::array<cv::Point2d, 4> pts;
    for (int i = 0; i < 4; ++i) pts[i] = cv::Point2d(poly[i].x + 0.5, poly[i].y + 0.5);
    *q = OrderCorners(pts);
    return IsStrictlyConvexQuad(*q);
}
