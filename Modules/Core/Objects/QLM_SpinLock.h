#pragma once
// The lock for moments: a word taken by compare-and-swap.

#include <atomic>
#include <cstdint>
#include <thread>

/// Spins with a yield between attempts. Not recursive; for a few instructions at a time. Any thread.
class QLM_SpinLock {
  public:
    void lock() noexcept {
        uint32_t expected = 0;
        while (!word.compare_exchange_weak(expected, 1, std::memory_order_acquire)) {
            expected = 0;
            std::this_thread::yield();
        }
    }
    void unlock() noexcept { word.store(0, std::memory_order_release); }

  private:
    std::atomic<uint32_t> word{0};
};
