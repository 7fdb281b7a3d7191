// Measures the enhancement renderings on flat pages or photographs.
//
//   scrivo_eval_enhance (--pages DIR | --photos DIR) [--methods 1,2,4,5]
//                       [--limit N] [--ocr] [--tesseract CMD] [--json OUT]
//                       [--dump DIR]
//
// --pages reads what make_pages.py writes: flat pages under uneven light
// (binary PPM, bytes R,G,B) with their true paper masks. --photos reads a
// folder of photographs with truth.json in the shared format: each goes the
// way a capture does (its JPEG bytes to a capture session, which decodes
// them and creates the engine) and is rectified by the engine with its TRUE
// corners, rounded to the engine's integer pixels, so that detection plays
// no part. There is no true paper mask then; it is estimated from the plain
// page (see eval_paper.h) and the report says so.
//
// Every page is rendered by EnhanceImage once per method (timed), and the
// rendering measured over the paper pixels: the share that is white (the
// engine's luma 255), the 5-95 % range of the grey and its mean. With --ocr
// the rendering's grey also goes to Tesseract (one thread, page layout
// analysis, told the page's resolution) and its text is scored against the
// printed lines by the character error rate (eval_text.h). A method that
// gives no image is reported as "no rendering"; method 1, the plain page,
// is the reference the others are read against.
//
// Pixels go to the engine as the files hold them: PPM bytes R,G,B, as the
// capture path's decoded photographs are too. --dump writes each rendering
// as NAME.mM.ppm, or .pgm when its three channels agree everywhere.
//
// Exit status: 0 after a run, 1 when the JSON file cannot be written or the
// codec cannot be set up, 2 for a usage error, an unreadable truth file or
// --ocr without a working Tesseract.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "engine/client.h"
#include "eval_capture.h"
#include "eval_paper.h"
#include "eval_pnm.h"
#include "eval_text.h"
#include "scrivo/codec.h"
#include "scrivo/engine.h"
#include "scrivo/session.h"
#include "vision/enhance/enhance.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using scrivo_eval::PaperStats;
using scrivo_eval::ReadPnm;
using scrivo_eval::WritePnm;

constexpr int kUsageError = 2;
constexpr const char* kTool = "scrivo_eval_enhance";

struct Options {
    fs::path pages;
    fs::path photos;
    std::vector<int> methods = {1, 2, 4, 5};
    std::optional<size_t> limit;
    bool ocr = false;
    std::string tesseract = "tesseract";
    std::string jsonOut;
    fs::path dump;
};

const char* MethodName(int method) {
    switch (method) {
        case VP_ENHANCE_NONE:
            return "plain";
        case VP_ENHANCE_COLOR:
            return "colour";
        case VP_ENHANCE_DOCUMENT:
            return "document";
        case VP_ENHANCE_GREY:
            return "grey";
        case VP_ENHANCE_ECONOMIC:
            return "ink-saving";
        default:
            return "?";
    }
}

// One page to render: a flat page with its mask, or a photograph with its
// true corners.
struct Record {
    std::string file;
    std::string mask;  // flat pages only
    std::vector<std::string> text;
    std::vector<std::string> tags;
    double dpi = 0.0;  // of the flat page; 0 when not known
    std::array<tagVPPoint, 4> corners{};
    double pageW = 0.0;  // photographs: the flat page's size in its own pixels
};

// ---------------------------------------------------------------------------
// Truth files

std::vector<std::string> Strings(const json& r, const char* key) {
    if (!r.contains(key)) return {};
    return r.at(key).get<std::vector<std::string>>();
}

std::vector<Record> ReadList(const fs::path& path, const char* listKey,
                             void (*read)(const json&, Record&)) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot open the file");
    const json doc = json::parse(in);
    const json& list = doc.at(listKey);
    if (!list.is_array())
        throw std::runtime_error(std::string("\"") + listKey + "\" is not a list");
    std::vector<Record> records;
    for (size_t i = 0; i < list.size(); ++i) {
        try {
            Record rec;
            rec.file = list[i].at("file").get<std::string>();
            rec.text = Strings(list[i], "text");
            rec.tags = Strings(list[i], "tags");
            read(list[i], rec);
            records.push_back(std::move(rec));
        } catch (const std::exception& e) {
            throw std::runtime_error("record " + std::to_string(i) + ": " + e.what());
        }
    }
    return records;
}

void ReadPageFields(const json& r, Record& rec) {
    rec.mask = r.at("mask").get<std::string>();
    if (r.contains("dpi")) rec.dpi = r.at("dpi").get<double>();
}

