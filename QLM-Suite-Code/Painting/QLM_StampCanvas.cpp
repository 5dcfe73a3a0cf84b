#include "Painting/QLM_StampCanvas.h"

#include "Math/QLM_Random.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr size_t RandomByteCount = 1234567;

/// x^6, x^16: integer powers by multiplication are the same on every machine.
float Power6(float x) {
    const float x2 = x * x;
    return x2 * x2 * x2;
}
float Power4(float x) {
    const float x2 = x * x;
    return x2 * x2;
}
float Power16(float x) { return Power4(Power4(x)); }

/// Part of the tip's pixels that a stamp keeps.
float DensityValue(const QLM_StrokeSettings& settings) {
    const float h = settings.density, h16 = Power16(h);
    const float z = std::min(1.0f, 2.0f * std::max(settings.spacing, 0.01f));
    return (1.0f - h16) * std::pow(z, 0.65f) * h + h * h16;
}

} // namespace

void QLM_StampCanvas::BuildCurve(const QLM_StrokeSettings& settings, float p, float* curve) {
    const float base = Power4(settings.hardness);
    const float a = settings.varyHardness ? (1.0f - base) * p + base : base;
    const float k = 255.0f * Power6(a);
    const bool soft = settings.density < 0.1f;
    const float e = std::min(1.0f, settings.density / 0.1f);
    for (int i = 0; i < 256; ++i) {
        float x = static_cast<float>(i) / 255.0f;
        // A light pressure keeps only the middle of the tip.
        if (settings.varySize)
            x = p > 1e-5f ? std::clamp(std::min(1.0f, std::max(0.0f, x - (1.0f - p))) / p, 0.0f, 1.0f) : 0.0f;
        float c = std::min(255.0f, k * (255.0f * x) + 255.0f * x) / 255.0f;
        if (soft) {
            const float g = Power16(c);
            c = (1.0f - base) * (g * c * (1.0f - e) + e * c) + base * c;
        }
        if (settings.varyStrength) c = c * p;
        curve[i] = std::clamp(c, 0.0f, 1.0f);
    }
}

int QLM_StampCanvas::DensityThreshold(const QLM_StrokeSettings& settings, float p) {
    const float value = DensityValue(settings);
    if (settings.varyDensity) return static_cast<int>(p * (value * value) * 255.0f);
    return std::max(2, static_cast<int>(value * 255.0f));
}

template <class Visit> void QLM_StampCanvas::ForEachTouchedTile(Visit visit) const {
    for (int row = 0; row < tileRows; ++row)
        for (int column = 0; column < tileColumns; ++column) {
            if (!tiles[static_cast<size_t>(row) * tileColumns + column]) continue;
            visit(Box{column * TileSide, row * TileSide, std::min(width, (column + 1) * TileSide),
                      std::min(height, (row + 1) * TileSide)});
        }
}

void QLM_StampCanvas::ClearTouched() {
    ForEachTouchedTile([this](const Box& box) {
        for (int y = box.y0; y < box.y1; ++y) {
            const size_t offset = static_cast<size_t>(y) * width + box.x0;
            std::fill_n(overlay.Get() + offset, box.x1 - box.x0, uint8_t{0});
            std::fill_n(accumulator.Get() + offset, box.x1 - box.x0, 0.0f);
        }
    });
}

