#pragma once
// Owner of the paintable maps, and the operations on materials' links to them.

#include "Core/Threads/QLM_Workhorse.h"
#include "Engine/QLM_Manager.h"
#include "Engine/QLM_TreeGroup.h"
#include "Maps/QLM_ImageMapBuffer.h"

class QLM_MapLayer;
class QLM_Material;
class QLM_MaterialChannel;
class QLM_MaterialMapBinding;
class QLM_MaterialMapList;
class QLM_MaterialMapSource;

/// Main thread.
class QLM_MapManager : public QLM_Manager {
  public:
    QLM_MapManager();
    ~QLM_MapManager() override;
    void Initialize() override;
    void Clear() override;

    /// A new source "New Map.PNG" (made unique) in "Image Maps", without pixels; owned by the manager.
    QLM_MaterialMapSource* CreateMapSource();
    /// Loads a picture as a map named after its file (extension kept), or returns the one that was loaded from it.
    /// Null with one message for a file that can't be read.
    QLM_MaterialMapSource* LoadMapFromFile(const std::string& path, std::string& error);
    /// Binds: finds or appends the object's binding and points the channel at it.
    void AssignMapToMaterialChannel(QLM_MaterialMapList* list, QLM_MaterialChannel* channel,
                                    QLM_MaterialMapSource* map);
    QLM_MaterialMapBinding* GetBinding(QLM_MaterialMapList* list, QLM_MaterialMapSource* map, bool create);
    /// True when a channel of `material` that points at `target` takes paint; see the tool manager's switches.
    /// `shownChannel` is the channel that the stroke's viewport displays. Any thread, with everything copied.
    static bool CanPaintMaterial(const QLM_MaterialMapList& list, const QLM_Material& material, uint32_t bindingID,
                                 const bool switches[8], const std::string& shownChannel);

    QLM_RootClassQueue<QLM_MaterialMapSource*> GetMaps();
    QLM_MaterialMapSource* FindMap(const std::string& name, int occurrence = 1);
    /// Unlinks every channel from these maps and deletes them; empties the list. Asks nothing.
    void DeleteMaps(QLM_List<QLM_MaterialMapSource*>& maps);
    void DeleteAllMaps();
    /// Writes the composite (with its mask as alpha where the format can hold it); false with one message.
    bool ExportImageMap(QLM_MaterialMapSource* map, const std::string& path, std::string& error);
    /// Swaps out maps that weren't used since the last idle pass.
    void SweepMaps();
    void ClearRecentlyUsed();

    QLM_ImageMapBufferWorkhorse* GetBufferWorkhorse() { return bufferWorkhorse.Get(); }
    QLM_Workhorse* overdrawWorkhorse = nullptr; ///< owned; made by the composition root, lives in Rendering

    QLM_TopTreeGroup* GetTree() { return tree.Get(); }
    QLM_TopTreeGroup* GetLayerTree() { return layerTree.Get(); }
    /// The layer that takes paint; null while there are no layers.
    QLM_MapLayer* GetCurrentMapLayer() const { return nullptr; }

  private:
    std::string MakeUniqueName(const std::string& name);
    QLM_MaterialMapSource* FindMapOfFile(const std::string& nativePath);
    QLM_Owned<QLM_TopTreeGroup> tree, layerTree;
    QLM_Owned<QLM_ImageMapBufferWorkhorse> bufferWorkhorse;
};
