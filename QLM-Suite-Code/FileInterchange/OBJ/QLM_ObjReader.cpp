#include "FileInterchange/OBJ/QLM_ObjReader.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Messages.h"
#include "FileInterchange/OBJ/QLM_LineScanner.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

#include <unordered_map>

namespace {

constexpr size_t LineLimit = 9998; // characters of a line, from a buffer of 9,999
constexpr int KeepAliveLines = 8000;
bool badUVsSeen = false, badUVsTold = false;

struct Counts {
    int64_t vertices = 0, textureVertices = 0, polygons = 0;
};

bool IsStop(std::string_view token, const char* stopToken) {
    return stopToken && QLM_CompareNoCase(token, stopToken) == 0;
}

/// First pass: how much there is.
Counts CountElements(FILE* stream, const char* stopToken) {
    Counts counts;
    QLM_LineScanner lines(stream, LineLimit);
    std::string_view line, rest;
    while (lines.Next(line)) {
        while (!line.empty() && QLM_Scan::IsBlank(line.front())) line.remove_prefix(1);
        if (line.empty()) continue;
        const bool second = line.size() == 1 || QLM_Scan::IsBlank(line[1]);
        if (second && (line[0] == 'v' || line[0] == 'V')) ++counts.vertices;
        else if (second && line[0] == 'f') ++counts.polygons;
        else if (line.size() >= 2 && (line.size() == 2 || QLM_Scan::IsBlank(line[2]))) {
            if (line[0] == 'v' && line[1] == 't') ++counts.textureVertices;
            else if (line[0] == 'f' && line[1] == 'o') ++counts.polygons;
        }
        if (stopToken && IsStop(QLM_Scan::Word(line, rest), stopToken)) break;
    }
    return counts;
}

/// The second pass over one file.
class Loader {
  public:
    Loader(QLM_Mesh* meshIn, const QLM_ObjReadOptions& optionsIn, const Counts& countsIn)
        : mesh(meshIn), options(optionsIn), counts(countsIn) {
        if (options.singleDefaultGroup) UseGroup("default");
    }

    void Run(FILE* stream) {
        QLM_LineScanner lines(stream, LineLimit);
        std::string_view line;
        int untilKeepAlive = KeepAliveLines;
        while (lines.Next(line)) {
            if (!Line(line)) break;
            if (--untilKeepAlive == 0) {
                QLM_OS::Get().KeepBusyAlive();
                untilKeepAlive = KeepAliveLines;
            }
        }
    }

    int polygonsRead = 0;
    bool sawMaterial = false;
    std::string materialLibrary;

  private:
    /// One line; false at the stop token.
    bool Line(std::string_view line) {
        std::string_view rest;
        const std::string_view token = QLM_Scan::Word(line, rest);
        if (IsStop(token, options.stopToken)) return false;
        if (token == "v") {
            if (vertex < counts.vertices) QLM_Scan::Floats(rest, mesh->Vertices[vertex++], 3);
        } else if (token == "vt") {
            if (textureVertex < counts.textureVertices)
                QLM_Scan::Floats(rest, mesh->TextureVertices[textureVertex++], 2);
        } else if (token == "f" || token == "fo") {
            Face(rest);
        } else if (token == "g") {
            if (!options.singleDefaultGroup && !internalNames) UseGroup(std::string(rest));
        } else if (!line.empty() && line[0] == '#') {
            if (options.useInternalNames) Comment(line);
        } else if (token == "usemtl") {
            UseMaterial(std::string(rest));
        } else if (line.substr(0, 6) == "mtllib") {
            materialLibrary = std::string(QLM_Scan::Trim(line.substr(6)));
        }
        return true;
    }

    void Comment(std::string_view line) {
        std::string_view name;
        if (QLM_CompareNoCase(QLM_Scan::Word(line.substr(std::min<size_t>(2, line.size())), name), "InternalName:") !=
            0)
            return;
        internalNames = true;
        UseGroup(std::string(name));
    }

    void UseGroup(const std::string& name) {
        const auto [entry, isNew] = groups.try_emplace(name, mesh->QLM_MeshGroupContainer::GetGroupCount());
        if (isNew) {
            auto* created = new QLM_Group2;
            created->SetNameText(name);
            mesh->AddGroup(created);
        }
        group = entry->second;
    }

    void UseMaterial(const std::string& name) {
        sawMaterial = true;
        const auto [entry, isNew] = materials.try_emplace(name, mesh->GetMaterialCount());
        if (isNew) {
            auto* created = new QLM_Material;
            created->SetNameText(name);
            mesh->AddMaterial(created);
        }
        material = entry->second;
    }

