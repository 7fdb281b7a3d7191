// The evidence image: the photograph halved until its longer side is under
// 1.5 kEvidenceSide (area averaging), in Y, Cr, Cb, smoothed by a 5 x 5 Gaussian. The
// photograph is R, G, B in memory, as the engine holds it.
//
// Gradient: Sobel derivatives of the three planes; each pixel keeps the
// derivatives of the plane with the largest magnitude, the chroma planes
// doubled, so that a white page on a light table of another colour still
// has an edge. The derivatives keep their sign, so a straight edge has one
// direction all along (page brighter than the table, or the other way).
// The chroma derivatives are also kept on their own: on a crumpled sheet
// under coloured light the luma texture is stronger than the page's faint
// chroma border, which would otherwise be lost under it.
//
// Ink: print, ruled lines, grout and wood grain at this size are strokes of
// a few pixels darker than what surrounds them. A 7 x 7 closing of Y fills
// them; where it lifts Y by more than 12 levels the pixel is a stroke, and
// the mask is widened by 2 pixels to take in the gradient on both sides of
// the stroke. Page borders are steps, not strokes: a closing keeps a step.
// Everything here is integer arithmetic, so results are the same everywhere.
#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "vision/detect/page_find.h"

namespace {

constexpr int kInkClosing = 7;
constexpr int kInkLift = 12;
constexpr int kInkWiden = 5;
constexpr int kChromaWeight = 2;

}  // namespace

bool BuildEvidenceImage(const cv::Mat& image, double imageScale, EvidenceImage* out) {
    if (out == nullptr || image.empty() || image.type() != CV_8UC3) return false;
    const int longer = std::max(image.cols, image.rows);
    if (std::min(image.cols, image.rows) < 16) return false;
    // A reduction by a power of two keeps the averaging exact and fast: the
    // image is cut to a multiple of k (at most k - 1 pixels of its right and
    // bottom edges go) and halved k / 2 times, every evidence pixel the mean
    // of k x k pixels (rounded at each halving).
    int k = 1;
    while (longer / (2 * k) >= kEvidenceSide * 3 / 4) k *= 2;
    const int w = image.cols / k, h = image.rows / k;
    cv::Mat small = image(cv::Rect(0, 0, w * k, h * k));
    for (int f = k; f > 1; f /= 2) {
        cv::Mat half;
        cv::resize(small, half, cv::Size(small.cols / 2, small.rows / 2), 0.0, 0.0, cv::INTER_AREA);
        small = half;
    }
    const double s = k;
    cv::Mat ycc;
    cv::cvtColor(small, ycc, cv::COLOR_RGB2YCrCb);
    cv::GaussianBlur(ycc, out->ycc, cv::Size(5, 5), 1.0, 1.0, cv::BORDER_REPLICATE);

    cv::Mat dx, dy;
    cv::Sobel(out->ycc, dx, CV_16S, 1, 0, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
    cv::Sobel(out->ycc, dy, CV_16S, 0, 1, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
    out->gx.create(h, w, CV_16SC1);
    out->gy.create(h, w, CV_16SC1);
    out->cgx.create(h, w, CV_16SC1);
    out->cgy.create(h, w, CV_16SC1);
    for (int y = 0; y < h; ++y) {
        const int16_t* px = dx.ptr<int16_t>(y);
        const int16_t* py = dy.ptr<int16_t>(y);
        int16_t* ox = out->gx.ptr<int16_t>(y);
        int16_t* oy = out->gy.ptr<int16_t>(y);
        int16_t* cx = out->cgx.ptr<int16_t>(y);
        int16_t* cy = out->cgy.ptr<int16_t>(y);
        for (int x = 0; x < w; ++x) {
            const int lx = px[3 * x], ly = py[3 * x];
            int bx = kChromaWeight * px[3 * x + 1], by = kChromaWeight * py[3 * x + 1];
            const int bx2 = kChromaWeight * px[3 * x + 2], by2 = kChromaWeight * py[3 * x + 2];
            if (bx2 * bx2 + by2 * by2 > bx * bx + by * by) {
                bx = bx2;
                by = by2;
            }
            cx[x] = static_cast<int16_t>(bx);
            cy[x] = static_cast<int16_t>(by);
            const bool chroma = bx * bx + by * by > lx * lx + ly * ly;
            ox[x] = static_cast<int16_t>(chroma ? bx : lx);
            oy[x] = static_cast<int16_t>(chroma ? by : ly);
        }
    }

    cv::Mat luma, closed;
    cv::extractChannel(out->ycc, luma, 0);
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, {kInkClosing, kInkClosing});
    cv::morphologyEx(luma, closed, cv::MORPH_CLOSE, square, {-1, -1}, 1, cv::BORDER_REPLICATE);
    cv::Mat lift;
    cv::subtract(closed, luma, lift);
    cv::Mat strokes;
    cv::threshold(lift, strokes, kInkLift, 1, cv::THRESH_BINARY);
    cv::dilate(strokes, out->ink, cv::getStructuringElement(cv::MORPH_RECT, {kInkWiden, kInkWiden}),
               {-1, -1}, 1, cv::BORDER_CONSTANT, 0);
    int hist[256] = {}, satHist[512] = {};
    for (int y = 0; y < h; ++y) {
        const uint8_t* p = out->ycc.ptr<uint8_t>(y);
        for (int x = 0; x < w; ++x) {
            ++hist[p[3 * x]];
            ++satHist[std::abs(p[3 * x + 1] - 128) + std::abs(p[3 * x + 2] - 128)];
        }
    }
    const int64_t total = static_cast<int64_t>(w) * h;
    int64_t below = 0;
    for (int v = 0; v < 256; ++v) {
        out->darkerThan[v] = static_cast<int>((below << 16) / total);
        below += hist[v];
    }
    int64_t seen = 0;
    for (int v = 0; v < 512; ++v) {
        seen += satHist[v];
        if (2 * seen >= total) {
            out->medianSaturation = v;
            break;
        }
    }
    out->scale = imageScale * s;
    out->width = w;
    out->height = h;
    return true;
}
