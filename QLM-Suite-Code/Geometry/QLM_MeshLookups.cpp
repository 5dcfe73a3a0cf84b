#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_ThreadStamps.h"

void QLM_MeshLookupsContainer::OnAfterRawBuild() {
    InvalidateVisibleLists();
    BuildPolygonEdges();
}

void QLM_MeshLookupsContainer::OnSetVertexCount(int oldCount, int newCount) {
    InvalidateVisibleLists();
    VertexVisibility.Resize(newCount, true, false);
    for (int v = oldCount; v < newCount; ++v) VertexVisibility[v] = -1;
}

void QLM_MeshLookupsContainer::OnSetPolygonCount(int, int) { InvalidateVisibleLists(); }

// Edges.

namespace {
/// Visits the edges whose low vertex is v as (high, texture vertex at v, texture vertex at high, polygon), by polygon,
/// then by corner: the order in which a walk over all polygons meets them.
template <class Visit>
void VisitEdgesFrom(const QLM_PolygonView& view, const int32_t* row, int v, Visit visit) {
    int last = -1;
    for (int k = 1; k <= row[0]; ++k) {
        const int p = row[k];
        if (p == last) continue; // holds v at several corners
        last = p;
        const QLM_PolygonCorner* corners = view.polygons[p].corners;
        const int count = view.polygons[p].count;
        int a = view.GetVertex(p, 0);
        for (int i = 0; i < count; ++i) {
            const int j = i + 1 < count ? i + 1 : 0;
            const int b = view.GetVertex(p, j);
            if (a == v ? b > v : b == v && a > v) {
                const int own = a == v ? i : j, other = i + j - own;
                visit(a + b - v, corners[own].textureVertex, corners[other].textureVertex, p);
            }
            a = b;
        }
    }
}

bool AreUVsEqual(const float* a, const float* b) {
    return std::fabs(a[0] - b[0]) < 1e-8f && std::fabs(a[1] - b[1]) < 1e-8f;
}
} // namespace

void QLM_MeshLookupsContainer::BuildPolygonEdges() {
    QLM_TRACE(1);
    const QLM_PolygonView view = mesh->GetPolygonView();
    edgeRows = mesh->GetVCount();
    edges.reset();
    edgeStart = std::make_unique_for_overwrite<int32_t[]>(edgeRows + 1);
    // A stamp holds the position of an edge in its row. It counts only if that position holds the edge, so stamps of
    // other rows need no clearing.
    QLM_ThreadStamps stamps(edgeRows);

    // Count the distinct edges of each row.
    QLM_ThreadCrunch(edgeRows, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* position = stamps.Get(range.threadIndex);
        std::vector<int32_t> highs;
        for (int v = range.start; v < range.end; ++v) {
            highs.clear();
            VisitEdgesFrom(view, mesh->VertexPolygons.GetRow(v), v, [&](int high, int, int, int) {
                const auto at = static_cast<size_t>(position[high]);
                if (at < highs.size() && highs[at] == high) return;
                position[high] = static_cast<int32_t>(highs.size());
                highs.push_back(high);
            });
            edgeStart[v + 1] = static_cast<int32_t>(highs.size());
        }
    }, "Count_Edges_ThreadFunc");

    // Place the rows one behind the other.
    edgeStart[0] = 0;
    for (int v = 0; v < edgeRows; ++v) edgeStart[v + 1] += edgeStart[v];
    edgeCount = edgeStart[edgeRows];
    edges = std::make_unique_for_overwrite<EdgeEntry[]>(edgeCount);

    // Fill them.
    QLM_ThreadCrunch(edgeRows, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* position = stamps.Get(range.threadIndex);
        for (int v = range.start; v < range.end; ++v) {
            EdgeEntry* row = edges.get() + edgeStart[v];
            int32_t count = 0;
            VisitEdgesFrom(view, mesh->VertexPolygons.GetRow(v), v, [&](int high, int uvLow, int uvHigh, int p) {
                const int32_t at = position[high];
                if (at < count && row[at].high == high) return MeetEdge(row[at], uvLow, uvHigh, p);
                position[high] = count;
                row[count++] = {high, uvLow, uvHigh, uvLow, uvHigh, p, -1};
            });
        }
    }, "Build_Edges_ThreadFunc");
}

void QLM_MeshLookupsContainer::MeetEdge(EdgeEntry& entry, int uvLow, int uvHigh, int p) const {
    if (entry.polygon2 < 0) entry.polygon2 = p;
    if (mesh->GetVTCount() == 0) return;
    const QLM_VertexMap2D& uvs = mesh->TextureVertices;
    if (AreUVsEqual(uvs[entry.uvLow1], uvs[uvLow]) && AreUVsEqual(uvs[entry.uvHigh1], uvs[uvHigh])) return;
    entry.uvLow2 = uvLow;
    entry.uvHigh2 = uvHigh;
}

QLM_EdgeRecord QLM_MeshLookupsContainer::MakeRecord(int low, const EdgeEntry& entry) {
    return {low,          entry.high,    entry.uvLow1,   entry.uvHigh1,
            entry.uvLow2, entry.uvHigh2, entry.polygon1, entry.polygon2};
}

const QLM_MeshLookupsContainer::EdgeEntry* QLM_MeshLookupsContainer::FindEdge(int a, int b) const {
    const auto [low, high] = std::minmax(a, b);
    if (low < 0 || low >= edgeRows) return nullptr;
    for (int i = edgeStart[low]; i < edgeStart[low + 1]; ++i)
        if (edges[i].high == high) return &edges[i];
    return nullptr;
}

bool QLM_MeshLookupsContainer::GetEdge(int a, int b, QLM_EdgeRecord& out) const {
    const EdgeEntry* entry = FindEdge(a, b);
    if (entry) out = MakeRecord(std::min(a, b), *entry);
    return entry != nullptr;
}

