// Entry operations on the page's rendering: enhancement by method, manual
// brightness/contrast/gamma adjustment on a reduced preview, and rotation.
//
// Enhancement always starts from the rectified page when there is one, else
// from the working photograph, and replaces the previous enhanced image; a
// method that renders nothing still succeeds, leaving no enhanced image.
//
// Manual adjustment rebuilds the client's table from its brightest preview
// level and the clamped settings, shows it on a copy of the preview and,
// when asked, applies it to the enhanced image itself, so that repeated
// full-size calls compound on purpose. Setting manual mode up needs an
// enhanced image and a preview of at least 1 x 1; otherwise the preview is
// dropped, manual mode is off and 0 is returned.
//
// Rotation turns the enhanced image and the rectified image together (or
// the rectified image alone when nothing is enhanced). Both turns are made
// before either image is replaced, so an unknown rotation code changes
// nothing. Both views are renewed, since the old ones would point at the
// replaced pixels. As with enhancement, a null output record only skips the
// copy.
#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "engine/client.h"
#include "engine/image.h"
#include "vision/enhance/enhance.h"
#include "vision/enhance/manual_tables.h"

namespace {

tagVPImage* Record(tagVPImage** out) {
    return out != nullptr ? *out : nullptr;
}

}  // namespace

uint32_t VPEnhancement2(VPHandle handle, tagVPEnhanceMethod method, tagVPImage** out, char* extra) {
    if (handle == nullptr) return 0;
    VPClient* c = handle;
    FreeView(c->enhancedView);
    c->enhancedImage.release();
    try {
        const cv::Mat& page = c->rectified == 1 ? c->rectifiedImage : c->source;
        if (!page.empty()) c->enhancedImage = EnhanceImage(page, method, extra);
        RenewView(c->enhancedView, c->enhancedImage);
        CopyOut(c->enhancedImage, Record(out));
        return 1;
    } catch (...) {
        c->enhancedImage.release();
        FreeView(c->enhancedView);
        return 0;
    }
}

uint32_t VPEnhancement(VPHandle handle, tagVPEnhanceMethod method, tagVPImage** out) {
    return VPEnhancement2(handle, method, out, nullptr);
}

uint32_t VPEnhanceImageSetManually(VPHandle handle, int32_t previewWidth, int32_t previewHeight,
                                   int32_t on) {
    if (handle == nullptr) return 0;
    VPClient* c = handle;
    c->previewImage.release();
    c->manualMode = 0;
    if (on != 1) return 1;
    if (c->enhancedImage.empty() || previewWidth < 1 || previewHeight < 1) return 0;
    try {
        cv::Mat preview;
        cv::resize(c->enhancedImage, preview, cv::Size(previewWidth, previewHeight), 0.0, 0.0,
                   cv::INTER_LINEAR);
        c->previewImage = preview;
        c->adjustThreshold = CalAdjustThreshold(c->previewImage);
        c->manualMode = 1;
        return 1;
    } catch (...) {
        c->previewImage.release();
        return 0;
    }
}

uint32_t VPEnhanceImageManually(VPHandle handle, tagVPImage** previewOut, tagVPImage** fullOut,
                                int32_t brightness, int32_t contrast, float gamma,
                                int32_t alsoFull) {
    if (handle == nullptr || Record(previewOut) == nullptr) return 0;
    if (alsoFull == 1 && Record(fullOut) == nullptr) return 0;
    VPClient* c = handle;
    if (c->manualMode != 1 || c->previewImage.empty()) return 0;
    brightness = std::clamp(brightness, -100, 100);
    contrast = std::clamp(contrast, -100, 100);
    if (!(gamma > 0.1f)) {
        gamma = 0.1f;
    } else if (gamma > 5.0f) {
        gamma = 5.0f;
    }
    CalAdjustImageByManuallyMatrix(c->adjustTable, c->adjustThreshold, brightness, contrast, gamma);
    try {
        cv::Mat shown = c->previewImage.clone();
        EnhanceImageWithTable(shown, c->adjustTable);
        CopyOut(shown, *previewOut);
        if (alsoFull == 1 && !c->enhancedImage.empty()) {
            EnhanceImageWithTable(c->enhancedImage, c->adjustTable);
            CopyOut(c->enhancedImage, *fullOut);
        }
        return 1;
    } catch (...) {
        return 0;
    }
}

uint32_t VPRotation(VPHandle handle, tagVPRotateDegree degree, tagVPImage** out) {
    if (handle == nullptr) return 0;
    VPClient* c = handle;
    try {
        if (c->enhancedImage.empty() && c->rectifiedImage.empty()) return 0;
        cv::Mat rectified, enhanced;
        if (!c->rectifiedImage.empty()) {
            rectified = RotateImageWithfixDegree(c->rectifiedImage, degree);
            if (rectified.empty()) return 0;
        }
        if (!c->enhancedImage.empty()) {
            enhanced = RotateImageWithfixDegree(c->enhancedImage, degree);
            if (enhanced.empty()) return 0;
        }
        if (!rectified.empty()) {
            c->rectifiedImage = rectified;
            RenewView(c->rectifiedView, c->rectifiedImage);
        }
        if (!enhanced.empty()) {
            c->enhancedImage = enhanced;
            RenewView(c->enhancedView, c->enhancedImage);
        }
        CopyOut(enhanced.empty() ? c->rectifiedImage : c->enhancedImage, Record(out));
        return 1;
    } catch (...) {
        return 0;
    }
}
