#pragma once
// Fork-join over an index range.

#include "Core/Threads/QLM_Threads.h"

#include <cstdint>
#include <type_traits>
#include <utility>

constexpr int QLM_MaximumThreads = 32;

/// What a thread function receives, one per slot, on the caller's stack.
struct ThreadCrunchRange {
    int32_t start = 0;       ///< first index of this slot
    int32_t end = 0;         ///< one past the last
    int32_t threadIndex = 0; ///< 0 .. threadCount - 1
    int32_t threadCount = 1; ///< slots of this run
    void* userData = nullptr;
};
using QLM_ThreadFunction = uint64_t (*)(ThreadCrunchRange*);

/// Runs `function` over 0..count-1 split into one share a thread, the caller taking the first; returns when all are
/// done. count < 1 does nothing. A share must not wait for another to begin. A crunch inside a crunch ends the program.
/// `name` is recorded for the trace. Any thread; an exception of a share that the caller ran comes back, one on a
/// worker goes to the failure report.
void QLM_ThreadCrunch(int64_t count, QLM_ThreadFunction function, void* userData, const char* name,
                      int percentOfThreads = 100);

/// The same with a callable taking (const ThreadCrunchRange&).
template <class F, class = std::enable_if_t<std::is_invocable_v<F&, const ThreadCrunchRange&>>>
void QLM_ThreadCrunch(int64_t count, F&& body, const char* name, int percentOfThreads = 100) {
    using Body = std::remove_reference_t<F>;
    QLM_ThreadCrunch(count, [](ThreadCrunchRange* r) -> uint64_t {
        (*static_cast<Body*>(r->userData))(static_cast<const ThreadCrunchRange&>(*r));
        return 0;
    }, const_cast<void*>(static_cast<const void*>(&body)), name, percentOfThreads);
}

/// For functions that take their own share by threadIndex: count 1,000,000,000 and 100 percent.
void QLM_ThreadCrunchEachThread(QLM_ThreadFunction function, void* userData, const char* name);
template <class F, class = std::enable_if_t<std::is_invocable_v<F&, const ThreadCrunchRange&>>>
void QLM_ThreadCrunchEachThread(F&& body, const char* name) {
    QLM_ThreadCrunch(1000000000, std::forward<F>(body), name);
}

int QLM_GetThreadCountForPercent(int percent);
/// True on a thread that is inside a crunch (the caller's slot too).
bool QLM_IsInsideCrunch();
/// Ends and joins all cruncher threads; the next crunch starts anew. Main thread, nothing running.
void QLM_ShutdownCrunchers();
