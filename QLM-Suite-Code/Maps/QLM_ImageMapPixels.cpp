// The operations of image maps that go through their pixels.

#include "Core/Logging/QLM_RaiseError.h"
#include "Maps/QLM_ImageMap.h"
#include "Maps/QLM_PixelBlock.h"
#include "Math/QLM_MathTables.h"

QLM_PixelBlock QLM_ReplicateGrey(const uint8_t* grey, uint32_t width, uint32_t height) {
    QLM_PixelBlock color = QLM_MakePixelBlock(width, height, 3);
    const size_t count = static_cast<size_t>(width) * height;
    for (size_t i = 0; i < count; ++i) memset(color.get() + i * 3, grey[i], 3);
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
    const uint64_t bytes = block ? GetByteCount() : 0;
    for (uint64_t i = 0; i < bytes; ++i) block[i] = static_cast<uint8_t>(~block[i]);
}

void QLM_ImageMap::SetColorDepth(uint8_t depthIn) {
    ThreadLockerScope scope(&lock);
    if (depthIn == depth) return;
    const bool greyToColor = depth == 1 && depthIn == 3, colorToGrey = depth == 3 && depthIn == 1;
    const bool colorToAlpha = depth == 3 && depthIn == 4;
    if (!greyToColor && !colorToGrey && !colorToAlpha)
        QLM_RaiseError("Case not yet supported in SetColorDepth, %d %d", int(depth), int(depthIn));

    const uint8_t* from = GetPixels();
    const size_t count = from ? static_cast<size_t>(width) * height : 0;
    QLM_PixelBlock block;
    if (greyToColor) {
        block = QLM_ReplicateGrey(from, width, height);
    } else {
        block = QLM_MakePixelBlock(width, height, depthIn);
        for (size_t i = 0; i < count; ++i, from += 3) {
            if (colorToGrey) {
                block[i] = static_cast<uint8_t>((from[0] + from[1] + from[2]) / 3);
            } else {
                memcpy(block.get() + i * 4, from, 3);
                block[i * 4 + 3] = 255;
            }
        }
    }
    CreateWithPixelData(block.release(), width, height, depthIn, true);
}

namespace {

/// Calls visit(pixel) for the 3 x 3 neighbourhood of (x, y) in a block of depth 4, cut at the edges.
template <class Visit>
void VisitNeighbourhood(const uint8_t* block, uint32_t width, uint32_t height, uint32_t x, uint32_t y, Visit&& visit) {
    const uint32_t left = x ? x - 1 : 0, right = std::min(x + 1, width - 1);
    const uint32_t bottom = y ? y - 1 : 0, top = std::min(y + 1, height - 1);
    for (uint32_t row = bottom; row <= top; ++row)
        for (uint32_t column = left; column <= right; ++column)
            visit(block + (static_cast<size_t>(row) * width + column) * 4);
}

/// The pixel laid over the mean of its neighbours that aren't fully transparent. Its alpha becomes their mean too, so
/// that the next pass starts from the pixels that this one has reached.
void DilatePixel(const uint8_t* block, uint32_t width, uint32_t height, uint32_t x, uint32_t y, uint8_t* out) {
    int sum[4] = {0, 0, 0, 0}, count = 0;
    VisitNeighbourhood(block, width, height, x, y, [&](const uint8_t* pixel) {
        if (!pixel[3]) return;
        for (int c = 0; c < 4; ++c) sum[c] += pixel[c];
        ++count;
    });
    const uint8_t* own = block + (static_cast<size_t>(y) * width + x) * 4;
    memcpy(out, own, 4);
    if (count == 0) return;
    for (int c = 0; c < 3; ++c) out[c] = QLM_MixByte(sum[c] / count, own[c], own[3]);
    out[3] = static_cast<uint8_t>(sum[3] / count);
}

} // namespace

void QLM_ImageMap::DilateColorUnderAlpha(int passes) {
    ThreadLockerScope scope(&lock);
    uint8_t* block = GetPixels();
    if (depth != 4 || !block || passes < 1) return;
    const size_t count = static_cast<size_t>(width) * height;
    const QLM_PixelBlock alpha = QLM_MakePixelBlock(width, height, 1), scratch = QLM_MakePixelBlock(width, height, 4);
    for (size_t i = 0; i < count; ++i) alpha[i] = block[i * 4 + 3];

    for (int pass = 0; pass < passes; ++pass) {
        uint8_t* out = scratch.get();
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x, out += 4) DilatePixel(block, width, height, x, y, out);
        memcpy(block, scratch.get(), GetByteCount());
    }
    for (size_t i = 0; i < count; ++i) block[i * 4 + 3] = alpha[i];
    OnWholeMapChanged();
}

void QLM_ImageMap::BlurAlpha(int passes) {
    ThreadLockerScope scope(&lock);
    uint8_t* block = GetPixels();
    if (depth != 4 || !block || passes < 1) return;
    const size_t count = static_cast<size_t>(width) * height;
    const QLM_PixelBlock alpha = QLM_MakePixelBlock(width, height, 1);
    for (int pass = 0; pass < passes; ++pass) {
        uint8_t* out = alpha.get();
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x, ++out) {
                int sum = 0;
                VisitNeighbourhood(block, width, height, x, y, [&](const uint8_t* pixel) { sum += pixel[3]; });
                *out = static_cast<uint8_t>(sum / 9);
            }
        for (size_t i = 0; i < count; ++i) block[i * 4 + 3] = alpha[i];
    }
    OnWholeMapChanged();
}
