// Enhancement dispatch and the in-place table step.
//
// EnhanceImage is TEMPORARY until the enhancement methods land: method 1
// (no enhancement) returns a copy of the page, every other method returns an
// empty image (no rendering), which the engine passes on as "no image".
//
// EnhanceImageWithTable walks each row as width x channels bytes, so
// regions of interest and padded rows are handled; the loop is unrolled by
// four so the table lookups of neighbouring bytes overlap.
#include "vision/enhance/enhance.h"

cv::Mat EnhanceImage(const cv::Mat& src, tagVPEnhanceMethod method, char* text) {
    (void)text;
    if (method == VP_ENHANCE_NONE) return src.clone();
    return cv::Mat();
}

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
