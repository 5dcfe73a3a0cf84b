#pragma once
// The fifteen containers of a mesh: each concern keeps its arrays in step through five notifications.
// The order of declaration in QLM_Mesh is the order of every notification.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Engine/QLM_TreeGroup.h"
#include "Geometry/QLM_Octree.h"
#include "Geometry/QLM_Polygon.h"
#include "Geometry/QLM_VertexMap.h"
#include "Maps/QLM_Material.h"

#include <functional>
#include <memory>
#include <vector>

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
    const std::vector<uint8_t>& GetBytes() const { return bytes; }

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

/// What callers get of an edge.
struct QLM_EdgeRecord {
    int32_t Low = -1, High = -1, UVLow1 = -1, UVHigh1 = -1, UVLow2 = -1, UVHigh2 = -1, Polygon1 = -1, Polygon2 = -1;
};

class QLM_MeshLookupsContainer : public QLM_MeshContainerMesh {
  public:
    void OnAfterRawBuild() override;
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;

    /// Needs the polygons of each vertex, as CalculateOpenEdges does.
    void BuildPolygonEdges();
    /// Sets eVFlag_OpenEdge and eVFlag_UVSeam of every vertex.
    void CalculateOpenEdges();
    /// Lists what isn't hidden (or everything) and sets eVFlag_Hidden to match. Polygons without corners stay out.
    void BuildVisiblePolygons(bool showAll);
    void InvalidateVisibleLists(); ///< the octree goes with them
    void ForgetVisibleLists() { valid = false; } ///< by the octree, whose order they had
    int GetVisiblePolygonCount();
    int GetVisibleVertexCount();
    /// In ascending order until the octree is built, then in its leaf order.
    QLM_SimpleArray<int32_t>& GetVisiblePolygons();
    QLM_SimpleArray<int32_t>& GetVisibleVertices();
    int GetEdgeCount() const { return edgeCount; }
    /// True when a, b (in either order) is an edge.
    bool GetEdge(int a, int b, QLM_EdgeRecord& out) const;
    bool IsOpenEdge(int a, int b) const;
    /// The texture vertices on the other side of an edge, for a side that has uvA at `vertex` and uvB at the other end.
    static void GetOtherSideUVs(const QLM_EdgeRecord& record, int vertex, int& uvA, int& uvB);
    /// Walks every edge once, by low vertex, in order of first meeting.
    void ForEachEdge(const std::function<void(const QLM_EdgeRecord&)>& visit) const;

    /// Per-vertex culling cache: -1 unknown, 0 hidden, 1 visible.
    QLM_SimpleArray<int8_t> VertexVisibility;

  private:
    /// An edge without its low vertex, which is the row that it stands in.
    struct EdgeEntry { int32_t high, uvLow1, uvHigh1, uvLow2, uvHigh2, polygon1, polygon2; };
    void MeetEdge(EdgeEntry& entry, int uvLow, int uvHigh, int p) const;
    const EdgeEntry* FindEdge(int a, int b) const;
    static QLM_EdgeRecord MakeRecord(int low, const EdgeEntry& entry);

    std::unique_ptr<EdgeEntry[]> edges;   ///< grouped by low vertex, each group in order of first meeting
    std::unique_ptr<int32_t[]> edgeStart; ///< edgeRows + 1
    int edgeRows = 0;
    int edgeCount = 0;
    bool valid = false;
    QLM_SimpleArray<int32_t> visibleVertices, visiblePolygons;
};

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
    QLM_SafePtr<QLM_Material> FindMaterial(int index) const; ///< null when out of range
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
    /// Gives each group its vertices: those of its polygons and of the polygons of groups whose name has its name as
    /// a word. Needs the polygons of each vertex.
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
    void SetMaxSmoothingAngle(float degrees); ///< clamped to 0..180; takes effect with RebuildNormalIndices
    /// Gives every corner its vertex's normal and decides between a loan and own storage.
    void RebuildNormalIndices();
    /// Splits the normals at edges sharper than the angle; nothing to do on borrowed storage.
    void UpdateNormals(bool visibleOnly);
    int GetCornerNormalIndex(int p, int i) const;
    const float* GetCornerNormal(int p, int i) const { return Normals[GetCornerNormalIndex(p, i)]; }
    QLM_VertexMap3D Normals;

  private:
    void PointCornersAtVertices();
    void SplitVertexNormal(int v, float threshold, std::vector<float>& appended);

    float maxSmoothingAngle = 180.0f;
    std::vector<int32_t> unassigned, members; ///< scratch of SplitVertexNormal
};

/// Soft selection of the tools: a weight for each vertex and polygon; empty arrays while nothing is selected.
class QLM_MeshHotSelectionContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    void OnSetPolygonCount(int oldCount, int newCount) override;
    bool HasSelection() const { return VertexWeights.GetCount() > 0; }
    float GetVertexWeight(int v) const { return HasSelection() ? *VertexWeights[v] : 0.0f; }
    QLM_VertexMap1D VertexWeights, PolygonWeights;
};

/// How far a vertex lies below its surroundings, cached a vertex; off until somebody enables it.
class QLM_MeshConcaveContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    void EnableConcavity();
    void ResetConcavity() { enabled = false; }
    /// Mean over the polygons of v of normal . direction to the polygon's middle; 0 while not enabled.
    float GetConcavity(int v);
    void InvalidateAround(int v);

  private:
    QLM_VertexMap1D values;
    bool enabled = false;
};

/// The map that makes separate vertices act as one; identity while not welded.
class QLM_WeldMeshContainer : public QLM_MeshContainerMesh {
  public:
    void OnSetVertexCount(int oldCount, int newCount) override;
    bool IsWelded() const { return welded; }
    int GetWeldTarget(int v) const { return welded ? map[v] : v; }
    /// Makes v stand for `target`; lookups follow with the next AfterRawBuild. Out of range does nothing.
    void SetWeldTarget(int v, int target);
    const int32_t* GetWeldMap() const { return welded ? map.GetData() : nullptr; }

  private:
    bool welded = false;
    QLM_SimpleArray<int32_t> map;
};

/// Morphs of the mesh; without any, the resolved shape is the base moved by the world matrix.
class QLM_MeshMorphContainer : public QLM_MeshContainerMesh {
  public:
    /// Fills ResolvedVertices and the resolved box; with `applyTransform` moves what is visible by the world matrix.
    void ResolveMorphs(bool applyTransform);
};

/// The two passes over normals, on the cruncher. With `visibleOnly` hidden parts keep theirs.
class QLM_MeshCalculateNormalsContainer : public QLM_MeshContainerMesh {
  protected:
    void CrunchPolygonNormals(bool visibleOnly);
    void CrunchVertexNormals(bool visibleOnly);
};

class QLM_MeshUtilitiesContainer : public QLM_MeshContainerMesh {
  public:
    QLM_Object* GetObject() const { return object; }
    bool ReferenceObject = false;

  protected:
    QLM_Object* object = nullptr;
};
