// Signal handling without work in signal context.
//
// SIGINT and SIGTERM are blocked in every thread and taken by one watcher
// thread with sigwait, so the cleanup runs as ordinary code: it may lock the
// registry of temporaries, remove them and write the report through the
// console. The registry lock is what makes the removal complete: a writer
// registers a temporary under the lock before creating it, and the watcher
// takes the lock, marks the run as stopping and never releases it (it ends
// the process), so no temporary can be created after the sweep. A writer
// that renamed its temporary just before the sweep leaves a name the sweep
// no longer finds, which is harmless.
#include "signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <set>
#include <thread>

#include "console.h"

namespace scrivo_cli {

namespace {

std::mutex g_mutex;
std::set<std::string> g_temporaries;

sigset_t StopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

void Watch() {
    const sigset_t set = StopSignals();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
    g_mutex.lock();  // held until the process ends: nothing new gets created
    for (const std::string& path : g_temporaries) unlink(path.c_str());
    Console::Get().Interrupted(signal == SIGINT ? "SIGINT" : "SIGTERM");
    _exit(128 + signal);
}

}  // namespace

void InstallSignalHandling() {
    // A reader that goes away (`scrivo scan -o - | head -c 4`) is a write
    // error like any other, reported and cleaned up, not a silent death.
    signal(SIGPIPE, SIG_IGN);
    const sigset_t set = StopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread(Watch).detach();
}

void RegisterTemporary(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_temporaries.insert(path);
}

void ForgetTemporary(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_temporaries.erase(path);
}

}  // namespace scrivo_cli
