// The operations of image maps that go through their pixels.

#include "Core/Logging/QLM_RaiseError.h"
#include "Images/QLM_ForRows.h"
#include "Maps/QLM_ImageMap.h"
#include "Maps/QLM_PixelBlock.h"
#include "Math/QLM_MathTables.h"

QLM_PixelBlock QLM_ReplicateGrey(const uint8_t* grey, uint32_t width, uint32_t height) {
    QLM_PixelBlock color = QLM_MakePixelBlock(width, height, 3);
    QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
        const size_t count = static_cast<size_t>(width) * end;
        for (size_t i = static_cast<size_t>(width) * first; i < count; ++i) memset(color.get() + i * 3, grey[i], 3);
    });
    return color;
}

void QLM_MakeTipPicture(uint8_t* grey, size_t count) {
    uint8_t picture[256];
    for (int v = 0; v < 256; ++v) picture[v] = static_cast<uint8_t>(255 - static_cast<int>(std::sqrt(v * 255.0)));
    for (size_t i = 0; i < count; ++i) grey[i] = picture[grey[i]];
}

void QLM_ImageMap::ClearToByte(uint8_t value) {
    ThreadLockerScope scope(&lock);
    if (uint8_t* block = GetPixels()) memset(block, value, GetByteCount());
    OnWholeMapChanged();
}

void QLM_ImageMap::ClearToColor(const float* rgba, int count) {
    if (count != 3 && count != 4) QLM_RaiseError("color depth %d not supported in QLM_ImageMap::ClearToColor()", count);
    uint8_t color[4] = {0, 0, 0, 255};
    for (int i = 0; i < count; ++i) color[i] = QLM_FloatToByte(std::clamp(rgba[i], 0.0f, 1.0f));

    ThreadLockerScope scope(&lock);
    uint8_t* block = GetPixels();
    const uint64_t bytes = GetByteCount();
    if (block && bytes) {
        // Set one pixel, then double what stands already.
        uint64_t filled = depth;
        memcpy(block, color, std::min<size_t>(depth, sizeof color));
        for (; filled < bytes; filled = std::min(filled * 2, bytes))
            memcpy(block + filled, block, std::min(filled, bytes - filled));
    }
    OnWholeMapChanged();
}

void QLM_ImageMap::Invert() {
    ThreadLockerScope scope(&lock);
    uint8_t* block = GetPixels();
    if (!block) return;
    const size_t rowBytes = static_cast<size_t>(width) * depth;
    QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
        uint8_t* const last = block + end * rowBytes;
        uint8_t* sample = block + first * rowBytes;
        for (uint64_t eight; last - sample >= 8; sample += 8) {
            memcpy(&eight, sample, 8);
            eight = ~eight;
            memcpy(sample, &eight, 8);
        }
        for (; sample < last; ++sample) *sample = static_cast<uint8_t>(~*sample);
    });
}

void QLM_ImageMap::SetColorDepth(uint8_t depthIn) {
    ThreadLockerScope scope(&lock);
    if (depthIn == depth) return;
    const bool greyToColor = depth == 1 && depthIn == 3, colorToGrey = depth == 3 && depthIn == 1;
    const bool colorToAlpha = depth == 3 && depthIn == 4;
    if (!greyToColor && !colorToGrey && !colorToAlpha)
        QLM_RaiseError("Case not yet supported in SetColorDepth, %d %d", int(depth), int(depthIn));

    const uint8_t* pixel = GetPixels();
    QLM_PixelBlock block;
    if (greyToColor) {
        block = QLM_ReplicateGrey(pixel, width, height);
    } else {
        block = QLM_MakePixelBlock(width, height, depthIn);
        if (pixel) QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
            const size_t count = static_cast<size_t>(width) * end;
            for (size_t i = static_cast<size_t>(width) * first; i < count; ++i) {
                const uint8_t* from = pixel + i * 3;
                if (colorToGrey) {
                    block[i] = static_cast<uint8_t>((from[0] + from[1] + from[2]) / 3);
                } else {
                    memcpy(block.get() + i * 4, from, 3);
                    block[i * 4 + 3] = 255;
                }
            }
        });
    }
    CreateWithPixelData(block.release(), width, height, depthIn, true);
}

namespace {

/// A block of depth 4 and its size.
struct Block {
    const uint8_t* pixels;
    uint32_t width, height;

