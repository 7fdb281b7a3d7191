// Parallel task engine: a fixed set of worker threads fed through a bounded
// ring of tasks, reporting through a bounded ring of finished task ids.
//
// Queue. mcvAddTask stores {function, argument, id} at (head + count) % 32
// under the queue lock and wakes every idle worker; it refuses a 33rd
// pending task with -EINTR. Ids come from a counter that runs 0 ...
// 2147483646 and then starts over at 0.
//
// Workers. Each worker sleeps on "task available" while the ring is empty,
// takes the head slot, drops the lock and runs the task, so tasks of one
// engine run concurrently and must touch disjoint data. The finished id is
// appended to the completion ring; if 32 finished ids are already waiting
// to be collected, the id is dropped and "Task lost" is logged. Once the
// quit flag is up a worker ends at its next look at the queue, even when
// tasks are still queued: those are dropped, never run.
//
// Waiting. mcvWaitTask scans the completion ring once from its head,
// rotating every other id from head to tail, so a full pass leaves the
// order as it was; the wanted id is removed. If it is not there yet the
// caller sleeps on "task done" and scans again. Every finished task wakes
// all waiters rather than one: with more than one waiting thread a single
// wake-up could reach a thread waiting for another id and the right one
// would sleep on.
//
// Scheduling. Only when the host asks (mcvParallelSetRealtime; the phone
// build asks by default) are workers started with the real-time round-robin
// policy at its highest priority, so that a phone's stripes finish as soon
// as possible. Elsewhere that would be harmful: a process that may run
// real-time (root on a desktop) would have its workers pre-empt the caller's
// own threads and everything else on the machine. A process without
// real-time privilege is refused the policy at thread creation; the worker
// is then started with the default attributes after a one-line log notice,
// so creating an engine never fails for that reason.
//
// Worker count. mcvParallelSetThreadLimit caps every engine created after
// it, so that a host running several images at once can keep the total
// number of busy threads within the cores.
//
// Quiet. The engine never writes to standard output or standard error (a
// host may use them for its own results); its two messages go to the log.
//
// Memory. The record, the worker table and every worker record come from
// the caller's memory handle (0 = C heap). A static pool hands out blocks
// that are only 4-byte aligned, so each allocation is over-allocated and
// aligned inside, with the original address kept just before the object.
//
// Failed start. If a worker record or a worker thread cannot be made, the
// workers already running are stopped and joined and everything allocated
// so far is freed before null is returned, so a failed creation leaks
// neither memory (also inside a pool) nor threads.
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "parallel/engine_internal.h"

using scrivo::parallel::kMaxTaskId;
using scrivo::parallel::TaskSlot;
using scrivo::parallel::ThreadCreator;
using scrivo::parallel::WorkerRecord;
using scrivo::parallel::WorkerSlot;

