// Display groups: columns, the rules of locking and hiding, records.

#include "MeshTestSupport.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_ObjectManager.h"
#include "RecordTestSupport.h"
#include "Support/Rounds.h"
#include "Support/TestScene.h"

namespace {
using State = QLM_LayerDefinition::State;

QLM_LayerManager& Layers() { return *QLM_GetManagers().GetLayerManager(); }

/// `count` quads in a row; quad p has the vertices 2p, 2p + 2, 2p + 3, 2p + 1.
QLM_Mesh& AddStrip(TestScene& scene, const char* name, int count) {
    std::vector<float> vertices;
    for (int i = 0; i <= 2 * count + 1; ++i)
        vertices.insert(vertices.end(), {static_cast<float>(i / 2), static_cast<float>(i % 2), 0.0f});
    std::vector<TestPolygon> polygons;
    for (int p = 0; p < count; ++p)
        polygons.push_back({{2 * p, -1}, {2 * p + 2, -1}, {2 * p + 3, -1}, {2 * p + 1, -1}});
    return *scene.AddObject(name, vertices, {}, polygons)->GetMesh();
}

/// The elements with a flag, as "0 3 4".
template <class Has> std::string Listed(int count, Has has) {
    std::string list;
    for (int i = 0; i < count; ++i)
        if (has(i)) list += (list.empty() ? "" : " ") + std::to_string(i);
    return list;
}
std::string LockedVertices(const QLM_Mesh& mesh) {
    return Listed(mesh.GetVCount(), [&](int v) { return mesh.HasVertexFlag(v, eVFlag_Locked); });
}
std::string PolygonsWith(const QLM_Mesh& mesh, uint32_t flag) {
    return Listed(mesh.GetPCount(), [&](int p) { return mesh.HasPolygonFlag(p, flag); });
}

/// The rules of locking, group by group.
void ExpectLockRules(const QLM_Mesh& mesh) {
    const int vertices = mesh.GetVCount(), polygons = mesh.GetPCount();
    const bool background = Layers().FindColumn(0)->IsLocked();
    std::vector<bool> locked(polygons, background), vertexLocked(vertices, background);
    std::vector<bool> rigid(vertices), ofRigid(vertices);
    const auto holds = [&](int p, int v) {
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i)
            if (mesh.GetPolygonVertex(p, i) == v) return true;
        return false;
    };
    for (QLM_DisplayGroup* group : Layers().GetGroups()) {
        if (group->Column == 0 || group->Column == 1 || group->IsLocked() == background) continue;
        for (int p = 0; p < polygons; ++p) {
            if (!Layers().GetFlag(group, &mesh, p)) continue;
            locked[p] = !background;
            for (int v = 0; v < vertices; ++v) {
                if (!holds(p, v)) continue;
                if (!background) vertexLocked[v] = true;
                if (group->HasRigidEdges()) (background ? ofRigid : rigid)[v] = true;
            }
        }
    }
    for (int v = 0; v < vertices; ++v) {
        bool all = true;
        for (int p = 0; p < polygons; ++p) {
            if (!holds(p, v)) continue;
            all = all && locked[p];
            if (background && ofRigid[v] && locked[p]) rigid[v] = true;
        }
        if (vertexLocked[v] && !rigid[v]) vertexLocked[v] = all;
        ASSERT_EQ(mesh.HasVertexFlag(v, eVFlag_Locked), vertexLocked[v]) << v;
        ASSERT_EQ(mesh.HasVertexFlag(v, eVFlag_RigidEdge), rigid[v]) << v;
    }
    for (int p = 0; p < polygons; ++p) ASSERT_EQ(mesh.IsPolygonLocked(p), locked[p]) << p;
    ASSERT_EQ(mesh.GetObject()->IsCompletelyLocked(), std::find(locked.begin(), locked.end(), false) == locked.end());
}

