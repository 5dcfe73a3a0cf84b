// What project files hold of display groups.

#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Geometry/QLM_LayerManager.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_RecordOptions.h"

#include <algorithm>
#include <numeric>

namespace {
constexpr size_t maximumRowBytes = 8192;

/// The columns of memory by those of a file: groups stand in a file in the order of their columns, without gaps, and
/// behind them what belongs to no group.
std::vector<int> ColumnsByRank(const std::vector<QLM_DisplayGroup*>& groups, int count) {
    std::vector<int> columns;
    for (const QLM_DisplayGroup* group : groups) columns.push_back(group->Column);
    for (int next = groups.empty() ? 0 : groups.back()->Column + 1; static_cast<int>(columns.size()) < count; ++next)
        columns.push_back(next);
    return columns;
}

/// One more than the last column that holds a bit.
int CountUsedColumns(const std::vector<uint8_t>& bytes, size_t rowBytes) {
    std::vector<uint8_t> all(rowBytes);
    for (size_t i = 0; i < bytes.size(); i += rowBytes)
        for (size_t k = 0; k < rowBytes; ++k) all[k] |= bytes[i + k];
    for (size_t column = 8 * rowBytes; column > 0; --column)
        if (all[(column - 1) / 8] >> ((column - 1) % 8) & 1) return static_cast<int>(column);
    return 0;
}

std::string OwnerName(const QLM_Mesh& mesh) {
    const QLM_Object* object = mesh.GetObject();
    return object ? object->GetName() : "";
}
} // namespace

void QLM_LayerManager::SaveDisplayGroups(FILE* stream, bool forTemplate) {
    for (QLM_DisplayGroup* group : GetGroups())
        if (!forTemplate || !group->IsHiddenFromManager()) group->SaveToStream_Text(stream, true);
}

QLM_DisplayGroup* QLM_LayerManager::FindGroupForBlock(FILE* stream, const std::string& name) {
    // Look into the block first: it tells whose it is.
    const QLM_Owned<QLM_DisplayGroup> probe(new QLM_DisplayGroup);
    probe->LoadFromStream_Text(stream, 1);
    if (name == FindColumn(HiddenLayer)->GetName()) return FindColumn(HiddenLayer);
    if (name == FindColumn(LockedLayer)->GetName()) return FindColumn(LockedLayer);
    if (!probe->IsHiddenFromManager()) return AddGroup(name, GetColumnCount());
    return FindColumn(probe->IsLocked() ? LockedLayer : HiddenLayer);
}

bool QLM_LayerManager::LoadDisplayGroup(FILE* stream, const std::string& name, bool isFirst) {
    QLM_DisplayGroup* group = isFirst ? FindColumn(Background) : FindGroupForBlock(stream, name);
    return group->LoadFromStream_Text(stream, 0);
}

void QLM_LayerManager::SaveLayerFlags(FILE* stream, QLM_Mesh* mesh) {
    const std::vector<QLM_DisplayGroup*> groups = GetGroups();
    const BigFlagArray& rows = *mesh;
    if (rows.GetPolygonCount() == 0) return;
    const int gaps = groups.back()->Column + 1 - static_cast<int>(groups.size());
    const std::vector<uint8_t>* bytes = &rows.GetBytes();
    BigFlagArray packed;
    if (gaps > 0) {
        // Files know no freed columns.
        const int count = rows.GetGroupCount() - gaps;
        const std::vector<int> columns = ColumnsByRank(groups, count);
        packed.SetSizes(count, rows.GetPolygonCount());
        for (int p = 0; p < rows.GetPolygonCount(); ++p)
            for (int c = 0; c < count; ++c)
                if (rows.GetFlag(p, columns[c])) packed.SetFlag(p, c, true);
        bytes = &packed.GetBytes();
    }
    QLM_WriteCompressedBlock(stream, "LayerFlags", bytes->data(), bytes->size());
}

bool QLM_LayerManager::LoadLayerFlags(FILE* stream, QLM_Mesh* mesh) { return LoadFlags(stream, mesh, false); }

bool QLM_LayerManager::LoadPolygonLayerFlags(FILE* stream, QLM_Mesh* mesh) { return LoadFlags(stream, mesh, true); }

bool QLM_LayerManager::LoadFlags(FILE* stream, QLM_Mesh* mesh, bool isOld) {
    std::vector<uint8_t> bytes;
    const bool read = QLM_ReadCompressedBlock(stream, bytes);
    const auto polygons = static_cast<size_t>(mesh->GetPCount());
    const size_t rowBytes = polygons ? bytes.size() / polygons : 0;
    const bool fits = rowBytes * polygons == bytes.size() && rowBytes <= maximumRowBytes;
    if (read && !fits && isOld) return true;
    if (!read || !fits) {
        QLM_OS::Get().PrintMessage("Error loading layer data for object '%s'", OwnerName(*mesh));
        return read;
    }
    if (bytes.empty()) return true;

    // Find where each column of the file lands; the user's move up behind the groups that were here before.
    const int offset = std::clamp(QLM_RecordOptions::GetInt("INPUT_DISPLAY_GROUP_OFFSET"), 0, 1 << 16);
    const int used = CountUsedColumns(bytes, rowBytes);
    const std::vector<int> columns = ColumnsByRank(GetGroups(), std::max(used + offset, GetColumnCount()));
    BigFlagArray& rows = *mesh;
    const int last = used > 0 ? columns[used - 1 + (used > FirstUserColumn ? offset : 0)] : 0;
    rows.SetSizes(std::max(rows.GetGroupCount(), last + 1), mesh->GetPCount());

    // A row that came behind others stands in the background alone of the special columns.
    BigFlagArray landed;
    landed.SetSizes(rows.GetGroupCount(), mesh->GetPCount());
    for (int p = 0; p < mesh->GetPCount(); ++p) {
        const uint8_t* row = bytes.data() + static_cast<size_t>(p) * rowBytes;
        if (offset > 0) landed.SetFlag(p, Background, true);
        for (int c = offset > 0 ? FirstUserColumn : 0; c < used; ++c)
            if (row[c / 8] >> (c % 8) & 1) landed.SetFlag(p, columns[c < FirstUserColumn ? c : c + offset], true);
    }
    if (!rows.Merge(landed)) QLM_OS::Get().PrintMessage("Error merging display group flags");
    return true;
}
