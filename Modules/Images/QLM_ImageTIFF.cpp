#include "Images/QLM_ImageFormats.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// ------------------------------------------------------------------------------------------ the library's file calls

tmsize_t OnRead(thandle_t handle, void* bytes, tmsize_t count) {
    return tmsize_t(fread(bytes, 1, size_t(count), static_cast<FILE*>(handle)));
}
tmsize_t OnWrite(thandle_t handle, void* bytes, tmsize_t count) {
    return tmsize_t(fwrite(bytes, 1, size_t(count), static_cast<FILE*>(handle)));
}
toff_t OnSeek(thandle_t handle, toff_t offset, int whence) {
    auto* file = static_cast<FILE*>(handle);
    return fseeko(file, off_t(offset), whence) == 0 ? toff_t(ftello(file)) : toff_t(-1);
}
int OnClose(thandle_t) { return 0; }
toff_t OnSize(thandle_t handle) {
    auto* file = static_cast<FILE*>(handle);
    const off_t here = ftello(file);
    fseeko(file, 0, SEEK_END);
    const off_t size = ftello(file);
    fseeko(file, here, SEEK_SET);
    return toff_t(size);
}

/// Keeps the library's first complaint; `user` is a std::string.
int OnError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    auto& text = *static_cast<std::string*>(user);
    char buffer[256];
    if (text.empty()) {
        vsnprintf(buffer, sizeof buffer, format, arguments);
        text = buffer;
    }
    return 1;
}
int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct Closer {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Handle = std::unique_ptr<TIFF, Closer>;

Handle Open(FILE* file, const char* mode, uint64_t memoryLimit, std::string& complaint) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) return nullptr;
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, tmsize_t(memoryLimit));
    TIFFOpenOptionsSetErrorHandlerExtR(options, OnError, &complaint);
    TIFFOpenOptionsSetWarningHandlerExtR(options, OnWarning, nullptr);
    Handle tiff(
        TIFFClientOpenExt("picture", mode, file, OnRead, OnWrite, OnSeek, OnClose, OnSize, nullptr, nullptr, options));
    TIFFOpenOptionsFree(options);
    return tiff;
}

// ---------------------------------------------------------------------------------------------------- reading

/// The most that a byte of packed data can stand for.
uint64_t PackingRatio(uint16_t compression) {
    switch (compression) {
    case COMPRESSION_NONE:
        return 1;
    case COMPRESSION_PACKBITS:
        return 64;
    case COMPRESSION_LZW:
        return 4096;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
        return 1032;
    case COMPRESSION_JPEG:
    case COMPRESSION_OJPEG:
        return 512 * 4;
    default:
        return 65536; // fax lines, LZMA, ZSTD: a bit or four bytes may stand for a whole line or block
    }
}

constexpr uint64_t memoryFloor = 16 << 20; ///< what the library may take for its own tables
constexpr size_t maximumKept = 5;          ///< four inks and an alpha; further samples are skipped

class Reader {
  public:
    Reader(QLM_ImageSource& sourceIn) : source(sourceIn) {}
    bool ReadHeader();
    bool ReadRows(QLM_ImageSink& sink);
    /// Tells of pages behind the one that was read. They take its place in the library.
    void NoteOtherPages();

  private:
    bool ReadBlocks(QLM_ImageSink& sink);
    bool ReadBand(uint32_t firstRow);
    void UnpackBlock(uint32_t firstColumn, uint32_t bandRows, size_t plane);
    uint8_t SampleAt(const uint8_t* row, size_t index) const;
    void ConvertRow(const uint8_t* samples, uint8_t* out) const;
    void ConvertColor(const uint8_t* samples, uint8_t* out) const;
    bool ReadThroughLibrary(QLM_ImageSink& sink);
    bool IsOwnKind() const;
    size_t ColorSamples() const;
    bool FailByComplaint() { return source.Fail(complaint.empty() ? QLM_ImageText_Damaged : complaint); }

    QLM_ImageSource& source;
    std::string complaint; // outlives the handle, which writes to it while closing
    Handle tiff;
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samplesPerPixel = 1, photometric = PHOTOMETRIC_MINISBLACK, compression = COMPRESSION_NONE;
    uint16_t planar = PLANARCONFIG_CONTIG, sampleFormat = SAMPLEFORMAT_UINT, orientation = ORIENTATION_TOPLEFT;
    bool premultiplied = false, tiled = false;
    uint64_t ratio = 1;
    uint16_t* palette[3] = {};
    int paletteShift = 8;

