// The lookups against slow and obvious recounts.

#include "MeshTestSupport.h"

namespace {
using Row = std::vector<int>;

Row RowOf(const QLM_JaggedTable& table, int i) {
    return Row(table.GetRow(i) + 1, table.GetRow(i) + 1 + table.GetCount(i));
}

Row RecountPolygons(const QLM_Mesh& mesh, int v) {
    Row row;
    for (int p = 0; p < mesh.GetPCount(); ++p)
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i)
            if (mesh.GetPolygonVertex(p, i) == v) row.push_back(p);
    return row;
}

Row RecountNeighbors(const QLM_Mesh& mesh, int v) {
    Row row;
    for (const int p : RecountPolygons(mesh, v))
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i) {
            const int other = mesh.GetPolygonVertex(p, i);
            if (other != v && std::find(row.begin(), row.end(), other) == row.end()) row.push_back(other);
        }
    return row;
}

std::vector<QLM_EdgeRecord> RecountEdges(const QLM_Mesh& mesh) {
    std::vector<QLM_EdgeRecord> edges;
    for (int p = 0; p < mesh.GetPCount(); ++p) {
        const int count = mesh.GetPolygonVertexCount(p);
        for (int i = 0; i < count; ++i) {
            const int j = (i + 1) % count;
            int a = mesh.GetPolygonVertex(p, i), b = mesh.GetPolygonVertex(p, j);
            int ta = mesh.GetPolygonTextureVertex(p, i), tb = mesh.GetPolygonTextureVertex(p, j);
            if (a == b) continue;
            if (a > b) {
                std::swap(a, b);
                std::swap(ta, tb);
            }
            const auto known = std::find_if(edges.begin(), edges.end(),
                                            [&](const QLM_EdgeRecord& e) { return e.Low == a && e.High == b; });
            if (known == edges.end()) {
                edges.push_back({a, b, ta, tb, ta, tb, p, -1});
                continue;
            }
            if (known->Polygon2 == -1) known->Polygon2 = p;
            bool differ = false;
            for (int axis = 0; axis < 2 && mesh.GetVTCount() > 0; ++axis)
                differ = differ || mesh.TextureVertices[known->UVLow1][axis] != mesh.TextureVertices[ta][axis] ||
                         mesh.TextureVertices[known->UVHigh1][axis] != mesh.TextureVertices[tb][axis];
            if (differ) {
                known->UVLow2 = ta;
                known->UVHigh2 = tb;
            }
        }
    }
    return edges;
}

bool RecountOpen(const QLM_Mesh& mesh, int v) {
    std::map<int, int> uses;
    std::vector<int> ends;
    for (const int p : RecountPolygons(mesh, v)) {
        const int count = mesh.GetPolygonVertexCount(p);
        int own = 0;
        while (mesh.GetPolygonVertex(p, own) != v) ++own;
        ends.push_back(mesh.GetPolygonVertex(p, own == 0 ? count - 1 : own - 1));
        ends.push_back(mesh.GetPolygonVertex(p, own == count - 1 ? 0 : own + 1));
    }
    for (const int end : ends) ++uses[end];
    return std::any_of(uses.begin(), uses.end(), [](const auto& use) { return use.second < 2; });
}

bool RecountSeam(const QLM_Mesh& mesh, int v) {
    std::set<int> textures;
    for (int p = 0; p < mesh.GetPCount(); ++p)
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i)
            if (mesh.GetPolygonVertex(p, i) == v) textures.insert(mesh.GetPolygonTextureVertex(p, i));
    return textures.size() > 1;
}

std::vector<int> Numbers(const QLM_EdgeRecord& e) {
    return {e.Low, e.High, e.UVLow1, e.UVHigh1, e.UVLow2, e.UVHigh2, e.Polygon1, e.Polygon2};
}

