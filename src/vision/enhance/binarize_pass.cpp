// The ink-saving rendering in one pass over the page.
//
// Inside every tile's inner part the window lies wholly within the tile,
// so each inner pixel of the page gets the value its centred
// (2h - 1) x (2h - 1) window gives, wherever the tiles fall. This pass
// computes exactly those bytes row by row, without tiles:
// - column sums of the pixels and of their squares over the window's rows
//   are kept running down the page (one row added, one dropped);
// - a prefix of the column sums along the row gives every window sum as
//   one difference (unsigned 32-bit: differences of wrapped sums are exact
//   as long as the window sum itself fits, which 31 x 31 x 255^2 does);
// - three short row kernels follow: local mean and variance term (vector
//   friendly), the square-root lookup, and the threshold and white test
//   (vector friendly again).
// The kernels are plain loops written for the compiler's vectoriser; on
// x86-64 the row pass is compiled twice, once for AVX2, and the AVX2 one is
// used where the processor has it.
// Windows of 2^8 and more leave no room for a tile's inner part: only the
// margin is painted, as the tile loop would (it could not advance).
#include <vector>

#include "platform/cpu_features.h"
#include "vision/enhance/binarize.h"
#include "vision/enhance/binarize_internal.h"

using namespace binarize_detail;

#if defined(__x86_64__) && defined(__GNUC__)
#define SCRIVO_HAVE_AVX2_PASS 1
#endif

// Kernels are inlined into each of the two compilations of the row pass.
#define SCRIVO_KERNEL inline __attribute__((always_inline))