    uint32_t blockWidth = 0, blockHeight = 0;
    size_t kept = 0, blockRowBytes = 0;
    std::vector<uint8_t> block; ///< a strip or tile as the library unpacks it
    std::vector<uint8_t> band;  ///< a row of blocks, `kept` bytes a pixel
};

size_t Reader::ColorSamples() const {
    if (photometric == PHOTOMETRIC_RGB) return 3;
    return photometric == PHOTOMETRIC_SEPARATED ? 4 : 1;
}

/// Kinds whose samples are taken apart here; the rest goes through the library's conversion to eight bits.
bool Reader::IsOwnKind() const {
    if (sampleFormat != SAMPLEFORMAT_UINT && sampleFormat != SAMPLEFORMAT_VOID) return false;
    if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16) return false;
    if (samplesPerPixel < ColorSamples()) return false;
    switch (photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_RGB:
    case PHOTOMETRIC_SEPARATED:
        return true;
    case PHOTOMETRIC_PALETTE:
        return bits <= 8 && palette[0];
    default:
        return false;
    }
}

bool Reader::ReadHeader() {
    tiff = Open(source.file, "rm", memoryFloor + source.size * PackingRatio(COMPRESSION_DEFLATE), complaint);
    if (!tiff) return FailByComplaint();
    TIFF* t = tiff.get();
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &samplesPerPixel);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &orientation);
    TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &compression);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric) && samplesPerPixel >= 3) photometric = PHOTOMETRIC_RGB;
    if (!TIFFIsCODECConfigured(compression)) return source.Fail("its compression is not known");
    if (photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG && planar == PLANARCONFIG_CONTIG &&
        TIFFSetField(t, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB))
        photometric = PHOTOMETRIC_RGB;
    if (photometric == PHOTOMETRIC_PALETTE) {
        // Old writers filled the 16-bit colour table with bytes.
        if (bits <= 8 && TIFFGetField(t, TIFFTAG_COLORMAP, &palette[0], &palette[1], &palette[2])) {
            paletteShift = 0;
            for (const uint16_t* table : palette)
                if (std::any_of(table, table + (size_t(1) << bits), [](uint16_t v) { return v > 255; }))
                    paletteShift = 8;
        } else palette[0] = nullptr;
    }
    uint16_t extraCount = 0;
    uint16_t* extraKinds = nullptr;
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extraKinds);
    premultiplied = extraCount > 0 && extraKinds[0] == EXTRASAMPLE_ASSOCALPHA;

    ratio = PackingRatio(compression);
    tiled = TIFFIsTiled(t) != 0;
    source.info.width = width;
    source.info.height = height;
    source.info.bitsPerSample = bits;
    source.info.hasAlpha = IsOwnKind() ? samplesPerPixel > ColorSamples() : extraCount > 0;
    // Colour at half or a quarter of the sides takes less than its sample count says.
    const uint64_t samples = photometric == PHOTOMETRIC_YCBCR ? 1 : samplesPerPixel;
    return source.CheckSize(uint64_t(width) * bits * samples, ratio);
}

