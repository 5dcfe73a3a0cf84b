#include "Geometry/QLM_LayerManager.h"

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
#include "Maps/QLM_MapManager.h"

#include <algorithm>

namespace {
constexpr int backgroundName = 544;
constexpr const char* hiddenLayerName = "Hidden Layer";
constexpr const char* lockedLayerName = "Locked Layer";

QLM_ObjectManager* FindObjects() {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    return QLM_IsItemUsable(objects) ? objects : nullptr;
}

/// Calls `visit(object, mesh)` for every object that has a mesh.
template <class Visit> void ForEachMesh(bool visibleOnly, Visit visit) {
    QLM_ObjectManager* manager = FindObjects();
    if (!manager) return;
    for (auto objects = manager->GetObjects(visibleOnly); !objects.IsEmpty(); objects.Pop())
        if (QLM_Mesh* mesh = objects->GetMesh()) visit(*objects.front(), *mesh);
}

void AddUndo(QLM_BaseClass* item, QLM_UndoKind kind, const char* text) {
    if (QLM_UndoManager* undo = QLM_GetManagers().GetUndoManager()) undo->AddUndoNode(item, kind, text);
}

void SetUpSpecial(QLM_DisplayGroup& group, const char* name, QLM_LayerDefinition::State state) {
    group.SetNameText(name);
    group.SetBool("HIDDEN_FROM_MANAGER", true, QLM_CustomPropertyContainer::Saved);
    group.SetBool("export/Template/doExport", false, QLM_CustomPropertyContainer::Saved);
    group.state = state;
}
} // namespace

// --- The list of groups ---------------------------------------------------------------------------------------------

QLM_LayerManager::QLM_LayerManager() : tree(new QLM_DisplayGroupGroup) {
    tree->SetNameText("Display Groups");
    tree->SetBool("manager/noRename", true);
    AfterClear();
}

QLM_LayerManager::~QLM_LayerManager() = default;

void QLM_LayerManager::Initialize() {
    if (QLM_MapManager* maps = QLM_GetManagers().GetMapManager()) mapLayerTree = maps->GetLayerTree();
}

QLM_MapLayerGroup* QLM_LayerManager::GetMapLayerTree() const { return mapLayerTree; }

void QLM_LayerManager::AfterClear() {
    tree->DeleteAllItems();
    for (int column = 0; column < FirstUserColumn; ++column) AddGroup({}, column);
    FinishLists();
}

void QLM_LayerManager::FinishLists() {
    FindColumn(Background)->SetNameText(QLM_GetString(backgroundName));
    SetUpSpecial(*FindColumn(HiddenLayer), hiddenLayerName, QLM_LayerDefinition::Hidden);
    SetUpSpecial(*FindColumn(LockedLayer), lockedLayerName, QLM_LayerDefinition::Locked);

    QLM_DisplayGroup* current = nullptr;
    for (QLM_DisplayGroup* group : GetGroups()) {
        if (group->IsCurrent()) current = group;
        group->SetCurrentFlag(false);
    }
    tree->SetCurrentItem(current ? current : FindColumn(Background));
}

std::vector<QLM_DisplayGroup*> QLM_LayerManager::GetGroups() {
    std::vector<QLM_DisplayGroup*> groups = tree->GetLayers();
    std::sort(groups.begin(), groups.end(),
              [](const QLM_DisplayGroup* a, const QLM_DisplayGroup* b) { return a->Column < b->Column; });
    return groups;
}

QLM_DisplayGroup* QLM_LayerManager::FindColumn(int column) {
    for (QLM_DisplayGroup* group : GetGroups())
        if (group->Column == column) return group;
    return nullptr;
}

QLM_DisplayGroup* QLM_LayerManager::FindGroup(const std::string& name, int occurrence) {
    for (QLM_DisplayGroup* group : GetGroups())
        if (name == group->GetName() && --occurrence == 0) return group;
    return nullptr;
}

