// Development trace of the verified page search over a folder with
// truth.json: per photograph the answer's score, and with --candidates FILE
// every candidate's evidence measures and score against the truth (one JSON
// object per line), for fitting the evidence weights.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "eval_capture.h"
#include "eval_metric.h"
#include "support/libjpeg_ref.h"
#include "vision/detect/page_search_trace.h"

namespace fs = std::filesystem;
using nlohmann::json;

int main(int argc, char** argv) {
    CLI::App app{"Page search trace"};
    std::string dir, candOut;
    bool fixedOnly = false, considerAll = false;
    std::vector<std::string> only;
    app.add_option("dir", dir)->required();
    app.add_option("--candidates", candOut);
    app.add_flag("--fixed", fixedOnly);
    app.add_flag("--considered", considerAll);
    app.add_option("--only", only);
    CLI11_PARSE(app, argc, argv);
    std::ifstream tf(fs::path(dir) / "truth.json");
    const json truth = json::parse(tf);
    std::ofstream cf;
    if (!candOut.empty()) cf.open(candOut);
    std::map<std::string, std::vector<double>> byTag;
    std::vector<double> times;
    double stageMs[8] = {};
    int totalSeen = 0, totalFound = 0;
    double unrefinedSum = 0.0;
    for (const json& rec : truth["images"]) {
        const std::string file = rec["file"];
        if (!only.empty() && std::find(only.begin(), only.end(), file) == only.end()) continue;
        std::vector<uint8_t> bytes;
        if (!scrivo_eval::ReadFileBytes(fs::path(dir) / file, bytes)) continue;
        const auto d = libjpeg_ref::Decompress(bytes, JCS_RGB);
        if (!d.ok) continue;
        cv::Mat photo(d.height, d.width, CV_8UC3, const_cast<uint8_t*>(d.pixels.data()));
        scrivo_eval::Quad t;
        for (int i = 0; i < 4; ++i) t[i] = {rec["corners"][i][0], rec["corners"][i][1]};
        const double pw = rec["page_size"][0], ph = rec["page_size"][1];
        PageSearchTrace trace;
        const auto t0 = std::chrono::steady_clock::now();
        const PageSearchAnswer a = SearchPageTraced(photo, false, nullptr, fixedOnly, &trace);
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                .count());
        for (int k = 0; k < 8; ++k) stageMs[k] += trace.ms[k];
        double j = 0.0;
        if (a.found) {
            scrivo_eval::Quad q;
            for (int i = 0; i < 4; ++i) q[i] = {a.exact[i][0], a.exact[i][1]};
            j = scrivo_eval::ScoreDetection(t, q, pw, ph).jaccard;
        }
        byTag["all"].push_back(j);
        for (const auto& tag : rec["tags"]) byTag[tag.get<std::string>()].push_back(j);
        // Truth sides that one of the lines follows (within 2 degrees and 3
        // evidence pixels over the side's part inside the image).
        int sidesSeen = 0, sidesFound = 0;
        for (int i = 0; i < 4; ++i) {
            const cv::Point2d a = t[i] / trace.evidenceScale,
                              b = t[(i + 1) % 4] / trace.evidenceScale;
            std::vector<cv::Point2d> pts;
            for (int k = 0; k <= 40; ++k) {
                const cv::Point2d p = a + (b - a) * (k / 40.0);
                if (p.x >= 0 && p.y >= 0 && p.x * trace.evidenceScale < d.width &&
                    p.y * trace.evidenceScale < d.height)
                    pts.push_back(p);
            }
            if (pts.size() < 5) continue;
            ++sidesSeen;
            const cv::Point2d u = (b - a) / cv::norm(b - a);
            for (const EvidenceLine& l : considerAll ? trace.considered : trace.lines) {
                if (std::abs(l.n.dot(u)) > std::sin(2.0 * CV_PI / 180.0)) continue;
                double worst = 0.0;
                for (const auto& p : pts) worst = std::max(worst, std::abs(l.n.dot(p) - l.offset));
                if (worst < 3.0) {
                    ++sidesFound;
                    break;
                }
            }
        }
        totalSeen += sidesSeen;
        totalFound += sidesFound;
        double oracle = 0.0;
        json cands = json::array();
        for (size_t k = 0; k < trace.candidates.size(); ++k) {
            const PageCandidate& c = trace.candidates[k];
            scrivo_eval::Quad q;
            for (int i = 0; i < 4; ++i) q[i] = c.corners[i] * trace.evidenceScale;
            const double cj = scrivo_eval::ScoreDetection(t, q, pw, ph).jaccard;
            oracle = std::max(oracle, cj);
            if (!cf.is_open()) continue;
            const PageEvidence& e = trace.evidence[k];
            json sides = json::array();
            for (const SideEvidence& s : e.side)
                sides.push_back(
                    {s.inside, s.edge, s.polarity, s.step, s.paperIn, s.paperOut, s.sharpness});
            json corners = json::array();
            for (const auto& p : c.corners) corners.push_back({p.x, p.y});
            const CandidateFeatures feats = DescribeCandidate(e, c);
            cands.push_back({{"f", std::vector<float>(feats.begin(), feats.end())},
                             {"src", static_cast<int>(c.source)},
                             {"line", c.lineScore},
                             {"score", c.evidence},
                             {"jac", cj},
                             {"sides", sides},
                             {"interior", e.interiorPaper},
                             {"ink", e.interiorInk},
                             {"ring", e.ringPaper},
                             {"light", e.paperLight},
                             {"sat", e.paperSaturation},
                             {"frames", e.frameSides},
                             {"area", e.areaShare},
                             {"corners", corners}});
        }
        json lines = json::array();
        for (const EvidenceLine& l : trace.lines)
            lines.push_back({l.n.x, l.n.y, l.offset, l.t0, l.t1, l.plane, l.longestRun});
        if (cf.is_open())
            cf << json{{"file", file},
                       {"tags", rec["tags"]},
                       {"scale", trace.evidenceScale},
                       {"chosen", trace.chosen},
                       {"cands", cands},
                       {"lines", lines}}
                      .dump()
               << "\n";
        double unrefined = 0.0;
        if (trace.chosen >= 0) {
            scrivo_eval::Quad q;
            for (int i = 0; i < 4; ++i)
                q[i] = trace.candidates[trace.chosen].corners[i] * trace.evidenceScale;
            unrefined = scrivo_eval::ScoreDetection(t, q, pw, ph).jaccard;
        }
        unrefinedSum += unrefined;
        std::printf("%-32s %.3f (%.3f)  oracle %.3f  ev %.3f  n %zu  sides %d/%d  %.1f ms\n",
                    file.c_str(), j, unrefined, oracle, a.evidence, trace.candidates.size(),
                    sidesFound, sidesSeen, times.back());
    }
    for (const auto& [tag, v] : byTag) {
        double s = 0;
        for (double x : v) s += x;
        std::printf("%-18s %3zu %.4f\n", tag.c_str(), v.size(), s / v.size());
    }
    std::printf("truth sides on a line: %d of %d\n", totalFound, totalSeen);
    std::printf("unrefined mean %.4f\n", unrefinedSum / std::max<size_t>(1, byTag["all"].size()));
    const char* stages[8] = {"reduce", "fixed", "evidence image", "region",
                             "lines",  "quads", "evidence",       "refine"};
    for (int k = 0; k < 8; ++k)
        std::printf("  %-15s %.1f ms\n", stages[k], stageMs[k] / std::max<size_t>(1, times.size()));
    std::sort(times.begin(), times.end());
    if (!times.empty()) std::printf("median %.1f ms\n", times[times.size() / 2]);
    return 0;
}