uint8_t Reader::SampleAt(const uint8_t* row, size_t index) const {
    if (bits == 8) return row[index];
    if (bits == 16) {
        uint16_t value;
        memcpy(&value, row + index * 2, 2);
        return uint8_t(value >> 8);
    }
    const size_t bit = index * bits;
    return uint8_t((row[bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1));
}

/// Puts the unpacked block into the band: all its samples, or those of one plane.
void Reader::UnpackBlock(uint32_t firstColumn, uint32_t bandRows, size_t plane) {
    const bool separate = planar == PLANARCONFIG_SEPARATE;
    const size_t perPixel = separate ? 1 : samplesPerPixel;
    const size_t first = separate ? plane : 0, count = separate ? 1 : kept;
    const size_t columns = std::min(blockWidth, width - firstColumn);
    for (size_t y = 0; y < bandRows; y++) {
        const uint8_t* in = block.data() + y * blockRowBytes;
        uint8_t* out = band.data() + (y * width + firstColumn) * kept + first;
        for (size_t x = 0; x < columns; x++)
            for (size_t s = 0; s < count; s++) out[x * kept + s] = SampleAt(in, x * perPixel + s);
    }
}

bool Reader::ReadBand(uint32_t firstRow) {
    TIFF* t = tiff.get();
    const uint32_t bandRows = std::min(blockHeight, height - firstRow);
    const size_t planes = planar == PLANARCONFIG_SEPARATE ? kept : 1;
    for (size_t plane = 0; plane < planes; plane++) {
        for (uint32_t x = 0; x < width; x += blockWidth) {
            const tmsize_t size = tmsize_t(block.size());
            const tmsize_t read =
                tiled ? TIFFReadEncodedTile(t, TIFFComputeTile(t, x, firstRow, 0, uint16_t(plane)), block.data(), size)
                      : TIFFReadEncodedStrip(t, TIFFComputeStrip(t, firstRow, uint16_t(plane)), block.data(), size);
            if (read < tmsize_t(bandRows * blockRowBytes)) return FailByComplaint();
            UnpackBlock(x, bandRows, plane);
        }
    }
    return true;
}

void Reader::ConvertColor(const uint8_t* samples, uint8_t* out) const {
    const int maximum = bits < 8 ? (1 << bits) - 1 : 255;
    const auto scaled = [&](int sample) { return uint8_t(sample * 255 / maximum); };
    switch (photometric) {
    case PHOTOMETRIC_RGB:
        for (int c = 0; c < 3; c++) out[c] = scaled(samples[c]);
        break;
    case PHOTOMETRIC_SEPARATED:
        for (int c = 0; c < 3; c++) out[c] = uint8_t((255 - scaled(samples[c])) * (255 - scaled(samples[3])) / 255);
        break;
    case PHOTOMETRIC_PALETTE:
        for (int c = 0; c < 3; c++) out[c] = uint8_t(palette[c][samples[0]] >> paletteShift);
        break;
    default:
        out[0] = out[1] = out[2] =
            photometric == PHOTOMETRIC_MINISWHITE ? uint8_t(255 - scaled(samples[0])) : scaled(samples[0]);
        break;
    }
}

/// Straight colour from premultiplied.
void Unpremultiply(uint8_t* rgba) {
    const int alpha = rgba[3];
    if (alpha == 0 || alpha == 255) return;
    for (int c = 0; c < 3; c++) rgba[c] = uint8_t(std::min(255, (rgba[c] * 255 + alpha / 2) / alpha));
}

void Reader::ConvertRow(const uint8_t* samples, uint8_t* out) const {
    const bool mirrored = orientation == ORIENTATION_TOPRIGHT || orientation == ORIENTATION_BOTRIGHT;
    const size_t channels = source.info.hasAlpha ? 4 : 3, alphaAt = ColorSamples();
    const int maximum = bits < 8 ? (1 << bits) - 1 : 255;
    for (size_t x = 0; x < width; x++) {
        const uint8_t* in = samples + x * kept;
        uint8_t* pixel = out + (mirrored ? width - 1 - x : x) * channels;
        ConvertColor(in, pixel);
        if (channels == 4) {
            pixel[3] = uint8_t(in[alphaAt] * 255 / maximum);
            if (premultiplied) Unpremultiply(pixel);
        }
    }
}

bool Reader::ReadBlocks(QLM_ImageSink& sink) {
    TIFF* t = tiff.get();
    kept = std::min<size_t>(samplesPerPixel, maximumKept);
    uint64_t blockBytes = 0;
    if (tiled) {
        TIFFGetField(t, TIFFTAG_TILEWIDTH, &blockWidth);
        TIFFGetField(t, TIFFTAG_TILELENGTH, &blockHeight);
        blockRowBytes = size_t(TIFFTileRowSize64(t));
        blockBytes = TIFFTileSize64(t);
    } else {
        blockWidth = width;
        TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &blockHeight);
        blockRowBytes = size_t(TIFFScanlineSize64(t));
        blockBytes = TIFFStripSize64(t);
    }
    if (blockWidth == 0 || blockHeight == 0 || blockRowBytes == 0 || blockBytes == 0) return FailByComplaint();
    if (blockBytes / ratio > source.size) return source.Fail("its strips or tiles are larger than its bytes can fill");
    if (!tiled) blockHeight = std::min(blockHeight, height);
    const uint64_t perPixelBits = uint64_t(bits) * (planar == PLANARCONFIG_SEPARATE ? 1 : samplesPerPixel);
    if (blockRowBytes < (std::min(blockWidth, width) * perPixelBits + 7) / 8 ||
        blockBytes < blockRowBytes * blockHeight)
        return source.Fail("its strips or tiles do not fit its pixels");

    block.resize(blockBytes);
    band.resize(size_t(width) * std::min(blockHeight, height) * kept);
    if (!sink.Begin(width, height, source.info.hasAlpha ? 4 : 3)) return source.Fail(QLM_ImageText_NoMemory);
    if (bits == 16) source.AddNotice(QLM_ImageText_16Bit);
    if (photometric == PHOTOMETRIC_SEPARATED) source.AddNotice(QLM_ImageText_CMYK);
    if (samplesPerPixel > ColorSamples() + 1) source.AddNotice("its further channels were left out");

    const bool bottomUp = orientation == ORIENTATION_BOTLEFT || orientation == ORIENTATION_BOTRIGHT;
    std::vector<uint8_t> row(size_t(width) * 4);
    for (uint32_t first = 0; first < height; first += blockHeight) {
        if (!ReadBand(first)) return false;
        for (uint32_t y = first; y < height && y - first < blockHeight; y++) {
            ConvertRow(band.data() + size_t(y - first) * width * kept, row.data());
            sink.SetRow(bottomUp ? height - 1 - y : y, row.data());
        }
    }
    return true;
}

