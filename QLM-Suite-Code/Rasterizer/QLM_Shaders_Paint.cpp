// Paint passes: one shader a mode.

#include "Rasterizer/QLM_RasterizerTemplate.inl.h"

namespace {

/// Mixes towards the source; a transparent pixel takes it at once, so that no dark fringe shows.
struct QLM_Shader_Normal : QLM_Shader {
    static void Write(const QLM_PaintTriangle& t, int64_t pixel, const uint8_t* s, uint8_t a) {
        const uint8_t* d = t.read + pixel * 3;
        uint8_t* target = t.target + pixel * 3;
        const uint8_t m = t.readMask ? t.readMask[pixel] : 255;
        const uint8_t weight = QLM_MixCurveAt(m, a);
        for (int i = 0; i < 3; ++i) target[i] = QLM_MixByte(d[i], s[i], weight);
        if (t.targetMask) t.targetMask[pixel] = static_cast<uint8_t>(m + T((255 - m) * a));
    }
};

} // namespace

QLM_RasterizeFunction QLM_GetPaintRasterizer(int paintMode) {
    switch (paintMode) {
    case 0:
    case 44:
        return &QLM_PaintRasterizer<QLM_Shader_Normal, QLM_RasterFlags_Paint>::RasterizeTriangle;
    default:
        return nullptr;
    }
}

void QLM_ClaimGutter(QLM_RasterizeOptions& o) {
    QLM_TriangleSetup setup;
    if (!setup.SetUp(o, true, 1)) return;
    for (int y = setup.y0; y <= setup.y1; ++y)
        for (int x = setup.x0; x <= setup.x1; ++x) {
            const int64_t pixel = static_cast<int64_t>(y) * o.targetWidth + x;
            if (o.overdrawPixels && o.overdrawPixels[pixel] == 255) continue;
            float b1, b2;
            if (setup.At(x, y, b1, b2)) continue;
            const int distance = static_cast<int>(setup.Distance(x, y) * 127.0f);
            const uint8_t closeness = static_cast<uint8_t>(255 - std::min(255, distance));
            if (o.gutterOwner[pixel] != 0 && closeness <= o.gutterCloseness[pixel]) continue;
            o.gutterCloseness[pixel] = closeness;
            o.gutterOwner[pixel] = o.listIndex + 1;
        }
}
