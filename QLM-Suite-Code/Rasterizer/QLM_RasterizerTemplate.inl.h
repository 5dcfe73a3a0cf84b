#pragma once
// The one triangle rasterizer: a loop over pixels that are inside, with one small shader policy a pass.
// Included only by the sources that fill the table of instances.

#include "Math/QLM_MathTables.h"
#include "Rasterizer/QLM_BlendTypes.h"
#include "Rasterizer/QLM_MapFilters.h"
#include "Rasterizer/QLM_RasterizeOptions.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

/// Switches of an instance. Each pass has one word; a bit that is clear leaves its code out.
enum QLM_RasterFlag : uint32_t {
    eRaster_VertexStrength = 1u << 9, // alpha from vertex strength and overlay
    eRaster_DepthTest = 1u << 12,     // take a pixel by depth and list order
    eRaster_Gutter = 1u << 20,        // paint owned pixels beyond the edges
};
constexpr uint32_t QLM_RasterFlags_Paint = 0x52A3D9;
constexpr uint32_t QLM_RasterFlags_Screen = 0x115C9;
constexpr uint32_t QLM_RasterFlags_Grey = 0x81;

/// Place of a triangle on the target: pixel centres at integers, gradients of the barycentrics.
/// Every value at a pixel is computed from the vertices alone.
class QLM_TriangleSetup {
  public:
    static constexpr float Tolerance = 0.0001f;

    /// False for a triangle without area or outside the clipped target. `grow` widens the box on each side.
    bool SetUp(const QLM_RasterizeOptions& o, bool fullBox, int grow) {
        for (int i = 0; i < 3; ++i) {
            const QLM_RasterizeVertex& v = o.vertex[i];
            px[i] = (v.w == 1.0f ? v.x : v.x / v.w) - 0.5f;
            py[i] = (v.w == 1.0f ? v.y : v.y / v.w) - 0.5f;
        }
        const float minX = std::min({px[0], px[1], px[2]}), maxX = std::max({px[0], px[1], px[2]});
        const float minY = std::min({py[0], py[1], py[2]}), maxY = std::max({py[0], py[1], py[2]});
        // Not a number, or so far off that integers would overflow.
        if (!(minX > -1e8f && minY > -1e8f && maxX < 1e8f && maxY < 1e8f)) return false;
        if (fullBox) {
            x0 = static_cast<int>(std::floor(minX)) - grow;
            y0 = static_cast<int>(std::floor(minY)) - grow;
            x1 = static_cast<int>(std::ceil(maxX)) + grow;
            y1 = static_cast<int>(std::ceil(maxY)) + grow;
        } else {
            // A pixel within the tolerance of the barycentrics lies at most 2 x 0.0001 of the extent beyond the box.
            const float slackX = 0.001f * (maxX - minX) + 0.01f, slackY = 0.001f * (maxY - minY) + 0.01f;
            x0 = static_cast<int>(std::ceil(minX - slackX));
            y0 = static_cast<int>(std::ceil(minY - slackY));
            x1 = static_cast<int>(std::floor(maxX + slackX));
            y1 = static_cast<int>(std::floor(maxY + slackY));
        }
        x0 = std::max(x0, 0);
        x1 = std::min(x1, static_cast<int>(o.targetWidth) - 1);
        y0 = std::max({y0, 0, o.clipBegin});
        y1 = std::min({y1, static_cast<int>(o.targetHeight) - 1, o.clipEnd - 1});
        if (x0 > x1 || y0 > y1) return false;

        const float ax = px[1] - px[0], ay = py[1] - py[0], bx = px[2] - px[0], by = py[2] - py[0];
        const float det = ax * by - bx * ay;
        if (std::fabs(det) <= 1e-30f) return false;
        const float inverse = 1.0f / det;
        if (!std::isfinite(inverse)) return false;
        b1x = by * inverse;
        b1y = -bx * inverse;
        b2x = -ay * inverse;
        b2y = ax * inverse;
        return true;
    }

    /// Barycentrics of a pixel; true inside, edges included.
    bool At(int x, int y, float& b1, float& b2) const {
        const float dx = static_cast<float>(x) - px[0], dy = static_cast<float>(y) - py[0];
        b1 = dx * b1x + dy * b1y;
        b2 = dx * b2x + dy * b2y;
        const float b0 = 1.0f - b1 - b2;
        return b0 >= -Tolerance && b1 >= -Tolerance && b2 >= -Tolerance && b0 <= 1.0f + Tolerance &&
               b1 <= 1.0f + Tolerance && b2 <= 1.0f + Tolerance;
    }

