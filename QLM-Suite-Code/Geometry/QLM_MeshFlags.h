#pragma once
// Flag words of vertices, texture vertices and polygons.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_Polygon.h"

/// Flag words of vertices, texture vertices and polygons.
class QLM_MeshFlagsContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetTextureVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;

    uint32_t GetVertexFlags(int v) const { return vertexFlags[v]; }
    void SetVertexFlags(int v, uint32_t word) { vertexFlags[v] = word; }
    void SetVertexFlag(int v, uint32_t bits) { vertexFlags[v] |= bits; }
    void ClearVertexFlag(int v, uint32_t bits) { vertexFlags[v] &= ~bits; }
    bool HasVertexFlag(int v, uint32_t bits) const { return vertexFlags[v] & bits; }
    uint32_t GetTextureVertexFlags(int v) const { return textureVertexFlags[v]; }
    void SetTextureVertexFlags(int v, uint32_t word) { textureVertexFlags[v] = word; }
    uint32_t GetPolygonFlags(int p) const { return polygonFlags[p]; }
    void SetPolygonFlags(int p, uint32_t word) { polygonFlags[p] = word; }
    void SetPolygonFlag(int p, uint32_t bits) { polygonFlags[p] |= bits; }
    void ClearPolygonFlag(int p, uint32_t bits) { polygonFlags[p] &= ~bits; }
    bool HasPolygonFlag(int p, uint32_t bits) const { return polygonFlags[p] & bits; }
    void ClearAllPolygonFlags(uint32_t bits);
    void ClearAllVertexFlags(uint32_t bits);

  private:
    QLM_SimpleArray<uint32_t> vertexFlags, textureVertexFlags, polygonFlags;
};