// Corners are continuous pixels; the engine takes the nearest integers.
void ReadPhotoFields(const json& r, Record& rec) {
    const json& c = r.at("corners");
    if (!c.is_array() || c.size() != 4) throw std::runtime_error("corners: want 4 points");
    for (size_t i = 0; i < 4; ++i) {
        if (!c[i].is_array() || c[i].size() != 2) throw std::runtime_error("corners: want [x, y]");
        rec.corners[i] = tagVPPoint{static_cast<int32_t>(std::lround(c[i][0].get<double>())),
                                    static_cast<int32_t>(std::lround(c[i][1].get<double>()))};
    }
    rec.pageW = r.at("page_size").at(0).get<double>();
    if (r.contains("page") && r.at("page").contains("dpi"))
        rec.dpi = r.at("page").at("dpi").get<double>();
}

// A three-channel image whose channels agree everywhere, as one channel.
cv::Mat GreyIfNeutral(const cv::Mat& img) {
    if (img.type() != CV_8UC3) return img;
    cv::Mat grey(img.size(), CV_8UC1);
    for (int y = 0; y < img.rows; ++y) {
        const uint8_t* p = img.ptr<uint8_t>(y);
        uint8_t* g = grey.ptr<uint8_t>(y);
        for (int x = 0; x < img.cols; ++x, p += 3) {
            if (p[0] != p[1] || p[0] != p[2]) return img;
            g[x] = p[0];
        }
    }
    return grey;
}

// ---------------------------------------------------------------------------
// Photographs: decoded by a capture session, rectified by the engine

class Capture : public scrivo_eval::CaptureSession {
  public:
    // The rectified page, or an empty image with the reason in note.
    cv::Mat Rectify(const Record& rec, const fs::path& dir, std::string& note) {
        std::vector<uint8_t> bytes;
        if (!scrivo_eval::ReadFileBytes(dir / rec.file, bytes) || bytes.empty() ||
            bytes.size() > static_cast<size_t>(INT32_MAX)) {
            note = "cannot read the file";
            return cv::Mat();
        }
        VPHandle engine =
            QvSession_CreateEngine(session_, bytes.data(), static_cast<int32_t>(bytes.size()));
        if (engine == nullptr) {
            note = "cannot decode the JPEG data";
            return cv::Mat();
        }
        std::array<tagVPPoint, 4> quad = rec.corners;
        // A record without pixels receives no copy: the page is taken from
        // the engine's own rectified image.
        tagVPImage record{VP_FORMAT_RGB, 3, 8, 0, 0, 0, nullptr};
        tagVPImage* out = &record;
        cv::Mat page;
        if (VPRectifyVertexArea(engine, quad.data(), &out) == 1)
            page = engine->rectifiedImage;  // shared: outlives the engine
        else
            note = "the engine refused the true corners";
        QvSession_ReleaseEngine(session_, engine);
        return page;
    }
};

// ---------------------------------------------------------------------------
// Tesseract

std::string ShellQuote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell command: its standard output, or nothing when it fails.
std::optional<std::string> RunCommand(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return std::nullopt;
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
    const int status = pclose(pipe);
    if (status != 0) return std::nullopt;
    return out;
}

// A scratch folder, removed with everything in it.
class TempDir {
  public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "scrivo_eval_enhance.XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const fs::path& path() const { return path_; }

  private:
    fs::path path_;
};

class Ocr {
  public:
    explicit Ocr(std::string command) : command_(std::move(command)) {}

    // The first line of the version text, or empty when it does not run.
    std::string Version() const {
        const auto out = RunCommand(ShellQuote(command_) + " --version 2>&1");
        if (!out) return "";
        return out->substr(0, out->find('\n'));
    }
    bool ready() const { return !scratch_.path().empty(); }

    // One thread: the recogniser's threads cost more than they give on a
    // small shared machine, and the pages are measured one after another.
    std::optional<std::string> Read(const cv::Mat& grey, double dpi) const {
        const fs::path in = scratch_.path() / "page.pgm";
        if (!WritePnm(in, grey)) return std::nullopt;
        std::string cmd = "OMP_THREAD_LIMIT=1 " + ShellQuote(command_) + " " +
                          ShellQuote(in.string()) + " stdout --psm 3";
        if (dpi >= 70) cmd += " --dpi " + std::to_string(std::lround(dpi));
        cmd += " 2>/dev/null";
        return RunCommand(cmd);
    }

  private:
    std::string command_;
    TempDir scratch_;
};

// ---------------------------------------------------------------------------
// Measuring

