#pragma once
// The formulas of the blend types, in the form that QLM_BlendTypes.h tells. Each result is a byte of 8-bit arithmetic
// whose quotients by 255 truncate toward zero, worked out in integers: a row of pixels then fits vector registers,
// where the product table would be asked for each byte.
//
// A formula may have, beside Apply:
//   Channel(d, s, a)   one channel from one channel, for formulas that mix no channels: a kernel may run over the bytes
//                      of a row
// and, for the paint pass,
//   usesMixCurve       its weight is P[mask][alpha]: a transparent pixel takes the source at once
// and the base QLM_Shader_ForceWhiteColor.

#include "Math/QLM_MathTables.h"
#include "Rasterizer/QLM_BlendTypes.h"
#include "Rasterizer/QLM_ByteHSL.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <tuple>

/// x / 255 for 0..65025, truncated.
inline int QLM_Divide255(int x) {
    const uint16_t u = static_cast<uint16_t>(x);
    return static_cast<uint16_t>(u + 1 + (u >> 8)) >> 8;
}
/// The signed quotient, toward zero, for -65025..65025. Without a branch: signs of samples can't be foretold.
inline int QLM_Quotient255(int x) {
    const int sign = x >> 31;
    return (QLM_Divide255((x ^ sign) - sign) ^ sign) - sign;
}
/// d mixed towards x, both 0..255, with weight a.
inline uint8_t QLM_BlendMix(int d, int x, int a) { return static_cast<uint8_t>(d + QLM_Quotient255((x - d) * a)); }
/// The mask after paint or a layer of weight a.
inline uint8_t QLM_RaiseMask(int m, int a) { return static_cast<uint8_t>(m + QLM_Divide255((255 - m) * a)); }

/// The spread of saturation that a layer resolve uses: full everywhere.
inline constexpr std::array<uint8_t, 256> QLM_FullSaturationSpread = [] {
    std::array<uint8_t, 256> spread{};
    for (uint8_t& entry : spread) entry = 255;
    return spread;
}();

/// Base of formulas that paint in white whatever the brush's colour, so that its strength alone acts. A layer's pixels
/// serve as they are.
struct QLM_Shader_ForceWhiteColor {};

/// Base of all formulas: the mark that most don't have, and the whole pixel from one channel.
template <class Formula> struct QLM_BlendFormula {
    static constexpr bool usesMixCurve = false;
    static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters&, uint8_t* out) {
        for (int i = 0; i < 3; ++i) out[i] = Formula::Channel(d[i], s[i], a);
    }
};

/// Formulas that mix each channel towards a target made of d and s.
template <class Formula> struct QLM_BlendMixing : QLM_BlendFormula<Formula> {
    static uint8_t Channel(int d, int s, int a) { return QLM_BlendMix(d, Formula::Target(d, s), a); }
};

/// The paint form: mixes the source into a pixel with alpha a over mask m. `out` is none of the others.
template <class Formula>
void QLM_PaintPixel(const uint8_t* d, int m, const uint8_t* s, int a, const QLM_BlendParameters& p, uint8_t* out) {
    Formula::Apply(d, s, Formula::usesMixCurve ? QLM_MixCurveAt(m, a) : a, p, out);
}

// Formulas of one channel, by Target(d, s).

struct QLM_Shader_Normal : QLM_BlendMixing<QLM_Shader_Normal> {
    static constexpr bool usesMixCurve = true;
    static int Target(int, int s) { return s; }
};
struct QLM_Shader_LightenOnly : QLM_BlendMixing<QLM_Shader_LightenOnly> {
    static int Target(int d, int s) { return std::max(d, s); }
};
struct QLM_Shader_DarkenOnly : QLM_BlendMixing<QLM_Shader_DarkenOnly> {
    static int Target(int d, int s) { return std::min(d, s); }
};
struct QLM_Shader_Multiply : QLM_BlendMixing<QLM_Shader_Multiply> {
    static int Target(int d, int s) { return QLM_Divide255(s * d); }
};
struct QLM_Shader_Overlay : QLM_BlendMixing<QLM_Shader_Overlay> {
    static int Target(int d, int s) {
        const int multiplied = QLM_Divide255(d * s), screened = 255 - QLM_Divide255((255 - s) * (255 - d));
        return QLM_Divide255(multiplied * (255 - d) + screened * d);
    }
};
struct QLM_Shader_Screen : QLM_BlendMixing<QLM_Shader_Screen> {
    static int Target(int d, int s) { return 255 - QLM_Divide255((255 - d) * (255 - s)); }
};
struct QLM_Shader_HardLight : QLM_BlendMixing<QLM_Shader_HardLight> {
    static int Target(int d, int s) { return std::clamp(d + (s - 127) * 2, 0, 255); }
};
struct QLM_Shader_SoftLight : QLM_BlendMixing<QLM_Shader_SoftLight> {
    static int Target(int d, int s) { return std::clamp(d + ((s - 127) >> 1), 0, 255); }
};
struct QLM_Shader_Dodge : QLM_BlendMixing<QLM_Shader_Dodge> {
    static int Target(int d, int s) { return std::min(d, 8) * std::min(255, QLM_HSL::Divide(d * 255, 256 - s)) >> 3; }
};
struct QLM_Shader_Burn : QLM_BlendMixing<QLM_Shader_Burn> {
    static int Target(int d, int s) { return 255 - QLM_Shader_Dodge::Target(255 - d, 255 - s); }
};
struct QLM_Shader_Difference : QLM_BlendMixing<QLM_Shader_Difference> {
    static int Target(int d, int s) { return d < s ? s - d : d - s; }
};
struct QLM_Shader_RgbUp : QLM_BlendMixing<QLM_Shader_RgbUp> {
    static int Target(int d, int s) { return std::min(255, d + s); }
};
struct QLM_Shader_RgbDown : QLM_BlendMixing<QLM_Shader_RgbDown> {
    static int Target(int d, int s) { return std::max(0, d - s); }
};
/// Its inner quotient is signed and goes on as it is.
struct QLM_Shader_Exclusion : QLM_BlendFormula<QLM_Shader_Exclusion> {
    static uint8_t Channel(int d, int s, int a) {
        return static_cast<uint8_t>(d + QLM_Quotient255(QLM_Quotient255((255 - 2 * d) * s) * a));
    }
};

