// Library-wide log facility.
//
// Every line goes through MLogPrint, is formatted once into a stack buffer
// (longer lines are cut at 1023 bytes, trailing newlines are dropped) and
// handed to the current sink. The sink and its user pointer are published
// together as one immutable record through an atomic pointer, so a logging
// thread never sees a sink paired with another sink's user pointer. Old
// records are kept until exit rather than freed, because another thread
// may still be calling through one; a program installs a handful at most.
//
// Default sink: the system log on Android, nothing on a desktop.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "scrivo/platform.h"

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace {

struct SinkRecord {
    MLogSink sink;
    void* user;
};

std::atomic<const SinkRecord*> g_sink{nullptr};

std::mutex& RetiredMutex() {
    static std::mutex m;
    return m;
}

std::vector<std::unique_ptr<SinkRecord>>& Retired() {
    static std::vector<std::unique_ptr<SinkRecord>> records;
    return records;
}

void DefaultSink(int priority, const char* tag, const char* line) {
#if defined(__ANDROID__)
    __android_log_write(priority, tag, line);
#else
    (void)priority;
    (void)tag;
    (void)line;
#endif
}

}  // namespace

extern "C" {

void MLogSetSink(MLogSink sink, void* user) {
    const SinkRecord* next = nullptr;
    std::lock_guard<std::mutex> lock(RetiredMutex());
    if (sink != nullptr) {
        Retired().push_back(std::make_unique<SinkRecord>(SinkRecord{sink, user}));
        next = Retired().back().get();
    }
    g_sink.store(next, std::memory_order_release);
}

void MLogPrint(int priority, const char* format, ...) {
    if (format == nullptr) return;
    const SinkRecord* record = g_sink.load(std::memory_order_acquire);
#if !defined(__ANDROID__)
    if (record == nullptr) return;  // silent by default: skip the formatting
#endif
    char line[1024];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (n < 0) return;
    size_t len = std::strlen(line);
    while (len > 0 && (line[len - 1] == '\n' || line[len - 1] == '\r')) line[--len] = '\0';
    if (record != nullptr) {
        record->sink(priority, MLOG_TAG, line, record->user);
    } else {
        DefaultSink(priority, MLOG_TAG, line);
    }
}

}  // extern "C"
