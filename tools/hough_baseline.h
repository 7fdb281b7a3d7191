// A plain page scanner built from OpenCV's Hough transform, run beside the
// engine as an anchor for its detection figures: what an afternoon's work
// with the textbook steps finds on the same photographs.
//
// The photograph is reduced to about 500 pixels on its longer side and
// turned grey; a small closing fills the print in, a blur smooths it, and
// Canny runs with thresholds taken from the strongest gradients of the
// picture (a rule tied to the median grey instead sets them too low on a
// dark table, where the print becomes edges, and too high for a white page
// on white paper). The edges are thickened a little and cv::HoughLinesP
// finds segments. The segments are split into the two dominant orientations
// of the picture (found from a length-weighted histogram of their angles,
// so a page turned any way round works), near-duplicates are merged into
// lines, and every pair of the longest lines of one orientation with every
// pair of the other makes a quadrangle. Convex quadrangles covering 10 to
// 98 % of the frame compete on the share of their outline that lies on
// edges plus half their share of the frame; none with at least half its
// outline on edges means no page.
#pragma once

#include <optional>

#include <opencv2/core.hpp>

#include "eval_metric.h"

namespace scrivo_eval {

// `photo` is 8-bit with 1, 3 (R, G, B) or 4 (R, G, B, A) channels. The
// corners are continuous photograph pixels in the order top-left,
// bottom-left, bottom-right, top-right; nothing when no page was found.
std::optional<Quad> FindPageByHoughLines(const cv::Mat& photo);

}  // namespace scrivo_eval
