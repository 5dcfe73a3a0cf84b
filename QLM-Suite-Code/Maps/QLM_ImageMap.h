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
    /// Hands the block to the virtual memory layer. A map whose lock is held elsewhere is in use and stays.
    virtual void SwapOut();
    /// The samples, fetched back when evicted; null for an empty map. Waits for no lock while they are in memory: who
    /// uses the pointer longer than a sweep may take holds GetLock().
    virtual uint8_t* GetPixels();
    virtual uint8_t* GetPixelsForRead() { return GetPixels(); }
    /// Reallocates (not cleared) and notifies, unless nothing changes.
    virtual void SetDimensions(uint32_t width, uint32_t height, uint8_t depth);
    /// filter 0 bilinear, 1 nearest. The depth stays; an empty map and a side of 0 change nothing.
    virtual void Resize(uint32_t width, uint32_t height, int filter);
    virtual void OnWholeMapChanged();
    virtual void OnPartialMapChanged(const float* minUV, const float* maxUV);
    /// Any format of the image library; false with `error`, the map unchanged.
    virtual bool LoadFromFile(const std::string& path, std::string& error);
    /// By the name's extension; tells the user when the format drops the alpha. Main thread.
    virtual bool SaveToFile(const std::string& path, std::string& error);
    /// Depth 1, each sample the integer mean of red, green and blue.
    virtual bool LoadGreyFromFile(const std::string& path, std::string& error);

    /// With `takeOwnership` the block (from QLM_Malloc) becomes the map's, else it is copied.
    void CreateWithPixelData(uint8_t* data, uint32_t width, uint32_t height, uint8_t depth, bool takeOwnership);
    /// Takes the block of `source`, which is left with a size of 0.
    void AssumeOwnershipOfPixelData(QLM_ImageMap& source);
    /// Forgets the block without freeing it: it belongs to whoever took its pointer.
    void ReleasePixelData();
    /// Equal geometry copies the bytes without a notification.
    void Copy(QLM_ImageMap& source);
    /// Copies a rectangle of pixels, cut at the map's edges, from a map of equal geometry; else nothing.
    /// No notification.
    void CopyRect(QLM_ImageMap& source, uint32_t x, uint32_t y, uint32_t rectWidth, uint32_t rectHeight);
    /// Refills this map, whose size stays, from another of the same depth; nothing for unequal depths.
    void ResizeFrom(QLM_ImageMap& source, bool closest);
    void ClearToByte(uint8_t value);
    /// `rgba` holds `count` floats 0..1; a count other than 3 and 4 raises.
    void ClearToColor(const float* rgba, int count);
    void Invert(); ///< no notification
    /// 1 to 3, 3 to 1 and 3 to 4; any other change raises.
    void SetColorDepth(uint8_t depth);
    /// A cached copy of that size; null when there is none and `create` is false. The map owns it and drops it when its
    /// own block is replaced. That of a grey map is the screen picture of a brush tip: depth 3, brightened, inverted.
    QLM_ImageMap* GetResizedCopy(uint32_t width, uint32_t height, bool create);
    /// Spreads colour into transparent pixels by one pixel a pass, the alpha unchanged. Depth 4 only.
    void DilateColorUnderAlpha(int passes);
    /// Box blur of the alpha by 3 x 3 pixels a pass; the outside counts as transparent. Depth 4 only.
    void BlurAlpha(int passes);
    /// The preview's RGB block (pure CPU); sides by QLM_PreviewSide.
    bool BuildPreview(std::vector<uint8_t>& rgb, uint32_t& width, uint32_t& height);

    uint32_t GetWidth() const { return width; }
    uint32_t GetHeight() const { return height; }
    uint8_t GetDepth() const { return depth; }
    uint64_t GetByteCount() const { return static_cast<uint64_t>(width) * height * depth; }
    bool HasPixels() const { return pixels || blockID; }
    uint32_t GetChangeCounter() const { return changeCounter; }
    /// Counts the changes that a snapshot of this map doesn't survive.
    uint32_t GetWholeChangeCounter() const { return wholeChangeCounter; }
    void MarkSnapshotsStale() { ++wholeChangeCounter; }
    /// Seconds since the samples were last asked for.
    double GetIdleSeconds() const { return QLM_Clock::Now() - lastAccess; }
    bool DoesPreviewNeedUpdate() const { return previewNeedsUpdate != 0; }
    uint32_t GetPreviewTexture() const { return previewTexture; }
    ThreadLocker& GetLock() { return lock; }

  protected:
    void FreePixels();
    void DeleteResizedCopies();

    uint32_t width = 0, height = 0;
    std::atomic<uint8_t*> pixels{nullptr};
    uint8_t depth = 0;
    QLM_List<QLM_ImageMap*> resizedCopies;
    std::atomic<bool> recentlyUsed{false};
    ThreadLocker lock;
    uint32_t previewTexture = 0, previewWidth = 1024, previewHeight = 1024;
    std::atomic<uint32_t> previewNeedsUpdate{1}, changeCounter{0}, wholeChangeCounter{0};
    std::atomic<double> lastAccess{0.0};
    std::atomic<uint32_t> blockID{0};
};

/// Preview side of a map side: below 256 the next power of two, else the nearest (a tie goes up), at most 1024.
uint32_t QLM_PreviewSide(uint32_t side);
