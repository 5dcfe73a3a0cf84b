#pragma once
// The form of the blend formulas that map layers and paint modes share.

#include <cstdint>

/// What a formula reads beside the channels. A layer resolve uses the values that stand here; a paint pass those of its
/// stroke.
struct QLM_BlendParameters {
    int k = 255;                               ///< the shader's strength, 0..255
    const uint8_t* saturationSpread = nullptr; ///< 256 bytes, never null when a formula runs
};

/// A blend formula is a struct with one static function that both passes inline into their pixel loops:
///
///     static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters& p, uint8_t* out);
///
/// @param d    the three channels that are there (premultiplied composite, or the map before the stroke)
/// @param s    the three channels of the layer or brush
/// @param a    the weight 1..255; the paint pass of Normal hands P[m][a] here, everything else the alpha itself
/// @param out  three channels, written completely; may not alias d or s
///
/// QLM_BlendFormulas.h holds the thirty of them and `using QLM_LayerBlendFormulas = std::tuple<...>` in the order of
/// the blend types (0 Normal .. 29 Shade), out of which the resolve builds its table of row kernels.
constexpr int QLM_BlendTypeCount = 30;
