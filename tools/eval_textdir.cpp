// Measures the text-direction decision on upright pages turned four ways.
//
//   scrivo_eval_textdir (--pages DIR | --photos DIR) [--limit N]
//                       [--via-quadrangle | --via-search] [--tilt DEG]
//                       [--json OUT] [--list]
//
// --pages reads what make_pages.py writes (binary PPM pages, bytes R,G,B,
// with truth.json); --photos reads a folder of photographs with truth.json
// in the shared format, each decoded by a capture session and rectified by
// the engine with its TRUE corners (rounded to integer pixels), so that
// detection plays no part. Every page is upright; it is turned 0, 90, 180
// and 270 degrees clockwise and each turned page goes to the decision, whose
// answer should be the turn back: 0, 270, 180 and 90.
//
// With --via-quadrangle (photographs only) the page is not turned as an
// image: the true corners are handed to the given-quadrangle rectification
// in the four cyclic orders, each of which presents the page turned by a
// quarter more, and the answer is read from the decision it reports. Its
// output quadrangle must then be the true corners in their true order; a
// disagreement is counted.
//
// --tilt turns every page (flat or rectified) by a few degrees before the
// quarter turns, as corners placed a little off or print set askew would,
// filling the corners it uncovers with the page's mean colour (not with
// --via-quadrangle or --via-search).
//
// With --via-search (photographs only) the photograph itself is turned and
// handed to the page-search rectification, so that the engine's own page
// detection finds the page first; pages it does not find are counted.
//
// The report: the confusion table (true turn against decided turn, with a
// "cannot tell" column), the share of (page, turn) pairs whose lines' axis
// was right (horizontal against vertical: the decided turn has the true
// turn's parity) and whose full orientation was right, the same for the
// decisions that were sure, per page kind, the time per decision, and the
// pairs that went wrong. Exit status: 0 after a run, 1 when the JSON file
// cannot be written or the codec cannot be set up, 2 for a usage error or
// an unreadable truth file.
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
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/client.h"
#include "eval_capture.h"
#include "eval_pnm.h"
#include "scrivo/codec.h"
#include "scrivo/engine.h"
#include "scrivo/session.h"
#include "vision/textdir/textdir.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kUsageError = 2;
constexpr const char* kTool = "scrivo_eval_textdir";
constexpr int kCannotTell = 4;  // column of the confusion table

struct Options {
    fs::path pages;
    fs::path photos;
    std::optional<size_t> limit;
    bool viaQuadrangle = false;
    bool viaSearch = false;
    bool list = false;
    double tilt = 0.0;
    std::string jsonOut;
};

struct Record {
    std::string file;
    std::string kind = "other";  // page:KIND tag without the prefix
    std::array<tagVPPoint, 4> corners{};
};

std::vector<Record> ReadTruth(const fs::path& path, bool photos) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot open the file");
    const json doc = json::parse(in);
    const json& list = doc.at(photos ? "images" : "pages");
    if (!list.is_array()) throw std::runtime_error("the record list is not a list");
    std::vector<Record> records;
    for (size_t i = 0; i < list.size(); ++i) {
        try {
            Record rec;
            rec.file = list[i].at("file").get<std::string>();
            if (list[i].contains("tags")) {
                for (const auto& t : list[i].at("tags")) {
                    const std::string tag = t.get<std::string>();
                    if (tag.rfind("page:", 0) == 0) rec.kind = tag.substr(5);
                }
            }
            if (photos) {
                const json& c = list[i].at("corners");
                if (!c.is_array() || c.size() != 4)
                    throw std::runtime_error("corners: want 4 points");
                for (size_t k = 0; k < 4; ++k) {
                    rec.corners[k] = {static_cast<int32_t>(std::lround(c[k].at(0).get<double>())),
                                      static_cast<int32_t>(std::lround(c[k].at(1).get<double>()))};
                }
            }
            records.push_back(std::move(rec));
        } catch (const std::exception& e) {
            throw std::runtime_error("record " + std::to_string(i) + ": " + e.what());
        }
    }
    return records;
}

