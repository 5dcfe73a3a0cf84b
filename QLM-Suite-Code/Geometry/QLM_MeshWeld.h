#pragma once
// Separate vertices that act as one.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"

/// The map that makes separate vertices act as one; identity while not welded.
class QLM_WeldMeshContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    bool IsWelded() const { return welded; }
    int GetWeldTarget(int v) const { return welded ? map[v] : v; }
    /// Makes v stand for `target`; lookups follow with the next AfterRawBuild. Out of range does nothing.
    void SetWeldTarget(int v, int target);
    const int32_t* GetWeldMap() const { return welded ? map.GetData() : nullptr; }

  private:
    bool welded = false;
    QLM_SimpleArray<int32_t> map;
};