struct Rendering {
    int method = 0;
    bool rendered = false;
    bool measured = false;
    double ms = 0.0;
    PaperStats paper;
    scrivo_eval::HueStats hue;
    std::optional<double> cer;
    std::string note;
};

struct PageResult {
    const Record* record = nullptr;
    bool loaded = false;
    int width = 0;
    int height = 0;
    size_t paperPixels = 0;
    std::string note;
    std::vector<Rendering> renderings;
};

double Since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

std::string Stem(const std::string& file) {
    return fs::path(file).stem().string();
}

Rendering Render(const cv::Mat& page, const cv::Mat& mask, int method, const Record& rec,
                 double dpi, const Ocr* ocr, const fs::path& dump) {
    Rendering r;
    r.method = method;
    cv::Mat out;
    const auto t0 = std::chrono::steady_clock::now();
    try {
        out = EnhanceImage(page, method, nullptr);
    } catch (const std::exception& e) {
        r.note = std::string("the rendering threw: ") + e.what();
        std::fprintf(stderr, "%s: %s, method %d: %s\n", kTool, rec.file.c_str(), method,
                     r.note.c_str());
        return r;
    }
    r.ms = Since(t0);
    if (out.empty()) {
        r.note = "no rendering";
        return r;
    }
    r.rendered = true;
    if (out.depth() != CV_8U || (out.channels() != 1 && out.channels() != 3)) {
        r.note = "not an 8-bit grey or colour image";
        return r;
    }
    if (!dump.empty()) {
        const cv::Mat shown = GreyIfNeutral(out);
        const fs::path file = dump / (Stem(rec.file) + ".m" + std::to_string(method) +
                                      (shown.channels() == 1 ? ".pgm" : ".ppm"));
        if (!WritePnm(file, shown))
            std::fprintf(stderr, "%s: cannot write %s\n", kTool, file.c_str());
    }
    const cv::Mat grey = scrivo_eval::EngineGrey(out);
    if (grey.size() != mask.size()) {
        r.note = "rendering of another size";
        return r;
    }
    r.measured = true;
    r.paper = scrivo_eval::MeasurePaper(grey, mask);
    r.hue = scrivo_eval::MeasureHue(page, out);
    if (ocr != nullptr) {
        const auto text = ocr->Read(grey, dpi);
        if (!text)
            r.note = "Tesseract failed";
        else
            r.cer = scrivo_eval::CharacterErrorRate(rec.text, *text);
    }
    return r;
}

// ---------------------------------------------------------------------------
// Report

