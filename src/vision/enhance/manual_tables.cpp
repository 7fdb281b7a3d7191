// Tables of the manual adjustment route: a brightness/contrast curve and a
// gamma curve composed into one 256-entry table, and the preview's brightest
// level that anchors the gamma curve.
//
// Contrast curve: three linear pieces through the knees at input levels
// lo and hi. A contrast c (clamped to at least -100) gives d = 88c/100
// (truncated). Lowering contrast (d <= 0) keeps the knees at 40 and 216 and
// pulls their outputs together (b + 40 - d, b + 216 + d; at c = -100 both
// are b + 128 and the middle goes flat). Raising it (d > 0) moves the knees
// inwards to 40 + d and 216 - d with outputs b + 40 and b + 216. Above 100
// the knees meet at 128. The curve is walked, not evaluated: a float v
// starts at the brightness b and grows by the slope of the piece the level
// lies in, after the value for that level has been stored; so level hi + 1
// still carries one middle step, and float rounding accumulates along the
// walk. Slopes depend only on the knee offsets, not on b, so they are
// computed from those offsets (no integer overflow for any brightness).
//
// Gamma curve: t -> int(pow(t / max, 1 / gamma) * max + 0.5) keeping the low
// 8 bits (levels above max can exceed 255 and wrap). The ratio and exponent
// are single precision, the power and product double. A maximum of 0 makes
// every quotient infinite or not-a-number, and the table all 0; that case
// is settled up front. Otherwise the conversion saturates at the 32-bit
// limits (a tiny maximum with gamma near 0.1 can overflow int), like a
// saturating hardware conversion, so nothing is undefined.
#include "vision/enhance/manual_tables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

float ClampGamma(float gamma) {
    if (!(gamma > 0.1f)) return 0.1f;  // also catches not-a-number
    if (gamma > 5.0f) return 5.0f;
    return gamma;
}

unsigned char StoreWalked(float v) {
    if (!(v > 0.0f)) return 0;
    if (v >= 255.0f) return 255;
    return static_cast<unsigned char>(static_cast<int>(v));
}

int32_t SaturatingInt32(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

}  // namespace

int CalAdjustThreshold(const cv::Mat& image) {
    if (image.empty() || image.depth() != CV_8U) return 0;
    const int n = image.cols * image.channels();
    unsigned char top = 0;
    for (int y = 0; y < image.rows && top != 255; ++y) {
        const unsigned char* p = image.ptr<unsigned char>(y);
        for (int x = 0; x < n; ++x) top = std::max(top, p[x]);
    }
    return top;
}

int CalAdjustImageByManuallyMatrix(unsigned char* table, int threshold, int brightness,
                                   int contrast, float gamma) {
    if (table == nullptr) return 0;
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>(i);
    CalAdjustTableByContrast(table, brightness, contrast);
    if (gamma == 1.0f) return 1;
    CalAdjustTableByGamma(table, gamma, table[std::clamp(threshold, 0, 255)]);
    return 1;
}

int CalAdjustTableByContrast(unsigned char* table, int brightness, int contrast) {
    if (table == nullptr) return 0;
    // Knees (input levels), the outputs at the knees relative to the
    // brightness, and the run lengths of the middle and upper pieces.
    int lo, hi, lowOut, highOut, middleRun, upperRun;
    if (contrast > 100) {
        lo = hi = 128;
        lowOut = 40;
        highOut = 216;
        middleRun = 1;
        upperRun = 127;
    } else {
        const int d = (88 * std::max(contrast, -100)) / 100;
        if (d <= 0) {
            lo = 40;
            hi = 216;
            lowOut = 40 - d;
            highOut = 216 + d;
            middleRun = 176;
            upperRun = 39;
        } else {
            lo = 40 + d;
            hi = 216 - d;
            lowOut = 40;
            highOut = 216;
            middleRun = std::max(hi - lo, 1);
            upperRun = 255 - hi;
        }
    }
    const float lower = static_cast<float>(lowOut) / static_cast<float>(lo);
    float middle = static_cast<float>(highOut - lowOut) / static_cast<float>(middleRun);
    if (!(middle > 0.0f)) middle = 0.0f;
    const float upper = static_cast<float>(255 - highOut) / static_cast<float>(upperRun);

    unsigned char map[256];
    float v = static_cast<float>(brightness);
    for (int i = 0; i < 256; ++i) {
        map[i] = StoreWalked(v);
        v += i < lo ? lower : (i <= hi ? middle : upper);
    }
    for (int i = 0; i < 256; ++i) table[i] = map[table[i]];
    return 1;
}

int CalAdjustTableByGamma(unsigned char* table, float gamma, int max) {
    if (table == nullptr) return 0;
    if (max == 0) {
        // Every quotient t / 0 is infinite or not-a-number, which converts
        // to 0: settle that without dividing by zero.
        std::fill(table, table + 256, static_cast<unsigned char>(0));
        return 1;
    }
    const float inverse = 1.0f / ClampGamma(gamma);
    const float fmax = static_cast<float>(max);
    for (int i = 0; i < 256; ++i) {
        const float ratio = static_cast<float>(table[i]) / fmax;
        const double value = std::pow(static_cast<double>(ratio), static_cast<double>(inverse)) *
                                 static_cast<double>(max) +
                             0.5;
        table[i] =
            static_cast<unsigned char>(static_cast<uint32_t>(SaturatingInt32(value)) & 0xFFu);
    }
    return 1;
}
