// Engine client lifetime: creation from a photograph record, reduction,
// release, copying the client's images out, and the version record.
//
// Creation validates the record before converting it (a null record or
// pixel pointer, a size below 1 x 1, a depth other than 8 bits, a format
// other than interleaved RGB with 3 or 4 bytes a pixel or planar YUV 4:2:0
// all give a null handle) and gives back everything it made when the
// conversion fails or memory runs short. The record is heap allocated with
// all fields cleared; the working copy is always three 8-bit channels.
//
// Reduction frees one group of images to save memory between steps; the
// destructor of the record frees the rest. Since the images are cv::Mat the
// source always owns its pixels, so the "header only" release of a borrowed
// source never arises. A reduced rectified image (mode 3) keeps its view
// record as the operation requires, but with its data pointer cleared, so
// that nothing can reach the freed pixels through it.
#include <cstring>
#include <new>

#include "engine/client.h"
#include "engine/image.h"

VPClient::~VPClient() {
    FreeView(rectifiedView);
    FreeView(enhancedView);
    FreeView(previewView);
}

void FreeView(tagVPImage*& view) {
    if (view != nullptr) FreeVPImageHead(view);
    view = nullptr;
}

void RenewView(tagVPImage*& view, const cv::Mat& image) {
    FreeView(view);
    if (!image.empty()) view = CreateVPImageHeadFromCvImage(image);
}

void DropRectifiedAndEnhanced(VPClient* c) {
    FreeView(c->rectifiedView);
    c->rectifiedImage.release();
    FreeView(c->enhancedView);
    c->enhancedImage.release();
    c->rectified = 0;
}

uint32_t PublishRectified(VPClient* c, tagVPImage* out) {
    RenewView(c->rectifiedView, c->rectifiedImage);
    c->rectified = 1;
    CopyOut(c->rectifiedImage, out);
    return 1;
}

uint32_t AbandonRectified(VPClient* c) {
    c->rectifiedImage.release();
    FreeView(c->rectifiedView);
    c->rectified = 0;
    return 0;
}

void CopyOut(const cv::Mat& image, tagVPImage* record) {
    if (record == nullptr || record->data == nullptr || image.empty()) return;
    CopyCvImage2VPImageBuffer(image, record);
}

namespace {

bool IsSupportedRecord(const tagVPImage* image) {
    if (image == nullptr || image->data == nullptr) return false;
    if (image->width < 1 || image->height < 1 || image->depth != 8) return false;
    if (image->format == VP_FORMAT_RGB) return image->channels == 3 || image->channels == 4;
    return image->format == VP_FORMAT_YUV420;
}

}  // namespace

VPHandle AdoptPhotograph(cv::Mat&& photo) {
    if (photo.empty() || photo.type() != CV_8UC3 || photo.dims != 2) return nullptr;
    auto* client = new (std::nothrow) VPClient;
    if (client == nullptr) return nullptr;
    client->source = std::move(photo);
    client->ownsSource = 1;
    return client;
}

VPHandle VPCreateDocuviaClient(tagVPImage* image) {
    if (!IsSupportedRecord(image)) return nullptr;
    try {
        return AdoptPhotograph(CreateCvImageFromVPImage(image));
    } catch (...) {  // cv::Exception, std::bad_alloc
        return nullptr;
    }
}

uint32_t VPReduceDocuviaClient(VPHandle* handle, int32_t what) {
    if (handle == nullptr || *handle == nullptr) return 1;
    VPClient* c = *handle;
    switch (what) {
        case VP_REDUCE_SOURCE:
            c->source.release();
            break;
        case VP_REDUCE_RECTIFIED_VIEW:
            FreeView(c->rectifiedView);
            c->found = 0;
            break;
        case VP_REDUCE_RECTIFIED:
            c->rectifiedImage.release();
            if (c->rectifiedView != nullptr) c->rectifiedView->data = nullptr;
            c->found = 0;
            break;
        case VP_REDUCE_ENHANCED:
            FreeView(c->enhancedView);
            c->enhancedImage.release();
            break;
        case VP_REDUCE_PREVIEW:
            FreeView(c->previewView);
            c->previewEnhanced.release();
            if (c->manualMode == 1) c->previewImage.release();
            break;
        default:
            break;
    }
    return 1;
}

uint32_t VPReleaseDocuviaClient(VPHandle* handle) {
    if (handle == nullptr) return 1;
    delete *handle;  // views first (destructor), then the images
    *handle = nullptr;
    return 1;
}

uint32_t VPGetImageFromHandle(VPHandle handle, tagVPImage** out, int32_t which) {
    if (handle == nullptr || out == nullptr || *out == nullptr || (*out)->data == nullptr) {
        return 0;
    }
    const cv::Mat* image = nullptr;
    if (which == VP_IMAGE_RECTIFIED) image = &handle->rectifiedImage;
    if (which == VP_IMAGE_ENHANCED) image = &handle->enhancedImage;
    if (image == nullptr || image->empty()) return 0;
    try {
        CopyOut(*image, *out);
    } catch (...) {
        return 0;
    }
    return 1;
}

uint32_t QvNoteEngine_GetVersion(_tag_QvNoteEnigne_Version* version) {
    // Fixed-size, zero-padded texts: exactly this many bytes are copied.
    static const char kVersion[31] = "quorvex_noteenigne_1.0.0.7";
    static const char kDate[11] = "12/01/2014";
    static const char kNotice[33] = "(c) Scrivo developers, licensed.";
    if (version == nullptr) return 0;
    version->major = 1;
    version->minor = 0;
    version->revision = 0;
    version->build = 7;
    if (version->version != nullptr) std::memcpy(version->version, kVersion, sizeof kVersion);
    if (version->date != nullptr) std::memcpy(version->date, kDate, sizeof kDate);
    if (version->notice != nullptr) std::memcpy(version->notice, kNotice, sizeof kNotice);
    return 1;
}
