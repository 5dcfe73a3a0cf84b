#pragma once
// Samplers of planes: n bytes a pixel, row 0 at the bottom, pixel i covers [i, i + 1).

#include <algorithm>
#include <cmath>
#include <cstdint>

/// Four floats that are computed with as one; a lane gets what a scalar would.
typedef float QLM_Lanes __attribute__((vector_size(16)));
/// Four integers; what a comparison of lanes gives: -1 for true.
typedef int32_t QLM_IntLanes __attribute__((vector_size(16)));

namespace QLM_Filter {
/// Cell and fraction of one axis.
struct Tap {
    int32_t low, high;
    float t;
};
inline Tap ClampTap(float position, int32_t size) {
    const float p = std::clamp(position - 0.5f, 0.0f, static_cast<float>(size - 1));
    const int32_t low = static_cast<int32_t>(p);
    return {low, std::min(low + 1, size - 1), p - static_cast<float>(low)};
}
inline Tap RepeatTap(float position, int32_t size) {
    const float p = position - 0.5f;
    const float cell = std::floor(p);
    int32_t low = static_cast<int32_t>(cell) % size;
    if (low < 0) low += size;
    return {low, low + 1 == size ? 0 : low + 1, p - cell};
}
template <int n> QLM_Lanes LoadLanes(const uint8_t* p) {
    const QLM_IntLanes lanes = {p[0], n > 1 ? p[1 % n] : 0, n > 2 ? p[2 % n] : 0, n > 3 ? p[3 % n] : 0};
    return __builtin_convertvector(lanes, QLM_Lanes);
}
// Nested a + (b - a) t: equal neighbours give exactly their value.
template <int n> void Bilinear(const uint8_t* pixels, int32_t width, const Tap& x, const Tap& y, uint8_t* out) {
    const uint8_t* low = pixels + static_cast<int64_t>(y.low) * width * n;
    const uint8_t* high = pixels + static_cast<int64_t>(y.high) * width * n;
    if constexpr (n == 1) {
        const float a = low[x.low], b = low[x.high], c = high[x.low], d = high[x.high];
        const float bottom = a + (b - a) * x.t, top = c + (d - c) * x.t;
        *out = static_cast<uint8_t>(bottom + (top - bottom) * y.t);
    } else {
        const QLM_Lanes a = LoadLanes<n>(low + x.low * n), b = LoadLanes<n>(low + x.high * n);
        const QLM_Lanes c = LoadLanes<n>(high + x.low * n), d = LoadLanes<n>(high + x.high * n);
        const QLM_Lanes bottom = a + (b - a) * x.t, top = c + (d - c) * x.t;
        const QLM_IntLanes mixed = __builtin_convertvector(bottom + (top - bottom) * y.t, QLM_IntLanes);
        for (int i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(mixed[i]);
    }
}
} // namespace QLM_Filter

/// Bilinear with wrap-around at both ends.
template <int n> struct MapFilter_Linear_RepeatB {
    static constexpr bool samples = true;
    static void Sample(const uint8_t* pixels, int32_t width, int32_t height, float u, float v, uint8_t* out) {
        QLM_Filter::Bilinear<n>(pixels, width, QLM_Filter::RepeatTap(u * width, width),
                                QLM_Filter::RepeatTap(v * height, height), out);
    }
};
/// Bilinear, clamped to the edge.
template <int n> struct MapFilter_Linear_ClampB {
    static constexpr bool samples = true;
    static void Sample(const uint8_t* pixels, int32_t width, int32_t height, float u, float v, uint8_t* out) {
        QLM_Filter::Bilinear<n>(pixels, width, QLM_Filter::ClampTap(u * width, width),
                                QLM_Filter::ClampTap(v * height, height), out);
    }
};
/// Nearest, clamped.
template <int n> struct MapFilter_Closest_ClampB {
    static constexpr bool samples = true;
    static void Sample(const uint8_t* pixels, int32_t width, int32_t height, float u, float v, uint8_t* out) {
        const int32_t x = std::clamp(static_cast<int32_t>(std::floor(u * width)), 0, width - 1);
        const int32_t y = std::clamp(static_cast<int32_t>(std::floor(v * height)), 0, height - 1);
        const uint8_t* p = pixels + (static_cast<int64_t>(y) * width + x) * n;
        std::copy(p, p + n, out);
    }
};
/// No sample: the constant colour, or an alpha of 255.
struct MapFilter_DoNothingB {
    static constexpr bool samples = false;
    static void Sample(const uint8_t*, int32_t, int32_t, float, float, uint8_t*) {}
};
/// Bilinear on a plane of bytes at four positions in its pixels; 0 outside the plane.
struct MapFilter_Alpha_Linear_Clamp_ZeroOutOfRangeB {
    static constexpr bool samples = true;
    static QLM_IntLanes SampleAt(const uint8_t* pixels, int32_t width, int32_t height, QLM_Lanes x, QLM_Lanes y) {
        if (width <= 0 || height <= 0) return QLM_IntLanes{};
        const QLM_Lanes zero{};
        const QLM_IntLanes inside =
            (x >= zero) & (y >= zero) & (x <= zero + static_cast<float>(width)) & (y <= zero + static_cast<float>(height));
        const Taps column(inside ? x : zero, width), row(inside ? y : zero, height);
        QLM_IntLanes a{}, b{}, c{}, d{};
        for (int i = 0; i < 4; ++i) {
            const uint8_t* low = pixels + static_cast<int64_t>(row.low[i]) * width;
            const uint8_t* high = pixels + static_cast<int64_t>(row.high[i]) * width;
            a[i] = low[column.low[i]];
            b[i] = low[column.high[i]];
            c[i] = high[column.low[i]];
            d[i] = high[column.high[i]];
        }
        const QLM_Lanes bottom = Mix(a, b, column.t), top = Mix(c, d, column.t);
        return __builtin_convertvector(bottom + (top - bottom) * row.t, QLM_IntLanes) & inside;
    }

  private:
    /// QLM_Filter::ClampTap of four positions.
    struct Taps {
        Taps(QLM_Lanes position, int32_t size) {
            const QLM_Lanes zero{}, last = zero + static_cast<float>(size - 1), p = position - 0.5f;
            const QLM_Lanes clamped = p < zero ? zero : last < p ? last : p;
            low = __builtin_convertvector(clamped, QLM_IntLanes);
            const QLM_IntLanes end = QLM_IntLanes{} + (size - 1);
            high = low < end ? low + 1 : end;
            t = clamped - __builtin_convertvector(low, QLM_Lanes);
        }
        QLM_IntLanes low, high;
        QLM_Lanes t;
    };
    static QLM_Lanes Mix(QLM_IntLanes from, QLM_IntLanes to, QLM_Lanes t) {
        const QLM_Lanes start = __builtin_convertvector(from, QLM_Lanes);
        return start + (__builtin_convertvector(to, QLM_Lanes) - start) * t;
    }
};
