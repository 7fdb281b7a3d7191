/*
 * scrivo_scan: one photograph through the capture session in a single call.
 *
 * Each call makes its own component manager (with the JPEG components), a
 * session over it and an engine, and gives all three back on every exit
 * path (the session releases the engine it made). The steps are the
 * session's, in their order: find the page (or take the given corners),
 * decide the text direction when asked, query the page's size, rectify,
 * enhance, encode. "none" asks for the rectified page's bytes directly;
 * the other methods rectify into a plain memory bitmap first, because
 * enhancement starts from the engine's rectified page and encoding that
 * page would be wasted work.
 *
 * The photograph is the one the session's engine holds, turned as its EXIF
 * Orientation says, so corners are checked against, and reported in, the
 * photograph as viewed.
 *
 * Given corners must lie within the photograph and turn the same way at
 * every corner in the documented order (top-left, bottom-left,
 * bottom-right, top-right): the engine's own legality test accepts a
 * convex quadrangle in either direction, and the mirrored order would
 * deliver a mirrored page.
 */
#include "scrivo/scan.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "session/session_internal.h"

namespace {

static_assert(VP_SMALLEST_PAGE == 8, "scrivo_strerror names the smallest page");

struct ManagerGuard {
    MHAMCM m = nullptr;
    ~ManagerGuard() {
        if (m != nullptr) AMCM_Destroy(m);
    }
};

struct SessionGuard {
    QvSession* s = nullptr;
    ~SessionGuard() { QvSession_Destroy(s); }  // releases the engine too
};

struct PageBytes {
    uint8_t* data = nullptr;
    int32_t length = 0;
    ~PageBytes() { QvSession_FreeData(data); }
};

bool IsFlag(int32_t v) {
    return v == 0 || v == 1;
}

bool ValidOptions(const scrivo_scan_options& o) {
    return o.enhancement >= SCRIVO_ENHANCE_NONE && o.enhancement <= SCRIVO_ENHANCE_ECONOMIC &&
           o.jpeg_quality >= 0 && o.jpeg_quality <= 100 && IsFlag(o.corners_given) &&
           IsFlag(o.auto_rotate);
}

// In image coordinates (y down) the documented order turns the same way at
// every corner: all cross products negative.
bool UsableCorners(const tagVPPoint q[4], int32_t width, int32_t height) {
    for (int i = 0; i < 4; ++i) {
        const tagVPPoint& a = q[i];
        const tagVPPoint& b = q[(i + 1) % 4];
        const tagVPPoint& c = q[(i + 2) % 4];
        if (a.x < 0 || a.y < 0 || a.x > width || a.y > height) return false;
        const int64_t cross = (int64_t{b.x} - a.x) * (int64_t{c.y} - b.y) -
                              (int64_t{b.y} - a.y) * (int64_t{c.x} - b.x);
        if (cross >= 0) return false;
    }
    return true;
}

// The status for a session code of a rendering step; `failed` names what
// a plain failure of that step means.
scrivo_status FromSession(int32_t code, scrivo_status failed) {
    switch (code) {
        case QV_SESSION_OK:
            return SCRIVO_OK;
        case QV_SESSION_FAILED:
            return failed;
        case QV_SESSION_NO_BITMAP:
            return SCRIVO_ERR_NO_MEMORY;
        case QV_SESSION_NOT_ENCODED:
            return SCRIVO_ERR_ENCODE;
        case QV_SESSION_TOO_SMALL:
            return SCRIVO_ERR_TOO_SMALL;
        default:
            return SCRIVO_ERR_INTERNAL;
    }
}

scrivo_status Render(QvSession* session, VPHandle engine, const tagVPPoint corners[4],
                     int32_t method, PageBytes* page) {
    if (method == SCRIVO_ENHANCE_NONE)
        return FromSession(QvSession_GetRectifiedImageData(session, engine, corners, 4, &page->data,
                                                           &page->length),
                           SCRIVO_ERR_RECTIFY);
    const scrivo_status st =
        FromSession(QvSession_Rectify(session, engine, corners, 4), SCRIVO_ERR_RECTIFY);
    if (st != SCRIVO_OK) return st;
    QvSession_ReleasePhotograph(session, engine);  // one shot: no other corners follow
    return FromSession(
        QvSession_GetEnhancedImageData(session, engine, method, &page->data, &page->length),
        SCRIVO_ERR_ENHANCE);
}

scrivo_status Scan(const uint8_t* jpeg, size_t length, const scrivo_scan_options& options,
                   scrivo_scan_result* result) {
    if (!ValidOptions(options)) return SCRIVO_ERR_BAD_OPTION;
    if (length == 0 || length > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
        return SCRIVO_ERR_NOT_JPEG;
    ManagerGuard manager;
    if (AMCM_Create(nullptr, &manager.m) != MOK) {
        manager.m = nullptr;
        return SCRIVO_ERR_NO_MEMORY;
    }
    if (MdRegisterJpegComponents(manager.m) != MOK) return SCRIVO_ERR_NO_MEMORY;
    SessionGuard session{QvSession_Create(manager.m)};
    if (session.s == nullptr) return SCRIVO_ERR_NO_MEMORY;
    VPHandle engine = QvSession_CreateEngine(session.s, jpeg, static_cast<int32_t>(length));
    int32_t w = 0, h = 0;
    if (engine == nullptr || !scrivo::session::PhotographSize(engine, &w, &h))
        return SCRIVO_ERR_NOT_JPEG;

    tagVPPoint corners[4] = {{0, 0}, {0, h}, {w, h}, {w, 0}};
    if (options.corners_given) {
        for (int i = 0; i < 4; ++i) corners[i] = {options.corners[i].x, options.corners[i].y};
        if (!UsableCorners(corners, w, h)) return SCRIVO_ERR_BAD_CORNERS;
    } else {
        result->page_found = QvSession_FindPageVertex(session.s, engine, corners, 4) == 0;
    }
    for (int i = 0; i < 4; ++i) result->corners[i] = {corners[i].x, corners[i].y};
    if (options.auto_rotate) {
        tagVPPoint upright[4];
        if (QvSession_DetectTextDirection(session.s, engine, corners, 4, upright, &result->turn,
                                          nullptr, nullptr) != QV_SESSION_OK)
            return SCRIVO_ERR_INTERNAL;
        std::memcpy(corners, upright, sizeof corners);
    }
    const int32_t sized = QvSession_GetRectifiedImageSize(session.s, engine, corners, 4,
                                                          &result->width, &result->height);
    if (sized == QV_SESSION_TOO_SMALL) return SCRIVO_ERR_TOO_SMALL;
    if (sized != QV_SESSION_OK)
        return options.corners_given ? SCRIVO_ERR_BAD_CORNERS : SCRIVO_ERR_RECTIFY;
    QvSession_SetJpegQuality(session.s, options.jpeg_quality);
    PageBytes page;
    const scrivo_status st = Render(session.s, engine, corners, options.enhancement, &page);
    if (st != SCRIVO_OK) return st;
    result->jpeg = page.data;
    result->jpeg_length = static_cast<size_t>(page.length);
    page.data = nullptr;
    return SCRIVO_OK;
}

}  // namespace

extern "C" void scrivo_scan_options_init(scrivo_scan_options* options) {
    if (options == nullptr) return;
    *options = scrivo_scan_options{};
    options->enhancement = SCRIVO_ENHANCE_DOCUMENT;
}

extern "C" scrivo_status scrivo_scan(const uint8_t* jpeg, size_t jpeg_length,
                                     const scrivo_scan_options* options,
                                     scrivo_scan_result* result) {
    if (result == nullptr) return SCRIVO_ERR_NULL_POINTER;
    *result = scrivo_scan_result{};
    result->turn = -1;
    if (jpeg == nullptr || options == nullptr) return SCRIVO_ERR_NULL_POINTER;
    try {
        return Scan(jpeg, jpeg_length, *options, result);
    } catch (const std::bad_alloc&) {
        return SCRIVO_ERR_NO_MEMORY;
    } catch (...) {
        return SCRIVO_ERR_INTERNAL;
    }
}

extern "C" void scrivo_scan_result_free(scrivo_scan_result* result) {
    if (result == nullptr) return;
    QvSession_FreeData(result->jpeg);
    *result = scrivo_scan_result{};
    result->turn = -1;
}

extern "C" const char* scrivo_strerror(scrivo_status status) {
    switch (status) {
        case SCRIVO_OK:
            return "done";
        case SCRIVO_ERR_NULL_POINTER:
            return "a required pointer is null";
        case SCRIVO_ERR_BAD_OPTION:
            return "an option is outside its documented values";
        case SCRIVO_ERR_NOT_JPEG:
            return "the bytes are not a JPEG photograph that decodes";
        case SCRIVO_ERR_BAD_CORNERS:
            return "the corners are not a convex quadrangle inside the photograph in the order "
                   "top-left, bottom-left, bottom-right, top-right";
        case SCRIVO_ERR_RECTIFY:
            return "the page could not be straightened";
        case SCRIVO_ERR_ENHANCE:
            return "the enhancement produced no page";
        case SCRIVO_ERR_ENCODE:
            return "the page could not be encoded as JPEG";
        case SCRIVO_ERR_NO_MEMORY:
            return "out of memory";
        case SCRIVO_ERR_INTERNAL:
            return "an unexpected failure inside the library";
        case SCRIVO_ERR_TOO_SMALL:
            return "the page is too small: the smallest page is 8 x 8 pixels";
    }
    return "unknown status";
}
