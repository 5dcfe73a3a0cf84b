// `morph ...` and `report morphs`.

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Managers.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Math/QLM_Random.h"
#include "Script/QLM_JSONLine.h"
#include "Script/QLM_ScriptState.h"

namespace {

constexpr const char* noName = "a morph needs a name";

QLM_MorphManager& Morphs() { return *QLM_GetManagers().GetMorphManager(); }

/// Finds "NAME", "NAME#2" or "OBJECT/NAME"; null with a reason that lists what there is.
QLM_MorphUnion* FindUnion(const std::string& word, std::string& error) {
    std::string name = word, plain;
    QLM_Object* owner = nullptr; // any object's, without one named
    if (word.find('/') != std::string::npos && !(owner = QLM_FindScriptObjectOf(word, name, error))) return nullptr;
    int occurrence;
    QLM_SplitOccurrence(name, plain, occurrence);
    const std::vector<QLM_MorphUnion*> all = Morphs().GetMorphUnionList();
    std::vector<QLM_MorphUnion*> found;
    for (QLM_MorphUnion* morphUnion : all) {
        if (owner && (!owner->GetMesh() || !morphUnion->FindMember(owner->GetMesh()->GetID()))) continue;
        if (name == morphUnion->GetName()) return morphUnion;
        if (plain == morphUnion->GetName() && --occurrence == 0) return morphUnion;
    }
    error = "there is no morph \"" + word + "\"; there are:";
    for (QLM_MorphUnion* morphUnion : all) error += std::string(" \"") + morphUnion->GetName() + "\"";
    return nullptr;
}

void Highlight(const QLM_MorphUnion* morphUnion) { Morphs().GetTree()->SelectRow(morphUnion->GetID(), false, false); }

bool Create(QLM_ScriptState&, const std::string& name, const std::string&, std::string& error) {
    if (name.empty()) error = noName;
    return !name.empty() && Morphs().CreateNewMorph(name) != nullptr;
}

bool Spawn(QLM_ScriptState&, const std::string& name, const std::string&, std::string& error) {
    if (name.empty()) error = noName;
    return !name.empty() && Morphs().SpawnMorph(name) != nullptr;
}

bool Select(QLM_ScriptState&, const std::string& name, const std::string&, std::string& error) {
    QLM_MorphUnion* morphUnion = FindUnion(name, error);
    if (!morphUnion) return false;
    Highlight(morphUnion);
    Morphs().SetCurrentUnion(morphUnion);
    return true;
}

bool Duplicate(QLM_ScriptState&, const std::string& name, const std::string&, std::string& error) {
    QLM_MorphUnion* morphUnion = FindUnion(name, error);
    if (!morphUnion) return false;
    Highlight(morphUnion);
    return Morphs().DuplicateMorph() == 1;
}

bool Delete(QLM_ScriptState&, const std::string& name, const std::string&, std::string& error) {
    QLM_MorphUnion* morphUnion = FindUnion(name, error);
    if (!morphUnion) return false;
    Highlight(morphUnion);
    return Morphs().DeleteHighlighted() == 1;
}

bool Strength(QLM_ScriptState&, const std::string& name, const std::string& value, std::string& error) {
    double percent;
    if (!QLM_ParseNumber(value, percent)) {
        error = "a strength is a number in percent, not \"" + value + "\"";
        return false;
    }
    QLM_MorphUnion* morphUnion = FindUnion(name, error);
    if (morphUnion) Morphs().SetUnionStrength(morphUnion, static_cast<float>(percent));
    return morphUnion != nullptr;
}

bool Bake(QLM_ScriptState&, const std::string& clear, const std::string&, std::string& error) {
    if (clear != "yes" && clear != "no") {
        error = "morph bake takes yes (clear the deltas) or no (strengths go to 0)";
        return false;
    }
    if (Morphs().BakeHighlighted(clear == "yes") > 0) return true;
    error = QLM_OS::Get().recorded.back().text;
    return false;
}

bool Load(QLM_ScriptState& state, const std::string& word, const std::string& file, std::string& error) {
    std::string name;
    QLM_Object* object = QLM_FindScriptObjectOf(word, name, error);
    if (!object) return false;
    QLM_Mesh* mesh = object->GetMesh();
    if (!mesh || name.empty()) {
        error = mesh ? noName : "the object has no mesh";
        return false;
    }
    const QLM_Owned<QLM_Mesh> target(new QLM_Mesh(nullptr));
    QLM_ObjReadOptions options;
    options.importMaps = false;
    if (!QLM_ReadObjFile(state.ReadPath(file), target.Get(), options, error)) return false;
    QLM_ShowQueuedObjWarnings();
    if (target->GetVCount() != mesh->GetVCount()) {
        error = "the morph \"" + name + "\" needs " + std::to_string(mesh->GetVCount()) + " vertices, but " + file +
                " has " + std::to_string(target->GetVCount());
        return false;
    }
    Morphs().SetMorphFromPositions(object, name, target->Vertices.GetData());
    return true;
}

bool Morph(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    struct Verb {
        const char* name;
        size_t words;
        bool (*run)(QLM_ScriptState&, const std::string&, const std::string&, std::string&);
    };
    constexpr Verb verbs[] = {{"create", 3, Create}, {"select", 3, Select},     {"duplicate", 3, Duplicate},
                              {"delete", 3, Delete}, {"load", 4, Load},         {"spawn", 3, Spawn},
                              {"bake", 3, Bake},     {"strength", 4, Strength}};
    if (words.size() == 2) return Select(state, words[1], {}, error);
    for (const Verb& verb : verbs)
        if (words[1] == verb.name && words.size() == verb.words)
            return verb.run(state, words[2], words.size() > 3 ? words[3] : std::string(), error);
    error = "morph takes NAME; create, select, duplicate, delete or spawn and NAME; load NAME PATH; strength NAME "
            "PERCENT; bake yes or no";
    return false;
}

} // namespace

void QLM_ReportMorphs(FILE* out) {
    for (auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(false); !objects.IsEmpty(); objects.Pop()) {
        QLM_Mesh* mesh = objects->GetMesh();
        if (!mesh) continue;
        QLM_RootClassQueue<QLM_Morph*> morphs;
        for (mesh->GetMorphs(morphs); !morphs.IsEmpty(); morphs.Pop()) {
            QLM_Morph* morph = morphs;
            const bool parked = !morph->IsExpanded();
            const QLM_MorphUse use(*mesh, morph, "QLM_ReportMorphs");
            long long changed = 0;
            int index;
            float* delta;
            for (bool more = morph->GetFirstDelta(index, delta); more; more = morph->GetNextDelta(index, delta))
                ++changed;
            QLM_JSONLine(out)
                .Text("morph", morph->GetName())
                .Text("object", objects->GetName())
                .Number("strength", morph->Strength)
                .Integer("deltas", changed)
                .Hash("hash", QLM_Hash(use.GetDeltas(), static_cast<uint64_t>(mesh->GetVCount()) * 12))
                .Flag("current", mesh->GetCurrentMorph() == morph)
                .Flag("parked", parked);
        }
    }
}

void QLM_AddMorphStatements(QLM_ScriptTable& table) { table["morph"] = {1, 3, Morph}; }
