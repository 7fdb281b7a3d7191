// Methods 2 and 4 as whole-image routes, worked in row stripes.
#pragma once

#include <opencv2/core.hpp>

// Method 2: the page with its luma stretched and its chroma saturated by
// the global tables, as EnhanceLow2 on the page's planes would give it.
cv::Mat EnhanceColourByTables(const cv::Mat& src);

// Method 4: the stretched luma as a grey 3-channel image.
cv::Mat EnhanceGreyByTable(const cv::Mat& src);
