#pragma once
// Owner of the paintable maps, and the operations on materials' links to them.

#include "Core/Threads/QLM_Workhorse.h"
#include "Engine/QLM_Manager.h"
#include "Engine/QLM_TreeGroup.h"
#include "Maps/QLM_ImageMapBuffer.h"
#include "Maps/QLM_MapLayer.h"
#include "Maps/QLM_MaterialSets.h"

class QLM_MaterialMapSource;

/// Main thread.
class QLM_MapManager : public QLM_Manager {
  public:
    QLM_MapManager();
    ~QLM_MapManager() override;
    /// Shows the trees and reads the material sets of the library.
    void Initialize() override;
    void OnIdle() override;
    void Clear() override;

    /// A new source "New Map.PNG" (made unique) in "Image Maps", without pixels; owned by the manager.
    QLM_MaterialMapSource* CreateMapSource();
    /// Loads a picture as a map named after its file (extension kept), or returns the one that was loaded from it.
    /// Null with one message for a file that can't be read.
    QLM_MaterialMapSource* LoadMapFromFile(const std::string& path, std::string& error);
    /// Binds: finds or appends the object's binding and points the channel at it; the name of a file that was to be
    /// found is forgotten.
    void AssignMapToMaterialChannel(QLM_MaterialMapList* list, QLM_MaterialChannel* channel,
                                    QLM_MaterialMapSource* map);
    QLM_MaterialMapBinding* GetBinding(QLM_MaterialMapList* list, QLM_MaterialMapSource* map, bool create);
    /// True when a channel of `material` that points at `target` takes paint; see the tool manager's switches.
    /// `shownChannel` is the channel that the stroke's viewport displays. Tools that read the viewport's picture can
    /// paint that one only: their `refused` takes the name of another that the switches would let them paint, and no
    /// other tool passes it. Any thread, with everything copied.
    static bool CanPaintPolygonInChannel(const QLM_MaterialMapList& list, const QLM_Material& material,
                                         uint32_t bindingID, const bool switches[8], const std::string& shownChannel,
                                         std::string* refused = nullptr);
    /// Requests the plane of covered pixels of a map whose bindings, their polygons or whose size changed.
    static void StartOverdrawCheck(QLM_MaterialMapSource* map);

    /// Adds the maps that the channels of an object's materials are bound to, each once.
    static void GetMapListFromObjects_OnVisit(const QLM_MaterialMapList& list,
                                              const QLM_List<QLM_Material*>& materials,
                                              QLM_List<QLM_MaterialMapSource*>& maps);

    QLM_RootClassQueue<QLM_MaterialMapSource*> GetMaps();
    QLM_MaterialMapSource* FindMap(const std::string& name, int occurrence = 1);
    void RenameMap(QLM_MaterialMapSource* map, const std::string& name); ///< made unique; an empty one is none
    /// Unlinks every channel from these maps and deletes their bindings, then them; empties the list. Asks nothing.
    void DeleteMaps(QLM_List<QLM_MaterialMapSource*>& maps);
    void DeleteAllMaps();
    /// Writes the composite without checker (with its mask as alpha where the format can hold it), and with a
    /// `maskPath` the alpha as a grey picture; false with one message.
    bool ExportImageMap(QLM_MaterialMapSource* map, const std::string& path, std::string& error,
                        const std::string& maskPath = {});
    /// Writes what the map holds for the current layer, with its mask; false with one message when there is nothing.
    bool ExportMapFromCurrentLayer(QLM_MaterialMapSource* map, const std::string& path, std::string& error);
    /// A picture with its alpha replaces what the map holds for the current layer, resized to the map; a map in a scene
    /// without layers, or one without pixels, is loaded itself. False with one message, nothing changed.
    bool ImportMapIntoCurrentLayer(QLM_MaterialMapSource* map, const std::string& path, std::string& error);

    /// Ends a picture that is being drawn: it reads the maps that are about to change.
    static void BeforeMapsChange();

    // Operations on what tools would paint: the current layer's member of a map with members, else the map itself. Maps
    // without that member are skipped. All false with `error`, nothing changed, while the layer is hidden or locked.
    /// Fills with the background colour and makes an existing mask transparent; with `opaque` (the Alt key) opaque, and
    /// a missing member is made.
    bool ClearImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, bool opaque, std::string& error);
    bool InvertImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error);
    /// (R + G + B) / 3.
    bool ConvertImageMapsToGreyscale(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error);
    /// Stretches the samples so that the smallest of a map becomes 0 and the largest 255.
    bool NormalizeImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, std::string& error);
    /// Asks, then deletes the maps and their bindings; empties the list. False when the user declines.
    bool DeleteImageMaps(QLM_List<QLM_MaterialMapSource*>& maps);
    /// Swaps out maps that weren't used since the last idle pass.
    void SweepMaps();
    void ClearRecentlyUsed();

    QLM_ImageMapBufferWorkhorse* GetBufferWorkhorse() { return bufferWorkhorse.Get(); }
    /// Snapshots are being refreshed in the background.
    bool AreSnapshotsPending() const { return bufferWorkhorse->IsThreadRunning(); }
    QLM_Workhorse* overdrawWorkhorse = nullptr; ///< owned; made by the composition root, lives in Rendering

    QLM_TopTreeGroup* GetTree() { return tree.Get(); }
    QLM_MapLayerGroup* GetLayerTree() { return layerTree.Get(); }
    QLM_MaterialSets& GetMaterialSets() { return *materialSets; }
    /// The layer that takes paint; null while there are no layers.
    QLM_MapLayer* GetCurrentMapLayer() const { return layerTree->GetCurrentLayer(); }
    void SetCurrentMapLayer(QLM_MapLayer* layer);
    /// A new layer on top, its name made unique; it becomes current. The first one gets "Background" below it, which
    /// carries the maps as they are.
    QLM_MapLayer* CreateMapLayer(const std::string& name = "New Layer");
    /// Deletes a layer with what the maps hold for it. A map's last member leaves its composite behind, a hidden
    /// one as if it were shown. Asks nothing.
    void DeleteMapLayer(QLM_MapLayer* layer);
    /// Puts "Merged Layers", now current, in the place of the visible unlocked layers; false with a message when there
    /// are fewer than two of them. With `ask` false also when the user declines.
    bool MergeVisibleImageLayers(bool ask, std::string& error);

  private:
    static void OpenUndo(QLM_MaterialMapSource* map);
    /// Runs `edit` on what tools would paint of each map, with its lock held and a whole change behind it.
    bool EditImageMaps(const QLM_List<QLM_MaterialMapSource*>& maps, bool createMember, std::string& error,
                       const std::function<void(QLM_MaterialMapSource&)>& edit);
    std::string MakeUniqueName(const std::string& name);
    QLM_MaterialMapSource* FindMapOfFile(const std::string& nativePath);
    QLM_Owned<QLM_TopTreeGroup> tree;
    QLM_Owned<QLM_MapLayerGroup> layerTree;
    QLM_Owned<QLM_MaterialSets> materialSets;
    QLM_Owned<QLM_ImageMapBufferWorkhorse> bufferWorkhorse;
};
