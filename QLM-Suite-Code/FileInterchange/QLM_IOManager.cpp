#include "FileInterchange/QLM_IOManager.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Engine/QLM_Messages.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "FileInterchange/OBJ/QLM_ObjWriter.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_MorphManager.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace {

/// Marks what was there before an import.
constexpr const char* PreviouslyLoaded = "import/temp/previouslyLoaded";

/// Puts a switch back on every way out.
class Restore {
  public:
    explicit Restore(bool& valueIn) : value(valueIn), before(valueIn) {}
    ~Restore() { value = before; }
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;

  private:
    bool& value;
    const bool before;
};

void Report(const std::string& path, const std::string& reason) {
    std::string text = QLM_FormatText(QLM_GetString(1992), path);
    if (!reason.empty()) text += ". " + reason;
    QLM_OS::Get().PrintMessageText(text);
}

/// A path that leads to its file from any folder, as what is kept and what lies beside it need.
std::string FromRoot(const std::string& path) {
    std::error_code failure;
    const std::filesystem::path whole = std::filesystem::absolute(path, failure);
    return failure ? path : whole.string();
}

/// Flips, reverses, centres and scales, in this order, what the reader brought.
void ApplyImportOptions(const QLM_IOManager& options, QLM_Mesh* mesh) {
    const int uvCount = mesh->GetVTCount(), vertexCount = mesh->GetVCount();
    for (int t = 0; t < uvCount; ++t) {
        float* uv = mesh->TextureVertices[t];
        if (options.FlipUVsHorizontallyOnImport) uv[0] = 1.0f - uv[0];
        if (options.FlipUVsVerticallyOnImport) uv[1] = 1.0f - uv[1];
    }
    if (options.FlipNormalsOnImport)
        for (int p = 0; p < mesh->GetPCount(); ++p)
            if (const int count = mesh->GetPolygonVertexCount(p); count > 2)
                std::reverse(mesh->GetPolygonCorners(p) + 1, mesh->GetPolygonCorners(p) + count);
    if (options.CenterOnImport)
        for (int i = 0; i < 3; ++i) {
            const float centre = mesh->BoundsMin[i] / 2 + mesh->BoundsMax[i] / 2; // their sum may be infinite
            for (int v = 0; v < vertexCount; ++v) mesh->Vertices[v][i] -= centre;
        }
    if (options.ScaleOnImport)
        for (int v = 0; v < vertexCount; ++v)
            for (int i = 0; i < 3; ++i) mesh->Vertices[v][i] *= options.ScaleFactor;
    if (options.FlipUVsHorizontallyOnImport || options.FlipUVsVerticallyOnImport || options.FlipNormalsOnImport ||
        options.CenterOnImport || options.ScaleOnImport)
        mesh->AfterRawBuild();
}

/// Loads the maps that the materials of a mesh name: beside `folder`, then on the search paths. A missing file keeps
/// its name on the channel.
void LoadMaterialMaps(QLM_Mesh* mesh, const std::string& folder) {
    QLM_MapManager* maps = QLM_GetManagers().GetMapManager();
    QLM_DirectoryCacheScope cache;
    std::vector<std::string> failed;
    for (QLM_Material* material : mesh->GetMaterials())
        for (QLM_MaterialChannel* channel : material->channels) {
            if (channel->mapFileName.empty()) continue;
            std::string found = QLM_ResolveCase(folder + channel->mapFileName), error;
            if (!QLM_FileExists(found) && !QLM_GetEngine()->FindFile(channel->mapFileName, 0, found)) continue;
            if (std::find(failed.begin(), failed.end(), found) != failed.end()) continue;
            QLM_MaterialMapSource* map = maps->LoadMapFromFile(found, error);
            if (map) {
                maps->AssignMapToMaterialChannel(&mesh->GetMapList(), channel, map);
            } else {
                failed.push_back(found);
                QLM_OS::Get().PrintMessageText(error);
            }
        }
    mesh->UpdateAllMapPolygonLists();
}

/// Tells which maps of the mesh exist in memory only: the exported files name pictures that aren't there yet.
void NameUnsavedMaps(const QLM_Mesh& mesh) {
    std::string names;
    QLM_List<QLM_MaterialMapSource*> maps;
    QLM_MapManager::GetMapListFromObjects_OnVisit(mesh.GetMapList(), mesh.GetMaterials(), maps);
    for (const QLM_MaterialMapSource* map : maps)
        if (map->HasUnsavedChanges()) names += (names.empty() ? "" : ", ") + std::string(map->GetName());
    if (!names.empty()) QLM_OS::Get().PrintMessageText("These image maps have not been saved yet: " + names);
}

} // namespace

QLM_IOManager::QLM_IOManager() { SetName("IOManager"); }

// Import.

