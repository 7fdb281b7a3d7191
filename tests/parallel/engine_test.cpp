// Parallel task engine: stripe work, completion bookkeeping, queue and
// completion limits, shutdown, failed starts, the scheduling and worker-limit
// settings and the real-time fallback.
// Tasks that must stay busy block on gates the test opens; nothing sleeps.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "parallel/engine_internal.h"
#include "scrivo/parallel.h"

namespace sp = scrivo::parallel;

namespace {

struct GatedTask {
    std::atomic<bool> open{false};
    std::atomic<int> started{0}, ran{0};
    void Open() {
        open = true;
        open.notify_all();
    }
};

void* PassGate(void* arg) {
    auto* t = static_cast<GatedTask*>(arg);
    ++t->started;
    t->open.wait(false);
    ++t->ran;
    return nullptr;
}

// Counts its runs and each row it covers; an empty one is a plain counter.
struct Stripe {
    int* rows = nullptr;
    int first = 0, last = 0;
    std::atomic<int> runs{0};
};

void* RunStripe(void* arg) {
    auto* s = static_cast<Stripe*>(arg);
    for (int y = s->first; y < s->last; ++y) ++s->rows[y];
    ++s->runs;
    return nullptr;
}

// Spins until a field of the engine's bookkeeping reaches a value.
void Await(MCVHandle e, int32_t sp::EngineSnapshot::*field, int32_t value) {
    while (sp::InspectEngine(e).*field != value) std::this_thread::yield();
}

// Occupies every worker with a gated task; returns their ids.
std::vector<int32_t> BlockWorkers(MCVHandle e, GatedTask& blocker) {
    std::vector<int32_t> ids;
    for (int i = 0; i < mcvParallelEngineCores(e); ++i)
        ids.push_back(mcvAddTask(e, PassGate, &blocker));
    while (blocker.started < static_cast<int>(ids.size())) std::this_thread::yield();
    return ids;
}

// Collects the library's log lines while alive; puts the engine settings
// back to their defaults when done, whatever the test left behind.
class LogAndSettings {
  public:
    LogAndSettings() { MLogSetSink(&Sink, this); }
    ~LogAndSettings() {
        MLogSetSink(nullptr, nullptr);
        mcvParallelSetRealtime(0);
        mcvParallelSetThreadLimit(0);
    }
    std::vector<std::string> Take() {
        std::lock_guard<std::mutex> lock(mu_);
        return std::move(lines_);
    }