// Formulas that shift by the mean of the source.

inline int QLM_MeanOf(const uint8_t* s) { return (s[0] + s[1] + s[2]) / 3; }

struct QLM_Shader_Lighten : QLM_BlendFormula<QLM_Shader_Lighten>, QLM_Shader_ForceWhiteColor {
    static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters&, uint8_t* out) {
        const int shift = QLM_Divide255(a * QLM_MeanOf(s));
        for (int i = 0; i < 3; ++i) out[i] = static_cast<uint8_t>(std::min(255, d[i] + shift));
    }
};
struct QLM_Shader_Darken : QLM_BlendFormula<QLM_Shader_Darken>, QLM_Shader_ForceWhiteColor {
    static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters&, uint8_t* out) {
        const int shift = QLM_Divide255(a * QLM_MeanOf(s));
        for (int i = 0; i < 3; ++i) out[i] = static_cast<uint8_t>(std::max(0, d[i] - shift));
    }
};

// Contrast: the strength and the mean of the source choose a curve, above or below the straight one.

enum class QLM_ContrastChange { Up, Down };
template <QLM_ContrastChange change>
const uint8_t* QLM_ContrastCurveOf(const uint8_t* s, const QLM_BlendParameters& p) {
    const int steps = QLM_Divide255(QLM_MeanOf(s) * p.k) >> 1;
    return ContrastCurves + (change == QLM_ContrastChange::Up ? 127 + steps : 127 - steps) * 256;
}

template <QLM_ContrastChange change>
struct QLM_Blend_Contrast : QLM_BlendFormula<QLM_Blend_Contrast<change>>, QLM_Shader_ForceWhiteColor {
    static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters& p, uint8_t* out) {
        const uint8_t* curve = QLM_ContrastCurveOf<change>(s, p);
        for (int i = 0; i < 3; ++i) out[i] = QLM_BlendMix(d[i], curve[d[i]], a);
    }
};
using QLM_Shader_ContrastUp = QLM_Blend_Contrast<QLM_ContrastChange::Up>;
using QLM_Shader_ContrastDown = QLM_Blend_Contrast<QLM_ContrastChange::Down>;

// Formulas in hue, lightness and saturation: Change(hsl, s, p) changes those of d; false leaves the pixel alone. s is
// the source's RGB or, where takesHSL tells, what that is as hue, lightness and saturation.

template <class Formula> struct QLM_BlendHSL : QLM_BlendFormula<Formula> {
    static constexpr bool takesHSL = false;
    static void Apply(const uint8_t* d, const uint8_t* s, int a, const QLM_BlendParameters& p, uint8_t* out) {
        QLM_ByteHSL hsl = RGBToHSL(d);
        bool isChanged;
        if constexpr (Formula::takesHSL) isChanged = Formula::Change(hsl, RGBToHSL(s), p);
        else isChanged = Formula::Change(hsl, s, p);
        if (!isChanged) a = 0;
        uint8_t target[3];
        HSLToRGB(hsl, target);
        for (int i = 0; i < 3; ++i) out[i] = QLM_BlendMix(d[i], target[i], a);
    }
};

/// Which pixels the curve on the lightness may change.
enum class QLM_LightnessRule { Any, Brighter, Darker };
template <QLM_ContrastChange change, QLM_LightnessRule rule>
struct QLM_Blend_NaturalContrast : QLM_BlendHSL<QLM_Blend_NaturalContrast<change, rule>>, QLM_Shader_ForceWhiteColor {
    static bool Change(QLM_ByteHSL& hsl, const uint8_t* s, const QLM_BlendParameters& p) {
        const uint8_t old = hsl.lightness;
        hsl.lightness = QLM_ContrastCurveOf<change>(s, p)[old];
        if (rule == QLM_LightnessRule::Brighter) return hsl.lightness >= old;
        return rule == QLM_LightnessRule::Any || hsl.lightness <= old;
    }
};
using QLM_Shader_NaturalContrastUp = QLM_Blend_NaturalContrast<QLM_ContrastChange::Up, QLM_LightnessRule::Any>;
using QLM_Shader_NaturalContrastDown = QLM_Blend_NaturalContrast<QLM_ContrastChange::Down, QLM_LightnessRule::Any>;
using QLM_Shader_Highlight = QLM_Blend_NaturalContrast<QLM_ContrastChange::Up, QLM_LightnessRule::Brighter>;
using QLM_Shader_Shade = QLM_Blend_NaturalContrast<QLM_ContrastChange::Up, QLM_LightnessRule::Darker>;

