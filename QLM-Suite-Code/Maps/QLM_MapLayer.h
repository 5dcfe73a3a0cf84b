#pragma once
// The scene's layers of image maps and their tree.

#include "Maps/QLM_LayerDefinition.h"

#include <string>
#include <vector>

/// One of the scene's layers; every map may hold a member for it. `Strength` is its opacity. Main thread.
class QLM_MapLayer : public QLM_LayerDefinition {
  public:
    ~QLM_MapLayer() override; ///< the members that maps still hold for it go with it

    static int GetBlendTypeCount();
    static void GetBlendName(int index, std::string& out);      ///< "undef" outside the table
    static void GetBlendShortName(int index, std::string& out); ///< "undef" outside the table
    /// The blend type of a name or short name, without regard to case; -1 for none.
    static int FindBlendType(const std::string& name);

    void OnChanged() override { OnLayerChanged(); }
    /// Makes every map that holds the layer stale and asks for a redraw. Called by every setter.
    void OnLayerChanged();
    void SetBlendType(int32_t index);
    void SetOpacity(float opacity); ///< clamped to 0..1
    /// Visible, normal and opaque: a map that holds the layer alone looks as without layers.
    bool IsAtDefaults() const;

    /// The layer's lines; with `writeBlock` in a block "mapLayer". Nothing for a layer that is excluded from saving.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

    /// A map tells by its ID that it holds a member for this layer.
    void AddSet(uint32_t setID) { sets.AddMember(setID); }

    int32_t BlendType = 0; ///< set by SetBlendType
    bool IsBase = false;   ///< carries the maps as they were before any layer was made

  private:
    QLM_BaseClassByIDMap sets;
};

/// The tree of the scene's layers, from the bottom to the top.
class QLM_MapLayerGroup : public QLM_LayerGroup<QLM_MapLayer> {
  public:
    QLM_MapLayerGroup();

    bool HasLayers() { return HasItems(); }
    /// The layer that takes paint: the current one, else the top one; null without layers.
    QLM_MapLayer* GetCurrentLayer();
    /// The layer that takes over the pixels of a map which gets its first member: that with IsBase, else the lowest.
    QLM_MapLayer* GetBaseLayer();
    /// The `occurrence`th layer of that name, as names are kept, from the bottom; null for none.
    QLM_MapLayer* FindLayer(const std::string& name, int occurrence = 1);
    /// Appends a new layer at the top. Its name is made unique; without one it is "New Layer".
    QLM_MapLayer* AddLayer(const std::string& name);
    /// Makes the layer the `index`th from the bottom (0 the lowest), in the folder of the one that it displaces.
    void MoveLayer(QLM_MapLayer* layer, int index);

    bool CreateChildGroup(FILE* stream, const std::string& key, const std::string& value) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

  private:
    QLM_MapLayerGroup& GetRoot();
    QLM_MapLayerGroup* FindFolderOf(const QLM_MapLayer* layer);
};
