// Edge map of a reduced photograph for the page's border lines.
//
// The page border is sought as grey-level edges reinforced by edges of the
// two chroma planes, so that a white page on a light table of another colour
// still shows its outline:
//
// 1. Grey edges: Canny with the pass's fixed pair (100/40, then 60/20), every
//    edge pixel made 255, and pieces whose bounding box is at most 29 pixels
//    on its longer side dropped (print and texture make short curls; a page
//    side is long).
// 2. Chroma edges: Canny on Cb and on Cr with thresholds taken from the
//    plane itself. The high threshold is the gradient (|dx| + |dy|, 600 bins)
//    below which 90 % of the pixels lie, so a plane with a strong colour step
//    among weak noise keeps only the step; a flat plane (high below 25) gets
//    the fixed pair 25/15. Pieces shorter than 80 pixels are dropped: chroma
//    noise is blotchy, a colour border is long.
// 3. Combination: a chroma edge pixel is added only where the grey map has no
//    edge within the 6 x 6 window around it, so chroma edges fill gaps in
//    the grey outline without doubling it; small pieces (at most 20 pixels)
//    created by the addition are taken back.
// 4. One 3 x 3 dilation joins edges broken by a pixel, for the Hough
//    transform.
//
// The Canny detector with supplied derivatives is OpenCV's (its overload on
// dx, dy): the same non-maximum suppression and hysteresis as with an image,
// so the chroma thresholds can be chosen from the very derivatives it uses.
#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"

namespace {

constexpr int kGradientBins = 600;
constexpr int kChromaQuantilePercent = 90;
constexpr int kFlatChromaHigh = 25;
constexpr int kFlatChromaLow = 15;
constexpr int kChromaLowPercent = 60;
constexpr int kGreyMinPieceSide = 29;  // kept when the longer side is above this
constexpr int kChromaMinPieceSide = 80;
constexpr int kAddedPieceMaxSide = 20;
constexpr int kCombineWindowBefore = 2;  // the window spans x - 2 .. x + 3
constexpr int kCombineWindowAfter = 3;

int LongerSide(const cv::Rect& box) {
    return std::max(box.width, box.height);
}

// Contours of the non-zero pixels of an 8-bit map, every point kept.
std::vector<std::vector<cv::Point>> Contours(const cv::Mat& edges, int mode) {
    std::vector<std::vector<cv::Point>> contours;
    if (edges.empty()) return contours;
    cv::findContours(edges, contours, mode, cv::CHAIN_APPROX_NONE);
    return contours;
}

// A new map holding only the points of the contours whose bounding box
// passes `keep`.
template <typename Keep>
void KeepContourPoints(cv::Mat& edges, int mode, Keep keep) {
    if (edges.empty()) return;
    cv::Mat kept = cv::Mat::zeros(edges.size(), CV_8UC1);
    for (const std::vector<cv::Point>& contour : Contours(edges, mode)) {
        if (!keep(LongerSide(cv::boundingRect(contour)))) continue;
        for (const cv::Point& p : contour) kept.at<uchar>(p) = 255;
    }
    edges = kept;
}

void AdaptiveThresholds(const cv::Mat& dx, const cv::Mat& dy, int* high, int* low) {
    const int rows = dx.rows, cols = dx.cols;
    std::vector<int64_t> histogram(kGradientBins, 0);
    for (int y = 1; y < rows - 1; ++y) {
        const int16_t* px = dx.ptr<int16_t>(y);
        const int16_t* py = dy.ptr<int16_t>(y);
        for (int x = 1; x < cols - 1; ++x) {
            const int v = std::abs(px[x]) + std::abs(py[x]);
            ++histogram[std::min(v, kGradientBins - 1)];
        }
    }
    const int64_t target = static_cast<int64_t>(cols) * rows * kChromaQuantilePercent / 100;
    int h = kGradientBins - 1;
    int64_t sum = 0;
    for (int i = 0; i < kGradientBins; ++i) {
        sum += histogram[i];
        if (sum >= target) {
            h = i + 1;
            break;
        }
    }
    if (h < kFlatChromaHigh) {
        *high = kFlatChromaHigh;
        *low = kFlatChromaLow;
        return;
    }
    *high = h;
    *low = std::max(h * kChromaLowPercent / 100, 1);
}

// Adaptive Canny of one chroma plane, cleaned of short pieces.
cv::Mat ChromaEdges(const cv::Mat& plane) {
    if (plane.empty()) return cv::Mat();
    cv::Mat dx, dy;
    cv::Sobel(plane, dx, CV_16S, 1, 0, 3);
    cv::Sobel(plane, dy, CV_16S, 0, 1, 3);
    int high = 0, low = 0;
    AdaptiveThresholds(dx, dy, &high, &low);
    cv::Mat edges;
    QvVP_InternalCanny(plane, edges, low, high, 3, dx, dy);
    DeleteSmallCC2(edges, kChromaMinPieceSide);
    return edges;
}

}  // namespace

