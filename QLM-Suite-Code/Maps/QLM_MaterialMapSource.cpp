#include "Maps/QLM_MaterialMapSource.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_ImageMapBuffer.h"
#include "Maps/QLM_LayerResolve.h"
#include "Maps/QLM_MapLayer.h"
#include "Maps/QLM_PixelBlock.h"
#include "Math/QLM_MathTables.h"

namespace {

constexpr uint32_t CellCount = QLM_MaterialMapSource::GridSize * QLM_MaterialMapSource::GridSize;
enum CellFlag : uint8_t { Dirty = 0, Clean = 1 };

/// The grid column or row of a UV coordinate; anything outside lies in the first or last cell.
uint32_t CellOf(float uv) {
    const float cell = uv * QLM_MaterialMapSource::GridSize;
    if (!(cell > 0.0f)) return 0;
    return cell >= QLM_MaterialMapSource::GridSize ? QLM_MaterialMapSource::GridSize - 1 : static_cast<uint32_t>(cell);
}

/// Holds the locks of the visible members, and of another source, whose pointers are in use, so that nothing evicts
/// them. Sources go in the order of their addresses, as that of the layers changes, each before its mask.
class HeldMaps {
  public:
    explicit HeldMaps(const std::vector<QLM_MaterialMapSource::Member>& members,
                      QLM_MaterialMapSource* other = nullptr) {
        if (other) sources.push_back(other);
        for (const QLM_MaterialMapSource::Member& member : members)
            if (!member.layer->IsHidden()) sources.push_back(member.map);
        std::sort(sources.begin(), sources.end(), std::less<>());
        for (QLM_MaterialMapSource* source : sources) {
            source->GetLock().Lock();
            source->Mask.GetLock().Lock();
        }
    }
    HeldMaps(const HeldMaps&) = delete;
    HeldMaps& operator=(const HeldMaps&) = delete;
    ~HeldMaps() {
        for (QLM_MaterialMapSource* source : sources) {
            source->Mask.GetLock().Unlock();
            source->GetLock().Unlock();
        }
    }

  private:
    std::vector<QLM_MaterialMapSource*> sources;
};

/// The visible members as the resolve reads them; their locks are held.
std::vector<QLM_ResolveLayer> MakeStack(const std::vector<QLM_MaterialMapSource::Member>& members) {
    std::vector<QLM_ResolveLayer> stack;
    for (const QLM_MaterialMapSource::Member& member : members) {
        if (member.layer->IsHidden()) continue;
        stack.push_back({member.map->GetPixels(), member.map->Mask.GetPixels(),
                         QLM_FloatToByte(member.layer->Strength), member.layer->BlendType});
    }
    return stack;
}

/// Decoded rows straight into blocks that a source can take over.
class PlanesSink : public QLM_ImageSink {
  public:
    bool Begin(uint32_t widthIn, uint32_t heightIn, int channels) override {
        width = widthIn, height = heightIn;
        color = QLM_MakePixelBlock(width, height, 3);
        if (channels == 4) mask = QLM_MakePixelBlock(width, height, 1);
        return true;
    }
    void SetRow(uint32_t rowFromTop, const uint8_t* samples) override {
        const size_t first = size_t(height - 1 - rowFromTop) * width;
        uint8_t* target = color.get() + first * 3;
        if (!mask) {
            memcpy(target, samples, size_t(width) * 3);
            return;
        }
        for (uint32_t x = 0; x < width; ++x, samples += 4, target += 3) {
            target[0] = samples[0], target[1] = samples[1], target[2] = samples[2];
            mask[first + x] = samples[3];
        }
    }
    uint32_t width = 0, height = 0;
    QLM_PixelBlock color, mask;
};

} // namespace

QLM_MaterialMapSource::QLM_MaterialMapSource() : cellFlags(CellCount, Clean) { SetNameText("Map.PNG"); }

QLM_MaterialMapSource::~QLM_MaterialMapSource() {
    // A refresh in the background may be reading it.
    QLM_ImageMapBufferWorkhorse::ForgetMap(GetID());
    QLM_ImageMapBufferWorkhorse::ForgetMap(Mask.GetID());
}

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

