// Statements and report of display groups.

#include "Engine/QLM_Managers.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Script/QLM_JSONLine.h"
#include "Script/QLM_ScriptState.h"

namespace {

QLM_LayerManager& Layers() { return *QLM_GetManagers().GetLayerManager(); }

/// Finds "NAME" or "NAME#2"; null with a reason that lists what there is.
QLM_DisplayGroup* FindGroup(const std::string& word, std::string& error) {
    std::string name;
    int occurrence;
    QLM_SplitOccurrence(word, name, occurrence);
    if (QLM_DisplayGroup* group = Layers().FindGroup(word)) return group;
    if (QLM_DisplayGroup* group = Layers().FindGroup(name, occurrence)) return group;
    error = "there is no display group \"" + word + "\"; there are:";
    for (const QLM_DisplayGroup* group : Layers().GetGroups()) error += std::string(" \"") + group->GetName() + "\"";
    return nullptr;
}

bool SetState(QLM_DisplayGroup* group, const std::string& verb, std::string& error) {
    if (group->Column == QLM_LayerManager::HiddenLayer || group->Column == QLM_LayerManager::LockedLayer) {
        error = std::string("the state of \"") + group->GetName() + "\" is fixed";
        return false;
    }
    if (verb == "lock") return Layers().SetGroupState(group, QLM_LayerDefinition::Locked);
    if (verb == "hide") return Layers().SetGroupState(group, QLM_LayerDefinition::Hidden);
    // Each of the others ends one state only.
    if (group->state == (verb == "unlock" ? QLM_LayerDefinition::Locked : QLM_LayerDefinition::Hidden))
        Layers().SetGroupState(group, QLM_LayerDefinition::Normal);
    return true;
}

bool SetRigid(QLM_DisplayGroup* group, const std::string& value, std::string& error) {
    if (value != "on" && value != "off") {
        error = "rigid edges are on or off, not \"" + value + "\"";
        return false;
    }
    group->SetRigidEdges(value == "on");
    return true;
}

bool Group(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() == 2) {
        QLM_DisplayGroup* group = FindGroup(words[1], error);
        if (group) Layers().GetTree()->SetCurrentItem(group);
        return group != nullptr;
    }
    const std::string& verb = words[1];
    if (words.size() == 4 && verb != "rigid") {
        error = "group " + verb + " takes one name";
        return false;
    }
    if (verb == "create") return Layers().CreateDisplayGroup(words[2]) != nullptr;
    QLM_DisplayGroup* group = FindGroup(words[2], error);
    if (!group) return false;
    if (verb == "select") {
        Layers().GetTree()->SetCurrentItem(group);
        return true;
    }
    if (verb == "delete") {
        if (Layers().DeleteDisplayGroup(group)) return true;
        error = "the group \"" + words[2] + "\" can't be deleted";
        return false;
    }
    if (verb == "assign") {
        if (Layers().AssignSelectionToGroup(group)) return true;
        error = "nothing is selected, or \"" + words[2] + "\" holds everything anyway";
        return false;
    }
    if (verb == "rigid") return SetRigid(group, words.size() == 4 ? words[3] : "on", error);
    if (verb == "lock" || verb == "unlock" || verb == "hide" || verb == "show") return SetState(group, verb, error);
    error = "group takes create, select, delete, lock, unlock, hide, show, rigid or assign, not \"" + verb + "\"";
    return false;
}

} // namespace

void QLM_AddGroupStatements(QLM_ScriptTable& table) { table["group"] = {1, 3, Group}; }

void QLM_ReportGroups(FILE* out) {
    for (const QLM_DisplayGroup* group : Layers().GetGroups())
        QLM_JSONLine(out)
            .Text("group", group->GetName())
            .Integer("column", group->Column)
            .Integer("state", group->state)
            .Flag("rigid", group->HasRigidEdges())
            .Integer("polygons", Layers().GetPolygonCount(group));
}
