#pragma once
// Snapshots of maps as they were before the present stroke.

#include "Maps/QLM_ImageMap.h"
#include "Maps/QLM_ParallelData.h"

/// An image made of an image map: stale when the map is gone or has another size.
class QLM_ParallelData_ImageMap : public QLM_ParallelData<QLM_ImageMap, QLM_ImageMap> {
  public:
    using QLM_ParallelData::QLM_ParallelData;
    bool IsValid() override;

  protected:
    /// Whether the output still tells of the map as it is; both are locked.
    virtual bool IsUpToDate(QLM_ImageMap&) { return true; }
    QLM_ImageMap output;
};

template <class Buffer>
using QLM_ParallelData_ImageMap_Workhorse = QLM_ParallelDataWorkhorse<Buffer, QLM_ImageMap, QLM_ImageMap>;

/// The snapshot of one map. Stale after any whole change of the map, not after a partial one: whoever writes a part and
/// wants to keep the snapshot refreshes that part.
class QLM_ImageMapBuffer : public QLM_ParallelData_ImageMap {
  public:
    /// Not wanted before somebody asks for the snapshot.
    explicit QLM_ImageMapBuffer(uint32_t sourceID);
    /// Copies the whole map.
    bool Refresh() override;
    /// Copies a rectangle of pixels of the map into a valid snapshot, which stays valid. False, and nothing copied,
    /// when the snapshot is stale.
    bool RefreshRect(uint32_t x, uint32_t y, uint32_t width, uint32_t height);
    QLM_ImageMap& GetSnapshot() { return output; }

  private:
    bool IsUpToDate(QLM_ImageMap& map) override;
    uint32_t sourceChanges = 0; ///< the map's count of whole changes at the last refresh
};

/// Keeps one buffer a map and refreshes stale ones, on demand or on its own thread. Writers that hold raw pointers mark
/// begin and end; the thread copies only between them, so no snapshot holds half a write.
class QLM_ImageMapBufferWorkhorse : public QLM_ParallelData_ImageMap_Workhorse<QLM_ImageMapBuffer> {
  public:
    explicit QLM_ImageMapBufferWorkhorse(Collector collector = {});
    ~QLM_ImageMapBufferWorkhorse() override;

    /// Nothing while somebody writes.
    void PerformParallelProcessingStatic() override;
    bool NeedsRun() override;

    /// Somebody is about to write into maps by raw pointers: a refresh under way ends behind the map that it copies.
    /// May nest.
    void BeginWrite();
    void EndWrite();

    /// The map as it was before the stroke, refreshed now when stale (unless `ifValidOnly`, then null).
    QLM_ImageMap* GetSnapshotPixels(QLM_ImageMap* map, bool ifValidOnly);
    /// A map is about to go: no workhorse reads it or keeps its buffer any longer.
    static void ForgetMap(uint32_t mapID);

  private:
    int writers = 0;
};

/// Marks begin and end of a write; a null workhorse is allowed.
class QLM_MapWriteScope {
  public:
    explicit QLM_MapWriteScope(QLM_ImageMapBufferWorkhorse* workhorseIn) : workhorse(workhorseIn) {
        if (workhorse) workhorse->BeginWrite();
    }
    ~QLM_MapWriteScope() {
        if (workhorse) workhorse->EndWrite();
    }
    QLM_MapWriteScope(const QLM_MapWriteScope&) = delete;
    QLM_MapWriteScope& operator=(const QLM_MapWriteScope&) = delete;

  private:
    QLM_ImageMapBufferWorkhorse* const workhorse;
};
