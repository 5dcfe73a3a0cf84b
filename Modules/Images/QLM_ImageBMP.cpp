#include "Images/QLM_ImageFormats.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace {

constexpr uint64_t runRatio = 128; ///< a run of 255 pixels in two bytes
constexpr uint32_t noPacking = 0, runsOf8Bits = 1, runsOf4Bits = 2, masksFollow = 3, alphaMasksFollow = 6;

/// The toolkit's own reader loses alpha masks and runs of four bits, and walks out of palettes.
class Reader : QLM_FileBytes {
  public:
    Reader(QLM_ImageSource& sourceIn) : source(sourceIn) {}
    bool ReadHeader();
    bool ReadRows(QLM_ImageSink& sink);

  private:
    bool IsPaletted() const { return bits <= 8; }
    bool IsPacked() const { return packing == runsOf8Bits || packing == runsOf4Bits; }
    bool TakeMasks();
    bool TakePalette();
    bool UnpackRuns();
    bool FindAlpha() const;
    uint32_t PixelAt(const uint8_t* row, size_t x) const;
    void ConvertRow(const uint8_t* row, uint8_t* out) const;

    QLM_ImageSource& source;
    std::vector<uint8_t> unpacked; ///< of a packed picture: a byte for each pixel
    size_t headerSize = 0, first = 0, stride = 0;
    uint32_t bits = 0, packing = noPacking;
    bool fromTop = false;
    std::array<uint32_t, 4> masks = {}; ///< where the bits of red, green, blue and alpha lie
    const uint8_t* palette = nullptr;
    size_t colors = 0, bytesPerColor = 4;
};

bool Reader::ReadHeader() {
    if (!source.ReadAll(bytes)) return false;
    QLM_ImageInfo& info = source.info;
    first = Four(10);
    headerSize = Four(14);
    const bool isOldest = headerSize == 12;
    const auto magnitude = [](uint32_t value) { return int32_t(value) < 0 ? 0u - value : value; };
    info.width = isOldest ? Two(18) : magnitude(Four(18));
    info.height = isOldest ? Two(20) : magnitude(Four(22));
    fromTop = !isOldest && int32_t(Four(22)) < 0;
    bits = isOldest ? Two(24) : Two(28);
    packing = headerSize >= 40 ? Four(30) : noPacking;
    if ((!isOldest && headerSize < 16) || headerSize > bytes.size()) return source.Fail(QLM_ImageText_Damaged);
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
        return source.Fail("its kind of pixels is not known");
    const bool hasMasks = packing == masksFollow || packing == alphaMasksFollow;
    if (packing != noPacking && !(packing == runsOf8Bits && bits == 8) && !(packing == runsOf4Bits && bits == 4) &&
        !(hasMasks && (bits == 16 || bits == 32)))
        return source.Fail("its compression is not known");
    stride = (size_t(info.width) * bits + 31) / 32 * 4;
    const uint64_t rowBits = IsPacked() ? uint64_t(info.width) * 8 : stride * 8;
    if (!source.CheckSize(rowBits, IsPacked() ? runRatio : 1)) return false;

    // The last row may lack the bytes that fill it up to four.
    const uint64_t dataSize = uint64_t(stride) * (info.height - 1) + (uint64_t(info.width) * bits + 7) / 8;
    if (first < 14 + headerSize || first + (IsPacked() ? 1 : dataSize) > bytes.size() || !TakeMasks() || !TakePalette())
        return source.Fail(QLM_ImageText_Damaged);
    info.hasAlpha = FindAlpha();
    return true;
}

bool Reader::TakeMasks() {
    constexpr size_t masksAt = 54, longHeader = 52, alphaHeader = 56;
    if (packing != masksFollow && packing != alphaMasksFollow) {
        if (bits == 16) masks = {0x7C00, 0x03E0, 0x001F, 0};
        if (bits == 32) masks = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};
        return true;
    }
    const bool hasAlphaMask = packing == alphaMasksFollow || headerSize >= alphaHeader;
    for (size_t i = 0; i < (hasAlphaMask ? 4 : 3); i++) masks[i] = Four(masksAt + i * 4);
    return headerSize >= longHeader || first >= masksAt + (hasAlphaMask ? 16 : 12);
}

