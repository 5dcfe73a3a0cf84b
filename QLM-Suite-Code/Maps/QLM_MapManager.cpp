#include "Maps/QLM_MapManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_OverdrawBufferWorkhorse.h"

#include <filesystem>

namespace {

template <class Tree> Tree* MakeTree(const char* name) {
    auto* tree = new Tree;
    tree->SetNameText(name);
    tree->SetBool("manager/noRename", true);
    return tree;
}

/// One spelling for each file, whatever links and relative parts lead to it.
std::string CanonicalPath(const std::string& nativePath) {
    std::error_code failure;
    const std::filesystem::path canonical = std::filesystem::weakly_canonical(nativePath, failure);
    return failure ? nativePath : canonical.string();
}

/// Channel names by the switches 1 to 7 of the paint target.
constexpr const char* SwitchChannels[] = {"Color",   "Bump",     "Transparency", "Displacement",
                                          "Ambient", "Specular", "Glossy"};

bool IsChannelSwitchedOn(const std::string& channel, const bool switches[8], const std::string& shownChannel) {
    if (switches[0] && channel == shownChannel) return true;
    for (size_t i = 0; i < std::size(SwitchChannels); ++i)
        if (switches[i + 1] && channel == SwitchChannels[i]) return true;
    return false;
}

} // namespace

QLM_MapManager::QLM_MapManager()
    : tree(MakeTree<QLM_TopTreeGroup>("Image Maps")), layerTree(MakeTree<QLM_MapLayerGroup>("Image Map Layers")),
      materialSets(new QLM_MaterialSets) {
    layerTree->SetBool("DISPLAY_REVERSED", true);
    bufferWorkhorse.Reset(new QLM_ImageMapBufferWorkhorse([this](QLM_List<QLM_ImageMap*>& maps) {
        // What strokes write: never a composite.
        const auto add = [&maps](QLM_MaterialMapSource* map) {
            maps.Add(map);
            if (map->HasMaskSameSize()) maps.Add(&map->Mask);
        };
        for (QLM_MaterialMapSource* map : GetMaps()) {
            if (!map->HasLayerData()) add(map);
            for (const QLM_MaterialMapSource::Member& member : map->GetMembers()) add(member.map);
        }
    }));
}

QLM_MapManager::~QLM_MapManager() {
    delete overdrawWorkhorse;
    Clear();
}

void QLM_MapManager::Initialize() {
    QLM_Engine* engine = QLM_GetEngine();
    if (!engine) return;
    for (QLM_TopTreeGroup* group : {tree.Get(), static_cast<QLM_TopTreeGroup*>(layerTree.Get())})
        if (engine->topTreeGroups.IndexOf(group) < 0) engine->topTreeGroups.Add(group);
    materialSets->LoadFolder(
        QLM_FormatText("%sLibrary%cMaterialSets%c", QLM_OS::Get().GetApplicationDirectory() + "Data/", '/', '/'));
}

void QLM_MapManager::Clear() {
    DeleteAllMaps();
    tree->DeleteChildren();
    layerTree->DeleteAllItems();
    layerTree->DeleteChildren();
}

void QLM_MapManager::OnIdle() {
    if (bufferWorkhorse->NeedsRun()) bufferWorkhorse->PerformParallelProcessingStatic();
}

std::string QLM_MapManager::MakeUniqueName(const std::string& name) {
    std::vector<std::string> taken;
    for (QLM_MaterialMapSource* map : GetMaps()) taken.push_back(map->GetName());
    return QLM_MakeUniqueName(taken, name, QLM_ExtensionOf(name));
}

QLM_MaterialMapSource* QLM_MapManager::CreateMapSource() {
    const std::string name = MakeUniqueName("New Map.PNG");
    auto* map = new QLM_MaterialMapSource;
    map->SetNameText(name);
    map->SetLayerGroup(layerTree.Get());
    tree->AddItem(map);
    return map;
}

QLM_MaterialMapSource* QLM_MapManager::FindMapOfFile(const std::string& nativePath) {
    const std::string fileName = QLM_FileNameOf(nativePath), canonical = CanonicalPath(nativePath);
    for (QLM_MaterialMapSource* map : GetMaps()) {
        // Names first: asking the file system for every map would make a long import slow.
        const std::string& other = map->GetMapFileName();
        if (QLM_CompareNoCase(QLM_FileNameOf(other), fileName) != 0) continue;
        if (CanonicalPath(QLM_ResolveCase(other)) == canonical) return map;
    }
    return nullptr;
}

QLM_MaterialMapSource* QLM_MapManager::LoadMapFromFile(const std::string& path, std::string& error) {
    QLM_TRACE(1);
    const std::string nativePath = QLM_ResolveCase(path);
    if (QLM_MaterialMapSource* known = FindMapOfFile(nativePath)) return known;

    QLM_Owned<QLM_MaterialMapSource> map(new QLM_MaterialMapSource);
    if (!map->LoadFromFileWithAlpha(nativePath, error)) return nullptr;
    map->SetMapFileName(nativePath);
    map->IsDefaultMap = false;
    map->SetLayerGroup(layerTree.Get());
    // Names know no separators: make the one that the map bears unique, not the file's.
    map->SetNameText(QLM_FileNameOf(nativePath));
    map->SetNameText(MakeUniqueName(map->GetName()));
    tree->AddItem(map.Get());
    return map.Release();
}

