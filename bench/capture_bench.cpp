// The whole capture a user waits for, JPEG bytes in, page JPEG bytes out,
// against the textbook OpenCV pipeline on the same photograph.
//
// The photograph is the shared 12-megapixel synth-dev/0008.jpg (4000 x
// 3000) when it is there, else the repository's samples/page-on-desk.jpg,
// so that the benchmark runs without arguments anywhere.
//
// WholeCapture/method:M runs, in each iteration and in alternating order,
//   ours: through the public session API: create the engine from the bytes
//     (decode, EXIF, engine), find the page and take its corners, size the
//     page, then for M = 0 the rectified page's JPEG, otherwise rectify
//     into a bitmap and ask for the JPEG of enhancement method M (5
//     economic, 3 document, 2 colour, 4 grey); every JPEG carries the
//     photograph's EXIF block with a new thumbnail; release the engine;
//   textbook: cv::imdecode; the page by contours on a 500-pixel copy
//     (grey, Gaussian blur, Canny, findContours, the largest 4-point
//     approxPolyDP); getPerspectiveTransform and warpPerspective at full
//     size; per mode nothing (0), adaptiveThreshold on grey (5), background
//     division per channel (3: background = dilate + median blur, page =
//     255 - |I - background| stretched to 0..255), a global min-max stretch
//     (2), grey (4); cv::imencode at quality 90 (our default quality too).
// Both run on 2 threads (the library's task engines and OpenCV's pool),
// with the allocator's thresholds fixed (see WholeCapture), so that each
// capture maps and faults in its large blocks as a process's first does.
// Counters: the medians over the iterations of ours_ms (releasing the
// engine included) and textbook_ms and their ratio; our stages (decode, engine creation with the
// EXIF read, detection, size and rectification, enhancement, encoding with EXIF and thumbnail),
// where the log lines of the session mark the decode and rectification ends and the enhancement
// alone is timed by a second, untimed-in-total rendering into a bitmap (encoding = the enhanced
// JPEG step less it); and the peak resident size of one capture of each in a forked child
// (clear_refs 5 before, VmHWM after): peak_MB for the process, path_MB above its size before the
// capture (MB = 10^6 bytes).
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "imaging/codec/test_jpeg.h"
#include "peak_memory.h"
#include "scrivo/parallel.h"
#include "scrivo/session.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

const Bytes& Photograph() {
    static const Bytes photo = [] {
        Bytes b = ReadFile(std::string(SCRIVO_TEST_DATA_DIR) + "/synth-dev/0008.jpg");
        return b.empty() ? ReadFile(std::string(SCRIVO_SOURCE_DIR) + "/samples/page-on-desk.jpg")
                         : b;
    }();
    return photo;
}