bool Reader::ReadThroughLibrary(QLM_ImageSink& sink) {
    char text[1024] = "";
    TIFFRGBAImage image;
    if (!TIFFRGBAImageOK(tiff.get(), text) || !TIFFRGBAImageBegin(&image, tiff.get(), 1, text))
        return source.Fail(text);
    const std::unique_ptr<TIFFRGBAImage, void (*)(TIFFRGBAImage*)> guard(&image, TIFFRGBAImageEnd);
    image.req_orientation = ORIENTATION_TOPLEFT;
    source.info.hasAlpha = image.alpha != 0;
    std::vector<uint32_t> raster(size_t(width) * height);
    if (!TIFFRGBAImageGet(&image, raster.data(), width, height)) return FailByComplaint();

    const size_t channels = source.info.hasAlpha ? 4 : 3;
    if (!sink.Begin(width, height, int(channels))) return source.Fail(QLM_ImageText_NoMemory);
    if (bits > 8) source.AddNotice(std::to_string(bits) + " bits a sample were cut to 8");
    std::vector<uint8_t> row(size_t(width) * channels);
    for (uint32_t y = 0; y < height; y++) {
        for (size_t x = 0; x < width; x++) {
            const uint32_t packed = raster[size_t(y) * width + x];
            uint8_t pixel[4] = {uint8_t(TIFFGetR(packed)), uint8_t(TIFFGetG(packed)), uint8_t(TIFFGetB(packed)),
                                uint8_t(TIFFGetA(packed))};
            Unpremultiply(pixel);
            memcpy(row.data() + x * channels, pixel, channels);
        }
        sink.SetRow(y, row.data());
    }
    return true;
}

bool Reader::ReadRows(QLM_ImageSink& sink) { return IsOwnKind() ? ReadBlocks(sink) : ReadThroughLibrary(sink); }

void Reader::NoteOtherPages() {
    constexpr int mostCopies = 32; // more than a picture can be halved
    for (int page = 0; page < mostCopies && TIFFReadDirectory(tiff.get()); page++) {
        uint32_t kind = 0;
        TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SUBFILETYPE, &kind);
        // Smaller copies and masks of the first page are no loss.
        if (kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) continue;
        source.AddNotice(QLM_ImageText_FirstOnly);
        return;
    }
}

} // namespace

bool QLM_ReadTIFF(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Reader reader(source);
    if (!reader.ReadHeader() || (sink && !reader.ReadRows(*sink))) return false;
    if (sink) reader.NoteOtherPages();
    return true;
}

bool QLM_WriteTIFF(FILE* file, const QLM_ImageRows& image) {
    constexpr size_t stripBytes = 256 * 1024;
    constexpr uint64_t largestClassic = 2'500'000'000; // noise grows under LZW, and offsets end at 4 GiB
    const uint32_t width = image.width, height = image.height;
    const size_t rowBytes = image.RowBytes();
    const uint32_t stripRows = uint32_t(std::clamp<size_t>(stripBytes / rowBytes, 1, height));
    std::string complaint;
    Handle tiff = Open(file, rowBytes * height > largestClassic ? "w8" : "w", 0, complaint);
    if (!tiff) return false;
    TIFF* t = tiff.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, image.channels);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, stripRows);
    const uint16_t straightAlpha = EXTRASAMPLE_UNASSALPHA;
    if (image.channels == 4) TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &straightAlpha);

    std::vector<uint8_t> strip(rowBytes * stripRows);
    for (uint32_t first = 0, index = 0; first < height; first += stripRows, index++) {
        const uint32_t rows = std::min(stripRows, height - first);
        for (uint32_t y = 0; y < rows; y++) image.Get(first + y, strip.data() + y * rowBytes);
        if (TIFFWriteEncodedStrip(t, index, strip.data(), tmsize_t(rows * rowBytes)) < 0) return false;
    }
    return TIFFWriteDirectory(t) != 0 && complaint.empty();
}
