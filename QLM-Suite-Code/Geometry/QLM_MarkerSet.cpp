#include "Geometry/QLM_MarkerSet.h"

void QLM_MarkerSet::Reset(int64_t n) {
    const int64_t needed = (n + 31) / 32;
    if (needed != wordCount) {
        words = std::make_unique<std::atomic<uint32_t>[]>(needed);
        wordCount = needed;
        return;
    }
    for (int64_t i = 0; i < wordCount; ++i) words[i].store(0, std::memory_order_relaxed);
}