double Ms(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

double Median(std::vector<double> v) {
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

using codec_test::Manager;

// When the session's decode and rectification timing lines passed.
struct Marks {
    Clock::time_point decoded, rectified;
    static void Sink(int, const char*, const char* line, void* user) {
        auto* marks = static_cast<Marks*>(user);
        auto starts = [line](const char* p) { return std::strncmp(line, p, std::strlen(p)) == 0; };
        if (starts("QvNote performance native decode cost")) marks->decoded = Clock::now();
        if (starts("QvNote performance native VPRectifyVertexArea cost"))
            marks->rectified = Clock::now();
    }
};

// A caller's RGBA bitmap of the page's size.
struct PageBitmap {
    int32_t width, height;
    Bytes pixels;
    PageBitmap(int32_t w, int32_t h) : width(w), height(h), pixels(size_t(w) * h * 4) {}
    QvBitmapAccess Access() {
        return {this, nullptr,
                [](void*, void* b, QvBitmapInfo* i) {
                    auto* p = static_cast<PageBitmap*>(b);
                    *i = {uint32_t(p->width), uint32_t(p->height), uint32_t(p->width * 4),
                          QV_BITMAP_FORMAT_RGBA_8888};
                    return 0;
                },
                [](void*, void* b, void** px) {
                    *px = static_cast<PageBitmap*>(b)->pixels.data();
                    return 0;
                }};
    }
};

enum Stage { kDecode, kCreate, kDetect, kRectify, kEnhance, kEncode, kTotal, kStages };
const char* const kStageNames[kStages] = {"decode_ms",  "create_ms", "detect_ms", "rectify_ms",
                                          "enhance_ms", "encode_ms", "ours_ms"};

// One capture through the session; the page's JPEG length (0 on failure).
size_t Ours(MHAMCM m, const Bytes& jpeg, int32_t method, double* stages) {
    Marks marks;
    MLogSetSink(&Marks::Sink, &marks);
    size_t produced = 0;
    const auto t0 = Clock::now();
    QvSession* s = QvSession_Create(m);
    VPHandle h = QvSession_CreateEngine(s, jpeg.data(), int32_t(jpeg.size()));
    const auto t1 = Clock::now();
    tagVPPoint quad[4] = {};
    int32_t w = 0, hh = 0;
    if (h && QvSession_FindPageVertex(s, h, quad, 4) == 0) {
        const auto t2 = Clock::now();
        uint8_t* data = nullptr;
        int32_t len = 0;
        int32_t r = QvSession_GetRectifiedImageSize(s, h, quad, 4, &w, &hh);
        if (r == 0 && method == 0) r = QvSession_GetRectifiedImageData(s, h, quad, 4, &data, &len);
        if (r == 0 && method != 0) {
            // A host that wants only the enhanced page rectifies into the
            // engine alone, and lets the photograph go.
            r = QvSession_Rectify(s, h, quad, 4);
            if (r == 0) r = QvSession_ReleasePhotograph(s, h);
        }
        const auto t3 = method == 0 ? marks.rectified : Clock::now();
        if (r == 0 && method != 0) r = QvSession_GetEnhancedImageData(s, h, method, &data, &len);
        const auto t4 = Clock::now();
        produced = r == 0 ? size_t(len) : 0;
        QvSession_FreeData(data);
        double enhance = 0.0;
        if (r == 0 && method != 0 && stages) {
            PageBitmap page(w, hh);
            QvBitmapAccess access = page.Access();
            const auto e0 = Clock::now();
            QvSession_GetEnhancedImage(s, h, method, &access);
            enhance = Ms(Clock::now() - e0);
        }
        const auto r0 = Clock::now();
        QvSession_ReleaseEngine(s, h);
        QvSession_Destroy(s);
        if (stages) {
            const double found[kStages] = {Ms(marks.decoded - t0),
                                           Ms(t1 - marks.decoded),
                                           Ms(t2 - t1),
                                           Ms(t3 - t2),
                                           enhance,
                                           Ms(t4 - t3) - enhance,
                                           Ms(t4 - t0) + Ms(Clock::now() - r0)};
            std::copy(found, found + kStages, stages);
        }
    } else {
        QvSession_ReleaseEngine(s, h);
        QvSession_Destroy(s);
    }
    MLogSetSink(nullptr, nullptr);
    return produced;
}

// The page's corners on a 500-pixel copy, by the largest 4-point contour,
// scaled to the photograph (the whole frame when there is none).
std::vector<cv::Point2f> TextbookCorners(const cv::Mat& photo) {
    const double scale = 500.0 / std::max(photo.cols, photo.rows);
    cv::Mat small, grey, edges;
    cv::resize(photo, small, cv::Size(), scale, scale, cv::INTER_AREA);
    cv::cvtColor(small, grey, cv::COLOR_BGR2GRAY);
    cv::GaussianBlur(grey, grey, cv::Size(5, 5), 0);
    cv::Canny(grey, edges, 75, 200);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edges, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    std::sort(contours.begin(), contours.end(),
              [](const auto& a, const auto& b) { return cv::contourArea(a) > cv::contourArea(b); });
    std::vector<cv::Point2f> quad;
    for (const auto& c : contours) {
        std::vector<cv::Point> poly;
        cv::approxPolyDP(c, poly, 0.02 * cv::arcLength(c, true), true);
        if (poly.size() != 4) continue;
        for (const cv::Point& p : poly) quad.emplace_back(float(p.x / scale), float(p.y / scale));
        break;
    }
    if (quad.empty()) {
        const float w = float(photo.cols), h = float(photo.rows);
        quad = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    }
    // Top-left has the least x + y, bottom-right the most; top-right the
    // least y - x, bottom-left the most.
    auto by = [&](auto key) {
        return std::minmax_element(quad.begin(), quad.end(),
                                   [&](const auto& a, const auto& b) { return key(a) < key(b); });
    };
    const auto sum = by([](const cv::Point2f& p) { return p.x + p.y; });
    const auto diff = by([](const cv::Point2f& p) { return p.y - p.x; });
    return {*sum.first, *diff.first, *sum.second, *diff.second};  // TL, TR, BR, BL
}

size_t Textbook(const Bytes& jpeg, int32_t method) {
    const cv::Mat photo = cv::imdecode(
        cv::Mat(1, int(jpeg.size()), CV_8UC1, const_cast<uint8_t*>(jpeg.data())), cv::IMREAD_COLOR);
    if (photo.empty()) return 0;
    const std::vector<cv::Point2f> q = TextbookCorners(photo);
    const float w = std::max(float(cv::norm(q[2] - q[3])), float(cv::norm(q[1] - q[0])));
    const float h = std::max(float(cv::norm(q[1] - q[2])), float(cv::norm(q[0] - q[3])));
    const std::vector<cv::Point2f> to = {{0, 0}, {w - 1, 0}, {w - 1, h - 1}, {0, h - 1}};
    cv::Mat page, out;
    cv::warpPerspective(photo, page, cv::getPerspectiveTransform(q, to), cv::Size(int(w), int(h)));
    if (method == 5) {
        cv::cvtColor(page, out, cv::COLOR_BGR2GRAY);
        cv::adaptiveThreshold(out, out, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 31, 10);
    } else if (method == 3) {
        std::vector<cv::Mat> channels;
        cv::split(page, channels);
        const cv::Mat kernel = cv::Mat::ones(7, 7, CV_8UC1);
        for (cv::Mat& c : channels) {
            cv::Mat background, d;
            cv::dilate(c, background, kernel);
            cv::medianBlur(background, background, 21);
            cv::absdiff(c, background, d);
            cv::subtract(cv::Scalar::all(255), d, d);
            cv::normalize(d, c, 0, 255, cv::NORM_MINMAX);
        }
        cv::merge(channels, out);
    } else if (method == 2) {
        cv::normalize(page, out, 0, 255, cv::NORM_MINMAX);
    } else if (method == 4) {
        cv::cvtColor(page, out, cv::COLOR_BGR2GRAY);
    } else {
        out = page;
    }
    std::vector<uint8_t> bytes;
    cv::imencode(".jpg", out, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
    return bytes.size();
}

struct Peaks {
    std::pair<double, double> ours, textbook;
};

const Peaks& PeaksOf(MHAMCM m, int32_t method) {
    static std::map<int32_t, Peaks> peaks;
    if (!peaks.count(method))
        peaks[method] = {
            benchsupport::PeakMB([&] { return Ours(m, Photograph(), method, nullptr); }),
            benchsupport::PeakMB([&] { return Textbook(Photograph(), method); })};
    return peaks[method];
}

void WholeCapture(benchmark::State& state) {
    const auto method = int32_t(state.range(0));
    mcvParallelSetThreadLimit(2);
    cv::setNumThreads(2);
    const Bytes& jpeg = Photograph();
    Manager m;
    // A fixed allocator policy: large blocks are mapped when made and
    // returned when freed, as in a process's first capture. The default
    // moves its threshold with what was freed before, so that a capture's
    // page faults would depend on which capture ran earlier.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    const Peaks& peaks = PeaksOf(m.m, method);
    std::vector<double> stages[kStages], theirs;
    bool ourTurnFirst = true;
    for (auto _ : state) {
        double st[kStages] = {};
        size_t ours = 0, textbook = 0;
        for (int turn = 0; turn < 2; ++turn) {
            if ((turn == 0) == ourTurnFirst) {
                ours = Ours(m.m, jpeg, method, st);
            } else {
                const auto t0 = Clock::now();
                textbook = Textbook(jpeg, method);
                theirs.push_back(Ms(Clock::now() - t0));
            }
        }
        ourTurnFirst = !ourTurnFirst;
        if (ours == 0 || textbook == 0) {
            state.SkipWithError(ours == 0 ? "our capture failed" : "the textbook pipeline failed");
            break;
        }
        for (int i = 0; i < kStages; ++i) stages[i].push_back(st[i]);
    }
    for (int i = 0; i < kStages; ++i) state.counters[kStageNames[i]] = Median(stages[i]);
    state.counters["textbook_ms"] = Median(theirs);
    state.counters["ratio"] = Median(stages[kTotal]) / Median(theirs);
    state.counters["peak_MB"] = peaks.ours.first;
    state.counters["path_MB"] = peaks.ours.second;
    state.counters["textbook_path_MB"] = peaks.textbook.second;
}
BENCHMARK(WholeCapture)
    ->ArgName("method")
    ->Arg(0)
    ->Arg(5)
    ->Arg(3)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
