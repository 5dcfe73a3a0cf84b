#include "FileInterchange/OBJ/QLM_ObjReader.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Messages.h"
#include "FileInterchange/OBJ/QLM_ObjText.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <unordered_map>

namespace {

/// Texts of this format shrink to a third or a tenth; only a file made for it grows beyond this when it is unpacked.
constexpr uint64_t UnpackedPerByte = 100, UnpackedAlways = 64 << 20;
bool badUVsSeen = false, badUVsTold = false;

/// Both passes over one text.
class Loader {
  public:
    Loader(FILE* streamIn, QLM_Mesh* meshIn, const QLM_ObjReadOptions& optionsIn)
        : stream(streamIn), mesh(meshIn), options(optionsIn) {}

    /// First pass: how much there is, chunk by chunk.
    void Count() {
        QLM_TRACE(2);
        const int64_t start = ftello(stream);
        int64_t bytes = 0;
        const auto left = static_cast<uint64_t>(std::max<int64_t>(0, QLM_BytesLeft(stream)));
        QLM_TextBlocks text(stream, QLM_ObjLineLimit, std::min<uint64_t>(options.blockBytes, left + 1));
        for (std::string_view block = text.Next(); !block.empty() && !stopLine; block = text.Next()) {
            std::vector<QLM_ObjChunk> chunks = QLM_CutObjBlock(block);
            const std::vector<size_t> starts = Starts(chunks);
            QLM_ThreadCrunch(
                static_cast<int64_t>(chunks.size()),
                [&](const ThreadCrunchRange& range) {
                    for (size_t i = range.start; i < static_cast<size_t>(range.end); ++i)
                        QLM_CountObjChunk(block.substr(starts[i], chunks[i].size), options.stopToken, chunks[i]);
                },
                "Count_OBJ_ThreadFunc");
            // What stands behind the stop token counts no more.
            const auto stop =
                std::find_if(chunks.begin(), chunks.end(), [](const auto& chunk) { return chunk.stopLine; });
            if (stop != chunks.end()) {
                stopLine = stop->stopLine;
                chunks.erase(stop + 1, chunks.end());
            }
            for (const QLM_ObjChunk& chunk : chunks) {
                bytes += static_cast<int64_t>(chunk.size);
                vertices += chunk.vertices;
                textureVertices += chunk.textureVertices;
                polygons += chunk.polygons;
            }
            blocks.push_back(std::move(chunks));
            QLM_OS::Get().KeepBusyAlive();
        }
        fseeko(stream, start, SEEK_SET);
        end = start + bytes + static_cast<int64_t>(stopLine);
    }

    /// Second pass: fills the mesh, which has its sizes.
    void Load() {
        QLM_TRACE(2);
        if (options.singleDefaultGroup) UseGroup("default");
        std::vector<char> buffer;
        for (const std::vector<QLM_ObjChunk>& chunks : blocks) {
            std::vector<size_t> starts = Starts(chunks);
            buffer.resize(starts.back());
            const size_t got = std::fread(buffer.data(), 1, buffer.size(), stream);
            for (size_t& start : starts) start = std::min(start, got); // the file may have shrunk
            ReadBlock({buffer.data(), got}, chunks, starts);
            for (QLM_ObjChunkContent& content : contents) Apply(content);
            QLM_OS::Get().KeepBusyAlive();
        }
        fseeko(stream, end, SEEK_SET);
    }

    int64_t vertices = 0, textureVertices = 0, polygons = 0;
    int polygonsRead = 0;
    bool sawMaterial = false;
    std::string materialLibrary;

  private:
    /// Where each chunk of a block begins, and the block's size.
    static std::vector<size_t> Starts(const std::vector<QLM_ObjChunk>& chunks) {
        std::vector<size_t> starts = {0};
        for (const QLM_ObjChunk& chunk : chunks) starts.push_back(starts.back() + chunk.size);
        return starts;
    }

    void ReadBlock(std::string_view block, const std::vector<QLM_ObjChunk>& chunks, const std::vector<size_t>& starts) {
        std::vector<QLM_ObjTargets> targets;
        for (const QLM_ObjChunk& chunk : chunks) {
            targets.push_back({mesh->Vertices.GetData(), mesh->TextureVertices.GetData(), vertex, textureVertex,
                               mesh->GetVCount(), mesh->GetVTCount()});
            vertex += chunk.loadedVertices;
            textureVertex += chunk.textureVertices;
        }
        contents.resize(chunks.size());
        QLM_ThreadCrunch(
            static_cast<int64_t>(chunks.size()),
            [&](const ThreadCrunchRange& range) {
                for (size_t i = range.start; i < static_cast<size_t>(range.end); ++i) {
                    QLM_ObjChunkContent& content = contents[i];
                    content.faces.clear(); // the block that grew serves the next chunk too
                    content.statements.clear();
                    content.faceCount = 0;
                    content.badUVs = false;
                    QLM_ReadObjChunk(block.substr(starts[i], starts[i + 1] - starts[i]), chunks[i], targets[i],
                                     options.useInternalNames, content);
                }
            },
            "Read_OBJ_ThreadFunc");
    }

