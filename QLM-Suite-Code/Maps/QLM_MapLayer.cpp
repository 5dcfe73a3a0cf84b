#include "Maps/QLM_MapLayer.h"

#include "Core/OS/String_Functions.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rasterizer/QLM_BlendTypes.h"

#include <algorithm>

namespace {

const char* const ExcludeFromSaving = "excludeFromSaving";

/// The numbers stand in project files.
constexpr struct {
    const char *name, *shortName;
} blendTypes[] = {{"Normal", "Norm"},
                  {"Lighten", "Light."},
                  {"Darken", "Dark."},
                  {"Light Only", "Light Only"},
                  {"Dark Only", "Dark Only"},
                  {"Multiply", "Mult."},
                  {"Overlay", "Overlay"},
                  {"Screen", "Screen"},
                  {"Hard Light", "Hard L."},
                  {"Soft Light", "Soft L."},
                  {"Dodge", "Dodge"},
                  {"Burn", "Burn"},
                  {"Exclusion", "Excl."},
                  {"Difference", "Diff."},
                  {"Hue", "Hue"},
                  {"Hue Up", "Hue.Up"},
                  {"Hue Down", "Hue.Dn"},
                  {"Lightness", "Ltness"},
                  {"Saturation", "Sat."},
                  {"Saturation Up", "Sat.Up"},
                  {"Saturation Down", "Sat.Dn"},
                  {"RGB Up", "RGB.Up"},
                  {"RGB Down", "RGB.Dn"},
                  {"Color", "Color"},
                  {"Contrast Up", "Con.Up"},
                  {"Contrast Down", "Con.Down"},
                  {"Natural Contrast Up", "Nt.Con.Up"},
                  {"Natural Contrast Down", "Nt.Con.Down"},
                  {"Highlight", "Highlight"},
                  {"Shade", "Shade"}};
static_assert(std::size(blendTypes) == QLM_BlendTypeCount);

bool IsBlendType(int index) { return index >= 0 && index < QLM_BlendTypeCount; }

} // namespace

QLM_MapLayer::~QLM_MapLayer() {
    for (const uint32_t setID : sets.GetMembers())
        if (auto* map = QLM_FindByID<QLM_MaterialMapSource>(setID)) map->DeleteMember(GetID());
}

int QLM_MapLayer::GetBlendTypeCount() { return QLM_BlendTypeCount; }

void QLM_MapLayer::GetBlendName(int index, std::string& out) {
    out = IsBlendType(index) ? blendTypes[index].name : "undef";
}

void QLM_MapLayer::GetBlendShortName(int index, std::string& out) {
    out = IsBlendType(index) ? blendTypes[index].shortName : "undef";
}

int QLM_MapLayer::FindBlendType(const std::string& name) {
    for (int i = 0; i < QLM_BlendTypeCount; ++i)
        if (QLM_CompareNoCase(name, blendTypes[i].name) == 0 || QLM_CompareNoCase(name, blendTypes[i].shortName) == 0)
            return i;
    return -1;
}

void QLM_MapLayer::OnLayerChanged() {
    for (const uint32_t setID : sets.GetMembers())
        if (auto* map = QLM_FindByID<QLM_MaterialMapSource>(setID)) map->OnLayersChanged();
    if (!QLM_GetEngine()) return;
    QLM_PostEvent(QLM_Event_AllViewportsChanged);
    QLM_PostEvent(QLM_Event_RefreshLayerPages);
}

void QLM_MapLayer::SetBlendType(int32_t index) {
    BlendType = index;
    OnLayerChanged();
}

void QLM_MapLayer::SetOpacity(float opacity) {
    Strength = std::clamp(opacity, MinStrength, MaxStrength);
    OnLayerChanged();
}

bool QLM_MapLayer::IsAtDefaults() const { return !IsHidden() && Strength == 1.0f && BlendType == 0; }

bool QLM_MapLayer::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool(ExcludeFromSaving)) return false;
    const TStartTextFileBlock block("mapLayer", GetName(), stream, writeBlock);
    QLM_BaseClass::SaveToStream_Text(stream);
    SaveLayerDefinition(stream);
    QLM_WriteInt(stream, "BlendType", BlendType);
    QLM_WriteInt(stream, "IsBase", IsBase);
    return true;
}

