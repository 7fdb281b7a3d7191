// The ink-saving rendering in one pass over the page.
//
// Inside every tile's inner part the window lies wholly within the tile,
// so each inner pixel of the page gets the value its centred
// (2h - 1) x (2h - 1) window gives, wherever the tiles fall. This pass
// computes exactly those bytes row by row, without tiles:
// - column sums of the pixels and of their squares over the window's rows
//   are kept running down the page (one row added, one dropped), and their
//   prefix along the row is taken in the same sweep;
// - every window sum is then one difference of prefixes (unsigned 32-bit:
//   differences of wrapped sums are exact as long as the window sum itself
//   fits, which 31 x 31 x 255^2 does), and the threshold follows from it
//   pixel by pixel.
// Both steps are row kernels (binarize_internal.h): the plain reference
// ones here, the AVX2 ones in binarize_avx2.cpp, chosen once per process
// through platform/cpu_features.h. All buffers are made once per page.
// Windows of 2^8 and more leave no room for a tile's inner part: only the
// margin is painted, as the tile loop would (it could not advance).
#include <algorithm>
#include <vector>

#include "platform/cpu_features.h"
#include "vision/enhance/binarize.h"
#include "vision/enhance/binarize_internal.h"

using namespace binarize_detail;

namespace {

// The reference kernels are plain loops, kept apart where a loop would
// otherwise not vectorise, so that a processor without a dedicated kernel
// still gets what its compiler can make of them.
void SlidePrefixReference(const uint8_t* add, const uint8_t* drop, uint32_t* col, uint32_t* col2,
                          uint32_t* P, uint32_t* P2, int width) {
    for (int c = 0; c < width; ++c) {
        const uint32_t a = add[c], d = drop[c];
        col[c] += a - d;
        col2[c] += a * a - d * d;
    }
    uint32_t run = 0, run2 = 0;
    P[0] = P2[0] = 0;
    for (int c = 0; c < width; ++c) {
        run += col[c];
        run2 += col2[c];
        P[c + 1] = run;
        P2[c + 1] = run2;
    }
}

// WindowPixel in three loops over a stretch of columns: mean and variance,
// the square-root lookup, the threshold and the flat test.
void RenderReference(const uint32_t* P, const uint32_t* P2, int span, int count, int shift,
                     int32_t K, const int32_t* sqrtTable, const uint8_t* in, uint8_t* out) {
    constexpr int kStretch = 256;
    int32_t mean[kStretch], deviation[kStretch];
    for (int start = 0; start < count; start += kStretch) {
        const int n = std::min(kStretch, count - start);
        const uint32_t* p = P + start;
        const uint32_t* p2 = P2 + start;
        for (int i = 0; i < n; ++i) {
            const uint32_t S = p[i + span] - p[i], Q = p2[i + span] - p2[i];
            mean[i] = static_cast<int32_t>(S) >> shift;
            const int32_t square = static_cast<int32_t>(S * S) >> shift;
            const int32_t v = static_cast<int32_t>(Q - static_cast<uint32_t>(square)) >> shift;
            deviation[i] = v < 0 ? 0 : (v > kMaxVariance ? kMaxVariance : v);
        }
        for (int i = 0; i < n; ++i) deviation[i] = sqrtTable[deviation[i]];
        for (int i = 0; i < n; ++i) {
            const int32_t m = mean[i], s = deviation[i];
            const bool flat = (m > 64 && s <= 2) | (m <= 64 && s >= 2 && s <= 9);
            const uint32_t scale = static_cast<uint32_t>(K * (s - 128) + (1 << 23));
            const int32_t T = static_cast<int32_t>(static_cast<uint32_t>(m) * scale) >> 23;
            const int32_t pixel = in[start + i];
            out[start + i] = static_cast<uint8_t>(flat || pixel > T ? 255 : pixel);
        }
    }
}

const RowKernels* KernelsFor(BinarizeKernel kernel) {
    switch (kernel) {
        case BinarizeKernel::kAuto: {
            static const RowKernels* const best = [] {
                if (scrivo::platform::Cpu().referenceOnly) return &kReferenceRowKernels;
                const RowKernels* avx2 = KernelsFor(BinarizeKernel::kAvx2);
                return avx2 != nullptr ? avx2 : &kReferenceRowKernels;
            }();
            return best;
        }
        case BinarizeKernel::kReference:
            return &kReferenceRowKernels;
        case BinarizeKernel::kAvx2:
#ifdef SCRIVO_BINARIZE_AVX2
            return scrivo::platform::Cpu().avx2 ? &kAvx2RowKernels : nullptr;
#else
            return nullptr;
#endif
    }
    return nullptr;
}

// Rows h ... H - h - 1 of the rendering.
void Pass(const cv::Mat& src, cv::Mat& dst, int h, int shift, int32_t K, const RowKernels& k) {
    const int W = src.cols, H = src.rows, count = W - 2 * h;
    std::vector<int32_t> table(kSquareRootTableSize);
    GetSquareRootTable(table.data());
    std::vector<uint32_t> col(W, 0), col2(W, 0), P(W + 1), P2(W + 1);
    // The window of row y spans rows y - h + 1 ... y + h - 1.
    for (int r = 1; r < 2 * h; ++r) {
        const uint8_t* row = src.ptr<uint8_t>(r);
        for (int c = 0; c < W; ++c) {
            col[c] += row[c];
            col2[c] += static_cast<uint32_t>(row[c]) * row[c];
        }
    }
    for (int y = h; y < H - h; ++y) {
        // The first row's window is complete already: adding and dropping
        // one row leaves the sums as they are.
        const uint8_t* add = src.ptr<uint8_t>(y > h ? y + h - 1 : y);
        const uint8_t* drop = src.ptr<uint8_t>(y > h ? y - h : y);
        k.slidePrefix(add, drop, col.data(), col2.data(), P.data(), P2.data(), W);
        // Column x's window covers columns x - h + 1 ... x + h - 1.
        k.render(P.data() + 1, P2.data() + 1, 2 * h - 1, count, shift, K, table.data(),
                 src.ptr<uint8_t>(y) + h, dst.ptr<uint8_t>(y) + h);
    }
}

}  // namespace

const RowKernels binarize_detail::kReferenceRowKernels = {SlidePrefixReference, RenderReference};

bool BinarizeKernelAvailable(BinarizeKernel kernel) {
    return KernelsFor(kernel) != nullptr;
}

bool BinaryBlock(const cv::Mat& src, cv::Mat& dst, tem_SauvolaPara para, BinarizeKernel kernel) {
    const RowKernels* k = KernelsFor(kernel);
    if (!ValidPair(src, dst) || k == nullptr) return false;
    const int W = src.cols, H = src.rows;
    const int64_t h64 = HalfWindow(para.n);
    const bool inner =
        !RefusedWeight(para.k) && para.n >= 1 && 2 * h64 < kTile && H > 2 * h64 && W > 2 * h64;
    if (inner) Pass(src, dst, static_cast<int>(h64), 2 * para.n, SauvolaWeight(para.k), *k);
    PaintMargin(dst, h64);
    return true;
}
