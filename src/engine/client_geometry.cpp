// Entry operations on the page quadrangle: the page-vertex search, the
// rectified size, rectification and animation frames, with the quadrangle
// legality test and the whole-photograph rules they share.
//
// Legality: the detector's area rule on the four triangles (p0,p1,p2),
// (p0,p3,p2), (p0,p1,p3) and (p2,p1,p3) by Heron's formula. In a convex
// quadrangle both diagonals split it into the same area, and no triangle is
// the whole of it; a tolerance of 20 square pixels absorbs the rounding of
// integer vertices. A crossed parallelogram (p0, p2, p1, p3 of a rectangle)
// satisfies the area rule, all four of its triangles being equal, so a
// quadrangle whose opposite sides cross each other is refused explicitly.
//
// Page search (vision/detect/page_search.cpp): the detector runs on the
// photograph at a size whose longer side is at most 2048 pixels, and its
// answer, with more candidates, is verified and refined on the photograph.
// A page is reported found only when it passes that verification; otherwise
// the corners are the whole photograph and the result 0. With the fixed
// steps alone (VPSetPageSearch) the detector's answer comes back as it was,
// int(0.5 + c * s), and success is judged by the third corner alone, not by
// the detector's answer. VPFindPageVertex2 takes the detector's answer
// instead and always searches a resized image (scale 1 for small photos);
// its mode reaches the detector as the flag byte (mode 0: no flags, as the
// plain search passes).
//
// A search scale so extreme that a side would shrink to nothing is kept at
// one pixel. Operations whose working image has been released (reduction
// mode 1) fail with 0, except the page search, which first recovers a source
// from the rectified or enhanced image.
#include <cstdint>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "engine/client.h"
#include "engine/image.h"
#include "vision/detect/detector.h"
#include "vision/detect/geometry.h"
#include "vision/rectify/rectify.h"

namespace {

constexpr double kLegalTolerance = 20.0;

tem_Point ToTem(const tagVPPoint& p) {
    return tem_Point{p.x, p.y};
}

// Sign of the turn a -> b -> c, exactly: differences of 32-bit coordinates
// take 33 bits, their products 66, so the cross product is formed in 128.
int Turn(const tagVPPoint& a, const tagVPPoint& b, const tagVPPoint& c) {
    using Wide = __int128;
    const Wide cross = Wide{int64_t{b.x} - a.x} * (int64_t{c.y} - a.y) -
                       Wide{int64_t{b.y} - a.y} * (int64_t{c.x} - a.x);
    return cross > 0 ? 1 : (cross < 0 ? -1 : 0);
}

// True when segments pq and rs cross at a point inside both.
bool SegmentsCross(const tagVPPoint& p, const tagVPPoint& q, const tagVPPoint& r,
                   const tagVPPoint& s) {
    return Turn(p, q, r) * Turn(p, q, s) < 0 && Turn(r, s, p) * Turn(r, s, q) < 0;
}

uint32_t SearchPage(VPClient* client, tagVPPoint quad[4], bool alwaysResize, int32_t mode) {
    if (client == nullptr || quad == nullptr) return 0;
    if (!RecoverSource(client)) return 0;
    // The mode reaches the detector as its flag byte; mode 0 means no flags.
    unsigned char flag = static_cast<unsigned char>(mode);
    unsigned char* flags = mode != 0 ? &flag : nullptr;
    tem_Point corners[4] = {};
    const bool fixedSteps = client->pageSearch == VP_PAGE_SEARCH_FIXED_STEPS;
    const int detected =
        FindPageInPhotograph(client->source, alwaysResize, flags, corners, nullptr, fixedSteps);
    if (alwaysResize || !fixedSteps) {
        client->found = detected;
    } else {
        client->found = (corners[2].x != 0 && corners[2].y != 0) ? 1 : 0;
    }
    for (int i = 0; i < 4; ++i) quad[i] = tagVPPoint{corners[i].x, corners[i].y};
    client->rectWidth = 0;
    client->rectHeight = 0;
    client->sizeKnown = 0;
    return static_cast<uint32_t>(client->found);
}

bool TakenAsWholePhotograph(const tagVPPoint quad[4], const cv::Mat& source) {
    return IsWholeImageQuadrangle(quad, source.cols, source.rows) || HasZeroVertex(quad);
}

}  // namespace

