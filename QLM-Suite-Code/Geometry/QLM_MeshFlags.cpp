#include "Geometry/QLM_MeshFlags.h"

void QLM_MeshFlagsContainer::OnSetVertexCount(int, int newCount) { vertexFlags.Resize(newCount, true, true); }

void QLM_MeshFlagsContainer::OnSetTextureVertexCount(int, int newCount) {
    textureVertexFlags.Resize(newCount, true, true);
}

void QLM_MeshFlagsContainer::OnSetPolygonCount(int, int newCount) { polygonFlags.Resize(newCount, true, true); }

void QLM_MeshFlagsContainer::ClearAllPolygonFlags(uint32_t bits) {
    for (uint32_t& word : polygonFlags) word &= ~bits;
}

void QLM_MeshFlagsContainer::ClearAllVertexFlags(uint32_t bits) {
    for (uint32_t& word : vertexFlags) word &= ~bits;
}
