#pragma once
// How far vertices lie below their surroundings.

#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_VertexMap.h"

/// How far a vertex lies below its surroundings, cached a vertex; off until somebody enables it. Main thread.
class QLM_MeshConcaveContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    void EnableConcavity(); ///< by tools and display modes that ask for it; lasts until the shape changes
    void ResetConcavity();  ///< off, without memory
    /// Mean over the polygons of v of normal . direction to the polygon's middle; 0 while not enabled.
    float GetConcavity(int v);
    /// Forgets the values of v and of all vertices of its polygons.
    void InvalidateAround(int v);

  private:
    QLM_VertexMap1D values;
    bool enabled = false;
};
