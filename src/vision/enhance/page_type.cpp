// Judging what kind of page an image shows.
//
// By luma (JudgeImageTypeByY). From the histogram: mean, standard
// deviation, and the 1 % tails counted from level 3 upwards and from 252
// downwards (levels 0-2 and 253-255 are clipping, not content). A page of
// moderate spread whose bright tail lies closer to the mean than its dark
// tail (content darker than a bright majority) is light, unless it is very
// dark overall, or it spreads widely and does not turn out to be a bright
// page of text. One whose dark tail is the closer is a dark board with
// light writing, when it is dark enough; anything else is left undecided.
//
// By chroma (JudgeImageTypeYUB2). On a copy about 100 px on its shorter
// side, the chroma strength |Cr - 128| / 2 + |Cb - 128| / 2 of each pixel;
// the page keeps its type only when most pixels are nearly grey (strength
// at most 15: 81 % for a light page, 57 % otherwise) and the faint colour
// band 11-15 does not dominate (a tinted photograph).
//
// By edges (JudgeImageTypeByEdge, GetImageEdgeAveGrey). On a copy at most
// 1280 px long: the background grey G is the mean of the histogram within
// 1.5 standard deviations (at most 80 levels) of its mean; the edge grey E
// is the mean grey under the points of Canny contours that are small (box
// at most 0.3 of the image's longer side) and busy (more than 9 points, at
// most 9 per unit of box perimeter), i.e. strokes of writing. Edges darker
// than the background by more than 5.7 levels make a light page, brighter
// by more than 5 a dark one. When the dominant range holds no pixels (a
// perfectly flat image has no spread) G is the mean itself.
#include "vision/enhance/page_type.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/enhance/color_tables.h"
#include "vision/enhance/text_blocks.h"

namespace {

struct Moments {
    double mean = 0.0;
    double deviation = 0.0;
};

Moments HistogramMoments(const std::array<double, 256>& p) {
    Moments m;
    for (int i = 0; i < 256; ++i) m.mean += i * p[i];
    double var = 0.0;
    for (int i = 0; i < 256; ++i) var += (i - m.mean) * (i - m.mean) * p[i];
    m.deviation = std::sqrt(var);
    return m;
}

// The dark-content / light-content decision shared by two branches.
int DarkBoardOrOther(int hi, double mean) {
    return (hi > 84 || mean >= 22.0) && mean <= 120.0 ? kPageDark : kPageOther;
}

}  // namespace

int JudgeImageTypeByY(const cv::Mat& Y) {
    const std::array<double, 256> p = NormalisedHistogram(Y);
    const Moments m = HistogramMoments(p);
    const int lo = TailLevel(p, 3, +1, 0.01);
    const int hi = TailLevel(p, 252, -1, 0.01);

    const bool contentDarker = (hi - m.mean) - 5.0 <= m.mean - lo;
    if (m.deviation <= 53.5 && contentDarker) {
        if (m.deviation >= 30.0 && !(m.mean > 120.0 && IsTextImage(Y) != 0)) return kPageOther;
        return m.mean < 50.0 ? kPageOther : kPageLight;
    }
    if (m.deviation <= 53.5 || m.mean < 80.0) return DarkBoardOrOther(hi, m.mean);
    return kPageOther;
}