void ExpectHideRules(QLM_Mesh& mesh) {
    const bool background = Layers().FindColumn(0)->IsHidden();
    std::vector<bool> hidden(mesh.GetPCount(), background), vertexHidden(mesh.GetVCount(), true);
    for (QLM_DisplayGroup* group : Layers().GetGroups())
        for (int p = 0; p < mesh.GetPCount() && group->Column != 0 && group->Column != 2; ++p)
            if (group->IsHidden() != background && Layers().GetFlag(group, &mesh, p)) hidden[p] = !background;
    int visible = 0;
    for (int p = 0; p < mesh.GetPCount(); ++p) {
        ASSERT_EQ(mesh.IsPolygonHidden(p), hidden[p]) << p;
        visible += !hidden[p];
        for (int i = 0; i < mesh.GetPolygonVertexCount(p) && !hidden[p]; ++i)
            vertexHidden[mesh.GetPolygonVertex(p, i)] = false;
    }
    ASSERT_EQ(mesh.GetVisiblePolygonCount(), visible);
    for (int v = 0; v < mesh.GetVCount(); ++v) ASSERT_EQ(mesh.HasVertexFlag(v, eVFlag_Hidden), vertexHidden[v]) << v;
}

std::string WriteGroups(bool forTemplate = false) {
    return WithoutIDs(WriteText([&](FILE* stream) { Layers().SaveDisplayGroups(stream, forTemplate); }));
}
std::string WriteFlags(QLM_Mesh& mesh) {
    return WriteText([&](FILE* stream) { Layers().SaveLayerFlags(stream, &mesh); });
}

/// Reads the blocks "layer" of a text, as a project's reader does.
bool ReadGroups(std::string text) {
    FILE* stream = fmemopen(text.data(), text.size(), "rb");
    std::string line;
    bool good = true, isFirst = true;
    while (good && QLM_ReadLine(line, 1000, stream)) {
        if (line.rfind("layer\t", 0) != 0) continue;
        good = Layers().LoadDisplayGroup(stream, line.substr(6), isFirst);
        isFirst = false;
    }
    std::fclose(stream);
    Layers().FinishLists();
    return good;
}
bool ReadFlags(std::string text, QLM_Mesh& mesh, bool isOld = false) {
    FILE* stream = fmemopen(text.data(), text.size(), "rb");
    std::string line;
    QLM_ReadLine(line, 1000, stream);
    const bool good = isOld ? Layers().LoadPolygonLayerFlags(stream, &mesh) : Layers().LoadLayerFlags(stream, &mesh);
    std::fclose(stream);
    return good;
}
std::string RawFlags(const std::vector<uint8_t>& bytes) {
    return WriteText([&](FILE* stream) { QLM_WriteCompressedBlock(stream, "LayerFlags", bytes.data(), bytes.size()); });
}
/// Columns of a polygon, as "0 3 4".
std::string ColumnsOf(const QLM_Mesh& mesh, int p) {
    const BigFlagArray& rows = mesh;
    return Listed(rows.GetGroupCount(), [&](int column) { return rows.GetFlag(p, column); });
}
} // namespace

TEST(DisplayGroups, LockAndHideRulesOnRandomGroups) {
    for (uint32_t seed = 1; seed <= Rounds(60u, 12u); ++seed) {
        TestScene scene;
        QLM_RandomGenerator random(seed);
        std::vector<float> vertices;
        for (int i = 0; i < 120; ++i) vertices.push_back(static_cast<float>(random.Next(100)));
        std::vector<TestPolygon> polygons(60);
        for (TestPolygon& corners : polygons)
            for (uint32_t n = 1 + random.Next(6); n > 0; --n) corners.emplace_back(random.Next(37), -1);
        QLM_Mesh& mesh = *scene.AddObject("random", vertices, {}, polygons)->GetMesh();
        std::vector<QLM_DisplayGroup*> groups = Layers().GetGroups();
        for (int g = 0; g < 5; ++g) groups.push_back(Layers().CreateDisplayGroup());
        for (size_t g = 1; g < groups.size(); ++g)
            for (int p = 0; p < mesh.GetPCount(); ++p)
                mesh.SetFlag(p, groups[g]->Column, random.Next(seed % 2 ? 3 : 12) == 0);
        for (int step = 0; step < 8; ++step) {
            QLM_DisplayGroup* group = groups[step == 0 && seed % 3 ? 0 : 3 + random.Next(5)];
            group->SetRigidEdges(random.Next(2));
            Layers().SetGroupState(group, static_cast<int>(random.Next(3)));
            ASSERT_NO_FATAL_FAILURE(ExpectLockRules(mesh)) << seed << ' ' << step;
            ASSERT_NO_FATAL_FAILURE(ExpectHideRules(mesh)) << seed << ' ' << step;
        }
        // What is derived anew comes out the same.
        mesh.AfterRawBuild();
        ASSERT_NO_FATAL_FAILURE(ExpectLockRules(mesh)) << seed;
        ASSERT_NO_FATAL_FAILURE(ExpectHideRules(mesh)) << seed;
    }
}