void QLM_StampCanvas::Begin(const QLM_StrokeSettings& settingsIn, QLM_ImageMap& tipIn, uint32_t seedIn) {
    ClearTouched();
    settings = settingsIn;
    width = settings.overlayWidth;
    height = settings.overlayHeight;
    overlay.Provide(static_cast<size_t>(width) * height);
    accumulator.Provide(static_cast<size_t>(width) * height);
    tileColumns = (width + TileSide - 1) / TileSide;
    tileRows = (height + TileSide - 1) / TileSide;
    tiles.assign(static_cast<size_t>(tileColumns) * tileRows, 0);

    tipWidth = static_cast<int>(tipIn.GetWidth());
    tipHeight = static_cast<int>(tipIn.GetHeight());
    const uint8_t* pixels = tipIn.GetPixels();
    tip.assign(pixels, pixels + tipIn.GetByteCount());
    tipSpans.assign(static_cast<size_t>(tipHeight), {0, 0});
    for (int y = 0; y < tipHeight; ++y) {
        const uint8_t* row = tip.data() + static_cast<size_t>(y) * tipWidth;
        int first = 0, end = tipWidth;
        while (first < end && row[first] == 0) ++first;
        while (end > first && row[end - 1] == 0) --end;
        tipSpans[static_cast<size_t>(y)] = {first, end};
    }
    changed = {};
    seed = seedIn;
    randomBytes.clear();
    randomIndex = 0;
    curvePressure = -1.0f;
}

void QLM_StampCanvas::StampRow(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count) {
    for (int i = 0; i < count; ++i) {
        const uint8_t b = tipRow[i];
        if (b == 0 || bytes[i] > 254) continue;
        sums[i] += curve[b];
        bytes[i] = static_cast<uint8_t>(std::min(sums[i], 1.0f) * 255.0f);
    }
}

void QLM_StampCanvas::StampRowThinned(uint8_t* bytes, float* sums, const uint8_t* tipRow, int count, int threshold) {
    // Every pixel takes its byte, painted or not, so the pattern hangs on nothing but the order of stamps.
    if (randomIndex + static_cast<size_t>(tipWidth) >= RandomByteCount) randomIndex = 0;
    const uint8_t* random = randomBytes.data() + randomIndex;
    randomIndex += static_cast<size_t>(count);
    for (int i = 0; i < count; ++i) {
        if (random[i] >= threshold) continue;
        const uint8_t b = tipRow[i];
        if (b == 0 || bytes[i] > 254) continue;
        sums[i] += curve[b];
        bytes[i] = static_cast<uint8_t>(std::min(sums[i], 1.0f) * 255.0f);
    }
}

void QLM_StampCanvas::MarkTiles(const Box& box, int left, int bottom) {
    for (int tileRow = box.y0 / TileSide; tileRow <= (box.y1 - 1) / TileSide; ++tileRow) {
        // The columns that the tip's paint reaches within this row of tiles.
        int first = box.x1, end = box.x0;
        for (int row = std::max(box.y0, tileRow * TileSide); row < std::min(box.y1, (tileRow + 1) * TileSide); ++row) {
            const auto& [spanFirst, spanEnd] = tipSpans[static_cast<size_t>(row - bottom)];
            if (spanFirst >= spanEnd) continue;
            first = std::min(first, left + spanFirst);
            end = std::max(end, left + spanEnd);
        }
        first = std::max(first, box.x0);
        end = std::min(end, box.x1);
        if (first >= end) continue;
        std::fill_n(tiles.begin() + static_cast<ptrdiff_t>(tileRow) * tileColumns + first / TileSide,
                    (end - 1) / TileSide - first / TileSide + 1, uint8_t{1});
    }
}

