// The record of a mesh in a project file.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_RecordOptions.h"
#include "Geometry/QLM_SymmetryManager.h"

#include <cmath>
#include <cstring>

namespace {
constexpr int64_t largestExpansion = 1032; // deflate can't make more of a byte

// What an element takes in the file before compression (a polygon at least), and about what it takes in memory with
// all that hangs on it.
constexpr int64_t vertexRaw = 12, textureVertexRaw = 8, polygonRaw = 6;
constexpr int64_t vertexMemory = 160, textureVertexMemory = 24, polygonMemory = 160;
constexpr int64_t memoryWithoutQuestion = 32 << 20;

constexpr const char* loadingVertices = "loading_vcount";
constexpr const char* loadingTextureVertices = "loading_vtcount";

template <class Number> void Append(std::vector<uint8_t>& bytes, Number number) {
    const auto* data = reinterpret_cast<const uint8_t*>(&number);
    bytes.insert(bytes.end(), data, data + sizeof number);
}

/// Packed numbers, taken one by one while they last.
class PackedReader {
  public:
    PackedReader(const uint8_t* bytes, size_t size) : at(bytes), end(bytes + size) {}
    template <class Number> bool Take(Number& out) {
        if (static_cast<size_t>(end - at) < sizeof out) return false;
        std::memcpy(&out, at, sizeof out);
        at += sizeof out;
        return true;
    }
    bool IsAtEnd() const { return at == end; }

  private:
    const uint8_t* at;
    const uint8_t* end;
};

bool AreFinite(const float* values, int count) {
    return std::all_of(values, values + count, [](float x) { return std::isfinite(x); });
}

/// Takes a number over unless it isn't finite.
void ReadFinite(const TextCommand& command, float& out) {
    float value = out;
    command.ReadFloat(value);
    if (std::isfinite(value)) out = value;
}

QLM_LayerManager* FindLayers() {
    QLM_LayerManager* manager = QLM_GetManagers().GetLayerManager();
    return QLM_IsItemUsable(manager) ? manager : nullptr;
}

/// Reads the block "vertices" or "tvertices" into an array that has its size already.
template <int N> bool ReadArray(FILE* stream, QLM_VertexMap<float, N>& array) {
    std::vector<uint8_t> bytes;
    const int64_t size = static_cast<int64_t>(array.GetCount()) * N * static_cast<int64_t>(sizeof(float));
    if (!QLM_ReadCompressedBlock(stream, bytes, size)) return false;
    if (size > 0) std::memcpy(array.GetData(), bytes.data(), bytes.size());
    return true;
}
} // namespace

bool QLM_Mesh::SaveToStream_Text(FILE* stream, bool writeBlock) {
    QLM_TRACE(1);
    if (GetBool("excludeFromSaving")) return false;
    const TStartTextFileBlock block("mesh", "", stream, writeBlock);
    QLM_BaseClass::SaveToStream_Text(stream);
    QLM_WriteInt(stream, "vcount", GetVCount());
    QLM_WriteInt(stream, "vtcount", GetVTCount());
    QLM_WriteInt(stream, "pcount", GetPCount());
    SaveArrays(stream);
    if (QLM_LayerManager* layers = FindLayers(); layers && QLM_RecordOptions::ShallWrite("OUTPUT_DISPLAY_GROUPS"))
        layers->SaveLayerFlags(stream, this);

    QLM_WriteInt(stream, "ReferenceObject", ReferenceObject);
    QLM_WriteVector3(stream, "Transform_Pos", Transform_Pos);
    QLM_WriteVector3(stream, "Transform_Scale", Transform_Scale);
    QLM_WriteMatrix(stream, "Transform_RotationMatrix", Transform_RotationMatrix);
    QLM_WriteInt(stream, "SymmetryAxis", SymmetryAxis);
    QLM_WriteFloat(stream, "SymmetryOffset", SymmetryOffset);
    QLM_WriteFloat(stream, "SymmetryPrecision", SymmetryPrecision);
    QLM_WriteInt(stream, "SymmetryPreSmoothB", SymmetryPreSmoothB);
    QLM_WriteFloat(stream, "MaxSmoothingAngle", GetMaxSmoothingAngle());
    QLM_WriteInt(stream, "Welded", IsWelded());
    if (IsWelded())
        QLM_WriteCompressedBlock(stream, "weldmap", GetWeldMap(), static_cast<size_t>(GetVCount()) * sizeof(int32_t));
    SaveParts(stream);
    return true;
}

