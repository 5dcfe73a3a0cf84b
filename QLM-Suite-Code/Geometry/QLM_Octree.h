#pragma once
// Nodes of the fixed-depth tree over a mesh's visible polygons.

#include <cstdint>
#include <memory>

class QLM_Mesh;

enum QLM_OctreeNodeFlag : uint32_t {
    eNode_HasChildren = 2, eNode_Selected = 0x10000, eNode_Touched = 0x40000, eNode_TouchedB = 0x80000,
    eNode_DrawingValid = 0x100000
};

/// A box; leaves are contiguous ranges of the mesh's visible lists. Built on the main thread, read by workers.
template <class Index> class QLM_OctreeNode {
  public:
    virtual ~QLM_OctreeNode() = default;
    bool IsLeaf() const { return !(Flags & eNode_HasChildren); }

    int32_t Depth = 0;
    uint32_t Flags = 0;
    QLM_OctreeNode* Parent = nullptr;
    std::unique_ptr<QLM_OctreeNode> Children[8]; ///< null where there is nothing
    QLM_Mesh* Mesh = nullptr;
    float BoundsMin[3] = {}, BoundsMax[3] = {};           ///< follows the resolved shape
    float BuildBoundsMin[3] = {}, BuildBoundsMax[3] = {}; ///< as made by the split
    Index FirstPolygon = 0, EndPolygon = 0, FirstVertex = 0, EndVertex = 0; ///< in the mesh's visible lists
    float MinUV[2] = {2, 2}, MaxUV[2] = {-2, -2};         ///< UV range of the leaf's polygons
};
