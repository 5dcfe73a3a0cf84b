// The user's operations on image maps.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_UndoManager.h"
#include "Images/QLM_ForRows.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_ViewportManager.h"

#include <mutex>

namespace {

void ShowMaps() {
    QLM_Engine* engine = QLM_GetEngine();
    if (!engine) return;
    engine->SetProjectChanged();
    QLM_PostEvent(QLM_Event_AllViewportsChanged);
}

/// False, and the user is told, for a layer that takes no change.
bool MayChange(const QLM_MapLayer* layer, std::string& error) {
    if (!layer || (!layer->IsHidden() && !layer->IsLocked())) return true;
    error = QLM_FormatText("The image map layer '%s' is %s", layer->GetName(), layer->IsHidden() ? "hidden" : "locked");
    return false;
}

/// The map that an edit of the current layer changes; null where it holds nothing for that layer. What a map without
/// members holds is the base layer's.
QLM_MaterialMapSource* MapOfCurrentLayer(QLM_MapLayerGroup& layers, QLM_MaterialMapSource& map, bool createMember) {
    QLM_MapLayer* layer = layers.GetCurrentLayer();
    if (!map.HasLayerData() && layer && layer == layers.GetBaseLayer()) return &map;
    return map.GetLayerData(layer, createMember);
}

/// Calls body(first sample, end) for stretches of the map's samples, on all threads.
template <class Body> void ForSamples(QLM_MaterialMapSource& map, Body body) {
    uint8_t* block = map.GetPixels();
    if (!block) return;
    const size_t rowBytes = static_cast<size_t>(map.GetWidth()) * 3;
    QLM_ForRows(map.GetWidth(), map.GetHeight(),
                [&](uint32_t first, uint32_t end) { body(block + first * rowBytes, block + end * rowBytes); });
}

void ConvertToGrey(QLM_MaterialMapSource& map) {
    ForSamples(map, [](uint8_t* pixel, const uint8_t* end) {
        for (; pixel < end; pixel += 3) memset(pixel, (pixel[0] + pixel[1] + pixel[2]) / 3, 3);
    });
}

void Normalize(QLM_MaterialMapSource& map) {
    uint8_t lowest = 255, highest = 0;
    std::mutex mutex;
    ForSamples(map, [&](const uint8_t* sample, const uint8_t* end) {
        const auto [low, high] = std::minmax_element(sample, end);
        const std::lock_guard guard(mutex);
        lowest = std::min(lowest, *low);
        highest = std::max(highest, *high);
    });
    if (lowest >= highest) return;
    uint8_t stretched[256] = {};
    for (int i = lowest; i <= highest; ++i)
        stretched[i] = static_cast<uint8_t>((i - lowest) * 255 / (highest - lowest));
    ForSamples(map, [&](uint8_t* sample, const uint8_t* end) {
        for (; sample < end; ++sample) *sample = stretched[*sample];
    });
}

} // namespace

void QLM_MapManager::BeforeMapsChange() {
    QLM_Engine* engine = QLM_GetEngine();
    QLM_ViewportManager* viewports = engine && engine->managers ? engine->managers->GetViewportManager() : nullptr;
    if (viewports) viewports->AbortRender();
}

void QLM_MapManager::OpenUndo(QLM_MaterialMapSource* map) {
    const QLM_Engine* engine = QLM_GetEngine();
    QLM_UndoManager* undo = engine && engine->managers ? engine->managers->GetUndoManager() : nullptr;
    if (undo) undo->AddUndoNode(map, QLM_UndoKind::WholeMap, "Image Map");
}

bool QLM_MapManager::EditImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, bool createMember, std::string& error,
                                   const std::function<void(QLM_MaterialMapSource&)>& edit) {
    for (QLM_MaterialMapSource* map : maps) QLM_CheckItem(map, "QLM_MapManager::EditImageMaps");
    if (!MayChange(GetCurrentMapLayer(), error)) return false;
    BeforeMapsChange();
    for (QLM_MaterialMapSource* map : maps) {
        QLM_MaterialMapSource* target = MapOfCurrentLayer(*layerTree, *map, createMember);
        if (!target || !target->HasPixels()) continue;
        OpenUndo(target);
        ThreadLockerScope scope(&target->GetLock());
        edit(*target);
        target->OnWholeMapChanged();
    }
    ShowMaps();
    return true;
}

