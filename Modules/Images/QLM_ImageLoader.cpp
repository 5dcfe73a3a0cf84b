#include "Images/QLM_ImageLoader.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/OS/String_Functions.h"
#include "Images/QLM_ImageFormats.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

const char* const QLM_ImageText_Unknown = "it is no picture of a known format";
const char* const QLM_ImageText_Truncated = "the file ends too early";
const char* const QLM_ImageText_Damaged = "its data is damaged or ends too early";
const char* const QLM_ImageText_NoMemory = "there is not enough memory";
const char* const QLM_ImageText_16Bit = "16 bits a sample were cut to 8";
const char* const QLM_ImageText_CMYK = "CMYK was converted to RGB";
const char* const QLM_ImageText_FirstOnly = "only the first of its pictures was loaded";

bool QLM_ImageSource::ReadAll(std::vector<uint8_t>& bytes) {
    bytes.resize(size);
    return fread(bytes.data(), 1, bytes.size(), file) == bytes.size() || Fail(QLM_ImageText_Truncated);
}

bool QLM_ImageSource::CheckSize(uint64_t rowBits, uint64_t ratio) {
    const std::string sides = std::to_string(info.width) + " x " + std::to_string(info.height) + " pixels";
    if (info.width == 0 || info.height == 0) return Fail("it has no pixels");
    if (info.width > QLM_MaximumImageSide || info.height > QLM_MaximumImageSide)
        return Fail("its " + sides + " are beyond the limit of " + std::to_string(QLM_MaximumImageSide) + " a side");
    if (uint64_t(info.width) * info.height > QLM_MaximumImagePixels)
        return Fail("its " + sides + " are more than " + std::to_string(QLM_MaximumImagePixels));
    const uint64_t unpacked = (rowBits + 7) / 8 * info.height;
    if (unpacked / ratio > size) return Fail("its " + std::to_string(size) + " bytes cannot hold " + sides);
    return true;
}

