// Mutex, event, clock and log sink.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "scrivo/platform.h"

namespace {

TEST(Sync, MutexSerialisesAndNullHandlesAreRefused) {
    MHMutex m = MMutexCreate();
    ASSERT_NE(m, nullptr);
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            MMutexLock(m);
            ++counter;
            MMutexUnlock(m);
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 40000);
    EXPECT_EQ(MMutexDestroy(m), MOK);
    for (MRESULT r : {MMutexLock(nullptr), MMutexUnlock(nullptr), MMutexDestroy(nullptr),
                      MEventSignal(nullptr), MEventWait(nullptr, 10), MEventDestroy(nullptr)})
        EXPECT_EQ(r, MERR_INVALID_PARAM);
}

TEST(Sync, EventKeepsNoSignalledStateAndWakesWaiters) {
    MHEvent e = MEventCreate();
    ASSERT_NE(e, nullptr);
    // A signal nobody waits for is lost, and reset has nothing to clear.
    EXPECT_EQ(MEventSignal(e), MOK);
    EXPECT_EQ(MEventWait(e, 30), MERR_UNKNOWN);
    EXPECT_EQ(MEventReset(e), MOK);
    EXPECT_EQ(MEventWait(e, 0), MERR_UNKNOWN);
    for (uint32_t timeout : {MEVENT_WAIT_FOREVER, 60000u}) {
        std::atomic<int> woken{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 3; ++i)
            waiters.emplace_back([&] { woken += MEventWait(e, timeout) == MOK; });
        // Keep signalling until every waiter was woken by a signal given
        // while it waited.
        while (woken.load() < 3) {
            ASSERT_EQ(MEventSignal(e), MOK);
            std::this_thread::yield();
        }
        for (auto& t : waiters) t.join();
    }
    EXPECT_EQ(MEventDestroy(e), MOK);

    // The clock counts wall-clock milliseconds; unsigned differences stay
    // right across the 32-bit wrap.
    auto ms = [] {
        timeval tv{};
        gettimeofday(&tv, nullptr);
        return static_cast<uint32_t>(static_cast<uint64_t>(tv.tv_sec) * 1000u +
                                     (tv.tv_usec + 500) / 1000);
    };
    const uint32_t before = ms(), stamp = MGetCurTimeStamp(), after = ms();
    EXPECT_LE(stamp - before, after - before);
}

// Records "priority tag: line".
void Capture(int priority, const char* tag, const char* line, void* user) {
    static_cast<std::vector<std::string>*>(user)->push_back(std::to_string(priority) + " " + tag +
                                                            ": " + line);
}

TEST(Log, SinkReceivesFormattedLinesUntilRemoved) {
    std::vector<std::string> lines;
    MLogPrint(MLOG_DEBUG, "before any sink %d", 1);
    MLogSetSink(Capture, &lines);
    MLogPrint(MLOG_DEBUG, "JNI_CreateEngine jpegData length = %d", 1234);
    MLogPrint(MLOG_ERROR, "FindClass POINT_CLASS_NAME failed\n");
    MLogPrint(MLOG_DEBUG, "%s", std::string(5000, 'x').c_str());
    MLogSetSink(nullptr, nullptr);
    MLogPrint(MLOG_DEBUG, "after removal");
    const std::string error = std::to_string(MLOG_ERROR) + " QUORVEX_SCRIVO: ";
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "3 QUORVEX_SCRIVO: JNI_CreateEngine jpegData length = 1234",
                         error + "FindClass POINT_CLASS_NAME failed",       // newline dropped
                         "3 QUORVEX_SCRIVO: " + std::string(1023, 'x')}));  // cut, not lost
}

}  // namespace
