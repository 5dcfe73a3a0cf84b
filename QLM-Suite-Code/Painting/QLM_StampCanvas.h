#pragma once
// The planes that a stroke's stamps add up in.

#include "Maps/QLM_ImageMap.h"
#include "Painting/QLM_ZeroedBlock.h"

/// What stamping reads of tools and settings, copied at the press.
struct QLM_StrokeSettings {
    bool varyStrength = false, varyDensity = false, varyHardness = false, varySize = false;
    float size = 0.1f, hardness = 0, strength = 1, spacing = 0.1f, density = 1;
    float aspect = 1.0f; ///< overlay height / width
    bool autoPressure = false;
    float autoPressureMidpoint = 0.05f, smoothing = 0.0f;
    int overlayWidth = 0, overlayHeight = 0;
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
    /// Writes the overlay: exact takes its size, else shrunk by nearest to the target's present size.
    void CopyTo(QLM_ImageMap& target, bool exact) const;

    /// Weight of a tip byte for a stamp of a pressure.
    static void BuildCurve(const QLM_StrokeSettings& settings, float pressure, float* curve);
    /// A stamp keeps tip pixels whose random byte lies below this; 255 keeps all.
    static int DensityThreshold(const QLM_StrokeSettings& settings, float pressure);

  private:
    static constexpr int TileSide = 32;
    struct Box {
        int x0, y0, x1, y1;
    }; ///< ends not included
    void ClearTouched();
    void MarkTiles(const Box& box, int left, int bottom);
    void StampRow(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count);
    void StampRowThinned(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count, int threshold);
    template <class Visit> void ForEachTouchedTile(Visit visit) const;

    QLM_StrokeSettings settings;
    QLM_ZeroedBlock<uint8_t> overlay;
    QLM_ZeroedBlock<float> accumulator;
    int width = 0, height = 0, tileColumns = 0, tileRows = 0;
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
