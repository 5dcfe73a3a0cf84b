// Welding against the rules told step by step, and what hangs on a weld.

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "MeshTestSupport.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

namespace {
struct Rules {
    float threshold;
    bool open = false, selected = false, groups = false;
};

float Length(const float* a, const float* b) {
    const float x = a[0] - b[0], y = a[1] - b[1], z = a[2] - b[2];
    return std::sqrt(x * x + y * y + z * z);
}

/// The targets of a weld of an unwelded mesh by the plain loops.
std::vector<int> PlainWeld(const QLM_Mesh& mesh, const Rules& rules) {
    const int count = mesh.GetVCount();
    std::vector<int> map(count), order, joined(count);
    float side = 0;
    for (int k = 0; k < 3; ++k) side = std::max(side, mesh.BoundsMax[k] - mesh.BoundsMin[k]);
    const float tolerance = rules.threshold * side;
    std::vector<float> key(count);
    for (int v = 0; v < count; ++v) {
        map[v] = v;
        key[v] = Length(mesh.Vertices[v], mesh.BoundsMin);
        if (rules.open && !mesh.HasVertexFlag(v, eVFlag_OpenEdge)) continue;
        if (rules.selected && mesh.GetVertexWeight(v) < 1.1920929e-7f) continue;
        order.push_back(v);
    }
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return key[a] < key[b]; });
    const auto polygonsOf = [&](int v) {
        std::vector<int> polygons;
        for (int p = 0; p < mesh.GetPCount(); ++p)
            for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i)
                if (mesh.GetPolygonRawVertex(p, i) == v) polygons.push_back(p);
        return polygons;
    };
    const auto groupOf = [&](int v) {
        const auto polygons = polygonsOf(v);
        return polygons.empty() ? -1 : static_cast<int>(mesh.GetPolygon(polygons.back()).group);
    };
    for (size_t i = 0; i < order.size(); ++i) {
        const int a = order[i];
        if (joined[a]) continue;
        for (size_t j = i + 1; j < order.size() && key[order[j]] - key[a] <= tolerance; ++j) {
            const int b = order[j];
            const auto polygons = polygonsOf(b);
            if (joined[b] || polygons.empty() || Length(mesh.Vertices[a], mesh.Vertices[b]) >= tolerance) continue;
            if (rules.groups && groupOf(a) == groupOf(b)) continue;
            bool refused = false;
            for (const int p : polygons)
                for (int c = 0; c < mesh.GetPolygonVertexCount(p); ++c)
                    refused = refused || map[mesh.GetPolygonRawVertex(p, c)] == a;
            if (refused) continue;
            map[b] = a;
            joined[b] = 1;
        }
    }
    return map;
}

std::vector<int> MapOf(const QLM_Mesh& mesh) {
    std::vector<int> map;
    for (int v = 0; v < mesh.GetVCount(); ++v) map.push_back(mesh.GetWeldTarget(v));
    return map;
}

/// Two triangles over the same edge, each with its own vertices: 3 doubles 1, 5 doubles 2.
MeshOwner MakeTornQuad() {
    return MakeMesh({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {}, {Plain({0, 1, 2}), Plain({3, 4, 5})});
}
} // namespace

TEST(Weld, AgreesWithThePlainLoops) {
    for (uint32_t seed = 1; seed <= 6; ++seed)
        for (const Rules& rules : {Rules{0.01f}, Rules{0.13f}, Rules{0.4f}, Rules{2.0f}, Rules{0.3f, true},
                                   Rules{0.5f, false, true}, Rules{0.3f, false, false, true}, Rules{0.0f}}) {
            SCOPED_TRACE(seed);
            SCOPED_TRACE(rules.threshold);
            MeshOwner mesh = MakeRandomMesh(seed, true, 150, 60);
            QLM_RandomGenerator random(seed);
            for (int g = 0; g < 4; ++g) mesh->AddGroup(new QLM_Group2);
            for (int p = 0; p < mesh->GetPCount(); ++p) mesh->SetPolygonGroup(p, random.Next(4));
            if (rules.selected) {
                mesh->AllocateWeights();
                for (int v = 0; v < 150; ++v) *mesh->VertexWeights[v] = v % 3 ? 1.0f : 0.0f;
            }
            const std::vector<int> expected = PlainWeld(*mesh, rules);
            int joined = 0;
            for (int v = 0; v < 150; ++v) joined += expected[v] != v;
            EXPECT_EQ(mesh->Weld(rules.threshold, rules.open, rules.selected, rules.groups), joined);
            EXPECT_TRUE(mesh->IsWelded());
            EXPECT_EQ(MapOf(*mesh), expected);
            EXPECT_GE(joined, rules.threshold == 0.4f ? 20 : 0);

            // A second weld goes on from the first and keeps targets their own.
            mesh->Weld(rules.threshold * 2, false, false, false);
            const std::vector<int> map = MapOf(*mesh);
            for (int v = 0; v < 150; ++v) EXPECT_EQ(map[map[v]], map[v]);
        }
}

