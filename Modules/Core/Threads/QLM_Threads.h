#pragma once
// Threads: start, wait, yield, sleep.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

enum class QLM_ThreadPriority { Normal, Highest };

/// Starts a thread that runs `function` inside a catch-all which hands failures to the failure report.
/// `threadIDOut` receives an own counter, never 0. Any thread.
void QLM_StartThread(uint32_t& threadIDOut, std::function<void()> function, QLM_ThreadPriority priority,
                     const std::string& name);
/// Joins a thread; returns at once for 0, an unknown ID or the calling thread itself.
void QLM_JoinThread(uint32_t threadID);
/// Number of the calling thread, 1 for the main thread.
uint32_t QLM_CurrentThreadID();
void QLM_Sleep(); ///< the shortest platform sleep
void QLM_Yield(); ///< gives up the time slice, then sleeps so

/// Wakes threads that wait for a change of atomic state. Change the state first, then Notify.
class QLM_Signal {
  public:
    void Notify() {
        // An empty critical section: a waiter is either before its test or asleep.
        { std::lock_guard<std::mutex> guard(mutex); }
        changed.notify_all();
    }
    /// Blocks until `done()` holds; it runs under the signal's mutex. The main thread looks now and then for a failure
    /// that a worker handed over, and then doesn't come back. While it reports a failure its waits end at once, with
    /// false if `done()` doesn't hold.
    template <class F> bool WaitUntil(F done) {
        std::unique_lock<std::mutex> guard(mutex);
        while (!done()) {
            if (!Block(guard)) return false;
        }
        return true;
    }

    /// Blocks until `done()` holds, but no longer than that; the last answer of `done()`.
    template <class F> bool WaitFor(int milliseconds, F done) {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, std::chrono::milliseconds(milliseconds), done);
    }

  private:
    bool Block(std::unique_lock<std::mutex>& guard);
    std::mutex mutex;
    std::condition_variable changed;
};

/// In a test build a random pause at places where threads meet; empty otherwise.
#ifdef QLM_RANDOM_DELAYS
void QLM_RandomDelay();
#else
inline void QLM_RandomDelay() {}
#endif