TEST(DisplayGroups, BordersOfLockedGroups) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 4);
    QLM_DisplayGroup* group = Layers().CreateDisplayGroup("middle");
    for (const int p : {1, 2}) mesh.SetFlag(p, group->Column, true);
    Layers().SetGroupState(group, State::Locked);
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "1 2");
    EXPECT_EQ(LockedVertices(mesh), "4 5"); // the border is free to move
    group->SetRigidEdges(true);
    EXPECT_EQ(LockedVertices(mesh), "2 3 4 5 6 7");
    group->Unhide(); // acts only on a hidden group
    EXPECT_TRUE(group->IsLocked());

    // All but the group: its border goes with the free side, or with rigid edges stays.
    Layers().SetGroupState(group, State::Normal);
    Layers().SetGroupState(Layers().FindColumn(0), State::Locked);
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "0 3");
    EXPECT_EQ(LockedVertices(mesh), "0 1 2 3 6 7 8 9");
    group->SetRigidEdges(false);
    EXPECT_EQ(LockedVertices(mesh), "0 1 8 9");
    EXPECT_FALSE(mesh.GetObject()->IsCompletelyLocked());
    Layers().SetGroupState(group, State::Locked);
    EXPECT_TRUE(mesh.GetObject()->IsCompletelyLocked());
    // A mesh that comes now is locked from the start.
    EXPECT_EQ(PolygonsWith(AddStrip(scene, "later", 2), ePFlag_Locked), "0 1");
}

TEST(DisplayGroups, SpecialColumnsServeTheCommands) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 4);
    const auto select = [&](int p) {
        mesh.ClearSelection();
        for (const QLM_PolygonCorner *c = mesh.GetPolygon(p).corners, *end = c + 4; c != end; ++c)
            mesh.SetVertexWeight(c->vertex, 1.0f);
    };
    EXPECT_FALSE(Layers().AssignSelectionToColumn(QLM_LayerManager::HiddenLayer)); // nothing selected
    select(0); // its neighbour has selected corners and goes along
    EXPECT_TRUE(Layers().AssignSelectionToColumn(QLM_LayerManager::HiddenLayer));
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Hidden), "0 1");
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "");
    EXPECT_EQ(mesh.GetSelectedPolygonCount(), 0); // what is hidden is selected no longer
    select(3);
    EXPECT_TRUE(Layers().AssignSelectionToColumn(QLM_LayerManager::LockedLayer));
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "2 3");
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Hidden), "0 1");
    Layers().ClearColumn(QLM_LayerManager::HiddenLayer);
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Hidden), "");
    Layers().ClearColumn(QLM_LayerManager::LockedLayer);
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "");
    EXPECT_FALSE(Layers().SetGroupState(Layers().FindColumn(1), State::Normal));
    EXPECT_FALSE(Layers().DeleteDisplayGroup(Layers().FindColumn(0)));
}

TEST(DisplayGroups, FlagsWaitForTheEndOfAStroke) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 2);
    QLM_DisplayGroup* group = Layers().CreateDisplayGroup();
    mesh.SetFlag(1, group->Column, true);
    QLM_OS::Get().mouseButtonsDown = 1;
    group->Lock();
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "");
    QLM_OS::Get().mouseButtonsDown = 0;
    scene.Settle();
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "1");

    // What is shown again stands where the object was moved meanwhile, and has normals of the present shape.
    group->Hide();
    EXPECT_EQ(mesh.TransformedBoundsMax[0], 1.0f);
    mesh.Transform_Pos[0] = 10.0f;
    mesh.Vertices[5][1] = 0.0f;
    mesh.Vertices[5][2] = 1.0f;
    mesh.RecomputeWorldMatrix();
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(true, true, true);
    group->Unhide();
    EXPECT_EQ(mesh.ResolvedVertices[5][0], 12.0f);
    EXPECT_EQ(mesh.TransformedBoundsMax[0], 12.0f);
    EXPECT_NE(mesh.PolygonNormals[1][1], 0.0f);
}

