// The record of a map source: its lines, pixels, mask and members.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "Images/QLM_ImageLoader.h"
#include "Maps/QLM_MapLayer.h"
#include "Maps/QLM_MaterialMapSource.h"

namespace {

const char* const ExcludeFromSaving = "excludeFromSaving";
/// Deflated data, as PNG and blocks hold it, can't stand for more than so many times its bytes.
constexpr int64_t LargestInflation = 1100;
constexpr int64_t Slack = 4096;

bool IsMemberSaved(const QLM_MaterialMapSource::Member& member) {
    return !member.map->GetBool(ExcludeFromSaving) && !member.layer->GetBool(ExcludeFromSaving);
}

/// A temporary file that goes with its scope.
class TempFile {
  public:
    explicit TempFile(const char* extension) : path(QLM_MakeTempFileName(QLM_OS::GetTempPath(), extension)) {}
    ~TempFile() { QLM_DeleteFile(path); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    bool Read(std::vector<uint8_t>& bytes) const {
        FILE* file = QLM_fopen(path, "rb");
        if (!file) return false;
        bytes.resize(static_cast<size_t>(QLM_BytesLeft(file)));
        const bool complete = fread(bytes.data(), 1, bytes.size(), file) == bytes.size();
        QLM_fclose(file);
        return complete;
    }
    bool Write(const std::vector<uint8_t>& bytes) const {
        FILE* file = QLM_fopen(path, "wb");
        if (!file) return false;
        const bool complete = fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        QLM_fclose(file);
        return complete;
    }
    const std::string path;
};

/// The bytes of a PNG file of these pixels. False where there is no room for the file: the pixels still can be kept as
/// they are.
bool MakePNG(const uint8_t* pixels, uint32_t width, uint32_t height, std::vector<uint8_t>& bytes) {
    const TempFile file("PNG");
    std::string error;
    if (SaveMapToFile(file.path, pixels, width, height, false, error) && file.Read(bytes)) return true;
    QLM_Log("Cannot create a temporary file for the map.");
    return false;
}

/// Decoded rows straight into a map's pixels; the alpha of a picture is left out.
class ColorSink : public QLM_ImageSink {
  public:
    explicit ColorSink(QLM_MaterialMapSource& mapIn) : map(mapIn) {}
    bool Begin(uint32_t widthIn, uint32_t heightIn, int channelsIn) override {
        width = widthIn, height = heightIn, channels = static_cast<uint32_t>(channelsIn);
        map.SetDimensions(width, height, 3);
        // Rows that a damaged picture doesn't hold.
        map.ClearToByte(255);
        pixels = map.GetPixels();
        return pixels != nullptr;
    }
    void SetRow(uint32_t rowFromTop, const uint8_t* samples) override {
        uint8_t* target = pixels + size_t(height - 1 - rowFromTop) * width * 3;
        if (channels == 3) {
            memcpy(target, samples, size_t(width) * 3);
            return;
        }
        for (uint32_t x = 0; x < width; ++x, target += 3, samples += channels)
            target[0] = samples[0], target[1] = samples[1], target[2] = samples[2];
    }

  private:
    QLM_MaterialMapSource& map;
    uint8_t* pixels = nullptr;
    uint32_t width = 0, height = 0, channels = 3;
};

/// A block whose bytes lie in the file as they are.
void WriteRawBlock(FILE* stream, const char* name, const void* data, size_t size) {
    const TStartTextFileBlock block(name, "", stream);
    QLM_WriteInt(stream, "rawDataSize", static_cast<int64_t>(size));
    std::fputs("DATA_BEGIN\n", stream);
    std::fwrite(data, 1, size, stream);
    std::fputs("\nDATA_END\n", stream);
}

} // namespace

bool QLM_MaterialMapSource::IsToBeSaved() {
    if (!GetBool(ExcludeFromSaving)) return true;
    const std::vector<Member> members = GetMembers();
    return std::any_of(members.begin(), members.end(), IsMemberSaved);
}

void QLM_MaterialMapSource::WritePixels(FILE* stream) {
    const uint8_t* block = GetPixels();
    if (!block) return;
    std::vector<uint8_t> picture;
    const bool isPNG = !WriteUncompressedRecords && MakePNG(block, width, height, picture);
    if (isPNG) QLM_WriteCompressedBlock(stream, "data", picture.data(), picture.size());
    else WriteRawBlock(stream, "binaryData", block, GetByteCount());
    if (!HasMaskSameSize()) return;
    if (WriteUncompressedRecords) WriteRawBlock(stream, "maskBinary", Mask.GetPixels(), Mask.GetByteCount());
    else QLM_WriteCompressedBlock(stream, "mask", Mask.GetPixels(), Mask.GetByteCount());
}

bool QLM_MaterialMapSource::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (!IsToBeSaved()) return false;
    ThreadLockerScope scope(&lock);
    const TStartTextFileBlock block("map", GetName(), stream, writeBlock);
    if (GetBool("isFixedAsset")) return true;
    QLM_BaseClass::SaveToStream_Text(stream);
    QLM_WriteInt(stream, "Width", width);
    QLM_WriteInt(stream, "Height", height);
    QLM_WriteText(stream, "MapFileName", MapFileName);
    QLM_WriteVector3(stream, "DefaultColor", DefaultColor);
    if (!HasLayerData()) WritePixels(stream);
    for (const Member& member : GetMembers()) {
        if (!IsMemberSaved(member)) continue;
        const TStartTextFileBlock layer("layer", member.layer->GetName(), stream);
        member.map->SaveToStream_Text(stream, false);
    }
    return true;
}

