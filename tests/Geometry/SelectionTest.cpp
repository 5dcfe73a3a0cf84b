// The soft selection: against a slow telling of it on random meshes, and the user's operations.

#include "MeshTestSupport.h"

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Support/TestScene.h"

#include <limits>

namespace {
using Weights = std::vector<float>;
using Soft = QLM_MeshHotSelectionContainer::SoftenMode;
constexpr float smallest = 1.1920929e-7f;

/// Everything asked anew from polygons and corners, one element at a time.
struct PlainSelection {
    QLM_Mesh& mesh;
    Weights vertices, polygons;
    std::vector<std::vector<int>> corners, polygonsAt; ///< a polygon that holds a vertex twice stands there twice

    explicit PlainSelection(QLM_Mesh& meshIn)
        : mesh(meshIn), vertices(Copy(mesh.VertexWeights)), polygons(Copy(mesh.PolygonWeights)),
          corners(polygons.size()), polygonsAt(vertices.size()) {
        for (int p = 0; p < mesh.GetPCount(); ++p)
            for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i) {
                corners[p].push_back(mesh.GetPolygonVertex(p, i));
                polygonsAt[corners[p].back()].push_back(p);
            }
    }
    static Weights Copy(const QLM_VertexMap1D& map) { return {map.GetData(), map.GetData() + map.GetCount()}; }
    const std::vector<int>& CornersOf(int p) const { return corners[p]; }
    const std::vector<int>& PolygonsOf(int v) const { return polygonsAt[v]; }
    bool IsVertexVisible(int v) const {
        for (const int p : PolygonsOf(v))
            if (!mesh.IsPolygonHidden(p)) return true;
        return false;
    }
    bool IsUsable(int v) const { return IsVertexVisible(v) && !mesh.HasVertexFlag(v, eVFlag_Locked); }
    bool IsPolygonUsable(int p) const { return !mesh.IsPolygonHidden(p) && !mesh.IsPolygonLocked(p); }

    Weights SpreadVertices(bool grow) const {
        Weights fresh = vertices;
        for (int v = 0; v < mesh.GetVCount(); ++v)
            if (IsUsable(v))
                for (const int p : PolygonsOf(v))
                    for (const int u : CornersOf(p))
                        if (IsUsable(u))
                            fresh[v] = grow ? std::max(fresh[v], vertices[u]) : std::min(fresh[v], vertices[u]);
        return fresh;
    }
    Weights SpreadPolygons(bool grow) const {
        Weights fresh = polygons;
        for (int p = 0; p < mesh.GetPCount(); ++p)
            for (const int v : CornersOf(p))
                for (const int q : PolygonsOf(v))
                    fresh[p] = grow ? std::max(fresh[p], polygons[q]) : std::min(fresh[p], polygons[q]);
        return fresh;
    }
    /// The mean of the neighbours' weights, each list without the first occurrence of `self`; -1 without any.
    template <class Usable>
    static float MeanOf(const std::vector<std::vector<int>>& lists, int self, const Weights& weights, Usable usable) {
        double sum = 0;
        int count = 0;
        for (std::vector<int> list : lists) {
            list.erase(std::find(list.begin(), list.end(), self));
            for (const int i : list)
                if (usable(i)) sum += weights[i], ++count;
        }
        return count ? static_cast<float>(sum / count) : -1.0f;
    }
    template <class Usable, class Lists>
    static Weights Soften(const Weights& old, bool preserve, Soft mode, float strength, Usable usable, Lists lists) {
        Weights fresh = old;
        float oldMax = 0, newMax = 0;
        for (int i = 0; i < static_cast<int>(old.size()); ++i) {
            if (!usable(i)) continue;
            const float mean = MeanOf(lists(i), i, old, usable);
            const float moved = old[i] + strength * (mean - old[i]);
            if (mean >= 0) fresh[i] = mode == Soft::RaiseOnly ? std::max(old[i], moved)
                                    : mode == Soft::LowerOnly ? std::min(old[i], moved) : moved;
            oldMax = std::max(oldMax, old[i]);
            newMax = std::max(newMax, fresh[i]);
        }
        for (int i = 0; i < static_cast<int>(old.size()) && preserve && newMax > smallest; ++i)
            if (usable(i)) fresh[i] *= oldMax / newMax;
        return fresh;
    }
    Weights SoftenVertices(bool preserve, Soft mode) const {
        return Soften(vertices, preserve, mode, 1.0f, [&](int v) { return IsUsable(v); }, [&](int v) {
            std::vector<std::vector<int>> lists;
            for (const int p : PolygonsOf(v)) lists.push_back(CornersOf(p));
            return lists;
        });
    }
    Weights SoftenPolygons(bool preserve, Soft mode, float strength) const {
        return Soften(polygons, preserve, mode, strength, [&](int p) { return IsPolygonUsable(p); }, [&](int p) {
            std::vector<std::vector<int>> lists;
            for (const int v : CornersOf(p)) lists.push_back(PolygonsOf(v));
            return lists;
        });
    }

