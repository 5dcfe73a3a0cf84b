#include "Core/Threads/QLM_ThreadCruncher.h"

#include "Core/Logging/QLM_LogInternals.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <sched.h>

namespace {

thread_local bool insideCrunch = false;

/// Bounded so that a waiter soon blocks, yielding since there may be more threads than processors.
constexpr int SpinsBeforeBlocking = 200;

/// Who has the share of a slot. Pending goes to Taken by whoever comes first, the slot's worker or the caller.
enum SlotState : uint32_t { Idle, Pending, Taken, Quit };

/// One worker thread and the share it is to take; a cache line of its own.
struct alignas(64) Slot {
    std::atomic<uint32_t> state{Idle};
    uint32_t threadID = 0;
    QLM_ThreadFunction function = nullptr;
    ThreadCrunchRange* range = nullptr;
    const char* name = nullptr;

    bool TryTake() {
        uint32_t expected = Pending;
        return state.compare_exchange_strong(expected, Taken);
    }
    void RunShare();
};

/// A set of workers for one caller at a time.
class TThreadCruncher {
  public:
    TThreadCruncher();
    void Run(ThreadCrunchRange* ranges, int slotCount, QLM_ThreadFunction function, const char* name);
    void EndThreads();
    int GetThreadCount() const { return threadCount; }

    TThreadCruncher* nextFree = nullptr;

  private:
    void WorkerLoop(Slot& slot);
    void AwaitWorkers(int slotCount);
    bool IsDone(int slotCount) const;

    const int threadCount;
    Slot slots[QLM_MaximumThreads]; ///< the first has no thread: the caller runs it
    std::atomic<bool> callerBlocked{false};
    QLM_Signal workerDone;
};

/// The crunchers that nobody uses, as a linked stack: taking one allocates nothing.
struct Pool {
    std::mutex mutex;
    TThreadCruncher* top = nullptr;
};

Pool& ThePool() {
    static Pool* const pool = new Pool;
    return *pool;
}

TThreadCruncher* Acquire() {
    Pool& pool = ThePool();
    {
        std::lock_guard<std::mutex> guard(pool.mutex);
        if (TThreadCruncher* cruncher = pool.top) {
            pool.top = cruncher->nextFree;
            return cruncher;
        }
    }
    return new TThreadCruncher;
}

void Release(TThreadCruncher* cruncher) {
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> guard(pool.mutex);
    cruncher->nextFree = pool.top;
    pool.top = cruncher;
}

/// Marks the calling thread as inside a crunch and shows the crunch's name for it.
class ShareScope {
  public:
    explicit ShareScope(const char* name) {
        insideCrunch = true;
        QLM_SetThreadFunctionName(name);
    }
    ~ShareScope() {
        QLM_SetThreadFunctionName(nullptr);
        insideCrunch = false;
    }
    ShareScope(const ShareScope&) = delete;
    ShareScope& operator=(const ShareScope&) = delete;
};

void RunOnThisThread(QLM_ThreadFunction function, ThreadCrunchRange& range, const char* name) {
    const ShareScope share(name);
    const QLM_TraceScope trace(__FILE__, __LINE__, name, 3);
    function(&range);
}

void Slot::RunShare() { RunOnThisThread(function, *range, name); }

TThreadCruncher::TThreadCruncher() : threadCount(std::clamp(QLM_OS::GetNumberOfThreads(), 1, QLM_MaximumThreads)) {
    for (int t = 1; t < threadCount; ++t) {
        Slot& slot = slots[t];
        QLM_StartThread(slot.threadID, [this, &slot] { WorkerLoop(slot); }, QLM_ThreadPriority::Highest,
                        "TThreadCruncher_MainThreadFunc");
    }
}

void TThreadCruncher::EndThreads() {
    for (int t = 1; t < threadCount; ++t) {
        slots[t].state = Quit;
        slots[t].state.notify_one();
    }
    for (int t = 1; t < threadCount; ++t) QLM_JoinThread(slots[t].threadID);
}

void TThreadCruncher::WorkerLoop(Slot& slot) {
    int spins = 0;
    for (;;) {
        const uint32_t seen = slot.state;
        if (seen == Quit) return;
        if (seen == Pending && slot.TryTake()) {
            QLM_RandomDelay();
            slot.RunShare();
            slot.state = Idle;
            if (callerBlocked) workerDone.Notify();
            spins = 0;
        } else if (++spins < SpinsBeforeBlocking) {
            // Many crunches come one right after another: stay awake for the next.
            sched_yield();
        } else {
            slot.state.wait(seen);
            spins = 0;
        }
    }
}

bool TThreadCruncher::IsDone(int slotCount) const {
    for (int t = 1; t < slotCount; ++t) {
        if (slots[t].state != Idle) return false;
    }
    return true;
}

/// Comes back only when no worker uses the ranges any more. A worker that failed never gives its share back; the main
/// thread then leaves for the failure report from inside the wait, and any other thread stays here.
void TThreadCruncher::AwaitWorkers(int slotCount) {
    for (int spins = 0; spins < SpinsBeforeBlocking; ++spins) {
        if (IsDone(slotCount)) return;
        sched_yield();
    }
    callerBlocked = true;
    workerDone.WaitUntil([&] { return IsDone(slotCount); });
    callerBlocked = false;
}

void TThreadCruncher::Run(ThreadCrunchRange* ranges, int slotCount, QLM_ThreadFunction function, const char* name) {
    // Hand out the shares.
    for (int t = 1; t < slotCount; ++t) {
        Slot& slot = slots[t];
        if (slot.state != Idle) QLM_ExitWithMessage("A slot of the thread cruncher is still busy");
        slot.function = function;
        slot.range = &ranges[t];
        slot.name = name;
        slot.state = Pending;
        slot.state.notify_one();
    }
    // Take the first share, then those that no worker has begun.
    try {
        RunOnThisThread(function, ranges[0], name);
        for (int t = slotCount - 1; t > 0; --t) {
            if (!slots[t].TryTake()) continue;
            slots[t].RunShare();
            slots[t].state = Idle;
        }
    } catch (...) {
        // The ranges must outlive the workers, also on the way out.
        for (int t = 1; t < slotCount; ++t) {
            if (slots[t].TryTake()) slots[t].state = Idle;
        }
        AwaitWorkers(slotCount);
        throw;
    }
    AwaitWorkers(slotCount);
}

/// Fills the shares of a run; the last one takes the remainder. Returns the number of slots.
int FillRanges(ThreadCrunchRange* ranges, int64_t count, int wantedThreads, int threadLimit, void* userData) {
    const auto wanted = static_cast<int>(std::min<int64_t>(wantedThreads, count));
    // The share is settled before the limit of this set of workers, so that the limit only lengthens the last one.
    const auto share = static_cast<int32_t>(count / wanted);
    const int used = std::clamp(wanted, 1, threadLimit);
    for (int t = 0; t < used; ++t) {
        ThreadCrunchRange& range = ranges[t];
        range.start = t * share;
        range.end = t == used - 1 ? static_cast<int32_t>(count) : range.start + share;
        range.threadIndex = t;
        range.threadCount = used;
        range.userData = userData;
    }
    return used;
}

} // namespace

