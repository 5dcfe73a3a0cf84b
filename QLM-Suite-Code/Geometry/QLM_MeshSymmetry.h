#pragma once
// Partners of vertices across the symmetry plane.

#include "Geometry/QLM_MeshContainer.h"

#include <cstdint>

/// The plane of symmetry and how exactly partners have to match. No partner is known, so every element is its own
/// source and partner; those two may be asked from any thread.
class QLM_MeshSymmetryContainer : public QLM_MeshContainerMesh {
  public:
    /// The vertex of the source side that v follows; v itself on the source side and while symmetry is off.
    int SourceVertex(int v) const { return v; }
    /// The vertex that follows v; v itself on the target side and while symmetry is off.
    int PartnerVertex(int v) const { return v; }
    int PolygonSource(int p) const { return p; }
    int PolygonPartner(int p) const { return p; }

    /// Replaces each triple of `array` (one a vertex) by the mirrored one of the vertex's source, of the other side's
    /// with `useMapB`; with `weighted` blended in by the soft selection. Vertices that are their own source keep
    /// theirs, which is all of them.
    void MakeArraySymmetric(float* /*array*/, bool /*useMapB*/, bool /*weighted*/) {}

    uint32_t SymmetryAxis = 0;   ///< 0 x, 1 y, 2 z
    float SymmetryOffset = 0.0f; ///< the plane's coordinate on the axis
    float SymmetryPrecision = 6.0f;
    bool SymmetryPreSmoothB = false;
};
