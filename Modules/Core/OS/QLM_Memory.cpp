#include "Core/OS/QLM_Memory.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_ModuleHooks.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

constexpr uint64_t RetryNanoseconds = 5'000'000'000;

void ReleaseMemory() {
    if (const auto& release = QLM_GetModuleHooks().releaseMemory) release();
}

/// Makes room and tries again for five seconds of the machine's time; the program's may stand still.
void* Retry(size_t size) {
    if (size > static_cast<size_t>(PTRDIFF_MAX)) return nullptr; // no block can be so large, whatever is released
    const uint64_t start = QLM_Clock::RealNanoseconds();
    while (QLM_Clock::RealNanoseconds() - start < RetryNanoseconds) {
        ReleaseMemory();
        std::this_thread::yield();
        if (void* block = std::malloc(size)) return block;
        std::this_thread::yield();
    }
    ReleaseMemory();
    return nullptr;
}

/// Asks for large pages: the first touch of a map or an array then doesn't stop every 4096 bytes.
void* WithLargePages(void* block, size_t size) {
    constexpr uintptr_t LargePage = 2 << 20;
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    const uintptr_t first = (address + LargePage - 1) & ~(LargePage - 1), end = (address + size) & ~(LargePage - 1);
    if (first < end) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    return block;
}

} // namespace

void* QLM_Malloc(size_t size, bool canFail) {
    if (size == 0) return nullptr;
    if (void* block = std::malloc(size)) return WithLargePages(block, size);
    if (void* block = Retry(size)) return block;
    if (!canFail) QLM_RaiseError("Memory allocation of %u bytes failed", size);
    return nullptr;
}

void* QLM_Realloc(void* pointer, size_t oldSize, size_t newSize, bool canFail) {
    void* block = QLM_Malloc(newSize, canFail);
    if (!block && newSize != 0) return nullptr; // the old block stays the caller's
    if (pointer && block) std::memcpy(block, pointer, std::min(oldSize, newSize));
    QLM_Free(pointer);
    return block;
}

void QLM_Free(void* pointer) { std::free(pointer); }
