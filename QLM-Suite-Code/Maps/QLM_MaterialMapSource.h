#pragma once
// A paintable map: what a material channel points at.

#include "Maps/QLM_ImageMap.h"

class QLM_MapLayer;

/// Where a polygon covers the map: 255 on covered pixels, 0 in the gutter. Own lock, held for a whole rendering.
class QLM_OverdrawBuffer : public QLM_ImageMap {};

/// Depth 3 colour with an optional mask of one byte a pixel. Without layers the source itself is what tools paint.
class QLM_MaterialMapSource : public virtual QLM_ImageMap, public virtual QLM_UserAsset {
  public:
    QLM_MaterialMapSource();
    ~QLM_MaterialMapSource() override;

    /// Sizes to depth 3, empties the file name, fills with `color` (three floats) when given and notifies.
    void Initialize(uint32_t width, uint32_t height, const float* color);

    virtual uint8_t* GetMaskPixels();
    /// The map that tools read and write for the current layer; this source while there are no layers.
    virtual QLM_MaterialMapSource* GetCurrentLayerData(bool create);
    virtual QLM_MaterialMapSource* GetActiveLayerData(bool create);
    /// The composite as it is shown; resolves what is stale. Main thread.
    virtual uint8_t* GetResolvedPixels();
    virtual uint8_t* GetResolvedMask();
    /// Bilinear, with the mask; sides are cut to MaximumSide.
    virtual void ResizeWithLayers(uint32_t width, uint32_t height);
    /// Any format; alpha or a colour key becomes the mask, a picture without either leaves none; sides above 20000 are
    /// cut down. Tells the user what was lost on the way in. False with `error`, the map unchanged. Main thread.
    virtual bool LoadFromFileWithAlpha(const std::string& path, std::string& error);

    void ClearRecentlyUsed() override;
    void UpdatePreviewTexture() override;
    void SwapOut() override;
    uint8_t* GetPixelsForRead() override;
    /// An existing mask takes the new size and becomes 255.
    void SetDimensions(uint32_t width, uint32_t height, uint8_t depth) override;
    /// The same as LoadFromFileWithAlpha: a source is never of depth 4.
    bool LoadFromFile(const std::string& path, std::string& error) override;
    bool SaveToFile(const std::string& path, std::string& error) override;
    void OnWholeMapChanged() override;
    void OnPartialMapChanged(const float* minUV, const float* maxUV) override;
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override {
        return QLM_BaseClass::SaveToStream_Text(stream, writeBlock);
    }
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override {
        return QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    }

    QLM_MaterialMapSource* GetLayerData(QLM_MapLayer* layer, bool create);
    void MarkAllCellsDirty();
    void MarkCellsDirty(const float* minUV, const float* maxUV);
    /// Cells that wait for a resolve, row x GridSize + column, in the order in which they became dirty.
    const std::vector<uint32_t>& GetDirtyCells() const { return cellList; }
    bool HasMaskSameSize();
    /// Rebuilds the stale cells of a layered map; nothing to do without layers.
    void ResolveMapLayer(bool noChecker);

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

  private:
    std::string MapFileName;
    std::atomic<uint32_t> savedChangeCounter{0};
    std::vector<uint8_t> cellFlags;  ///< 0 dirty, 1 clean
    std::vector<uint32_t> cellList;
};
