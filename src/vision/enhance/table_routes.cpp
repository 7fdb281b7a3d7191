// Methods 2 and 4 as whole-image routes, worked in row stripes.
//
// Both methods need nothing but a histogram of the page's luma before they
// can map every pixel through fixed tables. So instead of splitting the
// page into three full-size planes and joining them again, they make two
// passes over stripes of 16 rows: the first converts each stripe to luma
// and counts its levels; the second converts the stripe again (luma and
// chroma), maps it through the tables and writes the result rows. The
// stripe buffers stay in cache and are reused, only the result is a new
// full-size image, and the bytes are exactly those of the plane route
// (split, EnhanceLow2 or the luma table, join), which the tests check.
#include "vision/enhance/table_routes.h"

#include <algorithm>
#include <array>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"
#include "pixel/pixel.h"
#include "vision/enhance/color_tables.h"
#include "vision/enhance/enhance.h"

namespace {

constexpr int kStripeRows = 16;

cv::Mat Stripe(const cv::Mat& image, int top) {
    return image.rowRange(top, std::min(top + kStripeRows, image.rows));
}

// The luma stretch table of the page, from its stripes.
void LumaTable(const cv::Mat& src, unsigned char* table, float* mid) {
    std::array<uint64_t, 256> counts{};
    cv::Mat y;
    for (int top = 0; top < src.rows; top += kStripeRows) {
        RGB24ToY(Stripe(src, top), y);
        CountLevels(y, counts);
    }
    StretchTableFromHistogram(Normalise(counts, src.total()), table, mid);
}

}  // namespace

cv::Mat EnhanceColourByTables(const cv::Mat& src) {
    if (src.empty() || src.type() != CV_8UC3) return cv::Mat();
    unsigned char luma[256], chroma[256];
    float mid = 0.0f;
    LumaTable(src, luma, &mid);
    GetCrTableLow(cv::Mat(), chroma, mid);
    cv::Mat out, y, cr, cb;
    scrivo::pixel::CreateLarge(out, src.size(), CV_8UC3);
    for (int top = 0; top < src.rows; top += kStripeRows) {
        RGB24ToYCbCr(Stripe(src, top), y, cr, cb);
        EnhanceImageWithTable(y, luma);
        EnhanceImageWithTable(cr, chroma);
        EnhanceImageWithTable(cb, chroma);
        cv::Mat rows = Stripe(out, top);
        YCbCrToRGB24(rows, y, cr, cb);
    }
    return out;
}

cv::Mat EnhanceGreyByTable(const cv::Mat& src) {
    if (src.empty() || src.type() != CV_8UC3) return cv::Mat();
    unsigned char luma[256];
    float mid = 0.0f;
    LumaTable(src, luma, &mid);
    cv::Mat out, y;
    scrivo::pixel::CreateLarge(out, src.size(), CV_8UC3);
    for (int top = 0; top < src.rows; top += kStripeRows) {
        RGB24ToY(Stripe(src, top), y);
        EnhanceImageWithTable(y, luma);
        cv::Mat rows = Stripe(out, top);
        cv::cvtColor(y, rows, cv::COLOR_GRAY2BGR);
    }
    return out;
}
