// Measures page detection on a folder of photographs with ground truth.
//
//   scrivo_eval_detect DIR [--json OUT] [--limit N] [--worst K] [--tag T]
//                      [--baseline] [--overlays OUTDIR]
//
// DIR/truth.json lists the photographs with their true page corners (see
// eval_metric.h for the score). Each photograph goes the way a capture does:
// its JPEG bytes are given to a capture session, which decodes them and
// creates the engine (timed as "decode"), and the session's page-vertex
// search is timed alone. The engine's corners are integer photograph pixels
// and are scored as they are against the continuous true corners.
//
// "Not found" is the session's own answer, and also the whole photograph's
// corners, which the engine gives for a photograph without a page; both
// score 0. A photograph tagged "empty" shows no page: there "not found"
// scores 1 and any quadrangle 0. A photograph that cannot be read or decoded
// scores 0 with a note and the run goes on. --tag keeps only the photographs with that tag,
// --limit the first N of those.
//
// --baseline also runs a plain Hough-line page scanner (hough_baseline.h)
// on the engine's own decoded pixels, after the engine's search, and scores
// and times it the same way: an anchor that tells how hard a set is for the
// textbook steps. --overlays writes OUTDIR/<photograph>.png for every
// photograph (the true quadrangle in green, ours in red, the baseline's in
// blue, with the scores) and OUTDIR/worst.png, the K worst by our score on
// one sheet.
//
// Prints, per tag and overall, the count, mean score, the shares at or above
// 0.90 and 0.95 and the minimum (with --baseline, then the baseline's mean,
// its share at or above 0.90 and our lead in mean score); then the K worst
// photographs (default 5); then the times per photograph (the baseline's
// too). --json writes every photograph's result (and the baseline's). Exit
// status: 0 after a run, 1 when the JSON file or a picture cannot be
// written, 2 for a usage error or an unreadable truth file.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "engine/client.h"
#include "eval_capture.h"
#include "eval_metric.h"
#include "eval_overlay.h"
#include "eval_png.h"
#include "hough_baseline.h"
#include "scrivo/codec.h"
#include "scrivo/session.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using scrivo_eval::Quad;

constexpr int kUsageError = 2;

struct Options {
    fs::path dir;
    std::string jsonOut;
    std::optional<size_t> limit;
    size_t worst = 5;
    std::string tag;
    bool baseline = false;
    std::string overlays;
};

struct Record {
    std::string file;
    int width = 0;
    int height = 0;
    Quad corners{};
    double pageW = 0.0;
    double pageH = 0.0;
    std::vector<std::string> tags;
    bool empty = false;  // no page in the photograph (tag "empty")
};

struct Result {
    const Record* record = nullptr;
    bool decoded = false;
    bool found = false;
    std::array<tagVPPoint, 4> detected{};
    double score = 0.0;
    bool mirrored = false;
    double decodeMs = 0.0;
    double detectMs = 0.0;
    std::string note;
    // The Hough-line scanner on the same pixels (with --baseline).
    bool baseFound = false;
    Quad baseQuad{};
    double baseScore = 0.0;
    double baseMs = 0.0;
    cv::Mat overlay;  // with --overlays
};

Quad ReadCorners(const json& j) {
    if (!j.is_array() || j.size() != 4) throw std::runtime_error("corners: want 4 points");
    Quad q;
    for (size_t i = 0; i < 4; ++i) {
        const json& p = j[i];
        if (!p.is_array() || p.size() != 2 || !p[0].is_number() || !p[1].is_number())
            throw std::runtime_error("corners: want [x, y] pairs");
        q[i] = cv::Point2d(p[0].get<double>(), p[1].get<double>());
    }
    return q;
}

