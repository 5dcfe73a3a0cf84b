#include "Geometry/QLM_MorphManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "Engine/QLM_UndoManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_UtilityManager.h"

#include <algorithm>
#include <map>
#include <set>

namespace {
enum Text {
    DeleteOne = 304, LeftToRight = 540, RightToLeft = 542, ForMorph = 816, BakeQuestion = 950, SpawnedOne = 1057,
    SpawnedMany = 1058, Baked = 1059, DeleteMany = 1062, NothingBaked = 1243, ClearQuestion = 1326
};
constexpr const char* noUndoMessage = "NO_UNDO_MESSAGE";
constexpr const char* nameQuestion = "Please enter the name of the morph";

/// All objects that have a mesh.
std::vector<QLM_Object*> GetMeshObjects() {
    std::vector<QLM_Object*> found;
    if (QLM_ObjectManager* manager = QLM_GetManagers().GetObjectManager())
        for (auto objects = manager->GetObjects(false); !objects.IsEmpty(); objects.Pop())
            if (objects->GetMesh()) found.push_back(objects);
    return found;
}

/// The marked ones of them, all when none is marked.
std::vector<QLM_Object*> GetSelectedObjects() {
    std::vector<QLM_Object*> all = GetMeshObjects(), selected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(selected), [](QLM_Object* o) { return o->IsMarked(); });
    return selected.empty() ? all : selected;
}

void RefreshShape(QLM_Object* object) {
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(object, true, true, true);
}

void RefreshAllShapes() {
    for (QLM_Object* object : GetMeshObjects()) RefreshShape(object);
}

void AddUndo(QLM_BaseClass* object, QLM_UndoKind kind, const char* text) {
    if (QLM_UndoManager* undo = QLM_GetManagers().GetUndoManager()) undo->AddUndoNode(object, kind, text);
}

QLM_Mesh* MeshOf(const QLM_Morph* morph) { return QLM_FindByID<QLM_Mesh>(morph->MeshId); }

void SetMorphStrength(QLM_Morph* morph, float strength) {
    if (QLM_Mesh* mesh = MeshOf(morph)) mesh->UpdateMorphForOptimizedDeltas(morph, morph->Strength, strength);
    else morph->Strength = strength;
}

void SetStrength(QLM_MorphUnion* morphUnion, float strength) {
    morphUnion->Strength = strength;
    for (QLM_Morph* member : morphUnion->GetMembers()) SetMorphStrength(member, strength);
}

/// Derives what hangs on the base vertices. The box's middle is the pivot of the object's transform: the position
/// takes up what it moves, so that the shape stays where it is.
void AfterBaseChanged(QLM_Mesh* mesh) {
    float before[3];
    std::copy_n(mesh->GetWorldMatrix() + 12, 3, before);
    mesh->CalculateBounds();
    for (int k = 0; k < 3; ++k) mesh->Transform_Pos[k] += before[k] - mesh->GetWorldMatrix()[12 + k];
    mesh->CalculateBounds();
    mesh->SavedVertexNormals.Free();
}

/// Adds a morph to the base vertices; then its deltas go to zero or its strength does.
void BakeMorph(QLM_Mesh* mesh, QLM_Morph* morph, bool clearDeltas) {
    const QLM_MorphUse use(*mesh, morph, "BakeMorphs");
    const float* deltas = use.GetDeltas();
    const float strength = morph->Strength;
    float* base = mesh->Vertices.GetData();
    QLM_ThreadCrunch(mesh->GetVCount(), [=](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int64_t i = 3LL * range.start; i < 3LL * range.end; ++i) base[i] += strength * deltas[i];
    }, "BakeMorphs_ThreadFunc");
    if (!clearDeltas) morph->Strength = 0.0f;
    else if (mesh->GetVCount() > 0) morph->Clear();
    morph->MarkChanged();
    mesh->InvalidateOptimizedDeltas();
}
} // namespace

QLM_MorphManager::QLM_MorphManager() : tree(new QLM_MorphUnionGroup) { SetName("MorphManager"); }

QLM_MorphManager::~QLM_MorphManager() = default;

void QLM_MorphManager::Clear() {
    tree->SetCurrentItem(nullptr);
    tree->DeleteAllItems();
    tree->ClearChildren();
}

// --- The list -------------------------------------------------------------------------------------------------------

std::vector<QLM_MorphUnion*> QLM_MorphManager::GetMorphUnionList() {
    RebuildUnionList();
    std::vector<QLM_MorphUnion*> unions;
    for (auto items = tree->GetItemQueue<QLM_MorphUnion>(); !items.IsEmpty(); items.Pop()) unions.push_back(items);
    return unions;
}

