// Page detection driver, temporary form.
//
// TEMPORARY until page detection lands: no page is ever found. The corners
// are all left at (0, 0) rather than set to the whole-image fallback
// (0,0), (0,H), (W,H), (W,0) that the full detector reports on failure. The
// page-vertex search judges success by the third corner being non-zero, so
// the whole-image corners would make it claim a page in every photograph;
// zero corners make it report "not found", which is the honest answer while
// nothing is detected.
#include "vision/detect/detector.h"

int GetQuotationSheetEdge(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                          int* edgeCount) {
    (void)image;
    (void)flags;
    if (corners != nullptr) {
        for (int i = 0; i < 4; ++i) corners[i] = tem_Point{0, 0};
    }
    if (edgeCount != nullptr) *edgeCount = 0;
    return 0;
}
