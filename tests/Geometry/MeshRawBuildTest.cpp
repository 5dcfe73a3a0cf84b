// Repairs, defaults and the question about texture coordinates.

#include "MeshTestSupport.h"

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Geometry/QLM_CornerPools.h"

#include <cmath>
#include <limits>

namespace {
const std::vector<float> square = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

std::vector<float> BuildWithUVs(QLM_Object* object, const std::vector<float>& uvs) {
    MeshOwner mesh(FillMesh(object, square, uvs, {{{0, 0}, {1, 0}, {2, 0}, {3, 0}}}));
    mesh->AfterRawBuild();
    return {mesh->TextureVertices.GetData(), mesh->TextureVertices.GetData() + uvs.size()};
}

int QuestionCount() {
    int count = 0;
    for (const QLM_RecordedMessage& message : QLM_OS::Get().recorded)
        if (message.kind == QLM_RecordedMessage::Kind::Question) ++count;
    return count;
}
} // namespace

TEST(MeshRawBuild, BadCornersAndNumbersAreRepaired) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    std::vector<float> vertices = square;
    vertices[2] = nan;
    vertices[5] = -infinity;
    const int used4 = static_cast<int>(QLM_CornerPools::Get().GetPool(4).GetUsedSlots());
    MeshOwner mesh =
        MakeMesh(vertices, {0.5f, nan, 0.25f, 0.75f},
                 {{{0, 0}, {4, 1}, {1, 1}, {2, -1}}, {{-1, 0}, {1000000000, 0}, {3, 2}}, {{9, 0}, {-5, 0}}, {}});
    EXPECT_EQ(*(mesh->Vertices[0] + 2), 0.0f);
    EXPECT_EQ(*(mesh->Vertices[1] + 2), 0.0f);
    EXPECT_EQ(mesh->TextureVertices[0][1], 0.0f);

    ASSERT_EQ(mesh->GetPolygonVertexCount(0), 3);
    EXPECT_EQ(mesh->GetPolygonRawVertex(0, 1), 1);
    EXPECT_EQ(mesh->GetPolygonTextureVertex(0, 1), 1);
    EXPECT_EQ(mesh->GetPolygonTextureVertex(0, 2), 0);
    ASSERT_EQ(mesh->GetPolygonVertexCount(1), 1);
    EXPECT_EQ(mesh->GetPolygonRawVertex(1, 0), 3);
    EXPECT_EQ(mesh->GetPolygonTextureVertex(1, 0), 0);
    EXPECT_EQ(mesh->GetPolygonVertexCount(2), 0);
    EXPECT_EQ(mesh->GetVisiblePolygonCount(), 2);
    EXPECT_EQ(mesh->GetLeafOfPolygon(2), -1);
    EXPECT_GE(mesh->GetLeafOfPolygon(1), 0);
    // The block of four corners went back when one was lost.
    EXPECT_EQ(QLM_CornerPools::Get().GetPool(4).GetUsedSlots(), used4);

    MeshOwner plain = MakeMesh(square, {}, {{{0, 7}, {1, 0}, {2, -3}}});
    for (int i = 0; i < 3; ++i) EXPECT_EQ(plain->GetPolygonTextureVertex(0, i), -1);
}

TEST(MeshRawBuild, AnythingThatAnImportBringsIsMended) {
    QLM_RandomGenerator random(23);
    for (int round = 0; round < 60; ++round) {
        const int vertexCount = static_cast<int>(random.Next(round % 5 ? 40 : 3));
        const int uvCount = static_cast<int>(random.Next(9));
        std::vector<float> vertices, uvs;
        for (int i = 0; i < 3 * vertexCount; ++i)
            vertices.push_back(random.Next(9) ? static_cast<float>(random.Next(5)) : HUGE_VALF);
        for (int i = 0; i < 2 * uvCount; ++i) uvs.push_back(0.125f * static_cast<float>(random.Next(8)));
        std::vector<Corners> polygons(random.Next(round % 7 ? 60 : 1));
        for (Corners& corners : polygons) {
            for (uint32_t n = random.Next(150) ? random.Next(7) : 1000; n > 0; --n)
                corners.emplace_back(static_cast<int>(random.Next(vertexCount + 2)) - 1,
                                     static_cast<int>(random.Next(uvCount + 2)) - 1);
            if (random.Next(4) == 0) corners = polygons[0]; // doubled
        }
        MeshOwner mesh = MakeMesh(vertices, uvs, polygons);

        // Only corners of vertices that exist are left, in their order; each has a texture vertex if there is any.
        std::vector<std::vector<int>> polygonsOf(vertexCount);
        std::vector<std::set<int>> neighbors(vertexCount);
        int visible = 0;
        for (int p = 0; p < mesh->GetPCount(); ++p) {
            Corners kept;
            for (const auto& [v, t] : polygons[p])
                if (v >= 0 && v < vertexCount) kept.emplace_back(v, t >= 0 && t < uvCount ? t : uvCount ? 0 : -1);
            ASSERT_EQ(mesh->GetPolygonVertexCount(p), static_cast<int>(kept.size()));
            visible += !kept.empty();
            for (int i = 0; i < static_cast<int>(kept.size()); ++i) {
                EXPECT_EQ(mesh->GetPolygonRawVertex(p, i), kept[i].first);
                EXPECT_EQ(mesh->GetPolygonTextureVertex(p, i), kept[i].second);
                polygonsOf[kept[i].first].push_back(p);
                for (const auto& [other, t] : kept)
                    if (other != kept[i].first) neighbors[kept[i].first].insert(other);
            }
        }
        EXPECT_EQ(mesh->GetVisiblePolygonCount(), visible);
        for (int v = 0; v < vertexCount; ++v) {
            ASSERT_EQ(mesh->GetVertexPolygonCount(v), static_cast<int>(polygonsOf[v].size()));
            for (int i = 0; i < mesh->GetVertexPolygonCount(v); ++i)
                EXPECT_EQ(mesh->GetVertexPolygon(v, i), polygonsOf[v][i]);
            EXPECT_EQ(mesh->GetVertexNeighborCount(v), static_cast<int>(neighbors[v].size()));
            for (int k = 0; k < 3; ++k)
                EXPECT_TRUE(std::isfinite(mesh->VertexNormals[v][k]) && mesh->Vertices[v][k] < 5.0f);
        }
        mesh->AfterRawBuild(); // mended already
        EXPECT_EQ(mesh->GetVisiblePolygonCount(), visible);
    }
}

