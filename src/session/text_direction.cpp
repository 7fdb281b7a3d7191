/*
 * The text-direction step: which way the text on the page runs, answered
 * as the corners to rectify for an upright page.
 *
 * The engine straightens the page at a small size, decides the direction
 * of its text there and hands back the corners starting from the upright
 * page's top-left. Rectifying from the corners in that order straightens
 * the page and turns it upright by quarter turns in one warp, so the size
 * query, the rectified page and the enhanced page all agree on the turned
 * size. The engine sizes corners by the way the page lies, so a page turned
 * a quarter keeps its resolution, width and height swapped. The turn is the
 * cyclic shift between the two orders.
 *
 * The whole photograph is the exception: the engine takes the whole
 * photograph's corners in any order for the photograph as it is, so a
 * photograph without a page is turned through the quadrangle one pixel
 * inside its edges (a photograph too small for that is left as it is).
 * A page whose direction cannot be told is left as it is.
 */
#include "session/session_internal.h"

namespace {

constexpr int32_t kInset = 1;

// k such that turned[i] = given[(i + k) % 4] for every i, or -1.
int32_t CyclicShift(const tagVPPoint given[4], const tagVPPoint turned[4]) {
    for (int32_t k = 0; k < 4; ++k) {
        bool same = true;
        for (int i = 0; i < 4; ++i) {
            const tagVPPoint& a = turned[i];
            const tagVPPoint& b = given[(i + k) % 4];
            same = same && a.x == b.x && a.y == b.y;
        }
        if (same) return k;
    }
    return -1;
}

}  // namespace

extern "C" int32_t QvSession_DetectTextDirection(QvSession* s, VPHandle engine,
                                                 const tagVPPoint* points, int32_t count,
                                                 tagVPPoint* upright, int32_t* turn, int32_t* width,
                                                 int32_t* height) {
    if (!s) return QV_SESSION_BAD_ARGUMENT;
    if (!s->Owns(engine)) return QV_SESSION_UNKNOWN_ENGINE;
    if (!scrivo::session::HoldsPhotograph(engine)) return QV_SESSION_FAILED;  // released
    if (count != 4 || points == nullptr || upright == nullptr || turn == nullptr)
        return QV_SESSION_BAD_ARGUMENT;
    tagVPPoint given[4] = {points[0], points[1], points[2], points[3]};
    tagVPPoint turned[4] = {};
    int32_t w = 0, h = 0;
    const bool told =
        VPGetRectifiedTextImageSizeWithVeterx(engine, given, turned, VP_TEXT_TURN_ANY, &w, &h) == 1;
    int32_t shift = told ? CyclicShift(given, turned) : -1;
    int32_t pw = 0, ph = 0;
    const bool whole = scrivo::session::PhotographSize(engine, &pw, &ph) &&
                       scrivo::session::IsWholePhotograph(given, pw, ph);
    if (shift > 0 && whole) {
        if (pw < 8 * kInset || ph < 8 * kInset) {
            shift = -1;
        } else {
            const int32_t x0 = kInset, y0 = kInset, x1 = pw - kInset, y1 = ph - kInset;
            const tagVPPoint inside[4] = {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}};
            for (int i = 0; i < 4; ++i) turned[i] = inside[(i + shift) % 4];
        }
    }
    for (int i = 0; i < 4; ++i) upright[i] = shift > 0 ? turned[i] : given[i];
    *turn = shift < 0 ? -1 : shift * 90;
    if (width) *width = w;
    if (height) *height = h;
    return QV_SESSION_OK;
}
