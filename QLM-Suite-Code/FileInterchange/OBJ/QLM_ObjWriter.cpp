#include "FileInterchange/OBJ/QLM_ObjWriter.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "FileInterchange/OBJ/QLM_ObjLines.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_Matrix.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr float MovedShareOfDiagonal = 1e-6f;

/// Files hold what was imported: while one lives, a welded mesh stands as separate vertices.
class Unwelded {
  public:
    // The refresh that goes with it needs workers, which may hang in what went wrong.
    explicit Unwelded(QLM_Mesh& meshIn) : mesh(meshIn), changed(!QLM_IsFailureUnderWay() && mesh.Unweld()) {}
    ~Unwelded() {
        if (changed) mesh.Reweld();
    }
    Unwelded(const Unwelded&) = delete;
    Unwelded& operator=(const Unwelded&) = delete;

  private:
    QLM_Mesh& mesh;
    const bool changed;
};

/// What a line of the library in `folder` says of a channel's map: its name, or that of a file that was not found. The
/// name of a map whose file lies deeper, or bears letters that names can't, would lead nowhere: it is told by its path.
std::string MapNameOf(const QLM_Mesh& mesh, const QLM_MaterialChannel& channel, const std::string& folder) {
    const QLM_MaterialMapSource* map = QLM_GetChannelMap(mesh.GetMapList(), &channel);
    if (!map) return channel.mapFileName;
    const std::string path = QLM_NativePath(map->GetMapFileName());
    const bool isBelow = !folder.empty() && path.starts_with(folder);
    return isBelow && !QLM_FileExists(folder + map->GetName()) ? path.substr(folder.size()) : map->GetName();
}

void WriteMtl(FILE* file, const QLM_Mesh& mesh, const std::string& folder) {
    for (const QLM_Material* material : mesh.GetMaterials()) {
        QLM_PrintToFile(file, "newmtl %s\n", material->GetName());
        const std::pair<const char*, const QLM_MaterialChannel*> colors[] = {
            {"Ka", material->Ambient}, {"Kd", material->Color}, {"Ks", material->Specular}};
        for (const auto& [key, channel] : colors)
            QLM_PrintToFile(file, "%s %.6f %.6f %.6f\n", key, channel->Color[0], channel->Color[1], channel->Color[2]);
        QLM_PrintToFile(file, "d %.4f\n", 1.0f - material->Transparency->Strength);
        const std::pair<const char*, const QLM_MaterialChannel*> maps[] = {
            {"map_kd", material->Color},    {"map_Bump", material->Bump},  {"map_d", material->Transparency},
            {"map_ks", material->Specular}, {"map_ka", material->Ambient}, {"disp", material->Displacement}};
        for (const auto& [key, channel] : maps)
            if (const std::string name = MapNameOf(mesh, *channel, folder); !name.empty())
                QLM_PrintToFile(file, "%s %s\n", key, name);
    }
}

/// The name of a group as files bear it.
std::string_view ShortName(const QLM_Group2& group) {
    const std::string_view full = group.GetName();
    return full.substr(0, full.find(':'));
}

/// "usemtl" where the material changes; a polygon without one says nothing.
void WriteMaterialChange(QLM_LineBuffer& out, const QLM_Mesh& mesh, int before, int material) {
    const QLM_Material* named = before != material ? mesh.GetMaterial(material) : nullptr;
    if (named) out << "usemtl " << named->GetName() << '\n';
}

/// A face, headed by the material and group where they differ from those of the polygon before.
void WriteFace(QLM_LineBuffer& out, const QLM_Mesh& mesh, int p, const QLM_ObjWriteOptions& options) {
    const QLM_Polygon& polygon = mesh.GetPolygon(p);
    const int materialBefore = p > 0 ? mesh.GetPolygon(p - 1).material : -1;
    const int groupBefore = p > 0 ? mesh.GetPolygon(p - 1).group : -1;
    WriteMaterialChange(out, mesh, materialBefore, polygon.material);
    if ((options.exportGroups || options.internalNames) && polygon.group != groupBefore)
        if (const QLM_Group2* group = mesh.GetGroup(polygon.group)) {
            if (options.internalNames) out << "#  InternalName: " << ShortName(*group) << '\n';
            if (options.exportGroups) out << "g " << ShortName(*group) << '\n';
        }
    out << 'f';
    for (int i = 0; i < polygon.count; ++i) {
        const int vertex = polygon.corners[i].vertex, texture = polygon.corners[i].textureVertex;
        if (vertex == -1) continue;
        out << ' ' << vertex + 1 << '/';
        if (texture != -1) out << texture + 1;
        out << '/' << vertex + 1;
    }
    out << '\n';
}

