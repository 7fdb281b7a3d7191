// Reporting. Results go to standard output (one line a page written, with
// the turn when --auto-rotate asked for one, or the corners of `detect`);
// failures to standard error as "scrivo: FILE: reason", always naming the
// file as the user gave it. `detect --json` prints one JSON object (key
// order kept, corners as [x, y] pairs in the order top-left, bottom-left,
// bottom-right, top-right, like the data sets the detector is scored on);
// on failure the object carries "error" and the exit code is 1, so a
// script can rely on getting JSON either way. JSON text is UTF-8, and file
// names are bytes: a name that is not valid UTF-8 is given with each bad
// byte replaced by U+FFFD, and the exact bytes ride along in "file_bytes"
// (likewise "overlay_bytes"), with every byte that is not printable ASCII,
// and the backslash, written as \xHH, so a script can still find the file.
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

namespace {

// The length of the valid UTF-8 sequence at s[i], 0 when there is none.
size_t Utf8Length(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    for (size_t k = 1; k < n; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    uint32_t cp = n == 1 ? c : c & (0x7F >> n);
    for (size_t k = 1; k < n; ++k) cp = (cp << 6) | (byte(i + k) & 0x3F);
    static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kLeast[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

bool IsValidUtf8(const std::string& s) {
    for (size_t i = 0, n; i < s.size(); i += n)
        if ((n = Utf8Length(s, i)) == 0) return false;
    return true;
}

std::string ReplaceInvalidUtf8(const std::string& s) {
    std::string out;
    for (size_t i = 0, n; i < s.size(); i += n) {
        n = Utf8Length(s, i);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            n = 1;
        } else {
            out.append(s, i, n);
        }
    }
    return out;
}

std::string EscapeBytes(const std::string& s) {
    std::string out;
    for (const char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += ch;
        } else {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

// Sets j[key] to the name, and j[key_bytes] too when the name is not UTF-8.
void PutName(nlohmann::ordered_json& j, const std::string& key, const std::string& name) {
    j[key] = ReplaceInvalidUtf8(name);
    if (!IsValidUtf8(name)) j[key + "_bytes"] = EscapeBytes(name);
}

}  // namespace

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
        PutName(j, "file", input);
        if (!outcome.ok) {
            j["error"] = ReplaceInvalidUtf8(outcome.error);
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
            if (!overlay.empty()) PutName(j, "overlay", overlay);
        }
        Console::Get().Out(
            j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
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

void ReportSummary(size_t ok, size_t failed, size_t skipped, double seconds) {
    std::string text = std::to_string(ok) + " ok, " + std::to_string(failed) + " failed, ";
    if (skipped > 0) text += std::to_string(skipped) + " skipped, ";
    char time[32];
    std::snprintf(time, sizeof time, "%.1f s\n", seconds);
    Console::Get().Out(text + time);
}

void ReportPeakMemory() {
    if (!Console::Get().verbose()) return;
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return;
    // ru_maxrss is in kilobytes on Linux.
    Console::Get().Error("scrivo: peak memory " + std::to_string(usage.ru_maxrss / 1024) + " MB");
}

}  // namespace scrivo_cli
