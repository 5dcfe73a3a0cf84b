#pragma once
// Blocks that can leave memory and come back by an ID. Any thread.

#include <cstddef>
#include <cstdint>

void QLM_VirtualMemory_Initialize();
void QLM_VirtualMemory_Shutdown();
/// Takes over *data (from QLM_Malloc), clears it and writes an ID to `outID`; size 0 stores nothing.
void QLM_VirtualMemory_Store(void** data, uint64_t size, uint32_t& outID, const char* sourceFile, uint32_t sourceLine);
/// Hands the block back to the caller and sets the ID to 0; an unknown ID raises.
bool QLM_VirtualMemory_Fetch(void** outData, uint64_t& outSize, uint32_t& id);
/// Forgets a block; 0 and unknown IDs do nothing.
void QLM_VirtualMemory_Release(uint32_t id);
void QLM_VirtualMemory_Pause(bool synchronous);
void QLM_VirtualMemory_Resume();
void QLM_VirtualMemory_FlushAll();
/// Starts afresh when nothing is stored, else does nothing.
void QLM_VirtualMemory_Reset();
/// The emergency sweep: flush everywhere, and on the main thread swap out maps that were not used lately.
void QLM_ReleaseMemory();
/// Bytes now stored, in memory or not.
uint64_t QLM_VirtualMemory_StoredBytes();

class QLM_VirtualMemoryLock {
  public:
    explicit QLM_VirtualMemoryLock(bool synchronous) { QLM_VirtualMemory_Pause(synchronous); }
    ~QLM_VirtualMemoryLock() { QLM_VirtualMemory_Resume(); }
};
