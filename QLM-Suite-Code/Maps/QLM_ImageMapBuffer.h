#pragma once
// Snapshots of maps as they were before the present stroke.

#include "Core/Objects/QLM_ThreadSafeVariable.h"
#include "Core/Threads/QLM_Workhorse.h"
#include "Maps/QLM_ImageMap.h"

#include <functional>
#include <set>

/// State shared between the painting main thread and the refreshing workhorse.
template <class Input, class Output> class QLM_ParallelData : public virtual QLM_RootClass, public ThreadLocker {
  public:
    explicit QLM_ParallelData(uint32_t sourceIDIn) : sourceID(sourceIDIn) { valid.Set(false); }
    virtual bool IsValid() = 0;
    virtual void Invalidate() { valid.Set(false); }
    virtual bool Refresh() = 0;
    virtual void MarkValid() { valid.Set(true); }
    uint32_t GetSourceID() const { return sourceID; }

  protected:
    uint32_t sourceID;
    QLM_ThreadSafeVariable<bool> valid;
};

/// The snapshot of one map. Stale after any whole change of the map, not after a partial one: whoever writes a part and
/// wants to keep the snapshot refreshes that part.
class QLM_ImageMapBuffer : public QLM_ParallelData<QLM_ImageMap, QLM_ImageMap> {
  public:
    explicit QLM_ImageMapBuffer(uint32_t sourceID);
    bool IsValid() override;
    /// Copies the whole map; false when it is gone. Doesn't mark the buffer valid.
    bool Refresh() override;
    /// Copies a rectangle of pixels of the map into a valid snapshot, which stays valid. False, and nothing copied,
    /// when the snapshot is stale.
    bool RefreshRect(uint32_t x, uint32_t y, uint32_t width, uint32_t height);
    QLM_ImageMap& GetSnapshot() { return snapshot; }
    /// Somebody has asked for the snapshot: only then is it worth the memory of a copy.
    bool isWanted = false;

  private:
    QLM_ImageMap snapshot;
    uint32_t sourceChanges = 0; ///< the map's count of whole changes at the last refresh
};

/// Keeps one buffer a map and refreshes stale ones, on demand or on its own thread. Writers that hold raw pointers mark
/// begin and end; the thread copies only between them, so no snapshot holds half a write. Everything but the thread
/// itself is called on the main thread. Lock order: workhorse, buffer, map.
class QLM_ImageMapBufferWorkhorse : public QLM_Workhorse {
  public:
    using Collector = std::function<void(QLM_List<QLM_ImageMap*>&)>;

    /// `collector` lists the maps of the scene; without one the buffers asked for are the scene.
    explicit QLM_ImageMapBufferWorkhorse(Collector collector = {});
    ~QLM_ImageMapBufferWorkhorse() override;
    bool CanBePaused() const override { return false; }

    /// Lists the maps of the scene, makes their missing buffers and releases those of maps that left.
    virtual void Synchronize();
    virtual void RebuildSourceList();
    /// Starts refreshing the wanted buffers that are stale, in place of a run under way; nothing while somebody writes.
    virtual void PerformParallelProcessingStatic();
    virtual void InvalidateBuffer(QLM_ImageMap* map);
    virtual void InvalidateAllBuffers();
    /// True when every map of the last Synchronize has a valid buffer.
    virtual bool AreAllBuffersValid();
    /// True when a run would find something to do.
    virtual bool NeedsRun();

    /// Somebody is about to write into maps by raw pointers: a refresh under way ends behind the map that it copies.
    /// May nest.
    void BeginWrite();
    void EndWrite();

    QLM_ImageMapBuffer* GetBuffer(QLM_ImageMap* map, bool create);
    /// The map as it was before the stroke, refreshed now when stale (unless `ifValidOnly`, then null).
    QLM_ImageMap* GetSnapshotPixels(QLM_ImageMap* map, bool ifValidOnly);
    void ReleaseBuffers();
    /// A map is about to go: no workhorse reads it or keeps its buffer any longer.
    static void ForgetMap(uint32_t mapID);

  private:
    static void ThreadFunc(QLM_Workhorse* self);
    QLM_ImageMapBuffer* FindStaleBuffer();
    void RefreshStaleBuffers();
    void ReleaseBuffer(uint32_t mapID);

    Collector collector;
    std::map<uint32_t, QLM_ImageMapBuffer*> buffers;
    std::set<uint32_t> sources;
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