void QLM_MorphManager::RebuildUnionList() {
    std::map<std::string, QLM_MorphUnion*> byName;
    for (auto items = tree->GetItemQueue<QLM_MorphUnion>(); !items.IsEmpty(); items.Pop())
        byName.emplace(items->GetName(), items);
    for (QLM_Object* object : GetMeshObjects()) {
        QLM_RootClassQueue<QLM_Morph*> morphs;
        for (object->GetMesh()->GetMorphs(morphs); !morphs.IsEmpty(); morphs.Pop()) {
            QLM_MorphUnion*& morphUnion = byName[morphs->GetName()];
            if (!morphUnion) {
                morphUnion = new QLM_MorphUnion;
                morphUnion->SetNameText(morphs->GetName());
                morphUnion->CopyStrengthFrom(*morphs.front());
                tree->AddItem(morphUnion);
            }
            morphUnion->AddMember(morphs);
        }
    }
}

void QLM_MorphManager::FinishAfterLoad() {
    const std::vector<QLM_MorphUnion*> unions = GetMorphUnionList();
    if (GetCurrentUnion() || unions.empty()) return;
    const auto isCalledCurrent = [](QLM_MorphUnion* morphUnion) {
        const std::vector<QLM_Morph*> members = morphUnion->GetMembers();
        return morphUnion->IsCurrent() ||
               std::any_of(members.begin(), members.end(), [](QLM_Morph* member) { return member->IsCurrent(); });
    };
    const auto found = std::find_if(unions.begin(), unions.end(), isCalledCurrent);
    SetCurrentUnion(found == unions.end() ? unions.front() : *found);
}

std::vector<QLM_MorphUnion*> QLM_MorphManager::GetHighlighted() {
    QLM_List<QLM_BaseClass*> marked, folders;
    tree->Collect(marked, false, true, true);
    tree->Collect(folders, true, false, true);
    for (QLM_BaseClass* folder : folders) dynamic_cast<QLM_TreeGroup*>(folder)->GetAllItems(marked);
    const std::set<QLM_BaseClass*> chosen(marked.begin(), marked.end());

    std::vector<QLM_MorphUnion*> highlighted;
    QLM_MorphUnion* current = GetCurrentUnion();
    for (QLM_MorphUnion* morphUnion : GetMorphUnionList())
        if (chosen.empty() ? morphUnion == current : chosen.count(morphUnion) != 0) highlighted.push_back(morphUnion);
    return highlighted;
}

std::vector<std::string> QLM_MorphManager::GetNames() {
    std::vector<std::string> names;
    for (QLM_MorphUnion* morphUnion : GetMorphUnionList()) names.push_back(morphUnion->GetName());
    return names;
}

std::string QLM_MorphManager::MakeUniqueName(const std::string& base) {
    return QLM_UtilityManager::GetUniqueName(GetNames(), QLM_CleanName(base));
}

QLM_MorphUnion* QLM_MorphManager::CreateUnion(const std::string& name) {
    // The current folder is that of the row that was clicked last.
    QLM_TreeGroup* folder = tree.Get();
    const uint32_t anchor = tree->GetAnchor();
    QLM_VisitGroups(tree.Get(), 0, [&](QLM_TreeGroup& group, int) {
        const bool holds = std::any_of(group.items.begin(), group.items.end(),
                                       [&](QLM_BaseClass* item) { return item->GetID() == anchor; });
        if (holds || group.GetID() == anchor) folder = &group;
        return true;
    }, false);
    auto* morphUnion = new QLM_MorphUnion;
    morphUnion->SetNameText(name);
    folder->AddItem(morphUnion);
    return morphUnion;
}

void QLM_MorphManager::SetCurrentUnion(QLM_MorphUnion* morphUnion) {
    tree->SetCurrentItem(morphUnion);
    for (QLM_Object* object : GetMeshObjects()) {
        QLM_Mesh* mesh = object->GetMesh();
        mesh->SetCurrentMorph(morphUnion ? GetMorphForMesh(mesh, morphUnion, false) : nullptr);
    }
    QLM_PostEvent(QLM_Event_RefreshMorphPages);
}

QLM_Morph* QLM_MorphManager::GetMorphForMesh(QLM_Mesh* mesh, QLM_MorphUnion* morphUnion, bool create) {
    if (QLM_Morph* member = morphUnion->FindMember(mesh->GetID())) return member;
    QLM_Morph* morph = mesh->FindMorph(morphUnion->GetName());
    if (!morph && create) {
        morph = mesh->CreateMorph();
        morph->SetNameText(morphUnion->GetName());
        morph->Strength = morphUnion->Strength;
        morph->MinStrength = morphUnion->MinStrength;
        morph->MaxStrength = morphUnion->MaxStrength;
        if (morphUnion == GetCurrentUnion()) mesh->SetCurrentMorph(morph);
    }
    if (morph) morphUnion->AddMember(morph);
    return morph;
}

