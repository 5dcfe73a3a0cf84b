#pragma once
// Normals of corners, split where the surface has an edge.

#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_VertexMap.h"

/// Corner normals for a smoothing angle; above 179.9 degrees they are the vertex normals themselves.
class QLM_MeshDiscontinuousNormalsContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    float GetMaxSmoothingAngle() const { return maxSmoothingAngle; }
    void SetMaxSmoothingAngle(float degrees); ///< clamped to 0..180; takes effect with RebuildNormalIndices
    /// Gives every corner its vertex's normal and decides between a loan and own storage.
    void RebuildNormalIndices();
    /// Splits the normals at edges sharper than the angle; nothing to do on borrowed storage. Corners point as
    /// RebuildNormalIndices left them, or the last call of this.
    void UpdateNormals(bool visibleOnly);
    int GetCornerNormalIndex(int p, int i) const;
    const float* GetCornerNormal(int p, int i) const { return Normals[GetCornerNormalIndex(p, i)]; }
    QLM_VertexMap3D Normals;

  private:
    void PointCornersAtVertices();

    float maxSmoothingAngle = 180.0f;
    bool cornersMoved = false; ///< some point elsewhere than RebuildNormalIndices left them
};