namespace {

SCRIVO_KERNEL void AddRow(const uint8_t* __restrict row, uint32_t* __restrict col,
                          uint32_t* __restrict col2, int width) {
    for (int c = 0; c < width; ++c) {
        const uint32_t a = row[c];
        col[c] += a;
        col2[c] += a * a;
    }
}

SCRIVO_KERNEL void SlideRow(const uint8_t* __restrict add, const uint8_t* __restrict drop,
                            uint32_t* __restrict col, uint32_t* __restrict col2, int width) {
    for (int c = 0; c < width; ++c) {
        const uint32_t a = add[c], d = drop[c];
        col[c] += a - d;
        col2[c] += a * a - d * d;
    }
}

SCRIVO_KERNEL void Prefix(const uint32_t* col, const uint32_t* col2, uint32_t* P, uint32_t* P2,
                          int width) {
    uint32_t run = 0, run2 = 0;
    P[0] = P2[0] = 0;
    for (int c = 0; c < width; ++c) {
        run += col[c];
        run2 += col2[c];
        P[c + 1] = run;
        P2[c + 1] = run2;
    }
}

// Window sums S = P[i + span] - P[i]; the shift (2n) is at most 14 here.
SCRIVO_KERNEL void Moments(const uint32_t* __restrict P, const uint32_t* __restrict P2, int span,
                           int count, int shift, int32_t* __restrict mean,
                           int32_t* __restrict variance) {
    for (int i = 0; i < count; ++i) {
        const uint32_t S = P[i + span] - P[i];
        const uint32_t Q = P2[i + span] - P2[i];
        mean[i] = static_cast<int32_t>(S) >> shift;
        const int32_t square = static_cast<int32_t>(S * S) >> shift;
        const int32_t v = static_cast<int32_t>(Q - static_cast<uint32_t>(square)) >> shift;
        variance[i] = v < 0 ? 0 : (v > kMaxVariance ? kMaxVariance : v);
    }
}

SCRIVO_KERNEL void Deviations(const int32_t* variance, const int32_t* table, int count,
                              int32_t* deviation) {
    for (int i = 0; i < count; ++i) deviation[i] = table[variance[i]];
}

SCRIVO_KERNEL void Render(const uint8_t* __restrict in, const int32_t* __restrict mean,
                          const int32_t* __restrict deviation, int count, int32_t K,
                          uint8_t* __restrict out) {
    for (int i = 0; i < count; ++i) {
        const int32_t m = mean[i], s = deviation[i];
        const bool flat = (m > 64 && s <= 2) | (m <= 64 && s >= 2 && s <= 9);
        const uint32_t scale = static_cast<uint32_t>(K * (s - 128) + (1 << 23));
        const int32_t T = static_cast<int32_t>(static_cast<uint32_t>(m) * scale) >> 23;
        const int32_t p = in[i];
        out[i] = static_cast<uint8_t>(flat || p > T ? 255 : p);
    }
}

struct PassBuffers {
    std::vector<uint32_t> col, col2, P, P2;
    std::vector<int32_t> mean, variance, deviation;
};

// Rows h ... H - h - 1 of the rendering.
SCRIVO_KERNEL void PassBody(const cv::Mat& src, cv::Mat& dst, int h, int shift, int32_t K,
                            const int32_t* table, PassBuffers& b) {
    const int W = src.cols, H = src.rows, count = W - 2 * h;
    // The window of row y spans rows y - h + 1 ... y + h - 1.
    for (int r = 1; r < 2 * h; ++r) AddRow(src.ptr<uint8_t>(r), b.col.data(), b.col2.data(), W);
    for (int y = h; y < H - h; ++y) {
        if (y > h) {
            SlideRow(src.ptr<uint8_t>(y + h - 1), src.ptr<uint8_t>(y - h), b.col.data(),
                     b.col2.data(), W);
        }
        Prefix(b.col.data(), b.col2.data(), b.P.data(), b.P2.data(), W);
        // Column x's window covers columns x - h + 1 ... x + h - 1.
        Moments(b.P.data() + 1, b.P2.data() + 1, 2 * h - 1, count, shift, b.mean.data(),
                b.variance.data());
        Deviations(b.variance.data(), table, count, b.deviation.data());
        Render(src.ptr<uint8_t>(y) + h, b.mean.data(), b.deviation.data(), count, K,
               dst.ptr<uint8_t>(y) + h);
    }
}

void PassPlain(const cv::Mat& src, cv::Mat& dst, int h, int shift, int32_t K, const int32_t* table,
               PassBuffers& b) {
    PassBody(src, dst, h, shift, K, table, b);
}

#ifdef SCRIVO_HAVE_AVX2_PASS
__attribute__((target("avx2"))) void PassAvx2(const cv::Mat& src, cv::Mat& dst, int h, int shift,
                                              int32_t K, const int32_t* table, PassBuffers& b) {
    PassBody(src, dst, h, shift, K, table, b);
}

// Chosen once per process (platform/cpu_features.h).
bool UseAvx2() {
    const scrivo::platform::CpuFeatures& cpu = scrivo::platform::Cpu();
    return cpu.avx2 && !cpu.referenceOnly;
}
#endif

}  // namespace

void BinaryBlock(const cv::Mat& src, cv::Mat& dst, tem_SauvolaPara para) {
    if (!ValidPair(src, dst)) return;
    const int W = src.cols, H = src.rows;
    const int64_t h64 = HalfWindow(para.n);
    const bool inner =
        !RefusedWeight(para.k) && para.n >= 1 && 2 * h64 < kTile && H > 2 * h64 && W > 2 * h64;
    if (inner) {
        std::vector<int32_t> table(kSquareRootTableSize);
        GetSquareRootTable(table.data());
        const int h = static_cast<int>(h64);
        const size_t count = static_cast<size_t>(W - 2 * h);
        PassBuffers b{std::vector<uint32_t>(W, 0),  std::vector<uint32_t>(W, 0),
                      std::vector<uint32_t>(W + 1), std::vector<uint32_t>(W + 1),
                      std::vector<int32_t>(count),  std::vector<int32_t>(count),
                      std::vector<int32_t>(count)};
#ifdef SCRIVO_HAVE_AVX2_PASS
        if (UseAvx2()) {
            PassAvx2(src, dst, h, 2 * para.n, SauvolaWeight(para.k), table.data(), b);
        } else
#endif
        {
            PassPlain(src, dst, h, 2 * para.n, SauvolaWeight(para.k), table.data(), b);
        }
    }
    PaintMargin(dst, h64);
}
