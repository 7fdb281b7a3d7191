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

// The page search of a full-size photograph. The fixed detector runs on the
// photograph reduced to its search size; around it, unless `fixedStepsOnly`,
// its candidates, candidates bounded by long straight edges and a region of
// paper compete on the evidence that they bound a page, the best is taken
// when its evidence is convincing, and its corners are refined on the
// photograph itself (page_search.cpp describes the stages).
struct PageSearchAnswer {
    tem_Point corners[4];  // photograph pixels; the whole photograph when no page
    double exact[4][2];    // the same before rounding
    bool found;            // a page was found (never the whole photograph)
    int detectorResult;    // GetQuotationSheetEdge's own result
    double evidence;       // the chance that the answer is a page (0 with fixedStepsOnly)
};
PageSearchAnswer SearchPageInPhotograph(const cv::Mat& photo, bool alwaysResize,
                                        unsigned char* flags, bool fixedStepsOnly);

// The page search as the engine's callers use it: fills `corners` (the whole
// photograph when no page is found), sets `whole` (may be null) when no page
// was found, and returns 1 when a page was found. With `fixedStepsOnly` it is
// the fixed detector's answer alone, mapped back to the photograph, and
// returns that detector's result.
int FindPageInPhotograph(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                         tem_Point corners[4], bool* whole, bool fixedStepsOnly = false);

// The quadrangle (0,0), (0,h), (w,h), (w,0), and the test for it.
void WholeImageQuadrangle(int32_t w, int32_t h, tagVPPoint quad[4]);
bool IsWholeImageQuadrangle(const tagVPPoint quad[4], int32_t w, int32_t h);