    /// Parses a face; it takes a place only when every corner is good.
    void Face(std::string_view text) {
        if (polygonsRead >= counts.polygons) return;
        int count = 0;
        while (count < QLM_MaximumCorners && !text.empty()) {
            int v = 0, t = 0;
            if (!Corner(text, v, t)) return;
            if (v == 0) break;
            v = v >= 1 ? v - 1 : v + vertex;
            t = t == 0 || textureVertex == 0 ? -1 : t >= 1 ? t - 1 : t + textureVertex;
            if (v < 0 || v >= counts.vertices) return;
            corners[count++] = {v, t, -1};
            size_t skip = 0;
            while (skip < text.size() && !QLM_Scan::IsBlank(text[skip])) ++skip;
            while (skip < text.size() && QLM_Scan::IsBlank(text[skip])) ++skip;
            text.remove_prefix(skip);
        }
        if (count < 3) return;
        if (counts.textureVertices > 0)
            for (int i = 0; i < count; ++i)
                if (corners[i].textureVertex < 0 || corners[i].textureVertex >= counts.textureVertices) {
                    corners[i].textureVertex = 0;
                    badUVsSeen = true;
                }
        mesh->SetPolygonCornerCount(polygonsRead, count);
        std::copy(corners, corners + count, mesh->GetPolygonCorners(polygonsRead));
        mesh->SetPolygonMaterial(polygonsRead, material);
        mesh->SetPolygonGroup(polygonsRead, group);
        ++polygonsRead;
    }

    /// "v/t/n", "v//n", "v/t" or "v", tried in this order.
    static bool Corner(std::string_view text, int& v, int& t) {
        if (!QLM_Scan::Integer(text, v)) return false;
        t = 0;
        if (QLM_Scan::Take(text, '/')) QLM_Scan::Integer(text, t);
        return true;
    }

    QLM_Mesh* mesh;
    const QLM_ObjReadOptions& options;
    const Counts counts;
    int vertex = 0, textureVertex = 0, group = -1, material = -1;
    bool internalNames = false;
    std::unordered_map<std::string, int> groups, materials;
    QLM_PolygonCorner corners[QLM_MaximumCorners];
};

/// The whole remainder of an mtllib line first, then its last word, beside the OBJ; the value as it stands otherwise.
std::string FindMaterialLibrary(const std::string& value, const std::string& path) {
    const std::string folder = QLM_FolderOf(path), name = QLM_FileNameOf(value);
    if (folder.empty() || name.empty()) return value;
    if (QLM_FileExists(folder + name)) return folder + name;
    const size_t blank = name.find_last_of(" \t");
    return folder + (blank == std::string::npos ? name : name.substr(blank + 1));
}

} // namespace

bool QLM_LoadObjDataFromStream(FILE* stream, const std::string& path, QLM_Mesh* mesh, const QLM_ObjReadOptions& options,
                               std::string& error) {
    QLM_TRACE(2);
    const int64_t start = ftello(stream);
    const Counts counts = CountElements(stream, options.stopToken);
    if (counts.vertices == 0) {
        error = QLM_GetString(1069);
        return false;
    }
    if (counts.vertices > INT32_MAX / 4 || counts.textureVertices > INT32_MAX / 4 || counts.polygons > INT32_MAX / 4) {
        error = "The file holds more elements than a mesh can have.";
        return false;
    }
    fseeko(stream, start, SEEK_SET);
    mesh->SetSizes(static_cast<int>(counts.vertices), static_cast<int>(counts.textureVertices),
                   static_cast<int>(counts.polygons));
    Loader loader(mesh, options, counts);
    loader.Run(stream);
    if (loader.polygonsRead < counts.polygons) mesh->SetPCount(loader.polygonsRead);

    // Without any usemtl one material, named after the file, serves all.
    if (!loader.sawMaterial) {
        auto* material = new QLM_Material;
        const std::string stem = QLM_StemOf(path), name = QLM_FileNameOf(path);
        material->SetNameText(!stem.empty() ? stem : !name.empty() ? name : path);
        mesh->AddMaterial(material);
        for (int p = 0; p < mesh->GetPCount(); ++p) mesh->SetPolygonMaterial(p, 0);
    }
    if (!loader.materialLibrary.empty())
        QLM_ReadMtlFile(FindMaterialLibrary(loader.materialLibrary, path), mesh, options.importMaps);
    mesh->AfterRawBuild();
    QLM_OS::Get().KeepBusyAlive();
    return true;
}

bool QLM_ReadObjFile(const std::string& path, QLM_Mesh* mesh, const QLM_ObjReadOptions& options, std::string& error) {
    if (QLM_FolderExists(path)) {
        error = "It is a folder.";
        return false;
    }
    std::string readable = path;
    const bool packed = !path.empty() && (path.back() == 'z' || path.back() == 'Z');
    if (packed) {
        readable = QLM_MakeTempFileName(QLM_OS::GetTempPath(), "tmp");
        if (!QLM_GunzipFile(path, readable, error)) {
            QLM_DeleteFile(readable);
            return false;
        }
    }
    FILE* stream = readable.empty() ? nullptr : QLM_fopen(readable, "rb");
    if (!stream) {
        error = "The file can't be opened.";
    } else if (QLM_LoadObjDataFromStream(stream, path, mesh, options, error)) {
        error.clear();
    }
    if (stream) QLM_fclose(stream);
    if (packed) QLM_DeleteFile(readable);
    return stream && error.empty();
}

void QLM_ShowQueuedObjWarnings() {
    if (!badUVsSeen || badUVsTold) return;
    badUVsTold = true;
    QLM_OS::Get().MessageBox("OBJ file contains polygons with bad UV coordinates. This OBJ may not paint properly "
                             "without being re-UV mapped.");
}
