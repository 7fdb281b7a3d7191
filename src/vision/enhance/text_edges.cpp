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
// The gradients come from a row kernel that also lists the columns with
// m > low, the only ones the peak test visits: the plain reference here,
// an AVX2 one sixteen columns to a register beside it, chosen once per
// process through platform/cpu_features.h. The dilated edges are written
// over the map they come from, so the page needs one image, not two.
#include "vision/enhance/text_edges.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/cpu_features.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define SCRIVO_EDGES_AVX2 1
#define SCRIVO_AVX2 __attribute__((target("avx2")))
#endif

namespace {

constexpr int kTan22 = 13573;  // tan(22.5 degrees) * 2^15, rounded
constexpr uint8_t kCandidate = 1, kEdge = 2;

// dx, dy and m of one image row from the rows above (r0), at (r1) and
// below (r2), the border replicated; lists the columns with m > low in
// `busy`, in order, and returns how many there are.
using GradientRow = int (*)(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                            int low, int16_t* dx, int16_t* dy, int16_t* mag, int32_t* busy);

inline void GradientAt(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width, int x,
                       int16_t* dx, int16_t* dy, int16_t* mag) {
    const int l = std::max(x - 1, 0), r = std::min(x + 1, width - 1);
    const int gx = (r0[r] - r0[l]) + 2 * (r1[r] - r1[l]) + (r2[r] - r2[l]);
    const int gy = (r2[l] + 2 * r2[x] + r2[r]) - (r0[l] + 2 * r0[x] + r0[r]);
    dx[x] = static_cast<int16_t>(gx);
    dy[x] = static_cast<int16_t>(gy);
    mag[x] = static_cast<int16_t>(std::abs(gx) + std::abs(gy));
}

int GradientRowReference(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                         int low, int16_t* dx, int16_t* dy, int16_t* mag, int32_t* busy) {
    int n = 0;
    for (int x = 0; x < width; ++x) {
        GradientAt(r0, r1, r2, width, x, dx, dy, mag);
        if (mag[x] > low) busy[n++] = x;
    }
    return n;
}

#ifdef SCRIVO_EDGES_AVX2
SCRIVO_AVX2 inline __m256i Widen(const uint8_t* p) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

SCRIVO_AVX2 int GradientRowAvx2(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                                int low, int16_t* dx, int16_t* dy, int16_t* mag, int32_t* busy) {
    int n = 0;
    GradientAt(r0, r1, r2, width, 0, dx, dy, mag);
    if (mag[0] > low) busy[n++] = 0;
    const __m256i lowLanes = _mm256_set1_epi16(static_cast<int16_t>(low));
    int x = 1;
    // Columns 1 ... width - 2 need no border; 16 at a time.
    for (; x + 17 <= width; x += 16) {
        const __m256i a0 = Widen(r0 + x - 1), b0 = Widen(r0 + x), c0 = Widen(r0 + x + 1);
        const __m256i a1 = Widen(r1 + x - 1), c1 = Widen(r1 + x + 1);
        const __m256i a2 = Widen(r2 + x - 1), b2 = Widen(r2 + x), c2 = Widen(r2 + x + 1);
        const __m256i gx =
            _mm256_add_epi16(_mm256_add_epi16(_mm256_sub_epi16(c0, a0), _mm256_sub_epi16(c2, a2)),
                             _mm256_slli_epi16(_mm256_sub_epi16(c1, a1), 1));
        const __m256i below = _mm256_add_epi16(_mm256_add_epi16(a2, c2), _mm256_slli_epi16(b2, 1));
        const __m256i above = _mm256_add_epi16(_mm256_add_epi16(a0, c0), _mm256_slli_epi16(b0, 1));
        const __m256i gy = _mm256_sub_epi16(below, above);
        const __m256i m = _mm256_add_epi16(_mm256_abs_epi16(gx), _mm256_abs_epi16(gy));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dx + x), gx);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dy + x), gy);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(mag + x), m);
        // Two mask bits a column.
        uint32_t bits =
            static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi16(m, lowLanes)));
        while (bits != 0) {
            busy[n++] = x + (__builtin_ctz(bits) >> 1);
            bits &= bits - 1;
            bits &= bits - 1;
        }
    }
    for (; x < width; ++x) {
        GradientAt(r0, r1, r2, width, x, dx, dy, mag);
        if (mag[x] > low) busy[n++] = x;
    }
    return n;
}
#endif

