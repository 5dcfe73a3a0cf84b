#pragma once
// Hue, lightness and saturation in bytes, in integers throughout.

#include <algorithm>
#include <cstdint>

/// Hue 0..255 is the full circle (red at 0), in the order in which the parts lie in memory.
struct QLM_ByteHSL {
    uint8_t hue, lightness, saturation;
};

namespace QLM_HSL {
/// n / d truncated toward zero. Exact for |n| below 2^18 and quotients up to 2^11: a quotient that is no integer lies
/// at least 1 / d from the next, which is more than a float loses there, and a float divides faster than an integer.
inline int Divide(int n, int d) { return static_cast<int>(static_cast<float>(n) / static_cast<float>(d)); }

constexpr int Sextant = 85; ///< a sixth of the circle where a step of hue counts 2

/// One channel, in units of 1 / (255 x Sextant) of a byte: low, high, and the two ramps between them.
inline int Channel(int low, int high, int position) {
    const int from = std::min(position, 4 * Sextant - position); // falls behind the middle as it rose before
    return low * Sextant + (high - low) * std::clamp(from, 0, Sextant);
}
inline uint8_t RoundChannel(int scaled) {
    constexpr int unit = 255 * Sextant;
    return static_cast<uint8_t>((scaled + unit / 2) / unit);
}
} // namespace QLM_HSL

/// Of channels that tie for the largest the later one decides the hue.
inline QLM_ByteHSL RGBToHSL(const uint8_t* rgb) {
    const int r = rgb[0], g = rgb[1], b = rgb[2];
    const int largest = std::max({r, g, b}), smallest = std::min({r, g, b});
    const int sum = largest + smallest, spread = largest - smallest;
    const int lightness = sum / 2;
    if (spread == 0) return {0, static_cast<uint8_t>(lightness), 0};
    const int saturation = QLM_HSL::Divide(spread * 255, lightness < 128 ? sum : 510 - sum);
    int difference = g - b, offset = 0;
    if (g == largest) difference = b - r, offset = 510;
    if (b == largest) difference = r - g, offset = 1020;
    // A hue below red wraps around the byte.
    const int hue = (QLM_HSL::Divide(difference * 255, spread) + offset) / 6;
    return {static_cast<uint8_t>(hue), static_cast<uint8_t>(lightness), static_cast<uint8_t>(saturation)};
}

/// Each channel rounded to the nearest. No saturation gives grey, whatever the hue.
inline void HSLToRGB(QLM_ByteHSL hsl, uint8_t* rgb) {
    const int l = hsl.lightness, s = hsl.saturation;
    if (s == 0 || l == 0 || l == 255) {
        rgb[0] = rgb[1] = rgb[2] = hsl.lightness;
        return;
    }
    // The ends of the channels' range, x 255: l (255 +- s) in the lower half, mirrored in the upper.
    const int reach = (l < 128 ? l : 255 - l) * s;
    const int low = l * 255 - reach, high = l * 255 + reach;
    constexpr int circle = 6 * QLM_HSL::Sextant;
    const int green = hsl.hue * 2, red = green + 2 * QLM_HSL::Sextant, blue = green - 2 * QLM_HSL::Sextant;
    rgb[0] = QLM_HSL::RoundChannel(QLM_HSL::Channel(low, high, red >= circle ? red - circle : red));
    rgb[1] = QLM_HSL::RoundChannel(QLM_HSL::Channel(low, high, green));
    rgb[2] = QLM_HSL::RoundChannel(QLM_HSL::Channel(low, high, blue < 0 ? blue + circle : blue));
}
