// Tests that tell a block of text from other image content.
//
// A text block is found around Canny edges (thresholds 50 and 150) grown
// by a 3 x 3 dilation so that the strokes of a word or line join into one
// contour (text_edges.h makes that map in one sweep). Its bounding box
// must have a text block's size and shape (JudgeByRectSize), and the box,
// grown by a pixel and binarised by Otsu's method, must be two-toned
// (between 11 % and 89 % set: ink on paper) with a border of nearly one
// tone (the block is surrounded by paper, not cut out of a larger
// picture).
//
// IsTextImage counts accepted boxes. Nested or repeated contours of one
// word give near-identical boxes (corners within 9 px, sizes within 20
// px); such a box replaces a listed smaller one instead of adding to the
// count. More than 20 boxes make a text page.
#include "vision/enhance/text_blocks.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/enhance/text_edges.h"

int JudgeByRectSize(const VpRect* rect, const VpSize* imageSize) {
    if (rect == nullptr || imageSize == nullptr) return 0;
    const double w = rect->width, h = rect->height;
    if (rect->height < 9 || rect->width < 9) return 0;
    if (h < 0.01 * imageSize->height || w < 0.01 * imageSize->width) return 0;
    if (h > 0.2 * imageSize->height || w > 0.2 * imageSize->width) return 0;
    if (h / w > 10.0 || h / w < 0.1) return 0;
    return 1;
}

int JudegByContrast(const cv::Mat& binary) {
    if (binary.empty()) return 0;
    const double r = static_cast<double>(cv::countNonZero(binary)) /
                     (static_cast<double>(binary.cols) * binary.rows);
    return r < 0.11 || r > 0.89 ? 0 : 1;
}

int JudegByImageSideContrast(const cv::Mat& binary) {
    if (binary.empty()) return 0;
    const int w = binary.cols, h = binary.rows;
    int64_t sum = 0;
    const uint8_t* top = binary.ptr<uint8_t>(0);
    const uint8_t* bottom = binary.ptr<uint8_t>(h - 1);
    for (int x = 0; x < w; ++x) sum += top[x] + bottom[x];
    for (int y = 0; y < h; ++y) {
        const uint8_t* row = binary.ptr<uint8_t>(y);
        sum += row[0] + row[w - 1];
    }
    const double q = static_cast<double>(sum) / ((static_cast<double>(h) + w) * 510.0);
    return q <= 0.1 || q >= 0.9 ? 1 : 0;
}

cv::Rect TextBlockCrop(const VpRect& rect, cv::Size image) {
    const int x0 = rect.x >= 1 ? rect.x - 1 : 0;
    const int y0 = rect.y >= 1 ? rect.y - 1 : 0;
    const int w = std::min(image.width - x0, rect.width + 2);
    const int h = std::min(image.height - y0, rect.height + 2);
    return cv::Rect(x0, y0, std::max(w, 0), std::max(h, 0));
}

int JudgeByEdgeContrast(const cv::Mat& grey, VpRect rect, int flag) {
    if (grey.empty() || grey.depth() != CV_8U || grey.channels() != 1) return 0;
    const cv::Rect area = TextBlockCrop(rect, grey.size());
    if (area.x >= grey.cols || area.y >= grey.rows || area.width < 1 || area.height < 1) return 0;
    cv::Mat crop;
    cv::threshold(grey(area), crop, 180.0, 255.0, cv::THRESH_BINARY | cv::THRESH_OTSU);
    if (JudegByContrast(crop) == 0) return 0;
    if (flag >= 0) return 1;
    return JudegByImageSideContrast(crop);
}

void ForEachTextBlock(const cv::Mat& grey, const std::function<bool(const VpRect&)>& visit) {
    if (grey.empty() || grey.type() != CV_8UC1) return;
    cv::Mat edges;
    if (!DilatedTextEdges(grey, 50, 150, edges)) return;
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edges, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    const VpSize size{grey.cols, grey.rows};
    for (const auto& contour : contours) {
        const cv::Rect box = cv::boundingRect(contour);
        const VpRect rect{box.x, box.y, box.width, box.height};
        if (JudgeByRectSize(&rect, &size) == 0 || JudgeByEdgeContrast(grey, rect, -1) == 0) {
            continue;
        }
        if (!visit(rect)) return;
    }
}

int IsTextImage(const cv::Mat& grey) {
    std::vector<VpRect> kept;
    ForEachTextBlock(grey, [&](const VpRect& rect) {
        const auto same = std::find_if(kept.begin(), kept.end(), [&](const VpRect& r) {
            return std::abs(r.x - rect.x) <= 9 && std::abs(r.y - rect.y) <= 9 &&
                   std::abs(r.width - rect.width) < 20 && std::abs(r.height - rect.height) < 20;
        });
        if (same != kept.end() && same->height < rect.height) kept.erase(same);
        kept.push_back(rect);
        return kept.size() <= 20;
    });
    return kept.size() > 20 ? 1 : 0;
}
