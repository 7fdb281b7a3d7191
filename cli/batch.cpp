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
// the tool twice over a folder must not scan its own pages. Entries named
// like photographs that are not files (folders, FIFOs, devices, broken
// links) are skipped too, and named, so that nothing vanishes without a
// word. Several photographs need a folder to write to: a target that is a
// file, looks like a photograph's name, or is standard output is a usage
// error. An output folder that cannot be made or written to is found here
// too, before any work, and fails the run with the reason (exit 1: the
// call was right, the file system said no).
//
// Memory: each photograph's need is estimated from its frame header before
// it is read (EstimateScanMemory), and a worker starts it only when the
// estimate fits in the budget beside the photographs in flight; otherwise
// it waits for one of them to finish. Photographs are taken in order, so a
// large one is never overtaken for ever by small ones. One that needs more
// than the whole budget fails with the figures instead of running the
// machine out of memory.
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

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "console.h"
#include "input.h"
#include "report.h"
#include "scrivo/codec.h"
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

// Why a folder entry named like a photograph is not one; empty: it is a file.
std::string NotAFile(const fs::directory_entry& entry) {
    std::error_code ec;
    const fs::file_status st = entry.status(ec);
    if (st.type() == fs::file_type::regular) return "";
    if (st.type() == fs::file_type::not_found && entry.is_symlink(ec)) return "a broken link";
    if (st.type() == fs::file_type::directory) return "a folder";
    if (st.type() == fs::file_type::fifo) return "a FIFO";
    if (st.type() == fs::file_type::character || st.type() == fs::file_type::block)
        return "a device";
    return "not a plain file";
}

std::string OutputFolderProblem(const std::string& output) {
    std::error_code ec;
    fs::create_directories(output, ec);
    if (ec) return "cannot create the folder " + output + ": " + ec.message();
    if (access(output.c_str(), W_OK | X_OK) != 0)
        return "cannot write to the folder " + output + ": " + std::strerror(errno);
    return "";
}

// Admits photographs under a memory budget, in the order they ask.
class MemoryGate {
  public:
    explicit MemoryGate(uint64_t budget) : budget_(budget) {}
    // Waits for room; false when `need` exceeds the whole budget.
    bool Enter(uint64_t need, size_t turn) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return turn == nextTurn_; });
        const bool fits = need <= budget_;
        if (fits) changed_.wait(lock, [&] { return inUse_ + need <= budget_; });
        if (fits) inUse_ += need;
        ++nextTurn_;
        changed_.notify_all();
        return fits;
    }
    void Leave(uint64_t need) {
        std::lock_guard<std::mutex> lock(mutex_);
        inUse_ -= need;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t budget_;
    uint64_t inUse_ = 0;
    size_t nextTurn_ = 0;
};

