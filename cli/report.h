// What the tool tells its user about each photograph: result lines, failure
// messages, the JSON of `detect`, the batch summary.
#ifndef SCRIVO_CLI_REPORT_H
#define SCRIVO_CLI_REPORT_H

#include <string>

#include "capture.h"

namespace scrivo_cli {

// "TL 10,20  BL 12,900  BR 700,910  TR 690,15"
std::string FormatCorners(const Quad& quad);
// "detected", "given" or "no page found: whole photograph".
std::string CornerSource(const Outcome& outcome, bool given);

void ReportScan(const std::string& input, const std::string& output, const Outcome& outcome,
                const ScanOptions& options);
void ReportDetect(const std::string& input, const std::string& overlay, const Outcome& outcome,
                  bool json);
// "scrivo: NAME: reason" on standard error.
void ReportFailure(const std::string& input, const std::string& reason);
// "3 ok, 1 failed, 2 skipped, 0.4 s" (skipped only when there were some).
void ReportSummary(size_t ok, size_t failed, size_t skipped, double seconds);
// "scrivo: peak memory N MB" (verbose mode).
void ReportPeakMemory();

}  // namespace scrivo_cli

#endif