namespace {

class OpenFile {
  public:
    explicit OpenFile(const std::string& path) : stream(QLM_fopen(path, "rb")) {}
    ~OpenFile() {
        if (stream) QLM_fclose(stream);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    FILE* const stream;
};

/// Rows into one interleaved block of QLM_Malloc.
class BlockSink : public QLM_ImageSink {
  public:
    ~BlockSink() override { QLM_Free(pixels); }
    bool Begin(uint32_t widthIn, uint32_t heightIn, int channelsIn) override {
        width = widthIn, height = heightIn, channels = channelsIn;
        pixels = static_cast<uint8_t*>(QLM_Malloc(size_t(width) * height * channels, true));
        return pixels != nullptr;
    }
    void SetRow(uint32_t rowFromTop, const uint8_t* samples) override {
        const size_t rowBytes = size_t(width) * channels;
        memcpy(pixels + (height - 1 - rowFromTop) * rowBytes, samples, rowBytes);
    }
    uint8_t* pixels = nullptr;
    uint32_t width = 0, height = 0;
    int channels = 0;
};

/// Rows into a colour and an alpha plane.
class PlaneSink : public QLM_ImageSink {
  public:
    bool Begin(uint32_t width, uint32_t height, int channels) override {
        image.width = width, image.height = height;
        image.color.resize(size_t(width) * height * 3);
        if (channels == 4) image.alpha.resize(size_t(width) * height);
        return true;
    }
    void SetRow(uint32_t rowFromTop, const uint8_t* samples) override {
        const size_t first = size_t(image.height - 1 - rowFromTop) * image.width;
        uint8_t* color = image.color.data() + first * 3;
        if (image.alpha.empty()) {
            memcpy(color, samples, size_t(image.width) * 3);
            return;
        }
        uint8_t* alpha = image.alpha.data() + first;
        for (uint32_t x = 0; x < image.width; x++, samples += 4) {
            *color++ = samples[0], *color++ = samples[1], *color++ = samples[2];
            alpha[x] = samples[3];
        }
    }
    QLM_LoadedImage image;
};

QLM_ImageInfo::Kind KindOfSignature(const uint8_t* bytes, size_t count) {
    const auto startsWith = [&](const char* text, size_t length) {
        return count >= length && memcmp(bytes, text, length) == 0;
    };
    if (startsWith("\x89PNG\r\n\x1a\n", 8)) return QLM_ImageInfo::Kind::PNG;
    if (startsWith("\xff\xd8\xff", 3)) return QLM_ImageInfo::Kind::JPEG;
    if (startsWith("II*\0", 4) || startsWith("MM\0*", 4) || startsWith("II+\0", 4) || startsWith("MM\0+", 4))
        return QLM_ImageInfo::Kind::TIFF;
    return QLM_ImageInfo::Kind::Other;
}

bool ReadSource(QLM_ImageSource& source, QLM_ImageSink* sink) {
    struct stat status = {};
    if (fstat(fileno(source.file), &status) != 0 || !S_ISREG(status.st_mode)) return source.Fail("it is not a file");
    source.size = uint64_t(status.st_size);
    if (source.size == 0) return source.Fail("the file is empty");
    uint8_t signature[8] = {};
    const size_t count = fread(signature, 1, sizeof signature, source.file);
    rewind(source.file);
    source.info.kind = KindOfSignature(signature, count);
    try {
        switch (source.info.kind) {
        case QLM_ImageInfo::Kind::PNG:
            return QLM_ReadPNG(source, sink);
        case QLM_ImageInfo::Kind::JPEG:
            return QLM_ReadJPEG(source, sink);
        case QLM_ImageInfo::Kind::TIFF:
            return QLM_ReadTIFF(source, sink);
        default:
            if (memcmp(signature, "GIF8", 4) == 0) return QLM_ReadGIF(source, sink);
            if (memcmp(signature, "BM", 2) == 0) return QLM_ReadBMP(source, sink);
            if (signature[0] == 'P' && (signature[1] == '5' || signature[1] == '6') && isspace(signature[2]))
                return QLM_ReadPNM(source, sink);
            return QLM_ReadTGA(source, sink);
        }
    } catch (const std::bad_alloc&) { return source.Fail(QLM_ImageText_NoMemory); }
}

/// Opens the file and reads it; `error` becomes one line that names the file.
bool ReadPath(const std::string& path, QLM_ImageSource& source, QLM_ImageSink* sink, std::string& error) {
    const OpenFile file(path);
    source.file = file.stream;
    if (!source.file) {
        error = "Cannot open the file " + path;
        return false;
    }
    if (ReadSource(source, sink)) return true;
    error = "Cannot load the picture " + path + ": " + source.reason;
    return false;
}

std::string DescribeLoss(const std::string& path, const std::string& notice) {
    return notice.empty() ? notice : path + ": " + notice;
}

} // namespace

bool QLM_ReadImageInfo(const std::string& path, QLM_ImageInfo& out, std::string& error) {
    QLM_ImageSource source;
    if (!ReadPath(path, source, nullptr, error)) return false;
    out = source.info;
    return true;
}

bool QLM_LoadImage(const std::string& path, QLM_LoadedImage& out, std::string& error) {
    QLM_TRACE(2);
    QLM_ImageSource source;
    PlaneSink sink;
    if (!ReadPath(path, source, &sink, error)) return false;
    sink.image.hasMaskColor = source.hasMaskColor;
    sink.image.notice = DescribeLoss(path, source.notice);
    out = std::move(sink.image);
    return true;
}

bool QLM_LoadImageRows(const std::string& path, QLM_ImageSink& sink, std::string& notice, std::string& error) {
    QLM_TRACE(2);
    QLM_ImageSource source;
    if (!ReadPath(path, source, &sink, error)) return false;
    notice = DescribeLoss(path, source.notice);
    return true;
}

bool LoadImageFile(const std::string& path, uint8_t*& pixels, uint32_t& width, uint32_t& height, bool& alpha,
                   int& depth, std::string& error, std::string* notice) {
    QLM_TRACE(2);
    QLM_ImageSource source;
    BlockSink sink;
    if (!ReadPath(path, source, &sink, error)) return false;
    if (notice) *notice = DescribeLoss(path, source.notice);
    pixels = std::exchange(sink.pixels, nullptr);
    width = sink.width, height = sink.height;
    depth = sink.channels;
    alpha = depth == 4;
    return true;
}

namespace {

bool WriteFormat(FILE* file, const std::string& extension, const QLM_ImageRows& image) {
    if (extension == "png") return QLM_WritePNG(file, image);
    if (extension == "tif" || extension == "tiff") return QLM_WriteTIFF(file, image);
    if (extension == "jpg" || extension == "jpeg") return QLM_WriteJPEG(file, image);
    return QLM_WriteWithToolkit(file, extension, image);
}

/// Rows of RGB out of rows of RGBA.
QLM_ImageRowFunction DropAlpha(const QLM_ImageRowFunction& rows, uint32_t width) {
    return [&rows, width](uint32_t row, uint8_t* samples) {
        std::vector<uint8_t> pixels(size_t(width) * 4);
        rows(row, pixels.data());
        for (size_t x = 0; x < width; x++) memcpy(samples + x * 3, pixels.data() + x * 4, 3);
    };
}

} // namespace

bool SaveMapRowsToFile(const std::string& path, const QLM_ImageRowFunction& rows, uint32_t width, uint32_t height,
                       bool hasAlpha, std::string& error, std::string* notice) {
    QLM_TRACE(2);
    static const char* const known[] = {"png", "tif", "tiff", "jpg", "jpeg", "tga", "bmp", "pnm", "ppm"};
    static const char* const withAlpha[] = {"png", "tif", "tiff", "tga"};
    const auto contains = [](const auto& list, const std::string& word) {
        return std::find(std::begin(list), std::end(list), word) != std::end(list);
    };
    const std::string extension = QLM_ToLower(QLM_ExtensionOf(path));
    const auto fail = [&](const std::string& reason) {
        error = "Cannot save the picture " + path + ": " + reason;
        return false;
    };
    if (!rows || width == 0 || height == 0) return fail("it has no pixels");
    if (!contains(known, extension)) return fail("no picture format has the extension \"" + extension + "\"");
    const uint32_t longestSide = extension.starts_with("jp") ? 65500 : extension == "tga" ? 65535 : UINT32_MAX;
    if (std::max(width, height) > longestSide)
        return fail("the format ends at " + std::to_string(longestSide) + " pixels a side");

    try {
        const bool dropsAlpha = hasAlpha && !contains(withAlpha, extension);
        const QLM_ImageRowFunction written = dropsAlpha ? DropAlpha(rows, width) : rows;
        QLM_SafeFileWriter writer(path);
        if (!writer.GetStream()) return fail("the file cannot be created");
        const QLM_ImageRows image{width, height, hasAlpha && !dropsAlpha ? 4 : 3, written};
        if (!WriteFormat(writer.GetStream(), extension, image) || !writer.Commit())
            return fail("the file cannot be written");
        if (dropsAlpha && notice) *notice = path + ": the alpha was left out, as this format has none";
    } catch (const std::bad_alloc&) { return fail(QLM_ImageText_NoMemory); }
    return true;
}

bool SaveMapToFile(const std::string& path, const uint8_t* pixels, uint32_t width, uint32_t height, bool hasAlpha,
                   std::string& error, std::string* notice) {
    const size_t rowBytes = size_t(width) * (hasAlpha ? 4 : 3);
    const auto rows = [pixels, rowBytes](uint32_t row, uint8_t* samples) {
        memcpy(samples, pixels + row * rowBytes, rowBytes);
    };
    return SaveMapRowsToFile(path, pixels ? QLM_ImageRowFunction(rows) : nullptr, width, height, hasAlpha, error,
                             notice);
}
