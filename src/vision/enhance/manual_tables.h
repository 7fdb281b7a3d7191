// Tables of the manual brightness, contrast and gamma adjustment.
#pragma once

#include <opencv2/core.hpp>

// The highest byte value that occurs in the image (every byte of every row,
// width x channels bytes a row); 0 for an empty image.
int CalAdjustThreshold(const cv::Mat& image);

// Rebuilds `table` from the identity: the contrast mapping, then, unless
// gamma is exactly 1, the gamma mapping with the adjusted value of level
// `threshold` as its maximum. Returns 1 (0 for a null table).
int CalAdjustImageByManuallyMatrix(unsigned char* table, int threshold, int brightness,
                                   int contrast, float gamma);

// Compose a mapping into an existing table (entry t becomes M[t]); return 1
// (0 for a null table).
int CalAdjustTableByContrast(unsigned char* table, int brightness, int contrast);
int CalAdjustTableByGamma(unsigned char* table, float gamma, int max);
