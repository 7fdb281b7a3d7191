// Detector state and the reduced images of one detection pass.
//
// The detector record lives on the driver's stack and owns its images as
// cv::Mat, so releasing it is releasing those matrices; a pass overwrites the
// previous pass's images by assignment, which drops the old buffers first.
//
// Reduction: the factor comes from the work image's shorter side (1.5 up to
// 500 pixels, 2.3 up to 1000, 3.5 up to 1500, 5 below 3000, else 6); the
// reduced size is round(side / s) in float32. Pass 0 always resizes
// bilinearly; pass 1 uses nearest-neighbour on images whose shorter side is
// below 1000, so that the second look at a small photograph sees unsmoothed
// pixels and finds edges the first one blurred away. Besides the grey image
// the pass keeps the YCrCb planes (for the chroma edges) and a half-size
// colour copy (for the side statistics of the lines).
#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"

namespace {

float ReductionFactor(int shorterSide) {
    if (shorterSide <= 500) return 1.5f;
    if (shorterSide <= 1000) return 2.3f;
    if (shorterSide <= 1500) return 3.5f;
    if (shorterSide < 3000) return 5.0f;
    return 6.0f;
}

constexpr int kHalfMinSide = 32;
constexpr float kHalvedMarker = 16.0f;

}  // namespace

void InitiNoteDetector(tagNoteDetector* detector) {
    if (detector == nullptr) return;
    *detector = tagNoteDetector{};
}

void ReleaseNoteDetector(tagNoteDetector* detector) {
    if (detector == nullptr) return;
    detector->gray.release();
    detector->half.release();
    detector->cb.release();
    detector->cr.release();
    detector->y.release();
    detector->cbEdge.release();
    detector->crEdge.release();
    *detector = tagNoteDetector{};
}

int QvVP_SplitYCrCb(tagNoteDetector* detector, const cv::Mat& reducedColour) {
    if (detector == nullptr || reducedColour.empty()) return 0;
    cv::Mat ycrcb;
    cv::cvtColor(reducedColour, ycrcb, cv::COLOR_BGR2YCrCb);
    cv::Mat planes[3];
    cv::split(ycrcb, planes);
    detector->y = planes[0];
    detector->cr = planes[1];
    detector->cb = planes[2];
    return 1;
}

cv::Mat GetResizedGrayImage(tagNoteDetector* detector, const cv::Mat& image, float* scaleOut,
                            int pass) {
    if (detector == nullptr || image.empty()) return cv::Mat();
    const int shorter = std::min(image.cols, image.rows);
    const float s = ReductionFactor(shorter);
    const int width = static_cast<int>(static_cast<float>(image.cols) / s + 0.5f);
    const int height = static_cast<int>(static_cast<float>(image.rows) / s + 0.5f);
    const int interpolation = (pass == 1 && shorter < 1000) ? cv::INTER_NEAREST : cv::INTER_LINEAR;

    cv::Mat reduced;
    cv::resize(image, reduced, cv::Size(std::max(width, 1), std::max(height, 1)), 0, 0,
               interpolation);
    QvVP_SplitYCrCb(detector, reduced);

    cv::cvtColor(reduced, detector->gray, cv::COLOR_BGR2GRAY);
    detector->grayWidth = reduced.cols;
    detector->grayHeight = reduced.rows;
    detector->scale = s;

    if (reduced.cols > kHalfMinSide && reduced.rows > kHalfMinSide) {
        const cv::Size halfSize(static_cast<int>(reduced.cols / 2.0 + 0.5),
                                static_cast<int>(reduced.rows / 2.0 + 0.5));
        cv::resize(reduced, detector->half, halfSize, 0, 0, cv::INTER_LINEAR);
        detector->halfScale = kHalvedMarker;
    } else {
        detector->half = reduced.clone();
        detector->halfScale = 1.0f;
    }
    detector->halfWidth = detector->half.cols;
    detector->halfHeight = detector->half.rows;

    if (scaleOut != nullptr) *scaleOut = s;
    return detector->gray;
}
