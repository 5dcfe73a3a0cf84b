// The records of objects and of polygon groups in a project file.

#include "Core/Logging/QLM_Logger.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_RecordOptions.h"

namespace {
constexpr const char* sourceOfScene = "ORIGINAL_FBX_FILE";
constexpr const char* countKeys[] = {"vcount", "vtcount", "pcount"};
} // namespace

// --- QLM_Object -----------------------------------------------------------------------------------------------------

bool QLM_Object::SaveToStream_Text(FILE* stream, bool writeBlock) {
    const bool writeReferences = QLM_RecordOptions::IsSet("OUTPUT_OBJECTS_REFERENCE") ||
                                 QLM_RecordOptions::IsSet("OUTPUT_OBJECTS_FORCE_REFERENCE");
    if (GetBool("excludeFromSaving")) return false;
    if (QLM_RecordOptions::IsSet("OUTPUTTING_TEMPLATE") && !GetBool("export/Template/doExport") && !writeReferences)
        return false;
    if (GetBool("isFixedAsset") || writeReferences) {
        SaveReference(stream, writeBlock);
        return true;
    }
    const TStartTextFileBlock block("object", GetName(), stream, writeBlock);
    QLM_BaseClass::SaveToStream_Text(stream);
    QLM_WriteText(stream, "FileName", FileName);
    QLM_WriteText(stream, "OBJFileName", OBJFileName);
    QLM_WriteInt(stream, "RenderDoubleSided", RenderDoubleSided);
    QLM_WriteInt(stream, "SymmetryEnabled", SymmetryEnabled);
    QLM_WriteText(stream, sourceOfScene, GetString(sourceOfScene));
    if (mesh) mesh->SaveToStream_Text(stream);
    return true;
}

void QLM_Object::SaveReference(FILE* stream, bool writeBlock) {
    // The counts travel along, so that a reader can tell whether the file still holds the same geometry.
    const int counts[] = {mesh ? mesh->GetVCount() : 0, mesh ? mesh->GetVTCount() : 0, mesh ? mesh->GetPCount() : 0};
    for (int k = 0; k < 3; ++k) SetInt(countKeys[k], counts[k], Saved);
    const TStartTextFileBlock block("objectReference", GetName(), stream, writeBlock);
    QLM_BaseClass::SaveToStream_Text(stream);
    for (const char* key : countKeys) RemoveProperty(key);
    if (mesh) mesh->SaveReferenceToStream_Text(stream);
}

bool QLM_Object::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("mesh")) {
        SetMesh(new QLM_Mesh(this));
        LoadMesh(stream);
    } else if (command.Is("meshReference")) {
        // Without its geometry the block is passed over; what else the object has is kept.
        if (PrepareReference()) LoadMesh(stream);
    } else if (command.Is("FileName")) command.ReadString(FileName);
    else if (command.Is("OBJFileName")) command.ReadString(OBJFileName);
    else if (command.Is("RenderDoubleSided")) command.ReadBool(RenderDoubleSided);
    else if (command.Is("SymmetryEnabled")) command.ReadBool(SymmetryEnabled);
    else if (command.Is(sourceOfScene)) SetString(sourceOfScene, value);
    else command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

bool QLM_Object::PrepareReference() {
    if (!mesh && !QLM_RecordOptions::ImportFixedAsset(this)) SetMesh(nullptr);
    if (mesh) {
        const bool sameUVs = GetInt("vtcount") == mesh->GetVTCount();
        if (GetInt("vcount") != mesh->GetVCount() || GetInt("pcount") != mesh->GetPCount() || !sameUVs)
            mesh->SetBool("INPUT_DISABLE_IMPORT_GEOMETRY_DATA", true, Temporary);
        if (!sameUVs) mesh->SetBool("INPUT_MISMATCHING_UVS", true, Temporary);
        mesh->SetBool("LOADING_FROM_FIXED_ASSET", true, Temporary);
    }
    for (const char* key : countKeys) RemoveProperty(key);
    return mesh != nullptr;
}

void QLM_Object::LoadMesh(FILE* stream) {
    QLM_TRACE(1);
    // Whatever was read is made usable, also when the rest of the record failed.
    loadFailed = !mesh->LoadFromStream_Text(stream, 0);
    mesh->RemoveProperty("LOADING_FROM_FIXED_ASSET");
    if (!mesh->GetMorphTree()) mesh->SetSizes(0, 0, 0); // the record tells no counts
    mesh->AfterRawBuild();
    mesh->SetupAfterLoad();
    ResolveMorphsAndBounds(true);
    mesh->CalculateNormals(true);
    mesh->OctreeBoundsChanged();
}

// --- QLM_Group2 -----------------------------------------------------------------------------------------------------

bool QLM_Group2::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool("excludeFromSaving")) return false;
    const TStartTextFileBlock block("polygroup", GetName(), stream, writeBlock);
    return QLM_BaseClass::SaveToStream_Text(stream);
}

// --- QLM_ObjectTreeGroup --------------------------------------------------------------------------------------------

bool QLM_ObjectTreeGroup::CreateChildGroup(FILE* stream, const std::string&, const std::string& value) {
    auto* group = new QLM_ObjectTreeGroup;
    group->SetNameText(value);
    AddChild(group);
    return group->LoadFromStream_Text(stream, 0);
}

bool QLM_ObjectTreeGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                              const std::string& value) {
    TextCommand command(key, value);
    const bool isReference = command.Is("objectReference");
    if (!isReference && !command.Is("object"))
        return QLM_TopTreeGroup::LoadFromStream_Text_ConsiderCommand(stream, key, value);

    // A template's references are meant for the objects that are there.
    QLM_Object* object = nullptr;
    const QLM_Engine* engine = QLM_GetEngine();
    if (isReference && engine && engine->GetBool("INPUT_IMPORTING_TEMPLATE"))
        for (auto present = GetItemQueue<QLM_Object>(); !object && !present.IsEmpty(); present.Pop())
            if (present->GetName() == QLM_CleanName(value)) object = present;
    if (!object) {
        object = new QLM_Object;
        object->SetNameText(value);
        AddItem(object);
    }
    loadFailed = !object->LoadFromStream_Text(stream, 0);
    return true;
}
