// Page detection driver: two passes over the work image.
//
// Pass 0 looks with the stricter Canny pair (100/40) and accepts a
// four-line page only when it covers at least 8 % of the image; what it
// accepts is final, legal or not. Otherwise pass 1 looks again with the
// gentler pair (60/20), a second reduction and lower minimum line lengths,
// and falls back to pages bounded by three, two or one found line when no
// four-line page turns up. A quadrangle must pass the convexity test; when
// nothing legal is found the result is the whole work image with 0.
//
// One quirk is kept on purpose: a legal page whose fourth corner (top
// right) has x = 0 is reported as the whole image, yet with the result 1.
#include "vision/detect/detector.h"

#include <algorithm>
#include <memory>

#include "vision/detect/detector_internal.h"

namespace {

constexpr int kMinShorterSide = 64;

struct LineSetDeleter {
    void operator()(temp_LineSet* set) const { DeleteLineSet(set); }
};
using LineSetPtr = std::unique_ptr<temp_LineSet, LineSetDeleter>;

// Releases the detector's images on every way out.
struct DetectorGuard {
    tagNoteDetector* detector;
    ~DetectorGuard() { ReleaseNoteDetector(detector); }
};

void WholeImage(int32_t width, int32_t height, tem_Point corners[4]) {
    corners[0] = tem_Point{0, 0};
    corners[1] = tem_Point{0, height};
    corners[2] = tem_Point{width, height};
    corners[3] = tem_Point{width, 0};
}

enum class PassResult { kNone, kFound };

// One pass: fresh line sets, the reduced images, lines, and the searches of
// that pass. `edgeCount` is set when something is found.
PassResult RunPass(tagNoteDetector* detector, const cv::Mat& image, unsigned char* flags, int pass,
                   double minArea, tem_Point corners[4], int* edgeCount) {
    LineSetPtr horizontal(CreatLineSet());
    LineSetPtr vertical(CreatLineSet());
    if (!horizontal || !vertical) return PassResult::kNone;

    float scale = 1.0f;
    const cv::Mat grey = GetResizedGrayImage(detector, image, &scale, pass);
    if (grey.empty()) return PassResult::kNone;
    GetImageQuationLine(detector, image, grey, scale, flags, horizontal.get(), vertical.get(),
                        kPassCannyHigh[pass], kPassCannyLow[pass], pass);

    temp_LineSet* h = horizontal.get();
    temp_LineSet* v = vertical.get();
    if (pass == 0) {
        if (!FindSquareArea6(detector, image, h, v, corners, flags)) return PassResult::kNone;
        if (QuadrangleArea(corners) < minArea) return PassResult::kNone;
        detector->half.release();
        *edgeCount = 4;
        return PassResult::kFound;
    }
    if (FindSquareArea7(detector, image, h, v, corners, flags)) {
        detector->half.release();
        *edgeCount = 4;
        return PassResult::kFound;
    }
    if (FindSquareAreaWith3Edge(detector, image, h, v, corners, flags)) {
        *edgeCount = 3;
        return PassResult::kFound;
    }
    if (FindSquareAreaWith2VerticalLine(detector, image, h, v, corners, flags) ||
        FindSquareAreaWith2ParallelLine(detector, image, h, v, corners, flags)) {
        *edgeCount = 2;
        return PassResult::kFound;
    }
    if (FindSquareAreaWith1Line(detector, image, h, v, corners)) {
        *edgeCount = 1;
        return PassResult::kFound;
    }
    return PassResult::kNone;
}

}  // namespace

int SettleQuadrangle(const tem_Point found[4], int32_t width, int32_t height, tem_Point corners[4],
                     int* edgeCount) {
    if (!JudgeLeaglueQuadrangle2(found)) {
        if (edgeCount != nullptr) *edgeCount = 0;
        WholeImage(width, height, corners);
        return 0;
    }
    if (found[3].x == 0)
        WholeImage(width, height, corners);
    else
        for (int k = 0; k < 4; ++k) corners[k] = found[k];
    return 1;
}

int DetectPageWithPass(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                       int* edgeCount, int* passOut,
                       std::vector<std::array<tem_Point, 4>>* candidates) {
    if (passOut != nullptr) *passOut = -1;
    if (corners == nullptr) return 0;
    int localCount = 0;
    int* count = edgeCount != nullptr ? edgeCount : &localCount;
    const int32_t width = image.cols, height = image.rows;
    if (image.empty() || image.type() != CV_8UC3 || std::min(width, height) < kMinShorterSide) {
        WholeImage(width, height, corners);
        return 0;
    }

    tagNoteDetector detector;
    InitiNoteDetector(&detector);
    DetectorGuard guard{&detector};
    detector.source = &image;
    detector.width = width;
    detector.height = height;
    detector.candidates = candidates;
    const double minArea = kMinPageAreaShare * width * height;

    tem_Point found[4] = {};
    for (int pass = 0; pass < 2; ++pass) {
        if (RunPass(&detector, image, flags, pass, minArea, found, count) != PassResult::kFound)
            continue;
        if (passOut != nullptr) *passOut = pass;
        return SettleQuadrangle(found, width, height, corners, count);
    }
    WholeImage(width, height, corners);
    return 0;
}

int GetQuotationSheetEdge(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                          int* edgeCount) {
    return DetectPageWithPass(image, flags, corners, edgeCount, nullptr);
}
