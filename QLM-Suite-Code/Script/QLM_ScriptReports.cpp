// `report WHAT`: one JSON line for each item.

#include "Commands/QLM_Commands.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MapManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_Random.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Script/QLM_JSONLine.h"
#include "Script/QLM_ScriptState.h"
#include "Tools/QLM_ToolManager.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

#include <cstring>

namespace {

void ReportObjects(FILE* out) {
    QLM_ObjectManager* manager = QLM_GetManagers().GetObjectManager();
    for (auto objects = manager->GetObjects(false); !objects.IsEmpty(); objects.Pop()) {
        QLM_Object* object = objects;
        QLM_Mesh* mesh = object->GetMesh();
        if (!mesh) continue;
        QLM_JSONLine(out)
            .Text("object", object->GetName())
            .Integer("vertices", mesh->GetVCount())
            .Integer("texture_vertices", mesh->GetVTCount())
            .Integer("polygons", mesh->GetPCount())
            .Numbers("bounds_min", mesh->BoundsMin, 3)
            .Numbers("bounds_max", mesh->BoundsMax, 3)
            .Text("file", object->GetFilePath())
            .Flag("current", manager->GetCurrentObject() == object)
            .Flag("visible", !object->IsHidden());
    }
}

uint64_t HashPolygons(const QLM_Mesh& mesh) {
    uint64_t hash = QLM_HashStart;
    for (int p = 0; p < mesh.GetPCount(); ++p) {
        const QLM_Polygon& polygon = mesh.GetPolygon(p);
        const int32_t count = polygon.count;
        hash = QLM_Hash(&count, sizeof count, hash);
        for (int i = 0; i < count; ++i) hash = QLM_Hash(&polygon.corners[i].vertex, 2 * sizeof(int32_t), hash);
    }
    return hash;
}

/// Over the normal of each corner of each polygon.
uint64_t HashCornerNormals(const QLM_Mesh& mesh) {
    uint64_t hash = QLM_HashStart;
    for (int p = 0; p < mesh.GetPCount(); ++p)
        for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i)
            hash = QLM_Hash(mesh.GetCornerNormal(p, i), 3 * sizeof(float), hash);
    return hash;
}

void ReportMesh(FILE* out, QLM_Object* object) {
    QLM_Mesh* mesh = object->GetMesh();
    long long openEdges = 0, openVertices = 0, seamVertices = 0;
    mesh->ForEachEdge([&](const QLM_EdgeRecord& edge) { openEdges += edge.Polygon2 == -1; });
    for (int v = 0; v < mesh->GetVCount(); ++v) {
        openVertices += mesh->HasVertexFlag(v, eVFlag_OpenEdge);
        seamVertices += mesh->HasVertexFlag(v, eVFlag_UVSeam);
    }
    const uint64_t bytes = static_cast<uint64_t>(mesh->GetVCount()) * 12;
    QLM_JSONLine(out)
        .Text("mesh", object->GetName())
        .Integer("vertices", mesh->GetVCount())
        .Integer("texture_vertices", mesh->GetVTCount())
        .Integer("polygons", mesh->GetPCount())
        .Integer("edges", mesh->GetEdgeCount())
        .Integer("open_edges", openEdges)
        .Integer("open_vertices", openVertices)
        .Integer("seam_vertices", seamVertices)
        .Integer("materials", mesh->GetMaterialCount())
        .Integer("groups", mesh->QLM_MeshGroupContainer::GetGroupCount())
        .Hash("vertex_hash", QLM_Hash(mesh->Vertices.GetData(), bytes))
        .Hash("resolved_hash", QLM_Hash(mesh->ResolvedVertices.GetData(), bytes))
        .Hash("normal_hash", QLM_Hash(mesh->VertexNormals.GetData(), bytes))
        .Integer("normals", mesh->Normals.GetCount())
        .Hash("corner_normal_hash", HashCornerNormals(*mesh))
        .Hash("polygon_hash", HashPolygons(*mesh));
}

void ReportMaps(FILE* out) {
    for (auto maps = QLM_GetManagers().GetMapManager()->GetMaps(); !maps.IsEmpty(); maps.Pop()) {
        QLM_MaterialMapSource* map = maps;
        map->ResolveMapLayer(true);
        uint64_t hash = QLM_HashStart;
        if (const uint8_t* pixels = map->GetPixels()) hash = QLM_Hash(pixels, map->GetByteCount(), hash);
        if (map->HasMaskSameSize())
            if (const uint8_t* mask = map->GetMaskPixels()) hash = QLM_Hash(mask, map->Mask.GetByteCount(), hash);
        QLM_JSONLine(out)
            .Text("map", map->GetName())
            .Integer("width", map->GetWidth())
            .Integer("height", map->GetHeight())
            .Integer("layers", static_cast<long long>(map->GetMembers().size()))
            .Text("file", map->GetMapFileName())
            .Hash("hash", hash);
    }
}

