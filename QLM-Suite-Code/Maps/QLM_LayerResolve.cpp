#include "Maps/QLM_LayerResolve.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Maps/QLM_LayerBlendRows.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t CheckerCell = 4, CheckerPeriod = 2 * CheckerCell;
constexpr uint32_t CheckerWidth = QLM_BlendRowLimit + CheckerPeriod;
/// Waking the workers costs about as much as so many pixels.
constexpr uint64_t PixelsWorthAThread = 20000;

/// What all workers read.
struct Resolve {
    Resolve(const QLM_ResolveTarget& targetIn, const std::vector<QLM_ResolveLayer>& layersIn)
        : target(targetIn), layers(layersIn) {
        for (const QLM_ResolveLayer& layer : layers) blend.push_back(QLM_GetBlendRow(layer.blendType, kernel));
        if (!target.checker) return;
        for (uint32_t parity = 0; parity < 2; ++parity)
            for (uint32_t x = 0; x < CheckerWidth; ++x)
                memcpy(&checkerRows[parity][x * 3], target.checker + ((x / CheckerCell + parity) & 1) * 3, 3);
    }

    void Run(const QLM_ResolveRun& run) const {
        for (uint32_t y = run.y0; y < run.y1; ++y)
            for (uint32_t x = run.x0; x < run.x1; x += QLM_BlendRowLimit)
                RunRow(x, y, static_cast<int>(std::min<uint32_t>(QLM_BlendRowLimit, run.x1 - x)));
    }

  private:
    /// Clear, layers from the bottom up, finish, on rows that stay in the cache: every plane is read or written once.
    void RunRow(uint32_t x, uint32_t y, int count) const {
        alignas(32) uint8_t color[QLM_BlendRowLimit * 3], alpha[QLM_BlendRowLimit];
        memset(color, 0, static_cast<size_t>(count) * 3);
        memset(alpha, 0, static_cast<size_t>(count));
        const size_t first = size_t(y) * target.width + x;
        for (size_t i = 0; i < layers.size(); ++i)
            blend[i]({color, alpha, layers[i].pixels + first * 3, layers[i].mask + first, layers[i].opacity, count});
        const uint8_t* checker = target.checker ? &checkerRows[(y / CheckerCell) & 1][x % CheckerPeriod * 3] : nullptr;
        QLM_FinishRow(color, alpha, checker, count, kernel);
        memcpy(target.pixels + first * 3, color, static_cast<size_t>(count) * 3);
        memcpy(target.mask + first, alpha, static_cast<size_t>(count));
    }

    const QLM_ResolveTarget& target;
    const std::vector<QLM_ResolveLayer>& layers;
    const QLM_RowKernel kernel = QLM_GetRowKernel();
    std::vector<QLM_BlendRowFunction> blend;
    uint8_t checkerRows[2][CheckerWidth * 3]; ///< of even and odd rows of cells
};

} // namespace

void QLM_ResolveRuns(const QLM_ResolveTarget& target, const std::vector<QLM_ResolveLayer>& layers,
                     const std::vector<QLM_ResolveRun>& runs) {
    const Resolve resolve(target, layers);
    uint64_t pixels = 0;
    for (const QLM_ResolveRun& run : runs) pixels += uint64_t(run.x1 - run.x0) * (run.y1 - run.y0);
    // The failure road may come from inside a thread function.
    if (runs.size() < 2 || pixels * (layers.size() + 1) < PixelsWorthAThread || QLM_IsInsideCrunch()) {
        for (const QLM_ResolveRun& run : runs) resolve.Run(run);
        return;
    }
    QLM_ThreadCrunchEachThread(
        [&](const ThreadCrunchRange& range) {
            const size_t step = static_cast<size_t>(range.threadCount);
            for (size_t i = static_cast<size_t>(range.threadIndex); i < runs.size(); i += step) resolve.Run(runs[i]);
        },
        "ResolveMapLayer_Func");
}