bool QLM_IOManager::LoadObject(const std::string& path, QLM_Object* object, bool useInternalNames) {
    auto mesh = std::make_unique<QLM_Mesh>(object);
    QLM_ObjReadOptions options;
    options.useInternalNames = useInternalNames;
    options.importMaps = ImportMaps;
    std::string error;
    if (!QLM_ReadObjFile(path, mesh.get(), options, error)) {
        Report(path, error);
        return false;
    }
    QLM_MapManager::BeforeMapsChange(); // what is being drawn reads the former mesh
    object->SetMesh(mesh.release());
    QLM_GetEngine()->temporarySearchPaths.AddPath(QLM_FolderOf(path));
    return true;
}

bool QLM_IOManager::ImportGeometryFile(QLM_Object* object, const std::string& fileReference, QLM_ImporterCode code,
                                       int mode) {
    QLM_TRACE(1);
    for (QLM_Object* known : QLM_GetManagers().GetObjectManager()->GetObjects(false))
        known->SetBool(PreviouslyLoaded, true, Temporary);
    // A reload leaves maps and morphs to whoever reloads.
    const Restore keepMaps(ImportMaps), keepMorphs(ImportMorphs);
    if (mode == 1) ImportMaps = ImportMorphs = false;

    std::string path = QLM_ResolveCase(fileReference);
    if (!QLM_FileExists(path) && !QLM_FolderExists(path) && !QLM_GetEngine()->FindFile(fileReference, 0, path))
        return false;
    path = FromRoot(path);
    if (mode == 0) QLM_OS::Get().PrintStatus(QLM_GetString(1093), path);
    QLM_GetEngine()->temporarySearchPaths.AddPath(QLM_FolderOf(path));
    if (code != QLM_ImporterCode::OBJ) {
        Report(path, "This kind of file can't be imported.");
        return false;
    }
    return ImportObj(object, path, mode);
}

bool QLM_IOManager::ImportObj(QLM_Object* object, const std::string& path, int mode) {
    QLM_Owned<QLM_Object> created;
    if (!object) created.Reset(object = new QLM_Object);
    if (!LoadObject(path, object, UseInternalNameforGroups && !HasProperty("INPUT_MESH_FIXED_ASSET"))) return false;
    // What is reloaded has the name that its record gave it.
    const std::string stem = QLM_StemOf(path);
    if (mode == 0 || !*object->GetName()) object->SetNameText(stem.empty() ? QLM_FileNameOf(path) : stem);
    object->FileName = path;
    ApplyImportOptions(*this, object->GetMesh());
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    if (!objects->GetTree()->FindByID(object->GetID(), false, true)) objects->AddObject(object);
    created.Release();
    AfterImport(object, path, mode);
    QLM_ShowQueuedObjWarnings();
    return true;
}

