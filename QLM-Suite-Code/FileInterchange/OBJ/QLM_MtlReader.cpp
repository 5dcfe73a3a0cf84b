#include "Core/OS/QLM_Files.h"
#include "Core/OS/String_Functions.h"
#include "FileInterchange/OBJ/QLM_LineScanner.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace {

constexpr size_t LineLimit = 998; // characters of a line, from a buffer of 999
constexpr size_t BlockBytes = 1 << 16;

/// Overwrites option switches ("-s") with blanks; their arguments stay.
std::string EraseSwitches(std::string_view remainder) {
    std::string text(remainder);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '-' || (i > 0 && !QLM_Scan::IsBlank(text[i - 1]))) continue;
        for (; i < text.size() && !QLM_Scan::IsBlank(text[i]); ++i) text[i] = ' ';
    }
    return std::string(QLM_Scan::Trim(text));
}

/// What a statement is about. A file may bear a name that looks like a switch: one that is there is meant as it stands.
std::string ValueOf(std::string_view remainder, const std::string& folder) {
    std::string erased = EraseSwitches(remainder), whole(remainder);
    return erased != whole && QLM_FileExists(folder + whole) ? whole : erased;
}

/// Reads all numbers or nothing; one that isn't finite counts as none.
bool Numbers(const std::string& text, float* out, int count) {
    return QLM_Scan::Floats(text, out, count) == count &&
           std::all_of(out, out + count, [](float x) { return std::isfinite(x); });
}

/// One statement on the selected material.
void Statement(QLM_Material& material, std::string_view token, const std::string& remainder, bool importMaps) {
    const auto is = [token](const char* name) { return QLM_CompareNoCase(token, name) == 0; };
    float value[3];
    if (is("Ns")) {
        if (Numbers(remainder, value, 1)) material.Glossy->Strength = value[0] / 100.0f;
    } else if (is("d")) {
        if (Numbers(remainder, value, 1)) material.Transparency->Strength = std::clamp(1.0f - value[0], 0.0f, 1.0f);
    } else if (is("Ka") || is("Kd") || is("Ks")) {
        if (!Numbers(remainder, value, 3)) return;
        QLM_MaterialChannel* channel = is("Ka") ? material.Ambient : is("Kd") ? material.Color : material.Specular;
        std::copy(value, value + 3, channel->Color);
    } else if (importMaps && !remainder.empty()) {
        const std::pair<const char*, QLM_MaterialChannel*> maps[] = {
            {"map_Kd", material.Color},   {"map_Bump", material.Bump},     {"map_Ks", material.Specular},
            {"map_Ka", material.Ambient}, {"disp", material.Displacement}, {"map_d", material.Transparency}};
        for (const auto& [name, channel] : maps)
            if (is(name)) channel->mapFileName = remainder;
    }
}

} // namespace

void QLM_ReadMtlFile(const std::string& path, QLM_Mesh* mesh, bool importMaps) {
    if (QLM_FolderExists(path)) return;
    FILE* stream = QLM_fopen(path, "rb");
    if (!stream) return;
    // By name once: a library of a thousand materials must not be searched a thousand times. The first of a name wins.
    std::unordered_map<std::string, QLM_Material*> byName;
    for (QLM_Material* material : mesh->GetMaterials()) byName.try_emplace(material->GetName(), material);
    const std::string folder = QLM_FolderOf(path);
    QLM_Material* selected = nullptr;
    std::string_view line, rest;
    QLM_TextBlocks blocks(stream, LineLimit, BlockBytes);
    for (std::string_view block = blocks.Next(); !block.empty(); block = blocks.Next()) {
        QLM_LineScanner lines(block, LineLimit);
        while (lines.Next(line)) {
            const std::string_view token = QLM_Scan::Word(line, rest);
            if (token.empty() || token[0] == '#') continue;
            if (QLM_CompareNoCase(token, "newmtl") == 0) {
                const auto found = byName.find(QLM_CleanName(std::string(rest)));
                selected = found == byName.end() ? nullptr : found->second;
            } else if (selected) {
                Statement(*selected, token, ValueOf(rest, folder), importMaps);
            }
        }
    }
    QLM_fclose(stream);
}