struct QLM_Shader_Color : QLM_BlendHSL<QLM_Shader_Color> {
    static constexpr bool takesHSL = true;
    static bool Change(QLM_ByteHSL& hsl, QLM_ByteHSL s, const QLM_BlendParameters&) {
        hsl.hue = s.hue;
        hsl.saturation = s.saturation;
        return true;
    }
};
struct QLM_Shader_Hue : QLM_BlendHSL<QLM_Shader_Hue> {
    static constexpr bool takesHSL = true;
    static bool Change(QLM_ByteHSL& hsl, QLM_ByteHSL s, const QLM_BlendParameters&) {
        hsl.hue = s.hue;
        return true;
    }
};
template <int direction>
struct QLM_Blend_HueShift : QLM_BlendHSL<QLM_Blend_HueShift<direction>>, QLM_Shader_ForceWhiteColor {
    static bool Change(QLM_ByteHSL& hsl, const uint8_t* s, const QLM_BlendParameters& p) {
        const int steps = QLM_Divide255((s[0] + s[1] + s[2]) / 9 * p.k);
        hsl.hue = static_cast<uint8_t>(hsl.hue + direction * steps);
        return true;
    }
};
using QLM_Shader_HueUp = QLM_Blend_HueShift<1>;
using QLM_Shader_HueDown = QLM_Blend_HueShift<-1>;

struct QLM_Shader_Lightness : QLM_BlendHSL<QLM_Shader_Lightness> {
    static constexpr bool takesHSL = true;
    static bool Change(QLM_ByteHSL& hsl, QLM_ByteHSL s, const QLM_BlendParameters&) {
        hsl.saturation = static_cast<uint8_t>(QLM_Divide255(hsl.saturation * LightnessSaturation()[hsl.lightness]));
        hsl.lightness = s.lightness;
        return true;
    }
};
struct QLM_Shader_Saturation : QLM_BlendHSL<QLM_Shader_Saturation> {
    static constexpr bool takesHSL = true;
    static bool Change(QLM_ByteHSL& hsl, QLM_ByteHSL s, const QLM_BlendParameters& p) {
        hsl.saturation = QLM_BlendMix(hsl.saturation, s.saturation, p.saturationSpread[hsl.saturation]);
        return true;
    }
};
struct QLM_Shader_SaturationUp : QLM_BlendHSL<QLM_Shader_SaturationUp>, QLM_Shader_ForceWhiteColor {
    static bool Change(QLM_ByteHSL& hsl, const uint8_t* s, const QLM_BlendParameters& p) {
        const int raise = QLM_Divide255(QLM_MeanOf(s) * p.saturationSpread[hsl.saturation]);
        hsl.saturation = static_cast<uint8_t>(std::min(255, hsl.saturation + raise));
        return true;
    }
};
struct QLM_Shader_SaturationDown : QLM_BlendHSL<QLM_Shader_SaturationDown>, QLM_Shader_ForceWhiteColor {
    static bool Change(QLM_ByteHSL& hsl, const uint8_t* s, const QLM_BlendParameters&) {
        hsl.saturation = static_cast<uint8_t>(std::max(0, hsl.saturation - QLM_MeanOf(s)));
        return true;
    }
};

/// In the order of the blend types of layers.
using QLM_LayerBlendFormulas =
    std::tuple<QLM_Shader_Normal, QLM_Shader_Lighten, QLM_Shader_Darken, QLM_Shader_LightenOnly, QLM_Shader_DarkenOnly,
               QLM_Shader_Multiply, QLM_Shader_Overlay, QLM_Shader_Screen, QLM_Shader_HardLight, QLM_Shader_SoftLight,
               QLM_Shader_Dodge, QLM_Shader_Burn, QLM_Shader_Exclusion, QLM_Shader_Difference, QLM_Shader_Hue,
               QLM_Shader_HueUp, QLM_Shader_HueDown, QLM_Shader_Lightness, QLM_Shader_Saturation,
               QLM_Shader_SaturationUp, QLM_Shader_SaturationDown, QLM_Shader_RgbUp, QLM_Shader_RgbDown,
               QLM_Shader_Color, QLM_Shader_ContrastUp, QLM_Shader_ContrastDown, QLM_Shader_NaturalContrastUp,
               QLM_Shader_NaturalContrastDown, QLM_Shader_Highlight, QLM_Shader_Shade>;
static_assert(std::tuple_size_v<QLM_LayerBlendFormulas> == QLM_BlendTypeCount);
