// Threads by their numbers, and the states of a workhorse.

#include "Core/Threads/QLM_Workhorse.h"

#include "Core/OS/QLM_OS.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

/// Works until it is told to stop, or ends by itself when `target` rounds are done.
class CountingWorkhorse : public QLM_Workhorse {
  public:
    explicit CountingWorkhorse(bool pausableIn = true) : pausable(pausableIn) {}
    ~CountingWorkhorse() override { Stop(true); }
    bool CanBePaused() const override { return pausable; }
    bool OnWorkFinished() override {
        ++finishedCalls;
        return QLM_Workhorse::OnWorkFinished();
    }
    void Begin(int targetIn = 0) {
        BeforeStart();
        target = targetIn;
        Start(ThreadFunction, "CountingWorkhorse_ThreadFunc");
    }
    /// Until the worker has begun one more round than those that were begun at the call.
    void AwaitAnotherRound() {
        const int seen = rounds;
        rounds.wait(seen);
    }
    void GiveWork(int amount) {
        waiting += amount;
        Wake();
    }
    void BeginWaiting() {
        BeforeStart();
        Start(WaitingThreadFunction, "CountingWorkhorse_Waiting");
    }
    /// Number of work items taken, once `count` of them are.
    int AwaitTaken(int count) {
        for (int seen = taken; seen < count; seen = taken) taken.wait(seen);
        return taken;
    }
    bool HasThreadID() const { return threadID != 0; }

    std::atomic<int> rounds{0}, finishedCalls{0}, waiting{0}, taken{0};

  private:
    static void ThreadFunction(QLM_Workhorse* base) {
        auto& self = *dynamic_cast<CountingWorkhorse*>(base);
        while (!self.CheckPause()) {
            ++self.rounds;
            self.rounds.notify_all();
            if (self.target && self.rounds >= self.target) break;
        }
        self.OnThreadExit();
    }
    static void WaitingThreadFunction(QLM_Workhorse* base) {
        auto& self = *dynamic_cast<CountingWorkhorse*>(base);
        while (!self.CheckPause()) {
            self.taken += self.waiting.exchange(0);
            self.taken.notify_all();
            self.WaitForWork();
        }
        self.OnThreadExit();
    }
    const bool pausable;
    int target = 0;
};

struct State {
    bool running, working, paused;
    bool operator==(const State&) const = default;
};
State StateOf(const QLM_Workhorse& w) { return {w.IsThreadRunning(), w.IsWorking(), w.IsPaused()}; }
constexpr State Idle{false, false, false}, Running{true, true, false}, Paused{true, true, true},
    ResultWaiting{false, true, false};

TEST(Workhorse, RunsPausesResumesAndStops) {
    CountingWorkhorse w;
    EXPECT_EQ(StateOf(w), Idle);
    w.Begin();
    EXPECT_EQ(StateOf(w), Running);
    w.AwaitAnotherRound();

    w.Pause();
    EXPECT_EQ(StateOf(w), Paused);
    const int rounds = w.rounds;
    w.Pause(); // again while it stands
    EXPECT_EQ(StateOf(w), Paused);
    EXPECT_EQ(w.rounds, rounds);
    w.Resume();
    EXPECT_EQ(StateOf(w), Running);
    w.AwaitAnotherRound();

    w.Stop(true);
    EXPECT_EQ(StateOf(w), Idle);
    EXPECT_FALSE(w.HasThreadID());
    EXPECT_EQ(w.finishedCalls, 0);
}

TEST(Workhorse, EndsByItselfAndWaitsForItsResultToBeTaken) {
    CountingWorkhorse w;
    for (int run = 1; run <= 20; ++run) {
        w.rounds = 0;
        w.Begin(3);
        w.WaitForThreadExit();
        EXPECT_EQ(w.rounds, 3);
        EXPECT_EQ(StateOf(w), ResultWaiting);
        w.Pause(); // no thread is there to answer
        EXPECT_EQ(StateOf(w), ResultWaiting);
        w.Resume();
        w.FinishWorkIfNecessary();
        EXPECT_EQ(StateOf(w), Idle);
        w.FinishWorkIfNecessary();
        EXPECT_EQ(w.finishedCalls, run);
    }
    w.Pause(); // nor when it is idle
    EXPECT_EQ(StateOf(w), Idle);

    // The request left by that pause does not hold up a new start, and a result can be dropped.
    w.Begin(100);
    w.WaitForThreadExit();
    w.Stop(true);
    EXPECT_EQ(StateOf(w), Idle);
}

