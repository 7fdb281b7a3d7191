// Enhancement: the dispatch of the rendering methods and the table step that
// every table-based route uses.
#pragma once

#include <opencv2/core.hpp>

#include "scrivo/engine.h"

// A new 8-bit 3-channel rendering of `src` by `method` (1 to 5), or an empty
// image for an unknown method. `text` is carried along and not read.
cv::Mat EnhanceImage(const cv::Mat& src, tagVPEnhanceMethod method, char* text);

// Replaces every byte of every row (width x channels bytes a row) of an
// 8-bit image by its table entry, in place. Other depths are left alone.
void EnhanceImageWithTable(cv::Mat& image, const unsigned char table[256]);
