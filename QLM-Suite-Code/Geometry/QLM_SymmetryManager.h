#pragma once
#include "Engine/QLM_Manager.h"

class QLM_Mesh;

/// Partners of vertices for tools that act on both sides. Main thread.
class QLM_SymmetryManager : public QLM_Manager {
  public:
    /// Looks for the partners of the mesh's vertices across the plane of `axis` (0 x, 1 y, 2 z).
    void StartCalculation(QLM_Mesh*, uint32_t) {}
    /// Has everything that follows the partners follow anew, with `restart` from a new search; null for no mesh.
    void Refresh(QLM_Mesh*, bool) {}
    /// True when the current tool acts on both sides of the mesh; no tool does while there are no partners.
    bool IsActive(QLM_Mesh*) const { return false; }
};
