#include "Maps/QLM_ImageMapBuffer.h"

#include "Core/Logging/QLM_Logger.h"

namespace {

/// The workhorses that live; maps that go tell them. Main thread.
std::vector<QLM_ImageMapBufferWorkhorse*>& Workhorses() {
    static auto* const all = new std::vector<QLM_ImageMapBufferWorkhorse*>;
    return *all;
}

} // namespace

bool QLM_ParallelData_ImageMap::IsValid() {
    ThreadLockerScope scope(this);
    if (!valid.Get()) return false;
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    const bool sameSize = map->GetWidth() == output.GetWidth() && map->GetHeight() == output.GetHeight();
    if (sameSize && IsUpToDate(*map)) return true;
    Invalidate();
    return false;
}

QLM_ImageMapBuffer::QLM_ImageMapBuffer(uint32_t sourceIDIn) : QLM_ParallelData_ImageMap(sourceIDIn) {
    isWanted = false;
}

bool QLM_ImageMapBuffer::IsUpToDate(QLM_ImageMap& map) {
    return map.GetDepth() == output.GetDepth() && map.GetWholeChangeCounter() == sourceChanges;
}

bool QLM_ImageMapBuffer::Refresh() {
    ThreadLockerScope scope(this);
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    // Read before the copy: a change that comes meanwhile leaves the snapshot stale.
    sourceChanges = map->GetWholeChangeCounter();
    output.Copy(*map);
    return true;
}

bool QLM_ImageMapBuffer::RefreshRect(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    ThreadLockerScope scope(this);
    QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
    ThreadLockerScope mapScope(&map->GetLock());
    if (!IsValid()) return false;
    output.CopyRect(*map, x, y, width, height);
    return true;
}

QLM_ImageMapBufferWorkhorse::QLM_ImageMapBufferWorkhorse(Collector collectorIn)
    : QLM_ParallelDataWorkhorse(std::move(collectorIn)) {
    SetNameText("image map snapshots");
    Workhorses().push_back(this);
}

QLM_ImageMapBufferWorkhorse::~QLM_ImageMapBufferWorkhorse() {
    std::erase(Workhorses(), this);
    Stop(true);
}

void QLM_ImageMapBufferWorkhorse::ForgetMap(uint32_t mapID) {
    for (QLM_ImageMapBufferWorkhorse* workhorse : Workhorses()) workhorse->ReleaseBuffer(mapID);
}

bool QLM_ImageMapBufferWorkhorse::NeedsRun() { return writers == 0 && QLM_ParallelDataWorkhorse::NeedsRun(); }

void QLM_ImageMapBufferWorkhorse::PerformParallelProcessingStatic() {
    if (writers == 0) QLM_ParallelDataWorkhorse::PerformParallelProcessingStatic();
}

void QLM_ImageMapBufferWorkhorse::BeginWrite() {
    if (++writers == 1) Stop(true);
}

void QLM_ImageMapBufferWorkhorse::EndWrite() { --writers; }

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
