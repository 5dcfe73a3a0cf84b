#pragma once
// Byte tables of all pixel arithmetic. Read-only after start, but for the hardness curve (main thread, at a press).

#include <cstdint>

constexpr int QLM_LargestByteProduct = 255 * 255;
extern uint8_t* ByteProduct; ///< 130051: [i + 65025] = i / 255 truncated toward zero, modulo 256

/// The table T: of a product of bytes or a difference of such products.
inline uint8_t T(int x) { return ByteProduct[x + QLM_LargestByteProduct]; }
/// d mixed towards s with weight a, in 8 bits with wrap-around.
inline uint8_t QLM_MixByte(int d, int s, int a) { return static_cast<uint8_t>(d + T((s - d) * a)); }

extern uint8_t* SquareByte;         ///< 256: (i / 255)^2 x 255
extern float* ByteToFloat;          ///< 256: i / 255
extern uint8_t* MixCurve;           ///< 65536: [b x 256 + a] = (a / 255)^sqrt(b / 255) x 255
extern uint8_t* BrushEdgeRamp;      ///< 256
extern uint8_t* BrushHardnessCurve; ///< 256, refilled by SetBrushHardnessCurve
extern uint8_t* ContrastCurves;     ///< 65536: [r x 256 + i]

/// P of the paint formulas.
inline uint8_t QLM_MixCurveAt(int b, int a) { return MixCurve[b * 256 + a]; }
inline const uint8_t* LightnessSaturation() { return BrushEdgeRamp; }
inline const uint8_t* SaturationSpread() { return BrushHardnessCurve; }
inline const uint8_t* SquareCurve() { return SquareByte; }
/// Truncating clamp of a float alpha's integer part to a byte.
inline uint8_t ClampByte(int i) { return i < 0 ? 0 : i > 255 ? 255 : static_cast<uint8_t>(i); }
/// A float 0..1 as a byte: x 255, truncated, clamped.
inline uint8_t QLM_FloatToByte(float f) { return ClampByte(static_cast<int>(f * 255.0f)); }

void QLM_InitializeMathLookupTables();
void QLM_FreeMathLookupTables();
/// Refills the hardness curve for a hardness of 0..1.
void SetBrushHardnessCurve(float hardness);
inline void SetSaturationSpread(float f) { SetBrushHardnessCurve(f); }
