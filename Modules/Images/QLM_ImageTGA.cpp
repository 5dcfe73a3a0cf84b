#include "Images/QLM_ImageFormats.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr uint64_t runRatio = 128;
constexpr size_t headerBytes = 18;
enum Kind { Paletted = 1, Colored = 2, Grey = 3 };

/// The toolkit's own reader takes opaque for transparent in 16 bits, and knows neither mirrored rows nor all palettes.
class Reader : QLM_FileBytes {
  public:
    Reader(QLM_ImageSource& sourceIn) : source(sourceIn) {}
    bool ReadHeader();
    bool ReadRows(QLM_ImageSink& sink);

  private:
    bool MakesSense() const;
    const uint8_t* NextPixel();
    void Convert(const uint8_t* pixel, uint8_t* out) const;

    QLM_ImageSource& source;
    uint32_t kind = 0, bits = 0, firstColor = 0, colors = 0;
    uint32_t colorBits = 0; ///< of a pixel, or of a palette's entry
    bool packed = false, fromTop = false, mirrored = false, hasAlphaBit = false;
    size_t pixelBytes = 0, paletteAt = 0;
    size_t at = 0, packetLeft = 0; ///< in the data; pixels of the present packet
    bool isRun = false;
};

/// The format has no signature: its header must make sense in every field.
bool Reader::MakesSense() const {
    const auto isColor = [](uint32_t n) { return n == 15 || n == 16 || n == 24 || n == 32; };
    if (bytes.size() < headerBytes || At(1) > 1 || At(2) > 11 || (At(17) & 0xC0)) return false;
    if (kind == Paletted) return At(1) == 1 && bits == 8 && colors > 0 && isColor(colorBits);
    return (kind == Colored && isColor(bits)) || (kind == Grey && (bits == 8 || bits == 16));
}

bool Reader::ReadHeader() {
    if (!source.ReadAll(bytes)) return false;
    QLM_ImageInfo& info = source.info;
    kind = At(2) & ~8u;
    packed = (At(2) & 8) != 0;
    bits = At(16);
    firstColor = Two(3), colors = At(1) == 1 ? Two(5) : 0;
    colorBits = kind == Paletted ? At(7) : bits;
    if (!MakesSense()) {
        info.kind = QLM_ImageInfo::Kind::Unknown;
        return source.Fail(QLM_ImageText_Unknown);
    }
    hasAlphaBit = colorBits == 16 && kind != Grey && (At(17) & 15) != 0;
    mirrored = (At(17) & 0x10) != 0;
    fromTop = (At(17) & 0x20) != 0;
    pixelBytes = (bits + 7) / 8;
    paletteAt = headerBytes + At(0);
    at = paletteAt + size_t(colors) * ((At(7) + 7) / 8);
    info.width = Two(12);
    info.height = Two(14);
    info.hasAlpha = colorBits == 32 || hasAlphaBit || (kind == Grey && bits == 16);
    if (!source.CheckSize(info.width * pixelBytes * 8, packed ? runRatio : 1)) return false;
    const uint64_t dataSize = packed ? 1 : uint64_t(info.width) * info.height * pixelBytes;
    return at + dataSize <= bytes.size() || source.Fail(QLM_ImageText_Truncated);
}

/// The next pixel in the file's order, null at the file's end. Packets may go beyond their row.
const uint8_t* Reader::NextPixel() {
    if (packed && packetLeft == 0) {
        const uint32_t head = At(at++);
        isRun = (head & 128) != 0;
        packetLeft = (head & 127) + 1;
    }
    if (at + pixelBytes > bytes.size()) return nullptr;
    const uint8_t* pixel = bytes.data() + at;
    if (packed) packetLeft--;
    if (!packed || !isRun || packetLeft == 0) at += pixelBytes;
    return pixel;
}

void Reader::Convert(const uint8_t* pixel, uint8_t* out) const {
    if (kind == Grey) {
        memset(out, pixel[0], 3);
        if (bits == 16) out[3] = pixel[1];
        return;
    }
    if (kind == Paletted) {
        const uint32_t index = pixel[0] > firstColor ? std::min(pixel[0] - firstColor, colors - 1) : 0;
        pixel = bytes.data() + paletteAt + size_t(index) * ((colorBits + 7) / 8);
    }
    if (colorBits >= 24) {
        out[0] = pixel[2], out[1] = pixel[1], out[2] = pixel[0];
        if (colorBits == 32) out[3] = pixel[3];
        return;
    }
    const int value = pixel[0] | pixel[1] << 8;
    for (int c = 0; c < 3; c++) out[c] = uint8_t((value >> (10 - 5 * c) & 31) * 255 / 31);
    if (hasAlphaBit) out[3] = value & 0x8000 ? 255 : 0;
}

bool Reader::ReadRows(QLM_ImageSink& sink) {
    const size_t width = source.info.width, channels = source.info.hasAlpha ? 4 : 3;
    if (!sink.Begin(source.info.width, source.info.height, int(channels))) return source.Fail(QLM_ImageText_NoMemory);
    std::vector<uint8_t> row(width * channels);
    for (uint32_t y = 0; y < source.info.height; y++) {
        for (size_t x = 0; x < width; x++) {
            const uint8_t* pixel = NextPixel();
            if (!pixel) return source.Fail(QLM_ImageText_Truncated);
            Convert(pixel, &row[(mirrored ? width - 1 - x : x) * channels]);
        }
        sink.SetRow(fromTop ? y : source.info.height - 1 - y, row.data());
    }
    return true;
}

} // namespace

bool QLM_ReadTGA(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Reader reader(source);
    return reader.ReadHeader() && (!sink || reader.ReadRows(*sink));
}
