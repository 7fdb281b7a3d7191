// The per-pixel colour step of the document route, in 18 row stripes on
// the parallel task engine.
//
// Inputs are the tone-mapped planes, the kept luma K (sharpened, taken
// before any background work), the local chroma backgrounds, the paper's
// chroma (L1, L2) and an ink and a paper level (L3 < L4). Per pixel:
// - bright pixels near the paper's chroma lose their cast (set to neutral,
//   or re-centred on neutral around their local background, more gently
//   the further they are from it);
// - pixels near the paper's chroma away from dark content may be lifted
//   towards T[K] in proportion to how far their chroma is from the paper's,
//   where T (CalIndex9) stretches K so that L3 maps to half of itself and
//   L4 to at least itself (at most 180 by the 1.4 L4 cap, unless L4 is
//   higher); their chroma is then boosted away from the local background;
// - bright pixels near dark content (GetBlackFlag: within a 14 x 14 square
//   of a pixel of grey 119 or less) lose colour fringes;
// - everything else is raised to T[K] when that is brighter, and its chroma
//   boosted: 2.5 times for K above 40, less for darker pixels whose chroma
//   is faint (so near-black ink does not turn colourful).
// All arithmetic is integer with arithmetic shifts, and every result is
// clamped to 0 ... 255.
//
// GetBlackFlag paints, for every pixel of grey 119 or less whose 14 x 14
// square lies inside the image (7 <= x <= W - 8, 7 <= y <= H - 8), the
// square from (x - 7, y - 7) to (x + 6, y + 6). That is a dilation of those
// pixels by a 14 x 14 rectangle anchored at (6, 6), which is how it is
// computed.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"
#include "scrivo/parallel.h"
#include "vision/enhance/document.h"

namespace {

constexpr int kStripes = 18;

struct EnhanceTask {
    uint8_t* Y;
    const uint8_t* kept;
    uint8_t* Cr;
    uint8_t* Cb;
    const uint8_t* bgCr;
    const uint8_t* bgCb;
    const uint8_t* flag;
    const int32_t* index;
    size_t step;  // of every plane: the Cr plane's
    int32_t width;
    int32_t L1, L2;
    int32_t firstRow, endRow;
};

inline uint8_t Clamp8(int32_t v) {
    return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

inline bool Within(int32_t v, int32_t centre, int32_t reach) {
    return v >= centre - reach && v <= centre + reach;
}

// Chroma pushed away from its local background by a gain that depends on
// the kept luma k.
inline void Boost(int32_t k, int32_t bcr, int32_t bcb, int32_t* cr, int32_t* cb) {
    if (k > 40) {
        *cr = bcr + (((*cr - bcr) * 5) >> 1);
        *cb = bcb + (((*cb - bcb) * 5) >> 1);
    } else {
        int32_t e = std::max(std::abs(*cr - 128), std::abs(*cb - 128));
        if (k >= 31) e = std::max(e, k - 30);
        const int32_t gain = e < 11 ? 1024 + (1024 * e) / 10 : 2560;
        *cr = bcr + (((*cr - bcr) * gain) >> 10);
        *cb = bcb + (((*cb - bcb) * gain) >> 10);
    }
    *cr = std::clamp(*cr, 0, 255);
    *cb = std::clamp(*cb, 0, 255);
}

void EnhancePixel(const EnhanceTask& t, size_t i) {
    const int32_t y = t.Y[i], k = t.kept[i], bcr = t.bgCr[i], bcb = t.bgCb[i];
    const int32_t L1 = t.L1, L2 = t.L2;
    const bool dark = t.flag[i] != 0;
    int32_t cr = t.Cr[i], cb = t.Cb[i];
    const bool nearPaper = Within(cr, L1, 15) && Within(cb, L2, 15);
    if (y >= 231 && L1 - 23 < cr && cr < L1 + 23 && L2 - 23 < cb && cb < L2 + 23) {
        if (!dark && y >= 251 && cr < cb) {
            cr = cb = 128;
        } else if (dark && L1 - 15 < cr && cr < L1 + 15 && L2 - 15 < cb && cb < L2 + 15) {
            cr = cb = 128;
        } else if (125 < cb && cb < 131 && 126 <= cr && cr <= 130) {
            cr = cb = 128;
        } else {
            const int32_t dr = cr - bcr, db = cb - bcb;
            const int32_t m = std::max(std::abs(dr), std::abs(db));
            const int32_t w = m > 5 ? ((m - 5) * 1024) / 18 : 0;
            cr = Clamp8((w * bcr + (1024 - w) * 128 + dr * (1024 + w)) >> 10);
            cb = Clamp8((w * bcb + (1024 - w) * 128 + db * (1024 + w)) >> 10);
        }
    } else if ((!dark || y <= 179) && nearPaper) {
        const int32_t d = std::max(std::abs(cb - L2), std::abs(cr - L1));
        const int32_t share = (1024 * d) / 15;
        const int32_t v = (t.index[k] * share + 512 + y * (1024 - share)) >> 10;
        if (v > y) t.Y[i] = Clamp8(v);
        Boost(k, bcr, bcb, &cr, &cb);
    } else if (dark && y > 179 && nearPaper) {
        cr = cb = 128;
    } else {
        if (t.index[k] > y) t.Y[i] = Clamp8(t.index[k]);
        Boost(k, bcr, bcb, &cr, &cb);
    }
    t.Cr[i] = static_cast<uint8_t>(cr);
    t.Cb[i] = static_cast<uint8_t>(cb);
}

void* mtThreadEnhanceFun(void* argument) {
    const EnhanceTask& t = *static_cast<const EnhanceTask*>(argument);
    for (int32_t r = t.firstRow; r < t.endRow; ++r) {
        const size_t row = static_cast<size_t>(r) * t.step;
        for (int32_t x = 0; x < t.width; ++x) EnhancePixel(t, row + static_cast<size_t>(x));
    }
    return nullptr;
}

bool SamePlane(const cv::Mat& plane, const cv::Mat& like) {
    return plane.type() == CV_8UC1 && plane.size() == like.size() && plane.step == like.step;
}

}  // namespace

void CalIndex9(int32_t* table, int32_t L3, int32_t L4) {
    if (table == nullptr) return;
    if (L3 == L4) {
        for (int i = 0; i < 256; ++i) table[i] = i;
        return;
    }
    const double c = std::min(1.4 * L4, 180.0);
    const double top = std::max(c, static_cast<double>(L4));
    const double half = 0.5 * L3;
    const double slope = (top - half) / (L4 - L3);
    const int32_t start = L3 - static_cast<int32_t>(half / slope + 0.5);
    const int32_t cap = std::max(static_cast<int32_t>(top), 180);
    std::fill(table, table + 256, 0);
    double v = 0.0;
    for (int32_t i = std::max(start, 0); i < 256; ++i, v += slope) {
        table[i] = std::min(static_cast<int32_t>(v + 0.5), cap);
    }
}

void GetBlackFlag(const cv::Mat& Y, cv::Mat& flag) {
    scrivo::pixel::CreateLarge(flag, Y.size(), CV_8UC1);
    flag.setTo(0);
    if (Y.cols < 15 || Y.rows < 15) return;
    // The seeds are dilated in place.
    const cv::Rect inside(7, 7, Y.cols - 14, Y.rows - 14);
    cv::Mat seeds = flag(inside);
    cv::compare(Y(inside), 119, seeds, cv::CMP_LE);
    cv::dilate(flag, flag, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(14, 14)),
               cv::Point(6, 6));
}

