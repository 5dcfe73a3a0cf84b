#include "Maps/QLM_ImageMap.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/QLM_OS.h"
#include "Images/QLM_GL_Textures.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_PixelBlock.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

namespace {

/// Holds two maps, always in the same order, so that two threads can copy between them both ways.
class BothMapsScope {
  public:
    BothMapsScope(QLM_ImageMap& a, QLM_ImageMap& b)
        : first(&(std::less<>()(&a, &b) ? a : b).GetLock()), second(&(std::less<>()(&a, &b) ? b : a).GetLock()) {}

  private:
    ThreadLockerScope first, second;
};

/// Takes the integer means of red, green and blue.
class GreySink : public QLM_ImageSink {
  public:
    bool Begin(uint32_t widthIn, uint32_t heightIn, int channelsIn) override {
        width = widthIn, height = heightIn, channels = channelsIn;
        block = QLM_MakePixelBlock(width, height, 1);
        return true;
    }
    void SetRow(uint32_t rowFromTop, const uint8_t* samples) override {
        uint8_t* grey = block.get() + static_cast<size_t>(height - 1 - rowFromTop) * width;
        for (uint32_t x = 0; x < width; ++x, samples += channels)
            grey[x] = static_cast<uint8_t>((samples[0] + samples[1] + samples[2]) / 3);
    }
    QLM_PixelBlock block;
    uint32_t width = 0, height = 0;
    int channels = 3;
};

} // namespace

QLM_ImageMap::QLM_ImageMap() = default;

QLM_ImageMap::~QLM_ImageMap() {
    if (previewTexture) QLM_GL_QueueTextureDeletion(previewTexture);
    FreePixels();
}

void QLM_ImageMap::DeleteResizedCopies() {
    for (QLM_ImageMap* copy : resizedCopies) delete copy;
    resizedCopies.clear();
    resizedCopies.cachedIndex = -1;
}

void QLM_ImageMap::FreePixels() {
    DeleteResizedCopies();
    if (const uint32_t id = blockID.exchange(0)) QLM_VirtualMemory_Release(id);
    QLM_Free(pixels.exchange(nullptr));
}

void QLM_ImageMap::SwapOut() {
    // Whoever holds the lock works with the block.
    if (!lock.TryLock()) return;
    ThreadLockerScope scope(&lock);
    lock.Unlock();
    void* block = pixels;
    if (!block) return;
    uint32_t id = 0;
    QLM_VirtualMemory_Store(&block, GetByteCount(), id, __FILE__, __LINE__);
    blockID = id;
    pixels = static_cast<uint8_t*>(block);
}

uint8_t* QLM_ImageMap::GetPixels() {
    recentlyUsed = true;
    lastAccess = QLM_Clock::Now();
    if (uint8_t* block = pixels) return block;
    ThreadLockerScope scope(&lock);
    if (!pixels && blockID) {
        void* block = nullptr;
        uint64_t size = 0;
        uint32_t id = blockID;
        QLM_VirtualMemory_Fetch(&block, size, id);
        pixels = static_cast<uint8_t*>(block);
        blockID = id;
    }
    return pixels;
}

void QLM_ImageMap::SetDimensions(uint32_t widthIn, uint32_t heightIn, uint8_t depthIn) {
    ThreadLockerScope scope(&lock);
    if (widthIn == width && heightIn == height && depthIn == depth) return;
    // Free first, and stand empty meanwhile: two large blocks need not fit into memory together.
    FreePixels();
    width = height = 0;
    depth = depthIn;
    pixels = QLM_MakePixelBlock(widthIn, heightIn, depthIn).release();
    width = widthIn, height = heightIn;
    OnWholeMapChanged();
}

void QLM_ImageMap::Resize(uint32_t widthIn, uint32_t heightIn, int filter) {
    ThreadLockerScope scope(&lock);
    if ((widthIn == width && heightIn == height) || widthIn == 0 || heightIn == 0) return;
    const uint8_t* source = GetPixels();
    if (!source) return;
    QLM_PixelBlock block = QLM_MakePixelBlock(widthIn, heightIn, depth);
    const auto resize = filter == 1 ? ResizeImageClosestF : ResizeImage;
    if (resize(block.get(), widthIn, heightIn, source, width, height, depth))
        CreateWithPixelData(block.release(), widthIn, heightIn, depth, true);
}

void QLM_ImageMap::OnWholeMapChanged() {
    previewNeedsUpdate = 1;
    ++changeCounter;
    MarkSnapshotsStale();
}

void QLM_ImageMap::OnPartialMapChanged(const float*, const float*) {
    previewNeedsUpdate = 1;
    ++changeCounter;
}

bool QLM_ImageMap::LoadFromFile(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    uint8_t* block = nullptr;
    uint32_t newWidth = 0, newHeight = 0;
    bool alpha = false;
    int newDepth = 0;
    std::string notice;
    if (!LoadImageFile(path, block, newWidth, newHeight, alpha, newDepth, error, &notice)) return false;
    CreateWithPixelData(block, newWidth, newHeight, static_cast<uint8_t>(newDepth), true);
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return true;
}

