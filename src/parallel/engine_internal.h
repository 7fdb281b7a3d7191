// Internal view of the parallel task engine: the engine record shared by
// engine.cpp and cpu_switch.cpp, and a few hooks through which the tests
// drive states that the public calls cannot reach on their own (a refused
// or failing thread start, an id counter near its limit, a fake processor
// tree, shutdown observed from another thread).
#ifndef SCRIVO_PARALLEL_ENGINE_INTERNAL_H
#define SCRIVO_PARALLEL_ENGINE_INTERNAL_H

#include <pthread.h>

#include <cstdint>

#include "scrivo/parallel.h"

namespace scrivo::parallel {

struct TaskSlot {
    mcvTaskFunc function;
    void* argument;
    int32_t id;
};

// What a worker thread is started with.
struct WorkerRecord {
    int32_t index;
    McvEngine* engine;
};

// One entry per worker: its thread and its separately allocated record.
struct WorkerSlot {
    pthread_t thread;
    WorkerRecord* record;
};

// Largest task id; the counter wraps to 0 after handing it out.
constexpr int32_t kMaxTaskId = 2147483646;

}  // namespace scrivo::parallel

struct McvEngine {
    // The queue lock guards the task ring, quit and nextTaskId; the
    // completion lock guards the completion ring and lostCount. No thread
    // ever holds both.
    pthread_mutex_t queueLock;
    pthread_mutex_t doneLock;
    pthread_cond_t taskAvailable;  // with queueLock
    pthread_cond_t taskDone;       // with doneLock

    scrivo::parallel::TaskSlot queue[MCV_QUEUE_SLOTS];
    int32_t queueHead;
    int32_t queueCount;
    int32_t done[MCV_QUEUE_SLOTS];
    int32_t doneHead;
    int32_t doneCount;
    int32_t lostCount;  // finished ids dropped because the completion ring was full

    int32_t quit;
    int32_t nextTaskId;

    scrivo::parallel::WorkerSlot* workers;
    int32_t workerCount;

    MHandle memory;
    void* rawBlock;  // what was allocated for this record (it is aligned inside)

    int32_t configuredProcessors;  // capped at MCV_MAX_PROCESSORS
    int32_t onlineProcessors;
    // Processor states recorded by mcvTryFireCpu. fixedOnline marks a
    // processor without an "online" file: always on, never written.
    uint8_t processorOnline[MCV_MAX_PROCESSORS];
    uint8_t fixedOnline[MCV_MAX_PROCESSORS];
    int32_t switchedOn;
};

namespace scrivo::parallel {

// The function that starts worker threads; null restores pthread_create.
using ThreadCreator = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
void SetThreadCreatorForTesting(ThreadCreator creator);

// A consistent snapshot of the engine's counters (each ring read under its
// own lock).
struct EngineSnapshot {
    int32_t queued;
    int32_t completed;
    int32_t lost;
    int32_t quit;
    int32_t nextTaskId;
};
EngineSnapshot InspectEngine(MCVHandle engine);
void SetNextTaskIdForTesting(MCVHandle engine, int32_t next);
void SetProcessorCountsForTesting(MCVHandle engine, int32_t configured, int32_t online);

// mcvTryFireCpu / mcvTryRestoreCpu on the per-processor directories under
// root (the kernel's tree is "/sys/devices/system/cpu").
int32_t TryFireCpuAt(MCVHandle engine, const char* root);
int32_t TryRestoreCpuAt(MCVHandle engine, const char* root);

}  // namespace scrivo::parallel

#endif  // SCRIVO_PARALLEL_ENGINE_INTERNAL_H
