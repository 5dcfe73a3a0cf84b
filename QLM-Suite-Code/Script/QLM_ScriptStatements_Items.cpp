// Statements of objects, maps, materials, tools, settings and files.

#include "Commands/QLM_Commands.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Script/QLM_ScriptState.h"
#include "Tools/QLM_ToolManager.h"

namespace {

std::string LastMessage(const std::string& otherwise) {
    const auto& recorded = QLM_OS::Get().recorded;
    return recorded.empty() ? otherwise : recorded.back().text;
}

bool Import(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    const std::string path = state.ReadPath(words[1]);
    if (QLM_GetManagers().GetIOManager()->ImportDroppedFile(path)) return true;
    error = LastMessage("the file " + path + " can't be imported");
    return false;
}

bool Command(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    long long value = 0;
    if (words.size() > 2 && !QLM_ParseInteger(words[2], -2147483647, 2147483647, value)) {
        error = "\"" + words[2] + "\" is not a whole number";
        return false;
    }
    return QLM_CommandTable::Get().RunCommand(words[1], static_cast<int>(value), error);
}

bool Object(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words[1] == "export") {
        if (words.size() != 4) {
            error = "object export takes a name and a path";
            return false;
        }
        QLM_Object* object = QLM_FindScriptObject(words[2], error);
        if (!object) return false;
        const std::string path = state.WritePath(words[3]);
        if (QLM_ToLower(QLM_ExtensionOf(path)) != "obj") {
            error = "an object can be exported as .obj, not as " + path;
            return false;
        }
        QLM_CreateDirectory(QLM_FolderOf(path));
        if (QLM_GetManagers().GetIOManager()->ExportObject(object, path)) return true;
        error = LastMessage("the file " + path + " can't be written");
        return false;
    }
    if (words[1] == "import-options") {
        if (words.size() == 4) return QLM_GetManagers().GetIOManager()->SetOption(words[2], words[3], error);
        error = "object import-options takes a key and a value";
        return false;
    }
    const bool named = words.size() == 2 || (words.size() == 3 && words[1] == "select");
    QLM_Object* object = named ? QLM_FindScriptObject(words.back(), error) : nullptr;
    if (!named) error = "object takes a name, or export, a name and a path, or import-options, a key and a value";
    if (!object) return false;
    QLM_GetManagers().GetObjectManager()->SetCurrentObject(object);
    return true;
}

/// Binds a map to one channel of one material.
bool AssignMap(const QLM_ScriptWords& words, std::string& error) {
    QLM_MaterialMapSource* map = QLM_FindScriptMap(words[2], error);
    QLM_Material* material = map ? QLM_FindScriptMaterial(words[3], error) : nullptr;
    if (!material) return false;
    if (!static_cast<QLM_MaterialChannel*>(material->FindChannel(words[4]))) {
        error = "there is no channel \"" + words[4] + "\"; there are:";
        for (const QLM_MaterialChannel* channel : material->channels) error += std::string(" ") + channel->GetName();
        return false;
    }
    MapGroupInfo group;
    group.channel = words[4];
    group.materials.Add(material);
    QLM_GetManagers().GetMaterialManager()->AssignMap(group, map);
    return true;
}

bool Map(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words[1] == "assign" && words.size() == 5) return AssignMap(words, error);
    return QLM_RunMapStatement(state, words, error);
}

bool Material(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() == 3 && words[1] != "select") {
        error = "material takes a name";
        return false;
    }
    QLM_Material* found = QLM_FindScriptMaterial(words.back(), error);
    if (found) QLM_GetManagers().GetMaterialManager()->SelectMaterial(found);
    return found;
}

bool Tool(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    if (manager->SelectToolByName(words[1])) return true;
    error = "there is no tool \"" + words[1] + "\"; there are:";
    for (const auto& [name, tool] : manager->GetAllTools()) error += " " + name;
    return false;
}

/// A brush property or a parameter of the current tool.
bool Set(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    QLM_Tool* tool = QLM_GetManagers().GetToolManager()->GetCurrentTool();
    QLM_Parameter* parameter = tool ? tool->FindParameterByName(words[1]) : nullptr;
    if (!parameter) {
        error = "the current tool has no parameter \"" + words[1] + "\"";
        return false;
    }
    return parameter->SetValueFromText(words[2], error);
}

