// Page layout analysis of the document route: what each block shows.
//
// Each B x B block (the page's right and bottom remainders belong to no
// block) is measured on its luma and chroma:
// - percentiles of its grey (from every other pixel of every other row):
//   the 75th is its paper grey p (text rarely covers a quarter of a block);
//   the 90th less the 60th is its texture (the paper's noise, a few
//   levels, in paper blocks); p less the 10th is its spread; and the share
//   of samples in the middle half between the 10th and 90th percentiles,
//   which is small for ink on paper (only stroke edges) and large for a
//   picture's continuous tones;
// - ink pixels lie more than max(30, p / 4) below p; pixels within 10 of
//   p are the block's paper, whose mean Cr and Cb are its paper chroma;
// - colour pixels differ from the block's mean chroma by more than 24
//   (sum of both differences).
// A block is a picture when its tones are continuous (with a range of 40
// levels or more: over 40 % in the middle half; with less: a texture over
// 12 levels) or colour fills more than 30 % of it (ink may fill more
// than half a block inside bold type); text (or marks) when it holds
// at least 1 % ink or 2 % colour, or spreads over more than 30 levels;
// paper otherwise. A block
// that passes as paper or text but whose paper grey is below 55 % of the
// brightest paper within three blocks around it shows no paper at all
// (a dark, flat part of a picture) and is a picture too.
//
// The page type changes when the blocks say so: a "light page" that is
// less than 30 % paper and text is not a document (3); an undecided page
// (3 or 4) that is at least 60 % paper and text with text in at least 2 %
// of the blocks is one (1). A dark board (2) stays. The light is uneven
// when the paper greys of the paper and text blocks spread over more than
// 10 levels between their 10th and 90th percentiles.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "vision/enhance/document.h"
#include "vision/enhance/page_type.h"

namespace {

struct BlockStats {
    int32_t paper = 0, cr = 128, cb = 128;
    int32_t texture = 0;   // 90th less 60th percentile of the grey
    int32_t spread = 0;    // paper less 10th percentile
    int32_t midShare = 0;  // percent of samples in the middle half of the range
    int32_t ink = 0, colour = 0, pixels = 0;
};

// Percentiles of the grey from every other pixel of every other row.
struct BlockSample {
    std::vector<uint8_t> grey;

    int32_t At(int percent) {
        const size_t k =
            std::min(grey.size() * static_cast<size_t>(percent) / 100, grey.size() - 1);
        std::nth_element(grey.begin(), grey.begin() + static_cast<ptrdiff_t>(k), grey.end());
        return grey[k];
    }
};

BlockStats MeasureBlock(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb, cv::Rect r,
                        BlockSample& sample) {
    BlockStats s;
    sample.grey.clear();
    int64_t sumCr = 0, sumCb = 0;
    for (int y = r.y; y < r.br().y; ++y) {
        const uint8_t *py = Y.ptr<uint8_t>(y) + r.x, *pr = Cr.ptr<uint8_t>(y) + r.x;
        const uint8_t* pb = Cb.ptr<uint8_t>(y) + r.x;
        for (int x = 0; x < r.width; ++x) {
            sumCr += pr[x];
            sumCb += pb[x];
        }
        if ((y - r.y) % 2 == 0) {
            for (int x = 0; x < r.width; x += 2) sample.grey.push_back(py[x]);
        }
    }
    s.pixels = r.area();
    const int32_t meanCr = static_cast<int32_t>(sumCr / s.pixels);
    const int32_t meanCb = static_cast<int32_t>(sumCb / s.pixels);
    const int32_t p90 = sample.At(90), p10 = sample.At(10);
    s.paper = sample.At(75);
    s.texture = p90 - sample.At(60);
    s.spread = s.paper - p10;
    const int32_t quarter = (p90 - p10) / 4;
    const auto middle = std::count_if(sample.grey.begin(), sample.grey.end(), [&](uint8_t v) {
        return v > p10 + quarter && v < p90 - quarter;
    });
    s.midShare = static_cast<int32_t>(middle * 100 / static_cast<ptrdiff_t>(sample.grey.size()));
    const int32_t inkBelow = s.paper - std::max(30, s.paper / 4), paperFrom = s.paper - 10;
    int64_t paperCr = 0, paperCb = 0, paperCount = 0;
    for (int y = r.y; y < r.br().y; ++y) {
        const uint8_t *py = Y.ptr<uint8_t>(y) + r.x, *pr = Cr.ptr<uint8_t>(y) + r.x;
        const uint8_t* pb = Cb.ptr<uint8_t>(y) + r.x;
        for (int x = 0; x < r.width; ++x) {
            s.ink += py[x] < inkBelow;
            s.colour += std::abs(pr[x] - meanCr) + std::abs(pb[x] - meanCb) > 24;
            if (py[x] >= paperFrom) {
                paperCr += pr[x];
                paperCb += pb[x];
                ++paperCount;
            }
        }
    }
    s.cr = paperCount > 0 ? static_cast<int32_t>(paperCr / paperCount) : meanCr;
    s.cb = paperCount > 0 ? static_cast<int32_t>(paperCb / paperCount) : meanCb;
    return s;
}

int32_t Classify(const BlockStats& s) {
    const int64_t n = s.pixels;
    // Ink on paper is two-toned; a picture's tones run continuously.
    const bool continuous = s.spread + s.texture >= 40 ? s.midShare > 40 : s.texture > 12;
    if (continuous || s.colour * 100 > n * 30) return kBlockPicture;
    if (s.ink * 100 >= n || s.colour * 100 >= n * 2 || s.spread > 30) return kBlockText;
    return kBlockPaper;
}

}  // namespace

