// Switching offline processors on for the duration of heavy work, and back.
//
// The kernel exposes processor i's state as the file <root>/cpu<i>/online,
// holding "1" or "0"; writing it (with privilege) switches the processor.
//
// mcvTryFireCpu reads the first character of every configured processor's
// file (at most 16): a digit other than '0' means online. Processors that
// cannot be switched have no such file at all; on most machines processor
// 0 is one of them. A missing file therefore means "online, fixed": it is
// recorded as online and never written. Any other failure to open or read
// a file gives up at once without touching the engine. Otherwise the
// states are recorded in the engine, and when more processors are
// configured than online, "1" is written to offline processors in order
// until the difference is made up or a write fails.
//
// mcvTryRestoreCpu writes every recorded state back ("0" or "1"),
// skipping the fixed processors and stopping at the first failed write,
// and clears the switched-on mark so a second call does nothing.
//
// Results: 0 when at least one processor was switched (fire) or one state
// written back (restore); 1 when nothing was done, be it for lack of
// anything to do, of readable files or of privilege; -1 for a null engine.
#include <errno.h>

#include <cstdio>

#include "parallel/engine_internal.h"

namespace {

constexpr const char* kSystemCpuRoot = "/sys/devices/system/cpu";

enum class CpuState { kOnline, kOffline, kFixed, kUnreadable };

bool OnlinePath(char (&path)[512], const char* root, int32_t cpu) {
    const int n = std::snprintf(path, sizeof path, "%s/cpu%d/online", root, static_cast<int>(cpu));
    return n > 0 && static_cast<size_t>(n) < sizeof path;
}

CpuState ReadState(const char* root, int32_t cpu) {
    char path[512];
    if (!OnlinePath(path, root, cpu)) return CpuState::kUnreadable;
    std::FILE* f = std::fopen(path, "r");
    if (f == nullptr) return errno == ENOENT ? CpuState::kFixed : CpuState::kUnreadable;
    const int c = std::fgetc(f);
    std::fclose(f);
    if (c == EOF) return CpuState::kUnreadable;
    return c >= '1' && c <= '9' ? CpuState::kOnline : CpuState::kOffline;
}

bool WriteState(const char* root, int32_t cpu, bool online) {
    char path[512];
    if (!OnlinePath(path, root, cpu)) return false;
    std::FILE* f = std::fopen(path, "w");
    if (f == nullptr) return false;
    const bool put = std::fputc(online ? '1' : '0', f) != EOF;
    // sysfs reports a refused switch when the data is flushed.
    return (std::fclose(f) == 0) && put;
}

}  // namespace

namespace scrivo::parallel {

int32_t TryFireCpuAt(MCVHandle engine, const char* root) {
    if (engine == nullptr) return -1;
    if (root == nullptr) return 1;
    const int32_t count = engine->configuredProcessors;
    uint8_t online[MCV_MAX_PROCESSORS] = {};
    uint8_t fixed[MCV_MAX_PROCESSORS] = {};
    for (int32_t i = 0; i < count; ++i) {
        const CpuState state = ReadState(root, i);
        if (state == CpuState::kUnreadable) return 1;
        online[i] = state != CpuState::kOffline;
        fixed[i] = state == CpuState::kFixed;
    }
    for (int32_t i = 0; i < MCV_MAX_PROCESSORS; ++i) {
        engine->processorOnline[i] = online[i];
        engine->fixedOnline[i] = fixed[i];
    }
    if (engine->configuredProcessors <= engine->onlineProcessors) return 1;

    engine->switchedOn = 1;
    const int32_t missing = engine->configuredProcessors - engine->onlineProcessors;
    int32_t switched = 0;
    for (int32_t i = 0; i < count && switched < missing; ++i) {
        if (online[i]) continue;
        if (!WriteState(root, i, true)) break;
        ++switched;
    }
    return switched > 0 ? 0 : 1;
}

int32_t TryRestoreCpuAt(MCVHandle engine, const char* root) {
    if (engine == nullptr) return -1;
    if (root == nullptr || engine->switchedOn == 0) return 1;
    engine->switchedOn = 0;
    int32_t written = 0;
    for (int32_t i = 0; i < engine->configuredProcessors; ++i) {
        if (engine->fixedOnline[i]) continue;
        if (!WriteState(root, i, engine->processorOnline[i] != 0)) break;
        ++written;
    }
    return written > 0 ? 0 : 1;
}

}  // namespace scrivo::parallel

extern "C" {

int32_t mcvTryFireCpu(MCVHandle engine) {
    return scrivo::parallel::TryFireCpuAt(engine, kSystemCpuRoot);
}

int32_t mcvTryRestoreCpu(MCVHandle engine) {
    return scrivo::parallel::TryRestoreCpuAt(engine, kSystemCpuRoot);
}

}  // extern "C"
