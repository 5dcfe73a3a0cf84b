// Objects, their manager, groups and names.

#include "MeshTestSupport.h"

#include "Geometry/QLM_ObjectManager.h"

namespace {
QLM_Object* AddTriangle(QLM_ObjectManager& manager, const char* name, float size) {
    auto* object = new QLM_Object;
    object->SetNameText(name);
    object->SetMesh(FillMesh(object, {0, 0, 0, size, 0, 0, 0, size, 0}, {}, {Plain({0, 1, 2})}));
    object->GetMesh()->AfterRawBuild();
    manager.AddObject(object);
    return object;
}
} // namespace

TEST(ObjectManager, CurrentObjectRepairsItself) {
    QLM_Owned<QLM_ObjectManager> manager(new QLM_ObjectManager);
    EXPECT_EQ(manager->GetCurrentObject(), nullptr);
    EXPECT_EQ(manager->GetGlobalScale(), 1.0f);
    float low[3], high[3];
    EXPECT_FALSE(manager->GetSceneBounds(low, high));

    QLM_Object* first = AddTriangle(*manager, "a", 3.0f);
    QLM_Object* second = AddTriangle(*manager, "b", 4.0f);
    QLM_Object* third = AddTriangle(*manager, "a", 1.0f);
    EXPECT_EQ(manager->GetCurrentObject(), first);
    manager->SetCurrentObject(second);
    EXPECT_EQ(manager->GetCurrentObject(), second);
    EXPECT_EQ(manager->FindObject("a", 2), third);
    EXPECT_EQ(manager->FindObject("a", 3), nullptr);
    manager->UpdateGlobalScale();
    EXPECT_NEAR(manager->GetGlobalScale(), 0.5f * std::sqrt(32.0f), 1e-5f);
    second->SetHidden(true);
    EXPECT_EQ(manager->GetObjects(true).size(), 2u);
    EXPECT_EQ(manager->GetObjectCount(), 3);
    EXPECT_TRUE(manager->GetSceneBounds(low, high));
    EXPECT_EQ(high[0], 3.0f);

    // Deletion is deferred: the memory still tells that the object is gone, and its mesh with it.
    QLM_Mesh* mesh = second->GetMesh();
    QLM_SafePtr<QLM_Object> pointer(second);
    manager->DeleteObject(second);
    EXPECT_FALSE(QLM_IsItemUsable(mesh));
    EXPECT_THROW(pointer->GetMesh(), QLM_Exception);
    EXPECT_EQ(manager->GetCurrentObject(), first);
    EXPECT_EQ(manager->GetObjectCount(), 2);
    manager->AfterClear();
    EXPECT_EQ(manager->GetObjectCount(), 0);
    EXPECT_EQ(manager->GetGlobalScale(), 1.0f);
}

TEST(ObjectManager, ShapeChangesReachEverythingAsAskedFor) {
    QLM_Owned<QLM_ObjectManager> manager(new QLM_ObjectManager);
    QLM_Object* object = AddTriangle(*manager, "a", 2.0f);
    QLM_Mesh* mesh = object->GetMesh();
    mesh->EnableConcavity();
    mesh->Vertices[2][1] = 0.0f;
    mesh->Vertices[2][2] = 2.0f; // turned from the xy into the xz plane

    manager->OnShapeChanged(object, true, false, false); // nothing resolved yet
    EXPECT_EQ(mesh->ResolvedVertices[2][2], 0.0f);
    EXPECT_EQ(mesh->GetConcavity(0), 0.0f);
    manager->OnShapeChanged(object, true, true, false);
    EXPECT_EQ(mesh->ResolvedVertices[2][2], 2.0f);
    EXPECT_EQ(mesh->TransformedBoundsMax[2], 2.0f);
    EXPECT_EQ(mesh->GetRoot()->BoundsMax[2], 2.0f);
    EXPECT_NEAR(mesh->PolygonNormals[0][2], 1.0f, 1e-3f);
    manager->OnShapeChanged(true, true, true);
    EXPECT_NEAR(mesh->PolygonNormals[0][1], -1.0f, 1e-3f);
    EXPECT_NEAR(mesh->VertexNormals[0][1], -1.0f, 1e-3f);

    const float range[4] = {0, 0, 1, 1};
    manager->OnPartialSurfaceChanged(range); // no texture vertices: no leaf lies in any range
    EXPECT_FALSE(mesh->GetRoot()->Flags & eNode_Touched);
    EXPECT_NO_THROW(manager->OnFullSurfaceChanged());
    object->SetMesh(nullptr);
    EXPECT_NO_THROW(manager->OnShapeChanged(true, true, true));
}

