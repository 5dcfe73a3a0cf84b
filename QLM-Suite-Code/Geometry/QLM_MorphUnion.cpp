#include "Geometry/QLM_MorphUnion.h"

#include "Core/TextStream/QLM_TextStream.h"

#include <cmath>

bool QLM_MorphUnion::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (GetBool("excludeFromSaving")) return false;
    const TStartTextFileBlock block("morph", GetName(), stream, writeBlock);
    QLM_BaseClass::SaveToStream_Text(stream); // "Current" is among its lines
    QLM_WriteFloat(stream, "Strength", Strength);
    QLM_WriteFloat(stream, "MinStrength", MinStrength);
    QLM_WriteFloat(stream, "MaxStrength", MaxStrength);
    return true;
}

bool QLM_MorphUnion::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                         const std::string& value) {
    TextCommand command(key, value);
    for (const auto& [name, field] : {std::pair{"Strength", &Strength}, std::pair{"MinStrength", &MinStrength},
                                      std::pair{"MaxStrength", &MaxStrength}}) {
        if (!command.Is(name)) continue;
        float number = *field;
        command.ReadFloat(number);
        if (std::isfinite(number)) *field = number;
    }
    if (!command.Handled())
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

QLM_Morph* QLM_MorphUnion::FindMember(uint32_t meshID) {
    for (QLM_Morph* member : GetMembers())
        if (member->MeshId == meshID) return member;
    return nullptr;
}

void QLM_MorphUnion::CopyStrengthFrom(const QLM_Morph& morph) {
    Strength = morph.Strength;
    MinStrength = morph.MinStrength;
    MaxStrength = morph.MaxStrength;
}

QLM_MorphUnionGroup::QLM_MorphUnionGroup() { topLabel = "morphs"; }

bool QLM_MorphUnionGroup::CreateChildGroup(FILE* stream, const std::string&, const std::string& value) {
    auto* folder = new QLM_MorphUnionGroup;
    folder->SetNameText(value);
    AddChild(folder);
    return folder->LoadFromStream_Text(stream, 0);
}

bool QLM_MorphUnionGroup::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                              const std::string& value) {
    if (!TextCommand(key, value).Is("morph"))
        return QLM_TopTreeGroup::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    QLM_TreeNode* root = this;
    while (root->GetParent()) root = root->GetParent();
    QLM_MorphUnion* item = static_cast<QLM_MorphUnionGroup*>(root)->FindItemByName(QLM_CleanName(value));
    if (!item) {
        item = new QLM_MorphUnion;
        item->SetNameText(value);
        AddItem(item);
    }
    loadFailed = !item->LoadFromStream_Text(stream, 0);
    return true;
}