TEST(Workhorse, StopReachesAPausedOneAndStartsAnew) {
    CountingWorkhorse w;
    for (int run = 0; run < 50; ++run) {
        w.Begin();
        if (run % 2) w.Pause();
        else w.RequestPause();
        w.Stop(run % 3 == 0);
        w.Begin(); // waits for the old thread
        EXPECT_EQ(StateOf(w), Running);
    }
    w.Stop(false);
    EXPECT_FALSE(w.IsWorking());
    w.WaitForThreadExit();
    EXPECT_EQ(StateOf(w), Idle);
}

TEST(Workhorse, SleepsUntilThereIsWork) {
    CountingWorkhorse w;
    w.BeginWaiting();
    for (int i = 1; i <= 100; ++i) {
        w.GiveWork(1);
        EXPECT_EQ(w.AwaitTaken(i), i);
    }
    w.Pause(); // wakes the sleeper
    EXPECT_EQ(StateOf(w), Paused);
    w.GiveWork(5);
    EXPECT_EQ(w.taken, 100);
    w.Resume();
    EXPECT_EQ(w.AwaitTaken(105), 105);
    w.Stop(true);
    EXPECT_EQ(StateOf(w), Idle);
}

TEST(Workhorse, AllArePausedOrStopped) {
    CountingWorkhorse pausable(true), other(false), idle(true);
    std::make_unique<CountingWorkhorse>(); // one that has gone
    pausable.Begin();
    other.Begin();
    QLM_AllWorkhorses::Get().PauseAll();
    EXPECT_EQ(StateOf(pausable), Paused);
    EXPECT_EQ(StateOf(other), Idle);
    QLM_AllWorkhorses::Get().ResumeAll();
    EXPECT_EQ(StateOf(pausable), Running);
    pausable.AwaitAnotherRound();
    QLM_AllWorkhorses::Get().StopAll();
    EXPECT_EQ(StateOf(pausable), Idle);
}

TEST(Threads, JoinWaitsForTheEndAndIgnoresOthers) {
    EXPECT_EQ(QLM_CurrentThreadID(), 1u);
    QLM_JoinThread(0);
    QLM_JoinThread(1); // itself
    QLM_JoinThread(4000000000u);

    int done = 0;
    uint32_t seen = 0, id = 0, waiter = 0;
    bool joinedByWaiter = false;
    std::atomic<int> go{0};
    QLM_StartThread(id, [&] {
        go.wait(0);
        seen = QLM_CurrentThreadID();
        QLM_JoinThread(seen); // itself
        done = 1;
    }, QLM_ThreadPriority::Highest, "A name of more than fifteen characters");
    const uint32_t first = id;
    QLM_StartThread(waiter, [&] {
        QLM_JoinThread(first);
        joinedByWaiter = done == 1;
    }, QLM_ThreadPriority::Normal, "Waiter");
    go = 1;
    go.notify_all();
    QLM_JoinThread(id);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(seen, id);
    EXPECT_NE(id, waiter);
    QLM_JoinThread(waiter);
    EXPECT_TRUE(joinedByWaiter);
    QLM_JoinThread(id); // once more
}

TEST(ThreadsDeathTest, AFailedThreadEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT({
        uint32_t id = 0;
        QLM_StartThread(id, [] { throw 5; }, QLM_ThreadPriority::Normal, "Thrower");
        QLM_JoinThread(id);
    }, testing::ExitedWithCode(1), "unknown exception");
    // A worker that failed answers no pause; the wait itself takes the failure up.
    EXPECT_EXIT({
        CountingWorkhorse w;
        w.Start([](QLM_Workhorse*) { throw std::runtime_error("worker broke"); }, "Thrower");
        w.Pause();
    }, testing::ExitedWithCode(1), "worker broke");
}

} // namespace
