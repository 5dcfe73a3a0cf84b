// Paint passes: one shader a mode.

#include "Rasterizer/QLM_BlendFormulas.h"
#include "Rasterizer/QLM_RasterizerTemplate.inl.h"

#include <cstring>
#include <type_traits>

namespace {

constexpr uint8_t white[3] = {255, 255, 255};

template <class Formula>
void PaintPixel(const uint8_t* d, int m, const uint8_t* s, int a, const QLM_BlendParameters& p, uint8_t* out) {
    constexpr bool isWhite = std::is_base_of_v<QLM_Shader_ForceWhiteColor, Formula>;
    QLM_PaintPixel<Formula>(d, m, isWhite ? white : s, a, p, out);
}

/// Blends by one formula and raises the mask.
template <class Formula> struct QLM_Shader_Blend : QLM_Shader {
    static void Write(const QLM_PaintTriangle& t, int64_t pixel, const uint8_t* s, uint8_t a) {
        const uint8_t m = t.readMask ? t.readMask[pixel] : 255;
        uint8_t out[3]; // the target may be what is read
        PaintPixel<Formula>(t.read + pixel * 3, m, s, a, t.blend, out);
        std::memcpy(t.target + pixel * 3, out, 3);
        if (t.targetMask) t.targetMask[pixel] = QLM_RaiseMask(m, a);
    }
};

struct Mode {
    int number;
    QLM_RasterizeFunction rasterize;
    QLM_PaintPixelFunction pixel;
};

template <class Formula> constexpr Mode ModeOf(int number) {
    return {number, &QLM_PaintRasterizer<QLM_Shader_Blend<Formula>, QLM_RasterFlags_Paint>::RasterizeTriangle,
            &PaintPixel<Formula>};
}

constexpr Mode modes[] = {
    ModeOf<QLM_Shader_Normal>(0),
    ModeOf<QLM_Shader_Color>(7),
    ModeOf<QLM_Shader_Multiply>(8),
    ModeOf<QLM_Shader_Overlay>(9),
    ModeOf<QLM_Shader_Screen>(10),
    ModeOf<QLM_Shader_RgbUp>(11),
    ModeOf<QLM_Shader_SaturationUp>(12),
    ModeOf<QLM_Shader_HueUp>(13),
    ModeOf<QLM_Shader_Saturation>(14),
    ModeOf<QLM_Shader_Hue>(15),
    ModeOf<QLM_Shader_RgbDown>(18),
    ModeOf<QLM_Shader_SaturationDown>(19),
    ModeOf<QLM_Shader_HueDown>(20),
    ModeOf<QLM_Shader_Lighten>(22),
    ModeOf<QLM_Shader_LightenOnly>(23),
    ModeOf<QLM_Shader_Lightness>(24),
    ModeOf<QLM_Shader_Dodge>(25),
    ModeOf<QLM_Shader_ContrastUp>(26),
    ModeOf<QLM_Shader_NaturalContrastUp>(27),
    ModeOf<QLM_Shader_Highlight>(28),
    ModeOf<QLM_Shader_Darken>(32),
    ModeOf<QLM_Shader_DarkenOnly>(33),
    ModeOf<QLM_Shader_Burn>(34),
    ModeOf<QLM_Shader_ContrastDown>(35),
    ModeOf<QLM_Shader_NaturalContrastDown>(36),
    ModeOf<QLM_Shader_Shade>(37),
    ModeOf<QLM_Shader_Normal>(44),
};

const Mode* FindMode(int number) {
    const auto found =
        std::find_if(std::begin(modes), std::end(modes), [&](const Mode& mode) { return mode.number == number; });
    return found == std::end(modes) ? nullptr : found;
}

} // namespace

QLM_RasterizeFunction QLM_GetPaintRasterizer(int paintMode) {
    const Mode* mode = FindMode(paintMode);
    return mode ? mode->rasterize : nullptr;
}

QLM_PaintPixelFunction QLM_GetPaintPixelFunction(int paintMode) {
    const Mode* mode = FindMode(paintMode);
    return mode ? mode->pixel : nullptr;
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
