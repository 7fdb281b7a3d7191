// Fuzzes a whole capture session on arbitrary bytes, driven in the order an
// application drives it: create the engine from the bytes as a JPEG, find
// the page, query the rectified size, rectify into a bitmap and into JPEG
// bytes, enhance into a bitmap and with every method into JPEG bytes,
// release. Any step may fail with its result code; none may crash, leak or
// hang.
//
// The first byte steers the session, the JPEG follows it:
//   bits 0-1  the quadrangle: the detector's (the whole picture when it finds
//             none), the whole picture, one reaching a quarter beyond the
//             picture on every side, or a degenerate one (three corners on
//             one point)
//   bits 2-4  the method of the bitmap enhancement, 0..7 (0, 6 and 7 are
//             not methods)
//   bit  5    JPEG quality 0 (the default save) or 35
//   bits 6-7  the caller's bitmaps: fitting, one row short, not RGBA, none
//
// Cost bound: the decoder accepts declared sizes up to 2^28 pixels, which a
// few hundred bytes can ask for and which take seconds to decode. So the
// declared size is read first through a decode session of the JPEG
// decoder, and pictures above kMaxPixels are not fed to the capture
// session; nor is a quadrangle whose rectified size exceeds 4 kMaxPixels
// rectified or enhanced.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "scrivo/codec.h"
#include "scrivo/session.h"

namespace {

constexpr int64_t kMaxPixels = int64_t{1} << 16;

MHAMCM Manager() {
    static MHAMCM m = [] {
        MHAMCM mgr = nullptr;
        AMCM_Create(nullptr, &mgr);
        MdRegisterJpegComponents(mgr);
        return mgr;
    }();
    return m;
}

// The size the JPEG decoder reads from the headers; false when it opens none.
bool DeclaredSize(const uint8_t* data, size_t size, int32_t wh[2]) {
    MHStream st =
        MStreamOpenFromMemoryBlock(const_cast<uint8_t*>(data), static_cast<int32_t>(size));
    if (st == nullptr) return false;
    MHCODEC s = nullptr;
    bool ok = false;
    if (MCodec_DecodeCreate(Manager(), st, MD_COMPONENT_JPEG_DECODER, &s) == 0) {
        ok = MCodec_GetProp(s, MD_PROP_IMAGE_SIZE, wh, 8) == 0;
        MCodec_Destroy(s);
    }
    MStreamClose(st);
    return ok;
}

// A caller's bitmap over a vector, with the answers the control bits chose.
struct Bitmap {
    QvBitmapInfo info{};
    std::vector<uint8_t> pixels;
    Bitmap(int32_t w, int32_t h, int kind)
        : info{uint32_t(w), uint32_t(kind == 1 && h > 0 ? h - 1 : h), uint32_t(w) * 4,
               kind == 2 ? QV_BITMAP_FORMAT_NONE : QV_BITMAP_FORMAT_RGBA_8888},
          pixels(size_t(info.width) * info.height * 4) {}
    QvBitmapAccess Access(int kind) {
        return {kind == 3 ? nullptr : this, nullptr,
                [](void*, void* b, QvBitmapInfo* i) {
                    *i = static_cast<Bitmap*>(b)->info;
                    return int32_t{0};
                },
                [](void*, void* b, void** px) {
                    *px = static_cast<Bitmap*>(b)->pixels.data();
                    return int32_t{0};
                }};
    }
};

void Capture(QvSession* s, VPHandle engine, uint8_t control, int32_t w, int32_t h) {
    tagVPPoint quad[4] = {{0, 0}, {0, h}, {w, h}, {w, 0}};
    switch (control & 3) {
        case 0: {
            tagVPPoint found[4];
            if (QvSession_FindPageVertex(s, engine, found, 4) == QV_SESSION_OK)
                for (int i = 0; i < 4; ++i) quad[i] = found[i];
            break;
        }
        case 2:
            quad[0] = {-w / 4, -h / 4};
            quad[1] = {-w / 4, h + h / 4};
            quad[2] = {w + w / 4, h + h / 4};
            quad[3] = {w + w / 4, -h / 4};
            break;
        case 3:
            quad[1] = quad[2] = quad[0];
            break;
    }
    int32_t rw = 0, rh = 0;
    if (QvSession_GetRectifiedImageSize(s, engine, quad, 4, &rw, &rh) != QV_SESSION_OK) return;
    if (rw <= 0 || rh <= 0 || int64_t{rw} * rh > 4 * kMaxPixels) return;

    const int kind = control >> 6;
    Bitmap rectified(rw, rh, kind);
    QvBitmapAccess access = rectified.Access(kind);
    QvSession_GetRectifiedImage(s, engine, quad, 4, &access);
    // A failing step hands out no bytes, whatever its code: what came back
    // is freed (null is accepted).
    uint8_t* bytes = nullptr;
    int32_t length = 0;
    QvSession_GetRectifiedImageData(s, engine, quad, 4, &bytes, &length);
    QvSession_FreeData(bytes);

    Bitmap enhanced(rw, rh, kind);
    access = enhanced.Access(kind);
    QvSession_GetEnhancedImage(s, engine, (control >> 2) & 7, &access);
    for (int32_t method = 1; method <= 5; ++method) {
        bytes = nullptr;
        QvSession_GetEnhancedImageData(s, engine, method, &bytes, &length);
        QvSession_FreeData(bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > (1u << 20)) return 0;
    const uint8_t control = data[0];
    // The JPEG in an exact-size block of its own, so that overreads show.
    const std::vector<uint8_t> jpeg(data + 1, data + size);
    int32_t wh[2] = {};
    if (!DeclaredSize(jpeg.data(), jpeg.size(), wh) || wh[0] <= 0 || wh[1] <= 0 ||
        int64_t{wh[0]} * wh[1] > kMaxPixels)
        return 0;

    QvSession* s = QvSession_Create(Manager());
    if (s == nullptr) return 0;
    QvSession_SetJpegQuality(s, control & 0x20 ? 35 : 0);
    VPHandle engine = QvSession_CreateEngine(s, jpeg.data(), static_cast<int32_t>(jpeg.size()));
    if (engine != nullptr) Capture(s, engine, control, wh[0], wh[1]);
    QvSession_ReleaseEngine(s, engine);
    QvSession_Destroy(s);
    return 0;
}
