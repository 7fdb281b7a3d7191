// How white and how even the paper of a rendering is.
//
// Grey is the engine's own luma (the Y plane of RGB24ToYCbCr), so a pixel
// counts as white exactly when the engine would call it 255. The measures run
// over a paper mask: the true one where the page was drawn by us, otherwise
// one estimated from the plain page (EstimatePaperMask).
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/image.h"

namespace scrivo_eval {

// One channel: the image itself; three: the engine's luma.
inline cv::Mat EngineGrey(const cv::Mat& image) {
    if (image.type() == CV_8UC1) return image;
    if (image.type() != CV_8UC3) throw std::runtime_error("want an 8-bit grey or colour image");
    cv::Mat y, cr, cb;
    RGB24ToYCbCr(image, y, cr, cb);
    return y;
}

struct PaperStats {
    size_t pixels = 0;   // paper pixels measured
    double white = 0.0;  // share of them at grey 255
    int p05 = 0;         // 5th and 95th percentiles of their grey
    int p95 = 0;
    double mean = 0.0;
    int Spread() const { return p95 - p05; }
};

// Over the pixels where mask is non-zero; mask and grey of one size. The
// percentiles are nearest-rank: the smallest grey at or below which at least
// that share of the pixels lies.
inline PaperStats MeasurePaper(const cv::Mat& grey, const cv::Mat& mask) {
    CV_Assert(grey.type() == CV_8UC1 && mask.type() == CV_8UC1 && grey.size() == mask.size());
    std::array<size_t, 256> hist{};
    for (int y = 0; y < grey.rows; ++y) {
        const uint8_t* g = grey.ptr<uint8_t>(y);
        const uint8_t* m = mask.ptr<uint8_t>(y);
        for (int x = 0; x < grey.cols; ++x)
            if (m[x]) ++hist[g[x]];
    }
    PaperStats s;
    double sum = 0.0;
    for (int v = 0; v < 256; ++v) {
        s.pixels += hist[v];
        sum += static_cast<double>(v) * static_cast<double>(hist[v]);
    }
    if (s.pixels == 0) return s;
    const auto n = static_cast<double>(s.pixels);
    s.white = static_cast<double>(hist[255]) / n;
    s.mean = sum / n;
    auto percentile = [&](double p) {
        const auto rank = std::max<size_t>(1, static_cast<size_t>(std::ceil(p * n - 1e-9)));
        size_t cum = 0;
        for (int v = 0; v < 256; ++v) {
            cum += hist[v];
            if (cum >= rank) return v;
        }
        return 255;
    };
    s.p05 = percentile(0.05);
    s.p95 = percentile(0.95);
    return s;
}

// How a rendering treats the colour marks of the plain page (stamps,
// highlighter, coloured print): the pixels whose chroma strength
// |Cr - 128| + |Cb - 128| is at least 24 and whose grey lies in 40..230
// (clearly coloured, neither near black nor washed out). Their hue is the
// angle of (Cb - 128, Cr - 128); the shift is the median angle between
// page and rendering, and "lost" the share of them the rendering leaves
// nearly grey (strength below 8). Grey renderings have no hue to measure.
struct HueStats {
    size_t pixels = 0;
    double shiftDeg = 0.0;
    double lost = 0.0;
};

inline HueStats MeasureHue(const cv::Mat& page, const cv::Mat& rendering) {
    HueStats h;
    if (page.type() != CV_8UC3 || rendering.type() != CV_8UC3 || page.size() != rendering.size())
        return h;
    cv::Mat y0, cr0, cb0, y1, cr1, cb1;
    RGB24ToYCbCr(page, y0, cr0, cb0);
    RGB24ToYCbCr(rendering, y1, cr1, cb1);
    std::vector<double> shifts;
    size_t lost = 0;
    for (int y = 0; y < page.rows; ++y) {
        for (int x = 0; x < page.cols; ++x) {
            const int g = y0.at<uint8_t>(y, x);
            const int r0 = cr0.at<uint8_t>(y, x) - 128, b0 = cb0.at<uint8_t>(y, x) - 128;
            if (std::abs(r0) + std::abs(b0) < 24 || g < 40 || g > 230) continue;
            const int r1 = cr1.at<uint8_t>(y, x) - 128, b1 = cb1.at<uint8_t>(y, x) - 128;
            if (std::abs(r1) + std::abs(b1) < 8) {
                ++lost;
                continue;
            }
            double d = std::atan2(r1, b1) - std::atan2(r0, b0);
            d = std::abs(std::remainder(d, 2.0 * M_PI)) * 180.0 / M_PI;
            shifts.push_back(d);
        }
    }
    h.pixels = shifts.size() + lost;
    if (h.pixels == 0) return h;
    h.lost = static_cast<double>(lost) / static_cast<double>(h.pixels);
    if (!shifts.empty()) {
        std::nth_element(shifts.begin(), shifts.begin() + shifts.size() / 2, shifts.end());
        h.shiftDeg = shifts[shifts.size() / 2];
    }
    return h;
}

// Paper of a plain (unenhanced) page whose paper mask is not known: pixels
// whose grey is at least 85 % of the local background and that are neither
// coloured nor within 3 px of a pixel that fails either test (or of the
// page's rim, where the rectified page may hold a sliver of the table).
//
// The background is the brightest neutral grey nearby (a highlighter stroke
// or a coloured band can be brighter than dim paper and must not lift it): a maximum over a disc of
// about 1/16 of the page's longer side (wide enough to bridge lines of text
// and most of a picture box, narrow enough to follow a light gradient),
// taken on a 4x area-averaged copy so that single noisy pixels do not lift
// it, then smoothed over the same width. A shadow's soft edge falls partly
// outside, which only makes the estimate leave out some true paper.
inline cv::Mat EstimatePaperMask(const cv::Mat& page) {
    CV_Assert(page.type() == CV_8UC3 && !page.empty());
    constexpr int kColoured = 40;  // channel spread that no paper under a colour cast reaches
    const cv::Mat grey = EngineGrey(page);
    cv::Mat chroma(page.size(), CV_8UC1), neutralGrey = grey.clone();
    for (int y = 0; y < page.rows; ++y) {
        const uint8_t* p = page.ptr<uint8_t>(y);
        uint8_t* c = chroma.ptr<uint8_t>(y);
        uint8_t* n = neutralGrey.ptr<uint8_t>(y);
        for (int x = 0; x < page.cols; ++x, p += 3) {
            c[x] =
                static_cast<uint8_t>(std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]}));
            if (c[x] > kColoured) n[x] = 0;
        }
    }
    constexpr int kReduce = 4;
    const cv::Size small(std::max(1, page.cols / kReduce), std::max(1, page.rows / kReduce));
    cv::Mat bg;
    cv::resize(neutralGrey, bg, small, 0.0, 0.0, cv::INTER_AREA);
    const int r = std::max(4, std::max(small.width, small.height) / 16);
    cv::dilate(bg, bg, cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(2 * r + 1, 2 * r + 1)),
               cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    cv::blur(bg, bg, cv::Size(2 * r + 1, 2 * r + 1), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::resize(bg, bg, page.size(), 0.0, 0.0, cv::INTER_LINEAR);

    cv::Mat candidate(page.size(), CV_8UC1);
    for (int y = 0; y < page.rows; ++y) {
        const uint8_t* g = grey.ptr<uint8_t>(y);
        const uint8_t* ch = chroma.ptr<uint8_t>(y);
        const uint8_t* b = bg.ptr<uint8_t>(y);
        uint8_t* c = candidate.ptr<uint8_t>(y);
        for (int x = 0; x < page.cols; ++x) {
            const bool bright = 100 * g[x] >= 85 * b[x];
            const bool neutral = 100 * ch[x] <= 12 * b[x] + 400;
            c[x] = bright && neutral ? 255 : 0;
        }
    }
    cv::Mat mask;
    cv::erode(candidate, mask, cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(7, 7)),
              cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    return mask;
}

}  // namespace scrivo_eval
