// Mutex, event, clock and log sink.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "scrivo/platform.h"

namespace {

TEST(Mutex, SerialisesIncrementsAndRejectsNull) {
    MHMutex m = MMutexCreate();
    ASSERT_NE(m, nullptr);
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            ASSERT_EQ(MMutexLock(m), MOK);
            ++counter;
            ASSERT_EQ(MMutexUnlock(m), MOK);
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 40000);
    EXPECT_EQ(MMutexDestroy(m), MOK);
    EXPECT_EQ(MMutexLock(nullptr), MERR_INVALID_PARAM);
    EXPECT_EQ(MMutexUnlock(nullptr), MERR_INVALID_PARAM);
    EXPECT_EQ(MMutexDestroy(nullptr), MERR_INVALID_PARAM);
}

TEST(Event, KeepsNoSignalledState) {
    MHEvent e = MEventCreate();
    ASSERT_NE(e, nullptr);
    // A signal nobody waits for is lost, and reset has nothing to clear.
    EXPECT_EQ(MEventSignal(e), MOK);
    EXPECT_EQ(MEventWait(e, 30), MERR_UNKNOWN);
    EXPECT_EQ(MEventReset(e), MOK);
    EXPECT_EQ(MEventWait(e, 0), MERR_UNKNOWN);
    EXPECT_EQ(MEventDestroy(e), MOK);

    EXPECT_EQ(MEventSignal(nullptr), MERR_INVALID_PARAM);
    EXPECT_EQ(MEventWait(nullptr, 10), MERR_INVALID_PARAM);
    EXPECT_EQ(MEventDestroy(nullptr), MERR_INVALID_PARAM);
}

TEST(Event, WakesWaitersWithAndWithoutTimeLimit) {
    MHEvent e = MEventCreate();
    ASSERT_NE(e, nullptr);
    for (uint32_t timeout : {MEVENT_WAIT_FOREVER, 60000u}) {
        std::atomic<int> woken{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 3; ++i) {
            waiters.emplace_back([&] {
                if (MEventWait(e, timeout) == MOK) ++woken;
            });
        }
        // The event keeps no state, so keep signalling until every waiter
        // has been woken by a signal given while it waited.
        while (woken.load() < 3) {
            ASSERT_EQ(MEventSignal(e), MOK);
            std::this_thread::yield();
        }
        for (auto& t : waiters) t.join();
    }
    MEventDestroy(e);
}

TEST(Clock, MillisecondsFromTheWallClock) {
    timeval before{}, after{};
    gettimeofday(&before, nullptr);
    uint32_t stamp = MGetCurTimeStamp();
    gettimeofday(&after, nullptr);
    auto ms = [](const timeval& tv) {
        return static_cast<uint32_t>(static_cast<uint64_t>(tv.tv_sec) * 1000u +
                                     (static_cast<uint64_t>(tv.tv_usec) + 500u) / 1000u);
    };
    // Unsigned differences stay right across the 32-bit wrap.
    EXPECT_LE(stamp - ms(before), ms(after) - ms(before));
}

struct Captured {
    std::vector<std::string> lines;
    std::vector<int> priorities;
    std::string tag;
};

void Capture(int priority, const char* tag, const char* line, void* user) {
    auto* c = static_cast<Captured*>(user);
    c->lines.emplace_back(line);
    c->priorities.push_back(priority);
    c->tag = tag;
}

TEST(Log, SinkReceivesFormattedLinesUntilRemoved) {
    Captured c;
    MLogPrint(MLOG_DEBUG, "before any sink %d", 1);
    MLogSetSink(Capture, &c);
    MLogPrint(MLOG_DEBUG, "JNI_CreateEngine jpegData length = %d", 1234);
    MLogPrint(MLOG_ERROR, "FindClass POINT_CLASS_NAME failed\n");
    MLogPrint(MLOG_DEBUG, "%s", std::string(5000, 'x').c_str());
    MLogSetSink(nullptr, nullptr);
    MLogPrint(MLOG_DEBUG, "after removal");

    ASSERT_EQ(c.lines.size(), 3u);
    EXPECT_EQ(c.tag, "QUORVEX_SCRIVO");
    EXPECT_EQ(c.lines[0], "JNI_CreateEngine jpegData length = 1234");
    EXPECT_EQ(c.priorities[0], 3);
    EXPECT_EQ(c.lines[1], "FindClass POINT_CLASS_NAME failed");  // newline dropped
    EXPECT_EQ(c.priorities[1], MLOG_ERROR);
    EXPECT_EQ(c.lines[2], std::string(1023, 'x'));  // long lines are cut, not lost
}

void Count(int, const char*, const char*, void* user) {
    static_cast<std::atomic<int>*>(user)->fetch_add(1);
}

TEST(Log, SinkCanChangeWhileOtherThreadsLog) {
    std::atomic<int> first{0}, second{0};
    MLogSetSink(Count, &first);
    std::vector<std::thread> loggers;
    for (int t = 0; t < 2; ++t) {
        loggers.emplace_back([] {
            for (int i = 0; i < 2000; ++i) MLogPrint(MLOG_DEBUG, "line %d", i);
        });
    }
    MLogSetSink(Count, &second);
    for (auto& t : loggers) t.join();
    MLogSetSink(nullptr, nullptr);
    // Each line went to exactly one of the two sinks.
    EXPECT_EQ(first.load() + second.load(), 4000);
}

}  // namespace
