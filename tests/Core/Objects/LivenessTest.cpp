// Checked pointers, deferred deletion and the containers that check.

#include "Core/Objects/QLM_List.h"
#include "Core/Objects/QLM_SimpleArray.h"
#include "Core/Objects/QLM_ThreadSafeVariable.h"
#include "tests/Core/Raised.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

// In the global namespace: their names are spelled in what a check raises.
struct QLM_TestItem : virtual QLM_RootClass {
    int value = 7;
};
struct QLM_TestLargeItem : QLM_RootClass {
    char payload[64 << 20]; // its own mapping, which goes the moment it is freed
};

namespace {

void RunTicks(int count) {
    for (int i = 0; i < count; ++i) QLM_ReleaseDeferredItems();
}

/// Deletes out of the compiler's sight, which would refuse the accesses that these tests are about.
template <class Item> [[gnu::noinline]] void Delete(Item* item) { delete item; }

bool IsReleased(const void* memory) {
#ifdef __SANITIZE_ADDRESS__
    return __asan_address_is_poisoned(memory);
#else
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    void* start = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(memory) & ~(page - 1));
    return msync(start, page, MS_ASYNC) != 0;
#endif
}

TEST(SafePtr, EachOperationRaisesUnderItsOwnName) {
    static_assert(sizeof(QLM_SafePtr<QLM_TestItem>) == sizeof(void*));
    QLM_SafePtr<QLM_TestItem> null;
    EXPECT_EQ(static_cast<QLM_TestItem*>(null), nullptr);
    EXPECT_EQ(Raised([&] { (void)null->value; }), "Item is NULL in QLM_SafePtr<class QLM_TestItem>::operator ->");
    EXPECT_EQ(Raised([&] { (void)(*null).value; }), "Item is NULL in QLM_SafePtr<class QLM_TestItem>::operator *");

    QLM_TestItem* item = new QLM_TestItem;
    QLM_SafePtr<QLM_TestItem> pointer = item;
    EXPECT_EQ(pointer->value, 7);
    Delete(item);
    const std::string dead = "Item has already been deleted before QLM_SafePtr<class QLM_TestItem>::";
    EXPECT_EQ(Raised([&] { (void)pointer->value; }), dead + "operator ->");
    EXPECT_EQ(Raised([&] { (void)(*pointer).value; }), dead + "operator *");
    EXPECT_EQ(Raised([&] { (void)static_cast<QLM_TestItem*>(pointer); }), dead + "operator class QLM_TestItem *");
    EXPECT_EQ(Raised([&] { QLM_SafePtr<QLM_TestItem> other(item); }), dead + "QLM_SafePtr");
    EXPECT_EQ(Raised([&] { null = item; }), dead + "operator =");
}

TEST(SafePtr, ItemsOnTheStackDieAndCopiesKeepTheirOwnMarkers) {
    QLM_TestItem first;
    QLM_TestItem copy(first);
    copy = first;
    EXPECT_TRUE(QLM_IsItemUsable(&first) && QLM_IsItemUsable(&copy));

    alignas(QLM_TestItem) unsigned char memory[sizeof(QLM_TestItem)] = {};
    auto* raw = reinterpret_cast<QLM_GarbageCollectionItem*>(memory);
    EXPECT_EQ(Raised([&] { QLM_CheckItem(raw, "here"); }), "Item was not created before here");
    auto* placed = new (memory) QLM_TestItem;
    QLM_GarbageCollectionItem* base = placed;
    QLM_CheckItem(base, "here");
    placed->~QLM_TestItem();
    EXPECT_EQ(Raised([&] { QLM_CheckItem(base, "here"); }), "Item has already been deleted before here");
}

TEST(DeferredDeletion, MemoryIsReleasedByTheTenthTickAfterNotEarlier) {
    RunTicks(11); // whatever other tests left
    auto* item = new QLM_TestLargeItem;
    Delete(item);
    RunTicks(10);
    EXPECT_FALSE(IsReleased(item));
    EXPECT_EQ(Raised([&] { QLM_CheckItem(item, "x"); }), "Item has already been deleted before x");
    RunTicks(1);
    EXPECT_TRUE(IsReleased(item));
}

TEST(DeferredDeletion, ThreadsDeleteWhileTheMainThreadTicks) {
    std::vector<std::thread> threads;
    std::atomic<int> running{4};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                QLM_SafePtr<QLM_TestItem> item = new QLM_TestItem;
                delete static_cast<QLM_TestItem*>(item);
            }
            --running;
        });
    while (running) RunTicks(1);
    for (std::thread& thread : threads) thread.join();
}