bool QLM_MapManager::ClearImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, bool opaque, std::string& error) {
    const QLM_Engine* engine = QLM_GetEngine();
    const float black[3] = {};
    const float* color = engine ? engine->backgroundColor : black;
    return EditImageMaps(maps, opaque, error, [&](QLM_MaterialMapSource& target) {
        if (target.HasMaskSameSize()) target.Mask.ClearToByte(opaque ? 255 : 0);
        target.ClearToColor(color, 3);
    });
}

bool QLM_MapManager::InvertImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error) {
    return EditImageMaps(maps, false, error, [](QLM_MaterialMapSource& target) { target.Invert(); });
}

bool QLM_MapManager::ConvertImageMapsToGreyscale(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error) {
    return EditImageMaps(maps, false, error, ConvertToGrey);
}

bool QLM_MapManager::NormalizeImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error) {
    return EditImageMaps(maps, false, error, Normalize);
}

bool QLM_MapManager::DeleteImageMaps(QLM_List<QLM_MaterialMapSource*>& maps) {
    if (maps.empty() ||
        !QLM_OS::Get().AskYesNo("Are you sure you want to delete the %d selected items?", int(maps.size())))
        return false;
    BeforeMapsChange();
    DeleteMaps(maps);
    ShowMaps();
    return true;
}

bool QLM_MapManager::ExportImageMap(QLM_MaterialMapSource* map, const std::string& path, std::string& error,
                                    const std::string& maskPath) {
    QLM_TRACE(1);
    QLM_CheckItem(map, "QLM_MapManager::ExportImageMap");
    BeforeMapsChange();
    if (!map->SaveToFile(QLM_NativePath(path), error)) return false;
    if (maskPath.empty()) return true;
    if (map->HasMaskSameSize()) return map->Mask.SaveToFile(QLM_NativePath(maskPath), error);
    QLM_ImageMap opaque;
    opaque.SetDimensions(map->GetWidth(), map->GetHeight(), 1);
    opaque.ClearToByte(255);
    return opaque.SaveToFile(QLM_NativePath(maskPath), error);
}

bool QLM_MapManager::ExportMapFromCurrentLayer(QLM_MaterialMapSource* map, const std::string& path,
                                               std::string& error) {
    QLM_TRACE(1);
    QLM_CheckItem(map, "QLM_MapManager::ExportMapFromCurrentLayer");
    QLM_MaterialMapSource* source = MapOfCurrentLayer(*layerTree, *map, false);
    if (source) return source->SaveToFile(QLM_NativePath(path), error);
    error = QLM_FormatText("The map '%s' holds nothing for the layer '%s'", map->GetName(),
                           GetCurrentMapLayer()->GetName());
    return false;
}

bool QLM_MapManager::ImportMapIntoCurrentLayer(QLM_MaterialMapSource* map, const std::string& path,
                                               std::string& error) {
    QLM_TRACE(1);
    QLM_CheckItem(map, "QLM_MapManager::ImportMapIntoCurrentLayer");
    BeforeMapsChange();
    const std::string nativePath = QLM_ResolveCase(path);
    if (!GetCurrentMapLayer() || !map->HasPixels()) {
        if (!map->LoadFromFileWithAlpha(nativePath, error)) return false;
        map->SetMapFileName(nativePath);
        map->IsDefaultMap = false;
    } else {
        if (!MayChange(GetCurrentMapLayer(), error)) return false;
        // Read it before a member is made for it: a picture that can't be read changes nothing.
        QLM_Owned<QLM_MaterialMapSource> picture(new QLM_MaterialMapSource);
        if (!picture->LoadFromFileWithAlpha(nativePath, error)) return false;
        picture->ResizeWithLayers(map->GetWidth(), map->GetHeight());
        picture->ProvideMask();
        QLM_MaterialMapSource* member = map->GetCurrentLayerData(true);
        OpenUndo(member);
        member->Mask.AssumeOwnershipOfPixelData(picture->Mask);
        member->AssumeOwnershipOfPixelData(*picture);
    }
    ShowMaps();
    return true;
}
