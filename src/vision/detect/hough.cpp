// Progressive probabilistic Hough transform (Matas, Galambos, Kittler).
//
// The edge points of the binary map are listed and visited once each in a
// pseudo-random order (a fixed-seed generator of our own, so the segments
// are the same on every run and platform). Each visited point that is still
// in the map votes into the (angle, rho) accumulator, and the strongest cell
// it touched is checked:
//   1. below `threshold`: nothing more happens, the next point is visited;
//   2. otherwise the line of that cell is walked from the point in both
//      directions in 16.16 fixed-point steps along its major axis, the ends
//      being the last edge pixels found before more than `maxLineGap`
//      consecutive misses (or the image border);
//   3. the pixels of the walked corridor between the ends are taken out of
//      the map, so that they neither vote nor extend another line later;
//   4. when the segment spans at least `minLineLength` pixels in x or in y,
//      every corridor pixel is subtracted from the accumulator and the
//      segment is reported; a shorter run is dropped (its pixels stay out).
// A walk bridges pixels that an earlier line already took (up to
// kMaxCrossing in a row, counted neither as support nor as a miss): where a
// page border is crossed by ruled lines, table stripes or a cloth pattern,
// those lines usually come out first, and without the bridge the border
// would be cut at every crossing into pieces too short to keep.
// Step 4 subtracts pixels that had not voted yet too. On the thick edges of
// a dilated map this pushes the cells of the band beside a reported line
// down, so that the band's leftover pixels rarely make a parallel duplicate.
// The map is copied into a flat byte array and the accumulator is one flat
// array of 16-bit counts (32-bit on very large maps); nothing is allocated
// per point, and the whole run is integer arithmetic apart from the tables.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "vision/detect/detector_internal.h"

namespace {

constexpr int kShift = 16;  // fixed-point bits of the line walk and rho tables
constexpr int64_t kMaxAccumulatorCells = int64_t{1} << 27;
// Pixel states of the working map.
constexpr uint8_t kFree = 1;   // an edge pixel that may still vote and extend a line
constexpr uint8_t kTaken = 2;  // an edge pixel that belongs to an earlier walk
// Longest run of taken pixels a walk crosses: a 3-pixel-wide line met at a
// slant, with a pixel to spare.
constexpr int kMaxCrossing = 6;

// Small self-contained generator (PCG32, XSH-RR output): the visiting order
// depends only on the seed and the point list, never on global state.
class Pcg32 {
  public:
    explicit Pcg32(uint64_t seed) {
        Next();
        state_ += seed;
        Next();
    }
    uint32_t Next() {
        const uint64_t old = state_;
        state_ = old * 6364136223846793005ull + kIncrement;
        const uint32_t xorshifted = static_cast<uint32_t>(((old >> 18) ^ old) >> 27);
        const uint32_t rot = static_cast<uint32_t>(old >> 59);
        return (xorshifted >> rot) | (xorshifted << ((32u - rot) & 31u));
    }
    // Value in [0, bound): multiply-high reduction, integer only.
    uint32_t Below(uint32_t bound) {
        return static_cast<uint32_t>((static_cast<uint64_t>(Next()) * bound) >> 32);
    }