int JudgeLeaglueQuadrangle(const tagVPPoint quad[4]) {
    if (quad == nullptr) return 0;
    if (SegmentsCross(quad[0], quad[1], quad[2], quad[3]) ||
        SegmentsCross(quad[1], quad[2], quad[3], quad[0]))
        return 0;
    const tem_Point corners[4] = {ToTem(quad[0]), ToTem(quad[1]), ToTem(quad[2]), ToTem(quad[3])};
    return QuadrangleAreaRule(corners, kLegalTolerance);
}

bool HasZeroVertex(const tagVPPoint quad[4]) {
    return quad[1].y == 0 || quad[2].x == 0 || quad[2].y == 0 || quad[3].x == 0;
}

int RecoverSource(VPClient* client) {
    if (!client->source.empty()) return 1;
    if (!client->rectifiedImage.empty()) {
        client->source = std::move(client->rectifiedImage);
        client->rectifiedImage = cv::Mat();
        FreeView(client->rectifiedView);
    } else if (!client->enhancedImage.empty()) {
        client->source = std::move(client->enhancedImage);
        client->enhancedImage = cv::Mat();
        FreeView(client->enhancedView);
    } else {
        return 0;
    }
    client->rectified = 0;
    return 1;
}

uint32_t VPFindPageVertex(VPHandle handle, tagVPPoint quad[4]) {
    try {
        return SearchPage(handle, quad, false, 0);
    } catch (...) {
        return 0;
    }
}

uint32_t VPSetPageSearch(VPHandle handle, int32_t mode) {
    if (handle == nullptr) return 0;
    if (mode != VP_PAGE_SEARCH_VERIFIED && mode != VP_PAGE_SEARCH_FIXED_STEPS) return 0;
    handle->pageSearch = mode;
    return 1;
}

uint32_t VPFindPageVertex2(VPHandle handle, tagVPPoint quad[4], int32_t mode) {
    try {
        return SearchPage(handle, quad, true, mode);
    } catch (...) {
        return 0;
    }
}

uint32_t VPGetRectifiedImageSize(VPHandle handle, tagVPPoint quad[4], int32_t* width,
                                 int32_t* height) {
    if (handle == nullptr || quad == nullptr || width == nullptr || height == nullptr) return 0;
    const cv::Mat& source = handle->source;
    if (source.empty() || !JudgeLeaglueQuadrangle(quad)) return 0;
    try {
        int32_t w = source.cols, h = source.rows;
        if (!TakenAsWholePhotograph(quad, source)) {
            GetRectifiedImageSizeWithVertex(source, quad, &w, &h);
        }
        *width = w;
        *height = h;
        handle->sizeKnown = 1;
        // The stored height is the width on purpose: callers read the height
        // from the output only.
        handle->rectWidth = w;
        handle->rectHeight = w;
        return 1;
    } catch (...) {
        return 0;
    }
}

uint32_t VPRectifyVertexArea(VPHandle handle, tagVPPoint quad[4], tagVPImage** out) {
    if (handle == nullptr || quad == nullptr || out == nullptr || *out == nullptr) return 0;
    VPClient* c = handle;
    DropRectifiedAndEnhanced(c);
    if (!JudgeLeaglueQuadrangle(quad)) return 0;
    try {
        if (TakenAsWholePhotograph(quad, c->source)) {
            c->rectifiedImage = c->source.clone();
            if (c->rectifiedImage.empty()) {
                *out = nullptr;
                return 0;
            }
        } else {
            if (!c->source.empty())
                c->rectifiedImage = PerspectiveRectifyAndCutImage(c->source, quad);
            if (c->rectifiedImage.empty()) return 0;
        }
        return PublishRectified(c, *out);
    } catch (...) {
        return AbandonRectified(c);
    }
}

uint32_t VPRectifyVertexAreaAnimation(VPHandle handle, tagVPPoint quad[4], tagVPImage** out) {
    if (handle == nullptr || quad == nullptr || out == nullptr || *out == nullptr) return 0;
    const tagVPImage* record = *out;
    if (!JudgeLeaglueQuadrangle(quad) || HasZeroVertex(quad)) return 0;
    const cv::Mat& source = handle->source;
    if (source.empty() || record->width < 1 || record->height < 1) return 0;
    try {
        cv::Mat frame(record->height, record->width, CV_8UC3);
        if (IsWholeImageQuadrangle(quad, source.cols, source.rows)) {
            // A whole-photograph frame is not delivered: the caller shows the
            // photograph itself.
            cv::resize(source, frame, frame.size(), 0.0, 0.0, cv::INTER_NEAREST);
            return 1;
        }
        if (!PerspectiveRectifyAndCutImageAnimation(source, frame, quad)) return 0;
        CopyOut(frame, *out);
        return 1;
    } catch (...) {
        return 0;
    }
}