void CompareWithRecount(const QLM_Mesh& mesh) {
    for (int v = 0; v < mesh.GetVCount(); ++v) {
        EXPECT_EQ(RowOf(mesh.VertexPolygons, v), RecountPolygons(mesh, v)) << v;
        EXPECT_EQ(RowOf(mesh.VertexNeighbors, v), RecountNeighbors(mesh, v)) << v;
        EXPECT_EQ(mesh.HasVertexFlag(v, eVFlag_OpenEdge), RecountOpen(mesh, v)) << v;
        EXPECT_EQ(mesh.HasVertexFlag(v, eVFlag_UVSeam), RecountSeam(mesh, v)) << v;
    }
    std::vector<QLM_EdgeRecord> expected = RecountEdges(mesh);
    std::stable_sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) { return a.Low < b.Low; });
    std::vector<std::vector<int>> found, wanted;
    mesh.ForEachEdge([&](const QLM_EdgeRecord& e) { found.push_back(Numbers(e)); });
    for (const QLM_EdgeRecord& e : expected) wanted.push_back(Numbers(e));
    EXPECT_EQ(found, wanted);
    EXPECT_EQ(mesh.GetEdgeCount(), static_cast<int>(expected.size()));
    for (const QLM_EdgeRecord& e : expected) {
        QLM_EdgeRecord record;
        ASSERT_TRUE(mesh.GetEdge(e.High, e.Low, record));
        EXPECT_EQ(Numbers(record), Numbers(e));
        const bool open =
            e.Polygon2 < 0 && mesh.HasVertexFlag(e.Low, eVFlag_OpenEdge) && mesh.HasVertexFlag(e.High, eVFlag_OpenEdge);
        EXPECT_EQ(mesh.IsOpenEdge(e.Low, e.High), open);
    }
}
} // namespace

TEST(MeshLookups, RandomMeshesAgreeWithRecount) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        CompareWithRecount(*MakeRandomMesh(seed, seed % 3 != 0));
    }
}

TEST(MeshLookups, GreatDoubledAndDegeneratePolygons) {
    QLM_RandomGenerator random(5);
    std::vector<float> vertices;
    for (int i = 0; i < 3 * 150; ++i) vertices.push_back(RandomPart(random));
    Corners great;
    for (int i = 0; i < QLM_MaximumCorners; ++i) great.emplace_back(random.Next(140), -1);
    CompareWithRecount(
        *MakeMesh(vertices, {}, {great, Plain({3, 4, 5}), Plain({3, 4, 5}), Plain({5, 4, 3}), Plain({7, 7}),
                                 Plain({8, 8, 8}), Plain({9}), Plain({}), Plain({10, 11, 10, 11})}));
    CompareWithRecount(*MakeMesh({1, 2, 3}, {}, {}));
    CompareWithRecount(*MakeMesh({}, {}, {}));
}

TEST(MeshLookups, WeldedMeshIsSeenThroughItsMap) {
    MeshOwner mesh = MakeRandomMesh(7, true);
    mesh->SetWeldTarget(5, 2);
    mesh->SetWeldTarget(9, 2);
    mesh->SetWeldTarget(60, 1); // out of range
    mesh->SetWeldTarget(1, -1);
    mesh->AfterRawBuild();
    EXPECT_EQ(mesh->GetVertexPolygonCount(5), 0);
    EXPECT_EQ(mesh->GetWeldTarget(1), 1);
    CompareWithRecount(*mesh);
    mesh->SetVCount(62);
    EXPECT_EQ(mesh->GetWeldTarget(61), 61);
    EXPECT_EQ(mesh->GetWeldTarget(5), 2);
}

