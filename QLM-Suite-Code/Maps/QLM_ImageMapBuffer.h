#pragma once
// Snapshots of maps as they were before the present stroke.

#include "Core/Objects/QLM_ThreadSafeVariable.h"
#include "Core/Threads/QLM_Workhorse.h"
#include "Maps/QLM_ImageMap.h"

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

/// The snapshot of one map.
class QLM_ImageMapBuffer : public QLM_ParallelData<QLM_ImageMap, QLM_ImageMap> {
  public:
    explicit QLM_ImageMapBuffer(uint32_t sourceID);
    bool IsValid() override;
    bool Refresh() override;
    QLM_ImageMap& GetSnapshot() { return snapshot; }

  private:
    QLM_ImageMap snapshot;
};

/// Keeps one buffer a map and refreshes stale ones. Lock order: workhorse, buffer, map.
class QLM_ImageMapBufferWorkhorse : public QLM_Workhorse {
  public:
    ~QLM_ImageMapBufferWorkhorse() override;
    bool CanBePaused() const override { return false; }

    /// Refreshes the lists and releases buffers of maps that left.
    virtual void Synchronize();
    virtual void InvalidateBuffer(QLM_ImageMap* map);
    virtual void InvalidateAllBuffers();
    virtual bool AreAllBuffersValid();
    QLM_ImageMapBuffer* GetBuffer(QLM_ImageMap* map, bool create);
    /// The map as it was before the stroke, refreshed now when stale (unless `ifValidOnly`, then null). Main thread.
    QLM_ImageMap* GetSnapshotPixels(QLM_ImageMap* map, bool ifValidOnly);
    void ReleaseBuffers();

  private:
    std::map<uint32_t, QLM_ImageMapBuffer*> buffers;
};
