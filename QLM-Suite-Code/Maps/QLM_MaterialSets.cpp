#include "Maps/QLM_MaterialSets.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Core/TextStream/QLM_TextStream.h"

namespace {

constexpr const char* Extension = "qlmMaterialSet";
constexpr double RatedCertain = 0.99, RatedLikely = 0.9;

} // namespace

bool QLM_MaterialSubset::SaveToStream_Text(FILE* stream, bool writeBlock) {
    const TStartTextFileBlock block("materialSubset", GetName(), stream, writeBlock);
    for (const auto& [name, written] : materials) QLM_WriteText(stream, "material", written);
    return true;
}

bool QLM_MaterialSubset::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                             const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("material")) materials.emplace(QLM_CleanName(value), value);
    else command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

QLM_MaterialSet::~QLM_MaterialSet() {
    for (QLM_MaterialSubset* subset : subsets) delete subset;
}

bool QLM_MaterialSet::SaveToStream_Text(FILE* stream, bool writeBlock) {
    const TStartTextFileBlock block("materialSet", GetName(), stream, writeBlock);
    for (QLM_MaterialSubset* subset : subsets) subset->SaveToStream_Text(stream);
    return true;
}

bool QLM_MaterialSet::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                          const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("materialSubset")) {
        auto* subset = new QLM_MaterialSubset;
        subset->SetNameText(value);
        subsets.Add(subset);
        loadFailed = !subset->LoadFromStream_Text(stream, 0);
    } else {
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    }
    return command.Handled();
}

const QLM_MaterialSubset* QLM_MaterialSet::FindSubset(const std::string& material) const {
    for (const QLM_MaterialSubset* subset : subsets)
        if (subset->materials.count(material)) return subset;
    return nullptr;
}

double QLM_MaterialSet::Rate(const QLM_List<QLM_Material*>& materials) const {
    const auto found = std::count_if(materials.begin(), materials.end(),
                                     [this](const QLM_Material* material) { return FindSubset(material->GetName()); });
    return materials.empty() ? 0.0 : static_cast<double>(found) / static_cast<double>(materials.size());
}

void QLM_MaterialSets::LoadFolder(const std::string& folder) {
    QLM_TRACE(2);
    for (const std::string& name : QLM_ListFolder(folder)) {
        std::string error;
        if (QLM_CompareNoCase(QLM_ExtensionOf(name), Extension) != 0 || LoadFile(folder + name, error)) continue;
        QLM_OS::Get().PrintMessageText(error);
    }
}

QLM_MaterialSet* QLM_MaterialSets::LoadFile(const std::string& path, std::string& error) {
    FILE* stream = QLM_FolderExists(path) ? nullptr : QLM_fopen(path, "rb");
    if (!stream) {
        error = "The material set " + path + " can't be opened.";
        return nullptr;
    }
    QLM_Owned<QLM_MaterialSet> set;
    std::string line, key, value;
    while (!set && QLM_ReadLine(line, QLM_TextStreamLineLimit, stream)) {
        QLM_SplitKeyValue(line, key, value);
        if (QLM_CompareNoCase(key, "materialSet") != 0) continue;
        set.Reset(new QLM_MaterialSet);
        set->LoadFromStream_Text(stream, 0);
    }
    QLM_fclose(stream);
    if (!set) {
        error = "The file " + path + " holds no material set.";
        return nullptr;
    }
    set->SetNameText(QLM_FileNameOf(path));
    AddItem(set.Get());
    return set.Release();
}

QLM_MaterialSet* QLM_MaterialSets::FindBest(const QLM_List<QLM_Material*>& materials, double& rating) {
    QLM_MaterialSet* best = nullptr;
    for (QLM_MaterialSet* set : GetItemQueue<QLM_MaterialSet>())
        if (const double own = set->Rate(materials); !best || own > rating) {
            best = set;
            rating = own;
        }
    return best;
}

bool QLM_MaterialSets::ApplyBest(QLM_BaseClass& object, const QLM_List<QLM_Material*>& materials) {
    double rating = 0;
    const QLM_MaterialSet* set = FindBest(materials, rating);
    if (!set || rating <= RatedLikely) return false;
    if (rating <= RatedCertain &&
        !QLM_OS::Get().AskYesNo("Would you like to use the material set \"%s\" for the object \"%s\"?", set->GetName(),
                                object.GetName()))
        return false;
    for (QLM_Material* material : materials)
        if (const QLM_MaterialSubset* subset = set->FindSubset(material->GetName()))
            material->SetString(QLM_MaterialSubsetKey, subset->GetName(), QLM_CustomPropertyContainer::Saved);
    object.SetBool(QLM_MaterialSetKey, true, QLM_CustomPropertyContainer::Saved);
    return true;
}
