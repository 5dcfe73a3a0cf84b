// Shares, separate sets of workers, and the ways out of a crunch.

#include "Core/Threads/QLM_ThreadCruncher.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"

#include <atomic>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace {

/// Runs the test with a chosen number of processors and puts the machine's back.
class ThreadCruncherTest : public testing::Test {
  protected:
    ThreadCruncherTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~ThreadCruncherTest() override { UseThreads(processors); }
    static void UseThreads(int n) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(n);
    }
    const int processors = QLM_OS::GetNumberOfThreads();
};
using ThreadCruncherDeathTest = ThreadCruncherTest;

struct Share {
    int start, end, threadIndex, threadCount;
    bool operator==(const Share&) const = default;
};

std::vector<Share> SharesOf(int64_t count, int percent = 100) {
    std::vector<Share> shares(QLM_MaximumThreads, Share{-1, -1, -1, 0});
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& r) {
        shares[r.threadIndex] = {r.start, r.end, r.threadIndex, r.threadCount};
    }, "CollectShares", percent);
    while (!shares.empty() && shares.back().threadCount == 0) shares.pop_back();
    return shares;
}

TEST_F(ThreadCruncherTest, SharesCoverTheRange) {
    UseThreads(4);
    EXPECT_EQ(SharesOf(10), (std::vector<Share>{{0, 2, 0, 4}, {2, 4, 1, 4}, {4, 6, 2, 4}, {6, 10, 3, 4}}));
    EXPECT_EQ(SharesOf(1), (std::vector<Share>{{0, 1, 0, 1}}));
    EXPECT_EQ(SharesOf(10, 50), (std::vector<Share>{{0, 5, 0, 2}, {5, 10, 1, 2}}));
    EXPECT_EQ(SharesOf(10, 1), (std::vector<Share>{{0, 10, 0, 1}}));
    EXPECT_EQ(SharesOf(0), std::vector<Share>{});
    EXPECT_EQ(SharesOf(-5), std::vector<Share>{});
    EXPECT_EQ(SharesOf(2147483647).back(), (Share{1610612733, 2147483647, 3, 4}));
    EXPECT_THROW(SharesOf(2147483648), QLM_Exception);

    UseThreads(8);
    EXPECT_EQ(SharesOf(3), (std::vector<Share>{{0, 1, 0, 3}, {1, 2, 1, 3}, {2, 3, 2, 3}}));
    EXPECT_EQ(QLM_GetThreadCountForPercent(50), 4);
    EXPECT_EQ(QLM_GetThreadCountForPercent(99), 7);
    EXPECT_EQ(QLM_GetThreadCountForPercent(1), 1);
    EXPECT_EQ(QLM_GetThreadCountForPercent(300), 8);
}

TEST_F(ThreadCruncherTest, FewerWorkersThanWantedLengthenTheLastShare) {
    UseThreads(2);
    SharesOf(100); // makes a set of two
    QLM_OS::SetNumberOfThreads(5);
    // 100 / 5 = 20 indices a share; the two slots that there are take 20 and the rest.
    EXPECT_EQ(SharesOf(100), (std::vector<Share>{{0, 20, 0, 2}, {20, 100, 1, 2}}));
}

TEST_F(ThreadCruncherTest, EachThreadSeesAllSlotsAndTheCallerIsInside) {
    UseThreads(7);
    std::atomic<int> slots{0}, outside{0};
    QLM_ThreadCrunchEachThread([&](const ThreadCrunchRange& r) {
        slots |= 1 << r.threadIndex;
        if (!QLM_IsInsideCrunch() || r.threadCount != 7) ++outside;
    }, "MarkSlots");
    EXPECT_EQ(slots, 0x7F);
    EXPECT_EQ(outside, 0);
    EXPECT_FALSE(QLM_IsInsideCrunch());
}

TEST_F(ThreadCruncherTest, ManyRunsOfChangingSizeLoseNothing) {
    UseThreads(7);
    std::vector<int> hits(1000);
    int64_t expected = 0;
    for (int run = 0; run < 2000; ++run) {
        const int count = run * 37 % 1000;
        expected += count;
        QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& r) {
            for (int i = r.start; i < r.end; ++i) ++hits[i];
        }, "CountHits");
    }
    // 37 and 1000 share no factor: each count 0..999 comes twice, and index i is hit by the counts above it.
    EXPECT_EQ(expected, 2 * 499500);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(hits[i], 2 * (999 - i));
}

