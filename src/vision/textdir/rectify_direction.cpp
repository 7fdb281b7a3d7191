// Rectification that delivers the page upright: the page quadrangle, the
// direction of its text, and one matrix for both.
//
// The page. GetRectifyDirectionAndSize looks for it the way the page-vertex
// search does (the photograph reduced to at most 2048 pixels on its longer
// side, the page detector with no flags, corners scaled back by
// int(0.5 + c * s)); a page counts as found only when the detector says so,
// its quadrangle is not the whole work image and it admits a plausible
// rectification. Otherwise, and for the whole-photograph quadrangle given
// to GetRectifyDirectionAndSizeWithVertex, the page is the photograph.
//
// Straightening. The page's size is the rectification's padded size (a
// multiple of 4 each way, as the size query reports it) and its matrix
// maps the quadrangle exactly onto that rectangle, so the text-line
// rectification fills it with the page and nothing beyond its edges. For
// the photograph itself the matrix is the identity and the size W x H.
//
// Direction. The decision (direction.cpp) looks at the straightened page at
// its working size: the photograph is first reduced by area averaging to
// about that scale, then warped by the project's bilinear warp with the
// matrix scaled to match. Its turn t (clockwise quarter turns) is then
// folded into the outputs:
//   - matrix = T(t) * straightening, T(t) turning the w x h page onto the
//     upright one (TextTurnMatrix); width and height swap for odd t;
//   - quadA (search) = the page quadrangle in the detector's order:
//     top-left, bottom-left, bottom-right, top-right of the photograph;
//   - quadB (search) or quadOut (given quadrangle) = the same corners
//     starting from the upright page's top-left: quadB[i] = quadA[(i+t)%4].
//     Rectifying quadB the ordinary way gives the upright page too, and the
//     matrix maps quadB onto (0,0), (0,h), (w,h), (w,0) of the output.
// A decision that cannot tell leaves t = 0.
//
// Results. The search form returns 1 when there is something to rectify:
// a page was found or the text needs a turn; 0 means the photograph as it
// is. The given-quadrangle form returns 1 when the text direction was told
// (for kTextTurnKeep: always, nothing being asked) and 0 when it could not
// be told; its outputs still rectify the quadrangle without a turn then.
// Both return 0 for a source that is not an 8-bit colour image, an unknown
// hint or mode, or a given quadrangle without a plausible rectification,
// and then write the fallback: the identity matrix, W x H and the
// whole-photograph quadrangle(s). Null outputs: 0 and nothing written.
#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector.h"
#include "vision/rectify/rectify.h"
#include "vision/textdir/textdir.h"

namespace {

constexpr double kMaxEnlargement = 2.0;

struct PageFrame {
    cv::Mat matrix;  // photograph -> straightened page
    int32_t width = 0;
    int32_t height = 0;
};

bool UsableSource(const cv::Mat& source) {
    return !source.empty() && source.type() == CV_8UC3;
}

bool KnownMode(int32_t mode) {
    return mode == kTextTurnKeep || mode == kTextTurnFlipOnly || mode == kTextTurnAny;
}

PageFrame WholeFrame(const cv::Mat& source) {
    return PageFrame{cv::Mat::eye(3, 3, CV_64F), source.cols, source.rows};
}

bool MakePageFrame(const cv::Mat& source, const tagVPPoint quad[4], PageFrame* frame) {
    if (IsWholeImageQuadrangle(quad, source.cols, source.rows)) {
        *frame = WholeFrame(source);
        return true;
    }
    tem_Point q[4];
    for (int i = 0; i < 4; ++i) q[i] = {quad[i].x, quad[i].y};
    VpSize padded{0, 0};
    if (!GetRectifiedQuadrangleSize3(q, source, &padded) ||
        !RectifiedSizeIsPlausible(q, source, padded.width, padded.height)) {
        return false;
    }
    cv::Mat matrix;
    if (!MakeGeometryRectifyMatrix4(q, padded.width, padded.height, matrix)) return false;
    *frame = PageFrame{matrix, padded.width, padded.height};
    return true;
}

// The page detector's quadrangle in photograph pixels; false when it found
// no page.
bool SearchPage(const cv::Mat& source, tagVPPoint quad[4]) {
    tem_Point corners[4] = {};
    bool whole = false;
    if (FindPageInPhotograph(source, false, nullptr, corners, &whole) != 1 || whole) return false;
    for (int i = 0; i < 4; ++i) quad[i] = {corners[i].x, corners[i].y};
    return true;
}

// The straightened page at about the decision's working size.
cv::Mat PageForDecision(const cv::Mat& source, const PageFrame& frame) {
    const double s = std::min(kMaxEnlargement, static_cast<double>(kTextWorkingSide) /
                                                   std::max(frame.width, frame.height));
    const int32_t w = std::max(1, static_cast<int32_t>(frame.width * s + 0.5));
    const int32_t h = std::max(1, static_cast<int32_t>(frame.height * s + 0.5));
    cv::Mat toPage = cv::Mat::eye(3, 3, CV_64F);
    toPage.at<double>(0, 0) = static_cast<double>(w) / frame.width;
    toPage.at<double>(1, 1) = static_cast<double>(h) / frame.height;
    cv::Mat matrix = toPage * frame.matrix;

    // Reduce the photograph first, so that the warp does not skip pixels.
    cv::Mat reduced = source;
    if (s < 1.0) {
        const cv::Size size(std::max(1, static_cast<int>(source.cols * s + 0.5)),
                            std::max(1, static_cast<int>(source.rows * s + 0.5)));
        cv::resize(source, reduced, size, 0.0, 0.0, cv::INTER_AREA);
        cv::Mat fromReduced = cv::Mat::eye(3, 3, CV_64F);
        fromReduced.at<double>(0, 0) = static_cast<double>(source.cols) / size.width;
        fromReduced.at<double>(1, 1) = static_cast<double>(source.rows) / size.height;
        matrix = matrix * fromReduced;
    }
    cv::Mat page(h, w, CV_8UC3, cv::Scalar::all(0));
    if (!WarpPerspectiveCrossBorder(reduced, page, matrix)) return cv::Mat();
    return page;
}

TextDirection Decide(const cv::Mat& source, const PageFrame& frame, int32_t mode) {
    if (mode == kTextTurnKeep) return TextDirection{};
    return DecideTextDirection(PageForDecision(source, frame), mode);
}

void WriteFallback(const cv::Mat& source, cv::Mat* matrix, int32_t* width, int32_t* height,
                   tagVPPoint* quadA, tagVPPoint* quadB) {
    const int32_t w = source.empty() ? 0 : source.cols;
    const int32_t h = source.empty() ? 0 : source.rows;
    *matrix = cv::Mat::eye(3, 3, CV_64F);
    *width = w;
    *height = h;
    if (quadA != nullptr) WholeImageQuadrangle(w, h, quadA);
    if (quadB != nullptr) WholeImageQuadrangle(w, h, quadB);
}

void WriteTurned(const PageFrame& frame, const tagVPPoint quad[4], int32_t turn, cv::Mat* matrix,
                 int32_t* width, int32_t* height, tagVPPoint quadOut[4]) {
    *matrix = TextTurnMatrix(turn, frame.width, frame.height) * frame.matrix;
    const bool odd = (turn & 1) != 0;
    *width = odd ? frame.height : frame.width;
    *height = odd ? frame.width : frame.height;
    TurnQuadrangle(quad, turn, quadOut);
}

}  // namespace