int JudgeImageTypeYUB2(const cv::Mat& Cr, const cv::Mat& Cb, int type) {
    if (Cr.empty() || Cb.empty() || Cr.size() != Cb.size()) return kPageOther;
    const int shorter = std::min(Cr.cols, Cr.rows);
    cv::Mat cr = Cr, cb = Cb;
    if (shorter > 100) {
        const double f = shorter / 100.0;
        const cv::Size size(static_cast<int>(Cr.cols / f), static_cast<int>(Cr.rows / f));
        cv::resize(Cr, cr, size, 0.0, 0.0, cv::INTER_LINEAR);
        cv::resize(Cb, cb, size, 0.0, 0.0, cv::INTER_LINEAR);
    }
    int64_t grey = 0, faint = 0;
    for (int y = 0; y < cr.rows; ++y) {
        const uint8_t* r = cr.ptr<uint8_t>(y);
        const uint8_t* b = cb.ptr<uint8_t>(y);
        for (int x = 0; x < cr.cols; ++x) {
            const int c = std::abs(r[x] - 128) / 2 + std::abs(b[x] - 128) / 2;
            grey += c <= 15;
            faint += c >= 11 && c <= 15;
        }
    }
    const double total = static_cast<double>(cr.total());
    const double limit = type == kPageLight ? 0.81 : 0.57;
    if (grey / total < limit || faint / total >= 0.744) return kPageOther;
    return type;
}

void GetImageEdgeAveGrey(const cv::Mat& grey, float* background, float* edge, const char* tag) {
    (void)tag;
    const std::array<double, 256> p = NormalisedHistogram(grey);
    const Moments m = HistogramMoments(p);
    const double r = std::min(1.5 * m.deviation, 80.0);
    const int from = std::max(static_cast<int>(std::floor(m.mean - r)), 0);
    const int to = std::min(static_cast<int>(std::floor(m.mean + r)), 255);
    double weighted = 0.0, mass = 0.0;
    for (int k = from; k < to; ++k) {
        weighted += k * p[k];
        mass += p[k];
    }
    const float g = static_cast<float>(mass > 0.0 ? static_cast<int>(weighted / mass)
                                                  : static_cast<int>(m.mean));

    cv::Mat edges;
    cv::Canny(grey, edges, 30.0, 100.0, 3);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edges, contours, cv::RETR_LIST, cv::CHAIN_APPROX_NONE);
    const int longest = static_cast<int>(0.3 * std::max(grey.cols, grey.rows));
    std::array<int64_t, 256> hist{};
    int64_t points = 0;
    for (const auto& contour : contours) {
        const cv::Rect box = cv::boundingRect(contour);
        const int count = static_cast<int>(contour.size());
        if (std::max(box.width, box.height) > longest || count <= 9 ||
            count > 9 * (box.width + box.height)) {
            continue;
        }
        for (const cv::Point& pt : contour) ++hist[grey.at<uint8_t>(pt)];
        points += count;
    }
    float e = g;
    if (points >= 0.005 * static_cast<double>(grey.total())) {
        double sum = 0.0;
        for (int k = 0; k < 256; ++k) sum += static_cast<double>(k) * static_cast<double>(hist[k]);
        e = static_cast<float>(sum / static_cast<double>(points));
    }
    if (background != nullptr) *background = g;
    if (edge != nullptr) *edge = e;
}

int JudgeImageTypeByEdge(const cv::Mat& Y, float* background, float* edge, float* unused1,
                         float* unused2) {
    (void)unused1;
    (void)unused2;
    const int longer = std::max(Y.cols, Y.rows);
    cv::Mat work;
    if (longer > 1280) {
        const double f = longer / 1280.0;
        const cv::Size size(std::min(static_cast<int>(Y.cols / f), 1280),
                            std::min(static_cast<int>(Y.rows / f), 1280));
        cv::resize(Y, work, size, 0.0, 0.0, cv::INTER_LINEAR);
    } else {
        work = Y;  // only read
    }
    float g = 0.0f, e = 0.0f;
    GetImageEdgeAveGrey(work, &g, &e, "Grey");
    if (background != nullptr) *background = g;
    if (edge != nullptr) *edge = e;

    if (g < 40.0f) return kPageOther;
    const float d = e - g;
    if (d == 0.0f) return kPageFlat;
    if (g > 220.0f && -d < 32.0f) return kPageOther;
    if (d > 5.0f) return kPageDark;
    if (-d > 5.7f) return kPageLight;
    return kPageOther;
}