bool Reader::TakePalette() {
    if (!IsPaletted()) return true;
    const size_t at = 14 + headerSize;
    bytesPerColor = headerSize == 12 ? 3 : 4;
    colors = headerSize >= 40 ? Four(46) : 0;
    if (colors == 0 || colors > 256) colors = size_t(1) << bits;
    colors = std::min(colors, (first - at) / bytesPerColor);
    palette = bytes.data() + at;
    return colors > 0;
}

/// Files without masks and without use for the fourth byte leave it 0 everywhere.
bool Reader::FindAlpha() const {
    if (masks[3] == 0 || packing != noPacking) return masks[3] != 0;
    for (size_t y = 0; y < source.info.height; y++)
        for (size_t x = 0; x < source.info.width; x++)
            if (PixelAt(bytes.data() + first + y * stride, x) & masks[3]) return true;
    return false;
}

/// Pairs of a length and a value; a length of 0 begins a row's end, the picture's, a jump, or so many plain pixels.
bool Reader::UnpackRuns() {
    const size_t width = source.info.width, height = source.info.height, perByte = 8 / bits;
    unpacked.resize(width * height);
    size_t x = 0, y = 0, at = first;
    const auto put = [&](uint32_t index) {
        if (x < width && y < height) unpacked[y * width + x] = uint8_t(index);
        x++;
    };
    const auto part = [&](uint32_t value, size_t i) {
        return bits == 8 ? value : i % 2 == 0 ? value >> 4 : value & 15;
    };
    while (y < height && at + 1 < bytes.size()) {
        const uint32_t count = At(at), value = At(at + 1);
        at += 2;
        if (count > 0) {
            for (size_t i = 0; i < count; i++) put(part(value, i));
        } else if (value == 0) {
            x = 0, y++;
        } else if (value == 1) {
            return true;
        } else if (value == 2) {
            x += At(at), y += At(at + 1);
            at += 2;
        } else {
            for (size_t i = 0; i < value; i++) put(part(At(at + i / perByte), i));
            at += ((value + perByte - 1) / perByte + 1) / 2 * 2;
        }
    }
    return y >= height || (y + 1 == height && x >= width);
}

uint32_t Reader::PixelAt(const uint8_t* row, size_t x) const {
    if (IsPacked()) return row[x];
    if (bits >= 8) {
        uint32_t value = 0;
        memcpy(&value, row + x * (bits / 8), bits / 8);
        return value;
    }
    return uint32_t(row[x * bits / 8]) >> (8 - bits - x * bits % 8) & ((1u << bits) - 1);
}

void Reader::ConvertRow(const uint8_t* row, uint8_t* out) const {
    const size_t channels = source.info.hasAlpha ? 4 : 3;
    for (size_t x = 0; x < source.info.width; x++, out += channels) {
        if (IsPaletted()) {
            const uint8_t* color = palette + std::min<size_t>(PixelAt(row, x), colors - 1) * bytesPerColor;
            out[0] = color[2], out[1] = color[1], out[2] = color[0];
        } else if (bits == 24) {
            out[0] = row[x * 3 + 2], out[1] = row[x * 3 + 1], out[2] = row[x * 3];
        } else {
            const uint32_t pixel = PixelAt(row, x);
            for (size_t c = 0; c < channels; c++) {
                const int shift = masks[c] ? std::countr_zero(masks[c]) : 0;
                const uint64_t largest = masks[c] >> shift;
                out[c] = largest ? uint8_t(((pixel & masks[c]) >> shift) * 255 / largest) : 0;
            }
        }
    }
}

bool Reader::ReadRows(QLM_ImageSink& sink) {
    const size_t width = source.info.width, height = source.info.height;
    if (IsPacked() && !UnpackRuns()) return source.Fail(QLM_ImageText_Damaged);
    if (!sink.Begin(source.info.width, source.info.height, source.info.hasAlpha ? 4 : 3))
        return source.Fail(QLM_ImageText_NoMemory);
    std::vector<uint8_t> row(width * 4);
    for (size_t y = 0; y < height; y++) {
        ConvertRow(IsPacked() ? unpacked.data() + y * width : bytes.data() + first + y * stride, row.data());
        sink.SetRow(uint32_t(fromTop ? y : height - 1 - y), row.data());
    }
    return true;
}

} // namespace

bool QLM_ReadBMP(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Reader reader(source);
    return reader.ReadHeader() && (!sink || reader.ReadRows(*sink));
}
