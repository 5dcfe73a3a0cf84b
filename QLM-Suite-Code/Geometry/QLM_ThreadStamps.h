#pragma once
// A scratch int a vertex for each slot of a crunch. Private to this room.

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

/// Zeroed ints that a slot takes at its first use. The pages come from the system as they are touched, so a slot
/// that stays in its part of the mesh pays for that part only.
class QLM_ThreadStamps {
  public:
    explicit QLM_ThreadStamps(int64_t n) : count(n) {}
    /// Called by the slot itself.
    int32_t* Get(int threadIndex) {
        auto& slot = slots[threadIndex];
        if (!slot) slot.reset(static_cast<int32_t*>(std::calloc(count + 1, sizeof(int32_t))));
        if (!slot) QLM_RaiseError("No memory for the scratch data of %d vertices", count);
        return slot.get();
    }

  private:
    struct Release {
        void operator()(int32_t* p) const { std::free(p); }
    };
    int64_t count;
    std::unique_ptr<int32_t[], Release> slots[QLM_MaximumThreads];
};
