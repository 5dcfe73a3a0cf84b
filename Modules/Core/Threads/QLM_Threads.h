#pragma once
// Threads: start, wait, yield, sleep.

#include <cstdint>
#include <functional>
#include <string>

enum class QLM_ThreadPriority { Normal, Highest };

/// Starts a thread that runs `function` inside a catch-all which hands failures to the failure report.
/// `threadIDOut` receives an own counter, never 0. Any thread.
void QLM_StartThread(uint32_t& threadIDOut, std::function<void()> function, QLM_ThreadPriority priority, const std::string& name);
/// Joins a thread; returns at once for 0, an unknown ID or the calling thread itself.
void QLM_JoinThread(uint32_t threadID);
/// Number of the calling thread, 1 for the main thread.
uint32_t QLM_CurrentThreadID();
void QLM_Sleep(); ///< the shortest platform sleep
void QLM_Yield(); ///< gives up the time slice, then sleeps so

/// In a test build a random pause at places where threads meet; empty otherwise.
#ifdef QLM_RANDOM_DELAYS
void QLM_RandomDelay();
#else
inline void QLM_RandomDelay() {}
#endif