bool QLM_MapLayer::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("BlendType")) command.ReadInt(BlendType);
    else if (command.Is("IsBase")) command.ReadBool(IsBase);
    else if (!ConsiderLayerDefinition(stream, key, value))
        return QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    return true;
}

// The tree.

QLM_MapLayerGroup::QLM_MapLayerGroup() { topLabel = "mapLayers"; }

QLM_MapLayerGroup& QLM_MapLayerGroup::GetRoot() {
    QLM_TreeNode* root = this;
    while (root->GetParent()) root = root->GetParent();
    return *static_cast<QLM_MapLayerGroup*>(root);
}

QLM_MapLayer* QLM_MapLayerGroup::GetCurrentLayer() {
    if (QLM_MapLayer* current = GetCurrentItem()) return current;
    const std::vector<QLM_MapLayer*> layers = GetLayers();
    return layers.empty() ? nullptr : layers.back();
}

QLM_MapLayer* QLM_MapLayerGroup::GetBaseLayer() {
    const std::vector<QLM_MapLayer*> layers = GetLayers();
    for (QLM_MapLayer* layer : layers)
        if (layer->IsBase) return layer;
    return layers.empty() ? nullptr : layers.front();
}

QLM_MapLayer* QLM_MapLayerGroup::FindLayer(const std::string& name, int occurrence) {
    const std::string kept = QLM_CleanName(name);
    for (QLM_MapLayer* layer : GetLayers())
        if (kept == layer->GetName() && --occurrence == 0) return layer;
    return nullptr;
}

QLM_MapLayer* QLM_MapLayerGroup::AddLayer(const std::string& name) {
    std::vector<std::string> taken;
    for (const QLM_MapLayer* layer : GetLayers()) taken.push_back(layer->GetName());
    // Records tie members to layers by name, and lose the blanks around it.
    const std::string base = QLM_CleanName(QLM_Trim(name));
    auto* layer = new QLM_MapLayer;
    layer->SetNameText(QLM_MakeUniqueName(taken, base.empty() ? "New Layer" : base, ""));
    AddItem(layer);
    return layer;
}

QLM_MapLayerGroup* QLM_MapLayerGroup::FindFolderOf(const QLM_MapLayer* layer) {
    for (const QLM_BaseClass* item : items)
        if (item == layer) return this;
    for (QLM_TreeNode* child = firstChild; child; child = child->next)
        if (QLM_MapLayerGroup* folder = static_cast<QLM_MapLayerGroup*>(child)->FindFolderOf(layer)) return folder;
    return nullptr;
}

void QLM_MapLayerGroup::MoveLayer(QLM_MapLayer* layer, int index) {
    RemoveItem(layer);
    const std::vector<QLM_MapLayer*> others = GetLayers();
    if (index < 0 || static_cast<size_t>(index) >= others.size()) {
        AddItem(layer);
    } else {
        QLM_MapLayer* displaced = others[static_cast<size_t>(index)];
        QLM_List<QLM_BaseClass*>& list = FindFolderOf(displaced)->items;
        list.insert(list.begin() + list.IndexOf(displaced), layer);
        list.cachedIndex = -1;
    }
    layer->OnLayerChanged();
}

bool QLM_MapLayerGroup::CreateChildGroup(FILE* stream, const std::string&, const std::string& value) {
    auto* folder = new QLM_MapLayerGroup;
    folder->SetNameText(value);
    AddChild(folder);
    return folder->LoadFromStream_Text(stream, 0);
}

bool QLM_MapLayerGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                            const std::string& value) {
    TextCommand command(key, value);
    if (!command.Is("mapLayer")) return QLM_TopTreeGroup::LoadFromStream_Text_ConsiderCommand(stream, key, value);

    // A template's layers lie on top of the maps as they are.
    QLM_MapLayerGroup& root = GetRoot();
    const QLM_Engine* engine = QLM_GetEngine();
    if (!root.HasLayers() && engine && engine->GetBool("INPUT_IMPORTING_TEMPLATE"))
        root.AddLayer("Background")->IsBase = true;
    QLM_MapLayer* layer = root.FindLayer(value);
    if (!layer) {
        layer = new QLM_MapLayer;
        layer->SetNameText(value);
        AddItem(layer);
    }
    loadFailed = !layer->LoadFromStream_Text(stream, 0) || loadFailed;
    if (layer->IsCurrent()) root.SetCurrentItem(layer);
    layer->OnLayerChanged();
    return true;
}