void QLM_MaterialMapSource::ProvideMask() {
    ThreadLockerScope scope(&lock);
    if (HasMaskSameSize()) return;
    Mask.SetDimensions(width, height, 1);
    Mask.ClearToByte(255);
}

// Members.

void QLM_MaterialMapSource::SetLayerGroup(const QLM_MapLayerGroup* group) { layerGroupID = group ? group->GetID() : 0; }

QLM_MapLayerGroup* QLM_MaterialMapSource::GetLayerGroup() const {
    return layerGroupID ? QLM_FindByID<QLM_MapLayerGroup>(layerGroupID) : nullptr;
}

std::vector<QLM_MaterialMapSource::Member> QLM_MaterialMapSource::GetMembers() {
    std::vector<Member> members;
    QLM_MapLayerGroup* group = HasLayerData() ? GetLayerGroup() : nullptr;
    if (!group) return members;
    for (QLM_MapLayer* layer : group->GetLayers())
        if (auto* map = dynamic_cast<QLM_MaterialMapSource*>(FindLayerData(layer->GetID())))
            members.push_back({layer, map});
    return members;
}

QLM_MaterialMapSource* QLM_MaterialMapSource::NewMember() const {
    auto* member = new QLM_MaterialMapSource;
    member->SetNameText(GetName());
    member->SetBool("isLayerData", true);
    std::copy_n(DefaultColor, 3, member->DefaultColor);
    member->aspect = aspect;
    return member;
}

void QLM_MaterialMapSource::MakeTransparent(uint32_t widthIn, uint32_t heightIn) {
    ThreadLockerScope scope(&lock);
    SetDimensions(widthIn, heightIn, 3);
    Mask.SetDimensions(widthIn, heightIn, 1);
    Mask.ClearToByte(0);
    ClearToColor(DefaultColor, 3);
}

void QLM_MaterialMapSource::AddMember(QLM_MapLayer& layer, QLM_MaterialMapSource* member) {
    SetLayerData(layer.GetID(), member);
    layer.AddSet(GetID());
    member->ownerID = GetID();
    OnLayersChanged();
}

void QLM_MaterialMapSource::MakeBaseMember() {
    QLM_MapLayerGroup* group = GetLayerGroup();
    QLM_MapLayer* base = group ? group->GetBaseLayer() : nullptr;
    if (!base || !HasPixels()) return;
    QLM_MaterialMapSource* member = NewMember();
    // Not by Copy, which locks two maps in the order of their addresses: owners are locked before members.
    member->CreateWithPixelData(GetPixels(), width, height, depth, false);
    if (HasMaskSameSize()) member->Mask.CreateWithPixelData(Mask.GetPixels(), width, height, 1, false);
    else member->ProvideMask();
    AddMember(*base, member);
}

QLM_MaterialMapSource* QLM_MaterialMapSource::GetLayerData(QLM_MapLayer* layer, bool create) {
    ThreadLockerScope scope(&lock);
    if (!layer) return HasLayerData() ? nullptr : this;
    if (create && !HasLayerData()) MakeBaseMember();
    auto* member = dynamic_cast<QLM_MaterialMapSource*>(FindLayerData(layer->GetID()));
    if (member == this || !create || !HasPixels()) return member == this ? nullptr : member;
    if (member) {
        member->ResizeWithLayers(width, height);
        return member;
    }
    member = NewMember();
    member->MakeTransparent(width, height);
    AddMember(*layer, member);
    return member;
}

QLM_MaterialMapSource* QLM_MaterialMapSource::GetCurrentLayerData(bool create) {
    QLM_MapLayerGroup* group = GetLayerGroup();
    return GetLayerData(group ? group->GetCurrentLayer() : nullptr, create);
}

// Members are deleted with no map's lock held: their end waits for a refresh that may be copying this map.

void QLM_MaterialMapSource::DropMember(uint32_t layerID) {
    if (!FindLayerData(layerID)) return;
    if (layerData.size() == 1) ResolveMapLayer(true);
    DeleteMember(layerID);
}

void QLM_MaterialMapSource::DeleteMember(uint32_t layerID) {
    if (!FindLayerData(layerID)) return;
    DeleteLayerData(layerID);
    OnWholeMapChanged();
}

void QLM_MaterialMapSource::DeleteMembers() {
    while (HasLayerData()) DeleteLayerData(layerData.begin()->first);
}

