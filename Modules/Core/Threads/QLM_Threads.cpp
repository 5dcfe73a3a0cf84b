#include "Core/Threads/QLM_Threads.h"

#include "Core/Logging/QLM_LogInternals.h"
#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <system_error>
#include <thread>

namespace {

constexpr uint32_t MainThreadID = 1;
constexpr size_t SignalStackBytes = 256 * 1024; ///< a rescue may run on it; untouched pages cost nothing
constexpr std::chrono::milliseconds FailureCheckInterval(10);

std::atomic<uint32_t> nextThreadID{MainThreadID + 1};
thread_local uint32_t ownThreadID = 0;

/// A started thread until it is joined.
struct ThreadRecord {
    std::thread thread;
    std::mutex joinMutex; ///< the second of two waiters waits for the first
    std::atomic<bool> finished{false};
    QLM_Signal ended;
};

struct ThreadTable {
    std::mutex mutex;
    std::map<uint32_t, std::shared_ptr<ThreadRecord>> records;
};

ThreadTable& TheThreadTable() {
    static ThreadTable* const table = new ThreadTable;
    return *table;
}

void NameThread(const std::string& name, uint32_t id) {
    // The kernel takes 15 characters at most; the logger knows the whole name.
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
    QLM_RegisterThreadName(name, id);
}

/// Whatever leaves the thread's function ends in the failure report.
void QLM_SafeThreadCallerB(const std::function<void()>& function, const std::string& name, uint32_t id) {
    const QLM_SignalStack signalStack(SignalStackBytes);
    try {
        NameThread(name, id);
        QLM_Log("Launching Thread, function: %s, threadID: %u", name, id);
        function();
    } catch (const std::exception& failure) {
        QLM_HandOverFailure(failure.what());
    } catch (...) {
        QLM_HandOverFailure("unknown exception");
    }
}

void MentionPriorityOnce() {
    static std::once_flag mentioned;
    std::call_once(mentioned, [] { QLM_LogText("Threads run at normal priority: a higher one needs privileges"); });
}

} // namespace

bool QLM_Signal::Block(std::unique_lock<std::mutex>& guard) {
    if (!QLM_OS::IsMainThread()) {
        changed.wait(guard);
        return true;
    }
    if (QLM_IsReportingFailure()) return false;
    changed.wait_for(guard, FailureCheckInterval);
    guard.unlock();
    QLM_TakeUpFailure();
    guard.lock();
    return true;
}

void QLM_StartThread(uint32_t& threadIDOut, std::function<void()> function, QLM_ThreadPriority priority,
                     const std::string& name) {
    if (priority == QLM_ThreadPriority::Highest) MentionPriorityOnce();
    const uint32_t id = nextThreadID++;
    const auto record = std::make_shared<ThreadRecord>();
    threadIDOut = id;
    ThreadTable& table = TheThreadTable();
    std::lock_guard<std::mutex> guard(table.mutex);
    try {
        record->thread = std::thread([record, id, name, function = std::move(function)] {
            ownThreadID = id;
            QLM_SafeThreadCallerB(function, name, id);
            record->finished = true;
            record->ended.Notify();
        });
    } catch (const std::system_error& failure) {
        threadIDOut = 0;
        QLM_RaiseError("Cannot start the thread %s: %s", name, failure.what());
    }
    table.records[id] = record;
}

void QLM_JoinThread(uint32_t threadID) {
    if (threadID == 0 || threadID == QLM_CurrentThreadID()) return;
    ThreadTable& table = TheThreadTable();
    std::shared_ptr<ThreadRecord> record;
    {
        std::lock_guard<std::mutex> guard(table.mutex);
        const auto found = table.records.find(threadID);
        if (found == table.records.end()) return;
        record = found->second;
    }
    // Wait for the end first: the join itself can't be left when a failure comes in between.
    if (!record->ended.WaitUntil([&] { return record->finished.load(); })) return;
    {
        std::lock_guard<std::mutex> guard(record->joinMutex);
        if (record->thread.joinable()) record->thread.join();
    }
    std::lock_guard<std::mutex> guard(table.mutex);
    table.records.erase(threadID);
}

uint32_t QLM_CurrentThreadID() {
    if (QLM_OS::IsMainThread()) return MainThreadID;
    if (ownThreadID == 0) ownThreadID = nextThreadID++;
    return ownThreadID;
}

void QLM_Sleep() {
    const timespec shortest = {0, 100};
    nanosleep(&shortest, nullptr);
}

void QLM_Yield() {
    sched_yield();
    QLM_Sleep();
}

#ifdef QLM_RANDOM_DELAYS
void QLM_RandomDelay() {
    // A xorshift generator a thread: the threads must not meet over the generator itself.
    thread_local uint32_t state = QLM_CurrentThreadID() * 2654435769u | 1u;
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    const uint32_t microseconds = (state >> 8) % 201;
    if (microseconds == 0) sched_yield();
    else std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}
#endif
