// Fixtures for the capture-session tests: a log collector, a component
// manager, photographs with a built EXIF block, and a caller's bitmap whose
// getInfo and lockPixels answers the test chooses.
#ifndef SCRIVO_TESTS_BRIDGE_TEST_UTIL_H
#define SCRIVO_TESTS_BRIDGE_TEST_UTIL_H

#include <cctype>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "imaging/codec/test_jpeg.h"
#include "imaging/exif/exif_test_util.h"
#include "scrivo/bitmap.h"
#include "scrivo/exif.h"
#include "scrivo/session.h"

namespace capturetest {

using Bytes = std::vector<uint8_t>;

// Collects the library's log lines while alive; timing figures and the
// thumbnail's encoded length become "N" so that sequences compare exactly.
class LogCollector {
  public:
    LogCollector() { MLogSetSink(&Sink, this); }
    ~LogCollector() { MLogSetSink(nullptr, nullptr); }
    std::vector<std::string> Take() {
        std::lock_guard<std::mutex> lock(mu_);
        std::vector<std::string> out;
        out.swap(lines_);
        return out;
    }

  private:
    static void Sink(int priority, const char* tag, const char* text, void* user) {
        auto* self = static_cast<LogCollector*>(user);
        if (priority != MLOG_DEBUG || std::string(tag) != MLOG_TAG) return;
        // Numbers after the timing and length keys vary from run to run:
        // they are masked as "N".
        std::string l;
        for (const char* p = text; *p != '\0';) {
            l += *p++;
            for (const char* key : {"cost ", "time = ", "m_ThumbStreamLength = "}) {
                const size_t k = std::strlen(key);
                if (l.size() >= k && l.compare(l.size() - k, k, key) == 0 &&
                    std::isdigit(uint8_t(*p))) {
                    while (std::isdigit(uint8_t(*p))) ++p;
                    l += 'N';
                }
            }
        }
        std::lock_guard<std::mutex> lock(self->mu_);
        self->lines_.push_back(l);
    }
    std::mutex mu_;
    std::vector<std::string> lines_;
};

using codec_test::Manager;

// R,G,B,A pixels of a smooth, asymmetric picture (or noise).
inline Bytes Picture(int w, int h, bool noise = false) {
    Bytes px(size_t(w) * h * 4);
    uint32_t seed = 12345;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            seed = seed * 1103515245u + 12345u;
            p[0] = noise ? uint8_t(seed >> 24) : uint8_t(x * 255 / w);
            p[1] = noise ? uint8_t(seed >> 16) : uint8_t(y * 255 / h);
            p[2] = noise ? uint8_t(seed >> 8) : uint8_t(x < w / 3 ? 220 : 40);
            p[3] = 255;
        }
    return px;
}

inline Bytes EncodeRgba(MHAMCM m, const Bytes& px, int w, int h, int quality = 90) {
    MBITMAP bm{MPAF_RGBA8888, w, h, {w * 4}, {const_cast<uint8_t*>(px.data())}};
    void* data = nullptr;
    int32_t size = 0;
    if (MCodec_EncodeData(m, &bm, quality, &data, &size) != 0) return {};
    Bytes out(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
    MMemFree(nullptr, data);
    return out;
}

// A JPEG with `block` inserted as its EXIF segment.
inline Bytes WithExif(const Bytes& jpeg, Bytes block) {
    MHStream s = MStreamOpenFromMemoryBlock(nullptr, 0);
    MStreamWrite(s, jpeg.data(), int32_t(jpeg.size()));
    MeAddExifToJpegFile(s, block.data(), uint32_t(block.size()));
    Bytes out(size_t(MStreamGetSize(s)));
    MStreamSeek(s, 0, 0);
    MStreamRead(s, out.data(), int32_t(out.size()));
    MStreamClose(s);
    return out;
}

// The EXIF block of a JPEG (empty when it has none) and its thumbnail.
inline Bytes ExifOf(const Bytes& jpeg, Bytes* thumbnail = nullptr) {
    Bytes block;
    MHStream s =
        MStreamOpenFromMemoryBlock(const_cast<uint8_t*>(jpeg.data()), int32_t(jpeg.size()));
    MHExif e = nullptr;
    uint8_t* p = nullptr;
    uint32_t n = 0;
    if (MExif_Create(nullptr, &e) == 0 && MExif_InitFromStream(e, s) == 0 &&
        MExif_LockExifData(e, &p, &n) == 0 && p)
        block.assign(p, p + n);
    MExif_Destroy(e);
    MStreamClose(s);
    if (thumbnail && !block.empty()) {
        uint8_t* t = nullptr;
        uint32_t tn = 0;
        MeGetThumbnailData(block.data(), uint32_t(block.size()), &t, &tn);
        thumbnail->assign(t, t + tn);
        MeFreeThumbnailData(t);
    }
    return block;
}

// A caller's bitmap with chosen answers.
struct FakeBitmap {
    QvBitmapInfo info{};
    int32_t infoCode = 0, lockCode = 0;
    bool nullPixels = false;
    Bytes pixels;
    FakeBitmap(int w, int h)
        : info{uint32_t(w), uint32_t(h), uint32_t(w * 4), QV_BITMAP_FORMAT_RGBA_8888},
          pixels(size_t(w) * h * 4) {}
    QvBitmapAccess Access() {
        return {this, nullptr,
                [](void*, void* b, QvBitmapInfo* i) {
                    *i = static_cast<FakeBitmap*>(b)->info;
                    return static_cast<FakeBitmap*>(b)->infoCode;
                },
                [](void*, void* b, void** px) {
                    auto* f = static_cast<FakeBitmap*>(b);
                    *px = f->nullPixels ? nullptr : f->pixels.data();
                    return f->lockCode;
                }};
    }
};

// Mean absolute difference of two R,G,B images (4 bytes a pixel each).
inline double MeanDiff(const Bytes& a, const Bytes& b) {
    double sum = 0;
    size_t n = 0;
    for (size_t i = 0; i + 3 < a.size() && i + 3 < b.size(); i += 4, n += 3)
        for (int c = 0; c < 3; ++c) sum += std::abs(int(a[i + c]) - int(b[i + c]));
    return n ? sum / double(n) : 1e9;
}

}  // namespace capturetest

#endif
