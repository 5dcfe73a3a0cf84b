#pragma once
// The root of every long-lived object: liveness markers and deferred deletion.

#include <cstddef>

/// Root of all. The pair of markers tells a live item from one never constructed and from one destroyed;
/// the memory of a deleted item stays readable for ten collection ticks.
/// Items are created with `new` and deleted by their one owner; copying never copies the markers.
class QLM_GarbageCollectionItem {
  public:
    QLM_GarbageCollectionItem() noexcept { selfCreated = this; selfAlive = this; }
    QLM_GarbageCollectionItem(const QLM_GarbageCollectionItem&) noexcept : QLM_GarbageCollectionItem() {}
    QLM_GarbageCollectionItem& operator=(const QLM_GarbageCollectionItem&) noexcept { return *this; }
    virtual ~QLM_GarbageCollectionItem() { selfAlive = nullptr; }

    /// Allocates through the checked allocator; raises when memory is out. Any thread.
    static void* operator new(size_t size);
    /// Queues the memory for release ten ticks later. Null is ignored. Any thread.
    static void operator delete(void* memory) noexcept;
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}

    bool WasCreated() const noexcept { return selfCreated == this; }
    bool IsAlive() const noexcept { return selfAlive == this; }

  private:
    // Volatile: the last store of a destructor must reach memory, and a check must read it.
    const volatile QLM_GarbageCollectionItem* volatile selfCreated;
    const volatile QLM_GarbageCollectionItem* volatile selfAlive;
};

/// Virtual middle class without members of its own.
class QLM_RootClass : public virtual QLM_GarbageCollectionItem {};

/// Frees what was deleted ten or more ticks ago and advances the tick. Main thread, once an idle pass.
void QLM_ReleaseDeferredItems();
/// True while deleted items wait for their release. Any thread.
bool QLM_AreDeferredItemsPending();

/// Raises "Item is NULL in %s", "Item was not created before %s" or "Item has already been deleted before %s",
/// or returns. Takes no lock, allocates nothing. Any thread.
void QLM_CheckItem(const QLM_GarbageCollectionItem* item, const char* operationName);

/// True when the check would pass; the inline half of every checked dereference.
inline bool QLM_IsItemUsable(const QLM_GarbageCollectionItem* item) noexcept {
    return item && item->WasCreated() && item->IsAlive();
}
