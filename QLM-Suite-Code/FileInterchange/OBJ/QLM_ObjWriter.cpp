#include "FileInterchange/OBJ/QLM_ObjWriter.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Maps/QLM_MaterialMapSource.h"

#include <charconv>
#include <cstdio>

namespace {

/// Text gathered in a block before it goes to the file.
class TextSink {
  public:
    explicit TextSink(FILE* fileIn) : file(fileIn) { block.reserve(BlockSize + 4096); }
    ~TextSink() { Flush(); }
    TextSink(const TextSink&) = delete;
    TextSink& operator=(const TextSink&) = delete;

    TextSink& operator<<(std::string_view text) {
        block.append(text);
        return *this;
    }
    TextSink& operator<<(int value) {
        char digits[16];
        block.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
        return *this;
    }
    /// `count` numbers with a blank before each and eight decimals, then a line feed.
    void Numbers(std::string_view keyword, const float* values, int count) {
        block.append(keyword);
        char digits[64];
        for (int i = 0; i < count; ++i) {
            block.push_back(' ');
            block.append(digits, std::to_chars(digits, digits + sizeof digits, static_cast<double>(values[i]),
                                               std::chars_format::fixed, 8)
                                     .ptr);
        }
        EndLine();
    }
    void EndLine() {
        block.push_back('\n');
        if (block.size() >= BlockSize) Flush();
    }

  private:
    static constexpr size_t BlockSize = 1 << 18;
    void Flush() {
        std::fwrite(block.data(), 1, block.size(), file);
        block.clear();
    }
    FILE* file;
    std::string block;
};

void WriteMtl(FILE* file, QLM_Mesh* mesh) {
    for (QLM_Material* material : mesh->GetMaterials()) {
        QLM_PrintToFile(file, "newmtl %s\n", material->GetName());
        const std::pair<const char*, QLM_MaterialChannel*> colors[] = {
            {"Ka", material->Ambient}, {"Kd", material->Color}, {"Ks", material->Specular}};
        for (const auto& [key, channel] : colors)
            QLM_PrintToFile(file, "%s %.6f %.6f %.6f\n", key, channel->Color[0], channel->Color[1], channel->Color[2]);
        QLM_PrintToFile(file, "d %.4f\n", 1.0f - material->Transparency->Strength);
        const std::pair<const char*, QLM_MaterialChannel*> maps[] = {
            {"map_kd", material->Color},    {"map_Bump", material->Bump},  {"map_d", material->Transparency},
            {"map_ks", material->Specular}, {"map_ka", material->Ambient}, {"disp", material->Displacement}};
        for (const auto& [key, channel] : maps)
            if (const QLM_MaterialMapSource* map = QLM_GetChannelMap(mesh->GetMapList(), channel))
                QLM_PrintToFile(file, "%s %s\n", key, map->GetName());
    }
}

void WriteFaces(TextSink& out, QLM_Mesh* mesh, const QLM_ObjWriteOptions& options) {
    int material = -1, group = -1;
    for (int p = 0; p < mesh->GetPCount(); ++p) {
        const QLM_Polygon& polygon = mesh->GetPolygon(p);
        // A change of material or group heads the faces that follow.
        if (polygon.material != material) {
            material = polygon.material;
            if (QLM_Material* named = mesh->GetMaterial(material)) {
                out << "usemtl " << named->GetName();
                out.EndLine();
            }
        }
        if ((options.exportGroups || options.internalNames) && polygon.group != group) {
            group = polygon.group;
            if (const QLM_Group2* named = mesh->GetGroup(group)) {
                const std::string_view full = named->GetName();
                const std::string_view name = full.substr(0, full.find(':'));
                if (options.internalNames) {
                    out << "#  InternalName: " << name;
                    out.EndLine();
                }
                if (options.exportGroups) {
                    out << "g " << name;
                    out.EndLine();
                }
            }
        }
        out << "f";
        for (int i = 0; i < polygon.count; ++i) {
            const int vertex = polygon.corners[i].vertex, texture = polygon.corners[i].textureVertex;
            if (vertex == -1) continue;
            out << " " << vertex + 1 << "/";
            if (texture != -1) out << texture + 1;
            out << "/" << vertex + 1;
        }
        out.EndLine();
    }
}

void WriteObj(FILE* file, QLM_Mesh* mesh, const std::string& mtlName, const QLM_ObjWriteOptions& options) {
    TextSink out(file);
    out << "# This OBJ file was exported from Quillmere";
    out.EndLine();
    out << "mtllib " << mtlName;
    out.EndLine();
    out << "# Vertex Count " << mesh->GetVCount();
    out.EndLine();
    // The resolved shape stands behind the world matrix already.
    for (int v = 0; v < mesh->GetVCount(); ++v) out.Numbers("v", mesh->ResolvedVertices[v], 3);
    for (int v = 0; v < mesh->GetVCount(); ++v) out.Numbers("vn", mesh->VertexNormals[v], 3);
    if (options.verticesOnly) return;
    for (int t = 0; t < mesh->GetVTCount(); ++t) out.Numbers("vt", mesh->TextureVertices[t], 2);
    WriteFaces(out, mesh, options);
}

} // namespace

bool QLM_WriteObjFile(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options,
                      std::string& failedPath) {
    QLM_TRACE(2);
    const std::string mtlName = QLM_StemOf(path) + ".mtl", mtlPath = QLM_FolderOf(path) + mtlName;
    QLM_SafeFileWriter mtl(mtlPath);
    if (!mtl.GetStream()) {
        failedPath = mtlPath;
        return false;
    }
    WriteMtl(mtl.GetStream(), mesh);
    QLM_SafeFileWriter obj(path);
    if (!obj.GetStream()) {
        failedPath = path;
        return false;
    }
    WriteObj(obj.GetStream(), mesh, mtlName, options);
    failedPath = !obj.Commit() ? path : !mtl.Commit() ? mtlPath : "";
    return failedPath.empty();
}
