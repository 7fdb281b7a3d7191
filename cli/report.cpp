// Reporting. Results go to standard output (one line a page written, with
// the turn when --auto-rotate asked for one, or the corners of `detect`);
// failures to standard error as "scrivo: FILE: reason", always naming the
// file as the user gave it. `detect --json` prints one JSON object (key
// order kept, corners as [x, y] pairs in the order top-left, bottom-left,
// bottom-right, top-right, like the data sets the detector is scored on);
// on failure the object carries "error" and the exit code is 1, so a
// script can rely on getting JSON either way.
#include "report.h"

#include <sys/resource.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "console.h"

namespace scrivo_cli {

std::string FormatCorners(const Quad& q) {
    static const char* const kNames[] = {"TL", "BL", "BR", "TR"};
    std::string text;
    for (size_t i = 0; i < q.size(); ++i) {
        if (i > 0) text += "  ";
        text +=
            std::string(kNames[i]) + " " + std::to_string(q[i].x) + "," + std::to_string(q[i].y);
    }
    return text;
}

std::string CornerSource(const Outcome& outcome, bool given) {
    if (given) return "given";
    return outcome.found ? "detected" : "no page found: whole photograph";
}

void ReportFailure(const std::string& input, const std::string& reason) {
    Console::Get().Error("scrivo: " + input + ": " + reason);
}

void ReportScan(const std::string& input, const std::string& output, const Outcome& outcome,
                const ScanOptions& options) {
    if (!outcome.ok) {
        ReportFailure(input, outcome.error);
        return;
    }
    std::string turn;
    if (options.autoRotate) {
        turn = outcome.turn < 0    ? ", direction unknown"
               : outcome.turn == 0 ? ", upright"
                                   : ", rotated " + std::to_string(outcome.turn);
    }
    Console::Get().Out(input + " -> " + output + " (" + std::to_string(outcome.pageWidth) + "x" +
                       std::to_string(outcome.pageHeight) + ", " + MethodName(options.method) +
                       turn + "); corners (" + CornerSource(outcome, options.cornersGiven) +
                       "): " + FormatCorners(outcome.corners) + "\n");
}

void ReportDetect(const std::string& input, const std::string& overlay, const Outcome& outcome,
                  bool json) {
    if (!outcome.ok) ReportFailure(input, outcome.error);
    if (json) {
        nlohmann::ordered_json j;
        j["file"] = input;
        if (!outcome.ok) {
            j["error"] = outcome.error;
        } else {
            j["width"] = outcome.width;
            j["height"] = outcome.height;
            j["found"] = outcome.found;
            if (outcome.found) {
                nlohmann::ordered_json corners = nlohmann::ordered_json::array();
                for (const tagVPPoint& p : outcome.corners) corners.push_back({p.x, p.y});
                j["corners"] = corners;
            } else {
                j["corners"] = nullptr;  // no page: no corners to offer
            }
            if (!overlay.empty()) j["overlay"] = overlay;
        }
        Console::Get().Out(j.dump() + "\n");
        return;
    }
    if (!outcome.ok) return;
    std::string text = input + ": " + std::to_string(outcome.width) + "x" +
                       std::to_string(outcome.height) + ", " +
                       (outcome.found ? "page found" : "no page found") + "\n";
    static const char* const kNames[] = {"top-left", "bottom-left", "bottom-right", "top-right"};
    for (size_t i = 0; outcome.found && i < outcome.corners.size(); ++i) {
        text += "  " + std::string(kNames[i]) + " " + std::to_string(outcome.corners[i].x) + "," +
                std::to_string(outcome.corners[i].y) + "\n";
    }
    if (!overlay.empty()) text += "  overlay written to " + overlay + "\n";
    Console::Get().Out(text);
}

void ReportSummary(size_t ok, size_t failed, double seconds) {
    char text[128];
    std::snprintf(text, sizeof text, "%zu ok, %zu failed, %.1f s\n", ok, failed, seconds);
    Console::Get().Out(text);
}

void ReportPeakMemory() {
    if (!Console::Get().verbose()) return;
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return;
    // ru_maxrss is in kilobytes on Linux.
    Console::Get().Error("scrivo: peak memory " + std::to_string(usage.ru_maxrss / 1024) + " MB");
}

}  // namespace scrivo_cli