// Throws with a readable message on anything missing or malformed.
std::vector<Record> ReadTruth(const fs::path& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    const json doc = json::parse(in);
    const json& images = doc.at("images");
    if (!images.is_array()) throw std::runtime_error("\"images\" is not a list");
    std::vector<Record> records;
    for (size_t i = 0; i < images.size(); ++i) {
        const json& r = images[i];
        try {
            Record rec;
            rec.file = r.at("file").get<std::string>();
            rec.width = r.at("width").get<int>();
            rec.height = r.at("height").get<int>();
            rec.corners = ReadCorners(r.at("corners"));
            const json& size = r.at("page_size");
            if (!size.is_array() || size.size() != 2)
                throw std::runtime_error("page_size: want [w, h]");
            rec.pageW = size[0].get<double>();
            rec.pageH = size[1].get<double>();
            if (!(rec.pageW > 0 && rec.pageH > 0))
                throw std::runtime_error("page_size not positive");
            if (r.contains("tags")) rec.tags = r.at("tags").get<std::vector<std::string>>();
            rec.empty = std::find(rec.tags.begin(), rec.tags.end(), "empty") != rec.tags.end();
            records.push_back(std::move(rec));
        } catch (const std::exception& e) {
            throw std::runtime_error("record " + std::to_string(i) + ": " + e.what());
        }
    }
    return records;
}

double Since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// What one thread needs to run the capture path: the codec components and a
// session over them.
class Capture : public scrivo_eval::CaptureSession {
  public:
    Result Run(const Record& rec, const fs::path& dir, const Options& opt) {
        Result res;
        res.record = &rec;
        std::vector<uint8_t> bytes;
        if (!scrivo_eval::ReadFileBytes(dir / rec.file, bytes)) {
            res.note = "cannot read the file";
            return res;
        }
        if (bytes.empty() || bytes.size() > static_cast<size_t>(INT32_MAX)) {
            res.note = bytes.empty() ? "empty file" : "file too large";
            return res;
        }
        auto t0 = std::chrono::steady_clock::now();
        Engine engine{session_, QvSession_CreateEngine(session_, bytes.data(),
                                                       static_cast<int32_t>(bytes.size()))};
        res.decodeMs = Since(t0);
        if (engine.handle == nullptr) {
            res.note = "cannot decode the JPEG data";
            return res;
        }
        res.decoded = true;
        FindPage(engine.handle, rec, res);
        const cv::Mat& photo = engine.handle->source;
        if (opt.baseline) {
            t0 = std::chrono::steady_clock::now();
            const std::optional<Quad> quad = scrivo_eval::FindPageByHoughLines(photo);
            res.baseMs = Since(t0);
            if (quad) {
                res.baseFound = true;
                res.baseQuad = *quad;
                res.baseScore =
                    scrivo_eval::ScoreDetection(rec.corners, *quad, rec.pageW, rec.pageH).jaccard;
            }
        }
        if (rec.empty) {  // the right answer is no page
            res.score = res.found ? 0.0 : 1.0;
            res.baseScore = res.baseFound ? 0.0 : 1.0;
        }
        if (!opt.overlays.empty()) res.overlay = Overlay(photo, res, opt.baseline);
        return res;
    }

  private:
    // The engine's page-vertex search, timed and scored.
    void FindPage(VPHandle handle, const Record& rec, Result& res) {
        if (rec.empty) res.note = "no page in the photograph";
        std::array<tagVPPoint, 4> quad{};
        const auto t0 = std::chrono::steady_clock::now();
        const int32_t status = QvSession_FindPageVertex(session_, handle, quad.data(), 4);
        res.detectMs = Since(t0);
        if (status != QV_SESSION_OK) {
            res.note = "no page found";
            return;
        }
        if (IsWholeImageQuadrangle(quad.data(), rec.width, rec.height)) {
            res.note = "whole photograph (no page)";
            return;
        }
        res.found = true;
        res.detected = quad;
        const scrivo_eval::Score score =
            scrivo_eval::ScoreDetection(rec.corners, ToQuad(quad), rec.pageW, rec.pageH);
        res.score = score.jaccard;
        res.mirrored = score.mirrored;
        if (!score.problem.empty())
            res.note = score.problem;
        else if (score.mirrored)
            res.note = "corners in mirrored order";
    }

    static Quad ToQuad(const std::array<tagVPPoint, 4>& quad) {
        Quad q;
        for (int i = 0; i < 4; ++i) q[i] = cv::Point2d(quad[i].x, quad[i].y);
        return q;
    }

