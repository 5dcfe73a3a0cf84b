#include "MapTestSupport.h"

#include "Maps/QLM_LayerBlendRows.h"
#include "Rasterizer/QLM_BlendTypes.h"
#include "Support/Rounds.h"

namespace {

using Bytes = std::vector<uint8_t>;

class LayerBlendRows : public MapTest {
  protected:
    /// Blends rows of colours, of which 2^14 rows hold each once, onto random ones. How many rows differ between the
    /// scalar kernel and another one.
    static int CountWrong(int type, QLM_RowKernel kernel, uint32_t count, bool isOpaque) {
        constexpr int length = QLM_BlendRowLimit;
        const auto plain = QLM_GetBlendRow(type, QLM_RowKernel::Scalar), wide = QLM_GetBlendRow(type, kernel);
        Bytes layer(length * 3), mask(length, 255), color(length * 3), alpha(length);
        uint32_t next = 0, seed = 5;
        int wrong = 0;
        for (uint32_t row = 0; row < count; ++row) {
            for (int i = 0; i < length; ++i, next += 10368889) { // odd, so every colour has its turn
                seed = seed * 1664525u + 1013904223u;
                for (int c = 0; c < 3; ++c) {
                    layer[i * 3 + c] = uint8_t(next >> c * 8);
                    color[i * 3 + c] = uint8_t(seed >> (c + 1) * 8);
                }
                alpha[i] = uint8_t(seed >> 5);
                if (!isOpaque) mask[i] = uint8_t(seed >> 13);
            }
            Bytes color2 = color, alpha2 = alpha;
            const int opacity = isOpaque ? 255 : 201, part = isOpaque ? length : length - int(row % 33);
            plain({color.data(), alpha.data(), layer.data(), mask.data(), opacity, part});
            wide({color2.data(), alpha2.data(), layer.data(), mask.data(), opacity, part});
            wrong += color != color2 || alpha != alpha2;
        }
        return wrong;
    }
};

TEST_F(LayerBlendRows, KernelsGiveTheSameBytes) {
    for (const QLM_RowKernel kernel : {QLM_RowKernel::Baseline, QLM_GetRowKernel()})
        for (int type = 0; type < QLM_BlendTypeCount; ++type)
            for (const bool isOpaque : {false, true})
                EXPECT_EQ(CountWrong(type, kernel, Rounds(120u, 4u), isOpaque), 0) << type << ", kernel " << int(kernel);
}

TEST_F(LayerBlendRows, HueAndSaturationOfEveryColor) {
    EXPECT_EQ(CountWrong(23, QLM_GetRowKernel(), Rounds(1u << 14, 4u), true), 0);
}

} // namespace