// --- Operations -----------------------------------------------------------------------------------------------------

QLM_MorphUnion* QLM_MorphManager::CreateNewMorph() {
    const std::string name = QLM_OS::Get().AskLine(nameQuestion, MakeUniqueName("New Morph"));
    return name.empty() ? nullptr : CreateNewMorph(name);
}

QLM_MorphUnion* QLM_MorphManager::CreateNewMorph(const std::string& name) {
    QLM_MorphUnion* morphUnion = CreateUnion(MakeUniqueName(name));
    for (QLM_Object* object : GetMeshObjects()) GetMorphForMesh(object->GetMesh(), morphUnion, true);
    SetCurrentUnion(morphUnion);
    tree->SelectRow(morphUnion->GetID(), false, false);
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    QLM_OS::Get().PrintMessage("Created the morph \"%s\"", morphUnion->GetName());
    return morphUnion;
}

int QLM_MorphManager::DuplicateMorph() {
    const std::vector<QLM_MorphUnion*> sources = GetHighlighted();
    for (QLM_MorphUnion* source : sources) {
        QLM_MorphUnion* copy = CreateUnion(QLM_UtilityManager::GetCopyName(GetNames(), source->GetName()));
        copy->Strength = 0.0f;
        copy->MinStrength = source->MinStrength;
        copy->MaxStrength = source->MaxStrength;
        for (QLM_Morph* member : source->GetMembers()) {
            QLM_Mesh* mesh = MeshOf(member);
            if (!mesh) continue;
            QLM_Morph* morph = GetMorphForMesh(mesh, copy, true);
            const QLM_MorphUse useMember(*mesh, member, "DuplicateMorph"), useMorph(*mesh, morph, "DuplicateMorph");
            morph->CopyFrom(*member);
        }
    }
    if (sources.empty()) return 0;
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    if (sources.size() == 1) QLM_OS::Get().PrintMessage("Duplicated the morph target '%s'", sources[0]->GetName());
    else QLM_OS::Get().PrintMessage("Duplicated %d morphs", static_cast<int>(sources.size()));
    return static_cast<int>(sources.size());
}

QLM_MorphUnion* QLM_MorphManager::SpawnMorph() {
    const std::string name = QLM_OS::Get().AskLine(nameQuestion, MakeUniqueName("New Morph"));
    return name.empty() ? nullptr : SpawnMorph(name);
}

QLM_MorphUnion* QLM_MorphManager::SpawnMorph(const std::string& name) {
    const std::vector<QLM_MorphUnion*> all = GetMorphUnionList();
    AddUndo(nullptr, QLM_UndoKind::MorphStrengths, "Spawn Morph");

    // The new one takes the whole deformation; only then the others let go of it.
    QLM_MorphUnion* spawned = CreateUnion(MakeUniqueName(name));
    for (QLM_Object* object : GetMeshObjects()) {
        QLM_Mesh* mesh = object->GetMesh();
        QLM_VertexMap3D shape;
        mesh->SumDeformations(shape);
        QLM_Morph* morph = GetMorphForMesh(mesh, spawned, true);
        const QLM_MorphUse use(*mesh, morph, "SpawnMorph");
        morph->Deltas.CopyFrom(shape);
        morph->MarkChanged();
    }
    std::vector<QLM_MorphUnion*> sources;
    for (QLM_MorphUnion* source : all) {
        const std::vector<QLM_Morph*> members = source->GetMembers();
        if (std::any_of(members.begin(), members.end(), [](QLM_Morph* m) { return m->Strength != 0.0f; }))
            sources.push_back(source);
        SetStrength(source, 0.0f);
    }
    for (QLM_Object* object : GetMeshObjects()) object->GetMesh()->InvalidateOptimizedDeltas();

    RefreshAllShapes();
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    if (sources.size() == 1) QLM_OS::Get().PrintMessage(QLM_GetString(SpawnedOne), sources[0]->GetName());
    else QLM_OS::Get().PrintMessage(QLM_GetString(SpawnedMany), static_cast<int>(sources.size()));
    return spawned;
}

int QLM_MorphManager::DeleteMorph() {
    const int count = std::max(tree->CountMarked(true, true), static_cast<int>(!GetHighlighted().empty()));
    if (count == 0) return 0;
    const bool agreed = count == 1 ? QLM_OS::Get().AskYesNo(QLM_GetString(DeleteOne))
                                   : QLM_OS::Get().AskYesNo(QLM_GetString(DeleteMany), count);
    return agreed ? DeleteHighlighted() : 0;
}