TEST(MeshGroups, NamesThatAreWordsOfOtherNames) {
    // A strip of four triangles, a group each, and an unused group.
    std::vector<float> vertices;
    for (int i = 0; i < 6; ++i)
        vertices.insert(vertices.end(), {static_cast<float>(i / 2), static_cast<float>(i % 2), 0.0f});
    MeshOwner mesh(
        FillMesh(nullptr, vertices, {}, {Plain({0, 1, 2}), Plain({1, 2, 3}), Plain({2, 3, 4}), Plain({3, 4, 5})}));
    for (const char* name : {"Left ARM", "Armor", "arm", "Hand\tLeft", ""}) {
        auto* group = new QLM_Group2;
        group->SetNameText(name);
        mesh->AddGroup(group);
    }
    for (int p = 0; p < 4; ++p) mesh->SetPolygonGroup(p, p);
    mesh->AfterRawBuild();
    ASSERT_EQ(mesh->GetGroupCount(), 5);
    EXPECT_EQ(mesh->FindGroupByName("arm"), 2);
    EXPECT_EQ(mesh->FindGroupByName("leg"), -1);
    using List = std::vector<int32_t>;
    using Bits = std::vector<bool>;
    EXPECT_EQ(mesh->GetGroup(0)->Vertices, (List{0, 1, 2}));
    EXPECT_EQ(mesh->GetGroup(1)->Vertices, (List{1, 2, 3}));
    EXPECT_EQ(mesh->GetGroup(2)->Vertices, (List{0, 1, 2, 3, 4})); // its own and "Left ARM", not "Armor"
    EXPECT_EQ(mesh->GetGroup(3)->Vertices, (List{3, 4, 5}));
    EXPECT_TRUE(mesh->GetGroup(4)->Vertices.empty());
    EXPECT_EQ(mesh->GetGroup(0)->SharedWithEarlier, (Bits{false, false, false}));
    EXPECT_EQ(mesh->GetGroup(1)->SharedWithEarlier, (Bits{true, true, false}));
    EXPECT_EQ(mesh->GetGroup(2)->SharedWithEarlier, (Bits{true, true, true, true, false}));
    EXPECT_EQ(mesh->GetGroup(3)->SharedWithEarlier, (Bits{true, true, false}));
}

TEST(MeshGroups, VerticesByTheTableOfNames) {
    // Names of one to three words out of a few, so that many are words of others and some occur twice.
    QLM_RandomGenerator random(5);
    const char* const words[] = {"left", "Right", "ARM", "arm", "armor", "Hand", "thumb", "1", "2", ""};
    MeshOwner mesh = MakeRandomMesh(3, false, 300, 600);
    std::vector<std::string> names;
    for (int g = 0; g < 172; ++g) {
        std::string name;
        for (uint32_t n = random.Next(4); n > 0; --n)
            name += (name.empty() ? "" : random.Next(2) ? " " : "\t") + std::string(words[random.Next(10)]);
        auto* group = new QLM_Group2;
        group->SetNameText(name);
        mesh->AddGroup(group);
        for (char& c : name) c = static_cast<char>(std::tolower(c));
        names.push_back(name);
    }
    for (int p = 0; p < mesh->GetPCount(); ++p) mesh->SetPolygonGroup(p, random.Next(173)); // the last is no group
    mesh->ResolveGroupVertexMaps();

    const auto isWordOf = [](const std::string& word, const std::string& name) {
        const std::string framed = " " + name + " ", blanks = " \t";
        for (size_t i = 1; i + word.size() < framed.size(); ++i)
            if (framed.compare(i, word.size(), word) == 0 && blanks.find(framed[i - 1]) != std::string::npos &&
                blanks.find(framed[i + word.size()]) != std::string::npos)
                return true;
        return false;
    };
    const int first = mesh->GetGroupCount() - 172; // behind the default group
    ASSERT_EQ(first, 1);
    std::set<int32_t> taken(mesh->GetGroup(0)->Vertices.begin(), mesh->GetGroup(0)->Vertices.end());
    for (int b = 0; b < 172; ++b) {
        std::set<int32_t> expected;
        for (int p = 0; p < mesh->GetPCount() && !names[b].empty(); ++p) {
            const int a = mesh->GetPolygon(p).group - first;
            if (a < 0 || a >= 172 || (a != b && !isWordOf(names[b], names[a]))) continue;
            for (int i = 0; i < mesh->GetPolygonVertexCount(p); ++i) expected.insert(mesh->GetPolygonVertex(p, i));
        }
        const QLM_Group2& group = *mesh->GetGroup(first + b);
        ASSERT_EQ(group.Vertices, std::vector<int32_t>(expected.begin(), expected.end())) << b << ": " << names[b];
        ASSERT_EQ(group.SharedWithEarlier.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(group.SharedWithEarlier[i], !taken.insert(group.Vertices[i]).second) << b << ' ' << i;
    }
}

TEST(MeshMaterials, MapListsHoldThePolygonsOfTheirMaterials) {
    MeshOwner mesh = MakeCube();
    auto* second = new QLM_Material;
    EXPECT_EQ(mesh->AddMaterial(second), 1);
    auto* binding = new QLM_MaterialMapBinding;
    mesh->GetMapList().Add(binding);
    second->FindChannel("Bump")->MapBindingID = binding->GetID();
    for (const int p : {5, 1, 3}) mesh->SetPolygonMaterial(p, 1);
    mesh->SetPolygonMaterial(2, 65535);
    mesh->SetPolygonMaterial(4, 9);
    mesh->UpdateAllMapPolygonLists();
    EXPECT_EQ(binding->polygons, (std::vector<int32_t>{1, 3, 5}));
    second->FindChannel("Bump")->MapBindingID = 0;
    mesh->UpdateMapPolygonList(binding);
    EXPECT_TRUE(binding->polygons.empty());
}