namespace {

constexpr size_t kAlign = alignof(std::max_align_t);
// Enough for any real machine; keeps the worker table's size arithmetic safe
// should the online count be garbage.
constexpr long kMaxWorkers = 4096;

std::atomic<ThreadCreator> g_threadCreator{nullptr};

#if defined(SCRIVO_REALTIME_WORKERS_DEFAULT)
constexpr int32_t kRealtimeDefault = 1;
#else
constexpr int32_t kRealtimeDefault = 0;
#endif
std::atomic<int32_t> g_realtime{kRealtimeDefault};
std::atomic<int32_t> g_threadLimit{0};

int CreateThread(pthread_t* thread, const pthread_attr_t* attr, void* (*body)(void*), void* arg) {
    ThreadCreator creator = g_threadCreator.load(std::memory_order_acquire);
    return creator ? creator(thread, attr, body, arg) : pthread_create(thread, attr, body, arg);
}

void* AllocAligned(MHandle memory, size_t size) {
    constexpr size_t extra = kAlign + sizeof(void*);
    if (size > SIZE_MAX - extra) return nullptr;
    void* raw = mcvMemAlloc(memory, size + extra);
    if (raw == nullptr) return nullptr;
    uintptr_t at = (reinterpret_cast<uintptr_t>(raw) + sizeof(void*) + kAlign - 1) & ~(kAlign - 1);
    std::memcpy(reinterpret_cast<void*>(at - sizeof(void*)), &raw, sizeof raw);
    return reinterpret_cast<void*>(at);
}

void FreeAligned(MHandle memory, void* block) {
    if (block == nullptr) return;
    void* raw = nullptr;
    std::memcpy(&raw, static_cast<char*>(block) - sizeof(void*), sizeof raw);
    mcvMemFree(memory, raw);
}

bool InitSync(McvEngine* e) {
    if (pthread_mutex_init(&e->queueLock, nullptr) != 0) return false;
    if (pthread_mutex_init(&e->doneLock, nullptr) == 0) {
        if (pthread_cond_init(&e->taskAvailable, nullptr) == 0) {
            if (pthread_cond_init(&e->taskDone, nullptr) == 0) return true;
            pthread_cond_destroy(&e->taskAvailable);
        }
        pthread_mutex_destroy(&e->doneLock);
    }
    pthread_mutex_destroy(&e->queueLock);
    return false;
}

void DestroySync(McvEngine* e) {
    pthread_cond_destroy(&e->taskDone);
    pthread_cond_destroy(&e->taskAvailable);
    pthread_mutex_destroy(&e->doneLock);
    pthread_mutex_destroy(&e->queueLock);
}

void RecordFinished(McvEngine* e, int32_t id) {
    pthread_mutex_lock(&e->doneLock);
    if (e->doneCount < MCV_QUEUE_SLOTS) {
        e->done[(e->doneHead + e->doneCount) % MCV_QUEUE_SLOTS] = id;
        ++e->doneCount;
    } else {
        // Logged before the count moves, so whoever sees the count has
        // had the line already.
        MLogPrint(MLOG_ERROR, "Task lost");
        ++e->lostCount;
    }
    pthread_mutex_unlock(&e->doneLock);
    pthread_cond_broadcast(&e->taskDone);
}

void* WorkerMain(void* arg) {
    McvEngine* e = static_cast<WorkerRecord*>(arg)->engine;
    for (;;) {
        pthread_mutex_lock(&e->queueLock);
        while (e->queueCount == 0 && e->quit == 0) {
            pthread_cond_wait(&e->taskAvailable, &e->queueLock);
        }
        if (e->quit != 0) {
            pthread_mutex_unlock(&e->queueLock);
            return nullptr;
        }
        const TaskSlot task = e->queue[e->queueHead];
        e->queueHead = (e->queueHead + 1) % MCV_QUEUE_SLOTS;
        --e->queueCount;
        pthread_mutex_unlock(&e->queueLock);

        task.function(task.argument);
        RecordFinished(e, task.id);
    }
}

// Starts one worker: an ordinary thread, or when asked for, round-robin at
// the policy's top priority.
bool StartWorker(WorkerSlot* slot, bool realtime) {
    if (!realtime) return CreateThread(&slot->thread, nullptr, WorkerMain, slot->record) == 0;
    int policy = SCHED_OTHER;
    int rc = EPERM;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) == 0) {
        pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attr, SCHED_RR);
        pthread_attr_getschedpolicy(&attr, &policy);
        sched_param param{};
        param.sched_priority = sched_get_priority_max(policy);
        pthread_attr_setschedparam(&attr, &param);
        if (policy == SCHED_RR) rc = CreateThread(&slot->thread, &attr, WorkerMain, slot->record);
        pthread_attr_destroy(&attr);
    }
    if (rc == 0) return true;
    // Refused (normally EPERM: no real-time privilege): run under the normal
    // policy instead. A genuine lack of threads fails again below. The
    // engine works on regardless, hence a warning.
    MLogPrint(MLOG_WARN, "[ERROR]Schedpolicy:not SCHED_RR!!");
    return CreateThread(&slot->thread, nullptr, WorkerMain, slot->record) == 0;
}

// Joins the first `started` workers (quit must already be up and broadcast)
// and frees everything the engine owns, the engine last.
void Release(McvEngine* e, int32_t started) {
    const MHandle memory = e->memory;
    if (e->workers != nullptr) {
        for (int32_t i = 0; i < started; ++i) pthread_join(e->workers[i].thread, nullptr);
        for (int32_t i = 0; i < e->workerCount; ++i) FreeAligned(memory, e->workers[i].record);
        FreeAligned(memory, e->workers);
    }
    DestroySync(e);
    e->~McvEngine();
    FreeAligned(memory, e);
}

void RaiseQuit(McvEngine* e) {
    pthread_mutex_lock(&e->queueLock);
    e->quit = 1;
    pthread_mutex_unlock(&e->queueLock);
    pthread_cond_broadcast(&e->taskAvailable);
}

}  // namespace

extern "C" {

void* mcvMemAlloc(MHandle memory, size_t size) {
    return memory != nullptr ? MMemAlloc(memory, size) : std::malloc(size);
}

void mcvMemFree(MHandle memory, void* block) {
    if (memory != nullptr) {
        MMemFree(memory, block);
    } else {
        std::free(block);
    }
}

MCVHandle mcvParallelInit(MHandle memory, int32_t wanted) {
    if (wanted < 0) return nullptr;
    const long configured = std::clamp(sysconf(_SC_NPROCESSORS_CONF), 1L, kMaxWorkers);
    const long online = std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1L, kMaxWorkers);
    const int32_t processors = static_cast<int32_t>(std::min<long>(configured, MCV_MAX_PROCESSORS));
    int32_t workers = wanted == 0 ? static_cast<int32_t>(online) : std::min(processors, wanted);
    const int32_t limit = g_threadLimit.load(std::memory_order_relaxed);
    if (limit > 0) workers = std::min(workers, limit);
    const bool realtime = g_realtime.load(std::memory_order_relaxed) != 0;

    void* block = AllocAligned(memory, sizeof(McvEngine));
    if (block == nullptr) return nullptr;
    McvEngine* e = new (block) McvEngine{};
    e->memory = memory;
    e->configuredProcessors = processors;
    e->onlineProcessors = static_cast<int32_t>(online);
    if (!InitSync(e)) {
        e->~McvEngine();
        FreeAligned(memory, e);
        return nullptr;
    }

    void* table = AllocAligned(memory, sizeof(WorkerSlot) * static_cast<size_t>(workers));
    if (table == nullptr) {
        Release(e, 0);
        return nullptr;
    }
    e->workers = new (table) WorkerSlot[workers]{};
    e->workerCount = workers;

    for (int32_t i = 0; i < workers; ++i) {
        void* record = AllocAligned(memory, sizeof(WorkerRecord));
        if (record != nullptr) {
            e->workers[i].record = new (record) WorkerRecord{i, e};
            if (StartWorker(&e->workers[i], realtime)) continue;
        }
        RaiseQuit(e);
        Release(e, i);
        return nullptr;
    }
    return e;
}

