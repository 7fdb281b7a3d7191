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
// plain search passes). Every answer is brought inside the photograph,
// each coordinate clamped to 0..W or 0..H: a refined page that runs past
// the frame, and the one-pixel side of an extreme aspect ratio's search
// image scaled back by s, would otherwise name pixels the photograph does
// not have. A corner inside the photograph is left as it was.
//
// The page of a quadrangle (size query and rectification alike): the order
// of the corners says which way up the page comes out. Its top edge p0 p3
// and bottom edge p1 p2, taken together, run right across the photograph
// for a page kept as it lies, up it for a page turned a quarter clockwise,
// left for a half turn, down for three quarters. The page is sized as it
// lies (by the rectification's own rule: fitted into the photograph, width
// to a multiple of 4, padded), its width and height swapped for an
// odd number of quarter turns, so that a turned page keeps its resolution
// instead of being fitted into the photograph's frame the other way round.
// The matrix maps the corners as given onto that page, so the warp turns it
// in the same pass. A page smaller than VP_SMALLEST_PAGE either way is
// refused rather than replaced by the whole photograph; the whole-photograph
// rules (equal to it, or a zero where a corner of the page as it lies cannot
// be) are applied to the corners as the page lies.
//
// A search scale so extreme that a side would shrink to nothing is kept at
// one pixel. Operations whose working image has been released (reduction
// mode 1) fail with 0, except the page search, which first recovers a source
// from the rectified or enhanced image.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
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
    const int32_t w = client->source.cols, h = client->source.rows;
    for (int i = 0; i < 4; ++i)
        quad[i] = tagVPPoint{std::clamp(corners[i].x, 0, w), std::clamp(corners[i].y, 0, h)};
    if (alwaysResize || !fixedSteps) {
        client->found = detected;
    } else {
        client->found = (quad[2].x != 0 && quad[2].y != 0) ? 1 : 0;
    }
    client->rectWidth = 0;
    client->rectHeight = 0;
    client->sizeKnown = 0;
    return static_cast<uint32_t>(client->found);
}

// Clockwise quarter turns (0..3) that the order of the corners asks for:
// the direction in which the top and bottom edges run, together.
int32_t QuarterTurns(const tagVPPoint q[4]) {
    const int64_t dx = (int64_t{q[3].x} - q[0].x) + (int64_t{q[2].x} - q[1].x);
    const int64_t dy = (int64_t{q[3].y} - q[0].y) + (int64_t{q[2].y} - q[1].y);
    if (std::llabs(dx) >= std::llabs(dy)) return dx >= 0 ? 0 : 2;
    return dy < 0 ? 1 : 3;
}

// The page of a quadrangle: the corners as the page lies in the photograph
// (top-left first as the photograph shows it), and the turn that the given
// order asks for.
struct PageCorners {
    tagVPPoint lying[4];
    int32_t turns;
    explicit PageCorners(const tagVPPoint quad[4]) : turns(QuarterTurns(quad)) {
        for (int i = 0; i < 4; ++i) lying[i] = quad[(i + 4 - turns) % 4];
    }
};

bool TakenAsWholePhotograph(const tagVPPoint quad[4], const cv::Mat& source) {
    const PageCorners page(quad);
    return IsWholeImageQuadrangle(page.lying, source.cols, source.rows) ||
           HasZeroVertex(page.lying);
}

// The rectified page of a quadrangle that is not the whole photograph:
// the padded size and the matrix onto the unpadded page.
struct PagePlan {
    cv::Mat matrix;
    int32_t width = 0;
    int32_t height = 0;
};

// False when the quadrangle bounds no page of VP_SMALLEST_PAGE pixels each
// way (or admits no perspective matrix).
bool PlanPage(const cv::Mat& source, const tagVPPoint quad[4], PagePlan* plan) {
    const PageCorners page(quad);
    tem_Point lying[4], given[4];
    for (int i = 0; i < 4; ++i) {
        lying[i] = ToTem(page.lying[i]);
        given[i] = ToTem(quad[i]);
    }
    int32_t w = 0, h = 0;
    VpSize padded{0, 0};
    if (!CalDstSize2(lying, source, &w, &h) || !GetRectifiedQuadrangleSize3(lying, source, &padded))
        return false;
    if (page.turns % 2 != 0) {
        std::swap(w, h);
        std::swap(padded.width, padded.height);
    }
    if (w < VP_SMALLEST_PAGE || h < VP_SMALLEST_PAGE) return false;
    if (!MakeGeometryRectifyMatrix4(given, w, h, plan->matrix)) return false;
    plan->width = padded.width;
    plan->height = padded.height;
    return true;
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
            PagePlan plan;
            if (!PlanPage(source, quad, &plan)) return 0;
            w = plan.width;
            h = plan.height;
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
            PagePlan plan;
            if (c->source.empty() || !PlanPage(c->source, quad, &plan)) return 0;
            c->rectifiedImage =
                GeometryRectifyWithVanishingPoint(c->source, plan.matrix, plan.width, plan.height);
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
