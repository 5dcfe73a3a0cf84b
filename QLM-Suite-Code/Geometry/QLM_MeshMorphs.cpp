#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_PointBox.h"
#include "Math/QLM_Matrix.h"

void QLM_MeshMorphContainer::ResolveMorphs(bool applyTransform) {
    QLM_TRACE(1);
    const int count = mesh->GetVCount();
    QLM_VertexMap3D& resolved = mesh->ResolvedVertices;
    resolved.Resize(count, false, false);

    // Take over the base; the box starts from the raw one and never shrinks below it.
    QLM_PointBox box = QLM_CrunchBox(count, "ResolveMorphs_Without_CMorph_ThreadFunc", [&](int v, QLM_PointBox& own) {
        std::copy_n(mesh->Vertices[v], 3, resolved[v]);
        own.Add(resolved[v]);
    });
    box.Add(mesh->BoundsMin);
    box.Add(mesh->BoundsMax);
    box.CopyTo(mesh->ResolvedBoundsMin, mesh->ResolvedBoundsMax);

    // Move what is visible into world space.
    mesh->RecomputeWorldMatrix();
    if (!applyTransform || mesh->IsIdentity()) return;
    const float* world = mesh->GetWorldMatrix();
    const QLM_SimpleArray<int32_t>& visible = mesh->GetVisibleVertices();
    if (visible.GetCount() == count) {
        QLM_ThreadCrunch(count, [&](const ThreadCrunchRange& range) {
            QLM_TRACE(3);
            for (int v = range.start; v < range.end; ++v) MatrixTransformPoint(world, resolved[v], resolved[v]);
        }, "MultByMatrix_ThreadFunc");
        return;
    }
    QLM_ThreadCrunch(visible.GetCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int i = range.start; i < range.end; ++i)
            MatrixTransformPoint(world, resolved[visible[i]], resolved[visible[i]]);
    }, "MultByMatrixIndexed_ThreadFunc");
}
