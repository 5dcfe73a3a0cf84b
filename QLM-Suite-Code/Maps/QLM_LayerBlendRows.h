#pragma once
// The pixel loops of a layer resolve: one row kernel a blend type. Private to this room. Any thread.

#include <cstdint>

/// The most pixels of one call: what a row works on then stays in the first cache.
constexpr int QLM_BlendRowLimit = 1024;

/// Pixels of a layer on their way onto a composite.
struct QLM_BlendRow {
    uint8_t* color;       ///< premultiplied RGB of the composite
    uint8_t* alpha;       ///< of the composite
    const uint8_t* layer; ///< straight RGB
    const uint8_t* mask;  ///< the layer's alpha
    int opacity;          ///< 0..255
    int count;            ///< 1..QLM_BlendRowLimit pixels
};
using QLM_BlendRowFunction = void (*)(const QLM_BlendRow&);

/// Which instructions a kernel may use; all give the same bytes.
enum class QLM_RowKernel { Scalar, Baseline, Wide };
/// The best that this processor runs.
QLM_RowKernel QLM_GetRowKernel();

/// The kernel of a blend type, that of type 0 outside the table. Those that mix no channels have vector forms, those of
/// hue, lightness and saturation a wide one; for others every choice gives the scalar one.
QLM_BlendRowFunction QLM_GetBlendRow(int blendType, QLM_RowKernel kernel);

/// Straightens premultiplied colour in place and, where `checker` (RGB by pixel) isn't null, lays it on the checker.
void QLM_FinishRow(uint8_t* color, const uint8_t* alpha, const uint8_t* checker, int count, QLM_RowKernel kernel);
