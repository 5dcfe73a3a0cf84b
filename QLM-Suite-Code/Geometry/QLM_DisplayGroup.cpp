#include "Geometry/QLM_DisplayGroup.h"

#include "Core/TextStream/QLM_TextStream.h"
#include "Engine/QLM_Managers.h"
#include "Geometry/QLM_LayerManager.h"

#include <algorithm>

void QLM_DisplayGroup::OnChanged() {
    QLM_LayerManager* layers = QLM_GetManagers().GetLayerManager();
    if (QLM_IsItemUsable(layers)) layers->RebuildFlags();
}

void QLM_DisplayGroup::SetRigidEdges(bool on) {
    SetBool("displayGroups/rigidEdges", on, Saved);
    OnChanged();
}

void QLM_DisplayGroup::SetColor(const float* color) {
    // The order of the comparisons makes 0 of what is no number.
    for (int k = 0; k < 3; ++k) Color[k] = std::min(std::max(0.0f, color[k]), 1.0f);
}

bool QLM_DisplayGroup::SaveToStream_Text(FILE* stream, bool) {
    if (GetBool("excludeFromSaving")) return false;
    const TStartTextFileBlock block("layer", GetName(), stream);
    QLM_UserAsset::SaveToStream_Text(stream, true);
    SaveLayerDefinition(stream);
    QLM_WriteVector3(stream, "Color", Color);
    return true;
}

bool QLM_DisplayGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                           const std::string& value) {
    if (QLM_UserAsset::LoadFromStream_Text_ConsiderCommand(stream, key, value)) return true;
    TextCommand command(key, value);
    command.Merge(ConsiderLayerDefinition(stream, key, value));
    if (command.Is("Color")) {
        float read[3] = {Color[0], Color[1], Color[2]};
        command.ReadVector3(read);
        SetColor(read);
    }
    return command.Handled();
}
