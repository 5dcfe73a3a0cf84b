#pragma once
// Walks over what stands in the leaves of a mesh's octree that pass a test.

#include "Geometry/QLM_MeshOctree.h"

/// Which boxes pass: every switch that is set must be met. Screen places are normalised, -1..1 with y up. Boxes and
/// sphere are in the space of the resolved vertices.
struct QLM_OctreeCull {
    bool ByView = false;      ///< the box meets the view rectangle
    bool BySphere = false;    ///< the box meets the sphere
    bool ByRectangle = false; ///< the box meets the brush's rectangle, with a margin of 0.01
    bool Symmetric = false;   ///< a box also passes when its reflection does

    float ModelToClip[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; ///< for view and rectangle; row vectors
    float SphereCentre[3] = {}, SphereRadius = 0.0f;
    float Rectangle[4] = {};                       ///< min x, min y, max x, max y
    uint32_t SymmetryAxis = 0;
    float SymmetryOffset = 0.0f;

    bool Passes(const QLM_OctreeNode<int32_t>& node) const;

  private:
    bool Meets(const float* minimum, const float* maximum, bool leaf) const;
    bool MeetsOnScreen(const float* minimum, const float* maximum, const float* rectangle, bool leaf) const;
};

/// Hands out the visible vertices or polygons of the leaves that pass, leaf by leaf in tree order; each stands in one
/// leaf only. The mesh and its octree stay as they are meanwhile. A loop:
/// for (int v = walk.Begin(); v >= 0; v = walk.Next()) ...
class QLM_OctreeIterator {
  public:
    enum class Element { Vertices, Polygons };
    /// Builds the octree on demand: main thread. The walk itself may run anywhere.
    QLM_OctreeIterator(QLM_Mesh& mesh, Element element, const QLM_OctreeCull& cull);

    int Begin(); ///< the first element, -1 with none
    int Next();  ///< -1 behind the last one
    QLM_OctreeNode<int32_t>* GetLeaf() const { return leaves[nextLeaf - 1]; } ///< of the element handed out last
    const std::vector<QLM_OctreeNode<int32_t>*>& GetPassingLeaves() const { return leaves; }

  private:
    void Collect(QLM_OctreeNode<int32_t>* node, const QLM_OctreeCull& cull);
    int Get();

    const int32_t* list;
    const Element element;
    std::vector<QLM_OctreeNode<int32_t>*> leaves;
    size_t nextLeaf = 0;
    int32_t at = 0, end = 0;
};