TEST(DisplayGroups, DeletedColumnsLeaveTheOthersAlone) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 3);
    QLM_DisplayGroup* a = Layers().CreateDisplayGroup();
    QLM_DisplayGroup* b = Layers().CreateDisplayGroup();
    QLM_DisplayGroup* c = Layers().CreateDisplayGroup("Arm");
    EXPECT_STREQ(b->GetName(), "New Display Group (1)");
    EXPECT_EQ(c->Column, 5);
    mesh.SetFlag(0, a->Column, true);
    for (const QLM_DisplayGroup* group : {b, c}) mesh.SetFlag(1, group->Column, true);
    b->SetMarked(true);
    QLM_OS::Get().queuedAnswers = {"no", "yes"};
    Layers().DeleteLayers();
    EXPECT_EQ(Layers().GetGroups().size(), 6u);
    Layers().DeleteLayers();
    EXPECT_EQ(Layers().GetGroups().size(), 5u);
    EXPECT_EQ(ColumnsOf(mesh, 1), "0 5");
    QLM_DisplayGroup* again = Layers().CreateDisplayGroup("Arm");
    EXPECT_STREQ(again->GetName(), "Arm (1)");
    EXPECT_EQ(again->Column, 4); // the free one, and empty
    EXPECT_EQ(ColumnsOf(mesh, 1), "0 5");

    // Marked folders go with the groups in them, but the special ones stay.
    auto* folder = new QLM_TreeGroup;
    Layers().GetTree()->AddChild(folder);
    for (QLM_BaseClass* item : {static_cast<QLM_BaseClass*>(a), static_cast<QLM_BaseClass*>(Layers().FindColumn(2))}) {
        Layers().GetTree()->RemoveItem(item);
        folder->AddItem(item);
    }
    folder->SetMarked(true);
    QLM_OS::Get().queuedAnswers = {"yes"};
    Layers().DeleteLayers();
    EXPECT_EQ(Layers().FindColumn(3), nullptr);
    ASSERT_NE(Layers().FindColumn(2), nullptr);
    EXPECT_EQ(Layers().GetTree()->GetFirstChild(), nullptr);

    // A merged group has what any of them had; wide rows; new meshes have every column.
    mesh.SetFlag(2, again->Column, true);
    const float red[3] = {1.0f, 0.0f, -4.0f};
    c->SetColor(red);
    Layers().SetGroupState(c, State::Locked);
    QLM_DisplayGroup* merged = Layers().MergeDisplayGroups({c, again});
    ASSERT_NE(merged, nullptr);
    EXPECT_STREQ(merged->GetName(), "Merged Layers");
    EXPECT_EQ(merged->Color[0] + merged->Color[2], 1.0f);
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Locked), "1 2");
    for (int i = 0; i < 172; ++i) Layers().CreateDisplayGroup();
    EXPECT_EQ(Layers().GetColumnCount(), 176);
    EXPECT_EQ(mesh.GetRowBytes(), 22);
    QLM_Mesh& later = AddStrip(scene, "later", 1);
    EXPECT_EQ(later.GetRowBytes(), 22);
    EXPECT_EQ(ColumnsOf(later, 0), "0");
}

TEST(DisplayGroups, RecordsComeBackWithoutGaps) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 3);
    QLM_DisplayGroup* group[4];
    for (QLM_DisplayGroup*& each : group) each = Layers().CreateDisplayGroup();
    for (int i = 0; i < 4; ++i) mesh.SetFlag(i % 3, group[i]->Column, true);
    mesh.SetFlag(2, QLM_LayerManager::HiddenLayer, true);
    const float color[3] = {0.25f, 0.5f, 1.0f};
    group[2]->SetColor(color);
    group[2]->SetRigidEdges(true);
    group[2]->Strength = 0.75f;
    Layers().SetGroupState(group[2], State::Locked);
    Layers().SetGroupState(Layers().FindColumn(0), State::Hidden);
    Layers().DeleteDisplayGroup(group[1]);
    const std::string groups = WriteGroups(), flags = WriteFlags(mesh);
    EXPECT_EQ(WriteGroups(true).find("Hidden Layer"), std::string::npos);

    Layers().AfterClear();
    mesh.SetPCount(0);
    mesh.SetPCount(3);
    ASSERT_TRUE(ReadGroups(groups));
    ASSERT_TRUE(ReadFlags(flags, mesh));
    EXPECT_EQ(WriteGroups(), groups);
    EXPECT_EQ(WriteFlags(mesh), flags);
    ASSERT_EQ(Layers().GetGroups().size(), 6u); // the special ones are not there twice
    const QLM_DisplayGroup* read = Layers().FindColumn(4);
    EXPECT_TRUE(read->IsLocked() && read->HasRigidEdges() && Layers().FindColumn(0)->IsHidden());
    EXPECT_STREQ(Layers().FindColumn(0)->GetName(), "All Polygons");
    EXPECT_EQ(Layers().GetTree()->GetCurrentItem(), Layers().FindColumn(5));
    EXPECT_EQ(ColumnsOf(mesh, 0), "0 3 5");
    EXPECT_EQ(ColumnsOf(mesh, 2), "0 1 4");
    mesh.AfterRawBuild();
    EXPECT_EQ(PolygonsWith(mesh, ePFlag_Hidden), "1"); // the background is hidden, but groups that aren't show theirs

    // Older lines, and values that can't be.
    EXPECT_TRUE(ReadGroups("layer\tAll Polygons\n{\nState\t3\n}\n"
                           "layer\tx\n{\nState\t3\nStrength\t7\nColor\t9 nan 0\n}\nlayer\ty\n{\nLocked\t1\n}\n"
                           "layer\tz\n{\nLayerDefinition\tz\n{\nHidden\t1\nStrength\tnan\n}\n}\n"));
    const QLM_DisplayGroup *x = Layers().FindGroup("x"), *y = Layers().FindGroup("y"), *z = Layers().FindGroup("z");
    ASSERT_TRUE(x && y && z);
    EXPECT_EQ(Layers().FindColumn(0)->state, State::Hidden); // as before
    EXPECT_EQ(x->state, State::Normal);
    EXPECT_EQ(x->Strength + x->Color[0] + x->Color[1], 2.0f);
    EXPECT_TRUE(y->IsLocked());
    EXPECT_TRUE(z->IsHidden());
    EXPECT_EQ(z->Strength, 1.0f);
}