    // The photograph (R, G, B) with the truth in green, ours in red and the
    // baseline's corners in blue.
    static cv::Mat Overlay(const cv::Mat& photo, const Result& res, bool baseline) {
        char ours[64], base[64];
        std::snprintf(ours, sizeof ours, "ours %.4f%s", res.score, res.found ? "" : " (none)");
        std::snprintf(base, sizeof base, "baseline %.4f%s", res.baseScore,
                      res.baseFound ? "" : " (none)");
        const Quad detected = ToQuad(res.detected);
        std::vector<scrivo_eval::OverlayQuad> quads = {
            {&res.record->corners, cv::Scalar(0, 220, 0), "truth"},
            {res.found ? &detected : nullptr, cv::Scalar(255, 40, 40), ours}};
        if (baseline)
            quads.push_back(
                {res.baseFound ? &res.baseQuad : nullptr, cv::Scalar(60, 140, 255), base});
        return scrivo_eval::DrawOverlay(photo, res.record->file, quads);
    }

    struct Engine {
        QvSession* session;
        VPHandle handle;
        Engine(QvSession* s, VPHandle h) : session(s), handle(h) {}
        Engine(const Engine&) = delete;
        Engine& operator=(const Engine&) = delete;
        ~Engine() {
            if (handle != nullptr) QvSession_ReleaseEngine(session, handle);
        }
    };
};

struct Summary {
    size_t count = 0;
    double sum = 0.0;
    size_t at90 = 0;
    size_t at95 = 0;
    double min = 1.0;

    void Add(double s) {
        ++count;
        sum += s;
        if (s >= 0.90) ++at90;
        if (s >= 0.95) ++at95;
        min = std::min(min, s);
    }
    double Mean() const { return count ? sum / count : 0.0; }
    double Share(size_t n) const { return count ? 100.0 * n / count : 0.0; }
};

std::string JoinTags(const std::vector<std::string>& tags) {
    std::string out;
    for (const std::string& t : tags) out += (out.empty() ? "" : " ") + t;
    return out;
}

std::string FormatQuad(const Quad& q) {
    std::string out;
    char buf[64];
    for (const cv::Point2d& p : q) {
        std::snprintf(buf, sizeof buf, "%s(%.1f,%.1f)", out.empty() ? "" : " ", p.x, p.y);
        out += buf;
    }
    return out;
}

std::string FormatQuad(const std::array<tagVPPoint, 4>& q) {
    std::string out;
    char buf[64];
    for (const tagVPPoint& p : q) {
        std::snprintf(buf, sizeof buf, "%s(%d,%d)", out.empty() ? "" : " ", p.x, p.y);
        out += buf;
    }
    return out;
}

struct TimeStats {
    double median = 0.0;
    double mean = 0.0;
    double max = 0.0;
};

TimeStats Stats(std::vector<double> v) {
    TimeStats s;
    if (v.empty()) return s;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    s.median = n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    for (double x : v) s.mean += x;
    s.mean /= static_cast<double>(n);
    s.max = v.back();
    return s;
}

// The photographs from the lowest score of ours up (ties in run order).
std::vector<const Result*> WorstFirst(const std::vector<Result>& results) {
    std::vector<const Result*> order;
    for (const Result& r : results) order.push_back(&r);
    std::stable_sort(order.begin(), order.end(),
                     [](const Result* a, const Result* b) { return a->score < b->score; });
    return order;
}

// Our lead over the baseline in mean score, and a word for it; differences
// under half a hundredth are taken as even.
const char* Lead(double lead) {
    return lead >= 0.005 ? "ahead" : (lead <= -0.005 ? "behind" : "even");
}

