// The scrivo command-line tool: argument parsing and the two commands.
//
//   scrivo scan PHOTO.jpg... | DIR/ [-o PAGE.jpg | -o - | -o OUTDIR/] [--enhance M]
//               [--corners x,y,x,y,x,y,x,y] [--quality Q] [--auto-rotate] [-j N]
//               [--memory SIZE]
//   scrivo detect PHOTO.jpg [--json] [--overlay OUT.jpg]
//
// CLI11 parses; every parse error (unknown option, bad value, missing
// input) ends with exit code 2, help and version with 0, so scripts can
// tell "you called me wrong" (2) from "some photographs failed" (1). Values
// CLI11 cannot check by itself (--corners, -o against the inputs) are
// checked here with the same code. --verbose may come before or after the
// command name. SIGINT and SIGTERM are taken over first thing (signals.h),
// before any thread exists, so that every thread inherits the blocked mask.
// `-o -` sends the page to standard output, and the result line then goes
// to standard error so the page's bytes stay clean.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <sstream>

#include "batch.h"
#include "capture.h"
#include "console.h"
#include "report.h"
#include "signals.h"

using namespace scrivo_cli;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitSomeFailed = 1;
constexpr int kExitUsage = 2;

const char* const kExitCodes =
    "Exit codes: 0 success, 1 some inputs failed (each is named with the reason on standard "
    "error), 2 usage error.";

int UsageError(const std::string& message) {
    Console::Get().Error("scrivo: " + message);
    Console::Get().Error("Run 'scrivo --help' for the commands and their options.");
    return kExitUsage;
}

// "x,y,x,y,x,y,x,y" -> four points; false unless exactly eight integers.
bool ParseCorners(const std::string& text, Quad& quad) {
    std::vector<int32_t> values;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) {
        try {
            size_t used = 0;
            const long v = std::stol(item, &used);
            if (used != item.size() || v < INT32_MIN || v > INT32_MAX) return false;
            values.push_back(static_cast<int32_t>(v));
        } catch (const std::exception&) {
            return false;
        }
    }
    if (values.size() != 8 || text.back() == ',') return false;
    for (size_t i = 0; i < 4; ++i) quad[i] = tagVPPoint{values[2 * i], values[2 * i + 1]};
    return true;
}

// "2G", "1500M", "800K", or a bare number of megabytes -> bytes; 0 if bad.
uint64_t ParseMemory(const std::string& text) {
    size_t used = 0;
    unsigned long long value = 0;
    try {
        value = std::stoull(text, &used);
    } catch (const std::exception&) {
        return 0;
    }
    const std::string unit = text.substr(used);
    int shift = 20;
    if (unit == "K" || unit == "k")
        shift = 10;
    else if (unit == "G" || unit == "g")
        shift = 30;
    else if (!unit.empty() && unit != "M" && unit != "m")
        return 0;
    if (text[0] == '-' || value == 0 || value > (~0ull >> shift)) return 0;
    return static_cast<uint64_t>(value) << shift;
}

// The page goes to standard output: "-", or a name for what fd 1 is
// (/dev/stdout, a FIFO or file the shell redirected to).
bool IsStandardOutput(const std::string& output) {
    struct stat target {
    }, out{};
    return output == "-" ||
           (!output.empty() && stat(output.c_str(), &target) == 0 && fstat(1, &out) == 0 &&
            target.st_dev == out.st_dev && target.st_ino == out.st_ino);
}

int32_t MethodFromName(const std::string& name) {
    for (int32_t m = VP_ENHANCE_NONE; m <= VP_ENHANCE_ECONOMIC; ++m)
        if (name == MethodName(m)) return m;
    return 0;
}

}  // namespace

