// Overlay picture of the detect command.
//
// The photograph is the session's, as viewed (its EXIF Orientation applied,
// so the corners fall where they were found), copied into an RGBA block of
// our own (freed on every exit path), wrapped in a cv::Mat without copying,
// drawn on with OpenCV and encoded by the framework. Line thickness and dot size follow the
// photograph's longer side (about 1/250 of it) so that the quadrangle stays visible when a
// 12-megapixel photograph is viewed scaled down. A detected page is drawn
// in green; the whole-photograph fallback in orange, so that a glance tells
// the two apart. The picture goes through a temporary file like pages do.
#include "overlay.h"

#include <memory>

#include <opencv2/imgproc.hpp>

#include "input.h"
#include "scrivo/codec.h"

namespace scrivo_cli {

bool WriteOverlay(MHAMCM manager, QvSession* session, VPHandle engine, int32_t width,
                  int32_t height, const Quad& corners, bool found, const std::string& path,
                  std::string& error) {
    std::unique_ptr<MemoryBitmap> photo;
    try {
        photo = std::make_unique<MemoryBitmap>(width, height);
    } catch (const std::bad_alloc&) {
        error = "out of memory for the overlay";
        return false;
    }
    const QvBitmapAccess access = photo->Access();
    if (QvSession_GetPhotograph(session, engine, &access) != QV_SESSION_OK) {
        error = "cannot copy the photograph for the overlay";
        return false;
    }
    MBITMAP bitmap{};
    bitmap.pixelFormat = MPAF_RGBA8888;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.pitch[0] = width * 4;
    bitmap.plane[0] = photo->pixels.get();
    try {
        cv::Mat image(height, width, CV_8UC4, bitmap.plane[0], static_cast<size_t>(width) * 4);
        const cv::Scalar colour =
            found ? cv::Scalar(0, 220, 70, 255) : cv::Scalar(255, 140, 0, 255);
        const int thickness = std::max(2, std::max(width, height) / 250);
        for (size_t i = 0; i < corners.size(); ++i) {
            const tagVPPoint& a = corners[i];
            const tagVPPoint& b = corners[(i + 1) % corners.size()];
            cv::line(image, {a.x, a.y}, {b.x, b.y}, colour, thickness, cv::LINE_AA);
        }
        for (const tagVPPoint& p : corners)
            cv::circle(image, {p.x, p.y}, thickness * 2, cv::Scalar(230, 30, 30, 255), cv::FILLED,
                       cv::LINE_AA);
    } catch (const cv::Exception&) {
        error = "cannot draw the overlay";
        return false;
    }
    EnsureParentFolder(path);
    const std::string temporary = TemporaryNameFor(path);
    const MRESULT saved = MdBitmapSave2(manager, temporary.c_str(), MD_FILETYPE_JPEG, &bitmap);
    if (saved != MOK) {
        std::remove(temporary.c_str());
        error = std::string("cannot write: ") + MResultMessage(saved);
        return false;
    }
    return CommitTemporary(temporary, path, error);
}

}  // namespace scrivo_cli