TEST(DisplayGroups, FlagsOfOtherFilesLandBehindTheGroupsOfTheScene) {
    TestScene scene;
    QLM_Mesh& mesh = AddStrip(scene, "strip", 3);
    QLM_DisplayGroup* own = Layers().CreateDisplayGroup();
    QLM_DisplayGroup* deleted = Layers().CreateDisplayGroup();
    QLM_DisplayGroup* last = Layers().CreateDisplayGroup();
    mesh.SetFlag(0, own->Column, true);
    Layers().DeleteDisplayGroup(deleted); // column 4 is free, two user's groups stay

    // A template with two groups: rows of the columns 0..4, its hidden and locked ones are dropped.
    QLM_IOManager* io = QLM_GetManagers().GetIOManager();
    io->SetInt("INPUT_DISPLAY_GROUP_OFFSET", 2);
    ASSERT_TRUE(ReadGroups("layer\tAll\n{\n}\nlayer\tfirst\n{\n}\nlayer\tsecond\n{\n}\n"));
    EXPECT_EQ(Layers().FindGroup("first")->Column, last->Column + 1);
    ASSERT_TRUE(ReadFlags(RawFlags({0b01001, 0b10111, 0b11001}), mesh));
    io->RemoveProperty("INPUT_DISPLAY_GROUP_OFFSET");
    EXPECT_EQ(ColumnsOf(mesh, 0), "0 3 6");
    EXPECT_EQ(ColumnsOf(mesh, 1), "0 7");
    EXPECT_EQ(ColumnsOf(mesh, 2), "0 6 7");

    // Rows wider than what is known are kept; sizes that don't fit change nothing.
    const std::string before = WriteFlags(mesh);
    QLM_OS::Get().recorded.clear();
    EXPECT_TRUE(ReadFlags(RawFlags({1, 1, 1, 1}), mesh));
    ASSERT_FALSE(QLM_OS::Get().recorded.empty());
    EXPECT_EQ(QLM_OS::Get().recorded.back().text, "Error loading layer data for object 'strip'");
    QLM_OS::Get().recorded.clear();
    EXPECT_TRUE(ReadFlags(RawFlags({1, 1, 1, 1}), mesh, true)); // the older block is passed over
    EXPECT_TRUE(QLM_OS::Get().recorded.empty());
    EXPECT_FALSE(ReadFlags("LayerFlags\t\n{\nrawDataSize\t3\n", mesh));
    EXPECT_EQ(WriteFlags(mesh), before);
    EXPECT_TRUE(ReadFlags(RawFlags({1, 0, 0, 1, 0, 0, 1, 0, 2}), mesh, true));
    EXPECT_EQ(ColumnsOf(mesh, 2), "0 6 7 18"); // 17 of the file, which has no gap
    EXPECT_NE(WriteFlags(mesh), before);
}