  private:
    static constexpr uint64_t kIncrement = 1442695040888963407ull;
    uint64_t state_ = 0;
};

struct Point {
    int32_t x, y;
};

// Everything the transform needs besides the accumulator.
struct Setup {
    int width = 0, height = 0, numAngle = 0, numRho = 0;
    int threshold = 1, minLineLength = 0, maxLineGap = 0;
    int rhoShift = 0;               // fixed-point bits of the rho tables
    std::vector<int32_t> cosTab;    // cos / rho, fixed point
    std::vector<int32_t> sinTab;    // sin / rho, fixed point
    std::vector<int32_t> cellBase;  // n * numRho + rho offset
    std::vector<float> dirCos, dirSin;
    std::vector<uint8_t> state;  // 0 no edge, kFree, kTaken
    std::vector<Point> points;   // visiting order
};

// Accumulator index of (x, y) at every angle, into idx[0 .. numAngle).
// Plain multiply-adds on int32 so that the compiler can vectorise them.
inline void CellsOf(const Setup& s, int x, int y, int32_t* idx) {
    const int32_t* c = s.cosTab.data();
    const int32_t* sn = s.sinTab.data();
    const int32_t* base = s.cellBase.data();
    const int shift = s.rhoShift;
    const int32_t round = shift > 0 ? 1 << (shift - 1) : 0;
    for (int n = 0; n < s.numAngle; ++n)
        idx[n] = ((x * c[n] + y * sn[n] + round) >> shift) + base[n];
}

template <typename Count>
void Transform(Setup& s, std::vector<HoughSegment>& lines) {
    const int width = s.width, height = s.height, numAngle = s.numAngle;
    std::vector<Count> acc(static_cast<size_t>(numAngle) * s.numRho, 0);
    std::vector<int32_t> idx(numAngle);
    std::vector<Count> votes(numAngle);
    auto stateAt = [&](int x, int y) -> uint8_t& {
        return s.state[static_cast<size_t>(y) * width + x];
    };
    const int64_t half = int64_t{1} << (kShift - 1);

    for (const Point& p : s.points) {
        if (stateAt(p.x, p.y) != kFree) continue;  // taken by an earlier line

        CellsOf(s, p.x, p.y, idx.data());
        // Votes first, then the strongest cell in a separate (vectorisable)
        // pass: a running maximum inside the scatter loop would chain every
        // increment to the previous compare. Ties go to the smallest angle.
        Count* v = votes.data();
        for (int n = 0; n < numAngle; ++n) v[n] = ++acc[idx[n]];
        Count top = v[0];
        for (int n = 1; n < numAngle; ++n) top = std::max(top, v[n]);
        if (top < s.threshold) continue;
        const int maxN = static_cast<int>(std::find(v, v + numAngle, top) - v);

        // Walk direction: along the line, perpendicular to its normal
        // (cos, sin). One unit step on the major axis, a fixed-point
        // fraction on the other.
        const float a = -s.dirSin[maxN];
        const float b = s.dirCos[maxN];
        const bool xMajor = std::fabs(a) > std::fabs(b);
        int64_t x0 = p.x, y0 = p.y, dx0, dy0;
        if (xMajor) {
            dx0 = a > 0 ? 1 : -1;
            dy0 = std::llround(static_cast<double>(b) * (1 << kShift) / std::fabs(a));
            y0 = (y0 << kShift) + half;
        } else {
            dy0 = b > 0 ? 1 : -1;
            dx0 = std::llround(static_cast<double>(a) * (1 << kShift) / std::fabs(b));
            x0 = (x0 << kShift) + half;
        }
        auto pixelOf = [&](int64_t fx, int64_t fy, int* px, int* py) {
            *px = static_cast<int>(xMajor ? fx : fx >> kShift);
            *py = static_cast<int>(xMajor ? fy >> kShift : fy);
        };

        Point ends[2];
        for (int k = 0; k < 2; ++k) {
            const int64_t dx = k == 0 ? dx0 : -dx0;
            const int64_t dy = k == 0 ? dy0 : -dy0;
            ends[k] = p;
            int gap = 0, crossing = 0;
            for (int64_t fx = x0, fy = y0;; fx += dx, fy += dy) {
                int x, y;
                pixelOf(fx, fy, &x, &y);
                if (x < 0 || x >= width || y < 0 || y >= height) break;
                const uint8_t st = stateAt(x, y);
                if (st == kFree) {
                    gap = crossing = 0;
                    ends[k] = {x, y};
                } else if (st == kTaken && crossing < kMaxCrossing) {
                    ++crossing;
                } else if (++gap > s.maxLineGap) {
                    break;
                }
            }
        }

        const bool good = std::abs(ends[1].x - ends[0].x) >= s.minLineLength ||
                          std::abs(ends[1].y - ends[0].y) >= s.minLineLength;

        // Clear the corridor between the ends; a reported line also takes
        // its pixels out of the accumulator.
        for (int k = 0; k < 2; ++k) {
            const int64_t dx = k == 0 ? dx0 : -dx0;
            const int64_t dy = k == 0 ? dy0 : -dy0;
            for (int64_t fx = x0, fy = y0;; fx += dx, fy += dy) {
                int x, y;
                pixelOf(fx, fy, &x, &y);
                uint8_t& pixel = stateAt(x, y);
                if (pixel == kFree && good) {
                    CellsOf(s, x, y, idx.data());
                    for (int n = 0; n < numAngle; ++n) --acc[idx[n]];
                }
                if (pixel) pixel = kTaken;
                if (x == ends[k].x && y == ends[k].y) break;
            }
        }

        if (good) lines.push_back({ends[0].x, ends[0].y, ends[1].x, ends[1].y});
    }
}

std::vector<HoughSegment> HoughLines(const cv::Mat& edges, double rho, double theta, int threshold,
                                     int minLineLength, int maxLineGap) {
    std::vector<HoughSegment> lines;
    if (edges.empty() || edges.type() != CV_8UC1 || edges.dims != 2) return lines;
    if (!(rho > 0.0) || !(theta > 0.0) || !std::isfinite(rho) || !std::isfinite(theta))
        return lines;

    Setup s;
    s.width = edges.cols;
    s.height = edges.rows;
    // Angles 0, theta, ... below pi. Rho is measured from the map's origin,
    // so |rho| never exceeds the diagonal: the accumulator rows span that
    // range (plus a cell of slack for the fixed-point rounding) rather than
    // the customary 2 (w + h) + 1, which is only a looser bound on it.
    const double numAngle = std::round(CV_PI / theta);
    const double maxRho = std::ceil(std::hypot(s.width - 1.0, s.height - 1.0) / rho) + 1.0;
    const double numRho = 2.0 * maxRho + 1.0;
    if (numAngle < 1.0 || numAngle * numRho > kMaxAccumulatorCells) return lines;
    s.numAngle = static_cast<int>(numAngle);
    s.numRho = static_cast<int>(numRho);
    s.threshold = std::max(threshold, 1);  // below 1 every vote would start a walk anyway
    s.minLineLength = minLineLength;
    s.maxLineGap = maxLineGap;

    // As many fraction bits as keep x * cos + y * sin (at most maxRho in
    // cells) and its rounding half inside int32.
    s.rhoShift = kShift;
    while (s.rhoShift > 0 && (maxRho + 1.0) * std::ldexp(1.0, s.rhoShift) >= std::ldexp(1.0, 30))
        --s.rhoShift;
    const double scale = std::ldexp(1.0, s.rhoShift) / rho;
    const int32_t rhoOffset = static_cast<int32_t>(maxRho);
    s.cosTab.resize(s.numAngle);
    s.sinTab.resize(s.numAngle);
    s.cellBase.resize(s.numAngle);
    s.dirCos.resize(s.numAngle);
    s.dirSin.resize(s.numAngle);
    for (int n = 0; n < s.numAngle; ++n) {
        const double a = n * theta;
        s.dirCos[n] = static_cast<float>(std::cos(a));
        s.dirSin[n] = static_cast<float>(std::sin(a));
        s.cosTab[n] = static_cast<int32_t>(std::lround(std::cos(a) * scale));
        s.sinTab[n] = static_cast<int32_t>(std::lround(std::sin(a) * scale));
        s.cellBase[n] = n * s.numRho + rhoOffset;
    }

    s.state.assign(static_cast<size_t>(s.width) * s.height, 0);
    s.points.reserve(static_cast<size_t>(cv::countNonZero(edges)));
    for (int y = 0; y < s.height; ++y) {
        const uint8_t* row = edges.ptr<uint8_t>(y);
        uint8_t* out = s.state.data() + static_cast<size_t>(y) * s.width;
        for (int x = 0; x < s.width; ++x) {
            if (row[x]) {
                out[x] = kFree;
                s.points.push_back({x, y});
            }
        }
    }
    if (s.points.empty()) return lines;

    // Fisher-Yates with the fixed seed: a visiting order that is random with
    // respect to the geometry, yet reproducible.
    Pcg32 rng(0x5C41B0D5EEDull);
    for (size_t i = s.points.size() - 1; i > 0; --i) {
        const size_t j = rng.Below(static_cast<uint32_t>(i + 1));
        std::swap(s.points[i], s.points[j]);
    }

    // A cell counts at most the pixels of a strip rho wide across the map
    // (each voting once and leaving once), so usual maps fit 16-bit counts:
    // half the accumulator's memory traffic.
    const double maxCount = (1.5 * rho + 2.0) * (s.width + s.height);
    if (maxCount < 32000.0) {
        Transform<int16_t>(s, lines);
    } else {
        Transform<int32_t>(s, lines);
    }
    return lines;
}

}  // namespace

std::vector<HoughSegment> QvVP_HoughLines(const cv::Mat& edges, double rho, double theta,
                                          int threshold, int minLineLength, int maxLineGap) {
    try {
        return HoughLines(edges, rho, theta, threshold, minLineLength, maxLineGap);
    } catch (...) {  // out of memory for the working buffers
        return {};
    }
}