void QvVP_GetCannyTH_Cb(const cv::Mat& dx, const cv::Mat& dy, int* high, int* low) {
    if (high == nullptr || low == nullptr) return;
    if (dx.empty() || dx.type() != CV_16SC1 || dy.size() != dx.size() || dy.type() != CV_16SC1) {
        *high = kFlatChromaHigh;
        *low = kFlatChromaLow;
        return;
    }
    AdaptiveThresholds(dx, dy, high, low);
}

void QvVP_GetCannyTH_Cr(const cv::Mat& dx, const cv::Mat& dy, int* high, int* low) {
    QvVP_GetCannyTH_Cb(dx, dy, high, low);
}

void QvVP_GetCannyCb(tagNoteDetector* detector) {
    if (detector == nullptr) return;
    detector->cbEdge = ChromaEdges(detector->cb);
}

void QvVP_GetCannyCr(tagNoteDetector* detector) {
    if (detector == nullptr) return;
    detector->crEdge = ChromaEdges(detector->cr);
}

void QvVP_GetCbCrCannyEdge(tagNoteDetector* detector) {
    QvVP_GetCannyCb(detector);
    QvVP_GetCannyCr(detector);
}

void QvVP_InternalCanny(const cv::Mat& src, cv::Mat& dst, double low, double high, int aperture,
                        const cv::Mat& dx, const cv::Mat& dy) {
    (void)aperture;  // the derivatives come made; the aperture only named how
    if (src.empty() || dx.empty() || dx.type() != CV_16SC1 || dy.type() != CV_16SC1 ||
        dx.size() != src.size() || dy.size() != src.size()) {
        dst = cv::Mat::zeros(src.size(), CV_8UC1);
        return;
    }
    cv::Canny(dx, dy, dst, low, high, false);
}

void QvVP_Canny(const cv::Mat& src, cv::Mat& dst, double low, double high) {
    if (src.empty() || src.type() != CV_8UC1) {
        dst = cv::Mat::zeros(src.size(), CV_8UC1);
        return;
    }
    cv::Mat dx, dy;
    cv::Sobel(src, dx, CV_16S, 1, 0, 3);
    cv::Sobel(src, dy, CV_16S, 0, 1, 3);
    QvVP_InternalCanny(src, dst, low, high, 3, dx, dy);
}

void BinaryImageWithThreshold(const cv::Mat& src, cv::Mat& dst, int threshold) {
    if (src.empty()) {
        dst.release();
        return;
    }
    cv::threshold(src, dst, threshold, 255, cv::THRESH_BINARY);
}

void DeleteSmallCC(cv::Mat& edges, int size) {
    (void)size;  // grey pieces are judged by a fixed bound, whatever the caller asks
    KeepContourPoints(edges, cv::RETR_TREE, [](int side) { return side > kGreyMinPieceSide; });
}

void DeleteSmallCC2(cv::Mat& edges, int minSize) {
    KeepContourPoints(edges, cv::RETR_LIST, [minSize](int side) { return side >= minSize; });
}

void DeleteSmallCC3(const cv::Mat& before, cv::Mat& edges, int maxSize) {
    if (edges.empty() || before.size() != edges.size() || before.type() != edges.type()) return;
    for (const std::vector<cv::Point>& contour : Contours(edges, cv::RETR_LIST)) {
        if (LongerSide(cv::boundingRect(contour)) > maxSize) continue;
        for (const cv::Point& p : contour) edges.at<uchar>(p) = before.at<uchar>(p);
    }
}

void ComputeCombineMask(const cv::Mat& edges, cv::Mat& mask) {
    mask = cv::Mat::zeros(edges.size(), CV_8UC1);
    const int rows = edges.rows, cols = edges.cols;
    if (rows < 7 || cols < 7) return;
    cv::Mat sums;
    cv::integral(edges, sums, CV_32S);  // (rows + 1) x (cols + 1)
    for (int y = 3; y <= rows - 4; ++y) {
        const int32_t* top = sums.ptr<int32_t>(y - kCombineWindowBefore);
        const int32_t* bottom = sums.ptr<int32_t>(y + kCombineWindowAfter + 1);
        uchar* out = mask.ptr<uchar>(y);
        for (int x = 3; x <= cols - 4; ++x) {
            const int x0 = x - kCombineWindowBefore, x1 = x + kCombineWindowAfter + 1;
            const int32_t s = bottom[x1] - bottom[x0] - top[x1] + top[x0];
            out[x] = s == 0 ? 1 : 0;
        }
    }
}

void CombineTowChannelEdge(cv::Mat& edges, const cv::Mat& channelEdges) {
    if (edges.empty() || channelEdges.size() != edges.size() || channelEdges.type() != CV_8UC1)
        return;
    const cv::Mat before = edges.clone();
    cv::Mat mask;
    ComputeCombineMask(edges, mask);
    for (int y = 0; y < edges.rows; ++y) {
        const uchar* m = mask.ptr<uchar>(y);
        const uchar* c = channelEdges.ptr<uchar>(y);
        uchar* e = edges.ptr<uchar>(y);
        for (int x = 0; x < edges.cols; ++x)
            if (m[x] && c[x]) e[x] = 255;
    }
    DeleteSmallCC3(before, edges, kAddedPieceMaxSide);
}
