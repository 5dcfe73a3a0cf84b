#include "Math/QLM_MathTables.h"

#include "Core/OS/QLM_Memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

uint8_t* ByteProduct = nullptr;
uint8_t* SquareByte = nullptr;
float* ByteToFloat = nullptr;
uint8_t* MixCurve = nullptr;
uint8_t* BrushEdgeRamp = nullptr;
uint8_t* BrushHardnessCurve = nullptr;
uint8_t* ContrastCurves = nullptr;

namespace {

constexpr int IdentityContrast = 127;

template <class Entry> Entry* Allocate(size_t count) {
    return static_cast<Entry*>(QLM_Malloc(count * sizeof(Entry), false));
}

template <class Entry> void Release(Entry*& table) {
    QLM_Free(table);
    table = nullptr;
}

void BuildByteTables() {
    constexpr int Largest = QLM_LargestByteProduct;
    ByteProduct = Allocate<uint8_t>(2 * Largest + 1);
    // Modulo 256, not clamped: the sum of a byte and the quotient of a negative difference must come out right.
    for (int i = -Largest; i <= Largest; ++i) ByteProduct[i + Largest] = static_cast<uint8_t>(i / 255);
    SquareByte = Allocate<uint8_t>(256);
    ByteToFloat = Allocate<float>(256);
    for (int i = 0; i < 256; ++i) {
        SquareByte[i] = static_cast<uint8_t>(i * i / 255);
        ByteToFloat[i] = static_cast<float>(i) / 255.0f;
    }
}

void BuildMixCurve() {
    MixCurve = Allocate<uint8_t>(65536);
    for (int b = 0; b < 256; ++b) {
        const float exponent = std::sqrt(ByteToFloat[b]);
        for (int a = 0; a < 256; ++a)
            MixCurve[b * 256 + a] = QLM_FloatToByte(std::pow(ByteToFloat[a], exponent));
    }
}

void BuildBrushEdgeRamp() {
    BrushEdgeRamp = Allocate<uint8_t>(256);
    uint8_t* ramp = BrushEdgeRamp;
    for (int i = 0; i < 50; ++i) ramp[i] = static_cast<uint8_t>(i * 255 / 50);
    for (int i = 50; i < 200; ++i) ramp[i] = 255;
    for (int i = 200; i < 256; ++i) ramp[i] = static_cast<uint8_t>((255 - i) * 255 / 55);
    // Smooth twice in place: the left neighbour is already smoothed.
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 1; i <= 253; ++i) ramp[i] = static_cast<uint8_t>((ramp[i - 1] + ramp[i] + ramp[i + 1]) / 3);
}

/// Slope of a contrast curve: from 0 (row 0, flat) over 1 (row 127) to 32 (row 255).
float ContrastGain(int row) {
    if (row == 0) return 0.0f;
    const float v = static_cast<float>(row - IdentityContrast) / 128.0f;
    return std::pow(32.0f, v * std::fabs(v));
}

void BuildContrastCurves() {
    ContrastCurves = Allocate<uint8_t>(65536);
    for (int row = 0; row < 256; ++row) {
        const float gain = ContrastGain(row);
        for (int i = 0; i < 256; ++i) {
            const float curve = std::clamp((ByteToFloat[i] - 0.5f) * gain + 0.5f, 0.0f, 1.0f);
            // The identity is set exactly: subtracting and adding a half costs the last bits.
            ContrastCurves[row * 256 + i] = row == IdentityContrast ? static_cast<uint8_t>(i) : QLM_FloatToByte(curve);
        }
    }
}

} // namespace

void QLM_InitializeMathLookupTables() {
    if (ByteProduct) return;
    BuildByteTables();
    BuildMixCurve();
    BuildBrushEdgeRamp();
    BrushHardnessCurve = Allocate<uint8_t>(256);
    std::fill_n(BrushHardnessCurve, 256, uint8_t{255});
    BuildContrastCurves();
}

void QLM_FreeMathLookupTables() {
    Release(ByteProduct);
    Release(SquareByte);
    Release(ByteToFloat);
    Release(MixCurve);
    Release(BrushEdgeRamp);
    Release(BrushHardnessCurve);
    Release(ContrastCurves);
}

void SetBrushHardnessCurve(float hardness) {
    const int start = hardness > 0.0001f ? 1 : 0;
    const int end = ClampByte(static_cast<int>(hardness * 254.0f + static_cast<float>(start)));
    // Entry 255 stays 255 whatever the hardness.
    for (int i = 0; i < 255; ++i)
        BrushHardnessCurve[i] =
            i < start ? 0 : i < end ? static_cast<uint8_t>((i - start) * 255 / (end - start)) : 255;
}
