// Page detection driver: finds the four corners of a page in a work image
// whose longer side is at most 2048 pixels.
#pragma once

#include <opencv2/core.hpp>

#include "vision/detect/geometry.h"

// Fills `corners` (top-left, bottom-left, bottom-right, top-right, in work
// image pixels) and the number of page edges seen; returns 1 when a page was
// found. `flags` is passed through to the searches and may be null.
int GetQuotationSheetEdge(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                          int* edgeCount);