bool Option(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    return QLM_SetScriptOption(words[1], words[2], error);
}

bool SetColor(const QLM_ScriptWords& words, float* color, std::string& error) {
    double value[3];
    for (int i = 0; i < 3; ++i)
        if (!QLM_ParseNumber(words[static_cast<size_t>(i) + 1], value[i]) || value[i] < 0 || value[i] > 1) {
            error = "a colour is three numbers from 0 to 1";
            return false;
        }
    for (int i = 0; i < 3; ++i) color[i] = static_cast<float>(value[i]);
    return true;
}

bool Color(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    return SetColor(words, QLM_GetEngine()->foregroundColor, error);
}
bool Background(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    return SetColor(words, QLM_GetEngine()->backgroundColor, error);
}

} // namespace

QLM_Object* QLM_FindScriptObject(const std::string& word, std::string& error) {
    std::string name;
    int occurrence;
    QLM_SplitOccurrence(word, name, occurrence);
    QLM_ObjectManager* manager = QLM_GetManagers().GetObjectManager();
    if (QLM_Object* object = manager->FindObject(word)) return object;
    if (QLM_Object* object = manager->FindObject(name, occurrence)) return object;
    error = "there is no object \"" + word + "\"; there are:";
    for (auto objects = manager->GetObjects(false); !objects.IsEmpty(); objects.Pop())
        error += std::string(" \"") + objects->GetName() + "\"";
    return nullptr;
}

QLM_Object* QLM_FindScriptObjectOf(const std::string& word, std::string& name, std::string& error) {
    const size_t slash = word.find('/'); // names bear none
    name = slash == std::string::npos ? word : word.substr(slash + 1);
    if (slash != std::string::npos) return QLM_FindScriptObject(word.substr(0, slash), error);
    QLM_Object* object = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    if (!object) error = "there is no object";
    return object;
}

QLM_MaterialMapSource* QLM_FindScriptMap(const std::string& word, std::string& error) {
    std::string name;
    int occurrence;
    QLM_SplitOccurrence(word, name, occurrence);
    QLM_MapManager* manager = QLM_GetManagers().GetMapManager();
    if (QLM_MaterialMapSource* map = manager->FindMap(word)) return map;
    if (QLM_MaterialMapSource* map = manager->FindMap(name, occurrence)) return map;
    error = "there is no map \"" + word + "\"; there are:";
    for (auto maps = manager->GetMaps(); !maps.IsEmpty(); maps.Pop())
        error += std::string(" \"") + maps->GetName() + "\"";
    return nullptr;
}

QLM_Material* QLM_FindScriptMaterial(const std::string& word, std::string& error) {
    std::string whole = word, name, known;
    QLM_Object* owner = nullptr; // any object's, without one named
    if (word.find('/') != std::string::npos && !(owner = QLM_FindScriptObjectOf(word, whole, error))) return nullptr;
    int occurrence;
    QLM_SplitOccurrence(whole, name, occurrence);
    for (const std::string& wanted : {whole, name}) {
        int left = wanted == whole ? 1 : occurrence;
        known.clear();
        for (auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(false); !objects.IsEmpty();
             objects.Pop()) {
            QLM_Mesh* mesh = !owner || owner == objects.front() ? objects->GetMesh() : nullptr;
            if (!mesh) continue;
            for (QLM_Material* material : mesh->GetMaterials()) {
                if (material->GetName() == wanted && --left == 0) return material;
                known += (known.empty() ? "" : ", ") + std::string(material->GetName());
            }
        }
    }
    error = "there is no material \"" + word + "\"; there are: " + known;
    return nullptr;
}

void QLM_AddItemStatements(QLM_ScriptTable& table) {
    table["import"] = {1, 1, Import};
    table["command"] = {1, 2, Command};
    table["object"] = {1, 3, Object};
    table["map"] = {2, 7, Map};
    table["material"] = {1, 2, Material};
    table["tool"] = {1, 1, Tool};
    table["set"] = {2, 2, Set};
    table["option"] = {2, 2, Option};
    table["color"] = {3, 3, Color};
    table["background"] = {3, 3, Background};
}
