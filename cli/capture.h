// One photograph through the capture path: scan (corners, rectification,
// enhancement, JPEG with the photograph's EXIF block) or detect (corners
// and an overlay picture). A Worker owns what one thread needs for that.
#ifndef SCRIVO_CLI_CAPTURE_H
#define SCRIVO_CLI_CAPTURE_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "scrivo/session.h"

namespace scrivo_cli {

using Quad = std::array<tagVPPoint, 4>;  // top-left, bottom-left, bottom-right, top-right

struct ScanOptions {
    int32_t method = VP_ENHANCE_DOCUMENT;
    bool cornersGiven = false;
    Quad corners{};
    int32_t quality = 0;      // 0: the library's default
    bool autoRotate = false;  // turn the page upright by the direction of its text
};

struct Outcome {
    bool ok = false;
    std::string error;  // the reason, when !ok
    int32_t width = 0;  // the photograph
    int32_t height = 0;
    Quad corners{};         // the corners used
    bool found = false;     // the engine found a page (otherwise: given or whole photograph)
    int32_t pageWidth = 0;  // scan: the written page
    int32_t pageHeight = 0;
    int32_t turn = -1;  // --auto-rotate: clockwise degrees turned, -1 direction unknown
};

// A caller's bitmap that is just a block of memory, for the session steps
// that write into one (the rectified page, the photograph for the overlay).
struct MemoryBitmap {
    int32_t width;
    int32_t height;
    // Not zero-filled: the session writes every row, so clearing the 48 MB
    // of a 12-megapixel page first would only add time. Throws bad_alloc.
    std::unique_ptr<uint8_t[]> pixels;

    MemoryBitmap(int32_t w, int32_t h)
        : width(w),
          height(h),
          pixels(std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(w) *
                                                           static_cast<size_t>(h) * 4)) {}

    static int32_t GetInfo(void*, void* bitmap, QvBitmapInfo* info) {
        auto* self = static_cast<MemoryBitmap*>(bitmap);
        info->width = static_cast<uint32_t>(self->width);
        info->height = static_cast<uint32_t>(self->height);
        info->stride = static_cast<uint32_t>(self->width) * 4;
        info->format = QV_BITMAP_FORMAT_RGBA_8888;
        return 0;
    }
    static int32_t LockPixels(void*, void* bitmap, void** pixels) {
        *pixels = static_cast<MemoryBitmap*>(bitmap)->pixels.get();
        return 0;
    }
    QvBitmapAccess Access() { return QvBitmapAccess{this, nullptr, GetInfo, LockPixels}; }
};

// "none", "color", "document", "grey", "economic" for methods 1..5.
const char* MethodName(int32_t method);
// 1 when the four points, in the order above, enclose a convex area with
// every turn in the same direction.
bool IsConvexQuad(const Quad& quad);

class Worker {
  public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // False when the component manager or the session could not be made.
    bool ready() const { return session_ != nullptr; }

    Outcome Scan(const std::string& input, const std::string& output, const ScanOptions& options);
    // `overlay` empty: no overlay picture.
    Outcome Detect(const std::string& input, const std::string& overlay);

  private:
    MHAMCM manager_ = nullptr;
    QvSession* session_ = nullptr;
};

}  // namespace scrivo_cli

#endif
