#pragma once
// Large planes that must read as zero but are mostly never touched.

#include "Core/OS/QLM_Memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

/// Memory of `bytes` zeroes that takes real memory only where it is written; released with QLM_Free. Raises when memory
/// is out.
inline void* QLM_AllocateZeroed(size_t bytes) {
    if (bytes == 0) return nullptr;
    if (void* block = std::calloc(bytes, 1)) return block;
    // The checked road makes room first.
    void* block = QLM_Malloc(bytes, false);
    std::memset(block, 0, bytes);
    return block;
}

/// A plane that grows and never shrinks. Its user leaves it zeroed, so that it can serve another geometry at once.
template <class T> class QLM_ZeroedBlock {
  public:
    /// At least `count` elements, all zero if the user kept the rule.
    T* Provide(size_t count) {
        if (count > capacity) {
            block.reset(); // two large blocks need not fit into memory together
            capacity = 0;
            block.reset(static_cast<T*>(QLM_AllocateZeroed(count * sizeof(T))));
            capacity = count;
        }
        return block.get();
    }
    T* Get() const { return block.get(); }
    void Free() {
        block.reset();
        capacity = 0;
    }

  private:
    struct Deleter {
        void operator()(T* p) const { QLM_Free(p); }
    };
    std::unique_ptr<T[], Deleter> block;
    size_t capacity = 0;
};
