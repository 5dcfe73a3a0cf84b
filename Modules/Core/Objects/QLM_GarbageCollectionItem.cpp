#include "Core/Objects/QLM_GarbageCollectionItem.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/Objects/QLM_SpinLock.h"

#include <cstdint>
#include <deque>
#include <mutex>

namespace {

constexpr uint64_t TicksBeforeRelease = 10;

struct DeferredItem {
    uint64_t stamp;
    void* memory;
};

struct CollectionQueue {
    QLM_SpinLock lock;
    std::deque<DeferredItem> items; // from the plain allocator: an item's own operator new would come back here
    uint64_t tick = 0;
};

// Never destroyed: destructors of other statics still delete items.
CollectionQueue& Queue() {
    static CollectionQueue& queue = *new CollectionQueue;
    return queue;
}

/// Takes the front item when its time has come; null, and one tick onward, when it hasn't.
void* TakeDueItem(CollectionQueue& queue) {
    std::lock_guard guard(queue.lock);
    // The sum, not tick - 10: that would wrap in the first ten ticks and free at once.
    if (queue.items.empty() || queue.items.front().stamp + TicksBeforeRelease > queue.tick) {
        ++queue.tick;
        return nullptr;
    }
    void* memory = queue.items.front().memory;
    queue.items.pop_front();
    return memory;
}

} // namespace

void* QLM_GarbageCollectionItem::operator new(size_t size) { return QLM_Malloc(size, false); }

void QLM_GarbageCollectionItem::operator delete(void* memory) noexcept {
    if (!memory) return;
    CollectionQueue& queue = Queue();
    std::lock_guard guard(queue.lock);
    queue.items.push_back({queue.tick, memory});
}

void QLM_ReleaseDeferredItems() {
    CollectionQueue& queue = Queue();
    while (void* memory = TakeDueItem(queue)) QLM_Free(memory);
}

bool QLM_AreDeferredItemsPending() {
    CollectionQueue& queue = Queue();
    std::lock_guard guard(queue.lock);
    return !queue.items.empty();
}

void QLM_CheckItem(const QLM_GarbageCollectionItem* item, const char* operationName) {
    if (!item) QLM_RaiseError("Item is NULL in %s", operationName);
    if (!item->WasCreated()) QLM_RaiseError("Item was not created before %s", operationName);
    if (!item->IsAlive()) QLM_RaiseError("Item has already been deleted before %s", operationName);
}
