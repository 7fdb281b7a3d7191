// The capture path of one photograph, on the session operations.
//
// A Worker is one thread's kit: a component manager with the JPEG
// components and a session over it. Sessions keep per-capture state (the
// photograph's EXIF block, the last size query), so each thread has its own
// and the batch runner never shares one between threads.
//
// Scan: read the file; reject bytes that are not a complete JPEG before
// the decoder sees them (InspectJpeg names the reason); create the engine;
// take the given corners (checked for convexity and bounds first, so the
// message says what is wrong) or the page the session finds, or the whole
// photograph when it finds none; query the rectified size. Method "none"
// then asks the session for rectified JPEG bytes in one step. For the
// enhanced methods the page is rectified into a plain memory bitmap
// (enhancement starts from the engine's rectified image, so the page has
// to be rectified, but encoding it would be wasted), and the session is
// asked for enhanced JPEG bytes; a method that produces no page is
// reported as not available rather than leaving a blank page behind. The
// page is written through a temporary file. The engine is released on
// every path by a guard; the session keeps nothing else between files.
//
// Coordinates: the session turns the photograph as its EXIF Orientation
// says, so its size, the corners (given, detected or drawn) and the page are
// those of the photograph as a viewer shows it; the frame header's size is
// only the stored one and is not used for them.
//
// Auto-rotate: the session's text-direction step answers with the corners
// that rectify the page upright and the turn they make; the size query,
// the rectified bitmap and the enhanced page then all agree on the turned
// size. A page whose direction cannot be told is left as it is.
//
// Verbose mode adds the tool's own timing lines for the stages the engine
// does not time (read file, detect, text direction, enhance + encode with
// EXIF, write, total) and the text-direction decision; the engine's own
// "QvNote performance native ..." lines come through the log sink.
#include "capture.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "console.h"
#include "input.h"
#include "overlay.h"

