#include "MapTestSupport.h"

#include "Maps/QLM_ImageMapBuffer.h"
#include "Maps/QLM_MaterialMapSource.h"

namespace {

class BackgroundSnapshots : public MapTest {};

/// The one value of all samples, -1 when they differ.
int OneValue(QLM_ImageMap& map) {
    const uint8_t* pixels = map.GetPixels();
    for (uint64_t i = 1; i < map.GetByteCount(); ++i)
        if (pixels[i] != pixels[0]) return -1;
    return map.GetByteCount() ? pixels[0] : -1;
}

TEST_F(BackgroundSnapshots, NeverHoldHalfAWrite) {
    constexpr size_t Count = 6;
    std::vector<QLM_MaterialMapSource> maps(Count);
    QLM_ImageMapBufferWorkhorse workhorse;
    for (QLM_MaterialMapSource& map : maps) {
        map.SetDimensions(160, 90, 3);
        map.ClearToByte(1);
        workhorse.GetSnapshotPixels(&map, false);
    }
    int values[Count] = {1, 1, 1, 1, 1, 1}, refreshed = 0;
    uint32_t seed = 3;
    for (int round = 0; round < 600; ++round) {
        seed = seed * 1664525u + 1013904223u;
        const size_t which = seed / 65536 % Count;
        QLM_MaterialMapSource& map = maps[which];
        if (round % 3 == 0) {
            // A stroke: raw writes in pieces, without the map's lock.
            const QLM_MapWriteScope write(&workhorse);
            values[which] = round % 251 + 1;
            uint8_t* pixels = map.GetPixels();
            for (uint64_t i = 0; i < map.GetByteCount(); ++i) pixels[i] = uint8_t(values[which]);
            map.OnWholeMapChanged();
        } else if (round % 3 == 1) {
            // An edit that takes the lock, while a refresh may be under way.
            map.Invert();
            values[which] = 255 - values[which];
            map.OnWholeMapChanged();
        }
        if (workhorse.NeedsRun()) workhorse.PerformParallelProcessingStatic();
        if (round % 5) continue;
        const size_t asked = (which + 1) % Count;
        if (QLM_ImageMap* snapshot = workhorse.GetSnapshotPixels(&maps[asked], true)) {
            EXPECT_EQ(OneValue(*snapshot), values[asked]) << round;
            ++refreshed;
        }
        EXPECT_EQ(OneValue(*workhorse.GetSnapshotPixels(&map, false)), values[which]) << round;
    }
    EXPECT_GT(refreshed, 0);

    // Left alone, the thread ends when nothing is stale.
    workhorse.FinishWorkIfNecessary();
    for (QLM_MaterialMapSource& map : maps) map.OnWholeMapChanged();
    ASSERT_TRUE(workhorse.NeedsRun());
    workhorse.PerformParallelProcessingStatic();
    workhorse.FinishWorkIfNecessary();
    EXPECT_FALSE(workhorse.NeedsRun());
    for (QLM_MaterialMapSource& map : maps) EXPECT_NE(workhorse.GetSnapshotPixels(&map, true), nullptr);
}

TEST_F(BackgroundSnapshots, WaitForTheWriterAndForgetMapsThatGo) {
    QLM_ImageMapBufferWorkhorse workhorse;
    auto* map = new QLM_MaterialMapSource;
    map->SetDimensions(40, 40, 3);
    map->ClearToByte(9);
    workhorse.GetSnapshotPixels(map, false);
    QLM_MaterialMapSource unasked;
    unasked.SetDimensions(4, 4, 3);
    workhorse.GetBuffer(&unasked, true);
    EXPECT_FALSE(workhorse.NeedsRun()) << "nobody has asked for that one";
    {
        const QLM_MapWriteScope outer(&workhorse);
        map->OnWholeMapChanged();
        { const QLM_MapWriteScope inner(&workhorse); }
        EXPECT_FALSE(workhorse.NeedsRun());
        workhorse.PerformParallelProcessingStatic();
        EXPECT_FALSE(workhorse.IsThreadRunning());
    }
    EXPECT_TRUE(workhorse.NeedsRun());
    workhorse.PerformParallelProcessingStatic();
    delete map; // while the thread may be copying it
    workhorse.WaitForThreadExit();
    EXPECT_FALSE(workhorse.NeedsRun());
}

} // namespace
