#include "Rendering/QLM_Background.h"

#include "Math/QLM_MathTables.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_Viewport.h"

#include <cmath>

namespace {

constexpr double CellsPerHalfWidth = 80.0; // 20 repeats of 8 cells over the whole width
constexpr float LargestCheckerZoom = 8.0f;
constexpr float InactiveTint = 0.9f;

/// Parity of the cells along one axis; `scale` cells a pixel, the middle pixel edge at cell position `middle`.
std::vector<uint8_t> CellParity(int count, double scale, double middle) {
    std::vector<uint8_t> parity(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double cell = std::floor(middle + (i + 0.5 - 0.5 * count) * scale);
        parity[i] = std::fmod(std::fabs(cell), 2.0) >= 1.0;
    }
    return parity;
}

} // namespace

QLM_BackgroundRows::QLM_BackgroundRows(const QLM_Viewport& viewport) {
    const int width = viewport.width, height = viewport.height;
    const QLM_Camera& camera = viewport.r4s.camera;
    std::vector<uint8_t> columnParity(static_cast<size_t>(width), 0);
    rowParity.assign(static_cast<size_t>(height), 0);
    if (viewport.Zoom <= LargestCheckerZoom && width > 0) {
        const double cellsPerPixel = 2.0 * CellsPerHalfWidth * viewport.Zoom / width;
        const double pixelsPerWorld = 0.5 * height / camera.halfHeight;
        double across = 0, up = 0;
        for (int i = 0; i < 3; ++i) {
            across += static_cast<double>(camera.lookAt[i]) * camera.rotation[i * 4];
            up += static_cast<double>(camera.lookAt[i]) * camera.rotation[i * 4 + 1];
        }
        columnParity = CellParity(width, cellsPerPixel, across * pixelsPerWorld * cellsPerPixel);
        rowParity = CellParity(height, cellsPerPixel, up * pixelsPerWorld * cellsPerPixel);
    }

    uint8_t colors[2][3] = {};
    const QLM_Engine* engine = QLM_GetEngine();
    if (engine && viewport.r4s.DrawBackground)
        for (int i = 0; i < 6; ++i)
            colors[i / 3][i % 3] = QLM_FloatToByte(engine->displayColors[i] * (viewport.Current ? 1.0f : InactiveTint));
    for (int row = 0; row < 2; ++row) {
        rgbRows[row].reserve(static_cast<size_t>(width) * 3);
        rgbaRows[row].reserve(static_cast<size_t>(width) * 4);
        for (int x = 0; x < width; ++x) {
            const uint8_t* color = colors[columnParity[x] ^ row];
            rgbRows[row].insert(rgbRows[row].end(), color, color + 3);
            rgbaRows[row].insert(rgbaRows[row].end(), {color[0], color[1], color[2], 0});
        }
    }
}

void QLM_BackgroundRows::CopyRow(int y, uint8_t* rgb, uint8_t* rgba) const {
    const int parity = rowParity[y];
    std::copy(rgbRows[parity].begin(), rgbRows[parity].end(), rgb);
    std::copy(rgbaRows[parity].begin(), rgbaRows[parity].end(), rgba);
}
