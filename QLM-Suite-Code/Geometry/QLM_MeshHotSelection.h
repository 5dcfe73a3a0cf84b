#pragma once
// The soft selection that the tools work on.

#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_VertexMap.h"

/// Soft selection of the tools: a weight for each vertex and polygon; empty arrays while nothing is selected.
class QLM_MeshHotSelectionContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;
    bool HasSelection() const { return VertexWeights.GetCount() > 0; }
    float GetVertexWeight(int v) const { return HasSelection() ? *VertexWeights[v] : 0.0f; }
    QLM_VertexMap1D VertexWeights, PolygonWeights;
};