    void Rebuild(bool polygonMode) {
        if (polygonMode) {
            for (int v = 0; v < mesh.GetVCount(); ++v) {
                vertices[v] = 0;
                for (const int p : PolygonsOf(v))
                    if (!mesh.IsPolygonHidden(p)) vertices[v] = std::max(vertices[v], polygons[p]);
            }
        } else {
            for (int p = 0; p < mesh.GetPCount(); ++p) {
                float least = 2;
                for (const int v : CornersOf(p))
                    if (IsUsable(v)) least = std::min(least, vertices[v]);
                polygons[p] = least > 1 ? 0 : least;
            }
        }
        for (int v = 0; v < mesh.GetVCount(); ++v)
            if (!IsUsable(v)) vertices[v] = 0;
        for (int v = 0; v < mesh.GetVCount(); ++v) vertices[v] = vertices[mesh.GetWeldTarget(v)];
        for (int p = 0; p < mesh.GetPCount(); ++p)
            if (!IsPolygonUsable(p)) polygons[p] = 0;
    }
    uint32_t VertexFlags(int v) const {
        if (!IsUsable(v)) return 0;
        return (vertices[v] > 0.0001f ? 2 | 32 : 0) | (vertices[v] > 0.0499f ? 128 : 0);
    }
    uint32_t PolygonFlags(int p, bool polygonMode) const {
        if (mesh.IsPolygonHidden(p)) return 0;
        if (polygonMode) return (polygons[p] > 0.0499f ? 16 | 32 | 64 : 0) | (polygons[p] > smallest ? 2 : 0);
        uint32_t flags = 0;
        for (const int v : CornersOf(p))
            flags |= (vertices[v] >= smallest ? 2 | 16 | 32 : 0) | (vertices[v] > 0.0499f ? 64 : 0);
        return flags;
    }
};

void CheckRebuild(QLM_Mesh& mesh, PlainSelection& plain, bool polygonMode) {
    plain.Rebuild(polygonMode);
    EXPECT_EQ(PlainSelection::Copy(mesh.VertexWeights), plain.vertices);
    EXPECT_EQ(PlainSelection::Copy(mesh.PolygonWeights), plain.polygons);
    std::vector<int> vertices, polygons, listed;
    float greatest = 0;
    for (int v = 0; v < mesh.GetVCount(); ++v) {
        EXPECT_EQ(mesh.GetVertexFlags(v) & (2u | 32 | 128), plain.VertexFlags(v)) << v;
        if (plain.VertexFlags(v) & 2) vertices.push_back(v);
        if (plain.IsUsable(v)) greatest = std::max(greatest, plain.vertices[v]);
    }
    for (int p = 0; p < mesh.GetPCount(); ++p) {
        EXPECT_EQ(mesh.GetPolygonFlags(p) & (2u | 16 | 32 | 64), plain.PolygonFlags(p, polygonMode)) << p;
        if (plain.PolygonFlags(p, polygonMode) & 2) polygons.push_back(p);
    }
    EXPECT_EQ(mesh.MaxWeight, greatest);
    for (int i = 0; i < mesh.GetSelectedVertexCount(); ++i) listed.push_back(mesh.GetSelectedVertex(i));
    EXPECT_EQ(listed, vertices);
    listed.clear();
    for (int i = 0; i < mesh.GetSelectedPolygonCount(); ++i) listed.push_back(mesh.GetSelectedPolygon(i));
    EXPECT_EQ(listed, polygons);
    for (const auto* leaf : mesh.GetLeaves()) {
        bool any = false;
        for (int i = leaf->FirstVertex; i < leaf->EndVertex; ++i)
            any = any || plain.VertexFlags(mesh.GetVisibleVertices()[i]) & 2;
        for (int i = leaf->FirstPolygon; i < leaf->EndPolygon; ++i)
            any = any || plain.PolygonFlags(mesh.GetVisiblePolygons()[i], polygonMode) & 16;
        EXPECT_EQ((leaf->Flags & eNode_Selected) != 0, any);
    }
}

