// Tests that tell a block of text from other image content. The page-type
// judgement uses them to decide whether a bright page holds text.
#pragma once

#include <functional>

#include <opencv2/core.hpp>

#include "vision/detect/geometry.h"

struct VpRect {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
};

// 1 when more than 20 text-sized, two-toned blocks are found around the
// edges of the grey image, else 0.
int IsTextImage(const cv::Mat& grey);

// Calls `visit` with the bounding box of every edge contour of the grey
// image that passes both text-block tests, in contour order, until it
// returns false.
void ForEachTextBlock(const cv::Mat& grey, const std::function<bool(const VpRect&)>& visit);

// 1 when the rectangle has the size and shape of a text block in an image
// of the given size: at least 9 px and 1 %, at most 20 % of the image on
// each side, and an aspect between 1:10 and 10:1.
int JudgeByRectSize(const VpRect* rect, const VpSize* imageSize);

// The rectangle grown by one pixel to the left and top and by two in width
// and height, cut to the image: the area the contrast test binarises.
cv::Rect TextBlockCrop(const VpRect& rect, cv::Size image);

// 1 when the rectangle (grown by a pixel) binarised by Otsu's method is
// two-toned, and, for a negative flag, its border is nearly one tone.
int JudgeByEdgeContrast(const cv::Mat& grey, VpRect rect, int flag);

// On a binary image: 1 when between 11 % and 89 % of the pixels are set.
int JudegByContrast(const cv::Mat& binary);

// On a binary image: 1 when the border is at most 10 % or at least 90 %
// white (corners count twice), 0 for a mixed border.
int JudegByImageSideContrast(const cv::Mat& binary);
