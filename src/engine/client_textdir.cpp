// Entry operations of the text direction: the decision (on the page the
// detector finds, or on the caller's quadrangle) and the text-line
// rectification that uses it.
//
// The decision (vision/textdir) leaves three things in the client: the
// matrix from the photograph onto the upright page (rectifyMatrix), the
// upright width and height (rectWidth, rectHeight: here the true height,
// unlike after the plain size query) and sizeKnown, which tells
// VPRectifyWithTextLine whether to warp with them or to copy the photograph.
// For the page search sizeKnown is the decision's result (1: a page was
// found or the text needs a turn); for a given quadrangle it is always 1,
// because the caller asked for that quadrangle to be straightened, and the
// result says whether the direction could be told.
//
// The search forms first recover a released photograph from the rectified
// or enhanced image, as the page-vertex search does; the quadrangle forms
// fail with 0 without a photograph. A quadrangle must be legal; one that
// the rectify path takes for the whole photograph (equal to it, or with a
// zero where a page corner cannot be) is handed on as the whole photograph.
// Nothing throws: OpenCV and allocation failures become 0 with no decision
// kept.
#include "engine/client.h"
#include "vision/rectify/rectify.h"
#include "vision/textdir/textdir.h"

static_assert(int{VP_TEXT_TURN_KEEP} == int{kTextTurnKeep} &&
                  int{VP_TEXT_TURN_FLIP_ONLY} == int{kTextTurnFlipOnly} &&
                  int{VP_TEXT_TURN_ANY} == int{kTextTurnAny},
              "the public decision modes are the subsystem's");

namespace {

void ForgetDecision(VPClient* c) {
    c->rectifyMatrix.release();
    c->sizeKnown = 0;
}

// The search form into the client; `decided` and the quadrangles as the
// decision gave them.
int DecideOnFoundPage(VPClient* c, tagVPPoint quadA[4], tagVPPoint quadB[4],
                      TextDirection* decided) {
    c->rectifyMatrix.release();
    const int r = GetRectifyDirectionAndSize(c->source, &c->rectifyMatrix, &c->rectWidth,
                                             &c->rectHeight, quadA, quadB, kTextTurnAny, decided);
    c->sizeKnown = r;
    return r;
}

// The quadrangle forms into the client; false when the call is refused
// before any decision (the client is then unchanged).
bool DecideOnQuadrangle(VPClient* c, const tagVPPoint quad[4], int32_t mode, tagVPPoint quadOut[4],
                        int* result) {
    if (c->source.empty() || !JudgeLeaglueQuadrangle(quad)) return false;
    tagVPPoint given[4];
    if (IsWholeImageQuadrangle(quad, c->source.cols, c->source.rows) || HasZeroVertex(quad)) {
        WholeImageQuadrangle(c->source.cols, c->source.rows, given);
    } else {
        for (int i = 0; i < 4; ++i) given[i] = quad[i];
    }
    c->rectifyMatrix.release();
    int32_t w = 0, h = 0;
    *result = GetRectifyDirectionAndSizeWithVertex(c->source, given, quadOut, mode,
                                                   &c->rectifyMatrix, &w, &h);
    c->sizeKnown = 1;
    c->rectWidth = w;
    c->rectHeight = h;
    return true;
}

}  // namespace

uint32_t VPDetectTextDirection(VPHandle handle) {
    if (handle == nullptr) return 0;
    try {
        if (!RecoverSource(handle)) {
            ForgetDecision(handle);
            return 0;
        }
        tagVPPoint quadA[4], quadB[4];
        return static_cast<uint32_t>(DecideOnFoundPage(handle, quadA, quadB, nullptr));
    } catch (...) {
        ForgetDecision(handle);
        return 0;
    }
}

uint32_t VPDetectTextDirectionAndRectifiedImageSize(VPHandle handle, int32_t* width,
                                                    int32_t* height, tagVPPoint quadA[4],
                                                    tagVPPoint quadB[4], int32_t* direction) {
    if (handle == nullptr || width == nullptr || height == nullptr || quadA == nullptr ||
        quadB == nullptr) {
        return 0;
    }
    VPClient* c = handle;
    int ok = 0;
    TextDirection decided;
    tagVPPoint foundA[4], foundB[4];
    try {
        if (RecoverSource(c)) {
            ok = DecideOnFoundPage(c, foundA, foundB, &decided) == 1 && c->rectWidth > 0 &&
                 c->rectHeight > 0;
        }
    } catch (...) {
        ok = 0;
        decided = TextDirection{};
    }
    if (ok) {
        *width = c->rectWidth;
        *height = c->rectHeight;
        for (int i = 0; i < 4; ++i) {
            quadA[i] = foundA[i];
            quadB[i] = foundB[i];
        }
    } else {
        ForgetDecision(c);
        *width = c->source.cols;
        *height = c->source.rows;
        WholeImageQuadrangle(c->source.cols, c->source.rows, quadA);
        WholeImageQuadrangle(c->source.cols, c->source.rows, quadB);
    }
    if (direction != nullptr) {
        *direction = decided.confidence == TextConfidence::kNone ? -1 : decided.turn * 90;
    }
    c->sizeKnown = ok;
    return static_cast<uint32_t>(ok);
}

uint32_t VPDetectTextDirectionWithVeterx(VPHandle handle, tagVPPoint quad[4]) {
    if (handle == nullptr || quad == nullptr) return 0;
    try {
        tagVPPoint quadOut[4];
        int result = 0;
        if (!DecideOnQuadrangle(handle, quad, kTextTurnAny, quadOut, &result)) return 0;
        return static_cast<uint32_t>(result);
    } catch (...) {
        ForgetDecision(handle);
        return 0;
    }
}

uint32_t VPGetRectifiedTextImageSizeWithVeterx(VPHandle handle, tagVPPoint quad[4],
                                               tagVPPoint quadOut[4], int32_t mode, int32_t* width,
                                               int32_t* height) {
    if (handle == nullptr || quad == nullptr || quadOut == nullptr || width == nullptr ||
        height == nullptr) {
        return 0;
    }
    try {
        tagVPPoint turned[4];
        int result = 0;
        if (!DecideOnQuadrangle(handle, quad, mode, turned, &result)) return 0;
        *width = handle->rectWidth;
        *height = handle->rectHeight;
        for (int i = 0; i < 4; ++i) quadOut[i] = turned[i];
        return static_cast<uint32_t>(result);
    } catch (...) {
        ForgetDecision(handle);
        return 0;
    }
}

uint32_t VPRectifyWithTextLine(VPHandle handle, tagVPImage** out) {
    if (handle == nullptr || out == nullptr || *out == nullptr) return 0;
    VPClient* c = handle;
    DropRectifiedAndEnhanced(c);
    try {
        if (c->sizeKnown == 1) {
            c->rectifiedImage = GeometryRectifyWithVanishingPoint(c->source, c->rectifyMatrix,
                                                                  c->rectWidth, c->rectHeight);
            if (c->rectifiedImage.empty()) return 0;
        } else {
            c->rectifiedImage = c->source.clone();
            if (c->rectifiedImage.empty()) {
                *out = nullptr;
                return 0;
            }
        }
        return PublishRectified(c, *out);
    } catch (...) {
        return AbandonRectified(c);
    }
}
