// The ink-saving rendering: a local Sauvola-type threshold in integers.
//
// For a pixel with local mean m and deviation s, the threshold is
// T = m (1 + k (s - 128) / 320); pixels above T turn white (255), the
// others keep their grey, so ink keeps its own tone on a white page. Flat
// windows (s <= 2 on a bright window, 2 <= s <= 9 on a dark one) are white
// outright, so the paper does not speckle.
//
// Arithmetic, exactly as the rendering depends on it (window 2^n, half
// window h = 2^(n-1)):
// - the window sum S covers the (2h - 1) x (2h - 1) pixels around the
//   pixel, from unsigned 32-bit integral images (differences are exact);
// - m = S >> 2n (a division by (2h)^2, not by the pixel count);
// - v = (Q - ((S * S as a wrapping 32-bit product) >> 2n)) >> 2n, clamped
//   to 0 ... 16384, where Q is the window's sum of squares; the wrap is
//   part of the result;
// - s = ceil(sqrt(v)) from a 16,385-entry table;
// - T = (m (K (s - 128) + 2^23)) >> 23 with K = trunc(k * 2^23 / 320).
// All shifts are arithmetic shifts of signed 32-bit values.
//
// Tiling. The page is cut into tiles of at most 256 x 256 overlapping by
// 2h; each tile contributes its inner part (h from each edge), and a white
// margin of h is painted around the page. Inside a tile's inner part the
// window never reaches the tile's edge, so the result of every inner pixel
// depends only on the page around it, not on where the tiles fall: the
// inner part of the page is rows and columns h ... size - h - 1 whenever
// the page is more than 2h on that side. BinaryBlock uses this to compute
// the same bytes in one pass over the page with running column sums
// (no tile copies, no integral images); BinaryBlockReference runs the tile
// loop literally through binarize6 and is what the fast pass is tested
// against. Windows of 2^8 and more leave no room for a tile's inner part
// and render the margin only.
#include "vision/enhance/binarize.h"

#include <algorithm>
#include <vector>

#include "vision/enhance/binarize_internal.h"

using namespace binarize_detail;

void GetSquareRootTable(int32_t* table) {
    if (table == nullptr) return;
    table[0] = 0;
    for (int32_t v = 1; v <= 128; ++v) {
        for (int32_t i = (v - 1) * (v - 1) + 1; i <= v * v; ++i) table[i] = v;
    }
}

int binarize6(const cv::Mat& tile, cv::Mat& out, tem_SauvolaPara para, const int32_t* sqrtTable) {
    const int w = tile.cols, t = tile.rows;
    if (RefusedWeight(para.k) || para.n < 1 || std::min(w, t) <= para.n) return 0;
    if (tile.type() != CV_8UC1 || sqrtTable == nullptr) return 0;
    if (out.size() != tile.size() || out.type() != CV_8UC1) out.create(tile.size(), CV_8UC1);

    // Inclusive integral images: I(r, c) sums rows 0..r and columns 0..c.
    std::vector<uint32_t> I(static_cast<size_t>(w) * t), I2(I.size());
    for (int r = 0; r < t; ++r) {
        const uint8_t* p = tile.ptr<uint8_t>(r);
        uint32_t run = 0, run2 = 0;
        for (int c = 0; c < w; ++c) {
            run += p[c];
            run2 += static_cast<uint32_t>(p[c]) * p[c];
            const size_t i = static_cast<size_t>(r) * w + c;
            I[i] = run + (r > 0 ? I[i - w] : 0);
            I2[i] = run2 + (r > 0 ? I2[i - w] : 0);
        }
    }
    const int64_t h64 = HalfWindow(para.n);
    if (t <= h64) return 1;
    const int h = static_cast<int>(h64);
    const int shift = 2 * para.n;
    const int32_t K = SauvolaWeight(para.k);
    const auto at = [w](const std::vector<uint32_t>& img, int r, int c) {
        return img[static_cast<size_t>(r) * w + c];
    };
    for (int y = 0; y + h < t; ++y) {
        const int top = y, bottom = std::min(y + 2 * h - 1, t - 1);
        const uint8_t* in = tile.ptr<uint8_t>(y + h);
        uint8_t* o = out.ptr<uint8_t>(y + h);
        for (int x = 0; x + h < w; ++x) {
            const int left = x, right = std::min(x + 2 * h - 1, w - 1);
            const uint32_t S =
                at(I, bottom, right) - at(I, top, right) - at(I, bottom, left) + at(I, top, left);
            const uint32_t Q = at(I2, bottom, right) - at(I2, top, right) - at(I2, bottom, left) +
                               at(I2, top, left);
            const int32_t m = WindowMean(S, shift);
            const int32_t s = sqrtTable[WindowVariance(S, Q, shift)];
            o[x + h] = SauvolaOutput(in[x + h], m, s, K);
        }
    }
    return 1;
}

void BinaryBlockReference(const cv::Mat& src, cv::Mat& dst, tem_SauvolaPara para) {
    if (!ValidPair(src, dst)) return;
    std::vector<int32_t> table(kSquareRootTableSize);
    GetSquareRootTable(table.data());
    const int W = src.cols, H = src.rows;
    const int64_t h = HalfWindow(para.n);
    const int64_t step = kTile - 2 * h;
    for (int64_t top = 0; step > 0 && top < H; top += step) {
        for (int64_t left = 0; left < W; left += step) {
            const int th = static_cast<int>(std::min<int64_t>(H - top, kTile));
            const int tw = static_cast<int>(std::min<int64_t>(W - left, kTile));
            const cv::Rect area(static_cast<int>(left), static_cast<int>(top), tw, th);
            const cv::Mat tile = src(area).clone();
            cv::Mat out(tile.size(), CV_8UC1);
            if (binarize6(tile, out, para, table.data()) == 0) continue;
            const int inner = static_cast<int>(std::max<int64_t>(tw - 2 * h, 0));
            for (int i = 0; i < th - 2 * h; ++i) {
                std::copy_n(out.ptr<uint8_t>(static_cast<int>(h) + i) + h, inner,
                            dst.ptr<uint8_t>(static_cast<int>(top + h) + i) + left + h);
            }
        }
    }
    PaintMargin(dst, h);
}