bool QLM_Mesh::SaveReferenceToStream_Text(FILE* stream) {
    if (GetBool("excludeFromSaving")) return false;
    const TStartTextFileBlock block("meshReference", "", stream);
    QLM_BaseClass::SaveToStream_Text(stream);
    SaveParts(stream);
    if (QLM_LayerManager* layers = FindLayers(); layers && QLM_RecordOptions::ShallWrite("OUTPUT_DISPLAY_GROUPS"))
        layers->SaveLayerFlags(stream, this);
    return true;
}

void QLM_Mesh::SaveArrays(FILE* stream) {
    if (GetVCount() > 0)
        QLM_WriteCompressedBlock(stream, "verticesBinary", Vertices.GetData(),
                                 static_cast<size_t>(GetVCount()) * vertexRaw);
    if (GetVTCount() > 0)
        QLM_WriteCompressedBlock(stream, "tverticesBinary", TextureVertices.GetData(),
                                 static_cast<size_t>(GetVTCount()) * textureVertexRaw);
    if (GetPCount() == 0) return;
    std::vector<uint8_t> bytes;
    size_t size = 0;
    for (const QLM_Polygon& polygon : Polygons) size += polygonRaw + 8 * static_cast<size_t>(polygon.count);
    bytes.reserve(size);
    for (const QLM_Polygon& polygon : Polygons) {
        Append(bytes, polygon.material);
        Append(bytes, polygon.group);
        Append(bytes, static_cast<uint16_t>(polygon.count));
        for (int i = 0; i < polygon.count; ++i) {
            Append(bytes, polygon.corners[i].vertex);
            Append(bytes, polygon.corners[i].textureVertex);
        }
    }
    QLM_WriteCompressedBlock(stream, "polygonsBinary", bytes.data(), bytes.size());
}

void QLM_Mesh::SaveParts(FILE* stream) {
    QLM_WriteInt(stream, "mcount", GetMaterialCount());
    if (QLM_RecordOptions::ShallWrite("OUTPUT_MATERIALS"))
        for (QLM_Material* material : GetMaterials()) material->SaveToStream_Text(stream);
    if (QLM_RecordOptions::ShallWrite("OUTPUT_GROUPS"))
        for (int g = 0; g < GetGroupCount(); ++g) GetGroup(g)->SaveToStream_Text(stream);
    if (QLM_RecordOptions::ShallWrite("OUTPUT_MORPHS")) SaveMorphs(stream);
}

bool QLM_Mesh::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    TextCommand command(key, value);

    // What belongs to geometry of other counts can't be used.
    if (GetBool("INPUT_DISABLE_IMPORT_GEOMETRY_DATA"))
        for (const char* name : {"morphs", "selections", "PolygonLayerFlags", "LayerFlags", "weldmap"})
            if (command.Is(name)) {
                QLM_RecordOptions::Warn("INPUT_WARN_GEOMETRY_ERROR_DATA_OMITTED");
                loadFailed = true;
                return true;
            }

    ConsiderSize(stream, command);
    ConsiderArray(stream, command);
    ConsiderSetting(command);
    ConsiderPart(stream, command);
    if (!command.Handled()) command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

std::string QLM_Mesh::GetOwnerName() const { return GetObject() ? GetObject()->GetName() : GetName(); }

void QLM_Mesh::FailLoad(const std::string& message) {
    QLM_OS::Get().PrintMessageText(message);
    loadFailed = true;
}

