// Enhancement dispatch and the in-place table step.
//
// Images under 64 px on a side take a short route: the grey methods (4, 5)
// give a plain grey copy, every other method an unchanged copy. Method 1
// copies. Methods 3 and 5 split the page into Y, Cr, Cb planes and work on
// them: method 3 in place, joining them again; method 5 renders from Y
// alone after judging whether the page is a dark board, whose Y is then
// inverted. Methods 2 and 4 (global tables only) give the same bytes as
// the plane route (split, EnhancePerserveHue2 or the luma table, join or
// grey) but work in row stripes (table_routes.cpp).
//
// Method 3 judges the page by its edges and then by its blocks, and gives
// pages that are not light documents the method-2 tables. An evenly lit
// document is tone-mapped block by block; an unevenly lit one is sharpened,
// its background estimated and divided out, tone-mapped and finished pixel
// by pixel (document.h lists the steps), falling back to the method-2
// tables when the tone mapping finds nothing to map.
//
// EnhanceImageWithTable walks each row as width x channels bytes, so
// regions of interest and padded rows are handled; the loop is unrolled by
// four so the table lookups of neighbouring bytes overlap.
#include "vision/enhance/enhance.h"

#include <vector>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"
#include "pixel/pixel.h"
#include "vision/enhance/binarize.h"
#include "vision/enhance/color_tables.h"
#include "vision/enhance/document.h"
#include "vision/enhance/page_type.h"
#include "vision/enhance/table_routes.h"

namespace {

constexpr int kSmallSide = 64;
// Above this many pixels, method 3 works on blocks of 64 instead of 16.
constexpr int64_t kLargePagePixels = 7000000;

cv::Mat GreyCopy(const cv::Mat& src) {
    cv::Mat grey, out;
    cv::cvtColor(src, grey, cv::COLOR_BGR2GRAY);
    cv::cvtColor(grey, out, cv::COLOR_GRAY2BGR);
    return out;
}

cv::Mat GreyRendering(const cv::Mat& Y) {
    cv::Mat out;
    scrivo::pixel::CreateLarge(out, Y.size(), CV_8UC3);
    cv::cvtColor(Y, out, cv::COLOR_GRAY2BGR);
    return out;
}

cv::Mat JoinPlanes(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb) {
    cv::Mat out;
    if (YCbCrToRGB24(out, Y, Cr, Cb) == 0) return cv::Mat();
    return out;
}

}  // namespace

void EnhanceImageWithTable(cv::Mat& image, const unsigned char table[256]) {
    if (image.empty() || table == nullptr || image.depth() != CV_8U) return;
    const int n = image.cols * image.channels();
    for (int y = 0; y < image.rows; ++y) {
        unsigned char* p = image.ptr<unsigned char>(y);
        int x = 0;
        for (; x + 4 <= n; x += 4) {
            const unsigned char a = table[p[x]], b = table[p[x + 1]];
            const unsigned char c = table[p[x + 2]], d = table[p[x + 3]];
            p[x] = a;
            p[x + 1] = b;
            p[x + 2] = c;
            p[x + 3] = d;
        }
        for (; x < n; ++x) p[x] = table[p[x]];
    }
}

void EnhanceLow2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb) {
    unsigned char luma[256], chroma[256];
    float mid = 0.0f;
    CalcColorTableGCELow4(Y, luma, &mid);
    GetCrTableLow(Cr, chroma, mid);
    EnhanceImageWithTable(Y, luma);
    EnhanceImageWithTable(Cr, chroma);
    EnhanceImageWithTable(Cb, chroma);
}

void EnhancePerserveHue2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, int method, char* text) {
    (void)text;
    if (method == VP_ENHANCE_LOW) EnhanceLow2(Y, Cr, Cb);
}

