#pragma once
// Material sets: which materials of a known figure belong together, so that they can share a map.

#include "Engine/QLM_TreeGroup.h"
#include "Maps/QLM_Material.h"

#include <map>
#include <string>
#include <vector>

constexpr const char* QLM_MaterialSetKey = "MATERIAL_SET_LOADED";     ///< of an object: true
constexpr const char* QLM_MaterialSubsetKey = "MATERIAL_SUBSET_NAME"; ///< of a material: its subset's name

/// Materials that share their maps.
class QLM_MaterialSubset : public virtual QLM_BaseClass {
  public:
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    std::map<std::string, std::string> materials; ///< by name as a material bears it, with the name as it was written
};

/// What one file holds, named after it.
class QLM_MaterialSet : public virtual QLM_BaseClass {
  public:
    ~QLM_MaterialSet() override;
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    /// The first subset that names the material; null for none.
    const QLM_MaterialSubset* FindSubset(const std::string& material) const;
    /// Share of the materials that stand in a subset; 0 without materials.
    double Rate(const QLM_List<QLM_Material*>& materials) const;
    QLM_List<QLM_MaterialSubset*> subsets; ///< owned
};

/// All sets of the library. Main thread.
class QLM_MaterialSets : public QLM_TopTreeGroup {
  public:
    QLM_MaterialSets() { SetNameText("Material Sets"); }
    /// Reads every "*.qlmMaterialSet" of a folder in the order of their names; one message for each that isn't one.
    void LoadFolder(const std::string& folder);
    /// Appends the set of a file; null with a one-sentence reason.
    QLM_MaterialSet* LoadFile(const std::string& path, std::string& error);
    /// The set with the best rating, the earlier of equal ones; null without sets.
    QLM_MaterialSet* FindBest(const QLM_List<QLM_Material*>& materials, double& rating);
    /// Marks an object and its materials with the best set: rated above 0.99 at once, above 0.9 when the user agrees.
    /// True when one was applied.
    bool ApplyBest(QLM_BaseClass& object, const QLM_List<QLM_Material*>& materials);
};

/// Materials that will share one map, and what the map shall be.
class MapGroupInfo : public virtual QLM_BaseClass {
  public:
    /// Where a pixel comes from when the map is worked out from another figure's.
    struct LookupEntry {
        float u = 0, v = 0;
        int32_t polygon = -1; ///< -1 for none
    };
    int32_t width = 0, height = 0;
    std::string channel;
    QLM_List<QLM_SafePtr<QLM_Material>> materials;
    std::map<std::string, std::string> ignoredChannels;
    std::vector<LookupEntry> lookup; ///< one for each pixel, empty until loaded
    bool lookupLoaded = false;
};
