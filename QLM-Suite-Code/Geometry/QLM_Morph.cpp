#include "Geometry/QLM_Morph.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
constexpr int64_t tripleBytes = 3 * sizeof(float);
constexpr int64_t sparseRecordBytes = sizeof(int32_t) + tripleBytes;
constexpr int64_t greatestInflation = 1032; // of a byte by deflate

void ReadStrength(const TextCommand& command, float& strength) {
    float value = strength;
    command.ReadFloat(value);
    if (std::isfinite(value)) strength = value;
}

void ReplaceBadNumbers(float* values, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        if (!std::isfinite(values[i])) values[i] = 0.0f;
}
} // namespace

QLM_Morph::QLM_Morph(uint32_t meshID, int vertexCount) : MeshId(meshID), VertexCount(std::max(vertexCount, 0)) {}

QLM_Morph::~QLM_Morph() {
    if (!Listed) return;
    if (auto* mesh = QLM_FindByID<QLM_Mesh>(MeshId)) mesh->ForgetMorph(this);
}

// --- Forms ----------------------------------------------------------------------------------------------------------

bool QLM_Morph::Expand(const char* caller) {
    if (IsExpanded()) return true;
    if (!Deltas.IsParked()) {
        Deltas.Resize(VertexCount, false, true);
        return true;
    }
    if (Deltas.Unpark()) return true;
    QLM_OS::Get().PrintMessage("Error retreiving morph data in %s", caller);
    return false;
}

void QLM_Morph::Park() { Deltas.Park(); }

void QLM_Morph::SetVertexCount(int n) {
    n = std::max(n, 0);
    if (HasArray()) {
        const bool parked = Deltas.IsParked();
        Deltas.Resize(n, true, true);
        if (parked) Park();
    }
    VertexCount = n;
}

// --- Deltas ---------------------------------------------------------------------------------------------------------

float* QLM_Morph::GetPointerToExpandedArray() {
    Expand("GetPointerToExpandedArray");
    return Deltas.GetData();
}

float* QLM_Morph::GetVertex(int i) {
    Expand("GetVertex");
    if (!Deltas.GetData() || i < 0 || i >= VertexCount)
        QLM_RaiseError("vertices == NULL in *QLM_Morph::GetVertex(int i)");
    return Deltas[i];
}

bool QLM_Morph::GetFirstDelta(int& index, float*& delta) {
    Expand("GetFirstDelta");
    Iterator = 0;
    return GetNextDelta(index, delta);
}

bool QLM_Morph::GetNextDelta(int& index, float*& delta) {
    for (; Deltas.GetData() && Iterator < VertexCount; ++Iterator) {
        float* triple = Deltas[Iterator];
        if (triple[0] == 0.0f && triple[1] == 0.0f && triple[2] == 0.0f) continue;
        index = Iterator++;
        delta = triple;
        return true;
    }
    return false;
}

void QLM_Morph::Clear() {
    Expand("Clear");
    if (!Deltas.GetData()) QLM_RaiseError("vertices == NULL in QLM_Morph::Clear()");
    std::memset(Deltas.GetData(), 0, static_cast<size_t>(VertexCount) * tripleBytes);
}

void QLM_Morph::Add(QLM_Morph& other) {
    if (VertexCount != other.VertexCount) QLM_RaiseError("vertices.GetSize() != vcount in QLM_Morph::Add()");
    float* own = GetPointerToExpandedArray();
    const float* added = other.GetPointerToExpandedArray();
    QLM_ThreadCrunch(VertexCount, [=](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int64_t i = 3LL * range.start; i < 3LL * range.end; ++i) own[i] += added[i];
    }, "VertexMapAdd_ThreadFunc");
}

void QLM_Morph::CopyFrom(QLM_Morph& other) {
    if (this == &other) return;
    SetVertexCount(other.VertexCount);
    MeshId = other.MeshId;
    if (VertexCount > 0) {
        const bool wasExpanded = other.IsExpanded();
        Clear();
        Add(other);
        if (!wasExpanded) other.Park();
    }
    MarkChanged();
}

void QLM_Morph::CopyStrengthFrom(const QLM_Morph& other) {
    Strength = other.Strength;
    MinStrength = other.MinStrength;
    MaxStrength = other.MaxStrength;
}

void QLM_Morph::MarkChanged() {
    Synced = Automatic = false;
    if (!Listed) return;
    if (QLM_Engine* engine = QLM_GetEngine()) engine->SetProjectChanged();
    auto* mesh = QLM_FindByID<QLM_Mesh>(MeshId);
    if (mesh && mesh->GetCurrentMorphId() != GetID()) mesh->InvalidateOptimizedDeltas();
}

// --- The record -----------------------------------------------------------------------------------------------------

bool QLM_Morph::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool("excludeFromSaving")) return false;
    const bool wasExpanded = IsExpanded();
    Expand("SaveToStream_Text");
    {
        const TStartTextFileBlock block("morph", GetName(), stream, writeBlock);
        QLM_BaseClass::SaveToStream_Text(stream);
        QLM_WriteInt(stream, "vcount", VertexCount);
        QLM_WriteFloat(stream, "Strength", Strength);
        QLM_WriteFloat(stream, "MinStrength", MinStrength);
        QLM_WriteFloat(stream, "MaxStrength", MaxStrength);
        QLM_WriteCompressedBlock(stream, "dataCompressed", Deltas.GetData(),
                                 static_cast<size_t>(VertexCount) * tripleBytes);
    }
    if (!wasExpanded) Park();
    return true;
}

