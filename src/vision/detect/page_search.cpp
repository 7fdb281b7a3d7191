// The page search on a full-size photograph: the reduction to the search
// size (longer side 2048, rounded, each side at least 1) and the mapping of
// the corners back, shared by the engine's page search and the text
// direction's.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector.h"

namespace {

constexpr int32_t kSearchMaxSide = 2048;

}  // namespace

PageSearchSize GetPageSearchSize(int32_t width, int32_t height, bool alwaysResize) {
    const int32_t longer = std::max(width, height);
    if (longer <= kSearchMaxSide) return PageSearchSize{1.0, width, height, alwaysResize};
    const double s = longer * 0.00048828125;  // longer / 2048
    auto side = [s](int32_t v) {
        const int32_t r = static_cast<int32_t>(v / s + 0.5);
        return std::clamp(r, 1, kSearchMaxSide);
    };
    return PageSearchSize{s, side(width), side(height), true};
}

int FindPageInPhotograph(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                         tem_Point corners[4], bool* whole) {
    const PageSearchSize size = GetPageSearchSize(photo.cols, photo.rows, alwaysResize);
    int edgeCount = 0, detected;
    if (size.resize) {
        cv::Mat reduced;
        cv::resize(photo, reduced, cv::Size(size.width, size.height), 0.0, 0.0, cv::INTER_LINEAR);
        detected = GetQuotationSheetEdge(reduced, flags, corners, &edgeCount);
    } else {
        detected = GetQuotationSheetEdge(photo, flags, corners, &edgeCount);
    }
    if (whole != nullptr) {
        tagVPPoint found[4];
        for (int i = 0; i < 4; ++i) found[i] = {corners[i].x, corners[i].y};
        *whole = IsWholeImageQuadrangle(found, size.width, size.height);
    }
    for (int i = 0; i < 4; ++i) {
        corners[i].x = MapSearchCoordinate(corners[i].x, size.scale);
        corners[i].y = MapSearchCoordinate(corners[i].y, size.scale);
    }
    return detected;
}

void WholeImageQuadrangle(int32_t w, int32_t h, tagVPPoint quad[4]) {
    quad[0] = {0, 0};
    quad[1] = {0, h};
    quad[2] = {w, h};
    quad[3] = {w, 0};
}

bool IsWholeImageQuadrangle(const tagVPPoint quad[4], int32_t w, int32_t h) {
    return quad[0].x == 0 && quad[0].y == 0 && quad[1].x == 0 && quad[1].y == h && quad[2].x == w &&
           quad[2].y == h && quad[3].x == w && quad[3].y == 0;
}