QLM_MaterialMapBinding* QLM_MapManager::GetBinding(QLM_MaterialMapList* list, QLM_MaterialMapSource* map, bool create) {
    QLM_CheckItem(list, "QLM_MapManager::GetBinding");
    QLM_CheckItem(map, "QLM_MapManager::GetBinding");
    QLM_MaterialMapBinding* binding = list->FindBySource(map->GetID());
    if (!binding && create) {
        binding = new QLM_MaterialMapBinding;
        binding->SourceID = map->GetID();
        list->Add(binding);
    }
    return binding;
}

void QLM_MapManager::AssignMapToMaterialChannel(QLM_MaterialMapList* list, QLM_MaterialChannel* channel,
                                                QLM_MaterialMapSource* map) {
    if (!channel) QLM_RaiseError("Channel == NULL in AssignMapToMaterialChannel");
    if (!map) QLM_RaiseError("Map == NULL in AssignMapToMaterialChannel");
    channel->MapBindingID = GetBinding(list, map, true)->GetID();
    channel->mapFileName.clear();
    StartOverdrawCheck(map);
}

void QLM_MapManager::StartOverdrawCheck(QLM_MaterialMapSource* map) { QLM_OverdrawBufferWorkhorse::Request(map); }

bool QLM_MapManager::CanPaintPolygonInChannel(const QLM_MaterialMapList& list, const QLM_Material& material,
                                              uint32_t bindingID, const bool switches[8],
                                              const std::string& shownChannel, std::string* refused) {
    const QLM_MaterialMapBinding* target = list.FindByID(bindingID);
    if (!target) return false;
    bool takesPaint = false;
    for (const QLM_MaterialChannel* channel : material.channels) {
        const QLM_MaterialMapBinding* binding = list.FindByID(channel->MapBindingID);
        if (!binding || binding->SourceID != target->SourceID) continue;
        if (!IsChannelSwitchedOn(channel->GetName(), switches, shownChannel)) continue;
        if (refused && channel->GetName() != shownChannel) *refused = channel->GetName();
        else takesPaint = true;
    }
    return takesPaint;
}

void QLM_MapManager::GetMapListFromObjects_OnVisit(const QLM_MaterialMapList& list,
                                                   const QLM_List<QLM_Material*>& materials,
                                                   QLM_List<QLM_MaterialMapSource*>& maps) {
    for (const QLM_Material* material : materials)
        for (const QLM_MaterialChannel* channel : material->channels)
            if (QLM_MaterialMapSource* map = QLM_GetChannelMap(list, channel); map && maps.IndexOf(map) < 0)
                maps.Add(map);
}

QLM_RootClassQueue<QLM_MaterialMapSource*> QLM_MapManager::GetMaps() {
    return tree->GetItemQueue<QLM_MaterialMapSource>();
}

QLM_MaterialMapSource* QLM_MapManager::FindMap(const std::string& name, int occurrence) {
    for (QLM_MaterialMapSource* map : GetMaps())
        if (name == map->GetName() && --occurrence == 0) return map;
    return nullptr;
}

void QLM_MapManager::RenameMap(QLM_MaterialMapSource* map, const std::string& name) {
    if (name.empty()) return;
    map->SetNameText({}); // its own name is not in the way
    map->SetNameText(MakeUniqueName(QLM_CleanName(name)));
}

void QLM_MapManager::DeleteMaps(QLM_List<QLM_MaterialMapSource*>& maps) {
    if (maps.empty()) return;
    std::set<uint32_t> sourceIDs;
    for (const QLM_MaterialMapSource* map : maps) sourceIDs.insert(map->GetID());

    // Unlink the channels, whichever object they belong to.
    QLM_List<QLM_BaseClass*> assets;
    QLM_FindUserAssets(assets);
    for (QLM_BaseClass* asset : assets) {
        auto* channel = dynamic_cast<QLM_MaterialChannel*>(asset);
        const auto* binding = channel ? QLM_FindByID<QLM_MaterialMapBinding>(channel->MapBindingID) : nullptr;
        if (binding && sourceIDs.count(binding->SourceID)) channel->MapBindingID = 0;
    }
    const QLM_Engine* engine = QLM_GetEngine();
    if (QLM_ObjectManager* objects = engine && engine->managers ? engine->managers->GetObjectManager() : nullptr)
        for (QLM_Object* object : objects->GetObjects(false))
            if (QLM_Mesh* mesh = object->GetMesh()) mesh->GetMapList().DeleteBindings(sourceIDs);
    // The list may name a map twice.
    for (const uint32_t id : sourceIDs) {
        auto* map = QLM_FindByID<QLM_MaterialMapSource>(id);
        tree->RemoveItem(map);
        delete map;
    }
    maps.clear();
    bufferWorkhorse->Synchronize();
}

void QLM_MapManager::DeleteAllMaps() {
    QLM_List<QLM_MaterialMapSource*> maps;
    for (QLM_MaterialMapSource* map : GetMaps()) maps.Add(map);
    DeleteMaps(maps);
}

void QLM_MapManager::SweepMaps() {
    for (QLM_MaterialMapSource* map : GetMaps()) {
        // A composite is shown all the time, while most of its members rest.
        if (map->IsRecentlyUsed()) map->SwapOutIdleMembers();
        else map->SwapOut();
    }
}

void QLM_MapManager::ClearRecentlyUsed() {
    for (QLM_MaterialMapSource* map : GetMaps()) map->ClearRecentlyUsed();
}
