#include "MapTestSupport.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_TreeGroup.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_Material.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Maps/QLM_MaterialSets.h"

#include <filesystem>
#include <fstream>
#include <memory>

namespace {

/// A file in memory order: written, then read from its beginning.
class Stream {
  public:
    explicit Stream(const std::string& text = {}) : file(tmpfile()) {
        fputs(text.c_str(), file);
        rewind(file);
    }
    ~Stream() { fclose(file); }
    std::string Text() {
        rewind(file);
        std::string text;
        for (int c; (c = fgetc(file)) != EOF;) text += char(c);
        rewind(file);
        return text;
    }
    FILE* const file;
};

class Materials : public MapTest {};

TEST_F(Materials, Defaults) {
    const QLM_Material material;
    EXPECT_TRUE(material.GetBool("EXPANDABLE_ITEM"));
    EXPECT_STREQ(material.GetName(), "");
    EXPECT_EQ(material.MaterialIndex, -1);
    struct Expected {
        const char* name;
        float strength, rangeMin;
        bool usesStrength, usesColor, usesOffset;
    };
    const Expected expected[] = {
        {"Color", 1.0f, 0, false, true, false},       {"Transparency", 0.0f, 0, true, false, false},
        {"Bump", 1.0f, 0, true, false, false},        {"Displacement", 1.0f, -1, true, false, true},
        {"Specular", 1.0f, 0, false, true, false},    {"Ambient", 0.1f, 0, false, true, false},
        {"Glossy", 1.0f, 0, true, false, false},
    };
    ASSERT_EQ(material.GetChildCount(), 7);
    for (int i = 0; i < 7; ++i) {
        const QLM_MaterialChannel& channel = *material.channels[size_t(i)];
        const Expected& want = expected[i];
        EXPECT_STREQ(channel.GetName(), want.name);
        EXPECT_EQ(channel.Strength, want.strength) << want.name;
        EXPECT_EQ(channel.RangeMin, want.rangeMin) << want.name;
        EXPECT_EQ(channel.UsesStrength, want.usesStrength) << want.name;
        EXPECT_EQ(channel.UsesColor, want.usesColor) << want.name;
        EXPECT_EQ(channel.UsesOffset, want.usesOffset) << want.name;
        EXPECT_EQ(channel.TextureIndex, -1) << want.name;
        EXPECT_TRUE(channel.GetBool("manager/noRename")) << want.name;
    }
    EXPECT_STREQ(material.Specular->GetHint(), "Specular Channel");
    EXPECT_EQ(material.Glossy->GetID(), material.channels[6]->GetID());
    EXPECT_EQ(static_cast<QLM_BaseClass*>(material.GetChild(7)), nullptr);
}

TEST_F(Materials, RecordsComeBack) {
    QLM_Material material;
    material.SetNameText("Skin Face");
    material.Displacement->Offset = -0.25f;
    material.Displacement->Strength = 3.5f;
    material.Color->Color[1] = 0.125f;
    material.Bump->mapFileName = "\\maps\\bump.png";
    material.Bump->TextureIndex = 4;
    material.AddChannel("Roughness Two")->Strength = 0.5f;
    material.Ambient->SetBool("excludeFromSaving", true);
    Stream stream;
    ASSERT_TRUE(material.SaveToStream_Text(stream.file));
    const std::string text = stream.Text();
    EXPECT_EQ(text.rfind("material\tSkin Face\n{\n", 0), 0u);
    EXPECT_EQ(text.find("channel\tAmbient"), std::string::npos);
    EXPECT_NE(text.find("\t\tMapFileName\t\\maps\\bump.png\n\t\tStrength\t1.00000000\n"), std::string::npos) << text;
    EXPECT_EQ(QLM_TextDepth(), 0);

    QLM_Material read;
    ASSERT_TRUE(read.LoadFromStream_Text(stream.file, 0));
    EXPECT_STREQ(read.GetName(), "Skin Face");
    EXPECT_EQ(read.channels.Count(), 8);
    EXPECT_EQ(read.Displacement->Offset, -0.25f);
    EXPECT_EQ(read.Displacement->Strength, 3.5f);
    EXPECT_EQ(read.Color->Color[1], 0.125f);
    EXPECT_EQ(read.Bump->mapFileName, "\\maps\\bump.png");
    EXPECT_EQ(read.Bump->TextureIndex, 4);
    EXPECT_EQ(read.Ambient->Strength, 0.1f) << "not in the file: its default";
    EXPECT_EQ(read.FindChannel("Roughness Two")->Strength, 0.5f);

    material.SetBool("excludeFromSaving", true);
    Stream nothing;
    EXPECT_FALSE(material.SaveToStream_Text(nothing.file));
    EXPECT_EQ(nothing.Text(), "");
}

TEST_F(Materials, ReadOlderAndDamagedRecords) {
    Stream older("material\tHead\n{\n\tName\tHead\n\tchannel\tDiffuse\n\t{\n\t\tName\tDiffuse\n"
                 "\t\tColor\t0.5 0.25 0.75\n\t\tTextureIndex\t-1\n\t\tOdd\tkey\n\t}\n"
                 "\tfuture\tblock\n\t{\n\t\tx\t1\n\t}\n"
                 "\tchannel\tBump\n\t{\n\t\tStrength\t0.5\n\t\tColor\t1 2\n");
    QLM_Material material;
    ASSERT_TRUE(material.LoadFromStream_Text(older.file, 0));
    EXPECT_EQ(material.channels.Count(), 7);
    EXPECT_STREQ(material.Color->GetName(), "Color");
    EXPECT_FALSE(material.Color->UsesStrength);
    EXPECT_EQ(material.Color->Color[2], 0.75f);
    EXPECT_EQ(material.Color->TextureIndex, -1);
    EXPECT_EQ(material.Bump->Strength, 0.5f) << "what stood before the file broke off";
    EXPECT_EQ(material.Bump->Color[0], 1.0f) << "a colour of two numbers is none";
}

TEST_F(Materials, CopyTakesStrengthColourAndMap) {
    QLM_Material source, target;
    source.Bump->Strength = 0.25f;
    source.Bump->MapBindingID = 123;
    source.Specular->Color[0] = 0.5f;
    source.AddChannel("Extra")->Offset = 2.0f;
    target.SetNameText("Own");
    target.CopyFrom(source);
    target.CopyFrom(target);
    EXPECT_STREQ(target.GetName(), "Own");
    EXPECT_EQ(target.Bump->Strength, 0.25f);
    EXPECT_EQ(target.Specular->Color[0], 0.5f);
    EXPECT_EQ(target.FindChannel("Extra")->Offset, 2.0f);
    EXPECT_TRUE(target.HasMapInChannel(123));
    EXPECT_FALSE(target.HasMapInChannel(0));
}

TEST_F(Materials, TakeThePartsOfTheEngine) {
    QLM_InitializeEvents();
    QLM_EngineParts parts;
    parts.createManagers = [](QLM_Managers& managers) { managers.Add(&QLM_Managers::map, new QLM_MapManager); };
    QLM_CreateEngine("MapsTest", parts, {}, false);
    QLM_Engine& engine = *QLM_GetEngine();
    EXPECT_GE(engine.topTreeGroups.IndexOf(engine.managers->GetMapManager()->GetTree()), 0);

    // Maps of an imported scene are numbered behind those of the project.
    engine.SetInt("INPUT_MAP_INDEX_OFFSET", 5);
    Stream record("material\tA\n{\nchannel\tBump\n{\nTextureIndex\t2\n}\n"
                  "channel\tColor\n{\nTextureIndex\t-1\n}\n}\n");
    QLM_Material material;
    material.LoadFromStream_Text(record.file, 0);
    EXPECT_EQ(material.Bump->TextureIndex, 7);
    EXPECT_EQ(material.Color->TextureIndex, -1);

    // Cells of 4 x 4 map pixels: the even one takes the first colour.
    const float colors[6] = {0.5f, 0, 1, 1, 0.25f, 0};
    std::copy_n(colors, 6, engine.displayColors);
    QLM_ImageMap clear;
    SetPixels(clear, 8, 1, 4, std::vector<uint8_t>(32, 0));
    std::vector<uint8_t> rgb;
    uint32_t width = 0, height = 0;
    ASSERT_TRUE(clear.BuildPreview(rgb, width, height));
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(memcmp(&rgb[i * 3], i < 4 ? "\x7f\0\xff" : "\xff\x3f\0", 3), 0) << i;
    engine.ShutDown();
}

class MapManager : public MapTest {
  protected:
    QLM_MapManager manager;
    QLM_MaterialMapList list;
    QLM_Material material;
};

TEST_F(MapManager, BindsOncePerObjectAndMap) {
    QLM_MaterialMapSource* map = manager.CreateMapSource();
    EXPECT_STREQ(map->GetName(), "New Map.PNG");
    manager.RenameMap(map, "");
    EXPECT_STREQ(map->GetName(), "New Map.PNG") << "nobody could ask for a map without a name";
    EXPECT_EQ(manager.GetBinding(&list, map, false), nullptr);
    material.Color->mapFileName = "not there.png";
    manager.AssignMapToMaterialChannel(&list, material.Color, map);
    EXPECT_EQ(material.Color->mapFileName, "") << "or it would come back when the map goes";
    manager.AssignMapToMaterialChannel(&list, material.Bump, map);
    ASSERT_EQ(list.Count(), 1);
    EXPECT_EQ(list[0]->SourceID, map->GetID());
    EXPECT_EQ(material.Bump->MapBindingID, list[0]->GetID());
    EXPECT_EQ(QLM_GetChannelMap(list, material.Color), map);
    EXPECT_EQ(QLM_GetChannelMap(list, material.Glossy), nullptr);
    EXPECT_EQ(QLM_GetChannelMap(list, nullptr), nullptr);

    QLM_MaterialMapList otherObject;
    EXPECT_EQ(QLM_GetChannelMap(otherObject, material.Color), nullptr) << "a binding counts in its own object only";
    EXPECT_EQ(RaisedBy([&] { manager.AssignMapToMaterialChannel(&list, nullptr, map); }),
              "Channel == NULL in AssignMapToMaterialChannel");
    EXPECT_EQ(RaisedBy([&] { manager.AssignMapToMaterialChannel(&list, material.Color, nullptr); }),
              "Map == NULL in AssignMapToMaterialChannel");
    Stream stream;
    map->SetMapFileName("/maps/face.png");
    material.SaveToStream_Text(stream.file);
    EXPECT_NE(stream.Text().find("MapFileName\t\\maps\\face.png\n"), std::string::npos);
}

TEST_F(MapManager, PaintsTheChannelsThatAreSwitchedOn) {
    QLM_MaterialMapSource *color = manager.CreateMapSource(), *bump = manager.CreateMapSource();
    const uint32_t colorID = manager.GetBinding(&list, color, true)->GetID();
    const uint32_t bumpID = manager.GetBinding(&list, bump, true)->GetID();
    material.Color->MapBindingID = colorID;
    material.Bump->MapBindingID = bumpID;
    material.Specular->MapBindingID = bumpID;
    const auto canPaint = [&](uint32_t binding, int switchedOn, const char* shown) {
        bool switches[8] = {};
        switches[switchedOn] = true;
        return QLM_MapManager::CanPaintPolygonInChannel(list, material, binding, switches, shown);
    };
    EXPECT_TRUE(canPaint(colorID, 0, "Color"));
    EXPECT_FALSE(canPaint(bumpID, 0, "Color")) << "paint for the shown channel stays out of the bump map";
    EXPECT_TRUE(canPaint(bumpID, 0, "Specular"));
    EXPECT_TRUE(canPaint(colorID, 1, "Bump"));
    EXPECT_TRUE(canPaint(bumpID, 2, "Color"));
    EXPECT_TRUE(canPaint(bumpID, 6, "Color"));
    for (const int other : {1, 3, 4, 5, 7}) EXPECT_FALSE(canPaint(bumpID, other, "Color")) << other;
    // A tool that reads the viewport paints the shown channel alone and names the other.
    const bool bumpOn[8] = {false, false, true};
    std::string refused;
    EXPECT_FALSE(QLM_MapManager::CanPaintPolygonInChannel(list, material, bumpID, bumpOn, "Color", &refused));
    EXPECT_EQ(refused, "Bump");
    refused.clear();
    EXPECT_TRUE(QLM_MapManager::CanPaintPolygonInChannel(list, material, bumpID, bumpOn, "Bump", &refused));
    EXPECT_EQ(refused, "");
    EXPECT_FALSE(canPaint(0, 0, "Transparency")) << "no binding, although channels without a map carry 0 too";
}

TEST_F(MapManager, DeletedMapsLeaveNoLink) {
    QLM_MaterialMapSource *first = manager.CreateMapSource(), *second = manager.CreateMapSource();
    EXPECT_STREQ(second->GetName(), "New Map (1).PNG");
    manager.AssignMapToMaterialChannel(&list, material.Color, first);
    manager.AssignMapToMaterialChannel(&list, material.Bump, second);
    first->Initialize(1, 1, nullptr);
    manager.GetBufferWorkhorse()->GetSnapshotPixels(first, false);
    QLM_List<QLM_MaterialMapSource*> doomed = {first, first};
    const uint32_t firstID = first->GetID();
    manager.DeleteMaps(doomed);
    EXPECT_TRUE(doomed.empty());
    EXPECT_EQ(QLM_FindBaseClassByID(firstID), nullptr);
    EXPECT_EQ(material.Color->MapBindingID, 0u);
    EXPECT_EQ(list[0]->GetSource(), nullptr);
    EXPECT_EQ(QLM_GetChannelMap(list, material.Bump), second);
    EXPECT_EQ(manager.GetMaps().size(), 1u);
    manager.DeleteAllMaps();
    EXPECT_EQ(QLM_GetChannelMap(list, material.Bump), nullptr);
    EXPECT_TRUE(manager.GetMaps().empty());
}

TEST_F(MapManager, OneMapForOneFile) {
    const TestFolder folder;
    QLM_CreateDirectory(folder.path + "Other");
    std::string error;
    QLM_ImageMap picture;
    SetPixels(picture, 1, 1, 3, {1, 2, 3});
    for (const char* name : {"skin.png", "Other/skin.png", "50%.png"})
        ASSERT_TRUE(picture.SaveToFile(folder.path + name, error)) << error;

    QLM_MaterialMapSource* map = manager.LoadMapFromFile(folder.path + "skin.png", error);
    ASSERT_NE(map, nullptr) << error;
    EXPECT_STREQ(map->GetName(), "skin.png");
    EXPECT_EQ(map->GetMapFileName().find('/'), std::string::npos);
    EXPECT_EQ(manager.LoadMapFromFile(folder.path + "Other/../skin.png", error), map);
    EXPECT_EQ(manager.LoadMapFromFile(map->GetMapFileName(), error), map) << "back slashes reach the file too";
    EXPECT_EQ(manager.LoadMapFromFile(folder.path + "SKIN.PNG", error), map) << "found without regard to case";

    QLM_MaterialMapSource* other = manager.LoadMapFromFile(folder.path + "Other/skin.png", error);
    ASSERT_NE(other, nullptr) << error;
    EXPECT_STREQ(other->GetName(), "skin (1).png");
    EXPECT_EQ(manager.FindMap("skin (1).png"), other);
    EXPECT_EQ(manager.FindMap("skin.png", 2), nullptr);
    QLM_MaterialMapSource* odd = manager.LoadMapFromFile(folder.path + "50%.png", error);
    ASSERT_NE(odd, nullptr) << error;
    EXPECT_STREQ(odd->GetName(), "50_.png");
    EXPECT_EQ(manager.LoadMapFromFile(folder.path + "50%.png", error), odd);

    EXPECT_EQ(manager.LoadMapFromFile(folder.path + "none.png", error), nullptr);
    EXPECT_NE(error.find("none.png"), std::string::npos);
    EXPECT_EQ(manager.GetMaps().size(), 3u);
    EXPECT_TRUE(manager.ExportImageMap(map, folder.path + "out.tif", error)) << error;
    EXPECT_TRUE(QLM_FileExists(folder.path + "out.tif"));
    EXPECT_FALSE(manager.ExportImageMap(map, folder.path + "no folder/out.png", error));
}

TEST_F(MapManager, SweepsWhatWasNotUsed) {
    QLM_MaterialMapSource *used = manager.CreateMapSource(), *idle = manager.CreateMapSource();
    for (QLM_MaterialMapSource* map : {used, idle}) {
        SetPixels(*map, 8, 8, 3, MixedSamples(192));
        SetPixels(map->Mask, 8, 8, 1, MixedSamples(64, 2));
    }
    for (QLM_MaterialMapSource* map : {used, idle}) map->GetPixels(), map->GetMaskPixels();
    manager.SweepMaps();
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 0u) << "used since the last idle pass";
    manager.ClearRecentlyUsed();
    used->GetPixels();
    manager.SweepMaps();
    EXPECT_EQ(QLM_VirtualMemory_StoredBytes(), 256u);
    EXPECT_EQ(PixelsOf(*idle), MixedSamples(192));
    EXPECT_EQ(PixelsOf(idle->Mask), MixedSamples(64, 2));
}

