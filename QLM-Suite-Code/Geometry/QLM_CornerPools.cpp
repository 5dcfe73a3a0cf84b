#include "Geometry/QLM_CornerPools.h"

#include "Core/Logging/QLM_RaiseError.h"

#include <cstring>

void QLM_CornerPool::SetCornerCount(int n) {
    cornerCount = n;
    slotsPerChunk = n == 3 || n == 4 ? 10000 : n >= 5 && n <= 8 ? 1000 : 10;
}

QLM_CornerPool::Chunk* QLM_CornerPool::ChooseChunk() {
    if (totalFree > 0) {
        Chunk* best = nullptr;
        for (auto& [address, chunk] : chunks)
            if (!best || chunk.freeCount > best->freeCount) best = &chunk;
        return best;
    }
    const size_t size = sizeof(QLM_PolygonCorner) * slotsPerChunk * cornerCount;
    auto* corners = static_cast<QLM_PolygonCorner*>(QLM_Malloc(size, false));
    Chunk& chunk = chunks[corners];
    chunk.corners.reset(corners);
    chunk.freeCount = slotsPerChunk;
    totalFree += slotsPerChunk;
    return &chunk;
}

QLM_PolygonCorner* QLM_CornerPool::Allocate() {
    if (!current || !current->freeCount) current = ChooseChunk();
    int slot;
    if (current->back.empty()) slot = current->used++;
    else {
        slot = current->back.back();
        current->back.pop_back();
    }
    --current->freeCount;
    --totalFree;
    return current->corners.get() + static_cast<size_t>(slot) * cornerCount;
}

QLM_CornerPool::Chunk* QLM_CornerPool::FindChunk(const QLM_PolygonCorner* corners) {
    const auto holds = [&](const Chunk& chunk) {
        const QLM_PolygonCorner* first = chunk.corners.get();
        return corners >= first && corners < first + static_cast<size_t>(slotsPerChunk) * cornerCount;
    };
    if (lastFound && holds(*lastFound)) return lastFound;
    auto next = chunks.upper_bound(corners);
    if (next == chunks.begin() || !holds((--next)->second)) return nullptr;
    return lastFound = &next->second;
}

void QLM_CornerPool::Free(QLM_PolygonCorner* corners) {
    Chunk* chunk = FindChunk(corners);
    if (!chunk) QLM_RaiseError("Corners of a polygon were returned to the wrong pool (%d)", cornerCount);
    chunk->back.push_back(static_cast<uint16_t>((corners - chunk->corners.get()) / cornerCount));
    ++chunk->freeCount;
    ++totalFree;
}

void QLM_CornerPool::ReleaseEmptyChunks() {
    totalFree -= static_cast<int64_t>(slotsPerChunk) *
                 static_cast<int64_t>(
                     std::erase_if(chunks, [&](const auto& entry) { return entry.second.freeCount == slotsPerChunk; }));
    current = lastFound = nullptr;
}

QLM_CornerPools& QLM_CornerPools::Get() {
    static QLM_CornerPools* pools = new QLM_CornerPools; // never destroyed: meshes may outlive static teardown
    return *pools;
}

QLM_CornerPools::QLM_CornerPools() {
    for (int n = 0; n <= QLM_MaximumCorners; ++n) pools[n].SetCornerCount(n);
}

QLM_PolygonCorner* QLM_CornerPools::Allocate(int n) {
    if (n == 0) return nullptr;
    QLM_PolygonCorner* corners = pools[n].Allocate();
    std::memset(static_cast<void*>(corners), 0xff, n * sizeof(QLM_PolygonCorner)); // -1 in every field
    return corners;
}

void QLM_CornerPools::Free(QLM_PolygonCorner* corners, int n) {
    if (n > 0) pools[n].Free(corners);
}

void QLM_CornerPools::ReleaseEmptyChunks() {
    for (QLM_CornerPool& pool : pools) pool.ReleaseEmptyChunks();
}
