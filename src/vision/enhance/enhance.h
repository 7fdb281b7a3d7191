// Enhancement: the dispatch of the rendering methods, the method-2 tables
// and the in-place table step that every table-based route uses.
#pragma once

#include <opencv2/core.hpp>

#include "scrivo/engine.h"

// A new 8-bit 3-channel rendering of `src` by `method` (1 to 5), or an empty
// image for an unknown method. `text` is carried along and not read.
cv::Mat EnhanceImage(const cv::Mat& src, tagVPEnhanceMethod method, char* text);

// Replaces every byte of every row (width x channels bytes a row) of an
// 8-bit image by its table entry, in place. Other depths are left alone.
void EnhanceImageWithTable(cv::Mat& image, const unsigned char table[256]);

// Method 2 on the luma/chroma planes, in place: the global luma stretch and
// the chroma saturation table.
void EnhanceLow2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb);

// Method 2 runs EnhanceLow2; any other method leaves the planes alone.
void EnhancePerserveHue2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, int method, char* text);

// Method 3 (the full document route); method 2 runs EnhanceLow2; any other
// method leaves the planes alone.
void EnhancePerserveHue3(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, int method, char* text);

// The ink-saving rendering of a luma plane as a new 3-channel image. For a
// dark page (type 2) Y is inverted in place first, so light writing on a
// dark board comes out dark on white.
cv::Mat EnhanceEconomic(cv::Mat& Y, int type);
