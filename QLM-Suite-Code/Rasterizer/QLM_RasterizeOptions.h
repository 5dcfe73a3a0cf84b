#pragma once
// The block of parameters and state of one triangle call, and the table of rasterizer instances.

#include <cstdint>

/// One corner of a triangle.
struct QLM_RasterizeVertex {
    float x = 0, y = 0, w = 1;       ///< target position in pixels (screen passes: homogeneous)
    float u = 0, v = 0;              ///< sample position of the source picture, 0..1
    float depth = 0;                 ///< (1 - z) / 2
    float color[4] = {1, 1, 1, 1};   ///< paint: RGB and strength; screen: the light in [0..2]
    float overlayX = 0, overlayY = 0; ///< overlay pixels
    float strength = 1;              ///< vertex strength
};

/// Parameters of a pass are set once, those of a triangle before each call. Planes belong to the caller.
/// Rows outside [clipBegin, clipEnd) are left alone: workers own bands of rows and need no lock.
struct QLM_RasterizeOptions {
    QLM_RasterizeVertex vertex[3];

    uint32_t targetWidth = 0, targetHeight = 0;
    int32_t targetDepth = 3;                 ///< bytes a pixel
    uint8_t* targetPixels = nullptr;
    const uint8_t* readPixels = nullptr;     ///< state before the stroke
    uint8_t* targetMask = nullptr;
    const uint8_t* readMask = nullptr;
    int32_t clipBegin = 0, clipEnd = 0x7FFFFFFF;

    const uint8_t* sourcePixels = nullptr;   ///< null: the constant colour serves
    uint32_t sourceWidth = 0, sourceHeight = 0;
    int32_t sourceDepth = 0;
    const uint8_t* sourceMask = nullptr;     ///< screen passes: the map's alpha, may be null

    const uint8_t* overlayPixels = nullptr;
    uint32_t overlayWidth = 0, overlayHeight = 0;

    bool expandSeams = false, lockAlpha = false;
    const uint8_t* overdrawPixels = nullptr; ///< null: no pixel is covered
    /// Gutter: closeness of the owner (255 - min(255, truncate(distance x 127))) and 1 + list index of the owner,
    /// target sized. In the claim pass triangles enter themselves, in the paint pass only owners paint.
    uint8_t* gutterCloseness = nullptr;
    uint32_t* gutterOwner = nullptr;
    uint32_t listIndex = 0;                  ///< place of the polygon in the pass's list

    uint32_t* stripeLocks = nullptr;         ///< 1024 words, where two workers can reach one pixel; null: none
    const float* stencilDepth = nullptr;     ///< depth vote; null: none
    uint32_t stencilWidth = 0, stencilHeight = 0;
    float stencilSoftness = 1.0f, stencilRadius = 0.0f;
    const uint8_t* pixelStencil = nullptr;   ///< ready stencil, target sized

    float strength = 1.0f;
    uint8_t strengthByte = 255;
    uint8_t colorBytes[4] = {255, 255, 255, 255};
    bool written = false;                    ///< set when anything was written

    // Screen passes only.
    float* depthBuffer = nullptr;
    uint32_t* depthOwner = nullptr;          ///< 1 + list number of the polygon that owns the depth; equal depth: lower wins
    uint8_t* unlitPixels = nullptr;          ///< RGB
    uint8_t* idMask = nullptr;
    uint8_t idValue = 0;
};

using QLM_RasterizeFunction = void (*)(QLM_RasterizeOptions&);

/// Screen passes of the software view.
enum class QLM_ScreenRasterizer { TextureLinear, TextureClosest, NoMap, Iconic };
QLM_RasterizeFunction QLM_GetScreenRasterizer(QLM_ScreenRasterizer which);

/// Paint passes by mode number; null for a mode that has no rasterizer yet.
QLM_RasterizeFunction QLM_GetPaintRasterizer(int paintMode, int sourceDepth);
/// Enters a triangle's claims on gutter pixels; run for the whole list before the paint pass.
void QLM_ClaimGutter(QLM_RasterizeOptions& options);
/// Replaces the grey of covered pixels by the constant colour's first byte (overdraw planes). Outside of 0..1 is clipped.
void QLM_RasterizeGreyReplace(QLM_RasterizeOptions& options);

/// Shared table of 1024 words: a pixel write takes entry (x + y) and 0x3FF.
uint32_t* QLM_StripeLockTable();