bool QLM_MaterialMapSource::ReadHeight(FILE* stream, int32_t recordHeight) {
    const auto isSide = [](int32_t side) { return side >= 0 && side <= static_cast<int32_t>(MaximumSide); };
    if (!isSide(recordWidth) || !isSide(recordHeight)) return false;
    // The pixels follow, here or in the members; what the rest of the file can't fill stays empty.
    const int64_t size = int64_t(recordWidth) * recordHeight * 3;
    if (size > QLM_BytesLeft(stream) * LargestInflation + Slack) return true;
    SetDimensions(static_cast<uint32_t>(recordWidth), static_cast<uint32_t>(recordHeight), 3);
    if (GetByteCount()) ClearToByte(255);
    return true;
}

bool QLM_MaterialMapSource::ReadPixels(FILE* stream, bool isPNG) {
    std::vector<uint8_t> bytes;
    if (!isPNG) {
        if (!QLM_ReadCompressedBlock(stream, bytes, static_cast<int64_t>(GetByteCount()))) return false;
        if (uint8_t* block = GetPixels()) memcpy(block, bytes.data(), bytes.size());
        OnWholeMapChanged();
        return true;
    }
    if (!QLM_ReadCompressedBlock(stream, bytes)) return false;
    const TempFile file("PNG");
    const bool written = file.Write(bytes);
    bytes = {};
    ThreadLockerScope scope(&lock);
    ColorSink rows(*this);
    std::string notice, error;
    if (!written || !QLM_LoadImageRows(file.path, rows, notice, error)) {
        QLM_Log("Cannot create a temporary file for the map.");
        return true;
    }
    OnWholeMapChanged();
    if (width > MaximumSide || height > MaximumSide) ResizeWithLayers(width, height);
    return true;
}

void QLM_MaterialMapSource::ReadMask(FILE* stream) {
    std::vector<uint8_t> bytes;
    if (QLM_ReadCompressedBlock(stream, bytes, static_cast<int64_t>(width) * height)) {
        Mask.CreateWithPixelData(bytes.data(), width, height, 1, false);
    } else {
        QLM_OS::Get().MessageBox("The mask in the map '%s' has the wrong dimensions", GetName());
        Mask.SetDimensions(0, 0, 1);
    }
    OnWholeMapChanged();
}

bool QLM_MaterialMapSource::ReadMember(FILE* stream, const std::string& layerName) {
    QLM_MapLayerGroup* group = GetLayerGroup();
    QLM_MapLayer* layer = group ? group->FindLayer(layerName) : nullptr;
    if (!layer) return false;
    QLM_Owned<QLM_MaterialMapSource> member(new QLM_MaterialMapSource);
    member->SetBool("isLayerData", true);
    const bool complete = member->LoadFromStream_Text(stream, 0);
    AddMember(*layer, member.Release());
    return complete;
}

bool QLM_MaterialMapSource::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                                const std::string& value) {
    TextCommand command(key, value);
    int32_t number = 0;
    if (command.Is("Width")) {
        command.ReadInt(recordWidth);
    } else if (command.Is("Height")) {
        command.ReadInt(number);
        loadFailed = !ReadHeight(stream, number) || loadFailed;
    } else if (command.Is("MapFileName")) {
        SetMapFileName(value);
    } else if (command.Is("FileFormat")) {
        FileFormat = value;
        SetName("%s.%s", GetName(), value);
    } else if (command.Is("DefaultColor")) {
        command.ReadVector3(DefaultColor);
    } else if (command.Is("binaryData") || command.Is("data")) {
        loadFailed = !ReadPixels(stream, QLM_CompareNoCase(key, "data") == 0) || loadFailed;
    } else if (command.Is("maskBinary") || command.Is("mask")) {
        ReadMask(stream);
    } else if (command.Is("layer")) {
        loadFailed = !ReadMember(stream, value) || loadFailed;
    } else {
        return QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value);
    }
    return true;
}

bool QLM_MaterialMapSource::LoadFromStream_Text(FILE* stream, uint32_t flags) {
    const bool complete = QLM_BaseClass::LoadFromStream_Text(stream, flags);
    savedChangeCounter = changeCounter.load();
    return complete;
}
