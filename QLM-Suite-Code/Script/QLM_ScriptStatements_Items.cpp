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
        QLM_IOManager* io = QLM_GetManagers().GetIOManager();
        if (io->ExportObjectFile(object->GetMesh(), path, io->ExportVerticesOnly, io->ExportGroups)) return true;
        error = LastMessage("the file " + path + " can't be written");
        return false;
    }
    const bool named = words.size() == 2 || (words.size() == 3 && words[1] == "select");
    QLM_Object* object = named ? QLM_FindScriptObject(words.back(), error) : nullptr;
    if (!named) error = "object takes a name, or export, a name and a path";
    if (!object) return false;
    QLM_GetManagers().GetObjectManager()->SetCurrentObject(object);
    return true;
}

bool Map(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words[1] != "export") {
        error = "map takes: export NAME PATH";
        return false;
    }
    QLM_MaterialMapSource* map = QLM_FindScriptMap(words[2], error);
    if (!map) return false;
    const std::string path = state.WritePath(words[3]);
    QLM_CreateDirectory(QLM_FolderOf(path));
    return QLM_GetManagers().GetMapManager()->ExportImageMap(map, path, error);
}

bool Material(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() == 3 && words[1] != "select") {
        error = "material takes a name";
        return false;
    }
    const std::string& word = words.back();
    std::string name = word, known;
    int occurrence;
    QLM_Object* owner = nullptr; // any object's, without one named
    if (word.find('/') != std::string::npos && !(owner = QLM_FindScriptObjectOf(word, name, error))) return false;
    QLM_SplitOccurrence(std::string(name), name, occurrence);
    QLM_Material* found = nullptr;
    QLM_List<QLM_Material*> all;
    for (auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(false); !objects.IsEmpty(); objects.Pop())
        if (QLM_Mesh* mesh = objects->GetMesh())
            for (QLM_Material* material : mesh->GetMaterials()) {
                all.Add(material);
                if (owner && owner != objects.front()) continue;
                known += (known.empty() ? "" : ", ") + std::string(material->GetName());
                if (material->GetName() == name && --occurrence == 0) found = material;
            }
    if (!found) {
        error = "there is no material \"" + word + "\"; there are: " + known;
        return false;
    }
    for (QLM_Material* material : all) material->SetMarked(material == found);
    return true;
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

void QLM_AddItemStatements(QLM_ScriptTable& table) {
    table["import"] = {1, 1, Import};
    table["command"] = {1, 2, Command};
    table["object"] = {1, 3, Object};
    table["map"] = {3, 3, Map};
    table["material"] = {1, 2, Material};
    table["tool"] = {1, 1, Tool};
    table["set"] = {2, 2, Set};
    table["option"] = {2, 2, Option};
    table["color"] = {3, 3, Color};
    table["background"] = {3, 3, Background};
}
