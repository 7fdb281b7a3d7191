// The tool's two output channels and everything drawn on them: results on
// standard output, messages, engine log lines, timing lines and
// the progress bar on standard error.
#ifndef SCRIVO_CLI_CONSOLE_H
#define SCRIVO_CLI_CONSOLE_H

#include <cstddef>
#include <mutex>
#include <string>

namespace scrivo_cli {

class Console {
  public:
    static Console& Get();

    void Out(const std::string& text);    // to standard output, as is
    void Error(const std::string& line);  // one line to standard error
    // Result lines go to standard error from now on: standard output
    // carries the page itself (-o -).
    void ResultsToStandardError() { outFd_ = 2; }

    // Verbose mode: the library's log lines and the tool's timing lines.
    void EnableVerbose();
    bool verbose() const { return verbose_; }
    // "scrivo: <label>: <stage> <ms> ms" in verbose mode.
    void Timing(const std::string& label, const std::string& stage, double ms);

    // Batch progress: a bar on a terminal, "[i/n] name: ok" lines otherwise.
    void StartProgress(size_t total);
    void Advance(const std::string& name, bool ok);
    void FinishProgress();
    // "scrivo: interrupted by SIGINT: 2 ok, 1 failed, 5 not done" (the
    // counts when a batch is running); the bar is cleared first.
    void Interrupted(const std::string& signal);

  private:
    Console() = default;
    void WriteLocked(int fd, const std::string& text);
    void DrawBarLocked();
    void ClearBarLocked();

    std::mutex mutex_;
    int outFd_ = 1;
    bool verbose_ = false;
    bool barActive_ = false;
    bool terminal_ = false;
    size_t total_ = 0, done_ = 0, failed_ = 0;
    std::string current_;
};

// Names the file the calling thread works on; verbose log lines of that
// thread are prefixed with it (used when several files run at once).
void SetThreadLabel(const std::string& label);

}  // namespace scrivo_cli

#endif
