// Statements of the current object's mesh: welding, smoothing, transform; properties of items; picks.

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Geometry/QLM_UtilityManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Script/QLM_JSONLine.h"
#include "Script/QLM_ScriptState.h"

namespace {

/// The current object, which has a mesh that may be changed now; null with a reason.
QLM_Object* CurrentObjectToChange(std::string& error) {
    QLM_Object* object = QLM_GetManagers().GetObjectManager()->GetCurrentObject();
    if (!object || !object->GetMesh()) {
        error = "there is no object with a mesh";
        return nullptr;
    }
    QLM_GetManagers().GetViewportManager()->AbortRender();
    return object;
}

void RefreshShape(QLM_Object* object) {
    QLM_GetManagers().GetObjectManager()->OnShapeChanged(object, true, true, true);
}

/// A number of at least 0; false with a reason.
bool ParsePositive(const std::string& word, const char* what, float& out, std::string& error) {
    double number;
    if (QLM_ParseNumber(word, number) && number >= 0) {
        out = static_cast<float>(number);
        return true;
    }
    error = "\"" + word + "\" is no " + what;
    return false;
}

bool Weld(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    float fraction;
    bool open = false, selected = false, groups = false;
    if (!ParsePositive(words[1], "fraction of an object's size", fraction, error)) return false;
    for (size_t i = 2; i < words.size(); ++i) {
        if (words[i] == "open") open = true;
        else if (words[i] == "selected") selected = true;
        else if (words[i] == "groups") groups = true;
        else {
            error = "weld takes a fraction, then any of: open, selected, groups";
            return false;
        }
    }
    QLM_Object* object = CurrentObjectToChange(error);
    if (!object) return false;
    QLM_GetManagers().GetUtilityManager()->WeldVertices({object}, fraction, open, selected, groups);
    return true;
}

bool Unweld(QLM_ScriptState&, const QLM_ScriptWords&, std::string& error) {
    QLM_Object* object = CurrentObjectToChange(error);
    if (!object) return false;
    if (object->GetMesh()->Unweld()) return true;
    error = "the object isn't welded";
    return false;
}

bool Reweld(QLM_ScriptState&, const QLM_ScriptWords&, std::string& error) {
    QLM_Object* object = CurrentObjectToChange(error);
    if (!object) return false;
    if (object->GetMesh()->Reweld()) return true;
    error = "the object has no former weld that fits";
    return false;
}

bool Smoothing(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    float degrees;
    if (!ParsePositive(words[1], "angle in degrees", degrees, error)) return false;
    QLM_Object* object = CurrentObjectToChange(error);
    if (!object) return false;
    QLM_Mesh* mesh = object->GetMesh();
    mesh->SetMaxSmoothingAngle(degrees);
    mesh->RebuildNormalIndices();
    RefreshShape(object);
    return true;
}

/// Places, scales or turns the object: what was set before of the same kind is replaced. Degrees about x, then y,
/// then z.
bool Transform(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    float value[3];
    for (size_t k = 0; k < 3; ++k) {
        double number;
        if (!QLM_ParseNumber(words[k + 2], number)) {
            error = "\"" + words[k + 2] + "\" is no number";
            return false;
        }
        value[k] = static_cast<float>(number);
    }
    const std::string& kind = words[1];
    if (kind != "pos" && kind != "scale" && kind != "rotate") {
        error = "transform takes pos, scale or rotate and three numbers, not \"" + kind + "\"";
        return false;
    }
    QLM_Object* object = CurrentObjectToChange(error);
    if (!object) return false;
    QLM_Mesh* mesh = object->GetMesh();
    if (kind == "rotate") {
        constexpr float radiansPerDegree = 3.1415926535898f / 180.0f;
        float x[16], y[16], z[16], xy[16];
        MatrixRotation(x, 0, value[0] * radiansPerDegree);
        MatrixRotation(y, 1, value[1] * radiansPerDegree);
        MatrixRotation(z, 2, value[2] * radiansPerDegree);
        MatrixMultiply(x, y, xy);
        MatrixMultiply(xy, z, mesh->Transform_RotationMatrix);
    } else std::copy_n(value, 3, kind == "pos" ? mesh->Transform_Pos : mesh->Transform_Scale);
    RefreshShape(object);
    return true;
}

/// An object, a map, or OBJECT/NAME: a material, polygon group or morph, or "mesh" for the mesh itself. Null with a
/// reason.
QLM_BaseClass* FindItem(const std::string& word, std::string& error) {
    if (word.find('/') == std::string::npos) {
        std::string noObject, noMap;
        if (QLM_Object* object = QLM_FindScriptObject(word, noObject)) return object;
        if (QLM_MaterialMapSource* map = QLM_FindScriptMap(word, noMap)) return map;
        error = noObject + "; and " + noMap;
        return nullptr;
    }
    std::string name;
    QLM_Object* object = QLM_FindScriptObjectOf(word, name, error);
    QLM_Mesh* mesh = object ? object->GetMesh() : nullptr;
    if (!mesh) {
        if (object) error = "the object has no mesh";
        return nullptr;
    }
    if (QLM_Material* material = mesh->FindMaterialByName(name)) return material;
    if (const int group = mesh->FindGroupByName(name); group >= 0) return mesh->GetGroup(group);
    if (QLM_Morph* morph = mesh->FindMorph(name)) return morph;
    if (name == "mesh") return mesh;
    error = "the object has no material, group or morph \"" + name + "\"";
    return nullptr;
}

/// Sets a custom property that is saved: a switch, a whole number, a number or a text, by how the value is written.
bool Property(QLM_ScriptState&, const QLM_ScriptWords& words, std::string& error) {
    QLM_BaseClass* item = FindItem(words[1], error);
    if (!item) return false;
    const std::string &key = words[2], &value = words[3];
    const uint32_t saved = QLM_BaseClass::Saved;
    long long whole;
    double number;
    if (key.empty()) error = "a property needs a key";
    else if (value == "on" || value == "off") item->SetBool(key, value == "on", saved);
    else if (QLM_ParseInteger(value, INT32_MIN, INT32_MAX, whole))
        item->SetInt(key, static_cast<int32_t>(whole), saved);
    else if (QLM_ParseNumber(value, number)) item->SetFloat(key, static_cast<float>(number), saved);
    else item->SetString(key, value, saved);
    return !key.empty();
}

bool Pick(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    double x, y;
    if (!QLM_ParseNumber(words[1], x) || !QLM_ParseNumber(words[2], y)) {
        error = "\"" + words[1] + " " + words[2] + "\" is no place on the canvas";
        return false;
    }
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    QLM_Viewport* viewport = viewports->GetViewportAt(static_cast<float>(x), static_cast<float>(y));
    if (!viewport) {
        error = "there is no viewport at this place";
        return false;
    }
    float nx, ny;
    QLM_ViewportManager::Normalise(*viewport, static_cast<float>(x), static_cast<float>(y), nx, ny);
    QLM_PickResult hit;
    const bool met = viewports->Pick(viewport, nx, ny, hit);
    QLM_JSONLine(state.reports)
        .Text("object", met ? hit.object->GetName() : "")
        .Integer("polygon", met ? hit.polygon : -1)
        .Numbers("point", hit.point, met ? 3 : 0);
    return true;
}

} // namespace

void QLM_AddMeshStatements(QLM_ScriptTable& table) {
    table["weld"] = {1, 4, Weld};
    table["unweld"] = {0, 0, Unweld};
    table["reweld"] = {0, 0, Reweld};
    table["smoothing"] = {1, 1, Smoothing};
    table["transform"] = {4, 4, Transform};
    table["property"] = {3, 3, Property};
    table["pick"] = {2, 2, Pick};
}