TEST(MeshRawBuild, EmptyMeshesAndDefaults) {
    MeshOwner empty = MakeMesh({}, {}, {});
    EXPECT_EQ(empty->BoundsDiagonal, 0.0f);
    EXPECT_EQ(empty->ResolvedBoundsMax[1], 0.0f);
    EXPECT_EQ(empty->GetEdgeCount(), 0);
    EXPECT_TRUE(empty->GetLeaves().empty());
    ASSERT_EQ(empty->GetGroupCount(), 1);
    EXPECT_STREQ(empty->GetGroup(0)->GetName(), "default");
    ASSERT_EQ(empty->GetMaterialCount(), 1);
    EXPECT_STREQ(empty->GetMaterial(0)->GetName(), "default");
    EXPECT_TRUE(empty->GetMaterial(1) == nullptr);
    EXPECT_TRUE(empty->GetMaterial(-1) == nullptr);

    MeshOwner point = MakeMesh({2, 3, 4}, {}, {});
    EXPECT_EQ(point->BoundsMin[2], 4.0f);
    EXPECT_FALSE(point->HasVertexFlag(0, eVFlag_OpenEdge));
    for (int k = 0; k < 3; ++k) EXPECT_EQ(point->VertexNormals[0][k], 0.0f);

    MeshOwner box = MakeMesh({1, 2, 3, 4, 6, 15, 2, 2, 3}, {}, {Plain({0, 1, 2})});
    EXPECT_EQ(box->BoundsDiagonal, 13.0f); // 3, 4, 12
    EXPECT_EQ(box->GetPolygonMaterial(0), 0);
    EXPECT_EQ(box->GetPolygon(0).group, 0);
    EXPECT_EQ(box->CurrentMaterialIndex, 0);
}

TEST(MeshRawBuild, TheQuestionAboutWrappingComesOnceAnObject) {
    const std::vector<float> uvs = {1.0f, 2.0f, -0.25f, 1.5f, -1.25f, 0.3f, 0.0f, -3.0f};
    QLM_OS& os = QLM_OS::Get();
    os.recorded.clear();
    QLM_Object accepting, declining, quiet;
    os.queuedAnswers = {"yes"};
    const std::vector<float> wrapped = BuildWithUVs(&accepting, uvs);
    const std::vector<float> expected = {1.0f, 1.0f, -0.25f, 0.5f, -0.25f, 0.3f, 0.0f, -1.0f};
    for (size_t i = 0; i < uvs.size(); ++i) EXPECT_FLOAT_EQ(wrapped[i], expected[i]) << i;
    ASSERT_EQ(QuestionCount(), 1);
    EXPECT_EQ(os.recorded.back().text, "The UV coordinates in this object are out of the {0..1} range.\n\n"
                                       "Would you like to have the values wrapped back into range?\n\n");
    EXPECT_EQ(BuildWithUVs(&accepting, uvs), wrapped); // the answer stands
    EXPECT_EQ(QuestionCount(), 1);

    os.queuedAnswers = {"no"};
    EXPECT_EQ(BuildWithUVs(&declining, uvs), uvs);
    EXPECT_EQ(BuildWithUVs(&declining, uvs), uvs);
    EXPECT_EQ(QuestionCount(), 2);
    EXPECT_TRUE(declining.GetBool("import/wasPromptedForWrappingUVs"));
    EXPECT_FALSE(declining.GetBool("import/doWrapUVs"));

    EXPECT_EQ(BuildWithUVs(nullptr, uvs), uvs); // nobody to ask for
    EXPECT_EQ(BuildWithUVs(&quiet, {0.0f, 1.0000001f, -1e-7f, 1.0f}).size(), 4u);
    EXPECT_EQ(QuestionCount(), 2);

    MeshOwner mesh(FillMesh(nullptr, square, {1.5f, 0.0f}, {{{0, 0}, {1, 0}, {2, 0}}}));
    mesh->SetBool("autoWrapUVs", true);
    mesh->AfterRawBuild();
    EXPECT_EQ(mesh->TextureVertices[0][0], 0.5f);
    EXPECT_EQ(QuestionCount(), 2);
}