int QLM_MorphManager::DeleteHighlighted() {
    const std::vector<QLM_MorphUnion*> doomed = GetHighlighted();
    for (QLM_MorphUnion* morphUnion : doomed) {
        for (QLM_Morph* member : morphUnion->GetMembers())
            if (QLM_Mesh* mesh = MeshOf(member)) mesh->DeleteMorph(member);
        tree->RemoveItem(morphUnion);
        delete morphUnion;
    }
    tree->DeleteMarked(); // the folders among them
    RefreshAllShapes();
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    return static_cast<int>(doomed.size());
}

int QLM_MorphManager::BakeMorphs() {
    if (!QLM_OS::Get().AskOkCancel(QLM_GetString(BakeQuestion))) return 0;
    return BakeHighlighted(QLM_OS::Get().AskYesNo(QLM_GetString(ClearQuestion)));
}

int QLM_MorphManager::BakeHighlighted(bool clearDeltas) {
    const std::vector<QLM_MorphUnion*> highlighted = GetHighlighted();
    int baked = 0;
    for (QLM_Object* object : GetMeshObjects()) {
        QLM_Mesh* mesh = object->GetMesh();
        std::vector<QLM_Morph*> morphs;
        for (QLM_MorphUnion* morphUnion : highlighted)
            if (QLM_Morph* morph = morphUnion->FindMember(mesh->GetID())) morphs.push_back(morph);
        if (morphs.empty() || !mesh->GetCurrentMorph()) continue;
        mesh->SetBool("BAKE_MORPHS_MESH_UNDO", true, Temporary);
        AddUndo(object, QLM_UndoKind::Morph, noUndoMessage);
        for (QLM_Morph* morph : morphs) BakeMorph(mesh, morph, clearDeltas);
        AfterBaseChanged(mesh);
        baked += static_cast<int>(morphs.size());
    }
    if (baked > 0 && !clearDeltas)
        for (QLM_MorphUnion* morphUnion : highlighted) morphUnion->Strength = 0.0f;
    QLM_OS::Get().PrintMessage(QLM_GetString(baked > 0 ? Baked : NothingBaked));
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    RefreshAllShapes();
    return baked;
}

bool QLM_MorphManager::MakeCurrentMorphSymmetric(bool leftToRight) {
    // Who has no morph stays out.
    std::vector<QLM_Object*> objects = GetSelectedObjects();
    const size_t selected = objects.size();
    std::erase_if(objects, [](QLM_Object* object) { return !object->GetMesh()->GetCurrentMorph(); });
    if (QLM_Engine* engine = QLM_GetEngine(); engine && objects.size() != selected) engine->missingMorphFlag = true;
    if (objects.empty()) return false;
    // Map A holds the partners of the left side, so through it the left side is written.
    const char* direction = QLM_GetString(leftToRight ? RightToLeft : LeftToRight);
    if (!QLM_OS::Get().AskOkCancel(QLM_GetString(ForMorph), direction)) return false;
    for (QLM_Object* object : objects) {
        QLM_Mesh* mesh = object->GetMesh();
        AddUndo(object, QLM_UndoKind::Morph, direction);
        mesh->MakeArraySymmetric(mesh->GetCurrentDeltas(), !leftToRight, false);
        mesh->GetCurrentMorph()->MarkChanged();
    }
    RefreshAllShapes();
    return true;
}

float QLM_MorphManager::SetUnionStrength(QLM_MorphUnion* morphUnion, float percent) {
    const float wanted = percent * 0.01f;
    const float strength = std::max(morphUnion->MinStrength, std::min(wanted, morphUnion->MaxStrength));
    AddUndo(nullptr, QLM_UndoKind::MorphStrengths, "Morph Strength");
    SetStrength(morphUnion, strength);
    for (QLM_Object* object : GetMeshObjects())
        if (morphUnion->FindMember(object->GetMesh()->GetID())) RefreshShape(object);
    return strength;
}

QLM_MorphUnion* QLM_MorphManager::SetMorphFromPositions(QLM_Object* object, const std::string& name,
                                                        const float* positions) {
    RebuildUnionList();
    QLM_Mesh* mesh = object->GetMesh();
    QLM_MorphUnion* morphUnion = tree->FindItemByName(QLM_CleanName(name));
    if (!morphUnion) morphUnion = CreateUnion(name);
    QLM_Morph* morph = GetMorphForMesh(mesh, morphUnion, true);
    {
        const QLM_MorphUse use(*mesh, morph, "SetMorphFromPositions");
        const float* base = mesh->Vertices.GetData();
        for (int64_t i = 0; i < 3LL * mesh->GetVCount(); ++i) use.GetDeltas()[i] = positions[i] - base[i];
        morph->MarkChanged();
    }
    RefreshShape(object);
    QLM_PostEvent(QLM_Event_RefreshAllPanelsNow);
    return morphUnion;
}