TEST_F(ThreadCruncherTest, CallersOnSeveralThreadsHaveSetsOfTheirOwn) {
    UseThreads(3);
    // The main thread's first share ends only when the other thread has crunched, and the other way round.
    std::atomic<int> arrived{0};
    const auto meet = [&](const ThreadCrunchRange& r) {
        if (r.threadIndex != 0) return;
        ++arrived;
        arrived.notify_all();
        for (int seen = arrived; seen < 2; seen = arrived) arrived.wait(seen);
    };
    uint32_t other = 0;
    QLM_StartThread(other, [&] { QLM_ThreadCrunch(30, meet, "MeetOther"); }, QLM_ThreadPriority::Normal, "Other");
    QLM_ThreadCrunch(30, meet, "MeetMain");
    QLM_JoinThread(other);
    EXPECT_EQ(arrived, 2);

    std::vector<uint32_t> threads(4);
    std::atomic<int64_t> sum{0};
    const auto addAll = [&] {
        for (int run = 0; run < 200; ++run) {
            QLM_ThreadCrunch(100, [&](const ThreadCrunchRange& r) {
                for (int i = r.start; i < r.end; ++i) sum += i;
            }, "AddAll");
        }
    };
    for (uint32_t& id : threads) QLM_StartThread(id, addAll, QLM_ThreadPriority::Normal, "Adder");
    addAll();
    for (const uint32_t id : threads) QLM_JoinThread(id);
    EXPECT_EQ(sum, 5 * 200 * 4950);
}

TEST_F(ThreadCruncherTest, ExceptionOfTheFirstShareComesBackAndTheSetStaysUsable) {
    UseThreads(4);
    std::atomic<int> begun{0}, ended{0};
    for (int run = 0; run < 100; ++run) {
        EXPECT_THROW(QLM_ThreadCrunch(4, [&](const ThreadCrunchRange& r) {
            if (r.threadIndex == 0) throw std::runtime_error("first share");
            ++begun;
            ++ended;
        }, "ThrowFirst"), std::runtime_error);
        // Nobody is left inside the body when the exception arrives.
        ASSERT_EQ(begun, ended);
        ASSERT_FALSE(QLM_IsInsideCrunch());
        ASSERT_EQ(SharesOf(10).size(), 4u);
    }
}

TEST_F(ThreadCruncherDeathTest, CrunchInsideCrunchEndsTheProgram) {
    const char* message = "Absolutely cannot call the thread cruncher from within the thread cruncher!";
    const auto crunchInSlot = [](int slot) {
        UseThreads(4);
        QLM_ThreadCrunch(4, [&](const ThreadCrunchRange& r) {
            if (r.threadIndex == slot) QLM_ThreadCrunch(1, [](const ThreadCrunchRange&) {}, "Inner");
        }, "Outer");
    };
    EXPECT_EXIT(crunchInSlot(0), testing::ExitedWithCode(1), message);
    EXPECT_EXIT(crunchInSlot(2), testing::ExitedWithCode(1), message);
    // Also where the outer crunch has but one share.
    EXPECT_EXIT({ UseThreads(1); QLM_ThreadCrunch(1, [](const ThreadCrunchRange&) { SharesOf(5); }, "Outer"); },
                testing::ExitedWithCode(1), message);
}

/// Fails in slot 1 on a worker, whatever thread the caller is.
void FailOnWorker() {
    std::atomic<int> begun{0};
    QLM_ThreadCrunch(2, [&](const ThreadCrunchRange& r) {
        if (r.threadIndex == 0) {
            begun.wait(0);
            return;
        }
        begun = 1;
        begun.notify_all();
        QLM_RaiseError("share %d failed", r.threadIndex);
    }, "FailOnWorker");
}

TEST_F(ThreadCruncherDeathTest, FailureOfAWorkerIsReportedByTheMainThread) {
    UseThreads(2);
    EXPECT_EXIT({ UseThreads(2); FailOnWorker(); }, testing::ExitedWithCode(1), "share 1 failed");
    // The caller of the failed crunch is another thread; the main thread waits for that one.
    EXPECT_EXIT({
        UseThreads(2);
        uint32_t id = 0;
        QLM_StartThread(id, FailOnWorker, QLM_ThreadPriority::Normal, "Caller");
        QLM_JoinThread(id);
    }, testing::ExitedWithCode(1), "share 1 failed");
}

TEST_F(ThreadCruncherDeathTest, TheFailureHookCanStillCrunch) {
    EXPECT_EXIT({
        UseThreads(4);
        QLM_SetFailureHook([](const std::string& text) {
            std::vector<int> hits(10);
            QLM_ThreadCrunch(10, [&](const ThreadCrunchRange& r) {
                for (int i = r.start; i < r.end; ++i) hits[i] = r.threadCount;
            }, "Save");
            std::fprintf(stderr, "%s, sum %d", text.c_str(), std::accumulate(hits.begin(), hits.end(), 0));
            QLM_Exit(3);
        });
        FailOnWorker();
    }, testing::ExitedWithCode(3), "share 1 failed, sum 40");
}

} // namespace
