#include "Maps/QLM_ImageMapBuffer.h"

#include "Core/Logging/QLM_Logger.h"

namespace {

/// The workhorses that live; maps that go tell them. Main thread.
std::vector<QLM_ImageMapBufferWorkhorse*>& Workhorses() {
    static auto* const all = new std::vector<QLM_ImageMapBufferWorkhorse*>;
    return *all;
}

} // namespace

QLM_ImageMapBuffer::QLM_ImageMapBuffer(uint32_t sourceIDIn) : QLM_ParallelData(sourceIDIn) {}

bool QLM_ImageMapBuffer::IsValid() {
    ThreadLockerScope scope(this);
    if (!valid.Get()) return false;
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    const bool sameGeometry = map->GetWidth() == snapshot.GetWidth() && map->GetHeight() == snapshot.GetHeight() &&
                              map->GetDepth() == snapshot.GetDepth();
    if (sameGeometry && map->GetWholeChangeCounter() == sourceChanges) return true;
    Invalidate();
    return false;
}

bool QLM_ImageMapBuffer::Refresh() {
    ThreadLockerScope scope(this);
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    // Read before the copy: a change that comes meanwhile leaves the snapshot stale.
    sourceChanges = map->GetWholeChangeCounter();
    snapshot.Copy(*map);
    return true;
}

bool QLM_ImageMapBuffer::RefreshRect(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    ThreadLockerScope scope(this);
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    if (!IsValid()) return false;
    snapshot.CopyRect(*map, x, y, width, height);
    return true;
}

QLM_ImageMapBufferWorkhorse::QLM_ImageMapBufferWorkhorse(Collector collectorIn) : collector(std::move(collectorIn)) {
    SetNameText("image map snapshots");
    Workhorses().push_back(this);
}

QLM_ImageMapBufferWorkhorse::~QLM_ImageMapBufferWorkhorse() {
    std::erase(Workhorses(), this);
    Stop(true);
    ReleaseBuffers();
}

void QLM_ImageMapBufferWorkhorse::ForgetMap(uint32_t mapID) {
    for (QLM_ImageMapBufferWorkhorse* workhorse : Workhorses()) workhorse->ReleaseBuffer(mapID);
}

void QLM_ImageMapBufferWorkhorse::ReleaseBuffer(uint32_t mapID) {
    ThreadLockerScope scope(this);
    const auto found = buffers.find(mapID);
    if (found == buffers.end()) return;
    // The thread holds this lock while it copies, so nobody reads the map now, and finds no buffer of it any more.
    delete found->second;
    buffers.erase(found);
    sources.erase(mapID);
}

void QLM_ImageMapBufferWorkhorse::RebuildSourceList() {
    ThreadLockerScope scope(this);
    sources.clear();
    if (collector) {
        QLM_List<QLM_ImageMap*> maps;
        collector(maps);
        for (const QLM_ImageMap* map : maps) sources.insert(map->GetID());
        return;
    }
    for (const auto& [id, buffer] : buffers)
        if (QLM_FindByID<QLM_ImageMap>(id)) sources.insert(id);
}

void QLM_ImageMapBufferWorkhorse::Synchronize() {
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
        if (!buffers.count(id)) buffers[id] = new QLM_ImageMapBuffer(id);
}

// The thread.

QLM_ImageMapBuffer* QLM_ImageMapBufferWorkhorse::FindStaleBuffer() {
    for (const auto& [id, buffer] : buffers)
        if (buffer->isWanted && !buffer->IsValid() && QLM_FindByID<QLM_ImageMap>(id)) return buffer;
    return nullptr;
}

bool QLM_ImageMapBufferWorkhorse::NeedsRun() {
    if (writers > 0 || IsThreadRunning()) return false;
    ThreadLockerScope scope(this);
    return FindStaleBuffer() != nullptr;
}

void QLM_ImageMapBufferWorkhorse::PerformParallelProcessingStatic() {
    if (writers > 0) return;
    BeforeStart();
    Start(ThreadFunc, "PerformParallelProcessingStatic");
}

void QLM_ImageMapBufferWorkhorse::ThreadFunc(QLM_Workhorse* self) {
    QLM_TRACE(3);
    dynamic_cast<QLM_ImageMapBufferWorkhorse*>(self)->RefreshStaleBuffers();
    self->OnThreadExit();
}

void QLM_ImageMapBufferWorkhorse::RefreshStaleBuffers() {
    // One map at a time: whoever waits for the lock or for the end waits for one copy at most.
    while (!CheckPause()) {
        ThreadLockerScope scope(this);
        QLM_ImageMapBuffer* buffer = FindStaleBuffer();
        if (!buffer || !buffer->Refresh()) return;
        buffer->MarkValid();
    }
}

void QLM_ImageMapBufferWorkhorse::BeginWrite() {
    if (++writers == 1) Stop(true);
}

void QLM_ImageMapBufferWorkhorse::EndWrite() { --writers; }

void QLM_ImageMapBufferWorkhorse::InvalidateBuffer(QLM_ImageMap* map) {
    if (QLM_ImageMapBuffer* buffer = GetBuffer(map, false)) buffer->Invalidate();
}

void QLM_ImageMapBufferWorkhorse::InvalidateAllBuffers() {
    Stop(true);
    ThreadLockerScope scope(this);
    for (const auto& [id, buffer] : buffers) buffer->Invalidate();
}

bool QLM_ImageMapBufferWorkhorse::AreAllBuffersValid() {
    ThreadLockerScope scope(this);
    return std::all_of(sources.begin(), sources.end(), [this](uint32_t id) {
        const auto found = buffers.find(id);
        return found != buffers.end() && found->second->IsValid();
    });
}

QLM_ImageMapBuffer* QLM_ImageMapBufferWorkhorse::GetBuffer(QLM_ImageMap* map, bool create) {
    QLM_CheckItem(map, "QLM_ImageMapBufferWorkhorse::GetBuffer");
    ThreadLockerScope scope(this);
    const auto found = buffers.find(map->GetID());
    if (found != buffers.end()) return found->second;
    if (!create) return nullptr;
    return buffers[map->GetID()] = new QLM_ImageMapBuffer(map->GetID());
}

QLM_ImageMap* QLM_ImageMapBufferWorkhorse::GetSnapshotPixels(QLM_ImageMap* map, bool ifValidOnly) {
    QLM_TRACE(3);
    if (IsThreadRunning()) Stop(true);
    ThreadLockerScope scope(this);
    QLM_ImageMapBuffer* buffer = GetBuffer(map, !ifValidOnly);
    if (!buffer) return nullptr;
    buffer->isWanted = true;
    if (!buffer->IsValid()) {
        if (ifValidOnly || !buffer->Refresh()) return nullptr;
        buffer->MarkValid();
    }
    return &buffer->GetSnapshot();
}

void QLM_ImageMapBufferWorkhorse::ReleaseBuffers() {
    ThreadLockerScope scope(this);
    for (const auto& [id, buffer] : buffers) delete buffer;
    buffers.clear();
    sources.clear();
}