void QLM_Mesh::ConsiderSize(FILE* stream, TextCommand& command) {
    const auto read = [&](int64_t rawSize) {
        int32_t count = 0;
        command.ReadInt(count);
        if (count >= 0 && count <= QLM_BytesLeft(stream) * largestExpansion / rawSize) return count;
        FailLoad(QLM_FormatText("Error loading the object '%s': the file is too short for %s %d.", GetOwnerName(),
                                command.key, count));
        return 0;
    };
    if (command.Is("vcount")) SetInt(loadingVertices, read(vertexRaw), Temporary);
    else if (command.Is("vtcount")) SetInt(loadingTextureVertices, read(textureVertexRaw), Temporary);
    else if (command.Is("pcount")) {
        const int64_t vertices = GetInt(loadingVertices), textureVertices = GetInt(loadingTextureVertices);
        const int64_t polygons = read(polygonRaw);
        if (loadFailed) return;
        // A few bytes must not claim many times what they could ever describe.
        const int64_t memory =
            vertices * vertexMemory + textureVertices * textureVertexMemory + polygons * polygonMemory;
        if (memory > QLM_BytesLeft(stream) * largestExpansion + memoryWithoutQuestion) {
            FailLoad(QLM_FormatText("Error loading the object '%s': the file is too short for vcount %d, vtcount %d, "
                                    "pcount %d.", GetOwnerName(), vertices, textureVertices, polygons));
            return;
        }
        SetSizes(static_cast<int>(vertices), static_cast<int>(textureVertices), static_cast<int>(polygons));
    }
}

void QLM_Mesh::ConsiderArray(FILE* stream, TextCommand& command) {
    bool good = true;
    if (command.Is("verticesBinary") || command.Is("vertices")) good = ReadArray(stream, Vertices);
    else if (command.Is("tverticesBinary") || command.Is("tvertices")) good = ReadArray(stream, TextureVertices);
    else if (command.Is("polygonsBinary") || command.Is("polygons")) {
        std::vector<uint8_t> bytes;
        good = QLM_ReadCompressedBlock(stream, bytes) && ConvertArrayToPolygons(bytes.data(), bytes.size());
    }
    if (!good)
        FailLoad(QLM_FormatText("Error loading the object '%s': the data of %s are damaged.", GetOwnerName(),
                                command.key));
}

bool QLM_Mesh::ConvertArrayToPolygons(const uint8_t* bytes, size_t size) {
    PackedReader reader(bytes, size);
    for (int p = 0; p < GetPCount(); ++p) {
        uint16_t material = 0, group = 0, count = 0;
        if (!reader.Take(material) || !reader.Take(group) || !reader.Take(count)) return false;
        SetPolygonMaterial(p, material);
        SetPolygonGroup(p, group);
        SetPolygonCornerCount(p, count);
        QLM_PolygonCorner beyondLimit;
        for (int i = 0; i < count; ++i) {
            QLM_PolygonCorner& corner = i < QLM_MaximumCorners ? GetPolygonCorners(p)[i] : beyondLimit;
            if (!reader.Take(corner.vertex) || !reader.Take(corner.textureVertex)) return false;
        }
    }
    return reader.IsAtEnd();
}

void QLM_Mesh::ConsiderSetting(TextCommand& command) {
    if (command.Is("ReferenceObject") || command.Is("ForceColorTextureDisplay")) command.ReadBool(ReferenceObject);
    else if (command.Is("Transform_Pos") || command.Is("Transform_Scale")) {
        float* const target = QLM_CompareNoCase(command.key, "Transform_Pos") == 0 ? Transform_Pos : Transform_Scale;
        float values[3] = {target[0], target[1], target[2]};
        command.ReadVector3(values);
        if (AreFinite(values, 3)) std::copy_n(values, 3, target);
    } else if (command.Is("Transform_RotationMatrix")) {
        float values[16];
        std::copy_n(Transform_RotationMatrix, 16, values);
        command.ReadMatrix(values);
        if (AreFinite(values, 16)) std::copy_n(values, 16, Transform_RotationMatrix);
    } else if (command.Is("SymmetryAxis")) {
        uint32_t axis = 0;
        command.ReadUnsigned(axis);
        if (axis <= 2) SymmetryAxis = axis;
    } else if (command.Is("SymmetryOffset")) ReadFinite(command, SymmetryOffset);
    else if (command.Is("SymmetryPrecision")) ReadFinite(command, SymmetryPrecision);
    else if (command.Is("SymmetryPreSmoothB")) command.ReadBool(SymmetryPreSmoothB);
    else if (command.Is("MaxSmoothingAngle")) {
        float angle = GetMaxSmoothingAngle();
        ReadFinite(command, angle);
        SetMaxSmoothingAngle(angle);
    }
}

