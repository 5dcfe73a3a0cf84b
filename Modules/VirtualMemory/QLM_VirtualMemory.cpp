#include "VirtualMemory/QLM_VirtualMemory.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Objects/ThreadLocker.h"

#include <map>
#include <string>
#include <utility>

namespace {

/// One block and where it was stored from.
struct Node {
    void* data;
    uint64_t size;
    std::string sourceFile;
    uint32_t sourceLine;
};

/// All blocks stay on the heap under their IDs, so a block is never farther away than a look-up.
struct Store {
    ThreadLocker lock;
    bool initialised = false;
    std::map<uint32_t, Node> itemsByID;
    uint32_t nextID = 1;
    uint64_t storedBytes = 0;
};

Store& TheStore() {
    static Store* const store = new Store;
    return *store;
}

void RequireInitialised(const Store& store) {
    if (!store.initialised) QLM_ExitWithMessage("Virtual Memory Manager has not been initialized!");
}

/// Takes a node out of the store; the lock must be held.
Node TakeOut(Store& store, std::map<uint32_t, Node>::iterator item) {
    Node node = std::move(item->second);
    store.itemsByID.erase(item);
    store.storedBytes -= node.size;
    return node;
}

} // namespace

void QLM_VirtualMemory_Initialize() {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    store.initialised = true;
    QLM_GetModuleHooks().releaseMemory = QLM_ReleaseMemory;
}

void QLM_VirtualMemory_Shutdown() {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    while (!store.itemsByID.empty()) QLM_Free(TakeOut(store, store.itemsByID.begin()).data);
    store.nextID = 1;
    store.initialised = false;
}

void QLM_VirtualMemory_Store(void** data, uint64_t size, uint32_t& outID, const char* sourceFile,
                             uint32_t sourceLine) {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    RequireInitialised(store);
    outID = 0;
    if (size == 0) return;
    const uint32_t id = store.nextID++;
    store.itemsByID.emplace(id, Node{*data, size, sourceFile, sourceLine});
    store.storedBytes += size;
    *data = nullptr;
    outID = id;
}

bool QLM_VirtualMemory_Fetch(void** outData, uint64_t& outSize, uint32_t& id) {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    RequireInitialised(store);
    const auto item = store.itemsByID.find(id);
    if (item == store.itemsByID.end()) {
        QLM_RaiseError("Cannot find the virtual memory item with ID = %d", static_cast<int32_t>(id));
    }
    const Node node = TakeOut(store, item);
    *outData = node.data;
    outSize = node.size;
    id = 0;
    return true;
}

void QLM_VirtualMemory_Release(uint32_t id) {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    const auto item = store.itemsByID.find(id);
    if (item != store.itemsByID.end()) QLM_Free(TakeOut(store, item).data);
}

// No block waits to be written, so there is no writer to stop and nothing to flush.
void QLM_VirtualMemory_Pause(bool) {}
void QLM_VirtualMemory_Resume() {}
void QLM_VirtualMemory_FlushAll() {}

void QLM_VirtualMemory_Reset() {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    if (store.itemsByID.empty()) store.nextID = 1;
}

void QLM_ReleaseMemory() {
    // The sweep allocates itself: what it calls must not start another one.
    thread_local bool sweeping = false;
    if (sweeping) return;
    sweeping = true;
    QLM_VirtualMemory_FlushAll();
    if (QLM_OS::IsMainThread()) {
        QLM_Heartbeat(__FILE__, __LINE__, 1);
        if (const auto& sweep = QLM_GetModuleHooks().sweepMaps) sweep();
    }
    QLM_VirtualMemory_FlushAll();
    sweeping = false;
}

uint64_t QLM_VirtualMemory_StoredBytes() {
    Store& store = TheStore();
    ThreadLockerScope scope(&store.lock);
    return store.storedBytes;
}
