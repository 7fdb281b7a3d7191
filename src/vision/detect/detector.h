// Page detection driver: finds the four corners of a page in a work image
// whose longer side is at most 2048 pixels.
#pragma once

#include <opencv2/core.hpp>

#include "scrivo/engine.h"
#include "vision/detect/geometry.h"

// Fills `corners` (top-left, bottom-left, bottom-right, top-right, in work
// image pixels) and the number of page edges seen; returns 1 when a page was
// found. `flags` is passed through to the searches and may be null.
int GetQuotationSheetEdge(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                          int* edgeCount);

// The size at which the page search looks at a W x H photograph (longer
// side at most 2048, or always the reduction when asked), and the factor
// that maps a search coordinate back to the photograph.
struct PageSearchSize {
    double scale;   // photograph pixels per search pixel
    int32_t width;  // search image size
    int32_t height;
    bool resize;  // false: the photograph itself is searched
};
PageSearchSize GetPageSearchSize(int32_t width, int32_t height, bool alwaysResize);
inline int32_t MapSearchCoordinate(int32_t c, double scale) {
    return static_cast<int32_t>(0.5 + c * scale);
}

// Searches a full-size photograph: reduced to its search size, corners mapped
// back to photograph pixels. `whole` (may be null) tells whether the search
// answered with the whole search image, i.e. found no page. Returns
// GetQuotationSheetEdge's result.
int FindPageInPhotograph(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                         tem_Point corners[4], bool* whole);

// The quadrangle (0,0), (0,h), (w,h), (w,0), and the test for it.
void WholeImageQuadrangle(int32_t w, int32_t h, tagVPPoint quad[4]);
bool IsWholeImageQuadrangle(const tagVPPoint quad[4], int32_t w, int32_t h);