TEST(Weld, OpensAndClosesEdges) {
    MeshOwner mesh = MakeTornQuad();
    EXPECT_FALSE(mesh->Unweld());
    EXPECT_FALSE(mesh->Reweld());
    QLM_EdgeRecord edge;
    EXPECT_FALSE(mesh->GetEdge(1, 5, edge));
    EXPECT_EQ(mesh->Weld(1e-4f, true, false, false), 2);
    EXPECT_EQ(MapOf(*mesh), (std::vector<int>{0, 1, 2, 1, 4, 2}));
    ASSERT_TRUE(mesh->GetEdge(2, 1, edge));
    EXPECT_EQ(edge.Polygon2, 1);
    EXPECT_EQ(mesh->GetVertexPolygonCount(3), 0);
    EXPECT_EQ(mesh->GetPolygonRawVertex(1, 0), 3);

    ASSERT_TRUE(mesh->Unweld());
    EXPECT_FALSE(mesh->IsWelded());
    EXPECT_EQ(mesh->GetVertexPolygonCount(3), 1);
    ASSERT_TRUE(mesh->CanReweld());
    ASSERT_TRUE(mesh->Reweld());
    EXPECT_EQ(MapOf(*mesh), (std::vector<int>{0, 1, 2, 1, 4, 2}));
    EXPECT_FALSE(mesh->CanReweld());

    // A map of another length can't come back.
    mesh->Unweld();
    mesh->SetVCount(7);
    EXPECT_FALSE(mesh->Reweld());

    MeshOwner nothing = MakeMesh({}, {}, {});
    EXPECT_EQ(nothing->Weld(0.1f, false, false, false), 0);
    EXPECT_FALSE(nothing->IsWelded());
}

TEST(Weld, NeverCollapsesAPolygon) {
    // A triangle whose corners 0 and 1 nearly meet, and a second one on the other copy of that place.
    MeshOwner mesh = MakeMesh({0, 0, 0, 0.01f, 0, 0, 1, 1, 0, 0.005f, 0, 0, 2, 0, 0, 2, 1, 0}, {},
                              {Plain({0, 1, 2}), Plain({3, 4, 5})});
    EXPECT_EQ(mesh->Weld(0.1f, false, false, false), 1);
    EXPECT_EQ(MapOf(*mesh), (std::vector<int>{0, 1, 2, 0, 4, 5}));
}

// Welds that no search may drown in: very many points that can't be joined, and tolerances beyond every number.
TEST(Weld, TakesCloudsOfPointsAndHugeTolerances) {
    QLM_Mesh mesh(nullptr);
    mesh.SetSizes(400000, 0, 1);
    for (int v = 0; v < mesh.GetVCount(); ++v)
        for (int k = 0; k < 3; ++k) mesh.Vertices[v][k] = static_cast<float>((v * (17 + 12 * k)) % 1009);
    mesh.SetPolygonCornerCount(0, 3);
    for (int i = 0; i < 3; ++i) mesh.SetPolygonVertex(0, i, 100 * i);
    mesh.AfterRawBuild();
    EXPECT_EQ(mesh.Weld(0.5f, false, false, false), 2); // the corner at 0 comes first and stays
    mesh.Unweld();
    EXPECT_EQ(mesh.Weld(std::numeric_limits<float>::infinity(), false, false, false), 2);
}

TEST(Weld, PermanentlyRewritesTheCorners) {
    MeshOwner mesh = MakeTornQuad();
    mesh->SetBool("isFixedAsset", true);
    mesh->SetWeldTarget(4, 4);
    EXPECT_EQ(mesh->WeldPermanently(1e-4f, false), 2);
    EXPECT_FALSE(mesh->IsWelded());
    EXPECT_FALSE(mesh->GetBool("isFixedAsset"));
    EXPECT_EQ(mesh->GetVCount(), 6);
    EXPECT_EQ(mesh->GetPolygonRawVertex(1, 0), 1);
    EXPECT_EQ(mesh->GetPolygonRawVertex(1, 2), 2);
    EXPECT_EQ(mesh->GetVertexPolygonCount(5), 0);
    EXPECT_EQ(mesh->Vertices[5][1], 1.0f);
    EXPECT_FALSE(mesh->Unweld());
}

