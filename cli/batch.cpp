// Batch planning and the worker threads.
//
// Planning happens before any photograph is touched, so that every refusal
// is known up front: a missing input, an output that would land on an input
// (compared by canonical path, and by file identity when the output
// already exists, so hard links and "./a.jpg" vs "a.jpg" are caught), and
// two inputs that would share one output name (a.jpg and a.JPEG both give
// a.page.jpg: the second is refused rather than silently overwriting the
// first's page). Folders are not searched recursively, and files named
// *.page.jpg in them are skipped: they are this tool's outputs, and running
// the tool twice over a folder must not scan its own pages.
//
// Threads: one Worker (component manager + session) per thread, files
// handed out through an atomic index in sorted order. The default is one
// thread per processor but never more than there are files. The library's
// warp and enhancement start their own task threads inside each file, so
// with several files at once the library is limited to its share of the
// cores (cores / files at once, at least one): more busy threads than cores
// only add switching. One file at a time leaves the library unlimited.
// Pages come out byte for byte the same whatever the limit.
#include "batch.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "console.h"
#include "report.h"
#include "scrivo/parallel.h"

namespace fs = std::filesystem;

namespace scrivo_cli {

namespace {

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

bool EndsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

bool IsPhotographName(const std::string& name) {
    const std::string lower = Lower(name);
    if (EndsWith(lower, ".page.jpg")) return false;
    return EndsWith(lower, ".jpg") || EndsWith(lower, ".jpeg");
}

std::string Canonical(const std::string& path) {
    std::error_code ec;
    fs::path p = fs::weakly_canonical(path, ec);
    return ec ? fs::absolute(path, ec).lexically_normal().string() : p.string();
}

std::string PageName(const std::string& input) {
    return fs::path(input).stem().string() + ".page.jpg";
}

bool IsDirectoryArgument(const std::string& path) {
    std::error_code ec;
    return (!path.empty() && path.back() == '/') || fs::is_directory(path, ec);
}

}  // namespace

bool SameFile(const std::string& a, const std::string& b) {
    if (Canonical(a) == Canonical(b)) return true;
    std::error_code ec;
    return fs::exists(a, ec) && fs::exists(b, ec) && fs::equivalent(a, b, ec);
}

Plan PlanScan(const std::vector<std::string>& inputs, const std::string& output) {
    Plan plan;
    std::vector<std::string> files;
    std::vector<std::string> missing;
    for (const std::string& input : inputs) {
        std::error_code ec;
        if (fs::is_directory(input, ec)) {
            plan.batch = true;
            std::vector<std::string> found;
            for (const auto& entry : fs::directory_iterator(input, ec)) {
                std::error_code ignored;
                if (entry.is_regular_file(ignored) &&
                    IsPhotographName(entry.path().filename().string()))
                    found.push_back(entry.path().string());
            }
            if (ec) missing.push_back(input);
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else {
            files.push_back(input);
        }
    }
    if (inputs.size() > 1) plan.batch = true;

    const bool outputIsFolder = plan.batch || (!output.empty() && IsDirectoryArgument(output));
    if (outputIsFolder && !output.empty()) {
        std::error_code ec;
        if (fs::exists(output, ec) && !fs::is_directory(output, ec)) {
            plan.usageError = "-o must name a folder when scanning several photographs";
            return plan;
        }
        fs::create_directories(output, ec);
        if (ec) {
            plan.usageError = "cannot create the folder " + output + ": " + ec.message();
            return plan;
        }
    }

    std::set<std::string> inputPaths;
    for (const std::string& f : files) inputPaths.insert(Canonical(f));
    std::map<std::string, std::string> outputs;  // canonical output -> input that makes it
    for (const std::string& input : files) {
        Job job;
        job.input = input;
        if (output.empty())
            job.output = (fs::path(input).parent_path() / PageName(input)).string();
        else if (outputIsFolder)
            job.output = (fs::path(output) / PageName(input)).string();
        else
            job.output = output;
        const std::string key = Canonical(job.output);
        bool overwrites = inputPaths.count(key) > 0;
        for (const std::string& f : files) overwrites = overwrites || SameFile(f, job.output);
        if (overwrites) {
            job.problem = "the output " + job.output + " would overwrite an input";
        } else if (outputs.count(key) > 0) {
            job.problem = "the output " + job.output + " is already the page of " + outputs[key];
        } else {
            outputs[key] = input;
        }
        plan.jobs.push_back(job);
    }
    for (const std::string& m : missing) plan.jobs.push_back(Job{m, "", "cannot read the folder"});
    if (plan.jobs.empty() && plan.usageError.empty())
        plan.usageError = "no *.jpg or *.jpeg photographs to scan";
    return plan;
}

BatchResult RunScan(const Plan& plan, const ScanOptions& options, unsigned threads) {
    BatchResult result;
    const size_t count = plan.jobs.size();
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<size_t>(threads, std::max<size_t>(count, 1)));
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    mcvParallelSetThreadLimit(threads > 1 ? static_cast<int32_t>(std::max(1u, cores / threads))
                                          : 0);
    std::atomic<size_t> next{0}, ok{0}, failed{0};
    Console& console = Console::Get();
    if (plan.batch) console.StartProgress(count);

    auto work = [&] {
        Worker worker;
        for (size_t i = next++; i < count; i = next++) {
            const Job& job = plan.jobs[i];
            if (plan.batch) SetThreadLabel(fs::path(job.input).filename().string());
            Outcome outcome;
            if (!job.problem.empty()) {
                outcome.error = job.problem;
            } else {
                try {
                    outcome = worker.Scan(job.input, job.output, options);
                } catch (const std::exception& e) {  // std::bad_alloc from our own buffers
                    outcome = Outcome{};
                    outcome.error = std::string("failed: ") + e.what();
                }
            }
            ReportScan(job.input, job.output, outcome, options);
            (outcome.ok ? ok : failed)++;
            if (plan.batch) console.Advance(fs::path(job.input).filename().string(), outcome.ok);
        }
        SetThreadLabel("");
    };
    std::vector<std::thread> pool;
    try {
        for (unsigned t = 1; t < threads; ++t) pool.emplace_back(work);
    } catch (const std::system_error&) {
        // Fewer threads than asked for: the ones running take all files.
    }
    work();
    for (std::thread& t : pool) t.join();
    if (plan.batch) console.FinishProgress();
    result.ok = ok;
    result.failed = failed;
    return result;
}

}  // namespace scrivo_cli
