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

// Normals that differ between the corners of a vertex.

void QLM_MeshDiscontinuousNormalsContainer::OnSetVertexCount(int, int) {
    if (Normals.IsExternal()) Normals.Borrow(mesh->VertexNormals); // its storage may have moved
}

void QLM_MeshDiscontinuousNormalsContainer::SetMaxSmoothingAngle(float degrees) {
    maxSmoothingAngle = std::clamp(degrees, 0.0f, 180.0f);
}

int QLM_MeshDiscontinuousNormalsContainer::GetCornerNormalIndex(int p, int i) const {
    return mesh->GetPolygon(p).corners[i].normal;
}

void QLM_MeshDiscontinuousNormalsContainer::PointCornersAtVertices() {
    const QLM_PolygonView view = mesh->GetPolygonView();
    QLM_ThreadCrunch(mesh->GetPCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int p = range.start; p < range.end; ++p)
            for (int i = 0; i < view.polygons[p].count; ++i) view.polygons[p].corners[i].normal = view.GetVertex(p, i);
    }, "Normal_Indices_ThreadFunc");
}

void QLM_MeshDiscontinuousNormalsContainer::RebuildNormalIndices() {
    if (maxSmoothingAngle > 179.9f) Normals.Borrow(mesh->VertexNormals);
    else {
        Normals.EndLoan();
        Normals.CopyFrom(mesh->VertexNormals);
    }
    PointCornersAtVertices();
}

void QLM_MeshDiscontinuousNormalsContainer::UpdateNormals(bool visibleOnly) {
    if (Normals.IsExternal()) return;
    QLM_TRACE(1);
    const float threshold = std::cos(maxSmoothingAngle * 3.14159265358979f / 180.0f);
    Normals.CopyFrom(mesh->VertexNormals);
    PointCornersAtVertices();
    std::vector<float> appended;
    const int32_t* visible = visibleOnly ? mesh->GetVisibleVertices().GetData() : nullptr;
    const int count = visibleOnly ? mesh->GetVisibleVertexCount() : mesh->GetVCount();
    for (int i = 0; i < count; ++i) SplitVertexNormal(visible ? visible[i] : i, threshold, appended);
    if (appended.empty()) return;
    const uint32_t vertexCount = Normals.GetCount();
    Normals.Resize(vertexCount + static_cast<uint32_t>(appended.size() / 3), true, false);
    std::copy(appended.begin(), appended.end(), Normals[vertexCount]);
}

void QLM_MeshDiscontinuousNormalsContainer::SplitVertexNormal(int v, float threshold, std::vector<float>& appended) {
    const QLM_PolygonView view = mesh->GetPolygonView();
    const int32_t* row = mesh->VertexPolygons.GetRow(v);
    unassigned.assign(row + 1, row + 1 + row[0]);
    for (bool first = true; !unassigned.empty(); first = false) {
        // Gather around the seed: each polygon is compared with it alone.
        const float* seed = mesh->PolygonNormals[unassigned.front()];
        members.assign(1, unassigned.front());
        float sum[3] = {seed[0], seed[1], seed[2]};
        size_t kept = 0;
        for (size_t k = 1; k < unassigned.size(); ++k) {
            const float* normal = mesh->PolygonNormals[unassigned[k]];
            if (Dot(seed, normal) > threshold) {
                members.push_back(unassigned[k]);
                for (int c = 0; c < 3; ++c) sum[c] += normal[c];
            } else unassigned[kept++] = unassigned[k];
        }
        unassigned.resize(kept);
        if (members.size() > 1) QLM_ScaleToUnit(sum);

        // The first group has the vertex's own slot, the others one at the end.
        if (first) {
            std::copy_n(sum, 3, Normals[v]);
            continue;
        }
        const int slot = mesh->GetVCount() + static_cast<int>(appended.size() / 3);
        appended.insert(appended.end(), sum, sum + 3);
        for (const int p : members)
            for (int i = 0; i < view.polygons[p].count; ++i)
                if (view.GetVertex(p, i) == v) view.polygons[p].corners[i].normal = slot;
    }
}