void EnhanceColorByPixel9(cv::Mat& Y, const cv::Mat& kept, cv::Mat& Cr, cv::Mat& Cb,
                          const cv::Mat& bgCr, const cv::Mat& bgCb, int32_t L3, int32_t L4,
                          int32_t L1, int32_t L2) {
    cv::Mat flag;
    EnhanceColorByPixelWithBuffer(Y, kept, Cr, Cb, bgCr, bgCb, L3, L4, L1, L2, flag);
}

void EnhanceColorByPixelWithBuffer(cv::Mat& Y, const cv::Mat& kept, cv::Mat& Cr, cv::Mat& Cb,
                                   const cv::Mat& bgCr, const cv::Mat& bgCb, int32_t L3, int32_t L4,
                                   int32_t L1, int32_t L2, cv::Mat& flag) {
    if (Cr.empty() || Cr.type() != CV_8UC1) return;
    const bool alike = SamePlane(Y, Cr) && SamePlane(kept, Cr) && SamePlane(Cb, Cr) &&
                       SamePlane(bgCr, Cr) && SamePlane(bgCb, Cr);
    if (!alike) return;
    int32_t index[256];
    CalIndex9(index, L3, L4);
    GetBlackFlag(Y, flag);
    if (!SamePlane(flag, Cr)) return;

    MCVHandle engine = mcvParallelInit(nullptr, kStripes);
    if (engine == nullptr) return;
    const int32_t H = Cr.rows, stripe = (H + kStripes - 1) / kStripes;
    std::vector<EnhanceTask> tasks(kStripes);
    int32_t ids[kStripes];
    for (int32_t i = 0; i < kStripes; ++i) {
        tasks[i] = EnhanceTask{Y.data,
                               kept.data,
                               Cr.data,
                               Cb.data,
                               bgCr.data,
                               bgCb.data,
                               flag.data,
                               index,
                               Cr.step,
                               Cr.cols,
                               L1,
                               L2,
                               std::min(i * stripe, H),
                               std::min((i + 1) * stripe, H)};
        ids[i] = mcvAddTask(engine, mtThreadEnhanceFun, &tasks[i]);
        // A refused stripe is done here rather than left untouched.
        if (ids[i] < 0) mtThreadEnhanceFun(&tasks[i]);
    }
    for (int32_t i = 0; i < kStripes; ++i) {
        if (ids[i] >= 0) mcvWaitTask(engine, ids[i]);
    }
    mcvParallelUninit(engine);
}