// Photographs decoded the way a capture decodes them.
class Capture : public scrivo_eval::CaptureSession {
  public:
    // The engine's working copy of the photograph and, unless only that is
    // wanted, its page rectified with the true corners.
    bool Open(const fs::path& path, const Record& rec, bool rectify, cv::Mat* photo, cv::Mat* page,
              std::string& note) {
        std::ifstream in(path, std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        if (bytes.empty() || bytes.size() > static_cast<size_t>(INT32_MAX)) {
            note = "cannot read the file";
            return false;
        }
        VPHandle engine =
            QvSession_CreateEngine(session_, bytes.data(), static_cast<int32_t>(bytes.size()));
        if (engine == nullptr) {
            note = "cannot decode the JPEG data";
            return false;
        }
        *photo = engine->source;
        bool ok = true;
        if (rectify) {
            std::array<tagVPPoint, 4> quad = rec.corners;
            tagVPImage record{VP_FORMAT_RGB, 3, 8, 0, 0, 0, nullptr};
            tagVPImage* out = &record;
            ok = VPRectifyVertexArea(engine, quad.data(), &out) == 1;
            if (ok) *page = engine->rectifiedImage;
            if (!ok) note = "the engine refused the true corners";
        }
        QvSession_ReleaseEngine(session_, engine);
        return ok;
    }
};

struct Trial {
    int truth = 0;    // turn that makes the presented page upright
    int decided = 0;  // 0..3, or kCannotTell
    TextDirection d;
    double ms = 0.0;
    bool quadrangleAgrees = true;
    bool pageFound = true;
};

struct PageResult {
    const Record* record = nullptr;
    std::string note;
    std::vector<Trial> trials;
};

int Column(const TextDirection& d) {
    return d.confidence == TextConfidence::kNone ? kCannotTell : d.turn;
}

const char* ConfidenceName(TextConfidence c) {
    switch (c) {
        case TextConfidence::kFull:
            return "sure";
        case TextConfidence::kAxis:
            return "axis";
        default:
            return "none";
    }
}

// The page turned by `degrees` (counter-clockwise for positive values) about
// its centre, at its own size.
cv::Mat Tilted(const cv::Mat& page, double degrees) {
    if (degrees == 0.0) return page;
    const cv::Scalar fill = cv::mean(page);
    const cv::Mat rot =
        cv::getRotationMatrix2D(cv::Point2f(page.cols / 2.0f, page.rows / 2.0f), degrees, 1.0);
    cv::Mat out;
    cv::warpAffine(page, out, rot, page.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, fill);
    return out;
}

Trial RunTurnedImage(const cv::Mat& page, int presented) {
    Trial t;
    t.truth = (4 - presented) % 4;
    cv::Mat turned;  // a fresh image: turning into `page` itself would turn it for good
    if (presented == 0) turned = page;
    if (presented == 1) cv::rotate(page, turned, cv::ROTATE_90_CLOCKWISE);
    if (presented == 2) cv::rotate(page, turned, cv::ROTATE_180);
    if (presented == 3) cv::rotate(page, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
    const auto start = std::chrono::steady_clock::now();
    t.d = DecideTextDirection(turned, kTextTurnAny);
    t.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    t.decided = Column(t.d);
    return t;
}

Trial RunTurnedQuadrangle(const cv::Mat& photo, const Record& rec, int presented) {
    Trial t;
    t.truth = (4 - presented) % 4;
    tagVPPoint given[4], out[4];
    TurnQuadrangle(rec.corners.data(), presented, given);
    cv::Mat matrix;
    int32_t w = 0, h = 0;
    const auto start = std::chrono::steady_clock::now();
    GetRectifyDirectionAndSizeWithVertex(photo, given, out, kTextTurnAny, &matrix, &w, &h, &t.d);
    t.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    t.decided = Column(t.d);
    if (t.decided == t.truth) {
        for (int i = 0; i < 4; ++i) {
            t.quadrangleAgrees =
                t.quadrangleAgrees && out[i].x == rec.corners[i].x && out[i].y == rec.corners[i].y;
        }
    }
    return t;
}

Trial RunTurnedPhotograph(const cv::Mat& photo, int presented) {
    Trial t;
    t.truth = (4 - presented) % 4;
    cv::Mat turned;
    if (presented == 0) turned = photo;
    if (presented == 1) cv::rotate(photo, turned, cv::ROTATE_90_CLOCKWISE);
    if (presented == 2) cv::rotate(photo, turned, cv::ROTATE_180);
    if (presented == 3) cv::rotate(photo, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
    tagVPPoint a[4], b[4];
    cv::Mat matrix;
    int32_t w = 0, h = 0;
    const auto start = std::chrono::steady_clock::now();
    GetRectifyDirectionAndSize(turned, &matrix, &w, &h, a, b, kTextTurnAny, &t.d);
    t.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    t.decided = Column(t.d);
    t.pageFound = !(a[0].x == 0 && a[0].y == 0 && a[2].x == turned.cols && a[2].y == turned.rows);
    return t;
}

struct Tally {
    size_t pairs = 0, axisRight = 0, fullRight = 0, sure = 0, sureRight = 0, cannotTell = 0;
    void Add(const Trial& t) {
        ++pairs;
        if (t.decided != kCannotTell && (t.decided & 1) == (t.truth & 1)) ++axisRight;
        if (t.decided == t.truth) ++fullRight;
        if (t.decided == kCannotTell) ++cannotTell;
        if (t.d.confidence == TextConfidence::kFull) {
            ++sure;
            if (t.decided == t.truth) ++sureRight;
        }
    }
};

double Percent(size_t part, size_t whole) {
    return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

void PrintReport(const std::vector<PageResult>& results) {
    size_t table[4][5] = {};
    Tally all;
    std::map<std::string, Tally> kinds;
    double ms = 0.0;
    size_t quadrangleMismatches = 0, notFound = 0;
    for (const PageResult& r : results) {
        for (const Trial& t : r.trials) {
            if (!t.pageFound) ++notFound;
            ++table[t.truth][t.decided];
            all.Add(t);
            kinds[r.record->kind].Add(t);
            ms += t.ms;
            if (!t.quadrangleAgrees) ++quadrangleMismatches;
        }
    }
    std::printf("true turn \\ decided      0     90    180    270  cannot tell\n");
    for (int t = 0; t < 4; ++t) {
        std::printf("%9d              ", t * 90);
        for (int c = 0; c < 5; ++c) std::printf(c < 4 ? "%5zu  " : "%11zu", table[t][c]);
        std::printf("\n");
    }
    std::printf("\n%zu (page, turn) pairs\n", all.pairs);
    std::printf("  lines' axis right:     %5.1f %%\n", Percent(all.axisRight, all.pairs));
    std::printf("  full orientation right: %5.1f %%\n", Percent(all.fullRight, all.pairs));
    std::printf("  cannot tell:            %5.1f %%\n", Percent(all.cannotTell, all.pairs));
    std::printf("  sure decisions:         %5.1f %% of pairs, %.1f %% of them right\n",
                Percent(all.sure, all.pairs), Percent(all.sureRight, all.sure));
    std::printf("  time per decision:      %.1f ms\n", all.pairs ? ms / all.pairs : 0.0);
    if (notFound > 0) std::printf("  page not found (whole photograph): %zu\n", notFound);
    if (quadrangleMismatches > 0)
        std::printf("  output quadrangle not the true corners: %zu\n", quadrangleMismatches);
    std::printf("\nper kind               pairs   axis   full   sure (right)\n");
    for (const auto& [kind, k] : kinds) {
        std::printf("  %-18s %6zu %5.1f%% %5.1f%% %5.1f%% (%.1f%%)\n", kind.c_str(), k.pairs,
                    Percent(k.axisRight, k.pairs), Percent(k.fullRight, k.pairs),
                    Percent(k.sure, k.pairs), Percent(k.sureRight, k.sure));
    }
    bool header = false;
    for (const PageResult& r : results) {
        for (const Trial& t : r.trials) {
            if (t.decided == t.truth) continue;
            if (!header) std::printf("\nwrong: file, true turn -> decided (confidence, scores)\n");
            header = true;
            std::printf(
                "  %s %s: %d -> %s (%s, axis %.2f, up z %.1f, %d blocks, %d lines)\n",
                r.record->file.c_str(), r.record->kind.c_str(), t.truth * 90,
                t.decided == kCannotTell ? "cannot tell" : std::to_string(t.decided * 90).c_str(),
                ConfidenceName(t.d.confidence), t.d.axisScore, t.d.upScore, t.d.blocks, t.d.lines);
        }
    }
}

bool WriteJson(const std::string& path, const std::vector<PageResult>& results) {
    json pages = json::array();
    for (const PageResult& r : results) {
        json p{{"file", r.record->file}, {"kind", r.record->kind}};
        if (!r.note.empty()) p["note"] = r.note;
        json trials = json::array();
        for (const Trial& t : r.trials) {
            trials.push_back(
                {{"truth", t.truth * 90},
                 {"decided", t.decided == kCannotTell ? json(nullptr) : json(t.decided * 90)},
                 {"confidence", ConfidenceName(t.d.confidence)},
                 {"axis_score", t.d.axisScore},
                 {"up_z", t.d.upScore},
                 {"blocks", t.d.blocks},
                 {"lines", t.d.lines},
                 {"ms", t.ms}});
        }
        p["trials"] = trials;
        pages.push_back(p);
    }
    std::ofstream out(path);
    out << json{{"pages", pages}}.dump(1) << '\n';
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    CLI::App app{"Text-direction decisions on upright pages turned four ways", kTool};
    auto* input = app.add_option_group("input", "what to decide on (one of them)");
    input->add_option("--pages", opt.pages, "folder written by make_pages.py");
    input->add_option("--photos", opt.photos, "folder of photographs with truth.json");
    input->require_option(1);
    app.add_option("--limit", opt.limit, "only the first N pages");
    app.add_flag("--via-quadrangle", opt.viaQuadrangle,
                 "photographs: turn the true corners instead of the rectified page");
    app.add_flag("--via-search", opt.viaSearch,
                 "photographs: turn the photograph and let the engine find the page");
    app.add_option("--tilt", opt.tilt, "turn every page by this many degrees first");
    app.add_flag("--list", opt.list, "print every decision on standard error");
    app.add_option("--json", opt.jsonOut, "write every decision to this file");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kUsageError;
    }
    const bool photos = !opt.photos.empty();
    if ((opt.viaQuadrangle || opt.viaSearch) && !photos) {
        std::fprintf(stderr, "%s: --via-quadrangle and --via-search need --photos\n", kTool);
        return kUsageError;
    }
    if (opt.viaQuadrangle && opt.viaSearch) {
        std::fprintf(stderr, "%s: --via-quadrangle or --via-search, not both\n", kTool);
        return kUsageError;
    }
    const bool wholePhotograph = opt.viaQuadrangle || opt.viaSearch;
    const fs::path dir = photos ? opt.photos : opt.pages;
    std::vector<Record> records;
    try {
        records = ReadTruth(dir / "truth.json", photos);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s: %s\n", kTool, (dir / "truth.json").c_str(), e.what());
        return kUsageError;
    }
    if (opt.limit && records.size() > *opt.limit) records.resize(*opt.limit);
    std::optional<Capture> capture;
    if (!scrivo_eval::OpenCapture(photos, capture, kTool)) return 1;
    std::printf("%zu %s from %s%s, each turned 0, 90, 180 and 270 degrees\n\n", records.size(),
                photos ? "photographs" : "pages", dir.c_str(),
                opt.viaQuadrangle ? " (turned through the corners' order)"
                : opt.viaSearch   ? " (the photographs turned, pages found by the engine)"
                                  : "");

    std::vector<PageResult> results;
    for (const Record& rec : records) {
        PageResult res;
        res.record = &rec;
        cv::Mat photo, page;
        try {
            if (photos) {
                capture->Open(dir / rec.file, rec, !wholePhotograph, &photo, &page, res.note);
            } else {
                page = scrivo_eval::ReadPnm(dir / rec.file);
                if (page.type() != CV_8UC3) throw std::runtime_error("want a PPM page");
                cv::cvtColor(page, page, cv::COLOR_RGB2BGR);
            }
        } catch (const std::exception& e) {
            res.note = e.what();
        }
        if ((wholePhotograph ? photo : page).empty()) {
            if (res.note.empty()) res.note = "no page";
            std::fprintf(stderr, "%s: %s: %s (skipped)\n", kTool, rec.file.c_str(),
                         res.note.c_str());
            results.push_back(std::move(res));
            continue;
        }
        for (int presented = 0; presented < 4; ++presented) {
            const Trial t = opt.viaQuadrangle ? RunTurnedQuadrangle(photo, rec, presented)
                            : opt.viaSearch   ? RunTurnedPhotograph(photo, presented)
                                              : RunTurnedImage(Tilted(page, opt.tilt), presented);
            if (opt.list) {
                std::fprintf(stderr, "%s %-10s true %3d decided %-11s %s axis %5.2f up z %6.1f\n",
                             rec.file.c_str(), rec.kind.c_str(), t.truth * 90,
                             t.decided == kCannotTell ? "cannot-tell"
                                                      : std::to_string(t.decided * 90).c_str(),
                             ConfidenceName(t.d.confidence), t.d.axisScore, t.d.upScore);
            }
            res.trials.push_back(t);
        }
        results.push_back(std::move(res));
    }
    PrintReport(results);
    if (!opt.jsonOut.empty() && !WriteJson(opt.jsonOut, results)) {
        std::fprintf(stderr, "%s: cannot write %s\n", kTool, opt.jsonOut.c_str());
        return 1;
    }
    return 0;
}
