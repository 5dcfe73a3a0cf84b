#include "Geometry/QLM_MeshRoot.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_MeshNormals.h"
#include "Geometry/QLM_ThreadStamps.h"

void QLM_MeshRoot::CalculatePolygonNormal(int p) {
    QLM_PolygonNormal(GetPolygonView(), ResolvedVertices.GetData(), p, PolygonNormals[p]);
}

void QLM_MeshRoot::CalculateVertexNormal(int v) {
    QLM_VertexNormal(VertexPolygons.GetRow(v), PolygonNormals.GetData(), VertexNormals[v]);
}

void QLM_MeshRoot::CalculateNormals(bool visibleOnly) {
    CalculatePolygonNormals(visibleOnly);
    CalculateVertexNormals(visibleOnly);
}

void QLM_MeshRoot::SaveVertexNormals() { SavedVertexNormals.CopyFrom(VertexNormals); }

void QLM_MeshRoot::AfterRawBuild() { ResolvedVertices.CopyFrom(Vertices); }

void QLM_MeshRoot::SetVCount(int n) {
    Vertices.Resize(n, true, true);
    ResolvedVertices.Resize(n, true, true);
    VertexNormals.Resize(n, true, true);
    SavedVertexNormals.Free();
}

void QLM_MeshRoot::SetVTCount(int n) { TextureVertices.Resize(n, true, true); }

void QLM_MeshRoot::SetPCount(int n) {
    PolygonNormals.Resize(n, true, true);
    PolygonCount = n;
}

void QLM_MeshRoot::BuildVertexPolygons() {
    QLM_TRACE(1);
    const QLM_PolygonView view = GetPolygonView();
    VertexPolygons.Begin(GetVCount());
    for (int p = 0; p < PolygonCount; ++p)
        for (int i = 0; i < view.polygons[p].count; ++i) VertexPolygons.Count(view.GetVertex(p, i));
    VertexPolygons.Allocate();
    for (int p = 0; p < PolygonCount; ++p)
        for (int i = 0; i < view.polygons[p].count; ++i) VertexPolygons.Add(view.GetVertex(p, i), p);
    VertexPolygons.End();
}

namespace {
/// Visits the neighbours of v once each. `stamp` differs from all others that `stamps` has seen.
template <class Visit>
void VisitNeighbors(const QLM_PolygonView& view, const int32_t* row, int v, int32_t* stamps, int32_t stamp,
                    Visit visit) {
    stamps[v] = stamp;
    for (int k = 1; k <= row[0]; ++k) {
        const int p = row[k];
        for (int i = 0; i < view.polygons[p].count; ++i) {
            const int neighbor = view.GetVertex(p, i);
            if (stamps[neighbor] == stamp) continue;
            stamps[neighbor] = stamp;
            visit(neighbor);
        }
    }
}
} // namespace

void QLM_MeshRoot::BuildVertexNeighbors() {
    QLM_TRACE(1);
    const QLM_PolygonView view = GetPolygonView();
    const int vertexCount = GetVCount();
    QLM_ThreadStamps stamps(vertexCount);
    VertexNeighbors.Begin(vertexCount);
    QLM_ThreadCrunch(vertexCount, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* marks = stamps.Get(range.threadIndex);
        for (int v = range.start; v < range.end; ++v) {
            int count = 0;
            VisitNeighbors(view, VertexPolygons.GetRow(v), v, marks, v + 1, [&](int) { ++count; });
            VertexNeighbors.Count(v, count);
        }
    }, "Count_Neighbors_ThreadFunc");
    VertexNeighbors.Allocate();
    QLM_ThreadCrunch(vertexCount, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        int32_t* marks = stamps.Get(range.threadIndex);
        for (int v = range.start; v < range.end; ++v)
            VisitNeighbors(view, VertexPolygons.GetRow(v), v, marks, -v - 1,
                           [&](int neighbor) { VertexNeighbors.Add(v, neighbor); });
    }, "Build_Neighbors_ThreadFunc");
    VertexNeighbors.End();
}
