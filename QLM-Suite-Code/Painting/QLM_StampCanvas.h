#pragma once
// The planes that a stroke's stamps add up in.

#include "Maps/QLM_ImageMap.h"
#include "Painting/QLM_ZeroedBlock.h"

#include <algorithm>

/// What stamping reads of tools and settings, copied at the press.
struct QLM_StrokeSettings {
    bool varyStrength = false, varyDensity = false, varyHardness = false, varySize = false;
    float size = 0.1f, hardness = 0, strength = 1, spacing = 0.1f, density = 1;
    float aspect = 1.0f; ///< overlay height / width
    bool autoPressure = false;
    float autoPressureMidpoint = 0.05f, smoothing = 0.0f;
    int overlayWidth = 0, overlayHeight = 0;
};

/// Pixels of a picture, ends not included.
struct QLM_PictureBox {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool IsEmpty() const { return x0 >= x1 || y0 >= y1; }
    int GetWidth() const { return x1 - x0; }
    int GetHeight() const { return y1 - y0; }
    /// The smallest box that holds both.
    void Include(const QLM_PictureBox& other) {
        if (other.IsEmpty()) return;
        *this = IsEmpty() ? other
                          : QLM_PictureBox{std::min(x0, other.x0), std::min(y0, other.y0), std::max(x1, other.x1),
                                           std::max(y1, other.y1)};
    }
};

/// Stamps overlap, add up and saturate: a float accumulator and the overlay bytes made from it. No lock of its own.
class QLM_StampCanvas {
  public:
    /// Empties what the last stroke touched and takes size, settings, tip (grey, copied) and seed of the next.
    void Begin(const QLM_StrokeSettings& settings, QLM_ImageMap& tip, uint32_t seed);
    /// One stamp at a normalised place; parts beyond the overlay are cut off.
    void Stamp(float x, float y, float pressure);

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }
    const uint8_t* GetOverlay() const { return overlay.Get(); }
    /// True if a stamp may have reached a box of overlay pixels, both ends included.
    bool IsTouched(float x0, float y0, float x1, float y1) const;
    /// Gives the target the overlay's size and bytes.
    void CopyTo(QLM_ImageMap& target) const;
    /// The pixels of a picture of the overlay shrunk by nearest that stamps can have changed since the last call.
    QLM_PictureBox TakeChange(int pictureWidth, int pictureHeight);
    /// A part of that picture, rows packed.
    void CopyPart(const QLM_PictureBox& box, int pictureWidth, int pictureHeight, uint8_t* out) const;

    /// Weight of a tip byte for a stamp of a pressure.
    static void BuildCurve(const QLM_StrokeSettings& settings, float pressure, float* curve);
    /// A stamp keeps tip pixels whose random byte lies below this; 255 keeps all.
    static int DensityThreshold(const QLM_StrokeSettings& settings, float pressure);

  private:
    static constexpr int TileSide = 32;
    using Box = QLM_PictureBox;
    void ClearTouched();
    void MarkTiles(const Box& box, int left, int bottom);
    void StampRow(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count);
    void StampRowThinned(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count, int threshold);
    template <class Visit> void ForEachTouchedTile(Visit visit) const;

    QLM_StrokeSettings settings;
    QLM_ZeroedBlock<uint8_t> overlay;
    QLM_ZeroedBlock<float> accumulator;
    int width = 0, height = 0, tileColumns = 0, tileRows = 0;
    Box changed;                ///< what stamps reached since the last TakeChange
    std::vector<uint8_t> tiles; ///< not 0 where a stamp's paint can have reached
    std::vector<uint8_t> tip;
    int tipWidth = 0, tipHeight = 0;
    std::vector<std::pair<int, int>> tipSpans; ///< first and end column with paint, for each tip row
    std::vector<uint8_t> randomBytes;          ///< of this stroke, filled by the first stamp that needs them
    size_t randomIndex = 0;
    uint32_t seed = 1;
    float curve[256];
    float curvePressure = -1.0f;
};
