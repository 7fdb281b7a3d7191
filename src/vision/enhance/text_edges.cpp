// Canny edges grown by a 3 x 3 dilation, as the text-block search traces
// them, in one sweep over the page with three rolling gradient rows.
//
// The edges are those of the library's Canny on an 8-bit image with a
// 3 x 3 aperture and the L1 gradient, by their definition:
// - dx, dy: the 3 x 3 Sobel derivatives, the border replicated;
//   m = |dx| + |dy|, and m = 0 outside the image;
// - a pixel with m > low is a candidate when m is a local maximum across
//   the edge. With |dy| 2^15 < |dx| 13573 (within 22.5 degrees of the x
//   axis) m must exceed the left neighbour and reach the right one; with
//   |dy| 2^15 > |dx| (13573 + 2^16) the upper one and the lower one
//   likewise; otherwise it must exceed both neighbours along the diagonal
//   (up-left and down-right when dx and dy have one sign, else up-right and
//   down-left);
// - a candidate with m > high is an edge, and so is every candidate joined
//   to an edge through candidates (8-connected).
// The order in which the last step is searched changes no pixel, so it
// runs along with the sweep, a row behind it, on rows still in the cache.
// Gradients and peak tests are row kernels (text_edges_internal.h): the
// plain reference ones here, AVX2 ones in text_edges_avx2.cpp, chosen once
// per process through platform/cpu_features.h. The dilated edges are
// written over the map they come from, so the page needs one image, not
// two.
#include "vision/enhance/text_edges.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/cpu_features.h"
#include "vision/enhance/text_edges_internal.h"

using namespace text_edges_detail;

namespace {

// The inner columns in a plain loop the compiler can vectorise; the two
// border columns replicate their neighbours.
void GradientRowReference(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                          int16_t* __restrict dx, int16_t* __restrict dy, int16_t* __restrict mag) {
    GradientAt(r0, r1, r2, width, 0, dx, dy, mag);
    for (int x = 1; x < width - 1; ++x) {
        const int gx =
            (r0[x + 1] - r0[x - 1]) + 2 * (r1[x + 1] - r1[x - 1]) + (r2[x + 1] - r2[x - 1]);
        const int gy = (r2[x - 1] + 2 * r2[x] + r2[x + 1]) - (r0[x - 1] + 2 * r0[x] + r0[x + 1]);
        dx[x] = static_cast<int16_t>(gx);
        dy[x] = static_cast<int16_t>(gy);
        mag[x] = static_cast<int16_t>(std::abs(gx) + std::abs(gy));
    }
    if (width > 1) GradientAt(r0, r1, r2, width, width - 1, dx, dy, mag);
}

void MarkRowReference(const int16_t* above, const int16_t* at, const int16_t* below,
                      const int16_t* dx, const int16_t* dy, int width, int low, int high,
                      uint8_t* map, std::vector<uint8_t*>& seeds) {
    for (int x = 0; x < width; ++x) {
        map[x] = MarkAt(above, at, below, dx, dy, x, low, high);
        if (map[x] == kEdge) seeds.push_back(map + x);
    }
}

const EdgeRowKernels* KernelsFor(EdgeKernel kernel) {
    switch (kernel) {
        case EdgeKernel::kAuto: {
            static const EdgeRowKernels* const best = [] {
                if (scrivo::platform::Cpu().referenceOnly) return &kReferenceEdgeKernels;
                const EdgeRowKernels* avx2 = KernelsFor(EdgeKernel::kAvx2);
                return avx2 != nullptr ? avx2 : &kReferenceEdgeKernels;
            }();
            return best;
        }
        case EdgeKernel::kReference:
            return &kReferenceEdgeKernels;
        case EdgeKernel::kAvx2:
#ifdef SCRIVO_EDGES_AVX2
            return scrivo::platform::Cpu().avx2 ? &kAvx2EdgeKernels : nullptr;
#else
            return nullptr;
#endif
    }
    return nullptr;
}

// One image row's gradients; mag has a zero on each side.
struct GradientBuffers {
    std::vector<int16_t> dx, dy, magPadded;
    int16_t* mag() { return magPadded.data() + 1; }
    const int16_t* mag() const { return magPadded.data() + 1; }
};

// Candidates joined to the edges on `ready` become edges. A pixel at or
// past `limit` (a row whose lower neighbours are not marked yet) waits.
void Grow(std::vector<uint8_t*>& ready, std::vector<uint8_t*>& waiting, const uint8_t* limit,
          ptrdiff_t step) {
    const ptrdiff_t around[8] = {-step - 1, -step, -step + 1, -1, 1, step - 1, step, step + 1};
    while (!ready.empty()) {
        uint8_t* p = ready.back();
        ready.pop_back();
        for (const ptrdiff_t d : around) {
            if (p[d] != kCandidate) continue;
            p[d] = kEdge;
            (p + d >= limit ? waiting : ready).push_back(p + d);
        }
    }
}

}  // namespace

