#pragma once
// Where the corners of polygons live: a pool for each corner count, so that a polygon costs no allocation of its own.

#include "Core/OS/QLM_Memory.h"
#include "Geometry/QLM_Polygon.h"

#include <map>
#include <memory>
#include <vector>

/// Fixed-size slots of `count` corners, taken from chunks. Main thread.
class QLM_CornerPool {
  public:
    void SetCornerCount(int n);
    QLM_PolygonCorner* Allocate();
    /// Takes a slot back; a block from elsewhere raises.
    void Free(QLM_PolygonCorner* corners);
    void ReleaseEmptyChunks();
    int GetChunkCount() const { return static_cast<int>(chunks.size()); }
    int64_t GetUsedSlots() const { return static_cast<int64_t>(chunks.size()) * slotsPerChunk - totalFree; }

  private:
    struct Release {
        void operator()(QLM_PolygonCorner* p) const { QLM_Free(p); }
    };
    struct Chunk {
        std::unique_ptr<QLM_PolygonCorner[], Release> corners;
        int used = 0;               ///< slots that were ever handed out
        std::vector<uint16_t> back; ///< stack of slots that came back
        int freeCount = 0;
    };
    Chunk* FindChunk(const QLM_PolygonCorner* corners);
    Chunk* ChooseChunk();

    std::map<const QLM_PolygonCorner*, Chunk> chunks; ///< by first address
    Chunk* current = nullptr;
    Chunk* lastFound = nullptr; ///< blocks come back in runs
    int cornerCount = 0, slotsPerChunk = 0;
    int64_t totalFree = 0;
};

/// The pools of 0..1000 corners, shared by all meshes. Main thread.
class QLM_CornerPools {
  public:
    static QLM_CornerPools& Get();
    /// A block of n corners of -1; null for 0.
    QLM_PolygonCorner* Allocate(int n);
    void Free(QLM_PolygonCorner* corners, int n);
    /// Gives back chunks without a used slot.
    void ReleaseEmptyChunks();
    const QLM_CornerPool& GetPool(int n) const { return pools[n]; }

  private:
    QLM_CornerPools();
    QLM_CornerPool pools[QLM_MaximumCorners + 1];
};
