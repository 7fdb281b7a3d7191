// Engine images: the tagVPImage record, the OpenCV working images and the
// copies between them (the pixel conversions themselves are in pixel/pixel.h).
//
// Working images are cv::Mat, 8 bits a channel, 3 channels for colour. The
// raw-buffer conversions below follow the engine's buffer convention: a
// 24-bit buffer has rows of width x 3 bytes rounded up to a multiple of 4
// (Align4Row). Records made as views of a working image borrow its pixels
// and are released with FreeVPImageHead, never by freeing their data.
#pragma once

#include <opencv2/core.hpp>

#include "pixel/pixel.h"
#include "scrivo/engine.h"

// Record <-> working image. A bad record (null, size below 1, depth not 8,
// pitch too short for its rows) converts to an empty image.
cv::Mat CreateCvImageFromVPImage(const tagVPImage* image);         // converted copy, 3 channels
cv::Mat CreateCvImageHeadFromVPImage(const tagVPImage* image);     // wraps data, no copy
tagVPImage* CreateVPImageHeadFromCvImage(const cv::Mat& image);    // borrows pixels
tagVPImage* CreateVPImage32HeadFromCvImage(const cv::Mat& image);  // owns a w*h*4 block
void FreeVPImageHead(tagVPImage* record);                          // clears data, frees the record
void FreeVPImage32Head(tagVPImage* record);  // frees the owned block and the record
// Copy into a caller's record of 3 or 4 channels (4: 255 as the fourth
// byte); a grey image is written as three equal bytes. 0 and the record
// untouched on a width/height/depth mismatch or a pitch below width x 3;
// 1 without copying for a YUV record.
int CopyCvImage2VPImageBuffer(const cv::Mat& image, tagVPImage* record);
// The same, centring the smaller of image and record in the larger and
// copying the overlap.
int CopyCvImage2VPImageBuffer2(const cv::Mat& image, tagVPImage* record);

// Quarter-turn rotation of any channel count; empty for an unknown code.
cv::Mat RotateImageWithfixDegree(const cv::Mat& image, tagVPRotateDegree degree);