void QLM_IOManager::AfterImport(QLM_Object* object, const std::string& path, int mode) {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    objects->SetCurrentObject(object);
    QLM_GetManagers().GetMorphManager()->FinishAfterLoad();
    if (mode == 0) {
        QLM_GetEngine()->importPath = QLM_FolderOf(path);
        for (QLM_Object* loaded : objects->GetObjects(false))
            if (ImportMaps && loaded->GetMesh() && !loaded->GetBool(PreviouslyLoaded))
                LoadMaterialMaps(loaded->GetMesh(), QLM_FolderOf(path));
        QLM_GetManagers().GetMaterialManager()->ApplyMaterialSets(object);
    }
    objects->OnShapeChanged(object, true, true, true);
    objects->UpdateGlobalScale();
    // A reload keeps the views; their record may have been read already.
    if (mode == 0 && objects->GetObjectCount() == 1)
        for (int i = 0; i < 4; ++i) viewports->Frame(viewports->GetViewport(i), QLM_FrameMode::Project);
    viewports->OnAllViewportsChanged();
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

bool QLM_IOManager::ImportDroppedFile(const std::string& path) {
    std::string found = QLM_ResolveCase(path), error;
    const bool isThere = QLM_FileExists(found) || QLM_GetEngine()->FindFile(path, 0, found);
    if (!isThere) {
        Report(path, QLM_FolderExists(path) ? "It is a folder." : "There is no such file.");
        return false;
    }
    found = FromRoot(found);
    if (const QLM_ImporterCode code = QLM_ImporterCodeOfPath(path); code != QLM_ImporterCode::None)
        return ImportGeometryFile(nullptr, found, code, 0);
    if (QLM_GetManagers().GetMapManager()->LoadMapFromFile(found, error)) {
        QLM_PostEvent(QLM_Event_RefreshAllPanels);
        return true;
    }
    Report(path, error);
    return false;
}

// Export.

bool QLM_IOManager::ExportObjects() {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    std::vector<uint32_t> wanted;
    for (QLM_Object* object : objects->GetObjects(false))
        if (object->IsMarked()) wanted.push_back(object->GetID());
    if (QLM_Object* current = objects->GetCurrentObject(); wanted.empty() && current)
        wanted.push_back(current->GetID());
    if (wanted.empty()) {
        QLM_OS::Get().PrintMessage(QLM_GetString(1753));
        return false;
    }
    bool good = true;
    for (const uint32_t id : wanted) {
        const auto* named = QLM_FindByID<QLM_Object>(id);
        if (!named) continue;
        const std::string suggestion = QLM_GetEngine()->exportPath + named->GetName() + ".obj";
        const std::string path = QLM_OS::Get().AskFile("Object Files", "OBJ", suggestion, true);
        // Boxes let time pass: the object may be gone.
        auto* object = QLM_FindByID<QLM_Object>(id);
        if (path.empty() || !object || !object->GetMesh()) continue;
        if (ExportObject(object, path)) QLM_GetEngine()->exportPath = QLM_FolderOf(path);
        else good = false;
    }
    return good;
}

bool QLM_IOManager::ExportObject(QLM_Object* object, const std::string& path) {
    return ExportGroupsAsSeparateFiles ? ExportGroupsAsSeparateObjects(object, path)
                                       : ExportObjectFile(object->GetMesh(), path, ExportVerticesOnly, ExportGroups);
}

bool QLM_IOManager::ExportObjectFile(QLM_Mesh* mesh, const std::string& path, bool verticesOnly, bool exportGroups) {
    QLM_ObjWriteOptions options;
    options.verticesOnly = verticesOnly;
    options.exportGroups = exportGroups;
    options.internalNames = UseInternalNameforGroups;
    std::string failed;
    QLM_OS::Get().PrintStatus(QLM_GetString(1054), path);
    QLM_MapManager::BeforeMapsChange(); // a welded mesh comes apart meanwhile
    if (!QLM_WriteObjFile(mesh, path, options, failed)) {
        QLM_OS::Get().PrintMessage(QLM_GetString(1020), failed);
        return false;
    }
    NameUnsavedMaps(*mesh);
    return true;
}

bool QLM_IOManager::ExportGroupsAsSeparateObjects(QLM_Object* object, const std::string& path) {
    QLM_ObjWriteOptions options;
    options.verticesOnly = ExportVerticesOnly;
    options.changedGroupsOnly = ExportChangedGroups;
    QLM_OS::Get().PrintStatus(QLM_GetString(1053));
    QLM_MapManager::BeforeMapsChange(); // the shape stands in the object's own space meanwhile
    const bool good = QLM_WriteObjGroups(object->GetMesh(), path, options);
    NameUnsavedMaps(*object->GetMesh());
    return good;
}

// Options.

bool QLM_IOManager::SetOption(const std::string& key, const std::string& value, std::string& error) {
    const std::pair<const char*, bool QLM_IOManager::*> switches[] = {
        {"ExportVerticesOnly", &QLM_IOManager::ExportVerticesOnly},
        {"ExportGroups", &QLM_IOManager::ExportGroups},
        {"ExportGroupsAsSeparateFiles", &QLM_IOManager::ExportGroupsAsSeparateFiles},
        {"ExportChangedGroups", &QLM_IOManager::ExportChangedGroups},
        {"ExportMorphs", &QLM_IOManager::ExportMorphs},
        {"UseInternalNameforGroups", &QLM_IOManager::UseInternalNameforGroups},
        {"FlipNormalsOnImport", &QLM_IOManager::FlipNormalsOnImport},
        {"FlipUVsHorizontallyOnImport", &QLM_IOManager::FlipUVsHorizontallyOnImport},
        {"FlipUVsVerticallyOnImport", &QLM_IOManager::FlipUVsVerticallyOnImport},
        {"CenterOnImport", &QLM_IOManager::CenterOnImport},
        {"ScaleOnImport", &QLM_IOManager::ScaleOnImport},
        {"ImportMaps", &QLM_IOManager::ImportMaps},
        {"ImportMorphs", &QLM_IOManager::ImportMorphs},
    };
    for (const auto& [name, member] : switches) {
        if (key != name) continue;
        if (value == "on" || value == "1") this->*member = true;
        else if (value == "off" || value == "0") this->*member = false;
        else {
            error = "the option \"" + key + "\" is on or off, not \"" + value + "\"";
            return false;
        }
        return true;
    }
    if (key == "ScaleFactor") {
        char* end = nullptr;
        const float factor = std::strtof(value.c_str(), &end);
        if (!value.empty() && *end == 0 && factor > 0.0f && factor < 1e9f) {
            ScaleFactor = factor;
            return true;
        }
        error = "\"ScaleFactor\" is a number above 0, not \"" + value + "\"";
        return false;
    }
    error = "there is no option \"" + key + "\"";
    return false;
}
