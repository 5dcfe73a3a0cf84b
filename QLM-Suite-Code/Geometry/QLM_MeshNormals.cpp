#include "Geometry/QLM_MeshNormals.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Math/QLM_Matrix.h"

void QLM_MeshCalculateNormalsContainer::CrunchPolygonNormals(bool visibleOnly) {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const float* positions = mesh->ResolvedVertices.GetData();
    QLM_VertexMap3D& normals = mesh->PolygonNormals;
    // With nothing hidden the plain pass gives the same and needs no markers.
    if (!visibleOnly || mesh->GetVisiblePolygonCount() == mesh->GetPCount()) {
        QLM_ThreadCrunch(mesh->GetPCount(), [&](const ThreadCrunchRange& range) {
            QLM_TRACE(3);
            for (int p = range.start; p < range.end; ++p) QLM_PolygonNormal(view, positions, p, normals[p]);
        }, "Calculate_Poly_Normals_ThreadFunc");
        return;
    }
    QLM_MarkerSet& done = mesh->PolygonMarkers[4];
    done.Reset(mesh->GetPCount());
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    QLM_ThreadCrunch(visible.GetCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) {
            const int32_t* row = mesh->VertexPolygons.GetRow(visible[i]);
            for (int k = 1; k <= row[0]; ++k)
                if (done.Set(row[k])) QLM_PolygonNormal(view, positions, row[k], normals[row[k]]);
        }
    }, "Calculate_Poly_Normals_ThreadFunc");
}

void QLM_MeshCalculateNormalsContainer::CrunchVertexNormals(bool visibleOnly) {
    const float* polygonNormals = mesh->PolygonNormals.GetData();
    QLM_VertexMap3D& normals = mesh->VertexNormals;
    const auto calculate = [&](int v) { QLM_VertexNormal(mesh->VertexPolygons.GetRow(v), polygonNormals, normals[v]); };
    // With nothing hidden go through memory in its own order.
    const bool selected = visibleOnly && mesh->GetVisibleVertexCount() < mesh->GetVCount();
    const int32_t* visible = selected ? mesh->GetVisibleVertices().GetData() : nullptr;
    const int count = selected ? mesh->GetVisibleVertexCount() : mesh->GetVCount();
    QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i) calculate(visible ? visible[i] : i);
    }, "Calculate_Vertex_Normals_ThreadFunc");
}

void QLM_Mesh::CalculateNormals(bool visibleOnly) {
    QLM_MeshRoot::CalculateNormals(visibleOnly);
    UpdateNormals(visibleOnly);
}

void QLM_MeshCalculateNormalsContainer::RecalculateNormalsForSelectedVertices() {
    const int count = mesh->GetSelectedVertexCount();
    QLM_MarkerSet& done = mesh->PolygonMarkers[0];
    done.Reset(mesh->GetPCount());
    for (int i = 0; i < count; ++i) {
        const int32_t* row = mesh->VertexPolygons.GetRow(mesh->GetSelectedVertex(i));
        for (int k = 1; k <= row[0]; ++k)
            if (done.Set(row[k])) mesh->CalculatePolygonNormal(row[k]);
    }
    for (int i = 0; i < count; ++i) mesh->CalculateVertexNormal(mesh->GetSelectedVertex(i));
}
