/*
 * What an engine holds, as the session's order checks need to know it, and
 * the session's own work on the engine's photograph.
 *
 * The session refuses a step that would render a blank page: enhancing
 * before anything was rectified, or into a bitmap of another size than the
 * page. It reads the answer from the engine's record rather than keeping
 * its own account, so an engine operation called directly on the handle
 * (a rotation, a reduction, a text-line rectification) cannot leave the
 * session believing in a page the engine no longer has.
 *
 * The photograph is turned into the way viewers show it right after the
 * engine is made, on the engine's three-channel copy once the decoded
 * four-channel bitmap has been freed: the flips work in place and the
 * quarter turns need one more three-channel image, so the peak memory of
 * creation (decoded bitmap and engine copy together) is not exceeded.
 */
#include "engine/client.h"
#include "engine/image.h"
#include "session/session_internal.h"

namespace {

// Sign of the turn a -> b -> c, exactly for any 32-bit corners.
int Turn(const tagVPPoint& a, const tagVPPoint& b, const tagVPPoint& c) {
    using Wide = __int128;
    const Wide cross = Wide{int64_t{b.x} - a.x} * (int64_t{c.y} - b.y) -
                       Wide{int64_t{b.y} - a.y} * (int64_t{c.x} - b.x);
    return cross > 0 ? 1 : (cross < 0 ? -1 : 0);
}

bool SizeOf(const cv::Mat& image, int32_t* width, int32_t* height) {
    if (image.empty()) return false;
    *width = image.cols;
    *height = image.rows;
    return true;
}

}  // namespace

namespace scrivo::session {

bool PhotographSize(VPHandle engine, int32_t* width, int32_t* height) {
    return engine != nullptr && SizeOf(engine->source, width, height);
}

bool RectifiedPageSize(VPHandle engine, int32_t* width, int32_t* height) {
    return engine != nullptr && engine->rectified == 1 &&
           SizeOf(engine->rectifiedImage, width, height);
}

bool EnhancedPageSize(VPHandle engine, int32_t* width, int32_t* height) {
    return engine != nullptr && SizeOf(engine->enhancedImage, width, height);
}

bool IsWholePhotograph(const tagVPPoint quad[4], int32_t width, int32_t height) {
    const tagVPPoint whole[4] = {{0, 0}, {0, height}, {width, height}, {width, 0}};
    for (int i = 0; i < 4; ++i)
        if (quad[i].x != whole[i].x || quad[i].y != whole[i].y) return false;
    return true;
}

int32_t RefusedCorners(VPHandle engine, const tagVPPoint quad[4]) {
    int32_t w = 0, h = 0;
    if (!PhotographSize(engine, &w, &h)) return QV_SESSION_FAILED;
    // Corners that turn one way at every corner bound a page, only too small
    // a one for the engine; any others (a straight or a reversed corner, all
    // on one line, crossed) bound none.
    int turns = 0;
    for (int i = 0; i < 4; ++i) turns += Turn(quad[i], quad[(i + 1) % 4], quad[(i + 2) % 4]);
    return turns == 4 || turns == -4 ? QV_SESSION_TOO_SMALL : QV_SESSION_FAILED;
}

bool ShowAsViewed(VPHandle engine, int32_t orientation) {
    if (engine == nullptr || engine->source.empty()) return true;
    cv::Mat& photo = engine->source;
    try {
        cv::Mat turned;  // the quarter turns cannot work in place
        switch (orientation) {
            case 2:  // mirrored left to right
                cv::flip(photo, photo, 1);
                break;
            case 3:  // upside down
                cv::flip(photo, photo, -1);
                break;
            case 4:  // mirrored top to bottom
                cv::flip(photo, photo, 0);
                break;
            case 5:  // stored rows are the viewed columns
                cv::transpose(photo, turned);
                break;
            case 6:  // a quarter turn clockwise
                cv::rotate(photo, turned, cv::ROTATE_90_CLOCKWISE);
                break;
            case 7:  // the other diagonal
                cv::transpose(photo, turned);
                cv::flip(turned, turned, -1);
                break;
            case 8:  // a quarter turn counter-clockwise
                cv::rotate(photo, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
                break;
            default:
                break;
        }
        if (!turned.empty()) photo = turned;
    } catch (...) {
        return false;
    }
    return true;
}

namespace {

bool CopyImage(const cv::Mat& image, tagVPImage* record) {
    int32_t w = 0, h = 0;
    if (!SizeOf(image, &w, &h) || record->width != w || record->height != h) return false;
    try {
        return CopyCvImage2VPImageBuffer(image, record) == 1;
    } catch (...) {
        return false;
    }
}

}  // namespace

bool CopyPhotograph(VPHandle engine, tagVPImage* record) {
    return engine != nullptr && CopyImage(engine->source, record);
}

bool CopyRectifiedPage(VPHandle engine, tagVPImage* record) {
    return engine != nullptr && CopyImage(engine->rectifiedImage, record);
}

bool CopyEnhancedPage(VPHandle engine, tagVPImage* record) {
    return engine != nullptr && CopyImage(engine->enhancedImage, record);
}

}  // namespace scrivo::session