std::string Megabytes(uint64_t bytes) {
    return std::to_string((bytes + (1u << 20) - 1) >> 20) + " MB";
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
                if (!IsPhotographName(entry.path().filename().string())) continue;
                const std::string why = NotAFile(entry);
                if (why.empty())
                    found.push_back(entry.path().string());
                else
                    plan.skipped.emplace_back(entry.path().string(), why);
            }
            if (ec) missing.push_back(input);
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else {
            files.push_back(input);
        }
    }
    if (inputs.size() > 1) plan.batch = true;

    std::sort(plan.skipped.begin(), plan.skipped.end());
    const bool outputIsFolder = plan.batch || (!output.empty() && IsDirectoryArgument(output));
    if (outputIsFolder && !output.empty()) {
        std::error_code ec;
        if (output == "-" || (fs::exists(output, ec) && !fs::is_directory(output, ec)) ||
            (!fs::exists(output, ec) && IsPhotographName(output))) {
            plan.usageError = "-o must name a folder when scanning several photographs";
            return plan;
        }
        plan.setupError = OutputFolderProblem(output);
        if (!plan.setupError.empty()) return plan;
    }

    std::set<std::string> inputPaths;
    for (const std::string& f : files) inputPaths.insert(Canonical(f));
    std::map<std::string, std::string> outputs;  // canonical output -> input that makes it
    for (const std::string& input : files) {
        Job job;
        job.input = input;
        if (output.empty())
            job.output = (fs::path(input).parent_path() / PageName(input)).string();
        else if (output == "-")
            job.output = output;
        else if (outputIsFolder)
            job.output = (fs::path(output) / PageName(input)).string();
        else
            job.output = output;
        const std::string key = Canonical(job.output);
        bool overwrites = job.output != "-" && inputPaths.count(key) > 0;
        for (const std::string& f : files)
            overwrites = overwrites || (job.output != "-" && SameFile(f, job.output));
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

uint64_t EstimateScanMemory(int32_t width, int32_t height, uint64_t fileBytes) {
    // Measured peak (maximum resident set) of document-mode scans whose page
    // is the whole photograph, the largest page a photograph gives: 252 MB
    // at 12 megapixels, 939 MB at 48, so about 19 MB a megapixel (the
    // decoded photograph, the engine's copy, the detector's working images,
    // the rectified page and its enhancement) above some 23 MB. 24 bytes a
    // pixel keeps a fifth in hand; the file is held whole besides.
    constexpr uint64_t kBytesPerPixel = 24;
    constexpr uint64_t kBaseline = uint64_t{32} << 20;
    const uint64_t pixels = static_cast<uint64_t>(std::max(width, 1)) * std::max(height, 1);
    return kBaseline + fileBytes + pixels * kBytesPerPixel;
}

uint64_t DefaultMemoryBudget() {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || size <= 0) return uint64_t{4} << 30;
    return static_cast<uint64_t>(pages) * static_cast<uint64_t>(size) / 2;
}

BatchResult RunScan(const Plan& plan, const ScanOptions& options, unsigned threads,
                    uint64_t memoryBudget) {
    BatchResult result;
    const size_t count = plan.jobs.size();
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<size_t>(threads, std::max<size_t>(count, 1)));
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    mcvParallelSetThreadLimit(threads > 1 ? static_cast<int32_t>(std::max(1u, cores / threads))
                                          : 0);
    std::atomic<size_t> next{0}, ok{0}, failed{0};
    Console& console = Console::Get();
    for (const auto& [path, why] : plan.skipped) ReportFailure(path, "skipped: " + why);
    if (plan.batch) console.StartProgress(count);
    MemoryGate gate(memoryBudget);

    auto work = [&] {
        Worker worker;
        for (size_t i = next++; i < count; i = next++) {
            const Job& job = plan.jobs[i];
            if (plan.batch) SetThreadLabel(fs::path(job.input).filename().string());
            Outcome outcome;
            const FrameSize frame = ReadFrameSize(job.input);
            // A photograph over the decoder's pixel limit is refused by the
            // decoder from its header, at no cost: it is not held back here.
            const bool decodable =
                uint64_t(frame.width) * uint64_t(frame.height) <= MD_MAX_DECODE_PIXELS;
            const uint64_t need =
                decodable ? EstimateScanMemory(frame.width, frame.height, frame.fileBytes) : 0;
            // Every job takes its turn at the gate, so that the order holds.
            const bool admitted = gate.Enter(job.problem.empty() ? need : 0, i);
            if (!job.problem.empty()) {
                outcome.error = job.problem;
            } else if (!admitted) {
                outcome.error = "needs about " + Megabytes(need) +
                                ", more than the memory budget of " + Megabytes(memoryBudget) +
                                " (--memory)";
            } else {
                try {
                    outcome = worker.Scan(job.input, job.output, options);
                } catch (const std::exception& e) {  // std::bad_alloc from our own buffers
                    outcome = Outcome{};
                    outcome.error = std::string("failed: ") + e.what();
                }
                gate.Leave(need);
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