const EdgeRowKernels text_edges_detail::kReferenceEdgeKernels = {GradientRowReference,
                                                                 MarkRowReference};

bool EdgeKernelAvailable(EdgeKernel kernel) {
    return KernelsFor(kernel) != nullptr;
}

bool DilatedTextEdges(const cv::Mat& grey, int low, int high, cv::Mat& edges, EdgeKernel kernel) {
    const EdgeRowKernels* k = KernelsFor(kernel);
    if (grey.empty() || grey.type() != CV_8UC1 || k == nullptr) return false;
    const int W = grey.cols, H = grey.rows;
    if ((static_cast<int64_t>(W) + 2) * (H + 2) > INT32_MAX) return false;
    if (low > high) std::swap(low, high);
    // Above 2040 (the largest m) no pixel is a candidate; a low below 0 acts
    // as -1.
    low = std::clamp(low, -1, 2040);
    const ptrdiff_t step = W + 2;
    // The map has a border of one pixel that is never a candidate; the
    // mark kernel writes every other byte. The edge image is made in its
    // place at the end.
    cv::Mat canvas(1, static_cast<int>(step * (H + 2)), CV_8UC1);
    uint8_t* map = canvas.data;
    std::fill_n(map, step, uint8_t{0});
    std::fill_n(map + step * (H + 1), step, uint8_t{0});
    GradientBuffers rows[3];
    for (GradientBuffers& b : rows) {
        b = {std::vector<int16_t>(W), std::vector<int16_t>(W), std::vector<int16_t>(W + 2, 0)};
    }
    const std::vector<int16_t> zero(W + 2, 0);
    const auto row = [&](int y) { return grey.ptr<uint8_t>(std::clamp(y, 0, H - 1)); };
    const auto gradientOf = [&](int y) {
        GradientBuffers& b = rows[y % 3];
        k->gradient(row(y - 1), row(y), row(y + 1), W, b.dx.data(), b.dy.data(), b.mag());
    };
    // The hysteresis follows the sweep, so that it works on rows still in
    // the cache: a row's edges spread once the row below it is marked.
    std::vector<uint8_t*> ready, waiting;
    gradientOf(0);
    for (int y = 0; y < H; ++y) {
        if (y + 1 < H) gradientOf(y + 1);
        const GradientBuffers& at = rows[y % 3];
        const int16_t* above = y > 0 ? rows[(y + 2) % 3].mag() : zero.data() + 1;
        const int16_t* below = y + 1 < H ? rows[(y + 1) % 3].mag() : zero.data() + 1;
        uint8_t* mapRow = map + (y + 1) * step + 1;
        mapRow[-1] = mapRow[W] = 0;
        ready.insert(ready.end(), waiting.begin(), waiting.end());
        waiting.clear();
        k->mark(above, at.mag(), below, at.dx.data(), at.dy.data(), W, low, high, mapRow, waiting);
        Grow(ready, waiting, mapRow - 1, step);
    }
    ready.insert(ready.end(), waiting.begin(), waiting.end());
    Grow(ready, waiting, map + step * (H + 2), step);

    // Dilation: an edge anywhere in the 3 x 3 neighbourhood. The codes are
    // 0, 1 and 2, so an OR of codes holds 2 exactly when one of them is 2.
    // Output row y goes to bytes y W ... (y + 1) W - 1 of the map, below
    // the start of map row y + 1: rows still to be read stay intact.
    std::vector<uint8_t> column(static_cast<size_t>(step));
    for (int y = 0; y < H; ++y) {
        const uint8_t* m0 = map + y * step;
        const uint8_t* m1 = m0 + step;
        const uint8_t* m2 = m1 + step;
        for (ptrdiff_t x = 0; x < step; ++x) column[x] = m0[x] | m1[x] | m2[x];
        uint8_t* out = map + static_cast<ptrdiff_t>(y) * W;
        for (int x = 0; x < W; ++x) {
            out[x] = ((column[x] | column[x + 1] | column[x + 2]) & kEdge) != 0 ? 255 : 0;
        }
    }
    edges = canvas.colRange(0, W * H).reshape(1, H);
    return true;
}
