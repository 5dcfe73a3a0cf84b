#pragma once
// Small meshes for the tests of this room.

#include "Core/Objects/QLM_SafePtr.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Math/QLM_Random.h"

#include <gtest/gtest.h>

#include <set>

/// A number of 0..1, without 1.
inline float RandomPart(QLM_RandomGenerator& random) { return static_cast<float>(random.Next(1u << 24)) / (1u << 24); }

/// Corners as (vertex, texture vertex).
using Corners = std::vector<std::pair<int, int>>;
using MeshOwner = QLM_Owned<QLM_Mesh>;

/// Fills a mesh without finishing it.
inline QLM_Mesh* FillMesh(QLM_Object* object, const std::vector<float>& vertices, const std::vector<float>& uvs,
                          const std::vector<Corners>& polygons) {
    auto* mesh = new QLM_Mesh(object);
    mesh->SetSizes(static_cast<int>(vertices.size() / 3), static_cast<int>(uvs.size() / 2),
                   static_cast<int>(polygons.size()));
    std::copy(vertices.begin(), vertices.end(), mesh->Vertices.GetData());
    std::copy(uvs.begin(), uvs.end(), mesh->TextureVertices.GetData());
    for (int p = 0; p < static_cast<int>(polygons.size()); ++p) {
        mesh->SetPolygonCornerCount(p, static_cast<int>(polygons[p].size()));
        for (int i = 0; i < static_cast<int>(polygons[p].size()); ++i) {
            mesh->SetPolygonVertex(p, i, polygons[p][i].first);
            mesh->SetPolygonTextureVertex(p, i, polygons[p][i].second);
        }
    }
    return mesh;
}

inline MeshOwner MakeMesh(const std::vector<float>& vertices, const std::vector<float>& uvs,
                          const std::vector<Corners>& polygons) {
    MeshOwner mesh(FillMesh(nullptr, vertices, uvs, polygons));
    mesh->AfterRawBuild();
    return mesh;
}

/// Corners without texture vertices.
inline Corners Plain(const std::vector<int>& vertices) {
    Corners corners;
    for (const int v : vertices) corners.emplace_back(v, -1);
    return corners;
}

/// A cube of side 2 around the origin, faces outward.
inline MeshOwner MakeCube() {
    std::vector<float> vertices;
    for (int i = 0; i < 8; ++i)
        for (int k = 0; k < 3; ++k) vertices.push_back(i >> k & 1 ? 1.0f : -1.0f);
    return MakeMesh(vertices, {}, {Plain({0, 2, 3, 1}), Plain({4, 5, 7, 6}), Plain({0, 1, 5, 4}), Plain({2, 6, 7, 3}),
                                   Plain({0, 4, 6, 2}), Plain({1, 3, 7, 5})});
}

/// Polygons of 1..6 corners over few vertices: non-manifold edges, repeated corners, isolated vertices, seams.
/// Positions lie on a coarse grid, so that many fall on planes between boxes; some texture vertices coincide.
inline MeshOwner MakeRandomMesh(uint32_t seed, bool withUVs, int vertexCount = 60, int polygonCount = 80) {
    QLM_RandomGenerator random(seed);
    std::vector<float> vertices, uvs;
    for (int i = 0; i < 3 * vertexCount; ++i) vertices.push_back(static_cast<float>(random.Next(9)) * 0.25f - 1.0f);
    for (int i = 0; withUVs && i < 40; ++i) uvs.push_back(static_cast<float>(random.Next(4)) * 0.25f);
    std::vector<Corners> polygons(polygonCount);
    for (Corners& corners : polygons)
        for (uint32_t n = 1 + random.Next(6); n > 0; --n)
            corners.emplace_back(random.Next(vertexCount - 3), withUVs ? static_cast<int>(random.Next(20)) : -1);
    return MakeMesh(vertices, uvs, polygons);
}