TEST(Owned, DeletesItsItemOnce) {
    auto* first = new QLM_TestItem;
    auto* second = new QLM_TestItem;
    {
        QLM_Owned<QLM_TestItem> owner(first);
        owner.Reset(second);
        EXPECT_FALSE(QLM_IsItemUsable(first));
        QLM_Owned<QLM_TestItem> heir(std::move(owner));
        EXPECT_FALSE(owner);
        EXPECT_TRUE(QLM_IsItemUsable(heir.Get()));
    }
    EXPECT_FALSE(QLM_IsItemUsable(second));
}

TEST(List, TheQueueIsASnapshotThatChecks) {
    QLM_List<QLM_TestItem*> list;
    auto* first = new QLM_TestItem;
    auto* second = new QLM_TestItem;
    list.Add(first);
    list.Add(second);
    list.cachedIndex = 1;
    auto queue = list.GetParsingQueue();
    EXPECT_TRUE(list.Remove(first));
    EXPECT_FALSE(list.Remove(first));
    EXPECT_EQ(list.cachedIndex, -1);
    EXPECT_EQ(list.IndexOf(second), 0);

    // What was removed is still visited, and reported once it is dead.
    EXPECT_EQ(static_cast<QLM_TestItem*>(queue), first);
    Delete(first);
    EXPECT_EQ(Raised([&] { (void)queue->value; }),
              "Item has already been deleted before QLM_RootClassQueue<class QLM_TestItem *>::operator ->");
    queue.Pop();
    EXPECT_EQ(queue->value, 7);
    queue.Pop();
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_EQ(queue.parsedCount, 2u);

    Delete(second);
    EXPECT_EQ(Raised([&] { list.GetParsingQueue(); }),
              "Item has already been deleted before QLM_List<class QLM_TestItem *>::GetParsingQueue");
    queue.Push(nullptr);
    EXPECT_EQ(Raised([&] { (void)static_cast<QLM_TestItem*>(queue); }),
              "Item is NULL in QLM_RootClassQueue<class QLM_TestItem *>::operator class QLM_TestItem *");
    queue.allowNull = true;
    EXPECT_EQ(static_cast<QLM_TestItem*>(queue), nullptr);
}

TEST(List, ElementsMayBeSafePointersOrValues) {
    QLM_List<QLM_SafePtr<QLM_TestItem>> list;
    auto* item = new QLM_TestItem;
    list.Add(item);
    EXPECT_EQ(list.GetParsingQueue().front()->value, 7);
    Delete(item);
    EXPECT_EQ(Raised([&] { list.GetParsingQueue(); }), "Item has already been deleted before "
              "QLM_List<class QLM_SafePtr<class QLM_TestItem> >::GetParsingQueue");
    const QLM_List<int> numbers{3, 4};
    EXPECT_EQ(static_cast<int>(numbers.GetParsingQueue()), 3);
}

TEST(SimpleArray, SizesWithoutMarginAndRefusesToTouchALoan) {
    QLM_SimpleArray<int> array;
    array.SetCount(4);
    for (int i = 0; i < 4; ++i) array[i] = i + 1;
    array.SetCount(2);
    EXPECT_EQ(array.GetCapacity(), 4);
    array.Add(9);
    EXPECT_EQ(array[2], 9);
    array.Resize(6, true, true);
    EXPECT_EQ(std::vector<int>(array.begin(), array.end()), (std::vector<int>{1, 2, 9, 0, 0, 0}));
    array.Resize(2, true, false);
    array.Resize(3, true, true); // within the capacity the old third element must not shine through
    EXPECT_EQ(std::vector<int>(array.begin(), array.end()), (std::vector<int>{1, 2, 0}));

    int loan[2] = {5, 6};
    array.SetExternal(loan, 2);
    EXPECT_EQ(Raised([&] { array.SetCount(1); }), "ExternalDataNotAllowed");
    EXPECT_EQ(Raised([&] { array.Free(); }), "ExternalDataNotAllowed");
    EXPECT_EQ(array[1], 6);
    array.ReleaseExternal();
    EXPECT_EQ(array.GetCount(), 0);
}

TEST(ThreadSafeVariable, RaisesBeforeTheFirstSet) {
    QLM_ThreadSafeVariable<unsigned> variable;
    EXPECT_EQ(Raised([&] { variable.Get(); }), "QLM_ThreadSafeVariable not initialized");
    variable.Set(3);
    EXPECT_EQ(variable.Get(), 3u);
}

TEST(ThreadLocker, NestsAndGivesUpInTime) {
    ThreadLocker locker;
    ThreadLockerScope outer(&locker);
    ThreadLockerScope inner(&locker), none(nullptr);
    bool taken = true;
    std::thread([&] { taken = locker.TryLock() || locker.TryLockFor(0.001); }).join();
    EXPECT_FALSE(taken);
}

} // namespace