TEST(Weld, StoredMapsAreRepaired) {
    MeshOwner mesh = MakeTornQuad();
    const int32_t stored[5] = {0, 0, -4, 6, 1}; // one too short, two out of range, a chain 4 - 1 - 0
    mesh->RestoreWeldMap(stored, 5);
    EXPECT_EQ(MapOf(*mesh), (std::vector<int>{0, 0, 2, 3, 1, 5}));
    mesh->AfterRawBuild();
    mesh->BakeMapIntoPolygons();
    EXPECT_FALSE(mesh->IsWelded());
    EXPECT_EQ(mesh->GetPolygonRawVertex(0, 1), 0);

    // A loop of targets ends somewhere, and a weld gives every vertex a target that stands for itself.
    const int32_t loop[6] = {1, 2, 0, 4, 3, 3};
    mesh->RestoreWeldMap(loop, 6);
    mesh->AfterRawBuild();
    mesh->Weld(1e-4f, false, false, false);
    for (int v = 0; v < 6; ++v) EXPECT_EQ(mesh->GetWeldTarget(mesh->GetWeldTarget(v)), mesh->GetWeldTarget(v));
}

TEST(Weld, DiscardedVerticesFollowTheirTargets) {
    MeshOwner mesh = MakeTornQuad();
    mesh->Weld(1e-4f, false, false, false);
    mesh->SetVertexFlags(1, eVFlag_Locked | eVFlag_OpenEdge);
    mesh->SetVertexFlags(3, eVFlag_Hidden);
    mesh->CopyFlagsToWelded();
    EXPECT_EQ(mesh->GetVertexFlags(3), uint32_t{eVFlag_Locked | eVFlag_OpenEdge});

    QLM_VertexMap3D values;
    values.Resize(6, false, true);
    for (int v = 0; v < 6; ++v) values[v][0] = static_cast<float>(v);
    mesh->CopyValuesToWelded(values);
    EXPECT_EQ(values[3][0], 1.0f);
    EXPECT_EQ(values[5][0], 2.0f);
    EXPECT_EQ(values[4][0], 4.0f);

    // Both the current morph and a parked one come into step, once.
    QLM_VirtualMemory_Initialize();
    QLM_Morph* other = mesh->CreateMorph();
    mesh->BeginUsingMorph(other);
    other->GetVertex(1)[2] = 5.0f;
    other->MarkChanged();
    mesh->EndUsingMorph(other);
    ASSERT_NE(mesh->GetCurrentDeltas(), nullptr);
    mesh->GetCurrentDeltas()[3 * 2 + 1] = 7.0f;
    mesh->GetCurrentMorph()->MarkChanged();
    mesh->AllocateWeights();
    *mesh->VertexWeights[2] = 0.5f;
    mesh->SyncMorphs();
    EXPECT_TRUE(other->Synced && mesh->GetCurrentMorph()->Synced);
    EXPECT_EQ(mesh->GetCurrentDeltas()[3 * 5 + 1], 7.0f);
    EXPECT_EQ(*mesh->VertexWeights[5], 0.5f);
    mesh->ResolveMorphs(false);
    EXPECT_EQ(mesh->ResolvedVertices[3][2], 5.0f);
    EXPECT_EQ(mesh->ResolvedVertices[5][1], 8.0f);
    mesh->GetCurrentDeltas()[3 * 2 + 1] = 9.0f; // not marked: nothing to do
    mesh->SyncMorphs();
    EXPECT_EQ(mesh->GetCurrentDeltas()[3 * 5 + 1], 7.0f);
}

TEST(Weld, AnyNumberOfThreadsGivesTheSameShape) {
    const auto hashOf = [](int threads) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(threads);
        MeshOwner mesh = MakeRandomMesh(8, true, 3000, 4000);
        mesh->SetMaxSmoothingAngle(50.0f);
        EXPECT_GT(mesh->Weld(0.01f, false, false, false), 1000);
        for (int p = 0; p < 300; ++p) mesh->SetPolygonFlag(p, ePFlag_Hidden);
        mesh->InvalidateVisibleLists();
        for (int v = 0; v < 3000; ++v) mesh->ResolvedVertices[v][v % 3] += 0.1f * static_cast<float>(v % 4);
        mesh->CalculateNormals(true); // with markers, as something is hidden
        mesh->OctreeBoundsChanged();
        uint64_t hash = QLM_Hash(mesh->PolygonNormals.GetData(), 12ull * mesh->GetPCount());
        for (int p = 0; p < mesh->GetPCount(); ++p)
            for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i)
                hash = QLM_Hash(mesh->GetCornerNormal(p, i), 12, hash);
        hash = QLM_Hash(mesh->GetRoot()->BoundsMin, 12, hash);
        return QLM_Hash(mesh->GetRoot()->BoundsMax, 12, hash);
    };
    const int threads = QLM_OS::GetNumberOfThreads();
    EXPECT_EQ(hashOf(7), hashOf(1));
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threads);
}
