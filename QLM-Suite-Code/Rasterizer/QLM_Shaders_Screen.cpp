// Screen passes of the software view, and the grey pass of overdraw planes.

#include "Rasterizer/QLM_RasterizerTemplate.inl.h"

namespace {

/// Replaces colour, alpha, unlit colour and ID; the template has tested and stored the depth.
struct QLM_Shader_RGBA_Replace : QLM_Shader {
    static void Write(QLM_RasterizeOptions& o, int64_t pixel, const uint8_t* color, float light) {
        const int l = QLM_ClampByte(static_cast<int>(light * 255.0f));
        uint8_t* target = o.targetPixels + pixel * 4;
        for (int i = 0; i < 3; ++i) target[i] = T(color[i] * l);
        target[3] = color[3];
        if (o.unlitPixels) std::copy(color, color + 3, o.unlitPixels + pixel * 3);
        if (o.idMask) o.idMask[pixel] = o.idValue;
    }
};

struct QLM_Shader_GreyScale_Replace : QLM_Shader {
    static void Write(QLM_RasterizeOptions& o, int64_t pixel, const uint8_t* color, float) { o.targetPixels[pixel] = color[0]; }
};

template <class ColorFilter, class AlphaFilter>
constexpr QLM_RasterizeFunction Screen =
    &QLM_RasterizerTemplateF<QLM_Shader_RGBA_Replace, ColorFilter, AlphaFilter, float, QLM_RasterFlags_Screen>::RasterizeTriangle;

} // namespace

QLM_RasterizeFunction QLM_GetScreenRasterizer(QLM_ScreenRasterizer which) {
    switch (which) {
    case QLM_ScreenRasterizer::TextureLinear: return Screen<MapFilter_Linear_ClampB<3>, MapFilter_Linear_ClampB<1>>;
    case QLM_ScreenRasterizer::TextureClosest: return Screen<MapFilter_Closest_ClampB<3>, MapFilter_Closest_ClampB<1>>;
    case QLM_ScreenRasterizer::NoMap: break;
    }
    return Screen<MapFilter_DoNothingB, MapFilter_DoNothingB>;
}

void QLM_RasterizeGreyReplace(QLM_RasterizeOptions& options) {
    QLM_RasterizerTemplateF<QLM_Shader_GreyScale_Replace, MapFilter_DoNothingB, MapFilter_DoNothingB, float, QLM_RasterFlags_Grey>::RasterizeTriangle(options);
}