void ReportMaterials(FILE* out) {
    for (auto objects = QLM_GetManagers().GetObjectManager()->GetObjects(false); !objects.IsEmpty(); objects.Pop()) {
        QLM_Object* object = objects;
        QLM_Mesh* mesh = object->GetMesh();
        if (!mesh) continue;
        std::vector<long long> polygons(static_cast<size_t>(mesh->GetMaterialCount()), 0);
        for (int p = 0; p < mesh->GetPCount(); ++p)
            if (const size_t material = mesh->GetPolygon(p).material; material < polygons.size()) ++polygons[material];
        for (int m = 0; m < mesh->GetMaterialCount(); ++m) {
            QLM_Material* material = mesh->GetMaterials()[static_cast<size_t>(m)];
            QLM_JSONLine(out)
                .Text("material", material->GetName())
                .Text("object", object->GetName())
                .Integer("polygons", polygons[static_cast<size_t>(m)]);
            for (QLM_MaterialChannel* channel : material->channels) {
                const QLM_MaterialMapSource* map = QLM_GetChannelMap(mesh->GetMapList(), channel);
                QLM_JSONLine(out)
                    .Text("material", material->GetName())
                    .Text("channel", channel->GetName())
                    .Number("strength", channel->Strength)
                    .Number("offset", channel->Offset)
                    .Numbers("color", channel->Color, 3)
                    .Text("map", map ? map->GetName() : "");
            }
        }
    }
}

void ReportTools(FILE* out) {
    QLM_ToolManager* manager = QLM_GetManagers().GetToolManager();
    for (const QLM_ToolList* list : manager->GetLists())
        for (QLM_Tool* tool : *list)
            if (tool)
                QLM_JSONLine(out)
                    .Text("tool", manager->GetToolName(tool))
                    .Text("list", list->GetName())
                    .Flag("current", tool == manager->GetCurrentTool());
    if (QLM_Tool* tool = manager->GetCurrentTool())
        for (const QLM_Parameter* parameter : tool->Parameters)
            QLM_JSONLine(out)
                .Text("parameter", parameter->GetName())
                .Text("value", parameter->GetValueText())
                .Number("minimum", parameter->Minimum)
                .Number("maximum", parameter->Maximum);
}

void ReportViewports(FILE* out) {
    for (int i = 0; i < 4; ++i) {
        const QLM_Viewport* v = QLM_GetManagers().GetViewportManager()->GetViewport(i);
        QLM_JSONLine(out)
            .Integer("viewport", i)
            .Integer("x", v->x)
            .Integer("y", v->y)
            .Integer("width", v->width)
            .Integer("height", v->height)
            .Flag("shown", v->IsShown())
            .Number("zoom", v->GetZoom())
            .Numbers("look_at", v->GetLookAt(), 3)
            .Numbers("rotation", v->GetRotationMatrix(), 16)
            .Integer("mode", v->DisplayMode)
            .Text("channel", v->MaterialChannelName);
    }
}

void ReportCommands(FILE* out) {
    for (const auto& [name, command] : QLM_CommandTable::Get().GetCommands())
        QLM_JSONLine(out)
            .Text("name", name)
            .Integer("controls", command.controls)
            .Flag("acts", static_cast<bool>(command.run));
}

/// A "VmRSS:  1234 kB" line of the process's status.
long long StatusBytes(const char* key) {
    FILE* file = std::fopen("/proc/self/status", "r");
    if (!file) return 0;
    char line[256];
    long long kilobytes = 0;
    while (std::fgets(line, sizeof line, file))
        if (std::strncmp(line, key, std::strlen(key)) == 0) std::sscanf(line + std::strlen(key), "%lld", &kilobytes);
    std::fclose(file);
    return kilobytes * 1024;
}

bool Report(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    const std::string& what = words[1];
    if (what == "mesh") {
        QLM_Object* object = words.size() == 3 ? QLM_FindScriptObject(words[2], error) : nullptr;
        if (words.size() != 3) error = "report mesh takes the name of an object";
        if (!object) return false;
        ReportMesh(state.reports, object);
        return true;
    }
    if (words.size() != 2) {
        error = "report " + what + " takes no name";
        return false;
    }
    if (what == "objects") ReportObjects(state.reports);
    else if (what == "maps") ReportMaps(state.reports);
    else if (what == "layers") QLM_ReportLayers(state.reports);
    else if (what == "materials") ReportMaterials(state.reports);
    else if (what == "morphs") QLM_ReportMorphs(state.reports);
    else if (what == "groups") QLM_ReportGroups(state.reports);
    else if (what == "tools") ReportTools(state.reports);
    else if (what == "viewports") ReportViewports(state.reports);
    else if (what == "commands") ReportCommands(state.reports);
    else if (what == "memory")
        QLM_JSONLine(state.reports)
            .Integer("resident_bytes", StatusBytes("VmRSS:"))
            .Integer("peak_bytes", StatusBytes("VmHWM:"))
            .Integer("parked_bytes", static_cast<long long>(QLM_VirtualMemory_StoredBytes()));
    else {
        error = "report takes objects, mesh NAME, maps, layers, materials, morphs, groups, tools, viewports, commands "
                "or memory, not \"" + what + "\"";
        return false;
    }
    return true;
}

} // namespace

void QLM_AddReportStatement(QLM_ScriptTable& table) { table["report"] = {1, 2, Report}; }
