// Lookup tables of the live enhancement routes and the fixed-step sharpening.
//
// Luma stretch (CalcColorTableGCELow4). The darkest 5 % of the page (counted
// from level 0, 5 or 20 as the page's mean is below 20, below 40 or higher,
// so that a black frame or deep shadow does not pin the dark end) end at
// lo; the brightest 1 % begin at hi, counted down from 253 so that clipped
// highlights at 254 and 255 are left out. The line through (lo, 0.8 lo)
// with slope (255 - 0.8 lo) / (hi - lo) reaches 255 at hi; the slope is
// capped at 3.8, or at 2.0 for pages whose mid level (hi + lo) / 2 is above
// 44, so a low-contrast page is not torn apart. Entries truncate and clamp.
//
// Chroma (GetCrTableLow). Three linear pieces meeting at (b1, 40) and
// (b2, 215): flat ends and a steep middle around 128, which saturates
// colours; dark pages (mid < 45) get the steeper middle. Products are in
// single precision, the rounding half and truncation in double.
//
// Sharpening (UnsharpMaskSingleChannel6). A 5 x 5 box mean with replicated
// borders; a pixel more than 10 levels from its mean is pushed 10 levels
// further from it (clamped), everything else stays. The effect is a fixed
// step, not a gain, which deepens strokes without amplifying paper noise.
#include "vision/enhance/color_tables.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"

void CountLevels(const cv::Mat& plane, std::array<uint64_t, 256>& counts) {
    if (plane.empty() || plane.type() != CV_8UC1) return;
    // Four partial histograms keep runs of equal pixels from stalling on
    // one counter.
    std::array<std::array<uint32_t, 256>, 4> h{};
    for (int y = 0; y < plane.rows; ++y) {
        const uint8_t* row = plane.ptr<uint8_t>(y);
        int x = 0;
        for (; x + 4 <= plane.cols; x += 4) {
            ++h[0][row[x]];
            ++h[1][row[x + 1]];
            ++h[2][row[x + 2]];
            ++h[3][row[x + 3]];
        }
        for (; x < plane.cols; ++x) ++h[0][row[x]];
    }
    for (int i = 0; i < 256; ++i) counts[i] += uint64_t{h[0][i]} + h[1][i] + h[2][i] + h[3][i];
}

std::array<double, 256> Normalise(const std::array<uint64_t, 256>& counts, uint64_t total) {
    std::array<double, 256> p{};
    if (total == 0) return p;
    for (int i = 0; i < 256; ++i)
        p[i] = static_cast<double>(counts[i]) / static_cast<double>(total);
    return p;
}

int TailLevel(const std::array<double, 256>& p, int from, int step, double share) {
    double sum = 0.0;
    for (int k = from; k >= 0 && k < 256; k += step) {
        sum += p[k];
        if (sum > share) return k;
    }
    return 0;
}

std::array<double, 256> NormalisedHistogram(const cv::Mat& plane) {
    std::array<uint64_t, 256> counts{};
    CountLevels(plane, counts);
    return Normalise(counts, plane.empty() ? 0 : plane.total());
}

void CalcColorTableGCELow4(const cv::Mat& Y, unsigned char* table, float* mid) {
    StretchTableFromHistogram(NormalisedHistogram(Y), table, mid);
}

void StretchTableFromHistogram(const std::array<double, 256>& p, unsigned char* table, float* mid) {
    if (table == nullptr) return;
    double mean = 0.0;
    for (int i = 0; i < 256; ++i) mean += i * p[i];

    const int start = mean < 20.0 ? 0 : (mean < 40.0 ? 5 : 20);
    const int lo = TailLevel(p, start, +1, 0.05);
    const int hi = TailLevel(p, 253, -1, 0.01);
    const int midLevel = (hi + lo) / 2;
    if (mid != nullptr) *mid = static_cast<float>(midLevel);

    const double cap = midLevel > 44 ? 2.0 : 3.8;
    // hi == lo is an infinitely steep stretch, which the cap settles.
    double slope = hi == lo ? cap : (255.0 - 0.8 * lo) / (hi - lo);
    if (slope > cap) slope = cap;
    const double base = 0.8 * lo - slope * lo;
    for (int i = 0; i < 256; ++i) {
        const double v = base + slope * i;
        table[i] = v > 255.0 ? 255 : (v > 0.0 ? static_cast<unsigned char>(v) : 0);
    }
}

void GetCrTableLow(const cv::Mat& plane, unsigned char* table, float mid) {
    (void)plane;
    if (table == nullptr) return;
    const bool dark = mid < 45.0f;
    const float outer = dark ? 0.4f : 0.5714286f;
    const float middle = dark ? 3.1818182f : 1.5217391f;
    const int knee1 = dark ? 100 : 70;
    const int knee2 = dark ? 155 : 185;
    for (int i = 0; i < 256; ++i) {
        double v;
        if (i < knee1) {
            v = static_cast<double>(outer * static_cast<float>(i)) + 0.5;
        } else if (i < knee2) {
            v = static_cast<double>(middle * static_cast<float>(i - knee1)) + 40.0 + 0.5;
        } else {
            v = static_cast<double>(outer * static_cast<float>(i - knee2)) + 215.0 + 0.5;
        }
        table[i] = static_cast<unsigned char>(std::min(v, 255.0));
    }
}

void UnsharpMaskSingleChannel6(cv::Mat& Y, float amount) {
    cv::Mat blurred;
    UnsharpMaskWithBuffer(Y, amount, blurred);
}

void UnsharpMaskWithBuffer(cv::Mat& Y, float amount, cv::Mat& blurred) {
    (void)amount;
    if (Y.empty() || Y.type() != CV_8UC1) return;
    scrivo::pixel::CreateLarge(blurred, Y.size(), Y.type());
    cv::blur(Y, blurred, cv::Size(5, 5), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    for (int y = 0; y < Y.rows; ++y) {
        uint8_t* o = Y.ptr<uint8_t>(y);
        const uint8_t* b = blurred.ptr<uint8_t>(y);
        for (int x = 0; x < Y.cols; ++x) {
            const int v = o[x], m = b[x];
            if (m - v > 10) {
                o[x] = static_cast<uint8_t>(v > 10 ? v - 10 : 0);
            } else if (v - m >= 11) {
                o[x] = static_cast<uint8_t>(std::min(v + 10, 255));
            }
        }
    }
}
