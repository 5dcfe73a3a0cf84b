#pragma once
// The fifteen containers of a mesh: each concern keeps its arrays in step through five notifications.
// The order of declaration in QLM_Mesh is the order of every notification.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Engine/QLM_TreeGroup.h"
#include "Geometry/QLM_Octree.h"
#include "Geometry/QLM_Polygon.h"
#include "Geometry/QLM_VertexMap.h"
#include "Maps/QLM_Material.h"

class QLM_Group2;
class QLM_Mesh;
class QLM_Object;

/// The notifications, all empty by default.
class QLM_MeshContainerTemp {
  public:
    virtual ~QLM_MeshContainerTemp() = default;
    virtual void OnAfterRawBuild() {}
    virtual void OnAfterSetSizes() {}
    virtual void OnSetVertexCount(int, int) {}        ///< old count, new count
    virtual void OnSetTextureVertexCount(int, int) {}
    virtual void OnSetPolygonCount(int, int) {}
};

class QLM_MeshContainerMesh : public QLM_MeshContainerTemp {
  protected:
    friend class QLM_MeshContainerOwner;
    QLM_Mesh* mesh = nullptr;
};

/// Calls one notification on all registered containers in order.
class QLM_MeshContainerOwner {
  public:
    void Register(QLM_MeshContainerMesh* container, QLM_Mesh* mesh);
    void NotifyAfterRawBuild();
    void NotifyAfterSetSizes();
    void NotifyVertexCount(int oldCount, int newCount);
    void NotifyTextureVertexCount(int oldCount, int newCount);
    void NotifyPolygonCount(int oldCount, int newCount);

  private:
    std::vector<QLM_MeshContainerMesh*> containers;
};

/// A row of bits a polygon, one column a display group; rows are whole bytes.
class BigFlagArray {
  public:
    bool GetFlag(int polygon, int group) const;
    void SetFlag(int polygon, int group, bool on);
    void SetSizes(int groupCount, int polygonCount); ///< keeps the overlapping part
    bool Merge(const BigFlagArray& other);           ///< OR; false when the sizes differ
    int GetGroupCount() const { return groupCount; }
    int GetPolygonCount() const { return polygonCount; }
    int GetRowBytes() const { return rowBytes; }
    std::vector<uint8_t>& GetBytes() { return bytes; }

  private:
    std::vector<uint8_t> bytes;
    int groupCount = 0, polygonCount = 0, rowBytes = 0;
};

class QLM_DisplayGroupFlagContainer : public QLM_MeshContainerMesh, public BigFlagArray {
  public:
    void OnSetPolygonCount(int oldCount, int newCount) override;
};

/// Matrices of the object's transform: world (about the middle of the raw box), rotation, inverse world.
class QLM_TransformMeshContainer : public QLM_MeshContainerMesh {
  public:
    QLM_TransformMeshContainer();
    /// World = T(-c) S R T(c) T(pos), c the middle of the raw box; refreshes the inverse.
    void RecomputeWorldMatrix();
    const float* GetWorldMatrix() const { return matrices[0]; }
    const float* GetInverseWorldMatrix() const { return matrices[2]; }
    bool IsIdentity() const;
    float* Transform_RotationMatrix = matrices[1];
    float Transform_Scale[3] = {1, 1, 1}, Transform_Pos[3] = {};

  private:
    bool dirty = true;
    float matrices[6][16];
};

/// What callers get of an edge.
struct QLM_EdgeRecord {
    int32_t Low = -1, High = -1, UVLow1 = -1, UVHigh1 = -1, UVLow2 = -1, UVHigh2 = -1, Polygon1 = -1, Polygon2 = -1;
};

class QLM_MeshLookupsContainer : public QLM_MeshContainerMesh {
  public:
    void OnAfterRawBuild() override;
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;

    void BuildPolygonEdges();
    void CalculateOpenEdges();
    void BuildVisiblePolygons(bool showAll);
    void InvalidateVisibleLists(); ///< the octree goes with them
    int GetVisiblePolygonCount();
    int GetVisibleVertexCount();
    /// In ascending order until the octree is built, then in its leaf order.
    QLM_SimpleArray<int32_t>& GetVisiblePolygons();
    QLM_SimpleArray<int32_t>& GetVisibleVertices();
    int GetEdgeCount() const { return edgeCount; }
    /// True when a, b (in either order) is an edge.
    bool GetEdge(int a, int b, QLM_EdgeRecord& out) const;
    bool IsOpenEdge(int a, int b) const;
    /// Walks every edge once, by low vertex, in order of first meeting.
    void ForEachEdge(const std::function<void(const QLM_EdgeRecord&)>& visit) const;

    /// Per-vertex culling cache: -1 unknown, 0 hidden, 1 visible.
    QLM_SimpleArray<int8_t> VertexVisibility;

  private:
    struct EdgeEntry { int32_t highVertex; QLM_EdgeRecord edge; };
    std::vector<EdgeEntry> edges;       ///< grouped by low vertex, each group in order of first meeting
    std::vector<int32_t> edgeStart;     ///< vertex count + 1
    int edgeCount = 0;
    bool valid = false;
    QLM_SimpleArray<int32_t> visibleVertices, visiblePolygons;
};

