// Content sniffing and a full decode of arbitrary bytes through a memory
// stream: MdGetImgFileFormat, then (for what a decoder accepts) a session
// whose declared size is checked before anything is allocated, a
// full-size MdBitmapLoad into R,G,B,A and a regional, scaled decode into
// I420. Images above 2^20 pixels are skipped so that huge declared sizes
// cannot exhaust the fuzzer's memory.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "scrivo/codec.h"

namespace {

constexpr int64_t kMaxPixels = int64_t{1} << 20;

MHAMCM Manager() {
    static MHAMCM m = [] {
        MHAMCM mgr = nullptr;
        AMCM_Create(nullptr, &mgr);
        MdRegisterJpegComponents(mgr);
        return mgr;
    }();
    return m;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    std::vector<uint8_t> bytes(data, data + size);
    MHStream st = MStreamOpenFromMemoryBlock(bytes.data(), static_cast<int32_t>(bytes.size()));
    if (!st) return 0;
    uint32_t type = 0;
    MdGetImgFileFormat(st, &type);
    MHCODEC s = nullptr;
    int32_t wh[2] = {};
    bool small = false;
    if (MCodec_DecodeCreate(Manager(), st, 0, &s) == 0) {
        small = MCodec_GetProp(s, MD_PROP_IMAGE_SIZE, wh, 8) == 0 && wh[0] > 0 && wh[1] > 0 &&
                static_cast<int64_t>(wh[0]) * wh[1] <= kMaxPixels;
        MCodec_Destroy(s);
    }
    if (small) {
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;
        if (MdBitmapLoad(Manager(), st, 0, &bm) == 0) MdBitmapFree(nullptr, &bm);
        MBITMAPEX ex{};
        ex.bitmap.pixelFormat = MPAF_I420;
        ex.bitmap.width = wh[0] / 3 + 1;
        ex.bitmap.height = wh[1] / 3 + 1;
        ex.srcRegion = {wh[0] / 4, wh[1] / 5, wh[0], wh[1]};
        if (MdBitmapLoadEx(Manager(), st, 2, &ex) == 0) MdBitmapFree(nullptr, &ex.bitmap);
    }
    MStreamClose(st);
    return 0;
}