TEST(MeshRawBuild, PoolsShareChunksAndReturnThem) {
    QLM_CornerPools& pools = QLM_CornerPools::Get();
    EXPECT_EQ(pools.Allocate(0), nullptr);
    pools.ReleaseEmptyChunks();
    const int before = pools.GetPool(9).GetChunkCount();
    std::vector<QLM_PolygonCorner*> blocks;
    std::set<QLM_PolygonCorner*> distinct;
    for (int i = 0; i < 25; ++i) {
        blocks.push_back(pools.Allocate(9));
        distinct.insert(blocks.back());
        for (int c = 0; c < 9; ++c) {
            EXPECT_EQ(blocks.back()[c].normal, -1);
            blocks.back()[c] = {i, i, i};
        }
    }
    EXPECT_EQ(distinct.size(), 25u);
    EXPECT_EQ(pools.GetPool(9).GetChunkCount(), before + 3); // ten slots each
    for (int i = 0; i < 25; ++i) EXPECT_EQ(blocks[i][8].vertex, i);

    // What comes back is handed out again, clean, before a new chunk is made.
    for (int i = 0; i < 12; ++i) pools.Free(blocks[i], 9);
    for (int i = 0; i < 17; ++i) {
        blocks[i % 12] = pools.Allocate(9);
        EXPECT_EQ(blocks[i % 12][0].vertex, -1);
        if (i >= 12) distinct.insert(blocks[i % 12]);
        if (i < 5) pools.Free(blocks[i], 9);
        if (i < 5) blocks[i] = pools.Allocate(9);
    }
    EXPECT_EQ(pools.GetPool(9).GetChunkCount(), before + 3);
    EXPECT_THROW(pools.Free(blocks[0], 10), QLM_Exception);

    EXPECT_EQ(pools.GetPool(777).GetChunkCount(), 0);
    QLM_Mesh* mesh = FillMesh(nullptr, square, {}, {Plain(std::vector<int>(777, 1)), Plain(std::vector<int>(1200, 1))});
    EXPECT_EQ(mesh->GetPolygonVertexCount(1), 1000);
    EXPECT_EQ(pools.GetPool(777).GetChunkCount(), 1);
    mesh->SetPCount(0);
    EXPECT_EQ(pools.GetPool(777).GetUsedSlots(), 0);
    delete mesh;
    EXPECT_EQ(pools.GetPool(777).GetChunkCount(), 0);
}

TEST(MeshRawBuild, AnyNumberOfThreadsGivesTheSameBytes) {
    const auto hashOf = [](int threads) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(threads);
        MeshOwner mesh = MakeRandomMesh(3, true, 4000, 6000);
        mesh->SetMaxSmoothingAngle(40.0f);
        for (int p = 0; p < 500; ++p) mesh->SetPolygonFlag(p, ePFlag_Hidden);
        mesh->AfterRawBuild();
        uint64_t hash = QLM_HashStart;
        const auto add = [&](const void* data, size_t size) { hash = QLM_Hash(data, size, hash); };
        add(mesh->VertexNormals.GetData(), mesh->VertexNormals.GetCount() * 12);
        add(mesh->Normals.GetData(), mesh->Normals.GetCount() * 12);
        add(mesh->GetVisiblePolygons().GetData(), mesh->GetVisiblePolygonCount() * 4);
        add(mesh->GetVisibleVertices().GetData(), mesh->GetVisibleVertexCount() * 4);
        for (const auto* leaf : mesh->GetLeaves()) add(leaf->BoundsMin, 12);
        mesh->ForEachEdge([&](const QLM_EdgeRecord& edge) { add(&edge, sizeof edge); });
        add(mesh->GetGroup(0)->Vertices.data(), mesh->GetGroup(0)->Vertices.size() * 4);
        return hash;
    };
    const int threads = QLM_OS::GetNumberOfThreads();
    const uint64_t one = hashOf(1);
    EXPECT_EQ(hashOf(2), one);
    EXPECT_EQ(hashOf(7), one);
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threads);
}