void PageLayoutAnalysis13(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb, int* type,
                          BlockArrays blocks, int B, char* text, LayoutCounters* counters,
                          uint8_t* uneven) {
    (void)text;
    const int BX = Y.cols / B, BY = Y.rows / B;
    LayoutCounters c;
    if (uneven != nullptr) *uneven = 0;
    if (BX < 1 || BY < 1 || type == nullptr) {
        if (counters != nullptr) *counters = c;
        return;
    }
    BlockSample sample;
    sample.grey.reserve(static_cast<size_t>(B) * B / 4 + B);
    for (int by = 0; by < BY; ++by) {
        for (int bx = 0; bx < BX; ++bx) {
            const BlockStats s = MeasureBlock(Y, Cr, Cb, cv::Rect(bx * B, by * B, B, B), sample);
            const int i = by * BX + bx;
            blocks.A1[i] = Classify(s);
            blocks.A2[i] = s.paper;
            blocks.A3[i] = s.cr;
            blocks.A4[i] = s.cb;
        }
    }
    // Blocks far darker than the paper around them show no paper.
    std::vector<int32_t> dark;
    for (int by = 0; by < BY; ++by) {
        for (int bx = 0; bx < BX; ++bx) {
            const int i = by * BX + bx;
            if (blocks.A1[i] == kBlockPicture) continue;
            int32_t brightest = 0;
            for (int y = std::max(by - 3, 0); y <= std::min(by + 3, BY - 1); ++y) {
                for (int x = std::max(bx - 3, 0); x <= std::min(bx + 3, BX - 1); ++x) {
                    if (blocks.A1[y * BX + x] != kBlockPicture) {
                        brightest = std::max(brightest, blocks.A2[y * BX + x]);
                    }
                }
            }
            if (blocks.A2[i] * 100 < brightest * 55) dark.push_back(i);
        }
    }
    for (const int i : dark) blocks.A1[i] = kBlockPicture;

    std::vector<int32_t> paperGreys;
    for (int i = 0; i < BX * BY; ++i) {
        if (blocks.A1[i] == kBlockPaper) ++c.C1;
        if (blocks.A1[i] == kBlockText) ++c.C2;
        if (blocks.A1[i] == kBlockPicture) ++c.C3;
        if (blocks.A1[i] != kBlockPicture) paperGreys.push_back(blocks.A2[i]);
    }
    const int64_t total = static_cast<int64_t>(BX) * BY, page = c.C1 + c.C2;
    if (*type == kPageLight && page * 100 < total * 30) *type = kPageOther;
    if ((*type == kPageOther || *type == kPageFlat) && page * 100 >= total * 60 &&
        c.C2 * 100 >= total * 2) {
        *type = kPageLight;
    }
    if (uneven != nullptr && !paperGreys.empty()) {
        *uneven =
            BlockPercentile(paperGreys, 90, 0) - BlockPercentile(paperGreys, 10, 0) > 10 ? 1 : 0;
    }
    if (counters != nullptr) *counters = c;
}
