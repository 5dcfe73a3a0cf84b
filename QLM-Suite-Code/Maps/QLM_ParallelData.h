#pragma once
// What a background thread makes of sources: one buffer a source, refreshed where it is stale.

#include "Core/Logging/QLM_Logger.h"
#include "Core/Objects/QLM_BaseClass.h"
#include "Core/Objects/QLM_ThreadSafeVariable.h"
#include "Core/Threads/QLM_Workhorse.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <type_traits>

/// State shared between the painting main thread and the refreshing workhorse.
template <class Input, class Output> class QLM_ParallelData : public virtual QLM_RootClass, public ThreadLocker {
  public:
    explicit QLM_ParallelData(uint32_t sourceIDIn) : sourceID(sourceIDIn) { valid.Set(false); }
    virtual bool IsValid() = 0;
    virtual void Invalidate() { valid.Set(false); }
    /// Makes the output anew; false when the source is gone. Doesn't mark the buffer valid.
    virtual bool Refresh() = 0;
    virtual void MarkValid() { valid.Set(true); }
    uint32_t GetSourceID() const { return sourceID; }
    /// A buffer that nobody has asked for isn't worth its memory.
    bool isWanted = true;

  protected:
    uint32_t sourceID;
    QLM_ThreadSafeVariable<bool> valid;
};

/// Everything but the thread itself is called on the main thread. Lock order: workhorse, buffer, source. A subclass
/// stops the thread in its own destructor.
template <class Buffer, class Input, class Output> class QLM_ParallelDataWorkhorse : public QLM_Workhorse {
    static_assert(std::is_base_of_v<QLM_ParallelData<Input, Output>, Buffer>);

  public:
    using Collector = std::function<void(QLM_List<Input*>&)>;

    /// `collector` lists the sources of the scene; without one the buffers asked for are the scene.
    explicit QLM_ParallelDataWorkhorse(Collector collectorIn) : collector(std::move(collectorIn)) {}
    ~QLM_ParallelDataWorkhorse() override { ReleaseBuffers(); }
    bool CanBePaused() const override { return false; }

    /// Lists the sources of the scene, makes their missing buffers and releases those of sources that left.
    virtual void Synchronize() {
        QLM_TRACE(3);
        ThreadLockerScope scope(this);
        RebuildSourceList();
        for (auto it = buffers.begin(); it != buffers.end();) {
            if (sources.count(it->first)) {
                ++it;
                continue;
            }
            delete it->second;
            it = buffers.erase(it);
        }
        for (const uint32_t id : sources)
            if (!buffers.count(id)) buffers[id] = new Buffer(id);
    }

    virtual void RebuildSourceList() {
        ThreadLockerScope scope(this);
        sources.clear();
        if (collector) {
            QLM_List<Input*> list;
            collector(list);
            for (const Input* source : list) sources.insert(source->GetID());
            return;
        }
        for (const auto& [id, buffer] : buffers)
            if (QLM_FindByID<Input>(id)) sources.insert(id);
    }

    /// Starts refreshing the wanted buffers that are stale, in place of a run under way.
    virtual void PerformParallelProcessingStatic() {
        BeforeStart();
        Start(ThreadFunc, "PerformParallelProcessingStatic");
    }

    virtual void InvalidateBuffer(Input* source) {
        if (Buffer* buffer = GetBuffer(source, false)) buffer->Invalidate();
    }

    virtual void InvalidateAllBuffers() {
        Stop(true);
        ThreadLockerScope scope(this);
        for (const auto& [id, buffer] : buffers) buffer->Invalidate();
    }

    /// True when every source of the last Synchronize has a valid buffer.
    virtual bool AreAllBuffersValid() {
        ThreadLockerScope scope(this);
        return std::all_of(sources.begin(), sources.end(), [this](uint32_t id) {
            const auto found = buffers.find(id);
            return found != buffers.end() && found->second->IsValid();
        });
    }

    /// True when a run would find something to do.
    virtual bool NeedsRun() {
        if (IsThreadRunning()) return false;
        ThreadLockerScope scope(this);
        return FindStaleBuffer() != nullptr;
    }

    Buffer* GetBuffer(Input* source, bool create) {
        QLM_CheckItem(source, "QLM_ParallelDataWorkhorse::GetBuffer");
        ThreadLockerScope scope(this);
        const auto found = buffers.find(source->GetID());
        if (found != buffers.end()) return found->second;
        if (!create) return nullptr;
        return buffers[source->GetID()] = new Buffer(source->GetID());
    }

    /// The thread holds the lock while it reads a source: afterwards nobody does, and no buffer of it is left.
    void ReleaseBuffer(uint32_t id) {
        ThreadLockerScope scope(this);
        const auto found = buffers.find(id);
        if (found == buffers.end()) return;
        delete found->second;
        buffers.erase(found);
        sources.erase(id);
    }

    void ReleaseBuffers() {
        ThreadLockerScope scope(this);
        for (const auto& [id, buffer] : buffers) delete buffer;
        buffers.clear();
        sources.clear();
    }

  private:
    static void ThreadFunc(QLM_Workhorse* self) {
        QLM_TRACE(3);
        static_cast<QLM_ParallelDataWorkhorse*>(self)->RefreshStaleBuffers();
        self->OnThreadExit();
    }

    Buffer* FindStaleBuffer() {
        for (const auto& [id, buffer] : buffers)
            if (buffer->isWanted && !buffer->IsValid() && QLM_FindByID<Input>(id)) return buffer;
        return nullptr;
    }

    /// One source at a time: whoever waits for the lock or for the end waits for one refresh at most.
    void RefreshStaleBuffers() {
        while (!CheckPause()) {
            ThreadLockerScope scope(this);
            Buffer* buffer = FindStaleBuffer();
            if (!buffer || !buffer->Refresh()) return;
            buffer->MarkValid();
        }
    }

    Collector collector;
    std::map<uint32_t, Buffer*> buffers;
    std::set<uint32_t> sources;
};