    /// The same for pixels x to x + 3 of a row: a bit for each inside, the lowest for x.
    int At(int x, int y, QLM_Lanes& b1, QLM_Lanes& b2) const {
        const QLM_Lanes dx = __builtin_convertvector(QLM_IntLanes{x, x + 1, x + 2, x + 3}, QLM_Lanes) - px[0];
        const float dy = static_cast<float>(y) - py[0];
        b1 = dx * b1x + dy * b1y;
        b2 = dx * b2x + dy * b2y;
        const QLM_Lanes b0 = 1.0f - b1 - b2, lowest = QLM_Lanes{} - Tolerance, highest = QLM_Lanes{} + (1.0f + Tolerance);
        const QLM_IntLanes inside = (b0 >= lowest) & (b1 >= lowest) & (b2 >= lowest) & (b0 <= highest) &
                                    (b1 <= highest) & (b2 <= highest) & QLM_IntLanes{1, 2, 4, 8};
        return inside[0] | inside[1] | inside[2] | inside[3];
    }

    /// Narrows [first, last] to where the row can be inside, with a pixel to spare on each side.
    void ClipRow(int y, int& first, int& last) const {
        const float dy = static_cast<float>(y) - py[0];
        ClipTo(dy * b1y, b1x, first, last);
        ClipTo(dy * b2y, b2x, first, last);
        ClipTo(1.0f - dy * (b1y + b2y), -(b1x + b2x), first, last);
    }

    /// Distance of a pixel to the triangle, in pixels, for a pixel outside.
    float Distance(int x, int y) const {
        float nearest = 1e30f;
        for (int i = 0; i < 3; ++i) {
            const int j = i == 2 ? 0 : i + 1;
            const float ex = px[j] - px[i], ey = py[j] - py[i];
            const float dx = static_cast<float>(x) - px[i], dy = static_cast<float>(y) - py[i];
            const float length2 = ex * ex + ey * ey;
            const float t = length2 < 1.1920929e-7f ? 0.0f : std::clamp((dx * ex + dy * ey) / length2, 0.0f, 1.0f);
            const float rx = dx - t * ex, ry = dy - t * ey;
            nearest = std::min(nearest, rx * rx + ry * ry);
        }
        return std::sqrt(nearest);
    }

    int x0, y0, x1, y1; ///< box of pixels to visit, both ends included

  private:
    // The row holds b(x) = base + slope x (x - px[0]) >= -tolerance.
    void ClipTo(float base, float slope, int& first, int& last) const {
        if (std::fabs(slope) < 1e-12f) return;
        const float x = px[0] - (base + Tolerance) / slope;
        if (slope > 0) {
            if (x > static_cast<float>(first))
                first = x > static_cast<float>(last) + 1 ? last + 1 : std::max(first, static_cast<int>(x) - 1);
        } else if (x < static_cast<float>(last)) {
            last = x < static_cast<float>(first) - 1 ? first - 1 : std::min(last, static_cast<int>(x) + 2);
        }
    }

    float px[3], py[3];
    float b1x, b1y, b2x, b2y;
};

/// What a screen pass needs at each pixel, taken out of the block once a triangle: a store into a plane of bytes could
/// change any field of the block, as far as the compiler knows.
struct QLM_ScreenTriangle {
    explicit QLM_ScreenTriangle(const QLM_RasterizeOptions& o)
        : pixels(o.targetPixels), unlit(o.unlitPixels), ids(o.idMask), depth(o.depthBuffer), owners(o.depthOwner),
          owner(o.listIndex + 1), id(o.idValue), source(o.sourcePixels), mask(o.sourceMask),
          sourceWidth(static_cast<int32_t>(o.sourceWidth)), sourceHeight(static_cast<int32_t>(o.sourceHeight)) {
        std::copy(o.colorBytes, o.colorBytes + 3, color);
        QLM_Lanes corner[3];
        for (int i = 0; i < 3; ++i) {
            const QLM_RasterizeVertex& v = o.vertex[i];
            corner[i] = QLM_Lanes{v.w == 1.0f ? v.depth : v.depth / v.w, v.light, v.u, v.v};
        }
        base = corner[0];
        along1 = corner[1] - corner[0];
        along2 = corner[2] - corner[0];
    }
    /// Depth, light, u and v at a pixel.
    QLM_Lanes At(float b1, float b2) const { return base + b1 * along1 + b2 * along2; }

    uint8_t* pixels;
    uint8_t* unlit;
    uint8_t* ids;
    float* depth;
    uint32_t* owners;
    uint32_t owner;
    uint8_t id, color[3];
    const uint8_t* source;
    const uint8_t* mask;
    int32_t sourceWidth, sourceHeight;

  private:
    QLM_Lanes base, along1, along2;
};

