#include "Maps/QLM_ImageMapBuffer.h"

#include "Core/Logging/QLM_Logger.h"

QLM_ImageMapBuffer::QLM_ImageMapBuffer(uint32_t sourceIDIn) : QLM_ParallelData(sourceIDIn) {}

bool QLM_ImageMapBuffer::IsValid() {
    ThreadLockerScope scope(this);
    if (!valid.Get()) return false;
    const QLM_ImageMap* map = QLM_FindByID<QLM_ImageMap>(sourceID);
    if (!map) return false;
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
    // Read before the copy: a change that comes meanwhile leaves the snapshot stale.
    sourceChanges = map->GetWholeChangeCounter();
    snapshot.Copy(*map);
    return true;
}

bool QLM_ImageMapBuffer::RefreshRect(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    ThreadLockerScope scope(this);
    if (!IsValid()) return false;
    snapshot.CopyRect(*QLM_FindByID<QLM_ImageMap>(sourceID), x, y, width, height);
    return true;
}

QLM_ImageMapBufferWorkhorse::QLM_ImageMapBufferWorkhorse(Collector collectorIn) : collector(std::move(collectorIn)) {}

QLM_ImageMapBufferWorkhorse::~QLM_ImageMapBufferWorkhorse() { ReleaseBuffers(); }

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

void QLM_ImageMapBufferWorkhorse::InvalidateBuffer(QLM_ImageMap* map) {
    if (QLM_ImageMapBuffer* buffer = GetBuffer(map, false)) buffer->Invalidate();
}

void QLM_ImageMapBufferWorkhorse::InvalidateAllBuffers() {
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
    ThreadLockerScope scope(this);
    QLM_ImageMapBuffer* buffer = GetBuffer(map, !ifValidOnly);
    if (!buffer) return nullptr;
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