void ExpectNear(const QLM_VertexMap1D& got, const Weights& expected) {
    ASSERT_EQ(got.GetCount(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(*got[static_cast<int64_t>(i)], expected[i], 1e-6f) << i;
}

/// Random weights, many of them 0 or about a threshold, over a mesh with hidden, locked and welded parts.
void Scatter(QLM_Mesh& mesh, QLM_RandomGenerator& random) {
    const float levels[] = {0, 0, 0, 5e-8f, 0.00009f, 0.0002f, 0.04f, 0.06f, 0.3f, 0.7f, 1};
    for (int v = 0; v < mesh.GetVCount(); ++v) mesh.SetVertexWeight(v, levels[random.Next(11)]);
    for (int p = 0; p < mesh.GetPCount(); ++p) mesh.SetPolygonWeight(p, levels[random.Next(11)]);
}

MeshOwner MakePartlyUsableMesh(uint32_t seed, QLM_RandomGenerator& random) {
    MeshOwner mesh = MakeRandomMesh(seed, false);
    for (int v = 30; v < 36; ++v) mesh->SetWeldTarget(v, v - 20);
    mesh->AfterRawBuild();
    for (int p = 0; p < mesh->GetPCount(); ++p) {
        if (random.Next(4) == 0) mesh->SetPolygonFlag(p, ePFlag_Hidden);
        if (random.Next(6) == 0) mesh->SetPolygonFlag(p, ePFlag_Locked);
    }
    for (int v = 0; v < mesh->GetVCount(); ++v)
        if (random.Next(6) == 0) mesh->SetVertexFlag(v, eVFlag_Locked);
    mesh->InvalidateVisibleLists();
    return mesh;
}
/// A row of five unit squares, ten vertices.
QLM_Object* AddStrip(TestScene& scene, const std::string& name) {
    std::vector<float> vertices;
    for (int i = 0; i < 10; ++i)
        for (const int x : {i / 2, i % 2, 0}) vertices.push_back(static_cast<float>(x));
    std::vector<TestPolygon> squares;
    for (int i = 0; i < 10; i += 2) squares.push_back({{i, -1}, {i + 2, -1}, {i + 3, -1}, {i + 1, -1}});
    return scene.AddObject(name, vertices, {}, squares);
}
} // namespace

TEST(Selection, AgreesWithASlowTelling) {
    TestScene scene;
    const int threads = QLM_OS::GetNumberOfThreads();
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        QLM_ShutdownCrunchers();
        QLM_OS::SetNumberOfThreads(seed % 2 ? 7 : threads);
        for (const bool polygonMode : {false, true}) {
            SCOPED_TRACE(testing::Message() << seed << (polygonMode ? " polygons" : " vertices"));
            QLM_GetEngine()->selectionMode = polygonMode;
            QLM_RandomGenerator random(seed);
            MeshOwner mesh = MakePartlyUsableMesh(seed, random);
            Scatter(*mesh, random);
            PlainSelection plain(*mesh);
            mesh->RebuildSelectionArrays(true);
            CheckRebuild(*mesh, plain, polygonMode);
            const QLM_VertexMap1D& weights = polygonMode ? mesh->PolygonWeights : mesh->VertexWeights;

            for (const bool grow : {true, false}) {
                Scatter(*mesh, random); // without a rebuild, so hidden and locked elements still have weights
                const PlainSelection before(*mesh);
                grow ? mesh->Grow() : mesh->Shrink();
                EXPECT_EQ(PlainSelection::Copy(weights),
                          polygonMode ? before.SpreadPolygons(grow) : before.SpreadVertices(grow));
            }
            for (const Soft mode : {Soft::Both, Soft::RaiseOnly, Soft::LowerOnly})
                for (const bool preserve : {false, true}) {
                    Scatter(*mesh, random);
                    const PlainSelection before(*mesh);
                    mesh->Soften(preserve, mode, polygonMode ? 0.75f : 1.0f);
                    ExpectNear(weights, polygonMode ? before.SoftenPolygons(preserve, mode, 0.75f)
                                                    : before.SoftenVertices(preserve, mode));
                }
            // The leaves of a new tree know what is selected.
            PlainSelection last(*mesh);
            mesh->RebuildSelectionArrays(true);
            mesh->SetDepth(3);
            CheckRebuild(*mesh, last, polygonMode);
        }
    }
    QLM_ShutdownCrunchers();
    QLM_OS::SetNumberOfThreads(threads);
}

