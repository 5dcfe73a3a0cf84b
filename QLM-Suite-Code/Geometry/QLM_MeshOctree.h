#pragma once
// The tree over a mesh's visible polygons.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"
#include "Geometry/QLM_Octree.h"

#include <memory>
#include <vector>

class QLM_OctreeMeshContainer : public QLM_MeshContainerMesh {
  public:
    QLM_OctreeMeshContainer();
    ~QLM_OctreeMeshContainer() override;
    using Node = QLM_OctreeNode<int32_t>;

    virtual void ReleaseDrawingResources();
    /// Boxes follow the resolved shape; membership stays. Builds the tree when there is none.
    virtual void OctreeBoundsChanged();
    /// Builds the tree over what is visible. Nodes without a vertex are left out.
    virtual void BuildOctree();
    /// Steps of BuildOctree: puts the visible lists in leaf order and notes the ranges; fills PolygonLeaf.
    virtual void AssignRanges();
    virtual void BuildPolygonLeaves();

    Node* GetRoot();                           ///< builds on demand
    const std::vector<Node*>& GetLeaves();     ///< in tree order, none empty; builds on demand
    int GetLeafOfPolygon(int p) const { return PolygonLeaf[p]; } ///< index into the leaves, -1 for none
    void InvalidateOctree();
    void SetDepth(int depth); ///< 0..6; the next use rebuilds
    void ClearSurfaceChangedFlags();
    /// Marks a leaf and its ancestors as touched.
    static void TouchNode(Node* node);
    /// Touches every leaf whose polygons meet the UV range (min u, min v, max u, max v).
    void TouchUVRange(const float* range);

  private:
    struct Build;
    void FindVertexLeaves();
    void FindPolygonVertices();
    void FindOuterVertices();
    std::unique_ptr<Node> MakeNode(Node* parent, int firstLeaf, const float* minimum, const float* maximum);
    static void UniteChildBoxes(Node* node);

    QLM_SimpleArray<int32_t> PolygonLeaf;
    int32_t octreeDepth = 2;
    std::unique_ptr<Node> root;
    std::vector<Node*> Leaves;
    std::vector<int32_t> outerVertices; ///< by leaf: the neighbours of its vertices that stand in other leaves
    std::vector<int32_t> outerStart;    ///< leaf count + 1
    std::unique_ptr<Build> build; ///< while BuildOctree runs
};