class MaterialSets : public MapTest {
  protected:
    /// Materials "m1" to "m<count>".
    QLM_List<QLM_Material*> Materials(int count) {
        QLM_List<QLM_Material*> list;
        for (int i = 1; i <= count; ++i) {
            owned.push_back(std::make_unique<QLM_Material>());
            owned.back()->SetNameText("m" + std::to_string(i));
            list.Add(owned.back().get());
        }
        return list;
    }
    /// A set of one subset that names "m<from>" to "m<to>".
    void Put(const std::string& name, int from, int to) {
        std::string text = "materialSet\tx\n{\n\tmaterialSubset\t" + name + "\n\t{\n";
        for (int i = from; i <= to; ++i) text += "\t\tmaterial\tm" + std::to_string(i) + "\n";
        std::ofstream(folder.path + name + ".qlmMaterialSet") << text << "\t}\n}\n";
    }
    std::vector<std::unique_ptr<QLM_Material>> owned;
    const TestFolder folder;
    QLM_MaterialSets sets;
    QLM_UserAsset object;
};

TEST_F(MaterialSets, TheBestOneAppliesByItsRating) {
    QLM_OS& os = QLM_OS::Get();
    QLM_List<QLM_Material*> materials = Materials(100);
    Put("a90", 1, 90);
    Put("b90", 11, 100);
    sets.LoadFolder(folder.path);
    double rating = 0;
    EXPECT_STREQ(sets.FindBest(materials, rating)->GetName(), "a90.qlmMaterialSet") << "ties keep the earlier";
    EXPECT_EQ(rating, 0.9);
    os.recorded.clear();
    EXPECT_FALSE(sets.ApplyBest(object, materials)) << "0.9 is not above 0.9";
    EXPECT_TRUE(os.recorded.empty()) << "and asks nothing";

    std::string error;
    Put("c95", 1, 95);
    ASSERT_NE(sets.LoadFile(folder.path + "c95.qlmMaterialSet", error), nullptr) << error;
    os.queuedAnswers = {"no", "yes"};
    EXPECT_FALSE(sets.ApplyBest(object, materials));
    EXPECT_FALSE(object.GetBool("MATERIAL_SET_LOADED"));
    EXPECT_TRUE(sets.ApplyBest(object, materials));
    EXPECT_TRUE(os.queuedAnswers.empty()) << "asked both times";
    EXPECT_TRUE(object.GetBool("MATERIAL_SET_LOADED"));
    EXPECT_EQ(materials[94]->GetString("MATERIAL_SUBSET_NAME"), "c95");
    EXPECT_EQ(materials[95]->GetString("MATERIAL_SUBSET_NAME"), "");

    // 99 of 100 still asks; all of them doesn't. Subsets of one set count together.
    Put("d99", 1, 99);
    ASSERT_NE(sets.LoadFile(folder.path + "d99.qlmMaterialSet", error), nullptr) << error;
    os.queuedAnswers = {"no"};
    EXPECT_FALSE(sets.ApplyBest(object, materials));
    EXPECT_TRUE(os.queuedAnswers.empty());
    auto* whole = new QLM_MaterialSet;
    for (int part = 0; part < 2; ++part) {
        whole->subsets.Add(new QLM_MaterialSubset);
        whole->subsets.back()->SetNameText(part ? "legs" : "arms");
        for (int i = part * 50; i < part * 50 + 50; ++i)
            whole->subsets.back()->materials.emplace(materials[size_t(i)]->GetName(), materials[size_t(i)]->GetName());
    }
    sets.AddItem(whole);
    os.unansweredQuestions = 0;
    EXPECT_TRUE(sets.ApplyBest(object, materials));
    EXPECT_EQ(os.unansweredQuestions, 0);
    EXPECT_EQ(materials[0]->GetString("MATERIAL_SUBSET_NAME"), "arms");
    EXPECT_EQ(materials[99]->GetString("MATERIAL_SUBSET_NAME"), "legs");
    EXPECT_FALSE(sets.ApplyBest(object, {})) << "an object without materials";
}

