// Statements of the soft selection.

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_SelectionManager.h"
#include "Maps/QLM_Material.h"
#include "Script/QLM_ScriptState.h"

#include <functional>

namespace {

constexpr const char* usage =
    "select takes: all, none, grow, shrink, soften, harden, normalize, invert, group NAME, material NAME, or range "
    "FIRST LAST [WEIGHT]";

QLM_SelectionManager& Selection() { return *QLM_GetManagers().GetSelectionManager(); }
bool IsPolygonMode() { return QLM_GetEngine()->selectionMode == 1; }

bool Mode(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    if (words[1] != "vertex" && words[1] != "polygon") {
        error = "mode takes: vertex or polygon";
        return false;
    }
    Selection().SetSelectionMode(words[1] == "polygon" ? 1 : 0);
    return true;
}

/// The index of "NAME" or "NAME#2" among `count` names; -1 with a reason that lists what there is.
int FindName(const std::string& word, const char* kind, int count, const std::function<std::string(int)>& nameOf,
             std::string& error) {
    std::string name;
    int occurrence;
    QLM_SplitOccurrence(word, name, occurrence);
    error = std::string("there is no ") + kind + " \"" + word + "\"; there are:";
    for (int i = 0; i < count; ++i) {
        if (nameOf(i) == name && --occurrence == 0) return i;
        error += " \"" + nameOf(i) + "\"";
    }
    return -1;
}

/// Polygons of a group or material, in vertex mode their vertices.
bool SelectPart(const QLM_ScriptWords& words, std::string& error) {
    std::string name;
    QLM_Object* object = QLM_FindScriptObjectOf(words[2], name, error);
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (object && !mesh) error = "the object has no mesh";
    if (!mesh) return false;
    const bool byGroup = words[1] == "group";
    const int part = byGroup ? FindName(name, "group", mesh->GetGroupCount(),
                                        [&](int i) { return mesh->GetGroup(i)->GetName(); }, error)
                             : FindName(name, "material", mesh->GetMaterialCount(),
                                        [&](int i) { return mesh->FindMaterial(i)->GetName(); }, error);
    if (part < 0) return false;
    std::vector<int32_t> elements;
    for (int p = 0; p < mesh->GetPCount(); ++p) {
        const QLM_Polygon& polygon = mesh->GetPolygon(p);
        if ((byGroup ? polygon.group : polygon.material) != part) continue;
        if (IsPolygonMode()) elements.push_back(p);
        for (int i = 0; i < polygon.count && !IsPolygonMode(); ++i) elements.push_back(polygon.corners[i].vertex);
    }
    Selection().SelectElements(mesh, elements, 1.0f);
    return true;
}

/// Elements of the current object by their numbers, the last one included.
bool SelectRange(const QLM_ScriptWords& words, std::string& error) {
    std::string name;
    QLM_Object* object = QLM_FindScriptObjectOf("", name, error);
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (object && !mesh) error = "the object has no mesh";
    if (!mesh) return false;
    const int count = IsPolygonMode() ? mesh->GetPCount() : mesh->GetVCount();
    long long first = 0, last = 0;
    double weight = 1.0;
    if (count == 0) {
        error = IsPolygonMode() ? "the object has no polygons" : "the object has no vertices";
        return false;
    }
    if (!QLM_ParseInteger(words[2], 0, count - 1LL, first) || !QLM_ParseInteger(words[3], first, count - 1LL, last)) {
        error = "a range lies within 0 and " + std::to_string(count - 1) + ", the first number not above the last";
        return false;
    }
    if (words.size() > 4 && (!QLM_ParseNumber(words[4], weight) || weight < 0.0 || weight > 1.0)) {
        error = "a weight is a number from 0 to 1";
        return false;
    }
    std::vector<int32_t> elements(static_cast<size_t>(last - first + 1));
    for (size_t i = 0; i < elements.size(); ++i) elements[i] = static_cast<int32_t>(first + static_cast<long long>(i));
    Selection().SelectElements(mesh, elements, static_cast<float>(weight));
    return true;
}

bool Select(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    using Manager = QLM_SelectionManager;
    static const std::map<std::string, void (Manager::*)()> operations = {
        {"all", &Manager::SelectAll},         {"none", &Manager::SelectNone},
        {"grow", &Manager::GrowSelection},    {"shrink", &Manager::ShrinkSelection},
        {"soften", &Manager::SoftenSelection}, {"harden", &Manager::HardenSelection},
        {"normalize", &Manager::NormalizeSelection}, {"invert", &Manager::InvertSelection}};
    if (const auto found = operations.find(words[1]); found != operations.end() && words.size() == 2) {
        (Selection().*found->second)();
        return true;
    }
    if (words.size() == 3 && (words[1] == "group" || words[1] == "material")) return SelectPart(words, error);
    if (words.size() >= 4 && words[1] == "range") return SelectRange(words, error);
    error = usage;
    return false;
}

} // namespace

void QLM_AddSelectionStatements(QLM_ScriptTable& table) {
    table["mode"] = {1, 1, Mode};
    table["select"] = {1, 4, Select};
}
