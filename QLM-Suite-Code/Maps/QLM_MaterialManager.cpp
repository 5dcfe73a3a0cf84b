#include "Maps/QLM_MaterialManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_UndoManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <algorithm>
#include <vector>

namespace {

constexpr const char* EmptyClipboard = "__QLM_EMPTY__";
constexpr float SelectedAbove = 0.299f;
constexpr int TexturedDisplayMode = 3;

QLM_MapManager& Maps() { return *QLM_GetManagers().GetMapManager(); }

/// Calls body(object, mesh) for every object that has a mesh.
template <class Body> void ForEachMesh(Body body) {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    if (!objects) return;
    for (QLM_Object* object : objects->GetObjects(false))
        if (QLM_Mesh* mesh = object->GetMesh()) body(*object, *mesh);
}

/// The object that a material belongs to, null for none.
QLM_Object* ObjectOf(const QLM_Material* material) {
    QLM_Object* found = nullptr;
    ForEachMesh([&](QLM_Object& object, QLM_Mesh& mesh) {
        const auto& materials = mesh.GetMaterials();
        if (std::find(materials.begin(), materials.end(), material) != materials.end()) found = &object;
    });
    return found;
}

bool IsPolygonSelected(const QLM_Mesh& mesh, int p) {
    const QLM_Polygon& polygon = mesh.GetPolygon(p);
    for (int i = 0; i < polygon.count; ++i)
        if (!(mesh.GetVertexWeight(polygon.corners[i].vertex) > SelectedAbove)) return false;
    return polygon.count > 0;
}

void GiveSelectedPolygons(QLM_Mesh& mesh, int material) {
    for (int p = 0; mesh.HasSelection() && p < mesh.GetPCount(); ++p)
        if (IsPolygonSelected(mesh, p)) mesh.SetPolygonMaterial(p, material);
}

/// Opens an undo record, when nothing reads materials, their polygons and maps any more.
void BeforeChange(QLM_BaseClass* item, QLM_UndoKind kind, const char* text) {
    QLM_MapManager::BeforeMapsChange();
    Maps().GetBufferWorkhorse()->Synchronize();
    if (QLM_UndoManager* undo = QLM_GetManagers().GetUndoManager()) undo->AddUndoNode(item, kind, text);
}

/// Brings everything up to date that follows from materials and their maps.
void AfterChange() {
    ForEachMesh([](QLM_Object&, QLM_Mesh& mesh) {
        for (QLM_MaterialMapBinding* binding : mesh.GetMapList()) {
            const std::vector<int32_t> before = std::move(binding->polygons);
            mesh.UpdateMapPolygonList(binding);
            if (binding->polygons != before) QLM_MapManager::StartOverdrawCheck(binding->GetSource());
        }
    });
    QLM_InvalidateDisplayLists();
    if (QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager()) viewports->OnAllViewportsChanged();
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

/// Takes the marked materials out of a mesh and deletes them; their number.
int DeleteMarked(QLM_Mesh& mesh) {
    QLM_List<QLM_Material*> kept, doomed;
    std::vector<int> newIndex;
    for (QLM_Material* material : mesh.GetMaterials()) {
        newIndex.push_back(material->IsMarked() ? 0 : kept.Count());
        (material->IsMarked() ? doomed : kept).Add(material);
    }
    if (doomed.empty()) return 0;
    if (kept.empty()) {
        kept.Add(new QLM_Material);
        kept.back()->SetNameText("default");
        QLM_OS::Get().PrintMessageText("A default material has been created since at least one is required.");
    }
    for (int p = 0; p < mesh.GetPCount(); ++p)
        if (const auto material = static_cast<size_t>(mesh.GetPolygonMaterial(p)); material < newIndex.size())
            mesh.SetPolygonMaterial(p, newIndex[material]);
    mesh.SetMaterials(kept);
    mesh.CurrentMaterialIndex = 0;
    for (QLM_Material* material : doomed) delete material;
    return doomed.Count();
}

} // namespace

QLM_MaterialManager::QLM_MaterialManager() : clipboard(new QLM_Material) { clipboard->SetNameText(EmptyClipboard); }

QLM_MaterialManager::~QLM_MaterialManager() = default;

void QLM_MaterialManager::Clear() {
    // The maps of the copy go with the project.
    clipboard.Reset(new QLM_Material);
    clipboard->SetNameText(EmptyClipboard);
    clipboardMaps.clear();
}

QLM_List<QLM_Material*> QLM_MaterialManager::GetSelectedMaterials() {
    QLM_List<QLM_Material*> selected;
    ForEachMesh([&](QLM_Object&, QLM_Mesh& mesh) {
        for (QLM_Material* material : mesh.GetMaterials())
            if (material->IsMarked()) selected.Add(material);
    });
    return selected;
}

void QLM_MaterialManager::SelectMaterial(QLM_Material* chosen) {
    ForEachMesh([&](QLM_Object&, QLM_Mesh& mesh) {
        for (QLM_Material* material : mesh.GetMaterials()) material->SetMarked(material == chosen);
    });
}

// Materials and polygons.

QLM_Material* QLM_MaterialManager::CreateNewMaterial() {
    QLM_TRACE(1);
    QLM_Object* object = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (!mesh || mesh->GetMaterialCount() >= QLM_Polygon::None) {
        QLM_OS::Get().PrintMessageText(mesh ? "The object has as many materials as an object can have."
                                            : "There is no object that could take a material.");
        return nullptr;
    }
    BeforeChange(mesh, QLM_UndoKind::MaterialState, "Create New Material");
    std::vector<std::string> taken;
    for (const QLM_Material* known : mesh->GetMaterials()) taken.push_back(known->GetName());
    auto* material = new QLM_Material;
    material->SetNameText(QLM_MakeUniqueName(taken, "New Material"));
    GiveSelectedPolygons(*mesh, mesh->AddMaterial(material));
    AfterChange();
    return material;
}

void QLM_MaterialManager::AssignMaterialToPolygons() {
    QLM_TRACE(1);
    const QLM_List<QLM_Material*> selected = GetSelectedMaterials();
    if (selected.empty()) {
        QLM_OS::Get().PrintMessageText("Please highlight a material in the manager");
        return;
    }
    QLM_Mesh& mesh = *ObjectOf(selected[0])->GetMesh();
    BeforeChange(&mesh, QLM_UndoKind::PolygonMaterials, "Assign Material to Polygons");
    GiveSelectedPolygons(mesh, selected[0]->MaterialIndex);
    AfterChange();
}

void QLM_MaterialManager::DeleteMaterials() {
    QLM_TRACE(1);
    if (GetSelectedMaterials().empty()) {
        QLM_OS::Get().PrintMessageText("Please highlight at least one material in the Manager.");
        return;
    }
    int count = 0;
    ForEachMesh([&](QLM_Object&, QLM_Mesh& mesh) {
        const auto& materials = mesh.GetMaterials();
        if (std::none_of(materials.begin(), materials.end(), [](const QLM_Material* m) { return m->IsMarked(); }))
            return;
        BeforeChange(&mesh, QLM_UndoKind::MaterialState, "Delete Material(s)");
        count += DeleteMarked(mesh);
    });
    QLM_OS::Get().PrintMessage("Deleted %d material(s)", count);
    AfterChange();
}

// The clipboard.

void QLM_MaterialManager::CopyMaterial() {
    const QLM_List<QLM_Material*> selected = GetSelectedMaterials();
    if (selected.empty()) {
        QLM_OS::Get().PrintMessageText("Please highlight a material in the manager");
        return;
    }
    const QLM_Material& material = *selected[0];
    clipboard.Reset(new QLM_Material);
    clipboard->CopyFrom(material);
    clipboard->SetNameText(material.GetName());
    // Bindings count in their own object; what can be carried elsewhere is the source.
    clipboardMaps.clear();
    const QLM_MaterialMapList& list = ObjectOf(&material)->GetMesh()->GetMapList();
    for (const QLM_MaterialChannel* channel : material.channels)
        if (const QLM_MaterialMapSource* map = QLM_GetChannelMap(list, channel))
            clipboardMaps[channel->GetName()] = map->GetID();
    QLM_OS::Get().PrintMessage("Copied the material \"%s\"", material.GetName());
}

void QLM_MaterialManager::PasteMaterial() {
    QLM_TRACE(1);
    if (clipboard->GetName() == std::string(EmptyClipboard)) {
        QLM_OS::Get().PrintMessageText("There is no material in the clipboard to paste.");
        return;
    }
    const QLM_List<QLM_Material*> selected = GetSelectedMaterials();
    if (!selected.empty()) BeforeChange(selected[0], QLM_UndoKind::MaterialState, "Paste Material");
    for (QLM_Material* material : selected) {
        material->CopyFrom(*clipboard);
        QLM_MaterialMapList& list = ObjectOf(material)->GetMesh()->GetMapList();
        for (QLM_MaterialChannel* channel : material->channels) {
            if (!static_cast<QLM_MaterialChannel*>(clipboard->FindChannel(channel->GetName()))) continue;
            const auto source = clipboardMaps.find(channel->GetName());
            auto* map = source == clipboardMaps.end() ? nullptr : QLM_FindByID<QLM_MaterialMapSource>(source->second);
            channel->MapBindingID = map ? Maps().GetBinding(&list, map, true)->GetID() : 0;
        }
    }
    QLM_OS::Get().PrintMessage("Pasted the clipboard material into %d material(s)", selected.Count());
    if (!selected.empty()) AfterChange();
}

// Maps of channels.

void QLM_MaterialManager::FindMapGroup(QLM_Material* material, const std::string& channel, MapGroupInfo& group) {
    group.channel = channel;
    const std::string subset = material->GetString(QLM_MaterialSubsetKey);
    group.materials.clear();
    group.SetNameText(subset.empty() ? material->GetName() : subset);
    if (const QLM_Object* object = subset.empty() ? nullptr : ObjectOf(material)) {
        for (QLM_Material* other : object->GetMesh()->GetMaterials())
            if (other->GetString(QLM_MaterialSubsetKey) == subset) group.materials.Add(other);
    } else {
        group.materials.Add(material);
    }
}

void QLM_MaterialManager::AssignMap(const MapGroupInfo& group, QLM_MaterialMapSource* map) {
    QLM_TRACE(1);
    if (group.materials.empty()) return;
    BeforeChange(group.materials[0], QLM_UndoKind::MapAssignments, QLM_GetString(819));
    for (QLM_Material* material : group.materials) {
        QLM_Object* object = ObjectOf(material);
        if (!object) continue;
        QLM_MaterialChannel* channel = material->FindChannel(group.channel);
        if (!channel) channel = material->AddChannel(group.channel);
        Maps().AssignMapToMaterialChannel(&object->GetMesh()->GetMapList(), channel, map);
    }
    AfterChange();
}

QLM_MaterialMapSource* QLM_MaterialManager::CreateMap(const MapGroupInfo& group) {
    QLM_MaterialMapSource* map = Maps().CreateMapSource();
    if (*group.GetName()) Maps().RenameMap(map, std::string(group.GetName()) + ".PNG");
    map->Initialize(static_cast<uint32_t>(std::clamp(group.width, 1, static_cast<int>(map->MaximumSide))),
                    static_cast<uint32_t>(std::clamp(group.height, 1, static_cast<int>(map->MaximumSide))),
                    map->DefaultColor);
    AssignMap(group, map);
    return map;
}

void QLM_MaterialManager::RemoveMap(const MapGroupInfo& group) {
    if (group.materials.empty()) return;
    BeforeChange(group.materials[0], QLM_UndoKind::MapAssignments, QLM_GetString(819));
    for (QLM_Material* material : group.materials)
        if (QLM_MaterialChannel* channel = material->FindChannel(group.channel)) {
            channel->MapBindingID = 0;
            channel->mapFileName.clear();
        }
    AfterChange();
}

void QLM_MaterialManager::DropMap(QLM_MaterialMapSource* map, QLM_Material* material) {
    const QLM_Viewport* viewport = QLM_GetManagers().GetViewportManager()->GetCurrentViewport();
    const QLM_Object* object = material ? ObjectOf(material) : nullptr;
    if (!object) {
        QLM_OS::Get().PrintMessageText("No material was found at this location");
        return;
    }
    if (viewport->DisplayMode != TexturedDisplayMode) {
        QLM_OS::Get().PrintMessageText(
            "Please choose a texture channel (color, bump, etc.) from the \"Viewports - Display Mode...\" menu.");
        return;
    }
    MapGroupInfo group;
    FindMapGroup(material, viewport->MaterialChannelName, group);
    if (QLM_OS::Get().AskYesNo("Would you like to apply the map to the whole object \"%s\"? Click \"No\" to apply it "
                               "only to the material \"%s\"?",
                               object->GetName(), material->GetName())) {
        group.materials.clear();
        for (QLM_Material* other : object->GetMesh()->GetMaterials()) group.materials.Add(other);
    }
    AssignMap(group, map);
}

bool QLM_MaterialManager::ApplyMaterialSets(QLM_Object* object) {
    const QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    return mesh && Maps().GetMaterialSets().ApplyBest(*object, mesh->GetMaterials());
}
