// Several photographs in one run: which files, where their pages go, and
// the worker threads that process them.
#ifndef SCRIVO_CLI_BATCH_H
#define SCRIVO_CLI_BATCH_H

#include <string>
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
    bool batch = false;      // a folder or several inputs: progress and summary
    std::string usageError;  // set: the arguments cannot work at all
};

// Expands folders (their *.jpg / *.jpeg files, any case, sorted, without
// the tool's own *.page.jpg outputs) and names each output: `output` is the
// page file for one photograph, or the folder for several (created when
// missing); empty: NAME.page.jpg next to each photograph.
Plan PlanScan(const std::vector<std::string>& inputs, const std::string& output);

struct BatchResult {
    size_t ok = 0;
    size_t failed = 0;
};

// The two paths name one file (canonically, or by identity when both exist).
bool SameFile(const std::string& a, const std::string& b);

// Runs the jobs on `threads` workers (0: one per processor), reporting each
// file as it finishes. A failing file never stops the others.
BatchResult RunScan(const Plan& plan, const ScanOptions& options, unsigned threads);

}  // namespace scrivo_cli

#endif
