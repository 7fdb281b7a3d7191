// The library writes nothing to standard output or standard error, whatever
// its task engine settings: a whole capture runs with both descriptors
// pointed at a temporary file, with ordinary workers, with real-time workers
// on one thread, and with real-time refused (which may only log). All three
// give the same pages byte for byte.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "parallel/engine_internal.h"
#include "scrivo/parallel.h"
#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

// A light page with dark lines of "text" on a darker table.
Bytes PagePhoto(MHAMCM m) {
    constexpr int w = 640, h = 480;
    Bytes px(size_t(w) * h * 4, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool page = x > 90 + y / 12 && x < 560 - y / 16 && y > 50 && y < 430;
            const bool ink = page && (y / 9) % 3 == 0 && x > 140 && x < 500 && y > 90 && y < 390;
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            const uint8_t v = ink ? 30 : page ? 225 : 70;
            p[0] = v;
            p[1] = v;
            p[2] = uint8_t(page ? v : 90);
        }
    return EncodeRgba(m, px, w, h);
}

struct Pages {
    Bytes rectified, enhanced;
};

// The bytes a data step delivered (none when it failed), freed here.
Bytes Take(uint8_t* data, int32_t length) {
    Bytes out(data, data + (data != nullptr && length > 0 ? length : 0));
    QvSession_FreeData(data);
    return out;
}

// Detect, rectify and enhance (method 3, the threaded route) through the
// session; empty pages for any step that failed.
Pages Capture(MHAMCM m, const Bytes& photo) {
    Pages pages;
    QvSession* s = QvSession_Create(m);
    VPHandle h = QvSession_CreateEngine(s, photo.data(), int32_t(photo.size()));
    tagVPPoint quad[4] = {{0, 0}, {0, 480}, {640, 480}, {640, 0}};
    QvSession_FindPageVertex(s, h, quad, 4);  // not found: the whole photograph
    int32_t w = 0, ht = 0;
    if (QvSession_GetRectifiedImageSize(s, h, quad, 4, &w, &ht) == 0) {
        uint8_t* data = nullptr;
        int32_t length = 0;
        QvSession_GetRectifiedImageData(s, h, quad, 4, &data, &length);
        pages.rectified = Take(data, length);
        data = nullptr;
        QvSession_GetEnhancedImageData(s, h, VP_ENHANCE_HIGH, &data, &length);
        pages.enhanced = Take(data, length);
    }
    QvSession_ReleaseEngine(s, h);
    QvSession_Destroy(s);
    return pages;
}

int RefuseRealTime(pthread_t* t, const pthread_attr_t* a, void* (*f)(void*), void* arg) {
    int policy = SCHED_OTHER;
    if (a != nullptr) pthread_attr_getschedpolicy(a, &policy);
    return policy == SCHED_RR ? EPERM : pthread_create(t, a, f, arg);
}

// Points descriptors 1 and 2 at one temporary file until Restore, which
// returns what was written there.
class Silenced {
  public:
    Silenced() : file_(std::tmpfile()) {
        std::fflush(nullptr);
        for (int fd : {1, 2}) saved_[fd - 1] = dup(fd);
        for (int fd : {1, 2}) dup2(fileno(file_), fd);
    }
    ~Silenced() { Restore(); }
    std::string Restore() {
        std::string written;
        if (file_ == nullptr) return written;
        std::fflush(nullptr);
        for (int fd : {1, 2}) {
            dup2(saved_[fd - 1], fd);
            close(saved_[fd - 1]);
        }
        std::rewind(file_);
        for (int c; (c = std::fgetc(file_)) != EOF;) written += char(c);
        std::fclose(file_);
        file_ = nullptr;
        return written;
    }

  private:
    std::FILE* file_;
    int saved_[2] = {-1, -1};
};

}  // namespace

TEST(Quiet, CaptureWritesNothingToStandardStreamsInAnyWorkerSetting) {
    Manager m;
    const Bytes photo = PagePhoto(m.m);
    Pages pages[3];
    std::string written;
    {
        Silenced silenced;
        pages[0] = Capture(m.m, photo);
        mcvParallelSetRealtime(1);
        mcvParallelSetThreadLimit(1);
        pages[1] = Capture(m.m, photo);
        scrivo::parallel::SetThreadCreatorForTesting(RefuseRealTime);
        pages[2] = Capture(m.m, photo);
        scrivo::parallel::SetThreadCreatorForTesting(nullptr);
        mcvParallelSetRealtime(0);
        mcvParallelSetThreadLimit(0);
        written = silenced.Restore();
    }
    EXPECT_EQ(written, "");
    ASSERT_FALSE(pages[0].rectified.empty());
    ASSERT_FALSE(pages[0].enhanced.empty());
    for (int i : {1, 2}) {
        EXPECT_EQ(pages[i].rectified, pages[0].rectified) << i;
        EXPECT_EQ(pages[i].enhanced, pages[0].enhanced) << i;
    }
}
