// The user's operations on materials, run as their commands.

#include "Commands/QLM_Commands.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Support/TestScene.h"

#include <gtest/gtest.h>

namespace {

class MaterialCommands : public testing::Test {
  protected:
    /// Two triangles that share the edge 1-2, one material.
    QLM_Object* AddPair(const std::string& name) {
        return scene.AddObject(name, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}, {0, 0, 1, 0, 0, 1, 1, 1},
                               {{{0, 0}, {1, 1}, {2, 2}}, {{2, 2}, {1, 1}, {3, 3}}});
    }
    /// Runs a command and returns the last message since.
    std::string Run(const std::string& command) {
        QLM_OS::Get().recorded.clear();
        std::string error;
        EXPECT_TRUE(QLM_CommandTable::Get().RunCommand(command, 0, error)) << error;
        scene.Settle();
        const auto& recorded = QLM_OS::Get().recorded;
        return recorded.empty() ? "" : recorded.back().text;
    }
    void SetWeights(QLM_Mesh& mesh, std::vector<float> weights) {
        mesh.VertexWeights.Resize(static_cast<uint32_t>(weights.size()), false, true);
        std::copy(weights.begin(), weights.end(), mesh.VertexWeights.GetData());
    }
    QLM_Material* AddMaterial(QLM_Mesh& mesh, const std::string& name) {
        auto* material = new QLM_Material;
        material->SetNameText(name);
        mesh.AddMaterial(material);
        return material;
    }

    TestScene scene;
    QLM_MaterialManager& manager = *QLM_GetManagers().GetMaterialManager();
    QLM_Object* object = AddPair("pair");
    QLM_Mesh& mesh = *object->GetMesh();
};

TEST_F(MaterialCommands, NewMaterialTakesWhatIsSelected) {
    Run("CreateNewMaterial");
    EXPECT_EQ(mesh.GetMaterialCount(), 2);
    EXPECT_EQ(mesh.GetPolygonMaterial(0), 0) << "nothing is selected";
    // 0.299 itself doesn't count: the second triangle stays.
    SetWeights(mesh, {0.3f, 0.2995f, 1.0f, 0.299f});
    Run("CreateNewMaterial");
    ASSERT_EQ(mesh.GetMaterialCount(), 3);
    EXPECT_STREQ(mesh.GetMaterials()[1]->GetName(), "New Material");
    EXPECT_STREQ(mesh.GetMaterials()[2]->GetName(), "New Material (1)");
    EXPECT_EQ(mesh.GetMaterials()[2]->MaterialIndex, 2);
    EXPECT_EQ(mesh.GetPolygonMaterial(0), 2);
    EXPECT_EQ(mesh.GetPolygonMaterial(1), 0);

    EXPECT_EQ(Run("AssignMaterialToSelection"), "Please highlight a material in the manager");
    SetWeights(mesh, {0, 1, 1, 1});
    manager.SelectMaterial(mesh.GetMaterials()[1]);
    Run("AssignMaterialToSelection");
    EXPECT_EQ(mesh.GetPolygonMaterial(0), 2);
    EXPECT_EQ(mesh.GetPolygonMaterial(1), 1);
}

TEST_F(MaterialCommands, DeletedMaterialsLeaveASoundObject) {
    EXPECT_EQ(Run("DeleteMaterials"), "Please highlight at least one material in the Manager.");
    QLM_Material *second = AddMaterial(mesh, "second"), *third = AddMaterial(mesh, "third");
    mesh.SetPolygonMaterial(0, 1);
    mesh.SetPolygonMaterial(1, 2);
    manager.SelectMaterial(second);
    EXPECT_EQ(Run("DeleteMaterials"), "Deleted 1 material(s)");
    ASSERT_EQ(mesh.GetMaterialCount(), 2);
    EXPECT_EQ(mesh.GetPolygonMaterial(0), 0) << "goes to the first that is left";
    EXPECT_EQ(mesh.GetPolygonMaterial(1), 1) << "follows its own";
    EXPECT_EQ(third->MaterialIndex, 1);

    for (QLM_Material* material : mesh.GetMaterials()) material->SetMarked(true);
    EXPECT_EQ(Run("DeleteMaterials"), "Deleted 2 material(s)");
    EXPECT_EQ(QLM_OS::Get().recorded[0].text, "A default material has been created since at least one is required.");
    ASSERT_EQ(mesh.GetMaterialCount(), 1);
    EXPECT_STREQ(mesh.GetMaterials()[0]->GetName(), "default");
    EXPECT_EQ(mesh.GetPolygonMaterial(1), 0);
}

TEST_F(MaterialCommands, CopyAndPasteCarryMapsIntoOtherObjects) {
    EXPECT_EQ(Run("PasteMaterial"), "There is no material in the clipboard to paste.");
    EXPECT_EQ(Run("CopyMaterial"), "Please highlight a material in the manager");
    QLM_MaterialMapSource* map = scene.AddMap(object, 4, 4, 1, 2, 3);
    QLM_Material* source = mesh.GetMaterials()[0];
    source->SetNameText("skin");
    source->Bump->Strength = 0.25f;
    manager.SelectMaterial(source);
    EXPECT_EQ(Run("CopyMaterial"), "Copied the material \"skin\"");
    manager.SelectMaterial(nullptr);
    EXPECT_EQ(Run("PasteMaterial"), "Pasted the clipboard material into 0 material(s)");

    QLM_Mesh& other = *AddPair("other")->GetMesh();
    QLM_Material* target = other.GetMaterials()[0];
    manager.SelectMaterial(target);
    EXPECT_EQ(Run("PasteMaterial"), "Pasted the clipboard material into 1 material(s)");
    EXPECT_STRNE(target->GetName(), "skin");
    EXPECT_EQ(target->Bump->Strength, 0.25f);
    EXPECT_EQ(QLM_GetChannelMap(other.GetMapList(), target->Color), map) << "through a binding of its own object";
    ASSERT_EQ(other.GetMapList().Count(), 1);
    EXPECT_EQ(other.GetMapList()[0]->polygons.size(), 2u);
}

