// Rectangle and point helpers on the left/top/right/bottom record.
//
// right and bottom are exclusive: width = right - left, a point is inside
// when left <= x < right and top <= y < bottom, and a rectangle with
// right <= left or bottom <= top has no area (it is "empty"). "Null" is the
// all-zero rectangle.
//
// Sums and differences are computed in 64 bits and clamped to the 32-bit
// range, so extreme coordinates saturate instead of wrapping around.
//
// Null pointers: a missing input rectangle reads as the null rectangle
// (empty, width 0, contains no point, equal to {0,0,0,0}); a missing output
// is ignored, and Intersect/Union then return 0.
#include <algorithm>
#include <cstdint>

#include "scrivo/platform.h"

namespace {

constexpr MRECT kNullRect = {0, 0, 0, 0};

const MRECT& Read(const MRECT* r) {
    return r != nullptr ? *r : kNullRect;
}

int32_t Clamp(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

bool Empty(const MRECT& r) {
    return r.right <= r.left || r.bottom <= r.top;
}

}  // namespace

extern "C" {

void ADK_SetRect(MRECT* r, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    if (r != nullptr) *r = MRECT{left, top, right, bottom};
}

void ADK_SetRectEmpty(MRECT* r) {
    if (r != nullptr) *r = kNullRect;
}

int32_t ADK_IsRectEmpty(const MRECT* r) {
    return Empty(Read(r)) ? 1 : 0;
}

int32_t ADK_IsRectNull(const MRECT* r) {
    const MRECT& v = Read(r);
    return (v.left == 0 && v.top == 0 && v.right == 0 && v.bottom == 0) ? 1 : 0;
}

int32_t ADK_EqualRect(const MRECT* a, const MRECT* b) {
    const MRECT& x = Read(a);
    const MRECT& y = Read(b);
    return (x.left == y.left && x.top == y.top && x.right == y.right && x.bottom == y.bottom) ? 1
                                                                                              : 0;
}

int32_t ADK_GetRectWidth(const MRECT* r) {
    const MRECT& v = Read(r);
    return Clamp(int64_t{v.right} - v.left);
}

int32_t ADK_GetRectHeight(const MRECT* r) {
    const MRECT& v = Read(r);
    return Clamp(int64_t{v.bottom} - v.top);
}

MSIZE ADK_GetRectSize(const MRECT* r) {
    return MSIZE{ADK_GetRectWidth(r), ADK_GetRectHeight(r)};
}

MPOINT ADK_RectTopLeft(const MRECT* r) {
    const MRECT& v = Read(r);
    return MPOINT{v.left, v.top};
}

MPOINT ADK_RectBottomRight(const MRECT* r) {
    const MRECT& v = Read(r);
    return MPOINT{v.right, v.bottom};
}

MPOINT ADK_RectCenterPoint(const MRECT* r) {
    const MRECT& v = Read(r);
    // The 64-bit sum halved always fits back into 32 bits.
    return MPOINT{static_cast<int32_t>((int64_t{v.left} + v.right) / 2),
                  static_cast<int32_t>((int64_t{v.top} + v.bottom) / 2)};
}

int32_t ADK_PtInRect(const MRECT* r, MPOINT p) {
    const MRECT& v = Read(r);
    return (p.x >= v.left && p.x < v.right && p.y >= v.top && p.y < v.bottom) ? 1 : 0;
}

void ADK_OffsetRect(MRECT* r, int32_t dx, int32_t dy) {
    if (r == nullptr) return;
    *r = MRECT{Clamp(int64_t{r->left} + dx), Clamp(int64_t{r->top} + dy),
               Clamp(int64_t{r->right} + dx), Clamp(int64_t{r->bottom} + dy)};
}

void ADK_InflateRect(MRECT* r, int32_t dx, int32_t dy) {
    if (r == nullptr) return;
    *r = MRECT{Clamp(int64_t{r->left} - dx), Clamp(int64_t{r->top} - dy),
               Clamp(int64_t{r->right} + dx), Clamp(int64_t{r->bottom} + dy)};
}

void ADK_NormalizeRect(MRECT* r) {
    if (r == nullptr) return;
    if (r->left > r->right) std::swap(r->left, r->right);
    if (r->top > r->bottom) std::swap(r->top, r->bottom);
}

int32_t ADK_IntersectRect(MRECT* dst, const MRECT* a, const MRECT* b) {
    if (dst == nullptr) return 0;
    const MRECT& x = Read(a);
    const MRECT& y = Read(b);
    const MRECT r = {std::max(x.left, y.left), std::max(x.top, y.top), std::min(x.right, y.right),
                     std::min(x.bottom, y.bottom)};
    if (Empty(x) || Empty(y) || Empty(r)) {
        *dst = kNullRect;
        return 0;
    }
    *dst = r;
    return 1;
}

int32_t ADK_UnionRect(MRECT* dst, const MRECT* a, const MRECT* b) {
    if (dst == nullptr) return 0;
    const MRECT& x = Read(a);
    const MRECT& y = Read(b);
    if (Empty(x) && Empty(y)) {
        *dst = kNullRect;
        return 0;
    }
    if (Empty(x)) {
        *dst = y;
    } else if (Empty(y)) {
        *dst = x;
    } else {
        *dst = MRECT{std::min(x.left, y.left), std::min(x.top, y.top), std::max(x.right, y.right),
                     std::max(x.bottom, y.bottom)};
    }
    return 1;
}

void ADK_PointSet(MPOINT* p, int32_t x, int32_t y) {
    if (p != nullptr) *p = MPOINT{x, y};
}

void ADK_PointOffset(MPOINT* p, int32_t dx, int32_t dy) {
    if (p == nullptr) return;
    *p = MPOINT{Clamp(int64_t{p->x} + dx), Clamp(int64_t{p->y} + dy)};
}

int32_t ADK_PointIsEqual(MPOINT a, MPOINT b) {
    return (a.x == b.x && a.y == b.y) ? 1 : 0;
}

}  // extern "C"
