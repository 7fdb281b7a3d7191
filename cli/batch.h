// Several photographs in one run: which files, where their pages go, and
// the worker threads that process them.
#ifndef SCRIVO_CLI_BATCH_H
#define SCRIVO_CLI_BATCH_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"

namespace scrivo_cli {

struct Job {
    std::string input;
    std::string output;
    std::string problem;  // set: the file fails with this reason, unprocessed
};

struct Plan {
    std::vector<Job> jobs;
    // Folder entries named like photographs that are not files (folders,
    // FIFOs, broken links): path and reason, named but not scanned.
    std::vector<std::pair<std::string, std::string>> skipped;
    bool batch = false;      // a folder or several inputs: progress and summary
    std::string usageError;  // set: the arguments cannot work at all (exit 2)
    std::string setupError;  // set: the output folder cannot be made or written (exit 1)
};

// Expands folders (their *.jpg / *.jpeg files, any case, sorted, without
// the tool's own *.page.jpg outputs) and names each output: `output` is the
// page file for one photograph ("-": standard output), or the folder for
// several (created when missing); empty: NAME.page.jpg next to each
// photograph.
Plan PlanScan(const std::vector<std::string>& inputs, const std::string& output);

struct BatchResult {
    size_t ok = 0;
    size_t failed = 0;
};

// The two paths name one file (canonically, or by identity when both exist).
bool SameFile(const std::string& a, const std::string& b);

// The memory one photograph of this frame size and file size is expected
// to need while it is scanned, in bytes.
uint64_t EstimateScanMemory(int32_t width, int32_t height, uint64_t fileBytes);
// Half the physical memory: the default budget.
uint64_t DefaultMemoryBudget();

// Runs the jobs on `threads` workers (0: one per processor), reporting each
// file as it finishes. A failing file never stops the others. A photograph
// starts only when its estimated memory fits in `memoryBudget` beside the
// ones in flight; one that needs more than the whole budget fails.
BatchResult RunScan(const Plan& plan, const ScanOptions& options, unsigned threads,
                    uint64_t memoryBudget);

}  // namespace scrivo_cli

#endif
