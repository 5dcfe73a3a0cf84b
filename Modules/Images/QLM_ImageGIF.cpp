#include "Images/QLM_ImageFormats.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace {

constexpr uint64_t lzwRatio = 4096; ///< the longest string of a table of 12-bit codes

/// Codes of growing width out of the sub-blocks of a picture, least significant bit first.
class CodeReader {
  public:
    CodeReader(const std::vector<uint8_t>& bytesIn, size_t atIn) : bytes(bytesIn), at(atIn) {}

    /// False at the end of the sub-blocks or of the file.
    bool Read(int width, uint32_t& code) {
        while (bitCount < width) {
            if (at >= bytes.size()) return false;
            if (left == 0) {
                left = bytes[at++];
                if (left == 0) return false;
                continue;
            }
            bits |= uint32_t(bytes[at++]) << bitCount;
            bitCount += 8;
            left--;
        }
        code = bits & ((1u << width) - 1);
        bits >>= width;
        bitCount -= width;
        return true;
    }

  private:
    const std::vector<uint8_t>& bytes;
    size_t at;
    size_t left = 0;
    uint32_t bits = 0;
    int bitCount = 0;
};

/// The LZW decoder of Welch's paper with GIF's clear and end codes. Gives colour indices in the file's order.
class Decoder {
  public:
    Decoder(const std::vector<uint8_t>& bytes, size_t at, int rootBitsIn) : codes(bytes, at), rootBits(rootBitsIn) {
        for (uint32_t i = 0; i < ClearCode(); i++) suffix[i] = uint8_t(i);
        Clear();
    }

    /// Fills a row; false when the data ends before it or is damaged.
    bool ReadRow(uint8_t* row, size_t count) {
        while (count > 0) {
            if (stackSize == 0 && !ReadString()) return false;
            const size_t taken = std::min(count, stackSize);
            for (size_t i = 0; i < taken; i++) *row++ = stack[--stackSize];
            count -= taken;
        }
        return true;
    }

  private:
    static constexpr uint32_t tableSize = 4096, none = tableSize;
    uint32_t ClearCode() const { return 1u << rootBits; }
    void Clear() {
        width = rootBits + 1;
        next = ClearCode() + 2;
        last = none;
    }

    /// Puts the next code's string on the stack, its first index on top.
    bool ReadString() {
        uint32_t code;
        do {
            if (!codes.Read(width, code) || code == ClearCode() + 1) return false;
            if (code == ClearCode()) Clear();
        } while (code == ClearCode());
        if (code > next || (code == next && last == none) || (last == none && code > ClearCode())) return false;

        // A code that is not in the table yet stands for the last string and that string's first index.
        const bool isNew = code == next;
        if (isNew && next >= tableSize) return false;
        if (isNew) stack[stackSize++] = first;
        uint32_t link = isNew ? last : code;
        for (; link > ClearCode(); link = prefix[link]) stack[stackSize++] = suffix[link];
        stack[stackSize++] = first = uint8_t(link);

        if (last != none && next < tableSize) {
            prefix[next] = uint16_t(last);
            suffix[next] = first;
            if (++next == 1u << width && width < 12) width++;
        }
        last = code;
        return true;
    }

    CodeReader codes;
    const int rootBits;
    int width = 0;
    uint32_t next = 0, last = none;
    uint8_t first = 0;
    std::array<uint16_t, tableSize> prefix = {};
    std::array<uint8_t, tableSize> suffix = {};
    std::array<uint8_t, tableSize + 1> stack = {};
    size_t stackSize = 0;
};

/// The first picture of the file and where its parts lie.
struct Frame {
    const uint8_t* palette = nullptr;
    size_t colors = 0, codes = 0;
    int rootBits = 0, transparent = -1;
    bool interlaced = false;
};

class Parser : public QLM_FileBytes {
  public:
    bool FindFrame(QLM_ImageInfo& info, Frame& frame) {
        size_t at = 13;
        TakePalette(At(10), at, frame);
        for (; At(at) == 0x21; SkipBlocks(at)) {
            if (At(at + 1) == 0xF9 && (At(at + 3) & 1)) frame.transparent = int(At(at + 6));
            at += 2;
        }
        if (At(at) != 0x2C) return false;
        info.width = Two(at + 5);
        info.height = Two(at + 7);
        info.hasAlpha = frame.transparent >= 0;
        const uint32_t flags = At(at + 9);
        frame.interlaced = (flags & 0x40) != 0;
        at += 10;
        TakePalette(flags, at, frame);
        frame.rootBits = int(At(at));
        frame.codes = at + 1;
        return frame.palette && frame.rootBits >= 1 && frame.rootBits <= 8 && frame.codes < bytes.size();
    }

    /// Whether another frame follows.
    bool IsAnimated(const Frame& frame) const {
        size_t at = frame.codes;
        SkipBlocks(at);
        while (At(at) == 0x21) SkipBlocks(at += 2);
        return At(at) == 0x2C;
    }

  private:
    void SkipBlocks(size_t& at) const {
        while (At(at) != 0) at += At(at) + 1;
        at++;
    }
    void TakePalette(uint32_t flags, size_t& at, Frame& frame) const {
        if (!(flags & 0x80)) return;
        const size_t colors = size_t(2) << (flags & 7);
        if (at + colors * 3 <= bytes.size()) frame.palette = bytes.data() + at, frame.colors = colors;
        at += colors * 3;
    }
};

/// The rows in the file's order.
std::vector<uint32_t> RowOrder(uint32_t height, bool interlaced) {
    std::vector<uint32_t> order;
    order.reserve(height);
    const auto add = [&](uint32_t first, uint32_t step) {
        for (uint32_t y = first; y < height; y += step) order.push_back(y);
    };
    if (interlaced) add(0, 8), add(4, 8), add(2, 4), add(1, 2);
    else add(0, 1);
    return order;
}

} // namespace

bool QLM_ReadGIF(QLM_ImageSource& source, QLM_ImageSink* sink) {
    Parser parser;
    if (!source.ReadAll(parser.bytes)) return false;
    QLM_ImageInfo& info = source.info;
    Frame frame;
    if (!parser.FindFrame(info, frame)) return source.Fail(QLM_ImageText_Damaged);
    if (!source.CheckSize(uint64_t(info.width) * 8, lzwRatio)) return false;
    if (!sink) return true;

    source.hasMaskColor = info.hasAlpha;
    if (parser.IsAnimated(frame)) source.AddNotice(QLM_ImageText_FirstOnly);
    const size_t channels = info.hasAlpha ? 4 : 3;
    if (!sink->Begin(info.width, info.height, int(channels))) return source.Fail(QLM_ImageText_NoMemory);
    Decoder decoder(parser.bytes, frame.codes, frame.rootBits);
    std::vector<uint8_t> indices(info.width), row(info.width * channels);
    for (const uint32_t y : RowOrder(info.height, frame.interlaced)) {
        if (!decoder.ReadRow(indices.data(), indices.size())) return source.Fail(QLM_ImageText_Damaged);
        for (size_t x = 0; x < indices.size(); x++) {
            const size_t index = std::min<size_t>(indices[x], frame.colors - 1);
            memcpy(&row[x * channels], frame.palette + index * 3, 3);
            if (channels == 4) row[x * 4 + 3] = indices[x] == frame.transparent ? 0 : 255;
        }
        sink->SetRow(y, row.data());
    }
    return true;
}
