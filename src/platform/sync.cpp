// Mutex, event and millisecond clock.
//
// The mutex is a POSIX mutex with default attributes.
//
// The event is a mutex plus a condition variable and deliberately keeps no
// signalled state: a signal wakes the threads waiting at that moment and is
// otherwise lost, and MEventReset has nothing to reset. Callers pair it with
// a state flag of their own. Internally each signal advances a generation
// counter, so that a waiter returns only for a signal given after it began
// to wait, never for a spurious wake-up of the condition variable. Timed
// waits run on the monotonic clock so that a wall-clock jump neither cuts a
// wait short nor stretches it.
#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <cerrno>
#include <cstdint>
#include <new>

#include "scrivo/platform.h"

struct MMutex {
    pthread_mutex_t mutex;
};

struct MEvent {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint64_t generation;
};

namespace {

timespec DeadlineAfter(uint32_t ms) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += static_cast<time_t>(ms / 1000u);
    ts.tv_nsec += static_cast<long>(ms % 1000u) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

}  // namespace

extern "C" {

MHMutex MMutexCreate(void) {
    auto* m = new (std::nothrow) MMutex;
    if (m == nullptr) return nullptr;
    if (pthread_mutex_init(&m->mutex, nullptr) != 0) {
        delete m;
        return nullptr;
    }
    return m;
}

MRESULT MMutexLock(MHMutex m) {
    if (m == nullptr) return MERR_INVALID_PARAM;
    return pthread_mutex_lock(&m->mutex) == 0 ? MOK : MERR_UNKNOWN;
}

MRESULT MMutexUnlock(MHMutex m) {
    if (m == nullptr) return MERR_INVALID_PARAM;
    return pthread_mutex_unlock(&m->mutex) == 0 ? MOK : MERR_UNKNOWN;
}

MRESULT MMutexDestroy(MHMutex m) {
    if (m == nullptr) return MERR_INVALID_PARAM;
    int rc = pthread_mutex_destroy(&m->mutex);
    if (rc == EBUSY) return MERR_UNKNOWN;  // still locked: keep it usable
    delete m;
    return MOK;
}

MHEvent MEventCreate(void) {
    auto* e = new (std::nothrow) MEvent;
    if (e == nullptr) return nullptr;
    e->generation = 0;
    pthread_condattr_t attr;
    bool ok = pthread_condattr_init(&attr) == 0;
    if (ok) {
        pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
        ok = pthread_cond_init(&e->cond, &attr) == 0;
        pthread_condattr_destroy(&attr);
    }
    if (!ok) {
        delete e;
        return nullptr;
    }
    if (pthread_mutex_init(&e->mutex, nullptr) != 0) {
        pthread_cond_destroy(&e->cond);
        delete e;
        return nullptr;
    }
    return e;
}

MRESULT MEventSignal(MHEvent e) {
    if (e == nullptr) return MERR_INVALID_PARAM;
    if (pthread_mutex_lock(&e->mutex) != 0) return MERR_UNKNOWN;
    ++e->generation;
    int rc = pthread_cond_broadcast(&e->cond);
    pthread_mutex_unlock(&e->mutex);
    return rc == 0 ? MOK : MERR_UNKNOWN;
}

MRESULT MEventWait(MHEvent e, uint32_t timeoutMs) {
    if (e == nullptr) return MERR_INVALID_PARAM;
    if (pthread_mutex_lock(&e->mutex) != 0) return MERR_UNKNOWN;
    const uint64_t start = e->generation;
    int rc = 0;
    if (timeoutMs == MEVENT_WAIT_FOREVER) {
        while (rc == 0 && e->generation == start) rc = pthread_cond_wait(&e->cond, &e->mutex);
    } else {
        const timespec deadline = DeadlineAfter(timeoutMs);
        while (rc == 0 && e->generation == start) {
            rc = pthread_cond_timedwait(&e->cond, &e->mutex, &deadline);
        }
    }
    const bool signalled = e->generation != start;
    pthread_mutex_unlock(&e->mutex);
    return signalled ? MOK : MERR_UNKNOWN;
}

MRESULT MEventReset(MHEvent) {
    return MOK;
}

MRESULT MEventDestroy(MHEvent e) {
    if (e == nullptr) return MERR_INVALID_PARAM;
    pthread_cond_destroy(&e->cond);
    pthread_mutex_destroy(&e->mutex);
    delete e;
    return MOK;
}

uint32_t MGetCurTimeStamp(void) {
    timeval tv{};
    gettimeofday(&tv, nullptr);
    const uint64_t ms = static_cast<uint64_t>(tv.tv_sec) * 1000u +
                        (static_cast<uint64_t>(tv.tv_usec) + 500u) / 1000u;
    return static_cast<uint32_t>(ms);
}

}  // extern "C"