class QLM_OctreeMeshContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_OctreeMeshContainer() override;
    using Node = QLM_OctreeNode<int32_t>;

    virtual void ReleaseDrawingResources();
    virtual void OctreeBoundsChanged();
    virtual void BuildOctree();
    virtual void AssignRanges();
    virtual void BuildPolygonLeaves();

    Node* GetRoot();                           ///< builds on demand
    const std::vector<Node*>& GetLeaves();     ///< in tree order; builds on demand
    int GetLeafOfPolygon(int p) const { return PolygonLeaf[p]; } ///< index into the leaves, -1 for none
    void InvalidateOctree();
    void SetDepth(int depth);
    void ClearSurfaceChangedFlags();
    /// Marks a leaf and its ancestors as touched.
    static void TouchNode(Node* node);
    /// Touches every leaf whose polygons meet the UV range (min u, min v, max u, max v).
    void TouchUVRange(const float* range);

  private:
    QLM_SimpleArray<int32_t> PolygonLeaf;
    int32_t octreeDepth = 2;
    std::unique_ptr<Node> root;
    std::vector<Node*> Leaves;
};

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

/// Materials by index, and the object's bindings to maps.
class QLM_MeshMaterialContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_MeshMaterialContainer() override;
    void OnAfterRawBuild() override;

    int AddMaterial(QLM_Material* material); ///< takes ownership; returns the index
    QLM_Material* FindMaterialByName(const std::string& name) const;
    const QLM_List<QLM_Material*>& GetMaterials() const { return materials; }
    QLM_MaterialMapList& GetMapList() { return mapList; }
    const QLM_MaterialMapList& GetMapList() const { return mapList; }
    /// Gives the binding the polygons whose material uses its map.
    void UpdateMapPolygonList(QLM_MaterialMapBinding* binding);
    void UpdateAllMapPolygonLists();
    int CurrentMaterialIndex = -1;

  private:
    QLM_List<QLM_Material*> materials;
    QLM_MaterialMapList mapList;
};

class QLM_MeshGroupContainer : public QLM_MeshContainerMesh {
  public:
    ~QLM_MeshGroupContainer() override;
    int AddGroup(QLM_Group2* group); ///< takes ownership; returns the index
    QLM_Group2* GetGroup(int index) const;
    int GetGroupCount() const { return groups.Count(); }
    int FindGroupByName(const std::string& name) const; ///< -1 when absent
    /// Gives each group its vertices, a group's name counting as a word in others.
    void ResolveGroupVertexMaps();

  private:
    QLM_List<QLM_Group2*> groups;
};

class QLM_MeshSymmetryContainer : public QLM_MeshContainerMesh {};

/// Corner normals for a smoothing angle; above 179.9 degrees they are the vertex normals themselves.
class QLM_MeshDiscontinuousNormalsContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    float GetMaxSmoothingAngle() const { return maxSmoothingAngle; }
    void SetMaxSmoothingAngle(float degrees); ///< clamped to 0..180
    void RebuildNormalIndices();
    void UpdateNormals(bool visibleOnly);
    int GetCornerNormalIndex(int p, int i) const;
    const float* GetCornerNormal(int p, int i) const { return Normals[GetCornerNormalIndex(p, i)]; }
    QLM_VertexMap3D Normals;

  private:
    float maxSmoothingAngle = 180.0f;
};

/// Soft selection of the tools: a weight for each vertex and polygon; empty arrays while nothing is selected.
class QLM_MeshHotSelectionContainer : public QLM_MeshContainerMesh {
  public:
    bool HasSelection() const { return VertexWeights.GetCount() > 0; }
    float GetVertexWeight(int v) const { return HasSelection() ? *VertexWeights[v] : 0.0f; }
    QLM_VertexMap1D VertexWeights, PolygonWeights;
};

class QLM_MeshConcaveContainer : public QLM_MeshContainerMesh {
  public:
    void ResetConcavity() { enabled = false; }

  private:
    bool enabled = false;
};

/// The map that makes separate vertices act as one; identity while not welded.
class QLM_WeldMeshContainer : public QLM_MeshContainerMesh {
  public:
    bool IsWelded() const { return welded; }
    int GetWeldTarget(int v) const { return welded ? map[v] : v; }

  private:
    bool welded = false;
    QLM_SimpleArray<int32_t> map;
};

/// Morphs of the mesh; without any, the resolved shape is the base moved by the world matrix.
class QLM_MeshMorphContainer : public QLM_MeshContainerMesh {
  public:
    void ResolveMorphs(bool applyTransform);
};

/// The passes over normals and the repairs of a raw build.
class QLM_MeshCalculateNormalsContainer : public QLM_MeshContainerMesh {};

class QLM_MeshUtilitiesContainer : public QLM_MeshContainerMesh {
  public:
    QLM_Object* GetObject() const { return object; }
    bool ReferenceObject = false;

  protected:
    QLM_Object* object = nullptr;
};