  private:
    static void Sink(int, const char*, const char* line, void* user) {
        auto* self = static_cast<LogAndSettings*>(user);
        std::lock_guard<std::mutex> lock(self->mu_);
        self->lines_.emplace_back(line);
    }
    std::mutex mu_;
    std::vector<std::string> lines_;
};

// Every worker of the engine reports the policy it runs under: one blocking
// task per worker, so that no worker takes two.
std::vector<int> WorkerPolicies(MCVHandle e) {
    struct Probe {
        GatedTask gate;
        std::mutex mu;
        std::vector<int> policies;
    } probe;
    auto read = [](void* arg) -> void* {
        auto* p = static_cast<Probe*>(arg);
        int policy = -1;
        sched_param param{};
        pthread_getschedparam(pthread_self(), &policy, &param);
        {
            std::lock_guard<std::mutex> lock(p->mu);
            p->policies.push_back(policy);
        }
        return PassGate(&p->gate);
    };
    std::vector<int32_t> ids;
    for (int i = 0; i < mcvParallelEngineCores(e); ++i) ids.push_back(mcvAddTask(e, read, &probe));
    while (probe.gate.started < static_cast<int>(ids.size())) std::this_thread::yield();
    probe.gate.Open();
    for (int32_t id : ids) EXPECT_EQ(mcvWaitTask(e, id), 0);
    return probe.policies;
}

std::atomic<int> g_threadQuota{0};
int StartWithinQuota(pthread_t* t, const pthread_attr_t* a, void* (*f)(void*), void* arg) {
    return g_threadQuota.fetch_sub(1) > 0 ? pthread_create(t, a, f, arg) : EAGAIN;
}
int RefuseRealTime(pthread_t* t, const pthread_attr_t* a, void* (*f)(void*), void* arg) {
    int policy = SCHED_OTHER;
    if (a != nullptr) pthread_attr_getschedpolicy(a, &policy);
    return policy == SCHED_RR ? EPERM : pthread_create(t, a, f, arg);
}

// 18 stripes of ceil(height / 18) rows; with 17 rows the last one is empty.
// The worker limit caps every new engine; 0 lifts it.
TEST(ParallelEngine, StripesAllRunAndAreCollectedOnce) {
    LogAndSettings settings;
    const int32_t cores = static_cast<int32_t>(std::clamp(sysconf(_SC_NPROCESSORS_CONF), 1L, 16L));
    const int32_t online = static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
    for (const auto& [wanted, height, limit] : {std::tuple{18, 17, 0},
                                                {18, 401, 0},
                                                {1, 37, 0},
                                                {0, 18, 0},
                                                {18, 37, 1},
                                                {0, 18, 1},
                                                {18, 37, 40}}) {
        SCOPED_TRACE(testing::Message() << wanted << " " << height << " " << limit);
        ASSERT_EQ(mcvParallelSetThreadLimit(limit), 0);
        EXPECT_EQ(mcvParallelGetThreadLimit(), limit);
        MCVHandle e = mcvParallelInit(nullptr, wanted);
        ASSERT_NE(e, nullptr);
        const int32_t workers = wanted == 0 ? online : std::min(cores, wanted);
        EXPECT_EQ(mcvParallelEngineCores(e), limit > 0 ? std::min(workers, limit) : workers);
        std::vector<int> rows(height, 0);
        const int s = (height + 17) / 18;
        std::vector<Stripe> stripes(18);
        for (int i = 0; i < 18; ++i) {
            stripes[i].rows = rows.data();
            stripes[i].first = std::min(i * s, height);
            stripes[i].last = std::min((i + 1) * s, height);
            EXPECT_EQ(mcvAddTask(e, RunStripe, &stripes[i]), i);
        }
        for (int i = 0; i < 18; ++i) EXPECT_EQ(mcvWaitTask(e, i), 0);
        for (const Stripe& st : stripes) EXPECT_EQ(st.runs.load(), 1);
        EXPECT_EQ(rows, std::vector<int>(height, 1));
        EXPECT_EQ(sp::InspectEngine(e).completed, 0);
        EXPECT_EQ(mcvParallelUninit(e), 0);
    }
}

TEST(ParallelEngine, WaitOrderQueueLimitIdWrapAndLostTasks) {
    MCVHandle e = mcvParallelInit(nullptr, 18);
    ASSERT_NE(e, nullptr);
    // Force completion order 1,0,3,2,5,4 (plain order on one core), then
    // collect in adding order: every lookup must rotate past other ids.
    const bool pairs = mcvParallelEngineCores(e) >= 2;
    std::vector<GatedTask> tasks(6);
    EXPECT_EQ(mcvAddTask(e, nullptr, &tasks[0]), -1);  // takes no id
    EXPECT_EQ(mcvWaitTask(e, -EINTR), -1);
    for (int i = 0; i < 6; ++i) ASSERT_EQ(mcvAddTask(e, PassGate, &tasks[i]), i);
    for (int k = 0; k < 6; ++k) {
        tasks[pairs ? k ^ 1 : k].Open();
        Await(e, &sp::EngineSnapshot::completed, k + 1);
    }
    for (int i = 0; i < 6; ++i) EXPECT_EQ(mcvWaitTask(e, i), 0);

    GatedTask blocker, queued;
    std::vector<int32_t> ids = BlockWorkers(e, blocker);
    const size_t workers = ids.size();
    for (int i = 0; i < MCV_QUEUE_SLOTS; ++i) ids.push_back(mcvAddTask(e, PassGate, &queued));
    EXPECT_EQ(mcvAddTask(e, PassGate, &queued), -EINTR);
    EXPECT_EQ(sp::InspectEngine(e).queued, MCV_QUEUE_SLOTS);
    // Collect the blockers before the queued tasks finish, so that the
    // completion list never overflows.
    blocker.Open();
    for (size_t i = 0; i < workers; ++i) EXPECT_EQ(mcvWaitTask(e, ids[i]), 0);
    queued.Open();
    for (size_t i = workers; i < ids.size(); ++i) EXPECT_EQ(mcvWaitTask(e, ids[i]), 0);
    EXPECT_EQ(queued.ran.load(), MCV_QUEUE_SLOTS);

    sp::SetNextTaskIdForTesting(e, sp::kMaxTaskId - 1);
    Stripe counted;
    const int32_t wrapped[] = {sp::kMaxTaskId - 1, sp::kMaxTaskId, 0, 1};
    for (int32_t id : wrapped)
        ASSERT_EQ(mcvAddTask(e, RunStripe, &counted), id);  // else a wait would hang
    for (int32_t id : wrapped) EXPECT_EQ(mcvWaitTask(e, id), 0);
    EXPECT_EQ(sp::InspectEngine(e).nextTaskId, 2);

    // A task finishing into a full completion list still runs; its id is
    // lost. The full list is then collected backwards.
    for (int i = 0; i < MCV_QUEUE_SLOTS; ++i) ASSERT_EQ(mcvAddTask(e, RunStripe, &counted), 2 + i);
    Await(e, &sp::EngineSnapshot::completed, MCV_QUEUE_SLOTS);
    LogAndSettings log;
    EXPECT_EQ(mcvAddTask(e, RunStripe, &counted), 2 + MCV_QUEUE_SLOTS);
    Await(e, &sp::EngineSnapshot::lost, 1);
    EXPECT_EQ(log.Take(), std::vector<std::string>{"Task lost"});
    EXPECT_EQ(counted.runs.load(), 4 + MCV_QUEUE_SLOTS + 1);
    for (int i = MCV_QUEUE_SLOTS - 1; i >= 0; --i) EXPECT_EQ(mcvWaitTask(e, 2 + i), 0);
    EXPECT_EQ(sp::InspectEngine(e).completed, 0);
    EXPECT_EQ(mcvParallelUninit(e), 0);
}

TEST(ParallelEngine, StopDropsQueuedTasksAndRefusesASecondStop) {
    MCVHandle e = mcvParallelInit(nullptr, 18);
    ASSERT_NE(e, nullptr);
    GatedTask blocker;
    BlockWorkers(e, blocker);
    Stripe counted;
    for (int i = 0; i < 5; ++i) mcvAddTask(e, RunStripe, &counted);
    // The first stop raises quit and then waits in join for the blocked
    // workers, so the engine is still there for a second stop.
    std::atomic<int32_t> firstStop{1};
    std::thread stopper([&] { firstStop = mcvParallelUninit(e); });
    Await(e, &sp::EngineSnapshot::quit, 1);
    EXPECT_EQ(mcvParallelUninit(e), -ESRCH);
    blocker.Open();
    stopper.join();
    EXPECT_EQ(firstStop.load(), 0);
    EXPECT_EQ(blocker.ran.load(), blocker.started.load());
    EXPECT_EQ(counted.runs.load(), 0);
}

TEST(ParallelEngine, NullHandlesAndBadArguments) {
    Stripe counted;
    EXPECT_EQ(mcvParallelInit(nullptr, -1), nullptr);
    const int32_t refusals[] = {mcvAddTask(nullptr, RunStripe, &counted), mcvWaitTask(nullptr, 0),
                                mcvParallelUninit(nullptr), mcvTryFireCpu(nullptr),
                                mcvTryRestoreCpu(nullptr)};
    for (int32_t r : refusals) EXPECT_EQ(r, -1);
    EXPECT_EQ(mcvParallelSetThreadLimit(-1), -1);
    EXPECT_EQ(mcvParallelSetRealtime(2), -1);
    EXPECT_EQ(mcvParallelGetThreadLimit(), 0);
    EXPECT_EQ(mcvParallelGetRealtime(), 0);
    EXPECT_EQ(mcvParallelEngineCores(nullptr), 0);
    mcvMemFree(nullptr, nullptr);
}

const char* const kNotice = "[ERROR]Schedpolicy:not SCHED_RR!!";

// Ordinary workers unless real-time is asked for, even in a process that
// could have it (root): real-time workers would pre-empt the caller. Asked
// for, each worker runs round-robin where the process may, and otherwise
// runs ordinary after a notice in the log.
TEST(ParallelEngine, WorkersRunRealtimeOnlyWhenAsked) {
    LogAndSettings log;
    EXPECT_EQ(mcvParallelGetRealtime(), 0);
    MCVHandle e = mcvParallelInit(nullptr, 18);
    ASSERT_NE(e, nullptr);
    const size_t workers = static_cast<size_t>(mcvParallelEngineCores(e));
    EXPECT_EQ(WorkerPolicies(e), std::vector<int>(workers, SCHED_OTHER));
    EXPECT_EQ(mcvParallelUninit(e), 0);
    EXPECT_EQ(log.Take(), std::vector<std::string>{});

    EXPECT_EQ(mcvParallelSetRealtime(1), 0);
    EXPECT_EQ(mcvParallelGetRealtime(), 1);
    ASSERT_NE(e = mcvParallelInit(nullptr, 18), nullptr);
    const std::vector<int> policies = WorkerPolicies(e);
    EXPECT_EQ(mcvParallelUninit(e), 0);
    const std::vector<std::string> notices = log.Take();
    if (notices.empty()) {
        EXPECT_EQ(policies, std::vector<int>(workers, SCHED_RR));
    } else {
        EXPECT_EQ(notices, std::vector<std::string>(workers, kNotice));
        EXPECT_EQ(policies, std::vector<int>(workers, SCHED_OTHER));
    }
}

// A refused real-time start falls back to an ordinary worker after a log
// notice. A failed start must release everything: the leak checkers judge
// the heap case; in the smallest pool an engine fits in, anything left
// behind would make the next creation fail.
TEST(ParallelEngine, CreationFallbackAndFailedStarts) {
    LogAndSettings log;
    mcvParallelSetRealtime(1);
    sp::SetThreadCreatorForTesting(RefuseRealTime);
    MCVHandle e = mcvParallelInit(nullptr, 18);
    sp::SetThreadCreatorForTesting(nullptr);
    ASSERT_NE(e, nullptr);
    const int workers = mcvParallelEngineCores(e);
    EXPECT_EQ(log.Take(), std::vector<std::string>(workers, kNotice));
    Stripe counted;
    EXPECT_EQ(mcvWaitTask(e, mcvAddTask(e, RunStripe, &counted)), 0);
    EXPECT_EQ(counted.runs.load(), 1);
    EXPECT_EQ(mcvParallelUninit(e), 0);

    std::vector<std::max_align_t> buffer(65536 / sizeof(std::max_align_t));
    size_t fit = 0;
    for (size_t length = 64; length <= 65536 && fit == 0; length += 32) {
        if ((e = mcvParallelInit(MMemMgrCreate(buffer.data(), length), 18)) != nullptr) {
            EXPECT_EQ(mcvParallelUninit(e), 0);
            fit = length;
        }
    }
    MHandle pool = MMemMgrCreate(buffer.data(), fit);
    ASSERT_NE(pool, nullptr);
    sp::SetThreadCreatorForTesting(StartWithinQuota);
    for (int allowed : {0, workers - 1}) {
        g_threadQuota = allowed;
        EXPECT_EQ(mcvParallelInit(nullptr, 18), nullptr);
        g_threadQuota = allowed;
        EXPECT_EQ(mcvParallelInit(pool, 18), nullptr);
    }
    sp::SetThreadCreatorForTesting(nullptr);
    void* filler = MMemAlloc(pool, 1);  // now the last worker record does not fit
    EXPECT_EQ(mcvParallelInit(pool, 18), nullptr);
    MMemFree(pool, filler);
    ASSERT_NE(e = mcvParallelInit(pool, 18), nullptr);
    EXPECT_EQ(mcvWaitTask(e, mcvAddTask(e, RunStripe, &counted)), 0);
    EXPECT_EQ(mcvParallelUninit(e), 0);
}

}  // namespace