GradientRow GradientFor(EdgeKernel kernel) {
    switch (kernel) {
        case EdgeKernel::kAuto: {
            static const GradientRow best = [] {
                if (scrivo::platform::Cpu().referenceOnly) return &GradientRowReference;
                const GradientRow avx2 = GradientFor(EdgeKernel::kAvx2);
                return avx2 != nullptr ? avx2 : &GradientRowReference;
            }();
            return best;
        }
        case EdgeKernel::kReference:
            return &GradientRowReference;
        case EdgeKernel::kAvx2:
#ifdef SCRIVO_EDGES_AVX2
            return scrivo::platform::Cpu().avx2 ? &GradientRowAvx2 : nullptr;
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

// Marks row y's candidates and edges among its busy columns in `map` (one
// row of the bordered map) and lists the edges in `seeds`.
void MarkRow(const int16_t* above, const int16_t* at, const int16_t* below, const int16_t* dx,
             const int16_t* dy, const int32_t* busy, int count, int high, uint8_t* map,
             std::vector<uint8_t*>& seeds) {
    for (int i = 0; i < count; ++i) {
        const int x = busy[i], m = at[x];
        const int xs = std::abs(dx[x]), ys = std::abs(dy[x]);
        const int tg22x = xs * kTan22, y = ys << 15;
        bool peak;
        if (y < tg22x) {
            peak = m > at[x - 1] && m >= at[x + 1];
        } else if (y > tg22x + (xs << 16)) {
            peak = m > above[x] && m >= below[x];
        } else {
            const int s = (dx[x] ^ dy[x]) < 0 ? -1 : 1;
            peak = m > above[x - s] && m > below[x + s];
        }
        if (!peak) continue;
        map[x] = m > high ? kEdge : kCandidate;
        if (m > high) seeds.push_back(map + x);
    }
}

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

bool EdgeKernelAvailable(EdgeKernel kernel) {
    return GradientFor(kernel) != nullptr;
}

bool DilatedTextEdges(const cv::Mat& grey, int low, int high, cv::Mat& edges, EdgeKernel kernel) {
    const GradientRow gradient = GradientFor(kernel);
    if (grey.empty() || grey.type() != CV_8UC1 || gradient == nullptr) return false;
    const int W = grey.cols, H = grey.rows;
    if ((static_cast<int64_t>(W) + 2) * (H + 2) > INT32_MAX) return false;
    if (low > high) std::swap(low, high);
    // Above 2040 (the largest m) no pixel is a candidate; a low below 0 acts
    // as -1.
    low = std::clamp(low, -1, 2040);
    const ptrdiff_t step = W + 2;
    // The map has a border of one pixel that is never a candidate; the
    // edge image is made in its place at the end.
    cv::Mat canvas = cv::Mat::zeros(1, static_cast<int>(step * (H + 2)), CV_8UC1);
    uint8_t* map = canvas.data;
    GradientBuffers rows[3];
    for (GradientBuffers& b : rows) {
        b = {std::vector<int16_t>(W), std::vector<int16_t>(W), std::vector<int16_t>(W + 2, 0)};
    }
    std::vector<int32_t> busy[2] = {std::vector<int32_t>(W), std::vector<int32_t>(W)};
    int busyCount[2] = {0, 0};
    const std::vector<int16_t> zero(W + 2, 0);
    const auto row = [&](int y) { return grey.ptr<uint8_t>(std::clamp(y, 0, H - 1)); };
    const auto gradientOf = [&](int y) {
        GradientBuffers& b = rows[y % 3];
        busyCount[y % 2] = gradient(row(y - 1), row(y), row(y + 1), W, low, b.dx.data(),
                                    b.dy.data(), b.mag(), busy[y % 2].data());
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
        ready.insert(ready.end(), waiting.begin(), waiting.end());
        waiting.clear();
        MarkRow(above, at.mag(), below, at.dx.data(), at.dy.data(), busy[y % 2].data(),
                busyCount[y % 2], high, mapRow, waiting);
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