void QLM_Mesh::ConsiderPart(FILE* stream, TextCommand& command) {
    if (command.Is("weldmap")) LoadWeldMap(stream);
    else if (command.Is("material")) LoadMaterial(stream, QLM_CleanName(command.value));
    else if (command.Is("polygroup")) LoadGroup(stream, QLM_Group2::CleanName(command.value));
    else if (command.Is("morphs")) loadFailed = !LoadMorphs(stream); // a morph tells itself what is wrong
    else if (QLM_LayerManager* layers = FindLayers()) {
        if (command.Is("LayerFlags")) loadFailed = !layers->LoadLayerFlags(stream, this);
        else if (command.Is("PolygonLayerFlags")) loadFailed = !layers->LoadPolygonLayerFlags(stream, this);
    }
}

void QLM_Mesh::LoadWeldMap(FILE* stream) {
    const int count = GetVCount();
    std::vector<uint8_t> bytes;
    if (!QLM_ReadCompressedBlock(stream, bytes, static_cast<int64_t>(count) * static_cast<int64_t>(sizeof(int32_t)))) {
        FailLoad(QLM_FormatText("Error loading the object '%s': the data of weldmap are damaged.", GetOwnerName()));
        return;
    }
    std::vector<int32_t> targets(count);
    if (count > 0) std::memcpy(targets.data(), bytes.data(), bytes.size());
    RestoreWeldMap(targets.data(), count);
}

void QLM_Mesh::LoadMaterial(FILE* stream, const std::string& name) {
    if (GetBool("INPUT_MISMATCHING_UVS")) QLM_RecordOptions::Warn("INPUT_WARN_UV_MISMATCH");
    QLM_Material* material = nullptr;
    if (GetBool("LOADING_FROM_FIXED_ASSET")) {
        material = FindMaterialByName(name);
        if (!material) {
            FailLoad(QLM_FormatText("Cannot find the material '%s' for the object '%s' ( loading as fixed asset, "
                                    "material does not exist in original object) ", name, GetOwnerName()));
            return;
        }
    } else {
        material = new QLM_Material;
        material->SetNameText(name);
        AddMaterial(material);
    }
    if (!material->LoadFromStream_Text(stream, 0))
        FailLoad(QLM_FormatText("Error loading the material '%s' of the object '%s'.", name, GetOwnerName()));
}

void QLM_Mesh::LoadGroup(FILE* stream, const std::string& name) {
    QLM_Group2* group = nullptr;
    if (GetBool("LOADING_FROM_FIXED_ASSET")) {
        group = GetGroup(FindGroupByName(name));
        if (!group) {
            FailLoad(QLM_FormatText("Cannot find the group '%s' for the object '%s' ( loading as fixed asset, group "
                                    "does not exist in original object) ", name, GetOwnerName()));
            return;
        }
    } else {
        group = new QLM_Group2;
        group->SetNameText(name);
        AddGroup(group);
    }
    if (!group->LoadFromStream_Text(stream, 0))
        FailLoad(QLM_FormatText("Error loading the group '%s' of the object '%s'.", name, GetOwnerName()));
}

void QLM_Mesh::SetupAfterLoad() {
    FinishMorphsAfterLoad();
    if (QLM_SymmetryManager* symmetry = QLM_GetManagers().GetSymmetryManager(); QLM_IsItemUsable(symmetry))
        symmetry->StartCalculation(this, SymmetryAxis);
}
