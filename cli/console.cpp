// Console output of the tool.
//
// Standard output carries results only (the written page and its corners,
// or the JSON of `detect`). The library never writes to either stream; its
// log lines reach standard error only through the sink --verbose installs.
// All writes go straight to descriptors with write(2), under one mutex, so
// lines from worker threads never interleave mid-line and the progress bar
// can be cleared before and redrawn after every message. The bar is drawn only when standard error
// is a terminal; otherwise each finished file gives one plain "[i/n] name: ok" line, which reads
// well in logs and CI output.
#include "console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "scrivo/platform.h"

namespace scrivo_cli {

namespace {

thread_local std::string t_label;

void PrintLogLine(int, const char* tag, const char* line, void*) {
    std::string text = t_label.empty() ? std::string() : "[" + t_label + "] ";
    text += tag;
    text += ": ";
    text += line;
    Console::Get().Error(text);
}

}  // namespace

void SetThreadLabel(const std::string& label) {
    t_label = label;
}

Console& Console::Get() {
    static Console console;
    return console;
}

void Console::WriteLocked(int fd, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        ssize_t n = write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // nowhere to report a broken pipe
        written += static_cast<size_t>(n);
    }
}

void Console::Out(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBarLocked();
    WriteLocked(outFd_, text);
    DrawBarLocked();
}

void Console::Error(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBarLocked();
    WriteLocked(2, line + "\n");
    DrawBarLocked();
}

void Console::EnableVerbose() {
    verbose_ = true;
    MLogSetSink(PrintLogLine, nullptr);
}

void Console::Timing(const std::string& label, const std::string& stage, double ms) {
    if (!verbose_) return;
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, " %.0f ms", ms);
    Error("scrivo: " + label + ": " + stage + buffer);
}

void Console::StartProgress(size_t total) {
    std::lock_guard<std::mutex> lock(mutex_);
    total_ = total;
    done_ = failed_ = 0;
    terminal_ = isatty(2) == 1;
    barActive_ = terminal_;
    DrawBarLocked();
}

void Console::Advance(const std::string& name, bool ok) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++done_;
    if (!ok) ++failed_;
    current_ = name;
    if (terminal_) {
        ClearBarLocked();
        DrawBarLocked();
    } else {
        std::string line = "[";
        line.append(std::to_string(done_)).append("/").append(std::to_string(total_));
        line.append("] ").append(name).append(ok ? ": ok\n" : ": failed\n");
        WriteLocked(2, line);
    }
}

void Console::FinishProgress() {
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBarLocked();
    barActive_ = false;
}

void Console::Interrupted(const std::string& signal) {
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBarLocked();
    barActive_ = false;
    std::string line = "scrivo: interrupted by " + signal;
    if (total_ > 0) {
        line.append(": ").append(std::to_string(done_ - failed_)).append(" ok, ");
        line.append(std::to_string(failed_)).append(" failed, ");
        line.append(std::to_string(total_ - done_)).append(" not done");
    }
    WriteLocked(2, line + "\n");
}

void Console::ClearBarLocked() {
    if (barActive_) WriteLocked(2, "\r\033[K");
}

void Console::DrawBarLocked() {
    if (!barActive_ || total_ == 0) return;
    constexpr size_t kWidth = 30;
    const size_t filled = done_ * kWidth / total_;
    // Built by appending: GCC 12 misreports "literal + std::string" chains
    // as overlapping copies (-Wrestrict).
    std::string bar = "[";
    bar.append(filled, '#').append(kWidth - filled, '.').append("] ");
    bar.append(std::to_string(done_)).append("/").append(std::to_string(total_));
    if (failed_ > 0) bar.append(", ").append(std::to_string(failed_)).append(" failed");
    if (!current_.empty()) bar.append("  ").append(current_);
    WriteLocked(2, bar);
}

}  // namespace scrivo_cli