TEST(Selection, ArraysStandOnlyWhileSomethingHasAWeight) {
    MeshOwner mesh = MakeCube();
    EXPECT_EQ(mesh->GetSelectedVertexCount(), 0);
    mesh->SetVertexWeight(3, 0.0f);
    mesh->SetVertexWeight(3, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(mesh->HasSelection());
    mesh->SetVertexWeight(3, 7.0f);
    mesh->SetVertexWeight(0, 0.04f);
    EXPECT_EQ(mesh->GetSelectedVertexCount(), 2);
    EXPECT_EQ(mesh->GetVertexWeight(3), 1.0f);
    EXPECT_EQ(mesh->GetVertexFlags(0) & (2u | 128), 2u); // selected, but too weak for the stronger flag
    EXPECT_EQ(mesh->PolygonWeights.GetCount(), 6u);

    // A locked vertex keeps its weight when the others grow, and loses it in the rebuild; unlocking doesn't bring it back.
    mesh->SetVertexFlag(0, eVFlag_Locked);
    mesh->Grow();
    EXPECT_EQ(mesh->GetVertexWeight(0), 0.04f);
    EXPECT_EQ(mesh->GetVertexWeight(1), 1.0f);
    mesh->RebuildSelectionArrays(true);
    mesh->ClearVertexFlag(0, eVFlag_Locked);
    mesh->RebuildSelectionArrays(true);
    EXPECT_EQ(mesh->GetVertexWeight(0), 0.0f);

    // New vertices and polygons have no weight.
    mesh->SetVCount(9);
    mesh->SetPCount(7);
    mesh->AfterRawBuild();
    EXPECT_EQ(mesh->GetVertexWeight(8), 0.0f);
    EXPECT_EQ(mesh->GetSelectedVertexCount(), 6); // three faces around vertex 3, without vertex 0
    for (int v = 0; v < 9; ++v) mesh->SetVertexWeight(v, 0.0f);
    EXPECT_EQ(mesh->GetSelectedVertexCount(), 0);
    EXPECT_FALSE(mesh->HasSelection());
    EXPECT_EQ(mesh->PolygonWeights.GetCount(), 0u);
    for (int v = 0; v < 9; ++v) EXPECT_EQ(mesh->GetVertexFlags(v) & (2u | 32 | 128), 0u);
    for (const auto* leaf : mesh->GetLeaves()) EXPECT_FALSE(leaf->Flags & eNode_Selected);

    // The greatest weight survives softening; where weights are only raised so does the vertex that has it.
    for (const Soft mode : {Soft::Both, Soft::RaiseOnly}) {
        mesh->ClearSelection();
        mesh->SetVertexWeight(5, 0.8f);
        mesh->Soften(true, mode);
        mesh->RebuildSelectionArrays(true);
        EXPECT_FLOAT_EQ(mesh->MaxWeight, 0.8f);
    }
    EXPECT_FLOAT_EQ(mesh->GetVertexWeight(5), 0.8f);
}

TEST(Selection, OperationsOfTheUser) {
    TestScene scene;
    QLM_OS& os = QLM_OS::Get();
    QLM_SelectionManager& selection = *QLM_GetManagers().GetSelectionManager();
    QLM_Mesh& a = *AddStrip(scene, "a")->GetMesh();
    QLM_Object* other = AddStrip(scene, "b");
    QLM_Mesh& b = *other->GetMesh();

    QLM_SendEvent(nullptr, 0, QLM_Event_SelectAll);
    EXPECT_EQ(a.GetSelectedVertexCount() + b.GetSelectedPolygonCount(), 15);
    selection.InvertSelection();
    EXPECT_FALSE(a.HasSelection() || b.HasSelection());

    // Vertices: hard from 0.299 on; Alt goes a tenth of the way.
    selection.SelectElements(&a, {0, 1}, 0.298f);
    selection.SelectElements(&a, {2, 3}, 0.299f);
    os.altDown = true;
    selection.HardenSelection();
    os.altDown = false;
    EXPECT_FLOAT_EQ(a.GetVertexWeight(0), 0.2682f);
    EXPECT_FLOAT_EQ(a.GetVertexWeight(2), 0.3691f);
    selection.HardenSelection();
    EXPECT_EQ(a.GetVertexWeight(0), 0.0f);
    EXPECT_EQ(a.GetVertexWeight(3), 1.0f);
    EXPECT_EQ(os.recorded.back().text, "Hardening the current selection. Hold ALT for partial hardening.");
    EXPECT_EQ(a.GetSelectedPolygonCount(), 2);

    // The greatest weight counts over all objects that are shown.
    selection.SelectNone();
    selection.SelectElements(&a, {4}, 0.25f);
    selection.SelectElements(&b, {4}, 0.5f);
    selection.NormalizeSelection();
    EXPECT_EQ(a.GetVertexWeight(4), 0.5f);
    EXPECT_EQ(b.GetVertexWeight(4), 1.0f);
    other->SetHidden(true);
    selection.NormalizeSelection();
    EXPECT_EQ(a.GetVertexWeight(4), 1.0f);
    QLM_SendEvent(nullptr, 0, QLM_Event_SelectNone);
    EXPECT_FALSE(a.HasSelection() || b.HasSelection());

    // Control only lowers, Shift only raises.
    selection.SelectElements(&a, {4}, 1.0f);
    os.controlDown = true;
    selection.SoftenSelection();
    EXPECT_FALSE(a.HasSelection()); // all around it is 0
    os.controlDown = false;
    selection.SelectElements(&a, {4}, 1.0f);
    os.shiftDown = true;
    selection.SoftenSelection();
    os.shiftDown = false;
    EXPECT_EQ(a.GetVertexWeight(4), 1.0f);
    EXPECT_FLOAT_EQ(a.GetVertexWeight(2), 1.0f / 6); // two squares with three others each, one holds it
    EXPECT_FLOAT_EQ(a.GetVertexWeight(5), 1.0f / 3);

    // The mode takes the selection along; polygons are hard from 0.0499 on.
    selection.SelectNone();
    selection.SelectElements(&a, {0, 1, 2, 3}, 0.6f);
    selection.SetSelectionMode(1);
    EXPECT_EQ(a.GetSelectedPolygonCount(), 1);
    EXPECT_EQ(a.GetPolygonWeight(0), 0.6f);
    EXPECT_EQ(a.GetVertexWeight(3), 0.6f);
    os.altDown = true;
    selection.HardenSelection();
    os.altDown = false;
    EXPECT_NEAR(a.GetPolygonWeight(0), 0.6458592f, 1e-5f); // ((0.6 - 0.0499) / 0.9501) to the power of 0.8
    selection.HardenSelection();
    EXPECT_EQ(a.GetPolygonWeight(0), 1.0f);
    selection.GrowSelection();
    EXPECT_EQ(a.GetSelectedPolygonCount(), 2);
    selection.ShrinkSelection();
    EXPECT_EQ(a.GetSelectedPolygonCount(), 1);
    selection.SetSelectionMode(0);
    selection.InvertPolygonSelection();
    EXPECT_EQ(a.GetVertexWeight(1), 0.0f);
    EXPECT_EQ(a.GetVertexWeight(2), 1.0f);
    EXPECT_EQ(a.GetSelectedVertexCount(), 8);
}