void PrintReport(const std::vector<Result>& results, size_t worst, bool baseline) {
    struct Both {
        Summary ours, base;
        void Add(const Result& r) {
            ours.Add(r.score);
            base.Add(r.baseScore);
        }
    };
    Both all;
    std::map<std::string, Both> byTag;
    for (const Result& r : results) {
        all.Add(r);
        for (const std::string& t : r.record->tags) byTag[t].Add(r);
    }
    std::printf("%-18s %5s %7s %7s %7s %7s", "tag", "count", "mean", ">=0.90", ">=0.95", "min");
    if (baseline) std::printf("  %8s %7s %8s", "baseline", ">=0.90", "ahead");
    std::printf("\n");
    auto line = [baseline](const std::string& name, const Both& b) {
        const Summary& s = b.ours;
        std::printf("%-18s %5zu %7.4f %6.1f%% %6.1f%% %7.4f", name.c_str(), s.count, s.Mean(),
                    s.Share(s.at90), s.Share(s.at95), s.count ? s.min : 0.0);
        if (baseline) {
            const double lead = s.Mean() - b.base.Mean();
            std::printf("  %8.4f %6.1f%% %+8.4f %s", b.base.Mean(), b.base.Share(b.base.at90), lead,
                        Lead(lead));
        }
        std::printf("\n");
    };
    line("all", all);
    for (const auto& [tag, b] : byTag) line(tag, b);

    size_t notFound = 0, undecoded = 0, baseNotFound = 0;
    for (const Result& r : results) {
        if (!r.decoded)
            ++undecoded;
        else if (!r.found)
            ++notFound;
        if (r.decoded && !r.baseFound) ++baseNotFound;
    }
    std::printf("\nno page found: %zu of %zu", notFound, results.size());
    if (undecoded) std::printf("; not read or not decoded: %zu", undecoded);
    std::printf("\n");
    if (baseline)
        std::printf("baseline, no page found: %zu of %zu\n", baseNotFound, results.size());

    const std::vector<const Result*> order = WorstFirst(results);
    const size_t k = std::min(worst, order.size());
    if (k > 0) std::printf("\nworst %zu:\n", k);
    for (size_t i = 0; i < k; ++i) {
        const Result& r = *order[i];
        std::printf("  %-12s %.4f  [%s]%s%s\n", r.record->file.c_str(), r.score,
                    JoinTags(r.record->tags).c_str(), r.note.empty() ? "" : "  ", r.note.c_str());
        std::printf("    true     %s\n", FormatQuad(r.record->corners).c_str());
        if (r.found) std::printf("    detected %s\n", FormatQuad(r.detected).c_str());
        if (baseline && r.decoded) {
            std::printf("    baseline %s  %.4f\n",
                        r.baseFound ? FormatQuad(r.baseQuad).c_str() : "(none)", r.baseScore);
        }
    }

    std::vector<double> detect, decode, base;
    for (const Result& r : results) {
        if (!r.decoded) continue;
        detect.push_back(r.detectMs);
        decode.push_back(r.decodeMs);
        base.push_back(r.baseMs);
    }
    const TimeStats d = Stats(detect), j = Stats(decode), h = Stats(base);
    std::printf("\ntime per photograph (%zu decoded), ms:\n", detect.size());
    std::printf("  detection  median %8.2f  mean %8.2f  max %8.2f\n", d.median, d.mean, d.max);
    std::printf("  decode     median %8.2f  mean %8.2f  max %8.2f\n", j.median, j.mean, j.max);
    if (baseline)
        std::printf("  baseline   median %8.2f  mean %8.2f  max %8.2f\n", h.median, h.mean, h.max);
}

json QuadJson(const Quad& q) {
    json a = json::array();
    for (const cv::Point2d& p : q) a.push_back({p.x, p.y});
    return a;
}

