#include "Geometry/QLM_MeshCornerNormals.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MeshNormals.h"
#include "Math/QLM_Matrix.h"

namespace {
/// One share of the vertices: splits their normals, and keeps what comes behind the vertices' own until it is known
/// where that begins.
class NormalSplitter {
  public:
    /// Groups the polygons of v by their normals; the first group has the vertex's own normal, `own`.
    void Split(const QLM_PolygonView& view, const int32_t* row, const float* polygonNormals, int v, float threshold,
               float* own) {
        if (IsSmooth(row, polygonNormals, threshold, own)) return;
        unassigned.assign(row + 1, row + 1 + row[0]);
        for (bool first = true; !unassigned.empty(); first = false) {
            float sum[3];
            Gather(polygonNormals, threshold, sum);
            if (first) {
                std::copy_n(sum, 3, own);
                continue;
            }
            const int32_t slot = GetCount();
            appended.insert(appended.end(), sum, sum + 3);
            for (const int p : members)
                for (int i = 0; i < view.polygons[p].count; ++i)
                    if (view.GetVertex(p, i) == v) moved.push_back({&view.polygons[p].corners[i], slot});
        }
    }
    int32_t GetCount() const { return static_cast<int32_t>(appended.size() / 3); }
    const std::vector<float>& GetAppended() const { return appended; }
    void PointCorners(int32_t firstSlot) const {
        for (const Move& move : moved) move.corner->normal = firstSlot + move.slot;
    }

  private:
    struct Move {
        QLM_PolygonCorner* corner;
        int32_t slot;
    };

    /// True, with the vertex's normal written, when one group holds all.
    static bool IsSmooth(const int32_t* row, const float* polygonNormals, float threshold, float* own) {
        if (row[0] == 0) return true;
        const float* seed = polygonNormals + 3 * static_cast<int64_t>(row[1]);
        float sum[3] = {seed[0], seed[1], seed[2]};
        for (int k = 2; k <= row[0]; ++k) {
            const float* normal = polygonNormals + 3 * static_cast<int64_t>(row[k]);
            if (!(Dot(seed, normal) > threshold)) return false;
            for (int c = 0; c < 3; ++c) sum[c] += normal[c];
        }
        if (row[0] > 1) QLM_ScaleToUnit(sum);
        std::copy_n(sum, 3, own);
        return true;
    }
    /// Takes the first polygon and those whose normal is near to its own; each is compared with it alone.
    void Gather(const float* polygonNormals, float threshold, float* sum) {
        const auto normalOf = [&](int p) { return polygonNormals + 3 * static_cast<int64_t>(p); };
        const float* seed = normalOf(unassigned.front());
        members.assign(1, unassigned.front());
        std::copy_n(seed, 3, sum);
        size_t kept = 0;
        for (size_t k = 1; k < unassigned.size(); ++k) {
            const float* normal = normalOf(unassigned[k]);
            if (Dot(seed, normal) > threshold) {
                members.push_back(unassigned[k]);
                for (int c = 0; c < 3; ++c) sum[c] += normal[c];
            } else unassigned[kept++] = unassigned[k];
        }
        unassigned.resize(kept);
        if (members.size() > 1) QLM_ScaleToUnit(sum);
    }

    std::vector<float> appended;
    std::vector<Move> moved; ///< in order: a corner that moves twice ends where the last move says
    std::vector<int32_t> unassigned, members;
};
} // namespace

void QLM_MeshDiscontinuousNormalsContainer::OnSetVertexCount(int, int) {
    if (Normals.IsExternal()) Normals.Borrow(mesh->VertexNormals); // its storage may have moved
}

void QLM_MeshDiscontinuousNormalsContainer::SetMaxSmoothingAngle(float degrees) {
    if (!std::isnan(degrees)) maxSmoothingAngle = std::clamp(degrees, 0.0f, 180.0f);
}

int QLM_MeshDiscontinuousNormalsContainer::GetCornerNormalIndex(int p, int i) const {
    return mesh->GetPolygon(p).corners[i].normal;
}

void QLM_MeshDiscontinuousNormalsContainer::PointCornersAtVertices() {
    cornersMoved = false;
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
    if (cornersMoved) PointCornersAtVertices();

    // Split each vertex's normal; with nothing hidden in the order of memory.
    const bool selected = visibleOnly && mesh->GetVisibleVertexCount() < mesh->GetVCount();
    const int32_t* visible = selected ? mesh->GetVisibleVertices().GetData() : nullptr;
    const QLM_PolygonView view = mesh->GetPolygonView();
    std::vector<NormalSplitter> shares(QLM_MaximumThreads);
    QLM_ThreadCrunch(selected ? mesh->GetVisibleVertexCount() : mesh->GetVCount(), [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        NormalSplitter share;
        for (int i = range.start; i < range.end; ++i) {
            const int v = visible ? visible[i] : i;
            share.Split(view, mesh->VertexPolygons.GetRow(v), mesh->PolygonNormals.GetData(), v, threshold, Normals[v]);
        }
        shares[range.threadIndex] = std::move(share);
    }, "Split_Normals_ThreadFunc");

    // Append the shares one behind the other, and let the corners know.
    int32_t firstSlot[QLM_MaximumThreads + 1] = {mesh->GetVCount()};
    for (int t = 0; t < QLM_MaximumThreads; ++t) firstSlot[t + 1] = firstSlot[t] + shares[t].GetCount();
    if (firstSlot[QLM_MaximumThreads] == mesh->GetVCount()) return;
    cornersMoved = true;
    Normals.Resize(firstSlot[QLM_MaximumThreads], true, false);
    QLM_ThreadCrunch(QLM_MaximumThreads, [&](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int t = range.start; t < range.end; ++t) {
            std::copy(shares[t].GetAppended().begin(), shares[t].GetAppended().end(), Normals[firstSlot[t]]);
            shares[t].PointCorners(firstSlot[t]);
        }
    }, "Append_Normals_ThreadFunc");
}
