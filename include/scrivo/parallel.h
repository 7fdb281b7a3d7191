/*
 * Scrivo parallel task engine: a small thread pool with a bounded task queue
 * (32 slots) and a bounded completion list (32 ids), used to spread per-row
 * image work over the processor's cores.
 *
 * Calling order: mcvParallelInit, any number of mcvAddTask / mcvWaitTask
 * pairs, mcvParallelUninit. Add at most 32 tasks before waiting, wait for
 * each id you added exactly once, and give each task its own data (the
 * engine holds no lock while a task runs).
 *
 * Two process-wide settings, safe to change from any thread at any time,
 * are read when an engine is created:
 *
 *  - Real-time workers (mcvParallelSetRealtime). On, workers ask for the
 *    real-time round-robin policy at its highest priority; where the
 *    platform refuses that (no real-time privilege), a worker logs
 *    "[ERROR]Schedpolicy:not SCHED_RR!!" (MLOG_WARN) and runs under the
 *    ordinary policy instead. Off, workers are ordinary threads that compete
 *    fairly with the caller's other threads, and nothing is logged. On by
 *    default in the phone build, off elsewhere.
 *  - Worker limit (mcvParallelSetThreadLimit). 0, the default, leaves the
 *    worker count to mcvParallelInit's arguments; N >= 1 caps every engine
 *    at N workers. The image routes split their work into a fixed number of
 *    stripes whatever the worker count, so their output never depends on it.
 *
 * The engine writes nothing to standard output or standard error: its
 * messages go to the log facility (MLogPrint).
 */
#ifndef SCRIVO_PARALLEL_H
#define SCRIVO_PARALLEL_H

#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Most worker threads an engine starts, and most processors it tracks. */
#define MCV_MAX_PROCESSORS 16
/* Slots in the task queue and in the completion list. */
#define MCV_QUEUE_SLOTS 32

typedef struct McvEngine* MCVHandle;

/* A task: called once with its argument on a worker thread. */
typedef void* (*mcvTaskFunc)(void* argument);

/* wanted 0: one worker per online processor; otherwise
 * min(wanted, configured processors, 16); either way at most the worker
 * limit when one is set. Null on failure. */
SCRIVO_API MCVHandle mcvParallelInit(MHandle memory, int32_t wanted);
/* Task id >= 0; -1 for a null engine or function; -EINTR (-4) when the
 * queue already holds 32 tasks. Ids run 0 ... 2147483646 and wrap. */
SCRIVO_API int32_t mcvAddTask(MCVHandle engine, mcvTaskFunc function, void* argument);
/* Blocks until the task has finished, then collects its id: 0; -1 for a
 * null engine or a negative id (an mcvAddTask failure code, which no task
 * has). Each id can be collected once; a never-added id blocks. */
SCRIVO_API int32_t mcvWaitTask(MCVHandle engine, int32_t id);
/* Stops and joins the workers (tasks still queued never run) and frees
 * the engine: 0; -1 for a null engine; -ESRCH (-3) when already stopping. */
SCRIVO_API int32_t mcvParallelUninit(MCVHandle engine);
/* The number of worker threads; 0 for a null engine. */
SCRIVO_API int32_t mcvParallelEngineCores(MCVHandle engine);

/* Whether new engines' workers ask for real-time round-robin scheduling:
 * 1 yes, 0 no. Returns 0, or -1 (setting unchanged) for any other value. */
SCRIVO_API int32_t mcvParallelSetRealtime(int32_t enable);
SCRIVO_API int32_t mcvParallelGetRealtime(void);
/* Most workers a new engine starts: 0 no limit, N >= 1 at most N. Returns 0,
 * or -1 (setting unchanged) for a negative limit. */
SCRIVO_API int32_t mcvParallelSetThreadLimit(int32_t limit);
SCRIVO_API int32_t mcvParallelGetThreadLimit(void);

/* Switch offline processors on through the kernel's per-CPU "online"
 * files, and later put them back as they were. Need privileges; return 0
 * when something was done, 1 when nothing could be, -1 for a null engine. */
SCRIVO_API int32_t mcvTryFireCpu(MCVHandle engine);
SCRIVO_API int32_t mcvTryRestoreCpu(MCVHandle engine);

/* Through MMemAlloc/MMemFree with a non-zero handle, the C heap with 0. */
SCRIVO_API void* mcvMemAlloc(MHandle memory, size_t size);
SCRIVO_API void mcvMemFree(MHandle memory, void* block);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_PARALLEL_H */
