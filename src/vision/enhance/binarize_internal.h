// Pieces shared by the tile-by-tile and the one-pass ink-saving rendering,
// and the row kernels of the one-pass rendering.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <opencv2/core.hpp>

#include "vision/enhance/binarize.h"

namespace binarize_detail {

constexpr int kTile = 256;
constexpr int32_t kMaxVariance = 16384;

inline int64_t HalfWindow(int32_t n) {
    if (n < 1 || n - 1 >= 32) return 0;
    return int64_t{1} << (n - 1);
}

inline bool RefusedWeight(float k) {
    return k < 0.05 || k > 0.95;
}

// Arithmetic shift right that stays defined for shifts of 32 and more.
inline int32_t Sar(int32_t v, int s) {
    return s >= 31 ? (v < 0 ? -1 : 0) : v >> s;
}

inline int32_t Wrap(uint32_t v) {
    return static_cast<int32_t>(v);
}

// K = trunc(k * 2^23 / 320).
inline int32_t SauvolaWeight(float k) {
    return static_cast<int32_t>(static_cast<double>(k) * 26214.4);
}

// Local mean m and clamped variance term v from the window sums S and Q.
inline int32_t WindowMean(uint32_t S, int shift) {
    return Sar(Wrap(S), shift);
}

inline int32_t WindowVariance(uint32_t S, uint32_t Q, int shift) {
    const int32_t square = Sar(Wrap(S * S), shift);
    return std::clamp(Sar(Wrap(Q - static_cast<uint32_t>(square)), shift), 0, kMaxVariance);
}

// The rendered pixel from its local mean m and deviation s.
inline uint8_t SauvolaOutput(uint8_t pixel, int32_t m, int32_t s, int32_t K) {
    if ((m > 64 && s <= 2) || (m <= 64 && s >= 2 && s <= 9)) return 255;
    const uint32_t scale = static_cast<uint32_t>(K * (s - 128) + (1 << 23));
    const int32_t T = Sar(Wrap(static_cast<uint32_t>(m) * scale), 23);
    return pixel > T ? 255 : pixel;
}

// The rendered pixel from its window sums: the arithmetic every kernel
// reproduces.
inline uint8_t WindowPixel(uint8_t pixel, uint32_t S, uint32_t Q, int shift, int32_t K,
                           const int32_t* sqrtTable) {
    return SauvolaOutput(pixel, WindowMean(S, shift), sqrtTable[WindowVariance(S, Q, shift)], K);
}

// The one-pass rendering's two row kernels.
struct RowKernels {
    // Column sums of pixels and squares gain row `add` and lose row `drop`
    // (the same row for none), and P, P2 receive their prefixes: P[0] = 0,
    // P[c + 1] = col[0] + ... + col[c], all modulo 2^32.
    void (*slidePrefix)(const uint8_t* add, const uint8_t* drop, uint32_t* col, uint32_t* col2,
                        uint32_t* P, uint32_t* P2, int width);
    // out[i] = WindowPixel(in[i], P[i + span] - P[i], P2[i + span] - P2[i], ...)
    // for i < count; shift is at most 14.
    void (*render)(const uint32_t* P, const uint32_t* P2, int span, int count, int shift, int32_t K,
                   const int32_t* sqrtTable, const uint8_t* in, uint8_t* out);
};

extern const RowKernels kReferenceRowKernels;
#if defined(__x86_64__) && defined(__GNUC__)
#define SCRIVO_BINARIZE_AVX2 1
// Defined in binarize_avx2.cpp; to be run only where the processor has AVX2.
extern const RowKernels kAvx2RowKernels;
#endif

inline bool ValidPair(const cv::Mat& src, const cv::Mat& dst) {
    return !src.empty() && src.type() == CV_8UC1 && dst.type() == CV_8UC1 &&
           src.size() == dst.size();
}

// Paints the first and last h rows and columns white.
inline void PaintMargin(cv::Mat& dst, int64_t h) {
    const int W = dst.cols, H = dst.rows;
    const int band = static_cast<int>(std::min<int64_t>(h, std::max(W, H)));
    if (band <= 0) return;
    const size_t side = static_cast<size_t>(std::min(band, W));
    for (int y = 0; y < H; ++y) {
        uint8_t* row = dst.ptr<uint8_t>(y);
        if (y < band || y >= H - band) {
            std::memset(row, 255, static_cast<size_t>(W));
        } else {
            std::memset(row, 255, side);
            std::memset(row + (static_cast<size_t>(W) - side), 255, side);
        }
    }
}

}  // namespace binarize_detail
