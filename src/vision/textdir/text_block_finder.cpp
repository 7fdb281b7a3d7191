// Text blocks and their ink, at the size the direction decision works on.
//
// Working size: the page's longer side is brought to 1600 pixels, enough
// for body text to keep its ascenders and descenders apart from the letter
// bodies while a page still takes a few tens of milliseconds. Small pages
// (a receipt or an index card cut out of a modest photograph) are enlarged,
// at most twice: the block tests reject anything under 9 pixels, and a
// slightly larger image keeps the letters of small print from melting into
// the rules they stand on. Reduction averages areas, enlargement is
// bilinear.
//
// Blocks are found the way the enhancement's page judgement finds them:
// Canny edges (50/150), one 3 x 3 dilation so that the strokes of a letter
// or word join, the bounding boxes of the contours, kept when they pass the
// text-block size test and both contrast tests. Those tests are relative
// to the image (1 % to 20 % of each side), so a rule across the page or a
// picture fails them while words and letters pass.
//
// Ink: every block is binarised on its own by Otsu's method, which follows
// uneven light from block to block. The block's border is paper by
// construction (the contrast test wants a border of one tone), so the
// other tone is the ink, whichever is darker.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "vision/textdir/textdir.h"

namespace {

constexpr double kMaxEnlargement = 2.0;

// Otsu binary of the block grown by a pixel, as the contrast test cuts it.
bool BorderIsBright(const cv::Mat& binary) {
    const int w = binary.cols, h = binary.rows;
    int64_t bright = 0, count = 0;
    for (int x = 0; x < w; ++x) {
        bright += (binary.at<uint8_t>(0, x) != 0) + (binary.at<uint8_t>(h - 1, x) != 0);
        count += 2;
    }
    for (int y = 0; y < h; ++y) {
        bright += (binary.at<uint8_t>(y, 0) != 0) + (binary.at<uint8_t>(y, w - 1) != 0);
        count += 2;
    }
    return 2 * bright >= count;
}

}  // namespace

cv::Mat MakeTextWorkingImage(const cv::Mat& page, double* scale) {
    if (scale != nullptr) *scale = 0.0;
    if (page.empty() || page.depth() != CV_8U) return cv::Mat();
    cv::Mat grey;
    if (page.channels() == 3) {
        cv::cvtColor(page, grey, cv::COLOR_BGR2GRAY);
    } else if (page.channels() == 4) {
        cv::cvtColor(page, grey, cv::COLOR_BGRA2GRAY);
    } else if (page.channels() == 1) {
        grey = page;
    } else {
        return cv::Mat();
    }
    const int longer = std::max(page.cols, page.rows);
    const double s = std::min(kMaxEnlargement, static_cast<double>(kTextWorkingSide) / longer);
    const cv::Size size(std::max(1, static_cast<int>(page.cols * s + 0.5)),
                        std::max(1, static_cast<int>(page.rows * s + 0.5)));
    cv::Mat out;
    if (size == grey.size()) {
        out = grey.clone();
    } else {
        cv::resize(grey, out, size, 0.0, 0.0, s < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR);
    }
    if (scale != nullptr) *scale = static_cast<double>(out.cols) / page.cols;
    return out;
}

std::vector<VpRect> FindTextBlocks(const cv::Mat& grey) {
    std::vector<VpRect> blocks;
    ForEachTextBlock(grey, [&](const VpRect& rect) {
        blocks.push_back(rect);
        return true;
    });
    return blocks;
}

cv::Mat MakeTextInkMask(const cv::Mat& grey, const std::vector<VpRect>& blocks) {
    cv::Mat ink = cv::Mat::zeros(grey.size(), CV_8UC1);
    if (grey.empty() || grey.type() != CV_8UC1) return ink;
    cv::Mat binary;
    for (const VpRect& b : blocks) {
        const cv::Rect r = TextBlockCrop(b, grey.size());
        if (r.width < 3 || r.height < 3) continue;
        cv::threshold(grey(r), binary, 0.0, 255.0, cv::THRESH_BINARY | cv::THRESH_OTSU);
        if (BorderIsBright(binary)) cv::bitwise_not(binary, binary);
        cv::Mat target = ink(r);
        cv::bitwise_or(target, binary, target);
    }
    return ink;
}

double TypicalTextSize(const std::vector<VpRect>& blocks) {
    if (blocks.empty()) return 0.0;
    std::vector<int32_t> sides;
    sides.reserve(blocks.size());
    for (const VpRect& b : blocks) sides.push_back(std::min(b.width, b.height));
    const auto middle = sides.begin() + static_cast<std::ptrdiff_t>(sides.size() / 2);
    std::nth_element(sides.begin(), middle, sides.end());
    return *middle;
}
