#pragma once
// The block of parameters and state of one triangle call, and the table of rasterizer instances.

#include "Rasterizer/QLM_BlendTypes.h"

#include <cstdint>

/// One corner of a triangle.
struct QLM_RasterizeVertex {
    float x = 0, y = 0, w = 1;        ///< target position in pixels, homogeneous; pixel i covers [i, i + 1)
    float u = 0, v = 0;               ///< sample position of the source picture, 0..1
    float depth = 0;                  ///< screen passes: (w - z) / 2, homogeneous
    float light = 1;                  ///< screen passes: 0..1
    float overlayX = 0, overlayY = 0; ///< paint: overlay pixels
    float strength = 1;               ///< paint: what culling, selection and fades leave, 0..1
};

/// Planes belong to the caller. Fields of a pass are set once, those of a triangle before each call. Rows outside
/// [clipBegin, clipEnd) are left alone: workers own bands of rows, so a pass equals drawing its triangles one after
/// another and needs no lock. Every pixel is computed from the vertices alone, so bands change no bit.
struct QLM_RasterizeOptions {
    QLM_RasterizeVertex vertex[3];
    uint32_t listIndex = 0; ///< place of the triangle in the pass's list, unique in the pass

    uint32_t targetWidth = 0, targetHeight = 0;
    uint8_t* targetPixels = nullptr; ///< paint: RGB; screen: RGBA; grey: one byte
    int32_t clipBegin = 0, clipEnd = 0x7FFFFFFF;
    uint8_t colorBytes[4] = {255, 255, 255, 255}; ///< the colour where there is no source picture
    bool written = false;                         ///< set when a pixel was written; reset by the caller

    const uint8_t* sourcePixels = nullptr; ///< null: the constant colour serves
    const uint8_t* sourceMask = nullptr;   ///< screen: the map's alpha plane, null for 255
    uint32_t sourceWidth = 0, sourceHeight = 0;

    // Paint passes.
    const uint8_t* readPixels = nullptr; ///< the map before the stroke
    uint8_t* targetMask = nullptr;       ///< null: no mask, taken as 255 and not written
    const uint8_t* readMask = nullptr;
    bool lockAlpha = false;
    float strength = 1.0f; ///< of the brush, 0..1
    const uint8_t* overlayPixels = nullptr;
    uint32_t overlayWidth = 0, overlayHeight = 0;
    bool expandSeams = false;                ///< this triangle also paints the gutter pixels that it owns
    const uint8_t* overdrawPixels = nullptr; ///< 255 where a polygon covers the pixel; null: no pixel is covered
    uint8_t* gutterCloseness = nullptr;      ///< target sized: 255 - min(255, truncate(distance x 127)) of the owner
    uint32_t* gutterOwner = nullptr;         ///< target sized: 1 + listIndex of the owner, 0 for none

    // Screen passes.
    float* depthBuffer = nullptr;
    uint32_t* depthOwner = nullptr; ///< 1 + listIndex of the triangle behind each depth
    uint8_t* unlitPixels = nullptr; ///< RGB, may be null
    uint8_t* idMask = nullptr;      ///< may be null
    uint8_t idValue = 0;
};

using QLM_RasterizeFunction = void (*)(QLM_RasterizeOptions&);

/// Screen passes of the software view: a pixel is taken when nearer, or equally near and not later in the list.
enum class QLM_ScreenRasterizer { TextureLinear, TextureClosest, NoMap };
QLM_RasterizeFunction QLM_GetScreenRasterizer(QLM_ScreenRasterizer which);

/// Paint passes by mode number; null for a mode without rasterizer. Reads readPixels, writes targetPixels.
QLM_RasterizeFunction QLM_GetPaintRasterizer(int paintMode);
/// What that pass does to one pixel: mixes source s into d, three bytes each, with alpha a over mask m. `out` may be
/// neither of them.
using QLM_PaintPixelFunction = void (*)(const uint8_t* d, int m, const uint8_t* s, int a, const QLM_BlendParameters& p,
                                        uint8_t* out);
QLM_PaintPixelFunction QLM_GetPaintPixelFunction(int paintMode);
/// Enters a triangle's claims on gutter pixels (closest wins, then the earlier); run over the whole list first.
void QLM_ClaimGutter(QLM_RasterizeOptions& options);
/// Replaces the covered bytes of a grey plane by colorBytes[0].
void QLM_RasterizeGreyReplace(QLM_RasterizeOptions& options);
