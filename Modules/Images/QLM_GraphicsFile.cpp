#include "Images/QLM_GL_Textures.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Images/QLM_ImageLoader.h"

#include <cstring>

namespace {

constexpr size_t nameBytes = 256;

/// One picture of the file: its name and where its bytes lie.
struct Record {
    std::string name;
    const uint8_t* bytes;
    size_t size;
};

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& out) {
    FILE* file = QLM_fopen(path, "rb");
    if (!file) return false;
    uint8_t buffer[65536];
    while (const size_t count = fread(buffer, 1, sizeof buffer, file)) out.insert(out.end(), buffer, buffer + count);
    QLM_fclose(file);
    return true;
}

/// The records up to the end, or to one that has no name or fewer bytes than it announces.
std::vector<Record> SplitRecords(const std::vector<uint8_t>& data) {
    std::vector<Record> records;
    for (size_t at = 0; data.size() - at >= nameBytes + 4;) {
        const uint8_t* head = data.data() + at;
        if (!memchr(head, 0, nameBytes)) break;
        const uint8_t* count = head + nameBytes;
        const size_t size = size_t(count[0]) | size_t(count[1]) << 8 | size_t(count[2]) << 16 | size_t(count[3]) << 24;
        at += nameBytes + 4;
        if (size > data.size() - at) break;
        records.push_back({reinterpret_cast<const char*>(head), data.data() + at, size});
        at += size;
    }
    return records;
}

bool WriteBytes(const std::string& path, const uint8_t* bytes, size_t size) {
    FILE* file = QLM_fopen(path, "wb");
    if (!file) return false;
    const bool written = fwrite(bytes, 1, size, file) == size;
    return (QLM_fclose(file) == 0) && written;
}

std::vector<uint8_t> InterleaveRGBA(const QLM_LoadedImage& image) {
    const size_t count = size_t(image.width) * image.height;
    std::vector<uint8_t> block(count * 4, 255);
    for (size_t i = 0; i < count; i++) {
        memcpy(&block[i * 4], &image.color[i * 3], 3);
        if (!image.alpha.empty()) block[i * 4 + 3] = image.alpha[i];
    }
    return block;
}

/// Passes the bytes through a temporary file, as the loader takes files.
void LoadRecord(const Record& record) {
    const std::string temporary = QLM_MakeTempFileName(QLM_OS::GetTempPath(), "png");
    QLM_LoadedImage image;
    std::string error;
    if (WriteBytes(temporary, record.bytes, record.size) && QLM_LoadImage(temporary, image, error)) {
        // The table owns it from here.
        new QLM_GL_Texture(InterleaveRGBA(image).data(), QLM_StemOf(record.name).c_str(), image.width, image.height,
                           true);
    } else QLM_Log("The picture %s of the graphics file cannot be loaded", record.name);
    QLM_DeleteFile(temporary);
}

} // namespace

bool QLM_LoadGraphicsFile(const std::string& path, std::string& error) {
    QLM_TRACE(1);
    std::vector<uint8_t> data;
    if (!ReadWholeFile(path, data)) {
        error = "Cannot open the file " + path;
        return false;
    }
    QLM_GL_InitTextures();
    for (const Record& record : SplitRecords(data)) LoadRecord(record);
    if (QLM_GL_FindTexture("BrushTileTool")) return true;
    error = "The file...\n\n" + path +
            "\n\nis obsolete. Please either perform a full installation of this software, or if you are installing a "
            "patch, please make sure that all of the supporting data files have been placed in their proper locations.";
    return false;
}