cv::Mat TextTurnMatrix(int32_t turn, int32_t w, int32_t h) {
    const double W = w, H = h;
    switch (((turn % 4) + 4) % 4) {
        case 1:  // (x, y) -> (h - y, x)
            return (cv::Mat_<double>(3, 3) << 0, -1, H, 1, 0, 0, 0, 0, 1);
        case 2:  // (x, y) -> (w - x, h - y)
            return (cv::Mat_<double>(3, 3) << -1, 0, W, 0, -1, H, 0, 0, 1);
        case 3:  // (x, y) -> (y, w - x)
            return (cv::Mat_<double>(3, 3) << 0, 1, 0, -1, 0, W, 0, 0, 1);
        default:
            return cv::Mat::eye(3, 3, CV_64F);
    }
}

void TurnQuadrangle(const tagVPPoint quad[4], int32_t turn, tagVPPoint quadOut[4]) {
    const int32_t t = ((turn % 4) + 4) % 4;
    tagVPPoint turned[4];
    for (int i = 0; i < 4; ++i) turned[i] = quad[(i + t) % 4];
    for (int i = 0; i < 4; ++i) quadOut[i] = turned[i];
}

int GetRectifyDirectionAndSize(const cv::Mat& source, cv::Mat* matrix, int32_t* width,
                               int32_t* height, tagVPPoint quadA[4], tagVPPoint quadB[4],
                               int32_t hint, TextDirection* decided) {
    if (decided != nullptr) *decided = TextDirection{};
    if (matrix == nullptr || width == nullptr || height == nullptr || quadA == nullptr ||
        quadB == nullptr) {
        return 0;
    }
    if (!UsableSource(source) || !KnownMode(hint)) {
        WriteFallback(source, matrix, width, height, quadA, quadB);
        return 0;
    }
    tagVPPoint page[4];
    PageFrame frame;
    const bool found = SearchPage(source, page) && MakePageFrame(source, page, &frame);
    if (!found) {
        WholeImageQuadrangle(source.cols, source.rows, page);
        frame = WholeFrame(source);
    }
    const TextDirection d = Decide(source, frame, hint);
    if (decided != nullptr) *decided = d;
    for (int i = 0; i < 4; ++i) quadA[i] = page[i];
    WriteTurned(frame, page, d.turn, matrix, width, height, quadB);
    return (found || d.turn != 0) ? 1 : 0;
}

int GetRectifyDirectionAndSizeWithVertex(const cv::Mat& source, const tagVPPoint quad[4],
                                         tagVPPoint quadOut[4], int32_t mode, cv::Mat* matrix,
                                         int32_t* width, int32_t* height, TextDirection* decided) {
    if (decided != nullptr) *decided = TextDirection{};
    if (quad == nullptr || quadOut == nullptr || matrix == nullptr || width == nullptr ||
        height == nullptr) {
        return 0;
    }
    PageFrame frame;
    if (!UsableSource(source) || !KnownMode(mode) || !MakePageFrame(source, quad, &frame)) {
        WriteFallback(source, matrix, width, height, quadOut, nullptr);
        return 0;
    }
    const TextDirection d = Decide(source, frame, mode);
    if (decided != nullptr) *decided = d;
    WriteTurned(frame, quad, d.turn, matrix, width, height, quadOut);
    if (mode == kTextTurnKeep) return 1;
    return d.confidence != TextConfidence::kNone ? 1 : 0;
}