/// The same for a paint pass.
struct QLM_PaintTriangle {
    explicit QLM_PaintTriangle(const QLM_RasterizeOptions& o)
        : target(o.targetPixels), targetMask(o.lockAlpha ? nullptr : o.targetMask), read(o.readPixels),
          readMask(o.readMask), overlay(o.overlayPixels), overlayWidth(static_cast<int32_t>(o.overlayWidth)),
          overlayHeight(static_cast<int32_t>(o.overlayHeight)), source(o.sourcePixels),
          sourceWidth(static_cast<int32_t>(o.sourceWidth)), sourceHeight(static_cast<int32_t>(o.sourceHeight)),
          brushStrength(o.strength), blend{QLM_FloatToByte(o.strength), SaturationSpread()},
          overlayX(o, &QLM_RasterizeVertex::overlayX), overlayY(o, &QLM_RasterizeVertex::overlayY),
          sourceU(o, &QLM_RasterizeVertex::u), sourceV(o, &QLM_RasterizeVertex::v),
          strength(o, &QLM_RasterizeVertex::strength) {
        std::copy(o.colorBytes, o.colorBytes + 4, color);
    }
    QLM_Lanes StrengthAt(QLM_Lanes b1, QLM_Lanes b2) const {
        const QLM_Lanes zero{}, one = zero + 1.0f, s = strength.At(b1, b2);
        return s < zero ? zero : one < s ? one : s;
    }

    uint8_t* target;
    uint8_t* targetMask; ///< null where alpha is locked, too
    const uint8_t* read;
    const uint8_t* readMask;
    const uint8_t* overlay;
    int32_t overlayWidth, overlayHeight;
    const uint8_t* source;
    int32_t sourceWidth, sourceHeight;
    uint8_t color[4];
    float brushStrength;
    QLM_BlendParameters blend;

    /// A corner value over the triangle.
    struct Plane {
        Plane(const QLM_RasterizeOptions& o, float QLM_RasterizeVertex::* value)
            : base(o.vertex[0].*value), along1(o.vertex[1].*value - base), along2(o.vertex[2].*value - base) {}
        template <class Float> Float At(Float b1, Float b2) const { return base + b1 * along1 + b2 * along2; }
        float base, along1, along2;
    };
    Plane overlayX, overlayY, sourceU, sourceV;

  private:
    Plane strength;
};

/// And for a pass that only marks.
struct QLM_GreyTriangle {
    explicit QLM_GreyTriangle(const QLM_RasterizeOptions& o) : target(o.targetPixels), value(o.colorBytes[0]) {}
    uint8_t* target;
    uint8_t value;
};

/// Base of the pixel policies.
struct QLM_Shader {};

/// One triangle of one pass. ColorFilter samples the source picture, AlphaFilter its alpha (screen) or the overlay
/// (paint); Sample is the type that colours are handed to the shader in.
template <class Shader, class ColorFilter, class AlphaFilter, class Sample, uint32_t Flags>
class QLM_RasterizerTemplateF : public Shader {
  public:
    static void RasterizeTriangle(QLM_RasterizeOptions& o) {
        QLM_TriangleSetup fresh;
        const bool gutter = (Flags & eRaster_Gutter) && o.expandSeams;
        if (!fresh.SetUp(o, gutter, gutter ? 1 : 0)) return;
        const QLM_TriangleSetup setup = fresh; // a copy that nothing points to may live in registers
        if (gutter ? ScanWithGutter(o, setup) : Scan(o, setup)) o.written = true;
    }

  private:
    using Triangle = std::conditional_t<
        (Flags & eRaster_DepthTest) != 0, QLM_ScreenTriangle,
        std::conditional_t<(Flags & eRaster_VertexStrength) != 0, QLM_PaintTriangle, QLM_GreyTriangle>>;

    /// Pixels inside, four at a time; true when one was written.
    static bool Scan(const QLM_RasterizeOptions& o, const QLM_TriangleSetup& setup) {
        const Triangle triangle(o);
        const int64_t width = o.targetWidth;
        bool written = false;
        for (int y = setup.y0; y <= setup.y1; ++y) {
            int first = setup.x0, last = setup.x1;
            setup.ClipRow(y, first, last);
            // The row ends with the first pixel outside after one inside.
            bool wasInside = false, isOver = false;
            for (int x = first; x <= last && !isOver; x += 4) {
                QLM_Lanes b1, b2;
                int bits = setup.At(x, y, b1, b2) & LaneBits(last - x + 1);
                if (bits == 0) {
                    isOver = wasInside;
                    continue;
                }
                const int begin = wasInside ? 0 : std::countr_zero(static_cast<unsigned>(bits));
                const int end = begin + std::countr_one(static_cast<unsigned>(bits) >> begin);
                bits &= LaneBits(end);
                wasInside = true;
                isOver = end < 4;
                if (end > 0) written |= Draw(triangle, y * width + x, bits, b1, b2);
            }
        }
        return written;
    }

