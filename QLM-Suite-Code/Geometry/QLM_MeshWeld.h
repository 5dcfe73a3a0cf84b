#pragma once
// Separate vertices that act as one.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_VertexMap.h"

/// The map that makes separate vertices act as one; identity, without memory, while not welded. Main thread; workers
/// read while nothing changes it.
class QLM_WeldMeshContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    bool IsWelded() const { return welded; }
    int GetWeldTarget(int v) const { return welded ? map[v] : v; }
    /// Makes v stand for `target`; lookups follow with the next AfterRawBuild. Out of range does nothing.
    void SetWeldTarget(int v, int target);
    /// A target a vertex; null while not welded.
    const int32_t* GetWeldMap() const { return welded ? map.GetData() : nullptr; }
    /// Takes over a stored map and is welded from now on. Targets that aren't vertices, and vertices beyond `count`,
    /// stand for themselves. Lookups follow with the next AfterRawBuild.
    void RestoreWeldMap(const int32_t* targets, int count);

    /// Joins each vertex to the first one, by distance from BoundsMin, within `threshold` x the largest side of the
    /// box; no polygon comes to hold a vertex twice through it. Then runs AfterRawBuild; whoever calls follows with
    /// OnShapeChanged. Returns how many vertices were joined.
    int Weld(float threshold, bool openEdgesOnly, bool selectedOnly, bool acrossGroupsOnly);
    /// The same written into the polygons. Vertex count will not be reduced. Discarded vertices will keep their values,
    /// but will not be attached to any polygons. A weld that stood before goes in too.
    int WeldPermanently(float threshold, bool selectedOnly);
    /// Back to separate vertices, refreshed to the screen; the map is kept for Reweld. False when not welded.
    bool Unweld();
    bool CanReweld() const { return canReweld; }
    /// Takes the map of the last Unweld up again; false without one that fits.
    bool Reweld();
    /// Writes the map into the polygons and drops it. Lookups follow with the next AfterRawBuild.
    void BakeMapIntoPolygons();

    // Discarded vertices take over what their targets have; nothing happens while not welded.
    void CopyFlagsToWelded();
    void CopyValuesToWelded(QLM_VertexMap3D& values);
    /// Deltas of every morph that isn't in step, and with them the selection's weights and the flags.
    void SyncMorphs();

  private:
    void MakeOwnMap();
    void DropMap();
    void Refresh();
    int JoinVertices(float threshold, bool openEdgesOnly, bool selectedOnly, bool acrossGroupsOnly);

    bool welded = false;
    QLM_SimpleArray<int32_t> map;
    bool canReweld = false;
    QLM_SimpleArray<int32_t> savedMap; ///< of the last Unweld
};
