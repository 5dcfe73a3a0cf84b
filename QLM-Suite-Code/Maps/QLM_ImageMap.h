#pragma once
// The one raster type: interleaved 8-bit samples, depth 1, 3 or 4 bytes a pixel, row 0 at the bottom.

#include "Core/OS/QLM_Clock.h"
#include "Core/Objects/QLM_BaseClass.h"

#include <atomic>

/// Owns its block, which may be evicted to the virtual memory layer while idle. Every operation takes the map's lock;
/// rasterizers lock once, take the pointer and write rows that they own.
class QLM_ImageMap : public virtual QLM_BaseClass {
  public:
    QLM_ImageMap();
    ~QLM_ImageMap() override;

    virtual void AppendToList(QLM_List<QLM_ImageMap*>& list) { list.push_back(this); }
    virtual void ClearRecentlyUsed() { recentlyUsed = false; }
    virtual bool IsRecentlyUsed() const { return recentlyUsed; }
    /// Builds and uploads the GL preview; without a context it returns at once.
    virtual void UpdatePreviewTexture();
    virtual void SwapOut();
    /// The samples, fetched back when evicted; null for an empty map.
    virtual uint8_t* GetPixels();
    virtual uint8_t* GetPixelsForRead() { return GetPixels(); }
    /// Reallocates (not cleared) and notifies, unless nothing changes.
    virtual void SetDimensions(uint32_t width, uint32_t height, uint8_t depth);
    /// filter 0 bilinear, 1 nearest.
    virtual void Resize(uint32_t width, uint32_t height, int filter);
    virtual void OnWholeMapChanged();
    virtual void OnPartialMapChanged(const float* minUV, const float* maxUV);
    /// Any format of the image library; false with `error`, the map unchanged.
    virtual bool LoadFromFile(const std::string& path, std::string& error);
    virtual bool SaveToFile(const std::string& path, std::string& error);
    virtual bool LoadGreyFromFile(const std::string& path, std::string& error);

    /// With `takeOwnership` the block (from QLM_Malloc) becomes the map's, else it is copied.
    void CreateWithPixelData(uint8_t* data, uint32_t width, uint32_t height, uint8_t depth, bool takeOwnership);
    void AssumeOwnershipOfPixelData(QLM_ImageMap& source);
    void ReleasePixelData();
    /// Equal geometry copies the bytes without a notification.
    void Copy(QLM_ImageMap& source);
    void ResizeFrom(QLM_ImageMap& source, bool closest);
    void ClearToByte(uint8_t value);
    void ClearToColor(const float* rgba, int count);
    void Invert();
    void SetColorDepth(uint8_t depth);
    QLM_ImageMap* GetResizedCopy(uint32_t width, uint32_t height, bool create);
    void DilateColorUnderAlpha(int passes);
    void BlurAlpha(int passes);
    /// The preview's RGB block (pure CPU); sides by QLM_PreviewSide.
    bool BuildPreview(std::vector<uint8_t>& rgb, uint32_t& width, uint32_t& height);

    uint32_t GetWidth() const { return width; }
    uint32_t GetHeight() const { return height; }
    uint8_t GetDepth() const { return depth; }
    uint64_t GetByteCount() const { return static_cast<uint64_t>(width) * height * depth; }
    bool HasPixels() const { return pixels || blockID; }
    uint32_t GetChangeCounter() const { return changeCounter; }
    bool DoesPreviewNeedUpdate() const { return previewNeedsUpdate != 0; }
    uint32_t GetPreviewTexture() const { return previewTexture; }
    ThreadLocker& GetLock() { return lock; }

  protected:
    void FreePixels();

    uint32_t width = 0, height = 0;
    uint8_t* pixels = nullptr;
    uint8_t depth = 0;
    QLM_List<QLM_ImageMap*> resizedCopies;
    std::atomic<bool> recentlyUsed{false};
    ThreadLocker lock;
    uint32_t previewTexture = 0, previewWidth = 1024, previewHeight = 1024;
    uint32_t previewNeedsUpdate = 1, changeCounter = 0;
    QLM_Stopwatch lastAccessTimer;
    uint32_t blockID = 0;
};

/// Preview side of a map side: below 256 the next power of two, else the nearest (a tie goes up), at most 1024.
uint32_t QLM_PreviewSide(uint32_t side);