    /// Pixels inside, and those of the gutter that the triangle owns.
    static bool ScanWithGutter(const QLM_RasterizeOptions& o, const QLM_TriangleSetup& setup) {
        const Triangle triangle(o);
        const uint8_t* const overdraw = o.overdrawPixels;
        const uint32_t* const owners = o.gutterOwner;
        const uint32_t owner = o.listIndex + 1;
        const int64_t width = o.targetWidth;
        bool written = false;
        for (int y = setup.y0; y <= setup.y1; ++y)
            for (int x = setup.x0; x <= setup.x1; x += 4) {
                QLM_Lanes b1, b2;
                const int64_t pixel = y * width + x;
                int bits = setup.At(x, y, b1, b2);
                for (int i = 0; i < 4 && x + i <= setup.x1; ++i)
                    if (owners[pixel + i] == owner && !(overdraw && overdraw[pixel + i] == 255)) bits |= 1 << i;
                bits &= LaneBits(setup.x1 - x + 1);
                if (bits) written |= Draw(triangle, pixel, bits, b1, b2);
            }
        return written;
    }

    /// The lowest `count` of four bits.
    static int LaneBits(int count) { return count < 4 ? (1 << count) - 1 : 15; }

    /// The pixels of a row that have a bit; true when one was written.
    template <class OneTriangle>
    static bool Draw(const OneTriangle& t, int64_t pixel, int bits, const QLM_Lanes& b1, const QLM_Lanes& b2) {
        bool written = false;
        for (int i = 0; i < 4; ++i)
            if (bits >> i & 1) written |= DrawOne(t, pixel + i, b1[i], b2[i]);
        return written;
    }

    static bool DrawOne(const QLM_ScreenTriangle& t, int64_t pixel, float b1, float b2) {
        const QLM_Lanes values = t.At(b1, b2);
        const float depth = values[0], stored = t.depth[pixel];
        if (!(depth > stored || (depth == stored && t.owner <= t.owners[pixel]))) return false;
        t.depth[pixel] = depth;
        t.owners[pixel] = t.owner;
        uint8_t color[4] = {t.color[0], t.color[1], t.color[2], 255};
        if constexpr (ColorFilter::samples) {
            ColorFilter::Sample(t.source, t.sourceWidth, t.sourceHeight, values[2], values[3], color);
            if (t.mask) AlphaFilter::Sample(t.mask, t.sourceWidth, t.sourceHeight, values[2], values[3], color + 3);
        }
        Shader::Write(t, pixel, color, values[1]);
        return true;
    }

    static bool Draw(const QLM_PaintTriangle& t, int64_t pixel, int bits, const QLM_Lanes& b1, const QLM_Lanes& b2) {
        const QLM_IntLanes overlay = AlphaFilter::SampleAt(t.overlay, t.overlayWidth, t.overlayHeight,
                                                           t.overlayX.At(b1, b2), t.overlayY.At(b1, b2));
        const QLM_Lanes fraction = {ByteToFloat[overlay[0]], ByteToFloat[overlay[1]], ByteToFloat[overlay[2]],
                                    ByteToFloat[overlay[3]]};
        const QLM_Lanes strength = t.StrengthAt(b1, b2) * fraction * t.brushStrength;
        bool written = false;
        for (int i = 0; i < 4; ++i) {
            float a = strength[i];
            if (!(bits >> i & 1) || a < 1.1920929e-7f) continue;
            Sample color[4] = {t.color[0], t.color[1], t.color[2], t.color[3]};
            if (t.source) {
                ColorFilter::Sample(t.source, t.sourceWidth, t.sourceHeight, t.sourceU.At(b1[i], b2[i]),
                                    t.sourceV.At(b1[i], b2[i]), color);
                a *= ByteToFloat[color[3]];
            }
            const uint8_t alpha = ClampByte(static_cast<int>(a * 255.0f));
            if (alpha == 0) continue;
            Shader::Write(t, pixel + i, color, alpha);
            written = true;
        }
        return written;
    }

    static bool DrawOne(const QLM_GreyTriangle& t, int64_t pixel, float, float) {
        Shader::Write(t, pixel);
        return true;
    }
};

/// A paint pass: colour from a picture of four bytes a pixel with wrap, alpha from the overlay.
template <class Shader, uint32_t Flags>
using QLM_PaintRasterizer = QLM_RasterizerTemplateF<Shader, MapFilter_Linear_RepeatB<4>,
                                                    MapFilter_Alpha_Linear_Clamp_ZeroOutOfRangeB, uint8_t, Flags>;