    const uint8_t* At(uint32_t x, uint32_t y) const { return pixels + (static_cast<size_t>(y) * width + x) * 4; }
    /// The rows of a neighbourhood, cut at the edges, both ends included.
    uint32_t Below(uint32_t y) const { return y ? y - 1 : 0; }
    uint32_t Above(uint32_t y) const { return std::min(y + 1, height - 1); }
};

/// The pixel laid over the mean of its neighbours that aren't fully transparent. Its alpha becomes their mean too, so
/// that the next pass starts from the pixels that this one has reached.
void DilatePixel(const Block& block, uint32_t x, uint32_t y, uint8_t* out) {
    int sum[4] = {0, 0, 0, 0}, count = 0;
    const uint32_t left = x ? x - 1 : 0, right = std::min(x + 1, block.width - 1);
    for (uint32_t row = block.Below(y); row <= block.Above(y); ++row)
        for (uint32_t column = left; column <= right; ++column) {
            const uint8_t* pixel = block.At(column, row);
            if (!pixel[3]) continue;
            for (int c = 0; c < 4; ++c) sum[c] += pixel[c];
            ++count;
        }
    const uint8_t* own = block.At(x, y);
    if (count == 0) return;
    for (int c = 0; c < 3; ++c) out[c] = QLM_MixByte(sum[c] / count, own[c], own[3]);
    out[3] = static_cast<uint8_t>(sum[3] / count);
}

/// All alphas, and any, of a column of three pixels.
struct AlphaColumn {
    uint8_t all = 255, any = 0;
};
AlphaColumn AlphaColumnAt(const Block& block, uint32_t x, uint32_t y) {
    AlphaColumn column;
    for (uint32_t row = block.Below(y); row <= block.Above(y); ++row) {
        column.all &= block.At(x, row)[3];
        column.any |= block.At(x, row)[3];
    }
    return column;
}

void DilateRow(const Block& block, uint32_t y, uint8_t* out) {
    memcpy(out, block.At(0, y), static_cast<size_t>(block.width) * 4);
    AlphaColumn left, middle = AlphaColumnAt(block, 0, y), right;
    for (uint32_t x = 0; x < block.width; ++x, left = middle, middle = right) {
        right = x + 1 < block.width ? AlphaColumnAt(block, x + 1, y) : AlphaColumn();
        // Among opaque pixels, and far from any, nothing changes.
        const bool opaque = (left.all & middle.all & right.all) == 255;
        if (!opaque && (left.any | middle.any | right.any)) DilatePixel(block, x, y, out + static_cast<size_t>(x) * 4);
    }
}

int AlphaSumAt(const Block& block, uint32_t x, uint32_t y) {
    int sum = block.At(x, y)[3];
    if (y > 0) sum += block.At(x, y - 1)[3];
    return y + 1 < block.height ? sum + block.At(x, y + 1)[3] : sum;
}

void BlurAlphaRow(const Block& block, uint32_t y, uint8_t* out) {
    int left = 0, middle = AlphaSumAt(block, 0, y);
    for (uint32_t x = 0; x < block.width; ++x) {
        const int right = x + 1 < block.width ? AlphaSumAt(block, x + 1, y) : 0;
        out[x] = static_cast<uint8_t>((left + middle + right) / 9);
        left = middle;
        middle = right;
    }
}

/// The alphas of a block to a plane, or back.
void MoveAlpha(uint8_t* block, uint8_t* plane, uint32_t width, uint32_t height, bool toPlane) {
    QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
        const size_t count = static_cast<size_t>(width) * end;
        for (size_t i = static_cast<size_t>(width) * first; i < count; ++i)
            if (toPlane) plane[i] = block[i * 4 + 3];
            else block[i * 4 + 3] = plane[i];
    });
}

} // namespace

void QLM_ImageMap::DilateColorUnderAlpha(int passes) {
    ThreadLockerScope scope(&lock);
    uint8_t* pixelBlock = GetPixels();
    if (depth != 4 || !pixelBlock || passes < 1) return;
    const QLM_PixelBlock alpha = QLM_MakePixelBlock(width, height, 1), scratch = QLM_MakePixelBlock(width, height, 4);
    MoveAlpha(pixelBlock, alpha.get(), width, height, true);
    uint8_t *from = pixelBlock, *to = scratch.get();
    for (int pass = 0; pass < passes; ++pass, std::swap(from, to))
        QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
            for (uint32_t y = first; y < end; ++y)
                DilateRow({from, width, height}, y, to + static_cast<size_t>(y) * width * 4);
        });
    if (from != pixelBlock) memcpy(pixelBlock, from, GetByteCount());
    MoveAlpha(pixelBlock, alpha.get(), width, height, false);
    OnWholeMapChanged();
}

void QLM_ImageMap::BlurAlpha(int passes) {
    ThreadLockerScope scope(&lock);
    uint8_t* block = GetPixels();
    if (depth != 4 || !block || passes < 1) return;
    const QLM_PixelBlock alpha = QLM_MakePixelBlock(width, height, 1);
    for (int pass = 0; pass < passes; ++pass) {
        QLM_ForRows(width, height, [&](uint32_t first, uint32_t end) {
            for (uint32_t y = first; y < end; ++y)
                BlurAlphaRow({block, width, height}, y, alpha.get() + static_cast<size_t>(y) * width);
        });
        MoveAlpha(block, alpha.get(), width, height, false);
    }
    OnWholeMapChanged();
}