TEST_F(MaterialCommands, BindingsFollowPolygonsAndMaps) {
    QLM_MapManager& maps = *QLM_GetManagers().GetMapManager();
    QLM_MaterialMapSource *early = scene.AddMap(object, 4, 4, 1, 2, 3), *late = maps.CreateMapSource();
    late->Initialize(4, 4, late->DefaultColor);
    QLM_Material* second = AddMaterial(mesh, "second");
    // By the event of a dropped map, as by every other way, the polygons come along.
    QLMEvent dropped(QLM_Event_AssignMap);
    dropped.ids[0] = second->Color->GetID();
    dropped.ids[1] = late->GetID();
    dropped.ids[2] = second->GetID();
    EXPECT_EQ(QLM_DispatchEvent(dropped), 1);
    SetWeights(mesh, {0, 1, 1, 1});
    manager.SelectMaterial(second);
    const auto isRequested = [](const QLM_MaterialMapSource* map) {
        return map->GetBool("CALCULATE_OVERDRAW_REQUESTED") && !map->GetBool("FULLY_PROCESSED");
    };
    for (QLM_MaterialMapSource* map : {early, late}) {
        map->SetBool("CALCULATE_OVERDRAW_REQUESTED", false);
        map->SetBool("FULLY_PROCESSED", true);
    }
    Run("AssignMaterialToSelection");
    ASSERT_EQ(mesh.GetMapList().Count(), 2);
    EXPECT_EQ(mesh.GetMapList()[0]->polygons, std::vector<int32_t>{0});
    EXPECT_EQ(mesh.GetMapList()[1]->polygons, std::vector<int32_t>{1});
    for (const QLM_MaterialMapSource* map : {early, late}) EXPECT_TRUE(isRequested(map)) << "covers other pixels now";

    const uint32_t lateID = late->GetID();
    QLM_List<QLM_MaterialMapSource*> doomed = {late};
    QLM_OS::Get().queuedAnswers = {"no", "yes"};
    EXPECT_FALSE(maps.DeleteImageMaps(doomed));
    EXPECT_TRUE(maps.DeleteImageMaps(doomed));
    EXPECT_EQ(QLM_FindBaseClassByID(lateID), nullptr);
    EXPECT_EQ(second->Color->MapBindingID, 0u);
    ASSERT_EQ(mesh.GetMapList().Count(), 1) << "bindings go with their map";
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), mesh.GetMaterials()[0]->Color), early);
}

TEST_F(MaterialCommands, MapsAreSharedInASubset) {
    QLM_Material* lips = AddMaterial(mesh, "lips");
    QLM_Material* eyes = AddMaterial(mesh, "eyes");
    mesh.GetMaterials()[0]->SetNameText("face");
    auto* set = new QLM_MaterialSet;
    set->subsets.Add(new QLM_MaterialSubset);
    set->subsets[0]->SetNameText("head");
    for (const char* name : {"face", "lips"}) set->subsets[0]->materials.emplace(name, name);
    set->subsets.Add(new QLM_MaterialSubset);
    set->subsets[1]->materials.emplace("eyes", "eyes");
    QLM_GetManagers().GetMapManager()->GetMaterialSets().AddItem(set);
    ASSERT_TRUE(manager.ApplyMaterialSets(object));

    MapGroupInfo group;
    group.width = 8;
    group.height = 4;
    manager.FindMapGroup(lips, "Bump", group);
    QLM_MaterialMapSource* map = manager.CreateMap(group);
    EXPECT_STREQ(map->GetName(), "head.PNG");
    EXPECT_EQ(map->GetWidth(), 8u);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), mesh.GetMaterials()[0]->Bump), map);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), lips->Bump), map);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), eyes->Bump), nullptr);

    // Dropped: on nothing, where no channel is shown, on one group, on the whole object.
    QLM_Viewport& viewport = *scene.GetViewport();
    QLM_OS& os = QLM_OS::Get();
    viewport.MaterialChannelName = "Color";
    manager.DropMap(map, nullptr);
    EXPECT_EQ(os.recorded.back().text, "No material was found at this location");
    viewport.DisplayMode = 0;
    manager.DropMap(map, eyes);
    EXPECT_EQ(os.recorded.back().text.rfind("Please choose a texture channel", 0), 0u);
    viewport.DisplayMode = 3;
    os.queuedAnswers = {"no", "yes"};
    manager.DropMap(map, lips);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), eyes->Color), nullptr);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), mesh.GetMaterials()[0]->Color), map);
    manager.DropMap(map, lips);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), eyes->Color), map);
    manager.FindMapGroup(eyes, "Color", group);
    manager.RemoveMap(group);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), eyes->Color), nullptr);
    EXPECT_EQ(QLM_GetChannelMap(mesh.GetMapList(), lips->Color), map);
    QLM_GetManagers().GetMapManager()->GetMaterialSets().RemoveItem(set);
    delete set;
}

} // namespace
