/*
 * What an engine holds, as the session's order checks need to know it.
 *
 * The session refuses a step that would render a blank page: enhancing
 * before anything was rectified, or into a bitmap of another size than the
 * page. It reads the answer from the engine's record rather than keeping
 * its own account, so an engine operation called directly on the handle
 * (a rotation, a reduction, a text-line rectification) cannot leave the
 * session believing in a page the engine no longer has.
 */
#include "engine/client.h"
#include "session/session_internal.h"

namespace {

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

}  // namespace scrivo::session