static int Main(int argc, char** argv) {
    Console& console = Console::Get();

    CLI::App app{"scrivo: find, straighten and enhance document pages in photographs", "scrivo"};
    app.set_version_flag("-V,--version", "scrivo " SCRIVO_VERSION_STRING);
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose,
                 "Print the library's log lines and per-stage timings to standard error");
    app.footer(std::string("Run 'scrivo <command> --help' for the options of a command.\n") +
               kExitCodes);
    app.require_subcommand(0, 1);
    app.fallthrough();

    CLI::App* scan = app.add_subcommand("scan", "Cut out, straighten and enhance the page");
    std::vector<std::string> inputs;
    std::string output, enhance = "document", cornersText;
    int32_t quality = 0;
    unsigned threads = 0;
    bool autoRotate = false;
    scan->add_option("inputs", inputs, "Photographs (JPEG) or folders of them")->required();
    scan->add_option("-o,--output", output,
                     "The page to write (default PHOTO.page.jpg next to the photograph); a "
                     "folder for several photographs");
    scan->add_option("--enhance", enhance, "Rendering of the page (default document)")
        ->check(CLI::IsMember({"none", "color", "document", "grey", "economic"}));
    scan->add_option("--corners", cornersText,
                     "x,y,x,y,x,y,x,y: the page corners top-left, bottom-left, bottom-right, "
                     "top-right, in the photograph as viewers show it (default: detected)");
    scan->add_option("--quality", quality, "JPEG quality 1..100 (default: the library's)")
        ->check(CLI::Range(1, 100));
    scan->add_flag("--auto-rotate", autoRotate,
                   "Turn the page upright by quarter turns, by the direction of its text");
    scan->add_option("-j,--jobs", threads,
                     "Photographs processed at once (default: one per processor); the cores "
                     "are shared out among them")
        ->check(CLI::Range(1, 256));
    std::string memoryText;
    scan->add_option("--memory", memoryText,
                     "Memory the photographs in flight may take together, e.g. 4G or 1500M "
                     "(default: half the physical memory); each one's need is estimated "
                     "from its header");
    scan->footer(kExitCodes);

    CLI::App* detect = app.add_subcommand("detect", "Find the page corners in a photograph");
    std::string detectInput, overlay;
    bool json = false;
    detect->add_option("photo", detectInput, "The photograph (JPEG)")->required();
    detect->add_flag("--json", json, "Print the result as JSON");
    detect->add_option("--overlay", overlay, "Write the photograph with the page outlined");
    detect->footer(kExitCodes);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        std::ostringstream out, err;
        const int code = app.exit(e, out, err);
        console.Out(out.str());
        const std::string message = err.str();
        if (!message.empty())
            console.Error("scrivo: " + message.substr(0, message.find_last_not_of('\n') + 1));
        return code == 0 ? kExitOk : kExitUsage;
    }
    if (verbose) console.EnableVerbose();

    const auto start = std::chrono::steady_clock::now();
    int exitCode = kExitOk;
    if (scan->parsed()) {
        ScanOptions options;
        options.method = MethodFromName(enhance);
        options.quality = quality;
        options.autoRotate = autoRotate;
        if (!cornersText.empty()) {
            if (!ParseCorners(cornersText, options.corners))
                return UsageError("--corners needs eight integers x,y,x,y,x,y,x,y");
            options.cornersGiven = true;
        }
        uint64_t memory = DefaultMemoryBudget();
        if (!memoryText.empty() && (memory = ParseMemory(memoryText)) == 0)
            return UsageError("--memory needs a size such as 4G, 1500M or 800K");
        const Plan plan = PlanScan(inputs, output);
        if (!plan.usageError.empty()) return UsageError(plan.usageError);
        if (plan.batch && options.cornersGiven)
            return UsageError("--corners applies to a single photograph");
        if (!plan.setupError.empty()) {
            console.Error("scrivo: " + plan.setupError);
            return kExitSomeFailed;
        }
        if (output == "-" && isatty(1) == 1)
            return UsageError("-o - would write the page to a terminal");
        if (IsStandardOutput(output)) console.ResultsToStandardError();
        const BatchResult result = RunScan(plan, options, threads, memory);
        if (plan.batch) {
            const double seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            ReportSummary(result.ok, result.failed, plan.skipped.size(), seconds);
        }
        exitCode = result.failed > 0 ? kExitSomeFailed : kExitOk;
    } else if (detect->parsed()) {
        if (overlay == "-" && isatty(1) == 1)
            return UsageError("--overlay - would write the picture to a terminal");
        if (IsStandardOutput(overlay)) console.ResultsToStandardError();
        Outcome outcome;
        if (!overlay.empty() && SameFile(overlay, detectInput)) {
            outcome.error = "the overlay " + overlay + " would overwrite the input";
        } else {
            Worker worker;
            outcome = worker.Detect(detectInput, overlay);
        }
        ReportDetect(detectInput, overlay, outcome, json);
        exitCode = outcome.ok ? kExitOk : kExitSomeFailed;
    } else {
        console.Out(app.help());
    }
    ReportPeakMemory();
    std::fflush(stdout);
    return exitCode;
}

int main(int argc, char** argv) {
    InstallSignalHandling();
    try {
        return Main(argc, argv);
    } catch (const std::exception& e) {  // out of memory or a broken file system
        Console::Get().Error(std::string("scrivo: ") + e.what());
        return kExitSomeFailed;
    }
}