void QLM_StampCanvas::Stamp(float x, float y, float pressure) {
    if (pressure != curvePressure) {
        BuildCurve(settings, pressure, curve);
        curvePressure = pressure;
    }
    const int threshold = DensityThreshold(settings, pressure);
    if (threshold < 255 && randomBytes.empty()) {
        QLM_RandomGenerator generator(seed);
        randomBytes.resize(RandomByteCount);
        for (uint8_t& byte : randomBytes) byte = static_cast<uint8_t>(generator.Next(256));
    }

    const int left = static_cast<int>((x + 1.0f) * 0.5f * static_cast<float>(width)) - tipWidth / 2;
    const int bottom = static_cast<int>((y + 1.0f) * 0.5f * static_cast<float>(height)) - tipHeight / 2;
    const Box box{std::max(left, 0), std::max(bottom, 0), std::min(left + tipWidth, width),
                  std::min(bottom + tipHeight, height)};
    if (box.IsEmpty()) return;
    MarkTiles(box, left, bottom);
    changed.Include(box);

    for (int row = box.y0; row < box.y1; ++row) {
        const int tipRow = row - bottom;
        int first = box.x0, end = box.x1;
        if (threshold >= 255) {
            first = std::max(first, left + tipSpans[static_cast<size_t>(tipRow)].first);
            end = std::min(end, left + tipSpans[static_cast<size_t>(tipRow)].second);
            if (first >= end) continue;
        }
        const size_t offset = static_cast<size_t>(row) * width + first;
        const uint8_t* tipPixels = tip.data() + static_cast<size_t>(tipRow) * tipWidth + (first - left);
        if (threshold >= 255) StampRow(overlay.Get() + offset, accumulator.Get() + offset, tipPixels, end - first);
        else StampRowThinned(overlay.Get() + offset, accumulator.Get() + offset, tipPixels, end - first, threshold);
    }
}

bool QLM_StampCanvas::IsTouched(float x0, float y0, float x1, float y1) const {
    if (!(x1 >= 0 && y1 >= 0 && x0 < static_cast<float>(width) && y0 < static_cast<float>(height))) return false;
    const int column0 = static_cast<int>(std::max(x0, 0.0f)) / TileSide,
              row0 = static_cast<int>(std::max(y0, 0.0f)) / TileSide;
    const int column1 = static_cast<int>(std::min(x1, static_cast<float>(width - 1))) / TileSide;
    const int row1 = static_cast<int>(std::min(y1, static_cast<float>(height - 1))) / TileSide;
    for (int row = row0; row <= row1; ++row)
        for (int column = column0; column <= column1; ++column)
            if (tiles[static_cast<size_t>(row) * tileColumns + column]) return true;
    return false;
}

void QLM_StampCanvas::CopyTo(QLM_ImageMap& target) const {
    // Most of a large overlay is empty: only the touched tiles take memory and time.
    auto* block = static_cast<uint8_t*>(QLM_AllocateZeroed(static_cast<size_t>(width) * height));
    ForEachTouchedTile([&](const Box& box) {
        for (int y = box.y0; y < box.y1; ++y) {
            const size_t offset = static_cast<size_t>(y) * width + box.x0;
            std::copy_n(overlay.Get() + offset, box.GetWidth(), block + offset);
        }
    });
    target.CreateWithPixelData(block, static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1, true);
}

QLM_PictureBox QLM_StampCanvas::TakeChange(int pictureWidth, int pictureHeight) {
    const Box box = std::exchange(changed, {});
    if (box.IsEmpty()) return {};
    // A pixel shows the overlay at its middle, which lies at most one pixel off.
    const auto scale = [](int64_t v, int64_t from, int64_t to) { return static_cast<int>(v * to / from); };
    return {std::max(0, scale(box.x0, width, pictureWidth) - 1), std::max(0, scale(box.y0, height, pictureHeight) - 1),
            std::min(pictureWidth, scale(box.x1, width, pictureWidth) + 1),
            std::min(pictureHeight, scale(box.y1, height, pictureHeight) + 1)};
}

void QLM_StampCanvas::CopyPart(const QLM_PictureBox& box, int pictureWidth, int pictureHeight, uint8_t* out) const {
    std::vector<int64_t> columns;
    for (int64_t x = box.x0; x < box.x1; ++x) columns.push_back((2 * x + 1) * width / (2 * int64_t{pictureWidth}));
    for (int64_t y = box.y0; y < box.y1; ++y) {
        const uint8_t* row = overlay.Get() + (2 * y + 1) * height / (2 * int64_t{pictureHeight}) * width;
        for (const int64_t column : columns) *out++ = row[column];
    }
}
