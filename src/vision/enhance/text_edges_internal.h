// The text-block edge map's row kernels and the per-pixel arithmetic they
// share.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace text_edges_detail {

constexpr int kTan22 = 13573;  // tan(22.5 degrees) * 2^15, rounded
constexpr uint8_t kCandidate = 1, kEdge = 2;

// dx, dy and m = |dx| + |dy| at column x from the rows above (r0), at (r1)
// and below (r2), the border replicated.
inline void GradientAt(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width, int x,
                       int16_t* dx, int16_t* dy, int16_t* mag) {
    const int l = std::max(x - 1, 0), r = std::min(x + 1, width - 1);
    const int gx = (r0[r] - r0[l]) + 2 * (r1[r] - r1[l]) + (r2[r] - r2[l]);
    const int gy = (r2[l] + 2 * r2[x] + r2[r]) - (r0[l] + 2 * r0[x] + r0[r]);
    dx[x] = static_cast<int16_t>(gx);
    dy[x] = static_cast<int16_t>(gy);
    mag[x] = static_cast<int16_t>(std::abs(gx) + std::abs(gy));
}

// The map code of column x: 0, kCandidate or kEdge. The magnitude rows
// have a zero on each side.
inline uint8_t MarkAt(const int16_t* above, const int16_t* at, const int16_t* below,
                      const int16_t* dx, const int16_t* dy, int x, int low, int high) {
    const int m = at[x];
    if (m <= low) return 0;
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
    if (!peak) return 0;
    return m > high ? kEdge : kCandidate;
}

struct EdgeRowKernels {
    // dx, dy and m of one image row.
    void (*gradient)(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, int width,
                     int16_t* dx, int16_t* dy, int16_t* mag);
    // Writes the codes of a row's `width` columns to `map` and appends the
    // addresses of its edges to `seeds`; low is at least -1.
    void (*mark)(const int16_t* above, const int16_t* at, const int16_t* below, const int16_t* dx,
                 const int16_t* dy, int width, int low, int high, uint8_t* map,
                 std::vector<uint8_t*>& seeds);
};

extern const EdgeRowKernels kReferenceEdgeKernels;
#if defined(__x86_64__) && defined(__GNUC__)
#define SCRIVO_EDGES_AVX2 1
// Defined in text_edges_avx2.cpp; to be run only where the processor has AVX2.
extern const EdgeRowKernels kAvx2EdgeKernels;
#endif

}  // namespace text_edges_detail
