#pragma once
// What lies beside what: edges, open edges, seams and what is visible.

#include "Core/Objects/QLM_SimpleArray.h"
#include "Geometry/QLM_MeshContainer.h"

#include <functional>
#include <memory>

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
    int64_t GetEdgeByteCount() const;
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