    /// Gives the mesh a chunk's faces, under the groups and materials that its statements name.
    void Apply(const QLM_ObjChunkContent& content) {
        const int32_t* face = content.faces.data();
        size_t statement = 0;
        for (int32_t i = 0; i < content.faceCount; ++i) {
            while (statement < content.statements.size() && content.statements[statement].face <= i)
                Act(content.statements[statement++]);
            const int count = *face++;
            mesh->SetPolygonCornerCount(polygonsRead, count);
            QLM_PolygonCorner* corners = mesh->GetPolygonCorners(polygonsRead);
            for (int k = 0; k < count; ++k, face += 2) corners[k] = {face[0], face[1], -1};
            mesh->SetPolygonMaterial(polygonsRead, material);
            mesh->SetPolygonGroup(polygonsRead, group);
            ++polygonsRead;
        }
        while (statement < content.statements.size()) Act(content.statements[statement++]);
        badUVsSeen = badUVsSeen || content.badUVs;
    }

    void Act(const QLM_ObjStatement& statement) {
        const std::string text(statement.text);
        switch (statement.kind) {
        case QLM_ObjStatement::Group:
            if (!options.singleDefaultGroup && !internalNames) UseGroup(text);
            break;
        case QLM_ObjStatement::InternalName:
            internalNames = true;
            UseGroup(text);
            break;
        case QLM_ObjStatement::Material:
            UseMaterial(text);
            break;
        case QLM_ObjStatement::Library:
            materialLibrary = text;
            break;
        }
    }

    void UseGroup(const std::string& name) {
        const auto [entry, isNew] = groups.try_emplace(name, std::min<int>(mesh->GetGroupCount(), QLM_Polygon::None));
        if (isNew && entry->second < QLM_Polygon::None) {
            auto* created = new QLM_Group2;
            created->SetNameText(name);
            mesh->AddGroup(created);
        }
        group = entry->second;
    }

    void UseMaterial(const std::string& name) {
        sawMaterial = true;
        const auto [entry, isNew] =
            materials.try_emplace(name, std::min<int>(mesh->GetMaterialCount(), QLM_Polygon::None));
        if (isNew && entry->second < QLM_Polygon::None) {
            auto* created = new QLM_Material;
            created->SetNameText(name);
            mesh->AddMaterial(created);
        }
        material = entry->second;
    }

    FILE* stream;
    QLM_Mesh* mesh;
    const QLM_ObjReadOptions& options;
    std::vector<std::vector<QLM_ObjChunk>> blocks;
    std::vector<QLM_ObjChunkContent> contents;
    size_t stopLine = 0;
    int64_t end = 0; ///< of the text in the stream
    int64_t vertex = 0, textureVertex = 0;
    int group = -1, material = -1;
    bool internalNames = false;
    std::unordered_map<std::string, int> groups, materials; ///< beyond the last number of a polygon all are none
};

/// The whole remainder of an mtllib line first, then its last word, beside the OBJ; the value as it stands otherwise.
std::string FindMaterialLibrary(const std::string& value, const std::string& path) {
    const std::string folder = QLM_FolderOf(path), name = QLM_FileNameOf(value);
    if (folder.empty() || name.empty()) return value;
    if (QLM_FileExists(QLM_ResolveCase(folder + name))) return folder + name;
    const size_t blank = name.find_last_of(" \t");
    return folder + (blank == std::string::npos ? name : name.substr(blank + 1));
}

} // namespace

bool QLM_LoadObjDataFromStream(FILE* stream, const std::string& path, QLM_Mesh* mesh, const QLM_ObjReadOptions& options,
                               std::string& error) {
    QLM_TRACE(2);
    Loader loader(stream, mesh, options);
    loader.Count();
    if (loader.vertices == 0) {
        error = QLM_GetString(1069);
        return false;
    }
    if (std::max({loader.vertices, loader.textureVertices, loader.polygons}) > INT_MAX / 4) {
        error = "The file holds more elements than a mesh can have.";
        return false;
    }
    mesh->SetSizes(static_cast<int>(loader.vertices), static_cast<int>(loader.textureVertices),
                   static_cast<int>(loader.polygons));
    loader.Load();
    if (loader.polygonsRead < loader.polygons) mesh->SetPCount(loader.polygonsRead);

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
        std::error_code failure;
        const uint64_t size = std::filesystem::file_size(QLM_ResolveCase(path), failure);
        readable = QLM_MakeTempFileName(QLM_OS::GetTempPath(), "tmp");
        if (!QLM_GunzipFile(path, readable, error, std::max(UnpackedAlways, failure ? 0 : size * UnpackedPerByte))) {
            QLM_DeleteFile(readable);
            error = "It can't be unpacked: " + error + ".";
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
