// Screen passes of the software view, and the grey pass of overdraw planes.

#include "Rasterizer/QLM_RasterizerTemplate.inl.h"

#include <cstring>

namespace {

/// Replaces colour, alpha, unlit colour and ID; the template has tested and stored the depth.
struct QLM_Shader_RGBA_Replace : QLM_Shader {
    static void Write(const QLM_ScreenTriangle& t, int64_t pixel, const uint8_t* color, float light) {
        const uint32_t l = ClampByte(static_cast<int>(light * 255.0f));
        uint8_t* target = t.pixels + pixel * 4;
        // The product table's x / 255 in integers, exact up to 65535: a table as big as the cache would push the map
        // out.
        const uint8_t lit[4] = {Divide255(color[0] * l), Divide255(color[1] * l), Divide255(color[2] * l), color[3]};
        std::memcpy(target, lit, 4);
        if (t.unlit) std::memcpy(t.unlit + pixel * 3, color, 3);
        if (t.ids) t.ids[pixel] = t.id;
    }
    static uint8_t Divide255(uint32_t x) { return static_cast<uint8_t>(x * 32897u >> 23); }
};

struct QLM_Shader_GreyScale_Replace : QLM_Shader {
    static void Write(const QLM_GreyTriangle& t, int64_t pixel) { t.target[pixel] = t.value; }
};

template <class ColorFilter, class AlphaFilter>
constexpr QLM_RasterizeFunction Screen = &QLM_RasterizerTemplateF<QLM_Shader_RGBA_Replace, ColorFilter, AlphaFilter,
                                                                  float, QLM_RasterFlags_Screen>::RasterizeTriangle;

} // namespace

QLM_RasterizeFunction QLM_GetScreenRasterizer(QLM_ScreenRasterizer which) {
    switch (which) {
    case QLM_ScreenRasterizer::TextureLinear:
        return Screen<MapFilter_Linear_ClampB<3>, MapFilter_Linear_ClampB<1>>;
    case QLM_ScreenRasterizer::TextureClosest:
        return Screen<MapFilter_Closest_ClampB<3>, MapFilter_Closest_ClampB<1>>;
    case QLM_ScreenRasterizer::NoMap:
        break;
    }
    return Screen<MapFilter_DoNothingB, MapFilter_DoNothingB>;
}

void QLM_RasterizeGreyReplace(QLM_RasterizeOptions& options) {
    QLM_RasterizerTemplateF<QLM_Shader_GreyScale_Replace, MapFilter_DoNothingB, MapFilter_DoNothingB, float,
                            QLM_RasterFlags_Grey>::RasterizeTriangle(options);
}
