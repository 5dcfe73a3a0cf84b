#include "Rendering/QLM_MeshArrays.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"

#include <algorithm>
#include <cmath>

namespace {

/// Makes the vertices of a mesh's corners.
class VertexMaker {
  public:
    VertexMaker(const QLM_Mesh& mesh, bool smooth, std::vector<QLM_MeshArrays::Vertex>& vertices)
        : mesh(mesh), smooth(smooth), vertices(vertices), newest(static_cast<size_t>(mesh.GetVCount()), -1) {
        const bool resolved = mesh.ResolvedVertices.GetCount() == static_cast<uint32_t>(mesh.GetVCount());
        positions = resolved ? mesh.ResolvedVertices.GetData() : mesh.Vertices.GetData();
        if (smooth && mesh.VertexNormals.GetCount() == static_cast<uint32_t>(mesh.GetVCount()))
            normals = mesh.VertexNormals.GetData();
        if (!smooth && mesh.PolygonNormals.GetCount() == static_cast<uint32_t>(mesh.GetPCount()))
            normals = mesh.PolygonNormals.GetData();
    }

    /// True when every corner has a vertex at a place that can be drawn.
    bool IsDrawable(int32_t p) const {
        const int count = mesh.GetPolygonVertexCount(p);
        for (int i = 0; i < count; ++i) {
            const int32_t v = VertexOf(p, i);
            if (v < 0 || v >= mesh.GetVCount()) return false;
            const float* position = positions + static_cast<int64_t>(v) * 3;
            if (!std::all_of(position, position + 3, [](float value) { return std::isfinite(value); })) return false;
        }
        return count >= 3;
    }

    uint32_t Make(int32_t p, int i) {
        const int32_t v = VertexOf(p, i), vt = mesh.GetPolygonTextureVertex(p, i);
        if (smooth)
            for (int32_t k = newest[v]; k >= 0; k = older[k])
                if (textureVertices[k] == vt) return static_cast<uint32_t>(k);
        const uint32_t index = static_cast<uint32_t>(vertices.size());
        QLM_MeshArrays::Vertex& vertex = vertices.emplace_back();
        std::copy_n(positions + static_cast<int64_t>(v) * 3, 3, vertex.position);
        if (vt >= 0 && vt < mesh.GetVTCount()) std::copy_n(mesh.TextureVertices[vt], 2, vertex.uv);
        if (normals) std::copy_n(normals + static_cast<int64_t>(smooth ? v : p) * 3, 3, vertex.normal);
        if (smooth) {
            older.push_back(newest[v]);
            textureVertices.push_back(vt);
            newest[v] = static_cast<int32_t>(index);
        }
        return index;
    }

  private:
    int32_t VertexOf(int32_t p, int i) const {
        const int32_t v = mesh.GetPolygonRawVertex(p, i);
        return mesh.IsWelded() && v >= 0 ? mesh.GetWeldTarget(v) : v;
    }

    const QLM_Mesh& mesh;
    const bool smooth;
    std::vector<QLM_MeshArrays::Vertex>& vertices;
    const float* positions = nullptr;
    const float* normals = nullptr;
    // The vertices made of each mesh vertex, newest first.
    std::vector<int32_t> newest, older, textureVertices;
};

} // namespace

QLM_MeshArrays::QLM_MeshArrays(QLM_Mesh& mesh, bool smooth) {
    QLM_TRACE(2);
    if (mesh.VertexNormals.GetCount() != static_cast<uint32_t>(mesh.GetVCount())) mesh.CalculateNormals(false);
    const auto& leaves = mesh.GetLeaves(); // first: the visible lists take their order from the tree
    const auto& visible = mesh.GetVisiblePolygons();
    const int materialCount = mesh.GetMaterialCount();
    struct Bucket {
        std::vector<uint32_t> indices;
        std::vector<Batch> batches;
    };
    std::vector<Bucket> buckets(static_cast<size_t>(materialCount) + 1);
    vertices.reserve(static_cast<size_t>(mesh.GetVCount()));
    VertexMaker maker(mesh, smooth, vertices);
    for (int leaf = 0; leaf < static_cast<int>(leaves.size()); ++leaf)
        for (int i = leaves[leaf]->FirstPolygon; i < leaves[leaf]->EndPolygon; ++i) {
            const int32_t p = visible[i];
            if (!maker.IsDrawable(p)) continue;
            const int material = std::min(mesh.GetPolygonMaterial(p), materialCount);
            Bucket& bucket = buckets[material];
            if (bucket.batches.empty() || bucket.batches.back().leaf != leaf)
                bucket.batches.push_back({material, leaf, bucket.indices.size(), 0});
            const uint32_t first = maker.Make(p, 0);
            uint32_t last = maker.Make(p, 1);
            for (int k = 2; k < mesh.GetPolygonVertexCount(p); ++k) {
                const uint32_t next = maker.Make(p, k);
                bucket.indices.insert(bucket.indices.end(), {first, last, next});
                last = next;
            }
            bucket.batches.back().count = bucket.indices.size() - bucket.batches.back().first;
        }
    for (Bucket& bucket : buckets) {
        for (Batch& batch : bucket.batches) batch.first += indices.size();
        batches.insert(batches.end(), bucket.batches.begin(), bucket.batches.end());
        indices.insert(indices.end(), bucket.indices.begin(), bucket.indices.end());
    }
}