double Median(std::vector<double> v) {
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

double Mean(const std::vector<double>& v) {
    double s = 0.0;
    for (double x : v) s += x;
    return v.empty() ? 0.0 : s / static_cast<double>(v.size());
}

struct MethodSummary {
    int method = 0;
    size_t pages = 0;     // pages loaded
    size_t rendered = 0;  // pages the method gave an image for
    std::vector<double> white, spread, mean, cer, ms, hue, lost;
};

std::vector<MethodSummary> Summarise(const std::vector<PageResult>& results,
                                     const std::vector<int>& methods) {
    std::vector<MethodSummary> out;
    for (size_t i = 0; i < methods.size(); ++i) {
        MethodSummary s;
        s.method = methods[i];
        for (const PageResult& p : results) {
            if (!p.loaded) continue;
            ++s.pages;
            const Rendering& r = p.renderings[i];
            if (!r.rendered) continue;
            ++s.rendered;
            s.ms.push_back(r.ms);
            if (r.measured && r.paper.pixels > 0) {
                s.white.push_back(r.paper.white);
                s.spread.push_back(r.paper.Spread());
                s.mean.push_back(r.paper.mean);
            }
            if (r.measured && r.hue.pixels >= 200) {
                s.hue.push_back(r.hue.shiftDeg);
                s.lost.push_back(r.hue.lost);
            }
            if (r.cer) s.cer.push_back(*r.cer);
        }
        out.push_back(std::move(s));
    }
    return out;
}

void PrintReport(const std::vector<MethodSummary>& summary, bool ocr) {
    std::printf("%-14s %7s %7s %7s %7s %7s %7s %9s %6s %6s\n", "method", "pages", "white%", "min%",
                "spread", "paper", "CER", "ms", "hue", "lost%");
    for (const MethodSummary& s : summary) {
        char name[32], pages[32];
        std::snprintf(name, sizeof name, "%d %s", s.method, MethodName(s.method));
        std::snprintf(pages, sizeof pages, "%zu/%zu", s.rendered, s.pages);
        if (s.rendered == 0) {
            std::printf("%-14s %7s   no rendering\n", name, pages);
            continue;
        }
        std::printf("%-14s %7s", name, pages);
        if (s.white.empty()) {
            std::printf(" %7s %7s %7s %7s", "-", "-", "-", "-");
        } else {
            std::printf(" %7.2f %7.2f %7.1f %7.1f", 100.0 * Mean(s.white),
                        100.0 * *std::min_element(s.white.begin(), s.white.end()), Median(s.spread),
                        Mean(s.mean));
        }
        if (ocr && !s.cer.empty())
            std::printf(" %7.4f", Mean(s.cer));
        else
            std::printf(" %7s", "-");
        std::printf(" %9.1f", Median(s.ms));
        if (s.hue.empty())
            std::printf(" %6s %6s\n", "-", "-");
        else
            std::printf(" %6.1f %6.1f\n", Median(s.hue), 100.0 * Mean(s.lost));
    }
    std::printf(
        "\nwhite%%: share of paper pixels at 255 (mean, min over pages); spread: median 5-95 %% "
        "range\nof the paper's grey; paper: mean paper grey; CER: mean character error rate; ms: "
        "median\ntime of the rendering; hue: median over pages of the median hue shift (degrees) "
        "of "
        "the\nplain page's colour marks, lost%%: mean share of them left grey (pages with 200 or "
        "more\nmark pixels, colour renderings only).\n");
}

json RenderingJson(const Rendering& r) {
    json j = {{"method", r.method}, {"rendered", r.rendered}, {"ms", r.ms}};
    if (r.measured) {
        j["paper_pixels"] = r.paper.pixels;
        j["white"] = r.paper.white;
        j["p05"] = r.paper.p05;
        j["p95"] = r.paper.p95;
        j["spread"] = r.paper.Spread();
        j["paper_mean"] = r.paper.mean;
        j["hue_pixels"] = r.hue.pixels;
        j["hue_shift_deg"] = r.hue.shiftDeg;
        j["hue_lost"] = r.hue.lost;
    }
    if (r.cer) j["cer"] = *r.cer;
    if (!r.note.empty()) j["note"] = r.note;
    return j;
}

bool WriteJson(const std::string& path, const Options& opt, bool photos,
               const std::vector<PageResult>& results, const std::vector<MethodSummary>& summary) {
    json pages = json::array();
    for (const PageResult& p : results) {
        json j = {{"file", p.record->file}, {"tags", p.record->tags}, {"loaded", p.loaded}};
        if (p.loaded) {
            j["width"] = p.width;
            j["height"] = p.height;
            j["paper_pixels"] = p.paperPixels;
            json rs = json::array();
            for (const Rendering& r : p.renderings) rs.push_back(RenderingJson(r));
            j["renderings"] = std::move(rs);
        }
        if (!p.note.empty()) j["note"] = p.note;
        pages.push_back(std::move(j));
    }
    json methods = json::array();
    for (const MethodSummary& s : summary) {
        json m = {{"method", s.method},
                  {"name", MethodName(s.method)},
                  {"pages", s.pages},
                  {"rendered", s.rendered}};
        if (!s.white.empty()) {
            m["white_mean"] = Mean(s.white);
            m["white_min"] = *std::min_element(s.white.begin(), s.white.end());
            m["spread_median"] = Median(s.spread);
            m["paper_mean"] = Mean(s.mean);
        }
        if (!s.cer.empty()) m["cer_mean"] = Mean(s.cer);
        if (!s.ms.empty()) m["ms_median"] = Median(s.ms);
        methods.push_back(std::move(m));
    }
    const json doc = {{"dir", (photos ? opt.photos : opt.pages).string()},
                      {"input", photos ? "photos" : "pages"},
                      {"paper_mask", photos ? "estimated" : "true"},
                      {"ocr", opt.ocr},
                      {"methods", methods},
                      {"pages", pages}};
    std::ofstream out(path);
    out << doc.dump(1) << '\n';
    out.close();
    return static_cast<bool>(out);
}

std::string JoinMethods(const std::vector<int>& methods) {
    std::string s;
    for (int m : methods) s += (s.empty() ? "" : ",") + std::to_string(m);
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    CLI::App app{"Whiteness, evenness and legibility of the enhancement renderings", kTool};
    auto* input = app.add_option_group("input", "what to render (one of them)");
    input->add_option("--pages", opt.pages, "folder written by make_pages.py");
    input->add_option("--photos", opt.photos, "folder of photographs with truth.json");
    input->require_option(1);
    app.add_option("--methods", opt.methods, "methods to render, e.g. 1,2,4,5")
        ->delimiter(',')
        ->check(CLI::Range(1, 5))
        ->capture_default_str();
    app.add_option("--limit", opt.limit, "only the first N pages");
    app.add_flag("--ocr", opt.ocr, "read each rendering with Tesseract and score its text");
    app.add_option("--tesseract", opt.tesseract, "the Tesseract command")->capture_default_str();
    app.add_option("--json", opt.jsonOut, "write every page's results to this file");
    app.add_option("--dump", opt.dump, "write every rendering into this folder");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kUsageError;
    }
    if (opt.methods.empty()) {
        std::fprintf(stderr, "%s: --methods: no method given\n", kTool);
        return kUsageError;
    }
    const bool photos = !opt.photos.empty();
    const fs::path dir = photos ? opt.photos : opt.pages;

    std::vector<Record> records;
    try {
        records = photos ? ReadList(dir / "truth.json", "images", ReadPhotoFields)
                         : ReadList(dir / "truth.json", "pages", ReadPageFields);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s: %s\n", kTool, (dir / "truth.json").c_str(), e.what());
        return kUsageError;
    }
    if (opt.limit && records.size() > *opt.limit) records.resize(*opt.limit);

    std::optional<Ocr> ocr;
    std::string ocrVersion;
    if (opt.ocr) {
        ocr.emplace(opt.tesseract);
        ocrVersion = ocr->Version();
        if (ocrVersion.empty() || !ocr->ready()) {
            std::fprintf(stderr, "%s: --ocr: cannot run '%s' (or make a scratch folder)\n", kTool,
                         opt.tesseract.c_str());
            return kUsageError;
        }
    }
    if (!opt.dump.empty()) {
        std::error_code ec;
        fs::create_directories(opt.dump, ec);
        if (ec) {
            std::fprintf(stderr, "%s: --dump: cannot make %s\n", kTool, opt.dump.c_str());
            return kUsageError;
        }
    }
    std::optional<Capture> capture;
    if (!scrivo_eval::OpenCapture(photos, capture, kTool)) return 1;

    std::printf("%zu %s from %s; paper: %s; methods %s%s%s\n\n", records.size(),
                photos ? "photographs" : "pages", dir.c_str(),
                photos ? "estimated from the plain page" : "true mask",
                JoinMethods(opt.methods).c_str(), opt.ocr ? "; OCR: " : "", ocrVersion.c_str());

    std::vector<PageResult> results;
    results.reserve(records.size());
    for (const Record& rec : records) {
        PageResult res;
        res.record = &rec;
        cv::Mat page, mask;
        double dpi = rec.dpi;
        try {
            if (photos) {
                page = capture->Rectify(rec, dir, res.note);
                if (!page.empty()) {
                    mask = scrivo_eval::EstimatePaperMask(page);
                    // The rectified page is about the flat page's size, seldom exactly.
                    if (rec.pageW > 0) dpi *= page.cols / rec.pageW;
                }
            } else {
                page = ReadPnm(dir / rec.file);
                cv::Mat m = ReadPnm(dir / rec.mask);
                if (page.type() != CV_8UC3 || m.type() != CV_8UC1 || m.size() != page.size())
                    throw std::runtime_error("want a PPM page and a PGM mask of its size");
                cv::compare(m, 127, mask, cv::CMP_GT);
            }
        } catch (const std::exception& e) {
            res.note = e.what();
            page.release();
        }
        if (page.empty()) {
            std::fprintf(stderr, "%s: %s: %s (skipped)\n", kTool, rec.file.c_str(),
                         res.note.c_str());
            results.push_back(std::move(res));
            continue;
        }
        res.loaded = true;
        res.width = page.cols;
        res.height = page.rows;
        res.paperPixels = static_cast<size_t>(cv::countNonZero(mask));
        for (int method : opt.methods)
            res.renderings.push_back(
                Render(page, mask, method, rec, dpi, ocr ? &*ocr : nullptr, opt.dump));
        std::fprintf(stderr, "%s %dx%d, paper %.0f%%\n", rec.file.c_str(), page.cols, page.rows,
                     100.0 * static_cast<double>(res.paperPixels) / page.total());
        results.push_back(std::move(res));
    }

    const std::vector<MethodSummary> summary = Summarise(results, opt.methods);
    PrintReport(summary, opt.ocr);
    if (!opt.jsonOut.empty() && !WriteJson(opt.jsonOut, opt, photos, results, summary)) {
        std::fprintf(stderr, "%s: cannot write %s\n", kTool, opt.jsonOut.c_str());
        return 1;
    }
    return 0;
}