void QLM_MaterialMapSource::OnLayersChanged() {
    ++changeCounter;
    MarkAllCellsDirty();
}

// The resolve.

void QLM_MaterialMapSource::AlignMembers(const std::vector<Member>& members) {
    for (const Member& member : members) {
        if (member.map->HasPixels()) {
            member.map->ResizeWithLayers(width, height);
            member.map->ProvideMask();
        } else {
            member.map->MakeTransparent(width, height);
        }
    }
}

void QLM_MaterialMapSource::TakeDirtyRuns(std::vector<QLM_ResolveRun>& runs) {
    ThreadLockerScope scope(&cellLock);
    for (const uint32_t cell : cellList) {
        if (cellFlags[cell] != Dirty) continue;
        const uint32_t row = cell / GridSize, first = cell % GridSize;
        uint32_t end = first;
        while (end < GridSize && cellFlags[row * GridSize + end] == Dirty) cellFlags[row * GridSize + end++] = Clean;
        const auto edge = [](uint32_t index, uint32_t size) {
            return static_cast<uint32_t>(uint64_t(index) * size / GridSize);
        };
        const QLM_ResolveRun run = {edge(first, width), edge(row, height), edge(end, width), edge(row + 1, height)};
        if (run.x0 < run.x1 && run.y0 < run.y1) runs.push_back(run);
    }
    cellList.clear();
    DirtyCount = 0;
}

void QLM_MaterialMapSource::ResolveMapLayer(bool noChecker) {
    ThreadLockerScope scope(&lock);
    if (!HasLayerData()) {
        QLM_MapLayerGroup* group = GetLayerGroup();
        const QLM_MapLayer* base = group ? group->GetBaseLayer() : nullptr;
        if (base && !base->IsAtDefaults()) MakeBaseMember();
    }
    std::vector<QLM_ResolveRun> runs;
    if (!HasLayerData()) {
        // The pixels are the composite: nothing is stale once they were looked at.
        TakeDirtyRuns(runs);
        return;
    }
    if (noChecker) MarkAllCellsDirty();
    if (DirtyCount == 0) return;
    QLM_TRACE(2);
    const std::vector<Member> members = GetMembers();
    AlignMembers(members);
    if (!HasMaskSameSize()) {
        ProvideMask();
        MarkAllCellsDirty();
    }
    uint8_t checker[6] = {};
    if (const QLM_Engine* engine = QLM_GetEngine())
        for (int i = 0; i < 6; ++i) checker[i] = QLM_FloatToByte(engine->displayColors[i]);
    const HeldMaps held(members);
    ThreadLockerScope maskScope(&Mask.GetLock());
    const std::vector<QLM_ResolveLayer> stack = MakeStack(members);
    TakeDirtyRuns(runs);
    QLM_ResolveRuns({GetPixels(), Mask.GetPixels(), width, height, noChecker ? nullptr : checker}, stack, runs);
    if (noChecker) MarkAllCellsDirty();
}

void QLM_MaterialMapSource::ComposeInto(QLM_MaterialMapSource& target, const std::vector<Member>& members) {
    QLM_TRACE(2);
    ThreadLockerScope scope(&lock);
    AlignMembers(members);
    target.ProvideMask();
    const HeldMaps held(members, &target);
    const std::vector<QLM_ResolveLayer> stack = MakeStack(members);
    std::vector<QLM_ResolveRun> runs;
    constexpr uint32_t RowsOfRun = 64;
    for (uint32_t y = 0; y < height; y += RowsOfRun) runs.push_back({0, y, width, std::min(height, y + RowsOfRun)});
    QLM_ResolveRuns({target.GetPixels(), target.Mask.GetPixels(), width, height, nullptr}, stack, runs);
    target.OnWholeMapChanged();
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
    if (!HasLayerData()) return GetPixels();
    QLM_MaterialMapSource* member = GetCurrentLayerData(false);
    return member ? member->GetPixels() : nullptr;
}