bool QLM_Morph::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) {
    Automatic = false;
    TextCommand command(key, value);
    loadFailed = !ConsiderOwnKey(stream, command);
    if (!command.Handled())
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

bool QLM_Morph::ConsiderOwnKey(FILE* stream, TextCommand& command) {
    std::vector<uint8_t> bytes;
    if (command.Is("vcount")) {
        int32_t count = 0;
        command.ReadInt(count);
        return ReadVertexCount(stream, count);
    }
    if (command.Is("Strength")) ReadStrength(command, Strength);
    else if (command.Is("MinStrength")) ReadStrength(command, MinStrength);
    else if (command.Is("MaxStrength")) ReadStrength(command, MaxStrength);
    else if (command.Is("DeltaCount")) command.ReadInt(DeltaCount);
    else if (command.Is("Compressed")) command.ReadBool(Compressed);
    else if (const bool current = command.Is("dataCompressed"); current || command.Is("data")) {
        const bool sparse = !current && Compressed;
        const int64_t expected = sparse ? -1 : VertexCount * tripleBytes;
        if (QLM_ReadCompressedBlock(stream, bytes, expected) && (sparse ? ReadSparse(bytes) : ReadDense(bytes)))
            return true;
        QLM_OS::Get().PrintMessage("Error loading morph data for morph '%s'", GetName());
        return false;
    }
    return true;
}

bool QLM_Morph::ReadVertexCount(FILE* stream, int32_t count) {
    // The mesh's own count is known to be true; beyond it the file must be able to hold the deltas.
    const auto* mesh = QLM_FindByID<QLM_Mesh>(MeshId);
    const bool known = mesh && count <= mesh->GetVCount();
    if (count < 0 || (!known && count * tripleBytes > greatestInflation * QLM_BytesLeft(stream))) {
        QLM_OS::Get().PrintMessage("Error loading morph data for morph '%s'. The file can't hold a \"vcount\" of %d.",
                                   GetName(), count);
        return false;
    }
    Deltas.Free();
    VertexCount = count;
    return true;
}

bool QLM_Morph::ReadDense(const std::vector<uint8_t>& bytes) {
    Deltas.Resize(VertexCount, false, false);
    if (!bytes.empty()) std::memcpy(Deltas.GetData(), bytes.data(), bytes.size());
    ReplaceBadNumbers(Deltas.GetData(), 3LL * VertexCount);
    return true;
}

bool QLM_Morph::ReadSparse(const std::vector<uint8_t>& bytes) {
    const int64_t size = static_cast<int64_t>(bytes.size());
    if (size % sparseRecordBytes != 0 || size / sparseRecordBytes != DeltaCount) return false;
    Deltas.Resize(VertexCount, false, true);
    for (const uint8_t *record = bytes.data(), *end = record + size; record != end; record += sparseRecordBytes) {
        int32_t vertex;
        std::memcpy(&vertex, record, sizeof vertex);
        if (vertex >= 0 && vertex < VertexCount) std::memcpy(Deltas[vertex], record + sizeof vertex, tripleBytes);
    }
    ReplaceBadNumbers(Deltas.GetData(), 3LL * VertexCount);
    return true;
}

// --- QLM_MorphTreeGroup ---------------------------------------------------------------------------------------------

QLM_MorphTreeGroup::QLM_MorphTreeGroup(uint32_t meshIDIn) : meshID(meshIDIn) {
    SetNameText("Morph Targets");
    topLabel = "morphs";
}

QLM_Morph* QLM_MorphTreeGroup::FindMorph(const std::string& name) {
    QLM_Morph* found = nullptr;
    WalkRows([&](QLM_BaseClass& row, bool isGroup) {
        if (!isGroup && name == row.GetName()) found = dynamic_cast<QLM_Morph*>(&row);
        return found == nullptr;
    });
    return found;
}

bool QLM_MorphTreeGroup::CreateChildGroup(FILE* stream, const std::string&, const std::string& value) {
    auto* folder = new QLM_MorphTreeGroup(meshID);
    folder->SetNameText(value);
    AddChild(folder);
    return folder->LoadFromStream_Text(stream, 0);
}

bool QLM_MorphTreeGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                             const std::string& value) {
    if (!TextCommand(key, value).Is("morph"))
        return QLM_TopTreeGroup::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    QLM_TreeNode* root = this;
    while (root->GetParent()) root = root->GetParent();
    QLM_Morph* morph = static_cast<QLM_MorphTreeGroup*>(root)->FindMorph(QLM_CleanName(value));
    if (!morph) {
        morph = new QLM_Morph(meshID, 0);
        morph->SetNameText(value);
        morph->Listed = true;
        AddItem(morph);
    }
    loadFailed = !morph->LoadFromStream_Text(stream, 0);
    morph->Park();
    return true;
}