int32_t mcvAddTask(MCVHandle engine, mcvTaskFunc function, void* argument) {
    if (engine == nullptr || function == nullptr) return -1;
    McvEngine* e = engine;
    pthread_mutex_lock(&e->queueLock);
    if (e->queueCount > MCV_QUEUE_SLOTS - 1) {
        pthread_mutex_unlock(&e->queueLock);
        return -EINTR;
    }
    int32_t id;
    if (e->nextTaskId > kMaxTaskId) {
        id = 0;
        e->nextTaskId = 1;
    } else {
        id = e->nextTaskId++;
    }
    e->queue[(e->queueHead + e->queueCount) % MCV_QUEUE_SLOTS] = TaskSlot{function, argument, id};
    ++e->queueCount;
    pthread_mutex_unlock(&e->queueLock);
    pthread_cond_broadcast(&e->taskAvailable);
    return id;
}

int32_t mcvWaitTask(MCVHandle engine, int32_t id) {
    // No task ever gets a negative id (it would be an mcvAddTask failure
    // code): waiting for one would never end.
    if (engine == nullptr || id < 0) return -1;
    McvEngine* e = engine;
    pthread_mutex_lock(&e->doneLock);
    for (;;) {
        for (int32_t n = e->doneCount; n > 0; --n) {
            const int32_t entry = e->done[e->doneHead];
            e->doneHead = (e->doneHead + 1) % MCV_QUEUE_SLOTS;
            if (entry == id) {
                --e->doneCount;
                pthread_mutex_unlock(&e->doneLock);
                return 0;
            }
            e->done[(e->doneHead + e->doneCount - 1) % MCV_QUEUE_SLOTS] = entry;
        }
        pthread_cond_wait(&e->taskDone, &e->doneLock);
    }
}

int32_t mcvParallelUninit(MCVHandle engine) {
    if (engine == nullptr) return -1;
    McvEngine* e = engine;
    pthread_mutex_lock(&e->queueLock);
    if (e->quit != 0) {
        pthread_mutex_unlock(&e->queueLock);
        return -ESRCH;
    }
    e->quit = 1;
    pthread_mutex_unlock(&e->queueLock);
    pthread_cond_broadcast(&e->taskAvailable);
    Release(e, e->workerCount);
    return 0;
}

int32_t mcvParallelEngineCores(MCVHandle engine) {
    return engine != nullptr ? engine->workerCount : 0;
}

int32_t mcvParallelSetRealtime(int32_t enable) {
    if (enable != 0 && enable != 1) return -1;
    g_realtime.store(enable, std::memory_order_relaxed);
    return 0;
}

int32_t mcvParallelGetRealtime(void) {
    return g_realtime.load(std::memory_order_relaxed);
}

int32_t mcvParallelSetThreadLimit(int32_t limit) {
    if (limit < 0) return -1;
    g_threadLimit.store(limit, std::memory_order_relaxed);
    return 0;
}

int32_t mcvParallelGetThreadLimit(void) {
    return g_threadLimit.load(std::memory_order_relaxed);
}

}  // extern "C"

namespace scrivo::parallel {

void SetThreadCreatorForTesting(ThreadCreator creator) {
    g_threadCreator.store(creator, std::memory_order_release);
}

EngineSnapshot InspectEngine(MCVHandle engine) {
    EngineSnapshot s{};
    if (engine == nullptr) return s;
    pthread_mutex_lock(&engine->queueLock);
    s.queued = engine->queueCount;
    s.quit = engine->quit;
    s.nextTaskId = engine->nextTaskId;
    pthread_mutex_unlock(&engine->queueLock);
    pthread_mutex_lock(&engine->doneLock);
    s.completed = engine->doneCount;
    s.lost = engine->lostCount;
    pthread_mutex_unlock(&engine->doneLock);
    return s;
}

void SetNextTaskIdForTesting(MCVHandle engine, int32_t next) {
    if (engine == nullptr) return;
    pthread_mutex_lock(&engine->queueLock);
    engine->nextTaskId = std::max(next, 0);
    pthread_mutex_unlock(&engine->queueLock);
}

void SetProcessorCountsForTesting(MCVHandle engine, int32_t configured, int32_t online) {
    if (engine == nullptr) return;
    engine->configuredProcessors = std::clamp(configured, 1, MCV_MAX_PROCESSORS);
    engine->onlineProcessors = std::max(online, 1);
}

}  // namespace scrivo::parallel
