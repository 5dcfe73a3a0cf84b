#pragma once
// The object's transform as matrices.

#include "Geometry/QLM_MeshContainer.h"

/// Matrices of the object's transform: world (about the middle of the raw box), rotation, inverse world.
class QLM_TransformMeshContainer : public QLM_MeshContainerMesh {
  public:
    QLM_TransformMeshContainer();
    /// World = T(-c) S R T(c) T(pos), c the middle of the raw box; refreshes the inverse (identity for a flat scale).
    void RecomputeWorldMatrix();
    const float* GetWorldMatrix() const { return world; }
    const float* GetInverseWorldMatrix() const { return inverseWorld; }
    bool IsIdentity() const; ///< the world matrix, exactly
    float Transform_RotationMatrix[16];
    float Transform_Scale[3] = {1, 1, 1}, Transform_Pos[3] = {};

  private:
    float world[16], inverseWorld[16];
};
