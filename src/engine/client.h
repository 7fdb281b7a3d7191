// The engine client record behind a VPHandle, and the small internal pieces
// that the entry operations share (view records, quadrangle tests, the page
// search scale).
//
// Every image the client owns is a cv::Mat, so releasing or replacing one
// frees its pixels. The three view records describe client images to the
// outside and borrow their pixels: a view is renewed whenever its image is
// replaced and freed (data cleared first) whenever its image goes away.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "scrivo/engine.h"
#include "vision/detect/detector.h"

struct VPClient {
    int32_t found = 0;       // the last page-vertex search found a page
    int32_t rectified = 0;   // rectifiedImage is the page to work on
    int32_t ownsSource = 0;  // set at creation: source holds its own pixels
    int32_t manualMode = 0;  // manual adjustment is set up (previewImage)
    uint8_t adjustTable[256] = {};
    int32_t adjustThreshold = 0;  // brightest level of the preview
    int32_t rectWidth = 0;
    int32_t rectHeight = 0;  // deliberately the width after a size query
    int32_t sizeKnown = 0;
    int32_t pageSearch = 0;  // VP_PAGE_SEARCH_VERIFIED or VP_PAGE_SEARCH_FIXED_STEPS
    tagVPImage* rectifiedView = nullptr;
    tagVPImage* enhancedView = nullptr;
    tagVPImage* previewView = nullptr;
    cv::Mat source;  // working copy of the photograph, 8-bit, 3 channels
    cv::Mat rectifiedImage;
    cv::Mat enhancedImage;
    cv::Mat previewImage;
    cv::Mat previewEnhanced;
    cv::Mat rectifyMatrix;  // 3 x 3, CV_64F

    VPClient() = default;
    VPClient(const VPClient&) = delete;
    VPClient& operator=(const VPClient&) = delete;
    ~VPClient();
};

// A client that takes `photo` (8-bit, 3 channels, R, G, B) as its working
// copy without copying it; null when the photograph is empty or of another
// type, or memory runs out. VPCreateDocuviaClient converts the caller's
// record into such an image first; a caller that decodes straight into one
// saves that copy and its memory.
VPHandle AdoptPhotograph(cv::Mat&& photo);

// View records. FreeView clears the record's data and frees it; RenewView
// replaces the view by a new one of `image` (null when the image is empty).
void FreeView(tagVPImage*& view);
void RenewView(tagVPImage*& view, const cv::Mat& image);

// Copies an image into a caller's output record. A null record or one
// without pixels receives nothing; a record of another size receives no
// pixels either (the result of the copy is not reported to the caller).
void CopyOut(const cv::Mat& image, tagVPImage* record);

// The frame every rectification shares. Before: the previous rectified and
// enhanced images (and their views) are dropped. After success: the new
// rectified image is viewed, marked as the one to work on and copied into
// the caller's record; returns 1. After an exception: it is dropped again;
// returns 0.
void DropRectifiedAndEnhanced(VPClient* c);
uint32_t PublishRectified(VPClient* c, tagVPImage* out);
uint32_t AbandonRectified(VPClient* c);

// 1 when the quadrangle is convex and not degenerate, else 0 (null: 0).
int JudgeLeaglueQuadrangle(const tagVPPoint quad[4]);
// The size and rectify operations also take a quadrangle with a zero in the
// second vertex's y, the third vertex's x or y or the fourth vertex's x for
// the whole photograph.
bool HasZeroVertex(const tagVPPoint quad[4]);

// When the source has been released, the rectified image (or else the
// enhanced image) becomes the source. 0 when there is nothing to recover.
int RecoverSource(VPClient* client);