void WriteObj(FILE* file, QLM_Mesh& mesh, const std::string& mtlName, const QLM_ObjWriteOptions& options) {
    QLM_PrintToFile(file, "# This OBJ file was exported from %s\n", "Quillmere");
    QLM_PrintToFile(file, "mtllib %s\n", mtlName);
    QLM_PrintToFile(file, "# Vertex Count %d\n", mesh.GetVCount());
    const auto write = [file](std::string_view keyword, const auto& array, int count) {
        QLM_WriteObjLines(file, array.GetCount(),
                          [&](int i, QLM_LineBuffer& out) { out.Numbers(keyword, array[i], count); });
    };
    // The resolved shape stands behind the world matrix already, but for vertices that aren't visible.
    const bool isPlaced = mesh.IsIdentity();
    QLM_WriteObjLines(file, mesh.ResolvedVertices.GetCount(), [&](int v, QLM_LineBuffer& out) {
        float point[3];
        std::copy_n(mesh.ResolvedVertices[v], 3, point);
        if (!isPlaced && mesh.HasVertexFlag(v, eVFlag_Hidden))
            MatrixTransformPoint(mesh.GetWorldMatrix(), point, point);
        out.Numbers("v", point, 3);
    });
    write("vn", mesh.VertexNormals, 3);
    if (options.verticesOnly) return;
    write("vt", mesh.TextureVertices, 2);
    QLM_WriteObjLines(file, mesh.GetPCount(), [&](int p, QLM_LineBuffer& out) { WriteFace(out, mesh, p, options); });
}

/// Writes groups one after another, each with numbers of its own.
class GroupWriter {
  public:
    explicit GroupWriter(const QLM_Mesh& meshIn)
        : mesh(meshIn), vertexNumbers(static_cast<size_t>(mesh.GetVCount()), -1),
          textureNumbers(static_cast<size_t>(mesh.GetVTCount()), -1),
          firstOfVertex(static_cast<size_t>(mesh.GetVCount()) + 1, 0),
          isWritten(static_cast<size_t>(mesh.GetPCount()), false) {
        // A polygon that lies in a group has its first corner there: finding it by that corner is enough.
        for (int p = 0; p < mesh.GetPCount(); ++p)
            if (mesh.GetPolygonVertexCount(p) > 0) ++firstOfVertex[FirstVertex(p) + 1];
        for (size_t v = 1; v < firstOfVertex.size(); ++v) firstOfVertex[v] += firstOfVertex[v - 1];
        polygonsByFirst.resize(static_cast<size_t>(firstOfVertex.back()));
        std::vector<int32_t> next(firstOfVertex.begin(), firstOfVertex.end() - 1);
        for (int p = 0; p < mesh.GetPCount(); ++p)
            if (mesh.GetPolygonVertexCount(p) > 0) polygonsByFirst[static_cast<size_t>(next[FirstVertex(p)]++)] = p;
    }

    /// True when a vertex lies away from where it was before any deformation.
    bool HasMoved(const QLM_Group2& group) const {
        const float limit = mesh.BoundsDiagonal * MovedShareOfDiagonal;
        return std::any_of(group.Vertices.begin(), group.Vertices.end(), [&](int32_t v) {
            if (!IsVertex(v)) return false;
            const float *now = mesh.ResolvedVertices[v], *before = mesh.Vertices[v];
            const float moved[3] = {now[0] - before[0], now[1] - before[1], now[2] - before[2]};
            return moved[0] * moved[0] + moved[1] * moved[1] + moved[2] * moved[2] > limit * limit;
        });
    }

    void Write(FILE* file, const QLM_Group2& group, const std::string& mtlName, bool verticesOnly) {
        QLM_PrintToFile(file, "mtllib %s\n", mtlName);
        QLM_PrintToFile(file, "# Vertex Count %d\n", static_cast<int>(group.Vertices.size()));
        out.Clear();
        int32_t next = 0;
        for (const int32_t v : group.Vertices) {
            if (!IsVertex(v)) {
                QLM_Log("The group \"%s\" contains an invalid vertex index", group.GetName());
                continue;
            }
            vertexNumbers[static_cast<size_t>(v)] = next++;
            out.Numbers("v", mesh.ResolvedVertices[v], 3);
        }
        if (!verticesOnly) WriteFaces(PolygonsOf(group));
        std::fwrite(out.GetData(), 1, out.GetSize(), file);
        for (const int32_t v : group.Vertices)
            if (IsVertex(v)) vertexNumbers[static_cast<size_t>(v)] = -1;
    }

    /// Polygons that no file so far holds.
    int CountLeftOut() const { return static_cast<int>(std::count(isWritten.begin(), isWritten.end(), false)); }

  private:
    bool IsVertex(int32_t v) const { return v >= 0 && v < mesh.GetVCount(); }
    size_t FirstVertex(int p) const { return static_cast<size_t>(mesh.GetPolygon(p).corners[0].vertex); }

    /// Polygons that lie in the numbered group with all their corners, ascending.
    std::vector<int32_t> PolygonsOf(const QLM_Group2& group) const {
        std::vector<int32_t> found;
        for (const int32_t v : group.Vertices)
            if (IsVertex(v))
                found.insert(found.end(), polygonsByFirst.begin() + firstOfVertex[static_cast<size_t>(v)],
                             polygonsByFirst.begin() + firstOfVertex[static_cast<size_t>(v) + 1]);
        std::erase_if(found, [&](int32_t p) {
            const QLM_Polygon& polygon = mesh.GetPolygon(p);
            return std::any_of(polygon.corners, polygon.corners + polygon.count, [&](const QLM_PolygonCorner& corner) {
                return vertexNumbers[static_cast<size_t>(corner.vertex)] == -1;
            });
        });
        std::sort(found.begin(), found.end());
        return found;
    }

