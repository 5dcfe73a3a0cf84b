// Blocks in and out by their IDs.

#include "VirtualMemory/QLM_VirtualMemory.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_ModuleHooks.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <cstring>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

class VirtualMemoryTest : public testing::Test {
  protected:
    VirtualMemoryTest() { QLM_VirtualMemory_Initialize(); }
    ~VirtualMemoryTest() override { QLM_VirtualMemory_Shutdown(); }

    static uint32_t StoreBlock(size_t size, int fill = 0) {
        void* block = QLM_Malloc(size, false);
        std::memset(block, fill, size);
        uint32_t id = 77;
        QLM_VirtualMemory_Store(&block, size, id, __FILE__, __LINE__);
        EXPECT_EQ(block, nullptr);
        return id;
    }
};

TEST_F(VirtualMemoryTest, FetchGivesBackTheIdenticalBlockOnce) {
    void* block = QLM_Malloc(1000, false);
    void* const original = block;
    std::memset(block, 0x5A, 1000);
    uint32_t id = 0;
    QLM_VirtualMemory_Store(&block, 1000, id, __FILE__, __LINE__);
    EXPECT_EQ(block, nullptr);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 1000u);

    QLM_VirtualMemory_FlushAll();
    void* fetched = nullptr;
    uint64_t size = 0;
    uint32_t copy = id;
    EXPECT_TRUE(QLM_VirtualMemory_Fetch(&fetched, size, id));
    EXPECT_EQ(fetched, original);
    EXPECT_EQ(size, 1000u);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(static_cast<unsigned char*>(fetched)[999], 0x5A);
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 0u);
    QLM_Free(fetched);

    try {
        QLM_VirtualMemory_Fetch(&fetched, size, copy);
        FAIL() << "an ID serves once";
    } catch (const QLM_Exception& failure) {
        EXPECT_EQ(failure.what(), "Cannot find the virtual memory item with ID = " + std::to_string(copy));
    }
}

TEST_F(VirtualMemoryTest, AnEmptyBlockGetsNoID) {
    int anything = 0;
    void* block = &anything;
    uint32_t id = 5;
    QLM_VirtualMemory_Store(&block, 0, id, __FILE__, __LINE__);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(block, &anything); // still the caller's
}

TEST_F(VirtualMemoryTest, ReleaseForgetsAndResetSparesWhatIsStored) {
    const uint32_t first = StoreBlock(10), second = StoreBlock(20);
    EXPECT_EQ(first, 1u);
    EXPECT_EQ(second, 2u);
    QLM_VirtualMemory_Release(0);
    QLM_VirtualMemory_Release(12345);
    QLM_VirtualMemory_Release(first);
    QLM_VirtualMemory_Release(first);
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 20u);
    QLM_VirtualMemory_Reset();
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 20u);
    EXPECT_EQ(StoreBlock(1), 3u);
    QLM_VirtualMemory_Release(second);
    QLM_VirtualMemory_Release(3);
    QLM_VirtualMemory_Reset();
    EXPECT_EQ(StoreBlock(1), 1u);
}

TEST_F(VirtualMemoryTest, ThreadsStoreAndFetchAtOnce) {
    QLM_ThreadCrunch(400, [](const ThreadCrunchRange& r) {
        const QLM_VirtualMemoryLock paused(true);
        std::vector<std::pair<uint32_t, int>> stored;
        for (int i = r.start; i < r.end; ++i) stored.emplace_back(StoreBlock(16, i % 251), i);
        for (auto& [id, i] : stored) {
            if (i % 3 == 0) {
                QLM_VirtualMemory_Release(id);
                continue;
            }
            void* block = nullptr;
            uint64_t size = 0;
            QLM_VirtualMemory_Fetch(&block, size, id);
            EXPECT_EQ(size, 16u);
            EXPECT_EQ(static_cast<unsigned char*>(block)[15], i % 251);
            QLM_Free(block);
        }
    }, "StoreAndFetch");
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 0u);
}

TEST_F(VirtualMemoryTest, TheAllocatorsHookSweepsTheMapsOnTheMainThreadOnly) {
    int sweeps = 0;
    QLM_ModuleHooks& hooks = QLM_GetModuleHooks();
    hooks.sweepMaps = [&] {
        ++sweeps;
        hooks.releaseMemory(); // an allocation inside the sweep runs short again
    };
    hooks.releaseMemory();
    EXPECT_EQ(sweeps, 1);
    uint32_t id = 0;
    QLM_StartThread(id, [&] { hooks.releaseMemory(); }, QLM_ThreadPriority::Normal, "Short of memory");
    QLM_JoinThread(id);
    EXPECT_EQ(sweeps, 1);
    hooks.sweepMaps = nullptr;
}

TEST(VirtualMemoryDeathTest, UseBeforeTheStartEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    QLM_VirtualMemory_Release(1); // nothing to forget yet
    int anything = 0;
    void* block = &anything;
    uint64_t size = 0;
    uint32_t id = 1;
    const char* message = "Virtual Memory Manager has not been initialized!";
    EXPECT_EXIT(QLM_VirtualMemory_Store(&block, 4, id, "", 0), testing::ExitedWithCode(1), message);
    EXPECT_EXIT(QLM_VirtualMemory_Fetch(&block, size, id), testing::ExitedWithCode(1), message);
}

} // namespace
