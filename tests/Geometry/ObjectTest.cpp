// Objects, their manager, groups and names.

#include "MeshTestSupport.h"

#include "Geometry/QLM_UtilityManager.h"
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

TEST(UniqueNames, OneMoreThanTheGreatestNumber) {
    using List = std::vector<std::string>;
    const auto unique = QLM_UtilityManager::GetUniqueName;
    EXPECT_EQ(unique(List{}, "Morph", ""), "Morph");
    EXPECT_EQ(unique(List{"Morph"}, "Morph", ""), "Morph (1)");
    EXPECT_EQ(unique(List{"Morph", "Morph (7)", "Morph (2)"}, "Morph", ""), "Morph (8)");
    EXPECT_EQ(unique(List{"Morph (3)"}, "Morph", ""), "Morph"); // only the exact name takes it
    EXPECT_EQ(unique(List{"Morph", "Morph (x)", "Morph(5)", "Morph (6) ", "Morph ()", "Morphs (9)"}, "Morph", ""),
              "Morph (1)");
    EXPECT_EQ(unique(List{"Morph", "Morph (99999999999)"}, "Morph", ""), "Morph (1)");
    EXPECT_EQ(unique(List{"skin.png", "skin (4).png", "skin (9).jpg"}, "skin", "png"), "skin (5).png");
    EXPECT_EQ(unique(List{"skin.png"}, "skin.png", "png"), "skin (1).png");
}