int QLM_LayerManager::GetColumnCount() {
    const std::vector<QLM_DisplayGroup*> groups = GetGroups();
    return groups.empty() ? 0 : groups.back()->Column + 1;
}

QLM_DisplayGroup* QLM_LayerManager::AddGroup(const std::string& name, int column) {
    auto* group = new QLM_DisplayGroup;
    group->SetNameText(name);
    group->Column = column;
    tree->AddItem(group);
    const int columns = GetColumnCount();
    ForEachMesh(false, [&](QLM_Object&, QLM_Mesh& mesh) {
        mesh.BigFlagArray::SetSizes(std::max(mesh.BigFlagArray::GetGroupCount(), columns), mesh.GetPCount());
        // A file may have brought bits of a column that no group had.
        if (column >= FirstUserColumn) mesh.ClearColumn(column);
    });
    return group;
}

QLM_DisplayGroup* QLM_LayerManager::CreateDisplayGroup(const std::string& name) {
    AddUndo(tree.Get(), QLM_UndoKind::DisplayGroupState, "Create display group");
    std::vector<std::string> taken;
    int column = 0;
    for (const QLM_DisplayGroup* group : GetGroups()) {
        taken.push_back(group->GetName());
        column += group->Column == column;
    }
    const std::string base = QLM_CleanName(name.empty() ? "New Display Group" : name);
    QLM_DisplayGroup* group = AddGroup(QLM_MakeUniqueName(taken, base, {}), column);
    tree->SetCurrentItem(group);
    if (QLM_GetEngine()) QLM_PostEvent(QLM_Event_RefreshLayerPages);
    return group;
}

bool QLM_LayerManager::DeleteDisplayGroup(QLM_DisplayGroup* group) {
    if (!group || group->Column < FirstUserColumn) return false;
    AddUndo(tree.Get(), QLM_UndoKind::DisplayGroupState, "Delete display group");
    ForEachMesh(false, [&](QLM_Object&, QLM_Mesh& mesh) { mesh.ClearColumn(group->Column); });
    const bool wasCurrent = tree->GetCurrentItem() == group;
    tree->RemoveItem(group);
    delete group;
    if (wasCurrent) tree->SetCurrentItem(FindColumn(Background));
    RebuildFlags();
    return true;
}

void QLM_LayerManager::DeleteLayers() {
    // A marked folder means all that stands in it.
    QLM_List<QLM_BaseClass*> marked;
    tree->Collect(marked, true, true, true);
    std::vector<uint32_t> doomed;
    const auto add = [&](QLM_BaseClass* item) {
        const auto* group = dynamic_cast<const QLM_DisplayGroup*>(item);
        if (group && group->Column >= FirstUserColumn) doomed.push_back(group->GetID());
    };
    std::vector<QLM_TreeGroup*> folders;
    for (QLM_BaseClass* row : marked) {
        add(row);
        auto* folder = dynamic_cast<QLM_TreeGroup*>(row);
        if (!folder || folder == tree.Get()) continue;
        folders.push_back(folder);
        QLM_List<QLM_BaseClass*> items;
        folder->GetAllItems(items);
        for (QLM_BaseClass* item : items) add(item);
    }
    if (doomed.empty() && folders.empty()) return;
    if (!QLM_OS::Get().AskYesNo("Are you sure that you want to delete the layer(s)? This cannot be undone.")) return;
    for (const uint32_t id : doomed) DeleteDisplayGroup(QLM_FindByID<QLM_DisplayGroup>(id));

    // What is no user's group survives its folder.
    for (QLM_TreeGroup* folder : folders) {
        QLM_List<QLM_BaseClass*> items;
        folder->GetAllItems(items);
        for (QLM_BaseClass* item : items) {
            folder->RemoveItem(item);
            tree->AddItem(item);
        }
    }
    tree->SetMarked(false);
    for (QLM_DisplayGroup* group : GetGroups()) group->SetMarked(false);
    tree->DeleteMarked();
    if (QLM_GetEngine()) QLM_PostEvent(QLM_Event_RefreshLayerPages);
}