namespace scrivo_cli {

namespace {

class Stopwatch {
  public:
    double Lap() {
        const auto now = std::chrono::steady_clock::now();
        const double ms = std::chrono::duration<double, std::milli>(now - last_).count();
        last_ = now;
        return ms;
    }
    double Total() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_)
            .count();
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point last_ = start_;
};

// Releases the engine (and the session's EXIF copy) on every exit path.
struct EngineGuard {
    QvSession* session;
    VPHandle engine = nullptr;
    ~EngineGuard() {
        if (engine != nullptr) QvSession_ReleaseEngine(session, engine);
    }
};

struct SessionData {
    uint8_t* data = nullptr;
    int32_t length = 0;
    SessionData() = default;
    SessionData(const SessionData&) = delete;
    SessionData& operator=(const SessionData&) = delete;
    ~SessionData() { QvSession_FreeData(data); }
};

Quad WholePhotograph(int32_t w, int32_t h) {
    return Quad{{{0, 0}, {0, h}, {w, h}, {w, 0}}};
}

std::string FileLabel(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

const char* const kNotConvex =
    "corners not a convex quadrangle (order: top-left, bottom-left, bottom-right, top-right)";

// Reads, checks and decodes the photograph; fills the size and the engine.
bool OpenPhotograph(QvSession* session, const std::string& input, const std::string& label,
                    Stopwatch& watch, std::vector<uint8_t>& bytes, EngineGuard& guard,
                    Outcome& out) {
    if (!ReadWholeFile(input, bytes, out.error)) return false;
    Console::Get().Timing(label, "read file", watch.Lap());
    const JpegShape shape = InspectJpeg(bytes);
    if (!shape.problem.empty()) {
        out.error = shape.problem;
        return false;
    }
    if (!shape.warning.empty())
        Console::Get().Error("scrivo: " + input + ": warning: " + shape.warning);
    guard.engine =
        QvSession_CreateEngine(session, bytes.data(), static_cast<int32_t>(bytes.size()));
    if (guard.engine == nullptr || QvSession_GetPhotographSize(session, guard.engine, &out.width,
                                                               &out.height) != QV_SESSION_OK) {
        out.error = "cannot decode the JPEG data";
        return false;
    }
    watch.Lap();
    return true;
}

// Fills out.corners and out.found. False only for refused given corners.
bool ChooseCorners(QvSession* session, VPHandle engine, const ScanOptions* options,
                   const std::string& label, Stopwatch& watch, Outcome& out) {
    if (options != nullptr && options->cornersGiven) {
        out.corners = options->corners;
        for (const tagVPPoint& p : out.corners) {
            if (p.x < 0 || p.y < 0 || p.x > out.width || p.y > out.height) {
                out.error = "corners outside the photograph (" + std::to_string(out.width) + "x" +
                            std::to_string(out.height) + ")";
                return false;
            }
        }
        if (!IsConvexQuad(out.corners)) {
            out.error = kNotConvex;
            return false;
        }
        return true;
    }
    // No page leaves the whole photograph in place.
    out.corners = WholePhotograph(out.width, out.height);
    out.found = QvSession_FindPageVertex(session, engine, out.corners.data(), 4) == QV_SESSION_OK;
    Console::Get().Timing(label, "detect", watch.Lap());
    return true;
}

// Decides the text direction of the page within out.corners; returns the
// corners to rectify so that the page comes out upright and sets out.turn.
Quad UprightCorners(QvSession* session, VPHandle engine, const std::string& label, Stopwatch& watch,
                    Outcome& out) {
    Quad upright = out.corners;
    int32_t w = 0, h = 0;
    if (QvSession_DetectTextDirection(session, engine, out.corners.data(), 4, upright.data(),
                                      &out.turn, &w, &h) != QV_SESSION_OK) {
        out.turn = -1;  // nothing written: the page is left as it is
    }
    Console& console = Console::Get();
    console.Timing(label, "text direction", watch.Lap());
    if (console.verbose()) {
        console.Error("scrivo: " + label + ": text direction: " +
                      (out.turn < 0
                           ? std::string("cannot tell, page left as it is")
                           : "turn " + std::to_string(out.turn) + " clockwise, upright page " +
                                 std::to_string(w) + "x" + std::to_string(h)));
    }
    return upright;
}

}  // namespace

const char* MethodName(int32_t method) {
    static const char* const kNames[] = {"none", "color", "document", "grey", "economic"};
    return method >= 1 && method <= 5 ? kNames[method - 1] : "unknown";
}

bool IsConvexQuad(const Quad& q) {
    // In image coordinates (y down) the order TL, BL, BR, TR turns the same
    // way at every corner; its cross products are all negative.
    for (int i = 0; i < 4; ++i) {
        const tagVPPoint& a = q[i];
        const tagVPPoint& b = q[(i + 1) % 4];
        const tagVPPoint& c = q[(i + 2) % 4];
        const int64_t cross = int64_t{b.x - a.x} * (c.y - b.y) - int64_t{b.y - a.y} * (c.x - b.x);
        if (cross >= 0) return false;
    }
    return true;
}

Worker::Worker() {
    if (AMCM_Create(nullptr, &manager_) != MOK) {
        manager_ = nullptr;
        return;
    }
    if (MdRegisterJpegComponents(manager_) != MOK) return;
    session_ = QvSession_Create(manager_);
    QvSession_SetThumbnailMayGrow(session_, 1);  // a desktop: pages carry the full thumbnail
}

Worker::~Worker() {
    QvSession_Destroy(session_);
    if (manager_ != nullptr) AMCM_Destroy(manager_);
}

Outcome Worker::Scan(const std::string& input, const std::string& output,
                     const ScanOptions& options) {
    Outcome out;
    if (!ready()) {
        out.error = "cannot set up the codec components";
        return out;
    }
    const std::string label = FileLabel(input);
    Console& console = Console::Get();
    Stopwatch watch;
    std::vector<uint8_t> bytes;
    EngineGuard guard{session_};
    if (!OpenPhotograph(session_, input, label, watch, bytes, guard, out)) return out;
    bytes = std::vector<uint8_t>();  // the engine has its own copy of the pixels
    if (!ChooseCorners(session_, guard.engine, &options, label, watch, out)) return out;
    Quad corners = out.corners;
    if (options.autoRotate) corners = UprightCorners(session_, guard.engine, label, watch, out);

    const int32_t sized = QvSession_GetRectifiedImageSize(session_, guard.engine, corners.data(), 4,
                                                          &out.pageWidth, &out.pageHeight);
    if (sized != QV_SESSION_OK) {
        // Given corners were checked for order above, so a refusal of them
        // is a page too small; the whole photograph is refused only when it
        // is that small itself.
        const std::string smallest = std::to_string(VP_SMALLEST_PAGE);
        if (!options.cornersGiven && !out.found)
            out.error = "image too small";
        else if (sized == QV_SESSION_TOO_SMALL)
            out.error = std::string(options.cornersGiven ? "corners" : "detected corners") +
                        " give a page too small to make (the smallest page is " + smallest + "x" +
                        smallest + " pixels)";
        else if (options.cornersGiven)
            out.error = kNotConvex;
        else
            out.error = "the detected corners cannot be sized";
        return out;
    }
    QvSession_SetJpegQuality(session_, options.quality);
    SessionData page;
    if (options.method == VP_ENHANCE_NONE) {
        if (QvSession_GetRectifiedImageData(session_, guard.engine, corners.data(), 4, &page.data,
                                            &page.length) != QV_SESSION_OK) {
            out.error = "rectification or encoding failed";
            return out;
        }
        console.Timing(label, "rectify + encode with EXIF", watch.Lap());
    } else {
        // Only the enhanced page is written: the page is rectified into the
        // engine alone, with no bitmap to hold it a second time.
        if (QvSession_Rectify(session_, guard.engine, corners.data(), 4) != QV_SESSION_OK) {
            out.error = "rectification failed";
            return out;
        }
        // No other corners will be tried: the photograph goes too.
        QvSession_ReleasePhotograph(session_, guard.engine);
        console.Timing(label, "rectify", watch.Lap());
        const int32_t got = QvSession_GetEnhancedImageData(session_, guard.engine, options.method,
                                                           &page.data, &page.length);
        console.Timing(label, "enhance + encode with EXIF", watch.Lap());
        if (got == QV_SESSION_FAILED) {
            out.error =
                std::string("enhancement '") + MethodName(options.method) + "' is not available";
            return out;
        }
        if (got != QV_SESSION_OK) {
            out.error = "enhancement or encoding failed";
            return out;
        }
    }
    if (!WriteOutput(output, page.data, static_cast<size_t>(page.length), out.error)) return out;
    console.Timing(label, "write", watch.Lap());
    console.Timing(label, "total", watch.Total());
    out.ok = true;
    return out;
}

Outcome Worker::Detect(const std::string& input, const std::string& overlay) {
    Outcome out;
    if (!ready()) {
        out.error = "cannot set up the codec components";
        return out;
    }
    const std::string label = FileLabel(input);
    Stopwatch watch;
    std::vector<uint8_t> bytes;
    EngineGuard guard{session_};
    if (!OpenPhotograph(session_, input, label, watch, bytes, guard, out)) return out;
    bytes = std::vector<uint8_t>();  // the overlay draws on the engine's photograph
    ChooseCorners(session_, guard.engine, nullptr, label, watch, out);
    if (!overlay.empty()) {
        if (!WriteOverlay(manager_, session_, guard.engine, out.width, out.height, out.corners,
                          out.found, overlay, out.error))
            return out;
        Console::Get().Timing(label, "overlay", watch.Lap());
    }
    Console::Get().Timing(label, "total", watch.Total());
    out.ok = true;
    return out;
}

}  // namespace scrivo_cli
