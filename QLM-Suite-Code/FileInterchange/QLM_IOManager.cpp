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
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <algorithm>
#include <cstdlib>

namespace {

void Report(const std::string& path, const std::string& reason) {
    std::string text = QLM_FormatText(QLM_GetString(1992), path);
    if (!reason.empty()) text += ". " + reason;
    QLM_OS::Get().PrintMessageText(text);
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
            const float centre = (mesh->BoundsMin[i] + mesh->BoundsMax[i]) / 2;
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

/// What an import leaves to do: maps, the shape's caches, a first view.
void AfterImport(QLM_Object* object, const std::string& path, bool importMaps) {
    QLM_ObjectManager* objects = QLM_GetManagers().GetObjectManager();
    QLM_ViewportManager* viewports = QLM_GetManagers().GetViewportManager();
    if (importMaps) LoadMaterialMaps(object->GetMesh(), QLM_FolderOf(path));
    objects->SetCurrentObject(object);
    QLM_GetManagers().GetMorphManager()->FinishAfterLoad();
    objects->OnShapeChanged(object, true, true, true);
    objects->UpdateGlobalScale();
    if (objects->GetObjectCount() == 1)
        for (int i = 0; i < 4; ++i) viewports->Frame(viewports->GetViewport(i), QLM_FrameMode::Project);
    viewports->OnAllViewportsChanged();
    QLM_PostEvent(QLM_Event_RefreshAllPanels);
}

} // namespace

QLM_IOManager::QLM_IOManager() { SetName("IOManager"); }

QLM_ImporterCode QLM_IOManager::ImporterCodeOf(const std::string& path) {
    const std::string extension = QLM_ToLower(QLM_ExtensionOf(path));
    return extension == "obj" || extension == "objz" || extension == "obz" ? QLM_ImporterCode::OBJ
                                                                           : QLM_ImporterCode::None;
}

bool QLM_IOManager::LoadObject(const std::string& path, QLM_Object* object, bool useInternalNames) {
    auto* mesh = new QLM_Mesh(object);
    object->SetMesh(mesh);
    QLM_ObjReadOptions options;
    options.useInternalNames = useInternalNames;
    options.importMaps = ImportMaps;
    std::string error;
    if (!QLM_ReadObjFile(path, mesh, options, error)) {
        Report(path, error);
        return false;
    }
    QLM_GetEngine()->temporarySearchPaths.AddPath(QLM_FolderOf(path));
    return true;
}

bool QLM_IOManager::ImportGeometryFile(QLM_Object* object, const std::string& fileReference, QLM_ImporterCode code,
                                       int mode) {
    QLM_TRACE(1);
    // Resolve the reference: as it stands, else on the search paths.
    std::string path = QLM_ResolveCase(fileReference);
    if (!QLM_FileExists(path) && !QLM_FolderExists(path) && !QLM_GetEngine()->FindFile(fileReference, 0, path)) {
        Report(fileReference, "There is no such file.");
        return false;
    }
    if (mode == 0) QLM_OS::Get().PrintStatus(QLM_GetString(1093), path);
    if (code != QLM_ImporterCode::OBJ) {
        Report(path, "This kind of file can't be imported.");
        return false;
    }

    // A reload leaves maps and morphs to whoever reloads.
    const bool importMaps = ImportMaps, importMorphs = ImportMorphs;
    if (mode == 1) ImportMaps = ImportMorphs = false;
    QLM_Object* target = object ? object : new QLM_Object;
    if (!object) target->SetNameText(QLM_StemOf(path));
    const bool loaded = LoadObject(path, target, UseInternalNameforGroups && !HasProperty("INPUT_MESH_FIXED_ASSET"));
    if (loaded) {
        target->FileName = path;
        ApplyImportOptions(*this, target->GetMesh());
    }
    ImportMaps = importMaps;
    ImportMorphs = importMorphs;
    if (!loaded) {
        if (!object) delete target;
        return false;
    }
    if (!object) QLM_GetManagers().GetObjectManager()->AddObject(target);
    if (mode == 0) QLM_GetEngine()->importPath = QLM_FolderOf(path);
    AfterImport(target, path, mode == 0 && ImportMaps);
    QLM_ShowQueuedObjWarnings();
    return true;
}

bool QLM_IOManager::ImportDroppedFile(const std::string& path) {
    if (const QLM_ImporterCode code = ImporterCodeOf(path); code != QLM_ImporterCode::None)
        return ImportGeometryFile(nullptr, path, code, 0);
    if (!QLM_FileExists(path)) {
        Report(path, QLM_FolderExists(path) ? "It is a folder." : "There is no such file.");
        return false;
    }
    std::string error;
    if (QLM_GetManagers().GetMapManager()->LoadMapFromFile(path, error)) {
        QLM_PostEvent(QLM_Event_RefreshAllPanels);
        return true;
    }
    Report(path, error);
    return false;
}

bool QLM_IOManager::ExportObjectFile(QLM_Mesh* mesh, const std::string& path, bool verticesOnly, bool exportGroups) {
    QLM_ObjWriteOptions options;
    options.verticesOnly = verticesOnly;
    options.exportGroups = exportGroups;
    options.internalNames = UseInternalNameforGroups;
    std::string failed;
    QLM_OS::Get().PrintStatus(QLM_GetString(1054), path);
    if (QLM_WriteObjFile(mesh, path, options, failed)) return true;
    QLM_OS::Get().PrintMessage(QLM_GetString(1020), failed);
    return false;
}

bool QLM_IOManager::SetOption(const std::string& key, const std::string& value, std::string& error) {
    const std::pair<const char*, bool QLM_IOManager::*> switches[] = {
        {"ExportVerticesOnly", &QLM_IOManager::ExportVerticesOnly},
        {"ExportGroups", &QLM_IOManager::ExportGroups},
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
