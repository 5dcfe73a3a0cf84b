#pragma once
// A paintable map: what a material channel points at.

#include "Maps/QLM_ImageMap.h"
#include "Maps/QLM_LayerData.h"

class QLM_MapLayer;
class QLM_MapLayerGroup;
struct QLM_ResolveRun;

/// Where a polygon covers the map: 255 on covered pixels, 0 in the gutter. Own lock, held for a whole rendering.
class QLM_OverdrawBuffer : public QLM_ImageMap {};

/// Depth 3 colour with an optional mask of one byte a pixel. Without members the source itself is what tools paint.
/// With them it holds their composite, rebuilt where it is stale, and each member, a source itself, the pixels of one
/// layer. Main thread where nothing else is said.
class QLM_MaterialMapSource : public virtual QLM_ImageMap,
                              public QLM_LayerData,
                              public QLM_LayerDataSet,
                              public virtual QLM_UserAsset {
  public:
    QLM_MaterialMapSource();
    ~QLM_MaterialMapSource() override;

    /// Sizes to depth 3, empties the file name, fills with `color` (three floats) when given and notifies.
    void Initialize(uint32_t width, uint32_t height, const float* color);

    virtual uint8_t* GetMaskPixels();
    /// The map that tools read and write for the current layer; this source while the scene has no layers. Null without
    /// a member, unless `create`.
    virtual QLM_MaterialMapSource* GetCurrentLayerData(bool create);
    virtual QLM_MaterialMapSource* GetActiveLayerData(bool create) { return GetCurrentLayerData(create); }
    /// The composite as it is shown; resolves what is stale. Main thread.
    virtual uint8_t* GetResolvedPixels();
    virtual uint8_t* GetResolvedMask();
    /// Bilinear, with the mask and every member; sides are cut to MaximumSide.
    virtual void ResizeWithLayers(uint32_t width, uint32_t height);
    /// Any format; alpha or a colour key becomes the mask, a picture without either leaves none; sides above 20000 are
    /// cut down. The picture replaces the map: members go. Tells the user what was lost on the way in. False with
    /// `error`, the map unchanged.
    virtual bool LoadFromFileWithAlpha(const std::string& path, std::string& error);

    void ClearRecentlyUsed() override;
    void UpdatePreviewTexture() override;
    void SwapOut() override;
    void SwapOutIdleMembers(); ///< those that weren't used since the last idle pass
    uint8_t* GetPixelsForRead() override;
    /// An existing mask takes the new size and becomes 255.
    void SetDimensions(uint32_t width, uint32_t height, uint8_t depth) override;
    /// The same as LoadFromFileWithAlpha: a source is never of depth 4.
    bool LoadFromFile(const std::string& path, std::string& error) override;
    bool SaveToFile(const std::string& path, std::string& error) override;
    void OnWholeMapChanged() override;
    void OnPartialMapChanged(const float* minUV, const float* maxUV) override;
    /// The source's lines; with `writeBlock` in a block "map". False for one that isn't to be saved.
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;
    bool LoadFromStream_Text(FILE* stream, uint32_t flags) override;
    /// False when the source and all its members are excluded from saving.
    bool IsToBeSaved();

    /// Gives the source the scene's layers; without them it has no members.
    void SetLayerGroup(const QLM_MapLayerGroup* group);
    /// The member for a layer; without a layer this source when it has no members, else null. With `create` a missing
    /// one is made transparent, in DefaultColor, of the composite's size, and one of another size is resized. Before
    /// the first member the layers' base takes over the source's pixels and mask.
    QLM_MaterialMapSource* GetLayerData(QLM_MapLayer* layer, bool create);
    /// The member of the layer with that ID is deleted. The last one leaves the composite without checker behind.
    void DropMember(uint32_t layerID);
    /// The same for a layer that is gone already: nothing can be composed any more.
    void DeleteMember(uint32_t layerID);
    void DeleteMembers();
    /// A member with its layer.
    struct Member {
        QLM_MapLayer* layer;
        QLM_MaterialMapSource* map;
    };
    /// The members whose layers exist, from the bottom to the top.
    std::vector<Member> GetMembers();
    /// A layer of this map changed: everything is stale.
    void OnLayersChanged();
    /// Composes some of the members into another map of this size, with its mask, without checker.
    void ComposeInto(QLM_MaterialMapSource& target, const std::vector<Member>& members);

    void MarkAllCellsDirty();
    void MarkCellsDirty(const float* minUV, const float* maxUV);
    /// Cells that wait for a resolve, row x GridSize + column, in the order in which they became dirty.
    const std::vector<uint32_t>& GetDirtyCells() const { return cellList; }
    bool HasMaskSameSize();
    /// Rebuilds the stale cells of a map with members; a base layer that isn't at its defaults makes the first one.
    /// With `noChecker` all cells, colours straight and without checker; the next resolve puts the checker back.
    void ResolveMapLayer(bool noChecker);
    /// The mask takes the map's size, filled with 255, when it hasn't that size.
    void ProvideMask();

    /// True when the map changed since it was last read from a file or written to one. Any thread.
    bool HasUnsavedChanges() const { return changeCounter != savedChangeCounter; }

    const std::string& GetMapFileName() const { return MapFileName; }
    void SetMapFileName(const std::string& name); ///< forward slashes become back slashes

    static constexpr uint32_t GridSize = 64;
    static constexpr uint32_t MaximumSide = 20000;
    QLM_ImageMap Mask;
    QLM_OverdrawBuffer Overdraw;
    std::string FileFormat = "PNG";
    float DefaultColor[3] = {1.0f, 1.0f, 1.0f};
    float aspect = 1.0f;
    bool IsDefaultMap = true;
    int32_t DirtyCount = 0; ///< length of the list of dirty cells
    /// Records keep pixels as raw bytes instead of PNG and compressed blocks.
    inline static bool WriteUncompressedRecords = false;

  private:
    QLM_MapLayerGroup* GetLayerGroup() const;
    /// A member for this source without pixels, not registered yet.
    QLM_MaterialMapSource* NewMember() const;
    /// DefaultColor under a mask of 0.
    void MakeTransparent(uint32_t width, uint32_t height);
    void AddMember(QLM_MapLayer& layer, QLM_MaterialMapSource* member);
    void MakeBaseMember();
    /// Gives every member this map's size and a mask.
    void AlignMembers(const std::vector<Member>& members);
    void TakeDirtyRuns(std::vector<QLM_ResolveRun>& runs);
    void WritePixels(FILE* stream);
    bool ReadHeight(FILE* stream, int32_t height);
    bool ReadPixels(FILE* stream, bool isPNG);
    void ReadMask(FILE* stream);
    bool ReadMember(FILE* stream, const std::string& layerName);

    std::string MapFileName;
    uint32_t layerGroupID = 0;
    uint32_t ownerID = 0; ///< the source that this is a member of; 0 for none
    int32_t recordWidth = 0;
    ThreadLocker cellLock; ///< of the cells alone; nothing is locked inside it, so members may mark their owner's cells
    std::atomic<uint32_t> savedChangeCounter{0};
    std::vector<uint8_t> cellFlags; ///< 0 dirty, 1 clean
    std::vector<uint32_t> cellList;
};
