// From the edge map to two sets of page-border candidate lines.
//
// The Hough transform runs on the dilated edge map at the reduced size of
// the pass (small accumulator, few points); each segment is scaled back to
// work-image pixels (float32 factor, rounded), segments under 90 pixels are
// dropped there, and the rest become lines y = a x + c with their two end
// points. Lines steeper than 45 degrees go to the vertical set, the others
// (45 included) to the horizontal set. The test is on the slope, |a| > 1:
// converted to degrees with the truncated pi of the angle convention, a
// slope of exactly 1 would read a hair above 45. For every other slope that
// integer end points can make the two tests agree. The clean-up then runs in a fixed
// order against the edge map brought back to work-image size: merge pieces,
// drop short lines, extend along the edges, merge again, first for the
// horizontal set and then for the vertical one, and a final wider merge of
// both. Minimum lengths are 14 % of the width (horizontal) or height
// (vertical); the second pass over a small image accepts 7 % and 10 %.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"

namespace {

// Hough parameters at the reduced size.
constexpr double kHoughRho = 1.0;
constexpr double kHoughTheta = 0.034906585;  // 2 degrees
constexpr int kHoughThreshold = 60;
constexpr int kHoughMinLength = 10;
constexpr int kHoughMaxGap = 2;

constexpr double kMinSegmentLength = 90.0;  // in work-image pixels
constexpr int kSmallImageSide = 1000;

int32_t ScaleCoordinate(int32_t v, float scale) {
    return static_cast<int32_t>(static_cast<float>(v) * scale + 0.5f);
}

}  // namespace

tem_Line* MakeLineFromEndPoints(tem_Point first, tem_Point second) {
    tem_Line* line = CreateLine();
    if (line == nullptr) return nullptr;
    double k[3];
    CalLine(first, second, k);
    line->a = k[0];
    line->b = k[1];
    line->c = k[2];
    line->points = CreatPointSet();
    const tem_Point ends[2] = {first, second};
    if (line->points == nullptr || !SetPointSetPoints(line->points, ends, 2)) {
        DeleteLine(line);
        return nullptr;
    }
    return line;
}

void GetLineFromHoughList2(const cv::Mat& fullEdges, const std::vector<HoughSegment>& segments,
                           float scale, temp_LineSet* horizontal, temp_LineSet* vertical,
                           int pass) {
    if (horizontal == nullptr || vertical == nullptr) return;
    const int W = fullEdges.cols, H = fullEdges.rows;
    for (const HoughSegment& s : segments) {
        const tem_Point p{ScaleCoordinate(s.x1, scale), ScaleCoordinate(s.y1, scale)};
        const tem_Point q{ScaleCoordinate(s.x2, scale), ScaleCoordinate(s.y2, scale)};
        if (PointDistance(p, q) < kMinSegmentLength) continue;
        tem_Line* line = MakeLineFromEndPoints(p, q);
        if (line == nullptr) continue;
        ADDLine2LineSet(IsHorizontalLine(*line) ? horizontal : vertical, line, kAppendPosition);
    }

    const bool lenient = pass == 1 && std::min(W, H) < kSmallImageSide;
    const double f = lenient ? 0.07 : 0.14;
    const double g = lenient ? 0.1 : 0.14;
    CombineSimiliarLine4(fullEdges, horizontal, vertical, W, H);
    DeleteShortLine(fullEdges, horizontal, W * f);
    ExtendLineSetOnEdge(fullEdges, horizontal);
    CombineSimiliarLine4(fullEdges, horizontal, vertical, W, H);
    CombineSimiliarLine4(fullEdges, vertical, horizontal, W, H);
    DeleteShortLine(fullEdges, vertical, H * g);
    ExtendLineSetOnEdge(fullEdges, vertical);
    CombineSimiliarLine4(fullEdges, vertical, horizontal, W, H);
    CombineSimiliarLine5(fullEdges, horizontal, vertical, W, H);
    CombineSimiliarLine5(fullEdges, vertical, horizontal, W, H);
}

void GetImageQuationLine(tagNoteDetector* detector, const cv::Mat& workImage, const cv::Mat& grey,
                         float scale, unsigned char* flags, temp_LineSet* horizontal,
                         temp_LineSet* vertical, int high, int low, int pass) {
    (void)flags;
    if (detector == nullptr || workImage.empty() || grey.empty() || horizontal == nullptr ||
        vertical == nullptr)
        return;

    cv::Mat edges;
    QvVP_Canny(grey, edges, low, high);
    BinaryImageWithThreshold(edges, edges, 0);
    DeleteSmallCC(edges, 100);
    QvVP_GetCbCrCannyEdge(detector);
    CombineTowChannelEdge(edges, detector->crEdge);
    CombineTowChannelEdge(edges, detector->cbEdge);
    cv::Mat dilated;
    cv::dilate(edges, dilated, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)));

    const std::vector<HoughSegment> segments = QvVP_HoughLines(
        dilated, kHoughRho, kHoughTheta, kHoughThreshold, kHoughMinLength, kHoughMaxGap);

    cv::Mat full;
    cv::resize(dilated, full, workImage.size(), 0.0, 0.0, cv::INTER_LINEAR);
    BinaryImageWithThreshold(full, full, 0);
    GetLineFromHoughList2(full, segments, scale, horizontal, vertical, pass);
    QvVP_AdjustAllLine(detector, horizontal, vertical);
}