void QLM_MaterialMapSource::ResizeWithLayers(uint32_t widthIn, uint32_t heightIn) {
    ThreadLockerScope scope(&lock);
    widthIn = std::min(widthIn, MaximumSide);
    heightIn = std::min(heightIn, MaximumSide);
    if (HasLayerData()) {
        // The composite follows its members.
        for (const auto& [id, data] : layerData)
            if (auto* member = dynamic_cast<QLM_MaterialMapSource*>(data)) member->ResizeWithLayers(widthIn, heightIn);
    }
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
    for (const auto& [id, data] : layerData)
        if (auto* member = dynamic_cast<QLM_MaterialMapSource*>(data)) member->ClearRecentlyUsed();
}

void QLM_MaterialMapSource::SwapOutIdleMembers() {
    for (const auto& [id, data] : layerData) {
        auto* member = dynamic_cast<QLM_MaterialMapSource*>(data);
        if (member && !member->IsRecentlyUsed()) member->SwapOut();
    }
}

void QLM_MaterialMapSource::SwapOut() {
    SwapOutIdleMembers();
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
    PlanesSink image;
    std::string notice;
    if (!QLM_LoadImageRows(path, image, notice, error)) return false;

    DeleteMembers();
    ThreadLockerScope scope(&lock);
    if (image.mask) Mask.CreateWithPixelData(image.mask.release(), image.width, image.height, 1, true);
    else Mask.SetDimensions(0, 0, 1);
    CreateWithPixelData(image.color.release(), image.width, image.height, 3, true);
    aspect = image.height ? static_cast<float>(image.width) / static_cast<float>(image.height) : 1.0f;
    if (image.width > MaximumSide || image.height > MaximumSide) {
        ResizeWithLayers(image.width, image.height);
        notice += (notice.empty() ? path + ": " : ", ") + "its sides were cut to " + std::to_string(MaximumSide) + " pixels";
    }
    savedChangeCounter = changeCounter.load();
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return true;
}

bool QLM_MaterialMapSource::SaveToFile(const std::string& path, std::string& error) {
    QLM_TRACE(2);
    ThreadLockerScope scope(&lock);
    ResolveMapLayer(true);
    const uint8_t* color = GetPixels();
    const uint8_t* mask = color && HasMaskSameSize() ? Mask.GetPixels() : nullptr;
    const uint32_t rowWidth = width;
    const auto row = [color, mask, rowWidth](uint32_t y, uint8_t* samples) {
        const size_t first = size_t(y) * rowWidth;
        const uint8_t* from = color + first * 3;
        if (!mask) {
            memcpy(samples, from, size_t(rowWidth) * 3);
            return;
        }
        for (uint32_t x = 0; x < rowWidth; ++x, samples += 4, from += 3) {
            samples[0] = from[0], samples[1] = from[1], samples[2] = from[2];
            samples[3] = mask[first + x];
        }
    };
    std::string notice;
    const bool saved = SaveMapRowsToFile(path, row, width, height, mask != nullptr, error, &notice);
    if (saved) savedChangeCounter = changeCounter.load();
    if (!notice.empty()) QLM_OS::Get().PrintMessageText(notice);
    return saved;
}

void QLM_MaterialMapSource::OnWholeMapChanged() {
    QLM_ImageMap::OnWholeMapChanged();
    Mask.MarkSnapshotsStale();
    MarkAllCellsDirty();
    if (auto* owner = ownerID ? QLM_FindByID<QLM_MaterialMapSource>(ownerID) : nullptr) owner->OnLayersChanged();
}

void QLM_MaterialMapSource::OnPartialMapChanged(const float* minUV, const float* maxUV) {
    QLM_ImageMap::OnPartialMapChanged(minUV, maxUV);
    MarkCellsDirty(minUV, maxUV);
    if (auto* owner = ownerID ? QLM_FindByID<QLM_MaterialMapSource>(ownerID) : nullptr)
        owner->MarkCellsDirty(minUV, maxUV);
}

void QLM_MaterialMapSource::MarkAllCellsDirty() {
    ThreadLockerScope scope(&cellLock);
    std::fill(cellFlags.begin(), cellFlags.end(), Dirty);
    cellList.resize(CellCount);
    for (uint32_t cell = 0; cell < CellCount; ++cell) cellList[cell] = cell;
    DirtyCount = CellCount;
    previewNeedsUpdate = 1;
}

void QLM_MaterialMapSource::MarkCellsDirty(const float* minUV, const float* maxUV) {
    ThreadLockerScope scope(&cellLock);
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
