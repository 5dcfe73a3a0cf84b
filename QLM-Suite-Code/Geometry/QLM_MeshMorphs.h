#pragma once
// A mesh's morphs and the shape that they resolve to.

#include "Geometry/QLM_MeshContainer.h"

/// Morphs of the mesh; without any, the resolved shape is the base moved by the world matrix.
class QLM_MeshMorphContainer : public QLM_MeshContainerMesh {
  public:
    /// Fills ResolvedVertices and the resolved box; with `applyTransform` moves what is visible by the world matrix.
    void ResolveMorphs(bool applyTransform);
};
