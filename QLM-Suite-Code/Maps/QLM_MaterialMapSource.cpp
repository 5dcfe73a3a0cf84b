#include "Maps/QLM_MaterialMapSource.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_PixelBlock.h"

namespace {

constexpr uint32_t CellCount = QLM_MaterialMapSource::GridSize * QLM_MaterialMapSource::GridSize;
enum CellFlag : uint8_t { Dirty = 0, Clean = 1 };

/// The grid column or row of a UV coordinate; anything outside lies in the first or last cell.
uint32_t CellOf(float uv) {
    const float cell = uv * QLM_MaterialMapSource::GridSize;
    if (!(cell > 0.0f)) return 0;
    return cell >= QLM_MaterialMapSource::GridSize ? QLM_MaterialMapSource::GridSize - 1 : static_cast<uint32_t>(cell);
}

} // namespace

QLM_MaterialMapSource::QLM_MaterialMapSource() : cellFlags(CellCount, Clean) {}

QLM_MaterialMapSource::~QLM_MaterialMapSource() = default;

void QLM_MaterialMapSource::Initialize(uint32_t widthIn, uint32_t heightIn, const float* color) {
    ThreadLockerScope scope(&lock);
    SetDimensions(widthIn, heightIn, 3);
    MapFileName.clear();
    if (color) ClearToColor(color, 3);
}

void QLM_MaterialMapSource::SetMapFileName(const std::string& name) {
    MapFileName = name;
    std::replace(MapFileName.begin(), MapFileName.end(), '/', '\\');
}

uint8_t* QLM_MaterialMapSource::GetMaskPixels() {
    ThreadLockerScope scope(&lock);
    return Mask.GetPixels();
}

bool QLM_MaterialMapSource::HasMaskSameSize() {
    ThreadLockerScope scope(&lock);
    return Mask.HasPixels() && Mask.GetWidth() == width && Mask.GetHeight() == height;
}

QLM_MaterialMapSource* QLM_MaterialMapSource::GetLayerData(QLM_MapLayer* layer, bool) {
    // The set has no members: only the source itself can be asked for.
    return layer ? nullptr : this;
}

QLM_MaterialMapSource* QLM_MaterialMapSource::GetCurrentLayerData(bool create) { return GetLayerData(nullptr, create); }

QLM_MaterialMapSource* QLM_MaterialMapSource::GetActiveLayerData(bool create) { return GetLayerData(nullptr, create); }

void QLM_MaterialMapSource::ResolveMapLayer(bool) {
    // Without members the pixels are the composite: nothing is stale once they were looked at.
    for (const uint32_t cell : cellList) cellFlags[cell] = Clean;
    cellList.clear();
    DirtyCount = 0;
}

uint8_t* QLM_MaterialMapSource::GetResolvedPixels() {
    ThreadLockerScope scope(&lock);
    ResolveMapLayer(false);
    return GetPixels();
}

uint8_t* QLM_MaterialMapSource::GetResolvedMask() {
    ThreadLockerScope scope(&lock);
    ResolveMapLayer(false);
    return HasMaskSameSize() ? Mask.GetPixels() : nullptr;
}

uint8_t* QLM_MaterialMapSource::GetPixelsForRead() {
    QLM_MaterialMapSource* member = GetCurrentLayerData(false);
    return member ? member->GetPixels() : nullptr;
}

void QLM_MaterialMapSource::ResizeWithLayers(uint32_t widthIn, uint32_t heightIn) {
    ThreadLockerScope scope(&lock);
    widthIn = std::min(widthIn, MaximumSide);
    heightIn = std::min(heightIn, MaximumSide);
    Resize(widthIn, heightIn, 0);
    Mask.Resize(widthIn, heightIn, 0);
}

void QLM_MaterialMapSource::SetDimensions(uint32_t widthIn, uint32_t heightIn, uint8_t depthIn) {
    ThreadLockerScope scope(&lock);
    const bool changes = widthIn != width || heightIn != height || depthIn != depth;
    QLM_ImageMap::SetDimensions(widthIn, heightIn, depthIn);
    if (!Mask.HasPixels() || (!changes && HasMaskSameSize())) return;
    Mask.SetDimensions(widthIn, heightIn, 1);
    Mask.ClearToByte(255);
}

void QLM_MaterialMapSource::ClearRecentlyUsed() {
    QLM_ImageMap::ClearRecentlyUsed();
    Mask.ClearRecentlyUsed();
    Overdraw.ClearRecentlyUsed();
}