void EnhancePerserveHue3(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, int method, char* text) {
    if (method == VP_ENHANCE_LOW) {
        EnhanceLow2(Y, Cr, Cb);
        return;
    }
    if (method != VP_ENHANCE_HIGH) return;

    const int64_t pixels = static_cast<int64_t>(Y.cols) * Y.rows;
    const int B = pixels <= kLargePagePixels ? 16 : 64;
    const int BX = Y.cols / B, BY = Y.rows / B;
    const size_t count = static_cast<size_t>(BX) * static_cast<size_t>(BY);
    std::vector<int32_t> A1(count), A2(count), A3(count), A4(count);
    const BlockArrays blocks{A1.data(), A2.data(), A3.data(), A4.data()};

    float background = 0.0f, edge = 0.0f, unused1 = 0.0f, unused2 = 0.0f;
    int type = JudgeImageTypeByEdge(Y, &background, &edge, &unused1, &unused2);
    const float d = edge - background;
    // A bright page that is not a light document (or has no measurable
    // text contrast) only gets the global tables.
    if (type != kPageLight && background > 224.0f) {
        EnhanceLow2(Y, Cr, Cb);
        return;
    }
    if (type == kPageOther && d > -0.5f && d < 3.5f && d != 0.0f) {
        EnhanceLow2(Y, Cr, Cb);
        return;
    }
    LayoutCounters counters;
    uint8_t uneven = 0;
    PageLayoutAnalysis13(Y, Cr, Cb, &type, blocks, B, text, &counters, &uneven);
    if (type != kPageLight) {
        EnhanceLow2(Y, Cr, Cb);
        return;
    }
    if (uneven == 0) {
        EnhanceSubImageHighYUB2(Y, Cr, Cb, A1.data(), A2.data(), counters.C2, counters.C3, B, text);
        return;
    }
    // Large buffers are reused: the kept copy first holds the sharpening's
    // box mean, and the luma background, once reduced, holds the black flags.
    cv::Mat kept;
    UnsharpMaskWithBuffer(Y, 20.0f, kept);
    Y.copyTo(kept);
    cv::Mat bgY, bgCr, bgCb;
    PageLevels levels;
    CalBackGround(Cr, Cb, Y, bgY, bgCr, bgCb, blocks, B, &levels);
    DeleteNonUniformIllumination5(Y, Cr, Cb, bgY, bgCr, bgCb, A1.data(), A2.data(), BX, BY, B);
    int32_t L3 = 0, L4 = 0;
    if (EnhanceSubImageHighYUB9(Y, Cr, Cb, A1.data(), A2.data(), counters.C2, counters.C3,
                                levels.L1, levels.L2, B, counters.C1, text, &L3, &L4) != 0) {
        EnhanceColorByPixelWithBuffer(Y, kept, Cr, Cb, bgCr, bgCb, L3, L4, levels.L1, levels.L2,
                                      bgY);
    } else {
        kept.copyTo(Y);
        EnhanceLow2(Y, Cr, Cb);
    }
}

cv::Mat EnhanceEconomic(cv::Mat& Y, int type) {
    if (Y.empty() || Y.type() != CV_8UC1) return cv::Mat();
    if (type == kPageDark) cv::bitwise_not(Y, Y);
    cv::Mat binary;
    scrivo::pixel::CreateLarge(binary, Y.size(), CV_8UC1);
    binary.setTo(0);
    BinaryBlock(Y, binary, tem_SauvolaPara{5, 0.1f});
    return GreyRendering(binary);
}

cv::Mat EnhanceImage(const cv::Mat& src, tagVPEnhanceMethod method, char* text) {
    if (src.empty()) return cv::Mat();
    if (src.cols < kSmallSide || src.rows < kSmallSide) {
        if (method == VP_ENHANCE_GREY || method == VP_ENHANCE_ECONOMIC) return GreyCopy(src);
        return src.clone();
    }
    if (method == VP_ENHANCE_NONE) return src.clone();
    if (method < VP_ENHANCE_LOW || method > VP_ENHANCE_ECONOMIC) return cv::Mat();
    // The table methods never need whole planes.
    if (method == VP_ENHANCE_LOW) return EnhanceColourByTables(src);
    if (method == VP_ENHANCE_GREY) return EnhanceGreyByTable(src);

    cv::Mat Y, Cr, Cb;
    if (RGB24ToYCbCr(src, Y, Cr, Cb) == 0) return cv::Mat();
    switch (method) {
        case VP_ENHANCE_HIGH:
            EnhancePerserveHue3(Y, Cr, Cb, method, text);
            return JoinPlanes(Y, Cr, Cb);
        default: {
            int type = JudgeImageTypeByY(Y);
            if (type != kPageOther) type = JudgeImageTypeYUB2(Cr, Cb, type);
            return EnhanceEconomic(Y, type);
        }
    }
}