    void WriteFaces(const std::vector<int32_t>& polygons) {
        // Texture vertices in the order of first use.
        std::vector<int32_t> used;
        for (const int32_t p : polygons)
            for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i) {
                const int texture = mesh.GetPolygonTextureVertex(p, i);
                if (texture < 0 || textureNumbers[static_cast<size_t>(texture)] != -1) continue;
                textureNumbers[static_cast<size_t>(texture)] = static_cast<int32_t>(used.size());
                used.push_back(texture);
                out.Numbers("vt", mesh.TextureVertices[texture], 2);
            }
        int material = -1;
        for (const int32_t p : polygons) {
            WriteMaterialChange(out, mesh, material, mesh.GetPolygonMaterial(p));
            material = mesh.GetPolygonMaterial(p);
            isWritten[static_cast<size_t>(p)] = true;
            out << "f ";
            for (int i = 0; i < mesh.GetPolygonVertexCount(p); ++i) {
                const int texture = mesh.GetPolygonTextureVertex(p, i);
                out << ' ' << vertexNumbers[static_cast<size_t>(mesh.GetPolygonRawVertex(p, i))] + 1;
                if (texture >= 0) out << '/' << textureNumbers[static_cast<size_t>(texture)] + 1;
            }
            out << '\n';
        }
        for (const int32_t texture : used) textureNumbers[static_cast<size_t>(texture)] = -1;
    }

    const QLM_Mesh& mesh;
    std::vector<int32_t> vertexNumbers, textureNumbers;  ///< in the present file; all -1 between two files
    std::vector<int32_t> firstOfVertex, polygonsByFirst; ///< by the vertex of the first corner, ascending
    std::vector<bool> isWritten;
    QLM_LineBuffer out;
};

} // namespace

bool QLM_WriteObjFile(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options,
                      std::string& failedPath) {
    QLM_TRACE(2);
    const std::string folder = QLM_FolderOf(path), mtlName = QLM_StemOf(path) + ".mtl", mtlPath = folder + mtlName;
    QLM_SafeFileWriter mtl(mtlPath), obj(path);
    // Two files of one name would leave the library alone.
    failedPath = !mtl.GetStream() ? mtlPath : !obj.GetStream() || path == mtlPath ? path : "";
    if (!failedPath.empty()) return false;
    WriteMtl(mtl.GetStream(), *mesh, folder);
    {
        const Unwelded separate(*mesh);
        WriteObj(obj.GetStream(), *mesh, mtlName, options);
    }
    // Neither takes its place before both are on the disk.
    failedPath = !mtl.Finish() ? mtlPath : !obj.Finish() ? path : "";
    if (failedPath.empty()) failedPath = !mtl.Commit() ? mtlPath : !obj.Commit() ? path : "";
    return failedPath.empty();
}

bool QLM_WriteObjGroups(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options) {
    QLM_TRACE(2);
    bool good = true;
    const std::string folder = QLM_FolderOf(path), stem = folder + QLM_StemOf(path);
    const std::string mtlName = QLM_StemOf(path) + ".mtl";
    QLM_SafeFileWriter mtl(stem + ".mtl");
    if (mtl.GetStream()) WriteMtl(mtl.GetStream(), *mesh, folder);
    if (!mtl.Commit()) {
        QLM_OS::Get().PrintMessage("Error saving the file MTL file '%s'", stem + ".mtl");
        good = false;
    }

    // Groups are written in the object's own space.
    const Unwelded separate(*mesh);
    const bool isMoved = !mesh->IsIdentity();
    if (isMoved) mesh->ResolveMorphs(false);
    GroupWriter writer(*mesh);
    for (int g = 0; g < mesh->GetGroupCount(); ++g) {
        const QLM_Group2& group = *mesh->GetGroup(g);
        if (options.changedGroupsOnly && !writer.HasMoved(group)) continue;
        // Names are longer than a formatted text may be.
        const std::string groupPath = stem + "_" + std::string(ShortName(group)) + ".OBJ";
        QLM_SafeFileWriter obj(groupPath);
        if (obj.GetStream()) writer.Write(obj.GetStream(), group, mtlName, options.verticesOnly);
        if (obj.Commit()) continue;
        QLM_OS::Get().PrintMessageText("Error creating the file " + groupPath);
        good = false;
    }
    if (isMoved) mesh->ResolveMorphs(true);
    const bool isAll = good && !options.changedGroupsOnly && !options.verticesOnly;
    if (const int leftOut = isAll ? writer.CountLeftOut() : 0; leftOut > 0)
        QLM_OS::Get().PrintMessage("%d polygon(s) lie in no group, so no file holds them.", leftOut);
    return good;
}