void QLM_ThreadCrunch(int64_t count, QLM_ThreadFunction function, void* userData, const char* name,
                      int percentOfThreads) {
    if (count < 1) return;
    if (count > std::numeric_limits<int32_t>::max()) QLM_RaiseError("Too many items for one crunch: %d", count);
    // A report may start from inside a share and still save by crunching.
    if (insideCrunch && !QLM_IsFailureUnderWay()) {
        QLM_ExitWithMessage("Absolutely cannot call the thread cruncher from within the thread cruncher!");
    }
    ThreadCrunchRange ranges[QLM_MaximumThreads];
    const int wanted = QLM_GetThreadCountForPercent(percentOfThreads);
    // On the failure road a worker may stand blocked: the caller does all shares itself.
    if (wanted == 1 || count == 1 || QLM_IsFailureUnderWay()) {
        const int used = FillRanges(ranges, count, wanted, QLM_MaximumThreads, userData);
        for (int t = 0; t < used; ++t) RunOnThisThread(function, ranges[t], name);
        return;
    }
    struct Lease {
        TThreadCruncher* const cruncher = Acquire();
        ~Lease() { Release(cruncher); }
    } const lease;
    const int used = FillRanges(ranges, count, wanted, lease.cruncher->GetThreadCount(), userData);
    lease.cruncher->Run(ranges, used, function, name);
}

void QLM_ThreadCrunchEachThread(QLM_ThreadFunction function, void* userData, const char* name) {
    QLM_ThreadCrunch(1000000000, function, userData, name);
}

int QLM_GetThreadCountForPercent(int percent) {
    const int processors = std::clamp(QLM_OS::GetNumberOfThreads(), 1, QLM_MaximumThreads);
    if (percent == 100) return processors;
    const int64_t threads = static_cast<int64_t>(processors) * percent / 100;
    return static_cast<int>(std::clamp<int64_t>(threads, 1, processors));
}

bool QLM_IsInsideCrunch() { return insideCrunch; }

void QLM_ShutdownCrunchers() {
    // A worker that failed is blocked for ever, and a share can't wait for its own end.
    if (insideCrunch || QLM_IsFailureUnderWay()) return;
    Pool& pool = ThePool();
    for (;;) {
        TThreadCruncher* cruncher;
        {
            std::lock_guard<std::mutex> guard(pool.mutex);
            cruncher = pool.top;
            if (!cruncher) return;
            pool.top = cruncher->nextFree;
        }
        cruncher->EndThreads();
        delete cruncher;
    }
}