TEST_F(MaterialSets, FilesComeBackAndDamagedOnesAreTold) {
    std::string error;
    for (const auto& entry : std::filesystem::directory_iterator(QLM_SOURCE_DIR "/tests/fuzz/corpus/materialset")) {
        const QLM_MaterialSet* set = sets.LoadFile(entry.path(), error);
        ASSERT_NE(set, nullptr) << error;
        Stream stream;
        const_cast<QLM_MaterialSet*>(set)->SaveToStream_Text(stream.file);
        std::ofstream(folder.path + "copy.qlmMaterialSet") << stream.Text();
        const QLM_MaterialSet* copy = sets.LoadFile(folder.path + "copy.qlmMaterialSet", error);
        ASSERT_NE(copy, nullptr) << error;
        ASSERT_EQ(copy->subsets.Count(), set->subsets.Count());
        for (int i = 0; i < set->subsets.Count(); ++i) {
            EXPECT_STREQ(copy->subsets[size_t(i)]->GetName(), set->subsets[size_t(i)]->GetName());
            EXPECT_EQ(copy->subsets[size_t(i)]->materials, set->subsets[size_t(i)]->materials);
        }
    }
    const QLM_MaterialSet* basic =
        sets.LoadFile(QLM_SOURCE_DIR "/tests/fuzz/corpus/materialset/basic.qlmMaterialSet", error);
    EXPECT_STREQ(basic->FindSubset("a_b")->GetName(), "body") << "names as materials bear them";
    EXPECT_EQ(basic->FindSubset("Teeth"), nullptr);

    std::ofstream(folder.path + "none.qlmMaterialSet") << "something else\n";
    std::ofstream(folder.path + "other.txt") << "materialSet\n{\n}\n";
    QLM_MaterialSets library;
    QLM_OS::Get().recorded.clear();
    library.LoadFolder(folder.path);
    EXPECT_EQ(library.items.Count(), 1) << "the copy alone";
    ASSERT_EQ(QLM_OS::Get().recorded.size(), 1u);
    EXPECT_NE(QLM_OS::Get().recorded[0].text.find("none.qlmMaterialSet"), std::string::npos);
    library.LoadFolder(folder.path + "no such folder/");
}

TEST_F(Materials, BindingsKeepTheirIdentityAlone) {
    QLM_MaterialMapBinding binding;
    Stream stream;
    ASSERT_TRUE(binding.SaveToStream_Text(stream.file));
    EXPECT_EQ(stream.Text(), "ID\t" + std::to_string(binding.GetID()) + "\n");
    Stream record("{\ndummy\t5\nID\t70123\n}\n");
    QLM_MaterialMapBinding read;
    EXPECT_TRUE(read.LoadFromStream_Text(record.file, 0));
    EXPECT_EQ(read.recordID, 70123u);
    EXPECT_NE(read.GetID(), 70123u);

    QLM_MaterialMapList list;
    list.Add(new QLM_MaterialMapBinding);
    QLM_Material material;
    material.Bump->MapBindingID = list[0]->GetID();
    EXPECT_EQ(list.FindByChannel(material, "Bump"), list[0]);
    EXPECT_EQ(list.FindByChannel(material, "Color"), nullptr);
    EXPECT_EQ(list.FindByChannel(material, "No such"), nullptr);
}

} // namespace