bool QLM_MeshLookupsContainer::IsOpenEdge(int a, int b) const {
    if (!mesh->HasVertexFlag(a, eVFlag_OpenEdge) || !mesh->HasVertexFlag(b, eVFlag_OpenEdge)) return false;
    const EdgeEntry* entry = FindEdge(a, b);
    return entry && entry->polygon2 < 0;
}

void QLM_MeshLookupsContainer::GetOtherSideUVs(const QLM_EdgeRecord& record, int vertex, int& uvA, int& uvB) {
    const bool low = vertex == record.Low;
    const bool isPair1 = uvA == (low ? record.UVLow1 : record.UVHigh1) && uvB == (low ? record.UVHigh1 : record.UVLow1);
    const int uvLow = isPair1 ? record.UVLow2 : record.UVLow1, uvHigh = isPair1 ? record.UVHigh2 : record.UVHigh1;
    uvA = low ? uvLow : uvHigh;
    uvB = low ? uvHigh : uvLow;
}

int64_t QLM_MeshLookupsContainer::GetEdgeByteCount() const {
    return static_cast<int64_t>(edgeCount) * sizeof(EdgeEntry) + 4 * (static_cast<int64_t>(edgeRows) + 1);
}

void QLM_MeshLookupsContainer::ForEachEdge(const std::function<void(const QLM_EdgeRecord&)>& visit) const {
    for (int v = 0; v < edgeRows; ++v)
        for (int i = edgeStart[v]; i < edgeStart[v + 1]; ++i) visit(MakeRecord(v, edges[i]));
}

void QLM_MeshLookupsContainer::CalculateOpenEdges() {
    QLM_TRACE(1);
    const QLM_PolygonView view = mesh->GetPolygonView();
    QLM_ThreadStamps counters(mesh->GetVCount());
    QLM_ThreadCrunch(mesh->GetVCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* uses = counters.Get(range.threadIndex); // all zero between two vertices
        std::vector<int32_t> ends;
        for (int v = range.start; v < range.end; ++v) {
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            ends.clear();
            int texture = -1;
            bool seam = false;
            for (int k = 1; k <= row[0]; ++k) {
                const int p = row[k], count = view.polygons[p].count;
                int own = -1;
                for (int i = 0; i < count; ++i) {
                    if (view.GetVertex(p, i) != v) continue;
                    const int corner = view.polygons[p].corners[i].textureVertex;
                    if (own < 0 && k == 1) texture = corner;
                    if (own < 0) own = i;
                    seam = seam || corner != texture;
                }
                ends.push_back(view.GetVertex(p, own > 0 ? own - 1 : count - 1));
                ends.push_back(view.GetVertex(p, own + 1 < count ? own + 1 : 0));
            }
            for (const int32_t end : ends) ++uses[end];
            bool open = false;
            for (const int32_t end : ends) open = open || uses[end] < 2;
            for (const int32_t end : ends) uses[end] = 0;
            mesh->ClearVertexFlag(v, eVFlag_OpenEdge | eVFlag_UVSeam);
            mesh->SetVertexFlag(v, (open ? eVFlag_OpenEdge : 0u) | (seam ? eVFlag_UVSeam : 0u));
        }
    }, "Open_Edges_ThreadFunc");
}

// Visible lists.

void QLM_MeshLookupsContainer::InvalidateVisibleLists() {
    valid = false;
    mesh->InvalidateOctree();
}

void QLM_MeshLookupsContainer::BuildVisiblePolygons(bool showAll) {
    QLM_TRACE(1);
    mesh->InvalidateOctree();
    const int vertexCount = mesh->GetVCount(), polygonCount = mesh->GetPCount();
    QLM_ThreadCrunch(vertexCount, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int v = range.start; v < range.end; ++v) {
            bool visible = showAll;
            const int32_t* row = mesh->VertexPolygons.GetRow(v);
            for (int k = 1; k <= row[0] && !visible; ++k) visible = !mesh->HasPolygonFlag(row[k], ePFlag_Hidden);
            if (visible) mesh->ClearVertexFlag(v, eVFlag_Hidden);
            else mesh->SetVertexFlag(v, eVFlag_Hidden);
        }
    }, "Visible_Vertices_ThreadFunc");

    visiblePolygons.SetCount(polygonCount);
    int count = 0;
    for (int p = 0; p < polygonCount; ++p)
        if (mesh->GetPolygonVertexCount(p) > 0 && (showAll || !mesh->HasPolygonFlag(p, ePFlag_Hidden)))
            visiblePolygons[count++] = p;
    visiblePolygons.SetCount(count);

    visibleVertices.SetCount(vertexCount);
    count = 0;
    for (int v = 0; v < vertexCount; ++v)
        if (!mesh->HasVertexFlag(v, eVFlag_Hidden)) visibleVertices[count++] = v;
    visibleVertices.SetCount(count);
    valid = true;
}

int QLM_MeshLookupsContainer::GetVisiblePolygonCount() { return GetVisiblePolygons().GetCount(); }

int QLM_MeshLookupsContainer::GetVisibleVertexCount() { return GetVisibleVertices().GetCount(); }

QLM_SimpleArray<int32_t>& QLM_MeshLookupsContainer::GetVisiblePolygons() {
    if (!valid || visiblePolygons.GetCount() > mesh->GetPCount()) BuildVisiblePolygons(false);
    return visiblePolygons;
}

QLM_SimpleArray<int32_t>& QLM_MeshLookupsContainer::GetVisibleVertices() {
    if (!valid || visibleVertices.GetCount() > mesh->GetVCount()) BuildVisiblePolygons(false);
    return visibleVertices;
}
