// The preview of image maps: building its block.

#include "Engine/QLM_Engine.h"
#include "Images/QLM_ForRows.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_ImageMap.h"
#include "Math/QLM_MathTables.h"

namespace {

constexpr uint32_t MaximumPreviewSide = 1024;
constexpr uint32_t CheckerCell = 4;

struct CheckerColors {
    uint8_t color[2][3] = {};
    CheckerColors() {
        const QLM_Engine* engine = QLM_GetEngine();
        if (!engine) return;
        for (int i = 0; i < 6; ++i) color[i / 3][i % 3] = QLM_FloatToByte(engine->displayColors[i]);
    }
};

/// Fills the preview by calling pixel(source row, source column, out) at the nearest source pixel of each place.
template <class Pixel>
void SamplePreview(std::vector<uint8_t>& rgb, uint32_t previewWidth, uint32_t previewHeight, uint32_t width,
                   uint32_t height, Pixel&& pixel) {
    std::vector<uint32_t> columns(previewWidth);
    for (uint64_t i = 0; i < previewWidth; ++i) columns[i] = static_cast<uint32_t>(i * width / previewWidth);
    QLM_ForRows(previewWidth, previewHeight, [&](uint32_t first, uint32_t end) {
        uint8_t* out = rgb.data() + static_cast<size_t>(first) * previewWidth * 3;
        for (uint64_t i = first; i < end; ++i) {
            const uint32_t row = static_cast<uint32_t>(i * height / previewHeight);
            for (const uint32_t column : columns) {
                pixel(row, column, out);
                out += 3;
            }
        }
    });
}

} // namespace

uint32_t QLM_PreviewSide(uint32_t side) {
    if (side >= MaximumPreviewSide) return MaximumPreviewSide;
    uint32_t upper = 1;
    while (upper < side) upper *= 2;
    const uint32_t lower = upper / 2;
    return side > 256 && side - lower < upper - side ? lower : upper;
}

bool QLM_ImageMap::BuildPreview(std::vector<uint8_t>& rgb, uint32_t& widthOut, uint32_t& heightOut) {
    ThreadLockerScope scope(&lock);
    const uint8_t* block = GetPixels();
    if (!block) return false;
    previewWidth = widthOut = QLM_PreviewSide(width);
    previewHeight = heightOut = QLM_PreviewSide(height);
    rgb.assign(static_cast<size_t>(widthOut) * heightOut * 3, 255);

    const auto at = [&](uint32_t row, uint32_t column) {
        return block + (static_cast<size_t>(row) * width + column) * depth;
    };
    if (depth == 3) {
        SamplePreview(rgb, widthOut, heightOut, width, height,
                      [&](uint32_t row, uint32_t column, uint8_t* out) { memcpy(out, at(row, column), 3); });
    } else if (depth == 4) {
        const CheckerColors checker;
        SamplePreview(rgb, widthOut, heightOut, width, height, [&](uint32_t row, uint32_t column, uint8_t* out) {
            const uint8_t* under = checker.color[(row / CheckerCell + column / CheckerCell) & 1];
            const uint8_t* pixel = at(row, column);
            for (int c = 0; c < 3; ++c) out[c] = QLM_MixByte(under[c], pixel[c], pixel[3]);
        });
    }
    return true;
}

void QLM_ImageMap::UpdatePreviewTexture() {
    if (!QLM_GL_IsAvailable() || !previewNeedsUpdate) return;
    std::vector<uint8_t> rgb;
    uint32_t sideX = 0, sideY = 0;
    // Clear the flag first: a change that comes meanwhile asks for the next update.
    previewNeedsUpdate = 0;
    if (BuildPreview(rgb, sideX, sideY)) QLM_GL_UploadPreview(previewTexture, rgb.data(), sideX, sideY);
    else previewNeedsUpdate = 1;
}