bool QLM_ImageMap::LoadGreyFromFile(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    GreySink grey;
    std::string notice;
    if (!QLM_LoadImageRows(path, grey, notice, error)) return false;
    CreateWithPixelData(grey.block.release(), grey.width, grey.height, 1, true);
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return true;
}

bool QLM_ImageMap::SaveToFile(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    ThreadLockerScope scope(&lock);
    const uint8_t* block = GetPixels();
    const auto grey = [&](uint32_t row, uint8_t* samples) {
        const uint8_t* from = block + static_cast<size_t>(row) * width;
        for (size_t x = 0; x < width; ++x) memset(samples + x * 3, from[x], 3);
    };
    std::string notice;
    const bool saved = block && depth == 1
                           ? SaveMapRowsToFile(path, grey, width, height, false, error, &notice)
                           : SaveMapToFile(path, block, width, height, depth == 4, error, &notice);
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return saved;
}

void QLM_ImageMap::CreateWithPixelData(uint8_t* data, uint32_t widthIn, uint32_t heightIn, uint8_t depthIn,
                                       bool takeOwnership) {
    ThreadLockerScope scope(&lock);
    if (!takeOwnership) {
        QLM_PixelBlock block = QLM_MakePixelBlock(widthIn, heightIn, depthIn);
        if (block) memcpy(block.get(), data, static_cast<size_t>(widthIn) * heightIn * depthIn);
        data = block.release();
    }
    // A map may be given its own block under another geometry.
    if (data && data == pixels) pixels = nullptr;
    FreePixels();
    width = widthIn, height = heightIn, depth = depthIn;
    pixels = data;
    OnWholeMapChanged();
}

void QLM_ImageMap::AssumeOwnershipOfPixelData(QLM_ImageMap& source) {
    if (&source == this) return;
    BothMapsScope scope(*this, source);
    uint8_t* block = source.GetPixels();
    CreateWithPixelData(block, source.width, source.height, source.depth, true);
    source.ReleasePixelData();
}

void QLM_ImageMap::ReleasePixelData() {
    ThreadLockerScope scope(&lock);
    // Nobody can hold the pointer of an evicted block.
    if (const uint32_t id = blockID.exchange(0)) QLM_VirtualMemory_Release(id);
    DeleteResizedCopies();
    pixels = nullptr;
    width = height = 0;
}

void QLM_ImageMap::Copy(QLM_ImageMap& source) {
    if (&source == this) return;
    BothMapsScope scope(*this, source);
    uint8_t* from = source.GetPixels();
    if (source.width != width || source.height != height || source.depth != depth) {
        CreateWithPixelData(from, source.width, source.height, source.depth, false);
        return;
    }
    if (uint8_t* to = GetPixels()) memcpy(to, from, GetByteCount());
}

void QLM_ImageMap::CopyRect(QLM_ImageMap& source, uint32_t x, uint32_t y, uint32_t rectWidth, uint32_t rectHeight) {
    if (&source == this) return;
    BothMapsScope scope(*this, source);
    if (source.width != width || source.height != height || source.depth != depth) return;
    if (x >= width || y >= height) return;
    rectWidth = std::min(rectWidth, width - x);
    rectHeight = std::min(rectHeight, height - y);
    const uint8_t* from = source.GetPixels();
    uint8_t* to = GetPixels();
    if (!from || !to) return;
    for (uint32_t row = y; row < y + rectHeight; ++row) {
        const size_t offset = (static_cast<size_t>(row) * width + x) * depth;
        memcpy(to + offset, from + offset, static_cast<size_t>(rectWidth) * depth);
    }
}

void QLM_ImageMap::ResizeFrom(QLM_ImageMap& source, bool closest) {
    if (&source == this) return;
    BothMapsScope scope(*this, source);
    if (source.depth != depth) return;
    const uint8_t* from = source.GetPixels();
    uint8_t* to = GetPixels();
    if (!from || !to) return;
    const auto resize = closest ? ResizeImageClosest : ResizeImage;
    if (resize(to, width, height, from, source.width, source.height, depth)) OnWholeMapChanged();
}

QLM_ImageMap* QLM_ImageMap::GetResizedCopy(uint32_t widthIn, uint32_t heightIn, bool create) {
    ThreadLockerScope scope(&lock);
    for (QLM_ImageMap* copy : resizedCopies)
        if (copy->width == widthIn && copy->height == heightIn) return copy;
    const uint8_t* source = create ? GetPixels() : nullptr;
    if (!source || widthIn == 0 || heightIn == 0) return nullptr;

    QLM_PixelBlock block = QLM_MakePixelBlock(widthIn, heightIn, depth);
    if (!ResizeImage(block.get(), widthIn, heightIn, source, width, height, depth)) return nullptr;
    uint8_t copyDepth = depth;
    if (depth == 1) {
        QLM_MakeTipPicture(block.get(), static_cast<size_t>(widthIn) * heightIn);
        block = QLM_ReplicateGrey(block.get(), widthIn, heightIn);
        copyDepth = 3;
    }
    QLM_Owned<QLM_ImageMap> copy(new QLM_ImageMap);
    copy->CreateWithPixelData(block.release(), widthIn, heightIn, copyDepth, true);
    resizedCopies.Add(copy.Get());
    return copy.Release();
}