bool WriteJson(const std::string& path, const fs::path& dir, const std::vector<Result>& results,
               bool baseline) {
    json images = json::array();
    for (const Result& r : results) {
        json j = {{"file", r.record->file},  {"tags", r.record->tags},
                  {"decoded", r.decoded},    {"found", r.found},
                  {"score", r.score},        {"truth", QuadJson(r.record->corners)},
                  {"decode_ms", r.decodeMs}, {"detect_ms", r.detectMs}};
        if (r.found) {
            json d = json::array();
            for (const tagVPPoint& p : r.detected) d.push_back({p.x, p.y});
            j["detected"] = std::move(d);
            j["mirrored"] = r.mirrored;
        } else {
            j["detected"] = nullptr;
        }
        if (!r.note.empty()) j["note"] = r.note;
        if (baseline && r.decoded) {
            j["baseline"] = {{"found", r.baseFound},
                             {"score", r.baseScore},
                             {"detect_ms", r.baseMs},
                             {"detected", r.baseFound ? QuadJson(r.baseQuad) : json(nullptr)}};
        }
        images.push_back(std::move(j));
    }
    const json doc = {{"dir", dir.string()}, {"count", results.size()}, {"images", images}};
    std::ofstream out(path);
    out << doc.dump(1) << '\n';
    out.close();
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    CLI::App app{"Page detection accuracy over a folder of photographs with truth.json",
                 "scrivo_eval_detect"};
    app.add_option("DIR", opt.dir, "folder with truth.json and the photographs it names")
        ->required();
    app.add_option("--json", opt.jsonOut, "write every photograph's result to this file");
    app.add_option("--limit", opt.limit, "only the first N photographs (after --tag)");
    app.add_option("--worst", opt.worst, "list the K lowest scores")->capture_default_str();
    app.add_option("--tag", opt.tag, "only the photographs with this tag (e.g. hard, bg:light)");
    app.add_flag("--baseline", opt.baseline,
                 "also score a plain Hough-line page scanner on the same photographs");
    app.add_option("--overlays", opt.overlays,
                   "write a picture of every detection and worst.png (the K worst) here");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kUsageError;
    }

    std::vector<Record> records;
    try {
        records = ReadTruth(opt.dir / "truth.json");
    } catch (const std::exception& e) {
        std::fprintf(stderr, "scrivo_eval_detect: %s: %s\n", (opt.dir / "truth.json").c_str(),
                     e.what());
        return kUsageError;
    }
    std::vector<const Record*> chosen;
    for (const Record& r : records) {
        if (opt.limit && chosen.size() >= *opt.limit) break;
        if (opt.tag.empty() || std::find(r.tags.begin(), r.tags.end(), opt.tag) != r.tags.end())
            chosen.push_back(&r);
    }

    Capture capture;
    if (!capture.ready()) {
        std::fprintf(stderr, "scrivo_eval_detect: cannot set up the codec components\n");
        return 1;
    }
    const fs::path overlays = opt.overlays;
    if (!overlays.empty()) {
        std::error_code ec;
        fs::create_directories(overlays, ec);
        if (ec) {
            std::fprintf(stderr, "scrivo_eval_detect: cannot make %s: %s\n", overlays.c_str(),
                         ec.message().c_str());
            return 1;
        }
    }
    bool written = true;
    auto writePng = [&written](const fs::path& path, const cv::Mat& img) {
        if (scrivo_eval::WritePng(path, img)) return;
        std::fprintf(stderr, "scrivo_eval_detect: cannot write %s\n", path.c_str());
        written = false;
    };
    std::printf("%zu photographs from %s%s%s\n\n", chosen.size(), opt.dir.c_str(),
                opt.tag.empty() ? "" : ", tag ", opt.tag.c_str());
    std::vector<Result> results;
    results.reserve(chosen.size());
    for (const Record* rec : chosen) {
        results.push_back(capture.Run(*rec, opt.dir, opt));
        const Result& r = results.back();
        if (!r.decoded)
            std::fprintf(stderr, "scrivo_eval_detect: %s: %s (scored 0)\n", rec->file.c_str(),
                         r.note.c_str());
        if (!r.overlay.empty())
            writePng(overlays / fs::path(rec->file).filename().replace_extension(".png"),
                     r.overlay);
    }
    PrintReport(results, opt.worst, opt.baseline);

    if (!overlays.empty()) {
        std::vector<cv::Mat> tiles;
        for (const Result* r : WorstFirst(results)) {
            if (tiles.size() >= opt.worst) break;
            if (!r->overlay.empty()) tiles.push_back(r->overlay);
        }
        if (!tiles.empty()) writePng(overlays / "worst.png", scrivo_eval::ContactSheet(tiles, 3));
    }
    if (!opt.jsonOut.empty() && !WriteJson(opt.jsonOut, opt.dir, results, opt.baseline)) {
        std::fprintf(stderr, "scrivo_eval_detect: cannot write %s\n", opt.jsonOut.c_str());
        return 1;
    }
    return written ? 0 : 1;
}
