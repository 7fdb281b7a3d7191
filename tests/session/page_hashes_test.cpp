// The bytes a whole capture writes, pinned: JPEG bytes in, the rectified
// page and each enhanced page out as JPEG bytes, each compared by its
// FNV-1a 64 hash with the value the current code gives. A faster kernel, a
// reordered loop or a changed encoder setting that moves one output byte
// fails here; the reference kernels (SCRIVO_REFERENCE_KERNELS=1) must give
// the same bytes. Where a change of output is intended, the new values are
// printed by the failing run.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "session/orientation_photos.h"
#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

uint64_t Fnv1a64(const uint8_t* p, size_t n) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
    return h;
}

// A light page with dark lines of "text" and a shaded corner on a textured
// table, w x h, as R,G,B,A; integer arithmetic only, so it is the same
// everywhere.
Bytes DeskPage(int w, int h) {
    Bytes px(size_t(w) * h * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            const bool page = x >= w / 6 && x < w * 5 / 6 && y >= h / 8 && y < h * 7 / 8;
            const bool text = page && (y - h / 8) % 12 >= 8 && (x - w / 6) % 23 < 17 &&
                              x > w / 6 + 8 && x < w * 5 / 6 - 8;
            const int shade = page ? 230 - (x + y) / 16 : 60 + ((x * 7 + y * 13) % 29);
            const int v = text ? 40 : shade;
            p[0] = uint8_t(v), p[1] = uint8_t(v - (page ? 4 : 20)), p[2] = uint8_t(v - 10);
            p[3] = 255;
        }
    return px;
}

struct Photo {
    const char* name;
    Bytes jpeg;
    tagVPPoint corners[4];  // TL, BL, BR, TR, as viewed
    uint64_t expected[6];   // the rectified page, then methods 1..5
};

// The hashes of one capture: the rectified page's JPEG, then the enhanced
// pages' JPEGs for methods 1..5; 0 for an output that failed.
std::vector<uint64_t> Capture(MHAMCM m, const Photo& p) {
    std::vector<uint64_t> hashes;
    QvSession* s = QvSession_Create(m);
    VPHandle h = QvSession_CreateEngine(s, p.jpeg.data(), int32_t(p.jpeg.size()));
    int32_t w = 0, hh = 0;
    if (h != nullptr && QvSession_GetRectifiedImageSize(s, h, p.corners, 4, &w, &hh) == 0) {
        uint8_t* data = nullptr;
        int32_t len = 0;
        for (int32_t method = 0; method <= 5; ++method) {
            const int32_t r = method == 0
                                  ? QvSession_GetRectifiedImageData(s, h, p.corners, 4, &data, &len)
                                  : QvSession_GetEnhancedImageData(s, h, method, &data, &len);
            hashes.push_back(r == 0 ? Fnv1a64(data, size_t(len)) : 0);
            QvSession_FreeData(data);
        }
    }
    QvSession_ReleaseEngine(s, h);
    QvSession_Destroy(s);
    return hashes;
}

}  // namespace

TEST(PageHashes, EveryOutputOfAWholeCaptureKeepsItsBytes) {
    Manager m;
    std::ifstream in(std::string(SCRIVO_SOURCE_DIR) + "/samples/page-on-desk.jpg",
                     std::ios::binary);
    Bytes sample((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(sample.empty());

    // The sample's page is its upper third (the corners on the page's edges
    // and a third of the way down them), which keeps a sanitized build's run short.
    //
    // A skewed page in a small photograph: without EXIF, with a block and a
    // thumbnail, and stored turned (Orientation 6) so the engine is made
    // from turned pixels.
    const Bytes page = DeskPage(240, 180);
    exiftest::BlockOptions o;
    o.thumbnail = EncodeRgba(m.m, Picture(40, 30), 40, 30, 60);
    const Bytes plain = EncodeRgba(m.m, page, 240, 180, 92);
    const Bytes withExif = WithExif(plain, exiftest::BuildExifBlock(o));
    const Bytes turned = orientationtest::OrientedJpeg(m.m, page, 240, 180, 6);

    const Photo photos[] = {
        {"page-on-desk",
         sample,
         {{73, 465}, {184, 1220}, {1991, 1030}, {1991, 119}},
         {0xf7037061e8cd1a28ull, 0xf7037061e8cd1a28ull, 0xe98c8864a46e55a6ull,
          0xd2530211118f606dull, 0x485f0baf8751dcfdull, 0x5277aa4efc68fba5ull}},
        {"plain",
         plain,
         {{45, 28}, {36, 160}, {206, 157}, {198, 20}},
         {0x9b1b7cdf64928f88ull, 0x9b1b7cdf64928f88ull, 0x2b8838e84f92ba01ull,
          0x85dd948a1c165f27ull, 0x2e3bc1756bb45c12ull, 0x71e35ffa7a96ccbcull}},
        {"exif",
         withExif,
         {{45, 28}, {36, 160}, {206, 157}, {198, 20}},
         {0x29796f3567e5ac46ull, 0x29796f3567e5ac46ull, 0x33e544c50c24517full,
          0xc6a7226f0fcd98e5ull, 0xaae0793a03a33558ull, 0xa56a6e7b0071827eull}},
        {"turned",
         turned,
         {{38, 18}, {44, 150}, {204, 162}, {196, 25}},
         {0x58b4aebd28e6597cull, 0x58b4aebd28e6597cull, 0xb6de0c93ef307a99ull,
          0x37dc375a39b3e9afull, 0xef6339e3f0085b5bull, 0x4c699e6ce1b26552ull}},
    };
    for (const Photo& p : photos) {
        SCOPED_TRACE(p.name);
        const std::vector<uint64_t> got = Capture(m.m, p);
        ASSERT_EQ(got.size(), 6u);
        std::string printed;
        char buf[32];
        for (uint64_t g : got) {
            std::snprintf(buf, sizeof buf, " 0x%016" PRIx64 "ull,", g);
            printed += buf;
        }
        for (size_t i = 0; i < got.size(); ++i)
            EXPECT_EQ(got[i], p.expected[i])
                << (i == 0 ? "the rectified page" : "enhancement method " + std::to_string(i))
                << "; this photograph now gives" << printed;
    }
}