QLM_DisplayGroup* QLM_LayerManager::MergeDisplayGroups(const std::vector<QLM_DisplayGroup*>& groups) {
    if (groups.size() < 2) return nullptr;
    for (const QLM_DisplayGroup* group : groups)
        if (!group || group->Column < FirstUserColumn) return nullptr;
    QLM_DisplayGroup* merged = CreateDisplayGroup("Merged Layers");
    merged->state = groups[0]->state;
    merged->Strength = groups[0]->Strength;
    merged->SetColor(groups[0]->Color);
    if (groups[0]->HasRigidEdges()) merged->SetBool("displayGroups/rigidEdges", true, Saved);
    for (QLM_DisplayGroup* group : groups) {
        ForEachMesh(false, [&](QLM_Object&, QLM_Mesh& mesh) { mesh.AddColumn(group->Column, merged->Column); });
        DeleteDisplayGroup(group);
    }
    tree->SetCurrentItem(merged);
    return merged;
}

bool QLM_LayerManager::SetGroupState(QLM_DisplayGroup* group, int state) {
    if (!group || group->Column == HiddenLayer || group->Column == LockedLayer) return false;
    AddUndo(tree.Get(), QLM_UndoKind::DisplayGroupState, "Change display group");
    if (state == QLM_LayerDefinition::Locked) group->Lock();
    else if (state == QLM_LayerDefinition::Hidden) group->Hide();
    else {
        group->Unlock();
        group->Unhide();
    }
    return true;
}

// --- Membership -----------------------------------------------------------------------------------------------------

bool QLM_LayerManager::AssignSelectionToGroup(QLM_DisplayGroup* group, bool on) {
    if (!group || group->Column == Background) return false;
    bool found = false;
    ForEachMesh(true, [&](QLM_Object& object, QLM_Mesh& mesh) {
        const int count = mesh.GetSelectedPolygonCount();
        if (count == 0) return;
        found = true;
        AddUndo(&object, QLM_UndoKind::DisplayGroupMembership, "Assign to display group");
        for (int i = 0; i < count; ++i) mesh.SetFlag(mesh.GetSelectedPolygon(i), group->Column, on);
    });
    if (found) RebuildFlags();
    else QLM_OS::Get().PrintMessage("No polygons have been selected.");
    return found;
}

bool QLM_LayerManager::AssignSelectionToColumn(Column column) { return AssignSelectionToGroup(FindColumn(column)); }

void QLM_LayerManager::ClearColumn(Column column) {
    if (column == Background) return;
    ForEachMesh(false, [&](QLM_Object& object, QLM_Mesh& mesh) {
        AddUndo(&object, QLM_UndoKind::DisplayGroupMembership, "Show or unlock all");
        mesh.ClearColumn(column);
    });
    RebuildFlags();
}

bool QLM_LayerManager::GetFlag(const QLM_DisplayGroup* group, const QLM_Mesh* mesh, int polygon) const {
    if (group->Column == Background) return true;
    return group->Column > 0 && group->Column < mesh->BigFlagArray::GetGroupCount() &&
           mesh->BigFlagArray::GetFlag(polygon, group->Column);
}

long long QLM_LayerManager::GetPolygonCount(const QLM_DisplayGroup* group) {
    long long count = 0;
    ForEachMesh(false, [&](QLM_Object&, QLM_Mesh& mesh) {
        for (int p = 0; p < mesh.GetPCount(); ++p) count += GetFlag(group, &mesh, p);
    });
    return count;
}

void QLM_LayerManager::RebuildFlags() {
    QLM_TRACE(1);
    if (QLM_ObjectManager* objects = FindObjects()) {
        objects->UpdateHiddenFlags();
        objects->UpdateLockedFlags();
    }
    if (QLM_GetEngine()) QLM_PostEvent(QLM_Event_RefreshLayerPages);
}
