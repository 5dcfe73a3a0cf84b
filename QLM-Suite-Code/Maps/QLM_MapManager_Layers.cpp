// The manager's operations on map layers.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"

namespace {

void ShowLayers() {
    QLM_Engine* engine = QLM_GetEngine();
    if (!engine) return;
    engine->SetProjectChanged();
    QLM_PostEvent(QLM_Event_AllViewportsChanged);
    QLM_PostEvent(QLM_Event_RefreshLayerPages);
}

} // namespace

void QLM_MapManager::SetCurrentMapLayer(QLM_MapLayer* layer) {
    layerTree->SetCurrentItem(layer);
    if (QLM_GetEngine()) QLM_PostEvent(QLM_Event_RefreshLayerPages);
}

QLM_MapLayer* QLM_MapManager::CreateMapLayer(const std::string& name) {
    if (!layerTree->HasLayers()) layerTree->AddLayer("Background")->IsBase = true;
    QLM_MapLayer* layer = layerTree->AddLayer(name);
    layerTree->SetCurrentItem(layer);
    ShowLayers();
    return layer;
}

void QLM_MapManager::DeleteMapLayer(QLM_MapLayer* layer) {
    QLM_CheckItem(layer, "QLM_MapManager::DeleteMapLayer");
    BeforeMapsChange();
    // Maps keep what their last member holds, whether it was shown or not.
    if (layer->IsHidden()) layer->Unhide();
    for (QLM_MaterialMapSource* map : GetMaps()) map->DropMember(layer->GetID());

    // The layer below becomes current, at the bottom the one above.
    if (layerTree->GetCurrentLayer() == layer) {
        const std::vector<QLM_MapLayer*> layers = layerTree->GetLayers();
        const auto at = std::find(layers.begin(), layers.end(), layer);
        QLM_MapLayer* next = nullptr;
        if (at != layers.begin()) next = *(at - 1);
        else if (layers.size() > 1) next = layers[1];
        layerTree->SetCurrentItem(next);
    }
    layerTree->RemoveItem(layer);
    delete layer;
    ShowLayers();
}

bool QLM_MapManager::MergeVisibleImageLayers(bool ask, std::string& error) {
    QLM_TRACE(1);
    std::vector<QLM_MapLayer*> merging;
    int position = -1, index = 0;
    bool carriesBase = false;
    for (QLM_MapLayer* layer : layerTree->GetLayers()) {
        if (!layer->IsHidden() && !layer->IsLocked()) {
            if (merging.empty()) position = index;
            merging.push_back(layer);
            carriesBase = carriesBase || layer->IsBase;
        }
        ++index;
    }
    if (merging.size() < 2) {
        error = "Merging takes at least two visible layers that are not locked";
        return false;
    }
    if (ask && !QLM_OS::Get().AskYesNo("This action cannot be undone. Are you sure that you want to proceed?")) {
        error = "the layers stay as they are";
        return false;
    }

    BeforeMapsChange();
    QLM_MapLayer* merged = layerTree->AddLayer("Merged Layers");
    layerTree->MoveLayer(merged, position);
    for (QLM_MaterialMapSource* map : GetMaps()) {
        // A map that wasn't shown yet may still lack what a faded base layer makes of it.
        map->ResolveMapLayer(false);
        std::vector<QLM_MaterialMapSource::Member> members;
        for (const QLM_MaterialMapSource::Member& member : map->GetMembers())
            if (std::find(merging.begin(), merging.end(), member.layer) != merging.end()) members.push_back(member);
        if (members.empty()) continue;
        OpenUndo(map);
        // The member exists before the others go, so none of them is the last.
        map->ComposeInto(*map->GetLayerData(merged, true), members);
        for (const QLM_MaterialMapSource::Member& member : members) map->DropMember(member.layer->GetID());
    }
    merged->IsBase = carriesBase;
    for (QLM_MapLayer* layer : merging) {
        layerTree->RemoveItem(layer);
        delete layer;
    }
    layerTree->SetCurrentItem(merged);
    ShowLayers();
    return true;
}