void QLM_MaterialMapSource::SwapOut() {
    QLM_ImageMap::SwapOut();
    if (!Mask.IsRecentlyUsed()) Mask.SwapOut();
    if (!Overdraw.IsRecentlyUsed()) Overdraw.SwapOut();
}

void QLM_MaterialMapSource::UpdatePreviewTexture() {
    GetResolvedPixels();
    QLM_ImageMap::UpdatePreviewTexture();
}

bool QLM_MaterialMapSource::LoadFromFile(const std::string& path, std::string& error) {
    return LoadFromFileWithAlpha(path, error);
}

bool QLM_MaterialMapSource::LoadFromFileWithAlpha(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    QLM_LoadedImage image;
    if (!QLM_LoadImage(path, image, error)) return false;

    ThreadLockerScope scope(&lock);
    // Size first: sizing refills the mask.
    SetDimensions(image.width, image.height, 3);
    if (uint8_t* block = GetPixels()) memcpy(block, image.color.data(), GetByteCount());
    if (image.alpha.empty()) Mask.SetDimensions(0, 0, 1);
    else Mask.CreateWithPixelData(image.alpha.data(), image.width, image.height, 1, false);
    aspect = image.height ? static_cast<float>(image.width) / static_cast<float>(image.height) : 1.0f;
    if (image.width > MaximumSide || image.height > MaximumSide) {
        // The cut needs a second block: give the decoder's back before.
        image.color = {};
        image.alpha = {};
        ResizeWithLayers(image.width, image.height);
    }
    OnWholeMapChanged();
    savedChangeCounter = changeCounter.load();
    if (!image.notice.empty()) QLM_OS::Get().PrintMessageText(image.notice);
    return true;
}

bool QLM_MaterialMapSource::SaveToFile(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    ThreadLockerScope scope(&lock);
    ResolveMapLayer(true);
    const uint8_t* block = GetPixels();
    const bool hasAlpha = block && HasMaskSameSize();
    QLM_PixelBlock colorAndAlpha;
    if (hasAlpha) {
        colorAndAlpha = QLM_MakePixelBlock(width, height, 4);
        const uint8_t* mask = Mask.GetPixels();
        const size_t count = static_cast<size_t>(width) * height;
        for (size_t i = 0; i < count; ++i) {
            memcpy(colorAndAlpha.get() + i * 4, block + i * 3, 3);
            colorAndAlpha[i * 4 + 3] = mask[i];
        }
        block = colorAndAlpha.get();
    }
    std::string notice;
    const bool saved = SaveMapToFile(path, block, width, height, hasAlpha, error, &notice);
    if (saved) savedChangeCounter = changeCounter.load();
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return saved;
}

void QLM_MaterialMapSource::OnWholeMapChanged() {
    ThreadLockerScope scope(&lock);
    QLM_ImageMap::OnWholeMapChanged();
    Mask.MarkSnapshotsStale();
    MarkAllCellsDirty();
}

void QLM_MaterialMapSource::OnPartialMapChanged(const float* minUV, const float* maxUV) {
    ThreadLockerScope scope(&lock);
    QLM_ImageMap::OnPartialMapChanged(minUV, maxUV);
    MarkCellsDirty(minUV, maxUV);
}

void QLM_MaterialMapSource::MarkAllCellsDirty() {
    ThreadLockerScope scope(&lock);
    std::fill(cellFlags.begin(), cellFlags.end(), Dirty);
    cellList.resize(CellCount);
    for (uint32_t cell = 0; cell < CellCount; ++cell) cellList[cell] = cell;
    DirtyCount = CellCount;
    previewNeedsUpdate = 1;
}

void QLM_MaterialMapSource::MarkCellsDirty(const float* minUV, const float* maxUV) {
    ThreadLockerScope scope(&lock);
    if (width == 0 || height == 0) return;
    previewNeedsUpdate = 1;
    ++changeCounter;
    // Two pixels more on each side: filters and gutters reach that far.
    const float marginU = 2.0f / static_cast<float>(width), marginV = 2.0f / static_cast<float>(height);
    const uint32_t firstColumn = CellOf(minUV[0] - marginU), lastColumn = CellOf(maxUV[0] + marginU);
    const uint32_t firstRow = CellOf(minUV[1] - marginV), lastRow = CellOf(maxUV[1] + marginV);
    for (uint32_t row = firstRow; row <= lastRow; ++row)
        for (uint32_t cell = row * GridSize + firstColumn; cell <= row * GridSize + lastColumn; ++cell) {
            if (cellFlags[cell] == Dirty) continue;
            cellFlags[cell] = Dirty;
            cellList.push_back(cell);
        }
    DirtyCount = static_cast<int32_t>(cellList.size());
}