TEST(MeshLookups, ManyPolygonsAroundOneEdgeAndOneVertex) {
    // A fan of 3000 triangles around vertex 0, then three polygons on the edge 1-2.
    std::vector<float> vertices;
    std::vector<Corners> polygons;
    for (int i = 0; i <= 3001; ++i) vertices.insert(vertices.end(), {std::cos(i * 0.002f), std::sin(i * 0.002f), 0.0f});
    for (int i = 1; i <= 3000; ++i) polygons.push_back(Plain({0, i, i + 1}));
    polygons.push_back(Plain({2, 1, 50}));
    polygons.push_back(Plain({1, 2, 60}));
    MeshOwner mesh = MakeMesh(vertices, {}, polygons);
    EXPECT_EQ(mesh->GetVertexPolygonCount(0), 3000);
    EXPECT_EQ(mesh->GetVertexNeighborCount(0), 3001);
    QLM_EdgeRecord edge;
    ASSERT_TRUE(mesh->GetEdge(1, 2, edge));
    EXPECT_EQ(edge.Polygon1, 0);
    EXPECT_EQ(edge.Polygon2, 3000); // the third one is not recorded
    EXPECT_EQ(mesh->GetEdgeCount(), 3001 + 3000 + 4);
    EXPECT_FALSE(mesh->GetEdge(1, 3, edge));
    EXPECT_FALSE(mesh->GetEdge(-1, 4000, edge));
}

TEST(MeshLookups, SeamGivesTheOtherSidesTextureVertices) {
    // Two quads side by side; texture vertex 4 repeats 1 exactly, the second quad has its own island above.
    const std::vector<float> vertices = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0, 2, 1, 0};
    const std::vector<float> uvs = {0, 0, 0.5f, 0, 0.5f, 0.5f, 0, 0.5f, 0.5f, 0, 1, 0, 1, 0.5f, 0.5f, 0.75f};
    MeshOwner seam = MakeMesh(vertices, uvs, {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {{1, 4}, {4, 5}, {5, 6}, {2, 7}}});
    QLM_EdgeRecord edge;
    ASSERT_TRUE(seam->GetEdge(1, 2, edge));
    EXPECT_EQ(Numbers(edge), (std::vector<int>{1, 2, 1, 2, 4, 7, 0, 1}));
    int a = 2, b = 1; // seen from vertex 2
    QLM_MeshLookupsContainer::GetOtherSideUVs(edge, 2, a, b);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 4);
    QLM_MeshLookupsContainer::GetOtherSideUVs(edge, 2, a, b);
    EXPECT_EQ(a, 2);
    EXPECT_EQ(b, 1);

    // Other indices, equal coordinates: no seam in the record.
    MeshOwner plain = MakeMesh(vertices, uvs, {{{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {{1, 4}, {4, 5}, {5, 6}, {2, 2}}});
    ASSERT_TRUE(plain->GetEdge(1, 2, edge));
    EXPECT_EQ(Numbers(edge), (std::vector<int>{1, 2, 1, 2, 1, 2, 0, 1}));
    EXPECT_TRUE(plain->HasVertexFlag(1, eVFlag_UVSeam));
    EXPECT_FALSE(plain->HasVertexFlag(2, eVFlag_UVSeam));
}

TEST(MeshLookups, VisibleListsFollowHiddenPolygons) {
    MeshOwner mesh = MakeCube();
    mesh->SetVCount(9); // vertex 8 stays alone
    mesh->AfterRawBuild();
    for (const int p : {0, 2, 4}) mesh->SetPolygonFlag(p, ePFlag_Hidden); // all that meet in vertex 0
    mesh->InvalidateVisibleLists();
    EXPECT_EQ(Row(mesh->GetVisiblePolygons().begin(), mesh->GetVisiblePolygons().end()), (Row{1, 3, 5}));
    EXPECT_EQ(Row(mesh->GetVisibleVertices().begin(), mesh->GetVisibleVertices().end()), (Row{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_TRUE(mesh->HasVertexFlag(0, eVFlag_Hidden));
    EXPECT_TRUE(mesh->HasVertexFlag(8, eVFlag_Hidden));
    mesh->BuildVisiblePolygons(true);
    EXPECT_EQ(mesh->GetVisiblePolygonCount(), 6);
    EXPECT_EQ(mesh->GetVisibleVertexCount(), 9);
    EXPECT_FALSE(mesh->HasVertexFlag(0, eVFlag_Hidden));
}
