#pragma once
// A scratch set of bits that workers may mark at once.

#include <atomic>
#include <cstdint>
#include <memory>

/// Sized and cleared on the main thread; Set and Has from any thread.
class QLM_MarkerSet {
  public:
    void Reset(int64_t n);
    /// True when this call set the bit.
    bool Set(int64_t i) {
        const uint32_t bit = 1u << (i & 31);
        return !(words[i >> 5].fetch_or(bit, std::memory_order_relaxed) & bit);
    }
    void Clear(int64_t i) { words[i >> 5].fetch_and(~(1u << (i & 31)), std::memory_order_relaxed); }
    bool Has(int64_t i) const { return words[i >> 5].load(std::memory_order_relaxed) >> (i & 31) & 1; }

  private:
    std::unique_ptr<std::atomic<uint32_t>[]> words;
    int64_t wordCount = 0;
};
